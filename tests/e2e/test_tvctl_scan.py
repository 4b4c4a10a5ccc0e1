"""`tvctl scan` and `tvctl clean`."""

import base64
import fcntl
import hashlib
import json
import os
import re
import signal
import time
from datetime import datetime

import pytest

from harness import EICAR, EICAR_NAME, TIMEOUT, exists, quarantine_name, wait_until, write_deep, write_once
from tool import WITHOUT_PRIVILEGES

CLEAN = b"nothing in here"


@pytest.fixture
def tree(files):
    """Infected and clean files, and what is no file."""
    root = files / "tree"
    for path in ("a/deep/.hidden/bad", "a/good", "b/bad", ".top"):
        (root / path).parent.mkdir(parents=True, exist_ok=True)
        write_once(root / path, CLEAN if path == "a/good" else EICAR)
    os.mkfifo(root / "fifo")
    os.symlink("b", root / "link")
    os.symlink("b/bad", root / "link-to-bad")
    return root


def infected(tree):
    return [str(tree / path) for path in (".top", "a/deep/.hidden/bad", "b/bad")]


BY_PATH = ("tvctl: tvfilemon cannot be handed open files from here; they are scanned by their paths, which others may "
           "change meanwhile")


def numbers(document):
    return {key: value for key, value in document.items()
            if key in ("files", "infected", "removed", "failed", "unreadable", "skipped", "passed_over")
            and value}


def summary(result):
    return dict(map(str.strip, line.split(":")) for line in result.lines()[result.lines().index("") + 1:])


# ------------------------------------------------------------------------------------------------------- scan


def test_a_tree(tv, tvctl, tree):
    tv.start()
    result = tvctl.run("scan", tree, status=1)
    assert result.lines()[:4] == [*(f"{path}: {EICAR_NAME}" for path in infected(tree)), ""]
    assert result.errors == ""
    shown = summary(result)
    # A rate only where it means something.
    assert re.fullmatch(r"\d+ ms|\d+\.\d s(, \d+ files/s)?", shown.pop("time"))
    assert shown == {"files scanned": "4", "infected": "3", "removed": "0", "not scanned": "0",
                     "unreadable": "0", "skipped": "0 excluded folders, 3 links and devices"}
    document = tvctl.json("scan", tree, status=1)
    assert document["detections"] == [{"path": path, "virus": EICAR_NAME, "action": "none"}
                                      for path in infected(tree)]
    assert document["errors"] == [] and document["stopped"] is None and document["seconds"] > 0
    assert numbers(document) == {"files": 4, "infected": 3, "passed_over": 3}
    assert all(map(exists, infected(tree)))


def test_clean_files(tv, tvctl, tree):
    tv.start()
    result = tvctl.run("scan", tree / "a/good")
    assert summary(result)["files scanned"] == "1" and summary(result)["infected"] == "0"
    assert numbers(tvctl.json("scan", tree / "a/good")) == {"files": 1}


def test_a_relative_path(tv, tvctl, tree):
    tv.start()
    assert tvctl.run("scan", "b/../b//bad", cwd=tree, status=1).lines()[0] == f"{tree}/b/bad: {EICAR_NAME}"


def test_cleaning(tv, tvctl, tree):
    tv.start()
    result = tvctl.run("scan", "--clean", tree, status=1)
    assert result.lines()[:3] == [f"{path}: {EICAR_NAME} - removed; its copy is in the quarantine"
                                  for path in infected(tree)]
    assert summary(result)["removed"] == "3"
    assert not any(map(exists, infected(tree))) and exists(tree / "a/good")
    assert len(tv.quarantined()) == 3
    write_once(tree / ".top")
    document = tvctl.json("scan", "--clean", tree, status=1)
    assert document["detections"] == [{"path": str(tree / ".top"), "virus": EICAR_NAME, "action": "removed",
                                       "detail": "removed; its copy is in the quarantine"}]
    assert numbers(document) == {"files": 2, "infected": 1, "removed": 1, "passed_over": 3}


