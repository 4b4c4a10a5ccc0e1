"""`tvctl` commands that are one request to the service, and what all commands have in common."""

import os
import subprocess

import pytest

from harness import EICAR, EICAR_NAME, wait_until
from wellness import start


@pytest.mark.parametrize("part, line", [
    ("db", "Reload DB command recieved."),
    ("settings", "Reload settings command recieved."),
    ("ioc-db", "Reload IOCDB command recieved."),
    ("ioc-settings", "Reload IOCSettings command recieved."),
])
def test_reload(tv, tvctl, part, line):
    tv.start()
    assert tvctl.run("reload", part).output == f"reloaded: {part}\n"
    tv.wait_log("TRACE", "CSocketManager::onClientReceivedMessage", line)
    assert tvctl.json("reload", part) == {"reloaded": part}


def test_a_reload_only_if_it_runs(tv, tvctl):
    assert tvctl.run("reload", "--if-running", "db").output.startswith("tvfilemon does not run")
    assert tvctl.json("reload", "--if-running", "db") == {"reloaded": None, "reload": "service down"}
    tv.start()
    assert tvctl.run("reload", "--if-running", "db").output == "reloaded: db\n"
    assert tvctl.json("reload", "--if-running", "db") == {"reloaded": "db", "reload": "done"}
    (tv.db / "broken.cvd").write_bytes(b"no database")
    result = tvctl.run("reload", "--if-running", "db", status=2)
    assert result.output == "" and "tvfilemon did not reload" in result.errors
    assert tvctl.json("reload", "--if-running", "db", status=2) == {"reloaded": None, "reload": "failed"}


def test_a_reload_that_fails(tv, tvctl):
    tv.start()
    (tv.db / "broken.cvd").write_bytes(b"no database")
    tvctl.fails("reload", "db", says=f"could not reload db; its log tells why: {tv.log_file}")


def test_url(tv, tvctl):
    tv.start()
    eicar = EICAR.decode()
    result = tvctl.run("url", "http://x.invalid/ä", eicar, status=1)
    assert result.lines() == ["http://x.invalid/ä: clean", f"{eicar}: infected, {EICAR_NAME}"]
    assert tvctl.json("url", "http://x.invalid", eicar, status=1) == {"results": [
        {"text": "http://x.invalid", "result": "clean"},
        {"text": eicar, "result": "infected", "virus": EICAR_NAME},
    ]}
    assert tvctl.run("url", "clean").status == 0


@pytest.mark.parametrize("text, says", [
    (b"\xff", "not UTF-8"),
    ("two\nlines", "line end"),
    ("x" * 5000, "longer than the 4088 bytes"),
])
def test_a_text_that_cannot_be_sent(tv, tvctl, text, says):
    tv.start()
    tvctl.fails("url", text, says=says)


@pytest.mark.parametrize("arguments", [("reload", "db"), ("url", "x")])
def test_the_service_is_down(tvctl, arguments):
    tvctl.fails(*arguments, says="tvfilemon does not run: nobody listens on port 8889; start it as root: ")


@pytest.fixture
def barred(tv, home):
    """Starts the service; the result is how to run the tool as a user whom the firewall does not let ask it."""
    tv.configure(ioc=True)
    start(tv)
    tv.settings.chmod(0o755)
    guard = tv.root / "bin" / "tvfilemon-firewall"
    subprocess.run([guard, "start"], check=True)
    yield {"user": 1234, "group": 1234, "extra_groups": [], "cwd": "/"}
    subprocess.run([guard, "stop"], check=True)


@pytest.mark.parametrize("arguments", [("scan", "/home/u"), ("clean", "/home/u/x"), ("ioc", "scan", "/home/u"),
                                       ("url", "x"), ("reload", "db")])
def test_whom_the_firewall_bars(barred, tvctl, arguments):
    """Starting a service that runs would not help."""
    for _ in range(2):
        result = tvctl.run(*arguments, status=2, **barred)
        assert result.errors.splitlines()[-1] == "tvctl: only root may ask tvfilemon: sudo tvctl ..."
    assert tvctl.json(*arguments, status=2, **barred) == {"error": "only root may ask tvfilemon: sudo tvctl ..."}


def test_a_reload_only_if_it_runs_by_whom_the_firewall_bars(barred, tvctl):
    arguments = ("reload", "--if-running", "ioc-db")
    result = tvctl.run(*arguments, status=2, **barred)
    assert (result.output, result.errors) == ("", "tvctl: tvfilemon did not reload: only root may ask tvfilemon; "
                                                  "try sudo tvctl reload ioc-db\n")
    assert tvctl.json(*arguments, status=2, **barred) == {"reloaded": None, "reload": "failed"}


