"""`tvctl sweep`."""

import ctypes
import os
import re
import signal
import struct
import subprocess
import sys
import threading
import time
from pathlib import Path

import pytest

from harness import EICAR, EICAR_NAME, TIMEOUT, Installation, exists, quarantine_name, wait_until, write_deep, write_once
from storefailures import damage, inaccessible, locked, locked_for_writing
from tool import KEPT_CHANGE_TIMES, WITHOUT_PRIVILEGES, Tool

CLEAN = b"nothing in here"

# How far back of its beginning a sweep looks, and some more.
MARGIN = 2.2


def wait_until_old():
    """Returns when a sweep that begins now does not look back at what was done before the call."""
    done = time.time()
    wait_until(lambda: time.time() > done + MARGIN, "the clock")


def write_tree(root, *infected, clean=()):
    """Files at these paths below the root, which nobody is to see appear."""
    for path, content in [*((path, EICAR) for path in infected), *((path, CLEAN) for path in clean)]:
        (root / path).parent.mkdir(parents=True, exist_ok=True)
        write_once(root / path, content)


def swept(tv):
    """The records of sweeps as path, virus, status."""
    return sorted((record["filePath"], record["virusName"], record["cleanStatus"])
                  for record in tv.reports() if record["moduleName"] == "tvsweep")


def paths_of(document):
    return sorted(found["path"] for found in document["detections"])


@pytest.fixture
def tvctl(tv):
    return Tool(tv, KEPT_CHANGE_TIMES)


@pytest.fixture
def old(home):
    """A tree that was there before the service began; one file is hidden, one lies deeper than is watched."""
    write_tree(home, "bad", ".hidden/bad", "1/2/3/4/5/6/7/8/bad", clean=["good", "1/good"])
    return home


OLD = (".hidden/bad", "1/2/3/4/5/6/7/8/bad", "bad")


