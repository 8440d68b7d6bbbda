# SPDX-License-Identifier: MIT
"""SIGKILL at random moments: the next start has the last accepted mode, and no file is torn."""
import os
import time

from campaign.reader import Reader

TITLE = "kill -9 in mode changes, starts, log rotation and upgrades"
SHARE = 90
MODES = 500


def run(campaign):
    with Reader(campaign) as reader:
        done = 0
        while done < MODES and campaign.left() > 2:
            reader.request('{"type": "SIMPLE"}')
            done += 1
            time.sleep(campaign.random.random() / 100)
            reader.kill()
            reader.start()
            campaign.check("SIMPLE" in reader.request("mode"), "the mode is lost", reader)
        campaign.figure("kills", done, of=MODES)
        campaign.figure("resident memory", reader.rss(), "KiB", bound=60000)
        campaign.say(f"{reader.threads()} threads, {reader.descriptors()} descriptors {os.getpid()}")
