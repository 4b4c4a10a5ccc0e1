"""Whether ten times the work takes ten times as long."""

import math
import statistics
from pathlib import Path

import inputs
from iocrows import fill, look_up, reload_seconds
from measuring import OURS, Measurement, alternate
from rows import measures
from sides import Service, directory, home, program, whole
from startrows import start_of_watching, tree

SIZES = (1000, 10000, 100000, 1000000)
LIMIT = 1.05
# The largest takes minutes, and varies the least.
LARGEST_RUNS = 1


def exponent(points):
    """Of the power of the size that fits the times best."""
    logs = [(math.log(size), math.log(time)) for size, time in points]
    mean_x, mean_y = (statistics.mean(each) for each in zip(*logs))
    return (sum((x - mean_x) * (y - mean_y) for x, y in logs) / sum((x - mean_x) ** 2 for x, _ in logs))


def backlog(size):
    with home() as user, Service():
        filler = inputs.growing_input()
        return whole(program("file_writer", "batches", user, inputs.infected_file(), filler, size)) / 1e9


def watching(size):
    with tree(size, on_disk=False):
        return start_of_watching(size) / 1e3


def cached_files(size):
    with home(), directory() as files:
        items = inputs.listing("files", inputs.make_names(files, size))
        service = Service(ioc=True, iocAction=0)
        fill(service, "cache", items)
        with service:
            return look_up(items, size) * size / 1e6


def listed_hashes(size):
    with home():
        service = Service(ioc=True, iocAction=0)
        fill(service, "lists", size)
        with service:
            return reload_seconds()


def watchable():
    """How many directories the kernel lets one user watch."""
    return int(Path("/proc/sys/fs/inotify/max_user_watches").read_text())


@measures("growth")
def growth(scale):
    works = {
        "backlog, in batches of 1000 files": (backlog, SIZES),
        "start of watching, directories": (watching, [size for size in SIZES if size < watchable()]),
        "IOC, cached files": (cached_files, SIZES),
        "IOC, hashes in each of 3 lists": (listed_hashes, SIZES),
    }
    measurements = []
    for name, (work, sizes) in works.items():
        points = []
        for size in sizes:
            runs = LARGEST_RUNS if size == SIZES[-1] else scale.runs
            results = alternate(runs, {OURS: lambda: work(size)})[OURS]
            points.append((size, statistics.median(results)))
        measurement = Measurement(name, f"s for {sizes[-1]}", {OURS: results}, points={OURS: points})
        power = exponent(points)
        measurement.check(f"exponent under {LIMIT}", f"{power:.3f}", power < LIMIT)
        measurement.remarks.append("; ".join(f"{size}: {seconds:.3g} s" for size, seconds in points) + ".")
        if len(sizes) < len(SIZES):
            measurement.remarks.append(f"More directories than {sizes[-1]} were not tried: the kernel of this machine "
                                       f"lets a user watch {watchable()}.")
        measurements.append(measurement)
    return measurements
