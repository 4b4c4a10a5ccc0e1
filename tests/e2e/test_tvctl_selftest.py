"""`tvctl selftest`: a harmless file, and what becomes of it."""

import json
import os
import re
import shutil
import signal

import pytest

from harness import EICAR, EICAR_NAME, Installation, Path, Unwatched, exists, fresh_directory, wait_until
from storefailures import damage, locked
from tool import Tool
from wellness import start

OWN = "tvctl-selftest-*"


def left_over(tv, *directories):
    """The files of the test that are still there, and their copies."""
    return [path for directory in directories for path in Path(directory).rglob(OWN)] + list(tv.quarantined())


def test_removed(tv, tvctl, home):
    start(tv)
    result = tvctl.run("selftest")
    lines = result.lines()
    assert re.fullmatch(r"Detected and removed on try \d+ after \d+ ms", lines[0])
    assert re.fullmatch(r"file:    /home/tvctl-selftest-[0-9a-f]+\.txt, gone again", lines[1])
    assert re.fullmatch(rf"record:  {EICAR_NAME}, cleaned, 20.* \(stays among the detections\)", lines[2])
    assert len(lines) == 3 and result.errors == ""
    report, = tv.reports()
    assert report["filePath"] in lines[1]
    assert left_over(tv, "/home") == []

    document = tvctl.json("selftest", "--directory", home)
    assert document["detected"] is True and document["outcome"] == "removed" and document["tries"] >= 1
    assert document["path"].startswith(f"{home}/tvctl-selftest-") and document["milliseconds"] < 10000
    assert document["record"]["virus"] == EICAR_NAME and document["record"]["clean_status"] == 0
    assert document["explanation"] is None and document["fix"] is None
    assert len(tv.reports()) == 2


def test_only_its_own_copy_goes(tv, tvctl):
    tv.quarantine.mkdir(exist_ok=True)
    other = tv.quarantine / ("2026-01-01_00-00-00_" + "0" * 32 + ".tvq")
    other.write_bytes(b"other")
    start(tv)
    tvctl.run("selftest")
    assert tv.quarantined() == {other.name: b"other"}


def test_reported(tv, tvctl):
    tv.configure(action=0)
    start(tv)
    document = tvctl.json("selftest")
    assert document["outcome"] == "reported" and document["detected"] is True
    assert document["record"]["clean_status"] == -1
    assert left_over(tv, "/home") == []
    assert tvctl.run("selftest").output.startswith("Detected and reported on try ")


def test_the_service_is_down(tv, tvctl):
    tvctl.fails("selftest", says="tvfilemon does not run: nobody listens on port 8889; start it as root: ")
    assert left_over(tv, "/home") == []


def test_another_program_holds_the_port(tv, tvctl, impostor):
    impostor("nonsense")
    tvctl.fails("selftest", says="is not tvfilemon; see what is wrong: tvctl doctor")


def test_protection_is_off(tv, tvctl):
    tv.configure(protection=False)
    start(tv)
    result = tvctl.run("selftest", status=1)
    assert result.lines() == ["NOT DETECTED: real-time protection is switched off",
                              "fix:     tvctl config set protection.realtime on"]
    document = tvctl.json("selftest", status=1)
    assert document["outcome"] == "not_detected" and document["path"] is None and document["tries"] == 0


def test_a_service_that_sees_no_events(tv, tvctl, home):
    """It answers, and its engine works, but a directory that was moved in is not watched."""
    unwatched = Unwatched()
    (unwatched.path / "d").mkdir()
    start(tv)
    os.rename(unwatched.path / "d", home / "d")
    result = tvctl.run("selftest", "--timeout", "1", "--directory", home / "d", status=1)
    assert result.lines()[0] == ("NOT DETECTED: tvfilemon answers and recognises the file, "
                                 f"but it does not watch {home}/d")
    assert "end it, and start it as root: " in result.lines()[-1]
    document = tvctl.json("selftest", "--timeout", "1", "--directory", home / "d", status=1)
    assert document["detected"] is False and 3 <= document["tries"] <= 6 and document["milliseconds"] >= 1000
    assert document["record"] is None
    assert left_over(tv, "/home") == []


def test_an_engine_that_finds_nothing(home):
    tv = Installation(fresh_directory() / "root", databases=())
    try:
        start(tv)
        result = Tool(tv).run("selftest", "--timeout", "1", status=1)
        assert result.lines()[0] == ("NOT DETECTED: tvfilemon answers, but its engine finds nothing: "
                                     "its signatures are not loaded")
        assert left_over(tv, "/home") == []
    finally:
        tv.close()


def test_a_service_that_hangs(tv, tvctl):
    start(tv)
    tv.pause()
    result = tvctl.run("selftest", "--timeout", "1", status=1)
    assert result.lines()[0] == "NOT DETECTED: tvfilemon does not answer in time: it is busy or hangs"
    assert left_over(tv, "/home") == []
    tv.resume()


def test_a_service_that_wakes_up(tv, tvctl):
    start(tv)
    tv.pause()
    process = tvctl.start("--json", "selftest")
    wait_until(lambda: left_over(tv, "/home"), "the file")
    tv.resume()
    document = json.loads(process.communicate()[0])
    assert process.returncode == 0 and document["outcome"] == "removed"


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_interrupted(tv, tvctl, number):
    start(tv)
    tv.pause()
    process = tvctl.start("selftest", "--timeout", "60")
    path, = wait_until(lambda: left_over(tv, "/home"), "the file")
    wait_until(lambda: path.read_bytes() == EICAR, "the content")
    process.send_signal(number)
    output = process.communicate()[0]
    assert process.returncode == 2
    assert output.startswith(b"Cannot tell: interrupted before anything happened")
    assert left_over(tv, "/home") == []
    tv.resume()


