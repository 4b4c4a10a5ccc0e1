"""`tvctl exclude`."""

import pytest

from harness import EICAR, exists, wait_gone, write_once
from storefailures import AS_ORDINARY_USER, damage, inaccessible, locked, locked_for_writing

LISTS = ["files", "directories", "other"]
NOT_UTF8 = b"/home/u/caf\xe9"


def paths(tvctl, name="files"):
    document = tvctl.json("exclude", "list", "--list", name)
    assert document["list"] == name
    return [entry["path"] for entry in document["paths"]]


def warnings(result):
    return [line.removeprefix("tvctl: warning: ") for line in result.errors.splitlines()
            if line.startswith("tvctl: warning: ")]


@pytest.fixture
def store(tv, tvctl):
    tv.configure(exclude={"0": ["/home/u/kept"]})
    return tv.settings / "tvcore.db"


@pytest.fixture
def present(home):
    """A file to exclude without a warning."""
    (home / "present").touch()
    return str(home / "present")


def test_an_empty_list(tv, tvctl):
    tv.settings.mkdir()
    for name in LISTS:
        assert paths(tvctl, name) == []
        assert tvctl.run("exclude", "list", "--list", name).output == ""


@pytest.mark.parametrize("name", LISTS)
def test_add_and_remove(tv, tvctl, name):
    tv.settings.mkdir()
    added = tvctl.json("exclude", "add", "--list", name, "/home/u/b", "/home/u/a", "/home/u/b")
    assert added == {"list": name, "added": [{"path": "/home/u/b"}, {"path": "/home/u/a"}], "already_there": 0,
                     "reload": "service down"}
    assert paths(tvctl, name) == ["/home/u/a", "/home/u/b"]
    assert tvctl.run("exclude", "list", "--list", name).lines() == ["/home/u/a", "/home/u/b"]
    for other in LISTS:
        assert name == other or paths(tvctl, other) == []
    again = tvctl.run("exclude", "add", "--list", name, "/home/u/a", "/home/u/c")
    assert again.lines()[:2] == ["is there already: /home/u/a", "added: /home/u/c"]
    removed = tvctl.run("exclude", "remove", "--list", name, "/home/u/a", "/home/u/c")
    assert removed.lines()[:2] == ["removed: /home/u/a", "removed: /home/u/c"]
    assert paths(tvctl, name) == ["/home/u/b"]
    assert tvctl.json("exclude", "remove", "--list", name, "/home/u/b") == {
        "list": name, "removed": [{"path": "/home/u/b"}], "missing": [], "reload": "service down"}
    assert paths(tvctl, name) == []


def test_files_is_the_default(tv, tvctl, present):
    tv.settings.mkdir()
    tvctl.run("exclude", "add", present)
    assert paths(tvctl) == [present]
    tvctl.run("exclude", "remove", present)
    assert paths(tvctl) == []


def test_the_service_leaves_an_excluded_file_alone(tv, tvctl, home):
    tv.start()
    assert tvctl.json("exclude", "add", str(home / "kept"))["reload"] == "done"
    write_once(home / "kept", EICAR)
    # Of a directory in the list, files are scanned all the same, and that is said.
    result = tvctl.run("exclude", "add", "--list", "directories", str(home))
    assert "the service itself scans what is in these directories all the same" in result.errors
    wait_gone(write_once(home / "gone", EICAR))
    tv.settle()
    assert exists(home / "kept")
    tvctl.run("exclude", "remove", str(home / "kept"))
    (home / "kept").write_bytes(EICAR)
    wait_gone(home / "kept")


def test_no_reload(tv, tvctl, home):
    tv.start()
    kept = home / "kept"
    result = tvctl.run("exclude", "add", "--no-reload", str(kept))
    assert result.lines()[1] == "tvfilemon was not told; it reads this when it starts or is told to reload"
    wait_gone(write_once(kept, EICAR))
    assert tvctl.json("exclude", "remove", "--no-reload", str(kept))["reload"] == "not asked"


