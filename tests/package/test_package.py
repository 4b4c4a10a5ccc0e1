"""The life of the package on a Debian that has nothing but its base: each test goes on where the one before ended."""

import difflib
import io
import json
import os
import re
import shutil
import stat
import threading
import time
import zipfile
from pathlib import Path

import pytest

import machine
from machine import EICAR, ROOT, TIMEOUT, chroot, outside, run, wait_until

HERE = Path(__file__).parent
SERVICE = "tvfilemon.service"
MARK = "/var/lib/talvenor/quarantine/2026-01-01_00-00-00_d41d8cd98f00b204e9800998ecf8427e.tvq"
# What a removed package may leave: the memory of package management and logs of other programs.
FOREIGN = re.compile(r"/var/lib/(dpkg|apt|systemd/deb-systemd-helper-masked)/|/var/log/(apt|journal|dpkg)|"
                     r"/var/cache/(apt|man|debconf|ldconfig)|/run/|/tmp/|/dev/|/proc/|/tvfilemon_[^/]*[.]deb$")


def everything():
    """Every path of the machine that is not somebody else's memory of the package."""
    found = set()
    for directory, directories, files in os.walk(ROOT):
        place = "/" + os.path.relpath(directory, ROOT)
        place = "/" if place == "/." else place + "/"
        if place in ("/proc/", "/dev/", "/sys/", "/run/", "/tmp/"):
            directories.clear()
            continue
        found.update(place + name for name in directories + files)
    return {path for path in found if not FOREIGN.search(path)}


def traces():
    return {path for path in everything() if re.search("talvenor|tvfilemon|tvctl", path, re.IGNORECASE)}


def description(path):
    """Mode, owner and name, and where a link leads."""
    status = os.lstat(outside(path))
    link = f" -> {os.readlink(outside(path))}" if stat.S_ISLNK(status.st_mode) else ""
    return f"{stat.filemode(status.st_mode)} {status.st_uid}:{status.st_gid} {path}{link}\n"


def install(package, version=None):
    chroot("apt-get", "install", "--yes", "--no-install-recommends", package)
    assert installed_version() == version or version is None


def installed_version():
    return run(["dpkg-query", f"--admindir={ROOT}/var/lib/dpkg", "--show", "--showformat=${Version}",
                "tvfilemon"]).stdout


def provide_signatures():
    for database in machine.SIGNATURES.glob("*.cvd"):
        shutil.copy(database, outside("/var/lib/talvenor/db"))


def wait_gone(path):
    wait_until(lambda: not path.exists(), f"{path} to go")


# ------------------------------------------------------------------------------------------------ the directory


def test_installs_on_a_bare_debian():
    shutil.copy(machine.DEB, ROOT)
    chroot("apt-get", "update")
    before = traces()
    assert not before
    install(f"./{machine.DEB.name}")


def test_files_owners_and_modes():
    listed = chroot("dpkg-query", "--listfiles", "tvfilemon").stdout.split()
    common = {"/.", "/etc", "/etc/logrotate.d", "/lib", "/lib/systemd", "/lib/systemd/system", "/usr", "/usr/bin",
              "/usr/lib", "/usr/share", "/usr/share/doc", "/usr/share/man", "/usr/share/man/man1",
              "/usr/share/man/man8", "/usr/share/zsh", "/usr/share/bash-completion",
              "/usr/share/bash-completion/completions", "/usr/share/zsh/vendor-completions", "/var", "/var/lib",
              "/var/log"}
    # Documents are left out of machines that are made small.
    present = [description(path) for path in sorted(set(listed) - common) if not path.startswith("/usr/share/")]
    expected = (HERE / "files.txt").read_text().splitlines(keepends=True)
    difference = "".join(difflib.unified_diff(expected, present, "files.txt", "the package"))
    assert not difference, difference


def test_units_are_tight():
    for unit, limit in ((SERVICE, 25), ("tvfilemon-sweep.service", 27), ("tvfilemon-export.service", 15),
                        ("tvfilemon-limits.service", 15)):
        result = chroot("systemd-analyze", "security", "--offline=yes", f"--threshold={limit}", "--no-pager",
                        f"/lib/systemd/system/{unit}", check=False)
        assert result.returncode == 0, result.stdout
        print(result.stdout.splitlines()[-1])


