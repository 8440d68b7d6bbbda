# SPDX-License-Identifier: MIT
"""A disk that is full, read-only or slow, calls that fail, and odd things in the place of files: the daemon tells
it in its log, writes nothing by halves, and goes on answering."""
import errno
import json
import os
import re
import shutil
import subprocess
import time
from pathlib import Path

from campaign.file_calls import DELAY, FAIL, SHORT
from campaign.odd_files import KINDS, fingerprint
from campaign.reader import DATA, Reader
from campaign.victim import AUTO_START, LOG, MODE, OLD_LOGS, Victim, marker_of

TITLE = "disk full, read-only, slow; odd files"
SHARE = 40
ERRORS = (errno.ENOSPC, errno.EIO, errno.EROFS, errno.EDQUOT)
# What uses a file that modes, starts and stops do not; the replies do not tell how it went.
USES = {
    "aar.json": ("start sim_bearing 100 0", "stop"),
    "tag.json": ("start sim_bearing 100 0", "stop"),
    "logs": ("logging radioPacketLog=ON", "logging radioPacketLog=OFF"),
}
NOT_STORED = {"mode": "the mode is in force, but not stored for the next start: ",
              "start": "autoStart.txt does not tell the last start or stop: "}  # fmt: skip
NOT_STORED["stop"] = NOT_STORED["start"]
NOT_USED = re.compile("The stored mode is not used: |Error parsing mode_config.json|Error with mode_config.json")


# ------------------------------------------------------------ calls that fail


def stored(victim, kind):
    """What the file has that a request of this kind writes."""
    if kind == "mode":
        return marker_of((victim.folder / MODE).read_text())
    return (victim.folder / AUTO_START).read_text()


def failing_call(campaign, victim, kind, action, call, most, number):
    begin = {"mode": victim.begin_mode, "start": victim.begin_start, "stop": victim.begin_stop}[kind]
    how = f"{errno.errorcode[number]} at call {call} of {kind}" + (" and all behind" if most == 0 else "")
    how += ", after half of a write" if action == SHORT else ""
    if kind == "stop":
        victim.finish(*victim.begin_start())
    before = stored(victim, kind)
    size = len(victim.reader.log())
    victim.files.arm(action, call, most, number)
    what, value = begin()
    victim.finish(what, value)
    campaign.check(getattr(victim, what) == {value}, f"{how}: the reply is not Success", victim.reader)
    victim.files.disarm()
    now = stored(victim, kind)
    campaign.check(now in (before, value), f"{how}: the file has {now!r}", victim.reader)
    victim.finish(*victim.begin_stop())
    if now != value:
        for _ in range(3):  # lines enough for the log to be written
            victim.reader.request("x" * 4000)
        told = victim.reader.log()[size:]
        campaign.check(NOT_STORED[kind] in told, f"{how}: the log does not tell", victim.reader)
    victim.finish(*victim.begin_mode())
    in_file = marker_of((victim.folder / MODE).read_text())
    campaign.check({in_file} == victim.modes, f"{how}: the next mode is not stored", victim.reader)


def failing_calls(campaign, end):
    """Returns how many calls have failed, of how many."""
    with Victim(campaign) as victim:
        for begin in (victim.begin_mode, victim.begin_start, victim.begin_stop):
            victim.finish(*begin())
        cases = []
        for kind, begin in (("mode", victim.begin_mode), ("start", victim.begin_start), ("stop", victim.begin_stop)):
            count = victim.file_calls(begin)
            cases += [(kind, FAIL, call, most, number) for call in range(count) for most in (1, 0) for number in ERRORS]
            cases += [(kind, SHORT, call, 1, errno.ENOSPC) for call in range(count)]
        campaign.random.shuffle(cases)
        for done, case in enumerate(cases):
            if time.monotonic() > end:
                return done, len(cases)
            failing_call(campaign, victim, *case)
    return len(cases), len(cases)


# ------------------------------------------------------------- whole disks


class Disk:
    """A small file system in memory, mounted for one reader."""

    def __init__(self, size):
        self.folder = Path("/tmp/campaign-disk")
        self.folder.mkdir(exist_ok=True)
        mount("-t", "tmpfs", "-o", f"size={size}", "none", self.folder)

    def __enter__(self):
        return self.folder

    def __exit__(self, *_):
        subprocess.run(["umount", "--lazy", self.folder], check=True)


