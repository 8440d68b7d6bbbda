# SPDX-License-Identifier: MIT
"""Runs the targets with libFuzzer, counts their executions over all runs of a build, and minimises the corpus.

scripts/fuzz builds the targets and calls this. The counts are in build/fuzz/executions.tsv, a line for each
turn of a target; the table of a run is in build/fuzz/table.tsv.
"""
import argparse
import hashlib
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PLACE = ROOT / "build" / "fuzz"
LEDGER = PLACE / "executions.tsv"
LEDGER_COLUMNS = "time target commit build executions cpu_seconds coverage features new_inputs exit seed".split()
TABLE_COLUMNS = (
    "target executions planned this_run per_cpu_second coverage features new_inputs other_builds commits verdict"
).split()
TURN = 60  # seconds, after which a target's count is saved
HANGS = 60  # seconds of real time after which an input fails; a busy machine may take 10 s for 0.3 s of work
START = 1.5  # seconds that a target takes to start and to end
MOST_FOUND = 64  # inputs that were found, of each target in the tree,
MOST_BYTES = 16384  # and their bytes together


def as_line(values):
    return "\t".join(str(value) for value in values) + "\n"


def commit():
    """The commit of the sources; with changes that are not committed it ends in "-dirty"."""
    command = ["git", "-C", ROOT, "-c", f"safe.directory={ROOT}", "describe", "--always", "--dirty", "--exclude=*"]
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.strip() or "unknown"


def build_of(program):
    """Names a build: equal for builds of equal bytes."""
    digest = hashlib.sha256()
    for file in [PLACE / "bin" / program, *sorted((PLACE / "lib").glob("*.so"))]:
        digest.update(file.read_bytes())
    return digest.hexdigest()[:12]


def ledger():
    """The lines of the ledger as dictionaries."""
    if not LEDGER.exists():
        return []
    lines = [line.rstrip("\n").split("\t") for line in LEDGER.open()]
    return [dict(zip(LEDGER_COLUMNS, line)) for line in lines if len(line) == len(LEDGER_COLUMNS)]


class Target:
    """A target, and what this run has done with it."""

    def __init__(self, name, program, build, past):
        self.name, self.program, self.build = name, program, build
        own = [line for line in past if line["target"] == name]
        ours = [line for line in own if line["build"] == build]
        self.before = sum(int(line["executions"]) for line in ours)
        self.other_builds = sum(int(line["executions"]) for line in own) - self.before
        self.commits = list(dict.fromkeys(line["commit"] for line in ours if int(line["executions"])))
        self.executions = self.new_inputs = self.coverage = self.features = 0
        self.cpu = self.seconds = 0.0
        self.has_failed = self.is_running = False

    def total(self):
        return self.before + self.executions

    def verdict(self, planned):
        if self.has_failed:
            return "FAILED"
        if planned:
            return "passed" if self.total() >= planned else "not all done"
        return "passed" if self.executions else "not run"

    def row(self, planned):
        rate = round(self.executions / self.cpu) if self.cpu else 0
        return [self.name, self.total(), planned, self.executions, rate, self.coverage, self.features,
                self.new_inputs, self.other_builds, ",".join(self.commits) or "-", self.verdict(planned)]

    def command(self, *options):
        dictionaries = [PLACE / "fuzz/dictionaries" / f"{self.name}.dict", ROOT / f"fuzz/dictionaries/{self.name}.dict"]
        words = [f"-dict={file}" for file in dictionaries if file.exists()][-1:]
        return ["setpriv", "--pdeathsig", "TERM", "--", PLACE / "bin" / self.program, f"--target={self.name}", f"-timeout={HANGS}",
                "-rss_limit_mb=2048", "-close_fd_mask=1", "-print_final_stats=1", "-entropic=0", "-detect_leaks=0",
                f"-artifact_prefix={PLACE}/found/{self.name}-", *words, *options]


