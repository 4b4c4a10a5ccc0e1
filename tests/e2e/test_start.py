"""Starting and ending."""

import os
import re
import shutil
import signal
import time
from datetime import datetime

import pytest

from harness import (EICAR, SIGNATURES, TIMEOUT, Installation, KLEZ_PATTERN, Path, Unwatched, cleaned,
                     exists, found, fresh_directory, wait_gone, wait_until, write_once)

START = [
    ("TRACE", "CScanManager::loadSettings", "Settings loaded successfully."),
    ("TRACE", "CScanFile::initEngine", "Successfully Scan Engine Initialize."),
    ("TRACE", "CScanFile::loadDatabases", "Successfully Compiled Engine."),
    ("INFO", "FileMonitor::startMonitoring", "Watching: /home"),
    ("INFO", "FileMonitor::startMonitoring", "Watching: /media"),
]

ROTATE_ABOVE = 2 * 1024 * 1024

GOOD_DATABASE = SIGNATURES / "test-6.cvd"


def test_the_lines_of_a_start(tv):
    began = time.time()
    tv.start()
    lines = tv.log()
    assert lines[0].what()[:2] == ("INFO", "LoggerStarted")
    assert re.fullmatch(r"Build Date: \d{4}-\d\d-\d\d \d\d:\d\d:\d\d", lines[0].message)
    # The settings are loaded by whoever needs them first; the rest has its order.
    order = [line.what() for line in lines]
    assert order.count(START[0]) == 1
    assert [line for line in order if line in START[1:]] == START[1:]
    for line in lines:
        written = datetime.strptime(line.time, "%Y-%m-%d %H:%M:%S:%f").timestamp()
        assert began - 0.001 <= written <= time.time()


def test_the_bytes_of_the_log(tv, home):
    unwatched = Unwatched()
    tv.configure(action=0)
    tv.start()
    unwatched.move_in(home / "eicar")
    tv.settle()
    stamp = rb"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d:\d{3}  "
    data = tv.log_file.read_bytes()
    assert re.match(stamp + rb"\[INFO\]  \[LoggerStarted\] :: Build Date: [-: 0-9]{19}\r\n", data)
    begin = stamp + rb"\[TRACE\]  \[FileMonitor::scanFile\] :: "
    assert re.search(rb"\r\n" + begin + rb"Found infected file \| Status:1 \| /home/u/eicar\r\n"
                     + begin + rb"Cleaned infected file \| Status:-1 \| /home/u/eicar\r\n", data)


def test_one_run_after_another_goes_into_one_log(tv):
    tv.start()
    tv.stop()
    first = tv.log_file.read_bytes()
    tv.start()
    assert tv.log_file.read_bytes().startswith(first)
    assert [line.location for line in tv.log()].count("LoggerStarted") == 2


def test_arguments_are_ignored(tv, home):
    tv.start(arguments=["--help", "-platform", "x", "--version", "", "\n", "-stylesheet", "--", "scan"])
    wait_gone(write_once(home / "eicar"))


def test_directories_are_made_when_they_are_needed(tv, home):
    unwatched = Unwatched()
    installed = {path.name for path in tv.root.iterdir()}
    tv.start()
    wait_gone(unwatched.move_in(home / "eicar"))
    tv.settle()
    assert {path.name for path in tv.root.iterdir()} - installed == {"logs", "settings", "quarantine"}


@pytest.mark.parametrize("name", ["bin/tvfilemon", "lib/libtvcore.so.1", "lib/libtvnotify.so.1",
                                  "icons/ip_block.png", "db/"])
def test_what_is_installed(tv, name):
    path = tv.root / name
    assert path.is_dir() if name.endswith("/") else path.stat().st_size > 0


# ------------------------------------------------------------------------------------------------- databases


def load_error(name):
    return "ERROR", "CScanFile::loadDatabases", f"Failed to load database. Path: {name} Error: "


def start_lines(tv):
    """The lines of the start that tell of the engine."""
    return [line.what() for line in tv.log() if line.location.startswith("CScanFile::")]


@pytest.mark.parametrize("prepare", [
    pytest.param(shutil.rmtree, id="missing"),
    pytest.param(lambda db: None, id="empty"),
    pytest.param(lambda db: (db / "loose.ndb").write_text(f"Test:0:*:{EICAR.hex()}\n"), id="loose one"),
    pytest.param(lambda db: shutil.copy(GOOD_DATABASE, db / "test-6.cld"), id="incremental"),
    pytest.param(lambda db: shutil.copy(GOOD_DATABASE, db / "test-6.cvd.old"), id="another ending"),
    pytest.param(lambda db: shutil.copy(GOOD_DATABASE, db / ".hidden.cvd"), id="hidden"),
])
def test_without_databases(home, prepare):
    tv = Installation(fresh_directory() / "root", databases=())
    try:
        prepare(tv.db)
        tv.start()
        assert start_lines(tv) == START[1:3]
        path = write_once(home / "eicar")
        write_once(home / "pattern", KLEZ_PATTERN)
        assert not [line for line in tv.settle() if "/home/u" in line.message]
        assert exists(path)
    finally:
        tv.close()
    tv.check_log()


