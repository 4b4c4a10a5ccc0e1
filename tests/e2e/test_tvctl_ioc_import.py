"""`tvctl ioc import`: what becomes of lists in the formats found in practice, and of broken ones."""

import hashlib
import json
import os
import re
import signal
import time
from pathlib import Path

import pytest

from harness import is_instrumented, wait_until
from storefailures import AS_ORDINARY_USER, damage, inaccessible, locked, locked_for_writing

EMPTY = {"md5": [], "sha1": [], "sha256": []}
EMPTY_MD5 = hashlib.md5(b"").hexdigest()


def md5(number):
    return hashlib.md5(b"%d" % number).hexdigest()


def sha1(number):
    return hashlib.sha1(b"%d" % number).hexdigest()


def sha256(number):
    return hashlib.sha256(b"%d" % number).hexdigest()


def listed(tvctl):
    return tvctl.json("ioc", "list")["hashes"]


@pytest.fixture
def ready(tv, tvctl):
    tv.settings.mkdir()
    return tvctl


def test_a_plain_list(ready, files):
    feed = files / "feed.txt"
    feed.write_text(f"# comment {md5(9)}\n{md5(1).upper()}\n\nfound {sha1(1)} here\n{sha256(1)}\n{md5(1)}\n"
                    f"{'a' * 31}\n{EMPTY_MD5}\n")
    result = ready.run("ioc", "import", feed)
    assert result.lines() == [f"{feed}: plain, 3 hashes", "added: 3, duplicate: 1, harmless: 1, rejected: 1",
                              "tvfilemon does not run; it reads this when it starts"]
    assert [line.split(": ")[1] for line in result.errors.splitlines()] == [f"{feed}:7", f"{feed}:8"]
    assert listed(ready) == {"md5": [md5(1)], "sha1": [sha1(1)], "sha256": [sha256(1)]}
    again = ready.json("ioc", "import", feed)
    rejections = again["files"][0].pop("rejections")
    assert again == {
        "added": 0, "duplicate": 4, "harmless": 1, "rejected": 1, "dry_run": False, "stopped": None,
        "reload": "service down",
        "files": [{"path": str(feed), "format": "plain", "hashes": 3, "duplicate": 1, "harmless": 1, "rejected": 1,
                   "error": None}]}
    assert [each["line"] for each in rejections] == [7, 8]
    assert all(each["reason"] for each in rejections)


MISP = {"Event": {"info": "x", "Attribute": [
    {"type": "md5", "value": md5(1), "to_ids": True},
    {"type": "sha256", "value": sha256(1), "to_ids": True},
    {"type": "sha1", "value": sha1(1), "to_ids": False},
    {"type": "domain", "value": "bad.invalid", "to_ids": True},
    {"type": "filename|md5", "value": f"a.exe|{md5(2)}", "to_ids": True}]}}
STIX = {"type": "bundle", "id": "bundle--1", "objects": [
    {"type": "indicator", "pattern_type": "stix",
     "pattern": f"[file:hashes.'SHA-256' = '{sha256(1)}' OR file:hashes.MD5 = '{md5(1)}']"},
    {"type": "file", "hashes": {"SHA-1": sha1(1)}},
    {"type": "identity", "name": md5(9)}]}
OPENIOC = f"""<?xml version="1.0"?>
<ioc xmlns="http://schemas.mandiant.com/2010/ioc" id="1"><definition><Indicator operator="OR" id="2">
<IndicatorItem id="3" condition="is"><Context document="FileItem" search="FileItem/Md5sum" type="mir"/>
<Content type="md5">{md5(1)}</Content></IndicatorItem>
<IndicatorItem id="4" condition="is"><Context document="FileItem" search="FileItem/FileName" type="mir"/>
<Content type="string">{sha1(9)}</Content></IndicatorItem>
</Indicator></definition></ioc>
"""

