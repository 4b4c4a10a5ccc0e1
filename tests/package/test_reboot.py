"""What a reboot of the machine shows."""

import shutil
import subprocess

from files import provide_signatures
from machine import outside, wait_until

GUARD, SERVICE = "tvfilemon-firewall.service", "tvfilemon.service"


class PortWatch:
    """Looks whether somebody listens on the command port while there is no table to guard it."""

    def __init__(self, booted):
        self._booted = booted
        self.open_with_table = self.open_without = self.closed = 0

    def __call__(self):
        # The port first: a table that comes between the two looks is no proof that it was there when the port was opened,
        # but a port that comes between them would be a false alarm.
        try:
            is_open = self._booted.has_port()
        except OSError:
            # Of a machine that is off.
            return
        if not is_open:
            self.closed += 1
            return
        rules = subprocess.run(["nsenter", f"--target={self._booted.leader}", "--net", "nft", "list", "tables"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
        if "inet tvfilemon" in rules.stdout:
            self.open_with_table += 1
        # When the machine goes off between the looks, there is nothing to ask.
        elif rules.returncode == 0 and self._is_still_open():
            self.open_without += 1

    def _is_still_open(self):
        try:
            return self._booted.has_port()
        except OSError:
            return False


def test_the_port_is_never_open_without_its_guard(booted):
    """With a guard that takes its time: were the service not to wait for it, this would be seen for long."""
    provide_signatures()
    drop_in = outside(f"/etc/systemd/system/{GUARD}.d")
    drop_in.mkdir()
    (drop_in / "slow.conf").write_text("[Service]\nExecStartPre=/bin/sleep 3\n")
    watch = PortWatch(booted)
    before = booted.leader
    try:
        booted.reboot(watch)
        assert booted.leader != before
        wait_until(lambda: booted.is_active(SERVICE), "the service")
        booted.wait_port()
        watch()
        guarded = int(booted.property(GUARD, "ActiveEnterTimestampMonotonic"))
        started = int(booted.property(SERVICE, "InactiveExitTimestampMonotonic"))
    finally:
        shutil.rmtree(drop_in)
        booted.run("systemctl", "daemon-reload")
    assert watch.closed > 10 and watch.open_with_table > 0 and watch.open_without == 0, vars(watch)
    assert 0 < guarded < started, (guarded, started)


def test_what_is_wanted_runs_again(booted):
    for unit in (SERVICE, GUARD, "tvfilemon-update.timer", "tvfilemon-sweep.timer", "tvfilemon-full-sweep.timer"):
        assert booted.is_active(unit), unit
    assert not booted.is_active("tvfilemon-export.service")
    # There are signatures already.
    assert not booted.is_active("tvfilemon-first-update.timer")
    booted.wait_log("Watching: /media")
