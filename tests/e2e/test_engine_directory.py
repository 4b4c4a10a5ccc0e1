"""The engine's directory for temporary files: libclamav calls every file clean when it cannot make one."""

import errno
import os
import shutil
import zipfile

import pytest

from harness import EICAR, EICAR_NAME, Installation, Path, fresh_directory, wait_gone, write_once

NOT_DONE = "ERROR 18"
INFECTED = f"INFECTED {EICAR_NAME}"


@pytest.fixture
def places(mounts):
    """All the places that such a directory may lie in, small ones of the test's own: the one that $TMPDIR names,
    /run and /dev/shm."""
    given = fresh_directory() / "given"
    given.mkdir()
    for place in (given, Path("/run"), Path("/dev/shm")):
        mounts.tmpfs(place, b"size=600m,nr_inodes=2000")
    return [given, Path("/run"), Path("/dev/shm")]


@pytest.fixture
def tv_small(home, mounts, places):
    """An installation that lies on a file system of its own."""
    device = fresh_directory() / "device"
    device.mkdir()
    mounts.tmpfs(device, b"size=200m,nr_inodes=2000")
    installation = Installation(device / "root")
    installation.places = [*places, installation.root]
    yield installation
    installation.close()
    installation.check_log()


def start(tv):
    return tv.start(environment={"TMPDIR": str(tv.places[0])})


def engine_directories(tv):
    return [path for place in tv.places for path in place.glob("tvfilemon-engine-*")]


def fill(place):
    # A page at last: what is left would take a small file.
    for size in (1 << 20, 4096):
        with pytest.raises(OSError) as error:
            with open(place / f"filling{size}", "wb", buffering=0) as filling:
                while filling.write(bytes(size)) == size:
                    pass
                raise OSError(errno.ENOSPC, "a short write")
        assert error.value.errno == errno.ENOSPC


def use_up_inodes(place):
    with pytest.raises(OSError) as error:
        for number in range(100_000):
            (place / f"inode{number}").touch()
    assert error.value.errno == errno.ENOSPC


def remove(place):
    for directory in place.glob("tvfilemon-engine-*"):
        shutil.rmtree(directory)


def put_file_in_place(place):
    for directory in place.glob("tvfilemon-engine-*"):
        shutil.rmtree(directory)
        directory.touch()


def put_link_in_place(place):
    for directory in place.glob("tvfilemon-engine-*"):
        shutil.rmtree(directory)
        directory.symlink_to("nowhere")


def make_read_only(mounts, place):
    mounts.read_only(place)


FAULTS = {
    "full": lambda mounts, place: fill(place),
    "no inodes": lambda mounts, place: use_up_inodes(place),
    "removed": lambda mounts, place: remove(place),
    "a file": lambda mounts, place: put_file_in_place(place),
    "a dangling link": lambda mounts, place: put_link_in_place(place),
    "read-only": make_read_only,
}


def zipped(directory):
    path = directory / "eicar.zip"
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("eicar.com", EICAR)
    return path


def test_it_is_private_and_in_memory(tv_small):
    start(tv_small)
    directory, = engine_directories(tv_small)
    assert directory.parent == tv_small.places[0]
    assert directory.stat().st_mode & 0o7777 == 0o700


def test_what_a_killed_run_left_is_removed(tv_small):
    start(tv_small)
    directory, = engine_directories(tv_small)
    tv_small.end(9)
    tv_small.process = None
    (directory / "left" / "deeper").mkdir(parents=True)
    (directory / "left" / "deeper" / "file").write_bytes(b"x")
    os.symlink("/etc/passwd", directory / "left" / "link")
    start(tv_small)
    assert list(directory.iterdir()) == []
    assert os.path.exists("/etc/passwd")


@pytest.mark.parametrize("fault", FAULTS)
def test_one_place_fails(tv_small, connect, mounts, files, fault):
    start(tv_small)
    client = connect("demo")
    path = write_once(files / "eicar")
    archive = zipped(files)
    assert client.ask(f"SCAN {path}") == INFECTED
    FAULTS[fault](mounts, tv_small.places[0])
    # There are other places.
    assert client.ask(f"SCAN {path}") == INFECTED
    assert client.ask(f"SCAN {archive}") == INFECTED
    assert client.ask(f"SCANURL {EICAR.decode()}") == INFECTED


@pytest.mark.parametrize("fault", ["full", "no inodes", "read-only"])
def test_every_place_fails(tv_small, connect, mounts, files, home, fault):
    start(tv_small)
    client = connect("demo")
    path = write_once(files / "eicar")
    archive = zipped(files)
    clean = write_once(files / "clean", b"nothing")
    for place in tv_small.places:
        FAULTS[fault](mounts, place)
    # Where there are inodes but no room, what is scanned in memory still is.
    for request in (f"SCAN {path}", f"SCANURL {EICAR.decode()}"):
        assert client.ask(request) == (INFECTED if fault == "full" else NOT_DONE), request
    assert client.ask(f"SCAN {clean}") == ("CLEAN" if fault == "full" else NOT_DONE)
    # 14: the engine could not write what it unpacked.
    assert client.ask(f"SCAN {archive}") == ("ERROR 14" if fault == "full" else NOT_DONE)


def test_it_recovers(tv_small, connect, files, home):
    start(tv_small)
    client = connect("demo")
    clean = write_once(files / "clean", b"nothing")
    for place in tv_small.places:
        use_up_inodes(place)
    assert client.ask(f"SCAN {clean}") == NOT_DONE
    for used in tv_small.places[1].glob("inode*"):
        used.unlink()
    assert client.ask(f"SCAN {clean}") == "CLEAN"
    wait_gone(write_once(home / "eicar"))
