# SPDX-License-Identifier: MIT
"""Requests of which one call of the radio engine fails."""
import json
import re
import time

STATUS = 77  # of the failing calls
OPERATIONS = (
    "RXE_getAPIVerNum", "RXE_connect", "RXE_disconnect", "RXE_setCallback", "RXE_getParam", "RXE_setParam",
    "RXE_setParam2", "RXE_setNVMParam", "RXE_start", "RXE_stop", "RXE_resume", "RXE_resetDb", "RXE_getErr",
    "RXE_txFakeTags", "RXE_enablePacketLogging", "RXE_disablePacketLogging",
)  # fmt: skip
MANY = 1_000_000  # calls, more than any request takes

# What may stand in a refusal. Statuses are STATUS, and 1 where the daemon has its own.
MODE_REFUSAL = re.compile(
    r"Failure: Failed to set (select error|invParam error|delayAfterSelects error|olio \d+ error|"
    r"access \w+ error|access \w+ \w+ error|radio stop condition error|gpio direction error|autorestart error|"
    r"gpio start error|Tx Delay Interval error|lastReportFilter error|customFields error|"
    r"channel reporting error|parallel rssi debug error|dynamic range error|rssi detect threshold|"
    r"block size error|Mono or COM to \d+ error|peak threshold to \d+ error) 0x004d"
)
DOCUMENT_REFUSAL = re.compile(
    r"Failure: error getting (olio|select|inventory|access|radio stop condition|packet bitmask|custom fields|"
    r"hopPerRound|hopPerOlio|channel|tagReportInterval|gpioDirections|gpioStart|filter|rssi detect filter|"
    r"txDelayInterval|delayAfterSelects|dynamic range|cable loss|aar height|tag height|static v dynamic|"
    r"block size)"
)
# The request, whether the radio runs before it, and its refusals. Those that cannot fail tell it
# in their members or in numErrors.
REQUESTS = (
    ("start", False, re.compile(rf"Failure: RXE_(resetDb|start)\(\) returned error: {STATUS}|"
                                "Failure: Start currently ongoing.*")),
    ("start sim 20", False, re.compile(rf"Failure: RXE_(resetDb|txFakeTags)\(\) returned error: {STATUS}")),
    ("stop", True, re.compile("Failure")),
    ("stop", False, re.compile("Failure")),
    ("status", False, re.compile("Success: .*")),
    ("status", True, re.compile("Success: .*")),
    ("configrxe custom", False, DOCUMENT_REFUSAL),
    ("configrxe custom", True, DOCUMENT_REFUSAL),
)  # fmt: skip


