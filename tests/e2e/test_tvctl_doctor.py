"""`tvctl doctor`: each thing that leaves somebody unprotected, for real."""

import os
import shutil
import socket
import subprocess
import time

import pytest

from harness import Installation, Path, Unwatched, fresh_directory, wait_until
from storefailures import locked
from tool import Tool
from wellness import DAY, make_well, set_age, start

NAMES = ["service", "port_owner", "engine", "port_exposure", "port_users", "databases", "last_load", "signature_age", "update", "clock",
         "protection", "scan_action", "stores", "sqlite_driver", "directories", "privacy", "quarantine",
         "disk_space", "engine_directory", "log", "watches", "watch_limit", "event_queue", "instance_limit",
         "units", "links"]
GUARD = "bin/tvfilemon-firewall"
# These judge the machine that the tests run on, or need the firewall's table.
OF_THE_MACHINE = {"port_users", "disk_space", "engine_directory", "event_queue", "instance_limit", "watch_limit"}


@pytest.fixture
def well(tv):
    return make_well(tv)


class Doctor:
    def __init__(self, tvctl):
        self._tvctl = tvctl

    def examine(self, **options):
        document = self._tvctl.json("doctor", status=None, **options)
        self.checks = {check["name"]: check for check in document["checks"]}
        failed = self.of("failed")
        assert document["failed"] == len(failed) and document["warnings"] == len(self.of("warning"))
        return self

    def of(self, result):
        return {name for name, check in self.checks.items() if check["result"] == result}

    def finds(self, name, seen, fix, result="failed", **options):
        """The check named `name` comes to `result`; what is found else is told."""
        check = self.examine(**options).checks[name]
        assert check["result"] == result and seen in check["seen"] and fix in check["fix"], check
        return self.of("failed") - {name}


@pytest.fixture
def doctor(tvctl):
    return Doctor(tvctl)


@pytest.fixture
def guard(well):
    """The firewall's table is there."""
    subprocess.run([well.root / GUARD, "start"], check=True)
    yield
    subprocess.run([well.root / GUARD, "stop"], check=True)


@pytest.fixture
def unit(well):
    """Has systemd run the installation, as far as files tell."""
    directory = Path("/run/systemd/system")
    directory.mkdir(parents=True)
    (directory / "tvfilemon.service").write_text(f"[Service]\nExecStart={well.root}/bin/tvfilemon\n")
    yield
    shutil.rmtree("/run/systemd")


def test_all_is_well(well, tvctl, doctor, guard):
    start(well)
    doctor.examine()
    assert list(doctor.checks) == NAMES
    assert doctor.of("failed") | doctor.of("warning") <= OF_THE_MACHINE - {"port_users"}
    assert all((check["fix"] is None) == (check["result"] == "ok") for check in doctor.checks.values())
    result = tvctl.run("doctor", status=1 if doctor.of("failed") else 0)
    assert [line.split()[1] for line in result.lines()[:-1]] == NAMES
    assert result.lines()[0].startswith("ok    service              process ")
    assert result.lines()[-1].startswith(f"{len(NAMES)} checks: ")
    assert result.errors == ""


def test_the_service_is_down(well, doctor, tvctl):
    others = doctor.finds("service", "nobody listens on port 8889", f"start it as root: {well.root}/bin/tvfilemon")
    assert others - OF_THE_MACHINE == {"engine", "watches"}
    line = tvctl.run("doctor", status=1).lines()[0]
    assert line == ("FAIL  service              tvfilemon does not run: nobody listens on port 8889"
                    f" -- fix: start it as root: {well.root}/bin/tvfilemon")


def test_the_service_of_systemd_is_down(well, doctor, unit):
    doctor.finds("service", "nobody listens on port 8889", "systemctl start tvfilemon")
    assert "as root" not in doctor.checks["service"]["fix"]
    set_age(well, 8)
    doctor.finds("signature_age", "8 days old", "systemctl start tvfilemon-update")


def test_the_service_was_stopped(well, doctor):
    start(well)
    well.pause()
    number = well.process.pid
    doctor.finds("service", f"process {number} was stopped by somebody", f"kill -CONT {number}")
    well.resume()
    assert doctor.examine().checks["service"]["result"] == "ok"


def test_the_program_was_replaced(well, doctor):
    start(well)
    program = well.root / "bin" / "tvfilemon"
    shutil.copy2(program, f"{program}.new")
    os.rename(f"{program}.new", program)
    assert not doctor.finds("service", "before its program was replaced", "end it, and start it", "warning") - OF_THE_MACHINE


