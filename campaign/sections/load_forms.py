# SPDX-License-Identifier: MIT
"""The part of the section "load" that changes the form of the reports while they come."""
import time

from campaign.account import heard
from campaign.crowd import Crowd, Tally
from campaign.peers import DATA_FILE
from campaign.reader import Reader, until
from campaign.traffic import RATE, begin, check_all_came, finish

FLIPS = 1000
LONGEST = 5  # seconds until the first report in the new form


def flip_some(campaign, reader, forms, count, end, tallies):
    """Changes to another of these forms, and waits for a report in it. Returns how often, and the longest wait."""
    present, done, longest = forms[0], 0, 0.0
    while done < count and time.monotonic() < end:
        present = campaign.random.choice([form for form in forms if form != present])
        before = sum(tally.forms[present] for tally in tallies)
        begun = time.monotonic()
        reply = reader.request(f"data_analytics {present}")
        campaign.check(reply == "Success", f"change {done} to {present}: {reply}", reader)
        until(lambda: sum(tally.forms[present] for tally in tallies) > before, LONGEST, f"a report as {present}")
        longest = max(longest, time.monotonic() - begun)
        done += 1
    return done, longest


def flip(campaign, seconds):
    """Half of the changes keep the socket and lose nothing; the others make it anew."""
    kept, longest = flip_on_the_port(campaign, seconds / 2)
    anew, longer = flip_sockets(campaign, seconds / 2)
    campaign.figure("forms flipped", kept + anew, of=FLIPS)
    campaign.figure("longest wait for the new form", max(longest, longer), "s", bound=LONGEST)


def flip_on_the_port(campaign, seconds):
    with Reader(campaign) as reader, Crowd() as crowd:
        tally = Tally()
        reader.request("data_analytics STRING")
        crowd.subscribe(tally)
        begin(reader, "STRING", 1)
        reader.request(f"start sim {RATE}")
        end = time.monotonic() + seconds
        result = flip_some(campaign, reader, ("STRING", "BINARY"), FLIPS // 2, end, [tally])
        sums = finish(campaign, reader, "flips between STRING and BINARY")
        check_all_came(campaign, reader, tally, sums, "flips between STRING and BINARY")
        forms = {name: count for name, count in sums["forms"].items() if count}
        campaign.check(forms == dict(tally.forms), f"by form {dict(tally.forms)} came of {forms}", reader)
        return result


def flip_sockets(campaign, seconds):
    """A report is lost only on its way in a socket that is closed, or before its receiver is back."""
    with Reader(campaign) as reader, Crowd() as crowd:
        local, port = Tally(), Tally()
        crowd.listen(DATA_FILE, local)
        crowd.keep_subscribed(port)
        begin(reader, "OFF", 1)
        reader.request(f"start sim {RATE}")
        end = time.monotonic() + seconds
        result = flip_some(campaign, reader, ("OFF", "STRING", "BINARY"), FLIPS // 2, end, [local, port])
        sums = finish(campaign, reader, "flips between all forms")
        time.sleep(0.5)
        for name, tally in (("local consumer", local), ("subscriber", port)):
            campaign.check(not tally.faults(), f"flips, {name}: {tally.faults()}", reader)
        came = local.forms + port.forms
        campaign.check(
            all(came[form] <= sums["forms"][form] for form in sums["forms"]),
            f"flips: more came than was sent: {came}, {sums}", reader,
        )
        campaign.figure("lost on the way when a socket was closed", heard(sums) - came.total(), "reports", least=0)
        campaign.figure("without a socket or unheard meanwhile", sums["fates"]["noSocket"] + sums["unheard"], "reports")
        return result
