# SPDX-License-Identifier: MIT
"""Stands before a Kafka broker that has neither TLS nor passwords and demands both: kafka_front.py
BROKER_PORT CERTIFICATE KEY USER PASSWORD prints its port. Frames have 4 bytes of length, then requests
have type, version and correlation id."""
import socket
import ssl
import struct
import sys
import threading

# Type, lowest and highest version: produce, fetch, offsets, metadata, producer id, and the front's own.
HANDSHAKE, API_VERSIONS, AUTHENTICATE = 17, 18, 36
VERSIONS = [(0, 3, 7), (1, 0, 11), (2, 0, 5), (3, 0, 2), (22, 0, 1)] + \
           [(HANDSHAKE, 0, 1), (API_VERSIONS, 0, 0), (AUTHENTICATE, 0, 0)]
UNSUPPORTED_VERSION, AUTHENTICATION_FAILED = 35, 58

broker, certificate, key, user, password = sys.argv[1:]
listener = socket.create_server(("127.0.0.1", 0))
port = listener.getsockname()[1]
print(port, flush=True)
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(certificate, key)


def receive(peer, count=None):
    count = count or struct.unpack(">i", receive(peer, 4))[0]
    data = b""
    while len(data) < count:
        more = peer.recv(count - len(data))
        if not more:
            raise OSError("closed")
        data += more
    return data


def send(peer, frame):
    peer.sendall(struct.pack(">i", len(frame)) + frame)


def answer(client, server):
    """Clients connect to the place that the broker names, which becomes the front's."""
    own, place = (b"\0\x09127.0.0.1" + struct.pack(">i", number) for number in (port, int(broker)))
    while True:
        send(client, receive(server).replace(place, own))


def own_reply(kind, version, request):
    if kind == API_VERSIONS:
        error = UNSUPPORTED_VERSION if version > 0 else 0
        return struct.pack(">hi", error, len(VERSIONS)) + b"".join(struct.pack(">3h", *v) for v in VERSIONS)
    if kind == HANDSHAKE:
        return struct.pack(">hih", 0, 1, 5) + b"PLAIN"
    if kind == AUTHENTICATE:
        isKnown = request.endswith(f"\0{user}\0{password}".encode())
        return struct.pack(">hhi", 0 if isKnown else AUTHENTICATION_FAILED, -1, 0)
    return None


def serve(raw):
    client = context.wrap_socket(raw, server_side=True)
    server = socket.create_connection(("127.0.0.1", int(broker)))
    threading.Thread(target=answer, args=(client, server), daemon=True).start()
    while True:
        request = receive(client)
        kind, version, correlation = struct.unpack(">hhi", request[:8])
        reply = own_reply(kind, version, request)
        if reply is None:
            send(server, request)
        else:
            send(client, struct.pack(">i", correlation) + reply)


while True:
    threading.Thread(target=serve, args=(listener.accept()[0],), daemon=True).start()
