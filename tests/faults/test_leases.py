"""Programs that hold leases on their files, and so make everybody wait who opens one."""

import fcntl
import os
import resource
import signal
import statistics
import time

import pytest

from harness import (EICAR, Unwatched, cleaned, exists, found, scan_error, wait_gone, wait_until)

TOO_MANY = "INFO", "FileMonitor::keepForLater", "Too many files under lease, not all are scanned again."
# How long the kernel lets a holder keep a lease that somebody else wants.
LEASE_BREAK_TIME = 45
# A file is scanned that long after the end of its lease at the latest.
TRIED_WITHIN = 10


class Leases:
    """Files that are under lease as soon as they can be seen."""

    def __init__(self):
        self._unwatched = Unwatched()
        self._held = {}

    def move_in(self, path, content=EICAR):
        source = self._unwatched.file(content)
        self._held[path] = os.open(source, os.O_RDWR)
        fcntl.fcntl(self._held[path], fcntl.F_SETLEASE, fcntl.F_WRLCK)
        os.rename(source, path)
        return path

    def empty(self, path):
        os.ftruncate(self._held[path], 0)

    def end(self, path):
        os.close(self._held.pop(path))

    def end_all(self):
        for path in list(self._held):
            self.end(path)


@pytest.fixture
def leases(home):
    # The kernel asks for a lease by this signal, which would end a program.
    before = signal.signal(signal.SIGIO, signal.SIG_IGN)
    made = Leases()
    yield made
    made.end_all()
    signal.signal(signal.SIGIO, before)


def seconds_until_gone(path):
    began = time.monotonic()
    wait_gone(path)
    return time.monotonic() - began


def resident_kilobytes(tv):
    with open(f"/proc/{tv.process.pid}/status", encoding="ascii") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))


def test_a_hundred_leased_files(tv, home, leases, bus, report_figure, long_form):
    unwatched = Unwatched("/home/.others")
    tv.start(bus)
    leased = [leases.move_in(home / f"leased{number}") for number in range(100)]
    tv.settle()
    others = [seconds_until_gone(unwatched.move_in(home / f"other{number}")) for number in range(100)]
    assert statistics.median(others) < 1
    report_figure(f"beside 100 leased files, from the appearance of an infected file to its removal: median"
                  f" {statistics.median(others) * 1000:.1f} ms, longest {max(others) * 1000:.1f} ms")
    # Each was tried again by now, and told of once.
    time.sleep(0 if long_form else 4)
    assert all(map(exists, leased))
    assert [tv.count(*scan_error(path)) for path in leased] == [1] * 100

    if not long_form:
        leases.end_all()
    began = time.monotonic()
    limit = TRIED_WITHIN + (LEASE_BREAK_TIME if long_form else 0)
    wait_until(lambda: not any(map(exists, leased)), "the leased files to be cleaned", limit)
    report_figure(f"all of 100 leased files were cleaned {time.monotonic() - began:.1f} s after "
                  + ("they appeared, their holder keeping on" if long_form else "the leases' end"))
    tv.settle()
    for path in leased:
        assert [line.what() for line in tv.log() if line.message.endswith(f" {path}")] == [
            scan_error(path), found(path), cleaned(path)]
    paths = [record["filePath"] for record in tv.reports()]
    assert sorted(paths) == sorted([*map(str, leased), *(str(home / f"other{number}") for number in range(100))])
    assert len(tv.quarantined()) == 200
    bus.wait_popups(1)


def test_a_leased_file_that_goes_or_changes_its_name(tv, home, leases):
    tv.start()
    removed, moved, clean = (leases.move_in(home / name) for name in ("removed", "moved", "clean"))
    tv.settle()
    removed.unlink()
    os.rename(moved, home / "new")
    leases.empty(clean)
    tv.settle()
    for path in (removed, moved, clean):
        leases.end(path)
    wait_gone(home / "new", TRIED_WITHIN)
    assert exists(clean)
    lines = [line.what() for line in tv.settle() if line.level != "INFO"]
    assert lines.count(scan_error(removed)) == 1
    # By its appearance, and by its leaving.
    assert lines.count(scan_error(moved)) == 2
    # By its appearance, and by the change. That it could be scanned in the end is silent.
    assert lines.count(scan_error(clean)) == 2
    assert [record["filePath"] for record in tv.reports()] == [str(home / "new")]


def test_a_user_who_leases_more_files_than_are_kept(tv, home, leases, report_figure, long_form):
    count = 100000 if long_form else 10500
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    assert hard >= count + 1000, "this machine lets nobody open as many files"
    before = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    unwatched = Unwatched("/home/.others")
    tv.start()
    wait_gone(unwatched.move_in(home / "warm"))
    resident = resident_kilobytes(tv)
    try:
        for number in range(count):
            leases.move_in(home / str(number), b"clean")
            if number % 1000 == 0:
                # No more than the kernel's queue holds.
                tv.settle()
        last = leases.move_in(home / "last")
        tv.settle()
        grown = resident_kilobytes(tv) - resident
        others = [seconds_until_gone(unwatched.move_in(home / f"other{number}")) for number in range(20)]
        assert statistics.median(others) < 1
        assert grown < 50000
        assert tv.count(*TOO_MANY) == 1
        report_figure(f"with {count} files under lease the service takes {grown} kB more; an infected file goes"
                      f" in {statistics.median(others) * 1000:.1f} ms (median), the slowest in"
                      f" {max(others) * 1000:.1f} ms")
    finally:
        leases.end_all()
        resource.setrlimit(resource.RLIMIT_NOFILE, before)
    # The last ones are kept.
    wait_gone(last)