def test_it_runs_twice(well, doctor):
    start(well)
    first, well.process = well.process, None
    well.start(wait=False)
    try:
        wait_until(lambda: "2 times" in doctor.examine().checks["service"]["seen"], "the second one")
        doctor.finds("service", "it runs 2 times", "end all but one", "warning")
    finally:
        well.process.kill()
        well.process.wait()
        well.process = first


def test_another_program_holds_the_port(well, doctor, impostor):
    impostor("REGISTERED!", "CLEAN")
    doctor.finds("port_owner", f"process {os.getpid()}, ", "ss -ltnp")
    assert doctor.checks["engine"]["result"] == "failed"


def test_another_program_shares_the_port(well, doctor):
    start(well)
    with socket.socket() as listener:
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEPORT, 1)
        listener.bind(("0.0.0.0", 8889))
        listener.listen()
        doctor.finds("port_owner", f"process {os.getpid()}, ", "ss -ltnp")


def test_there_are_no_databases(home, mounts):
    tv = make_well(Installation(fresh_directory() / "root", databases=()))
    try:
        start(tv)
        doctor = Doctor(Tool(tv))
        assert doctor.finds("databases", "no *.cvd in", f"put new *.cvd files into {tv.db}") - OF_THE_MACHINE == {"engine"}
        assert "finds nothing, not even the test pattern" in doctor.checks["engine"]["seen"]
        (tv.db / "daily.cld").write_bytes(b"")
        doctor.finds("databases", "daily.cld is of a kind that the service does not load", "freshclam")
    finally:
        tv.close()


def test_a_database_is_garbage(well, doctor):
    (well.db / "broken.cvd").write_bytes(b"no database" * 100)
    start(well)
    others = doctor.finds("databases", "broken.cvd: not a signature database", "remove it")
    assert others - OF_THE_MACHINE == {"engine", "last_load"}
    assert "broken.cvd could not be loaded" in doctor.checks["last_load"]["seen"]
    assert "its log says that broken.cvd could not be loaded" in doctor.checks["engine"]["seen"]


def test_a_database_has_a_good_head_and_a_bad_body(well, doctor):
    name = "test-6.cvd"
    path = well.db / name
    path.write_bytes(path.read_bytes()[:700])
    start(well)
    others = doctor.finds("last_load", f"{name} could not be loaded", "tvctl reload db")
    assert others - OF_THE_MACHINE == {"engine"}


def test_the_log_is_no_proof(well, doctor, home):
    """A file's name can hold a line that looks like one of the service's."""
    (well.db / "broken.cvd").write_bytes(b"no database")
    start(well)
    forged = ("x\r\n2026-01-01 00:00:00:000  [TRACE]  [CScanFile::loadDatabases] :: Successfully Compiled Engine."
              "\r\n2026-01-01 00:00:00:001  [INFO]  [y] :: z")
    (home / forged).mkdir()
    well.wait_log("TRACE", "FileMonitor::onActivated", f"New Directory added: {home}/x")
    others = doctor.finds("engine", "not even the test pattern", "tvctl reload db")
    assert doctor.checks["last_load"]["result"] == "ok" and "databases" in others
    # What else the log may say is no concern of this test.
    well.log_file.unlink()


def test_a_forged_failure_is_no_alarm(well, doctor, home, guard):
    """As long as the engine detects."""
    start(well)
    forged = ("x\r\n2026-01-01 00:00:00:000  [ERROR]  [CScanFile::loadDatabases] :: [0x00000004]: Failed to load "
              "database. Path: daily.cvd Error: 4\r\n2026-01-01 00:00:00:001  [INFO]  [y] :: z")
    (home / forged).mkdir()
    well.wait_log("TRACE", "FileMonitor::onActivated", f"New Directory added: {home}/x")
    others = doctor.finds("last_load", "daily.cvd could not be loaded", "tvctl reload db", "warning")
    assert not others - OF_THE_MACHINE
    well.log_file.unlink()


def test_the_signatures_are_old(well, doctor, tvctl):
    set_age(well, 8)
    start(well)
    assert not doctor.finds("signature_age", "is 8 days old", "freshclam gets them") - OF_THE_MACHINE
    set_age(well, 7)
    assert doctor.examine().checks["signature_age"]["result"] == "ok"


def test_the_signatures_come_from_the_future(well, doctor):
    set_age(well, -3)
    start(well)
    doctor.finds("clock", "lies ahead", "timedatectl", "warning")


def test_a_database_of_another_kind(well, doctor):
    (well.db / "daily.cld").write_bytes(b"")
    start(well)
    doctor.finds("databases", "does not load daily.cld", "remove these files; then put new", "warning")


