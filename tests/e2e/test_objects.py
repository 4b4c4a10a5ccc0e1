"""Things with a name that are no plain files."""

import os
import socket

import pytest

from harness import EICAR, Unwatched, exists, scan_error, wait_gone, write_once


def fifo(path):
    os.mkfifo(path)


def link_to_a_fifo(path):
    os.mkfifo("/home/.unwatched/fifo")
    os.symlink("/home/.unwatched/fifo", path)


def link_to_a_device(path):
    os.symlink("/dev/zero", path)


def link_to_a_directory(path):
    os.symlink("/home/.unwatched", path)


def empty_file(path):
    write_once(path, b"")


def one_byte(path):
    write_once(path, b"X")


def clean_file(path):
    write_once(path, b"nothing bad " * 10000)


def sparse_file(path):
    with open(path, "wb") as file:
        file.truncate(1 << 32)


@pytest.mark.parametrize("make", [fifo, link_to_a_fifo, link_to_a_device, link_to_a_directory, empty_file,
                                  one_byte, clean_file])
def test_is_clean(tv, home, make):
    unwatched = Unwatched()
    tv.start()
    make(home / "object")
    # Whoever opened a pipe would wait here for good.
    wait_gone(unwatched.move_in(home / "after"))
    assert not [line for line in tv.settle() if "/object" in line.message]
    assert exists(home / "object")


def unix_socket(path):
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(path))


def dangling_link(path):
    os.symlink("/home/nothing", path)


def link_to_itself(path):
    os.symlink(path, path)


@pytest.mark.parametrize("make", [unix_socket, dangling_link, link_to_itself])
def test_cannot_be_opened(tv, home, make):
    unwatched = Unwatched()
    tv.start()
    path = home / "object"
    make(path)
    wait_gone(unwatched.move_in(home / "after"))
    assert [line.what() for line in tv.settle() if "/object" in line.message] == [scan_error(path)]
    assert exists(path)
    assert [record["fileName"] for record in tv.reports()] == ["after"]


@pytest.mark.parametrize("make_other", [lambda path: "/dev/zero", lambda path: os.mkfifo(path) or path],
                         ids=["device", "fifo"])
def test_a_file_that_is_exchanged_before_it_is_scanned(tv, home, mounts, make_other):
    unwatched = Unwatched()
    tv.start()
    tv.pause()
    path = write_once(home / "object")
    mounts.bind(make_other(str(unwatched.path / "other")), path)
    tv.resume()
    wait_gone(unwatched.move_in(home / "after"))
    assert not [line for line in tv.settle() if "/object" in line.message]


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
