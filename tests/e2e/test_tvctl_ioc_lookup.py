"""`tvctl ioc scan|test`."""

import hashlib
import os
import signal

import pytest

from harness import exists, wait_until, write_once
from storefailures import AS_ORDINARY_USER, damage, inaccessible, locked

CONTENT = b"known to be bad"
MD5 = hashlib.md5(CONTENT).hexdigest()
SHA1 = hashlib.sha1(CONTENT).hexdigest()
SHA256 = hashlib.sha256(CONTENT).hexdigest()
ALLOW, RENAME, DELETE = range(3)


def match(path, action, kind="md5", digest=MD5):
    return {"path": str(path), "type": kind, "hash": digest, "action": action}


def document(matches=(), errors=(), files=0, stopped=None):
    return {"matches": list(matches), "errors": list(errors), "files": files, "listed": len(matches),
            "failed": len(errors), "stopped": stopped}


@pytest.fixture
def listed(files):
    return write_once(files / "bad", CONTENT)


@pytest.mark.parametrize("number, kind, digest", [("0", "md5", MD5), ("1", "sha1", SHA1), ("2", "sha256", SHA256)])
def test_each_list_is_looked_into(tv, tvctl, listed, number, kind, digest):
    tv.configure(iocHashes={number: [digest]})
    assert tvctl.run("ioc", "test", listed, status=1).lines() == [
        f"{listed}: {kind} {digest} - listed", "files: 1, listed: 1, not looked up: 0"]
    assert tvctl.json("ioc", "test", listed, status=1) == document(
        [match(listed, "none", kind, digest)], files=1)
    assert exists(listed)


def test_the_first_list_counts_and_case_matters(tv, tvctl, listed):
    tv.configure(iocHashes={"0": [MD5.upper()], "1": [SHA1], "2": [SHA256]})
    assert tvctl.json("ioc", "test", listed, status=1)["matches"] == [match(listed, "none", "sha1", SHA1)]


def test_testing_needs_no_service_and_leaves_no_trace(tv, tvctl, listed, files):
    tv.configure(ioc=True, iocAction=DELETE, iocHashes={"0": [MD5]})
    tvctl.run("ioc", "test", listed, status=1)
    assert exists(listed) and tv.cached(listed) == {}
    assert not list(tv.root.glob("reports/*.apmon"))


def test_a_folder_is_walked(tv, tvctl, files):
    tv.configure(iocHashes={"0": [MD5]})
    (files / "a" / ".hidden").mkdir(parents=True)
    bad = write_once(files / "a" / ".hidden" / "bad", CONTENT)
    write_once(files / "a" / "good", b"harmless")
    os.symlink(bad, files / "a" / "link")
    os.mkfifo(files / "a" / "fifo")
    assert tvctl.json("ioc", "test", files, status=1) == document([match(bad, "none")], files=2)
    bad.unlink()
    assert tvctl.json("ioc", "test", files) == document(files=1)


def test_odd_names(tv, tvctl, files):
    tv.configure(ioc=True, iocAction=ALLOW, iocHashes={"0": [MD5]})
    path = os.fsencode(files) + b"/\xff\n\x1b[2J"
    write_once(path, CONTENT)
    found, = tvctl.json("ioc", "test", files, status=1)["matches"]
    assert found["path"] == f"{files}/\\xff\n\x1b[2J" and found["path_base64"]
    assert tvctl.run("ioc", "test", files, status=1).lines()[0].startswith(f"{files}/\\xff\\x0a\\x1b[2J: md5")
    tv.start()
    errors = tvctl.json("ioc", "scan", files, status=2)["errors"]
    assert len(errors) == 1 and "not UTF-8" in errors[0]["reason"]


@pytest.mark.parametrize("action, word", [(ALLOW, "allowed"), (RENAME, "renamed"), (DELETE, "deleted")])
def test_the_service_acts_as_configured(tv, tvctl, listed, action, word):
    tv.configure(ioc=True, iocAction=action, iocHashes={"0": [MD5]})
    tv.start()
    assert tvctl.json("ioc", "scan", listed, status=1) == document([match(listed, word)], files=1)
    assert exists(listed) == (action == ALLOW)
    assert exists(f"{listed}.IOCOFF") == (action == RENAME)
    good = write_once(listed.parent / "good", b"harmless")
    assert tvctl.run("ioc", "scan", good).lines() == ["files: 1, listed: 0, not looked up: 0"]


def test_an_action_that_fails(tv, tvctl, listed):
    tv.configure(ioc=True, iocAction=RENAME, iocHashes={"0": [MD5]})
    write_once(f"{listed}.IOCOFF", b"in the way")
    tv.start()
    assert tvctl.json("ioc", "scan", listed, status=1)["matches"] == [match(listed, "failed")]
    assert exists(listed)


