"""`tvctl quarantine`."""

import hashlib
import os
import random
import re
import stat
import subprocess
import time
from datetime import datetime, timedelta, timezone

import pytest

from harness import EICAR, EICAR_NAME, Unwatched, exists, quarantine_name, wait_gone, write_once
from storefailures import AS_ORDINARY_USER, damage, inaccessible, locked, locked_for_writing

# 2023-11-14T22:13:20.123Z
CHANGED = 1700000000123456789
ORIGINAL = "mode=0644 uid=0 gid=0 mtime=1700000000.123456789"
NEVER = "2025-07-15_10-00-00_0123456789abcdef0123456789abcdef.tvq"


def put(tv, path, content=b"content", when="2025-07-15_10-00-00", original=ORIGINAL):
    """Makes a copy of `path` as the service makes it; returns its name."""
    tv.quarantine.mkdir(mode=0o700, exist_ok=True)
    name = f"{when}_{hashlib.md5(os.fsencode(path)).hexdigest()}.tvq"
    copy = tv.quarantine / name
    copy.write_bytes(content)
    if original is not None:
        os.setxattr(copy, "user.tvfilemon.original", original.encode())
    copy.chmod(0o400)
    return name


def stamp(moment):
    return moment.strftime("%Y-%m-%d_%H-%M-%S")


def detect(tv, unwatched, path, content=EICAR, mode=0o644):
    """Has the running service detect `path`; returns the name of its copy."""
    source = unwatched.file(content)
    os.chmod(source, mode)
    os.utime(source, ns=(CHANGED, CHANGED))
    os.rename(source, path)
    wait_gone(path)
    tv.settle()
    return next(name for name in tv.quarantined() if quarantine_name(os.fsdecode(path)).fullmatch(name))


def copies(tvctl, *arguments, **options):
    return tvctl.json("quarantine", "list", *arguments, **options)["copies"]


def excluded(tvctl):
    return [entry["path"] for entry in tvctl.json("exclude", "list")["paths"]]


@pytest.fixture
def unwatched(home):
    """Before the service starts."""
    return Unwatched()


@pytest.fixture
def settings(tv):
    """There is an installation, and its service does not run."""
    tv.configure(protection=True)
    return tv.settings / "tvcore.db"


# -------------------------------------------------------------------------------- with the service, there and back


def test_there_and_back(tv, tvctl, home, unwatched):
    tv.start()
    before = datetime.now(timezone.utc)
    path = home / "eicar.com"
    name = detect(tv, unwatched, path, mode=0o4755)

    [entry] = copies(tvctl)
    made = datetime.fromisoformat(entry.pop("time").replace("Z", "+00:00"))
    assert before - timedelta(seconds=1) <= made <= datetime.now(timezone.utc)
    assert entry == {
        "name": name, "size": len(EICAR), "virus": EICAR_NAME, "path": str(path),
        "path_md5": hashlib.md5(os.fsencode(path)).hexdigest(), "detection": 1, "mode": "4755", "uid": 0, "gid": 0,
        "mtime": "2023-11-14T22:13:20.123Z"}
    lines = tvctl.run("quarantine", "list").lines()
    assert lines[0].split() == ["TIME", "COPY", "SIZE", "NAME", "PATH"]
    assert re.fullmatch(rf"\d{{4}}-\d\d-\d\d \d\d:\d\d:\d\d  {name}  68\.00 \S+  {EICAR_NAME}  {path}", lines[1])
    assert lines[2].startswith("1 copy, 68") and len(lines) == 3

    result = tvctl.run("quarantine", "restore", "--exclude", name)
    assert result.lines() == [f"excluded: {path}", f"restored: {path} (mode 0755, owner 0, group 0)"]
    assert result.errors == "tvctl: the set-id or sticky bits that it had (mode 4755) are not given back\n"
    assert path.read_bytes() == EICAR
    status = path.stat()
    assert stat.S_IMODE(status.st_mode) == 0o755 and status.st_mtime_ns == CHANGED
    assert tv.quarantined() == {}
    assert excluded(tvctl) == [str(path)]
    # What happened to it came before this.
    wait_gone(write_once(home / "sentinel"))
    tv.settle()
    assert path.read_bytes() == EICAR
    assert [record["filePath"] for record in tv.reports()] == [str(path), str(home / "sentinel")]


