"""The protection switch, exclusions, and names and places that are left alone."""

import pytest

from harness import EICAR, Installation, Unwatched, cleaned, exists, found, wait_gone, write_once


def test_protection_is_on_without_settings(tv, home):
    tv.start()
    wait_gone(write_once(home / "eicar"))


def test_switched_off_nothing_happens_and_nothing_is_logged(tv, home):
    tv.configure(protection=False)
    tv.start()
    before = len(tv.settle())
    path = write_once(home / "eicar")
    path.rename(home / "moved")
    assert len(tv.settle()) == before
    assert (home / "moved").read_bytes() == EICAR
    assert tv.reports() == []


def test_the_switch_works_while_running(tv, home):
    unwatched = Unwatched()
    tv.start()
    wait_gone(unwatched.move_in(home / "one"))
    tv.configure(protection=False)
    unwatched.move_in(home / "two")
    tv.settle()
    assert exists(home / "two")
    tv.configure(protection=True)
    wait_gone(unwatched.move_in(home / "three"))
    tv.settle()
    assert [record["fileName"] for record in tv.reports()] == ["one", "three"]


def test_directories_are_watched_while_switched_off(tv, home):
    tv.configure(protection=False)
    tv.start()
    (home / "new").mkdir()
    tv.settle()
    tv.configure(protection=True)
    wait_gone(write_once(home / "new" / "eicar"))


def test_excluded_files(tv, home):
    unwatched = Unwatched()
    tv.configure(exclude={
        "0": ["/home/u/spared", "/home/u/prefix", "/home/u/\u00fc"],
        # Of directories no file scan takes notice, nor of the third list.
        "1": ["/home/u", "/home/u/directory"],
        "2": ["/home/u/third"],
    })
    tv.start()
    for name in ("spared", "\u00fc"):
        unwatched.move_in(home / name)
    for name in ("Spared", "prefix2", "directory", "third"):
        wait_gone(unwatched.move_in(home / name))
    assert not [line for line in tv.settle() if line.message.endswith(("/spared", "/\u00fc"))]
    assert exists(home / "spared") and exists(home / "\u00fc")


@pytest.mark.parametrize("name", ["setup.exe.part", ".part", "copy.tvq", ".tvq"])
def test_endings_that_are_left_alone(tv, home, name):
    unwatched = Unwatched()
    tv.start()
    unwatched.move_in(home / name)
    assert not [line for line in tv.settle() if name in line.message]
    assert exists(home / name)
    assert tv.reports() == []


@pytest.mark.parametrize("name", ["setup.exe.PART", "part", "x.part.exe", "copy.TVQ", "x.tvq.exe", "tvq"])
def test_endings_that_look_alike(tv, home, name):
    unwatched = Unwatched()
    tv.start()
    path = unwatched.move_in(home / name)
    wait_gone(path)
    assert [line.what() for line in tv.settle() if name in line.message] == [found(path), cleaned(path)]


def test_a_finished_download_is_scanned(tv, home):
    tv.start()
    path = write_once(home / "setup.exe.part")
    tv.settle()
    path.rename(home / "setup.exe")
    wait_gone(home / "setup.exe")


@pytest.fixture
def tv_in_home(home):
    """An installation below a watched directory."""
    installation = Installation(home / "root")
    yield installation
    installation.close()
    installation.check_log()


def test_its_own_directories_are_left_alone(tv_in_home, home):
    tv = tv_in_home
    unwatched = Unwatched()
    for directory in ("logs", "settings", "logs-of-others", "other"):
        (tv.root / directory).mkdir()
    tv.start()
    # Compared as text, so a directory that begins alike is left alone too.
    for directory in ("logs", "settings", "logs-of-others"):
        unwatched.move_in(tv.root / directory / "eicar")
    wait_gone(unwatched.move_in(tv.root / "other" / "eicar"))
    tv.settle()
    assert [record["filePath"] for record in tv.reports()] == [f"{tv.root}/other/eicar"]
    for directory in ("logs", "settings", "logs-of-others"):
        assert exists(tv.root / directory / "eicar")


def test_its_own_writing_is_no_endless_loop(tv_in_home, home):
    tv = tv_in_home
    for directory in ("logs", "settings", "quarantine"):
        (tv.root / directory).mkdir()
    tv.start()
    path = write_once(home / "eicar")
    wait_gone(path)
    before = tv.settle()
    # The quarantine copy came into a watched directory, as an infected file.
    assert list(tv.quarantined().values()) == [EICAR]
    assert [line for line in before if str(tv.root) in line.message] == []
    assert tv.settle() == before
