"""What the service answers to each request of a client, and what it tells in its log."""

import errno
import hashlib
import os

import pytest

from commandclient import DISCONNECTED, INVALID, LISTENING, REGISTERED, connections, descriptor_of, told
from harness import EICAR, EICAR_NAME, OPEN_ERROR, exists, quarantine_name, wait_until, write_once

INFECTED = f"INFECTED {EICAR_NAME}"
MISSING = f"ERROR {OPEN_ERROR}"

# QFileDevice::RemoveError
REMOVE_ERROR = 9

NEEDING_REGISTRATION = ["SCAN", "CLEAN", "SCANURL", "SCANIOC"]
RELOADS = ["RELOADDB", "RELOADSETT", "RELOADIOCDB", "RELOADIOCSETT"]


@pytest.fixture
def eicar(files):
    return write_once(files / "eicar.com")


@pytest.fixture
def demo(tv, connect):
    """A registered client of a running service."""
    tv.start()
    return connect("demo")


def mixed(word):
    return "".join(letter.lower() if index % 2 else letter for index, letter in enumerate(word))


@pytest.mark.parametrize("spell", [str.upper, str.lower, mixed], ids=["upper", "lower", "mixed"])
def test_every_command(tv, connect, files, eicar, spell):
    clean = write_once(files / "a clean file", b"nothing")
    listed = write_once(files / "listed", b"content")
    digest = hashlib.sha256(b"content").hexdigest()
    tv.configure(ioc=True, iocHashes={"2": [digest]})
    tv.start()
    client = connect()
    url = EICAR.decode()
    for request, reply in [
        (f"SCAN {eicar}", INVALID),
        (f"SCANURL {url}", INVALID),
        (f"SCANIOC {listed}", INVALID),
        (f"CLEAN {eicar}", INVALID),
        ("MODULE demo", REGISTERED),
        (f"SCAN {clean}", "CLEAN"),
        (f"SCAN {eicar}", INFECTED),
        (f"SCAN {files}/missing", MISSING),
        (f"SCAN {eicar}/", MISSING),
        (f"SCAN  {eicar}", MISSING),
        (f"SCAN {files}", "CLEAN"),
        ("SCAN", MISSING),
        ("SCAN ", MISSING),
        ("SCANURL http://localhost/", "CLEAN"),
        (f"SCANURL {url}", INFECTED),
        ("SCANURL ", "CLEAN"),
        (f"SCANIOC {clean}", "CLEAN"),
        (f"SCANIOC {listed}", f"SHA256:IA:{digest}"),
        (f"SCANIOC {files}/missing", "CLEAN"),
        ("SCANIOC", "CLEAN"),
        (f"CLEAN {eicar}", "FAILED 0"),
        (f"CLEAN {eicar}", "CLEANED"),
        ("CLEAN", "CLEANED"),
        ("RELOADDB", "SUCCESS"),
        ("RELOADSETT", "SUCCESS"),
        ("RELOADIOCDB", "SUCCESS"),
        ("RELOADIOCSETT", "SUCCESS"),
        ("MODULE", REGISTERED),
    ]:
        word, space, argument = request.partition(" ")
        assert client.ask(spell(word) + space + argument) == reply, request
    assert not exists(eicar)
    assert exists(clean)
    assert exists(listed)


@pytest.mark.parametrize("word", NEEDING_REGISTRATION + ["MODULE"])
def test_a_word_must_be_whole(demo, word, eicar):
    for request in (f"{word}\n", f"{word}\r\n", f"{word}\n {eicar}", f"{word}X {eicar}",
                    f"{word[:-1]} {eicar}", f" {word} {eicar}", f"\t{word} {eicar}", f"{word}\t{eicar}"):
        assert demo.ask(request) == INVALID, request
    assert exists(eicar)


@pytest.mark.parametrize("word", RELOADS)
def test_a_reload_is_known_by_its_beginning(tv, demo, word):
    for request in (f"{word}\n", f"{word}\r\n", f"{word} now", f"{word}X", f"{word.lower()}s please",
                    f"{word}\r\n{word}"):
        assert demo.ask(request) == "SUCCESS", request
    for request in (f" {word}", f"X{word}", word[:-1]):
        assert demo.ask(request) == INVALID, request