# What is written, and the hashes that it holds: MD5, SHA-1, SHA-256.
FORMATS = {
    "csv": (f"date,sha256,filename\n2026-01-01,{sha256(1)},{md5(9)}\n2026-01-02,{sha256(2).upper()},b\n",
            (0, 0, 2)),
    "loki": (f"# signature base\n{md5(1)};a comment with {sha1(9)}\n{sha256(1)};another\n", (1, 0, 1)),
    "hdb": (f"{md5(1)}:1024:Test.A\n{md5(2)}:*:Test.B:73\n{sha1(1)}:5:Test.C\n", (2, 1, 0)),
    "cdb": (f"{md5(1)}:\n{sha256(1)}:text\n", (1, 0, 1)),
    "misp": (json.dumps(MISP), (2, 0, 1)),
    "stix": (json.dumps(STIX, indent=2), (1, 1, 1)),
    "openioc": (OPENIOC, (1, 0, 0)),
    "plain": (f"{md5(1)}\n{sha1(1)}\n{sha1(2)}\n", (1, 2, 0)),
}
NAMES = {"csv": "a.csv", "loki": "hash-iocs.txt", "hdb": "a.hdb", "cdb": "a.cdb", "misp": "a.json",
         "stix": "b.json", "openioc": "a.ioc", "plain": "a.txt"}


@pytest.mark.parametrize("name", FORMATS)
@pytest.mark.parametrize("is_named", [True, False], ids=["named", "told by itself"])
def test_a_format(ready, files, name, is_named):
    content, expected = FORMATS[name]
    feed = files / (NAMES[name] if not is_named else "feed")
    feed.write_text(content)
    document = ready.json("ioc", "import", *(("--format", name) if is_named else ()), feed)
    assert document["files"][0]["format"] == name
    assert document["files"][0]["error"] is None
    assert document["added"] == sum(expected)
    hashes = listed(ready)
    assert (len(hashes["md5"]), len(hashes["sha1"]), len(hashes["sha256"])) == expected
    ninth = {md5(9), sha1(9), sha256(9)}
    assert not ninth & {each for one in hashes.values() for each in one}


def test_what_is_not_for_detection(ready, files):
    (files / "event.json").write_text(json.dumps(MISP))
    ready.run("ioc", "import", files / "event.json")
    assert listed(ready)["sha1"] == []
    assert ready.json("ioc", "import", "--ignore-to-ids", files / "event.json")["added"] == 1
    assert listed(ready)["sha1"] == [sha1(1)]


def test_several_files_and_standard_input(ready, files):
    (files / "a").write_text(f"{md5(1)}\n{md5(2)}\n")
    (files / "b").write_text(f"{md5(2)}\n{md5(3)}\n")
    result = ready.run("ioc", "import", files / "a", "-", files / "b", input=f"{md5(3)}\n{sha1(4)}\n".encode())
    assert "standard input: plain, 2 hashes" in result.lines()
    assert "added: 4, duplicate: 2, harmless: 0, rejected: 0" in result.lines()
    assert listed(ready) == {"md5": [md5(1), md5(2), md5(3)], "sha1": [sha1(4)], "sha256": []}


@pytest.mark.parametrize("encoding", ["utf-8-sig", "utf-16", "utf-16-le", "utf-32"])
def test_encodings(ready, files, encoding):
    (files / "feed.txt").write_bytes(f"# Kommentar \u00e4\r\n{md5(1)}\r\n{sha256(1)}\r\n".encode(encoding))
    assert ready.json("ioc", "import", files / "feed.txt")["added"] == 2
    assert listed(ready) == {**EMPTY, "md5": [md5(1)], "sha256": [sha256(1)]}


def test_a_dry_run(tv, tvctl, files):
    tv.configure(iocHashes={"0": [md5(1)]})
    (files / "feed").write_text("".join(f"{md5(number)}\n{sha1(number)}\n" for number in range(1, 4)))
    result = tvctl.run("ioc", "import", "--dry-run", files / "feed")
    assert sorted(result.lines()) == sorted(
        [f"md5     {md5(number)}" for number in (2, 3)] + [f"sha1    {sha1(number)}" for number in (1, 2, 3)])
    assert result.errors == "tvctl: would be added: 5, duplicate: 1, harmless: 0, rejected: 0\n"
    document = tvctl.json("ioc", "import", "--dry-run", files / "feed")
    assert len(document["hashes"]) == 5 and {"type": "sha1", "hash": sha1(3)} in document["hashes"]
    assert (document["added"], document["duplicate"], document["dry_run"]) == (5, 1, True)
    assert "reload" not in document
    assert listed(tvctl) == {**EMPTY, "md5": [md5(1)]}
    tvctl.run("ioc", "import", files / "feed")
    assert tvctl.json("ioc", "import", "--dry-run", files / "feed")["hashes"] == []