def mount(*arguments):
    subprocess.run(["mount", *map(str, arguments)], check=True)


def use(campaign, reader, how, number):
    """Requests of all kinds; each has its usual reply."""
    mode = {"type": "SIMPLE", "tagMetaData": [{"userDefined": f"m{number}"}]}
    for request in ("mode " + json.dumps(mode), "start", "status", "stop"):
        reply = reader.request(request)
        campaign.check(reply.startswith("Success"), f"{how}: {request} has the reply {reply}", reader)
    reply = reader.request("mode")
    campaign.check(marker_of(reply) == number, f"{how}: another mode is in force: {reply}", reader)


def fill(path):
    """Writes a file until the disk is full."""
    with open(path, "wb", buffering=0) as file:
        try:
            while file.write(bytes(4096)):
                pass
        except OSError as error:
            if error.errno != errno.ENOSPC:
                raise


def full(campaign, log_is_full):
    """No room for the mode, with or without room for the log."""
    with Disk("1m") as folder, Reader(campaign, directory=folder) as reader:
        how = "a full disk"
        use(campaign, reader, how, 1)
        (folder / OLD_LOGS[0]).write_text("old")
        filler = folder / "filler"
        fill(filler)
        if not log_is_full:
            os.truncate(filler, filler.stat().st_size - 4096)
        before = (folder / MODE).read_bytes()
        for number in range(2, 40):
            use(campaign, reader, how, number)
        content = (folder / MODE).read_bytes()
        campaign.check(content == before or marker_of(content.decode()) == 39, f"{how}: {content[:100]}", reader)
        campaign.check((folder / OLD_LOGS[0]).read_text() == "old", f"{how}: the log was turned", reader)
        json.loads(content)
        filler.unlink()
        use(campaign, reader, how + " with room again", 40)
        campaign.check(marker_of((folder / MODE).read_text()) == 40, f"{how}: the next mode is not stored", reader)
        reader.exit()
        log = reader.log()
        if log_is_full:  # else there may have been room for the mode
            campaign.check("lines are missing" in log, f"{how}: the log does not tell what it lacks", reader)
            campaign.check(NOT_STORED["mode"] in log, f"{how}: the log does not tell", reader)
        reader.start()
        campaign.check(marker_of(reader.request("mode")) == 40, f"{how}: the next start has another mode", reader)


def read_only(campaign):
    """From the start of the daemon, and writable later. A disk that gets read-only meanwhile is among the calls
    that fail: while the log is open, the kernel does not let go of it."""
    how = "a read-only disk"
    with Disk("1m") as folder:
        mount("--bind", folder, folder)
        try:
            (folder / MODE).write_text(json.dumps({"mode": {"type": "SIMPLE", "tagMetaData": [{"userDefined": "m1"}]}}))
            mount("-o", "remount,ro,bind", folder)
            with Reader(campaign, directory=folder) as reader:
                mode = reader.request("mode")
                campaign.check(marker_of(mode) == 1, f"{how}: it starts with {mode}", reader)
                for number in range(2, 10):
                    use(campaign, reader, how, number)
                campaign.check(marker_of((folder / MODE).read_text()) == 1, f"{how}: the mode has changed", reader)
                mount("-o", "remount,rw,bind", folder)
                use(campaign, reader, how + ", then writable", 10)
                campaign.check(marker_of((folder / MODE).read_text()) == 10, f"{how}: the mode is not stored", reader)
                reader.exit()
                campaign.check(NOT_STORED["mode"] in reader.log(), f"{how}: the log does not tell", reader)
        finally:
            subprocess.run(["umount", "--lazy", folder], check=True)


