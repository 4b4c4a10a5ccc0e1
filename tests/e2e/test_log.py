"""Every line that the service writes: its level, the member function that it names, its text."""

import errno
import os
import re

from harness import (KNOWN_LINES, Chroot, Installation, Unwatched, cleaned, is_known, is_line, wait_gone,
                     write_once)

# What only a client of the command socket brings about.
COMMANDS = re.compile(r"CSocket|CClient|IOC|.*::reload")


def lines_of_a_full_life(tv, home, mounts):
    """The log of a service that everything happens to."""
    unwatched = Unwatched()
    busy = home / "busy"
    busy.write_bytes(b"")
    mounts.bind(busy, busy)
    os.mkdir(home / "%1")
    tv.quarantine.write_bytes(b"in the way")
    tv.start()
    tv.pause()
    write_once(home / "eicar")
    unwatched.move_in(home / "eicar")
    with open(busy, "wb", buffering=0) as file:
        file.write(unwatched.file().read_bytes())
    (home / "new").mkdir()
    (home / "%1" / "new").mkdir()
    tv.resume()
    tv.wait_log(*cleaned(busy, 1))
    tv.settle()
    (home / "new").rename(home / "renamed")
    (home / "renamed").rmdir()
    os.symlink("/nowhere", home / "dangling")
    tv.settle()
    return tv.log()


def lines_of_a_poor_life(home, mounts):
    """The log of a service without /media, with a database that is none."""
    chroot = Chroot(mounts, media=False)
    tv = Installation(f"{chroot.path}/opt/a/suite")
    (tv.db / "damaged.cvd").write_bytes(b"damaged")
    try:
        tv.configure(action=0)
        tv.start(command=chroot.command("/opt/a/suite/bin/tvfilemon"))
        tv.settle()
        return tv.log()
    finally:
        tv.close()


def test_every_line(tv, home, mounts):
    tv.configure(protection=True)
    log = lines_of_a_full_life(tv, home, mounts)
    log += lines_of_a_poor_life(home, mounts)
    assert [line for line in log if not is_known(line)] == []
    expected = [known for known in KNOWN_LINES if not COMMANDS.match(known[1])]
    assert [known for known in expected if not any(is_line(line, *known) for line in log)] == []


def test_without_media(home, mounts):
    chroot = Chroot(mounts, media=False)
    tv = Installation(f"{chroot.path}/opt/a/suite")
    try:
        tv.start(command=chroot.command("/opt/a/suite/bin/tvfilemon"))
        lines = tv.log()
        assert [line.what() for line in lines[-3:]] == [
            ("INFO", "FileMonitor::startMonitoring", "Watching: /home"),
            ("ERROR", "FileMonitor::addToWatchRecursive", "Failed to add path for watch: /media"),
            ("INFO", "FileMonitor::startMonitoring", "Watching: /media"),
        ]
        assert lines[-2].code == errno.ENOENT
        wait_gone(write_once(home / "eicar"))
    finally:
        tv.close()
    tv.check_log()


def test_no_more_watches(tv, home, watch_limit):
    """Each directory that cannot be watched is told of, and the others are watched."""
    for number in range(10):
        (home / str(number) / "inside").mkdir(parents=True)
    watch_limit(6)
    tv.start()
    refused = [line for line in tv.log() if line.level == "ERROR"]
    assert {line.location for line in refused} == {"FileMonitor::addToWatchRecursive"}
    assert {line.code for line in refused} == {errno.ENOSPC}
    # What is below a directory that was refused is not tried.
    tried = {line.message.rpartition(" ")[2] for line in refused}
    assert not [path for path in tried if os.path.dirname(path) in tried]
    wait_gone(write_once(home / "eicar"))
    (home / "later").mkdir()
    last = tv.wait_log("ERROR", "FileMonitor::addNewDirToWatchRecursive",
                       f"Failed to add path for watch: {home}/later")
    assert last.code == errno.ENOSPC
