"""An attacker who has a path lead to another file between the look at it and the deed."""

import ctypes
import hashlib
import os
import signal
import time
from pathlib import Path

import pytest

from harness import EICAR, Unwatched

VICTIM = b"root:x:0:0:root:/root:/bin/bash\n"
ROUNDS = 1000
DELETE = 2

_libc = ctypes.CDLL(None, use_errno=True)


def exchange(one, other):
    assert _libc.renameat2(-100, os.fsencode(one), -100, os.fsencode(other), 2) == 0, ctypes.get_errno()


@pytest.fixture
def victim():
    """A file of root that the attacker would like to be deleted, beside his own of the same name."""
    directory = Path("/opt/etc")
    directory.mkdir()
    path = directory / "passwd"
    path.write_bytes(VICTIM)
    yield path
    assert path.read_bytes() == VICTIM
    path.unlink()
    directory.rmdir()


class Swapper:
    """A process that swaps the directory `d` of the user for a link to the victim's and back."""

    def __init__(self, home, victim):
        self.directory = home / "d"
        self._link = home / ".other"
        self.directory.mkdir()
        self._link.symlink_to(victim.parent)
        self._process = None

    def start(self):
        self._process = os.fork()
        if self._process == 0:
            try:
                while True:
                    exchange(self.directory, self._link)
                    # Each swap is an event too, and those of the files should get their turn.
                    time.sleep(0.0001)
            finally:
                os._exit(1)

    def stop(self):
        os.kill(self._process, signal.SIGKILL)
        os.waitpid(self._process, 0)
        self._process = None

    def close(self):
        if self._process is not None:
            self.stop()


@pytest.fixture
def swapper(home, victim):
    attacker = Swapper(home, victim)
    yield attacker
    attacker.close()


def test_an_event_deletes_and_copies_no_other_file(tv, home, victim, swapper):
    unwatched = Unwatched()
    tv.start()
    handle = os.open(swapper.directory, os.O_PATH | os.O_DIRECTORY)
    swapper.start()
    for _ in range(ROUNDS):
        os.rename(unwatched.file(), "passwd", dst_dir_fd=handle)
    tv.settle()
    swapper.stop()
    os.close(handle)
    assert set(tv.quarantined().values()) == {EICAR}


def test_a_listed_file_is_not_mixed_up_with_another(tv, home, victim, swapper, connect):
    tv.configure(protection=False, ioc=True, iocAction=DELETE, iocHashes={"0": [hashlib.md5(EICAR).hexdigest()]})
    unwatched = Unwatched()
    tv.start()
    client = connect("demo")
    handle = os.open(swapper.directory, os.O_PATH | os.O_DIRECTORY)
    swapper.start()
    replies = set()
    for _ in range(ROUNDS):
        os.rename(unwatched.file(), "passwd", dst_dir_fd=handle)
        replies.add(client.ask(f"SCANIOC {swapper.directory}/passwd").partition(":")[0])
    swapper.stop()
    os.close(handle)
    assert replies == {"MD5", "CLEAN"}
