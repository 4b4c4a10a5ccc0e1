"""The end of the service, at any moment and in the middle of anything: soon, and with nothing lost or made up."""

import os
import random
import signal
import threading
import time

import pytest

from archives import many_databases, write_slow_infected
from commandclient import is_open, start_slow_scan
from harness import EICAR, KLEZ_PATTERN, Path, Unwatched, exists, fresh_directory, wait_gone, wait_until
from processes import stopped
from storefailures import locked_for_writing
from tracer import Tracer

# What is asked of a stop, in seconds.
LIMIT = 2

QUICK_ROUNDS = 5
LONG_ROUNDS = 170


@pytest.fixture(scope="session")
def slow_infected():
    """Takes the engine many seconds."""
    return write_slow_infected(fresh_directory() / "slow.zip", archives=20)


class Moment:
    """What the service does when it is asked to end; `begin` brings it there, `check` looks at what it left."""

    # The signal comes at some time within this many seconds from then on.
    SPAN = 0.6

    def __init__(self, tv, home, connect, slow_infected):
        self.tv, self.home, self.connect, self.slow = tv, home, connect, slow_infected
        self.unwatched = Unwatched()
        # Infected files, each in one event.
        self.written = []
        self.prepare()

    def prepare(self):
        pass

    def begin(self):
        self.tv.start()

    def check(self):
        pass


class Idle(Moment):
    pass


class Request(Moment):
    """Somebody waits for an answer, and gets none that is false."""

    def begin(self):
        self.tv.start()
        self.client = self.connect("demo")
        self.client.send(self.request())
        wait_until(lambda: is_open(self.tv, self.busy_with()), "the work to begin")

    def check(self):
        try:
            reply = self.client.receive()
        except ConnectionResetError:
            reply = ""
        assert reply == "" or reply.startswith("ERROR") or self.is_true(reply), reply

    def is_true(self, reply):
        """Whether the work was done before the end."""
        return False


class RequestedScan(Request):
    def request(self):
        return f"SCAN {self.slow}"

    def busy_with(self):
        return self.slow


class Hashing(Request):
    def prepare(self):
        self.tv.configure(ioc=True)
        self.file = self.unwatched.path / "huge"
        with open(self.file, "wb") as file:
            file.truncate(1 << 40)

    def request(self):
        return f"SCANIOC {self.file}"

    def busy_with(self):
        return self.file

    def check(self):
        super().check()
        # Half of it is no hash of it.
        assert not self.tv.cached(self.file)


class Reload(Request):
    def prepare(self):
        many_databases(self.tv)

    def request(self):
        return "RELOADDB"

    def begin(self):
        self.tv.start()
        self.client = self.connect("demo")
        self.client.send(self.request())
        self.tv.wait_log("TRACE", "CSocketManager::onClientReceivedMessage", "Reload DB command recieved.")

    def is_true(self, reply):
        return (reply == "SUCCESS"
                and self.tv.count("TRACE", "CScanFile::loadDatabases", "Successfully Compiled Engine.") == 2)


class WatchedScan(Moment):
    def begin(self):
        self.tv.start()
        self.path = self.home / f"slow{time.monotonic_ns()}"
        self.unwatched.move_in(self.path, self.slow.read_bytes())
        wait_until(lambda: is_open(self.tv, self.path), "the scan to begin")

    def check(self):
        assert exists(self.path)
        assert not [line for line in self.tv.log() if str(self.path) in line.message]


class Start(Moment):
    """From the moment on at which a signal does not just kill it."""

    def begin(self):
        self.tv.start(wait=False)
        wait_until(self.catches_the_signal, "the service to catch the signal")

    def catches_the_signal(self):
        with open(f"/proc/{self.tv.process.pid}/status", encoding="ascii") as status:
            caught, = (line for line in status if line.startswith("SigCgt:"))
        return int(caught.split()[1], 16) >> (signal.SIGTERM - 1) & 1


class Load(Start):
    SPAN = 1.5

    def prepare(self):
        many_databases(self.tv)


class Walk(Start):
    def prepare(self):
        for outer in range(40):
            for inner in range(100):
                os.makedirs(self.home / str(outer) / str(inner))