def test_units_are_understood():
    units = [f"/lib/systemd/system/{path.name}" for path in outside("/lib/systemd/system").glob("tvfilemon*")]
    assert f"/lib/systemd/system/{SERVICE}" in units
    # Of the machine's own units it may complain.
    result = chroot("systemd-analyze", "verify", "--man=no", *units, check=False)
    assert "tvfilemon" not in result.stdout, result.stdout


def test_limits_are_raised_and_never_lowered(tmp_path):
    """On files that stand for the kernel's: the real ones are those of the machine that runs the tests."""
    limits = tmp_path / "fs" / "inotify"
    limits.mkdir(parents=True)
    names = ("max_user_watches", "max_queued_events", "max_user_instances")

    def results(program="tvfilemon-limits.conf", **present):
        for name in names:
            (limits / name).write_text(f"{present[name]}\n")
        result = run([outside("/usr/lib/Talvenor/lib/tvfilemon-limits"), outside(f"/usr/lib/Talvenor/lib/{program}"),
                      tmp_path], check=False)
        return result.returncode, [int((limits / name).read_text()) for name in names]

    kernel = {"max_user_watches": 68000, "max_queued_events": 16384, "max_user_instances": 128}
    assert results(**kernel) == (0, [524288, 262144, 512])
    large = {"max_user_watches": 1048576, "max_queued_events": 16384, "max_user_instances": 8192}
    assert results(**large) == (0, [1048576, 262144, 8192])
    # What it cannot compare it leaves alone, and says so.
    strange = {"max_user_watches": 68000, "max_queued_events": 16384, "max_user_instances": "99999999999999999999"}
    assert results(**strange) == (1, [524288, 262144, 99999999999999999999])


def test_runs_under_restrictions_by_hand():
    provide_signatures()
    service = machine.ByHand()
    try:
        service.wait_log("Watching: /media")
        user = service.path("/home/u")
        user.mkdir()
        service.wait_log("New Directory added: /home/u")
        (user / "eicar.com").write_bytes(EICAR)
        wait_gone(user / "eicar.com")
        assert [path.suffix for path in service.path("/var/lib/talvenor/quarantine").iterdir()] == [".tvq"]
        assert service.run("tvctl", "status", check=False).returncode in (0, 1)
        service.run("tvctl", "reload", "settings")
    finally:
        service.close()
    # Made by the service, and for root alone although nothing set its mask.
    assert stat.S_IMODE(os.stat(outside("/var/log/talvenor")).st_mode) == 0o700


def test_an_upgrade_keeps_what_is_there():
    settings = outside("/var/lib/talvenor/settings")
    quarantine = outside("/var/lib/talvenor/quarantine")
    before = {path: path.read_bytes() for place in (settings, quarantine) for path in place.rglob("*")
              if path.is_file()}
    assert len(before) >= 2
    mine = outside("/etc/talvenor/port-users")
    mine.write_text("daemon\n")
    install(machine.newer_package("1.0.0.1"), "1.0.0.1")
    assert {path: path.read_bytes() for path in before} == before
    assert mine.read_text() == "daemon\n"
    for path in (settings, quarantine):
        assert stat.S_IMODE(os.stat(path).st_mode) == 0o700


def test_a_root_made_by_hand_is_not_mixed_in():
    chroot("apt-get", "remove", "--yes", "tvfilemon")
    assert outside("/var/lib/talvenor/settings").is_dir()
    by_hand = outside("/usr/lib/Talvenor/settings")
    by_hand.mkdir(parents=True)
    result = chroot("apt-get", "install", "--yes", f"./{machine.DEB.name}", check=False)
    assert result.returncode != 0 and "/usr/lib/Talvenor/settings is there already" in result.stdout
    by_hand.rmdir()
    by_hand.parent.rmdir()
    install(f"./{machine.DEB.name}")


def test_a_purge_keeps_the_quarantine_on_request():
    outside(MARK).write_bytes(b"kept")
    os.chmod(outside(MARK), 0o400)
    outside("/etc/talvenor/keep-quarantine").touch()
    chroot("apt-get", "purge", "--yes", "tvfilemon")
    kept = {"/var/lib/talvenor", "/var/lib/talvenor/quarantine"}
    assert {path for path in traces() if not path.startswith("/var/lib/talvenor/quarantine/")} == kept
    assert outside(MARK).read_bytes() == b"kept"
    assert stat.S_IMODE(os.stat(outside("/var/lib/talvenor/quarantine")).st_mode) == 0o700


