# SPDX-License-Identifier: MIT
"""What a section gets: its time, its random numbers, and where it records checks and figures."""
import random
import shutil
import sys
import time
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
LONGEST = 700  # characters of a failure's text
SHOWN = 20  # texts of failures, and folders kept, of each section


@dataclass
class Figure:
    name: str
    value: float
    unit: str
    bound: float | None  # at most
    least: float | None
    of: float | None  # planned

    def is_broken(self):
        return (self.bound is not None and self.value > self.bound) or (
            self.least is not None and self.value < self.least
        )

    def is_short(self):
        return self.of is not None and self.value < self.of


@dataclass
class Outcome:
    """What came of a section."""

    name: str
    title: str
    figures: list = field(default_factory=list)
    checks: int = 0
    failures: int = 0
    texts: list = field(default_factory=list)
    raised: str = ""
    seconds: float = 0

    def has_failed(self):
        return bool(self.raised or self.failures or not self.checks) or any(
            figure.is_broken() for figure in self.figures
        )

    def is_short_of_plan(self):
        return any(figure.is_short() for figure in self.figures)

    def verdict(self):
        if self.raised:
            return "FAILED: raised " + self.raised.strip().splitlines()[-1]
        if not self.checks:
            return "FAILED: nothing was checked"
        if self.has_failed():
            broken = [figure.name for figure in self.figures if figure.is_broken()]
            texts = f"{self.failures} of {self.checks} checks" if self.failures else ""
            return "FAILED: " + ", ".join([texts] * bool(texts) + broken)
        return "no failure, but not all done" if self.is_short_of_plan() else "passed"


class Campaign:
    """One section's view. Sections may use it from several threads."""

    def __init__(self, options, name, budget):
        self.name = name
        self.short = options.short
        self.preset = options.preset
        self.results = options.results
        self.bin = ROOT / "build" / options.preset / "bin"
        # With a sanitizer times and memory mean nothing.
        self.is_sanitized = options.preset in ("asan", "tsan")
        self.seed = options.seed
        # A section alone has the same numbers as the section in a whole campaign.
        self.random = random.Random(f"{options.seed} {name}")
        self.budget = budget  # seconds
        self.end = time.monotonic() + budget
        self.outcome = None
        self._kept = 0

    def left(self):
        """Seconds left for this section, also below 0."""
        return self.end - time.monotonic()

    def say(self, text):
        print(f"-- {time.strftime('%H:%M:%S', time.gmtime())} {self.name}: {text}", flush=True)

    def check(self, condition, text, reader=None):
        """Counts a check. When it fails, the text is shown, and the reader's folder kept."""
        self.outcome.checks += 1
        if condition:
            return True
        self.outcome.failures += 1
        if len(self.outcome.texts) < SHOWN:
            kept = f" (kept in {self.keep(reader.directory, reader.aside)})" if reader is not None else ""
            text = (text if len(text) < LONGEST else text[:LONGEST] + "...") + kept
            self.outcome.texts.append(text)
            print(f"-- {self.name}: FAILED: {text}", file=sys.stderr, flush=True)
        return False

    def figure(self, name, value, unit="", bound=None, least=None, of=None):
        """Records a line of the table. Fails the section when the value is above `bound` or below `least`.

        `of` is the planned count: with less, the table says that not all was done.
        """
        self.outcome.figures.append(Figure(name, value, unit, bound, least, of))

    def skip(self, name, planned, why):
        """Records cases that this machine cannot run: they are in the table as not done."""
        self.figure(f"{name} (not run: {why})", 0, "", of=planned)

    def keep(self, *directories):
        """Copies the files of folders beside the table. Returns the folder of the copies."""
        self._kept += 1
        place = self.results / f"{self.name}-{self._kept}"
        place.mkdir(parents=True)
        for directory in directories:
            for file in Path(directory).rglob("*"):
                # Pipes would be waited for, and endless files read for ever.
                if file.is_file() and file.stat().st_size < 64 << 20:
                    target = place / file.relative_to(directory)
                    target.parent.mkdir(parents=True, exist_ok=True)
                    shutil.copyfile(file, target)
        return place
