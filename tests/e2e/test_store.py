"""The stores under the service: damaged, locked, read-only, gone."""

import os
import signal
import sqlite3

import pytest

from harness import EICAR, Path, Unwatched, cleaned, exists, found, wait_gone, wait_until

GARBAGE = b"this is no database. " * 1000


def set_aside(tv, name):
    return list(tv.settings.glob(f"{name}.corrupt-*"))


@pytest.mark.parametrize("name", ["tvcore.db", "reports.db"])
def test_damaged_before_the_start(tv, home, name):
    unwatched = Unwatched()
    tv.settings.mkdir()
    (tv.settings / name).write_bytes(GARBAGE)
    tv.start()
    wait_gone(unwatched.move_in(home / "eicar"))
    tv.settle()
    [aside] = set_aside(tv, name)
    assert aside.read_bytes() == GARBAGE
    assert [record["fileName"] for record in tv.reports()] == ["eicar"]
    # The new one is as good as any.
    tv.configure(protection=False)
    unwatched.move_in(home / "second")
    tv.settle()
    assert exists(home / "second")


@pytest.mark.parametrize("name", ["tvcore.db", "reports.db"])
def test_damaged_while_running(tv, home, name):
    unwatched = Unwatched()
    tv.start()
    wait_gone(unwatched.move_in(home / "before"))
    tv.settle()
    (tv.settings / "new").write_bytes(GARBAGE)
    # Its log alone would be enough to put it together again.
    for ending in ("-wal", "-shm"):
        Path(f"{tv.settings}/{name}{ending}").unlink()
    os.replace(tv.settings / "new", tv.settings / name)
    for number in range(3):
        wait_gone(unwatched.move_in(home / str(number)))
    tv.settle()
    assert [aside.read_bytes() for aside in set_aside(tv, name)] == [GARBAGE]
    expected = ["0", "1", "2"] if name == "reports.db" else ["before", "0", "1", "2"]
    assert [record["fileName"] for record in tv.reports()] == expected


def test_overwritten_in_place_while_running(tv, home):
    unwatched = Unwatched()
    tv.start()
    wait_gone(unwatched.move_in(home / "before"))
    tv.settle()
    for name in ("tvcore.db", "reports.db"):
        path = tv.settings / name
        with open(path, "r+b") as file:
            file.write(b"\xff" * path.stat().st_size)
    for number in range(3):
        wait_gone(unwatched.move_in(home / str(number)))
    # What it had open may not have noticed; the next start does.
    tv.settle()
    tv.stop()
    tv.start()
    wait_gone(unwatched.move_in(home / "after"))
    tv.settle()
    assert "after" in [record["fileName"] for record in tv.reports()]


def test_removed_while_running(tv, home):
    unwatched = Unwatched()
    tv.start()
    wait_gone(unwatched.move_in(home / "before"))
    tv.settle()
    for path in tv.settings.iterdir():
        path.unlink()
    for number in range(3):
        wait_gone(unwatched.move_in(home / str(number)))
    tv.settle()
    assert [record["fileName"] for record in tv.reports()] == ["0", "1", "2"]


def test_a_plain_file_in_the_place_of_the_directory(tv, home):
    unwatched = Unwatched()
    tv.settings.write_bytes(b"")
    tv.start()
    path = unwatched.move_in(home / "eicar")
    wait_gone(path)
    assert cleaned(path) in [line.what() for line in tv.settle()]


def test_read_only_settings_still_count(tv, home, mounts):
    unwatched = Unwatched()
    tv.configure(action=0)
    mounts.read_only(tv.settings)
    tv.start()
    path = unwatched.move_in(home / "eicar")
    tv.wait_log(*cleaned(path, -1))
    tv.settle()
    assert path.read_bytes() == EICAR


def test_an_empty_read_only_directory_means_the_defaults(tv, home, mounts):
    unwatched = Unwatched()
    tv.settings.mkdir()
    mounts.read_only(tv.settings)
    tv.start()
    path = unwatched.move_in(home / "eicar")
    wait_gone(path)
    assert [line.what() for line in tv.settle() if "eicar" in line.message] == [found(path), cleaned(path)]


@pytest.mark.parametrize("name", ["tvcore.db", "reports.db"])
def test_a_newer_schema_is_left_alone(tv, home, name):
    unwatched = Unwatched()
    tv.configure(protection=True)
    tv.reports()
    path = tv.settings / name
    if not path.exists():
        tv.start()
        wait_gone(unwatched.move_in(home / "first"))
        tv.settle()
        tv.stop()
    with sqlite3.connect(path, isolation_level=None) as database:
        database.execute("PRAGMA user_version = 99")
        database.execute("PRAGMA wal_checkpoint(TRUNCATE)")
    database.close()
    before = path.read_bytes()
    tv.start()
    wait_gone(unwatched.move_in(home / "eicar"))
    tv.settle()
    assert path.read_bytes() == before
    assert set_aside(tv, name) == []


def test_detections_wait_for_a_locked_store(tv, home):
    unwatched = Unwatched()
    tv.start()
    wait_gone(unwatched.move_in(home / "before"))
    tv.settle()
    database = sqlite3.connect(tv.settings / "reports.db", isolation_level=None)
    database.execute("BEGIN IMMEDIATE")
    for number in range(5):
        wait_gone(unwatched.move_in(home / f"locked{number}"))
    tv.settle()
    database.execute("ROLLBACK")
    database.close()
    wait_gone(unwatched.move_in(home / "after"))
    tv.settle()
    wait_until(lambda: len(tv.reports()) == 7, "all records")
    assert [record["fileName"] for record in tv.reports()] == [
        "before", *(f"locked{number}" for number in range(5)), "after"]


def test_a_user_interface_in_the_middle_of_a_change(tv, home):
    """What is not yet committed does not count, and nobody waits for it."""
    unwatched = Unwatched()
    tv.configure(protection=False)
    tv.start()
    database = sqlite3.connect(tv.settings / "tvcore.db", isolation_level=None)
    database.execute("BEGIN EXCLUSIVE")
    database.execute("DELETE FROM setting")
    unwatched.move_in(home / "eicar")
    tv.settle()
    assert exists(home / "eicar")
    database.execute("ROLLBACK")
    database.close()
    unwatched.move_in(home / "second")
    tv.settle()
    assert exists(home / "second")


def test_a_user_interface_that_writes_all_the_time(tv, home):
    unwatched = Unwatched()
    tv.configure(protection=True)
    tv.start()
    database = sqlite3.connect(tv.settings / "tvcore.db", isolation_level=None, timeout=10)
    paths = []
    for number in range(100):
        database.execute("BEGIN IMMEDIATE")
        database.execute("UPDATE setting SET value = value")
        paths.append(unwatched.move_in(home / str(number)))
        database.execute("COMMIT")
    database.close()
    for path in paths:
        wait_gone(path)
    tv.settle()
    assert len(tv.reports()) == 100


def test_a_record_survives_a_kill(tv, home):
    unwatched = Unwatched()
    tv.start()
    for number in range(10):
        wait_gone(unwatched.move_in(home / str(number)))
    tv.settle()
    assert tv.end(signal.SIGKILL) == -signal.SIGKILL
    assert len(tv.reports()) == 10


def test_settings_are_read_at_the_start(tv, home):
    unwatched = Unwatched()
    tv.start()
    tv.configure(action=0)
    wait_gone(unwatched.move_in(home / "still cleaned"))
    tv.settle()
    tv.stop()
    tv.start()
    path = unwatched.move_in(home / "left")
    tv.wait_log(*cleaned(path, -1))
    assert exists(path)