def test_not_excluded_it_is_detected_again(tv, tvctl, home, unwatched):
    tv.start()
    path = home / "eicar.com"
    name = detect(tv, unwatched, path)
    # So that it comes late enough to be called restored.
    tv.pause()
    result = tvctl.run("quarantine", "restore", name)
    assert result.errors == (
        f"tvctl: warning: {path} is not excluded and will be detected again, at once where tvfilemon watches "
        "(/home, /media); --exclude prevents that\n")
    assert path.read_bytes() == EICAR
    tv.resume()
    wait_gone(path)
    tv.settle()
    # A new copy, however fast it went.
    [again] = tv.quarantined()
    assert again > name
    assert [entry["detection"] for entry in copies(tvctl)] == [2]


def test_given_back_again_and_again(tv, tvctl, home, unwatched):
    """Whoever wins, the service or the tool: there always is a copy or the file."""
    tv.start()
    path = home / "eicar.com"
    detect(tv, unwatched, path)
    for _ in range(5):
        name = max(tv.quarantined())
        result = tvctl.run("quarantine", "restore", name, status=None)
        assert result.status == 0 or "was taken away or replaced as soon as it appeared" in result.errors
        wait_gone(path)
        tv.settle()
        assert set(tv.quarantined().values()) == {EICAR}


@pytest.mark.parametrize("raw, shown", [
    (b"/home/u/caf\xe9", "/home/u/caf\\xe9"),
    ("/home/u/two\nlines".encode(), "/home/u/two\\x0alines"),
    (b"/home/u/\x1b[2Jscreen", "/home/u/\\x1b[2Jscreen"),
    ("/home/u/\u202egnp.exe".encode(), "/home/u/\\u202egnp.exe"),
    (rb"/home/u/back\xe9slash", r"/home/u/back\xe9slash"),
    (b"/home/u/ %1 \"'", "/home/u/ %1 \"'"),
], ids=["not UTF-8", "line end", "escape sequence", "direction", "backslash", "punctuation"])
def test_an_odd_name(tv, tvctl, home, unwatched, raw, shown):
    tv.start()
    name = detect(tv, unwatched, raw)
    assert tvctl.run("quarantine", "list").lines()[1].endswith(f"  {EICAR_NAME}  {shown}")
    [entry] = copies(tvctl)
    assert (entry["path_base64"] == "L2hvbWUvdS9jYWbp") if b"\xe9" in raw else entry["path"] == raw.decode()
    result = tvctl.run("quarantine", "restore", "--exclude", name)
    assert result.lines()[1] == f"restored: {shown} (mode 0644, owner 0, group 0)"
    wait_gone(write_once(home / "sentinel"))
    tv.settle()
    with open(raw, "rb") as file:
        assert file.read() == EICAR


def test_the_service_is_down(tv, tvctl, home, unwatched):
    tv.start()
    path = home / "eicar.com"
    name = detect(tv, unwatched, path)
    tv.stop()
    document = tvctl.json("quarantine", "restore", "--exclude", "--keep", name)
    assert document == {
        "name": name, "path": str(path), "reload": "service down", "excluded": True, "size": len(EICAR),
        "mode": "0644", "uid": 0, "gid": 0, "owner_restored": True, "mode_restored": True, "mtime_restored": True,
        "copy": "kept"}
    path.unlink()
    result = tvctl.run("quarantine", "restore", "--exclude", name)
    assert result.lines() == [
        f"is excluded already: {path}", "tvfilemon does not run; it reads this when it starts",
        f"restored: {path} (mode 0644, owner 0, group 0)"]
    tv.start()
    path.write_bytes(EICAR)
    wait_gone(write_once(home / "sentinel"))
    tv.settle()
    assert path.read_bytes() == EICAR


@pytest.mark.parametrize("form", [(), ("--json",)], ids=["text", "JSON"])
@pytest.mark.parametrize("replies", [("nonsense",), ("REGISTERED!", "FAILED")])
def test_a_service_that_does_not_reload(tv, tvctl, home, settings, impostor, replies, form):
    """Nothing is given back, and nothing stays excluded."""
    name = put(tv, home / "file")
    impostor(*replies)
    result = tvctl.run(*form, "quarantine", "restore", "--path", home / "file", "--exclude", name, status=2)
    assert result.errors.count("\n") == 1
    says = "nothing was restored: tvfilemon did not reload, and would detect the file again at once: "
    assert result.errors.startswith(f"tvctl: {says}")
    if form:
        assert list(result.document()) == ["error"] and result.document()["error"].startswith(says)
    assert not exists(home / "file") and list(tv.quarantined()) == [name]
    assert excluded(tvctl) == []


