# SPDX-License-Identifier: MIT
"""The part of the section "network" about hostile peers on every socket."""
import time

from campaign import account
from campaign.hostile import PARTS, Attack, Consumer, Door
from campaign.management import PORT
from campaign.peers import DATA_FILE, DATA_PORT, ENGINE_FILE, EVENTS_FILE, LINES_FILE, REPLY_FILE, dial
from campaign.reader import NoReply, Reader, until

PATIENCE = 15  # seconds until one of several tries must have its reply
TRY = 3
GROWTH = 48 * 1024  # KiB that an attack may take at any moment: a request or two of 16 MiB, and queues
REMAINS = 24 * 1024  # KiB that may stay
FLOOD = 200 << 20  # bytes

DOORS = (
    Door("reply socket", REPLY_FILE, b"REQ", 3000),
    Door("port 5160", DATA_PORT, b"SUB", 3000),
    # The stand-in keeps the frames of a message without end, as the library does by itself.
    Door("engine's control socket", ENGINE_FILE, b"REQ", 1000, spared=PARTS),
    Consumer("local reports", DATA_FILE, b"SUB", 20),
    Consumer("events", EVENTS_FILE, b"SUB", 20),
    Consumer("lines", LINES_FILE, b"SUB", 20),
)


class Siege:
    """A daemon under attack, and the worst that was seen."""

    def __init__(self, campaign, reader, door):
        self.campaign, self.reader, self.door = campaign, reader, door
        self.slowest, self.peak, self.done, self.lost = 0.0, 0, 0, 0
        self.connections = self.remains = self.given_up = 0
        self.rss, self.descriptors = reader.rss(), reader.descriptors()

    def ask(self, when):
        """A client tries again after some seconds, since ZeroMQ can lose a reply when another client sends
        messages without an envelope; in the end each has its reply."""
        end, reply = time.monotonic() + PATIENCE, None
        while reply is None and time.monotonic() < end:
            begun = time.monotonic()
            try:
                reply = self.reader.request("data_analytics", TRY)
                self.slowest = max(self.slowest, time.monotonic() - begun)
            except NoReply:
                self.lost += 1
        self.campaign.check(
            (reply or "").startswith("Success: data"), f"{self.door.name}, {when}: {reply or 'not a reply'}", self.reader
        )

    def attack(self, kind):
        it = Attack(self.door, self.campaign.random, FLOOD if not self.campaign.short else FLOOD // 4)
        name, rss = kind.__name__.replace("_", " "), self.reader.rss()
        kind(it)
        self.campaign.check(it.connections > 0, f"{self.door.name}: {name} did not take place", self.reader)
        self.connections += it.connections
        self.ask(f"during {name}")
        grown = self.reader.rss() - rss
        self.peak = max(self.peak, grown)
        if not self.campaign.is_sanitized:
            self.campaign.check(
                grown < GROWTH, f"{self.door.name}, {name}: {grown} KiB more for {it.sent} bytes", self.reader
            )
        it.close()
        self.ask(f"after {name}")
        self.done += 1

    def finish(self):
        """Everything is back, and the door still works."""
        try:
            until(lambda: self.reader.descriptors() <= self.descriptors, 10, "")
        except TimeoutError:
            self.campaign.check(
                False, f"{self.door.name}: {self.reader.descriptors()} descriptors, {self.descriptors} before", self.reader
            )
        grown = self.reader.rss() - self.rss
        if not self.campaign.is_sanitized:
            self.campaign.check(grown < REMAINS, f"{self.door.name}: {grown} KiB remain", self.reader)
        self.remains = max(grown, 0)


def begin(reader, door):
    """The radio reports, so that there is something that a peer can leave unread."""
    reader.request("data_analytics " + ("OFF" if door.address == DATA_FILE else "STRING"))
    reader.request('mode {"type": "SIMPLE", "antennas": [1]}')
    reader.request('events {"heartbeat": {"period": 1, "stats": []}}')
    if isinstance(door, Consumer):
        door.connect()
    reader.request("start sim 1000")
    time.sleep(0.3)


def besiege(campaign, door, kinds, end):
    """Some attacks on one daemon. Returns what was seen."""
    with Reader(campaign) as reader:
        if isinstance(door, Consumer):
            door.bind()
        try:
            begin(reader, door)
            siege = Siege(campaign, reader, door)
            for kind in kinds:
                if time.monotonic() < end:
                    siege.attack(kind)
            if isinstance(door, Consumer):
                siege.given_up = int(not door.is_served())
        finally:
            if isinstance(door, Consumer):
                door.unbind()
        reader.request("stop")
        account.closes(campaign, account.settle(reader), f"after attacks on {door.name}")
        siege.finish()
        campaign.check(reader.exit() == 0, f"after attacks on {door.name} the daemon does not end well", reader)
    return siege


def besiege_door(campaign, door, end):
    """All attacks on one door. Each on a consumer's file has a daemon of its own: after a broken handshake
    ZeroMQ does not connect there again."""
    kinds = list(door.attacks)
    campaign.random.shuffle(kinds)
    groups = [[kind] for kind in kinds] if isinstance(door, Consumer) else [kinds]
    sieges = [besiege(campaign, door, group, end) for group in groups if time.monotonic() < end]
    name, total = door.name, lambda what: sum(getattr(siege, what) for siege in sieges)
    most = lambda what: max((getattr(siege, what) for siege in sieges), default=0)
    campaign.figure(f"{name}: attacks", total("done"), of=len(kinds))
    campaign.figure(f"{name}: hostile connections", total("connections"))
    campaign.figure(f"{name}: longest reply to others", most("slowest") * 1000, "ms", bound=TRY * 1000)
    campaign.figure(f"{name}: replies to others lost", total("lost"), bound=8 if door.kind == b"REQ" else 0)
    campaign.figure(f"{name}: most memory that an attack took", most("peak"), "KiB")
    campaign.figure(f"{name}: most memory that remains", most("remains"), "KiB")
    if isinstance(door, Consumer):
        campaign.figure(f"{name}: attacks after which the daemon does not connect again", total("given_up"))


def besiege_server(campaign):
    """The stand-in management server: garbage, silence and comers and goers, and each question has its answer."""
    with Reader(campaign) as reader:
        done = 0
        silent = [dial(PORT) for _ in range(100)]
        for attempt in range(300):
            peer = dial(PORT)
            try:
                peer.sendall(campaign.random.choice((
                    b"", b"<", campaign.random.randbytes(1000), b"<a>" * 4000, b"x" * 20_000,
                    b"<!DOCTYPE r [<!ENTITY a 'b'>]><command>&a;</command>", b"<rm:command></rm:command>",
                )))
            except OSError:
                pass
            peer.close()
            done += 1
            if attempt % 100 == 99:
                begun = time.monotonic()
                reply = reader.request('mode {"type": "SIMPLE", "environment": "LOW_INTERFERENCE"}', 30)
                spent = time.monotonic() - begun
                campaign.check(reply == "Success" and spent < 12, f"rm_server: {reply} after {spent} s", reader)
        for peer in silent:
            peer.close()
        campaign.check(reader.server.poll() is None, "rm_server has ended", reader)
    campaign.figure("rm_server: hostile connections", done + len(silent))


def attack_all(campaign):
    for index, door in enumerate(DOORS):
        besiege_door(campaign, door, time.monotonic() + campaign.left() / (len(DOORS) - index + 0.3))
    besiege_server(campaign)
