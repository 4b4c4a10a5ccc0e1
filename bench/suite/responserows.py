"""How soon the file monitor answers to what is written."""

import contextlib
import shutil
import statistics

import harness
import inputs
from measuring import OURS, Measurement, alternate, microseconds, milliseconds, percentile
from rows import measures
from sides import ClamOnAcc, Service, directory, home, is_real_root, program, running, whole

RESPONDER, REMOVE, MOVE, LIMIT = "bare responder", "clamonacc --remove", "clamonacc --move", "scans x bare loop"
PEER_MISSING = "clamonacc was not measured: it needs the machine's root, and the package clamav-daemon."


def has_peer():
    return is_real_root() and shutil.which("clamonacc") is not None


@contextlib.contextmanager
def responder(user, on_disk):
    with directory(on_disk) as quarantine, directory() as temporary, \
            running("bare_responder", user, harness.SIGNATURES, temporary, quarantine):
        yield


@contextlib.contextmanager
def mover(on_disk):
    with directory(on_disk) as quarantine:
        quarantine.chmod(0o777)
        with ClamOnAcc(f"--move={quarantine}"):
            yield


def responders(scale, on_disk, measure):
    """The sides that remove infected files; `measure` gets the directory to write to, and ours when it is its turn."""

    def ours():
        with home() as user, Service(on_disk) as service:
            return measure(user, service)

    def other(make):
        def run():
            with home() as user, make(user):
                return measure(user, None)
        return run

    sides = {OURS: ours, RESPONDER: other(lambda user: responder(user, on_disk))}
    if not scale.is_quick and has_peer():
        sides[REMOVE] = other(lambda user: ClamOnAcc("--remove"))
        sides[MOVE] = other(lambda user: mover(on_disk))
    return sides


def note_missing_peer(scale, measurement):
    if not scale.is_quick and not has_peer():
        measurement.remarks.append(PEER_MISSING)


def place(on_disk):
    return "quarantine on disk" if on_disk else "quarantine in memory"


@measures("latency")
def latency(scale):
    count = scale.of(200, 100)
    pauses = scale.of({"back to back": 0, "every 20 ms": 20000}, {"back to back": 0})

    def measure(user, _):
        program("file_writer", "each", user, inputs.infected_file(), 10, 0)
        for path in user.iterdir():
            path.unlink()
        return {name: program("file_writer", "each", user, inputs.infected_file(), count, pause)
                for name, pause in pauses.items()}

    measurements = []
    for on_disk in (True, False):
        results = alternate(scale.runs, responders(scale, on_disk, measure))
        for pause in pauses:
            times = {side: [run[pause]["each"] for run in runs] for side, runs in results.items()}
            left = {side: sum(run[pause]["left"] for run in runs) for side, runs in results.items()}
            assert left[OURS] == 0, f"{left[OURS]} files were left"
            measurement = Measurement(
                f"{count} files {pause}, {place(on_disk)}", "µs",
                {side: [microseconds(statistics.median(run)) for run in runs] for side, runs in times.items()},
                bare=RESPONDER,
                samples={side: [microseconds(value) for run in runs for value in run]
                         for side, runs in times.items()})
            measurement.check_ratio(RESPONDER, 1.4)
            tails = [percentile(run, 0.99) / statistics.median(run) for run in times[OURS]]
            tail = statistics.median(tails)
            measurement.check("99th percentile under 3 medians", f"{tail:.2f} medians", tail < 3)
            if not on_disk:
                measurement.check_ahead(REMOVE)
                measurement.check_ahead(MOVE)
            measurement.remarks += [f"{side} left {number} of {count * scale.runs} files for more than a second; they "
                                    "are not in its figures." for side, number in left.items() if number]
            note_missing_peer(scale, measurement)
            measurements.append(measurement)
    return measurements


