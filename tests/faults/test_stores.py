"""The stores fail while files are detected: the service goes on without a delay, and no record is lost."""

import contextlib
import fcntl
import hashlib
import os
import shutil
import sqlite3
import time

import pytest

from harness import Unwatched, wait_gone, wait_until, write_once
from storefailures import locked_for_writing

PAGE = 4096
LOCKED = 2
LOCKED_IN_THE_LONG_FORM = 30
# What is detected while a fault lasts, and after it.
DETECTIONS = 20
NAMES = ["tvcore.db", "reports.db"]


class Traffic:
    """Infected files, and requests that wait for the main thread's turn."""

    def __init__(self, tv, home, client):
        self._tv = tv
        self._home = home
        self._client = client
        self._unwatched = Unwatched()
        self._clean = write_once(home / "clean", b"clean")
        self.detected = []
        self.delays = []

    def detect(self, count=1):
        for _ in range(count):
            path = self._home / f"bad{len(self.detected)}"
            self._unwatched.move_in(path)
            began = time.monotonic()
            assert self._client.ask(f"SCAN {self._clean}") == "CLEAN"
            self.delays.append(time.monotonic() - began)
            wait_gone(path)
            self.detected.append(str(path))

    def detect_for(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.detect()

    def check(self, since=0):
        """Every detection from the number `since` on is recorded in the end, once, and nothing took long."""
        wanted = self.detected[since:]

        def stored():
            return [record["filePath"] for record in self._tv.reports()][-len(wanted):]

        wait_until(lambda: stored() == wanted, lambda: f"{wanted}; there are {stored()}", timeout=60)
        # Far more than any wait for a store, and what a busy machine may need.
        assert max(self.delays) < 2, self.delays


@pytest.fixture
def traffic(tv, home, connect):
    made = []

    def make(**options):
        # Before the service starts.
        made.append(Traffic(tv, home, None))
        tv.start(**options)
        made[0]._client = connect("demo")
        return made[0]

    return make


def emptied_log(path):
    """Has everything in the database itself, and returns its size."""
    database = sqlite3.connect(path, isolation_level=None)
    database.execute("PRAGMA wal_checkpoint(TRUNCATE)")
    database.close()
    return path.stat().st_size


def put_garbage(path):
    for ending in ("-wal", "-shm"):
        os.unlink(f"{path}{ending}")
    (path.parent / "new").write_bytes(b"\xa5\x5a" * 3 * PAGE)
    os.rename(path.parent / "new", path)


def truncate(path):
    os.truncate(path, emptied_log(path) // 2)


def flip(path):
    """All pages but the first, with which opening would fail at once."""
    size = emptied_log(path)
    with open(path, "r+b") as database:
        database.seek(PAGE)
        content = database.read()
        database.seek(PAGE)
        database.write(bytes(byte ^ 0xff for byte in content))
    assert path.stat().st_size == size > PAGE


def remove(path):
    for ending in ("", "-wal", "-shm"):
        os.unlink(f"{path}{ending}")


def remove_directory(path):
    shutil.rmtree(path.parent)


def set_aside(path):
    """The content of each damaged database."""
    return [aside.read_bytes() for aside in path.parent.glob(f"{path.name}.corrupt-*")
            if not aside.name.endswith(("-wal", "-shm"))]


@pytest.mark.parametrize("name", NAMES)
@pytest.mark.parametrize("fault", [put_garbage, truncate, flip, remove, remove_directory])
def test_damaged_in_use(tv, traffic, name, fault, report_figure):
    tv.configure(protection=True)
    running = traffic()
    running.detect(DETECTIONS)
    running.check()
    path = tv.settings / name
    fault(path)
    damaged = [path.read_bytes()] if path.exists() else []
    running.detect(DETECTIONS)
    is_lost = name == "reports.db" or fault is remove_directory
    running.check(DETECTIONS if is_lost else 0)
    # A new process finds a store that it can use.
    tv.stop()
    tv.start()
    assert [record["filePath"] for record in tv.reports()][-DETECTIONS:] == running.detected[-DETECTIONS:]
    # What was there before is kept as it is, for somebody who can read it.
    assert set_aside(path) == damaged
    report_figure(f"longest turn with {name}, {fault.__name__}: {max(running.delays) * 1000:.0f} ms")


@pytest.mark.parametrize("name", NAMES)
def test_locked(tv, traffic, name, long_form, report_figure):
    """As by a user interface that hangs in the middle of a change."""
    tv.configure(protection=True)
    running = traffic()
    running.detect(DETECTIONS)
    with locked_for_writing(tv.settings / name):
        running.detect_for(LOCKED_IN_THE_LONG_FORM if long_form else LOCKED)
    running.check()
    report_figure(f"longest turn while {name} is locked: {max(running.delays) * 1000:.0f} ms,"
                  f" {len(running.detected)} detections")


@pytest.mark.parametrize("name", NAMES)
def test_all_locks_of_the_log(tv, traffic, name, report_figure):
    """Nobody may even read: as by a program that was stopped while it recovers the database."""
    tv.configure(protection=True)
    running = traffic()
    running.detect(DETECTIONS)
    with open(f"{tv.settings}/{name}-shm", "r+b") as index:
        # The eight locks of SQLite's file format.
        fcntl.lockf(index, fcntl.LOCK_EX | fcntl.LOCK_NB, 8, 120)
        running.detect_for(LOCKED)
    running.check()
    report_figure(f"longest turn while all of {name} is locked: {max(running.delays) * 1000:.0f} ms,"
                  f" {len(running.detected)} detections")


@pytest.mark.parametrize("count", [1, 8])
def test_the_hash_cache_is_locked(tv, home, files, connect, count, report_figure):
    """The lock of who writes, or all of them."""
    path = write_once(files / "listed", b"listed")
    tv.configure(ioc=True, iocHashes={"0": [hashlib.md5(b"listed").hexdigest()]})
    tv.start()
    client = connect("demo")
    reply = client.ask(f"SCANIOC {path}")
    assert reply.startswith("MD5:IA:")
    delays = []
    with open(f"{tv.settings}/ioc-cache.db-shm", "r+b") as index:
        fcntl.lockf(index, fcntl.LOCK_EX | fcntl.LOCK_NB, count, 120)
        end = time.monotonic() + LOCKED
        while time.monotonic() < end:
            began = time.monotonic()
            assert client.ask(f"SCANIOC {path}") == reply
            delays.append(time.monotonic() - began)
    assert max(delays) < 2
    assert client.ask(f"SCANIOC {path}") == reply
    report_figure(f"longest request while the hash cache is locked: {max(delays) * 1000:.0f} ms,"
                  f" {len(delays)} requests")


@contextlib.contextmanager
def full(directory):
    with open(directory / "filling", "wb", buffering=0) as filling:
        with contextlib.suppress(OSError):
            while filling.write(bytes(PAGE)):
                pass
    yield
    (directory / "filling").unlink()


def test_a_full_disk(tv, traffic, mounts, report_figure):
    tv.settings.mkdir()
    mounts.tmpfs(tv.settings, b"size=2m")
    running = traffic()
    running.detect(DETECTIONS)
    with full(tv.settings):
        running.detect(10 * DETECTIONS)
        assert len(tv.reports()) < len(running.detected)
    running.check()
    report_figure(f"longest turn with a full disk: {max(running.delays) * 1000:.0f} ms")


def test_read_only(tv, traffic, mounts, report_figure):
    tv.settings.mkdir()
    mounts.read_only(tv.settings)
    running = traffic()
    running.detect(DETECTIONS)
    assert list(tv.settings.iterdir()) == []
    mounts.unmount(tv.settings)
    running.detect(DETECTIONS)
    running.check()
    report_figure(f"longest turn with a read-only disk: {max(running.delays) * 1000:.0f} ms")
