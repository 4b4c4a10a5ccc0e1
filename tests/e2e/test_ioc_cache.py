"""The cache of file hashes, proved by what it holds, and what counts from which reload on."""

import hashlib
import os
import sqlite3

import pytest

from harness import exists, write_once

CONTENT = b"the first content"
OTHER = b"the other content"
assert len(CONTENT) == len(OTHER)


def md5(content):
    return hashlib.md5(content).hexdigest()


def record_of(path, content):
    status = os.stat(path)
    return {"path": str(path), "size": len(content), "modified": status.st_mtime_ns // 1000000, "sign": "-",
            **{kind: hashlib.new(kind, content).hexdigest() for kind in ("md5", "sha1", "sha256")}}


def cached(tv, path):
    """The record without the time of creation, which not every file system tells."""
    record = tv.cached(str(path))
    record.pop("created", None)
    return record


def scans(client, path, content=None):
    """Scans the file; `content` is what the service takes it for, None for something that is not listed."""
    assert client.ask(f"SCANIOC {path}") == ("CLEAN" if content is None else f"MD5:IA:{md5(content)}")


@pytest.fixture
def file(files):
    return write_once(files / "file", CONTENT)


@pytest.fixture
def client(tv, connect):
    tv.configure(ioc=True, iocHashes={"0": [md5(CONTENT)]})
    tv.start()
    return connect("demo")


def test_the_record_of_a_file(tv, client, files, file):
    assert tv.cached(str(file)) == {}
    scans(client, file, CONTENT)
    assert cached(tv, file) == record_of(file, CONTENT)
    unlisted = write_once(files / "unlisted", OTHER)
    scans(client, unlisted)
    assert cached(tv, unlisted) == record_of(unlisted, OTHER)


def test_an_unchanged_file_is_not_hashed_again(tv, client, file):
    """Its content is another, and nobody sees it."""
    scans(client, file, CONTENT)
    record = cached(tv, file)
    before = os.stat(file)
    file.write_bytes(OTHER)
    os.utime(file, ns=(before.st_atime_ns, before.st_mtime_ns))
    scans(client, file, CONTENT)
    assert cached(tv, file) == record
    # What makes the difference is the time.
    os.utime(file, ns=(before.st_atime_ns, before.st_mtime_ns + 1000000))
    scans(client, file)
    assert cached(tv, file) == record_of(file, OTHER)


def test_another_file_in_its_place(tv, client, files, file):
    scans(client, file, CONTENT)
    record = cached(tv, file)
    before = os.stat(file)
    other = write_once(files / "other", OTHER)
    os.utime(other, ns=(before.st_atime_ns, before.st_mtime_ns))
    os.rename(other, file)
    scans(client, file, CONTENT)
    assert cached(tv, file) == record


def test_another_size_is_a_change(tv, client, file):
    scans(client, file, CONTENT)
    before = os.stat(file)
    file.write_bytes(CONTENT + b"!")
    os.utime(file, ns=(before.st_atime_ns, before.st_mtime_ns))
    scans(client, file)
    assert cached(tv, file) == record_of(file, CONTENT + b"!")


def test_a_touched_file_is_hashed_again(tv, client, file):
    scans(client, file, CONTENT)
    first = cached(tv, file)
    os.utime(file, (1000000000, 1000000000))
    scans(client, file, CONTENT)
    second = cached(tv, file)
    assert second == record_of(file, CONTENT)
    assert second["modified"] == 1000000000000 != first["modified"]


def cache_database(tv):
    [path] = tv.settings.glob("ioc-cache.db")
    return sqlite3.connect(path, isolation_level=None, timeout=10)


def test_what_the_record_says_counts(tv, client, file):
    scans(client, file, CONTENT)
    database = cache_database(tv)
    database.execute("UPDATE file_ioc_info SET md5 = 'none', sign = 'somebody'")
    scans(client, file)
    # Even so the record is written once more.
    assert cached(tv, file)["md5"] == "none"
    assert cached(tv, file)["sign"] == "-"
    database.execute("DELETE FROM file_ioc_info")
    database.close()
    scans(client, file, CONTENT)
    assert cached(tv, file) == record_of(file, CONTENT)


def test_it_survives_the_service(tv, connect, client, file):
    scans(client, file, CONTENT)
    record = cached(tv, file)
    before = os.stat(file)
    file.write_bytes(OTHER)
    os.utime(file, ns=(before.st_atime_ns, before.st_mtime_ns))
    client.reset()
    tv.stop()
    assert cached(tv, file) == record
    tv.start()
    scans(connect("demo"), file, CONTENT)


