"""`tvctl ioc list|add|remove|clear`."""

import hashlib
import subprocess

import pytest

from storefailures import AS_ORDINARY_USER, damage, inaccessible, locked, locked_for_writing

KINDS = {"md5": "0", "sha1": "1", "sha256": "2"}
MD5 = hashlib.md5(b"a").hexdigest()
SHA1 = hashlib.sha1(b"a").hexdigest()
SHA256 = hashlib.sha256(b"a").hexdigest()
EMPTY = {"md5": [], "sha1": [], "sha256": []}


def listed(tvctl):
    return tvctl.json("ioc", "list")["hashes"]


@pytest.fixture
def store(tv, tvctl):
    tv.configure(iocHashes={"0": [MD5]})
    return tv.settings / "tvcore.db"


def test_empty_lists(tv, tvctl):
    tv.settings.mkdir()
    assert listed(tvctl) == EMPTY
    assert tvctl.run("ioc", "list").output == ""
    assert tvctl.json("ioc", "list", "--type", "sha1") == {"hashes": {"sha1": []}}


def test_add_list_remove(tv, tvctl):
    tv.settings.mkdir()
    assert tvctl.json("ioc", "add", SHA256, MD5, SHA1.upper(), MD5.upper()) == {
        "added": 3, "duplicate": 1, "reload": "service down"}
    assert listed(tvctl) == {"md5": [MD5], "sha1": [SHA1], "sha256": [SHA256]}
    assert tvctl.run("ioc", "list").lines() == [f"md5     {MD5}", f"sha1    {SHA1}", f"sha256  {SHA256}"]
    assert tvctl.run("ioc", "list", "--type", "sha1").output == f"{SHA1}\n"
    assert tvctl.json("ioc", "list", "--type", "sha256") == {"hashes": {"sha256": [SHA256]}}
    assert tvctl.run("ioc", "add", MD5, "f" * 32).lines()[0] == "added: 1, duplicate: 1"
    assert listed(tvctl)["md5"] == [MD5, "f" * 32]
    result = tvctl.run("ioc", "remove", MD5.upper(), SHA256)
    assert result.lines() == ["removed: 2", "tvfilemon does not run; it reads this when it starts"]
    assert listed(tvctl) == {"md5": ["f" * 32], "sha1": [SHA1], "sha256": []}
    assert tvctl.json("ioc", "remove", SHA1) == {"removed": 1, "missing": [], "reload": "service down"}


def test_raw_keeps_the_case(tv, tvctl):
    tv.settings.mkdir()
    result = tvctl.run("ioc", "add", "--raw", MD5.upper(), SHA1)
    assert result.errors == (f"tvctl: warning: {MD5.upper()} never matches: the service looks hashes up in lower "
                             "case\n")
    assert listed(tvctl) == {"md5": [MD5.upper()], "sha1": [SHA1], "sha256": []}
    # Another text for the store.
    assert tvctl.json("ioc", "add", MD5)["added"] == 1
    tvctl.run("ioc", "remove", MD5.upper())
    assert listed(tvctl)["md5"] == []


def test_the_service_matches_what_was_added(tv, tvctl, connect, files):
    tv.configure(ioc=True, iocAction=0)
    tv.start()
    (files / "a").write_bytes(b"a")
    client = connect("demo")
    assert client.ask(f"SCANIOC {files}/a") == "CLEAN"
    assert tvctl.json("ioc", "add", SHA1.upper())["reload"] == "done"
    assert client.ask(f"SCANIOC {files}/a") == f"SHA1:IA:{SHA1}"
    tvctl.run("ioc", "add", "--no-reload", MD5)
    assert client.ask(f"SCANIOC {files}/a") == f"SHA1:IA:{SHA1}"
    assert tvctl.json("ioc", "remove", SHA1)["reload"] == "done"
    assert client.ask(f"SCANIOC {files}/a") == f"MD5:IA:{MD5}"
    tvctl.run("ioc", "clear", "--all")
    assert client.ask(f"SCANIOC {files}/a") == "CLEAN"
    assert tv.count("TRACE", "CSocketManager::onClientReceivedMessage", "Reload IOCDB command recieved.") == 3


def test_clear(tv, tvctl):
    hashes = {number: [f"{kind}-{each}" for each in range(3)] for kind, number in KINDS.items()}
    tv.configure(iocHashes=hashes)
    assert tvctl.run("ioc", "clear", "--type", "sha1").lines()[0] == "removed: 3"
    assert listed(tvctl) == {"md5": hashes["0"], "sha1": [], "sha256": hashes["2"]}
    assert tvctl.json("ioc", "clear", "--all") == {"removed": 6, "reload": "service down"}
    assert listed(tvctl) == EMPTY
    assert tvctl.json("ioc", "clear", "--all", "--no-reload") == {"removed": 0, "reload": "not asked"}


