"""`tvctl detections`: list, follow, export and prune."""

import base64
import csv
import fcntl
import io
import json
import os
import select
import signal
import sqlite3
import subprocess
import sys
import termios
import time

import pytest

from harness import EICAR_NAME, TIMEOUT, Path, Unwatched, wait_gone, wait_until

# 21 November 2026, 12:00 in UTC.
NOON = 1795262400000
HOUR = 3600 * 1000


def record(number, **values):
    """One detection in the hour `number` after noon."""
    return {"path": f"/home/u/{number}", "virus": f"Test.Name-{number}", "status": 0, "module": "tvfilemon",
            "version": "1.0", "msecs": NOON + number * HOUR, **values}


@pytest.fixture
def three(tv):
    tv.add_reports([record(1), record(2, status=-1, virus="Doc.Macro"), record(3, status=1, path="/media/x/3")])


def ids(document):
    return [detection["id"] for detection in document["detections"]]


# ------------------------------------------------------------------------------------------------------- list


def test_list(tvctl, three):
    result = tvctl.run("detections", "list", environment={"TZ": "UTC"})
    assert result.lines() == [
        "TIME                 RESULT    NAME         PATH",
        "2026-11-21 13:00:00  cleaned   Test.Name-1  /home/u/1",
        "2026-11-21 14:00:00  reported  Doc.Macro    /home/u/2",
        "2026-11-21 15:00:00  failed    Test.Name-3  /media/x/3",
    ]
    assert result.errors == ""
    document = tvctl.json("detections", "list")
    assert document["more"] is False
    assert document["detections"][2] == {
        "id": 3, "event_id": f"3-{NOON + 3 * HOUR}", "time": "2026-11-21T15:00:00.000Z", "status": "failed",
        "clean_status": 1, "virus": "Test.Name-3", "path": "/media/x/3", "file_name": "3", "module": "tvfilemon",
        "module_version": "1.0"}
    assert [each["status"] for each in document["detections"]] == ["cleaned", "reported", "failed"]


def test_list_of_nothing(tv, tvctl):
    tv.configure(protection=True)
    assert tvctl.run("detections", "list").output == "no detections\n"
    assert tvctl.json("detections", "list") == {"detections": [], "more": False}


@pytest.mark.parametrize("arguments, expected", [
    (["--since", "2026-11-21T14:00Z"], [2, 3]),
    (["--since", "2026-11-21T15:00:01Z"], []),
    (["--virus", "test"], [1, 3]),
    (["--virus", "test*-3"], [3]),
    (["--virus", "macro?"], []),
    (["--path", "/home"], [1, 2]),
    (["--path", "/home/u/1"], [1]),
    (["--path", "/home/u/"], [1, 2]),
    (["--path", "/hom"], []),
    (["--path", "/media/../home/u/./2"], [2]),
    (["--path", "/home", "--virus", "name"], [1]),
])
def test_list_a_choice(tvctl, three, arguments, expected):
    assert ids(tvctl.json("detections", "list", *arguments)) == expected


def test_list_against_the_working_directory(tvctl, three):
    assert ids(tvctl.json("detections", "list", "--path", "u", cwd="/home")) == [1, 2]


def test_list_the_newest(tv, tvctl):
    tv.add_reports(record(number) for number in range(1, 61))
    assert ids(tvctl.json("detections", "list")) == list(range(11, 61))
    result = tvctl.run("detections", "list", "--limit", "2")
    assert [line.split()[-1] for line in result.lines()] == ["PATH", "/home/u/59", "/home/u/60"]
    assert "there are older ones" in result.errors
    document = tvctl.json("detections", "list", "--limit", "60")
    assert len(document["detections"]) == 60 and document["more"] is False
    assert tvctl.json("detections", "list", "--limit", "59")["more"] is True


ODD = [b"/home/u/\xff\xfe", "/home/u/ä €".encode(), b"/home/u/two\nlines", b"/home/u/\x1b[31mred", b"/home/u/a\tb",
       "/home/u/\u202egnp.exe".encode(), b"/home/u/\\xff"]


