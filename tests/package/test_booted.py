"""What the service does, and what systemd lets it do, in a machine that was booted."""

import fcntl
import io
import json
import os
import shutil
import stat
import threading
import time
import zipfile
from pathlib import Path

import pytest

import machine
from files import MARK, provide_signatures
from machine import EICAR, ROOT, outside, run, wait_gone, wait_until

HERE = Path(__file__).parent
SERVICE = "tvfilemon.service"
TIMERS = ("tvfilemon-full-sweep.timer", "tvfilemon-sweep.timer", "tvfilemon-update.timer")
SWEEPS = ("tvfilemon-sweep.service", "tvfilemon-full-sweep.service")


def test_an_installation_into_a_running_machine_starts_it(booted):
    wait_until(lambda: booted.is_active(SERVICE),
               lambda: booted.run("systemctl", "status", SERVICE, check=False).stdout)
    booted.wait_log("Watching: /media")
    assert booted.run("systemctl", "is-enabled", SERVICE).stdout.strip() == "enabled"
    for timer in TIMERS:
        assert booted.is_active(timer), timer
    assert booted.is_active("tvfilemon-firewall.service")
    assert booted.property("tvfilemon-export.service", "UnitFileState") == "disabled"
    # Of the package that was purged before.
    assert outside(MARK).read_bytes() == b"kept"


def test_the_first_update_is_tried_at_once(booted):
    """There is no network, which changes nothing and can be seen."""
    status = outside("/var/lib/talvenor/upd/status")
    wait_until(status.exists, lambda: booted.run("systemctl", "status", "tvfilemon-update", check=False).stdout)
    assert "result=download-failed\n" in status.read_text()
    wait_until(lambda: booted.property("tvfilemon-first-update.timer", "SubState") == "waiting", "the next try")
    assert not list(outside("/var/lib/talvenor/db").glob("*.cvd"))
    told = json.loads(booted.run("tvctl", "--json", "status", check=False).stdout)
    assert told["last_update"]["result"] == "download-failed" and told["last_update"]["last_success"] is None
    failed = booted.run("systemctl", "--failed", "--plain", "--no-legend").stdout.split()
    assert [word for word in failed if word.startswith("tvfilemon-") or word == SERVICE] == ["tvfilemon-update.service"]


def test_cleans_what_is_written(booted):
    provide_signatures()
    assert booted.ask("RELOADDB") == ["SUCCESS"]
    for place in ("/home/u", "/media/stick"):
        directory = booted.path(place)
        directory.mkdir(parents=True)
        booted.wait_log(f"New Directory added: {place}")
        file = directory / "eicar.com"
        # Owned before it is infected: it is gone in a moment.
        with open(file, "wb") as written:
            os.fchown(written.fileno(), 1000, 1000)
            written.write(EICAR)
        wait_gone(file)
        booted.wait_log(f"Cleaned infected file | Status:0 | {place}/eicar.com")
    assert len(list(outside("/var/lib/talvenor/quarantine").iterdir())) >= 3
    for path in outside("/var/lib/talvenor").rglob("*.tvq"):
        assert stat.S_IMODE(path.stat().st_mode) & 0o077 == 0


def test_scans_any_path_and_cleans_where_files_are_kept(booted):
    places = ("/tmp/a.com", "/srv/a.com", "/root/a.com", "/var/tmp/a.com")
    for place in places:
        booted.path(place).write_bytes(EICAR)
        os.chown(booted.path(place), 1000, 1000)
    answers = booted.ask(*(f"{request} {place}" for request in ("SCAN", "CLEAN") for place in places))
    assert all(answer.startswith("INFECTED ") for answer in answers[:len(places)]), answers
    assert not [place for place in places if booted.path(place).exists()]


def test_cannot_write_to_the_system(booted):
    places = ("/usr/a.com", "/etc/a.com", "/boot/a.com", "/opt/a.com", "/var/lib/a.com")
    for place in places:
        booted.path(place).write_bytes(EICAR)
    answers = booted.ask(*(f"{request} {place}" for request in ("SCAN", "CLEAN") for place in places))
    assert all(answer.startswith("INFECTED ") for answer in answers[:len(places)]), answers
    assert answers[len(places):] == ["CLEANED"] * len(places)
    for place in places:
        assert booted.path(place).read_bytes() == EICAR
        booted.path(place).unlink()
        result = booted.as_restricted("touch", place)
        assert "Read-only file system" in result.stdout


