# SPDX-License-Identifier: MIT
"""A management server and peers that do everything but what they should."""
import json
import time

from campaign import account
from campaign.crowd import Crowd, Tally
from campaign.management import BEHAVIOURS, Management, well
from campaign.reader import NoReply, Reader
from campaign.sections import network_peers

TITLE = "a slow, broken and hostile management server, and hostile peers on every socket"
SHARE = 100  # seconds of the short form

QUESTION = 5  # seconds that the daemon waits for an answer; a mode asks two questions
MODE_BOUND = 2 * QUESTION + 2
START_BOUND = 30
GROWTH = 16 * 1024  # KiB
ASKING = '{"type": "SIMPLE", "environment": "LOW_INTERFERENCE", "antennas": [%d]}'


def servers(campaign, seconds):
    """A mode and a start with each kind of answer."""
    end = time.monotonic() + seconds
    names = [name for name in BEHAVIOURS if name != "well"]
    campaign.random.shuffle(names)
    done, slowest = ask_modes(campaign, names, end)
    campaign.figure("kinds of answers to a mode", done, of=len(names))
    campaign.figure("longest reply to a mode meanwhile", slowest, "s", bound=MODE_BOUND)
    done, slowest = start_with(campaign, names, end)
    campaign.figure("kinds of answers to a start", done, of=len(names))
    campaign.figure("longest start until it answers or ends", slowest, "s", bound=START_BOUND)


def ask_modes(campaign, names, end):
    """Each mode has its reply within the bound, is in force or not as it says, and the reports go on meanwhile."""
    done, slowest = 0, 0.0
    with Reader(campaign, server_arguments=("--port", "50010"), start=False) as reader, Management() as server:
        reader.start()
        before, rss = reader.descriptors(), reader.rss()
        with Crowd() as crowd:
            tally = Tally()
            reader.request("data_analytics STRING")
            crowd.subscribe(tally)
            for index, name in enumerate(names):
                if time.monotonic() > end:
                    break
                slowest = max(slowest, ask_mode(campaign, reader, server, name, ASKING % (index % 2 + 1), tally))
                done += 1
            account.closes(campaign, account.take(reader), "after the answers of a bad management server")
        reader.request("data_analytics OFF")
        time.sleep(0.5)
        campaign.check(
            reader.descriptors() <= before + 1, f"{reader.descriptors()} descriptors, {before} before", reader
        )
        if not campaign.is_sanitized:
            campaign.check(reader.rss() < rss + GROWTH, f"{reader.rss()} KiB resident, {rss} before", reader)
        campaign.check(reader.exit() == 0, "the daemon does not end well after bad answers", reader)
    return done, slowest


def ask_mode(campaign, reader, server, name, mode, tally):
    """A bad answer leaves the mode without the region's link profile, and is an error in log and status."""
    server.behaviour, is_good = BEHAVIOURS[name]
    reader.request("start sim 500")
    asked, received, before = server.asked, tally.received, errors(reader)
    begun = time.monotonic()
    reply = reader.request("mode " + mode, 60)
    spent = time.monotonic() - begun
    told = errors(reader) - before
    campaign.check(server.asked > asked, f"server {name}: was not asked", reader)
    campaign.check(reply == "Success", f"server {name}: the reply is {reply[:200]}", reader)
    campaign.check(
        is_good is None or is_good == (told == 0), f"server {name}: {told} errors were told", reader
    )
    stored = json.loads((reader.directory / "mode_config.json").read_text())["mode"]
    shown = json.loads(reader.request("mode as_set").removeprefix("Success: "))
    campaign.check(
        json.loads(mode) == stored == shown, f"server {name}: stored is {stored}, shown is {shown}", reader
    )
    if spent > 1:
        campaign.check(tally.received > received + 100, f"server {name}: no reports in the {spent:.1f} s", reader)
    server.behaviour, before = well, errors(reader)
    reply = reader.request("mode " + mode)
    campaign.check(
        reply == "Success" and errors(reader) == before, f"after server {name}: {reply[:200]}", reader
    )
    reader.request("stop")
    return spent


def errors(reader):
    return json.loads(reader.request("status numErrors").removeprefix("Success: "))["numErrors"]


def start_with(campaign, names, end):
    """The daemon answers in the end, or says why it ends."""
    done, slowest = 0, 0.0
    with Management() as server:
        for name in names:
            if time.monotonic() > end:
                break
            server.behaviour, is_good = BEHAVIOURS[name]
            with Reader(campaign, server_arguments=("--port", "50010"), start=False) as reader:
                begun = time.monotonic()
                reader.launch()
                comes_up = wait_for(reader, begun + START_BOUND + 1)
                slowest = max(slowest, time.monotonic() - begun)
                campaign.check(comes_up is not None, f"a start with server {name} neither ends nor answers", reader)
                if comes_up is False:
                    status = reader.daemon.returncode
                    campaign.check(status == 0, f"a start with server {name} ends with {status}", reader)
                    campaign.check("ERROR" in reader.log(), f"a start with server {name} does not say why", reader)
                elif comes_up and is_good is not None:  # else it has taken what the values say
                    server.behaviour = well
                    reply = reader.request("mode " + ASKING % 1)
                    campaign.check(reply == "Success", f"after a start with server {name}: {reply[:200]}", reader)
            done += 1
    return done, slowest


def wait_for(reader, end):
    """True when the daemon answers, False when it has ended, None after the end of the wait."""
    while time.monotonic() < end:
        if reader.daemon.poll() is not None:
            return False
        try:
            reader.request("logging", 0.3)
            return True
        except NoReply:
            pass
    return None


def run(campaign):
    servers(campaign, campaign.left() / 2)
    network_peers.attack_all(campaign)
