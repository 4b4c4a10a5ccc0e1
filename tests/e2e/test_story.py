"""What becomes of an infected file, from the event to the popup."""

import errno
import os
import struct
import time
import zlib
from datetime import datetime

import pytest

from harness import (CLAM_EXE_NAME, CLAM_FILES, EICAR, EICAR_NAME, KLEZ_NAME, KLEZ_PATTERN, SessionBus,
                     Unwatched, cleaned, exists, found, quarantine_name, scan_error, wait_gone, wait_until,
                     write_once)

# QFileDevice::RemoveError
REMOVE_ERROR = 9


def build_date(tv):
    return tv.log()[0].message.partition("Build Date: ")[2]


def popup_body(path, virus, status):
    return (f"<b>File Name:</b> {path.name}\n<b>Virus Name:</b> {virus}\n<b>Clean Status:</b> {status}\n"
            f"<b>File Path:</b> {path}")


def check_record(record, tv, path, status, since):
    assert record["fileName"] == path.name
    assert record["filePath"] == str(path)
    assert record["virusName"] == EICAR_NAME
    assert record["cleanStatus"] == status
    assert record["moduleName"] == "tvfilemon"
    assert record["moduleVersion"] == build_date(tv)
    assert since * 1000 - 1 <= record["msecs"] <= time.time() * 1000


def check_popup(popup, tv, path, status):
    assert popup["summary"] == "Infected File Found"
    assert popup["body"] == popup_body(path, EICAR_NAME, status)
    assert popup["app_icon"] == str(tv.root / "icons" / "ip_block.png")
    assert popup["app_name"] == "tvfilemon"
    assert popup["hints"]["urgency"] == 2
    # Until a minute after the detection, in whole seconds.
    assert 50000 <= popup["expire_timeout"] <= 60000


def test_an_infected_file_is_cleaned(tv, bus, home):
    unwatched = Unwatched()
    tv.start(bus)
    since = time.time()
    path = unwatched.move_in(home / "eicar.com")
    wait_gone(path)

    lines = [line.what() for line in tv.settle() if "eicar.com" in line.message]
    assert lines == [found(path), cleaned(path)]

    [(name, content)] = tv.quarantined().items()
    assert quarantine_name(path).fullmatch(name)
    taken = datetime.strptime(name[:19], "%Y-%m-%d_%H-%M-%S").timestamp()
    assert int(since) <= taken <= time.time()
    assert content == EICAR

    [record] = tv.reports()
    check_record(record, tv, path, 0, since)
    [popup] = bus.wait_popups(1)
    check_popup(popup, tv, path, "Cleaned")


def test_an_infected_file_is_only_reported(tv, bus, home):
    unwatched = Unwatched()
    tv.configure(action=0)
    tv.start(bus)
    since = time.time()
    path = unwatched.move_in(home / "eicar.com")
    tv.wait_log(*cleaned(path, -1))
    lines = [line.what() for line in tv.settle() if "eicar.com" in line.message]

    assert lines == [found(path), cleaned(path, -1)]
    assert path.read_bytes() == EICAR
    assert tv.quarantined() == {}
    [record] = tv.reports()
    check_record(record, tv, path, -1, since)
    [popup] = bus.wait_popups(1)
    check_popup(popup, tv, path, "Report Only")

    # Every later event of the file is reported anew.
    tv.pause()
    os.truncate(path, len(EICAR))
    tv.resume()
    tv.settle()
    assert [record["cleanStatus"] for record in tv.reports()] == [-1, -1]
    assert len(bus.wait_popups(2)) == 2


def test_any_action_but_zero_cleans(tv, home):
    unwatched = Unwatched()
    tv.configure(action=-7)
    tv.start()
    path = unwatched.move_in(home / "eicar.com")
    wait_gone(path)
    tv.settle()
    assert [record["cleanStatus"] for record in tv.reports()] == [0]


def test_the_later_events_of_a_cleaned_file_are_scan_errors(tv, bus, home):
    tv.start(bus)
    path = home / "eicar.com"
    tv.pause()
    write_once(path)
    tv.resume()
    wait_gone(path)
    # The creation finds the content already there, so the modification finds nothing.
    lines = [line.what() for line in tv.settle() if "eicar.com" in line.message]
    assert lines == [found(path), cleaned(path), scan_error(path)]
    assert len(tv.reports()) == 1
    assert len(bus.wait_popups(1)) == 1