def test_updates_have_failed_for_days(well, doctor):
    start(well)
    update = well.root / "upd"
    update.mkdir(exist_ok=True)
    day = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(time.time() - 4 * DAY))
    now = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())
    status = f"tried={now}\nresult=download-failed\nsucceeded={{}}\nmessage=no network\n"
    (update / "status").write_text(status.format(day))
    assert not doctor.finds("update", "none has succeeded since", "tvfilemon-update as root") - OF_THE_MACHINE
    assert "no network" in doctor.checks["update"]["seen"]
    (update / "status").write_text(status.format(now))
    doctor.finds("update", "download-failed", "tvfilemon-update as root", "warning")


def test_protection_is_off(well, doctor):
    well.configure(protection=False)
    start(well)
    assert not doctor.finds("protection", "switched off", "tvctl config set protection.realtime on") - OF_THE_MACHINE


def test_files_are_only_reported(well, doctor):
    well.configure(action=0)
    start(well)
    doctor.finds("scan_action", "stay where they are", "tvctl config set scan.action clean", "warning")


def test_too_few_watches(well, doctor, home, watch_limit):
    for number in range(5):
        (home / str(number)).mkdir()
    watch_limit(4)
    start(well)
    others = doctor.finds("watch_limit", "8 directories have to be watched, 4 may be",
                          "sysctl -w fs.inotify.max_user_watches=16384")
    assert others - OF_THE_MACHINE == {"watches"}
    # The service gives some to the rest of the tree, and what it has tried in vain is among them.
    assert "of 8 directories are not watched, /" in doctor.checks["watches"]["seen"]


def test_a_directory_that_was_moved_in(well, doctor, home):
    unwatched = Unwatched()
    (unwatched.path / "d").mkdir()
    start(well)
    os.rename(unwatched.path / "d", home / "d")
    assert not doctor.finds("watches", f"1 of 4 directories are not watched, {home}/d for example",
                            "end it, and start it as root") - OF_THE_MACHINE


def test_the_event_queue_is_short(well, doctor, mounts):
    setting = fresh_directory() / "setting"
    setting.write_text("500\n")
    mounts.bind(setting, "/proc/sys/fs/inotify/max_queued_events")
    start(well)
    doctor.finds("event_queue", "500 events wait at most", "sysctl -w fs.inotify.max_queued_events=16384")


@pytest.mark.parametrize("part", ["settings", "quarantine"])
def test_others_may_look_in(well, doctor, part):
    start(well)
    directory = well.root / part
    directory.chmod(0o755)
    assert not doctor.finds("privacy", f"others may look into {directory} (mode 0755)",
                            f"chmod 0700 '{directory}'") - OF_THE_MACHINE


@pytest.mark.parametrize("part", ["", "bin", "bin/tvfilemon", "lib", "db", "db/test-5.cvd", "logs", "icons",
                                  "icons/ip_block.png", "share", "share/bash-completion/completions/tvctl"])
def test_others_may_write(well, doctor, part):
    start(well)
    path = well.root / part
    # The program is linked to that of other installations.
    if path.is_file():
        shutil.copy2(path, f"{path}.new")
        os.rename(f"{path}.new", path)
    path.chmod(path.stat().st_mode & 0o7777 | 0o020)
    doctor.finds("directories", f"others may write to {path} (mode 0", f"chmod go-w '{path}'")


def test_others_own_a_part(well, doctor):
    start(well)
    os.chown(well.db, 1234, 0)
    doctor.finds("directories", f"{well.db} belongs to user 1234", f"chown root: '{well.db}'")


def test_others_may_swap_the_installation(well, doctor):
    start(well)
    well.root.parent.chmod(0o777)
    doctor.finds("directories", f"what lies in {well.root.parent} (owner 0, mode 0777)", "chmod go-w")


def test_no_quarantine_yet(well, doctor):
    well.quarantine.rmdir()
    start(well)
    doctor.finds("quarantine", "made with the first copy", f"mkdir -m 0700 '{well.quarantine}'", "warning")


def test_the_quarantine_is_read_only(well, doctor, mounts):
    mounts.read_only(well.quarantine)
    start(well)
    assert not doctor.finds("quarantine", "lies on a read-only file system: infected files are removed without",
                            "remount,rw") - OF_THE_MACHINE


def test_the_quarantine_is_a_file(well, doctor):
    well.quarantine.rmdir()
    well.quarantine.touch(0o600)
    start(well)
    doctor.finds("quarantine", "is no directory", f"rm '{well.quarantine}'")


