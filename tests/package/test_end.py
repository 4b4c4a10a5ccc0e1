"""What becomes of a running machine when the package is upgraded, and when it goes."""

import os
import shutil

import machine
from files import OLDER, contents, provide_signatures, traces
from machine import EICAR, outside, wait_gone, wait_until

SERVICE, EXPORT = "tvfilemon.service", "tvfilemon-export.service"
PLACES = ("/var/lib/talvenor/settings", "/var/lib/talvenor/quarantine")


def test_a_purge_leaves_nothing(booted):
    booted.run("apt-get", "purge", "--yes", "tvfilemon")
    assert not traces()
    assert not booted.path("/run/tvfilemon").exists()
    units = booted.run("systemctl", "list-units", "--all", "--plain", "--no-legend", "tvfilemon*").stdout
    assert not [line for line in units.splitlines() if "not-found" not in line], units
    assert "tvfilemon" not in booted.run("nft", "list", "tables").stdout


def test_an_upgrade_goes_on_with_the_new_one(booted):
    booted.path("/home/u").mkdir(exist_ok=True)
    booted.run("apt-get", "install", "--yes", "--no-install-recommends",
               machine.other_version(OLDER).removeprefix("."))
    wait_until(lambda: booted.is_active(SERVICE), "the older one")
    booted.wait_log("Watching: /media")
    provide_signatures()
    booted.ask("RELOADDB")
    booted.run("tvctl", "config", "set", "scan.archives", "off")
    booted.run("systemctl", "disable", "--now", "tvfilemon-sweep.timer")
    file = booted.path("/home/u/upgrade.com")
    file.write_bytes(EICAR)
    wait_gone(file)
    wait_until(lambda: "upgrade.com" in booted.run("tvctl", "detections", "list").stdout, "the record")
    quarantined = contents(PLACES[1])
    records = booted.run("tvctl", "--json", "detections", "list").stdout
    # Not wanted by all.
    booted.run("systemctl", "enable", "--now", EXPORT)
    processes = [booted.property(unit, "MainPID") for unit in (SERVICE, EXPORT)]

    booted.run("apt-get", "install", "--yes", "--no-install-recommends", f"/{machine.DEB.name}")
    assert machine.installed_version() not in ("", OLDER)
    for unit, process in zip((SERVICE, EXPORT), processes):
        wait_until(lambda: booted.is_active(unit) and booted.property(unit, "MainPID") not in ("0", process),
                   f"the new {unit}")
    assert contents(PLACES[1]) == quarantined and len(quarantined) == 1
    assert booted.run("tvctl", "--json", "detections", "list").stdout == records
    assert booted.run("tvctl", "config", "get", "scan.archives").stdout.strip().endswith("off")
    for place in PLACES:
        assert os.stat(outside(place)).st_mode & 0o7777 == 0o700
    # What was switched off stays off.
    for timer in ("tvfilemon-sweep.timer", "tvfilemon-full-sweep.timer"):
        assert not booted.is_active(timer), timer
    assert booted.property("tvfilemon-sweep.timer", "UnitFileState") == "disabled"


def test_a_removal_keeps_records_and_quarantine(booted):
    before = contents(PLACES[1])
    # A guard that has failed leaves its table.
    drop_in = booted.path("/run/systemd/system/tvfilemon-firewall.service.d")
    drop_in.mkdir()
    (drop_in / "test.conf").write_text("[Service]\nExecStartPost=/bin/false\n")
    booted.run("systemctl", "daemon-reload")
    booted.run("systemctl", "restart", "tvfilemon-firewall.service", check=False)
    assert "tvfilemon" in booted.run("nft", "list", "tables").stdout
    booted.run("apt-get", "remove", "--yes", "tvfilemon")
    shutil.rmtree(drop_in)
    assert contents(PLACES[1]) == before and before
    assert outside("/var/lib/talvenor/settings/reports.db").exists()
    assert not booted.path("/usr/lib/Talvenor/bin/tvfilemon").exists()
    assert booted.property(EXPORT, "MainPID") == "0"
    assert "tvfilemon" not in booted.run("nft", "list", "tables").stdout


def test_a_purge_ends_well_though_something_is_mounted(booted):
    mounts = ("/var/lib/talvenor/quarantine", "/var/log/talvenor")
    for place in mounts:
        booted.run("mount", "-t", "tmpfs", "tmpfs", place)
        booted.path(f"{place}/file").touch()
    booted.run("apt-get", "purge", "--yes", "tvfilemon")
    for place in mounts:
        assert not list(booted.path(place).iterdir())
        booted.run("umount", place)
    # And what the mounts hid.
    assert not [path for path in traces() if not path.startswith(mounts) and path != "/var/lib/talvenor"]
