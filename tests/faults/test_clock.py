"""The time of day is set by an hour, forward and back, in the middle of everything."""

import hashlib
import itertools
import json
import os
import select
import time
from datetime import datetime, timedelta

import pytest

from archives import many_databases, write_slow_infected
from commandclient import is_open, start_slow_scan
from harness import (BASE, EICAR_NAME, KLEZ_PATTERN, PRELOAD, Path, Unwatched, exists, fresh_directory, quarantine_name,
                     scan_error, wait_gone, wait_until, write_once)
from storefailures import locked_for_writing
from tool import KEPT_CHANGE_TIMES, Tool

HOUR = 3600
STEPS = [HOUR, -HOUR]

WATCHED = "INFO", "FileMonitor::startMonitoring", "Watching: /media"

# What waits, waits some seconds; who takes the time of day for it waits an hour more.
SOON = 60


class Clock:
    """The time of day of those programs that are started with `environment`, wrong by so many seconds."""

    def __init__(self):
        self._file = fresh_directory() / "clock"
        self.set(0)

    def set(self, seconds):
        # In one step: whoever looks at the clock meanwhile must not see an empty file.
        new = self._file.with_suffix(".new")
        new.write_text(str(seconds))
        new.rename(self._file)
        self.wrong_by = seconds

    def now(self):
        return datetime.now() + timedelta(seconds=self.wrong_by)

    def environment(self, *more):
        preloads = [BASE / "tools" / "libsteppedclock.so", *([PRELOAD] if PRELOAD.exists() else []), *more]
        return {"LD_PRELOAD": ":".join(map(str, preloads)), "TVFILEMON_CLOCK": str(self._file)}


@pytest.fixture
def clock():
    return Clock()


@pytest.fixture(params=STEPS, ids=["forward", "back"])
def step(request):
    return request.param


@pytest.fixture
def start(tv, clock):
    def start_with_clock(*arguments, **options):
        tv.start(*arguments, environment=clock.environment(), **options)
        return tv
    return start_with_clock


@pytest.fixture(scope="session")
def slow_infected():
    return write_slow_infected(fresh_directory() / "slow.zip", archives=3)


def test_the_clock_of_the_tests(start, clock, home):
    """That the service does believe it."""
    clock.set(HOUR)
    tv = start()
    written = datetime.strptime(tv.log()[-1].time, "%Y-%m-%d %H:%M:%S:%f")
    assert abs(clock.now() - written) < timedelta(seconds=SOON)


def test_during_a_scan(start, clock, connect, home, slow_infected, step):
    """Who takes the step for time that has passed gives the scan up, and calls the file clean."""
    unwatched = Unwatched()
    tv = start()
    client = connect("demo")
    start_slow_scan(tv, client, slow_infected)
    clock.set(step)
    assert is_open(tv, slow_infected), "the scan was over too soon for this test"
    assert client.receive() == f"INFECTED {EICAR_NAME}"
    path = home / "slow"
    unwatched.move_in(path, slow_infected.read_bytes())
    wait_until(lambda: is_open(tv, path), "the scan to begin")
    clock.set(0)
    wait_gone(path)
    tv.settle()
    assert [record["filePath"] for record in tv.reports()] == [str(path)]


def test_during_the_first_walk(start, clock, home, step):
    deepest = [home / str(number) / "inner" for number in range(10_000)]
    for directory in deepest:
        directory.mkdir(parents=True)
    unwatched = Unwatched()
    tv = start(wait=False)
    wait_until(lambda: tv.watches() > 2, "the walk to begin")
    tv.pause()
    assert tv.watches() < len(deepest), "the walk was over too soon for this test"
    clock.set(step)
    tv.resume()
    tv.wait_log(*WATCHED)
    for directory in (deepest[0], deepest[-1]):
        wait_gone(unwatched.move_in(directory / "eicar"))
    tv.settle()
    assert len(tv.reports()) == 2