def test_the_first_sweep_scans_everything(tv, tvctl, old):
    tv.start()
    result = tvctl.run("sweep", status=1)
    assert result.errors == ""
    assert result.lines()[0] == "scanning everything"
    assert result.lines()[1:4] == [f"{old}/{path}: {EICAR_NAME} - removed; its copy is in the quarantine"
                                   for path in OLD]
    assert result.lines()[5] == "files looked at:  5" and result.lines()[6] == "files scanned:    5"
    assert not any(exists(old / path) for path in OLD) and exists(old / "good")
    assert swept(tv) == [(str(old / path), EICAR_NAME, 0) for path in OLD]
    [record] = [record for record in tv.reports() if record["filePath"] == str(old / "1/2/3/4/5/6/7/8/bad")]
    assert record["fileName"] == "bad" and abs(record["msecs"] / 1000 - time.time()) < 60
    assert re.fullmatch(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d", record["moduleVersion"])
    assert len(tv.quarantined()) == 3


def test_the_document(tv, tvctl, old):
    tv.start()
    document = tvctl.json("sweep", status=1)
    assert document.pop("seconds") > 0
    assert document == {
        "detections": [{"path": str(old / path), "virus": EICAR_NAME, "action": "removed",
                        "detail": "removed; its copy is in the quarantine"} for path in OLD],
        "errors": [], "full": True, "since": None, "resumed": False, "finished": True, "looked_at": 5,
        "files": 5,
        "infected": 3, "removed": 3, "failed": 0, "unreadable": 0, "skipped": 0, "passed_over": 0,
        "stopped": None}
    before = time.time()
    document = tvctl.json("sweep")
    assert not document["full"] and document["since"].endswith("Z") and document["looked_at"] == 2
    since = time.strptime(document["since"][:19], "%Y-%m-%dT%H:%M:%S")
    assert before - TIMEOUT < time.mktime(since) - time.timezone < before


class Opened:
    """The names in a directory that somebody opens."""

    IN_OPEN, IN_NONBLOCK, IN_ISDIR = 0x20, 0o4000, 0x40000000

    def __init__(self, directory):
        libc = ctypes.CDLL(None, use_errno=True)
        self._descriptor = libc.inotify_init1(self.IN_NONBLOCK)
        assert libc.inotify_add_watch(self._descriptor, os.fsencode(directory), self.IN_OPEN) >= 0

    def files(self):
        names = []
        try:
            while True:
                data = os.read(self._descriptor, 65536)
                while data:
                    _, mask, _, size = struct.unpack_from("iIII", data)
                    if not mask & self.IN_ISDIR:
                        names.append(data[16:16 + size].rstrip(b"\0").decode())
                    data = data[16 + size:]
        except BlockingIOError:
            return names

    def close(self):
        os.close(self._descriptor)


def test_unchanged_files_are_not_touched(tv, tvctl, home):
    write_tree(home, clean=[f"many/{number}" for number in range(3000)])
    wait_until_old()
    tv.start()
    assert tvctl.json("sweep")["files"] == 3000
    opened = Opened(home / "many")
    document = tvctl.json("sweep")
    assert (document["looked_at"], document["files"]) == (3000, 0)
    assert opened.files() == []
    # It would have been seen.
    os.chmod(home / "many/7", 0o600)
    assert tvctl.json("sweep")["files"] == 1
    assert opened.files() == ["7"]
    opened.close()


def test_a_queue_overflow_hides_nothing(tv, tvctl, home):
    folders = [home, *(home / f"folder{number}" for number in range(9))]
    for folder in folders[1:]:
        folder.mkdir()
    for name in ("one", "other"):
        write_once(home / name, CLEAN)
    tv.start()
    assert tvctl.json("sweep")["detections"] == []
    tv.pause()
    # Two files in turn, since the kernel merges what follows itself. Closing one brings no scan.
    for number in range(int(Path("/proc/sys/fs/inotify/max_queued_events").read_text()) + 1):
        os.close(os.open(home / ("one" if number % 2 else "other"), os.O_WRONLY))
    hidden = sorted(str(write_once(folders[number % 10] / f"hidden{number}")) for number in range(300))
    tv.resume()
    wait_until(lambda: sees_events(home), "the monitor to see events again")
    assert all(map(exists, hidden)), "the overflow hid them from the monitor"
    found = [path for path in paths_of(tvctl.json("sweep", status=1)) if "/late" not in path]
    assert found == hidden
    assert not any(map(exists, hidden))
    assert [record for record in swept(tv) if "/late" not in record[0]] == [
        (path, EICAR_NAME, 0) for path in hidden]
    assert len(tv.quarantined()) >= 300


def sees_events(directory):
    """For polling: the monitor has cleaned one of the files that were written so far, or writes one more."""
    late = [directory / f"late{number}" for number in range(len(list(directory.glob("late*"))) + 1)]
    if not all(map(exists, late[:-1])):
        return True
    write_once(late[-1])
    return False


def test_a_directory_that_is_moved_in(tv, tvctl, home):
    write_tree(home, clean=["here/good"])
    away = Path("/home/away/moved")
    write_tree(away, "bad", "deep/er/bad", clean=["good"])
    wait_until_old()
    tv.start()
    assert not tvctl.json("sweep", home)["detections"]
    assert tvctl.json("sweep", home)["files"] == 0
    os.rename(away, home / "here/moved")
    tv.settle()
    assert exists(home / "here/moved/bad"), "the monitor does not look into it"
    document = tvctl.json("sweep", home, status=1)
    assert paths_of(document) == [f"{home}/here/moved/bad", f"{home}/here/moved/deep/er/bad"]
    assert (document["full"], document["looked_at"], document["files"]) == (False, 4, 3)


def test_trees_that_are_too_deep_or_hidden_for_the_monitor(tv, tvctl, home):
    deep = "/".join("12345678")
    (home / deep).mkdir(parents=True)
    (home / ".config").mkdir()
    tv.start()
    tvctl.json("sweep")
    write_tree(home, f"{deep}/bad", ".config/bad")
    tv.settle()
    assert exists(home / deep / "bad") and exists(home / ".config/bad"), "the monitor does not see them"
    assert paths_of(tvctl.json("sweep", status=1)) == [f"{home}/.config/bad", f"{home}/{deep}/bad"]


def test_media_too(tv, tvctl, mounts):
    mounts.tmpfs("/media")
    Path("/media/stick").mkdir()
    mounts.tmpfs("/media/stick")
    write_once("/media/stick/bad")
    tv.start()
    assert paths_of(tvctl.json("sweep", status=1)) == ["/media/stick/bad"]


def test_what_is_mounted_is_always_due(tv, tvctl, home, mounts):
    # Whoever made the file system elsewhere had every file be as old as he liked.
    for place in ("/media/stick", home / "disk", "/home/plain"):
        Path(place).mkdir()
    mounts.tmpfs("/media/stick")
    mounts.tmpfs(home / "disk")
    for place in ("/media", "/media/stick", home / "disk", "/home/plain"):
        write_once(Path(place) / "file", CLEAN)
    wait_until_old()
    tv.start()
    assert tvctl.json("sweep")["files"] == 4
    assert tvctl.json("sweep")["files"] == 3
    assert tvctl.json("sweep", home)["files"] == tvctl.json("sweep", home)["files"] == 1
    for _ in range(2):
        assert tvctl.json("sweep", home / "disk")["files"] == 1
    assert tvctl.json("sweep", "/home/plain")["files"] == 1 and tvctl.json("sweep", "/home/plain")["files"] == 0


def test_what_lies_in_memory_is_always_due(tv, home):
    write_tree(home, clean=["file"])
    wait_until_old()
    tv.start()
    for _ in range(2):
        assert Tool(tv).json("sweep")["files"] == 1


def test_a_folder_of_many_names_is_scanned_once(tv, tvctl, mounts):
    mounts.tmpfs("/media")
    for name in ("first", "second", "third"):
        Path("/media", name).mkdir()
    write_once("/media/first/file", CLEAN)
    for name in ("second", "third"):
        mounts.bind("/media/first", f"/media/{name}")
    tv.start()
    document = tvctl.json("sweep", "/media")
    assert (document["files"], document["passed_over"]) == (1, 2)


def test_full(tv, tvctl, home):
    write_tree(home, clean=["good"])
    wait_until_old()
    tv.start()
    assert tvctl.json("sweep")["files"] == 1
    assert tvctl.json("sweep")["files"] == 0
    document = tvctl.json("sweep", "--full")
    assert document["full"] and document["files"] == 1
    assert tvctl.run("sweep", "--full").lines()[0] == "scanning everything"
    assert tvctl.run("sweep").lines()[0].startswith("scanning what changed since 20")


def test_report_only(tv, tvctl, old):
    tv.configure(action=0)
    tv.start()
    document = tvctl.json("sweep", status=1)
    assert {found["action"] for found in document["detections"]} == {"report only"}
    assert all(exists(old / path) for path in OLD)
    assert swept(tv) == [(str(old / path), EICAR_NAME, -1) for path in OLD]
    assert tv.quarantined() == {}


def test_what_cannot_be_removed_is_due_again(tv, tvctl, home, mounts):
    bad = write_once(home / "bad")
    write_once(home / "good", CLEAN)
    mounts.bind(bad, bad)
    wait_until_old()
    tv.start()
    assert tvctl.json("sweep", status=1)["detections"][0]["action"] == "not removed"
    document = tvctl.json("sweep", status=1)
    assert (document["files"], document["infected"]) == (1, 1)
    mounts.unmount(bad)
    assert tvctl.json("sweep", status=1)["removed"] == 1
    assert swept(tv) == [(str(bad), EICAR_NAME, status) for status in (0, 1, 1)]
    assert len(tv.quarantined()) == 1


def test_a_file_that_is_held_by_a_lease(tv, tvctl, home):
    # Whoever owns it is told that somebody wants to open it, and may take his time.
    bad = write_once(home / "held")
    write_once(home / "other", CLEAN)
    holder = subprocess.Popen([sys.executable, "-c", (
        "import fcntl, signal, sys, time\n"
        "def let_go(*_):\n"
        "    time.sleep(1)\n"
        "    sys.exit()\n"
        "signal.signal(signal.SIGIO, let_go)\n"
        "held = open(sys.argv[1], 'r+b')\n"
        "fcntl.fcntl(held, fcntl.F_SETLEASE, fcntl.F_WRLCK)\n"
        "print('held', flush=True)\n"
        "signal.pause()\n"), bad], stdout=subprocess.PIPE)
    assert holder.stdout.readline() == b"held\n"
    tv.start()
    document = tvctl.json("sweep", status=1)
    assert (document["looked_at"], document["files"], document["removed"], document["errors"]) == (2, 2, 1, [])
    assert holder.wait(TIMEOUT) == 0 and not exists(bad)


def test_odd_names(tv, tvctl, home):
    path = os.path.join(os.fsencode(home), b"\xff\nbad")
    write_once(path)
    tv.start()
    assert tvctl.json("sweep", status=1)["detections"][0]["action"] == "removed"
    assert swept(tv) == [(f"{home}/\\xff\nbad", EICAR_NAME, 0)]
    assert not exists(path)


def test_paths_that_are_longer_than_a_record(tv, tvctl, home):
    write_deep(home, 40)
    path = f"{home}{('/' + 'd' * 200) * 40}/bad"
    tv.start()
    result = tvctl.run("sweep", status=1)
    shown = path[:250] + "..." + path[-250:]
    assert result.lines()[1].startswith(f"{shown}: {EICAR_NAME} - removed")
    assert swept(tv) == [(shown, EICAR_NAME, 0)]
    assert quarantine_name(path).fullmatch(*tv.quarantined())


def test_protection_that_is_off(tv, tvctl, old):
    tv.configure(protection=False)
    tv.start()
    assert tvctl.json("sweep", status=1)["infected"] == 3


def test_excluded_folders_and_files(tv, tvctl, old):
    wait_until_old()
    tv.configure(exclude={"0": [str(old / "bad")], "1": [str(old / "1/2")]})
    tv.start()
    document = tvctl.json("sweep", status=1)
    assert paths_of(document) == [f"{old}/.hidden/bad"] and document["skipped"] == 1
    # What is not excluded any more counts as new.
    tv.configure(exclude={"0": [], "1": []})
    tvctl.run("reload", "settings")
    assert paths_of(tvctl.json("sweep", status=1)) == [f"{old}/1/2/3/4/5/6/7/8/bad"]


def test_its_own_directories_are_left_out(home, files):
    tv = Installation(home / "suite/root")
    tvctl = Tool(tv)
    tv.start()
    try:
        tv.quarantine.mkdir(exist_ok=True)
        for directory in (tv.quarantine, tv.log_file.parent, tv.settings):
            write_once(directory / ".bad")
        write_once(tv.root / ".hidden-bad")
        tv.settle()
        document = tvctl.json("sweep", status=None)
        assert document["skipped"] == 3
        assert all(exists(directory / ".bad") for directory in (tv.quarantine, tv.settings))
    finally:
        tv.close()


def test_unreadable_folders(tv, tvctl, home):
    write_tree(home, "closed/bad", clean=["good"])
    os.chmod(home / "closed", 0)
    wait_until_old()
    tv.start()
    document = tvctl.json("sweep", status=2, wrapper=WITHOUT_PRIVILEGES)
    assert document["errors"] == [{"path": str(home / "closed"), "reason": "Permission denied"}]
    assert (document["finished"], document["files"], document["unreadable"]) == (True, 1, 1)
    # As soon as it can be read it is due, however old it is.
    assert paths_of(tvctl.json("sweep", status=1)) == [f"{home}/closed/bad"]


@pytest.mark.parametrize("name, says", [
    ("none", "No such file or directory"),
    ("link", "it is a symbolic link, which is not followed"),
])
def test_roots_that_are_none(tv, tvctl, home, name, says):
    os.symlink("u", home / "link")
    tv.start()
    assert tvctl.run("sweep", home / name, status=2).errors == f"tvctl: {home}/{name}: {says}\n"
    document = tvctl.json("sweep", home / name, status=2)
    assert document["errors"] == [{"path": f"{home}/{name}", "reason": says}]


# ------------------------------------------------------------------------------------------------ interrupted


NAMES = [f"{number:03}" for number in range(200)]


@pytest.fixture
def many(home):
    write_tree(home, "190", clean=[name for name in NAMES if name != "190"])
    wait_until_old()
    return home


def asked(service):
    return [request.decode().rpartition("/")[2] for request in service.requests if request.startswith(b"SCAN")]


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGINT, signal.SIGTERM])
def test_an_interrupted_sweep_goes_on(tv, tvctl, many, fake_service, never, number):
    begun = []

    def first(_request):
        begun.append(time.monotonic())
        return "CLEAN"

    def late(_request):
        # Behind this reply the sweep keeps what it has done.
        wait_until(lambda: time.monotonic() > begun[0] + 2.5, "the time to keep the progress")
        return "CLEAN"

    service = fake_service(first, *["CLEAN"] * 98, late, *["CLEAN"] * 20, never)
    process = tvctl.start("sweep")
    wait_until(lambda: len(service.requests) == 1 + 121, "the file at which it is interrupted")
    process.send_signal(number)
    output, errors = process.communicate(timeout=TIMEOUT)
    if number == signal.SIGKILL:
        assert process.returncode == -number
    else:
        assert process.returncode == 2
        assert errors == (b"tvctl: interrupted; 120 files were scanned until then\n"
                          b"tvctl: the next sweep goes on from here\n")
        assert b"\nfiles scanned:    120\n" in output
    before = asked(service)[:-1]
    service.close()
    # Behind its back; the sweep after the one that goes on finds it.
    write_once(many / "000b")
    tv.start()
    document = tvctl.json("sweep", status=1)
    assert document["resumed"] and document["finished"] and paths_of(document) == [f"{many}/190"]
    expected = 100 if number == signal.SIGKILL else 80
    assert document["looked_at"] == expected and before == NAMES[:120]
    document = tvctl.json("sweep", status=1)
    assert not document["resumed"] and paths_of(document) == [f"{many}/000b"]