def test_cleaning_one_path_again_within_a_second(tv, tvctl, files):
    """The names of its copies have nothing but the second in them; here each of the next ones has a copy."""
    path = write_once(files / "bad")
    tv.quarantine.mkdir()
    digest = hashlib.md5(os.fsencode(path)).hexdigest()
    now = int(time.time())
    for second in range(now, now + 60):
        write_once(tv.quarantine / datetime.fromtimestamp(second).strftime(f"%Y-%m-%d_%H-%M-%S_{digest}.tvq"), b"")
    tv.start()
    line = tvctl.run("scan", "--clean", path, status=1).lines()[0]
    assert line == f"{path}: {EICAR_NAME} - removed; its copy is in the quarantine"
    [name] = [name for name, content in tv.quarantined().items() if content]
    assert quarantine_name(path).fullmatch(name)


def test_cleaning_without_a_copy(tv, tvctl, tree):
    tv.start()
    tv.quarantine.write_text("in the way")
    result = tvctl.run("scan", "--clean", tree / ".top", status=1)
    assert result.lines()[0].endswith(" - removed; there is no copy of it in the quarantine")
    assert not exists(tree / ".top")


def test_cleaning_under_report_only(tv, tvctl, tree):
    tv.configure(action=0)
    tv.start()
    says = "not removed: the settings only allow reports"
    result = tvctl.run("scan", "--clean", tree / "b", status=1)
    assert result.lines()[0] == f"{tree}/b/bad: {EICAR_NAME} - {says}"
    document = tvctl.json("scan", "--clean", tree / "b", status=1)
    assert [(found["action"], found["detail"]) for found in document["detections"]] == [("report only", says)]
    assert exists(tree / "b/bad")


def test_cleaning_that_fails(tv, tvctl, tree, mounts):
    tv.start()
    mounts.bind(tree / "b/bad", tree / "b/bad")
    says = f"not removed: tvfilemon could not do it; its log tells why: {tv.log_file}"
    assert tvctl.run("scan", "--clean", tree / "b", status=1).lines()[0].endswith(says)
    document = tvctl.json("scan", "--clean", tree / "b", status=1)
    assert (document["detections"][0]["action"], document["removed"]) == ("not removed", 0)
    assert exists(tree / "b/bad") and tv.quarantined() == {}, "a copy would be added each time"


def test_cleaning_what_is_read_only(tv, tvctl, tree, mounts):
    tv.start()
    mounts.read_only(tree / "b")
    found = tvctl.json("scan", "--clean", tree / "b", status=1)["detections"][0]
    assert (found["action"], found["detail"]) == ("not removed", "not removed: it lies on a read-only file system")
    assert tv.quarantined() == {} and "Failed to clean" not in tv.log()


def test_excluded_folders_and_files(tv, tvctl, tree):
    tv.configure(exclude={"0": [str(tree / "b/bad")], "1": [str(tree / "a/deep")]})
    tv.start()
    document = tvctl.json("scan", tree, status=1)
    assert [found["path"] for found in document["detections"]] == [str(tree / ".top")]
    # The excluded file is asked for, and answered as clean.
    assert numbers(document) == {"files": 3, "infected": 1, "skipped": 1, "passed_over": 3}
    assert tvctl.run("scan", tree / "a/deep").errors == f"tvctl: {tree}/a/deep is excluded\n"
    # By the whole path.
    assert tvctl.json("scan", tree / "a/deep/.hidden", status=1)["infected"] == 1


def by_path(says):
    """What comes of a file in /home that is to be removed by its path: only root may exchange a directory there,
    unless the tests' root is somebody else's."""
    return says if os.stat("/").st_uid == 0 else (
        "not removed: / belongs to somebody else, who could have another file in its place")


