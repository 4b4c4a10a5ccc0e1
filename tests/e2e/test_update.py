"""Updates of the signatures: from a server on loopback to a service that detects by them."""

import contextlib
import fcntl
import os
import re
import shutil
import socket
import subprocess
import time
from pathlib import Path

import pytest

from harness import (BASE, EICAR, INSTRUMENTS, KLEZ_NAME, KLEZ_PATTERN, PRELOAD, SIGNATURES, TIMEOUT, Installation,
                     fresh_directory, wait_gone, wait_until, write_once)
from mirror import Mirror

NAMES = ("daily", "main", "bytecode")
CLAMAV_NUMBER = int(subprocess.check_output(["id", "-u", "clamav"]))
OLD, NEW = (SIGNATURES / f"test-{version}.cvd" for version in (5, 6))
NEW_BYTES = NEW.read_bytes()
HALF = len(NEW_BYTES) // 2
PRODUCTION = BASE / "packaging" / "signatures" / "freshclam.conf"
# What a test of errors has no time for.
QUICK = "ConnectTimeout 2\nReceiveTimeout 1\nMaxAttempts 1\n"


@pytest.fixture
def server():
    made = Mirror()
    yield made
    made.close()


class Updater:
    def __init__(self, installation, server):
        self.tv = installation
        self.upd = installation.root / "upd"
        self.upd.mkdir(mode=0o700, exist_ok=True)
        self.config = fresh_directory() / "freshclam.conf"
        self.configure(f"PrivateMirror {server.address}\n")

    def configure(self, source, more=QUICK):
        """The configuration of the product, with another source in the place of its own."""
        lines = [line for line in PRODUCTION.read_text().splitlines()
                 if line.split(" ")[0] not in ("DatabaseMirror", "DNSDatabaseInfo")]
        self.config.write_text(source + more + "\n".join(lines) + "\n")

    def command(self):
        return [self.tv.root / "bin" / "tvfilemon-update", "--config", self.config]

    def environment(self, path="/usr/sbin:/usr/bin:/sbin:/bin"):
        environment = {"PATH": path, **INSTRUMENTS}
        if PRELOAD.exists():
            environment["LD_PRELOAD"] = str(PRELOAD)
        return environment

    def run(self, result, says="", path="/usr/sbin:/usr/bin:/sbin:/bin"):
        """One update, which has to come to `result`; the value is the status file."""
        before = time.time()
        process = subprocess.run(self.command(), env=self.environment(path), stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=TIMEOUT, check=False)
        output = os.fsdecode(process.stdout)
        status = self.status()
        assert status["result"] == result and says in status["message"], (status, output)
        assert process.returncode == (0 if result in ("updated", "current") else 1), output
        tried = time.mktime(time.strptime(status["tried"], "%Y-%m-%dT%H:%M:%SZ")) - time.timezone
        assert before - 1 <= tried <= time.time(), status
        # Nothing is left lying about.
        hidden = [path.name for path in self.tv.db.iterdir() if not path.name.endswith(".cvd")]
        assert hidden == [], output
        self.output = output
        return status

    def status(self):
        lines = (self.upd / "status").read_text().splitlines()
        status = dict(line.split("=", 1) for line in lines)
        assert list(status) == ["tried", "result", "succeeded", "message"]
        return status

    def databases(self):
        return {path.name: path.read_bytes() for path in self.tv.db.iterdir()}


@pytest.fixture
def tv(home):
    """As in the other tests, with databases that have the names of the product's."""
    identities = open("/proc/self/uid_map", encoding="ascii").read()
    assert len(identities.splitlines()) > 1, "needs users besides root: be root, or install uidmap"
    installation = Installation(fresh_directory() / "root", databases=())
    for name in NAMES:
        shutil.copy(OLD, installation.db / f"{name}.cvd")
    yield installation
    installation.close()
    installation.check_log()


@pytest.fixture
def update(tv, server):
    server.serve(**{name: OLD for name in NAMES})
    return Updater(tv, server)


