# SPDX-License-Identifier: MIT
"""Reports at a steady rate, and what must be true of those who received them."""
import time

from campaign import account
from campaign.reader import until

RATE = 10_000
MODE = 'mode {"type": "SIMPLE", "reportFilter": {}, "tagMetaData": ["CRC", "PC", "ANTENNA", "RSSI"]}'


def begin(reader, form, listeners=0):
    """Starts the reports when so many receivers are connected, and their subscriptions known."""
    reader.request(f"data_analytics {form}")
    reader.request(MODE)
    if listeners:
        until(lambda: account.take(reader)["listeners"] >= listeners, 20, f"{listeners} listeners")
        time.sleep(0.3)


def finish(campaign, reader, name):
    """Stops the reports. Returns the account, which must close."""
    reader.request("stop")
    sums = account.settle(reader)
    account.closes(campaign, sums, "after " + name)
    campaign.check(sums["tagPackets"] > 0, f"{name}: no reports came")
    return sums


def drain(tally, count, timeout=10):
    """Waits until so many reports came; a timeout is for the caller to see."""
    end = time.monotonic() + timeout
    while tally.received < count and time.monotonic() < end:
        time.sleep(0.02)


def check_all_came(campaign, reader, tally, sums, name):
    """A receiver that keeps up has each report that the account says was sent and heard. Returns how many not."""
    expected = account.heard(sums)
    drain(tally, expected)
    lost = tally.missing(sums["firstEventNum"], sums["nextEventNum"])
    refused = sums["tagPackets"] - expected
    campaign.check(
        tally.received == expected and lost == refused,
        f"{name}: {tally.received} of {expected} came, {lost} numbers missing, {refused} not sent by the account",
        reader,
    )
    campaign.check(not tally.faults(), f"{name}: {tally.faults()}", reader)
    return expected - tally.received


def check_back(campaign, reader, before, name):
    """Descriptors are back where they were, and memory did not grow without bound."""
    descriptors, rss = before
    try:
        until(lambda: reader.descriptors() <= descriptors, 10, "descriptors")
    except TimeoutError:
        campaign.check(False, f"{name}: {reader.descriptors()} descriptors, {descriptors} before", reader)
    if not campaign.is_sanitized:
        campaign.check(
            reader.rss() < rss + 64 * 1024, f"{name}: {reader.rss()} KiB resident, {rss} before", reader
        )