def test_the_disk_is_full(well, doctor, mounts):
    mounts.tmpfs(well.quarantine, b"size=1m")
    well.quarantine.chmod(0o700)
    start(well)
    doctor.finds("disk_space", f"1.00 MB are free in {well.quarantine}", "make room")


def test_the_disk_takes_no_more_files(well, doctor, mounts):
    mounts.tmpfs(well.quarantine, b"nr_inodes=1")
    well.quarantine.chmod(0o700)
    start(well)
    doctor.finds("disk_space", f"no more files can be made in {well.quarantine}", "df -i")


def test_the_engine_has_too_little_room(well, doctor, mounts):
    place = fresh_directory() / "place"
    place.mkdir()
    mounts.tmpfs(place, b"size=5m")
    start(well, environment={"TMPDIR": str(place)})
    doctor.finds("engine_directory", f"are free in {place}/tvfilemon-engine-", "/dev/shm")


def test_the_log_takes_nothing(well, doctor, mounts):
    start(well)
    mounts.read_only(well.log_file.parent)
    assert not doctor.finds("log", f"{well.log_file} takes no lines", "mend it") - OF_THE_MACHINE


def test_a_store_is_damaged(well, doctor):
    well.configure(action=1)
    (well.settings / "tvcore.db").write_bytes(b"no store" * 1000)
    result = doctor.finds("stores", "a damaged one was set aside", "look over the settings", "warning")
    assert "stores" not in result
    assert "tvcore.db.corrupt-" in doctor.checks["stores"]["seen"]


@pytest.mark.parametrize("store", ["tvcore.db", "reports.db"])
def test_a_store_cannot_be_read(well, doctor, store):
    (well.settings / store).mkdir()
    start(well)
    doctor.finds("stores", "not a regular file", "look at")


@pytest.mark.parametrize("store", ["tvcore.db", "reports.db"])
def test_a_store_is_locked(well, doctor, store):
    well.configure()
    well.add_reports([])
    with locked(well.settings / store):
        doctor.finds("stores", "cannot be read", "nobody else uses it")
    assert "as root" not in doctor.checks["stores"]["fix"]


def test_the_root_is_not_there(tvctl):
    """Nothing there is no privacy, and root sees what there is."""
    document = tvctl.json("doctor", "--root", "/opt/none", status=1)
    checks = {check["name"]: check for check in document["checks"]}
    for name in ("privacy", "disk_space"):
        assert checks[name]["result"] == "warning" and "only root may" not in checks[name]["seen"], checks[name]
        assert "/opt/none/settings: No such file or directory" in checks[name]["seen"]


def test_the_port_is_open(well, doctor):
    start(well)
    subprocess.run(["ip", "link", "add", "v0", "type", "veth", "peer", "name", "v1"], check=True)
    try:
        subprocess.run(["ip", "address", "add", "192.0.2.1/24", "dev", "v0"], check=True)
        assert doctor.examine().checks["port_exposure"]["result"] == "ok"
        subprocess.run(["ip", "link", "set", "v0", "up"], check=True)
        assert not doctor.finds("port_exposure", "port 8889 is open on v0 (192.0.2.1)",
                                f"run as root: {well.root / GUARD} start") - OF_THE_MACHINE
        subprocess.run([well.root / GUARD, "start"], check=True)
        try:
            assert doctor.examine().checks["port_exposure"]["seen"] == "a firewall rule refuses port 8889"
        finally:
            subprocess.run([well.root / GUARD, "stop"], check=True)
    finally:
        subprocess.run(["ip", "link", "delete", "v0"], check=True)


def test_other_users_reach_the_port(well, doctor):
    start(well)
    doctor.finds("port_users", "any user of this machine may have the service delete files",
                 f"run as root: {well.root / GUARD} start")


def test_other_users_do_not_reach_the_port(well, doctor, guard):
    start(well)
    assert doctor.examine().checks["port_users"]["result"] == "ok"
    # Whoever is refused knows it.
    doctor.examine(user=1234, group=1234, extra_groups=[])
    assert doctor.checks["port_users"]["result"] == "ok"
    assert doctor.checks["service"]["fix"] == "sudo tvctl doctor"


def test_without_roots_rights(well, doctor):
    start(well)
    doctor.examine(user=1234, group=1234, extra_groups=[])
    assert doctor.of("failed") - OF_THE_MACHINE == set()
    hidden = {name for name, check in doctor.checks.items() if check["fix"] == "sudo tvctl doctor"}
    assert {"port_owner", "protection", "scan_action", "stores", "quarantine", "log", "watches"} <= hidden
    assert doctor.checks["engine"]["result"] == "ok"