def odd_records():
    return [record(number, base64=base64.b64encode(path).decode()) for number, path in enumerate(ODD)]


def test_odd_names(tv, tvctl):
    tv.add_reports(odd_records())
    lines = tvctl.run("detections", "list").lines()[1:]
    assert [line.partition("/home/u/")[2] for line in lines] == [
        r"\xff\xfe", "ä €", r"two\x0alines", r"\x1b[31mred", r"a\x09b", r"\u202egnp.exe", r"\xff"]
    shown = tvctl.json("detections", "list")["detections"]
    for detection, path in zip(shown, ODD, strict=True):
        exact = detection.get("path_base64")
        assert (base64.b64decode(exact) if exact else detection["path"].encode()) == path
        assert bool(exact) == (path == ODD[0])
    assert ids(tvctl.json("detections", "list", "--path", ODD[0])) == [1]


# ----------------------------------------------------------------------------------------------------- follow


class Follower:
    """A running `tvctl detections follow`."""

    def __init__(self, tvctl, *arguments):
        self.process = tvctl.start("detections", "follow", *arguments)
        os.set_blocking(self.process.stdout.fileno(), False)
        os.set_blocking(self.process.stderr.fileno(), False)
        self._data = b""
        self._told = b""

    def lines(self):
        """Everything so far."""
        self._data += self.process.stdout.read() or b""
        return [json.loads(line) for line in self._data.split(b"\n")[:-1]]

    def wait(self, count):
        wait_until(lambda: len(self.lines()) >= count, lambda: f"{count} lines; {self._data}; {self.told()}")
        assert len(self.lines()) == count
        return self.lines()

    def told(self):
        self._told += self.process.stderr.read() or b""
        return self._told.decode()

    def wait_told(self, text):
        wait_until(lambda: text in self.told(), lambda: f"{text!r}; it said {self._told}")

    def end(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        assert self.process.wait(TIMEOUT) == 0, self.told()
        return self.lines()


@pytest.fixture
def follow(tvctl):
    followers = []

    def start(*arguments):
        followers.append(Follower(tvctl, *arguments))
        return followers[-1]

    yield start
    for follower in followers:
        follower.process.kill()
        follower.process.wait()
        follower.process.stdout.close()
        follower.process.stderr.close()


def test_follow_the_service(tv, home, follow):
    """A detection is out within a second of being stored."""
    unwatched = Unwatched()
    tv.start()
    wait_gone(unwatched.move_in(home / "before"))
    tv.settle()
    follower = follow("--after-id", "1")
    for number in range(5):
        path = unwatched.move_in(home / f"new {number}")
        # The file goes first, then the record is stored.
        wait_gone(path)
        gone = time.monotonic()
        assert select.select([follower.process.stdout], [], [], TIMEOUT)[0]
        assert time.monotonic() - gone < 1
        line = follower.wait(number + 1)[-1]
        assert (line["path"], line["virus"], line["status"]) == (str(path), EICAR_NAME, "cleaned")
    assert [line["id"] for line in follower.end()] == [2, 3, 4, 5, 6]
    assert follower.told() == ""


def test_follow_only_what_is_new(tv, tvctl, follow, three):
    old = follow("--after-id", "0")
    assert [line["id"] for line in old.wait(3)] == [1, 2, 3]
    new = follow()

    def come():
        # One that is stored before it looks for the first time is old.
        tv.add_reports([record(4)])
        return new.lines()

    wait_until(come, "a new one")
    line = new.lines()[0]
    assert line["id"] > 3
    assert line == tvctl.json("detections", "list")["detections"][line["id"] - 1]
    assert [each["id"] for each in new.lines()] == list(range(line["id"], new.lines()[-1]["id"] + 1))
    wait_until(lambda: line in old.lines(), "the other follower")


def test_follow_from_a_time_on(tv, follow, three):
    follower = follow("--since", "2026-11-21T14:00Z")
    assert [line["id"] for line in follower.wait(2)] == [2, 3]
    # From here on whatever comes, also with an older time.
    tv.add_reports([record(-9), {"path": "/x", "virus": "no time"}])
    assert [line["id"] for line in follower.wait(4)] == [2, 3, 4, 5]
    assert follower.lines()[-1]["time"] is None


def test_follow_resumes(tv, follow, three):
    first = follow("--after-id", "0")
    last = first.wait(3)[1]["event_id"]
    first.end()
    second = follow("--after-id", last)
    assert [line["id"] for line in second.wait(1)] == [3]


def test_follow_with_a_cursor(tv, follow, three, files):
    cursor = files / "cursor"
    first = follow("--cursor", cursor)
    assert [line["id"] for line in first.wait(3)] == [1, 2, 3]
    wait_until(lambda: cursor.read_text().strip() == first.lines()[-1]["event_id"], "the cursor")
    assert cursor.stat().st_mode & 0o777 == 0o600
    first.end()
    # While nobody follows, and while somebody does.
    tv.add_reports([record(4), record(5)])
    second = follow("--cursor", cursor)
    second.wait(2)
    tv.add_reports([record(6)])
    assert [line["id"] for line in second.wait(3)] == [4, 5, 6]
    second.end()
    third = follow("--cursor", cursor)
    tv.add_reports([record(7)])
    assert [line["id"] for line in third.wait(1)] == [7]


def test_follow_with_a_cursor_is_killed_again_and_again(tv, follow, files):
    """None is missing, and each kill repeats one line at most."""
    count, kills, lines = 3000, 0, []
    tv.add_reports([record(number % 100) for number in range(count)])
    while not lines or lines[-1]["id"] < count:
        follower = follow("--cursor", files / "cursor")
        wait_until(follower.lines, "a line")
        follower.process.kill()
        follower.process.wait()
        kills += 1
        lines += follower.lines()
    ids = [line["id"] for line in lines]
    assert sorted(set(ids)) == list(range(1, count + 1))
    assert len(ids) <= count + kills and len({line["event_id"] for line in lines}) == count


def test_follow_with_a_cursor_into_a_new_store(tv, follow, three, files):
    cursor = files / "cursor"
    follower = follow("--cursor", cursor)
    follower.wait(3)
    follower.end()
    for path in tv.settings.glob("reports.db*"):
        path.unlink()
    tv.add_reports([record(7)])
    assert [line["virus"] for line in follow("--cursor", cursor).wait(1)] == ["Test.Name-7"]


@pytest.mark.parametrize("content", ["root:x:0:0\n", "7-5" + " " * 64, "-1\n", "1-2-3"])
def test_follow_with_a_file_that_is_no_cursor(tvctl, three, files, content):
    (files / "cursor").write_text(content)
    tvctl.fails("detections", "follow", "--cursor", files / "cursor", says="holds no event_id")
    assert (files / "cursor").read_text() == content


@pytest.mark.parametrize("name", ["link", "missing/cursor", "."])
def test_follow_with_a_cursor_that_cannot_be_kept(tvctl, three, files, name):
    (files / "link").symlink_to(files / "target")
    tvctl.fails("detections", "follow", "--cursor", f"{files}/{name}", says=f"cannot keep {files}/{name}")
    assert os.listdir(files) == ["link"]


def test_follow_with_a_cursor_that_is_no_file(tvctl, three, files):
    os.mkfifo(files / "fifo")
    tvctl.fails("detections", "follow", "--cursor", files / "fifo", says=f"cannot keep {files}/fifo")


def test_follow_with_a_cursor_that_is_in_use(tvctl, follow, three, files):
    # What a machine that went down may have left.
    (files / "cursor").write_bytes(bytes(64))
    follow("--cursor", files / "cursor").wait(3)
    tvctl.fails("detections", "follow", "--cursor", files / "cursor", says="is in use")


def test_follow_many(tv, follow):
    tv.add_reports(record(number) for number in range(2500))
    follower = follow("--after-id", "0")
    assert [line["id"] for line in follower.wait(2500)] == list(range(1, 2501))


def test_follow_in_the_elastic_common_schema(tv, follow, three):
    follower = follow("--format", "ecs", "--after-id", "0")
    lines = follower.wait(3)
    assert [line["event"]["id"] for line in lines] == [f"{n}-{NOON + n * HOUR}" for n in (1, 2, 3)]
    assert [line["event"].get("outcome") for line in lines] == ["success", None, "failure"]
    first = lines[0]
    assert first["@timestamp"] == "2026-11-21T13:00:00.000Z"
    assert first["event"]["kind"] == "alert" and "malware" in first["event"]["category"]
    assert first["file"] == {"path": "/home/u/1", "name": "1", "directory": "/home/u", "type": "file"}
    assert first["rule"]["name"] == "Test.Name-1"
    assert first["host"]["hostname"] == os.uname().nodename
    machine = Path("/etc/machine-id")
    if machine.exists() and machine.read_text().strip():
        assert first["host"]["id"] == machine.read_text().strip()


def test_follow_a_store_that_is_begun_anew(tv, follow, three):
    follower = follow("--after-id", "0")
    follower.wait(3)
    for path in tv.settings.glob("reports.db*"):
        path.unlink()
    tv.add_reports([record(4), record(5)])
    lines = follower.wait(5)
    assert [line["id"] for line in lines] == [1, 2, 3, 1, 2]
    assert len({line["event_id"] for line in lines}) == 5
    assert "begun anew" in follower.told()


def test_follow_a_store_that_is_damaged(tv, follow, three):
    follower = follow("--after-id", "0")
    follower.wait(3)
    garbage = tv.settings / "garbage"
    garbage.write_bytes(b"no database " * 1000)
    for ending in ("-wal", "-shm"):
        Path(f"{tv.settings}/reports.db{ending}").unlink(missing_ok=True)
    os.replace(garbage, tv.settings / "reports.db")
    follower.wait_told("set aside")
    tv.add_reports([record(4)])
    assert follower.wait(4)[-1]["virus"] == "Test.Name-4"
    assert len(list(tv.settings.glob("reports.db.corrupt-*"))) == 1


def test_follow_a_store_that_goes_away_for_a_while(tv, follow, three):
    follower = follow("--after-id", "0")
    follower.wait(3)
    away = tv.root / "away"
    os.rename(tv.settings, away)
    follower.wait_told("cannot be read now")
    os.rename(away, tv.settings)
    follower.wait_told("can be read again")
    tv.add_reports([record(4)])
    assert [line["id"] for line in follower.wait(4)] == [1, 2, 3, 4]
    assert follower.told().count("cannot be read now") == 1


def test_follow_a_locked_store(tv, follow, three):
    follower = follow("--after-id", "0")
    follower.wait(3)
    # Nobody can lock readers out while they read.
    away = tv.root / "away"
    os.rename(tv.settings, away)
    follower.wait_told("cannot be read now")
    database = sqlite3.connect(away / "reports.db", isolation_level=None)
    database.execute("PRAGMA locking_mode = EXCLUSIVE")
    database.execute("BEGIN EXCLUSIVE")
    database.execute("INSERT INTO virus_report SELECT 4, detected_at, file_name, file_path, virus_name,"
                     " clean_status, module_name, module_version FROM virus_report WHERE id = 3")
    os.rename(away, tv.settings)
    follower.wait_told("locked")
    assert "can be read again" not in follower.told() and len(follower.lines()) == 3
    database.execute("COMMIT")
    database.close()
    assert [line["id"] for line in follower.wait(4)] == [1, 2, 3, 4]
    follower.wait_told("can be read again")


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_follow_ends_by_a_signal(tv, follow, three, number):
    follower = follow("--after-id", "0")
    follower.wait(3)
    follower.end(number)
    assert follower.told() == ""


def test_follow_ends_with_its_reader(tv, tvctl, three):
    """Also when nothing is detected any more."""
    process = tvctl.start("detections", "follow", "--after-id", "0")
    assert process.stdout.readline()
    process.stdout.close()
    assert process.wait(TIMEOUT) == 0
    assert process.stderr.read() == b""
    process.stderr.close()


def waiting_bytes(pipe):
    return int.from_bytes(fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)), sys.byteorder)