@measures("backlog")
def backlog(scale):
    paths = inputs.headers()[:scale.of(2000, 500)]
    files = inputs.listing("headers", paths)
    scans = []
    in_engine = []

    def copy(user):
        return whole(program("file_writer", "copy", user, inputs.infected_file(), files))

    def ours():
        with home() as user, Service(observed=True) as service:
            time = copy(user)
            counts = service.observer.counts()
            scans.append(counts["scans"])
            in_engine.append(counts["scan_nanoseconds"] / time)
            return time

    def peer():
        with home() as user, ClamOnAcc("--remove"):
            return copy(user)

    def limit():
        with directory() as temporary:
            result = program("bare_scan", harness.SIGNATURES, temporary, len(paths), "file", files)
        # Of the run of ours just before.
        return result["whole"] / len(paths) * scans[-1]

    sides = {OURS: ours, LIMIT: limit}
    if not scale.is_quick and has_peer():
        sides[REMOVE] = peer
    results = alternate(scale.runs, sides)
    size = sum(path.stat().st_size for path in paths)
    measurement = Measurement(f"{len(paths)} header files", "ms",
                              {side: [milliseconds(run) for run in runs] for side, runs in results.items()},
                              bare=LIMIT)
    measurement.check_ahead(REMOVE, 1.5)
    measurement.check_ratio(LIMIT, 1.10)
    measurement.remarks.append(f"The files are the first of /usr/include, {size / 1e6:.0f} MB. "
                               f"{statistics.median(scans):.0f} scans were done, in which the engine spent "
                               f"{statistics.median(in_engine):.0%} of the time.")
    note_missing_peer(scale, measurement)
    return [measurement]


@measures("burst")
def burst(scale):
    count = scale.of(500, 200)

    def measure(user, service):
        time = whole(program("file_writer", "burst", user, inputs.infected_file(), count))
        if service is not None:
            service.installation.settle()
            assert len(service.installation.quarantined()) == count, "files were removed without a copy"
            assert len(service.installation.reports()) == count, "files were removed without a record"
        return time

    measurements = []
    for on_disk in (True, False):
        results = alternate(scale.runs, responders(scale, on_disk, measure))
        measurement = Measurement(f"{count} files, {place(on_disk)}", "ms",
                                  {side: [milliseconds(run) for run in runs] for side, runs in results.items()},
                                  bare=RESPONDER)
        measurement.check_ratio(RESPONDER, 1.6)
        measurement.check_ahead(MOVE)
        note_missing_peer(scale, measurement)
        measurements.append(measurement)
    return measurements


@measures("events")
def events(scale):
    files, seconds, first_rate = 200, 10, 5000
    overflows = []
    processor = []

    def generate(user, rate):
        found = program("event_generator", user, inputs.infected_file(), files, rate, seconds)["found"]
        return float("inf") if found < 0 else milliseconds(found)

    def observe(rate):
        with home() as user, Service(observed=True) as service:
            before = service.processor_nanoseconds()
            found = generate(user, rate)
            counts = service.observer.counts()
            return found, counts["overflows"], (service.processor_nanoseconds() - before) / counts["events"]

    def ours():
        found, lost, cost = observe(first_rate)
        overflows.append(lost)
        processor.append(microseconds(cost))
        return found

    def peer():
        with home() as user, ClamOnAcc("--remove"):
            return generate(user, first_rate)

    results = alternate(scale.runs, {OURS: ours, **({REMOVE: peer} if has_peer() else {})})
    measurement = Measurement(f"{first_rate} writes a second for {seconds} s, then an EICAR file until it is gone",
                              "ms", results)
    measurement.check(f"no overflow of the kernel's queue at {first_rate}", f"{sum(overflows)} in all runs",
                      not any(overflows))
    rate, highest = first_rate, 0
    while observe(rate)[1] == 0:
        highest = rate
        rate = int(rate * 1.25)
    measurement.remarks.append(f"The highest rate without overflow was {highest} a second; at {rate} there was one. An "
                               f"event took {statistics.median(processor):.0f} µs of processor time.")
    note_missing_peer(scale, measurement)
    return [measurement]