def test_settings_that_cannot_be_read_are_told(tv, tvctl, tree, home):
    bad = write_once(home / "bad")
    tv.start()
    os.chmod(tv.settings, 0)
    result = tvctl.run("scan", tree / "b", status=1, wrapper=WITHOUT_PRIVILEGES)
    first, second = result.errors.splitlines()
    assert first.startswith("tvctl: no folder is left out: ") and "Permission denied" in first
    # Only the service knows which files are excluded, and by their paths.
    assert second == BY_PATH
    assert tvctl.json("scan", tree / "b", status=1, wrapper=WITHOUT_PRIVILEGES)["infected"] == 1
    cleaned = tvctl.run("scan", "--clean", bad, status=1, wrapper=WITHOUT_PRIVILEGES)
    assert cleaned.lines()[0] == f"{bad}: {EICAR_NAME} - " + by_path("removed; its copy is in the quarantine")


def test_settings_that_cannot_be_read_and_nothing_removed(tv, tvctl, home):
    tv.configure(action=0)
    bad = write_once(home / "bad")
    tv.start()
    os.chmod(tv.settings, 0)
    says = by_path("not removed: the settings only allow reports, or tvfilemon could not do it")
    result = tvctl.run("scan", "--clean", bad, status=1, wrapper=WITHOUT_PRIVILEGES)
    assert result.lines()[0].endswith(says)


def test_unreadable_folders(tv, tvctl, tree):
    tv.start()
    os.chmod(tree / "b", 0)
    document = tvctl.json("scan", tree, status=1, wrapper=WITHOUT_PRIVILEGES)
    assert document["errors"] == [{"path": str(tree / "b"), "reason": "Permission denied"}]
    assert numbers(document) == {"files": 3, "infected": 2, "unreadable": 1, "passed_over": 3}
    result = tvctl.run("scan", tree / "b", status=2, wrapper=WITHOUT_PRIVILEGES)
    assert result.errors.endswith(f"tvctl: {tree}/b: Permission denied\n")
    assert summary(result)["unreadable"] == "1"


@pytest.mark.parametrize("name, says, kind", [
    ("none", "No such file or directory", "unreadable"),
    ("link", "it is a symbolic link, which is not followed", "failed"),
    ("fifo", "it is neither a file nor a folder", "failed"),
])
def test_what_is_no_file(tv, tvctl, tree, name, says, kind):
    tv.start()
    result = tvctl.run("scan", tree / name, status=2)
    assert result.errors == f"tvctl: {tree}/{name}: {says}\n"
    document = tvctl.json("scan", tree / name, tree / "a/good", status=2)
    assert document["errors"] == [{"path": str(tree / name), "reason": says}]
    assert numbers(document) == {kind: 1, "files": 1}


ODD_NAMES = [b"not-utf8-\xff", b"line\nend", b"return\rin it", b"\xed\xa0\x80 surrogate"]


@pytest.mark.parametrize("name", ODD_NAMES)
def test_names_that_the_protocol_does_not_carry(tv, tvctl, files, name):
    tv.start()
    path = os.path.join(os.fsencode(files), name)
    write_once(path)
    write_once(path + b"2", CLEAN)
    document = tvctl.json("scan", files, status=1)
    assert numbers(document) == {"files": 2, "infected": 1}
    found = document["detections"][0]
    assert "\n" not in tvctl.run("scan", files, status=1).lines()[0]
    if "path_base64" in found:
        assert base64.b64decode(found["path_base64"]) == path
    else:
        assert os.fsencode(found["path"]) == path
    cleaned = tvctl.json("scan", "--clean", files, status=1)["detections"][0]
    assert (cleaned["action"], cleaned["detail"]) == ("removed", "removed; its copy is in the quarantine")
    assert os.listdir(os.fsencode(files)) == [name + b"2"]
    assert quarantine_name(os.fsdecode(path)).fullmatch(*tv.quarantined())