def test_a_service_that_does_not_look_is_no_answer(tv, tvctl, listed):
    tv.configure(iocHashes={"0": [MD5]})
    tv.start()
    tvctl.fails("ioc", "scan", listed, says="turn it on: tvctl config set ioc.enabled on")


@pytest.mark.parametrize("action", [3, -1])
def test_an_action_that_the_service_does_not_know_is_no_answer(tv, tvctl, connect, listed, action):
    tv.configure(ioc=True, iocAction=action, iocHashes={"0": [MD5]})
    tv.start()
    assert connect("demo").ask(f"SCANIOC {listed}") == "CLEAN"
    tvctl.fails("ioc", "scan", listed, says=f"ioc.action is {action}, of which the service knows nothing")


def test_the_service_is_down(tv, tvctl, listed):
    tv.configure(ioc=True)
    tvctl.fails("ioc", "scan", listed, says="tvfilemon does not run")


def test_the_service_goes_away(tv, tvctl, files):
    tv.configure(ioc=True)
    for number in range(3):
        write_once(files / str(number), b"harmless")
    tv.start()
    tv.pause()
    process = tvctl.start("--json", "ioc", "scan", files)
    wait_until(lambda: any(line.split()[1].endswith(":22B9") and line.split()[3] == "01"
                           for line in open("/proc/net/tcp").readlines()[1:]), "the tool to be connected")
    tv.end(signal.SIGKILL)
    process.communicate(timeout=30)
    assert process.returncode == 2


@pytest.mark.parametrize("command", ["test", "scan"])
def test_what_cannot_be_looked_up(tv, tvctl, listed, files, command):
    tv.configure(ioc=True)
    os.symlink(listed, files / "link")
    tv.start()
    found = tvctl.json("ioc", command, files / "missing", files / "link", status=2)
    assert [error["reason"] for error in found["errors"]] == [
        "No such file or directory", "it is a symbolic link, which is not followed"]


def test_no_store(tv, tvctl, listed):
    tvctl.fails("ioc", "test", listed, says="start tvfilemon once, or name its root with --root")


def test_a_locked_store(tv, tvctl, listed):
    tv.configure(iocHashes={"0": [MD5]})
    with locked(tv.settings / "tvcore.db"):
        tvctl.fails("ioc", "test", listed, says="cannot be read")


@pytest.mark.parametrize("command", ["test", "scan"])
def test_a_damaged_store(tv, tvctl, listed, impostor, command):
    """It is begun anew, and by default no lists are looked into: a service must not be believed then."""
    tv.configure(iocHashes={"0": [MD5]})
    damage(tv.settings / "tvcore.db")
    impostor("REGISTERED!", "CLEAN")
    result = tvctl.run("ioc", command, listed, status=0 if command == "test" else 2)
    if command == "test":
        assert "set aside" in result.errors
    else:
        assert "turn it on: tvctl config set ioc.enabled on" in result.errors
    assert len(list(tv.settings.glob("tvcore.db.corrupt-*"))) == 1


UNKNOWN = "tvctl: warning: whether hashes are looked up at all is unknown: "


def test_the_service_is_asked_without_a_store(tvctl, listed, impostor):
    service = impostor("REGISTERED!", "CLEAN")
    result = tvctl.run("ioc", "scan", listed)
    assert result.errors.startswith(f"{UNKNOWN}there is no ") and result.errors.count("\n") == 1
    assert service.requests[1:] == [os.fsencode(f"SCANIOC {listed}")]


def test_the_service_is_asked_with_a_locked_store(tv, tvctl, listed, impostor):
    tv.configure(iocHashes={"0": [MD5]}, ioc=True)
    service = impostor("REGISTERED!", "CLEAN")
    with locked(tv.settings / "tvcore.db"):
        result = tvctl.run("ioc", "scan", listed)
    assert result.errors.startswith(f"{UNKNOWN}the settings cannot be read") and result.errors.count("\n") == 1
    assert service.requests[1:] == [os.fsencode(f"SCANIOC {listed}")]


def test_no_permission(tv, tvctl, listed):
    tv.configure(iocHashes={"0": [MD5]})
    with inaccessible(tv.settings):
        tvctl.fails("ioc", "test", listed, says="run it as root", wrapper=AS_ORDINARY_USER)


def test_interrupted(tv, tvctl, files):
    tv.configure(iocHashes={"0": [MD5]})
    write_once(files / "small", b"harmless")

    def interrupt():
        """What waits for a program stays when another one takes its place."""
        signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGINT])
        os.kill(os.getpid(), signal.SIGINT)

    process = tvctl.start("--json", "ioc", "test", files, preexec_fn=interrupt)
    output, _ = process.communicate(timeout=60)
    assert process.returncode == 2 and b'"stopped": "interrupted"' in output
