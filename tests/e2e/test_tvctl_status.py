"""`tvctl status`: whether somebody is protected, in one screen."""

import os
import subprocess
import time

import pytest

from harness import Installation, Unwatched, fresh_directory, wait_gone, wait_until, write_once
from storefailures import damage, locked
from tool import Tool
from wellness import make_well, set_age, start

PROTECTED = "Protected."


@pytest.fixture
def well(tv):
    return make_well(tv)


def says(tvctl, first_line, status=1, **options):
    """The first line of the screen, and the same in JSON; returns the document."""
    result = tvctl.run("status", status=status, **options)
    assert result.lines()[0] == first_line, result
    document = tvctl.json("status", status=status, **options)
    assert document["protected"] is {0: True, 1: False, 2: None}[status]
    if status:
        assert first_line.partition(": ")[2] == "; ".join(document["reasons"])
    return document


def rows(result):
    """What stands behind each name."""
    return [tuple(line.split("  ", 1)) for line in result.lines()[2:] if not line.startswith("warning: ")]


def test_protected(well, tvctl, home):
    well.configure(ioc=True, iocAction=2)
    start(well)
    number = well.process.pid
    wait_gone(write_once(home / "eicar"))
    wait_until(lambda: well.reports(), "the record")
    result = tvctl.run("status")
    assert result.lines()[:2] == [PROTECTED, ""] and result.errors == ""
    shown = {name: value.strip() for name, value in rows(result)}
    assert shown["service"].startswith(f"running, answers, process {number}, for ")
    assert shown["protection"] == "on"
    assert shown["scan action"] == "clean (copy into quarantine, then remove)"
    assert shown["IOC scan"] == "on, action delete"
    assert shown["IOC lists"] == "MD5 0, SHA-1 0, SHA-256 0"
    assert shown["last load"].startswith("succeeded, 20")
    assert shown["watches"].startswith("3 directories, 3 needed, the kernel's limit is ")
    assert shown["detections"] == "1 in the last 24 h"
    assert shown["quarantine"] == "1 files, 68.00 bytes"
    files = [value.strip() for name, value in rows(result) if name == "signatures"]
    assert [line.split(",")[0] for line in files] == ["test-5.cvd: version 5", "test-6.cvd: version 6"]
    assert all(line.endswith(" signatures, 0 days old") for line in files)

    document = tvctl.json("status")
    assert document["protected"] is True and document["reasons"] == []
    assert document["service"]["state"] == "running" and document["service"]["process_id"] == number
    assert document["service"]["engine_detects"] is True
    assert document["service"]["uptime_seconds"] < 100
    assert document["realtime"] is True and document["scan_action"] == 1
    assert document["ioc"] == {"enabled": True, "action": 2, "md5": 0, "sha1": 0, "sha256": 0}
    assert [(file["name"], file["version"], file["age_days"], file["problem"]) for file in document["signatures"]] \
        == [("test-5.cvd", 5, 0, None), ("test-6.cvd", 6, 0, None)]
    assert document["last_load"]["result"] == "succeeded" and document["last_load"]["error_code"] is None
    watches = document["watches"]
    assert (watches["needed"], watches["active"], watches["missing"], watches["counted_all"]) == (3, 3, 0, True)
    assert document["detections_last_day"] == 1
    assert document["quarantine"] == {"files": 1, "bytes": 68}


def test_hash_lists_are_counted(well, tvctl):
    well.configure(iocHashes={"0": ["0" * 32], "2": ["1" * 64, "2" * 64]})
    start(well)
    assert tvctl.json("status")["ioc"] == {"enabled": False, "action": 0, "md5": 1, "sha1": 0, "sha256": 2}


def test_the_service_is_down(well, tvctl):
    document = says(tvctl, "NOT PROTECTED: tvfilemon does not run: nobody listens on port 8889")
    assert document["service"] == {"state": "down", "process_id": None, "uptime_seconds": None,
                                   "engine_detects": None}
    # The rest is there all the same.
    assert document["realtime"] is True and len(document["signatures"]) == 2


def test_there_is_no_installation(well, tvctl):
    result = tvctl.run("--root", "/nowhere", "status", status=1)
    assert result.lines()[0].startswith("NOT PROTECTED: tvfilemon does not run")
    assert tvctl.json("--root", "/nowhere", "status", status=1)["realtime"] is None