def test_what_is_mounted_later_is_cleaned_too(booted):
    booted.path("/media/late").mkdir()
    booted.run("mount", "-t", "tmpfs", "tmpfs", "/media/late")
    try:
        file = booted.path("/media/late/a.com")
        file.write_bytes(EICAR)
        assert booted.ask("SCAN /media/late/a.com")[0].startswith("INFECTED ")
        booted.ask("CLEAN /media/late/a.com")
        assert not file.exists()
    finally:
        booted.run("umount", "/media/late")


def test_is_restricted_as_a_process(booted):
    process = booted.main_process()
    status = Path(f"/proc/{process}/status").read_text()
    # 1 DAC_OVERRIDE, 3 FOWNER, 5 KILL, 6 SETGID, 7 SETUID
    assert "CapBnd:\t00000000000000ea\n" in status and "CapEff:\t00000000000000ea\n" in status, status
    assert "NoNewPrivs:\t1\n" in status and "Seccomp:\t2\n" in status, status
    # A container may have neither the right to lower the score nor the memory controller.
    assert booted.property(SERVICE, "OOMScoreAdjust") == "-900"
    assert booted.property(SERVICE, "MemoryMax") == str(4 * 1024**3)
    assert booted.property(SERVICE, "TasksMax") == "4096"


@pytest.mark.parametrize("present, expected", [
    # Two below, and one above.
    ({"max_user_watches": 68000, "max_queued_events": 16384, "max_user_instances": 1024},
     {"max_user_watches": 524288, "max_queued_events": 262144, "max_user_instances": 1024}),
    # One below, one above and one that is just right.
    ({"max_user_watches": 1048576, "max_queued_events": 262144, "max_user_instances": 128},
     {"max_user_watches": 1048576, "max_queued_events": 262144, "max_user_instances": 512})])
def test_each_start_raises_the_limits_of_the_kernel(booted, present, expected):
    """By the unit, on files in the place of the kernel's own: those are the business of the machine that runs the tests."""
    unit = "tvfilemon-limits.service"
    kernels = booted.path("/srv/inotify")
    kernels.mkdir()
    for name, value in present.items():
        (kernels / name).write_text(f"{value}\n")
    drop_in = booted.path(f"/run/systemd/system/{unit}.d")
    drop_in.mkdir(parents=True)
    (drop_in / "test.conf").write_text("[Unit]\nConditionPathIsReadWrite=\n"
                                       "[Service]\nBindPaths=/srv/inotify:/proc/sys/fs/inotify\n")
    booted.run("systemctl", "daemon-reload")
    try:
        booted.restart()
        assert {path.name: int(path.read_text()) for path in kernels.iterdir()} == expected
        assert booted.property(unit, "Result") == "success"
        raised = int(booted.property(unit, "ExecMainExitTimestampMonotonic"))
        started = int(booted.property(SERVICE, "ExecMainStartTimestampMonotonic"))
        assert 0 < raised < started, (raised, started)
    finally:
        shutil.rmtree(drop_in)
        shutil.rmtree(kernels)
        booted.run("systemctl", "daemon-reload")


def test_unpacks_in_a_memory_of_its_own(booted):
    process = booted.main_process()
    mounts = Path(f"/proc/{process}/mounts").read_text()
    line = next(line for line in mounts.splitlines() if " /run/tvfilemon/tmp " in line)
    assert " tmpfs " in line and "size=524288k" in line and "mode=700" in line and "noexec" in line, line
    watches = [machine.Watch(place) for place in
               (f"/proc/{process}/root/run/tvfilemon/tmp", *Path(f"/proc/{process}/root/run/tvfilemon/tmp").iterdir())]
    try:
        booted.path("/tmp/clean.txt").write_bytes(b"nothing\n")
        assert booted.ask("SCAN /tmp/clean.txt") == ["CLEAN"]
        assert any(watch.created() for watch in watches)
    finally:
        for watch in watches:
            watch.close()
    assert not list(Path(f"/proc/{booted.leader}/root/run/tvfilemon/tmp").iterdir()), "visible to others"


def test_the_tool_finds_nothing_wrong(booted):
    """But for what the test's signatures, which are years old, the missing network, and the container's limits, which
    are the host's, say."""
    result = booted.run("tvctl", "--json", "doctor", check=False)
    assert result.returncode in (0, 1), result.stdout
    checks = json.loads(result.stdout)["checks"]
    wrong = [check for check in checks if check["result"] != "ok"]
    expected = {"signature_age", "update", "watch_limit", "event_queue", "instance_limit", "disk_space"}
    assert len(checks) >= 20 and {check["name"] for check in wrong} <= expected, wrong
    booted.run("tvctl", "selftest")