class Sweep:
    """The cases of one model, with one reader that is not restarted for them."""

    def __init__(self, campaign, reader, model, counts):
        self.campaign = campaign
        self.reader = reader
        self.model = model
        self.counts = counts

    def calls(self, request):
        """The calls of a request that do not fail: pairs of an operation and its number, from 0."""
        for operation in OPERATIONS:
            self.reader.engine({"event": "fail", "operation": operation, "status": STATUS, "after": MANY})
        self.reader.request(request)
        left = {row["operation"]: row["after"] for row in failing(self.reader)}
        self.clear()
        return [(operation, call) for operation in OPERATIONS for call in range(MANY - left[operation])]

    def clear(self):
        for operation in OPERATIONS:
            self.reader.engine({"event": "fail", "operation": operation, "status": 0})

    def errors(self):
        return int(re.search(r'"numErrors": ?(\d+)', self.reader.request("status numErrors")).group(1))

    def ask(self, case, request):
        """The reply to a request of which one call fails. Whether the failure was told: the reply is a
        refusal, or an error was counted."""
        operation, call = case
        before = self.errors()
        self.reader.engine({"event": "fail", "operation": operation, "status": STATUS, "after": call})
        reply = self.reader.request(request)
        if failing(self.reader):
            # A call fewer than without a failure, as after an earlier one.
            self.counts["not reached"] += 1
            self.reader.engine({"event": "fail", "operation": operation, "status": 0})
            return reply, True
        # RXE_resume tells whether the radio runs: every status but one says that it does.
        told = operation == "RXE_resume" or reply.startswith("Failure") or self.errors() > before
        return reply, told

    def check(self, condition, case, what):
        operation, call = case or ("", 0)
        self.campaign.check(condition, f"{self.model}, call {call} of {operation}: {what}", self.reader)

    # ---------------------------------------------------------------- modes

    def state(self):
        return self.reader.request("mode"), (self.reader.directory / "mode_config.json").read_bytes()

    def document(self):
        return in_use(json.loads(self.reader.request("configrxe custom")))

    def mode_case(self, case, old, new, running):
        """`old` and `new` are requests; the old mode is in force, and again afterwards. The new one comes
        while the radio reads, or while it does not."""
        before = self.state()
        if running:
            self.reader.request("start")
        reply, told = self.ask(case, new)
        if running:
            self.check(self.reader.request("stop") == "Success", case, f"no stop after {new}")
        after = self.state()
        if reply == "Success":
            self.ignored.append(case)
            self.check(told, case, f"accepted, and nothing tells the failure: {new}")
            stored = json.loads(after[1]).get("mode")
            self.check(stored == json.loads(new[5:]), case, f"accepted, but not stored: {new}")
        else:
            self.refused.append(case)
            self.check(MODE_REFUSAL.fullmatch(reply), case, f"the reply {reply} to {new}")
            self.check(after == before, case, f"refused, yet something changed: {difference(before[0], after[0])}, "
                       f"{difference(before[1].decode(), after[1].decode())}, by {new}")
        self.check(self.reader.request(old) == "Success", case, f"the next mode is refused: {old}")
        document = self.document()
        self.check(document == self.documents[old], case,
                   f"the engine keeps {difference(document, self.documents[old])} after {old}, from {new}")

    def check_ignored(self, new):
        """Only failures of the wipe before a mode may be ignored, of the switch of access reports, and of
        the heights of an array reader. The wipe comes before all writes that can refuse a mode."""
        writes = [call for operation, call in self.refused if operation == "RXE_setParam2"]
        if writes:
            late = [case for case in self.ignored if case[1] > min(writes)]
            most = 4 if "PORTAL_DIRECTIONALITY" in new else 1
            self.check(len(late) <= most, late[0] if late else None, f"failures are ignored: {late} of {new}")

    def modes(self, modes, end):
        """All calls of the way from each mode to the next one, in random order while there is time."""
        self.documents = {}
        requests = ["mode " + mode for mode in modes]
        for request in [*requests, *requests]:  # the second time round each has its predecessor's traces
            self.reader.request(request)
            self.documents[request] = self.document()
        order = list(range(len(requests)))
        self.campaign.random.shuffle(order)
        for done, index in enumerate(order):
            old, new = requests[index - 1], requests[index]
            self.reader.request(old)
            cases = self.calls(new)
            self.reader.request(old)
            self.counts["mode calls planned"] += len(cases)
            self.campaign.random.shuffle(cases)
            self.ignored, self.refused = [], []
            share = time.monotonic() + (end - time.monotonic()) / (len(order) - done)
            for case in cases:
                if time.monotonic() > share:
                    break
                running = self.campaign.random.random() < 0.3
                self.mode_case(case, old, new, running)
                self.counts["mode calls"] += 1
                self.counts["while reading"] += running
            self.check_ignored(new)

    # ------------------------------------------------- other requests

    def settle(self, running):
        """Stops the radio, or makes it run."""
        self.check(self.reader.request("stop") == "Success", None, "the radio does not stop")
        if running:
            self.check(self.reader.request("start") == "Success", None, "the radio does not start")

    def request_case(self, case, request, running, refusal):
        mode = self.reader.request("mode")
        self.settle(running)
        reply, told = self.ask(case, request)
        self.check(told, case, f"nothing tells that a call of {request} failed: {reply[:200]}")
        self.check(is_good(reply) or refusal.fullmatch(reply), case, f"{request} has the reply {reply[:200]}")
        self.settle(running)
        reply = self.reader.request(request)
        self.check(is_good(reply), case, f"the next {request} has the reply {reply[:200]}")
        self.check(self.reader.request("mode") == mode, case, f"{request} has changed the mode")

    def requests(self, end):
        for request, running, refusal in REQUESTS:
            self.settle(running)
            cases = self.calls(request)
            self.counts["request calls planned"] += len(cases)
            self.campaign.random.shuffle(cases)
            for case in cases:
                if time.monotonic() > end:
                    break
                self.request_case(case, request, running, refusal)
                self.counts["request calls"] += 1
        self.settle(False)


def is_good(reply):
    return reply.startswith(("Success", "{"))  # a document has no word in front


def failing(reader):
    return json.loads(reader.engine("failing"))["failing"]


def in_use(document):
    """The engine's state without what the olios do not use: it stays from earlier modes."""

    def used(records, mask):
        bits = 0
        for olio in document["olios"]:
            bits |= int(olio.get(mask, "0x0"), 16)
        return [record for record in records if bits >> (record["id"] - 1) & 1]

    inventories = {olio.get("inventoryIndex") for olio in document["olios"]}
    accesses = used(document["accesses"], "accessBitMask")
    state = {
        **document,
        "selects": used(document["selects"], "selectBitMask"),
        "accesses": accesses,
        "inventories": [record for record in document["inventories"] if record["id"] in inventories],
    }
    # Of writes, and of the mode PORTAL_DIRECTIONALITY, which no member tells.
    unused = {"aarHeight", "tagHeight", "staticVDynamic"}
    if not any(record["type"] == "write" for record in accesses):
        unused.add("blockSize")
    return {key: value for key, value in state.items() if key not in unused}


def difference(document, other):
    """The first place where two documents differ."""
    text, other = json.dumps(document), json.dumps(other)
    if text == other:
        return "nothing"
    at = next((i for i, (a, b) in enumerate(zip(text, other)) if a != b), min(len(text), len(other)))
    return f"{text[max(0, at - 60) : at + 40]!r} in place of {other[max(0, at - 60) : at + 40]!r}"