def test_another_program_behind_the_firewall(barred, tv, tvctl, impostor):
    """Root is not to be sent to it."""
    tv.stop()
    impostor("nonsense", user=4321)
    tvctl.fails("url", "x", says="port 8889 is held by a program of user 4321", **barred)


def test_a_busy_service_is_waited_for(tv, tvctl, connect, slow_file):
    tv.start()
    connect("demo").send(f"SCAN {slow_file}")
    assert tvctl.run("url", "x").output == "x: clean\n"


def test_a_service_that_hangs_is_told(tv, tvctl):
    start(tv)
    tv.pause()
    process = tvctl.start("url", "x")
    wait_until(lambda: b"waiting for tvfilemon, which is busy" in process.stderr.readline(), "the note")
    tv.resume()
    assert process.communicate()[0] == b"x: clean\n"
    assert process.returncode == 0


@pytest.mark.parametrize("arguments, says", [
    ((), "A subcommand is required; see tvctl --help"),
    (("nonsense",), "there is no command nonsense; see tvctl --help"),
    (("nonsense", "x"), "there is no command nonsense; see tvctl --help"),
    (("detections", "lits"), "there is no command lits; see tvctl detections --help"),
    (("reload",), "PART is required; see tvctl reload --help"),
    (("reload", "everything"), "see tvctl reload --help"),
    (("--frob", "reload", "db"), "see tvctl"),
])
def test_usage_errors(tvctl, arguments, says):
    tvctl.fails(*arguments, says=says)


NAMING_PATHS = [("scan",), ("scan", "--clean"), ("sweep",), ("clean",), ("ioc", "scan"), ("ioc", "test"),
                ("ioc", "import"), ("exclude", "add"), ("exclude", "remove")]


@pytest.mark.parametrize("command", NAMING_PATHS)
def test_an_empty_path_is_not_the_root_directory(tv, tvctl, home, command):
    """A script whose variable is not set must not have the whole machine cleaned."""
    tv.configure()
    for arguments in (("",), (home, "")):
        tvctl.fails(*command, *arguments, says="a path is empty; name files or folders")
    assert tvctl.json("exclude", "list")["paths"] == []


@pytest.mark.parametrize("command", [*NAMING_PATHS, ("detections", "list", "--path"), ("detections", "report", "-o"),
                                     ("status", "--root")])
def test_a_relative_path_in_a_directory_that_is_gone(tv, tvctl, files, command):
    tv.configure()
    tv.add_reports([])
    gone = files / "gone"
    gone.mkdir()
    inside = os.open(gone, os.O_PATH)
    gone.rmdir()
    tvctl.fails(*command, "x", says='cannot tell where "x" is: the working directory is gone',
                preexec_fn=lambda: os.fchdir(inside))
    os.close(inside)


@pytest.mark.parametrize("command, option", [
    (("status",), "--root"),
    (("exclude", "list"), "--list"),
    (("detections", "list"), "--since"),
    (("detections", "list"), "--virus"),
    (("detections", "list"), "--path"),
    (("detections", "follow"), "--since"),
    (("detections", "follow"), "--after-id"),
    (("detections", "follow"), "--cursor"),
    (("detections", "export", "--format", "csv"), "--since"),
    (("detections", "export", "--format", "csv"), "--until"),
    (("detections", "export", "--format", "csv"), "--output"),
    (("detections", "report", "-o", "/tmp/page"), "--since"),
    (("detections", "report"), "--output"),
    (("detections", "prune"), "--older-than"),
    (("quarantine", "delete"), "--older-than"),
    (("quarantine", "list"), "--path"),
    (("quarantine", "restore", "x"), "--to"),
    (("ioc", "list"), "--type"),
    (("ioc", "import", "/dev/null"), "--format"),
    (("selftest",), "--directory"),
])
def test_an_empty_value_is_not_taken_for_none(tv, tvctl, command, option):
    """An exporter whose variable is not set must not begin at another place."""
    tv.configure()
    tv.add_reports([])
    tvctl.fails(*command, option, "", says=f"{option}: takes no empty text; see tvctl {command[0]}", timeout=5)


def test_help_and_version(tvctl):
    assert tvctl.run("--version").output.startswith("tvctl 20")
    for arguments in (["--help"], ["reload", "--help"], ["url", "-h"]):
        assert "Usage: tvctl" in tvctl.run(*arguments).output


def test_standard_output_that_takes_no_more(tv, tvctl):
    tv.start()
    with open("/dev/full", "wb") as full:
        result = subprocess.run(tvctl.command("url", "x"), stdout=full, stderr=subprocess.PIPE,
                                env=tvctl.environment(), check=False)
    assert result.returncode == 2
    assert b"standard output takes no more: No space left" in result.stderr
