# SPDX-License-Identifier: MIT
"""The radio's fast clock as fast as the daemon goes, under changing modes, forms and receivers."""
import json
import struct
import time

from campaign import account
from campaign.crowd import Crowd, Tally
from campaign.peers import DATA_FILE
from campaign.reader import Reader, until

TITLE = "packets in fast time with modes, forms and receivers changing"
SHARE = 120  # seconds of the short form

PACKETS = 100_000_000
LONGEST_RUN = 1.5  # seconds, in the short form
# Seconds of a run that fills the queue of a receiver that stalls: reports come in batches, of which 2,048 wait,
# from the first measurement of their rate on, half a second after the start.
WARM_UP_RUN = 1.2
GROWTH = 1024  # KiB that resident memory may grow after the warm-up

KEYS = {"type": "RADIO_WIDE", "duration": 2, "addl_keys": ["TID"]}
EVERY_READ = {"reportFilter": {}, "query": {"session": "S0", "target": "AB"}}
ACCESSES = [
    {"type": "READ", "config": {"membank": "TID", "wordPointer": 0, "wordCount": 4}},
    {"type": "READ", "config": {"membank": "USER", "wordPointer": 0, "wordCount": 1}},
]
METADATA = ["ANTENNA", "CHANNEL", "CRC", "PC", "RSSI", "SEEN_COUNT", "PHASE", {"userDefined": "gate-3"}]

# Each shows another way of a packet through the daemon.
MODES = (
    {"type": "SIMPLE", **EVERY_READ},
    {"type": "SIMPLE", **EVERY_READ, "tagMetaData": METADATA, "antennas": [1, 2, 3]},
    {"type": "SIMPLE", **EVERY_READ, "filter": {"value": "3034.*[0-7]", "match": "regex", "operation": "include"}},
    {"type": "CUSTOM", **EVERY_READ, "filter": {"value": "30", "match": "suffix", "operation": "exclude"}},
    {"type": "SIMPLE", "query": EVERY_READ["query"], "reportFilter": KEYS, "tagMetaData": ["TID", "PC", "CRC"]},
    {"type": "CUSTOM", "query": EVERY_READ["query"], "accesses": ACCESSES},
    {"type": "INVENTORY", "interval": {"unit": "seconds", "value": 1}},
    {"type": "CONVEYOR", "query": {"session": "S0"}, "antennas": [1, 2]},
    {"type": "SIMPLE", **EVERY_READ, "radioStopConditions": {"tagCount": 20000}},
)
ARRAY_MODES = (
    {"type": "BEARING", "tagMetaData": ["BEARING", "RSSI", "ANTENNA"]},
    {"type": "SIMPLE", **EVERY_READ},
    {"type": "PORTAL_DIRECTIONALITY", "modeSpecificSettings": {"aarHeight": 4, "tagHeight": 1}},
    {"type": "SIMPLE", **EVERY_READ, "tagMetaData": ["HEATMAP", "BEARING", "ANTENNA"]},
    {"type": "SIMPLE", "query": EVERY_READ["query"], "reportFilter": KEYS, "tagMetaData": ["TID", "PC", "CRC"]},
)
FORMS = ("OFF", "STRING", "BINARY")
RECEIVERS = (None, None, None, "keeps up", "stalls")
READERS = (("PN5100", MODES, 0.75), ("QDX4400", ARRAY_MODES, 0.25))


def packets(reader):
    return json.loads(reader.request("status numRadioPacketsRxed").removeprefix("Success: "))["numRadioPacketsRxed"]


