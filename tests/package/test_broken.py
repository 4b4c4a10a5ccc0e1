"""`tvctl doctor` on a machine on which something about the installation was broken, one thing at a time."""

import json
import os
import shutil
import time

import pytest

from files import provide_signatures
from machine import outside, wait_until

SERVICE = "tvfilemon.service"
# The signatures are years old, the container's limits the host's, and the disk whatever it is.
OF_THE_MACHINE = {"signature_age", "watch_limit", "event_queue", "instance_limit", "disk_space", "update"}
STATE = "/var/lib/talvenor"
ROOT = "/usr/lib/Talvenor"
PLUGINS = "usr/lib/x86_64-linux-gnu/qt5/plugins/sqldrivers"


class Patient:
    def __init__(self, booted):
        self.booted = booted

    def systemctl(self, *arguments):
        self.booted.run("systemctl", *arguments)

    def path(self, name):
        return self.booted.path(name)

    def checks(self):
        document = json.loads(self.booted.run("tvctl", "--json", "doctor", check=False).stdout)
        return {check["name"]: check for check in document["checks"]}

    def is_well(self):
        return not {name for name, check in self.checks().items() if check["result"] != "ok"} - OF_THE_MACHINE

    def set_aside(self, name):
        os.rename(self.path(name), self.path(f"{name}.aside"))

    def put_back(self, name):
        place = self.path(name)
        if place.is_symlink() or place.is_file():
            place.unlink()
        elif place.is_dir():
            shutil.rmtree(place)
        os.rename(self.path(f"{name}.aside"), place)


@pytest.fixture(scope="module")
def patient(booted):
    for path in outside(f"{STATE}/db").iterdir():
        path.unlink()
    provide_signatures()
    booted.restart()
    made = Patient(booted)
    wait_until(made.is_well, lambda: [check for check in made.checks().values() if check["result"] != "ok"])
    return made


def replace_link(name, target):
    def put(patient):
        patient.set_aside(f"{ROOT}/{name}")
        if target is None:
            patient.path(f"{ROOT}/{name}").mkdir(mode=0o700)
        else:
            patient.path(f"{ROOT}/{name}").symlink_to(target)
    return put, lambda patient: patient.put_back(f"{ROOT}/{name}")


def moved(name, restart=False):
    def put(patient):
        patient.set_aside(name)
        if restart:
            patient.booted.run("systemctl", "restart", SERVICE)

    def back(patient):
        patient.put_back(name)
        if restart:
            patient.booted.restart()
    return put, back


def mode(name, wrong):
    right = []

    def put(patient):
        right.append(patient.path(name).stat().st_mode & 0o7777)
        patient.path(name).chmod(wrong)
    return put, lambda patient: patient.path(name).chmod(right.pop())


def owner(name):
    return (lambda patient: os.chown(patient.path(name), 1234, 0),
            lambda patient: os.chown(patient.path(name), 0, 0))


def units(*commands, back):
    return (lambda patient: [patient.systemctl(*command.split()) for command in commands],
            lambda patient: [patient.systemctl(*command.split()) for command in back])


def disabled(unit):
    return units(f"disable --now {unit}", back=[f"enable --now {unit}"])


def masked(unit, again):
    return units(f"mask --runtime --now {unit}", back=[f"unmask --runtime {unit}", again])


def removed_unit(unit):
    name = f"/lib/systemd/system/{unit}"

    def put(patient):
        patient.systemctl("stop", unit)
        patient.set_aside(name)
        patient.systemctl("daemon-reload")

    def back(patient):
        patient.put_back(name)
        patient.systemctl("daemon-reload")
        patient.systemctl("start", unit)
    return put, back


def setting(key, wrong, right):
    return (lambda patient: patient.booted.run("tvctl", "config", "set", key, wrong),
            lambda patient: patient.booted.run("tvctl", "config", "set", key, right))


def failed_updates():
    name = f"{STATE}/upd/status"

    def put(patient):
        now, then = (time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(time.time() - days * 86400)) for days in (0, 5))
        patient.path(f"{name}.aside").touch()
        patient.path(name).write_text(f"tried={now}\nresult=download-failed\nsucceeded={then}\nmessage=no network\n")
    return put, lambda patient: patient.put_back(name)


def garbage_database():
    def put(patient):
        patient.path(f"{STATE}/db/bad.cvd").write_bytes(b"no database" * 100)
        patient.booted.run("tvctl", "reload", "db", check=False)

    def back(patient):
        patient.path(f"{STATE}/db/bad.cvd").unlink()
        patient.booted.run("tvctl", "reload", "db")
    return put, back


