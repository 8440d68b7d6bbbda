#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Counts the tag reports of a fleet of readers, by reader, and tells what is missing.

    consumer.py HOST PORT

Every two seconds, and at SIGTERM or SIGINT, it prints for each reader how many reports came, how many
of them came again, and how many event numbers never came. Exit status 1 when some never came.

It keeps its session on the server, so nothing is lost while it is away. Debian: python3-paho-mqtt.
"""
import signal
import sys
import time

import paho.mqtt.client as mqtt
from paho.mqtt.packettypes import PacketTypes
from paho.mqtt.properties import Properties

TELL_EVERY = 2  # s
SESSION = 3600  # s that the server keeps what comes while this program is away


class Life:
    """The reports of one reader from one start of its daemon to the next, numbered without a gap."""

    def __init__(self):
        self.reports = 0
        self.repeats = 0
        self.next = None  # number of the next report; the first one that comes begins the account
        self.gaps = []  # [first, last] of numbers that have not come

    def take(self, number):
        if self.next is None or number >= self.next:
            if self.next is not None and number > self.next:
                self.gaps.append([self.next, number - 1])
            self.next = number + 1
            self.reports += 1
        elif not self.fill(number):
            self.repeats += 1

    def fill(self, number):
        for i, (first, last) in enumerate(self.gaps):
            if first <= number <= last:
                rest = [[first, number - 1], [number + 1, last]]
                self.gaps[i:i + 1] = [gap for gap in rest if gap[0] <= gap[1]]
                self.reports += 1
                return True
        return False

    def missing(self):
        return sum(last - first + 1 for first, last in self.gaps)


readers = {}  # name: {boot: Life}


def on_connect(client, userdata, flags, reason, properties):
    print("connected" if reason == 0 else f"refused: {reason}", flush=True)
    client.subscribe("tarnwick/+/tags", qos=1)


def on_disconnect(client, userdata, reason, properties=None):
    print("disconnected", flush=True)


def on_message(client, userdata, message):
    # The identity of a report is reader/boot/number. A repeat has the same one.
    event = dict(message.properties.UserProperty)
    boot, number = event["id"].split("/")
    name = event["source"].removeprefix("/readers/")
    readers.setdefault(name, {}).setdefault(boot, Life()).take(int(number))


def tell():
    print(f"{'reader':<12} {'reports':>9} {'repeats':>9} {'missing':>9}")
    for name, lives in sorted(readers.items()):
        sums = [sum(values) for values in zip(*((life.reports, life.repeats, life.missing()) for life in lives.values()))]
        print(f"{name:<12} {sums[0]:>9} {sums[1]:>9} {sums[2]:>9}")
        for boot, life in lives.items():
            for first, last in life.gaps:
                print(f"  never came: {name}/{boot}/{first} to {last}")
    sys.stdout.flush()


def main():
    ending = []
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, lambda *_: ending.append(True))
    client = mqtt.Client("fleet-consumer", protocol=mqtt.MQTTv5)
    client.on_connect, client.on_disconnect, client.on_message = on_connect, on_disconnect, on_message
    client.reconnect_delay_set(1, 5)
    session = Properties(PacketTypes.CONNECT)
    session.SessionExpiryInterval = SESSION
    client.connect_async(sys.argv[1], int(sys.argv[2]), clean_start=False, properties=session)
    client.loop_start()
    told = time.monotonic()
    while not ending:
        time.sleep(0.1)
        if time.monotonic() - told >= TELL_EVERY:
            told = time.monotonic()
            tell()
    client.disconnect()
    client.loop_stop()
    print("in all")
    tell()
    return 1 if any(life.gaps for lives in readers.values() for life in lives.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