def test_a_sweep_scans_what_nobody_watched(booted):
    # One of them has a name that cannot be asked for: it is found when the service gets at what the sweep has opened.
    names = (b"a.com", b"bad\xff.com")
    hidden = booted.path("/home/u/.hidden")
    hidden.mkdir()
    booted.restart()
    for name in names:
        Path(os.fsdecode(os.fsencode(hidden) + b"/" + name)).write_bytes(EICAR)
    booted.run("systemctl", "start", "tvfilemon-sweep.service")
    told = booted.run("journalctl", "--no-pager", "--unit=tvfilemon-sweep").stdout
    assert not (hidden / "a.com").exists() and "bad\\xff.com: Eicar-Test-Signature" in told, told
    shutil.rmtree(hidden)
    assert booted.property("tvfilemon-sweep.service", "Result") == "success"
    records = json.loads(booted.run("tvctl", "--json", "detections", "list").stdout)["detections"]
    swept = [record["path"] for record in records if record["module"] == "tvsweep"]
    assert sorted(swept) == ["/home/u/.hidden/a.com", "/home/u/.hidden/bad\\xff.com"]


def test_a_sweep_may_do_no_more_than_the_service(booted):
    """Otherwise the kernel would not let the service look at what it has opened."""
    service, *sweeps = (set(booted.property(unit, "CapabilityBoundingSet").split()) for unit in (SERVICE, *SWEEPS))
    assert all(sweep and sweep <= service for sweep in sweeps)
    places = [set(booted.property(unit, "ReadWritePaths").split()) for unit in (SERVICE, *SWEEPS)]
    assert places[0] - {"/var/log/talvenor"} == places[1] == places[2]
    for unit in SWEEPS:
        assert booted.property(unit, "ProtectProc") == "default"


def test_a_full_sweep_looks_at_all_and_waits_for_the_other(booted):
    """What it is told to do, while it waits, and what it did."""
    small, full = SWEEPS
    booted.run("systemctl", "start", small)
    with open(outside("/var/lib/talvenor/settings/tvsweep.lock"), "rb") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        booted.run("systemctl", "start", "--no-block", full)
        wait_until(lambda: booted.property(full, "SubState") == "start-pre", "the full sweep to begin")
        # Not to be starved by whoever keeps the processors busy.
        process = booted.main_process(full, "ControlPID")
        wait_until(lambda: Path(f"/proc/{process}/comm").read_text() == "flock\n", "the wait for the lock")
        assert os.sched_getscheduler(process) == os.SCHED_BATCH
        assert os.getpriority(os.PRIO_PROCESS, process) == 19
    wait_until(lambda: booted.property(full, "ActiveState") == "inactive", "the full sweep to end")
    assert booted.property(full, "Result") == "success"
    told = [booted.run("journalctl", "--no-pager", "--output=cat", f"--unit={unit}").stdout for unit in SWEEPS]
    assert "scanning what changed since" in told[0] and "scanning everything" in told[1], told
    assert {booted.property(unit, "MemoryMax") for unit in SWEEPS} == {str(1024**3)}


def test_one_setting_is_for_all_sweeps(booted):
    small, full = "tvfilemon-sweep.timer", "tvfilemon-full-sweep.timer"
    booted.run("systemctl", "disable", "--now", small)
    wait_until(lambda: not booted.is_active(full), "the weekly timer to stop")
    booted.run("systemctl", "enable", "--now", small)
    wait_until(lambda: booted.is_active(full), "the weekly timer")
    every = booted.property(small, "TimersMonotonic")
    assert "OnActiveUSec=10min" in every and "OnUnitInactiveUSec=6h" in every, every
    assert "OnCalendar=Sun *-*-* 02:00:00" in booted.property(full, "TimersCalendar")
    assert booted.property(full, "Persistent") == "yes"