def test_follow_ends_under_a_reader_that_hangs(tv, tvctl):
    tv.add_reports(record(number) for number in range(1000))
    process = tvctl.start("detections", "follow", "--after-id", "0")
    # More than the pipe holds, of which nobody ever reads a byte.
    wait_until(lambda: waiting_bytes(process.stdout) > 50000, "the pipe to be full")
    process.send_signal(signal.SIGTERM)
    assert process.wait(TIMEOUT) == 0
    process.stdout.close()
    process.stderr.close()


def test_follow_onto_a_full_disk(tvctl, three):
    with open("/dev/full", "wb") as full:
        result = subprocess.run(tvctl.command("detections", "follow", "--after-id", "0"), stdout=full,
                                stderr=subprocess.PIPE, env=tvctl.environment(), check=False)
    assert result.returncode == 2
    assert b"standard output takes no more: No space left" in result.stderr


# ----------------------------------------------------------------------------------------------------- export


def test_export_csv(tv, tvctl):
    tv.add_reports([record(1, path='/home/u/a "b", c'), record(2, virus="=1+1", path="/home/u/x\r\ny")] + odd_records())
    process = subprocess.run(tvctl.command("detections", "export", "--format", "csv"), stdout=subprocess.PIPE,
                             env=tvctl.environment(), check=True)
    rows = list(csv.DictReader(io.StringIO(process.stdout.decode(), newline="")))
    assert len(rows) == 2 + len(ODD)
    assert process.stdout.count(b"\r\n") == 1 + len(rows)
    assert list(rows[0]) == ["id", "event_id", "time", "status", "virus", "path", "path_base64", "file_name",
                             "module", "module_version"]
    assert rows[0]["path"] == '/home/u/a "b", c' and rows[1]["path"] == "/home/u/x\\x0d\\x0ay"
    assert base64.b64decode(rows[1]["path_base64"]) == b"/home/u/x\r\ny"
    assert rows[1]["virus"] == "'=1+1"
    for row, path in zip(rows[2:], ODD, strict=True):
        assert (base64.b64decode(row["path_base64"]) or row["path"].encode()) == path