def test_a_name_that_is_not_utf8(tv, tvctl, home):
    tv.start()
    document = tvctl.json("exclude", "add", NOT_UTF8)
    entry = {"path": r"/home/u/caf\xe9", "path_base64": "L2hvbWUvdS9jYWbp"}
    assert document["added"] == [entry]
    assert tvctl.json("exclude", "list")["paths"] == [entry]
    assert tvctl.run("exclude", "list").output == "/home/u/caf\\xe9\n"
    write_once(NOT_UTF8, EICAR)
    wait_gone(write_once(home / "gone", EICAR))
    tv.settle()
    assert exists(NOT_UTF8)
    tvctl.run("exclude", "remove", NOT_UTF8)
    assert paths(tvctl) == []


def test_names_do_not_steer_the_terminal(tv, tvctl):
    tv.settings.mkdir()
    result = tvctl.run("exclude", "add", "/home/u/\x1b[2Ja\nb")
    shown = r"/home/u/\x1b[2Ja\x0ab"
    assert result.lines()[0] == f"added: {shown}"
    assert f"{shown}: it does not exist" in result.errors
    assert tvctl.run("exclude", "list").output == f"{shown}\n"
    assert paths(tvctl) == ["/home/u/\x1b[2Ja\nb"]


def test_what_can_never_match_is_warned_of(tv, tvctl, home):
    tv.settings.mkdir()
    (home / "file").touch()
    (home / "copy.tvq").touch()
    (home / "directory").mkdir()
    (home / "directory/inside").touch()
    (home / "link").symlink_to("directory")
    (home / "filelink").symlink_to("file")

    def said(name, argument, **options):
        return warnings(tvctl.run("exclude", "add", "--list", name, argument, **options))

    slash = "it is stored without the slash behind it"

    def full(path):
        return f"{path}: it is stored as a full path: {path}"

    def shorter(path):
        return f"{path}: it is stored without superfluous components: {path}"

    assert said("files", f"{home}/file") == []
    assert said("files", f"{home}/filelink") == []
    assert said("directories", f"{home}/directory") == []
    assert said("files", "file", cwd=home) == [full(f"{home}/file")]
    assert said("files", f"{home}/./directory/../file") == [shorter(f"{home}/file")]
    assert said("directories", f"{home}/directory/") == [f"{home}/directory: {slash}"]
    # Each for itself.
    assert said("files", "directory/", cwd=home) == [
        full(f"{home}/directory"), f"{home}/directory: {slash}",
        f"{home}/directory: it is a directory, and in the list of files excludes nothing that is in it"]
    assert said("files", f"{home}//absent/") == [
        shorter(f"{home}/absent"), f"{home}/absent: {slash}", f"{home}/absent: it does not exist"]
    assert said("files", f"{home}/absent") == [f"{home}/absent: it does not exist"]
    assert said("files", f"{home}/file/below") == [f"{home}/file/below: it does not exist"]
    assert said("files", f"{home}/directory") == [
        f"{home}/directory: it is a directory, and in the list of files excludes nothing that is in it"]
    assert said("directories", f"{home}/file") == [f"{home}/file: it is no directory"]
    assert said("directories", f"{home}/link") == [f"{home}/link: it is no directory"]
    assert said("files", f"{home}/copy.tvq") == [
        f"{home}/copy.tvq: copies in quarantine, *.tvq, are never scanned anyway"]
    assert said("files", f"{home}/link/inside") == [
        f"{home}/link/inside: a link leads to it; file events come with the path without links, below "
        f"{home}/directory"]
    # By the file system that is /home/u/file, by the text /home/file.
    assert said("files", f"{home}/link/../file") == [shorter(f"{home}/file")]
    (home / "deep/er").mkdir(parents=True)
    (home / "deeplink").symlink_to("deep/er")
    (home / "deep/file").touch()
    assert said("files", f"{home}/deeplink/../file") == [
        shorter(f"{home}/file"),
        f'{home}/file: the argument leads to {home}/deep/file instead, because of a link in front of ".."']
    assert said("other", "anything at all", cwd=home) == [full(f"{home}/anything at all")]