def test_during_a_load(tv, start, clock, connect, files, step):
    many_databases(tv)
    start()
    client = connect("demo")
    client.send("RELOADDB")
    tv.wait_log("TRACE", "CSocketManager::onClientReceivedMessage", "Reload DB command recieved.")
    clock.set(step)
    assert not client.has_input(), "the load was over too soon for this test"
    assert client.receive() == "SUCCESS"
    assert client.ask(f"SCAN {write_once(files / 'eicar')}") == f"INFECTED {EICAR_NAME}"


def test_during_the_hashing_of_a_file(tv, start, clock, connect, files, step):
    content = bytes(400_000_000)
    listed_hash(tv, content)
    start()
    client = connect("demo")
    path = write_once(files / "long", content)
    client.send(f"SCANIOC {path}")
    wait_until(lambda: is_open(tv, path), "the hashing to begin")
    clock.set(step)
    assert is_open(tv, path), "the hashing was over too soon for this test"
    assert client.receive().startswith("MD5:I")


def test_files_under_lease(start, clock, home, leases, step):
    tv = start()
    paths = [leases.move_in(home / f"leased{number}") for number in range(20)]
    tv.settle()
    clock.set(step)
    leases.end_all()
    wait_until(lambda: not any(map(exists, paths)), "the leased files to be cleaned", SOON)
    tv.settle()
    assert sorted(record["filePath"] for record in tv.reports()) == sorted(map(str, paths))


def test_a_copy_never_replaces_another(start, clock, home):
    """The same second comes again and again."""
    unwatched = Unwatched()
    tv = start()
    path = home / "eicar"
    copies = {}
    rounds = 40
    for number, seconds in zip(range(rounds), itertools.cycle([0, HOUR, 0, -HOUR])):
        clock.set(seconds)
        wait_gone(unwatched.move_in(path, KLEZ_PATTERN + b"%d" % number))
        tv.settle()
        now = tv.quarantined()
        assert copies.items() <= now.items()
        assert len(now) <= len(copies) + 1
        copies = now
    # The seconds of each hour have their names, and the copies of none are mixed up.
    assert len(copies) >= 3
    assert all(quarantine_name(path).fullmatch(name) for name in copies)
    assert len(tv.reports()) == rounds


def test_repeated_lines_are_counted(start, clock, home, step):
    tv = start()
    path = home / "brief"
    for seconds in (0, step, 0):
        tv.pause()
        clock.set(seconds)
        for _ in range(3):
            write_once(path)
            os.unlink(path)
        tv.resume()
        wait_until(lambda: tv.descriptors(), "the service")
    tv.settle()
    # A creation and a write each.
    assert tv.count(*scan_error(path)) == 18


def listed_hash(tv, content):
    tv.configure(ioc=True, iocAction=0, iocHashes={"0": [hashlib.md5(content).hexdigest()]})


def test_the_cache_of_hashes(tv, start, clock, connect, files, step):
    """A file that was changed is read again, whichever time it has now."""
    listed_hash(tv, b"listed")
    tv = start()
    client = connect("demo")
    path = write_once(files / "file", b"harmls")
    assert client.ask(f"SCANIOC {path}") == "CLEAN"
    clock.set(step)
    assert client.ask(f"SCANIOC {path}") == "CLEAN"
    path.write_bytes(b"listed")
    os.utime(path, times=(time.time() + step,) * 2)
    assert client.ask(f"SCANIOC {path}").startswith("MD5:I")
    clock.set(0)
    assert client.ask(f"SCANIOC {path}").startswith("MD5:I")