CORRUPT = {
    "garbage": lambda good: b"this is no database\n" * 100,
    "empty": lambda good: b"",
    "cut off": lambda good: good[:len(good) // 2] if good[:1] == b"C" else b"ClamAV-VDB:",
    "header alone": lambda good: b"ClamAV-VDB:22 Jun 2021 21-34 -0400:6:14:81:X:X:x:1624412045".ljust(512),
}


@pytest.mark.parametrize("content", CORRUPT.values(), ids=CORRUPT.keys())
def test_a_corrupt_database(home, content):
    tv = Installation(fresh_directory() / "root")
    try:
        (tv.db / "test-5b.cvd").write_bytes(content(GOOD_DATABASE.read_bytes()))
        tv.start()
        initialised, failed = start_lines(tv)
        assert initialised == START[1]
        wanted = load_error("test-5b.cvd")
        assert failed[:2] == wanted[:2]
        assert re.fullmatch(re.escape(wanted[2]) + r"[1-9]\d*", failed[2])
        # Nothing is compiled, so everything is clean; and the rest of the service works.
        path = write_once(home / "eicar")
        assert not [line for line in tv.settle() if "eicar" in line.message]
        assert exists(path)
        assert set(START[3:]) <= set(tv.lines())
    finally:
        tv.close()
    tv.check_log()


def test_databases_are_taken_in_the_order_of_their_names(home):
    """The first that fails is the last that is tried; the case of names and of the ending plays no part."""
    tv = Installation(fresh_directory() / "root", databases=())
    try:
        for name in ("c.cvd", "B.CVD", "a.cvd"):
            (tv.db / name).write_bytes(GOOD_DATABASE.read_bytes() if name == "a.cvd" else b"garbage")
        tv.start()
        failures = [line[2] for line in start_lines(tv) if line[0] == "ERROR"]
        assert [failure.partition(" Error:")[0] for failure in failures] == [
            "Failed to load database. Path: B.CVD"]
    finally:
        tv.close()
    tv.check_log()


def test_only_one_of_two_databases(home):
    tv = Installation(fresh_directory() / "root", databases=("test-5.cvd",))
    try:
        unwatched = Unwatched()
        tv.start()
        unwatched.move_in(home / "pattern", KLEZ_PATTERN)
        wait_gone(unwatched.move_in(home / "eicar"))
        assert exists(home / "pattern")
    finally:
        tv.close()
    tv.check_log()


# ------------------------------------------------------------------------------------------- the environment


@pytest.mark.parametrize("locale", ["C", "de_DE.UTF-8", "ar_EG.UTF-8", "xx_XX.nowhere"])
def test_languages(tv, bus, home, locale_path, locale):
    """Every date is in digits that a program can read, and every name is the same file."""
    unwatched = Unwatched()
    tv.start(bus, environment={"LC_ALL": locale, "LANGUAGE": locale, "LOCPATH": str(locale_path)})
    assert re.fullmatch(r"Build Date: \d{4}-\d\d-\d\d \d\d:\d\d:\d\d", tv.log()[0].message, re.ASCII)
    path = unwatched.move_in(home / "M\u00e4rz \u0645\u0627\u0631\u0633")
    wait_gone(path)
    assert [line.what() for line in tv.settle() if "/home/u/" in line.message] == [found(path), cleaned(path)]
    for line in tv.log():
        assert re.fullmatch(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d:\d{3}", line.time, re.ASCII)
    [name] = tv.quarantined()
    assert re.fullmatch(r"\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d_[0-9a-f]{32}\.tvq", name, re.ASCII)
    [record] = tv.reports()
    assert record["moduleVersion"] == tv.log()[0].message.partition("Build Date: ")[2]
    assert abs(record["msecs"] / 1000 - time.time()) < TIMEOUT
    [popup] = bus.wait_popups(1)
    assert 50000 <= popup["expire_timeout"] <= 60000


def test_standard_streams_are_closed(tv, home):
    unwatched = Unwatched()
    # Something to complain about on standard error, which is nobody's.
    os.mkdir(home / "%1")

    def close_all():
        for descriptor in (0, 1, 2):
            os.close(descriptor)

    tv.start(stdin=None, stdout=None, stderr=None, preexec_fn=close_all)
    opened = tv.descriptors()
    assert [opened[descriptor] for descriptor in (0, 1, 2)] == ["/dev/null"] * 3
    os.mkdir(home / "%1" / "new")
    wait_gone(unwatched.move_in(home / "eicar"))
    tv.settle()
    assert len(tv.reports()) == 1
    assert list(tv.quarantined().values()) == [EICAR]


def test_standard_error_is_full(tv, home):
    unwatched = Unwatched()
    os.mkdir(home / "%1")
    with open("/dev/full", "wb") as full:
        tv.start(stdout=full, stderr=full)
    os.mkdir(home / "%1" / "new")
    wait_gone(unwatched.move_in(home / "eicar"))


def test_standard_error_is_a_broken_pipe(tv, home):
    unwatched = Unwatched()
    os.mkdir(home / "%1")
    reader, writer = os.pipe()
    os.close(reader)
    with open(writer, "wb", buffering=0) as pipe:
        tv.start(stdout=pipe, stderr=pipe)
    os.mkdir(home / "%1" / "new")
    wait_gone(unwatched.move_in(home / "eicar"))


# --------------------------------------------------------------------------------------------------- signals


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_ends_in_order(tv, home, number):
    tv.start()
    tv.settle()
    began = time.monotonic()
    assert tv.end(number) == 0
    assert time.monotonic() - began < 5


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_ends_in_order_before_the_event_loop_runs(tv, home, number):
    # So many directories that the walk takes a while.
    for outer in range(30):
        for inner in range(100):
            os.makedirs(home / str(outer) / str(inner))
    tv.start(wait=False)
    tv.wait_log(*START[1])
    tv.pause()
    assert START[4] not in tv.lines(), "the walk was over too soon for this test"
    tv.process.send_signal(number)
    tv.resume()
    # In the middle of the walk when that takes longer than a stop may.
    assert tv.end(number) == 0
    assert tv.lines()[-1] in START


def test_survives_sigpipe(tv, home):
    tv.start()
    tv.process.send_signal(signal.SIGPIPE)
    wait_gone(write_once(home / "eicar"))


def test_a_second_signal_does_not_hurt(tv):
    tv.start()
    for _ in range(3):
        tv.process.send_signal(signal.SIGTERM)
    assert tv.end() == 0


def test_nothing_is_left_behind(tv, bus, home):
    """The programs that the service started end with it."""
    unwatched = Unwatched()
    tv.start(bus)
    wait_gone(unwatched.move_in(home / "eicar"))
    bus.wait_popups(1)
    group = os.getpgid(tv.process.pid)
    assert tv.end() == 0

    def members():
        found_members = []
        for stat in Path("/proc").glob("[0-9]*/stat"):
            try:
                fields = stat.read_text().rpartition(")")[2].split()
            except (FileNotFoundError, ProcessLookupError):
                continue
            if int(fields[2]) == group and fields[0] != "Z":
                found_members.append(stat.parent.name)
        return found_members

    wait_until(lambda: not members(), "the helper to end")


# ------------------------------------------------------------------------------------------------- the log


@pytest.mark.parametrize("size, rotated", [(ROTATE_ABOVE, False), (ROTATE_ABOVE + 1, True)])
def test_the_log_is_rotated_at_the_start(tv, size, rotated):
    previous = Path(f"{tv.log_file}.bkp")
    tv.log_file.parent.mkdir()
    content = b"2024-03-05 14:07:09:000  [TRACE]  [FileMonitor::onActivated] :: New Directory added: /".ljust(
        size - 2, b"x") + b"\r\n"
    tv.log_file.write_bytes(content)
    previous.write_bytes(b"older")
    tv.start()
    if rotated:
        assert previous.read_bytes() == content
        assert tv.log_file.stat().st_size < 10000
    else:
        assert previous.read_bytes() == b"older"
        assert tv.log_file.read_bytes().startswith(content)


def test_a_log_that_cannot_be_written(tv, home):
    (tv.root / "logs").write_bytes(b"in the way")
    unwatched = Unwatched()
    tv.start(wait=False)
    # There is no log to wait by: the process is watching when the kernel says so.
    wait_until(lambda: tv.watches() == 3, "the watches")
    wait_gone(unwatched.move_in(home / "eicar"))
    assert list(tv.quarantined().values()) == [EICAR]


def test_a_removed_log_comes_back(tv, home):
    tv.start()
    tv.log_file.unlink()
    path = write_once(home / "eicar")
    wait_gone(path)
    tv.wait_log(*cleaned(path))
