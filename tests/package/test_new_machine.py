"""How long a new machine is without signatures, and what it says meanwhile."""

import json
import threading
import time
from pathlib import Path

import pytest

import machine
from machine import SIGNATURES, Mirror, mirrored, outside, wait_until

SERVICE, UPDATE = "tvfilemon.service", "tvfilemon-update.service"
CONFIGURATION = "/etc/talvenor/freshclam.conf"
PRODUCTION = Path(__file__).parents[2] / "packaging" / "signatures" / "freshclam.conf"
HOST = "signatures.test"
# The weakest promise that is worth one; what it takes is told in the summary.
SOON = 60


class NewMachine:
    """Without the package, but with the administrator's choice of where signatures come from."""

    def __init__(self, booted, mirror):
        self._booted = booted
        self._hosts = outside("/etc/hosts")
        self._hosts.write_text("127.0.0.1 localhost\n")
        if machine.installed_version():
            booted.run("apt-get", "purge", "--yes", "tvfilemon")
        # As the package has it, but for the server, whose name nobody knows before there is a network.
        file = booted.path(CONFIGURATION)
        file.parent.mkdir(exist_ok=True)
        file.write_text(mirrored(PRODUCTION.read_text(), mirror.address.replace("127.0.0.1", HOST)))

    def install(self):
        """Returns how long that took."""
        began = time.monotonic()
        self._booted.run("apt-get", "install", "--yes", "--no-install-recommends",
                         "--option=Dpkg::Options::=--force-confold", f"/{machine.DEB.name}")
        return time.monotonic() - began

    def connect(self):
        with open(self._hosts, "a", encoding="ascii") as hosts:
            hosts.write(f"127.0.0.1 {HOST}\n")

    def told(self):
        return json.loads(self._booted.run("tvctl", "--json", "status", check=False).stdout)

    def check(self, name):
        checks = json.loads(self._booted.run("tvctl", "--json", "doctor", check=False).stdout)["checks"]
        return next(check for check in checks if check["name"] == name)

    def wait_protected(self):
        """Returns how long it took."""
        began = time.monotonic()
        while not self.told()["protected"]:
            assert time.monotonic() - began < 3 * SOON, self._booted.run(
                "journalctl", "--no-pager", f"--unit={UPDATE}").stdout
            time.sleep(1)
        return time.monotonic() - began


@pytest.fixture
def mirror(booted):
    made = booted.within(Mirror)
    made.serve(**{name: SIGNATURES / "test-6.cvd" for name in ("daily", "main", "bytecode")})
    yield made
    made.close()


@pytest.fixture
def new_machine(booted, mirror):
    return NewMachine(booted, mirror)


def test_is_protected_soon_after_the_installation(new_machine, report_figure):
    new_machine.connect()
    took = new_machine.install()
    waited = new_machine.wait_protected()
    report_figure(f"from the end of the installation, which took {took:.0f} s, to protection: {waited:.0f} s")
    assert waited < SOON


def test_is_protected_soon_after_the_network_is_there(new_machine, report_figure):
    new_machine.install()
    time.sleep(60)
    assert not new_machine.told()["protected"]
    new_machine.connect()
    waited = new_machine.wait_protected()
    report_figure(f"from a network that comes a minute after the installation to protection: {waited:.0f} s")
    assert waited < SOON


def test_says_that_the_first_update_runs(booted, new_machine, mirror):
    """Nothing has to be mended, and no other update started."""
    is_enough = threading.Event()

    def slowly(request):
        is_enough.wait(machine.TIMEOUT)
        mirror.answer(request, (SIGNATURES / "test-6.cvd").read_bytes())

    mirror.serve(main=slowly)
    new_machine.connect()
    try:
        new_machine.install()
        wait_until(lambda: any(name == "main.cvd" for name, _ in mirror.requests), "the download")
        booted.wait_log("Watching: /media")
        booted.wait_port()
        told = new_machine.told()
        assert told["protected"] is False
        assert told["reasons"] == ["there are no signatures yet, so nothing is found: the first update is running"]
        for name in ("engine", "databases", "signature_age"):
            check = new_machine.check(name)
            assert check["result"] == "warning" and check["fix"].startswith("wait"), check
            assert name == "signature_age" or "the first update is running" in check["seen"], check
    finally:
        is_enough.set()
    new_machine.wait_protected()