def test_a_service_that_goes_away(tv, tvctl, many, fake_service):
    fake_service(*["CLEAN"] * 5, None)
    result = tvctl.run("sweep", status=2)
    assert result.errors == ("tvctl: the service ended the connection; 5 files were scanned until then\n"
                             "tvctl: the next sweep goes on from here\n")
    document = tvctl.json("sweep", status=2)
    assert document["resumed"] and not document["finished"] and document["files"] == 5
    assert document["stopped"] == "the service ended the connection"
    result = tvctl.run("sweep", status=2)
    assert result.lines()[:2] == ["scanning everything", f"going on at {many}/010"]


def test_a_service_that_goes_away_while_it_cleans(tv, tvctl, many, fake_service):
    fake_service("INFECTED X", None)
    document = tvctl.json("sweep", status=2)
    assert document["detections"][0]["action"] == "unknown"
    assert swept(tv) == [(f"{many}/000", "X", 1)]
    # It has its turn again.
    document = tvctl.json("sweep", status=2)
    assert [found["path"] for found in document["detections"]] == [f"{many}/000"]


def test_two_at_once(tv, tvctl, many, fake_service, never):
    service = fake_service(never)
    process = tvctl.start("sweep")
    wait_until(lambda: len(service.requests) == 2, "the first sweep to begin")
    tvctl.fails("sweep", says="another sweep is running; try again when it has ended")
    tvctl.fails("sweep", many, says="another sweep is running; try again when it has ended")
    # In the background, meanwhile.
    fields = Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    nice, policy = fields[16], fields[38]
    # Batch, or idle where whoever runs the tests is.
    assert nice == "19" and policy in ("3", "5")
    process.kill()
    process.communicate()