def test_an_exclusion_goes_when_the_file_does_not_come(tv, tvctl, home, unwatched):
    tv.start()
    path = home / "eicar.com"
    name = detect(tv, unwatched, path)
    write_once(path, b"something else")
    result = tvctl.run("quarantine", "restore", "--exclude", name, status=2)
    assert result.lines() == [f"excluded: {path}", f"not excluded any more: {path}"]
    assert excluded(tvctl) == []
    path.write_bytes(EICAR)
    wait_gone(path)


def test_an_exclusion_of_others_stays(tv, tvctl, home):
    tv.configure(exclude={"0": [str(home / "there")]})
    name = put(tv, "/home/u/x")
    (home / "there").touch()
    result = tvctl.run("quarantine", "restore", "--exclude", "--to", home / "there", name, status=2)
    assert "something is at" in result.errors and "any more" not in result.output
    assert excluded(tvctl) == [str(home / "there")]


def test_what_is_excluded_needs_no_warning(tv, tvctl, home):
    tv.configure(exclude={"0": [str(home / "kept")]})
    name = put(tv, "/home/u/x")
    result = tvctl.run("quarantine", "restore", "--to", home / "kept", name)
    assert result.errors == ""


# --------------------------------------------------------------------------------------------------------- list


def test_nothing_there(tv, tvctl, settings):
    for _ in range(2):
        assert tvctl.json("quarantine", "list") == {
            "copies": [], "total_size": 0, "unfinished": 0, "foreign": 0, "records_read": True}
        assert tvctl.run("quarantine", "list").output.startswith("0 copies, 0")
        assert tvctl.run("quarantine", "delete", "--older-than", "0s").output.startswith("deleted 0 copies, 0")
        # First without the directory, then with an empty one.
        tv.quarantine.mkdir(exist_ok=True)


@pytest.mark.parametrize("arguments", [("list",), ("restore", NEVER), ("delete", NEVER)])
def test_there_is_no_installation(tv, tvctl, arguments):
    tvctl.fails("quarantine", *arguments, says=f"there is no {tv.quarantine}: start tvfilemon once, or name its root")


def test_newest_first_and_what_else_is_there(tv, tvctl, settings):
    names = [put(tv, "/home/u/b", b"1", when="2025-07-15_10-00-00"),
             put(tv, "/home/u/a", b"22", when="2025-07-15_10-00-01"),
             put(tv, "/home/u/c", b"333", when="2024-02-29_23-59-59", original=None)]
    (tv.quarantine / f"{names[0]}.4711.tvq").write_bytes(b"unfinished")
    (tv.quarantine / "notes.txt").write_bytes(b"foreign")
    (tv.quarantine / NEVER).mkdir()
    document = tvctl.json("quarantine", "list", "--path", "/home/u/a", "--path", "/home/u/nothing")
    assert [(entry["name"], entry["size"], entry["path"], entry["virus"]) for entry in document["copies"]] == [
        (names[1], 2, "/home/u/a", None), (names[0], 1, None, None), (names[2], 3, None, None)]
    oldest = document["copies"][2]
    assert [oldest[key] for key in ("detection", "mode", "uid", "gid", "mtime")] == [None] * 5
    local = datetime(2024, 2, 29, 23, 59, 59).astimezone(timezone.utc)
    assert oldest["time"] == local.strftime("%Y-%m-%dT%H:%M:%S.000Z")
    assert (document["total_size"], document["unfinished"], document["foreign"]) == (6, 1, 2)
    lines = tvctl.run("quarantine", "list").lines()
    assert [line.split()[2] for line in lines[1:4]] == [names[1], names[0], names[2]]
    assert all(line.endswith("  unknown  unknown") for line in lines[1:4])
    assert re.fullmatch(r"3 copies, 6\.00 \S+; unfinished: 1; no copies: 2", lines[4])


def test_a_relative_candidate(tv, tvctl, home, settings):
    put(tv, home / "file")
    assert copies(tvctl, "--path", "file", cwd=home)[0]["path"] == str(home / "file")
    assert copies(tvctl, "--path", "./file", cwd=home)[0]["path"] == str(home / "file")
    # As a module may have named it.
    put(tv, "/home//u/odd", when="2025-07-15_10-00-01")
    assert copies(tvctl, "--path", "/home//u/odd")[0]["path"] == "/home//u/odd"


