"""Detections on their way to another machine, by the configurations in docs/fleet.md."""

import json
import os
import re
import shutil
from pathlib import Path

import pytest

from machine import EICAR, ROOT, outside, wait_gone, wait_until

DOCUMENT = (Path(__file__).parents[2] / "docs" / "fleet.md").read_text()
EXPORT = "tvfilemon-export.service"
RECEIVED = "/var/log/tvfilemon-detections.json"


def block(name):
    return re.search(f"(?s)\n```{name}\n(.*?)```\n", DOCUMENT)[1]


class Receiver:
    def __init__(self, booted):
        self._booted = booted
        self._process = None
        booted.path("/etc/receiver.conf").write_text(
            block("rsyslog-global") + 'global(workDirectory="/var/spool/receiver")\n' + block("rsyslog-receiver"))
        booted.path("/var/spool/receiver").mkdir()

    def start(self):
        self._process = self._booted.start(ROOT.parent / "receiver.log", "setpriv", "--pdeathsig=KILL", "rsyslogd",
                                           "-n", "-f", "/etc/receiver.conf", "-i", "/run/receiver.pid")

    def kill(self):
        """Without a warning to whoever is connected."""
        number = self._booted.path("/run/receiver.pid").read_text().strip()
        self._booted.run("kill", "-KILL", number)
        self._process.wait()
        self._process = None
        self._booted.path("/run/receiver.pid").unlink()

    def close(self):
        if self._process is not None:
            self.kill()

    @staticmethod
    def lines():
        """Each of them whole."""
        file = outside(RECEIVED)
        return [json.loads(line) for line in file.read_bytes().splitlines()] if file.exists() else []

    def ids(self):
        return [line["event"]["id"] for line in self.lines()]


def stored(booted):
    document = json.loads(booted.run("tvctl", "--json", "detections", "list", "--limit", "10000").stdout)
    return [record["event_id"] for record in document["detections"]]


def arrived(booted, receiver):
    """Waits until all that is stored has arrived; returns how many came a second time."""
    def is_complete():
        return set(receiver.ids()) == set(stored(booted))

    wait_until(is_complete, lambda: f"{set(stored(booted)) ^ set(receiver.ids())}\n"
               + booted.run("journalctl", "--no-pager", "-n", "50").stdout)
    return len(receiver.ids()) - len(set(receiver.ids()))


def detect(booted, *names):
    for name in names:
        file = booted.path(f"/home/u/{name}")
        file.write_bytes(EICAR)
        wait_gone(file)


@pytest.fixture(scope="module")
def receiver(booted):
    booted.run("apt-get", "install", "--yes", "--no-install-recommends", "rsyslog", "rsyslog-relp")
    main = booted.path("/etc/rsyslog.conf")
    main.write_text(block("rsyslog-global") + main.read_text())
    sender = block("rsyslog-sender")
    assert "logs.example.org" in sender
    booted.path("/etc/rsyslog.d/30-tvfilemon.conf").write_text(sender.replace("logs.example.org", "127.0.0.1"))
    booted.path("/home/u").mkdir(exist_ok=True)
    booted.restart()
    made = Receiver(booted)
    made.start()
    booted.run("systemctl", "restart", "rsyslog")
    yield made
    made.close()
    booted.run("systemctl", "disable", "--now", EXPORT)
    booted.run("apt-get", "purge", "--yes", "rsyslog", "rsyslog-relp")
    for place in (RECEIVED, "/etc/rsyslog.d", "/var/spool/rsyslog", "/var/spool/receiver"):
        shutil.rmtree(outside(place), ignore_errors=True)
        if outside(place).is_file():
            outside(place).unlink()


def test_all_that_is_stored_arrives(booted, receiver):
    """From the first record on, long before somebody wanted it."""
    detect(booted, "before.com")
    booted.run("systemctl", "enable", "--now", EXPORT)
    assert arrived(booted, receiver) == 0
    detect(booted, "after.com")
    assert arrived(booted, receiver) == 0
    line = receiver.lines()[-1]
    assert line["file"]["path"] == "/home/u/after.com" and line["host"]["id"]
    cursor = outside("/var/lib/talvenor/export/cursor")
    assert cursor.read_text().strip() == line["event"]["id"] and cursor.stat().st_mode & 0o777 == 0o600