class Burst(Moment):
    """Infected files come faster than they can be cleaned."""

    def begin(self):
        self.tv.start()
        self.enough = threading.Event()
        self.writer = threading.Thread(target=self.write)
        self.writer.start()

    def write(self):
        while not self.enough.is_set():
            self.written.append(self.unwatched.move_in(self.home / str(len(self.written))))

    def check(self):
        self.enough.set()
        self.writer.join()
        assert self.written


MOMENTS = [Idle, RequestedScan, Hashing, Reload, WatchedScan, Load, Walk, Burst]


def check_records(tv, written):
    """Each detection was answered to its end: the file is gone, there is a copy of it, and it is recorded."""
    gone = sorted(str(path) for path in written if not exists(path))
    records = tv.reports()
    assert sorted(record["filePath"] for record in records) == gone
    assert all(record["cleanStatus"] == 0 for record in records)
    assert list(tv.quarantined().values()) == [EICAR] * len(gone)


@pytest.mark.parametrize("kind", MOMENTS)
def test_a_stop_at_any_moment(tv, home, connect, slow_infected, kind, long_form, report_figure):
    moment = kind(tv, home, connect, slow_infected)
    longest = 0
    for number in range(LONG_ROUNDS if long_form else QUICK_ROUNDS):
        chance = random.Random(f"{kind.__name__} {number}")
        # A long one would be set aside at the start, while it is waited for its lines.
        tv.log_file.unlink(missing_ok=True)
        moment.begin()
        time.sleep(chance.uniform(0, moment.SPAN))
        asked = time.monotonic()
        status = tv.end(chance.choice([signal.SIGTERM, signal.SIGINT]))
        took = time.monotonic() - asked
        moment.check()
        assert status == 0, tv.output()
        assert not list(Path("/run").glob("tvfilemon-engine-*/*"))
        assert took < LIMIT
        tv.process = None
        longest = max(longest, took)
    check_records(tv, moment.written)
    report_figure(f"stop, {kind.__name__}: {longest * 1000:.0f} ms at the longest")


def test_a_record_that_waits_is_stored_in_the_middle_of_a_scan(tv, home, connect, slow_infected):
    unwatched = Unwatched()
    tv.start()
    client = connect("demo")
    wait_gone(unwatched.move_in(home / "first"))
    tv.settle()
    with locked_for_writing(tv.settings / "reports.db"):
        wait_gone(unwatched.move_in(home / "second"))
        tv.settle()
        # From here on the main thread has no turn in which it could store it.
        start_slow_scan(tv, client, slow_infected)
    assert len(tv.reports()) == 1
    tv.stop()
    assert [record["filePath"] for record in tv.reports()] == [str(home / "first"), str(home / "second")]


def test_a_stop_while_nobody_takes_the_popups(tv, home, bus, report_figure):
    unwatched = Unwatched()
    tv.start(bus)
    wait_gone(unwatched.move_in(home / "first"))
    bus.wait_popups(1)
    with stopped(bus.daemon):
        paths = [unwatched.move_in(home / str(number)) for number in range(50)]
        for path in paths:
            wait_gone(path)
        tv.settle()
        asked = time.monotonic()
        tv.stop()
        took = time.monotonic() - asked
    assert took < LIMIT
    assert len(tv.reports()) == 51
    report_figure(f"stop, nobody takes the popups: {took * 1000:.0f} ms")


def test_a_copy_that_takes_too_long(tv, home):
    """Given up, it keeps the file: a removal without a copy is for copies that fail."""
    unwatched = Unwatched()
    tv.start()
    tv.settle()
    # The last thing before the content is copied.
    tracer = Tracer(tv.process, "-e", "trace=fstatfs", "-e", "inject=fstatfs:delay_enter=800000")
    large = unwatched.file(KLEZ_PATTERN)
    os.truncate(large, 17 << 20)
    path = home / "large"
    os.rename(large, path)
    wait_until(tv.quarantined, "the copy to be begun")
    asked = time.monotonic()
    assert tv.end() == 0
    assert time.monotonic() - asked < LIMIT
    tracer.stop()
    assert path.stat().st_size == 17 << 20
    assert tv.quarantined() == {}
    record, = tv.reports()
    assert record["filePath"] == str(path) and record["cleanStatus"] == 1