def stopped():
    return units(f"stop {SERVICE}", back=[f"start {SERVICE}"])


def paused():
    return units(f"kill --kill-whom=main --signal=STOP {SERVICE}", back=[f"kill --kill-whom=main --signal=CONT {SERVICE}"])


BREAKAGES = {
    "the service is stopped": (stopped(), "service", "failed", ""),
    "the service is paused": (paused(), "service", "failed", "was stopped by somebody"),
    "the service is disabled": (units(f"disable {SERVICE}", back=[f"enable {SERVICE}"]),
                                "units", "failed", "tvfilemon.service is disabled"),
    "the guard is masked": (masked("tvfilemon-firewall.service", "start tvfilemon-firewall.service"),
                            "units", "failed", "tvfilemon-firewall.service is masked"),
    "the guard is missing": (removed_unit("tvfilemon-firewall.service"),
                             "units", "failed", "tvfilemon-firewall.service is missing"),
    "no updates": (disabled("tvfilemon-update.timer"), "units", "failed", "tvfilemon-update.timer is disabled"),
    "updates until the next boot": (units("stop tvfilemon-update.timer", back=["start tvfilemon-update.timer"]),
                                    "units", "failed", "tvfilemon-update.timer is not active"),
    "no sweeps": (disabled("tvfilemon-sweep.timer"), "units", "warning", "tvfilemon-sweep.timer is disabled"),
    "no full sweeps": (units("stop tvfilemon-full-sweep.timer", back=["start tvfilemon-full-sweep.timer"]),
                       "units", "warning", "tvfilemon-full-sweep.timer is not active"),
    "no limits": (masked("tvfilemon-limits.service", "reset-failed"), "units", "warning",
                  "tvfilemon-limits.service is masked"),
    "updates fail for days": (failed_updates(), "update", "failed", "none has succeeded since"),
    "the settings' link is a directory": (replace_link("settings", None), "links", "failed", "settings is no link"),
    "the quarantine's link leads away": (replace_link("quarantine", "/tmp"), "links", "failed",
                                         "quarantine is no link"),
    "the quarantine is gone": (moved(f"{STATE}/quarantine"), "links", "failed", "quarantine is no directory"),
    "the settings are open": (mode(f"{STATE}/settings", 0o755), "privacy", "failed", "settings (mode 0755)"),
    "the reports are open": (mode(f"{STATE}/reports", 0o750), "links", "failed", "reports has mode 0750"),
    "the log is open": (mode("/var/log/talvenor", 0o755), "links", "failed", "/var/log/talvenor has mode 0755"),
    "the databases can be written": (mode(f"{STATE}/db", 0o777), "directories", "failed", "others may write"),
    "the programs can be replaced": (mode(f"{ROOT}/bin", 0o775), "directories", "failed", "others may write"),
    "the quarantine is somebody's": (owner(f"{STATE}/quarantine"), "links", "failed", "belongs to user 1234"),
    "a library is somebody's": (owner(f"{ROOT}/lib/libtvcore.so.1"), "directories", "failed", "belongs to user 1234"),
    "no signatures": (moved(f"{STATE}/db"), "databases", "failed", ""),
    "a damaged database": (garbage_database(), "databases", "failed", "bad.cvd"),
    "protection is off": (setting("protection.realtime", "off", "on"), "protection", "failed", "switched off"),
    "files stay": (setting("scan.action", "report", "clean"), "scan_action", "warning", "stay where they are"),
    "no driver for the stores": (moved(PLUGINS), "sqlite_driver", "failed", "Qt cannot read"),
}


def test_the_advice_for_an_open_port_closes_it(patient):
    patient.booted.run("nft", "flush", "ruleset")
    found = patient.checks()["port_users"]
    assert found["result"] == "failed", found
    patient.booted.run("sh", "-c", found["fix"])
    assert patient.checks()["port_users"]["result"] == "ok"


@pytest.mark.parametrize("name", BREAKAGES)
def test_is_found(patient, name):
    (put, back), check, result, says = BREAKAGES[name]
    put(patient)
    try:
        found = patient.checks()[check]
        assert found["result"] == result and says in found["seen"] and found["fix"], found
    finally:
        back(patient)
    wait_until(patient.is_well, lambda: [each for each in patient.checks().values() if each["result"] != "ok"])