@pytest.mark.parametrize("reply", ["CLEANED", None])
def test_a_name_that_was_changed_is_given_back(tvctl, home, fake_service, reply):
    name = b"line\nend"
    write_once(os.path.join(os.fsencode(home), name))
    seen = []

    def look(_request):
        seen.extend(os.listdir(home))
        return reply

    service = fake_service("INFECTED X", look)
    found = tvctl.json("scan", "--clean", home, status=1 if reply else 2)["detections"][0]
    assert found["action"] == ("not removed" if reply else "unknown")
    assert os.listdir(os.fsencode(home)) == [name]
    # The monitor leaves such files alone, a scan does not.
    assert len(seen) == 1 and re.fullmatch(r"\.tvctl-[0-9a-f]+\.part", seen[0])
    assert service.requests[-1].endswith(os.fsencode(f"/{seen[0]}"))


def test_a_name_is_not_changed_where_paths_are_told(tvctl, home, fake_service):
    write_once(home / "line\nend")
    fake_service("INFECTED X", reaches=False)
    found = tvctl.json("scan", "--clean", home, status=1)["detections"][0]
    assert found["action"] == "not removed" and "protocol cannot carry" in found["detail"]
    assert exists(home / "line\nend")


def test_odd_names_are_shown_escaped(tv, tvctl, files):
    tv.start()
    write_once(os.path.join(os.fsencode(files), b"\xff\x1b[2J\n"))
    line = tvctl.run("scan", files, status=1).lines()[0]
    assert line == f"{files}/\\xff\\x1b[2J\\x0a: {EICAR_NAME}"


def test_odd_names_that_are_excluded(tv, tvctl, files):
    tv.configure(exclude={"0": [f"{files}/line\nend"]})
    tv.start()
    write_once(files / "line\nend")
    write_once(files / "quarantined\n.tvq")
    assert numbers(tvctl.json("scan", files)) == {"files": 2}


@pytest.mark.parametrize("levels", [18, 60])
def test_paths_longer_than_any_call_takes(tv, tvctl, files, levels):
    tv.start()
    write_deep(files, levels)
    document = tvctl.json("scan", files, status=1)
    assert numbers(document) == {"files": 1, "infected": 1}
    path = f"{files}{('/' + 'd' * 200) * levels}/bad"
    shown = path if levels == 18 else path[:250] + "..." + path[-250:]
    assert (len(path) > 4096) == (levels != 18)
    assert document["detections"][0]["path"] == shown
    result = tvctl.run("scan", files, status=1)
    assert result.lines()[0] == f"{shown}: {EICAR_NAME}"


def test_a_file_that_cannot_be_handed_over(tv, tvctl, files):
    tv.start()
    path = os.path.join(os.fsencode(files), b"\xff")
    write_once(path)
    os.chmod(path, 0)
    document = tvctl.json("scan", files, status=2, wrapper=WITHOUT_PRIVILEGES)
    assert "cannot be opened to hand it over: Permission denied" in document["errors"][0]["reason"]


def test_a_file_that_the_service_cannot_open(tv, tvctl, files):
    tv.start()
    write_once(files / "leased")
    lease = os.open(files / "leased", os.O_WRONLY)
    signal.signal(signal.SIGIO, signal.SIG_IGN)
    fcntl.fcntl(lease, fcntl.F_SETLEASE, fcntl.F_WRLCK)
    document = tvctl.json("scan", files, status=2)
    os.close(lease)
    assert numbers(document) == {"failed": 1}
    assert document["errors"] == [{"path": str(files / "leased"), "reason": "another program holds it by a lease"}]


def test_a_service_without_an_engine_finds_nothing(tv, tvctl, tree):
    # What `tvctl status` and `tvctl doctor` tell.
    tv.start()
    for database in tv.db.iterdir():
        database.write_bytes(b"broken")
    tvctl.run("reload", "db", status=2)
    assert numbers(tvctl.json("scan", tree)) == {"files": 4, "passed_over": 3}


@pytest.mark.parametrize("command", ["scan", "clean"])
def test_the_service_is_down(tvctl, tree, command):
    tvctl.fails(command, tree / ".top", says="tvfilemon does not run: nobody listens on port 8889")


