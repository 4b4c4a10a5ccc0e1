"""What a row measures, and how sides are compared."""

import gc
import math
import statistics
import sys
from dataclasses import asdict, dataclass, field

OURS = "tvfilemon"


@dataclass
class Check:
    """A target, the figure that is to reach it, and whether it does."""

    target: str
    figure: str
    reached: bool


@dataclass
class Measurement:
    """One line of the results: a value of each run for each side, ours among them.

    `bare` names the side that does nothing but the necessary; `samples` are the single values behind the runs."""

    name: str
    unit: str
    sides: dict
    bare: str = None
    checks: list = field(default_factory=list)
    remarks: list = field(default_factory=list)
    samples: dict = field(default_factory=dict)
    points: dict = field(default_factory=dict)

    def median(self, side=OURS):
        return statistics.median(self.sides[side])

    def ratio(self, side):
        """Of ours to that side; above 1, ours takes more."""
        return self.median() / self.median(side)

    def check(self, target, figure, reached):
        self.checks.append(Check(target, figure, bool(reached)))

    def check_ratio(self, side, limit):
        ratio = self.ratio(side)
        self.check(f"at most {limit:g} of {side}", f"{ratio:.2f}", ratio <= limit)

    def check_ahead(self, side, factor=1):
        """Skipped where the side was not measured, which the remarks tell."""
        if side not in self.sides:
            return
        ahead = self.median(side) / self.median()
        target = f"ahead of {side}" if factor == 1 else f"{factor:g} times faster than {side}"
        figure = f"{ahead:.2f} times" if math.isfinite(self.median(side)) else f"{side} left some"
        self.check(target, figure, ahead >= factor if factor != 1 else ahead > 1)

    def check_below(self, limit, unit=None):
        self.check(f"under {limit:g} {unit or self.unit}", f"{self.median():.3g}", self.median() < limit)

    def as_data(self):
        """For JSON, which has no word for never, and without the samples, which are many."""
        data = asdict(self)
        del data["samples"]
        data["sides"] = {side: [value if math.isfinite(value) else None for value in values]
                         for side, values in self.sides.items()}
        return data


def alternate(runs, sides):
    """Lets each side measure once, then each once more, and so on, so that what changes on the machine meanwhile
    changes it for all. Returns the results of each side."""
    results = {name: [] for name in sides}
    for run in range(runs):
        for name, measure in sides.items():
            gc.collect()
            print(f"    run {run + 1} of {runs}: {name}", file=sys.stderr, flush=True)
            results[name].append(measure())
    return results


def percentile(values, part):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(part * len(ordered)))]


def microseconds(nanoseconds):
    return nanoseconds / 1e3


def milliseconds(nanoseconds):
    return nanoseconds / 1e6
