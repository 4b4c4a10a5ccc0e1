"""An attacker who has a path lead to another file between the look at it and the deed."""

import collections
import contextlib
import ctypes
import hashlib
import os
import signal
import time
from pathlib import Path

import pytest

from harness import EICAR, Unwatched

VICTIM = b"root:x:0:0:root:/root:/bin/bash\n"
BATCH = 1000
BATCHES_OF_THE_LONG_FORM = 100
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
        # Leads to it wherever it is at the moment.
        self.handle = os.open(self.directory, os.O_PATH | os.O_DIRECTORY)
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
        os.close(self.handle)


@pytest.fixture
def swapper(home, victim):
    attacker = Swapper(home, victim)
    yield attacker
    attacker.close()


@pytest.fixture
def batches(long_form):
    return BATCHES_OF_THE_LONG_FORM if long_form else 1


def put_in(swapper, unwatched):
    """Infected files of the name that the attacker wants."""
    swapper.start()
    for _ in range(BATCH):
        os.rename(unwatched.file(), "passwd", dst_dir_fd=swapper.handle)
        yield
    swapper.stop()


def settle(tv):
    """Also after so many events that the kernel dropped some, the one that is waited for among them."""
    with contextlib.suppress(AssertionError):
        tv.settle()
        return
    tv.settle()


def test_an_event_deletes_and_copies_no_other_file(tv, home, victim, swapper, batches, report_figure):
    unwatched = Unwatched()
    tv.start()
    copies = 0
    for _ in range(batches):
        for _ in put_in(swapper, unwatched):
            pass
        settle(tv)
        made = tv.quarantined()
        assert set(made.values()) == {EICAR}
        copies += len(made)
        for name in made:
            (tv.quarantine / name).unlink()
        # A long one takes long to look through.
        tv.log_file.unlink()
        assert victim.read_bytes() == VICTIM
    # One a second at most has a name of its own.
    report_figure(f"files moved in while an attacker swaps their directory: {batches * BATCH}, copies: {copies}")


def test_a_listed_file_is_not_mixed_up_with_another(tv, home, victim, swapper, connect, batches, report_figure):
    tv.configure(protection=False, ioc=True, iocAction=DELETE, iocHashes={"0": [hashlib.md5(EICAR).hexdigest()]})
    unwatched = Unwatched()
    tv.start()
    client = connect("demo")
    replies = collections.Counter()
    for _ in range(batches):
        for _ in put_in(swapper, unwatched):
            replies[client.ask(f"SCANIOC {swapper.directory}/passwd").partition(":")[0]] += 1
    assert set(replies) == {"MD5", "CLEAN"}
    report_figure(f"requests while an attacker swaps the file's directory: {dict(replies)}")
