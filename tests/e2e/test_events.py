"""Which events lead to a scan, and which do not."""

import os
import shutil
import subprocess

import pytest

from harness import (EICAR, Unwatched, cleaned, exists, found, scan_error, wait_gone, write_once)

# What the kernel's bits for a moved directory look like in the log.
MOVED_FROM_DIRECTORY = 0x40000040
MOVED_TO_DIRECTORY = 0x40000080


@pytest.fixture
def reporting(tv):
    """A service that leaves files where they are, so that every scan can be counted; not yet started."""
    tv.configure(action=0)
    return tv


def lines_about(tv, name):
    return [line.what() for line in tv.settle() if name in line.message]


def test_a_creation_is_scanned(reporting, home):
    unwatched = Unwatched()
    reporting.start()
    path = unwatched.link_in(home / "created")
    assert lines_about(reporting, "created") == [found(path), cleaned(path, -1)]


def test_a_modification_is_scanned(reporting, home):
    path = write_once(home / "grown", EICAR[:-1])
    reporting.start()
    reporting.pause()
    with open(path, "ab", buffering=0) as file:
        file.write(EICAR[-1:])
    reporting.resume()
    assert lines_about(reporting, "grown") == [found(path), cleaned(path, -1)]


def test_a_truncation_is_a_modification(reporting, home):
    path = write_once(home / "cut", EICAR + b"more")
    reporting.start()
    os.truncate(path, len(EICAR))
    assert lines_about(reporting, "cut") == [found(path), cleaned(path, -1)]


def test_every_modification_is_scanned(reporting, home):
    path = write_once(home / "often", EICAR)
    other = write_once(home / "other", b"clean")
    reporting.start()
    reporting.pause()
    # Two in a row are one event to the kernel; a foreign event between them keeps them apart.
    for size in (len(EICAR), len(EICAR)):
        os.truncate(path, size)
        os.truncate(other, 1)
    reporting.resume()
    assert len(lines_about(reporting, "often")) == 4
    assert len(reporting.reports()) == 2


def test_a_file_moved_in_is_scanned(reporting, home):
    unwatched = Unwatched()
    reporting.start()
    path = unwatched.move_in(home / "moved in")
    assert lines_about(reporting, "moved in") == [found(path), cleaned(path, -1)]


def test_a_file_moved_out_is_a_scan_error(reporting, home):
    unwatched = Unwatched()
    path = write_once(home / "moved out")
    reporting.start()
    os.rename(path, unwatched.path / "moved out")
    assert lines_about(reporting, "moved out") == [scan_error(path)]
    assert reporting.reports() == []


def test_a_rename_is_scanned_under_both_names(reporting, home):
    old = write_once(home / "name.old")
    reporting.start()
    new = home / "name.new"
    os.rename(old, new)
    assert lines_about(reporting, "name.") == [scan_error(old), found(new), cleaned(new, -1)]


def test_both_roots_are_watched(reporting, home):
    reporting.start()
    reporting.pause()
    for path in ("/home/top", "/media/top"):
        write_once(path)
    reporting.resume()
    reporting.settle()
    assert {record["filePath"] for record in reporting.reports()} == {"/home/top", "/media/top"}


def closed(path):
    os.close(os.open(path, os.O_WRONLY))


def read(path):
    path.read_bytes()


def changed_attributes(path):
    path.chmod(0o600)
    os.utime(path, (1, 1))


@pytest.mark.parametrize("event", [closed, read, changed_attributes, os.unlink])
def test_events_that_are_not_scanned(reporting, home, event):
    path = write_once(home / "untouched")
    reporting.start()
    event(path)
    assert lines_about(reporting, "untouched") == []
    assert reporting.reports() == []


def test_closing_adds_no_scan_to_the_write(reporting, home):
    path = write_once(home / "written", b"?" * len(EICAR))
    reporting.start()
    reporting.pause()
    with open(path, "r+b", buffering=0) as file:
        file.write(EICAR)
    reporting.resume()
    assert lines_about(reporting, "written") == [found(path), cleaned(path, -1)]


def test_what_was_there_before_is_not_scanned(reporting, home):
    write_once(home / "old")
    reporting.start()
    assert lines_about(reporting, "old") == []


def test_a_directory_moved_in_is_not_watched(reporting, home):
    unwatched = Unwatched()
    (unwatched.path / "tree").mkdir()
    write_once(unwatched.path / "tree" / "inside")
    reporting.start()
    os.rename(unwatched.path / "tree", home / "tree")
    write_once(home / "tree" / "later")
    assert lines_about(reporting, "tree") == [
        ("TRACE", "FileMonitor::onActivated", f"Directory changed: [{MOVED_TO_DIRECTORY}] {home}/tree")]
    assert reporting.reports() == []


def test_a_directory_that_was_renamed_is_known_by_its_old_name(reporting, home):
    (home / "before").mkdir()
    reporting.start()
    os.rename(home / "before", home / "after")
    write_once(home / "after" / "eicar", b"")
    assert lines_about(reporting, "/home/u/") == [
        ("TRACE", "FileMonitor::onActivated", f"Directory changed: [{MOVED_FROM_DIRECTORY}] {home}/before"),
        ("TRACE", "FileMonitor::onActivated", f"Directory changed: [{MOVED_TO_DIRECTORY}] {home}/after"),
        scan_error(home / "before" / "eicar"),
    ]


def test_a_directory_moved_out_is_still_reported(reporting, home):
    unwatched = Unwatched()
    (home / "leaving").mkdir()
    reporting.start()
    os.rename(home / "leaving", unwatched.path / "left")
    write_once(unwatched.path / "left" / "eicar", b"")
    assert lines_about(reporting, "leaving") == [
        ("TRACE", "FileMonitor::onActivated", f"Directory changed: [{MOVED_FROM_DIRECTORY}] {home}/leaving"),
        scan_error(home / "leaving" / "eicar"),
    ]


def test_a_copied_tree_is_cleaned_as_far_as_it_is_watched(tv, home):
    """What is written into a directory before the service has seen it is nobody's event."""
    unwatched = Unwatched()
    source = unwatched.path / "source"
    source.mkdir()
    for number in range(20):
        write_once(source / f"eicar{number}")
        write_once(source / f"clean{number}", b"clean")
    (home / "copy").mkdir()
    tv.start()
    for file in source.iterdir():
        shutil.copyfile(file, home / "copy" / file.name)
    tv.settle()
    assert sorted(path.name for path in (home / "copy").iterdir()) == sorted(f"clean{n}" for n in range(20))
    assert len(tv.reports()) == 20


def test_a_program_that_unpacks_is_watched(tv, home):
    unwatched = Unwatched()
    packed = unwatched.path / "packed.tar"
    write_once(unwatched.path / "inside.com")
    subprocess.run(["tar", "-cf", packed, "-C", unwatched.path, "inside.com"], check=True)
    tv.start()
    subprocess.run(["tar", "-xf", packed, "-C", home], check=True)
    wait_gone(home / "inside.com")


def test_repeated_lines_become_a_counter(reporting, home):
    reporting.start()
    path = home / "flicker"
    reporting.pause()
    for _ in range(12):
        path.touch()
        path.unlink()
    reporting.resume()
    lines = [line for line in reporting.settle() if "flicker" in line.message]
    assert [line.what() for line in lines] == [scan_error(path)]
    assert lines[0].repeats == 11
    assert b" | /home/u/flicker\r\nRepeated [00011] times.\r\n" in reporting.log_file.read_bytes()
    assert not exists(path)