OLD_SET = {f"{name}.cvd": OLD.read_bytes() for name in NAMES}
NEW_SET = {**OLD_SET, "daily.cvd": NEW.read_bytes()}


def detects(tv, tvctl, content=KLEZ_PATTERN):
    """Whether the service finds something in `content`; the file lies where it does not watch."""
    file = fresh_directory() / "file"
    file.write_bytes(content)
    return tvctl.run("scan", file, status=None).status == 1


# ---------------------------------------------------------------------------------------------------- good


def test_a_newer_database_arrives_at_the_service(tv, tvctl, home, update, server):
    tv.start()
    assert not detects(tv, tvctl)
    server.serve(daily=NEW)
    status = update.run("updated", says="daily 6")
    assert status["succeeded"] == status["tried"]
    assert tvctl.json("status", status=None)["last_update"]["result"] == "updated"
    assert update.databases() == NEW_SET
    assert detects(tv, tvctl)
    write_once(home / "worm", KLEZ_PATTERN)
    wait_gone(home / "worm")
    assert tv.reports()[0]["virusName"] == KLEZ_NAME


def test_there_is_nothing_newer(tv, update, server):
    tv.start()
    lines = len(tv.log())
    before = {path: path.stat().st_ino for path in tv.db.iterdir()}
    update.run("current")
    assert {path: path.stat().st_ino for path in tv.db.iterdir()} == before
    # Not even a reload, and no file as a whole.
    assert [line.message for line in tv.log()[lines:]] == []
    assert all(part == "bytes=0-511" for _, part in server.requests)


def test_the_first_time(tv, update, server):
    for file in tv.db.iterdir():
        file.unlink()
    server.serve(daily=NEW)
    update.run("updated", says="bytecode 5, daily 6, main 5")
    assert update.databases() == NEW_SET
    assert all(path.stat().st_mode & 0o7777 == 0o644 and path.stat().st_uid == 0 for path in tv.db.iterdir())


def test_a_service_that_does_not_run_is_no_failure(tv, tvctl, update, server):
    server.serve(daily=NEW)
    update.run("updated")
    tv.start()
    assert detects(tv, tvctl)


def test_only_whole_databases(tv, update, server):
    """Neither patches nor what they make: the service ignores both."""
    server.serve(daily=NEW)
    server.files["daily-6.cdiff"] = b"nonsense"
    update.configure(f"DatabaseMirror {server.address}\nDNSDatabaseInfo no\nScriptedUpdates yes\n")
    update.run("updated")
    assert not [name for name, _ in server.requests if name.endswith(".cdiff")]
    assert set(update.databases()) == set(OLD_SET)


def test_what_the_configuration_asks_for_besides(tv, update, server):
    server.serve(test=OLD, own=OLD, daily=NEW)
    lines = f"ExtraDatabase test\nDatabaseCustomURL {server.address}/own.cvd\n"
    update.configure(f"DatabaseMirror {server.address}\nDNSDatabaseInfo no\n{lines}")
    update.run("updated", says="daily 6, own 5, test 5")
    # From here on they are wanted as all that is in use.
    update.configure(f"PrivateMirror {server.address}\n")
    fake = FakeFreshclam(f"rm own.cvd; cp {NEW} own.cvd")
    update.run("updated", says="own 6", path=fake.path)
    assert set(update.databases()) == {*OLD_SET, "own.cvd", "test.cvd"}


def test_a_private_mirror_with_patched_databases_is_told(tv, update, server):
    server.files["daily.cld"] = NEW.read_bytes()
    status = update.run("refused", says="daily.cld is no whole .cvd file")
    assert status["succeeded"] == ""
    assert update.databases() == OLD_SET


