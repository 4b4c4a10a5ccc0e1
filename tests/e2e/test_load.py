"""Many files, and how fast one is handled."""

import os
import signal
import statistics
import threading
import time

import pytest

from harness import EICAR, KLEZ_PATTERN, Path, Unwatched, exists, wait_gone, wait_until, write_once

FILES = 5000
LONG = 180


def write_all(directories, infected):
    """FILES files, one write each, from two threads; the names of the infected ones and of the others."""
    names = {True: [], False: []}
    for number in range(FILES):
        is_infected = infected(number)
        name = f"{directories[number % len(directories)]}/{number}"
        names[is_infected].append(name)

    def write(paths, content):
        for path in paths:
            write_once(path, content)

    threads = [threading.Thread(target=write, args=(names[True], EICAR)),
               threading.Thread(target=write, args=(names[False], b"clean"))]
    for thread in threads:
        thread.start()
    return threads, names


@pytest.mark.parametrize("every", [1, 2])
def test_five_thousand_files(tv, bus, home, every):
    directories = [home / str(number) for number in range(10)]
    for directory in directories:
        directory.mkdir()
    tv.start(bus)
    descriptors = len(tv.descriptors())
    threads, names = write_all(directories, lambda number: number % every == 0)
    for thread in threads:
        thread.join()
    # A busy machine takes its time for so many.
    for name in names[True]:
        wait_gone(name, timeout=LONG)
    tv.settle()
    assert [name for name in names[False] if not exists(name)] == []
    assert len(tv.quarantined()) == len(names[True])
    reports = tv.reports()
    assert sorted(record["filePath"] for record in reports) == sorted(names[True])
    assert {record["cleanStatus"] for record in reports} == {0}
    # Popups may be dropped when they come too fast; descriptors and processes may not stay.
    bus.wait_popups(1)
    assert len(tv.descriptors()) <= descriptors + 8
    assert zombies_of(tv.process.pid) == []


def zombies_of(parent):
    result = []
    for path in Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = path.read_text().rpartition(")")[2].split()
        except (FileNotFoundError, ProcessLookupError):
            continue
        if int(fields[1]) == parent and fields[0] == "Z":
            result.append(path.parent.name)
    return result


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_ended_in_the_middle_of_it(tv, bus, home, number):
    directory = home / "many"
    directory.mkdir()
    tv.start(bus)
    threads, names = write_all([directory], lambda _: True)
    wait_until(lambda: len(tv.quarantined()) >= 50, "the first detections")
    began = time.monotonic()
    assert tv.end(number) == 0
    assert time.monotonic() - began < 5
    for thread in threads:
        thread.join()
    left = [name for name in names[True] if exists(name)]
    assert left, "everything was handled before the signal"
    # Nothing half done: a copy for each that is gone, and a record for each copy.
    gone = FILES - len(left)
    assert len(tv.quarantined()) == gone
    assert {content for content in tv.quarantined().values()} == {EICAR}
    assert len(tv.reports()) == gone


def test_descriptors_do_not_grow(tv, bus, home):
    unwatched = Unwatched()
    tv.start(bus)

    def round_of_detections(label):
        for number in range(50):
            wait_gone(unwatched.move_in(home / f"{label}{number}"))
            os.mkfifo(home / f"{label}{number}.fifo")
            os.symlink("/nothing", home / f"{label}{number}.link")
        tv.settle()
        return sorted(tv.descriptors().items())

    bus_is_known = round_of_detections("a")
    assert round_of_detections("b") == bus_is_known
    assert zombies_of(tv.process.pid) == []


def test_latency(tv, home, report_figure):
    tv.start()
    times = []
    for number in range(100):
        path = str(home / str(number))
        began = time.perf_counter()
        write_once(path)
        while exists(path):
            assert time.perf_counter() - began < 1
        times.append(time.perf_counter() - began)
    report_figure(f"from the write to the removal of an infected file: median {statistics.median(times) * 1000:.1f} ms,"
                  f" longest {max(times) * 1000:.1f} ms ({len(times)} files)")


def test_an_infected_file_that_grows_in_many_writes(tv, home):
    """Each write that is seen is scanned, and the one that completes the pattern is the last."""
    tv.start()
    path = home / "grows"
    with open(path, "wb", buffering=0) as file:
        for byte in bytes(2000) + KLEZ_PATTERN:
            file.write(bytes([byte]))
    wait_gone(path)


def test_a_file_rewritten_again_and_again(tv, home):
    unwatched = Unwatched()
    tv.start()
    path = home / "again"
    for _ in range(200):
        unwatched.move_in(path, b"clean")
        unwatched.move_in(path)
        wait_gone(path)
    tv.settle()
    assert {record["filePath"] for record in tv.reports()} == {str(path)}
