#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""On the reader: starts the radio whenever a daemon comes up, and prints each tag report.

Takes JSON from ipc:///tmp/data (data_analytics OFF). Needs python3-zmq, and the right to send
requests. A line is: time, EPC, antenna, RSSI in dBm; "-" for what a report does not have."""
import json, signal, socket, sys
import zmq


def tell(text):
    print(text, file=sys.stderr, flush=True)


def ask(request, patience=5000):
    with context.socket(zmq.REQ) as client:  # a new one each time: one without a reply is stuck
        client.linger = 0
        client.connect("ipc:///tmp/tarnwick_rep")
        client.send_string(request)
        return client.recv().rstrip(b"\0").decode() if client.poll(patience) else "no daemon replies"


def take(frame, expected):
    """Prints one report. expected: its number, None for any. Returns the next one's."""
    try:
        report = json.loads(frame)
        data, number = report["data"], report["data"]["eventNum"]
    except (ValueError, KeyError, TypeError):
        tell(f"not a JSON report (is data_analytics OFF?): {frame[:40]}")
        return expected
    if expected is not None and number < expected:
        tell("the daemon has restarted")
    elif expected is not None and number > expected:
        tell(f"{number - expected} reports lost before number {number}")
    print(report["timestamp"], data["idHex"], data.get("antenna", "-"), data.get("peakRssi", "-"), flush=True)
    return number + 1


signal.signal(signal.SIGTERM, signal.default_int_handler)
with socket.socket(socket.AF_UNIX) as probe:  # to bind would take the file from another consumer
    if probe.connect_ex("/tmp/data") == 0:
        sys.exit("another process takes the reports at /tmp/data")
with zmq.Context() as context, context.socket(zmq.SUB) as reports:
    reports.rcvhwm = 100_000  # messages that may wait while we are busy
    reports.subscribe(b"")
    arrivals = reports.get_monitor_socket(zmq.EVENT_HANDSHAKE_SUCCEEDED)
    reports.bind("ipc:///tmp/data")
    expected = None
    try:
        while True:
            ready = zmq.select([reports, arrivals], [], [], 5)[0]
            if arrivals in ready and arrivals.recv_multipart():
                tell(f"a daemon has connected; start: {ask('start')}")
            for frame in reports.recv_multipart() if reports in ready else []:
                expected = take(frame, expected) if frame else expected  # an empty one only ends a batch
            if not ready:
                tell(f"no report for 5 s; status: {ask('status radioActivity', 1000)}")
    except KeyboardInterrupt:
        pass