@pytest.mark.parametrize("spell", [
    pytest.param(lambda path: os.path.relpath(path, "/"), id="relative"),
    pytest.param(lambda path: f"/{path}", id="two slashes"),
])
def test_other_spellings_are_hashed_every_time(tv, client, file, spell):
    """They are looked for as they are told, and kept by the whole path."""
    path = spell(str(file))
    scans(client, path, CONTENT)
    before = os.stat(file)
    file.write_bytes(OTHER)
    os.utime(file, ns=(before.st_atime_ns, before.st_mtime_ns))
    scans(client, path)
    assert cached(tv, file) == record_of(file, OTHER)
    assert tv.cached(path) == {}


def test_a_listed_file_whose_record_cannot_be_kept(tv, connect, file):
    tv.configure(ioc=True, iocHashes={"0": [md5(CONTENT)]})
    (tv.settings / "ioc-cache.db").mkdir()
    tv.start()
    client = connect("demo")
    for _ in range(2):
        scans(client, file, CONTENT)
        scans(client, f"{file}x")
    failures = [line for line in tv.log() if line.location == "IOCScanFile::scanFile"]
    assert {line.what() for line in failures} == {
        ("ERROR", "IOCScanFile::scanFile", "Failed to save file hashes!")}
    assert tv.count(*failures[0].what()) == 4


def test_a_damaged_cache_is_made_anew(tv, client, file):
    scans(client, file, CONTENT)
    path = tv.settings / "ioc-cache.db"
    for ending in ("-wal", "-shm"):
        other = tv.settings / f"ioc-cache.db{ending}"
        if exists(other):
            other.unlink()
    (tv.settings / "new").write_bytes(b"this is no database. " * 1000)
    os.replace(tv.settings / "new", path)
    scans(client, file, CONTENT)
    scans(client, file, CONTENT)
    assert cached(tv, file) == record_of(file, CONTENT)


# --------------------------------------------------------------------------------------------------- reloads


def test_lists_count_from_the_next_reload_on(tv, client, file):
    tv.configure(iocHashes={"0": []})
    scans(client, file, CONTENT)
    assert client.ask("RELOADIOCDB") == "SUCCESS"
    scans(client, file)
    tv.configure(iocHashes={"0": [md5(CONTENT)]})
    scans(client, file)
    # The settings bring the lists with them, as long as they are used at all.
    assert client.ask("RELOADIOCSETT") == "SUCCESS"
    scans(client, file, CONTENT)
    # The other reloads do not.
    tv.configure(iocHashes={"0": []})
    for word in ("RELOADDB", "RELOADSETT"):
        assert client.ask(word) == "SUCCESS"
        scans(client, file, CONTENT)


def test_switching_on_and_off(tv, connect, file):
    tv.configure(ioc=False, iocHashes={"0": [md5(CONTENT)]})
    tv.start()
    client = connect("demo")
    scans(client, file)
    assert client.ask("RELOADIOCDB") == "SUCCESS"
    scans(client, file)
    assert cached(tv, file) == {}
    tv.configure(ioc=True)
    for word in ("RELOADIOCDB", "RELOADSETT", "RELOADDB"):
        assert client.ask(word) == "SUCCESS"
        scans(client, file)
    assert client.ask("RELOADIOCSETT") == "SUCCESS"
    scans(client, file, CONTENT)
    tv.configure(ioc=False)
    scans(client, file, CONTENT)
    assert client.ask("RELOADIOCSETT") == "SUCCESS"
    scans(client, file)


def test_the_action_counts_from_the_next_reload_on(tv, client, file):
    tv.configure(iocAction=2)
    assert client.ask("RELOADIOCDB") == "SUCCESS"
    scans(client, file, CONTENT)
    assert exists(file)
    assert client.ask("RELOADIOCSETT") == "SUCCESS"
    assert client.ask(f"SCANIOC {file}") == f"MD5:ID:{md5(CONTENT)}"
    assert not exists(file)


def test_long_lists(tv, connect, file):
    numbers = [hashlib.sha256(str(number).encode()).hexdigest() for number in range(500)]
    tv.configure(ioc=True, iocHashes={"2": [*numbers, hashlib.sha256(CONTENT).hexdigest()]})
    tv.start()
    client = connect("demo")
    assert client.ask(f"SCANIOC {file}") == f"SHA256:IA:{hashlib.sha256(CONTENT).hexdigest()}"
