# SPDX-License-Identifier: MIT
"""The daemon's account of its tag packets, and what must be true of it."""
import json
import time


def take(reader):
    return json.loads(reader.request("account").removeprefix("Success: "))


def closes(campaign, account, when):
    """Whether every packet has one fate, by antenna and as a whole, and every sent report a form."""
    fates = account["fates"]
    by_antenna = sum(row["tagPackets"] for row in account["byAntenna"])
    return campaign.check(
        sum(fates.values()) == account["tagPackets"] == by_antenna
        and sum(account["forms"].values()) == fates["sent"]
        and account["unheard"] <= fates["sent"],
        f"the account does not close {when}: {account}",
    )


def settle(reader, timeout=5):
    """The account when nothing has changed in it for a while, after a stop."""
    end = time.monotonic() + timeout
    last = take(reader)
    while time.monotonic() < end:
        time.sleep(0.1)
        present = take(reader)
        if (present["tagPackets"], present["fates"]) == (last["tagPackets"], last["fates"]):
            return present
        last = present
    return last


def heard(account):
    """Reports that were sent while somebody was connected."""
    return account["fates"]["sent"] - account["unheard"]