def test_a_service_that_hangs_does_not_hang_the_tool(well, tvctl):
    start(well)
    well.pause()
    began = time.monotonic()
    assert tvctl.run("status", status=1).lines()[0] == \
        f"NOT PROTECTED: tvfilemon was stopped by somebody (process {well.process.pid})"
    # Three for the service, and what a busy machine takes for the rest.
    assert 3 <= time.monotonic() - began < 10
    well.resume()
    says(tvctl, PROTECTED, 0)


def test_the_engine_is_believed_and_not_the_log(well, tvctl):
    start(well)
    with open(well.log_file, "ab") as log:
        log.write(b"2026-01-01 00:00:00:000  [ERROR]  [CScanFile::loadDatabases] :: [0x00000000]: "
                  b"Failed to load database. Path: x.cvd Error: 4\r\n")
    document = says(tvctl, PROTECTED, 0)
    assert document["last_load"]["file"] == "x.cvd" and document["last_load"]["error_code"] == 4
    assert document["warnings"] == ["the log says that the signatures could not be loaded"]


def test_protection_is_off(well, tvctl):
    well.configure(protection=False)
    start(well)
    document = says(tvctl, "NOT PROTECTED: real-time protection is switched off")
    assert document["realtime"] is False


def test_a_database_could_not_be_loaded(well, tvctl):
    (well.db / "broken.cvd").write_bytes(b"no database")
    start(well)
    document = says(tvctl, "NOT PROTECTED: broken.cvd could not be loaded, so nothing is found")
    load = document["last_load"]
    assert load["result"] == "failed" and load["file"] == "broken.cvd" and load["error_code"] > 0
    assert document["service"]["engine_detects"] is False
    assert "broken.cvd: not a signature database" in document["warnings"]
    text = tvctl.run("status", status=1)
    assert any(name == "signatures" and "broken.cvd: not a signature database" in value
               for name, value in rows(text))
    (well.db / "broken.cvd").unlink()
    tvctl.run("reload", "db")
    says(tvctl, PROTECTED, 0)


def test_there_are_no_signatures(home):
    tv = make_well(Installation(fresh_directory() / "root", databases=()))
    try:
        start(tv)
        document = says(Tool(tv), "NOT PROTECTED: there are no signatures, so nothing is found")
        assert document["signatures"] == []
    finally:
        tv.close()


def on_terminal(tvctl, *arguments, **environment):
    """What it writes to one."""
    controller, terminal = os.openpty()
    with os.fdopen(controller, "rb") as screen:
        subprocess.run(tvctl.command(*arguments), stdin=terminal, stdout=terminal, stderr=subprocess.DEVNULL,
                       env=tvctl.environment(**{"TERM": "xterm", **environment}), check=False)
        os.close(terminal)
        shown = b""
        try:
            while True:
                shown += os.read(screen.fileno(), 65536)
        except OSError:
            # Nobody has the terminal open any more.
            return shown


def test_colours(tvctl):
    assert b"\x1b[1;31mNOT PROTECTED" in on_terminal(tvctl, "status")
    # Set to nothing it says nothing.
    assert b"\x1b[" in on_terminal(tvctl, "status", NO_COLOR="")
    for arguments, environment in ((["--no-color"], {}), (["--no-colour"], {}), ([], {"NO_COLOR": "1"})):
        shown = on_terminal(tvctl, *arguments, "status", **environment)
        assert b"NOT PROTECTED" in shown and b"\x1b" not in shown
    assert b"\x1b" not in on_terminal(tvctl, "status", TERM="dumb")
    assert "\x1b" not in tvctl.run("status", status=1, environment={"TERM": "xterm"}).output


def test_old_signatures(well, tvctl):
    set_age(well, 30)
    start(well)
    document = says(tvctl, PROTECTED, 0)
    (warning,) = document["warnings"]
    assert warning.startswith(f"the signatures are 30 days old: put new *.cvd files into {well.db} (freshclam ")
    assert tvctl.run("status").lines()[-1] == f"warning: {warning}"