@pytest.mark.parametrize("command", ["scan", "clean"])
def test_usage(tvctl, command):
    tvctl.fails(command, says=f"PATH is required; see tvctl {command} --help")
    assert "excluded" in tvctl.run("scan", "--help").output
    assert "Nobody looks whether a file is infected" in tvctl.run("clean", "--help").output


@pytest.mark.parametrize("is_json", [False, True])
def test_a_service_that_goes_away(tvctl, tree, fake_service, is_json):
    service = fake_service("INFECTED X", "CLEAN", None)
    if is_json:
        document = tvctl.json("scan", tree, status=2)
        assert document["stopped"] == "the service ended the connection"
        assert (document["files"], document["infected"]) == (2, 1)
    else:
        result = tvctl.run("scan", tree, status=2)
        assert result.errors == "tvctl: the service ended the connection; 2 files were scanned until then\n"
        assert result.lines()[0] == f"{tree}/.top: X" and summary(result)["files scanned"] == "2"
    assert service.requests[1] == os.fsencode(f"SCAN {tree}/.top")


def test_a_reply_that_is_none(tvctl, tree, fake_service):
    fake_service("INVALID COMMAND!")
    document = tvctl.json("scan", tree / ".top", status=2)
    assert document["errors"][0]["reason"] == 'the service answered "INVALID COMMAND!"'


def test_a_file_that_vanishes_meanwhile(tvctl, tree, fake_service):
    def remove(request):
        os.unlink(request.partition(b" ")[2])
        return "ERROR 8"

    fake_service(remove)
    document = tvctl.json("scan", tree / ".top")
    assert numbers(document) == {} and document["errors"] == []


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_an_interruption_ends_with_the_summary(tvctl, tree, fake_service, never, number):
    service = fake_service("INFECTED X", "CLEAN", never)
    process = tvctl.start("scan", tree)
    wait_until(lambda: len(service.requests) == 4, "the request that is not answered")
    process.send_signal(number)
    output, errors = process.communicate(timeout=TIMEOUT)
    assert process.returncode == 2
    assert errors == b"tvctl: interrupted; 2 files were scanned until then\n"
    assert output.startswith(os.fsencode(f"{tree}/.top: X\n\n")) and b"\nfiles scanned:  2\n" in output


def test_an_interruption_in_json(tvctl, tree, fake_service, never):
    service = fake_service(never)
    process = tvctl.start("--json", "scan", tree)
    wait_until(lambda: len(service.requests) == 2, "the request that is not answered")
    process.send_signal(signal.SIGINT)
    document = json.loads(process.communicate(timeout=TIMEOUT)[0])
    assert process.returncode == 2 and document["stopped"] == "interrupted" and document["files"] == 0


def test_progress_on_a_terminal(tv, tvctl, tree):
    tv.start()
    result = tvctl.on_terminal("scan", tree)
    assert result.status == 1
    assert "0 files" in result.errors and "tree" in result.errors and result.errors.endswith("\r\033[K")
    assert result.output.count(EICAR_NAME) == 3 and "\033" not in result.output


# ------------------------------------------------------------------------------------------------------ clean


def test_clean(tv, tvctl, tree):
    tv.start()
    # Whatever is in it.
    path = tree / "a/good"
    result = tvctl.run("clean", path)
    assert result.output == f"{path}: removed; its copy is in the quarantine\n"
    assert not exists(path)
    names = list(tv.quarantined())
    assert len(names) == 1 and quarantine_name(path).fullmatch(names[0])
    write_once(path)
    assert tvctl.json("clean", path, tree / ".top") == {"results": [
        {"path": str(name), "action": "removed", "detail": "removed; its copy is in the quarantine"}
        for name in (path, tree / ".top")]}


def test_clean_under_report_only(tv, tvctl, tree):
    tv.configure(action=0)
    tv.start()
    says = "not removed: the settings only allow reports"
    result = tvctl.run("clean", tree / ".top", status=2)
    assert (result.output, result.errors) == ("", f"tvctl: {tree}/.top: {says}\n")
    assert tvctl.json("clean", tree / ".top", status=2) == {
        "results": [{"path": str(tree / ".top"), "action": "report only", "detail": says}]}
    assert exists(tree / ".top")


