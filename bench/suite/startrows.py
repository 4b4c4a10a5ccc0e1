"""What passes before the service is there."""

import contextlib
import shutil
import subprocess
import time

import harness
import inputs
from measuring import OURS, Measurement, alternate, milliseconds
from rows import measures
from sides import Service, directory, home, program, wait_for_line

WALK, INOTIFYWAIT = "bare loop", "inotifywait -r"
EVENTS = "modify,close_write,moved_from,moved_to,create,delete,delete_self,move_self"


@contextlib.contextmanager
def tree(count, on_disk):
    """That many directories below /home."""
    mounts = harness.Mounts()
    with directory(on_disk) as top, home():
        try:
            inputs.make_tree(top, count)
            mounts.bind(top, "/home")
            yield
        finally:
            mounts.close()


def start_of_watching(count):
    """Of the service, in milliseconds, when there are `count` directories."""
    with Service(databases=(), observed=True) as service:
        harness.wait_until(lambda: service.observer.counts()["watching_ended"] > 0, "events to be waited for")
        counts = service.observer.counts()
    assert counts["watches"] > count, f"{counts['watches']} directories are watched, not {count}"
    return milliseconds(counts["watching_ended"] - counts["watching_began"])


def bare_walk(count):
    result = program("bare_walk", "/home")
    assert result["count"] > count, result
    return milliseconds(result["whole"])


def inotifywait():
    begin = time.monotonic_ns()
    with subprocess.Popen(["inotifywait", "--monitor", "--recursive", "--event", EVENTS, "/home"],
                          stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
        wait_for_line(process.stderr, b"Watches established.")
        end = time.monotonic_ns()
        process.kill()
    return milliseconds(end - begin)


@measures("watching")
def watching(scale):
    count = scale.of(24000, 8000)
    measurements = []
    for on_disk in scale.of((False, True), (False,)):
        with tree(count, on_disk):
            sides = {OURS: lambda: start_of_watching(count), WALK: lambda: bare_walk(count)}
            if not scale.is_quick and shutil.which("inotifywait"):
                sides[INOTIFYWAIT] = inotifywait
            bare_walk(count)
            measurement = Measurement(f"{count} directories {'on disk' if on_disk else 'in memory'}", "ms",
                                      alternate(scale.runs, sides), bare=WALK)
        measurement.check_ratio(WALK, 1.15)
        measurements.append(measurement)
    return measurements


@measures("listening")
def listening(scale):
    def ours():
        with home(), Service(databases=(), observed=True) as service:
            return milliseconds(service.observer.counts()["listening_since"] - service.started)

    measurement = Measurement("from the start of the process", "ms", alternate(2 * scale.runs, {OURS: ours}))
    measurement.check_below(25)
    return [measurement]
