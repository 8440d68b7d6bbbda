# SPDX-License-Identifier: MIT
"""An upgrade as the package manager does it, killed together with the daemon, as by a power cut.

Programs are unpacked beside the old ones, synced and renamed; then the unit is restarted. The daemon runs
meanwhile, and starts from what is there.
"""
import os
import shutil
import signal
import tempfile
import time
from pathlib import Path

from campaign import processes
from campaign.victim import Victim

FILES = ("bin/tarnwick", "lib/libRxe.so", "lib/libtuvr.so")


class Upgrade:
    """A victim whose programs are copies, in two versions that differ by what stands behind their end."""

    def __init__(self, campaign):
        self.campaign = campaign
        self.place = Path(tempfile.mkdtemp(prefix="upgrade-"))
        self.versions = []
        for number in range(2):
            self.versions.append(
                {name: (campaign.bin.parent / name).read_bytes() + b"\n%d" % number for name in FILES}
            )
        for folder in ("bin", "lib"):
            (self.place / folder).mkdir()
        self.unpack(0)
        self.victim = Victim(
            campaign, program=self.place / "bin" / "tarnwick", environment={"LD_LIBRARY_PATH": str(self.place / "lib")}
        )
        self.seconds = self.duration()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.victim.__exit__()
        shutil.rmtree(self.place)

    def unpack(self, version):
        """What dpkg does with each file: .dpkg-new, sync, a link to the old one as .dpkg-tmp, rename."""
        for name, content in self.versions[version].items():
            path = self.place / name
            new, old = f"{path}.dpkg-new", f"{path}.dpkg-tmp"
            with open(new, "wb") as file:
                file.write(content)
                os.fchmod(file.fileno(), 0o755)
                os.fsync(file.fileno())
            if os.path.exists(old):
                os.unlink(old)
            if path.exists():
                os.link(path, old)
            os.rename(new, path)
        for name in FILES:
            Path(f"{self.place / name}.dpkg-tmp").unlink(missing_ok=True)

    def upgrade(self, version):
        """Runs in a process of its own: unpacks, and ends the old daemon, as the unit's restart does."""
        child = os.fork()
        if child == 0:
            try:
                self.unpack(version)
                os.kill(self.victim.reader.daemon.pid, signal.SIGTERM)
            finally:
                os._exit(0)
        return child

    def duration(self):
        begin = time.monotonic()
        os.waitpid(self.upgrade(1), 0)
        processes.wait(self.victim.reader.daemon, 10)
        seconds = time.monotonic() - begin
        self.victim.reader.start()
        return seconds

    def kill(self):
        """One upgrade, with a mode before it, and a kill of both within it."""
        victim = self.victim
        victim.finish(*victim.begin_mode())
        version = self.campaign.random.randrange(2)
        delay = self.campaign.random.random() * 1.1 * self.seconds
        child = self.upgrade(version)
        time.sleep(delay)
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)
        how = f"killed {1000 * delay:.1f} ms after the begin of an upgrade"
        victim.reader.kill()
        for name in FILES:
            content = (self.place / name).read_bytes()
            self.campaign.check(content in (self.versions[0][name], self.versions[1][name]), f"{how}: {name} is torn")
        victim.recover(how)
        # The package manager is run again.
        self.unpack(version)
        victim.reader.kill()
        victim.recover(how + ", then unpacked again")