def test_export_json(tvctl, three):
    document = json.loads(tvctl.run("detections", "export", "--format", "json").output)
    assert document["detections"] == tvctl.json("detections", "list")["detections"]
    assert tvctl.json("detections", "export", "--format", "json") == document


def test_export_ecs(tvctl, three):
    lines = [json.loads(line) for line in tvctl.run("detections", "export", "--format", "ecs").lines()]
    assert [line["event"]["sequence"] for line in lines] == [1, 2, 3]


def test_export_nothing(tv, tvctl):
    tv.configure(protection=True)
    assert json.loads(tvctl.run("detections", "export", "--format", "json").output) == {"detections": []}
    assert tvctl.run("detections", "export", "--format", "csv").output.startswith("id,event_id")
    assert tvctl.run("detections", "export", "--format", "ecs").output == ""


def test_export_a_period(tvctl, three):
    document = tvctl.json("detections", "export", "--format", "json", "--since", "2026-11-21T14:00Z", "--until",
                          "2026-11-21T15:00Z")
    assert ids(document) == [2]


@pytest.mark.parametrize("form", ["csv", "json", "ecs"])
def test_export_many_into_a_file(tv, tvctl, files, form):
    tv.add_reports(record(number) for number in range(2500))
    path = files / "export"
    path.write_text("before")
    assert tvctl.run("detections", "export", "--format", form, "-o", path).output == "exported: 2500\n"
    content = path.read_text()
    # In ecs each name stands in three fields.
    assert content.count("Test.Name-") == (7500 if form == "ecs" else 2500)
    if form == "json":
        assert ids(json.loads(content)) == list(range(1, 2501))
    assert path.stat().st_mode & 0o7777 == 0o600
    assert os.listdir(files) == ["export"]
    assert tvctl.json("detections", "export", "--format", form, "-o", path) == {"exported": 2500, "file": str(path)}


