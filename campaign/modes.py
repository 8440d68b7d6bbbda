# SPDX-License-Identifier: MIT
"""Operating modes: those of the examples, and random ones that the reader at hand accepts."""
import json

from campaign.campaign import ROOT

SELECT_ACTIONS = ("INVA_INVB", "INVA_NOTHING", "NOTHING_INVB", "FLIPAB_NOTHING", "INVB_INVA", "NOTHING_FLIPAB")
SL_ACTIONS = ("ASSERTSL_DEASSERTSL", "ASSERTSL_NOTHING", "NEGATESL_NOTHING", "NOTHING_ASSERTSL")
BANKS = ("EPC", "TID", "USER")
METADATA = ("ANTENNA", "CHANNEL", "PC", "XPC", "CRC", "RSSI", "SEEN_COUNT", "PHASE", "TID", "USER[0-1]")


def digits(random, count):
    return "".join(random.choice("0123456789abcdef") for _ in range(count))


def select(random):
    target = random.choice(("S1", "S2", "S3", "SL"))
    length = 8 * random.randrange(1, 9)
    return {
        "target": target,
        "action": random.choice(SL_ACTIONS if target == "SL" else SELECT_ACTIONS),
        "membank": random.choice(BANKS),
        "pointer": 32,
        "length": length,
        "mask": digits(random, length // 4),
    }


def access(random):
    bank = {"membank": random.choice(BANKS), "wordPointer": random.randrange(4)}
    words = random.randrange(1, 5)
    return random.choice(
        (
            {"type": "READ", "config": {**bank, "wordCount": words}},
            {"type": "WRITE", "config": {**bank, "data": digits(random, 4 * words), "blockSize": 1 + words % 2}},
            {"type": "ACCESS", "config": {"password": digits(random, 8)}},
            {"type": "KILL", "config": {"password": digits(random, 8)}},
            {"type": "LOCK", "config": {"actions": ["WRITE_LOCK_EPC_BANK"]}},
        )
    )


def gpis(random):
    return [{"port": random.choice((1, 2)), "signal": random.choice(("HIGH", "LOW")), "debounceTime": 10}]


def repeated(random, make, count=3):
    return [make(random) for _ in range(random.randrange(1, count + 1))]


ENVIRONMENTS = ("LOW_INTERFERENCE", "HIGH_INTERFERENCE", "VERY_HIGH_INTERFERENCE", "DEMO")


def query(random):
    return {
        "session": f"S{random.randrange(4)}",
        "target": random.choice("AB"),
        "tagPopulation": 1 << random.randrange(12),
    }


def beam(random):
    return {"azimuth": random.randrange(0, 360, 15), "elevation": random.randrange(0, 61, 10), "polarization": "TOTAL"}


# What a mode may have: the key, how often of 100, and its value.
KEYS = {
    "transmitPower": (50, lambda r: r.randrange(100, 300) / 10),
    "environment": (30, lambda r: r.choice(ENVIRONMENTS)),
    "linkProfile": (30, lambda r: r.choice((201, 508, 814, 1519))),
    "antennaStopCondition": (30, lambda r: {"type": "DURATION", "value": r.randrange(50, 900)}),
    "query": (40, query),
    "selects": (40, lambda r: repeated(r, select)),
    "accesses": (30, lambda r: repeated(r, access)),
    "filter": (20, lambda r: {"value": digits(r, 8), "match": r.choice(("prefix", "suffix")), "operation": "include"}),
    "radioStopConditions": (30, lambda r: {"tagCount": r.randrange(1, 500), "gpis": gpis(r)}),
    "radioStartConditions": (20, lambda r: {"type": "GPI_WITH_RESTART", "gpis": gpis(r)}),
    "reportFilter": (40, lambda r: {"type": "PER_ANTENNA", "duration": r.randrange(100)}),
    "tagMetaData": (60, lambda r: r.sample(METADATA, r.randrange(1, 6))),
    "rssiFilter": (30, lambda r: {"threshold": -r.randrange(40, 80)}),
    "delayBetweenAntennaCycles": (30, lambda r: {"type": "NO_TAGS", "duration": r.randrange(1, 200)}),
    "delayAfterSelects": (20, lambda r: r.randrange(1, 60)),
}
TYPES = ("SIMPLE", "INVENTORY", "PORTAL", "CONVEYOR", "CUSTOM")
ARRAY_TYPES = (*TYPES, "BEARING", "PORTAL_DIRECTIONALITY")


def random_mode(random, array):
    """A mode that a reader may take or refuse."""
    mode = {"type": random.choice(ARRAY_TYPES if array else TYPES)}
    if array:
        mode["beams"] = repeated(random, beam)
    else:
        mode["antennas"] = random.sample((1, 2, 3, 4), random.randrange(1, 5))
    for key, (often, value) in KEYS.items():
        if random.randrange(100) < often:
            mode[key] = value(random)
    return mode


def examples():
    return [json.loads(file.read_text()) for file in sorted((ROOT / "examples" / "modes").glob("*.json"))]


def accepted_modes(reader, random, count, array=False):
    """`count` texts of modes that this reader has just accepted: first those of the examples."""
    found = []
    candidates = examples()
    for _ in range(100 * count):
        mode = json.dumps(candidates.pop(0) if candidates else random_mode(random, array))
        if reader.request("mode " + mode) == "Success":
            found.append(mode)
        if len(found) == count:
            return found
    raise RuntimeError(f"only {len(found)} of {count} modes are accepted")