# -------------------------------------------------------------------------------------------------------- booted


@pytest.fixture(scope="module")
def booted():
    container = machine.Container()
    yield container
    container.close()


def test_an_installation_into_a_running_machine_starts_it(booted):
    # No network, and nothing left to fetch. The quarantine of the purged package is there.
    booted.run("apt-get", "install", "--yes", "--no-install-recommends", f"/{machine.DEB.name}")
    assert outside(MARK).read_bytes() == b"kept"
    wait_until(lambda: booted.is_active(SERVICE),
               lambda: booted.run("systemctl", "status", SERVICE, check=False).stdout)
    booted.wait_log("Watching: /media")
    assert booted.run("systemctl", "is-enabled", SERVICE).stdout.strip() == "enabled"
    assert booted.is_active("tvfilemon-sweep.timer")
    assert booted.property("tvfilemon-export.service", "UnitFileState") == "disabled"
    failed = booted.run("systemctl", "--failed", "--plain", "--no-legend").stdout
    assert "tvfilemon" not in failed, failed


def test_cleans_what_is_written(booted):
    provide_signatures()
    assert booted.ask("RELOADDB") == ["SUCCESS"]
    for place in ("/home/u", "/media/stick"):
        directory = booted.path(place)
        directory.mkdir(parents=True)
        booted.wait_log(f"New Directory added: {place}")
        file = directory / "eicar.com"
        file.write_bytes(EICAR)
        os.chown(file, 1000, 1000)
        wait_gone(file)
        booted.wait_log(f"Cleaned infected file | Status:0 | {place}/eicar.com")
    assert len(list(outside("/var/lib/talvenor/quarantine").iterdir())) >= 3
    for path in outside("/var/lib/talvenor").rglob("*.tvq"):
        assert stat.S_IMODE(path.stat().st_mode) & 0o077 == 0


def test_scans_any_path_and_cleans_where_files_are_kept(booted):
    for place in ("/tmp/a.com", "/srv/a.com", "/root/a.com", "/var/tmp/a.com"):
        booted.path(place).write_bytes(EICAR)
        os.chown(booted.path(place), 1000, 1000)
        assert booted.ask(f"SCAN {place}")[0].startswith("INFECTED ")
        booted.ask(f"CLEAN {place}")
        assert not booted.path(place).exists()


def test_cannot_write_to_the_system(booted):
    for place in ("/usr/a.com", "/etc/a.com", "/boot/a.com", "/opt/a.com", "/var/lib/a.com"):
        file = booted.path(place)
        file.write_bytes(EICAR)
        assert booted.ask(f"SCAN {place}")[0].startswith("INFECTED ")
        assert booted.ask(f"CLEAN {place}") == ["CLEANED"]
        assert file.read_bytes() == EICAR
        file.unlink()
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
    """But for what the test's signatures, which are years old, and the container's limits, which are the host's, say."""
    result = booted.run("tvctl", "--json", "doctor", check=False)
    assert result.returncode in (0, 1), result.stdout
    checks = json.loads(result.stdout)["checks"]
    wrong = [check for check in checks if check["result"] != "ok"]
    expected = {"signature_age", "watch_limit", "event_queue", "instance_limit", "disk_space"}
    assert len(checks) >= 20 and {check["name"] for check in wrong} <= expected, wrong
    booted.run("tvctl", "selftest")


def test_a_sweep_scans_what_nobody_watched(booted):
    hidden = booted.path("/home/u/.hidden")
    hidden.mkdir()
    booted.restart()
    (hidden / "a.com").write_bytes(EICAR)
    booted.run("systemctl", "start", "tvfilemon-sweep.service")
    assert not (hidden / "a.com").exists()
    assert booted.property("tvfilemon-sweep.service", "Result") == "success"
    records = booted.run("tvctl", "--json", "detections", "list").stdout
    assert "/home/u/.hidden/a.com" in records and "tvsweep" in records


