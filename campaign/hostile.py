# SPDX-License-Identifier: MIT
"""What a hostile peer does on a connection of ZeroMQ. Each attack leaves its connections open for the caller."""
import os
import time

from campaign.peers import COMMAND, GREETING, LONG, MORE, bind_file, dial, frame, shake_hands

FLOOD_SECONDS = 1
MEBIBYTE = 1 << 20


class Attack:
    """One attack on one door: makes connections, and sends until the other side has enough."""

    def __init__(self, door, random, flood_bytes):
        self.door, self.random, self.flood_bytes = door, random, flood_bytes
        self.open = []
        self.sent = self.connections = 0

    def connect(self):
        peer = self.door.connect()
        self.connections += 1
        self.open.append(peer)
        return peer

    def say(self, data):
        """A connection with these bytes. The daemon may close it before it has them all."""
        try:
            self.connect().sendall(data)
        except OSError:
            pass

    def say_greeted(self, data, kind=None):
        """The same behind a handshake."""
        try:
            peer = self.connect()
            shake_hands(peer, kind or self.door.kind)
            peer.sendall(data)
        except OSError:
            pass

    def say_to_greeting(self, data):
        """The same in the middle of a handshake."""
        try:
            peer = self.connect()
            peer.sendall(GREETING)
            peer.recv(64)
            peer.sendall(data)
        except OSError:
            pass

    def flood(self, piece, first=b""):
        """Sends the piece again and again, until the other side has closed or reads no more, or enough was sent."""
        end, begun_at = time.monotonic() + FLOOD_SECONDS, self.sent
        try:
            peer = self.connect()
            shake_hands(peer, self.door.kind)
            peer.settimeout(0.3)
            peer.sendall(first)
            while self.sent - begun_at < self.flood_bytes and time.monotonic() < end:
                self.sent += peer.send(piece)
        except OSError:
            pass

    def close(self):
        for peer in self.open:
            peer.close()


def garbage(it):
    for size in (1, 9, 10, 11, 12, 63, 64, 65, 1000, 100_000):
        it.say(it.random.randbytes(size))
        it.say(b"\xff" * size)
        it.say(bytes(size))
    it.say(b"GET / HTTP/1.1\r\nHost: reader\r\n\r\n")


def half_greetings(it):
    for size in (1, 5, 10, 11, 12, 20, 32, 63):
        it.say(GREETING[:size])


def other_greetings(it):
    it.say(b"\1\0" + b"\1\0" * 20)  # ZMTP 1.0
    it.say(GREETING[:10] + b"\1\2\0\0" + b"\0\1\1" * 20)  # ZMTP 2.0
    for mechanism in (b"PLAIN", b"CURVE", b"GSSAPI", b"\xff" * 20, b""):
        it.say(GREETING[:12] + mechanism.ljust(20, b"\0") + GREETING[32:])
    it.say(GREETING[:10] + b"\xff\xff" + GREETING[12:])


def no_handshake(it):
    for _ in range(20):
        it.say(GREETING)


def broken_handshakes(it):
    bodies = (b"", b"\5READY" + b"\x0bSocket-Type\xff\xff\xff\xff", b"\5READY\0", b"\xffREADY", b"\5ERROR\xff", b"\4PING")
    for body in bodies:
        it.say_to_greeting(frame(body, COMMAND))
    for kind in (b"PUB", b"ROUTER", b"NOBODY", b"X" * 200):
        it.say_greeted(b"", kind)


def huge_lengths(it):
    for size in ((1 << 64) - 1, 1 << 63, (1 << 63) - 1, 1 << 40, 1 << 31, 20 * MEBIBYTE):
        for flags in (LONG, LONG | MORE, LONG | COMMAND):
            it.say_greeted(bytes((flags,)) + size.to_bytes(8, "big") + b"\1" * 1000)


def frame_without_end(it):
    it.flood(b"\1" * 65536, bytes((LONG,)) + (1 << 32).to_bytes(8, "big"))


def parts_without_end(it):
    it.flood(frame(b"\1abc", MORE) * 10_000)


def empty_parts_without_end(it):
    it.flood(frame(b"", MORE) * 10_000)


def large_parts_without_end(it):
    it.flood(frame(b"\1" * 65_000, MORE))


def subscriptions(it):
    topics = b"".join(frame(b"\1" + it.random.randbytes(it.random.randrange(60))) for _ in range(20_000))
    it.flood(topics)


def long_subscriptions(it):
    for _ in range(20):
        it.say_greeted(frame(b"\1" + it.random.randbytes(MEBIBYTE)))


def unknown_messages(it):
    it.flood(frame(b"\7" * 40) * 1000)


def pings(it):
    """Never reads the answers."""
    it.flood(frame(b"\4PING\0\0abcdefgh", COMMAND) * 1000)


def commands(it):
    it.flood(frame(b"\5ERROR\3why", COMMAND) * 1000)
    it.flood(frame(b"\x09SUBSCRIBE" + os.urandom(20), COMMAND) * 1000)


def never_reads(it):
    """Asks, or subscribes to everything, and does not read what comes."""
    for _ in range(10):
        it.say_greeted(frame(b"\1"))
    it.flood((frame(b"", MORE) + frame(b"configrxe custom")) * 10)


def comes_and_goes(it):
    for _ in range(it.door.connections):
        it.say(it.random.choice((b"", b"", GREETING, GREETING[:30], b"\0")))
        if it.open:
            it.open.pop().close()
        time.sleep(it.door.pause)


PARTS = (parts_without_end, empty_parts_without_end, large_parts_without_end)
ATTACKS = (
    garbage, half_greetings, other_greetings, no_handshake, broken_handshakes, huge_lengths, frame_without_end,
    *PARTS, subscriptions, long_subscriptions,
    unknown_messages, pings, commands, never_reads, comes_and_goes,
)


class Door:
    """A socket to which peers connect."""

    pause = 0.001  # seconds between connections that follow each other, for the system's queue of callers

    def __init__(self, name, address, kind, connections, spared=()):
        self.name, self.address, self.kind, self.connections = name, address, kind, connections
        self.attacks = [attack for attack in ATTACKS if attack not in spared]

    def connect(self):
        for _ in range(1000):
            try:
                return dial(self.address)
            except BlockingIOError:  # the queue of callers is full
                time.sleep(0.001)
        raise TimeoutError(f"{self.name} takes no connection")


class Consumer(Door):
    """A file to which the daemon connects, again when its connection was closed."""

    pause = 0
    peer = None
    is_left = False  # the daemon does not come any more

    def bind(self):
        self.is_left = False
        self.listener = bind_file(self.address)
        self.listener.settimeout(1)

    def connect(self):
        if self.peer is not None:
            self.peer.close()
        if self.is_left:
            raise TimeoutError(f"the daemon does not connect to {self.name}")
        try:
            self.peer, _ = self.listener.accept()
        except TimeoutError:
            self.is_left = True
            raise
        self.peer.settimeout(3)
        return self.peer

    def unbind(self):
        self.listener.close()
        self.listener = self.peer = None

    def is_served(self):
        """Whether the daemon connects again after an attack."""
        try:
            self.connect()
            return True
        except OSError:
            return False