@pytest.mark.parametrize("name, says", [
    ("none", "No such file or directory"),
    ("a", "it is a folder"),
    ("link-to-bad", "it is a symbolic link"),
    ("fifo", "it is no regular file"),
])
def test_clean_refuses(tv, tvctl, tree, name, says):
    tv.start()
    result = tvctl.run("clean", tree / name, tree / ".top", status=2)
    assert result.errors == f"tvctl: {tree}/{name}: not removed: {says}\n"
    assert not exists(tree / ".top") and exists(tree / "b/bad")
    document = tvctl.json("clean", tree / name, status=2)
    assert document["results"] == [{"path": str(tree / name), "action": "not removed",
                                    "detail": f"not removed: {says}"}]


@pytest.mark.parametrize("name", ODD_NAMES)
def test_clean_takes_names_that_the_protocol_does_not_carry(tv, tvctl, files, name):
    tv.start()
    path = os.path.join(os.fsencode(files), name)
    write_once(path)
    assert "removed; its copy is in the quarantine" in tvctl.run("clean", path).output
    assert os.listdir(files) == []


def removing(request):
    """A reply of a service that does what it is asked for, but makes no copy."""
    os.unlink(request.partition(b" ")[2])
    return "FAILED 0"


def test_clean_when_the_service_goes_away(tvctl, tree, fake_service):
    fake_service(removing, None)
    result = tvctl.run("clean", tree / ".top", tree / "b/bad", tree / "a/good", status=2)
    assert result.errors == (f"tvctl: {tree}/b/bad: the service ended the connection: "
                             "nobody knows whether it was removed\n")


def test_a_copy_that_is_missing_is_told(tvctl, tree, fake_service):
    tvctl.installation.quarantine.mkdir()
    fake_service(removing)
    result = tvctl.run("clean", tree / ".top")
    assert result.output == f"{tree}/.top: removed; there is no copy of it in the quarantine\n"


@pytest.mark.parametrize("reply, says", [
    (lambda request: "FAILED 0", "tvfilemon says that it was, but it is there"),
    (lambda request: removing(request) and write_once(request.partition(b" ")[2]) and "FAILED 0",
     "another file has its name by now; there is no copy of it in the quarantine"),
])
def test_what_is_there_afterwards_is_looked_at(tvctl, tree, fake_service, reply, says):
    fake_service(reply)
    assert tvctl.run("clean", tree / ".top", status=2).errors == f"tvctl: {tree}/.top: not removed: {says}\n"


def test_a_slow_file_has_a_time_and_no_rate(tvctl, tree, fake_service):
    begun = time.monotonic()
    fake_service(lambda request: wait_until(lambda: time.monotonic() > begun + 1.5, "the time") and "CLEAN")
    assert re.fullmatch(r"\d+\.\d s", summary(tvctl.run("scan", tree / ".top"))["time"])


@pytest.mark.parametrize("options", [[], ["--no-color"]])
def test_a_bar_on_a_terminal(tvctl, tree, fake_service, options):
    # As soon as it is known how much there is, it is drawn at the next file.
    fake_service("CLEAN", lambda request: wait_until(lambda: time.monotonic() > begun + 1, "the count") and "CLEAN")
    begun = time.monotonic()
    result = tvctl.on_terminal(*options, "scan", tree)
    assert result.status == 0
    text = result.errors
    colour = re.search(r"\[\x1b\[32m#+\.+\x1b\[0m\]  ?\d\d%", text)
    plain = re.search(r"\[#+\.+\]  ?\d\d%", text)
    assert bool(plain) == bool(options) and bool(colour) != bool(options), text
    for line in text.split("\r"):
        assert len(re.sub(r"\x1b\[\d*[mK]", "", line)) < 100