def test_removing_what_is_not_there(tv, tvctl):
    tv.configure(iocHashes={"0": [MD5, "c" * 32], "2": ["no hash", "caf\u00e9"]})
    result = tvctl.run("ioc", "remove", MD5, SHA256, status=2)
    assert result.errors == f"tvctl: {SHA256} is in none of the lists; see tvctl ioc list\n"
    assert result.lines()[0] == "removed: 1"
    assert tvctl.json("ioc", "remove", MD5, b"\xff", status=2) == {
        "removed": 0, "missing": [MD5, r"\xff"], "reload": "service down"}
    # Whatever others have put into a list goes too.
    assert tvctl.json("ioc", "remove", "no hash", "caf\u00e9")["removed"] == 2
    assert listed(tvctl) == {"md5": ["c" * 32], "sha1": [], "sha256": []}


@pytest.mark.parametrize("arguments, says", [
    (("ioc",), "see tvctl ioc --help"),
    (("ioc", "add"), "HASH is required; see tvctl ioc add --help"),
    (("ioc", "add", "abc"), '"abc" is no MD5, SHA-1 or SHA-256'),
    (("ioc", "add", SHA1, "g" * 32), "nothing was added"),
    (("ioc", "add", "--raw", "a" * 33), "is no MD5, SHA-1 or SHA-256"),
    (("ioc", "add", b"\xff" * 32), "is no MD5, SHA-1 or SHA-256"),
    (("ioc", "add", "a" * 128), "is no MD5, SHA-1 or SHA-256"),
    (("ioc", "list", "--type", "sha512"), "see tvctl ioc list --help"),
    (("ioc", "clear"), "say which list to empty: --type md5, sha1 or sha256, or --all"),
    (("ioc", "clear", "--all", "--type", "md5"), "see tvctl ioc clear --help"),
])
def test_what_is_refused(tvctl, store, arguments, says):
    tvctl.fails(*arguments, says=says)
    assert listed(tvctl) == {**EMPTY, "md5": [MD5]}


def test_what_others_stored_does_not_steer_the_terminal(tv, tvctl):
    tv.configure(iocHashes={"0": ["\x1b[2J", "a\nb"]})
    assert tvctl.run("ioc", "list", "--type", "md5").output == "\\x1b[2J\na\\x0ab\n"
    assert listed(tvctl)["md5"] == ["\x1b[2J", "a\nb"]


def test_a_long_list(tv, tvctl):
    """Several times as many as are read at once, in the order in which they were put in."""
    hashes = [hashlib.sha256(str(number).encode()).hexdigest() for number in range(120_000)]
    tv.settings.mkdir()
    for start in range(0, len(hashes), 20_000):
        assert tvctl.json("ioc", "add", *hashes[start:start + 20_000])["added"] == 20_000
    assert tvctl.run("ioc", "list", "--type", "sha256").lines() == hashes
    assert listed(tvctl) == {**EMPTY, "sha256": hashes}


EACH = [("ioc", "list"), ("ioc", "add", SHA1), ("ioc", "remove", MD5), ("ioc", "clear", "--all")]


@pytest.mark.parametrize("arguments", EACH)
def test_there_is_no_installation(tv, tvctl, arguments):
    tvctl.fails(*arguments, says=f"there is no {tv.settings}")


@pytest.mark.parametrize("arguments", EACH)
def test_the_store_is_locked(tvctl, store, arguments):
    with locked(store):
        tvctl.fails(*arguments, says="the settings cannot be read")
    assert listed(tvctl) == {**EMPTY, "md5": [MD5]}


@pytest.mark.parametrize("arguments, kind", list(zip(EACH[1:], ["sha1", "md5", "md5"])))
def test_somebody_else_is_writing(tvctl, store, arguments, kind):
    with locked_for_writing(store):
        assert listed(tvctl) == {**EMPTY, "md5": [MD5]}
        tvctl.fails(*arguments, says=f"the list of {kind} hashes could not be stored, nothing was changed")
    assert listed(tvctl) == {**EMPTY, "md5": [MD5]}


@pytest.mark.parametrize("arguments", EACH[:2])
def test_the_store_is_damaged(tvctl, store, arguments):
    damage(store)
    result = tvctl.run(*arguments)
    assert f"{store} is damaged" in result.errors and "set aside as" in result.errors
    assert listed(tvctl) == {**EMPTY, "sha1": [SHA1] if "add" in arguments else []}


@pytest.mark.parametrize("arguments", EACH)
def test_another_user_may_not_look(tv, tvctl, store, arguments):
    with inaccessible(tv.settings):
        tvctl.fails(*arguments, says="run it as root: sudo tvctl", wrapper=AS_ORDINARY_USER)
    assert listed(tvctl) == {**EMPTY, "md5": [MD5]}


def test_something_else_holds_the_port(tv, tvctl, impostor):
    tv.settings.mkdir()
    impostor("REGISTERED!", "INVALID COMMAND!")
    assert tvctl.json("ioc", "add", MD5, status=2) == {"added": 1, "duplicate": 0, "reload": "failed"}
    assert listed(tvctl) == {**EMPTY, "md5": [MD5]}


def test_a_reader_who_goes_away(tv, tvctl):
    tv.configure(iocHashes={"0": [MD5]})
    tvctl.run("ioc", "add", *(f"{number:032x}" for number in range(40_000)))
    process = subprocess.Popen(tvctl.command("ioc", "list"), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               env=tvctl.environment())
    assert process.stdout.readline() == f"md5     {MD5}\n".encode()
    process.stdout.close()
    # Python's children have SIGPIPE at its default, which ends them at once.
    assert process.wait() != 0
