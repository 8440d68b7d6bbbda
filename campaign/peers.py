# SPDX-License-Identifier: MIT
"""ZMTP 3.0 (rfc.zeromq.org/spec/23) by hand, for peers that can also misbehave, and the daemon's endpoints."""
import os
import socket
import struct

DATA_PORT = ("127.0.0.1", 5160)
REPLY_FILE = "/tmp/tarnwick_rep"
DATA_FILE = "/tmp/data"
EVENTS_FILE = "/tmp/events"
LINES_FILE = "/tmp/gpio_led_controller"
ENGINE_FILE = "/tmp/rxe_engine"

GREETING_BYTES = 64
GREETING = b"\xff" + bytes(8) + b"\x7f\x03\x00" + b"NULL".ljust(20, b"\0") + b"\0" + bytes(31)
MORE, LONG, COMMAND = 1, 2, 4

def frame(body, flags=0):
    """One frame: flags, size in one or eight bytes, body."""
    if len(body) > 255:
        return struct.pack(">BQ", flags | LONG, len(body)) + body
    return bytes((flags, len(body))) + body


def ready(kind):
    """The handshake's command READY of a socket of this kind, such as b"SUB"."""
    return frame(b"\5READY\x0bSocket-Type" + struct.pack(">I", len(kind)) + kind, COMMAND)


def dial(address):
    """Connects to (host, port) or to a file."""
    peer = socket.socket(socket.AF_UNIX if isinstance(address, str) else socket.AF_INET)
    peer.settimeout(5)
    if not isinstance(address, str):
        peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    try:
        peer.connect(address)
    except OSError:
        peer.close()
        raise
    return peer


def receive(peer, size):
    """Exactly so many bytes."""
    data = bytearray()
    while len(data) < size:
        some = peer.recv(size - len(data))
        if not some:
            raise OSError("the other side has closed the connection")
        data += some
    return bytes(data)


def shake_hands(peer, kind):
    """The handshake. libzmq closes a connection that does not wait for its greeting."""
    peer.sendall(GREETING)
    receive(peer, GREETING_BYTES)
    peer.sendall(ready(kind))


def reset(peer):
    """Closes as the system closes for a killed process: a TCP peer gets a reset, unread bytes are gone."""
    try:
        peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    finally:
        peer.close()


def split_frames(buffer):
    """Bodies of the whole frames, without commands, and the place behind the last one."""
    bodies, at, end = [], 0, len(buffer)
    while at + 2 <= end:
        flags, size, body = buffer[at], buffer[at + 1], at + 2
        if flags & LONG:
            if at + 9 > end:
                break
            size, body = int.from_bytes(buffer[at + 1 : at + 9], "big"), at + 9
        if body + size > end:
            break
        if not flags & COMMAND:
            bodies.append(bytes(buffer[body : body + size]))
        at = body + size
    return bodies, at


def binary_number(report, at):
    """Field 24, event_num, of a tag_data_report that begins there; -1 without it, None when it is broken."""
    end, number = len(report), -1
    while at < end:
        key, at = varint(report, at)
        kind = key & 7
        if kind == 0:
            value, at = varint(report, at)
            number = value if key >> 3 == 24 else number
        elif kind == 2:
            size, at = varint(report, at)
            at += size
        elif kind == 5:
            at += 4
        else:
            return None
    return number if at == end else None


def varint(data, at):
    """A base 128 number of protobuf, and the place behind it; a broken one ends behind the data."""
    value = shift = 0
    while at < len(data):
        byte = data[at]
        at += 1
        value |= (byte & 127) << shift
        if byte < 128:
            return value, at
        shift += 7
    return 0, len(data) + 1


def bind_file(file):
    """A listener on a file, in place of what is there."""
    if os.path.lexists(file):
        os.unlink(file)
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(file)
    listener.listen(128)
    return listener
