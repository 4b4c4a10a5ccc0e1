"""Updates by the unit that does them, from a server on the machine's own loopback."""

import json
import os
import shutil
import threading
import time
from pathlib import Path

import pytest

from machine import KLEZ_NAME, KLEZ_PATTERN, SIGNATURES, TIMEOUT, Mirror, mirrored, outside, wait_until

UPDATE, FIRST = "tvfilemon-update.service", "tvfilemon-first-update.timer"
OLD, NEW = (SIGNATURES / f"test-{version}.cvd" for version in (5, 6))


@pytest.fixture(scope="module")
def mirror(booted):
    """With the package's own configuration but for where the files come from. Nothing but this serves here."""
    made = booted.within(Mirror)
    # The one of the installation may not have given up yet.
    booted.run("systemctl", "stop", FIRST, UPDATE)
    configuration = booted.path("/etc/talvenor/freshclam.conf")
    before = configuration.read_text()
    configuration.write_text(mirrored(before, made.address).replace("MaxAttempts 3\n", "MaxAttempts 1\n"))
    made.serve(daily=OLD, main=OLD, bytecode=OLD)
    remove_databases()
    yield made
    configuration.write_text(before)
    made.close()


def databases():
    return {path.name: path.read_bytes() for path in outside("/var/lib/talvenor/db").iterdir()}


def remove_databases():
    for path in databases():
        outside("/var/lib/talvenor/db").joinpath(path).unlink()


def update(booted):
    """What one update came to."""
    # So many in a short time systemd takes for a mistake.
    booted.run("systemctl", "reset-failed", UPDATE, check=False)
    booted.run("systemctl", "start", UPDATE, check=False)
    return dict(line.split("=", 1) for line in outside("/var/lib/talvenor/upd/status").read_text().splitlines())


def journal(booted):
    return booted.run("journalctl", "--no-pager", "--output=cat", f"--unit={UPDATE}").stdout


def detects(booted):
    """Whether the service knows what only the newer database knows."""
    booted.path("/tmp/worm").write_bytes(KLEZ_PATTERN)
    return booted.ask("SCAN /tmp/worm")[0] == f"INFECTED {KLEZ_NAME}"


def is_for_writing(descriptor):
    flags = next(line.split()[1] for line in descriptor.read_text().splitlines() if line.startswith("flags:"))
    return int(flags, 8) & os.O_ACCMODE != os.O_RDONLY


def told(booted):
    return json.loads(booted.run("tvctl", "--json", "status", check=False).stdout)["last_update"]


def test_the_first_one_is_tried_until_it_arrives(booted, mirror):
    booted.run("systemctl", "start", FIRST)
    wait_until(lambda: not booted.is_active(FIRST), "the end of the tries")
    wait_until(lambda: booted.property(UPDATE, "ActiveState") == "inactive", lambda: journal(booted))
    assert len(databases()) == 3
    remove_databases()


def test_the_first_one_does_not_hold_up_a_shutdown(booted, mirror):
    is_enough = threading.Event()
    mirror.requests.clear()
    mirror.serve(main=lambda request: is_enough.wait(2 * TIMEOUT))
    try:
        booted.run("systemctl", "start", FIRST)
        wait_until(lambda: any(name == "main.cvd" for name, _ in mirror.requests), "the download")
        # One of those that the administrator has on a stick.
        shutil.copy(OLD, outside("/var/lib/talvenor/db/daily.cvd"))
        began = time.monotonic()
        # As in a shutdown, both at once.
        booted.run("systemctl", "stop", FIRST, UPDATE)
        assert time.monotonic() - began < TIMEOUT / 2
    finally:
        is_enough.set()
        mirror.serve(main=OLD)
        remove_databases()


def test_an_update_arrives(booted, mirror):
    assert update(booted)["result"] == "updated", journal(booted)
    assert databases() == {f"{name}.cvd": OLD.read_bytes() for name in ("daily", "main", "bytecode")}
    assert not detects(booted)
    mirror.serve(daily=NEW)
    assert update(booted)["message"] == "daily 6", journal(booted)
    assert databases()["daily.cvd"] == NEW.read_bytes()
    assert told(booted)["result"] == "updated" and detects(booted)
    assert update(booted)["result"] == "current", journal(booted)


def test_freshclam_sees_only_what_its_profile_allows(booted, mirror):
    """Debian's AppArmor profile lets it write below /var/lib/clamav alone, and read no configuration elsewhere. A
    container cannot load it: this looks at what freshclam has open while it downloads."""
    seen = {}

    def look(request):
        process = next(entry for entry in Path("/proc").glob("[0-9]*")
                       # Not Debian's own, which runs all the time.
                       if (entry / "cmdline").read_bytes().startswith(b"freshclam\0--config-file=")
                       and os.path.samefile(entry / "ns" / "net", f"/proc/{booted.leader}/ns/net"))
        seen["command"] = (process / "cmdline").read_text().split("\0")
        seen["profile"] = process.joinpath("root/var/lib/clamav").stat().st_ino
        seen["written"] = [number.stat().st_ino for number in (process / "fd").iterdir()
                           if number.is_file() and is_for_writing(process / "fdinfo" / number.name)]
        seen["allowed"] = [path.stat().st_ino for path in outside("/var/lib/talvenor/upd").rglob("*")]
        mirror.answer(request, NEW.read_bytes())

    mirror.serve(bytecode=look)
    assert update(booted)["result"] == "updated", journal(booted)
    assert "--config-file=/var/lib/clamav/freshclam.conf" in seen["command"], seen
    assert "--datadir=/var/lib/clamav/freshclam" in seen["command"], seen
    assert seen["profile"] == outside("/var/lib/talvenor/upd").stat().st_ino
    assert seen["written"] and set(seen["written"]) <= set(seen["allowed"]), seen


def test_a_corrupt_download_replaces_nothing(booted, mirror):
    before = databases()
    damaged = bytearray(NEW.read_bytes())
    damaged[-100] ^= 0xff
    mirror.serve(main=bytes(damaged))
    status = update(booted)
    assert status["result"] in ("refused", "download-failed"), status
    assert databases() == before
    assert detects(booted)


def test_without_a_network_nothing_changes(booted, mirror):
    before = databases()
    mirror.close()
    status = update(booted)
    assert status["result"] == "download-failed" and status["succeeded"], status
    assert databases() == before
    assert told(booted)["result"] == "download-failed" and told(booted)["last_success"]
    assert detects(booted)
