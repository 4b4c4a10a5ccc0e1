"""The rows, in the order of the results, and how one of them is measured."""

import dataclasses
import sys
import traceback


@dataclasses.dataclass
class Row:
    title: str
    what: str
    is_in_quick: bool = False
    measure: object = None


ROWS = {
    "latency": Row("latency", "One EICAR file written, until it is gone.", True),
    "backlog": Row("backlog",
                   "Real files copied into a watched directory, then an EICAR file, until that is gone.", True),
    "burst": Row("infected burst", "Many EICAR files at once, until all are gone.", True),
    "events": Row("events", "Steps of 1 KB into 200 files of up to 8 KB at a steady rate."),
    "requests": Row("requests", "SCAN on the command port.", True),
    "url-text": Row("URL text", "SCANURL on the command port.", True),
    "watching": Row("start of watching", "All directories, five levels deep.", True),
    "listening": Row("start to listening", "A new process without signatures, until its port takes connections."),
    "ioc-changed": Row("IOC, changed files", "The three hashes of files that were changed.", True),
    "ioc-unchanged": Row("IOC, unchanged files", "Files whose hashes are in the cache.", True),
    "ioc-lists": Row("IOC lists", "Loading the lists, and the memory that they take."),
    "memory": Row("memory", "Resident size."),
    "idle": Row("idle", "A minute in which nothing happens, after a detection."),
    "growth": Row("growth", "The same work for 1,000 to 1,000,000 items."),
}


@dataclasses.dataclass
class Scale:
    """How much a run of the suite does."""

    runs: int
    is_quick: bool

    def of(self, full, quick):
        return quick if self.is_quick else full


def measures(name):
    """Declares what measures the row: it takes a Scale and returns Measurements."""

    def declare(function):
        ROWS[name].measure = function
        return function

    return declare


def measure(names, scale):
    """The measurements of the rows, by name. A row that fails says so, and is left out: the others took their time."""
    results = {}
    for name in names:
        print(f"bench: {name}", file=sys.stderr, flush=True)
        try:
            results[name] = ROWS[name].measure(scale)
        except Exception:
            traceback.print_exc()
    return results