def test_exports_detections_into_the_journal(booted):
    booted.run("systemctl", "start", "tvfilemon-export.service")
    (booted.path("/home/u") / "exported.com").write_bytes(EICAR)
    wait_until(lambda: "/home/u/exported.com" in booted.run(
        "journalctl", "--no-pager", "--output=cat", "--identifier=tvfilemon-detections").stdout,
        lambda: booted.run("journalctl", "--no-pager", "--unit=tvfilemon-export").stdout)
    booted.run("systemctl", "stop", "tvfilemon-export.service")


def test_stops_in_time_in_the_middle_of_a_scan(booted):
    assert booted.property(SERVICE, "TimeoutStopUSec") == "30s"
    # With another limit, which a scan surely exceeds.
    booted.path("/run/systemd/system/tvfilemon.service.d").mkdir(parents=True)
    booted.path("/run/systemd/system/tvfilemon.service.d/limit.conf").write_text("[Service]\nTimeoutStopSec=1s\n")
    booted.run("systemctl", "daemon-reload")
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
    finally:
        client.join()
        archive.unlink()
        shutil.rmtree(booted.path("/run/systemd/system/tvfilemon.service.d"))
        booted.run("systemctl", "daemon-reload")
        booted.restart()
    # Only the limit ended it, and the client has no answer.
    assert 1 <= took < 4 and done[0] != ["CLEAN"], (took, done)


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


def test_only_this_machine_reaches_the_port(booted):
    # An address of its own that is not a loopback one: packets stay inside, and are refused all the same.
    run(["nsenter", f"--target={booted.leader}", "--net", "ip", "address", "add", "198.51.100.7/32", "dev", "lo"])
    request = "SCANURL http://localhost/"
    assert booted.ask(request) == ["CLEAN"]
    with pytest.raises(OSError):
        booted.ask(request, address="198.51.100.7", timeout=3)


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


def comes_back_after(booted, number):
    """Ends the service by a signal; returns after how many seconds there is another."""
    before = booted.property(SERVICE, "MainPID")
    booted.run("systemctl", "kill", "--kill-whom=main", f"--signal={number}", SERVICE)
    began = time.monotonic()
    wait_until(lambda: booted.property(SERVICE, "MainPID") not in ("0", before) and booted.is_active(SERVICE),
               "the service to come back")
    return time.monotonic() - began


def test_comes_back_later_and_later(booted):
    waits = [comes_back_after(booted, "SIGKILL") for _ in range(3)]
    # A second of systemd's, and then 1, 2 and 4.
    assert 2 <= waits[0] < 3 <= waits[1] < 5 <= waits[2] < 9, waits
    # Somebody who starts it himself does not wait.
    began = time.monotonic()
    booted.run("systemctl", "restart", SERVICE)
    assert time.monotonic() - began < 4


def test_a_clean_exit_is_no_stop(booted):
    booted.restart()
    comes_back_after(booted, "SIGTERM")


def test_an_upgrade_goes_on_with_the_new_one(booted):
    booted.run("systemctl", "disable", "--now", "tvfilemon-sweep.timer")
    before = booted.property(SERVICE, "MainPID")
    quarantined = sorted(path.name for path in outside("/var/lib/talvenor/quarantine").iterdir())
    booted.run("apt-get", "install", "--yes", machine.newer_package("1.0.0.2").removeprefix("."))
    assert installed_version() == "1.0.0.2"
    assert booted.is_active(SERVICE) and booted.property(SERVICE, "MainPID") != before
    assert sorted(path.name for path in outside("/var/lib/talvenor/quarantine").iterdir()) == quarantined
    # What was switched off stays off.
    assert not booted.is_active("tvfilemon-sweep.timer")
    assert booted.property("tvfilemon-sweep.timer", "UnitFileState") == "disabled"


def test_a_purge_leaves_nothing(booted):
    booted.run("apt-get", "purge", "--yes", "tvfilemon")
    assert not traces()
    assert not booted.path("/run/tvfilemon").exists()
    units = booted.run("systemctl", "list-units", "--all", "--plain", "--no-legend", "tvfilemon*").stdout
    assert not [line for line in units.splitlines() if "not-found" not in line], units
    assert "tvfilemon" not in booted.run("nft", "list", "tables").stdout
