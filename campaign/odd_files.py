# SPDX-License-Identifier: MIT
"""Things that can stand in the place of a file of the daemon."""
import json
import os
from pathlib import Path

GOOD = json.dumps({"mode": {"type": "INVENTORY"}})


def folder(path):
    path.mkdir()
    (path / "inside").write_text("kept")


def link_to_good(path):
    target = path.with_name(path.name + ".elsewhere")
    target.write_text(GOOD if path.suffix == ".json" else "false" if path.suffix == ".txt" else "earlier\n")
    path.symlink_to(target.name)


def ring(path):
    other = path.with_name(path.name + ".ring")
    other.symlink_to(path.name)
    path.symlink_to(other.name)


def huge(path):
    with open(path, "wb") as file:
        file.truncate(1 << 30)


def unreadable(path):
    path.write_text(GOOD)
    path.chmod(0)
    os.chown(path, 0, 0)


# The name, what makes it, and whether a daemon that is root can use it as a file.
KINDS = {
    "folder": (folder, False),
    "link": (link_to_good, True),
    "dangling link": (lambda path: path.symlink_to("nowhere"), True),
    "ring of links": (ring, False),
    "endless device": (lambda path: path.symlink_to("/dev/zero"), False),
    "full device": (lambda path: path.symlink_to("/dev/full"), False),
    "pipe": (os.mkfifo, False),
    "huge file": (huge, True),
    "unreadable file": (unreadable, True),
    "empty file": (Path.touch, True),
    "garbage": (lambda path: path.write_bytes(bytes(range(256)) * 64), True),
    "brackets": (lambda path: path.write_text("[" * 1_000_000), True),
    "other JSON": (lambda path: path.write_text('{"mode": [1, 2, {"type": null}]}'), True),
}


def fingerprint(path):
    """What must stay as it is: the kind of file, and what a small one holds."""
    status = os.lstat(path)
    kind = status.st_mode & 0o170000
    if path.is_dir() and not path.is_symlink():
        return kind, sorted(file.name for file in path.iterdir())
    if path.is_symlink():
        return kind, os.readlink(path)
    return kind, status.st_size if kind == 0o100000 else None
