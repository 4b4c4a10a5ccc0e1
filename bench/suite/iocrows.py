"""Scans for known-bad hashes."""

import os
import subprocess
import time

import inputs
from commandclient import Client
from measuring import OURS, Measurement, alternate, microseconds
from requestrows import ECHO_PORT, ask
from rows import measures
from sides import PORT, Service, directory, environment, home, program, running, PROGRAMS

DIGESTS, OPENSSL, SUMS = "bare digests", "openssl dgst, thrice", "md5sum, sha1sum, sha256sum"
STORE = "bare echo + store"
LISTS = 3


def fill(service, what, *arguments):
    """Fills the stores of the service's installation."""
    subprocess.run([PROGRAMS / "ioc_store", service.installation.settings, what, *map(str, arguments)],
                   env=environment(), check=True)


def commands(paths, *lines):
    """Seconds that the commands take for all files, one after the other."""
    begin = time.monotonic_ns()
    for line in lines:
        subprocess.run([*line.split(), *paths], stdout=subprocess.DEVNULL, check=True)
    return (time.monotonic_ns() - begin) / 1e9


@measures("ioc-changed")
def changed(scale):
    count, size = scale.of(1000, 200), 1000000
    with home(), directory() as files, Service(ioc=True, iocAction=0), running("bare_echo", ECHO_PORT, "CLEAN"):
        paths = inputs.make_files(files, count, size)
        items = inputs.listing("files", paths)

        def ours():
            now = time.time_ns()
            for path in paths:
                os.utime(path, ns=(now, now))
            return ask("scanioc", PORT, 1, count, "CLEAN", items) * count / 1e6

        sides = {OURS: ours, DIGESTS: lambda: program("bare_digests", items)["whole"] / 1e9}
        if not scale.is_quick:
            sides[OPENSSL] = lambda: commands(paths, "openssl dgst -md5", "openssl dgst -sha1", "openssl dgst -sha256")
            sides[SUMS] = lambda: commands(paths, "md5sum", "sha1sum", "sha256sum")
        measurement = Measurement(f"{count * size / 1e9:g} GB in {count} files", "s", alternate(scale.runs, sides),
                                  bare=DIGESTS)
    measurement.check_ratio(DIGESTS, 1.1)
    measurement.check_ahead(OPENSSL)
    return [measurement]


def look_up(items, count):
    """Microseconds for each cached file, over one session."""
    return ask("scanioc", PORT, 1, count, "CLEAN", items)


@measures("ioc-unchanged")
def unchanged(scale):
    count, hashes = scale.of(20000, 5000), scale.of(1000000, 1000)
    with home(), directory() as files:
        items = inputs.listing("files", inputs.make_names(files, count))
        service = Service(ioc=True, iocAction=0)
        fill(service, "lists", hashes)
        fill(service, "cache", items)
        with service, directory() as settings, running("bare_echo", ECHO_PORT, "CLEAN"):
            program_settings = settings / "store"
            program_settings.mkdir(mode=0o700)
            subprocess.run([PROGRAMS / "ioc_store", program_settings, "cache", items], env=environment(), check=True)

            def limit():
                store = microseconds(program("ioc_store", program_settings, "lookup", items)["whole"]) / count
                return store + ask("scanioc", ECHO_PORT, 1, count, "CLEAN", items)

            measurement = Measurement(f"{count} files, {LISTS} lists of {hashes} hashes, one session", "µs",
                                      alternate(scale.runs, {OURS: lambda: look_up(items, count), STORE: limit}),
                                      bare=STORE)
    measurement.check_ratio(STORE, 1.2)
    if not scale.is_quick:
        rate = 1e6 / measurement.median()
        measurement.check("9,000 files a second", f"{rate:.0f}", rate >= 9000)
    return [measurement]


def reload_seconds():
    client = Client()
    begin = time.monotonic_ns()
    assert client.ask("RELOADIOCDB") == "SUCCESS"
    end = time.monotonic_ns()
    client.close()
    return (end - begin) / 1e9


@measures("ioc-lists")
def lists(scale):
    count = 1000000
    with home():
        service = Service(ioc=True, iocAction=0)
        fill(service, "lists", count)
        with service:
            loading = Measurement(f"RELOADIOCDB with {LISTS} lists of {count} hashes", "s",
                                  alternate(scale.runs, {OURS: reload_seconds}))
            loading.check_below(1.5)
            filled = []
            for _ in range(scale.runs):
                service.installation.stop()
                service.start()
                filled.append(service.resident_kibibytes())
        empty = []
        with Service(ioc=True, iocAction=0) as other:
            for _ in range(scale.runs):
                empty.append(other.resident_kibibytes())
                other.installation.stop()
                other.start()
    memory = Measurement("memory for each hash", "bytes",
                         {OURS: [(full - none) * 1024 / (LISTS * count) for full, none in zip(filled, empty)]})
    memory.check_below(190)
    return [loading, memory]
