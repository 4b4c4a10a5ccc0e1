"""Things with a name that are no plain files."""

import os

import pytest

from harness import EICAR, Unwatched, exists, wait_gone, write_once


def empty_file(path):
    write_once(path, b"")


def one_byte(path):
    write_once(path, b"X")


def clean_file(path):
    write_once(path, b"nothing bad " * 10000)


def sparse_file(path):
    with open(path, "wb") as file:
        file.truncate(1 << 32)


@pytest.mark.parametrize("make", [empty_file, one_byte, clean_file])
def test_is_clean(tv, home, make):
    unwatched = Unwatched()
    tv.start()
    make(home / "object")
    wait_gone(unwatched.move_in(home / "after"))
    assert not [line for line in tv.settle() if "/object" in line.message]
    assert exists(home / "object")


def test_a_large_sparse_file_does_not_stop_the_service(tv, home):
    unwatched = Unwatched()
    tv.start()
    sparse_file(home / "sparse")
    wait_gone(unwatched.move_in(home / "after"))
    assert exists(home / "sparse")


def test_a_file_without_permissions(tv, home):
    unwatched = Unwatched()
    source = unwatched.file()
    source.chmod(0)
    tv.start()
    os.rename(source, home / "closed")
    wait_gone(home / "closed")


def test_a_file_that_is_being_written_to(tv, home):
    """Removed from under the program, which writes on into nothing."""
    tv.start()
    with open(home / "open", "wb", buffering=0) as file:
        file.write(EICAR)
        wait_gone(home / "open")
        file.write(b"more")
    assert list(tv.quarantined().values()) == [EICAR]