def test_the_order_of_the_beginnings(tv, connect):
    """No reload's word begins with another's."""
    tv.start()
    client = connect()
    began = len(tv.log())
    for word in RELOADS:
        assert client.ask(word) == "SUCCESS"
    lines = [line.what() for line in tv.log()[began:] if line.location != "CSocketThread::runSocketListner"]
    assert lines == [
        told("Reload DB command recieved.", "TRACE"),
        ("TRACE", "CScanFile::initEngine", "Successfully Scan Engine Initialize."),
        ("TRACE", "CScanFile::loadDatabases", "Successfully Compiled Engine."),
        told("Reload settings command recieved.", "TRACE"),
        ("TRACE", "CScanManager::reloadSettings", "Reload settings called."),
        ("TRACE", "CScanManager::loadSettings", "Settings loaded successfully."),
        told("Reload IOCDB command recieved.", "TRACE"),
        told("Reload IOCSettings command recieved.", "TRACE"),
        ("TRACE", "IOCScanManager::reloadSettings", "Reload settings called."),
        ("TRACE", "IOCScanManager::loadSettings", "Settings loaded successfully."),
    ]


def test_what_is_logged_of_a_detection(tv, demo, eicar):
    url = EICAR.decode()
    began = len(tv.log())
    assert demo.ask(f"SCANURL {url}") == INFECTED
    assert demo.ask(f"SCAN {eicar}") == INFECTED
    assert demo.ask(f"SCAN {eicar}x") == MISSING
    assert [line.what() for line in tv.log()[began:]] == [
        told(f"Bad URL Found[demo]: {url} {INFECTED}"),
        told(f"Virus Found[demo]: {eicar} {INFECTED}"),
    ]
    assert tv.reports() == []
    assert exists(eicar)


# ---------------------------------------------------------------------------------------------- registration


@pytest.mark.parametrize("request_of_no_name", ["MODULE", "MODULE ", "MODULE \r\n", "module \n\r"])
def test_an_empty_name_is_none(tv, connect, eicar, request_of_no_name):
    tv.start()
    client = connect()
    assert client.ask(request_of_no_name) == REGISTERED
    assert client.ask(f"SCAN {eicar}") == INVALID
    assert client.ask("MODULE demo") == REGISTERED
    assert client.ask(f"SCAN {eicar}") == INFECTED
    # And it can be taken back.
    assert client.ask(request_of_no_name) == REGISTERED
    for word in NEEDING_REGISTRATION:
        assert client.ask(f"{word} {eicar}") == INVALID
    assert exists(eicar)


@pytest.mark.parametrize("word", RELOADS)
def test_reloads_need_no_registration(tv, connect, word):
    tv.start()
    assert connect().ask(word) == "SUCCESS"


def test_registered_anew(tv, demo, eicar):
    for name in ("demo", "second one", "  ", "%s%n", "naïve", "a" * 1000):
        assert demo.ask(f"MODULE {name}") == REGISTERED
        assert demo.ask(f"SCAN {eicar}") == INFECTED
        assert told(f"Virus Found[{name}]: {eicar} {INFECTED}") in tv.lines()


def test_each_client_registers_for_itself(tv, connect, eicar):
    tv.start()
    first = connect("demo")
    second = connect()
    assert second.ask(f"SCAN {eicar}") == INVALID
    assert second.ask("MODULE second") == REGISTERED
    assert first.ask("MODULE ") == REGISTERED
    assert second.ask(f"SCAN {eicar}") == INFECTED
    assert first.ask(f"SCAN {eicar}") == INVALID


def test_a_reused_descriptor_starts_unregistered(tv, connect, eicar):
    tv.start()
    tv.wait_log(*LISTENING)
    tv.settle()
    before = tv.descriptors()
    first = connect("demo")
    [line] = connections(tv)
    number = descriptor_of(line)
    first.close()
    assert tv.wait_log(*DISCONNECTED).code == 0
    wait_until(lambda: number not in tv.descriptors(), "the descriptor to be closed")
    second = connect()
    assert second.ask(f"SCAN {eicar}") == INVALID
    assert [descriptor_of(line) for line in connections(tv)] == [number, number]
    second.close()
    wait_until(lambda: tv.count(*DISCONNECTED) == 2, "the second client to go")
    # A thread has descriptors of its own, and needs a moment to end.
    wait_until(lambda: tv.descriptors() == before, lambda: f"{before}; there are {tv.descriptors()}")


# ------------------------------------------------------------------------------------------------- pieces


def test_two_commands_in_one_piece_are_one(tv, connect, eicar):
    tv.start()
    client = connect("demo")
    tv.pause()
    client.send("MODULE a")
    client.send(f"SCAN {eicar}")
    tv.resume()
    assert client.receive() == REGISTERED
    assert client.ask(f"SCAN {eicar}") == INFECTED
    assert told(f"Virus Found[aSCAN {eicar}]: {eicar} {INFECTED}") in tv.lines()