def test_a_running_service_uses_what_was_imported(tv, tvctl, connect, files):
    tv.configure(ioc=True, iocAction=0)
    tv.start()
    (files / "bad").write_bytes(b"1")
    (files / "feed").write_text(sha256(1).upper())
    client = connect("demo")
    assert tvctl.json("ioc", "import", "--no-reload", files / "feed")["reload"] == "not asked"
    assert client.ask(f"SCANIOC {files}/bad") == "CLEAN"
    assert tvctl.json("ioc", "import", files / "feed")["reload"] == "done"
    assert client.ask(f"SCANIOC {files}/bad") == f"SHA256:IA:{sha256(1)}"


# Broken lists


def test_a_list_that_breaks_off(ready, files):
    content = json.dumps(STIX, indent=2)
    (files / "cut.json").write_text(content[:content.index("identity")])
    (files / "good").write_text(md5(5))
    result = ready.run("ioc", "import", files / "cut.json", files / "good", status=2)
    assert f"{files}/cut.json: " in result.errors and "what stands before that is taken" in result.errors
    assert "added: 4, duplicate: 0, harmless: 0, rejected: 0" in result.lines()
    assert listed(ready)["md5"] == [md5(1), md5(5)]
    document = ready.json("ioc", "import", files / "cut.json", files / "good", status=2)
    assert [bool(each["error"]) for each in document["files"]] == [True, False]
    assert document["duplicate"] == 4


@pytest.mark.parametrize("content, arguments", [
    (bytes(range(256)) * 40, ()),
    (b"\x7fELF" + bytes(5000), ()),
    (b"{" * 100_000, ()),
    (b'{"type": "bundle", "objects": [', ()),
    (b"<ioc><definition>", ("--format", "openioc")),
    (b"<!DOCTYPE x [<!ENTITY a 'aaaa'><!ENTITY b '&a;&a;&a;'>]><ioc>&b;", ("--format", "openioc")),
    (b"[1, 2, 3", ("--format", "misp")),
    (b"imphash: " + b"a" * 32 + b"\n", ()),
])
def test_what_is_no_list(ready, files, content, arguments):
    (files / "feed").write_bytes(content)
    result = ready.run("ioc", "import", *arguments, files / "feed", status=2)
    assert f"tvctl: {files}/feed: " in result.errors
    assert listed(ready) == EMPTY
    assert ready.json("ioc", "import", *arguments, files / "feed", status=2)["files"][0]["error"]


def test_a_list_without_hashes(ready, files):
    (files / "empty").touch()
    (files / "comments").write_text("# nothing yet\n")
    for name in ("empty", "comments"):
        result = ready.run("ioc", "import", "--format", "plain", files / name)
        assert f"warning: {files}/{name}: there is no hash in it" in result.errors
        assert "added: 0, duplicate: 0, harmless: 0, rejected: 0" in result.lines()


def test_only_twenty_rejections_are_shown(ready, files):
    (files / "feed").write_text(f"{md5(1)}\n" + f"{'a' * 31}\n" * 1500)
    result = ready.run("ioc", "import", files / "feed")
    lines = result.errors.splitlines()
    assert len(lines) == 21 and lines[0].startswith(f"tvctl: {files}/feed:2: not taken: ")
    assert lines[20] == f"tvctl: {files}/feed: 1480 more were not taken"
    document = ready.json("ioc", "import", files / "feed")
    assert document["rejected"] == 1500 and len(document["files"][0]["rejections"]) == 1000


def test_names_do_not_steer_the_terminal(ready, files):
    feed = os.fsencode(files) + b"/\x1b[2J\xff"
    with open(feed, "w", encoding="ascii") as file:
        file.write(md5(1))
    shown = f"{files}/\\x1b[2J\\xff"
    assert ready.run("ioc", "import", feed).lines()[0] == f"{shown}: plain, 1 hashes"
    entry = ready.json("ioc", "import", feed)["files"][0]
    assert entry["path"] == f"{files}/\x1b[2J\\xff" and entry["path_base64"]


def test_what_cannot_be_read(tv, ready, files):
    os.mkfifo(files / "fifo")
    (files / "directory").mkdir()
    (files / "good").write_text(md5(1))
    (files / "link").symlink_to("good")
    for name, says in (("fifo", "it is no regular file"), ("directory", "it is no regular file"),
                       ("absent", "No such file or directory"), ("/dev/zero", "it is no regular file")):
        result = ready.run("ioc", "import", files / name, files / "good", status=2)
        assert f"tvctl: {files / name}: {says}\n" == result.errors
    assert listed(ready)["md5"] == [md5(1)]
    assert ready.run("ioc", "import", files / "link").status == 0
    os.chmod(files / "good", 0)
    result = ready.run("ioc", "import", files / "good", status=2, wrapper=AS_ORDINARY_USER)
    assert f"{files}/good: Permission denied" in result.errors
    result = ready.run("ioc", "import", "-", status=2, stdin=os.open(files / "directory", os.O_RDONLY))
    assert "standard input: " in result.errors