def test_it_is_removed_by_somebody_else(tv, tvctl, home):
    start(tv)
    tv.pause()
    process = tvctl.start("--json", "selftest")
    path, = wait_until(lambda: left_over(tv, "/home"), "the file")
    path.unlink()
    document = json.loads(process.communicate()[0])
    assert process.returncode == 2 and document["outcome"] == "unknown"
    assert "somebody else removed it" in document["explanation"]
    tv.resume()


@pytest.mark.parametrize("directory, says", [
    ("/opt", "/opt is not watched: name a directory below /home or /media"),
    ("/home/none", "/home/none is no directory"),
    ("/home/../opt", "/opt is not watched"),
    ("/home/link", "/home/link is not watched"),
])
def test_a_directory_that_will_not_do(tv, tvctl, directory, says):
    start(tv)
    os.symlink("/opt", "/home/link")
    tvctl.fails("selftest", "--directory", directory, says=says)


def test_a_link_into_a_watched_directory(tv, tvctl, home):
    start(tv)
    os.symlink(home, "/home/link")
    assert tvctl.json("selftest", "--directory", "/home/link")["path"].startswith(f"{home}/")


def test_the_first_root_that_can_be_written_to(tv, tvctl, mounts):
    start(tv)
    mounts.read_only("/home")
    assert tvctl.json("selftest")["path"].startswith("/media/")
    tvctl.fails("selftest", "--directory", "/home/u", says="cannot write into /home/u: Read-only file system")
    mounts.read_only("/media")
    tvctl.fails("selftest", says="there is no watched directory that can be written to (/home, /media)")


def test_a_name_that_is_not_utf8(tv, tvctl, home):
    directory = os.fsencode(home) + b"/\xff"
    os.mkdir(directory)
    start(tv)
    document = tvctl.json("selftest", "--directory", directory)
    assert document["outcome"] == "removed" and document["path"].startswith(f"{home}/\\xff/tvctl-selftest-")
    assert "path_base64" in document
    assert left_over(tv, "/home") == []


def test_the_records_are_locked(tv, tvctl):
    tv.add_reports([])
    start(tv)
    with locked(tv.settings / "reports.db"):
        result = tvctl.run("selftest")
        document = tvctl.json("selftest")
    assert result.lines()[2].startswith("record:  it cannot be read: the detection records cannot be read")
    assert document["outcome"] == "removed" and document["record"] is None
    assert document["record_problem"].startswith("the detection records cannot be read")
    assert left_over(tv, "/home") == []


def test_the_records_are_locked_and_nothing_is_cleaned(tv, tvctl):
    """Whether there is a record decides then, and nobody knows."""
    tv.configure(action=0)
    tv.add_reports([])
    start(tv)
    with locked(tv.settings / "reports.db"):
        document = tvctl.json("selftest", "--timeout", "1", status=2)
    assert document["outcome"] == "unknown"
    assert "only reports it" in document["explanation"] and "records cannot be read" in document["explanation"]


def test_the_stores_are_gone(tv, tvctl):
    start(tv)
    shutil.rmtree(tv.settings)
    document = tvctl.json("selftest", status=None)
    assert document["record"] is None and f"there is no {tv.settings}" in document["record_problem"]


@pytest.mark.parametrize("store", ["tvcore.db", "reports.db"])
def test_a_store_is_damaged(tv, tvctl, store):
    tv.configure(action=1)
    tv.add_reports([])
    damage(tv.settings / store)
    start(tv)
    document = tvctl.json("selftest", status=0)
    assert document["outcome"] == "removed" and document["record_problem"] is None
    assert len(list(tv.settings.glob(f"{store}.corrupt-*"))) == 1


@pytest.mark.parametrize("seconds", ["0", "-1", "3601", "x"])
def test_a_bad_limit(tvctl, seconds):
    tvctl.fails("selftest", "--timeout", seconds, says="see tvctl selftest --help")


def test_without_roots_rights(tv, tvctl, home):
    os.chown(home, 1234, 1234)
    tv.settings.mkdir(exist_ok=True)
    tv.settings.chmod(0o700)
    start(tv)
    plain = {"user": 1234, "group": 1234, "extra_groups": []}
    document = tvctl.json("selftest", "--directory", home, **plain)
    assert document["outcome"] == "removed" and document["record"] is None
    tv.pause()
    document = tvctl.json("selftest", "--directory", home, "--timeout", "1", status=1, **plain)
    assert "does not answer in time" in document["explanation"]
    tv.resume()
    # Nobody but root can tell a service that only reports from one that sees nothing.
    tv.configure(action=0)
    tvctl.run("reload", "settings")
    document = tvctl.json("selftest", "--directory", home, "--timeout", "1", status=2, **plain)
    assert document["outcome"] == "unknown" and document["fix"] == "sudo tvctl selftest"
    assert not exists(home / OWN)
    # This user has no home.
    tvctl.fails("selftest", says="--directory", **plain)