def test_shows_popups_on_a_users_bus(booted, tmp_path):
    booted.run("useradd", "--uid", "1000", "--no-create-home", "u")
    directory = booted.path("/run/user/1000")
    directory.mkdir(parents=True, exist_ok=True)
    os.chmod(directory, 0o700)
    os.chown(directory, 1000, 1000)
    shutil.copy(HERE.parent / "support" / "session-bus.conf", booted.path("/tmp"))
    address = "unix:path=/run/user/1000/bus"
    user = ("setpriv", "--reuid=1000", "--regid=1000", "--clear-groups")
    told = tmp_path / "monitor"

    def tells(text):
        wait_until(lambda: text in told.read_text(errors="replace"), lambda: f"{text!r} in {told.read_text()}")

    bus = booted.start(tmp_path / "bus", *user, "dbus-daemon", "--nofork", "--config-file=/tmp/session-bus.conf",
                       f"--address={address}")
    monitor = None
    try:
        wait_until((directory / "bus").exists, lambda: f"the bus: {(tmp_path / 'bus').read_text()}")
        monitor = booted.start(told, *user, "dbus-monitor", "--address", address)
        # The name that it got itself.
        tells("NameAcquired")
        (booted.path("/home/u") / "popup.com").write_bytes(EICAR)
        tells("popup.com")
        tells("member=Notify")
    finally:
        for process in (monitor, bus):
            if process is not None:
                process.kill()
                process.wait()


def test_the_log_is_rotated_by_renaming(booted):
    log = outside("/var/log/talvenor/tvfilemon.log")
    text = log.read_bytes()
    configuration = ROOT.parent / "logrotate.conf"
    configuration.write_text(outside("/etc/logrotate.d/tvfilemon").read_text()
                             .replace("/var/log/talvenor", str(outside("/var/log/talvenor"))))
    os.chmod(configuration, 0o644)
    run(["/usr/sbin/logrotate", "--force", f"--state={ROOT.parent}/logrotate.state", configuration])
    assert outside("/var/log/talvenor/tvfilemon.log.1").read_bytes() == text
    booted.path("/home/u/after").mkdir()
    booted.wait_log("New Directory added: /home/u/after")
    assert stat.S_IMODE(log.stat().st_mode) == 0o600


def test_stops_in_time_in_the_middle_of_a_scan(booted):
    assert booted.property(SERVICE, "TimeoutStopUSec") == "30s"
    # A page of links unpacks to much and is taken apart slowly: this many keep the engine busy for seconds.
    page = io.BytesIO()
    with zipfile.ZipFile(page, "w", zipfile.ZIP_DEFLATED) as packed:
        packed.writestr("page.html", b"<html>" + b"<a href=x>abc</a>" * 500000)
    archive = booted.path("/tmp/slow.zip")
    with zipfile.ZipFile(archive, "w") as written:
        for number in range(50):
            written.writestr(f"{number}.zip", page.getvalue())
    done = []

    def scan():
        try:
            done.append(booted.ask("SCAN /tmp/slow.zip"))
        except OSError as error:
            done.append(error)

    client = threading.Thread(target=scan)
    client.start()
    directory = Path(f"/proc/{booted.main_process()}/root/run/tvfilemon/tmp")
    try:
        wait_until(lambda: any(names for _, _, names in os.walk(directory)), "the scan to unpack")
        began = time.monotonic()
        booted.run("systemctl", "stop", SERVICE)
        took = time.monotonic() - began
        result = booted.property(SERVICE, "Result")
    finally:
        client.join()
        archive.unlink()
        booted.restart()
    # By itself, long before the limit, and the client has no answer.
    assert took < 15 and result == "success" and done[0] != ["CLEAN"], (took, result, done)


def comes_back_after(booted, number):
    """Ends the service by a signal; returns after how many seconds there is another."""
    before = booted.property(SERVICE, "MainPID")
    booted.run("systemctl", "kill", "--kill-whom=main", f"--signal={number}", SERVICE)
    began = time.monotonic()
    wait_until(lambda: booted.property(SERVICE, "MainPID") not in ("0", before) and booted.is_active(SERVICE),
               "the service to come back")
    took = time.monotonic() - began
    booted.wait_port()
    return took


def test_comes_back_later_and_later(booted):
    waits = [comes_back_after(booted, "SIGKILL") for _ in range(3)]
    # A second of systemd's, and then 1, 2 and 4.
    assert waits[0] >= 2 and waits[1] >= 3 and 5 <= waits[2] < 30, waits
    # Somebody who starts it himself does not wait.
    began = time.monotonic()
    booted.run("systemctl", "restart", SERVICE)
    # It would be 8 by now.
    assert time.monotonic() - began < 8


def test_a_clean_exit_is_no_stop(booted):
    booted.restart()
    comes_back_after(booted, "SIGTERM")