@pytest.mark.parametrize("arguments, says", [
    ((), "see tvctl quarantine --help"),
    (("restore",), "NAME is required; see tvctl quarantine restore --help"),
    (("restore", NEVER, NEVER), "see tvctl quarantine restore --help"),
    (("restore", NEVER, "--to"), "see tvctl quarantine restore --help"),
    (("delete",), "name copies to delete, or say --older-than TIME"),
    (("delete", NEVER, "--older-than", "1d"), "see tvctl quarantine delete --help"),
    (("delete", "--older-than", ""), "--older-than: takes no empty text; see tvctl quarantine"),
    (("delete", "--older-than", "soon"), '--older-than takes no "soon"; give a span like'),
    (("delete", "--older-than", b"\xff"), "--older-than takes no"),
])
def test_wrong_usage(tv, tvctl, settings, arguments, says):
    name = put(tv, "/home/u/x")
    tvctl.fails("quarantine", *arguments, says=says)
    assert list(tv.quarantined()) == [name]


# ------------------------------------------------------------------------------------------------------ restore


def test_to_another_place(tv, tvctl, home, settings):
    name = put(tv, home / "from")
    result = tvctl.run("quarantine", "restore", name, "--keep", "--to", "to", cwd=home)
    assert f"warning: {home}/to is not excluded and will be detected again" in result.errors
    assert (home / "to").read_bytes() == b"content" and not exists(home / "from")
    assert list(tv.quarantined()) == [name]
    # The candidates of the original play no part.
    tvctl.run("quarantine", "restore", name, "--path", home / "from", "--to", home / "again")
    assert (home / "again").read_bytes() == b"content" and not exists(home / "from")
    assert tv.quarantined() == {}


def test_where_it_came_from_is_not_known(tv, tvctl, home, settings):
    name = put(tv, home / "file")
    for more in ((), ("--path", home / "other")):
        tvctl.fails("quarantine", "restore", name, *more, says=f"where {name} came from is not known; say where")
    tvctl.run("quarantine", "restore", name, "--path", home / "other", "--path", home / "file")
    assert (home / "file").read_bytes() == b"content"


def test_double_slashes_are_not_kept(tv, tvctl, home, settings):
    """File events come without them, so exclusions have to be."""
    name = put(tv, "/home//u/file")
    assert tvctl.json("quarantine", "restore", "--exclude", name, "--path", "/home//u/file")["path"] == str(home / "file")
    assert excluded(tvctl) == [str(home / "file")]


def fill_target(home, kind):
    target = home / "target"
    if kind == "file":
        target.write_bytes(b"precious")
    elif kind == "directory":
        target.mkdir()
    else:
        target.symlink_to("nowhere")


def snapshot(directory):
    return sorted((path.name, path.is_symlink(), path.is_file() and path.read_bytes()) for path in directory.rglob("*"))


@pytest.mark.parametrize("kind", ["file", "directory", "dangling link"])
def test_nothing_is_overwritten(tv, tvctl, home, settings, kind):
    name = put(tv, home / "target")
    fill_target(home, kind)
    before = snapshot(home)
    for to in ((), ("--to", home / "target")):
        result = tvctl.run("quarantine", "restore", name, "--path", home / "target", *to, status=2)
        assert result.errors.splitlines()[-1] == (
            f"tvctl: something is at {home}/target already, and nothing is overwritten; move it away, or name "
            "another path with --to")
    assert snapshot(home) == before and tv.quarantined() == {name: b"content"}


