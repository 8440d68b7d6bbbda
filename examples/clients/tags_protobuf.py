#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""tags_protobuf.py [host]: prints the tag reports of a reader in the network.

Takes protobuf messages from tcp port 5160 (data_analytics BINARY). Needs python3-zmq,
python3-protobuf, and once "protoc --python_out=. --proto_path=tarnwick/proto tw_msg.proto".
SIGINT or SIGTERM ends it. A line is: time, EPC, antenna, RSSI in dBm; "-" for what a report
does not have."""
import signal, struct, sys
from datetime import datetime, timezone
import zmq
from google.protobuf.message import DecodeError
from tw_msg_pb2 import tag_data_report

HOST = sys.argv[1] if len(sys.argv) > 1 else "127.0.0.1"


def tell(text):
    print(text, file=sys.stderr, flush=True)


def take(frame, expected):
    """Prints one report. expected: its number, None for any. Returns the next one's."""
    try:
        subscriber, kind, _ = struct.unpack_from("<HBB", frame)
        if kind not in (1, 2):
            raise ValueError
        report = tag_data_report.FromString(frame[4:])
    except (struct.error, ValueError, DecodeError):
        tell(f"not a binary report (is data_analytics BINARY?): {frame[:40]}")
        return expected
    # An absent field reads as 0, which nobody has measured: HasField tells them apart.
    number = report.event_num if report.HasField("event_num") else None  # kind 2 has none
    antenna, rssi = [getattr(report, f) if report.HasField(f) else "-" for f in ("antenna", "rssi_int")]
    if None not in (number, expected) and number < expected:
        tell("the daemon has restarted")
    elif None not in (number, expected) and number > expected:
        tell(f"{number - expected} reports lost before number {number}")
    time = datetime.fromtimestamp(report.timestamp_millis / 1000, timezone.utc)
    print(time.isoformat(timespec="milliseconds"), report.tag_id.hex(), antenna, rssi, flush=True)
    return None if number is None else number + 1


signal.signal(signal.SIGTERM, signal.default_int_handler)
with zmq.Context() as context, context.socket(zmq.SUB) as reports:
    reports.rcvhwm = 100_000  # messages that may wait while we are busy
    reports.heartbeat_ivl = 2000  # ms; finds a dead link, and connects again
    reports.subscribe(b"")
    reports.connect(f"tcp://{HOST}:5160")
    expected = None
    try:
        while True:
            frames = reports.recv_multipart() if reports.poll(5000) else tell("no report for 5 s")
            for frame in frames or []:
                expected = take(frame, expected) if frame else expected  # an empty one only ends a batch
    except KeyboardInterrupt:
        pass