def test_a_file_that_cannot_be_removed(tv, bus, home, mounts):
    path = home / "busy.com"
    path.write_bytes(b"?" * len(EICAR))
    # The kernel refuses to remove what something is mounted on.
    mounts.bind(path, path)
    tv.start(bus)
    since = time.time()
    tv.pause()
    with open(path, "r+b", buffering=0) as file:
        file.write(EICAR)
    tv.resume()
    tv.wait_log(*cleaned(path, 1))

    lines = [line for line in tv.settle() if "busy.com" in line.message]
    assert [line.what() for line in lines] == [
        found(path),
        ("ERROR", "CScanManager::cleanFile", f"Failed to clean file: {path}. Error: {REMOVE_ERROR}"),
        cleaned(path, 1),
    ]
    assert lines[1].code == errno.EBUSY
    assert path.read_bytes() == EICAR
    assert list(tv.quarantined().values()) == [EICAR]
    [record] = tv.reports()
    check_record(record, tv, path, 1, since)
    [popup] = bus.wait_popups(1)
    check_popup(popup, tv, path, "Error")


def test_a_user_of_the_machine_sees_the_popup(tv, home, mounts):
    """Without a bus in its environment the service finds the buses of those who are logged in."""
    mounts.tmpfs("/run")
    os.makedirs("/run/user/0", mode=0o700)
    bus = SessionBus("unix:path=/run/user/0/bus")
    try:
        unwatched = Unwatched()
        tv.start()
        path = unwatched.move_in(home / "eicar.com")
        [popup] = bus.wait_popups(1)
        check_popup(popup, tv, path, "Cleaned")
    finally:
        bus.close()


@pytest.mark.parametrize("content, virus", [
    pytest.param(EICAR, EICAR_NAME, id="eicar"),
    pytest.param((CLAM_FILES / "clam.exe").read_bytes(), CLAM_EXE_NAME, id="program"),
    pytest.param(b"before" + KLEZ_PATTERN + b"after", KLEZ_NAME, id="pattern"),
])
def test_the_signatures_of_all_databases_are_used(tv, home, content, virus):
    unwatched = Unwatched()
    tv.start()
    path = unwatched.move_in(home / "infected", content)
    wait_gone(path)
    tv.settle()
    assert [record["virusName"] for record in tv.reports()] == [virus]


def flash():
    body = b"\x78\x00\x05\x5f\x00\x00\x0f\xa0\x00\x00\x0c\x01\x00" + KLEZ_PATTERN + b"\0" * 64
    return b"CWS\x08" + struct.pack("<I", 8 + len(body)) + zlib.compress(body)


PARSED = [
    pytest.param("archives", (CLAM_FILES / "clam.zip").read_bytes(), id="archive"),
    pytest.param("documents", (CLAM_FILES / "clam.ole.doc").read_bytes(), id="document"),
    pytest.param("pdf", (CLAM_FILES / "clam.pdf").read_bytes(), id="pdf"),
    pytest.param("swf", flash(), id="flash"),
    # The header promises more than there is.
    pytest.param("heuristics", (CLAM_FILES / "clam-upx.exe").read_bytes()[:700], id="broken program"),
]


@pytest.mark.parametrize("switch, content", PARSED)
@pytest.mark.parametrize("enabled", [True, False])
def test_settings_decide_what_is_looked_into(tv, home, switch, content, enabled):
    unwatched = Unwatched()
    tv.configure(action=0, **{switch: enabled})
    tv.start()
    path = unwatched.move_in(home / "sample", content)
    tv.settle()
    assert ([record["filePath"] for record in tv.reports()] == [str(path)]) == enabled


def test_two_copies_of_one_path_in_one_second(tv, home):
    """The name of the second copy is taken, so the file goes without one."""
    unwatched = Unwatched()
    tv.start()
    path = home / "eicar.com"
    # Early in a second, so that both fit into it.
    wait_until(lambda: time.time() % 1 < 0.3, "the next second")
    for _ in range(2):
        unwatched.move_in(path)
        wait_gone(path)
    lines = [line for line in tv.settle() if "eicar.com" in line.message]
    assert [line.what() for line in lines] == [
        found(path), cleaned(path), found(path),
        ("ERROR", "CScanManager::cleanFile", f"Failed to take backup of file: {path}"), cleaned(path)]
    assert lines[3].code == errno.EEXIST
    assert list(tv.quarantined().values()) == [EICAR]
    assert [record["cleanStatus"] for record in tv.reports()] == [0, 0]


def test_an_infected_link_goes_and_its_target_stays(tv, home):
    unwatched = Unwatched()
    target = unwatched.file()
    tv.start()
    link = home / "link"
    os.symlink(target, link)
    wait_gone(link)
    lines = [line.what() for line in tv.settle() if "/link" in line.message]
    assert lines == [found(link), cleaned(link)]
    assert exists(target)
    assert target.read_bytes() == EICAR
    [(name, content)] = tv.quarantined().items()
    assert quarantine_name(link).fullmatch(name)
    assert content == EICAR
