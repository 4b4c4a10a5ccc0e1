"""What becomes of a file whose hash is on a list, and what the service answers and writes about it."""

import errno
import hashlib
import os
import re
import time
from datetime import datetime

import pytest

from commandclient import told
from harness import EICAR, Unwatched, exists, found, wait_gone, write_once

CONTENT = b"content that somebody does not like"
MD5, SHA1, SHA256 = (hashlib.new(kind, CONTENT).hexdigest() for kind in ("md5", "sha1", "sha256"))

ALLOW, RENAME, DELETE = 0, 1, 2

# List number, hash, its name in replies, its number in the report.
KINDS = [("0", MD5, "MD5", 4), ("1", SHA1, "SHA1", 5), ("2", SHA256, "SHA256", 6)]


@pytest.fixture
def listed(files):
    return write_once(files / "listed", CONTENT)


@pytest.fixture
def start(tv, connect):
    """Starts the service with these settings; the result is a registered client."""
    def start_with(hashes, action=ALLOW, **options):
        tv.configure(ioc=True, iocAction=action, iocHashes=hashes)
        tv.start(**options)
        return connect("demo")

    return start_with


def ioc_lines(tv):
    """The lines of what was done, without the start and the connection."""
    return [line.what() for line in tv.log()
            if line.location in ("IOCScanManager::scanFile", "IOCScanFile::scanFile")
            or "IDC File Detected" in line.message]


def detected(path, reply):
    return told(f"IDC File Detected[demo]: {path} {reply}")


def done(message, level="INFO"):
    return level, "IOCScanManager::scanFile", message


def report_lines(tv):
    """The records in all report files, as bytes without their line ends."""
    directory = tv.root / "reports"
    lines = []
    for path in sorted(directory.iterdir()) if directory.is_dir() else []:
        assert re.fullmatch(r"\d\d-\d\d-\d{4}\.apmon", path.name), path
        data = path.read_bytes()
        assert data.endswith(b"\n")
        lines += data[:-1].split(b"\n")
    return lines


def fields_of(tv):
    [line] = report_lines(tv)
    return line.decode("latin-1").split(",")


@pytest.mark.parametrize("number, digest, kind, code", KINDS)
def test_each_kind_of_hash(tv, start, listed, number, digest, kind, code):
    client = start({number: ["x", digest, "y"]})
    reply = f"{kind}:IA:{digest}"
    assert client.ask(f"SCANIOC {listed}") == reply
    assert listed.read_bytes() == CONTENT
    assert ioc_lines(tv) == [detected(listed, reply)]
    assert fields_of(tv)[1:] == [str(listed), "IA", str(code), digest, *["NA"] * 6]


def test_the_first_list_with_the_file_counts(tv, start, listed):
    client = start({number: [digest] for number, digest, _, _ in KINDS})
    assert client.ask(f"SCANIOC {listed}") == f"MD5:IA:{MD5}"
    tv.configure(iocHashes={"0": []})
    assert client.ask("RELOADIOCDB") == "SUCCESS"
    assert client.ask(f"SCANIOC {listed}") == f"SHA1:IA:{SHA1}"
    tv.configure(iocHashes={"1": []})
    assert client.ask("RELOADIOCDB") == "SUCCESS"
    assert client.ask(f"SCANIOC {listed}") == f"SHA256:IA:{SHA256}"
    assert len(report_lines(tv)) == 3


@pytest.mark.parametrize("hashes", [
    pytest.param({"0": [MD5.upper()], "1": [SHA1.upper()], "2": [SHA256.upper()]}, id="upper case"),
    pytest.param({"0": [f"{MD5} "], "1": [f" {SHA1}"], "2": [f"{SHA256}\n"]}, id="blanks"),
    pytest.param({"0": [SHA1, SHA256], "1": [MD5, SHA256], "2": [MD5, SHA1]}, id="in another list"),
    pytest.param({"0": [MD5[:-1]], "1": [SHA1[1:]], "2": ["*", ""]}, id="pieces"),
    pytest.param({"0": [hashlib.md5(b"").hexdigest()]}, id="of another content"),
    pytest.param({}, id="empty lists"),
])
def test_not_listed(tv, start, listed, hashes):
    client = start(hashes, DELETE)
    assert client.ask(f"SCANIOC {listed}") == "CLEAN"
    assert exists(listed)
    assert ioc_lines(tv) == []
    assert report_lines(tv) == []