@pytest.mark.parametrize("first, second, replies", [
    ("SCA", "N {}", [INVALID, INVALID]),
    ("SCAN", " {}", [MISSING, INVALID]),
    ("SCAN /nothing", "{}", [MISSING, INVALID]),
    ("MODULE de", "mo", [REGISTERED, INVALID]),
    ("RELOADSETT", "ING", ["SUCCESS", INVALID]),
])
def test_a_command_in_two_pieces_is_two(demo, eicar, first, second, replies):
    assert [demo.ask(first.format(eicar)), demo.ask(second.format(eicar))] == replies


def long_path(files, length):
    directory = str(files)
    while len(directory) < length - 250:
        directory += "/" + "d" * 200
    os.makedirs(directory)
    return directory + "/" + "f" * (length - len(directory) - 1)


def test_a_request_of_4096_bytes(tv, demo, files):
    path = long_path(files, 4096 - len("SCAN "))
    assert demo.ask(f"SCAN {path}") == MISSING
    write_once(path)
    assert demo.ask(f"SCAN {path}") == INFECTED
    assert told(f"Virus Found[demo]: {path} {INFECTED}") in tv.lines()


def test_a_request_of_4097_bytes(demo, files):
    """It is cut behind the 4096th, and the rest is a request of its own."""
    path = long_path(files, 4096 - len("SCAN "))
    write_once(path)
    demo.send(f"SCAN {path}x")
    replies = INFECTED + INVALID
    assert demo.receive_all_of(replies) == replies


def test_requests_without_an_end(demo):
    """However much comes without a word of sense, each piece of it gets its reply."""
    for _ in range(50):
        assert demo.ask("A" * 3000) == INVALID
    assert demo.ask("MODULE demo") == REGISTERED


@pytest.mark.parametrize("request_bytes, reply", [
    (b"SCAN %(eicar)s\0", INFECTED),
    (b"SCAN %(eicar)s\0.txt and more", INFECTED),
    (b"SCAN %(eicar)s\0\0\0\0", INFECTED),
    (b"\0", INVALID),
    (b"\0SCAN %(eicar)s", INVALID),
    (b"SCAN\0 %(eicar)s", MISSING),
    (b"SC\0AN %(eicar)s", INVALID),
    (b"RELOADSETT\0X", "SUCCESS"),
], ids=repr)
def test_a_zero_byte_ends_a_request(demo, eicar, request_bytes, reply):
    assert demo.ask(request_bytes % {b"eicar": os.fsencode(eicar)}) == reply


# ------------------------------------------------------------------------------------------------ odd texts


@pytest.mark.parametrize("request_text", [
    "SCAN {}\n", "SCAN {}\r\n", "SCAN {}\n\n\r", "SCAN \r\n{}", "scan \n{}\r"])
def test_line_ends_of_an_argument_are_left_out(tv, demo, eicar, request_text):
    assert demo.ask(request_text.format(eicar)) == INFECTED
    assert told(f"Virus Found[demo]: {eicar} {INFECTED}") in tv.lines()


def test_line_ends_within_an_argument_are_left_out(tv, demo, eicar):
    assert demo.ask(f"SCAN {str(eicar)[:-3]}\r\n{str(eicar)[-3:]}") == INFECTED
    assert demo.ask("MODULE de\r\nm\no") == REGISTERED
    assert demo.ask(f"SCAN {eicar}") == INFECTED
    assert [line[2] for line in tv.lines() if "Virus Found" in line[2]] == [
        f"Virus Found[demo]: {eicar} {INFECTED}"]


@pytest.mark.parametrize("name", ["a b  c", " x", "x ", "\t", "\x07\x1b[2J\x7f", "%s%n%1 %d", "größe €",
                                  "\U0001f600", "a\u0301", "'\"`$(x);&|<>*?[]\\"], ids=ascii)
def test_names_are_taken_as_they_are(tv, demo, files, name):
    path = write_once(files / name)
    assert demo.ask(f"SCAN {path}") == INFECTED
    assert told(f"Virus Found[demo]: {path} {INFECTED}") in tv.lines()
    assert demo.ask(f"CLEAN {path}") == "FAILED 0"
    assert not exists(path)
    assert demo.ask(f"SCAN {path}") == MISSING