def test_what_others_have_stored_can_be_removed(tv, tvctl):
    tv.configure(exclude={"0": ["relative", "/home/u/slash/", "/home/u/plain"]})
    assert tvctl.json("exclude", "remove", "relative", "/home/u/slash/", "/home/u/plain/")["removed"] == [
        {"path": "relative"}, {"path": "/home/u/slash/"}, {"path": "/home/u/plain"}]
    assert paths(tvctl) == []


def test_removing_what_is_not_there(tv, tvctl):
    tv.configure(exclude={"0": ["/home/u/a", "/home/u/b"]})
    result = tvctl.run("exclude", "remove", "/home/u/A", "/home/u/a", status=2)
    assert result.errors == "tvctl: /home/u/A is not in the list; see tvctl exclude list --list files\n"
    assert result.lines()[0] == "removed: /home/u/a"
    assert paths(tvctl) == ["/home/u/b"]
    document = tvctl.json("exclude", "remove", "--list", "other", "/home/u/b", status=2)
    assert document == {"list": "other", "removed": [], "missing": [{"path": "/home/u/b"}], "reload": "service down"}
    # The same twice is one.
    assert tvctl.json("exclude", "remove", "/home/u/b", "/home/u/b/")["removed"] == [{"path": "/home/u/b"}]


def test_something_else_holds_the_port(tv, tvctl, impostor, present):
    tv.settings.mkdir()
    impostor("REGISTERED!", "FAILED")
    result = tvctl.run("exclude", "add", present, status=2)
    assert "stored, but tvfilemon did not reload: its log tells why" in result.errors
    assert paths(tvctl) == [present]


@pytest.mark.parametrize("arguments, says", [
    (("exclude",), "see tvctl exclude --help"),
    (("exclude", "add"), "PATH is required; see tvctl exclude add --help"),
    (("exclude", "remove"), "PATH is required"),
    (("exclude", "add", ""), "a path is empty"),
    (("exclude", "add", "/home/u/a", ""), "a path is empty"),
    (("exclude", "remove", ""), "a path is empty"),
    (("exclude", "list", "--list", "file"), "see tvctl exclude list --help"),
])
def test_what_is_refused(tv, tvctl, arguments, says):
    tv.settings.mkdir()
    tvctl.fails(*arguments, says=says)
    assert paths(tvctl) == []


EACH = [("exclude", "list"), ("exclude", "add", "/home/u/present"), ("exclude", "remove", "/home/u/kept")]


@pytest.mark.parametrize("arguments", EACH)
def test_there_is_no_installation(tv, tvctl, present, arguments):
    tvctl.fails(*arguments, says=f"there is no {tv.settings}")


@pytest.mark.parametrize("arguments", EACH)
def test_the_store_is_locked(tvctl, store, present, arguments):
    with locked(store):
        tvctl.fails(*arguments, says="the settings cannot be read")
    assert paths(tvctl) == ["/home/u/kept"]


@pytest.mark.parametrize("arguments", EACH[1:])
def test_somebody_else_is_writing(tvctl, store, present, arguments):
    with locked_for_writing(store):
        assert paths(tvctl) == ["/home/u/kept"]
        tvctl.fails(*arguments, says="the list of exclusions could not be stored, nothing was changed")
    assert paths(tvctl) == ["/home/u/kept"]


def test_the_store_is_damaged(tvctl, store, present):
    damage(store)
    result = tvctl.run("exclude", "add", present)
    assert f"{store} is damaged" in result.errors and "set aside as" in result.errors
    assert paths(tvctl) == [present]


@pytest.mark.parametrize("arguments", EACH)
def test_another_user_may_not_look(tv, tvctl, store, present, arguments):
    with inaccessible(tv.settings):
        tvctl.fails(*arguments, says="run it as root: sudo tvctl", wrapper=AS_ORDINARY_USER)
    assert paths(tvctl) == ["/home/u/kept"]


def test_many_at_once_lose_nothing(tv, tvctl):
    tv.settings.mkdir()
    processes = [tvctl.start("exclude", "add", "--no-reload", f"/home/u/{number}") for number in range(20)]
    for process in processes:
        output, errors = process.communicate()
        assert process.returncode == 0, (output, errors)
    assert sorted(paths(tvctl)) == sorted(f"/home/u/{number}" for number in range(20))