def test_nothing_is_watched(well, tvctl, watch_limit):
    watch_limit(0)
    start(well)
    document = says(tvctl, "NOT PROTECTED: no directory is watched")
    assert document["watches"]["active"] == 0 and document["watches"]["limit"] == 0


def test_an_unwatched_directory(well, tvctl, home):
    unwatched = Unwatched()
    (unwatched.path / "d").mkdir()
    start(well)
    os.rename(unwatched.path / "d", home / "d")
    document = says(tvctl, PROTECTED, 0)
    assert document["watches"]["missing"] == 1
    assert "1 of 4 directories are not watched: see tvctl doctor" in document["warnings"]


def test_files_are_only_reported(well, tvctl):
    well.configure(action=0)
    start(well)
    document = says(tvctl, PROTECTED, 0)
    assert document["warnings"] == ["infected files are reported only, and stay where they are"]
    assert ("scan action", "report only") in [(name, value.strip()) for name, value in rows(tvctl.run("status"))]


@pytest.mark.parametrize("store, word", [("tvcore.db", "realtime"), ("reports.db", "detections_last_day")])
def test_a_store_cannot_be_read(well, tvctl, store, word):
    (well.settings / store).mkdir()
    start(well)
    result = tvctl.run("status", status=2)
    document = tvctl.json("status", status=2)
    assert document[word] is None and document["service"]["engine_detects"] is True
    if store == "tvcore.db":
        assert document["protected"] is None
        assert result.lines()[0].startswith("Cannot tell: the settings cannot be read")
    else:
        assert document["protected"] is True and "detection records cannot be read" in document["warnings"][0]


@pytest.mark.parametrize("store, word", [("tvcore.db", "realtime"), ("reports.db", "detections_last_day")])
def test_a_store_is_locked(well, tvctl, store, word):
    well.configure()
    well.add_reports([])
    with locked(well.settings / store):
        document = tvctl.json("status", status=1)
    assert document[word] is None and document["service"]["state"] == "down"
    if store == "reports.db":
        assert "try again when nobody else uses the store" in document["warnings"][0]


@pytest.mark.parametrize("store", ["tvcore.db", "reports.db"])
def test_a_store_is_damaged(well, tvctl, store):
    well.configure(action=1)
    well.add_reports([])
    damage(well.settings / store)
    result = tvctl.run("status", status=1)
    assert "set aside" in result.errors and f"{store}.corrupt-" in result.errors
    document = tvctl.json("status", status=1)
    assert document["realtime"] is True and document["detections_last_day"] == 0


def test_another_program_holds_the_port(well, tvctl, impostor):
    impostor("nonsense")
    says(tvctl, "NOT PROTECTED: what answers on port 8889 is not tvfilemon")


def test_a_huge_log(well, tvctl):
    start(well)
    # With a hole in it, behind everything that tells.
    with open(well.log_file, "ab") as log:
        log.truncate(4 << 30)
    began = time.monotonic()
    assert tvctl.json("status")["last_load"]["result"] == "unknown"
    assert time.monotonic() - began < 10
    well.log_file.unlink()


def test_without_roots_rights(well, tvctl):
    start(well)
    plain = {"user": 1234, "group": 1234, "extra_groups": []}
    result = tvctl.run("status", status=2, **plain)
    assert result.lines()[0].startswith("Cannot tell: cannot look into ") and "sudo tvctl" in result.lines()[0]
    document = tvctl.json("status", status=2, **plain)
    assert document["protected"] is None and document["service"]["engine_detects"] is True
    assert document["service"]["process_id"] == well.process.pid
    assert document["quarantine"] == {"files": None, "bytes": None}
    assert document["watches"]["active"] is None and document["watches"]["needed"] >= 2


def test_whom_the_firewall_keeps_away(well, tvctl):
    start(well)
    guard = well.root / "bin" / "tvfilemon-firewall"
    subprocess.run([guard, "start"], check=True)
    try:
        says(tvctl, PROTECTED, 0)
        document = says(tvctl, "Cannot tell: only root may ask tvfilemon: sudo tvctl status", 2, user=1234, group=1234,
                        extra_groups=[])
        assert document["service"]["state"] == "barred"
    finally:
        subprocess.run([guard, "stop"], check=True)
