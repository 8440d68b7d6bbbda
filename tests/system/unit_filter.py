#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs a program under the system call filter of a systemd unit, without systemd.

    unit_filter.py UNIT PROGRAM [ARGUMENT...]

A call that the unit does not allow ends the program by SIGSYS, where systemd would let it
fail: so nothing that the program does without goes unseen.
"""
import os
import subprocess
import sys

import seccomp


def calls(word):
    if not word.startswith("@"):
        return [word]
    shown = subprocess.run(["systemd-analyze", "syscall-filter", word], check=True, capture_output=True, text=True)
    names = [line.strip() for line in shown.stdout.splitlines() if line.startswith("    ")]
    return [call for name in names if not name.startswith("#") for call in calls(name)]


with open(sys.argv[1]) as unit:
    lines = [line.strip().split("=", 1)[1] for line in unit if line.startswith("SystemCallFilter=")]
allowed = {call for word in " ".join(["@default", *lines]).split() for call in calls(word)}
rules = seccomp.SyscallFilter(seccomp.KILL_PROCESS)
for call in allowed:
    try:
        rules.add_rule(seccomp.ALLOW, call)
    except (ValueError, RuntimeError):
        pass  # a call of another processor
rules.load()
os.execv(sys.argv[2], sys.argv[2:])
