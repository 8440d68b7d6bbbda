# SPDX-License-Identifier: MIT
"""The part of the section "load" about the clients of the reply socket."""
import time

from campaign.crowd import Crowd, Tally
from campaign.peers import MORE, REPLY_FILE, dial, frame, reset, shake_hands
from campaign.reader import NoReply, Reader
from campaign.traffic import RATE, begin, check_all_came, check_back, finish

CLIENTS = 1000
LARGE = 30
LARGE_BYTES = 10_000_000
LOG_BYTES = 6 * 6 * 1024 * 1024  # six files of 5 MiB, and what may come behind the mark
PATIENCE = 5  # seconds for any good request


def request_of(text):
    return frame(b"", MORE) + frame(text)


def asks(client):
    shake_hands(client, b"REQ")
    client.sendall(request_of(b"status"))
    reply = bytearray()
    while not reply.endswith(b"\0") or b"Success" not in reply:
        data = client.recv(65536)
        if not data:
            raise OSError("closed")
        reply += data
    client.close()


def leaves_the_reply(client):
    shake_hands(client, b"REQ")
    client.sendall(request_of(b"status") * 20)
    reset(client)


def never_reads(client):
    shake_hands(client, b"REQ")
    client.sendall(request_of(b"configrxe custom") * 4)
    return client


def leaves_in_the_middle(client):
    shake_hands(client, b"REQ")
    client.sendall(frame(b"", MORE) + frame(b"mode " + b" " * 5000)[:100])
    reset(client)


def says_nothing(client):
    return client


def leaves_at_once(client):
    client.close()


KINDS = (asks, asks, leaves_the_reply, never_reads, leaves_in_the_middle, says_nothing, leaves_at_once)


class Clock:
    """Asks a good question again and again, and keeps the longest time to its answer."""

    def __init__(self, campaign, reader, request="status", reply="Success"):
        self.campaign, self.reader, self.request, self.reply = campaign, reader, request, reply
        self.longest = 0.0

    def ask(self, when):
        begun = time.monotonic()
        try:
            reply = self.reader.request(self.request, PATIENCE)
        except NoReply as error:
            reply = str(error)
        self.longest = max(self.longest, time.monotonic() - begun)
        self.campaign.check(reply.startswith(self.reply), f"{when}: {reply[:200]}", self.reader)


def come_and_go(campaign, seconds):
    """Clients come and leave in every way, beside a subscriber that misses nothing."""
    with Reader(campaign) as reader, Crowd() as crowd:
        tally, clock = Tally(), Clock(campaign, reader)
        reader.request("data_analytics STRING")
        crowd.subscribe(tally)
        begin(reader, "STRING", 1)
        before = reader.descriptors(), reader.rss()
        reader.request(f"start sim {RATE}")
        open_ones, done, end = [], 0, time.monotonic() + seconds
        while done < CLIENTS and time.monotonic() < end:
            kind = campaign.random.choice(KINDS)
            try:
                kept = kind(dial(REPLY_FILE))
            except OSError as error:
                campaign.check(False, f"a client that {kind.__name__}: {error}", reader)
                kept = None
            open_ones += [kept] * (kept is not None)
            done += 1
            if done % 10 == 0:
                clock.ask(f"after {done} clients")
        for client in open_ones:
            reset(client)
        sums = finish(campaign, reader, "clients that come and go")
        check_all_came(campaign, reader, tally, sums, "beside clients that come and go")
        check_back(campaign, reader, before, "after clients that come and go")
        campaign.figure("clients that came and went", done, of=CLIENTS)
        campaign.figure("longest reply meanwhile", clock.longest * 1000, "ms", bound=PATIENCE * 1000)


def large_texts(count):
    """Requests of 10 MB, and how the reply to each begins."""
    texts = (
        (b"x" * LARGE_BYTES, "Failure: Command Not Found"),
        (b" " * LARGE_BYTES, "Failure: No Command"),
        (b"data_analytics STRING " + b"y " * (LARGE_BYTES // 2), "Success: error requires"),
        (b'mode {"type": "SIMPLE", "antennas": [' + b"9," * (LARGE_BYTES // 2) + b"9]}", "Failure: "),
        (b'mode {"type": "SIMPLE", "x": ' + b"[" * LARGE_BYTES, "Failure: mode request does not contain"),
        (b"events " + b"{" * LARGE_BYTES, "Failure: events request does not contain"),
        (b"configrxe custom olio 1 " + b"z=1 " * (LARGE_BYTES // 4), "Failure: "),
    )
    for index in range(count):
        yield texts[index % len(texts)]


def large_requests(campaign, seconds):
    """Each has its reply; what comes behind it does not wait long, and neither memory nor log grow with them."""
    with Reader(campaign) as reader, Crowd() as crowd:
        tally, clock = Tally(), Clock(campaign, reader, "mode", "Success: ")
        reader.request("data_analytics STRING")
        crowd.subscribe(tally)
        begin(reader, "STRING", 1)
        before = reader.descriptors(), reader.rss()
        in_force = reader.request("mode")
        reader.request(f"start sim {RATE}")
        done, longest, end = 0, 0.0, time.monotonic() + seconds
        for text, beginning in large_texts(LARGE):
            if time.monotonic() > end:
                break
            begun = time.monotonic()
            reply = reader.request(text, 60)
            longest = max(longest, time.monotonic() - begun)
            campaign.check(reply.startswith(beginning), f"10 MB of {text[:30]!r}: {reply[:100]}", reader)
            clock.ask("after a request of 10 MB")
            done += 1
        campaign.check(reader.request("mode") == in_force, "a refused request of 10 MB changed the mode", reader)
        sums = finish(campaign, reader, "large requests")
        check_all_came(campaign, reader, tally, sums, "beside large requests")
        check_back(campaign, reader, before, "after large requests")
        size = sum(file.stat().st_size for file in reader.directory.glob("tarnwick.log*"))
        campaign.figure("requests of 10 MB", done, of=LARGE)
        campaign.figure("longest reply to one", longest * 1000, "ms")
        campaign.figure("longest reply behind one", clock.longest * 1000, "ms", bound=PATIENCE * 1000)
        campaign.figure("log afterwards", size / 1024 / 1024, "MiB", bound=LOG_BYTES / 1024 / 1024)
