# SPDX-License-Identifier: MIT
"""The command line of the campaign: runs the sections in turn and writes the table."""
import argparse
import importlib
import random
import signal
import subprocess
import sys
import time
import traceback
from pathlib import Path

from campaign import processes, sections
from campaign.campaign import Campaign, Outcome
from campaign.table import table


def hours(text):
    value = float(text)
    if not 0 < value <= 1000:
        raise argparse.ArgumentTypeError(f"{text} is not a number of hours")
    return value


def read_options():
    parser = argparse.ArgumentParser(prog="scripts/campaign")
    parser.add_argument("hours", type=hours, nargs="?", help="budget of the long form")
    parser.add_argument("--short", action="store_true", help="the short form, also when hours are given")
    parser.add_argument("--only", action="append", choices=sections.NAMES, metavar="NAME", default=[])
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--preset", default="dev")
    parser.add_argument("--results", type=Path, default=Path("."))
    parser.add_argument("--list", action="store_true", help="name the sections and end")
    options = parser.parse_args()
    options.short = options.short or options.hours is None
    return options


def load(name):
    """The module of a section, or the exception that it raised."""
    try:
        return importlib.import_module(f"campaign.sections.{name}")
    except Exception as error:  # pylint: disable=broad-except
        return error


def list_sections():
    for name in sections.NAMES:
        module = load(name)
        print(f"{name:8}  {getattr(module, 'TITLE', module)}")


def run_section(module, campaign):
    """Runs one section to its end. What it raises is its failure."""
    begin = time.monotonic()
    try:
        if isinstance(module, Exception):
            raise module
        module.run(campaign)
    except Exception:  # pylint: disable=broad-except
        campaign.outcome.raised = traceback.format_exc()
        print(campaign.outcome.raised, file=sys.stderr, flush=True)
    finally:
        processes.end_all()
    campaign.outcome.seconds = time.monotonic() - begin


def run_all(options):
    names = [name for name in sections.NAMES if not options.only or name in options.only]
    modules = {name: load(name) for name in names}
    shares = {name: getattr(module, "SHARE", 0) for name, module in modules.items()}
    end = time.monotonic() + (sum(shares.values()) if options.short else options.hours * 3600)
    outcomes = []
    for index, name in enumerate(names):
        rest = sum(shares[later] for later in names[index:])
        budget = (end - time.monotonic()) * shares[name] / rest if rest else 0
        # The budget is never below a second, so that a section behind a slow one says what it left out.
        campaign = Campaign(options, name, max(budget, 1))
        campaign.outcome = Outcome(name, getattr(modules[name], "TITLE", ""))
        campaign.say(f"{campaign.outcome.title}, {budget:.0f} s")
        run_section(modules[name], campaign)
        campaign.say(campaign.outcome.verdict())
        outcomes.append(campaign.outcome)
    return outcomes


def terminated(_number, _frame):
    raise SystemExit(143)


def add_interface():
    """The daemon tells the hardware address of eth0. Where there is no such kind of interface, it is none."""
    subprocess.run(["ip", "link", "add", "eth0", "type", "dummy"], stderr=subprocess.DEVNULL, check=False)


def main():
    options = read_options()
    if options.list:
        list_sections()
        return 0
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, terminated)
    add_interface()
    print(f"-- seed {options.seed}, results in {options.results}", flush=True)
    try:
        outcomes = run_all(options)
    finally:
        processes.end_all()
    text = table(options, outcomes)
    (options.results / "table.md").write_text(text)
    print(text)
    if any(outcome.has_failed() for outcome in outcomes):
        return 1
    return 2 if not options.short and any(outcome.is_short_of_plan() for outcome in outcomes) else 0


if __name__ == "__main__":
    sys.exit(main())
