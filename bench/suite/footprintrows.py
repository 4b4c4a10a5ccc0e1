"""What the service takes while it has nothing to do, and after much work."""

import time

import harness
import inputs
from measuring import OURS, Measurement, alternate, milliseconds
from rows import measures
from sides import PORT, Service, directory, home, program

LOOP = "bare loop"
MORE_MEBIBYTES = 10


@measures("memory")
def memory(scale):
    count = 100000
    items = inputs.listing("headers", inputs.headers())

    def ours():
        with home(), Service() as service:
            before = service.resident_kibibytes()
            program("request_client", "scan", PORT, 1, count, "CLEAN", items)
            return before / 1024, service.resident_kibibytes() / 1024

    def loop():
        with directory() as temporary:
            result = program("bare_scan", harness.SIGNATURES, temporary, count, "file", items)
        return result["residentBefore"] / 1024, result["residentAfter"] / 1024

    results = alternate(scale.runs, {OURS: ours, LOOP: loop})
    measurements = []
    for index, when in enumerate(("idle", f"after {count} scans")):
        measurement = Measurement(when, "MiB", {side: [run[index] for run in runs] for side, runs in results.items()},
                                  bare=LOOP)
        more = measurement.median() - measurement.median(LOOP)
        measurement.check(f"under {MORE_MEBIBYTES} MiB more than the {LOOP}", f"{more:.1f} MiB more",
                          more < MORE_MEBIBYTES)
        measurements.append(measurement)
    return measurements


@measures("idle")
def idle(scale):
    seconds = 60

    def ours():
        with home() as user, Service() as service:
            program("file_writer", "each", user, inputs.infected_file(), 1, 0)
            # What it does afterwards is not what it does when idle.
            time.sleep(5)
            wakeups, processor = service.wakeups(), service.processor_nanoseconds()
            time.sleep(seconds)
            return service.wakeups() - wakeups, milliseconds(service.processor_nanoseconds() - processor)

    results = alternate(scale.runs, {OURS: ours})[OURS]
    measurements = []
    for index, (what, unit) in enumerate((("wake-ups of all threads", "times"), ("processor time", "ms"))):
        measurement = Measurement(f"{what} in {seconds} s", unit, {OURS: [run[index] for run in results]})
        measurement.check("none", f"at most {max(measurement.sides[OURS]):g}", not any(measurement.sides[OURS]))
        measurements.append(measurement)
    return measurements