def test_a_state_that_is_damaged(tv, tvctl, many):
    tv.start()
    assert tvctl.json("sweep", status=1)["infected"] == 1
    [state] = tv.settings.glob("tvsweep-*.state")
    assert state.stat().st_mode & 0o7777 == 0o600
    state.write_bytes(state.read_bytes()[:-1])
    result = tvctl.run("sweep")
    assert result.errors == "tvctl: the state of the last sweep is damaged; everything is scanned\n"
    assert tvctl.json("sweep")["full"] is False


def test_a_state_that_cannot_be_kept(tv, tvctl, home):
    write_tree(home, clean=["good"])
    tv.start()
    tvctl.run("sweep")
    [state] = tv.settings.glob("tvsweep-*.state")
    state.with_name(state.name + ".new").mkdir()
    result = tvctl.run("sweep", status=2)
    assert "the state of this sweep cannot be kept in" in result.errors and "File exists" in result.errors


def test_a_file_that_ends_every_sweep(tv, tvctl, many, fake_service):
    def poison(request):
        return None if request.endswith(b"/005") else "CLEAN"

    service = fake_service(poison)
    for _ in range(2):
        assert tvctl.json("sweep", status=2)["stopped"] == "the service ended the connection"
    # It is passed by, and what comes behind it is scanned.
    document = tvctl.json("sweep", status=2)
    assert document["finished"] and document["files"] == len(NAMES) - 6 and document["errors"] == [
        {"path": f"{many}/005", "reason": "the last two sweeps ended while it was scanned; it is left to the next"}]
    assert asked(service) == [*NAMES[:6], "005", *NAMES[6:]]
    service.close()
    # As soon as it does no harm any more, it is scanned like others.
    tv.start()
    assert tvctl.json("sweep")["files"] == 1