@pytest.mark.parametrize("target, says", [
    ("/home/u/missing/file", "the folder of /home/u/missing/file is not there; make it, or name another path with --to"),
    ("/home/u/plain/file", "what /home/u/plain/file would lie in is no folder, or behind a symbolic link"),
    ("/home/u/link/file", "what /home/u/link/file would lie in is no folder, or behind a symbolic link"),
    ("/home/u/link/deep/file", "what /home/u/link/deep/file would lie in is no folder, or behind a symbolic link"),
    ("/home/u/locked/file", "cannot write /home/u/locked/file: Read-only file system; name another path with --to"),
    ("/home/u/" + "x" * 256, "File name too long; name another path with --to"),
    ("/", "/ is no full path of a file"),
    ("", "--to: takes no empty text"),
])
def test_a_target_that_cannot_be(tv, tvctl, home, mounts, settings, target, says):
    name = put(tv, home / "file")
    (home / "plain").write_bytes(b"plain")
    (home / "real/deep").mkdir(parents=True)
    (home / "link").symlink_to("real")
    (home / "locked").mkdir()
    mounts.read_only(home / "locked")
    before = snapshot(home)
    for more in ((), ("--exclude",)):
        result = tvctl.run("quarantine", "restore", name, "--to", target, *more, status=2)
        assert says in result.errors.splitlines()[-1]
        assert says in tvctl.json("quarantine", "restore", name, "--to", target, *more, status=2)["error"]
    assert snapshot(home) == before and tv.quarantined() == {name: b"content"}
    assert excluded(tvctl) == []


def test_an_origin_that_goes_upwards(tv, tvctl, home, settings):
    """A module may have named it so; whoever made a link in front of it decides where it leads."""
    path = "/home/u/sub/../file"
    (home / "sub").mkdir()
    name = put(tv, path)
    result = tvctl.run("quarantine", "restore", name, "--path", path, status=2)
    assert f'{path} is no full path of a file without ".."; name another path with --to' in result.errors
    assert not exists(home / "file")


@pytest.mark.parametrize("name", ["", ".", "..", "../settings/tvcore.db", NEVER, NEVER + ".12.tvq", NEVER.upper(),
                                  b"\xff", "a\nb", "notes.txt"])
def test_what_is_no_copy(tv, tvctl, home, settings, name):
    put(tv, home / "file")
    (tv.quarantine / "notes.txt").write_bytes(b"notes")
    (tv.quarantine / (NEVER + ".12.tvq")).write_bytes(b"unfinished")
    before = tv.quarantined()
    tvctl.fails("quarantine", "restore", "--to", home / "to", "--exclude", "--", name, says="there is no copy ")
    assert tvctl.run("quarantine", "delete", "--", name, status=2).errors.count("\n") == 1
    assert not exists(home / "to") and tv.quarantined() == before and excluded(tvctl) == []


@pytest.mark.parametrize("kind", ["link", "directory", "fifo"])
def test_what_only_has_the_name_of_a_copy(tv, tvctl, home, settings, kind):
    tv.quarantine.mkdir()
    if kind == "link":
        (tv.quarantine / NEVER).symlink_to("/etc/passwd")
    elif kind == "directory":
        (tv.quarantine / NEVER).mkdir()
    else:
        os.mkfifo(tv.quarantine / NEVER)
    says = f"{NEVER} in quarantine is no regular file, so no copy"
    tvctl.fails("quarantine", "restore", "--to", home / "to", NEVER, says=says)
    assert says in tvctl.run("quarantine", "delete", NEVER, status=2).errors
    assert tvctl.json("quarantine", "list")["foreign"] == 1
    assert exists(tv.quarantine / NEVER) and not exists(home / "to")


def test_what_it_was_is_not_known(tv, tvctl, home, settings):
    name = put(tv, home / "file", original=None)
    result = tvctl.run("quarantine", "restore", name, "--to", home / "file")
    assert result.lines() == [f"restored: {home}/file (mode 0600, owner 0, group 0)"]
    assert "warning: nobody knows whose the file was: it belongs to root alone, mode 0600" in result.errors


def test_another_users_file(tv, tvctl, home, settings):
    os.chown(home, 1000, 1000)
    name = put(tv, home / "file", original="mode=6751 uid=1000 gid=1001 mtime=1700000000.123456789")
    result = tvctl.run("quarantine", "restore", name, "--to", home / "file")
    assert result.lines() == [f"restored: {home}/file (mode 0751, owner 1000, group 1001)"]
    status = (home / "file").stat()
    assert (status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode)) == (1000, 1001, 0o751)
    assert status.st_mtime_ns == CHANGED


def test_another_users_folder(tv, tvctl, home, settings):
    """Whose file it was must not be readable by whom the folder belongs to."""
    name = put(tv, home / "file", original="mode=0644 uid=1000 gid=1000 mtime=1700000000.123456789")
    for owner in (0, 1001):
        os.chown(home, owner, owner)
        result = tvctl.run("quarantine", "restore", name, "--to", home / f"for-{owner}", "--keep")
        assert ("warning: its folder belongs to another user than the file did (1000): it belongs to root alone, "
                "mode 0600; look at it, then chown and chmod it" in result.errors)
        status = (home / f"for-{owner}").stat()
        assert (status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode)) == (0, 0, 0o600)
        assert status.st_mtime_ns == CHANGED