# Large lists


def cost(tvctl, *arguments):
    """The document, and the seconds by the clock and the megabytes that the tool needed.

    What it waits for itself, as for the disk, counts; what it waits for a processor while others are at work does not.
    """
    began = time.monotonic()
    process = tvctl.start("--json", *arguments)
    peak = 0
    queued = 0

    def has_ended():
        nonlocal peak, queued
        queued = max(queued, int(Path(f"/proc/{process.pid}/schedstat").read_text(encoding="ascii").split()[1]))
        # The usage of the process counts what it was forked from too.
        status = Path(f"/proc/{process.pid}/status").read_text(encoding="ascii")
        peak = max(peak, *map(int, re.findall(r"VmHWM:\s*(\d+) kB", status) or [0]))
        return "State:\tZ" in status

    wait_until(has_ended, "the end of it", timeout=300)
    passed = time.monotonic() - began
    _, end = os.waitpid(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(end)
    assert process.returncode == 0, process.stderr.read()
    return json.loads(process.stdout.read()), passed - queued / 1e9, peak / 1024


def interruptible(process):
    """It has blocked the signal, to look for it itself."""
    status = Path(f"/proc/{process.pid}/status").read_text(encoding="ascii")
    return int(re.search(r"SigBlk:\s*(\w+)", status)[1], 16) >> (signal.SIGINT - 1) & 1


def test_a_million_hashes(ready, files):
    with open(files / "feed", "w", encoding="ascii") as feed:
        feed.writelines(f"{sha256(number)}\n" for number in range(1_000_000))
    # The sanitizers slow down and keep freed memory: only that it ends, and does not run away, can be told then.
    factor = 8 if is_instrumented(ready.command()[0]) else 1
    for added in (1_000_000, 0):
        document, seconds, megabytes = cost(ready, "ioc", "import", files / "feed")
        assert (document["added"], document["duplicate"]) == (added, 1_000_000 - added)
        assert 0 < seconds < 15 * factor and 0 < megabytes < 400 * factor, (seconds, megabytes)
    assert ready.run("ioc", "list", "--type", "sha256").output == (files / "feed").read_text()


def test_memory_does_not_grow_with_the_lists(ready, files):
    """Neither with what the lists hold already nor with what the same import has added."""
    feed = files / "feed"
    peaks = []
    for numbers, added in ((range(300_000), 300_000), (range(300_000, 1_300_000), 1_000_000),
                           (range(300_000, 1_300_000), 0)):
        with open(feed, "w", encoding="ascii") as lines:
            lines.writelines(f"{number:032x}\n" for number in numbers)
        document, _, megabytes = cost(ready, "ioc", "import", "--no-reload", feed)
        assert document["added"] == added
        peaks.append(megabytes)
    assert peaks[0] > 0 and max(peaks) < 2 * peaks[0], peaks


def test_a_line_of_a_hundred_megabytes(ready, files):
    with open(files / "feed", "wb") as feed:
        for _ in range(100):
            feed.write(b"x" * 1_000_000)
        feed.write(b"\n" + md5(1).encode() + b"\n")
    document, _, megabytes = cost(ready, "ioc", "import", files / "feed")
    assert document["added"] == 1
    assert 0 < megabytes < (400 if is_instrumented(ready.command()[0]) else 60), megabytes


def test_a_bar_on_a_terminal(ready, files):
    with open(files / "feed", "w", encoding="ascii") as feed:
        feed.writelines(f"{sha256(number)}\n" for number in range(200_000))
    result = ready.on_terminal("ioc", "import", files / "feed")
    assert result.status == 0 and "added: 200000" in result.output and "\r" not in result.output
    shares = [int(share) for share in re.findall(r"\[#*\.*\] +(\d+)%  \d+\.\d\d \w+", result.errors)]
    assert len(shares) > 1 and shares == sorted(shares) and shares[-1] <= 100, result
    assert f"{files}/feed" in result.errors and result.errors.endswith("\r\033[K")
    assert all(len(line) < 100 + len("\033[K") for line in result.errors.split("\r"))
    # Nobody wants it in a file.
    assert ready.run("ioc", "import", files / "feed").errors == ""


# The store and the service fail


@pytest.fixture
def feed(files):
    path = files / "feed"
    path.write_text(f"{md5(1)}\n{sha1(1)}\n")
    return path


@pytest.fixture
def store(tv, tvctl):
    tv.configure(iocHashes={"0": [md5(7)]})
    return tv.settings / "tvcore.db"


@pytest.mark.parametrize("arguments", [(), ("--dry-run",)])
def test_there_is_no_installation(tv, tvctl, feed, arguments):
    tvctl.fails("ioc", "import", *arguments, feed, says=f"there is no {tv.settings}")


@pytest.mark.parametrize("arguments", [(), ("--dry-run",)])
def test_the_store_is_locked(tvctl, store, feed, arguments):
    with locked(store):
        tvctl.fails("ioc", "import", *arguments, feed, says="the settings cannot be read")


def test_somebody_else_is_writing(tvctl, store, feed):
    with locked_for_writing(store):
        result = tvctl.run("ioc", "import", feed, status=2)
        assert "0 hashes were added, then a piece of the md5 hashes could not be stored" in result.errors
        document = tvctl.json("ioc", "import", feed, status=2)
    assert "could not be stored" in document["stopped"] and document["added"] == 0
    assert document["duplicate"] is None
    assert listed(tvctl) == {**EMPTY, "md5": [md5(7)]}


def test_it_fails_in_the_middle(tvctl, store, files):
    """What was stored before stays, and is told."""
    with open(files / "feed", "w", encoding="ascii") as feed:
        feed.writelines(f"{md5(number)}\n" for number in range(600_000))
    process = tvctl.start("ioc", "import", files / "feed")
    wait_until(lambda: len(tvctl.run("ioc", "list", "--type", "md5").lines()) > 1, "the first piece")
    with locked_for_writing(store):
        output, errors = process.communicate()
    assert process.returncode == 2, (output, errors)
    count = len(listed(tvctl)["md5"])
    assert count > 1 and count < 600_000
    assert f"tvctl: {count - 1} hashes were added, then a piece of the md5 hashes could not be stored" in errors.decode()


@pytest.mark.parametrize("count, stored", [(250_000, 200_000), (10, 0)])
def test_an_interruption(tvctl, store, files, count, stored):
    """While it waits for more, which nobody sends."""
    os.mkfifo(files / "pipe")
    pipe = os.open(files / "pipe", os.O_RDWR)
    process = tvctl.start("ioc", "import", "--no-reload", "-", stdin=pipe)
    wait_until(lambda: interruptible(process), "it to listen to signals")
    for start in range(0, count, 1000):
        os.write(pipe, "".join(f"{md5(number)}\n" for number in range(start, min(start + 1000, count))).encode())
    if stored:
        wait_until(lambda: len(tvctl.run("ioc", "list", "--type", "md5").lines()) > 1, "the first piece")
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=60)
    os.close(pipe)
    assert process.returncode == 2, (output, errors)
    # One of them was there before.
    added = max(stored - 1, 0)
    assert errors.decode() == f"tvctl: interrupted; {added} hashes were added\n"
    assert len(listed(tvctl)["md5"]) == added + 1