def test_a_damaged_database_comes_anew(tv, tvctl, update):
    content = OLD.read_bytes()
    (tv.db / "main.cvd").write_bytes(content[:len(content) // 2])
    tv.start(wait=False)
    update.run("updated", says="main 5")
    assert update.databases() == OLD_SET
    wait_until(lambda: detects(tv, tvctl, EICAR), "the service to detect")


def test_freshclam_has_no_rights(tv, update):
    update.run("current")
    assert (update.upd / "freshclam").stat().st_uid == CLAMAV_NUMBER
    assert update.upd.stat().st_uid == 0
    configuration = (update.upd / "freshclam.conf").stat()
    assert (configuration.st_uid, configuration.st_mode & 0o7777) == (0, 0o640)


# ----------------------------------------------------------------------------------- what a server can do


def page(request):
    """As a network that asks for a log-in answers everything."""
    request.send_response(200)
    request.end_headers()
    request.wfile.write(b"<html><body>Please log in" + b" " * 20000)


def drop(request):
    """The head comes, and then half of the file."""
    Mirror.answer(request, NEW_BYTES if request.headers["Range"] else NEW_BYTES[:HALF], length=len(NEW_BYTES))


def hang(request):
    drop(request)
    if not request.headers["Range"]:
        request.wfile.flush()
        time.sleep(TIMEOUT)


def error(request):
    request.send_error(503)


@pytest.mark.parametrize("bad", [
    pytest.param(NEW_BYTES[:HALF], id="truncated"),
    pytest.param(NEW_BYTES[:-1], id="one byte short"),
    pytest.param(NEW_BYTES[:HALF] + bytes([NEW_BYTES[HALF] ^ 1]) + NEW_BYTES[HALF + 1:], id="corrupt"),
    pytest.param(NEW_BYTES[:512] + OLD.read_bytes()[512:], id="head of another"),
    pytest.param(NEW_BYTES.replace(b":6:", b":9:", 1), id="another version in the head"),
    pytest.param(b"ClamAV-VDB:" + b"x" * 9000, id="a head and nothing"),
    pytest.param(b"", id="empty"),
    page, drop, hang, error,
])
def test_a_bad_download_never_replaces_a_good_file(update, server, bad):
    good = update.run("current")
    server.serve(daily=bad)
    status = update.run("download-failed")
    assert status["succeeded"] == good["succeeded"]
    assert update.databases() == OLD_SET


def test_what_is_good_comes_though_the_rest_is_bad(tv, tvctl, update, server):
    tv.start()
    server.serve(daily=NEW, main=NEW_BYTES[:HALF])
    update.run("download-failed", says="updated daily 6; ")
    assert update.databases() == NEW_SET
    assert detects(tv, tvctl)


def test_an_older_version_is_not_taken(tv, update, server):
    shutil.copy(NEW, tv.db / "daily.cvd")
    update.run("current")
    assert update.databases() == NEW_SET


def test_no_network_changes_nothing_and_is_told(tv, tvctl, update, server):
    server.serve(daily=NEW)
    tv.start()
    update.run("updated")
    good = update.status()
    with socket.create_server(("127.0.0.1", 0)) as unused:
        port = unused.getsockname()[1]
    update.configure(f"PrivateMirror http://127.0.0.1:{port}\n")
    status = update.run("download-failed", says="Couldn't connect to server")
    assert status["succeeded"] == good["tried"]
    assert update.databases() == NEW_SET
    assert detects(tv, tvctl)
    shown = next(line for line in tvctl.run("status", status=None).lines() if line.startswith("last update"))
    assert "download-failed, 20" in shown and "Couldn't connect to server; last success: 20" in shown
    document = tvctl.json("status", status=None)["last_update"]
    assert (document["result"], document["message"]) == (status["result"], status["message"])
    assert document["time"] == status["tried"].replace("Z", ".000Z")
    assert document["last_success"] == good["tried"].replace("Z", ".000Z")
    found = next(check for check in tvctl.json("doctor", status=None)["checks"] if check["name"] == "update")
    assert found["result"] == "warning" and "tvfilemon-update as root" in found["fix"]


def test_no_name_server(tv, update):
    update.configure("DatabaseMirror mirror.invalid\nDNSDatabaseInfo no\n")
    status = update.run("download-failed", says="resolve host")
    assert status["succeeded"] == ""
    assert update.databases() == OLD_SET


def test_a_server_that_wants_to_be_left_alone(update, server):
    def too_many(request):
        request.send_response(429)
        request.send_header("Retry-After", "600")
        request.end_headers()

    server.serve(daily=too_many)
    update.run("download-failed")
    asked = len(server.requests)
    status = update.run("download-failed", says="still on cool-down until")
    assert status["succeeded"] == ""
    assert len(server.requests) == asked


# ------------------------------------------------------------------------------------ what the rest can do


class FakeFreshclam:
    """In the place of freshclam, and in the hands of somebody bad: a script of the user freshclam runs as."""

    def __init__(self, script):
        directory = fresh_directory()
        program = directory / "freshclam"
        program.write_text(f"""#!/bin/bash
set -e
cd "$(sed 's/.*--datadir=//;s/ .*//' <<<"$*")"
{script}
""")
        program.chmod(0o755)
        self.path = f"{directory}:/usr/sbin:/usr/bin:/sbin:/bin"


@pytest.mark.parametrize("script, says", [
    (f"rm daily.cvd; cat {OLD} >daily.cvd; echo >>daily.cvd", "daily.cvd is damaged or not signed"),
    ("rm daily.cvd; ln -s /etc/passwd daily.cvd", "daily.cvd cannot be copied"),
    (f"rm daily.cvd; ln -s {NEW} daily.cvd", "daily.cvd cannot be copied"),
    ("rm daily.cvd; mkdir daily.cvd", "daily.cvd cannot be copied"),
    ("rm daily.cvd; mkfifo daily.cvd", "daily.cvd is damaged or not signed"),
    ("rm daily.cvd; truncate -s 3G daily.cvd; truncate -s 100 daily.cvd", "daily.cvd is damaged"),
    ("rm daily.cvd; echo >$'x\\033[31m.cvd'; echo >.cvd; echo >daily.cvd", "daily.cvd is damaged"),
    (f"cp {NEW} 'x y.cvd'; echo x >../status 2>/dev/null || {{ rm main.cvd; echo x >main.cvd; }}", "main.cvd is damaged"),
    (f"cp {NEW} other.cvd", "nobody asked for other.cvd"),
    (f"cp {NEW} Daily.cvd", "nobody asked for Daily.cvd"),
    (f"rm *; for i in {{1..40}}; do cp {NEW} $i.cvd; done", "nobody asked for 1.cvd and 39 more"),
])
def test_what_freshclam_leaves_is_not_believed(tv, update, script, says):
    update.run("refused", says=says, path=FakeFreshclam(script).path)
    assert update.databases() == OLD_SET
    assert "\x1b" not in update.output
    # And nothing of it stays for the next time.
    update.run("current")


def test_an_older_version_is_refused_whoever_brings_it(tv, update):
    shutil.copy(NEW, tv.db / "daily.cvd")
    fake = FakeFreshclam(f"rm daily.cvd; cp {OLD} daily.cvd")
    update.run("refused", says="daily.cvd has version 5, which is not newer than 6", path=fake.path)
    assert update.databases() == NEW_SET


def test_freshclam_cannot_change_what_is_in_use(tv, update):
    fake = FakeFreshclam("""
        for file in *.cvd; do ! echo x 2>/dev/null >>$file; done
        ! touch ../../db/x.cvd 2>/dev/null; ! touch ../x 2>/dev/null
        ! grep -q '^CapEff:.*[1-9a-f]' /proc/self/status; grep -q '^NoNewPrivs:.*1' /proc/self/status""")
    update.run("current", path=fake.path)
    assert update.databases() == OLD_SET


def test_a_full_disk_is_told(tv, mounts, update):
    mounts.tmpfs(update.upd, b"size=1m")
    fake = FakeFreshclam("cat /dev/zero >new 2>/dev/null || exit 1")
    update.run("download-failed", says="freshclam ended with status 1", path=fake.path)
    assert update.databases() == OLD_SET


def test_what_freshclam_says_cannot_do_harm(tv, update):
    fake = FakeFreshclam(r"printf 'ERROR: \033[2Jresult=current\nresult=updated\n%s\n' x{1..1000}; exit 3")
    status = update.run("download-failed", path=fake.path)
    assert status["message"] == "ERROR: [2Jresult=current"
    assert "\x1b" not in update.output


def test_a_reload_that_fails_brings_the_old_back(tv, tvctl, update, server):
    """The service refuses for a reason of its own: a file that is damaged only for it."""
    tv.start()
    server.serve(daily=NEW)
    (tv.db / "zz.cvd").write_bytes(b"nonsense")
    update.run("refused", says="the engine does not take daily 6")
    (tv.db / "zz.cvd").unlink()
    tvctl_program = tv.root / "bin" / "tvctl"
    real = tv.root / "bin" / "real-tvctl"
    os.rename(tvctl_program, real)
    mark = fresh_directory() / "mark"
    # Only the first time, as when the new ones are the reason.
    tvctl_program.write_text(f"""#!/bin/sh
        [ -e {mark} ] || {{ touch {mark}; echo "tvctl: no"; exit 2; }}
        exec {real} "$@"
        """)
    tvctl_program.chmod(0o755)
    lines = len(tv.log())
    status = update.run("reload-failed", says="daily 6")
    assert update.databases() == OLD_SET
    assert status["succeeded"] == ""
    assert "Successfully Compiled Engine." in [line.message for line in tv.log()[lines:]]
    update.run("updated")
    assert update.databases() == NEW_SET
    assert detects(tv, tvctl)


@pytest.mark.parametrize("is_bad", [False, True])
def test_what_was_interrupted_is_completed(tv, tvctl, update, server, is_bad):
    """As after a power failure behind the first rename: what was replaced is still there."""
    tv.start()
    server.serve(daily=NEW, main=NEW)
    program = tv.root / "bin" / "tvctl"
    real = tv.root / "bin" / "real-tvctl"
    os.rename(program, real)
    waits = fresh_directory() / "waits"
    program.write_text(f"#!/bin/sh\necho $$ >{waits}; exec sleep 1000\n")
    program.chmod(0o755)
    process = subprocess.Popen(update.command(), env=update.environment(), stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
    reload = wait_until(lambda: waits.exists() and waits.read_text(), "the reload to begin")
    os.killpg(process.pid, 9)
    process.wait()
    os.kill(int(reload), 9)
    assert (tv.db / ".previous").is_dir()
    if is_bad:
        program.write_text(f"#!/bin/sh\n[ -e {waits} ] || exec {real} \"$@\"\nrm {waits}; exit 2\n")
        update.run("reload-failed")
        assert update.databases() == OLD_SET
    os.rename(real, program)
    # The reload comes though nothing newer is there.
    update.run("updated" if is_bad else "current")
    assert update.databases() == {**NEW_SET, "main.cvd": NEW.read_bytes()}
    assert detects(tv, tvctl)


# What freshclam opens, makes or renames, as strace writes it.
CALL = re.compile(r'(?:openat|unlink|rename|mkdir|rmdir|chdir)\((?:AT_FDCWD<([^>]*)>, )?"([^"]*)"(?:, "([^"]*)")?(.*)')
PROFILE = Path("/etc/apparmor.d/usr.bin.freshclam")


def profile_rules():
    """The paths of Debian's profile, each with its rights, without what its abstractions add."""
    found = []
    for path, rights in re.findall(r"^  (/\S+) (\w+),$", PROFILE.read_text(), re.MULTILINE):
        if "@" not in path and "{" not in path:
            pattern = re.escape(path).replace(r"\*\*", ".+").replace(r"\*", "[^/]+")
            found.append((re.compile(pattern), rights))
    return found


def test_within_the_profile_of_freshclam(tv, mounts, update, server):
    """As the unit does it: our directory in the place of the one that the profile allows."""
    server.serve(daily=NEW)
    mounts.bind(update.upd, "/var/lib/clamav")
    trace = fresh_directory() / "trace"
    subprocess.run(["strace", "-f", "-y", "-o", trace, "-e", "trace=%file", *update.command()],
                   env=update.environment(), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=True)
    assert update.status()["result"] == "updated"
    lines = trace.read_text().splitlines()
    start = next(number for number, line in enumerate(lines) if 'execve("/usr/bin/freshclam"' in line)
    process = lines[start].split()[0]
    rules = profile_rules()
    touched, directory = 0, "/"
    for line in lines[start + 1:]:
        call = CALL.search(line) if line.split()[0] == process and " = -1 " not in line else None
        if call is None:
            continue
        here, first, second, rest = call.groups()
        directory = here or directory
        if "chdir(" in line:
            directory = os.path.join(directory, first)
            continue
        writes = "openat" not in line or "O_WRONLY" in rest or "O_RDWR" in rest
        for path in filter(None, (first, second)):
            path = os.path.join(directory, path)
            # Libraries, time zones and the like, which the profile's abstractions allow.
            if not writes and path.startswith(("/usr/", "/lib/", "/etc/", "/proc/", "/dev/", "/mnt/tools/")):
                assert not path.startswith("/etc/talvenor")
                continue
            touched += 1
            needed = "w" if writes else "r"
            assert any(pattern.fullmatch(path) and needed in rights for pattern, rights in rules), line
    assert touched > 10


def test_where_nothing_is_yet(tv, update):
    update.upd.rmdir()
    update.run("current")


def test_without_a_configuration(tv, update):
    """The public mirrors, which are out of reach here."""
    update.config.unlink()
    update.run("download-failed", path=FakeFreshclam("grep ^DatabaseMirror ../freshclam.conf; exit 1").path)
    assert "DatabaseMirror database.clamav.net" in update.output


@contextlib.contextmanager
def held_lock(update, began):
    """As by an update that began so many seconds after the boot."""
    (update.upd / "private").mkdir(mode=0o700)
    with open(update.upd / "private" / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        lock.write(f"{began}\n")
        lock.flush()
        yield


def uptime():
    return int(float(Path("/proc/uptime").read_text(encoding="ascii").split()[0]))


def test_two_at_once(tv, update):
    with held_lock(update, uptime() - 60):
        output = subprocess.check_output(update.command(), env=update.environment())
    assert output == b"tvfilemon-update: another one runs\n"
    assert not (update.upd / "status").exists()


def test_the_lock_tells_when_the_update_began(tv, update):
    before = uptime()
    update.run("current")
    assert before <= int((update.upd / "private" / "lock").read_text(encoding="ascii")) <= uptime()


@pytest.mark.parametrize("began", [-11000, 3600])
def test_one_that_never_ends_is_told(tv, update, mounts, began):
    """Also one that is none, and holds the lock with what was written before the last boot."""
    # The tests' machine may not run that long.
    clock = fresh_directory() / "uptime"
    clock.write_text(f"{uptime() + 20000}.00 0.00\n", encoding="ascii")
    mounts.bind(clock, "/proc/uptime")
    with held_lock(update, uptime() + began):
        status = update.run("failed", says="another update has not ended in 3 hours")
        assert status["succeeded"] == ""
    update.run("current")


# Locks whatever below the directory can be opened for reading, says how much that was, and goes on.
LOCK_ALL = """
import fcntl, os, sys
held = []
for directory, _, names in os.walk(sys.argv[1]):
    for name in (".", *names):
        try:
            held.append(os.open(os.path.join(directory, name), os.O_RDONLY | os.O_NONBLOCK))
            fcntl.flock(held[-1], fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            pass
print(len(held), flush=True)
sys.stdin.read()
"""


@pytest.mark.parametrize("user", [CLAMAV_NUMBER, 65534])
def test_nobody_but_root_holds_an_update_up(tv, update, server, user):
    update.run("current")
    tv.root.chmod(0o755)
    server.serve(daily=NEW)
    with subprocess.Popen(["/usr/bin/python3", "-c", LOCK_ALL, tv.root], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, user=user, group=user, extra_groups=[]) as holder:
        assert int(holder.stdout.readline()) > 10
        update.run("updated", says="daily 6")


def test_usage(tv, update):
    for arguments in (["now"], ["--config"]):
        result = subprocess.run([*update.command()[:1], *arguments], check=False, stderr=subprocess.DEVNULL)
        assert result.returncode == 2
