"""`tvctl config`, and what becomes of it when the store or the service fails."""

import re

import pytest

from harness import EICAR, SERVICE, wait_gone, wait_until, write_once
from storefailures import AS_ORDINARY_USER, damage, inaccessible, locked, locked_for_writing

SCAN_SWITCHES = ["archives", "heuristics", "html", "documents", "swf", "pdf", "memory-at-startup", "show-report",
                 "show-errors", "take-backup"]
DEFAULTS = {
    "protection.realtime": True, "scan.action": "clean", "scan.archives": True, "scan.heuristics": False,
    "scan.html": True, "scan.documents": True, "scan.swf": True, "scan.pdf": True,
    "scan.memory-at-startup": False, "scan.show-report": False, "scan.show-errors": False,
    "scan.take-backup": False, "ioc.enabled": False, "ioc.action": "allow",
}
SWITCHES = [key for key, value in DEFAULTS.items() if isinstance(value, bool)]


def reload_lines(tv, what):
    return tv.count("TRACE", "CSocketManager::onClientReceivedMessage", f"Reload {what} command recieved.")


@pytest.fixture
def store(tv, tvctl):
    """The file of the settings, which is there and nobody has open."""
    tv.configure(ioc=True)
    return tv.settings / "tvcore.db"


def settings(tvctl):
    return tvctl.json("config", "list")["settings"]


def test_defaults(tv, tvctl):
    tv.settings.mkdir()
    assert settings(tvctl) == DEFAULTS
    lines = tvctl.run("config", "list").lines()
    assert [line.split()[0] for line in lines] == list(DEFAULTS)
    # Each column begins at the same place.
    assert len({re.match(r"\S+ +", line).end() for line in lines}) == 1
    assert [line.split()[1] for line in lines[:4]] == ["on", "clean", "on", "off"]


@pytest.mark.parametrize("key", SWITCHES)
def test_a_switch(tv, tvctl, key):
    tv.settings.mkdir()
    before = "on" if DEFAULTS[key] else "off"
    after = "off" if DEFAULTS[key] else "on"
    assert tvctl.run("config", "get", key).output == f"{before}\n"
    assert tvctl.run("config", "set", key, after).lines()[0] == f"{key}: {after} (was {before})"
    assert tvctl.run("config", "get", key).output == f"{after}\n"
    # Nothing else has changed.
    assert settings(tvctl) == {**DEFAULTS, key: not DEFAULTS[key]}
    assert tvctl.json("config", "get", key) == {"key": key, "value": not DEFAULTS[key]}
    assert tvctl.run("config", "set", key, before).lines()[0] == f"{key}: {before} (was {after})"
    assert tvctl.run("config", "set", key, before).lines()[0] == f"{key}: {before} (as before)"
    assert settings(tvctl) == DEFAULTS


@pytest.mark.parametrize("key, given, text, value", [
    ("scan.action", "report", "report", "report"),
    ("scan.action", "0", "report", "report"),
    ("scan.action", "clean", "clean", "clean"),
    ("scan.action", "1", "clean", "clean"),
    ("scan.action", "7", "7", 7),
    ("scan.action", "-3", "-3", -3),
    ("ioc.action", "rename", "rename", "rename"),
    ("ioc.action", "2", "delete", "delete"),
    ("ioc.action", "3", "3", 3),
    ("ioc.action", "2147483647", "2147483647", 2147483647),
])
def test_an_action(tv, tvctl, key, given, text, value):
    tv.settings.mkdir()
    assert tvctl.json("config", "set", key, "--no-reload", "--", given) == {
        "key": key, "value": value, "previous": DEFAULTS[key], "reload": "not asked"}
    assert tvctl.run("config", "get", key).output == f"{text}\n"
    assert settings(tvctl) == {**DEFAULTS, key: value}


def test_every_setting_is_read_by_the_service(tv, tvctl):
    """What `tvctl` stores is what the service's own library understands by it."""
    tv.start()
    tvctl.run("config", "set", "scan.action", "report")
    reported = write_once("/home/u/reported", EICAR)
    wait_until(lambda: [r for r in tv.reports() if r["filePath"] == reported], "a report")
    assert tv.reports()[0]["cleanStatus"] == -1
    tvctl.run("config", "set", "scan.action", "clean")
    wait_gone(write_once("/home/u/cleaned", EICAR))
    assert tvctl.json("config", "set", "protection.realtime", "off")["reload"] == "not needed"
    ignored = write_once("/home/u/ignored", EICAR)
    tv.settle()
    assert not [r for r in tv.reports() if r["filePath"] == ignored]
    tvctl.run("config", "set", "protection.realtime", "on")
    wait_gone(write_once("/home/u/again", EICAR))


@pytest.mark.parametrize("key, value, line", [
    *[(f"scan.{name}", "on", "settings") for name in SCAN_SWITCHES],
    ("scan.action", "clean", "settings"),
    ("ioc.enabled", "on", "IOCSettings"),
    ("ioc.action", "rename", "IOCSettings"),
])
def test_a_running_service_is_told(tv, tvctl, key, value, line):
    tv.start()
    assert tvctl.json("config", "set", "--no-reload", key, value)["reload"] == "not asked"
    assert reload_lines(tv, line) == 0
    assert tvctl.json("config", "set", key, value)["reload"] == "done"
    assert reload_lines(tv, line) == 1
    assert sum(reload_lines(tv, each) for each in ("DB", "settings", "IOCDB", "IOCSettings")) == 1