class Run:
    """All turns of a run, on several processors."""

    def __init__(self, targets, options):
        self.targets, self.options = targets, options
        self.commit = commit()
        self.lock = threading.Lock()
        self.children = set()
        self.is_ending = False
        self.end = time.monotonic() + options.within if options.within else None
        # Within a time each target gets a turn; then they take turns again when there is a count to reach.
        share = options.within * options.jobs / len(targets) - START if options.within else TURN
        self.turn = options.seconds or min(TURN, max(share, 2))
        options.random.shuffle(self.targets)  # the last may get nothing, and not always the same

    def is_done(self, target):
        if target.has_failed or target.is_running:
            return True
        if not self.options.runs:
            return target.seconds > 0
        return target.total() >= self.options.runs

    def take(self):
        """The target of the next turn and its seconds, or None."""
        with self.lock:
            left = self.end - time.monotonic() if self.end else self.turn
            waiting = [target for target in self.targets if not self.is_done(target)]
            if self.is_ending or left < 1 or not waiting:
                return None
            target = min(waiting, key=lambda target: target.seconds)
            target.is_running = True
            return target, max(1, int(min(self.turn, left)))

    def work(self, directory):
        while turn := self.take():
            self.run_target(*turn, directory)

    def run_target(self, target, seconds, directory):
        # Some targets write files into their working directory, as the daemon does.
        place = directory / target.name
        place.mkdir(exist_ok=True)
        inputs = PLACE / "inputs" / target.name
        inputs.mkdir(parents=True, exist_ok=True)
        seed = self.options.random.randrange(1, 1 << 31)
        runs = self.options.runs - target.total() if self.options.runs else -1
        command = target.command(f"-max_total_time={seconds}", f"-runs={runs}", f"-seed={seed}",
                                 inputs, ROOT / "fuzz/corpus" / target.name)
        log = PLACE / "logs" / f"{target.name}.log"
        begin = time.monotonic()
        with log.open("wb") as output:
            child = subprocess.Popen(command, cwd=place, stdout=output, stderr=output)
            with self.lock:
                self.children.add(child.pid)
                if self.is_ending:
                    os.kill(child.pid, signal.SIGTERM)
            _, status, usage = os.wait4(child.pid, 0)
            child.returncode = os.waitstatus_to_exitcode(status)
        with self.lock:
            self.children.discard(child.pid)
            self.note(target, log, child.returncode, usage.ru_utime + usage.ru_stime, seed)
            target.seconds += time.monotonic() - begin

    def note(self, target, log, code, cpu, seed):
        """Takes a turn's figures from its log into the ledger and the table."""
        text = log.read_text(errors="replace")
        last = {name: ([0] + [int(n) for n in re.findall(pattern, text, re.M)])[-1] for name, pattern in (
            ("executions", r"^stat::number_of_executed_units: *(\d+)"), ("new", r"^stat::new_units_added: *(\d+)"),
            ("coverage", r" cov: (\d+)"), ("features", r" ft: (\d+)"))}
        was_ended = self.is_ending and "run interrupted" in text
        target.is_running = False
        target.executions += last["executions"]
        target.new_inputs += last["new"]
        target.coverage = max(target.coverage, last["coverage"])
        target.features = max(target.features, last["features"])
        target.cpu += cpu
        target.has_failed |= code != 0 and not was_ended
        if last["executions"] and self.commit not in target.commits:
            target.commits.append(self.commit)
        with LEDGER.open("a") as file:
            file.write(as_line([time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime()), target.name, self.commit,
                                target.build, last["executions"], f"{cpu:.2f}", last["coverage"], last["features"],
                                last["new"], code, seed]))
        self.write_table()
        print(f"-- {target.name}: {target.total()} executions, coverage {last['coverage']}"
              + (f"; FAILED, the end of {log}:" if target.has_failed else ""), flush=True)
        if target.has_failed:
            print("\n".join(text.splitlines()[-40:]), flush=True)

    def table(self):
        rows = [target.row(self.options.runs or 0) for target in sorted(self.targets, key=lambda each: each.name)]
        return "".join(map(as_line, [TABLE_COLUMNS, *rows]))

    def write_table(self):
        aside = PLACE / "table.new"
        aside.write_text(self.table())
        aside.rename(PLACE / "table.tsv")

    def terminate(self, _number, _frame):
        """Each child still tells its count."""
        self.is_ending = True
        for pid in list(self.children):
            os.kill(pid, signal.SIGTERM)

    def run(self, directory):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, self.terminate)
        workers = [threading.Thread(target=self.work, args=(directory,)) for _ in range(self.options.jobs)]
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
        self.write_table()
        print(self.table(), end="")
        return 1 if any(target.has_failed for target in self.targets) else 130 if self.is_ending else 0


