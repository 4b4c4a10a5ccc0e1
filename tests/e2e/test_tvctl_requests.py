"""`tvctl` commands that are one request to the service, and what all commands have in common."""

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
