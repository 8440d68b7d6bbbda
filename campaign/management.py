# SPDX-License-Identifier: MIT
"""A management server that answers as it is told: well, late, in parts, without end, or with something else.

It stands on the port of the daemon's server and gets good answers from an rm_server on another port.
"""
import re
import socket
import threading
import time

from campaign.peers import dial, reset

PORT = ("127.0.0.1", 50009)
BEHIND = ("127.0.0.1", 50010)  # the rm_server
END_OF_REQUEST = b"command>"
STANDARD = b'xmlns:rm="urn:epcglobal:rm:xsd:1"'

BOMB = b'<!DOCTYPE r [<!ENTITY a "' + b"ha" * 40 + b'">'
BOMB += b"".join(b'<!ENTITY %c "%s">' % (98 + i, b"&%c;" % (97 + i) * 30) for i in range(8)) + b"]>"
FILE_ENTITY = b'<!DOCTYPE r [<!ENTITY i SYSTEM "file:///etc/passwd">]>'


def with_text(answer, text):
    """The answer with this text in place of each value."""
    return re.sub(rb">[^<>]+</brixrm:", b">" + text + b"</brixrm:", answer)


def well(client, answer):
    client.sendall(answer)


def late(client, answer):
    time.sleep(1)
    client.sendall(answer)


def nothing(client, _answer):
    client.settimeout(30)
    client.recv(1)  # until the daemon gives up


def closes(_client, _answer):
    pass


def resets(client, _answer):
    reset(client)


def shuts_down(client, _answer):
    """Half open: its own side is closed, the other one stays."""
    client.shutdown(socket.SHUT_WR)
    nothing(client, b"")


def half(client, answer):
    client.sendall(answer[: len(answer) // 2])


def half_and_waits(client, answer):
    half(client, answer)
    nothing(client, b"")


def byte_by_byte(client, answer):
    for index in range(len(answer)):
        client.sendall(answer[index : index + 1])
        time.sleep(0.002)


def without_end(client, answer):
    client.sendall(answer[: answer.index(b"resultCode")] + b"x>")
    while True:
        client.sendall(b"<x/>" * 16384)


def good_and_without_end(client, answer):
    client.sendall(answer)
    while True:
        client.sendall(answer * 64)


def sends(change):
    """A behaviour that sends the answer after a change."""
    return lambda client, answer: client.sendall(change(answer))


# name: (behaviour, whether the daemon has its answer; None: as it takes the value)
BEHAVIOURS = {
    "well": (well, True),
    "after 1 s": (late, True),
    "the answer and then without end": (good_and_without_end, True),
    "another id": (sends(lambda a: re.sub(rb"<rm:id>\d+<", b"<rm:id>4711<", a)), True),
    "no id": (sends(lambda a: re.sub(rb"<rm:id>\d+</rm:id>", b"", a)), True),
    "nothing": (nothing, False),
    "closes": (closes, False),
    "resets": (resets, False),
    "half open": (shuts_down, False),
    "half and closes": (half, False),
    "half and waits": (half_and_waits, False),
    "byte by byte": (byte_by_byte, False),
    "without end": (without_end, False),
    "entity bomb": (sends(lambda a: BOMB + with_text(a, b"&i;")), False),
    "entity of a file": (sends(lambda a: FILE_ENTITY + with_text(a, b"&i;")), False),
    "unknown entity": (sends(lambda a: with_text(a, b"&nobody;")), False),
    "nested": (sends(lambda a: b"<a>" * 1300), False),
    "attributes": (sends(lambda a: b"<r " + b" ".join(b'a%d="1"' % i for i in range(400)) + b"/>"), False),
    "another answer": (sends(lambda a: a.replace(b"brixrm:get", b"brixrm:got")), False),
    "another namespace": (sends(lambda a: a.replace(STANDARD, b'xmlns:rm="urn:other"')), False),
    "result code 4294967296": (sends(lambda a: a.replace(b"Code>0<", b"Code>4294967296<")), None),
    "result code -1": (sends(lambda a: a.replace(b"Code>0<", b"Code>-1<")), False),
    "numbers of 400 digits": (sends(lambda a: with_text(a, b"9" * 400)), None),
    "empty values": (sends(lambda a: with_text(a, b" ")), None),
    "not UTF-8": (sends(lambda a: with_text(a, b"\xff\xfe\x80")), False),
    "NUL bytes": (sends(lambda a: a.replace(b"<", b"\0<")), False),
    "garbage": (sends(lambda a: bytes(range(256)) * 64), False),
    "only its end": (sends(lambda a: b"reply>"), False),
}


class Management:
    """Serves until the end of the `with`."""

    def __init__(self):
        self.behaviour = well
        self.asked = 0
        self.listener, self.thread = None, None

    def __enter__(self):
        self.listener = socket.socket()
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.listener.bind(PORT)
        self.listener.listen(64)
        self.thread = threading.Thread(target=self._accept, daemon=True)
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        self.listener.close()

    def _accept(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            self.asked += 1
            threading.Thread(target=self._serve, args=(client, self.behaviour), daemon=True).start()

    def _serve(self, client, behaviour):
        try:
            client.settimeout(10)
            request = b""
            while not request.endswith(END_OF_REQUEST):
                data = client.recv(16384)
                if not data:
                    return
                request += data
            behaviour(client, good_answer(request))
        except OSError:
            pass  # the daemon has closed its end
        finally:
            client.close()


def good_answer(request):
    """What the rm_server says to it."""
    server = dial(BEHIND)
    server.sendall(request)
    answer = b""
    while data := server.recv(65536):
        answer += data
    server.close()
    return answer