def is_found(file):
    """Whether libFuzzer named the file; a person's name is never 40 digits."""
    return re.fullmatch("[0-9a-f]{40}", file.name) is not None


def minimise(target, directory):
    """Leaves in the tree the seeds with names, and few of the inputs found that reach what those do not."""
    tree = ROOT / "fuzz/corpus" / target.name
    pool = PLACE / "inputs" / target.name
    pool.mkdir(parents=True, exist_ok=True)
    kept = directory / f"{target.name}.kept"
    kept.mkdir()
    for file in tree.iterdir():
        shutil.copy(file, pool if is_found(file) else kept)
    place = directory / target.name
    place.mkdir(exist_ok=True)
    # By places reached and not by how often each was: the corpus would be ten times as large.
    command = target.command("-merge=1", "-set_cover_merge=1", "-use_counters=0", kept, pool)
    with (PLACE / "logs" / f"{target.name}.merge.log").open("wb") as log:
        if subprocess.run(command, cwd=place, stdout=log, stderr=log, check=False).returncode != 0:
            print(f"-- {target.name}: FAILED, see {log.name}", flush=True)
            return False
    found = sorted((file for file in kept.iterdir() if is_found(file)), key=lambda file: file.stat().st_size)
    size, stay = 0, []
    for file in found[:MOST_FOUND]:
        size += file.stat().st_size
        if size > MOST_BYTES:
            break
        stay.append(file)
    for file in tree.iterdir():
        if is_found(file):
            file.unlink()
    for file in stay:
        shutil.copy(file, tree)
    print(f"-- {target.name}: {len(stay)} of {len(found)} inputs found stay in the tree", flush=True)
    return True


def read_options():
    parser = argparse.ArgumentParser(prog="scripts/fuzz")
    parser.add_argument("--seconds", type=int, help="a turn of so many seconds for each target")
    parser.add_argument("--runs", type=int, help="until each target has run so many inputs in this build")
    parser.add_argument("--within", type=int, help="seconds for all targets together")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 31))
    parser.add_argument("--minimise", action="store_true")
    parser.add_argument("targets", nargs="*")
    return parser.parse_args()


def main():
    options = read_options()
    options.random = random.Random(options.seed)
    known = dict(line.split() for line in (PLACE / "fuzz/targets").read_text().splitlines())
    for name in options.targets:
        if name not in known:
            sys.exit(f"fuzz: there is no target {name}, but {' '.join(known)}")
    builds = {program: build_of(program) for program in set(known.values())}
    past = ledger()
    targets = [Target(name, program, builds[program], past) for name, program in known.items()
               if not options.targets or name in options.targets]
    for folder in ("found", "logs"):
        (PLACE / folder).mkdir(exist_ok=True)
    # Long traces of allocations would take much time.
    os.environ["ASAN_OPTIONS"] = ":".join(["malloc_context_size=4", *os.environ.get("ASAN_OPTIONS", "").split()])
    in_memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="tarnwick-fuzz.", dir=in_memory) as directory:
        if options.minimise:
            return 0 if all([minimise(target, Path(directory)) for target in targets]) else 1
        print(f"-- seed {options.seed}", flush=True)
        return Run(targets, options).run(Path(directory))


if __name__ == "__main__":
    sys.exit(main())