class Soak:
    """One daemon that soaks, and what was measured of it between its runs."""

    def __init__(self, campaign, reader, name, modes):
        self.campaign, self.reader, self.name, self.modes = campaign, reader, name, modes
        self.rounds, self.base = 0, None
        self.rss, self.received, self.refused, self.logged = [], 0, 0, 0

    def round(self, mode, form, receiving, seconds):
        """A run in this mode, whose receivers have what the account says."""
        tally = Tally()
        self.expect_success(f"data_analytics {form}")
        self.expect_success("mode " + json.dumps(mode))
        if receiving is None:
            return self.run(seconds, self.change if self.campaign.random.random() < 0.3 else None)
        with Crowd() as crowd:
            pace = (0, 1) if receiving == "stalls" else None
            if form == "OFF":
                crowd.listen(DATA_FILE, tally, pace)
            else:
                crowd.subscribe(tally, pace=pace)
            until(lambda: account.take(self.reader)["listeners"] == 1, 10, "the receiver")
            time.sleep(0.2)
            before, after = self.run(seconds)
            crowd.hurry()
            self.compare(tally, form, before, after)
        return before, after

    def expect_success(self, request):
        reply = self.reader.request(request)
        self.campaign.check(reply == "Success", f"{self.name}: {request}: {reply}", self.reader)

    def check_auto_start(self, request, expected):
        file = self.reader.directory / "autoStart.txt"
        present = file.read_text().strip() if file.exists() else "false"
        self.campaign.check(present == expected, f"{self.name}: {request} leaves autoStart.txt {present}", self.reader)

    def run(self, seconds, meanwhile=None):
        """Start to stop. Returns the account before and after."""
        before = account.take(self.reader)
        start = self.campaign.random.choice(("start", "start doNotPersistState"))
        self.expect_success(start)
        self.check_auto_start(start, "true" if start == "start" else "false")
        end = time.monotonic() + seconds
        if meanwhile is not None:
            meanwhile(end)
        else:
            time.sleep(seconds)
        self.expect_success("stop")
        self.check_auto_start("stop", "false")
        after = account.settle(self.reader)
        account.closes(self.campaign, after, f"in round {self.rounds} of {self.name}")
        self.rounds += 1
        return before, after

    def change(self, end):
        """Modes, forms, shares and questions while the radio reads."""
        pick = self.campaign.random.choice
        while time.monotonic() < end:
            self.expect_success("mode " + json.dumps(pick(self.modes)))
            self.expect_success(f"data_analytics {pick(FORMS)}")
            self.expect_success(f"subscribers {pick((1, 2, 1024))}")
            self.reader.request(pick(("status", "mode verbose", "configrxe custom", "tag_info v")))
            time.sleep(0.05)
        self.expect_success("subscribers 1")

    def compare(self, tally, form, before, after):
        """A local consumer has all that was not refused; a subscriber has gaps but nothing wrong."""
        sent = account.heard(after) - account.heard(before)
        end = time.monotonic() + 10
        while form == "OFF" and tally.received < sent and time.monotonic() < end:
            time.sleep(0.02)
        exact = tally.received == sent if form == "OFF" else tally.received <= sent
        self.campaign.check(
            exact and not tally.faults(), f"{self.name}, {form}: {tally.received} came of {sent}, {tally.faults()}",
            self.reader,
        )
        self.received += tally.received
        self.refused += after["fates"]["refused"] - before["fates"]["refused"]

    def compare_with_log(self, mode):
        """The engine's packet log has as many packets, and tag packets, as the daemon has counted."""
        log = self.reader.directory / "logs" / "packet_log"
        log.parent.mkdir(exist_ok=True)
        ask = self.reader.request
        ask("data_analytics OFF")
        ask("mode " + json.dumps(mode))
        before, packets_before = account.take(self.reader), packets(self.reader)
        ask("logging radioPacketLog=ON")
        _, after = self.run(0.3)
        all_after = packets(self.reader)
        ask("logging radioPacketLog=OFF")
        tags, others = count_log(log.read_bytes())
        log.unlink()
        counted = after["tagPackets"] - before["tagPackets"]
        self.campaign.check(
            counted == tags and all_after - packets_before == tags + others,
            f"{self.name}: the radio logged {tags} tag packets and {others} others, the daemon counted {counted} of"
            f" {all_after - packets_before}", self.reader,
        )
        self.logged += tags + others

    def rest(self):
        """Descriptors, threads and memory between two runs, with a new socket: what the old one kept for a
        receiver that has left goes with it."""
        self.expect_success("data_analytics STRING")
        self.expect_success("data_analytics OFF")
        try:  # a descriptor more while it tries to reach a consumer that is away
            until(lambda: self.base in (None, self.present()), 3, "its descriptors and threads")
        except TimeoutError:
            self.campaign.check(
                False, f"{self.name}: descriptors and threads {self.present()}, at first {self.base}", self.reader
            )
        self.base = self.base or self.present()
        self.rss.append(self.reader.rss())

    def present(self):
        return self.reader.descriptors(), self.reader.threads()

    def warm_up(self):
        """Each mode once in each form with a receiver that stalls: afterwards every table and queue, and what
        the C library keeps for them, has had its largest size."""
        for mode in self.modes:
            for form in FORMS:
                self.round(mode, form, "stalls", WARM_UP_RUN)
                self.rest()
        self.rss = self.rss[-1:]


