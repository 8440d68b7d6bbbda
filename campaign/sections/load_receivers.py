# SPDX-License-Identifier: MIT
"""The part of the section "load" about those who receive the reports."""
import time

from campaign import account
from campaign.crowd import Crowd, Tally
from campaign.peers import DATA_FILE, DATA_PORT, GREETING, dial, ready, reset
from campaign.reader import Reader, until
from campaign.traffic import RATE, begin, check_all_came, check_back, drain, finish

SLOW = (16_384, 0.1)  # bytes and seconds: a twelfth of what comes
STALLED = (0, 1)


def nobody(campaign, seconds):
    """Without receivers every report is unheard."""
    for form in ("OFF", "STRING", "BINARY"):
        with Reader(campaign) as reader:
            begin(reader, form)
            reader.request(f"start sim {RATE}")
            time.sleep(seconds / 3)
            sums = finish(campaign, reader, f"{form} without receivers")
            campaign.check(
                sums["unheard"] == sums["fates"]["sent"] == sums["tagPackets"] == sums["nextEventNum"],
                f"{form} without receivers: {sums}", reader,
            )


def beside_bad_ones(campaign, seconds):
    """Slow, stalled and dying subscribers cost one that keeps up nothing."""
    lost, worst, deaths = 0, 0, 0
    for form in ("STRING", "BINARY"):
        with Reader(campaign) as reader, Crowd() as crowd:
            reader.request(f"data_analytics {form}")
            before = reader.descriptors(), reader.rss()
            good, slow, stalled = Tally(), [Tally() for _ in range(8)], [Tally() for _ in range(8)]
            crowd.subscribe(good)
            for tally in slow:
                crowd.subscribe(tally, pace=SLOW)
            for tally in stalled:
                crowd.subscribe(tally, pace=STALLED)
            begin(reader, form, 17)
            reader.request(f"start sim {RATE}")
            deaths += kill_subscribers(campaign, reader, crowd, seconds / 2)
            sums = finish(campaign, reader, f"{form} with bad subscribers")
            lost += check_all_came(campaign, reader, good, sums, f"{form} beside bad subscribers")
            crowd.hurry()
            worst = max([worst, *check_slow(campaign, reader, slow + stalled, sums, form)])
            crowd.leave()
            check_back(campaign, reader, before, f"{form} after bad subscribers")
    campaign.figure("lost to the subscriber that keeps up", lost, "reports", bound=0)
    campaign.figure("lost to a stalled one, shown by its gaps", worst, "reports", least=1)
    campaign.figure("subscribers that died", deaths)


def kill_subscribers(campaign, reader, crowd, seconds):
    """Subscribers that come, read some and are killed in the middle of frames."""
    end, deaths = time.monotonic() + seconds, 0
    while time.monotonic() < end:
        doomed = [crowd.subscribe(Tally(), pace=(campaign.random.randrange(1, 3000), 0.005)) for _ in range(4)]
        half = dial(DATA_PORT)
        half.send((GREETING + ready(b"SUB"))[: campaign.random.randrange(1, 90)])
        time.sleep(campaign.random.uniform(0.02, 0.2))
        for receiver in doomed:
            crowd.remove(receiver, reset)
        reset(half)
        deaths += 5
    return deaths


def check_slow(campaign, reader, tallies, sums, form):
    """What slow ones have is whole and in order. Returns what each has lost."""
    end = time.monotonic() + 10
    while not all(tally.received for tally in tallies) and time.monotonic() < end:
        time.sleep(0.1)
    time.sleep(0.5)
    for tally in tallies:
        campaign.check(
            not tally.faults() and 0 < tally.received <= account.heard(sums),
            f"{form}, a slow subscriber: {tally.received} reports, {tally.faults()}", reader,
        )
    return [tally.missing(0, sums["nextEventNum"]) for tally in tallies]


def local_consumer(campaign, seconds):
    """The consumer of form OFF, of which the account says exactly what it misses."""
    refused = 0
    for pace in (None, SLOW, STALLED):
        with Reader(campaign) as reader, Crowd() as crowd:
            tally = Tally()
            crowd.listen(DATA_FILE, tally, pace)
            begin(reader, "OFF", 1)
            reader.request(f"start sim {RATE * 3}")
            time.sleep(seconds / 3)
            if pace is not None:
                until(lambda: account.take(reader)["fates"]["refused"] > 1000, 20, "a report that is refused")
            sums = finish(campaign, reader, "a local consumer")
            crowd.hurry()
            check_all_came(campaign, reader, tally, sums, f"local consumer, pace {pace}")
            campaign.check(
                (sums["fates"]["refused"] == 0) == (pace is None), f"local consumer, pace {pace}: {sums}", reader
            )
            refused += sums["fates"]["refused"]
    campaign.figure("refused to slow local consumers, each one a gap of theirs", refused, "reports", least=1)


def subscribe_if_admitted(crowd, tally, share):
    try:
        return crowd.subscribe(tally, share)
    except OSError:
        return None


def shares(campaign, seconds):
    """1,024 subscribers, each with its share; with the usual limit of descriptors as many as fit."""
    for limit, least in ((4096, 1024), (1024, 750)):
        with Reader(campaign, wrapper=["prlimit", f"--nofile={limit}"]) as reader, Crowd() as crowd:
            reader.request("data_analytics STRING")
            reader.request("subscribers 1024")
            before = reader.descriptors(), reader.rss()
            everything, own = Tally(divided=1024), Tally()
            crowd.subscribe(everything)
            receivers = [subscribe_if_admitted(crowd, own, share) for share in range(1, 1025)]
            time.sleep(1)
            kept = [one for one in receivers if one is not None and one.connection.fileno() in crowd.receivers]
            begin(reader, "STRING", len(kept) + 1)
            reader.request(f"start sim {RATE}")
            time.sleep(seconds / 2)
            sums = finish(campaign, reader, f"{len(kept)} shares")
            check_all_came(campaign, reader, everything, sums, f"beside {len(kept)} shares")
            wanted = sum(everything.shares[one.share] for one in kept)
            drain(own, wanted)
            wrong = [one.share for one in kept if one.received != everything.shares[one.share]]
            campaign.check(not wrong, f"shares {wrong[:5]} of {len(kept)} did not get what is theirs", reader)
            campaign.check(not own.faults(), f"{len(kept)} shares: {own.faults()}", reader)
            campaign.figure(f"shares served with {limit:,} descriptors", len(kept), least=least)
            crowd.leave()
            check_back(campaign, reader, before, f"after {len(kept)} shares")
