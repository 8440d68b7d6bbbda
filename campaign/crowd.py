# SPDX-License-Identifier: MIT
"""Receivers of tag reports, any number at any pace, and the tally of what reached them."""
import binascii
import json
import re
import select
import socket
import struct
import threading
import time
from collections import Counter

from campaign.peers import DATA_PORT, bind_file, binary_number, dial, frame, shake_hands, split_frames

NUMBER = re.compile(rb'"eventNum":(\d+),')
EPC = re.compile(rb'"idHex":"([0-9a-f]{24})"')
HEADER = 4  # bytes: subscriber, low byte first: 2, kind: 1, 0
# Quirk: in the form BINARY a heat map follows its report as JSON, without a number.
LONE_MAP = b'\x01\x00\x00\x00{"data":{"HEATMAP":'
FORMS = {b"\1": "BINARY", b"\2": "REDUCED"}  # by kind


def json_number(body, at):
    """The number of a report in JSON that begins at this place; None when it is not whole."""
    match = NUMBER.search(body)
    return int(match[1]) if match and body.startswith(b'{"data":{', at) and body.endswith(b'"}') else None


def share_of(epc, count):
    """The subscriber, of so many, to whom a tag with 96 bits belongs (docs/reports.md)."""
    place, kept = {0x35: (7, 0x0F), 0x34: (8, 0xF0)}.get(epc[0], (3, 0xF0))
    epc = epc[:place] + bytes((epc[place] & kept,)) + epc[place + 1 :]
    return (binascii.crc_hqx(epc, 0xFFFF) ^ 0xFFFF) % count + 1


class Tally:
    """What reached a group of receivers, by the numbers of the reports.

    divided: the number of subscribers, when the one in each report is to be checked.
    """

    def __init__(self, divided=0):
        self.divided = divided
        self.seen = bytearray()
        self.received = self.twice = self.torn = self.disordered = self.foreign = 0
        self.forms, self.shares = Counter(), Counter()
        self.examples = []  # of torn ones

    def take(self, body, receiver):
        """Counts one frame."""
        if not body:
            return  # ends a batch
        form = FORMS.get(body[2:3], "STRING") if receiver.has_header else "OFF"
        if form == "REDUCED":  # which has no number
            self.received += 1
            receiver.received += 1
            self.torn += binary_number(body, HEADER) is None
            return
        if body.startswith(LONE_MAP) and body.endswith(b"}]}}"):
            return
        number = binary_number(body, HEADER) if form == "BINARY" else json_number(body, HEADER * receiver.has_header)
        if number is None:
            self.torn += 1
            self.examples.append(body[:60] + b" ... " + body[-200:])
            return
        if number % 512 == 0 and form != "BINARY":
            json.loads(body[HEADER * receiver.has_header :])
        share = body[0] + 256 * body[1]
        self.received += 1
        self.forms[form] += 1
        self.shares[share] += 1
        self.foreign += receiver.share is not None and share != receiver.share
        if self.divided:
            self.foreign += share != share_of(bytes.fromhex(EPC.search(body)[1].decode()), self.divided)
        self.disordered += number <= receiver.last
        receiver.last = number
        receiver.received += 1
        if number >= len(self.seen):
            self.seen.extend(bytes(number + 65536 - len(self.seen)))
        self.twice += self.seen[number]
        self.seen[number] = 1

    def missing(self, first, end):
        """How many of the numbers from first to below end did not come."""
        return end - first - self.seen[first:end].count(1)

    def faults(self):
        """What must never be, as text; empty when all is well."""
        found = {"torn": self.torn, "twice": self.twice, "out of order": self.disordered, "foreign": self.foreign}
        text = ", ".join(f"{count} {name}" for name, count in found.items() if count)
        return text + f" {self.examples[:2]}" * bool(self.torn)