def test_the_report_of_the_day(tv, start, clock, connect, files):
    """Each match is in the report of the day that it is by the clock, which may come back."""
    listed_hash(tv, b"listed")
    tv = start()
    client = connect("demo")
    path = write_once(files / "file", b"listed")
    now = datetime.now()
    evening = round((now.replace(hour=23, minute=30, second=0) - now).total_seconds())
    written = []
    for seconds in (evening, evening + HOUR, evening):
        clock.set(seconds)
        written.append(clock.now().strftime("%d-%m-%Y.apmon"))
        assert client.ask(f"SCANIOC {path}").startswith("MD5:I")
    assert written[0] != written[1]
    lines = {report.name: len(report.read_bytes().splitlines()) for report in (tv.root / "reports").glob("*.apmon")}
    assert lines == {written[0]: 2, written[1]: 1}


def test_the_listener_rests_a_second(start, clock, connect, step):
    tv = start()
    began = time.monotonic()
    for seconds in (0, step, 0, step):
        connect("demo")
        clock.set(seconds)
    assert 2 < time.monotonic() - began < SOON
    assert tv.process.poll() is None


def test_popups(start, clock, bus, home):
    unwatched = Unwatched()
    start(bus)
    for number, seconds in enumerate([0, HOUR, 0, -HOUR, 0]):
        clock.set(seconds)
        unwatched.move_in(home / str(number))
        popup = bus.wait_popups(number + 1)[-1]
        assert str(home / str(number)) in popup["body"]
        assert 1000 <= popup["expire_timeout"] <= 60000


def test_a_record_that_waits_for_its_store(start, clock, home, step):
    """It is tried again by itself, soon."""
    unwatched = Unwatched()
    tv = start()
    wait_gone(unwatched.move_in(home / "first"))
    tv.settle()
    with locked_for_writing(tv.settings / "reports.db"):
        wait_gone(unwatched.move_in(home / "second"))
        tv.settle()
        clock.set(step)
    wait_until(lambda: len(tv.reports()) == 2, "the record", SOON)


def test_a_stop(start, clock, home, step):
    tv = start()
    clock.set(step)
    began = time.monotonic()
    tv.stop()
    assert time.monotonic() - began < 2


def test_following_detections(tv, start, clock, home):
    unwatched = Unwatched()
    tv.configure()
    start()
    follower = Tool(tv, clock.environment()).start("detections", "follow", "--cursor", fresh_directory() / "cursor")
    try:
        for number, seconds in enumerate([0, HOUR, -HOUR, 0]):
            clock.set(seconds)
            unwatched.move_in(home / str(number))
            assert select.select([follower.stdout], [], [], SOON)[0], f"no line of {number}"
            assert json.loads(follower.stdout.readline())["path"] == str(home / str(number))
    finally:
        follower.kill()
        follower.communicate()


def test_a_sweep_finds_what_was_changed_by_any_clock(tv, clock, home, step):
    """The last sweep began at a time that is an hour wrong by now."""
    tv.configure()
    tv.start()
    tvctl = Tool(tv, clock.environment(KEPT_CHANGE_TIMES["LD_PRELOAD"]))
    tvctl.json("sweep", status=None)
    clock.set(step)
    tvctl.json("sweep", status=None)
    clock.set(0)
    # Nobody watches it.
    (home / ".hidden").mkdir()
    bad = write_once(home / ".hidden" / "bad")
    document = tvctl.json("sweep", status=1)
    assert [found["path"] for found in document["detections"]] == [str(bad)]
    assert not exists(bad)


def test_a_selftest(tv, start, clock, step):
    """The clock is set after it began, and before its file is recorded."""
    tv.configure()
    start()
    tv.pause()
    selftest = Tool(tv, clock.environment()).start("--json", "selftest", "--timeout", "60")
    try:
        wait_until(lambda: list(Path("/home").glob("tvctl-selftest-*")), "the file of the test")
        clock.set(step)
        tv.resume()
        output, errors = selftest.communicate(timeout=SOON)
        assert selftest.returncode == 0, (output, errors)
        assert b'"record":{' in output.replace(b" ", b"").replace(b"\n", b"")
    finally:
        selftest.kill()
        selftest.wait()
