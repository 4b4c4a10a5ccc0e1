"""Popups that nobody takes: detections go on as fast as without them, and what waits is bounded."""

import contextlib
import os
import time

import pytest

from harness import Path, SessionBus, Unwatched, fresh_directory, wait_until
from processes import stopped

BATCH = 300
DETECTIONS = BATCH
DETECTIONS_OF_THE_LONG_FORM = 10_200
# Of the service and its helper together. The queues hold some thousand popups of two kilobytes at most.
MEMORY = 32 << 20


def memory(process):
    """What it and its children have in memory, in bytes."""
    total = 0
    for entry in Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            parent = (entry / "stat").read_text().rpartition(")")[2].split()[1]
            if str(process.pid) in (entry.name, parent):
                total += int((entry / "statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE")
    return total


class Flood:
    """Detections one after the other, in the same number each time."""

    def __init__(self, tv, home, count):
        self._tv = tv
        self._home = home
        self._count = count
        self._unwatched = Unwatched()
        self._started = 0

    def run(self):
        """Returns how long they took."""
        self._started += 1
        directory = self._home / str(self._started)
        directory.mkdir()
        self._tv.settle()
        before = len(self._tv.reports())
        began = time.monotonic()
        for number in range(1, self._count + 1):
            self._unwatched.move_in(directory / str(number))
            if number % BATCH == 0:
                self._tv.settle()
                # A long one takes long to look through.
                self._tv.log_file.unlink()
        elapsed = time.monotonic() - began
        assert len(self._tv.reports()) == before + self._count
        return elapsed


@pytest.fixture
def flood(tv, home, long_form):
    tv.configure(action=0)
    return Flood(tv, home, DETECTIONS_OF_THE_LONG_FORM if long_form else DETECTIONS)


@pytest.fixture
def check(tv, flood, report_figure):
    """Compares a flood with one that had somebody to show it to."""

    def compare(usual, what):
        before = memory(tv.process)
        elapsed = flood.run()
        grown = memory(tv.process) - before
        # One delivery that was waited for takes ten seconds; a busy machine is slow for a while.
        assert elapsed < 3 * usual + 5
        assert grown < MEMORY
        report_figure(f"detections with {what}: {elapsed / usual:.2f} of the usual time, {grown >> 10} KiB more memory")

    return compare


@pytest.mark.parametrize("who", ["daemon", "recorder"])
def test_nobody_answers(tv, bus, flood, check, who):
    tv.start(bus)
    usual = flood.run()
    bus.wait_popups(1)
    with stopped(getattr(bus, who)):
        check(usual, f"a {who} that hangs")
    # A delivery that hangs is given up after ten seconds.
    shown = len(bus.popups())
    flood.run()
    bus.wait_popups(shown + 1)


def test_no_bus(tv, flood, check):
    tv.start(environment={"DBUS_SESSION_BUS_ADDRESS": f"unix:path={fresh_directory()}/nothing"})
    check(flood.run(), "no bus")


def test_another_bus_in_its_place(tv, flood, check):
    address = f"unix:path={fresh_directory()}/bus"
    first = SessionBus(address)
    tv.start(first)
    usual = flood.run()
    first.wait_popups(1)
    first.close()
    check(usual, "a bus that went")
    Path(address.partition("=")[2]).unlink(missing_ok=True)
    second = SessionBus(address)
    try:
        flood.run()
        wait_until(second.popups, "a popup on the new bus")
    finally:
        second.close()