def test_the_store_is_damaged(tvctl, store, feed):
    damage(store)
    result = tvctl.run("ioc", "import", feed)
    assert f"{store} is damaged" in result.errors and "set aside as" in result.errors
    assert listed(tvctl) == {**EMPTY, "md5": [md5(1)], "sha1": [sha1(1)]}


def test_another_user_may_not_look(tv, tvctl, store, feed):
    with inaccessible(tv.settings):
        tvctl.fails("ioc", "import", feed, says="run it as root: sudo tvctl", wrapper=AS_ORDINARY_USER)


def test_something_else_holds_the_port(ready, impostor, feed):
    impostor("nonsense")
    document = ready.json("ioc", "import", feed, status=2)
    assert document["reload"] == "failed" and document["added"] == 2


@pytest.mark.parametrize("arguments, says", [
    (("import",), "FILE is required; see tvctl ioc import --help"),
    (("import", "--format", "pdf", "x"), "see tvctl ioc import --help"),
    (("add", EMPTY_MD5), "nothing was added"),
    (("add", hashlib.sha256(b"").hexdigest().upper()), "which sound files hold too"),
    (("add", hashlib.sha1(b"\n").hexdigest()), "which sound files hold too"),
])
def test_what_is_refused(ready, arguments, says):
    ready.fails("ioc", *arguments, says=says)
    assert listed(ready) == EMPTY