def slow(campaign):
    """Each call takes 50 ms: every request has its reply, and reports go on meanwhile."""
    with Victim(campaign, scenario={"tags": {"count": 50}}) as victim:
        reader = victim.reader
        data = reader.subscribe(DATA)
        mode = {"type": "SIMPLE", "reportFilter": {}, "tagMetaData": [{"userDefined": "m1"}]}
        reader.request("mode " + json.dumps(mode))
        reader.request("start")
        campaign.check(data.poll(10_000), "no report on a disk that is fast", reader)
        slowest = gap = 0
        victim.files.arm(DELAY, most=0, value=50_000)
        last = time.monotonic()
        for number in range(2, 8):
            begin = time.monotonic()
            reader.client.send("mode " + json.dumps({**mode, "tagMetaData": [{"userDefined": f"m{number}"}]}))
            while not reader.client.socket.poll(0):
                if data.poll(10):
                    data.recv()
                    gap, last = max(gap, time.monotonic() - last), time.monotonic()
            reply = reader.client.receive(1)
            slowest = max(slowest, time.monotonic() - begin)
            campaign.check(reply == b"Success\0", f"a slow disk: the reply {reply}", reader)
            campaign.check(reader.request("status").startswith("Success"), "a slow disk: no status", reader)
        calls = victim.files.calls()
        victim.files.disarm()
        data.close()
        number = marker_of((victim.folder / MODE).read_text())
        campaign.check(number == 7, f"a slow disk: the mode {number} is stored", reader)
    seconds = {} if campaign.is_sanitized else {"bound": 2}
    campaign.figure("a mode, while each of its file calls takes 50 ms", slowest, "s", **seconds)
    campaign.figure("the longest time without a report meanwhile", gap, "s", **seconds)
    campaign.check(calls > 20, f"a slow disk: only {calls} calls were slow")


# --------------------------------------------------------------- odd files


def odd_file(campaign, name, kind, user):
    make, is_file = KINDS[kind]
    how = f"{kind} as {name}" + (f", as {user}" if user else "")
    with Reader(campaign, start=False, user=user) as reader:
        path = reader.directory / name
        make(path)
        before = fingerprint(path)
        begin = time.monotonic()
        reader.start()
        seconds = time.monotonic() - begin
        campaign.check(seconds < 10, f"{how}: up after {seconds:.1f} s", reader)
        reply = reader.request("mode")
        campaign.check(reply.startswith("Success: "), f"{how}: mode has the reply {reply}", reader)
        size = reader.rss()
        campaign.check(campaign.is_sanitized or size < 100_000, f"{how}: takes {size} KiB", reader)
        use(campaign, reader, how, 7)
        for request in USES.get(name, ()):
            reply = reader.request(request)
            campaign.check(reply.startswith(("Success", "Failure")), f"{how}: {request}: {reply}", reader)
        reader.exit()
        log = reader.log() if name != LOG else ""
        if name == MODE and kind not in ("link", "dangling link"):
            is_default = kind == "unreadable file" and user is None
            campaign.check(is_default or kind == "empty file" or NOT_USED.search(log), f"{how}: not told", reader)
        if not is_file and os.path.lexists(path) and not is_device(kind):
            campaign.check(fingerprint(path) == before, f"{how}: it has changed", reader)
            if name in (MODE, AUTO_START):
                told = NOT_STORED["mode" if name == MODE else "start"] in log
                campaign.check(told or not path.exists(), f"{how}: the log does not tell", reader)
        left = {file.name for file in reader.directory.iterdir() if file.name.endswith(".new")}
        campaign.check(not left, f"{how}: {left} are left", reader)
        reader.start()
        campaign.check(reader.request("status").startswith("Success"), f"{how}: the second start is bad", reader)


def is_device(kind):
    return "device" in kind


def odd_files(campaign, end):
    cases = [(name, kind, user) for name in (MODE, AUTO_START, LOG, OLD_LOGS[0], *USES)
             for kind in KINDS for user in (None, "trfidadm")]  # fmt: skip
    # The library of the log would wait for ever for the reader of a pipe. A folder of packet logs is not odd.
    cases = [case for case in cases if case[:2] not in ((LOG, "pipe"), ("logs", "folder"))]
    campaign.random.shuffle(cases)
    for done, case in enumerate(cases):
        if time.monotonic() > end:
            return done, len(cases)
        odd_file(campaign, *case)
    return len(cases), len(cases)


def run(campaign):
    for log_is_full in (True, False):
        full(campaign, log_is_full)
    read_only(campaign)
    slow(campaign)
    calls = failing_calls(campaign, time.monotonic() + 0.4 * campaign.left())
    odd = odd_files(campaign, time.monotonic() + campaign.left())
    campaign.figure("calls that failed in modes, starts and stops", calls[0], of=calls[1])
    campaign.figure("odd files", odd[0], of=odd[1])
    campaign.figure("disks full, read-only, slow", 4, of=4)
    shutil.rmtree("/tmp/campaign-disk", ignore_errors=True)
