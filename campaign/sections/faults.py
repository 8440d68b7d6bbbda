# SPDX-License-Identifier: MIT
"""Each call of the radio engine fails in turn, on four models: the failure is told, what was in force stays in
force, and the next request is good."""
import re
import time

from campaign.modes import accepted_modes
from campaign.reader import NoReply, Reader
from campaign.sweep import MANY, OPERATIONS, STATUS, Sweep, failing

TITLE = "each engine call fails in turn, four models"
SHARE = 90
MODES = 50

# The name, rm_server's profile, and what the software radio is.
MODELS = (
    ("PN5100", "PN5100", {"model": "PN5100", "firmware": "1.4.90.0"}),
    ("PN5100-ASIC", "PN5100", {"model": "PN5100", "firmware": "2.1.50.0"}),
    ("PN8200", "PN8200", {"model": "PN8200", "firmware": "2.1.50.0"}),
    ("QDX4400", "QDX4400", {"model": "QDX4400", "firmware": "2.1.50.0"}),
)

# -------------------------------------------------------- start-up and shutdown


def startup_calls(reader):
    """The calls of a start with the mode that is stored: pairs of an operation and its number, from 0."""
    reader.scenario["failing"] = [{"operation": name, "status": STATUS, "after": MANY} for name in OPERATIONS]
    reader.start()
    left = {row["operation"]: row["after"] for row in failing(reader)}
    reader.exit()
    return [(operation, call) for operation in OPERATIONS for call in range(MANY - left[operation])]


def ends_or_answers(reader):
    """Waits until the daemon has ended or answers. Returns whether it answers."""
    while True:
        try:
            reader.request("logging", timeout=0.05)
            return True
        except NoReply:
            if reader.daemon.poll() is not None:
                return False


def startup_case(campaign, reader, model, case, stored):
    """A start of which one call fails, with a stored mode, and a start behind it."""
    operation, call = case
    file, refused = reader.directory / "mode_config.json", reader.directory / "mode_config.json.refused"
    document = file.read_bytes()

    def check(condition, what):
        campaign.check(condition, f"{model}, call {call} of {operation} at start-up: {what}", reader)

    (reader.directory / "tarnwick.log").unlink(missing_ok=True)
    row = {"operation": operation, "status": STATUS, "after": call}
    reader.scenario["failing"] = [row]
    reader.start(wait=False)
    answers = ends_or_answers(reader)
    check(answers or reader.daemon.returncode == 0, f"it ended with status {reader.daemon.returncode}")
    in_force = ""
    if answers:
        in_force = reader.request("mode")
        reader.exit()
    # Losses of cables may stay unknown to the radio; and the first look at the link, behind the start,
    # was counted too. Neither is told, and neither hurts.
    is_harmless = operation in ("RXE_setParam", "RXE_getParam", "RXE_resume") and in_force == stored
    check(is_harmless or re.search(r" (ERROR|WARNING) ", reader.log()), "the log does not tell")
    if refused.exists():
        check(refused.read_bytes() == document, "the kept mode is another one")
        refused.replace(file)
    check(file.read_bytes() == document, "the stored mode is lost")
    check(not answers or in_force.startswith("Success: "), f"mode has the reply {in_force}")
    reader.scenario["failing"] = []
    reader.start()
    check(reader.request("mode") == stored, "the next start does not have the stored mode")
    reader.exit()


def startup(campaign, model, profile, scenario, mode, counts, end):
    with Reader(campaign, profile=profile, scenario=dict(scenario)) as reader:
        reader.request("mode " + mode)
        stored = reader.request("mode")
        reader.exit()
        cases = startup_calls(reader)
        campaign.random.shuffle(cases)
        counts["start-up calls planned"] += len(cases)
        for case in cases:
            if time.monotonic() > end:
                break
            startup_case(campaign, reader, model, case, stored)
            counts["start-up calls"] += 1


def shutdown(campaign, model, profile, scenario, counts, end):
    """The daemon ends with status 0 whatever fails, at rest and while it reads."""
    with Reader(campaign, profile=profile, scenario=dict(scenario)) as reader:
        cases = [(operation, running) for operation in OPERATIONS for running in (False, True)]
        campaign.random.shuffle(cases)
        for operation, running in cases:
            if time.monotonic() > end:
                break
            if running:
                reader.request("start")
            reader.engine({"event": "fail", "operation": operation, "status": STATUS, "count": 0})
            status = reader.exit()
            text = f"{model}: all calls of {operation} fail at shutdown, and the daemon ends with status {status}"
            campaign.check(status == 0, text, reader)
            reader.start()
            campaign.check(reader.request("start") == "Success", text + "; the next start is bad", reader)
            reader.request("stop")
            counts["shutdowns"] += 1


def run(campaign):
    counts = dict.fromkeys(
        ("mode calls", "mode calls planned", "request calls", "request calls planned", "start-up calls",
         "start-up calls planned", "shutdowns", "while reading", "not reached"), 0)  # fmt: skip
    for done, (model, profile, scenario) in enumerate(MODELS):
        end = time.monotonic() + campaign.left() / (len(MODELS) - done)
        with Reader(campaign, profile=profile, scenario=scenario) as reader:
            sweep = Sweep(campaign, reader, model, counts)
            modes = accepted_modes(reader, campaign.random, MODES, array=profile == "QDX4400")
            slice_ = end - time.monotonic()
            sweep.requests(end - 0.85 * slice_)
            sweep.modes(modes, end - 0.5 * slice_)
        startup(campaign, model, profile, scenario, modes[-1], counts, end - 0.1 * slice_)
        shutdown(campaign, model, profile, scenario, counts, end)
    for name in ("mode calls", "request calls", "start-up calls"):
        campaign.figure(f"{name} that failed", counts[name], of=counts[name + " planned"])
    campaign.figure("of the mode calls, while the radio reads", counts["while reading"])
    campaign.figure("shutdowns with failing calls", counts["shutdowns"], of=2 * len(OPERATIONS) * len(MODELS))
    campaign.figure("modes by model", MODES, of=50)
    campaign.figure("failures that were not reached", counts["not reached"])