def test_the_service_is_down(tv, tvctl):
    tv.settings.mkdir()
    result = tvctl.run("config", "set", "scan.pdf", "off")
    assert result.lines()[1] == "tvfilemon does not run; it reads this when it starts"
    assert tvctl.json("config", "set", "scan.pdf", "off")["reload"] == "service down"
    assert tvctl.run("config", "set", "protection.realtime", "off").lines() == ["protection.realtime: off (was on)"]


def test_something_else_holds_the_port(tv, tvctl, impostor):
    tv.settings.mkdir()
    impostor("nonsense")
    result = tvctl.run("config", "set", "scan.pdf", "off", status=2)
    assert result.errors == ("tvctl: stored, but tvfilemon did not reload: what answers on port 8889 is not "
                             f"{SERVICE}; try tvctl reload settings, or tvctl doctor\n")
    assert tvctl.run("config", "get", "scan.pdf").output == "off\n"
    document = tvctl.json("config", "set", "scan.pdf", "on", status=2)
    assert document == {"key": "scan.pdf", "value": True, "previous": False, "reload": "failed"}


def test_a_service_that_hangs_is_waited_for(tv, tvctl):
    tv.start()
    tv.pause()
    process = tvctl.start("config", "set", "scan.pdf", "off")
    wait_until(lambda: b"stored; waiting for tvfilemon, which is busy" in process.stderr.readline(), "the note")
    tv.resume()
    process.communicate()
    assert process.returncode == 0


@pytest.mark.parametrize("arguments, says", [
    (("config",), "see tvctl config --help"),
    (("config", "get"), "KEY is required; see tvctl config get --help"),
    (("config", "get", "scan.everything"), "scan.everything not in {protection.realtime,"),
    (("config", "get", "Scan.Action"), "see tvctl config get --help"),
    (("config", "set", "scan.action"), "VALUE is required; see tvctl config set --help"),
    (("config", "set", "scan.everything", "on"), "see tvctl config set --help"),
    (("config", "set", "scan.pdf", "maybe"), 'scan.pdf cannot be "maybe"; it takes on or off'),
    (("config", "set", "scan.pdf", "1"), "it takes on or off"),
    (("config", "set", "scan.pdf", ""), 'scan.pdf cannot be ""'),
    (("config", "set", "scan.action", "delete"), "it takes report, clean or another number"),
    (("config", "set", "scan.action", "2147483648"), "it takes report, clean or another number"),
    (("config", "set", "ioc.action", "Rename"), "it takes allow, rename, delete or another number"),
    (("config", "set", "ioc.action", b"\xff"), "it takes allow, rename, delete or another number"),
])
def test_what_is_refused(tv, tvctl, arguments, says):
    tv.settings.mkdir()
    tvctl.fails(*arguments, says=says)
    assert settings(tvctl) == DEFAULTS


EACH = [("config", "list"), ("config", "get", "scan.pdf"), ("config", "set", "scan.pdf", "off")]


@pytest.mark.parametrize("arguments", EACH)
def test_there_is_no_installation(tv, tvctl, arguments):
    tvctl.fails(*arguments, says=f"there is no {tv.settings}: start tvfilemon once, or name its root with --root")
    assert not tv.settings.exists()


@pytest.mark.parametrize("arguments", EACH)
def test_the_store_is_locked(tvctl, store, arguments):
    with locked(store):
        tvctl.fails(*arguments, says="the settings cannot be read")
    assert settings(tvctl) == {**DEFAULTS, "ioc.enabled": True}


def test_somebody_else_is_writing(tvctl, store):
    with locked_for_writing(store):
        assert settings(tvctl)["scan.pdf"] is True
        for key, value in (("scan.pdf", "off"), ("ioc.action", "delete"), ("protection.realtime", "off")):
            tvctl.fails("config", "set", key, value, says=f"{key} could not be stored, nothing was changed")
    assert settings(tvctl) == {**DEFAULTS, "ioc.enabled": True}


@pytest.mark.parametrize("arguments", EACH)
def test_the_store_is_damaged(tvctl, store, arguments):
    damage(store)
    result = tvctl.run(*arguments)
    assert re.fullmatch(rf"tvctl: warning: {store} is damaged \(.*\); set aside as {store}\.corrupt-\S+ and "
                        r"started anew\n", result.errors)
    assert [path.read_bytes() for path in store.parent.glob("*.corrupt-*Z")] == [b"no database" * 1000]
    # Said once, and what was asked for is done.
    assert tvctl.run("config", "list").errors == ""
    assert settings(tvctl) == {**DEFAULTS, "scan.pdf": "set" not in arguments}


@pytest.mark.parametrize("arguments", EACH)
def test_another_user_may_not_look(tv, tvctl, store, arguments):
    with inaccessible(tv.settings):
        tvctl.fails(*arguments, says="run it as root: sudo tvctl", wrapper=AS_ORDINARY_USER)
    assert tvctl.run("config", "list", wrapper=AS_ORDINARY_USER).status == 0


def test_a_store_that_can_only_be_read(tv, tvctl, mounts, store):
    mounts.read_only(tv.settings)
    assert settings(tvctl)["ioc.enabled"] is True
    tvctl.fails("config", "set", "scan.pdf", "off", says="scan.pdf could not be stored, nothing was changed")


def test_two_at_once_lose_nothing(tv, tvctl):
    tv.settings.mkdir()
    processes = [tvctl.start("config", "set", "--no-reload", key, "off" if DEFAULTS[key] else "on")
                 for key in SWITCHES]
    for process in processes:
        output, errors = process.communicate()
        assert process.returncode == 0, (output, errors)
    assert settings(tvctl) == {**DEFAULTS, **{key: not DEFAULTS[key] for key in SWITCHES}}