@pytest.mark.parametrize("request_bytes, reply", [
    ("\u017fCAN /nothing".encode(), MISSING),
    (b"SCAN /\xff\xfe", MISSING),
    (b"SCAN \xc3", MISSING),
    (b"SCAN /\xed\xa0\x80", MISSING),
    (b"\xff\xfe\xfd", INVALID),
    (b"\x80SCAN /", INVALID),
    (b"MODULE \xff", REGISTERED),
    (b"RELOADSETT\xff", "SUCCESS"),
    (b"SCANIOC /\xc0\xaf", "CLEAN"),
    (b"SCANURL \xff\xff", "CLEAN"),
    (b"CLEAN /\xff", "CLEANED"),
    (b"\xef\xbb\xbfMODULE demo", REGISTERED),
], ids=repr)
def test_bytes_that_are_no_plain_text(demo, eicar, request_bytes, reply):
    assert demo.ask(request_bytes) == reply
    # It is no worse off than before.
    assert demo.ask(f"SCAN {eicar}") == INFECTED


def test_a_file_whose_name_is_no_text_cannot_be_named(demo, files):
    path = os.fsencode(files) + b"/\xff"
    write_once(path)
    assert demo.ask(b"SCAN " + path) == MISSING
    assert demo.ask(b"CLEAN " + path) == "CLEANED"
    assert exists(path)


# -------------------------------------------------------------------------------------------------- cleaning


def test_a_cleaned_file_is_answered_with_failure(tv, demo, eicar):
    began = len(tv.log())
    assert demo.ask(f"CLEAN {eicar}") == "FAILED 0"
    assert not exists(eicar)
    [(name, content)] = tv.quarantined().items()
    assert quarantine_name(eicar).fullmatch(name)
    assert content == EICAR
    assert tv.log()[began:] == []
    assert tv.reports() == []


def test_a_file_that_only_is_reported_counts_as_cleaned(tv, connect, eicar):
    tv.configure(action=0)
    tv.start()
    assert connect("demo").ask(f"CLEAN {eicar}") == "CLEANED"
    assert exists(eicar)
    assert tv.quarantined() == {}


def test_a_file_that_cannot_be_cleaned_counts_as_cleaned(tv, demo, files, eicar, mounts):
    inside = files / "inside"
    inside.mkdir()
    kept = write_once(inside / "kept")
    mounts.read_only(inside)
    began = len(tv.log())
    assert demo.ask(f"CLEAN {kept}") == "CLEANED"
    assert exists(kept)
    [line] = tv.log()[began:]
    assert line.what() == (
        "ERROR", "CScanManager::cleanFile", f"Failed to clean file: {kept}. Error: {REMOVE_ERROR}")
    assert line.code == errno.EROFS
    # Until the next failure this is told of every success.
    assert demo.ask(f"CLEAN {eicar}") == f"FAILED {REMOVE_ERROR}"
    assert demo.ask(f"CLEAN {write_once(eicar)}") == f"FAILED {REMOVE_ERROR}"


def test_a_file_that_is_not_there_counts_as_cleaned(tv, demo, files):
    began = len(tv.log())
    path = files / "missing"
    assert demo.ask(f"CLEAN {path}") == "CLEANED"
    assert [(line.what(), line.code) for line in tv.log()[began:]] == [
        (("ERROR", "CScanManager::cleanFile", f"Failed to take backup of file: {path}"), errno.ENOENT),
        (("ERROR", "CScanManager::cleanFile", f"Failed to clean file: {path}. Error: {REMOVE_ERROR}"),
         errno.ENOENT)]


# ----------------------------------------------------------------------------------- things that are no files


def fifo(path, mounts):
    os.mkfifo(path)


def device(path, mounts):
    path.touch()
    mounts.bind("/dev/zero", path)


@pytest.mark.parametrize("make, cleaned, stays", [
    pytest.param(fifo, "FAILED 0", False, id="fifo"),
    pytest.param(device, "CLEANED", True, id="device"),
])
def test_things_without_an_end_are_answered_promptly(tv, connect, files, mounts, make, cleaned, stays):
    """Whoever read a pipe that nobody writes to, or a device, would never be done."""
    path = files / "object"
    make(path, mounts)
    tv.configure(ioc=True, iocHashes={"0": [hashlib.md5(b"").hexdigest()]})
    tv.start()
    client = connect("demo")
    assert client.ask(f"SCAN {path}") == "CLEAN"
    assert client.ask(f"SCANIOC {path}") == "CLEAN"
    assert client.ask(f"CLEAN {path}") == cleaned
    assert exists(path) == stays
    assert list(tv.quarantined().values()) == []
