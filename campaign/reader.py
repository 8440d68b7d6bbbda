# SPDX-License-Identifier: MIT
"""A whole reader: the daemon with the software radio and the management server, in a folder of its own.

One at a time, since the endpoints are fixed. Sections use it as

    with Reader(campaign, scenario={"clock": "fast"}, profile="QDX4400") as reader:
        reader.request("start")
"""
import json
import os
import re
import shutil
import tempfile
import time
from pathlib import Path

import zmq

from campaign import processes
from campaign.campaign import ROOT

REPLY = "ipc:///tmp/tarnwick_rep"
ENGINE = "ipc:///tmp/rxe_engine"
DATA = "ipc:///tmp/data"
EVENTS = "ipc:///tmp/events"
LINES = "ipc:///tmp/gpio_led_controller"
TCP_DATA = "tcp://127.0.0.1:5160"

SANITIZER = re.compile(r"(ERROR|WARNING): \w+Sanitizer|runtime error:")


class NoReply(Exception):
    """A request that got no reply in time."""


class Client:
    """A REQ socket that can be used again after a peer did not answer or was killed."""

    def __init__(self, endpoint):
        self.endpoint = endpoint
        self.socket = None

    def ask(self, text, timeout):
        self.send(text)
        return self.receive(timeout)

    def send(self, text):
        if self.socket is None:
            self.socket = zmq.Context.instance().socket(zmq.REQ)
            self.socket.setsockopt(zmq.LINGER, 0)
            self.socket.setsockopt(zmq.RECONNECT_IVL, 5)  # ms
            self.socket.connect(self.endpoint)
        self.socket.send(text.encode() if isinstance(text, str) else text)

    def receive(self, timeout):
        """The reply to what was sent. Raises NoReply when it does not come, and lets go of the socket."""
        if not self.socket.poll(timeout * 1000):
            self.close()
            raise NoReply(f"no reply within {timeout} s on {self.endpoint}")
        return self.socket.recv()

    def close(self):
        if self.socket is not None:
            self.socket.close()
            self.socket = None


