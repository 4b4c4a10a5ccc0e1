"""Which directories are watched."""

import os

import pytest

from harness import (Path, Unwatched, cleaned, directory_added, directory_removed, found, scan_error,
                     wait_gone, write_once)


def add_error(path, walk):
    return "ERROR", f"FileMonitor::{walk}", f"Failed to add path for watch: {path}"


@pytest.fixture
def reporting(tv):
    tv.configure(action=0)
    return tv


def reported(tv):
    """The files that a scan found, after everything that happened was handled."""
    tv.settle()
    return {record["filePath"] for record in tv.reports()}


@pytest.mark.parametrize("root", ["/home", "/media"])
def test_depth_at_the_start(reporting, home, root):
    levels = [Path(root, *"12345"[:depth]) for depth in range(6)]
    levels[-1].mkdir(parents=True)
    reporting.start()
    for level in levels:
        write_once(level / "eicar")
    # The root is level 1, so its grandchildren's grandchildren are level 5 and the last.
    assert reported(reporting) == {f"{level}/eicar" for level in levels[:5]}


def test_depth_of_a_new_directory_counts_from_itself(reporting, home):
    deep = Path("/home/1/2/3/4")
    deep.mkdir(parents=True)
    reporting.start()
    # All of it is there when the service looks.
    reporting.pause()
    (deep / "new" / "one" / "two").mkdir(parents=True)
    reporting.resume()
    reporting.settle()
    for name in ("new", "new/one", "new/one/two"):
        write_once(deep / name / "eicar")
    assert reported(reporting) == {f"{deep}/new/eicar", f"{deep}/new/one/eicar"}


def test_a_directory_in_a_new_directory_is_new_itself(reporting, home):
    reporting.start()
    path = home
    for name in "abcdefgh":
        path = path / name
        path.mkdir()
        reporting.wait_log(*directory_added(path))
        reporting.settle()
    write_once(path / "eicar")
    assert reported(reporting) == {f"{path}/eicar"}


def test_files_of_a_new_directory_are_scanned_by_their_own_events(reporting, home):
    reporting.start()
    reporting.pause()
    (home / "new").mkdir()
    write_once(home / "new" / "before")
    reporting.resume()
    reporting.settle()
    write_once(home / "new" / "after")
    assert reported(reporting) == {f"{home}/new/after"}


def test_hidden_directories(reporting, home):
    (home / ".old").mkdir()
    reporting.start()
    reporting.pause()
    (home / ".new" / ".inside").mkdir(parents=True)
    (home / ".new" / "inside").mkdir()
    reporting.resume()
    reporting.settle()
    for name in (".old", ".new", ".new/.inside", ".new/inside"):
        write_once(home / name / "eicar")
    assert reported(reporting) == {f"{home}/.new/eicar", f"{home}/.new/inside/eicar"}


def test_hidden_files_are_scanned(reporting, home):
    reporting.start()
    write_once(home / ".eicar")
    assert reported(reporting) == {f"{home}/.eicar"}


def test_links_to_directories_are_not_followed(reporting, home):
    outside = Unwatched().path
    for name in ("a", "b", "c"):
        (outside / name).mkdir()
    os.symlink(outside / "a", home / "at the start")
    reporting.start()
    os.symlink(outside / "b", home / "later")
    reporting.pause()
    (home / "new").mkdir()
    os.symlink(outside / "c", home / "new" / "in a new one")
    reporting.resume()
    reporting.settle()
    for name in ("a", "b", "c"):
        write_once(outside / name / "eicar")
    assert reported(reporting) == set()
    assert reporting.settle()[-1].message == f"New Directory added: {home}/new"


def test_a_loop_of_links_ends(reporting, home):
    (home / "a" / "b").mkdir(parents=True)
    os.symlink(home, home / "a" / "b" / "c")
    reporting.start()
    write_once(home / "a" / "b" / "eicar")
    assert reported(reporting) == {f"{home}/a/b/eicar"}