def test_export_through_no_link(tvctl, three, files):
    target = files / "target"
    target.write_text("before")
    (files / "link").symlink_to(target)
    tvctl.fails("detections", "export", "--format", "csv", "-o", files / "link",
                says=f"{files}/link is not a regular file; name another")
    assert target.read_text() == "before" and (files / "link").is_symlink()
    assert sorted(os.listdir(files)) == ["link", "target"]


@pytest.mark.parametrize("name, says", [
    ("", "is not a regular file"),
    ("missing/x", "missing/x: No such file or directory; name another file"),
])
def test_export_to_where_it_cannot_be(tvctl, three, files, name, says):
    tvctl.fails("detections", "export", "--format", "csv", "-o", files / name, says=says)


def test_export_onto_a_full_disk(tv, tvctl, files, mounts):
    tv.add_reports(record(number) for number in range(2500))
    mounts.tmpfs(files, b"size=64k")
    tvctl.fails("detections", "export", "--format", "csv", "-o", files / "x", says="No space left on device")
    assert os.listdir(files) == []


def test_export_that_is_interrupted(tv, tvctl, files):
    tv.add_reports(record(number) for number in range(20000))
    (files / "export").write_text("before")
    process = tvctl.start("detections", "export", "--format", "ecs", "-o", files / "export")
    wait_until(lambda: len(os.listdir(files)) == 2, "it to begin")
    process.send_signal(signal.SIGINT)
    _, errors = process.communicate(timeout=TIMEOUT)
    assert process.returncode == 2 and errors.decode() == f"tvctl: interrupted; {files}/export is as it was\n"
    assert os.listdir(files) == ["export"] and (files / "export").read_text() == "before"


