"""Programs that hold leases on their files, and so make everybody wait who opens one."""

import fcntl
import os
import statistics
import subprocess
import time

from archives import write_slow_infected
from commandclient import is_open
from harness import (Unwatched, cleaned, exists, found, scan_error, wait_gone, wait_until)
from processes import kilobytes
from tracer import Tracer

TOO_MANY = "INFO", "FileMonitor::keepForLater", "Too many files under lease, not all are scanned again."
# How long the kernel lets a holder keep a lease that somebody else wants.
LEASE_BREAK_TIME = 45
# A file is scanned that long after the end of its lease at the latest.
TRIED_WITHIN = 10
# The most that any other file may wait: far less than for a lease, and what a busy machine may need.
LONGEST = 5


def seconds_until_gone(path):
    began = time.monotonic()
    wait_gone(path)
    return time.monotonic() - began


def test_a_hundred_leased_files(tv, home, leases, bus, report_figure, long_form):
    unwatched = Unwatched("/home/.others")
    tv.start(bus)
    leased = [leases.move_in(home / f"leased{number}") for number in range(100)]
    tv.settle()
    others = [seconds_until_gone(unwatched.move_in(home / f"other{number}")) for number in range(100)]
    assert statistics.median(others) < 1 and max(others) < LONGEST, others
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


# Leases so many files that the limit of one process's descriptors is soon reached, and asks after each thousand
# whether to go on.
HOLD = """
import fcntl, os, resource, signal, sys
source, target, count = sys.argv[1], sys.argv[2], int(sys.argv[3])
signal.signal(signal.SIGIO, signal.SIG_IGN)
hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
held = []
for number in range(count):
    if number % 1000 == 0:
        print("more", flush=True)
        sys.stdin.readline()
    held.append(os.open(f"{source}/leased", os.O_RDWR | os.O_CREAT | os.O_EXCL))
    os.write(held[-1], b"clean")
    fcntl.fcntl(held[-1], fcntl.F_SETLEASE, fcntl.F_WRLCK)
    os.rename(f"{source}/leased", f"{target}/{os.getpid()}-{number}")
print("done", flush=True)
sys.stdin.readline()
"""
# Of the files that the service keeps in mind: enough to have some given up.
FILES_OF_A_HOLDER = 5200


def hold(tv, source, target):
    holder = subprocess.Popen(["/usr/bin/python3", "-c", HOLD, source, target, str(FILES_OF_A_HOLDER)],
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    while holder.stdout.readline() == "more\n":
        # No more than the kernel's queue of events takes.
        tv.settle()
        print("go on", file=holder.stdin, flush=True)
    return holder


def test_a_user_who_leases_more_files_than_are_kept(tv, home, leases, report_figure, long_form):
    unwatched = Unwatched("/home/.others")
    tv.start()
    wait_gone(unwatched.move_in(home / "warm"))
    resident = kilobytes(tv, "VmRSS")
    holders = [hold(tv, unwatched.path, home) for _ in range(20 if long_form else 2)]
    try:
        last = leases.move_in(home / "last")
        tv.settle()
        grown = kilobytes(tv, "VmRSS") - resident
        others = [seconds_until_gone(unwatched.move_in(home / f"other{number}")) for number in range(20)]
        assert statistics.median(others) < 1 and max(others) < LONGEST, others
        assert grown < 50000
        assert tv.count(*TOO_MANY) == 1
        report_figure(f"with {FILES_OF_A_HOLDER * len(holders)} files under lease the service takes {grown} kB more;"
                      f" an infected file goes in {statistics.median(others) * 1000:.1f} ms (median), the slowest in"
                      f" {max(others) * 1000:.1f} ms")
    finally:
        for holder in holders:
            holder.communicate("\n")
        leases.end_all()
    # The last ones are kept.
    wait_gone(last)


def test_a_lease_between_the_scan_and_the_copy(tv, home, leases):
    """What cannot be copied is removed all the same, so nobody may choose that for his file."""
    tv.start()
    for number in range(3):
        path = home / str(number)
        own = os.open(write_slow_infected(leases.outside / str(number), 3), os.O_RDWR)
        tracer = Tracer(tv.process, "-e", "trace=close", "-e", "inject=close:delay_exit=10000")
        os.rename(leases.outside / str(number), path)
        wait_until(lambda: is_open(tv, path), "the scan to begin")
        while os.fstat(own).st_nlink > 0:
            try:
                fcntl.fcntl(own, fcntl.F_SETLEASE, fcntl.F_WRLCK)
            except BlockingIOError:
                continue
            break
        wait_gone(path)
        os.close(own)
        tracer.stop()
    assert len(tv.quarantined()) == 3