def kill(booted, unit):
    process = booted.property(unit, "MainPID")
    booted.run("systemctl", "kill", "--kill-whom=main", "--signal=KILL", unit)
    wait_until(lambda: booted.is_active(unit) and booted.property(unit, "MainPID") not in ("0", process),
               f"{unit} to come back")


def test_a_receiver_that_is_down_for_a_while_misses_nothing(booted, receiver):
    before = set(receiver.ids())
    receiver.kill()
    detect(booted, "down1.com", "down2.com")
    for unit in (EXPORT, "tvfilemon.service"):
        kill(booted, unit)
    booted.restart()
    detect(booted, "down3.com")
    booted.run("systemctl", "stop", EXPORT)
    detect(booted, "down4.com")
    booted.run("systemctl", "start", EXPORT)
    receiver.start()
    # What was on its way to the receiver when that was killed may come once more.
    assert arrived(booted, receiver) <= 1
    assert len(set(receiver.ids()) - before) == 4


def test_nothing_is_missing_whenever_the_export_is_killed(booted, receiver):
    """What a kill has come twice has the same id; one line a kill at most."""
    before = arrived(booted, receiver)
    # Not after five seconds, when all is over.
    drop_in = booted.path(f"/run/systemd/system/{EXPORT}.d")
    drop_in.mkdir()
    (drop_in / "test.conf").write_text("[Unit]\nStartLimitIntervalSec=0\n[Service]\nRestartSec=0\n")
    booted.run("systemctl", "daemon-reload")
    directory = booted.path("/home/u/many")
    directory.mkdir()
    booted.wait_log("New Directory added: /home/u/many")
    kills = 0
    for number in range(300):
        (directory / f"{number}.com").write_bytes(EICAR)
        if number % 20 == 0:
            # Between two it may have none.
            result = booted.run("systemctl", "kill", "--kill-whom=main", "--signal=KILL", EXPORT, check=False)
            kills += result.returncode == 0
    wait_until(lambda: not list(directory.iterdir()), "the last one to go")
    # Each kill repeats one line at most; what came again before does not count.
    assert arrived(booted, receiver) - before <= kills and kills >= 5


def test_what_a_user_writes_is_not_carried_on(booted, receiver):
    forged = {"event": {"id": "forged"}, "file": {"path": "/home/u/forged.com"}}
    booted.run("setpriv", "--reuid=1234", "--regid=1234", "--clear-groups", "logger", "--tag", "tvfilemon-detections",
               "--priority", "user.crit", json.dumps(forged))
    # What comes later has arrived, and what was written before it has not.
    detect(booted, "behind.com")
    assert arrived(booted, receiver) == 0
    assert "forged" not in receiver.ids()


def test_a_long_name_arrives_in_one_piece(booted, receiver):
    directory = os.fsencode(booted.path("/home/u/.long"))
    os.mkdir(directory)
    for _ in range(10):
        directory += b"/" + b"\xff\x01" * 120
        os.mkdir(directory)
    with open(directory + b"/a.com", "wb") as file:
        file.write(EICAR)
    booted.run("systemctl", "start", "tvfilemon-sweep.service")
    arrived(booted, receiver)
    paths = [line["file"]["path"] for line in receiver.lines() if "/.long/" in line["file"]["path"]]
    assert len(paths) == 1 and paths[0].endswith("/a.com") and "..." in paths[0], paths


@pytest.mark.parametrize("end", ["restart", "kill"])
def test_rsyslog_ends_while_the_receiver_is_down(booted, receiver, end):
    receiver.kill()
    detect(booted, f"{end}1.com", f"{end}2.com")
    if end == "kill":
        kill(booted, "rsyslog.service")
    else:
        booted.run("systemctl", "restart", "rsyslog.service")
    detect(booted, f"{end}3.com")
    receiver.start()
    arrived(booted, receiver)
    # What comes again is the same, and no other has its id.
    lines = {json.dumps(line, sort_keys=True) for line in receiver.lines()}
    assert len(lines) == len(set(receiver.ids()))
