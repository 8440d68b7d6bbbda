# SPDX-License-Identifier: MIT
"""A reader that is killed and started again, with what it must remember."""
import json
import os
import re
import shutil
import signal
import tempfile
import time
from pathlib import Path

import zmq

from campaign import processes
from campaign.file_calls import COUNT, KILL, FileCalls
from campaign.reader import REPLY, NoReply, Reader, until

MODE, AUTO_START, LOG = "mode_config.json", "autoStart.txt", "tarnwick.log"
OLD_LOGS = [f"{LOG}.{number}" for number in range(1, 6)]
# The daemon's files. Those that are written aside have one name each, so that they cannot pile up.
KNOWN = {MODE, AUTO_START, LOG, *OLD_LOGS, f"{MODE}.new", f"{AUTO_START}.new"}
LOG_LIMIT = 5 * 1024 * 1024  # bytes, at which the daemon turns its log
STAMP = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (?:INFO|WARNING|ERROR|DEBUG) "
RUN_ON = re.compile(rf"[^\n]{STAMP}")
MARKER = re.compile(r'"userDefined": ?"m(\d+)"')


class Victim:
    """One folder, one daemon after another in it."""

    def __init__(self, campaign, **options):
        self.campaign = campaign
        self.folder = Path(tempfile.mkdtemp(prefix="victim-"))
        self.files = FileCalls(campaign, self.folder)
        environment = {**self.files.environment(), **options.pop("environment", {})}
        self.reader = Reader(campaign, directory=self.folder, environment=environment, **options)
        self.number = 0
        # What may be in force and in the files: one thing, or two after a request without a reply.
        self.modes = {0}  # numbers of modes, 0 for the default
        self.starts = {""}  # contents of autoStart.txt, empty without the file
        self.burst = []  # lines that the log must have, in their order

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.reader.end()
        self.files.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    # ------------------------------------------------- what may be under way

    def begin_mode(self):
        """Sends a mode of its own number and of any length."""
        self.number += 1
        select = {"target": "SL", "action": "ASSERTSL_NOTHING", "membank": "EPC", "pointer": 32, "length": 64,
                  "mask": "30" * 8}
        mode = {"type": "SIMPLE", "tagMetaData": [{"userDefined": f"m{self.number}"}],
                "selects": [select] * self.campaign.random.randrange(1, 32)}
        self.reader.client.send("mode " + json.dumps(mode))
        return "modes", self.number

    def begin_start(self):
        self.reader.client.send("start")
        return "starts", "true"

    def begin_stop(self):
        self.reader.client.send("stop")
        return "starts", "false"

    def begin_rotation(self):
        """Fills the log up to its limit by requests; file_log() must have been called."""
        socket = zmq.Context.instance().socket(zmq.DEALER)
        socket.setsockopt(zmq.LINGER, 0)
        socket.connect(REPLY)
        self.burst = [f"burst{number:06}" for number in range(60)]
        for line in self.burst:
            socket.send_multipart([b"", f"{line} {'x' * 2000}".encode()])
        self.burst_socket = socket
        return "burst", None

    def finish(self, what, value):
        """Takes the reply of what has begun, if it still comes."""
        if what == "burst":
            for _ in self.burst:
                if not self.burst_socket.poll(2000 if self.reader.is_alive() else 5):
                    break
                self.burst_socket.recv_multipart()
            self.burst_socket.close()
            return
        reply = b""
        try:
            alive = self.reader.is_alive()
            reply = self.reader.client.receive(20 if alive else 0.005)
        except NoReply:
            if alive and self.reader.is_alive():
                raise
        possible = {value} if reply.startswith(b"Success") else getattr(self, what)
        setattr(self, what, possible if reply else {*possible, value})

    def fill_log(self):
        """A log just below its limit, and full old ones, while the daemon is down."""
        for name in (LOG, *OLD_LOGS):
            (self.folder / name).write_text("".join(earlier_lines(name)))

    # ------------------------------------------------------------- kills

    def duration(self, begin):
        """Seconds that it takes."""
        start = time.perf_counter()
        self.finish(*begin())
        return time.perf_counter() - start

    def kill_after(self, begin, seconds):
        """Kills the daemon some time after `begin`. True when that was before the reply."""
        due = time.perf_counter() + seconds
        what, value = begin()
        while time.perf_counter() < due:
            pass
        os.kill(self.reader.daemon.pid, signal.SIGKILL)
        processes.wait(self.reader.daemon, 10)
        self.finish(what, value)
        return len(self.starts) + len(self.modes) > 2

    def file_calls(self, begin):
        """How many of its calls change files."""
        self.files.arm(COUNT)
        self.finish(*begin())
        return self.files.calls()

    def kill_at_call(self, begin, call):
        """Lets the daemon die before a call that changes a file. False when it does not come that far."""
        self.files.arm(KILL, call)
        what, value = begin()
        dead = processes.wait(self.reader.daemon, 1) is not None
        self.finish(what, value)
        self.files.disarm()
        if not dead:
            self.reader.kill()
        return dead

    def kill_in_start(self, call):
        """The same for a start. False when the daemon comes up."""
        self.files.arm(KILL, call)
        self.reader.launch()
        until(lambda: self.reader.daemon.poll() is not None or answers(self.reader), 20, "a start or an end")
        dead = not self.reader.is_alive()
        self.files.disarm()
        if not dead:
            self.reader.kill()
        return dead

    # ---------------------------------------------------------- afterwards

    def check(self, condition, text):
        return self.campaign.check(condition, text, self.reader)

    def recover(self, how):
        """Looks at the files that a kill has left, starts the daemon, and looks at what it knows."""
        self.reader.kill()
        self.check_files(how)
        self.reader.start()
        reply = self.reader.request("mode")
        number = marker_of(reply)
        self.check(number in self.modes, f"{how}: mode {number} of {self.modes} is in force: {reply}")
        self.modes = {number}
        with open(self.folder / LOG, "rb") as file:
            file.seek(max(0, os.fstat(file.fileno()).st_size - 200_000))
            log = file.read().decode(errors="replace")
        self.check(not RUN_ON.search(log), f"{how}: a line of the log goes on in the next one")

    def check_files(self, how):
        names = {file.name for file in self.folder.iterdir()}
        self.check(names <= KNOWN, f"{how}: files are left behind: {names - KNOWN}")
        try:
            file = self.folder / MODE
            number = marker_of(json.dumps(json.loads(file.read_text()))) if file.exists() else 0
        except ValueError as error:
            number = error
        self.check(number in self.modes, f"{how}: {MODE} has the mode {number} of {self.modes}")
        file = self.folder / AUTO_START
        content = file.read_text() if file.exists() else ""
        self.check(content in self.starts, f"{how}: {AUTO_START} has {content!r} of {self.starts}")
        self.starts = {content}

    def check_log(self, how):
        """After a burst and a start behind it: the lines of before are all there but those of the oldest log,
        and the lines of the burst are without a gap."""
        text = "".join(
            (self.folder / name).read_text(errors="replace")
            for name in (*reversed(OLD_LOGS), LOG) if (self.folder / name).exists()
        )  # fmt: skip
        for name in (LOG, *OLD_LOGS[:4]):
            lines = earlier_lines(name)
            self.check("".join(lines) in text, f"{how}: lines of {name} are lost")
        found = re.findall(r"burst\d{6}", text)
        expected = [line for line in self.burst if line in found]
        self.check(expected == self.burst[: len(expected)], f"{how}: the log has {expected} of {self.burst}")


def earlier_lines(name):
    """What a log has before it is turned, of a length that is known."""
    size = LOG_LIMIT - 60_000 if name == LOG else 3000
    line = f"2026-01-01T00:00:00.000Z INFO earlier {name} "
    return [f"{line}{number:08}\n" for number in range(size // (len(line) + 9))]


def marker_of(text):
    found = MARKER.search(text)
    return int(found.group(1)) if found else 0


def answers(reader):
    try:
        return bool(reader.request("logging", timeout=0.05))
    except NoReply:
        return False