@pytest.mark.parametrize("target, link, path", [
    ("secret/file", "link", "link"),
    ("secret", "link", "link/file"),
])
def test_a_file_that_a_link_led_to(tv, tvctl, connect, home, mounts, settings, target, link, path):
    """The user who made the link gets no copy that he can read, whatever he puts in its place."""
    secret = home / "secret"
    secret.mkdir()
    tv.configure(protection=False)
    tv.start()
    (secret / "file").write_bytes(EICAR)
    os.chown(secret / "file", 1000, 1000)
    (home / link).symlink_to(target)
    connect("demo").ask(f"CLEAN {home / path}")
    (name,) = tv.quarantined()
    if exists(home / link):
        (home / link).unlink()
    (home / path).parent.mkdir(exist_ok=True)
    os.chown((home / path).parent, 1000, 1000)
    result = tvctl.run("quarantine", "restore", name, "--to", home / path)
    assert "warning: nobody knows whose the file was: it belongs to root alone, mode 0600" in result.errors
    status = (home / path).stat()
    assert (status.st_uid, stat.S_IMODE(status.st_mode)) == (0, 0o600)


def test_an_owner_that_cannot_be(tv, tvctl, home, settings):
    name = put(tv, home / "file", original="mode=0666 uid=0 gid=4000000000 mtime=1.000000000")
    result = tvctl.run("quarantine", "restore", name, "--to", home / "file", "--keep")
    assert ("warning: it could not be given its owner back, so not its permissions either: owner 0, mode 0600"
            in result.errors)
    document = tvctl.json("quarantine", "restore", name, "--to", home / "second")
    assert [document[f"{what}_restored"] for what in ("owner", "mode", "mtime")] == [False, False, True]
    assert (home / "second").stat().st_mtime == 1


def test_a_copy_that_cannot_be_removed(tv, tvctl, home, mounts, settings):
    name = put(tv, home / "file")
    mounts.read_only(tv.quarantine)
    result = tvctl.run("quarantine", "restore", name, "--to", home / "file", status=2)
    assert (f"tvctl: the copy could not be removed: Read-only file system; try tvctl quarantine delete {name}\n"
            in result.errors)
    assert (home / "file").read_bytes() == b"content"
    document = tvctl.json("quarantine", "restore", name, "--to", home / "second", status=2)
    assert document["copy"] == "not removed"
    assert tvctl.json("quarantine", "delete", name, status=2)["failed"] == [
        {"name": name, "reason": f"{name} in quarantine: Read-only file system"}]


def test_a_full_disk(tv, tvctl, home, mounts, settings):
    name = put(tv, home / "file", bytes(2 << 20))
    small = home / "small"
    small.mkdir()
    mounts.tmpfs(small, b"size=1m")
    result = tvctl.run("quarantine", "restore", name, "--to", small / "file", status=2)
    assert f"cannot write {small}/file: No space left on device; name another path with --to" in result.errors
    assert list(small.iterdir()) == [] and list(tv.quarantined()) == [name]


# ------------------------------------------------------------------------------------------------------- delete


def test_delete_by_name(tv, tvctl, settings):
    names = [put(tv, f"/home/u/{number}", bytes(10)) for number in range(4)]
    result = tvctl.run("quarantine", "delete", names[0])
    assert re.fullmatch(r"deleted 1 copy, 10\.00 \S+\n", result.output) and result.errors == ""
    result = tvctl.run("quarantine", "delete", names[1], NEVER, names[2], names[1], status=2)
    assert result.output.startswith("deleted 2 copies, 20.00")
    assert result.errors == f"tvctl: there is no copy {NEVER} in quarantine; see tvctl quarantine list\n"
    assert tvctl.json("quarantine", "delete", names[3], "a\nb", status=2) == {
        "deleted": [{"name": names[3]}], "freed": 10,
        "failed": [{"name": "a\nb", "reason": "there is no copy a\nb in quarantine; see tvctl quarantine list"}]}
    assert tv.quarantined() == {}


