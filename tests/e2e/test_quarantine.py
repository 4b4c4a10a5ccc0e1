"""Quarantine copies, and what happens when none can be made."""

import errno
import hashlib
import os
import stat
import time
from datetime import datetime

import pytest

from harness import (EICAR, KLEZ_PATTERN, Unwatched, backup_error, cleaned, exists, found, quarantine_name,
                     wait_gone, write_once)


def check_cleaned_without_copy(tv, path, code):
    wait_gone(path)
    lines = [line for line in tv.settle() if "eicar.com" in line.message]
    assert [line.what() for line in lines] == [found(path), backup_error(path), cleaned(path)]
    assert lines[1].code == code
    assert [record["cleanStatus"] for record in tv.reports()] == [0]


def test_a_plain_file_in_its_place(tv, home):
    unwatched = Unwatched()
    tv.quarantine.write_bytes(b"in the way")
    tv.start()
    check_cleaned_without_copy(tv, unwatched.move_in(home / "eicar.com"), errno.ENOTDIR)
    assert tv.quarantine.read_bytes() == b"in the way"


def test_a_dangling_link_in_its_place(tv, home):
    unwatched = Unwatched()
    os.symlink("/nowhere/at/all", tv.quarantine)
    tv.start()
    check_cleaned_without_copy(tv, unwatched.move_in(home / "eicar.com"), errno.ENOENT)


def test_read_only(tv, home, mounts):
    unwatched = Unwatched()
    tv.quarantine.mkdir()
    mounts.read_only(tv.quarantine)
    tv.start()
    check_cleaned_without_copy(tv, unwatched.move_in(home / "eicar.com"), errno.EROFS)
    assert tv.quarantined() == {}


def test_a_full_disk(tv, home, mounts):
    """A copy that fails half-way leaves nothing behind."""
    unwatched = Unwatched()
    tv.quarantine.mkdir()
    mounts.tmpfs(tv.quarantine, b"size=1m")
    tv.start()
    content = KLEZ_PATTERN + bytes(3 << 20)
    check_cleaned_without_copy(tv, unwatched.move_in(home / "eicar.com", content), errno.ENOSPC)
    assert tv.quarantined() == {}
    # There is room again for what fits.
    wait_gone(unwatched.move_in(home / "small"))
    assert list(tv.quarantined().values()) == [EICAR]


def test_made_again_when_it_is_removed(tv, home):
    unwatched = Unwatched()
    tv.start()
    wait_gone(unwatched.move_in(home / "one"))
    tv.settle()
    for path in tv.quarantine.iterdir():
        path.unlink()
    tv.quarantine.rmdir()
    wait_gone(unwatched.move_in(home / "two"))
    assert [quarantine_name(home / "two").fullmatch(name) is not None for name in tv.quarantined()] == [True]


def test_an_infected_file_of_some_size(tv, home):
    unwatched = Unwatched()
    tv.start()
    content = os.urandom(5 << 20) + KLEZ_PATTERN + os.urandom(1234567)
    wait_gone(unwatched.move_in(home / "large", content))
    assert list(tv.quarantined().values()) == [content]


def test_a_copy_is_for_nobody_else_and_no_program(tv, home):
    unwatched = Unwatched()
    tv.start()
    source = unwatched.file()
    source.chmod(0o6777)
    os.rename(source, home / "eicar")
    wait_gone(home / "eicar")
    [copy] = tv.quarantine.iterdir()
    assert stat.S_IMODE(copy.stat().st_mode) == 0o400
    assert stat.S_IMODE(tv.quarantine.stat().st_mode) == 0o700


def test_a_name_of_its_own_for_every_path(tv, home):
    unwatched = Unwatched()
    tv.start()
    paths = [home / str(number) for number in range(50)]
    for path in paths:
        unwatched.move_in(path)
    for path in paths:
        wait_gone(path)
    tv.settle()
    assert len(tv.quarantined()) == 50
    for path in paths:
        assert sum(bool(quarantine_name(path).fullmatch(name)) for name in tv.quarantined()) == 1


@pytest.mark.parametrize("attack", ["link", "directory"])
def test_the_name_is_already_taken(tv, home, attack):
    """Nothing that lies in quarantine is followed or replaced. The name has the second in it, so every
    second of the test is taken."""
    unwatched = Unwatched()
    victim = unwatched.file(b"victim")
    path = home / "eicar.com"
    tv.quarantine.mkdir()
    digest = hashlib.md5(os.fsencode(path)).hexdigest()
    now = int(time.time())
    for second in range(now, now + 120):
        name = datetime.fromtimestamp(second).strftime("%Y-%m-%d_%H-%M-%S_") + digest + ".tvq"
        if attack == "link":
            os.symlink(victim, tv.quarantine / name)
        else:
            (tv.quarantine / name).mkdir()
    tv.start()
    check_cleaned_without_copy(tv, unwatched.move_in(path), errno.EEXIST)
    assert victim.read_bytes() == b"victim"
    assert len(list(tv.quarantine.iterdir())) == 120


def test_the_original_stays_until_its_copy_is_there(tv, home):
    """Whenever the file is gone, the copy is complete, and so is whatever has a copy's name."""
    unwatched = Unwatched()
    tv.start()
    content = KLEZ_PATTERN + bytes(20 << 20)
    path = unwatched.move_in(home / "large", content)
    while exists(path):
        for copy in tv.quarantine.iterdir() if tv.quarantine.exists() else ():
            if quarantine_name(path).fullmatch(copy.name):
                assert copy.stat().st_size == len(content)
            else:
                assert copy.name.endswith(".tvq")
    [copy] = tv.quarantine.iterdir()
    assert copy.stat().st_size == len(content)


def test_an_infected_file_in_a_hard_linked_pair(tv, home):
    """Each name is an event of its own; what stays is no longer infected anywhere that is watched."""
    unwatched = Unwatched()
    tv.start()
    first = unwatched.move_in(home / "first")
    tv.settle()
    assert not exists(first)
    tv.pause()
    write_once(home / "second")
    os.link(home / "second", home / "third")
    tv.resume()
    wait_gone(home / "second")
    wait_gone(home / "third")