class Receiver:
    """A subscriber of port 5160; with has_header False the consumer of a connection that it has accepted.

    pace: None reads all at once, (bytes, seconds) so many in each such time, (0, 1) nothing.
    """

    def __init__(self, connection, tally, share=None, has_header=True, pace=None):
        self.connection, self.tally, self.share, self.has_header = connection, tally, share, has_header
        self.pace = pace
        self.buffer = bytearray()
        self.last, self.received, self.next_read = -1, 0, 0.0
        shake_hands(connection, b"SUB")
        topic = b"" if share is None else struct.pack("<H", share)
        connection.sendall(frame(b"\1" + topic))
        connection.setblocking(False)

    def read(self):
        """Takes what is there. False when the other side has closed."""
        most = 1 << 18 if self.pace is None else self.pace[0]
        if most == 0:
            return True
        try:
            data = self.connection.recv(most)
        except BlockingIOError:
            return True
        except OSError:
            return False
        self.buffer += data
        bodies, at = split_frames(self.buffer)
        del self.buffer[:at]
        for body in bodies:
            self.tally.take(body, self)
        return bool(data)


class Crowd(threading.Thread):
    """Reads for its receivers on a thread of its own, until the end of the `with`."""

    def __init__(self):
        super().__init__(daemon=True)
        self.poller, self.receivers, self.lock = select.epoll(), {}, threading.Lock()
        self.listeners = {}
        self.returning = []  # tallies of subscribers that connect again
        self.ends = 0  # connections that the daemon has closed
        self.running, self.error = True, None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, kind, *_):
        self.running = False
        self.join()
        for receiver in list(self.receivers.values()):
            self._forget(receiver)
        for listener, *_ in self.listeners.values():
            listener.close()
        self.poller.close()
        if self.error is not None and kind is None:
            raise self.error

    def listen(self, file, tally, pace=None):
        """Binds a file as the local consumer; each connection becomes a receiver."""
        listener = bind_file(file)
        with self.lock:
            self.listeners[listener.fileno()] = (listener, tally, pace)
            self.poller.register(listener.fileno(), select.EPOLLIN)

    def subscribe(self, tally, share=None, pace=None):
        receiver = Receiver(dial(DATA_PORT), tally, share, True, pace)
        with self.lock:
            self._add(receiver)
        return receiver

    def keep_subscribed(self, tally):
        """A subscriber that connects whenever the port is open."""
        with self.lock:
            self.returning.append(tally)

    def hurry(self):
        """From now on all read all."""
        with self.lock:
            for receiver in self.receivers.values():
                if receiver.pace is not None:
                    receiver.pace = None
                    self.poller.register(receiver.connection.fileno(), select.EPOLLIN)

    def leave(self):
        """All receivers close their connections."""
        with self.lock:
            for receiver in list(self.receivers.values()):
                self._forget(receiver)

    def remove(self, receiver, how=socket.socket.close):
        with self.lock:
            self._forget(receiver, how)

    def _add(self, receiver):
        self.receivers[receiver.connection.fileno()] = receiver
        if receiver.pace is None:
            self.poller.register(receiver.connection.fileno(), select.EPOLLIN)

    def _forget(self, receiver, how=socket.socket.close):
        if self.receivers.pop(receiver.connection.fileno(), None) is None:
            return
        if receiver.pace is None:
            self.poller.unregister(receiver.connection.fileno())
        how(receiver.connection)

    def run(self):
        try:
            while self.running:
                found = self.poller.poll(0.01, 256)
                with self.lock:
                    self._serve(found)
        except Exception as error:  # pylint: disable=broad-except
            self.error = error  # raised at the end of the `with`, in the section's thread

    def _serve(self, found):
        for fd, _ in found:
            if fd in self.listeners:
                listener, tally, pace = self.listeners[fd]
                self._add(Receiver(listener.accept()[0], tally, has_header=False, pace=pace))
            elif fd in self.receivers:
                self._read(self.receivers[fd])
        now = time.monotonic()
        for receiver in [one for one in self.receivers.values() if one.pace and one.next_read <= now]:
            receiver.next_read = now + receiver.pace[1]
            self._read(receiver)
        for tally in self.returning:
            self._return(tally)

    def _read(self, receiver):
        if not receiver.read():
            self.ends += 1
            self._forget(receiver)

    def _return(self, tally):
        if not any(one.tally is tally for one in self.receivers.values()):
            try:
                self._add(Receiver(dial(DATA_PORT), tally))
            except OSError:
                pass  # the port is closed