def test_export_is_one_json_document_or_none(tvctl, three):
    tvctl.run("--json", "detections", "export", "--format", "csv", status=2)
    assert "needs a file of its own" in tvctl.json("detections", "export", "--format", "ecs", status=2)["error"]


# ------------------------------------------------------------------------------------------------------ prune


def test_prune(tv, tvctl, three):
    result = tvctl.run("detections", "prune", "--older-than", "2026-11-21T14:00Z", environment={"TZ": "UTC"})
    assert result.output == "removed 1 detection older than 2026-11-21 14:00:00\n"
    assert ids(tvctl.json("detections", "list")) == [2, 3]
    assert tvctl.json("detections", "prune", "--older-than", "2026-11-22T00:00+01:00") == {
        "removed": 2, "older_than": "2026-11-21T23:00:00.000Z"}
    assert ids(tvctl.json("detections", "list")) == []


def test_prune_beside_the_service(tv, home, tvctl):
    unwatched = Unwatched()
    tv.add_reports(record(-number) for number in range(1, 1201))
    tv.start()
    wait_gone(unwatched.move_in(home / "eicar"))
    tv.settle()
    before = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(NOON / 1000))
    assert tvctl.json("detections", "prune", "--older-than", before)["removed"] == 1200
    assert [each["fileName"] for each in tv.reports()] == ["eicar"]


def test_prune_a_locked_store(tv, tvctl, three):
    database = sqlite3.connect(tv.settings / "reports.db", isolation_level=None)
    database.execute("BEGIN IMMEDIATE")
    tvctl.fails("detections", "prune", "--older-than", "2030-01-01", says="could be removed")
    database.close()
    assert ids(tvctl.json("detections", "list")) == [1, 2, 3]


# -------------------------------------------------------------------------------------------------- in common