def test_switched_off(tv, connect, listed):
    tv.configure(iocAction=DELETE, iocHashes={"0": [MD5]})
    tv.start()
    client = connect("demo")
    assert client.ask(f"SCANIOC {listed}") == "CLEAN"
    assert exists(listed)
    assert ioc_lines(tv) == []
    assert report_lines(tv) == []
    # It was not even looked at.
    assert tv.cached(str(listed)) == {}


# --------------------------------------------------------------------------------------------------- actions


def test_renamed(tv, start, listed):
    client = start({"1": [SHA1]}, RENAME)
    reply = f"SHA1:IR:{SHA1}"
    once, twice = f"{listed}.IOCOFF", f"{listed}.IOCOFF.IOCOFF"
    assert client.ask(f"SCANIOC {listed}") == reply
    assert not exists(listed)
    assert exists(once)
    # It is as bad as before.
    assert client.ask(f"SCANIOC {once}") == reply
    assert not exists(once)
    with open(twice, "rb") as file:
        assert file.read() == CONTENT
    assert ioc_lines(tv) == [done(f"IOC File Renamed: {once}"), detected(listed, reply),
                             done(f"IOC File Renamed: {twice}"), detected(once, reply)]
    assert [line.split(b",")[1:5] for line in report_lines(tv)] == [
        [os.fsencode(path), b"IR", b"5", SHA1.encode()] for path in (listed, once)]


def test_deleted(tv, start, listed):
    client = start({"2": [SHA256]}, DELETE)
    reply = f"SHA256:ID:{SHA256}"
    assert client.ask(f"SCANIOC {listed}") == reply
    assert not exists(listed)
    assert tv.quarantined() == {}
    assert ioc_lines(tv) == [done(f"IOC File Removed: {listed}"), detected(listed, reply)]
    assert fields_of(tv)[1:] == [str(listed), "ID", "6", SHA256, *["NA"] * 6]
    assert client.ask(f"SCANIOC {listed}") == "CLEAN"


@pytest.mark.parametrize("action", [7, 3, -1])
def test_an_unknown_action_reports_only(tv, start, listed, action):
    client = start({"0": [MD5]}, action)
    assert client.ask(f"SCANIOC {listed}") == "CLEAN"
    assert exists(listed)
    assert ioc_lines(tv) == []
    assert fields_of(tv)[1:] == [str(listed), "", "4", MD5, *["NA"] * 6]


@pytest.mark.parametrize("action, letters, what, suffix", [
    (RENAME, "IR", "Rename", ".IOCOFF"), (DELETE, "ID", "Remove", "")])
@pytest.mark.parametrize("number, digest, kind, code", KINDS)
def test_in_a_read_only_directory(tv, start, files, mounts, number, digest, kind, code, action, letters, what,
                                  suffix):
    directory = files / "kept"
    directory.mkdir()
    path = write_once(directory / "listed", CONTENT)
    mounts.read_only(directory)
    client = start({number: [digest]}, action)
    reply = f"{kind}:{digest}:ERROR"
    assert client.ask(f"SCANIOC {path}") == reply
    assert exists(path)
    assert ioc_lines(tv) == [done(f"IOC Failed to {what}: {path}{suffix}", "ERROR"), detected(path, reply)]
    [line] = [line for line in tv.log() if "IOC Failed" in line.message]
    assert line.code == errno.EROFS
    assert fields_of(tv)[1:] == [str(path), letters, str(code), digest, *["NA"] * 6]


def test_the_new_name_is_taken(tv, start, listed):
    in_the_way = write_once(f"{listed}.IOCOFF", b"another file")
    client = start({"0": [MD5]}, RENAME)
    assert client.ask(f"SCANIOC {listed}") == f"MD5:{MD5}:ERROR"
    assert listed.read_bytes() == CONTENT
    with open(in_the_way, "rb") as file:
        assert file.read() == b"another file"
    failed = done(f"IOC Failed to Rename: {in_the_way}", "ERROR")
    [line] = [line for line in tv.log() if line.what() == failed]
    assert line.code == errno.EEXIST
    assert fields_of(tv)[2] == "IR"


def without_overriding_permissions(tv):
    """A command that starts the service as a root that permissions count for."""
    return ["/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search",
            str(tv.root / "bin" / "tvfilemon")]


