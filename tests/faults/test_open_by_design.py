"""What stays open by design, and what finds it all the same.

A test here that fails tells that the service has learnt to close the hole: docs/reliability.md is to say so then.
"""

import mmap
import os
import subprocess

import pytest

from commandclient import PORT, start_slow_scan
from harness import (EICAR, KLEZ_NAME, KLEZ_PATTERN, Path, directory_removed, exists, wait_gone, wait_until,
                     write_once)
from tool import KEPT_CHANGE_TIMES, Tool
from wellness import make_well, start

SOMEBODY = 1000

# The largest file of which libclamav reads more than nothing.
LARGEST = 100 * 1024 * 1024


@pytest.fixture
def tvctl(tv):
    return Tool(tv, KEPT_CHANGE_TIMES)


def as_somebody(*command):
    return subprocess.run(["setpriv", f"--reuid={SOMEBODY}", f"--regid={SOMEBODY}", "--clear-groups", *command],
                          stdout=subprocess.PIPE, check=True, text=True, timeout=30).stdout


ASK = """
import socket, sys
connection = socket.create_connection(("127.0.0.1", int(sys.argv[1])))
for request in sys.argv[2:]:
    connection.sendall(request.encode())
    print(connection.recv(4096).decode())
"""


def sweep(tvctl, *found):
    """A sweep finds these, and removes them."""
    document = tvctl.json("sweep", status=1)
    assert sorted(entry["path"] for entry in document["detections"]) == sorted(map(str, found))
    assert not any(map(exists, found))


def is_seen(tv, path):
    """Whether the monitor cleans what is written to the path."""
    write_once(path)
    tv.settle()
    return not exists(path)


def test_the_port_asks_nobody_who_he_is(tv, files, home):
    """Any user has a file of root's removed, unless the firewall of the installation bars him."""
    tv.start()
    victim = write_once(files / "of root", b"not infected")
    os.chmod(victim, 0o600)
    assert as_somebody("/usr/bin/python3", "-c", ASK, str(PORT), "MODULE demo", f"CLEAN {victim}") == \
        "REGISTERED!\nFAILED 0\n"
    assert not exists(victim)
    # The reply that reads the wrong way round. There was a copy first.
    assert list(tv.quarantined().values()) == [b"not infected"]


def forget_everything(tv, home):
    """What an ordinary user does in his own directory."""
    for name in ("a", "ab"):
        (home / name).mkdir()
    tv.settle()
    # Those that begin alike are forgotten with it, and the kernel goes on to tell of them.
    (home / "a").rmdir()
    tv.settle()
    # Nobody knows where: the path begins with nothing.
    (home / "ab" / "home").mkdir()
    (home / "ab" / "home").rmdir()
    tv.wait_log(*directory_removed("/home"))


def test_a_user_makes_the_monitor_forget_what_lies_below_home(tv, tvctl, home):
    make_well(tv)
    (home / "d").mkdir()
    start(tv)
    assert is_seen(tv, home / "d" / "before")
    forget_everything(tv, home)
    hidden = [write_once(home / "hidden"), write_once(home / "d" / "hidden")]
    # Its directory has no name any more, so that the file is looked for elsewhere.
    tv.wait_log("ERROR", "FileMonitor::scanFile", "Error File Scanning | Error:8 | /hidden")
    assert all(map(exists, hidden))
    result = tvctl.run("selftest", "--timeout", "1", "--directory", home, status=1)
    assert "but it no longer sees what is written" in result.output
    sweep(tvctl, *hidden)


def test_a_renamed_directory_is_looked_for_under_its_old_name(tv, tvctl, home):
    (home / "old").mkdir()
    tv.start()
    os.rename(home / "old", home / "new")
    hidden = home / "new" / "hidden"
    assert not is_seen(tv, hidden)
    sweep(tvctl, hidden)


def test_a_partial_download_is_not_scanned(tv, tvctl, home):
    tv.start()
    hidden = home / "download.part"
    assert not is_seen(tv, hidden)
    # Under the name that it gets in the end it is.
    os.rename(hidden, home / "download")
    wait_gone(home / "download")
    assert not is_seen(tv, hidden)
    sweep(tvctl, hidden)


def test_what_is_named_like_a_copy_in_quarantine_is_not_scanned(tv, tvctl, home):
    tv.start()
    hidden = home / "program.tvq"
    assert not is_seen(tv, hidden)
    # Nor by a sweep, which goes by the same exclusions.
    assert tvctl.json("sweep")["detections"] == [] and exists(hidden)
    os.rename(hidden, home / "program")
    wait_gone(home / "program")


def test_a_write_through_a_mapping_is_no_event(tv, tvctl, home):
    tv.start()
    hidden = write_once(home / "mapped", bytes(len(EICAR)))
    tv.settle()
    with open(hidden, "r+b") as file, mmap.mmap(file.fileno(), len(EICAR)) as mapping:
        mapping[:] = EICAR
    tv.settle()
    assert hidden.read_bytes() == EICAR
    sweep(tvctl, hidden)


def test_a_file_system_mounted_later_is_not_watched(tv, tvctl, mounts):
    stick = Path("/media/stick")
    stick.mkdir()
    tv.start()
    mounts.tmpfs(stick)
    hidden = stick / "hidden"
    assert not is_seen(tv, hidden)
    sweep(tvctl, hidden)


def test_an_engine_that_could_not_be_loaded_again_finds_nothing(tv, tvctl, connect, home):
    make_well(tv)
    start(tv)
    (tv.db / "z.cvd").write_bytes(b"this is no database\n" * 100)
    assert connect("demo").ask("RELOADDB") == "FAILED"
    assert not is_seen(tv, home / "hidden")
    checks = {check["name"]: check["result"] for check in tvctl.json("doctor", status=1)["checks"]}
    assert checks["engine"] == "failed"
    assert tvctl.run("selftest", "--timeout", "1", status=1).output.startswith("NOT DETECTED: ")
    (tv.db / "z.cvd").unlink()
    tvctl.run("reload", "db")
    assert is_seen(tv, home / "later")


@pytest.mark.parametrize("size, answer", [(LARGEST, f"INFECTED {KLEZ_NAME}"), (LARGEST + 1, "CLEAN")])
def test_a_file_above_the_engine_s_limits_is_answered_clean(tv, connect, files, size, answer):
    """Nobody else helps here: the tool asks the same engine."""
    large = write_once(files / "large", KLEZ_PATTERN)
    os.truncate(large, size)
    tv.start()
    assert connect("demo").ask(f"SCAN {large}") == answer


def test_a_file_that_takes_long_holds_up_the_others(tv, connect, slow_file, home):
    """The engine allows one file two minutes; whatever else happens waits that long, and is not forgotten."""
    tv.start()
    client = connect("demo")
    start_slow_scan(tv, client, slow_file)
    waiting = write_once(home / "waiting")
    wait_until(client.has_input, "the slow scan")
    assert client.receive() == "CLEAN"
    wait_gone(waiting)
    tv.settle()
    assert [record["filePath"] for record in tv.reports()] == [str(waiting)]
