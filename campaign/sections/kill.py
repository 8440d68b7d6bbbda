# SPDX-License-Identifier: MIT
"""SIGKILL at random moments, and at each call that changes a file: the next start has the last accepted mode,
and no file is torn."""
from campaign.upgrade import Upgrade
from campaign.victim import Victim

TITLE = "kill -9 in mode changes, starts, log rotation and upgrades"
SHARE = 90
# Random moments of each kind, 500 in all.
MOMENTS = {"mode": 200, "mode while reading": 80, "start": 60, "stop": 60, "rotation": 50, "upgrade": 50}
UNDER_WAY = 1.2  # moments are spread over this part of what a request takes


def beginning(victim, kind):
    """What is to be killed, after what has to be before it."""
    if kind in ("mode while reading", "stop"):
        victim.finish(*victim.begin_start())
    return {"mode": victim.begin_mode, "mode while reading": victim.begin_mode, "start": victim.begin_start,
            "stop": victim.begin_stop, "rotation": victim.begin_rotation}[kind]  # fmt: skip


def prepare_rotation(victim):
    victim.reader.kill()
    victim.fill_log()
    victim.reader.start()


def durations(victim):
    times = {}
    for kind in MOMENTS:
        if kind == "upgrade":
            continue
        if kind == "rotation":
            prepare_rotation(victim)
            times[kind] = victim.duration(victim.begin_rotation)
            victim.check_log("a log that was turned in peace")
            continue
        tries = []
        for _ in range(12):
            tries.append(victim.duration(beginning(victim, kind)))
            victim.finish(*victim.begin_stop())
        times[kind] = sorted(tries)[3]  # other processes only make it longer
    return times


def random_kill(campaign, victim, kind, duration):
    if kind == "rotation":
        prepare_rotation(victim)
    seconds = campaign.random.random() * UNDER_WAY * duration
    how = f"killed {1000 * seconds:.3f} ms after the begin of {kind}"
    is_under_way = victim.kill_after(beginning(victim, kind), seconds)
    victim.recover(how)
    if kind == "rotation":
        victim.check_log(how)
    return is_under_way


def each_file_call(victim, kind):
    """Kills at each call of the kind that changes a file. Returns how many there were."""
    if kind == "rotation":
        prepare_rotation(victim)
    count = victim.file_calls(beginning(victim, kind))
    if kind == "start":
        victim.finish(*victim.begin_stop())
    done = 0
    for call in range(count):
        if kind == "rotation":
            prepare_rotation(victim)
        else:
            victim.reader.restart()
        done += victim.kill_at_call(beginning(victim, kind), call)
        how = f"killed at the file call {call} of {kind}"
        victim.recover(how)
        if kind == "rotation":
            victim.check_log(how)
    return done


def each_call_of_start_up(victim):
    call = 0
    victim.reader.kill()
    while victim.kill_in_start(call):
        victim.recover(f"killed at the file call {call} of a start-up")
        victim.reader.kill()
        call += 1
    victim.reader.start()
    return call


def run(campaign):
    counts = dict.fromkeys(MOMENTS, 0)
    under_way = 0
    calls = 0
    with Victim(campaign) as victim:
        for kind in ("mode", "mode while reading", "start", "stop", "rotation"):
            calls += each_file_call(victim, kind)
        calls += each_call_of_start_up(victim)
        times = durations(victim)
        # All kinds in turn, so that a short run has some of each.
        plan = [kind for kind, number in MOMENTS.items() if kind != "upgrade" for _ in range(number)]
        campaign.random.shuffle(plan)
        for kind in plan:
            if campaign.left() < 0.12 * campaign.budget:
                break
            under_way += random_kill(campaign, victim, kind, times[kind])
            counts[kind] += 1
    with Upgrade(campaign) as upgrade:
        while counts["upgrade"] < MOMENTS["upgrade"] and campaign.left() > 1:
            upgrade.kill()
            counts["upgrade"] += 1
    for kind, number in MOMENTS.items():
        campaign.figure(f"kills at random moments of {kind}", counts[kind], of=number)
    campaign.figure("of these before the reply of a mode, start or stop", under_way)
    for kind, seconds in times.items():
        campaign.figure(f"a {kind} takes", 1000 * seconds, "ms")
    campaign.figure("kills at each call that changes a file", calls)
