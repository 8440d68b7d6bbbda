# SPDX-License-Identifier: MIT
"""Every target of fuzz/ for a part of the time: none fails, and in the long form each has run 10 million inputs.

Executions are counted over all campaigns with the same build, so that several can gather them.
"""
import shutil
import subprocess
import time

from campaign import processes
from campaign.campaign import ROOT

TITLE = "the inputs of all programs, made up by libFuzzer"
SHARE = 120
RUNS = 10_000_000  # of each target

PLACE = ROOT / "build" / "fuzz"
TABLE = PLACE / "table.tsv"


def read_table():
    """The rows of the table of scripts/fuzz as dictionaries; none when there is no table."""
    lines = [line.split("\t") for line in TABLE.read_text().splitlines()] if TABLE.exists() else []
    return [dict(zip(lines[0], line)) for line in lines[1:]]


def keep_failures(campaign, begin):
    """Copies the logs, and the inputs of this section that made a target fail, beside the table."""
    found = [file for file in (PLACE / "found").iterdir() if file.stat().st_mtime >= begin]
    place = campaign.keep(PLACE / "logs")
    for file in found:
        shutil.copy(file, place)
    return place


def run(campaign):
    if not (PLACE / "fuzz" / "targets").exists():
        raise FileNotFoundError("the targets are not built: scripts/fuzz --build")
    TABLE.unlink(missing_ok=True)
    begin = time.time()
    seconds = max(int(campaign.left()), 1)
    plan = ["--within", seconds] + ([] if campaign.short else ["--runs", RUNS])
    command = ["/usr/bin/python3", "-B", ROOT / "fuzz" / "runs.py", "--seed", campaign.random.randrange(1 << 31), *plan]
    with (campaign.results / "fuzz.log").open("wb") as log:
        child = processes.start(command, stdout=log, stderr=subprocess.STDOUT)
        # A turn that has begun ends behind the time.
        status = processes.wait(child, seconds + 120)
        processes.end(child)
    rows = read_table()
    failed = [row["target"] for row in rows if row["verdict"] == "FAILED"]
    kept = f" (kept in {keep_failures(campaign, begin)})" if failed else ""
    campaign.check(status == (1 if failed else 0) and rows, f"scripts/fuzz ended with status {status}, see fuzz.log")
    for row in rows:
        campaign.check(row["target"] not in failed, f"target {row['target']} failed{kept}")
        name = f"{row['target']}: {row['coverage']} places reached, {row['per_cpu_second']}/s on a core, " \
               f"{row['this_run']} now, build of {row['commits']}"
        campaign.figure(name, int(row["executions"]), "executions", of=RUNS)
    ran = sum(int(row["this_run"]) > 0 or row["verdict"] == "passed" for row in rows)
    campaign.figure("targets that ran", ran, of=len(rows))