def test_delete_by_age(tv, tvctl, settings):
    now = datetime.now()
    names = {hours: put(tv, f"/home/u/{hours}", bytes(7), when=stamp(now - timedelta(hours=hours)))
             for hours in (1, 23, 25, 100)}
    other = tv.quarantine / "2001-01-01.tvq"
    other.write_bytes(b"no copy")
    document = tvctl.json("quarantine", "delete", "--older-than", "24h")
    assert document == {"deleted": [{"name": names[100]}, {"name": names[25]}], "failed": [], "freed": 14}
    assert sorted(tv.quarantined()) == sorted([names[1], names[23], other.name])
    assert tvctl.run("quarantine", "delete", "--older-than", "2h").output.startswith("deleted 1 copy, 7.00")
    assert sorted(tv.quarantined()) == sorted([names[1], other.name])
    # A day that comes is no span: everything is older.
    tomorrow = (now + timedelta(days=1)).strftime("%Y-%m-%d")
    assert len(tvctl.json("quarantine", "delete", "--older-than", tomorrow)["deleted"]) == 1


def test_delete_needs_no_records(tv, tvctl, settings):
    name = put(tv, "/home/u/file")
    tvctl.run("quarantine", "list")
    with locked(tv.settings / "reports.db"), locked(settings):
        tvctl.run("quarantine", "delete", name)
    assert tv.quarantined() == {}


# ------------------------------------------------------------------------------------------------- broken stores


@pytest.fixture
def quarantined(tv, tvctl, home, unwatched):
    """A copy of /home/u/file with its record, and no service any more; the result is the copy's name."""
    tv.start()
    name = detect(tv, unwatched, home / "file")
    tv.stop()
    return name


def test_records_that_are_locked(tv, tvctl, home, quarantined):
    with locked(tv.settings / "reports.db"):
        result = tvctl.run("quarantine", "list", status=2)
        assert "warning: they do not tell where copies came from: the detection records cannot be read" in result.errors
        assert result.lines()[1].endswith("  unknown  unknown")
        document = tvctl.json("quarantine", "list", "--path", home / "file", status=2)
        assert document["records_read"] is False
        assert [(entry["path"], entry["virus"]) for entry in document["copies"]] == [(str(home / "file"), None)]
        result = tvctl.run("quarantine", "restore", quarantined, status=2)
        assert f"where {quarantined} came from is not known; say where to put it with --to" in result.errors
        assert list(tv.quarantined()) == [quarantined]
        # Nobody needs the records for this.
        tvctl.run("quarantine", "restore", quarantined, "--to", home / "to")
    assert (home / "to").read_bytes() == EICAR


def test_records_that_are_damaged(tv, tvctl, home, quarantined):
    damage(tv.settings / "reports.db")
    result = tvctl.run("quarantine", "list")
    assert f"{tv.settings}/reports.db is damaged" in result.errors and "set aside as" in result.errors
    assert result.lines()[1].endswith("  unknown  unknown")
    tvctl.run("quarantine", "restore", quarantined, "--path", home / "file")
    assert (home / "file").read_bytes() == EICAR


def test_settings_that_are_gone(tv, tvctl, home, quarantined):
    for path in tv.settings.iterdir():
        path.unlink()
    tv.settings.rmdir()
    result = tvctl.run("quarantine", "list", status=2)
    assert f"there is no {tv.settings}" in result.errors and quarantined in result.output
    tvctl.fails("quarantine", "restore", "--exclude", "--to", home / "to", quarantined,
                says=f"there is no {tv.settings}")
    assert not exists(home / "to")
    tvctl.run("quarantine", "restore", "--to", home / "to", quarantined)
    assert (home / "to").read_bytes() == EICAR


@pytest.mark.parametrize("lock, says", [
    (locked, "the settings cannot be read"),
    (locked_for_writing, "the exclusion could not be stored, nothing was changed"),
])
def test_settings_that_cannot_be_changed(tv, tvctl, home, quarantined, lock, says):
    with lock(tv.settings / "tvcore.db"):
        tvctl.fails("quarantine", "restore", "--exclude", quarantined, says=says)
        assert list(tv.quarantined()) == [quarantined] and not exists(home / "file")
        tvctl.run("quarantine", "restore", quarantined)
    assert (home / "file").read_bytes() == EICAR and excluded(tvctl) == []


def test_settings_that_are_damaged(tv, tvctl, home, quarantined):
    damage(tv.settings / "tvcore.db")
    result = tvctl.run("quarantine", "restore", "--exclude", quarantined)
    assert "is damaged" in result.errors
    assert (home / "file").read_bytes() == EICAR and excluded(tvctl) == [str(home / "file")]