def count_log(data):
    """Tag packets and others of a packet log (engine/README.md)."""
    at, end, tags, others = 24, len(data), 0, 0
    head = struct.Struct("<QHH")
    while at + head.size <= end:
        _, kind, size = head.unpack_from(data, at)
        at += head.size + size
        if 0x0805 <= kind <= 0x0808:
            tags += 1
        elif kind != 0:
            others += 1
    return tags, others


def soak(campaign, model, modes, count, seconds):
    """Runs until so many packets came or the time is over; the long form goes on until the time is over."""
    scenario = {"clock": "fast", "seed": campaign.random.randrange(1 << 32), "tags": {"count": 200}}
    with Reader(campaign, scenario=scenario, profile=model) as reader:
        begun = time.monotonic()
        it = Soak(campaign, reader, model, modes)
        it.rest()
        it.warm_up()
        warm = packets(reader)
        pick = campaign.random.choice
        while time.monotonic() - begun < seconds and (packets(reader) < count or not campaign.short):
            if it.rounds % 10 == 0:
                it.compare_with_log(pick(modes))
            longest = LONGEST_RUN if campaign.short else 5 * LONGEST_RUN
            it.round(pick(modes), pick(FORMS), pick(RECEIVERS), campaign.random.uniform(0.1, longest))
            it.rest()
        done, time_spent = packets(reader), time.monotonic() - begun
        sums = account.take(reader)
        account.closes(campaign, sums, f"at the end of {model}")
        campaign.check(reader.exit() == 0, f"{model}: does not end well", reader)
    bound = None if campaign.is_sanitized else GROWTH
    campaign.figure(f"{model}: packets of the radio", done, of=count)
    campaign.figure(f"{model}: packets a second", done / time_spent)
    campaign.figure(f"{model}: runs", it.rounds)
    campaign.figure(f"{model}: packets up to the end of the warm-up", warm)
    campaign.figure(f"{model}: resident memory after the warm-up", it.rss[0], "KiB")
    campaign.figure(f"{model}: most that it grew after it", max(it.rss) - it.rss[0], "KiB", bound=bound)
    campaign.figure(f"{model}: compared with the radio's own log", it.logged, "packets")
    campaign.figure(f"{model}: received and compared", it.received, "reports")
    campaign.figure(f"{model}: refused to receivers that stalled", it.refused, "reports")
    campaign.figure(f"{model}: unheard", sums["unheard"], "reports")
    campaign.figure(f"{model}: descriptors, constant", it.base[0])
    campaign.figure(f"{model}: threads, constant", it.base[1])


def run(campaign):
    whole = campaign.left()
    for model, modes, part in READERS:
        soak(campaign, model, modes, int(PACKETS * part), whole * part)
