"""What changes in the store or on the disk counts from the next reload on."""

import re
import shutil

import pytest

from commandclient import told
from harness import (CLAM_EXE_NAME, CLAM_FILES, EICAR_NAME, KLEZ_NAME, KLEZ_PATTERN, SIGNATURES, Unwatched,
                     exists, wait_gone, write_once)

ARCHIVES = ["clam.zip", "clam.7z", "clam.arj", "clam.cab", "clam.tar.gz", "clam.exe.bz2", "clam.newc.cpio"]


def answers(client, paths):
    return {path: client.ask(f"SCAN {path}") for path in paths}


def test_archives_are_looked_into_when_the_settings_say_so(tv, connect):
    archives = [CLAM_FILES / name for name in ARCHIVES]
    program = CLAM_FILES / "clam.exe"
    infected = f"INFECTED {CLAM_EXE_NAME}"
    tv.configure(archives=False)
    tv.start()
    client = connect("demo")
    assert answers(client, archives) == dict.fromkeys(archives, "CLEAN")
    assert client.ask(f"SCAN {program}") == infected
    tv.configure(archives=True)
    assert answers(client, archives) == dict.fromkeys(archives, "CLEAN")
    assert client.ask("RELOADSETT") == "SUCCESS"
    assert answers(client, archives) == dict.fromkeys(archives, infected)
    tv.configure(archives=False)
    assert answers(client, archives) == dict.fromkeys(archives, infected)
    assert client.ask("RELOADSETT") == "SUCCESS"
    assert answers(client, archives) == dict.fromkeys(archives, "CLEAN")
    assert client.ask(f"SCAN {program}") == infected


def test_exclusions(tv, connect, files):
    path = write_once(files / "eicar")
    infected = f"INFECTED {EICAR_NAME}"
    tv.start()
    client = connect("demo")
    assert client.ask(f"SCAN {path}") == infected
    tv.configure(exclude={"0": [str(path)]})
    assert client.ask(f"SCAN {path}") == infected
    assert client.ask("RELOADSETT") == "SUCCESS"
    assert client.ask(f"SCAN {path}") == "CLEAN"
    # By its name as it is told, and nothing else.
    assert client.ask(f"SCAN {files}//eicar") == infected
    # It is not clean, it only is not scanned.
    assert client.ask(f"CLEAN {path}") == "FAILED 0"
    write_once(path)
    tv.configure(exclude={"0": [], "1": [str(files)], "2": [str(path)]})
    assert client.ask("RELOADSETT") == "SUCCESS"
    assert client.ask(f"SCAN {path}") == infected


def test_a_quarantine_copy_is_never_scanned(tv, connect, files):
    tv.start()
    client = connect("demo")
    assert client.ask(f"SCAN {write_once(files / 'x.tvq')}") == "CLEAN"
    assert client.ask(f"SCAN {write_once(files / 'x.TVQ')}") == f"INFECTED {EICAR_NAME}"


def test_the_action_counts_for_file_events_too(tv, connect, files, home):
    unwatched = Unwatched()
    tv.start()
    client = connect("demo")
    wait_gone(unwatched.move_in(home / "before"))
    tv.configure(action=0)
    assert client.ask("RELOADSETT") == "SUCCESS"
    path = unwatched.move_in(home / "after")
    tv.settle()
    assert exists(path)
    assert client.ask(f"CLEAN {path}") == "CLEANED"
    assert exists(path)


# ------------------------------------------------------------------------------------------------- databases


def test_a_new_database_finds_more(tv, connect, files, home):
    unwatched = Unwatched()
    (tv.db / "test-6.cvd").unlink()
    pattern = write_once(files / "pattern", KLEZ_PATTERN)
    eicar = write_once(files / "eicar")
    tv.start()
    client = connect("demo")
    assert client.ask(f"SCAN {pattern}") == "CLEAN"
    (tv.db / "test-5.cvd").unlink()
    shutil.copy(SIGNATURES / "test-6.cvd", tv.db)
    assert client.ask(f"SCAN {pattern}") == "CLEAN"
    began = len(tv.log())
    assert client.ask("RELOADDB") == "SUCCESS"
    assert [line.what() for line in tv.log()[began:]] == [
        told("Reload DB command recieved.", "TRACE"),
        ("TRACE", "CScanFile::initEngine", "Successfully Scan Engine Initialize."),
        ("TRACE", "CScanFile::loadDatabases", "Successfully Compiled Engine."),
    ]
    assert client.ask(f"SCAN {pattern}") == f"INFECTED {KLEZ_NAME}"
    assert client.ask(f"SCAN {eicar}") == f"INFECTED {EICAR_NAME}"
    wait_gone(unwatched.move_in(home / "pattern", KLEZ_PATTERN))


@pytest.mark.parametrize("name", ["a.cvd", "test-5b.cvd", "z.cvd"])
def test_a_corrupt_database_and_a_good_one_later(tv, connect, files, home, name):
    unwatched = Unwatched()
    eicar = write_once(files / "eicar")
    tv.start()
    client = connect("demo")
    assert client.ask(f"SCAN {eicar}") == f"INFECTED {EICAR_NAME}"
    (tv.db / name).write_bytes(b"this is no database\n" * 100)
    for _ in range(2):
        began = len(tv.log())
        assert client.ask("RELOADDB") == "FAILED"
        received, initialised, failed = tv.log()[began:]
        assert received.what() == told("Reload DB command recieved.", "TRACE")
        assert initialised.what() == (
            "TRACE", "CScanFile::initEngine", "Successfully Scan Engine Initialize.")
        assert failed.what()[:2] == ("ERROR", "CScanFile::loadDatabases")
        assert re.fullmatch(rf"Failed to load database\. Path: {name} Error: [1-9]\d*", failed.message)
        # Nothing is compiled, so everything is clean.
        assert client.ask(f"SCAN {eicar}") == "CLEAN"
    left = unwatched.move_in(home / "left")
    tv.settle()
    assert exists(left)
    (tv.db / name).unlink()
    assert client.ask("RELOADDB") == "SUCCESS"
    assert client.ask(f"SCAN {eicar}") == f"INFECTED {EICAR_NAME}"
    wait_gone(unwatched.move_in(home / "after"))


def test_databases_that_are_gone(tv, connect, files):
    eicar = write_once(files / "eicar")
    tv.start()
    client = connect("demo")
    shutil.rmtree(tv.db)
    assert client.ask("RELOADDB") == "SUCCESS"
    assert client.ask(f"SCAN {eicar}") == "CLEAN"
    tv.db.mkdir()
    shutil.copy(SIGNATURES / "test-6.cvd", tv.db)
    assert client.ask("RELOADDB") == "SUCCESS"
    assert client.ask(f"SCAN {eicar}") == f"INFECTED {EICAR_NAME}"


def test_many_reloads(tv, connect, files):
    eicar = write_once(files / "eicar")
    tv.start()
    client = connect("demo")
    opened = tv.descriptors()
    for _ in range(10):
        assert client.ask("RELOADDB") == "SUCCESS"
        assert client.ask(f"SCAN {eicar}") == f"INFECTED {EICAR_NAME}"
    tv.settle()
    assert tv.descriptors() == opened
