# SPDX-License-Identifier: MIT
"""Steers campaign/file_calls.c: the daemon's calls that change its files are counted, and at one of them the
process ends, the call fails, or it takes long."""
import mmap
import os
import struct
import subprocess
import tempfile
from pathlib import Path

from campaign.campaign import ROOT

COUNT, KILL, FAIL, SHORT, DELAY = range(5)
_RECORD = struct.Struct("5i")


class FileCalls:
    """The library and the memory that it shares with this process, for one reader's folder."""

    def __init__(self, campaign, folder):
        self.place = Path(tempfile.mkdtemp(prefix="file-calls-"))
        self.place.chmod(0o755)
        self.folder = folder
        self.is_sanitized = campaign.is_sanitized
        self.library = self.place / "file_calls.so"
        source = ROOT / "campaign" / "file_calls.c"
        subprocess.run(["cc", "-O1", "-Wall", "-shared", "-fPIC", source, "-o", self.library, "-ldl"], check=True)
        file = self.place / "control"
        file.write_bytes(bytes(_RECORD.size))
        file.chmod(0o666)
        with open(file, "r+b") as opened:
            self.memory = mmap.mmap(opened.fileno(), _RECORD.size)

    def environment(self):
        """Variables of the daemon. A sanitizer wants to be the first library."""
        variables = {"LD_PRELOAD": str(self.library), "FILE_CALLS": str(self.place / "control"),
                     "FILE_CALLS_FOLDER": str(self.folder)}
        if self.is_sanitized:
            options = "detect_stack_use_after_return=1:verify_asan_link_order=0"
            variables["ASAN_OPTIONS"] = options
        return variables

    def arm(self, action, at=0, most=1, value=0):
        """From its call `at` on, counted from now, the daemon gets the action, `most` times; 0 for ever.

        `value` is the errno of FAIL and of the call behind SHORT, or the microseconds of DELAY.
        """
        _RECORD.pack_into(self.memory, 0, action, at, most, value, 0)

    def disarm(self):
        self.arm(COUNT)

    def calls(self):
        """Calls since the last arm()."""
        return _RECORD.unpack_from(self.memory)[4]

    def close(self):
        self.memory.close()
        for file in self.place.iterdir():
            os.unlink(file)
        os.rmdir(self.place)