class Reader:
    """The daemon and what it needs. Ends all of it at the end of the `with`, also on exceptions."""

    def __init__(
        self,
        campaign,
        *,
        scenario=None,  # of the software radio, as a dict; its own without
        profile="PN5100",  # of rm_server: a name or a file
        server=True,
        server_arguments=(),
        arguments=(),  # of the daemon
        environment=None,  # further variables of the daemon
        wrapper=(),  # words in front of the daemon's command, such as prlimit --nofile=64
        user=None,  # runs the daemon; root without
        program=None,  # the daemon itself, when it is not the built one
        directory=None,  # the daemon's; a new one below /tmp without, removed at the end
        start=True,  # and wait until it answers
    ):
        self.campaign = campaign
        self.scenario = scenario
        self.arguments = list(arguments)
        self.environment = dict(environment or {})
        self.wrapper = list(wrapper)
        self.user = user
        self.program = program or campaign.bin / "tarnwick"
        self._own = directory is None
        self.directory = Path(directory or tempfile.mkdtemp(prefix="reader-"))
        # The scenario and what the programs print: not in the daemon's folder, which may be full.
        self.aside = Path(tempfile.mkdtemp(prefix="reader-aside-"))
        self.aside.chmod(0o755)
        if user is not None and self._own:
            shutil.chown(self.directory, user)
        self.daemon = None
        self.server = None
        self.client = Client(REPLY)
        self.radio = Client(ENGINE)
        self._output = None
        try:
            if server:
                self.start_server("--profile", profile, *server_arguments)
            if start:
                self.start()
        except BaseException:
            self.end()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()

    def start_server(self, *arguments):
        """Starts rm_server and waits until it listens."""
        log = self.aside / "rm_server.out"
        with open(log, "wb") as out:
            self.server = processes.start(
                [self.campaign.bin / "rm_server", *arguments], stdout=out, stderr=out, cwd=self.aside
            )
        until(lambda: "listening" in log.read_text() or self.server.poll() is not None, 10, "rm_server")
        if self.server.poll() is not None:
            raise RuntimeError("rm_server: " + log.read_text())

    def start(self, wait=True):
        """Starts the daemon; with `wait` returns when it answers, else at once."""
        self.launch()
        if wait:
            self.wait_ready()

    def launch(self):
        environment = {**os.environ, **self.sanitizer_options(), **self.environment}
        if self.scenario is not None:
            file = self.aside / "scenario.json"
            file.write_text(json.dumps(self.scenario))
            environment["RXE_SCENARIO"] = str(file)
        self._output = self.aside / "tarnwick.out"
        with open(self._output, "ab") as out:
            self.daemon = processes.start(
                [*self.wrapper, self.program, *self.arguments],
                user=self.user, stdout=out, stderr=out, cwd=self.directory, env=environment,
            )

    def wait_ready(self, timeout=30):
        """Waits until the daemon answers. Raises when it ends instead."""
        end = time.monotonic() + timeout
        while time.monotonic() < end:
            try:
                return self.request("logging", timeout=0.5)
            except NoReply:
                if self.daemon.poll() is not None:
                    raise RuntimeError(f"tarnwick ended with {self.daemon.returncode}: {self.output()}") from None
        raise NoReply(f"tarnwick did not answer within {timeout} s after its start: {self.output()}")

    def sanitizer_options(self):
        support = ROOT / "tests" / "support"
        return {
            "ASAN_OPTIONS": "detect_stack_use_after_return=1:strict_string_checks=1",
            "UBSAN_OPTIONS": "print_stacktrace=1",
            "LSAN_OPTIONS": f"suppressions={support}/lsan.supp",
            "TSAN_OPTIONS": f"suppressions={support}/tsan.supp:second_deadlock_stack=1",
        }

    def request(self, text, timeout=20):
        """One request and its reply without the NUL at its end. Raises NoReply."""
        reply = self.client.ask(text, timeout)
        if not reply.endswith(b"\0"):
            raise RuntimeError(f"a reply without its NUL: {reply[-100:]!r}")
        return reply[:-1].decode(errors="backslashreplace")

    def engine(self, message, timeout=10):
        """An event or a question to the software radio; dict or text. Returns its answer."""
        text = json.dumps(message) if isinstance(message, dict) else message
        return self.radio.ask(text, timeout).decode()

    def subscribe(self, endpoint, prefix=b"", limit=0):
        """A SUB socket: binds an ipc endpoint, as consumers do, and connects to the tcp port."""
        socket = zmq.Context.instance().socket(zmq.SUB)
        socket.setsockopt(zmq.LINGER, 0)
        socket.setsockopt(zmq.RCVHWM, limit)
        socket.setsockopt(zmq.SUBSCRIBE, prefix)
        if endpoint.startswith("ipc:"):
            socket.bind(endpoint)
        else:
            socket.connect(endpoint)
        return socket

    def rss(self):
        """Resident memory of the daemon, KiB."""
        return int(re.search(r"VmRSS:\s+(\d+)", self._status()).group(1))

    def threads(self):
        return int(re.search(r"Threads:\s+(\d+)", self._status()).group(1))

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.daemon.pid}/fd"))

    def _status(self):
        return Path(f"/proc/{self.daemon.pid}/status").read_text()

    def is_alive(self):
        return self.daemon is not None and self.daemon.poll() is None

    def kill(self):
        """SIGKILL to the daemon, if there is one; it is gone when this returns."""
        if self.daemon is not None:
            processes.kill(self.daemon)
        self._forget()

    def exit(self, timeout=30):
        """Ends the daemon by its request. Returns its exit status; raises when it does not end."""
        self.request("exit", timeout)
        status = processes.wait(self.daemon, timeout)
        if status is None:
            raise TimeoutError(f"tarnwick has not ended {timeout} s after its exit request")
        self._forget()
        return status

    def stop(self):
        """Ends the daemon by SIGTERM, and by SIGKILL after 10 s. Returns its exit status."""
        status = processes.end(self.daemon)
        self._forget()
        return status

    def restart(self):
        """SIGKILL and a new start."""
        self.kill()
        self.start()

    def end(self):
        """Ends everything and removes the folder."""
        if self.is_alive():
            try:
                self.exit(timeout=5)  # SIGTERM is seen once a second only
            except (NoReply, RuntimeError, TimeoutError, zmq.ZMQError):
                self.stop()
        self._forget()
        if self.server is not None:
            processes.end(self.server)
        if self._own:
            shutil.rmtree(self.directory, ignore_errors=True)
        shutil.rmtree(self.aside, ignore_errors=True)

    def _forget(self):
        """What a daemon has left: its sockets, and what a sanitizer has printed."""
        if self.daemon is not None and self._output is not None:
            found = SANITIZER.search(self.output())
            if found or self.campaign.is_sanitized:
                self.campaign.check(not found, f"a sanitizer report: {found}", reader=self)
        self.client.close()
        self.radio.close()
        self.daemon = None

    def output(self):
        """What the daemon has printed, from its first start on."""
        return self._output.read_text(errors="replace") if self._output and self._output.exists() else ""

    def log(self):
        """The log so far; lines come in it late, all of them when the daemon has ended."""
        file = self.directory / "tarnwick.log"
        return file.read_text(errors="replace") if file.is_file() else ""


def until(condition, timeout, what):
    """Waits until the condition holds. Raises TimeoutError after `timeout` seconds."""
    end = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f"waited {timeout} s for {what}")
        time.sleep(0.005)