def test_removed_and_made_again(reporting, home):
    (home / "d").mkdir()
    reporting.start()
    (home / "d").rmdir()
    reporting.settle()
    (home / "d").mkdir()
    reporting.settle()
    write_once(home / "d" / "eicar")
    assert reported(reporting) == {f"{home}/d/eicar"}
    lines = [line.what() for line in reporting.log() if line.location == "FileMonitor::onActivated"
             and "/home/u" in line.message]
    assert lines == [directory_removed(home / "d"), directory_added(home / "d")]


def test_forgetting_a_directory_forgets_those_that_begin_alike(reporting, home):
    for name in ("a", "ab"):
        (home / name).mkdir()
    reporting.start()
    (home / "a").rmdir()
    reporting.settle()
    # The kernel still reports it, but nobody knows its name any more.
    write_once(home / "ab" / "eicar", b"")
    (home / "ab" / "inside").mkdir()
    lines = [line.what() for line in reporting.settle()]
    assert scan_error("/eicar") in lines
    assert directory_added("/inside") in lines
    assert add_error("/inside", "addNewDirToWatchRecursive") in lines
    assert reporting.reports() == []


def test_a_percent_sign_in_a_directory(reporting, home):
    """Directory and name are put together by substitution, one after the other."""
    (home / "%1").mkdir()
    reporting.start()
    (home / "%1" / "new").mkdir()
    # Files are put together plainly.
    write_once(home / "%1" / "eicar")
    assert reported(reporting) == {f"{home}/%1/eicar"}
    lines = [line.what() for line in reporting.log()]
    assert directory_added(f"{home}/%1/new") in lines
    assert add_error(f"{home}/new/%2", "addNewDirToWatchRecursive") in lines
    write_once(home / "%1" / "new" / "eicar")
    assert reported(reporting) == {f"{home}/%1/eicar"}


def test_the_name_of_a_new_directory_is_not_substituted_into(reporting, home):
    reporting.start()
    for name in ("%1", "%2", "100%"):
        (home / name).mkdir()
        reporting.wait_log(*directory_added(home / name))
        reporting.settle()
        write_once(home / name / "eicar")
    assert reported(reporting) == {f"{home}/{name}/eicar" for name in ("%1", "%2", "100%")}


def test_a_second_name_for_a_directory(reporting, home, mounts):
    """The kernel knows one directory, so the last name that the walk came upon is the one that is told."""
    (home / "first").mkdir()
    (home / "second").mkdir()
    mounts.bind(home / "first", home / "second")
    reporting.start()
    write_once(home / "first" / "eicar")
    [path] = reported(reporting)
    assert path in (f"{home}/first/eicar", f"{home}/second/eicar")


def test_something_is_mounted_into_the_tree(reporting, home, mounts):
    (home / "usb").mkdir()
    mounts.tmpfs(home / "usb")
    reporting.start()
    write_once(home / "usb" / "eicar")
    assert reported(reporting) == {f"{home}/usb/eicar"}
    mounts.unmount(home / "usb")
    reporting.settle()
    write_once(home / "eicar")
    assert f"{home}/eicar" in reported(reporting)


def test_many_directories_come_and_go(tv, home):
    tv.start()
    for number in range(300):
        (home / str(number)).mkdir()
    for number in range(300):
        (home / str(number)).rmdir()
    lines = [line.what() for line in tv.settle()]
    assert lines.count(directory_removed(home / "299")) == 1
    # A directory that went before it was looked at cannot be watched, and nothing else goes wrong.
    path = write_once(home / "eicar")
    wait_gone(path)
    tv.wait_log(*cleaned(path))
    assert found(path) in tv.lines()


def test_a_link_in_the_place_of_a_new_directory_takes_no_other_directory_away(tv, home):
    victim = Path("/home/victim")
    (victim / "below").mkdir(parents=True)
    tv.start()
    tv.pause()
    os.mkdir(home / "new")
    os.rmdir(home / "new")
    os.symlink(victim, home / "new")
    tv.resume()
    tv.settle()
    os.unlink(home / "new")
    wait_gone(write_once(victim / "bad"))
    wait_gone(write_once(victim / "below" / "bad"))