PAGE = Path("/tmp/page.html")
READING = [["list"], ["follow"], ["export", "--format", "json"], ["prune", "--older-than", "1d"], ["report", "-o", PAGE]]


@pytest.mark.parametrize("arguments", READING)
def test_there_is_no_store(tv, tvctl, arguments):
    assert not tv.settings.exists()
    tvctl.fails("detections", *arguments, says=f"there is no {tv.settings}: start tvfilemon once, or name its root")
    assert not tv.settings.exists()


@pytest.mark.parametrize("arguments", READING)
def test_the_store_cannot_be_opened(tv, tvctl, arguments):
    (tv.settings / "reports.db").mkdir(parents=True)
    tvctl.fails("detections", *arguments, says="the detection records cannot be read")


@pytest.mark.parametrize("arguments", READING)
def test_the_store_is_locked(tv, tvctl, three, arguments):
    database = sqlite3.connect(tv.settings / "reports.db", isolation_level=None)
    database.execute("PRAGMA locking_mode = EXCLUSIVE")
    database.execute("BEGIN EXCLUSIVE")
    database.execute("UPDATE virus_report SET clean_status = clean_status")
    tvctl.fails("detections", *arguments, says="try again when nobody else uses the store")
    database.close()
    assert len(tv.reports()) == 3 and not PAGE.exists()


@pytest.mark.parametrize("arguments, output", [
    (["list"], "no detections\n"),
    (["export", "--format", "json"], '{"detections": [\n]}\n'),
    (["prune", "--older-than", "1d"], "removed 0 detections older than "),
    (["report", "-o", PAGE], "detections: 0, hash list matches: 0\n"),
])
def test_the_store_is_damaged(tv, tvctl, arguments, output):
    tv.settings.mkdir()
    (tv.settings / "reports.db").write_bytes(b"no database " * 1000)
    result = tvctl.run("detections", *arguments)
    PAGE.unlink(missing_ok=True)
    assert result.output.startswith(output)
    assert "set aside" in result.errors
    [aside] = tv.settings.glob("reports.db.corrupt-*")
    assert aside.read_bytes().startswith(b"no database ")


@pytest.mark.parametrize("arguments", READING)
def test_somebody_without_permission(tv, tvctl, three, arguments):
    tv.settings.chmod(0)
    command = ["unshare", "--user", "--map-user=1000", *tvctl.command("detections", *arguments)]
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=tvctl.environment(),
                            check=False, text=True)
    tv.settings.chmod(0o700)
    assert result.returncode == 2 and result.stdout == "", result
    assert "Permission denied" in result.stderr and "run it as root: sudo tvctl" in result.stderr
    assert not PAGE.exists()


@pytest.mark.parametrize("arguments, says", [
    (["list", "--since", "yesteryear"], '--since takes no "yesteryear"; give a span like 90s'),
    (["follow", "--since", "7"], '--since takes no "7"; give a span'),
    (["follow", "--since", "1d", "--after-id", "3"], "see tvctl detections follow --help"),
    (["follow", "--cursor", "/tmp/x", "--after-id", "3"], "see tvctl detections follow --help"),
    (["follow", "--after-id", "x"], '--after-id takes no "x"; give the event_id'),
    (["follow", "--format", "csv"], "see tvctl detections follow --help"),
    (["export"], "--format is required; see tvctl detections export --help"),
    (["export", "--format", "xml"], "see tvctl detections export --help"),
    (["export", "--format", "csv", "--until", "x"], '--until takes no "x"'),
    (["prune"], "--older-than is required; see tvctl detections prune --help"),
    (["prune", "--older-than", "soon"], '--older-than takes no "soon"; give a span'),
    (["list", "--limit", "0"], "see tvctl detections list --help"),
    (["list", "--limit", "many"], "see tvctl detections list --help"),
    ([], "A subcommand is required; see tvctl detections --help"),
])
def test_usage_errors(tvctl, three, arguments, says):
    tvctl.fails("detections", *arguments, says=says)
    assert len(tvctl.json("detections", "list")["detections"]) == 3