def test_where_the_service_may_not_write(tv, start, files):
    directory = files / "kept"
    directory.mkdir()
    path = write_once(directory / "listed", CONTENT)
    directory.chmod(0o555)
    client = start({"0": [MD5]}, DELETE, command=without_overriding_permissions(tv))
    assert client.ask(f"SCANIOC {path}") == f"MD5:{MD5}:ERROR"
    assert exists(path)
    [line] = [line for line in tv.log() if line.what() == done(f"IOC Failed to Remove: {path}", "ERROR")]
    assert line.code == errno.EACCES


# libclamav's answer for a file that may not be read.
ACCESS_ERROR = 16


def test_a_file_that_may_not_be_read(tv, start, files):
    path = write_once(files / "closed", CONTENT)
    path.chmod(0)
    client = start({number: [digest] for number, digest, _, _ in KINDS}, DELETE,
                   command=without_overriding_permissions(tv))
    assert client.ask(f"SCANIOC {path}") == "CLEAN"
    assert client.ask(f"SCAN {path}") == f"ERROR {ACCESS_ERROR}"
    status = path.stat()
    record = tv.cached(str(path))
    assert (record["md5"], record["sha1"], record["sha256"]) == (None, None, None)
    assert (record["size"], record["modified"]) == (len(CONTENT), status.st_mtime_ns // 1000000)
    # A change of the permissions alone is none of the file.
    path.chmod(0o600)
    assert client.ask(f"SCANIOC {path}") == "CLEAN"
    os.utime(path)
    assert client.ask(f"SCANIOC {path}") == f"MD5:ID:{MD5}"


# --------------------------------------------------------------------------------------------------- objects


def test_an_empty_file(tv, start, files):
    digest = hashlib.md5(b"").hexdigest()
    path = write_once(files / "empty", b"")
    client = start({"0": [digest]})
    assert client.ask(f"SCANIOC {path}") == f"MD5:IA:{digest}"


def test_a_link_is_what_it_leads_to(tv, start, files, listed):
    client = start({"0": [MD5]}, DELETE)
    link = files / "link"
    os.symlink(listed, link)
    assert client.ask(f"SCANIOC {link}") == f"MD5:ID:{MD5}"
    assert not exists(link)
    assert exists(listed)


@pytest.mark.parametrize("name", ["missing", "directory", "fifo", "dangling"])
def test_what_has_no_content_has_no_hash(tv, start, files, name):
    (files / "directory").mkdir()
    os.mkfifo(files / "fifo")
    os.symlink("nothing", files / "dangling")
    client = start({"0": [hashlib.md5(b"").hexdigest()]}, DELETE)
    path = files / name
    assert client.ask(f"SCANIOC {path}") == "CLEAN"
    assert ioc_lines(tv) == []
    # The hash of nothing is an empty text, and a list may hold that.
    tv.configure(iocHashes={"0": [""]}, iocAction=ALLOW)
    assert client.ask("RELOADIOCSETT") == "SUCCESS"
    assert client.ask(f"SCANIOC {path}") == "MD5:IA:"
    assert ioc_lines(tv) == [detected(path, "MD5:IA:")]
    assert fields_of(tv)[1:] == [str(path), "IA", "4", "", *["NA"] * 6]


def test_a_large_file(tv, start, files):
    path = files / "large"
    with open(path, "wb") as file:
        file.truncate(300 << 20)
    digest = hashlib.sha256()
    for _ in range(300):
        digest.update(bytes(1 << 20))
    client = start({"2": [digest.hexdigest()]})
    assert client.ask(f"SCANIOC {path}") == f"SHA256:IA:{digest.hexdigest()}"


def test_file_events_have_nothing_to_do_with_the_lists(tv, start, home):
    unwatched = Unwatched()
    client = start({"0": [MD5, hashlib.md5(EICAR).hexdigest()]}, RENAME)
    path = unwatched.move_in(home / "listed", CONTENT)
    infected = unwatched.move_in(home / "eicar")
    wait_gone(infected)
    assert found(infected) in [line.what() for line in tv.settle()]
    assert exists(path)
    assert ioc_lines(tv) == []
    assert report_lines(tv) == []
    assert client.ask(f"SCANIOC {path}") == f"MD5:IR:{MD5}"
    assert exists(f"{path}.IOCOFF")


# ---------------------------------------------------------------------------------------------------- report


def test_the_record(tv, start, listed):
    client = start({"0": [MD5]})
    began = int(time.time())
    for _ in range(3):
        assert client.ask(f"SCANIOC {listed}") == f"MD5:IA:{MD5}"
    ended = time.time()
    [report] = (tv.root / "reports").iterdir() if began // 86400 == ended // 86400 else [None]
    lines = report_lines(tv)
    assert len(lines) == 3
    for line in lines:
        fields = line.decode().split(",")
        assert len(fields) == 11
        written = datetime.strptime(fields[0], "%d-%m-%Y %H:%M:%S")
        assert began <= written.timestamp() <= ended
        assert report is None or report.name == written.strftime("%d-%m-%Y") + ".apmon"
        assert fields[1:] == [str(listed), "IA", "4", MD5, *["NA"] * 6]


def filled(template, value):
    """The template with the value in the place of the lowest number that follows a per cent sign."""
    numbers = [int(number) for number in re.findall(r"%(\d\d?)", template)]
    lowest = min(numbers)
    return re.sub(r"%(\d\d?)", lambda match: value if int(match[1]) == lowest else match[0], template)


@pytest.mark.parametrize("name, in_report", [
    pytest.param("größe.exe", "größe.exe", id="latin"),
    pytest.param("\u20ac\u4e2d.exe", "??.exe", id="beyond latin"),
    pytest.param("\U0001f600", "??", id="two units"),
    pytest.param("a,b,,c", "a,b,,c", id="comma"),
    pytest.param('a "b"', 'a "b"', id="quotes"),
    pytest.param("a%7b", "aNAb", id="a later field"),
    pytest.param("a%3b", "aIAb", id="the next field"),
    pytest.param("%", "%", id="per cent"),
    pytest.param("%n %s %L3", None, id="other signs"),
    pytest.param("%1", None, id="an earlier field"),
    pytest.param("%99 %2 %10", None, id="several"),
])
def test_paths_in_the_report(tv, start, files, name, in_report):
    path = write_once(files / name, CONTENT)
    client = start({"0": [MD5]})
    assert client.ask(f"SCANIOC {path}") == f"MD5:IA:{MD5}"
    [line] = report_lines(tv)
    text = line.decode("latin-1")
    moment = text.partition(",")[0]
    if in_report is not None:
        assert text == ",".join([moment, f"{files}/{in_report}", "IA", "4", MD5, *["NA"] * 6])
    elif "%L" in name:
        # The letter of a place that is to be filled in the user's way.
        assert text == ",".join([moment, f"{files}/%n %s IA", "IA", "4", MD5, *["NA"] * 6])
    else:
        expected = "%1,%2,%3,%4,%5,%6,%7,%8,%9,%10,%11"
        for value in (moment, str(path), "IA", "4", MD5, *["NA"] * 6):
            expected = filled(expected, value)
        assert text == expected


@pytest.mark.parametrize("action, reply", [
    (ALLOW, f"MD5:IA:{MD5}"), (DELETE, f"MD5:ID:{MD5}"), (RENAME, f"MD5:IR:{MD5}"), (7, "CLEAN")])
def test_a_report_that_cannot_be_written(tv, start, listed, action, reply):
    (tv.root / "reports").write_bytes(b"in the way")
    client = start({"0": [MD5]}, action)
    assert client.ask(f"SCANIOC {listed}") == reply
    failed = done("Failed to add report in IOC Scan Report.", "ERROR")
    [line] = [line for line in tv.log() if line.what()[:2] == failed[:2]]
    assert line.what() == failed
    assert line.code == errno.ENOTDIR
    assert (tv.root / "reports").read_bytes() == b"in the way"
    assert exists(listed) == (action not in (DELETE, RENAME))


def test_reports_that_are_taken_away(tv, start, listed):
    client = start({"0": [MD5]})
    assert client.ask(f"SCANIOC {listed}") == f"MD5:IA:{MD5}"
    for path in (tv.root / "reports").iterdir():
        path.unlink()
    (tv.root / "reports").rmdir()
    assert client.ask(f"SCANIOC {listed}") == f"MD5:IA:{MD5}"
    assert len(report_lines(tv)) == 1