@pytest.mark.parametrize("arguments", [("list",), ("delete", NEVER), ("delete", "--older-than", "1s")])
def test_another_user_may_not_look(tv, tvctl, settings, arguments):
    name = put(tv, "/home/u/x")
    with inaccessible(tv.quarantine):
        tvctl.fails("quarantine", *arguments, wrapper=AS_ORDINARY_USER,
                    says=f"cannot look into {tv.quarantine}: Permission denied; run it as root: sudo tvctl")
    assert list(tv.quarantined()) == [name]


def test_another_user_may_not_look_into_the_settings(tv, tvctl, home, quarantined):
    with inaccessible(tv.settings):
        result = tvctl.run("quarantine", "list", status=2, wrapper=AS_ORDINARY_USER)
    assert "run it as root: sudo tvctl" in result.errors and quarantined in result.output


def test_giving_back_needs_root(tv, tvctl, home, settings):
    """Also where the directories would allow it: the file would be another user's."""
    name = put(tv, home / "file")
    tvctl.fails("quarantine", "restore", name, "--to", home / "file", wrapper=AS_ORDINARY_USER,
                says="giving a file back needs root; run it as root: sudo tvctl")
    assert list(tv.quarantined()) == [name] and not exists(home / "file")


def test_a_file_in_its_place(tv, tvctl, settings):
    tv.quarantine.write_bytes(b"in the way")
    tvctl.fails("quarantine", "list", says=f"cannot look into {tv.quarantine}: Not a directory")


# -------------------------------------------------------------------------------------------------- interrupted

ROUNDS = 100


def duration(run):
    begin = time.monotonic()
    run()
    return time.monotonic() - begin


def killed_after(process, seconds):
    """Whether it was still running then."""
    try:
        process.communicate(timeout=seconds)
        return False
    except subprocess.TimeoutExpired:
        process.kill()
        process.communicate()
        return True


def test_restore_killed_at_any_time(tv, tvctl, home, settings):
    content = os.urandom(8 << 20)
    target = home / "file"
    arguments = ("quarantine", "restore", "--to", target)
    name = put(tv, target, content)
    whole = duration(lambda: tvctl.run(*arguments, name))
    chance = random.Random(4711)
    fates = set()
    for _ in range(ROUNDS):
        target.unlink(missing_ok=True)
        if not tv.quarantined():
            put(tv, target, content)
        was_killed = killed_after(tvctl.start(*arguments, name), chance.uniform(0, 1.4 * whole))
        has_copy = tv.quarantined() == {name: content}
        has_file = exists(target)
        assert has_copy or has_file
        assert not has_file or target.read_bytes() == content
        assert {path.name for path in home.iterdir()} <= {"file", *leftovers(home)}
        fates.add((was_killed, has_copy, has_file))
    # Before it began or in the middle, and after its end.
    assert (True, True, False) in fates and (False, False, True) in fates, fates
    assert leftovers(home), "it was never killed in the middle"
    # What was left behind hinders nothing.
    target.unlink(missing_ok=True)
    if not tv.quarantined():
        put(tv, target, content)
    tvctl.run(*arguments, name)
    assert target.read_bytes() == content


def leftovers(directory):
    return {path.name for path in directory.iterdir() if re.fullmatch(r"\.tvctl-[0-9a-f]+\.part", path.name)}


def test_delete_killed_at_any_time(tv, tvctl, settings):
    paths = [f"/home/u/{number}" for number in range(50)]
    content = os.urandom(100000)
    names = [put(tv, path, content) for path in paths]
    whole = duration(lambda: tvctl.run("quarantine", "delete", *names))
    chance = random.Random(4712)
    left = set()
    for _ in range(ROUNDS):
        for path in paths:
            if not exists(tv.quarantine / names[paths.index(path)]):
                put(tv, path, content)
        killed_after(tvctl.start("quarantine", "delete", *names), chance.uniform(0.3 * whole, 1.4 * whole))
        remaining = tv.quarantined()
        assert set(remaining) <= set(names) and set(remaining.values()) <= {content}
        left.add(len(remaining))
    assert 50 in left and 0 in left, left
    tvctl.run("quarantine", "delete", "--older-than", "1d")
    assert tv.quarantined() == {}