def test_an_interruption_is_no_file_s_fault(tvctl, many, fake_service, never):
    service = fake_service(never)
    for times in range(3):
        process = tvctl.start("sweep")
        wait_until(lambda: len(service.requests) == 2 * (times + 1), "the request that is not answered")
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=TIMEOUT)
    assert asked(service) == ["000"] * 3


# --------------------------------------------------------------------------------------------------- failures


def test_the_service_is_down(tv, tvctl):
    tv.configure()
    tvctl.fails("sweep", says="tvfilemon does not run: nobody listens on port 8889; start it as root: ")


def test_there_is_no_store(tv, tvctl):
    tvctl.fails("sweep", says="start tvfilemon once")


@pytest.mark.parametrize("store", ["tvcore.db", "reports.db"])
def test_a_store_that_is_locked(tv, tvctl, store):
    tv.configure()
    tv.reports()
    with locked(tv.settings / store):
        tvctl.fails("sweep", says="cannot be read")


def test_a_store_that_is_damaged(tv, tvctl, old):
    tv.configure(action=0)
    damage(tv.settings / "tvcore.db")
    tv.start()
    # It is set aside and begun anew, with the defaults.
    assert tvctl.json("sweep", status=1)["removed"] == 3


def test_no_permission(tv, tvctl):
    tv.start()
    with inaccessible(tv.settings):
        tvctl.fails("sweep", wrapper=WITHOUT_PRIVILEGES, says="Permission denied")


def test_records_that_cannot_be_stored(tv, tvctl, old, fake_service):
    tv.reports()
    is_locked = threading.Event()
    service = fake_service(lambda request: is_locked.wait(TIMEOUT) and "INFECTED X", "CLEANED", "CLEAN")
    process = tvctl.start("sweep")
    wait_until(lambda: len(service.requests) == 2, "the sweep to have opened the store")
    with locked_for_writing(tv.settings / "reports.db"):
        is_locked.set()
        errors = process.communicate(timeout=TIMEOUT)[1]
    assert process.returncode == 1
    assert b"tvctl: 1 detections could not be stored as records; see tvctl doctor\n" in errors
    assert swept(tv) == []


def test_help(tvctl):
    text = tvctl.run("sweep", "--help").output
    assert "--full" in text and "/home and /media" in text
