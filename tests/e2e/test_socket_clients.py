"""Clients that come, go, wait and get in each other's way; and the port they come by."""

import errno
import os
import select
import socket
import threading
import time

import pytest

from commandclient import (BIND_FAILED, DISCONNECTED, INVALID, LISTENING, PORT, REGISTERED, Client,
                           connections, descriptor_of, is_open, seconds_of, start_slow_scan)
from harness import (EICAR_NAME, Installation, Path, Unwatched, exists, found, fresh_directory, wait_gone,
                     wait_until, write_once)

INFECTED = f"INFECTED {EICAR_NAME}"


def sockets_of(tv):
    """The network sockets of the service; it has others for the popups."""
    local = Path(f"/proc/{tv.process.pid}/net/unix").read_text().splitlines()
    others = {f"socket:[{line.split()[6]}]" for line in local[1:]}
    return [target for target in tv.descriptors().values()
            if target.startswith("socket:") and target not in others]


def wait_sockets(tv, count):
    wait_until(lambda: len(sockets_of(tv)) == count, lambda: f"{count} sockets; there are {sockets_of(tv)}")


def test_the_order_of_a_start(tv, connect):
    tv.start()
    connect("demo")
    lines = [line for line in tv.lines() if "Connected on socket" not in line[2]]
    assert lines.index(LISTENING) >= 3
    lines.remove(LISTENING)
    assert [line[1] for line in lines] == [
        "LoggerStarted", "CScanManager::loadSettings", "IOCScanManager::loadSettings",
        "CScanFile::initEngine", "CScanFile::loadDatabases",
        "FileMonitor::startMonitoring", "FileMonitor::startMonitoring"]
    assert lines[2] == ("TRACE", "IOCScanManager::loadSettings", "Settings loaded successfully.")


def test_a_request_during_the_start_is_answered_after_it(tv, connect, home, files):
    # So many directories that the walk takes a while.
    for outer in range(30):
        for inner in range(100):
            os.makedirs(home / str(outer) / str(inner))
    eicar = write_once(files / "eicar")
    tv.start(wait=False)
    client = connect()
    client.send("MODULE demo")
    tv.pause()
    assert "Watching: /media" not in [line.message for line in tv.log()], "the start was over too soon"
    assert not client.has_input()
    tv.resume()
    assert client.receive() == REGISTERED
    assert "Watching: /media" in [line.message for line in tv.log()]
    assert client.ask(f"SCAN {eicar}") == INFECTED


# ----------------------------------------------------------------------------------------- while one is busy


def test_a_long_scan_delays_the_others_and_loses_nothing(tv, connect, home, files, slow_file):
    unwatched = Unwatched()
    eicar = write_once(files / "eicar")
    tv.start()
    first = connect("first")
    others = [connect(f"other{number}") for number in range(2)]
    start_slow_scan(tv, first, slow_file)
    for client in others:
        client.send(f"SCAN {eicar}")
    path = unwatched.move_in(home / "eicar")
    assert is_open(tv, slow_file), "the scan was over too soon for this test"
    assert not any(client.has_input() for client in others)
    assert exists(path)

    sockets = [first.socket, *(client.socket for client in others)]
    ready = select.select(sockets, [], [], 60)[0]
    assert first.socket in ready
    assert first.receive() == "CLEAN"
    assert [client.receive() for client in others] == [INFECTED, INFECTED]
    wait_gone(path)
    served = [line[2].partition(":")[0] for line in tv.lines() if "Virus Found" in line[2]]
    assert sorted(served) == ["Virus Found[other0]", "Virus Found[other1]"]


def test_a_client_that_is_gone_is_still_served(tv, connect, files, slow_file):
    eicar = write_once(files / "eicar")
    tv.start()
    first = connect("first")
    second = connect("second")
    start_slow_scan(tv, first, slow_file)
    second.send(f"CLEAN {eicar}")
    second.close()
    assert is_open(tv, slow_file), "the scan was over too soon for this test"
    assert exists(eicar)
    assert first.receive() == "CLEAN"
    wait_gone(eicar)
    wait_sockets(tv, 2)
    assert first.ask("MODULE again") == REGISTERED


def test_a_client_that_resets_in_the_middle(tv, connect, files, slow_file):
    eicar = write_once(files / "eicar")
    tv.start()
    first = connect("first")
    second = connect("second")
    start_slow_scan(tv, first, slow_file)
    first.reset()
    assert tv.wait_log(*DISCONNECTED).code == errno.ECONNRESET
    assert is_open(tv, slow_file), "the scan was over too soon for this test"
    assert second.ask(f"SCAN {eicar}") == INFECTED
    wait_sockets(tv, 2)
    assert tv.count(*DISCONNECTED) == 1


def test_a_client_that_does_not_read_stops_nobody(tv, connect, home, files, small_send_buffers):
    unwatched = Unwatched()
    eicar = write_once(files / "eicar")
    tv.start()
    other = connect("other")
    # Not too small: the kernel drops even acknowledgements when there is no room for them.
    lazy = connect("lazy", receive_buffer=16384)
    with pytest.raises(OSError) as raised:
        # Each is a request with a reply; far more than what is kept for somebody who does not read.
        for _ in range(100000):
            lazy.send("A" * 4096)
    assert raised.value.errno in (errno.ECONNRESET, errno.EPIPE)
    assert other.ask(f"SCAN {eicar}") == INFECTED
    wait_gone(unwatched.move_in(home / "eicar"))
    tv.wait_log(*DISCONNECTED)
    # The one that listens, and the other's.
    wait_sockets(tv, 2)
    assert other.ask("MODULE again") == REGISTERED


def test_requests_and_file_events_at_the_same_time(tv, connect, home, files):
    unwatched = Unwatched()
    eicar = write_once(files / "eicar")
    clean = write_once(files / "clean", b"nothing")
    tv.start()
    client = connect("demo")
    paths = []
    for number in range(50):
        path = write_once(files / "target")
        paths.append(unwatched.move_in(home / f"file{number}"))
        assert client.ask(f"SCAN {eicar}") == INFECTED
        assert client.ask(f"CLEAN {path}") == "FAILED 0"
        assert client.ask(f"SCAN {clean}") == "CLEAN"
    # Both wait already when the service looks.
    tv.pause()
    client.send(f"SCAN {eicar}")
    paths.append(unwatched.move_in(home / "last"))
    tv.resume()
    assert client.receive() == INFECTED
    for path in paths:
        wait_gone(path)
    tv.settle()
    assert [record["filePath"] for record in tv.reports()] == [str(path) for path in paths]
    assert sum("Virus Found" in line.message for line in tv.log()) + sum(
        line.repeats for line in tv.log() if "Virus Found" in line.message) == 51
    assert len([line for line in tv.lines() if line in map(found, paths)]) == len(paths)


# ----------------------------------------------------------------------------------------------- many clients


def test_twenty_clients_at_once(tv, files):
    """All are served, however long the kernel takes to let them in; one in a second."""
    eicar = write_once(files / "eicar")
    tv.start()
    tv.wait_log(*LISTENING)
    gate = threading.Barrier(20)
    served = {}
    clients = []

    def be_a_client(number):
        gate.wait()
        client = Client(timeout=150)
        clients.append(client)
        served[number] = client.ask(f"MODULE client{number}"), client.ask(f"SCAN {eicar}")

    threads = [threading.Thread(target=be_a_client, args=(number,)) for number in range(20)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join(180)
    for client in clients:
        client.reset()
    assert served == dict.fromkeys(range(20), (REGISTERED, INFECTED))
    lines = connections(tv)
    assert len({descriptor_of(line) for line in lines}) == len(lines) == 20
    times = [seconds_of(line) for line in lines]
    for earlier, later in zip(times, times[1:]):
        # Midnight may lie between them. The log cuts off what is below a millisecond.
        assert (later - earlier) % 86400 > 0.998
    wait_until(lambda: tv.count(*DISCONNECTED) == 20, "all clients to go")


# --------------------------------------------------------------------------------------------------- the port


def test_a_second_instance_shares_the_port(tv, connect, home):
    other = Installation(fresh_directory() / "root")
    try:
        for installation in (tv, other):
            installation.start()
            installation.wait_log(*LISTENING)
            assert BIND_FAILED not in installation.lines()
        clients = []
        # The kernel gives each of them about a half.
        while not (connections(tv) and connections(other)):
            assert len(clients) < 30
            clients.append(connect(f"client{len(clients)}"))
        assert len(connections(tv)) + len(connections(other)) == len(clients)
        for client in clients:
            assert client.ask("NONSENSE") == INVALID
            client.reset()
    finally:
        other.close()
    other.check_log()


def test_the_port_is_taken(tv, connect, home):
    unwatched = Unwatched()
    with socket.socket() as holder:
        holder.bind(("0.0.0.0", PORT))
        holder.listen()
        tv.start()
        assert tv.wait_log(*BIND_FAILED).code == errno.EADDRINUSE
        assert LISTENING not in tv.lines()
        wait_gone(unwatched.move_in(home / "eicar"))
    client = connect("demo")
    assert client.ask("RELOADSETT") == "SUCCESS"
    failure = next(line for line in tv.log() if line.what() == BIND_FAILED)
    listening = tv.wait_log(*LISTENING)
    pause = (seconds_of(listening) - seconds_of(failure)) % 86400
    assert pause > 9.99 * tv.count(*BIND_FAILED)
    # One of each failure, the one that listens, and the client's.
    wait_sockets(tv, tv.count(*BIND_FAILED) + 2)


def test_a_client_that_cannot_be_accepted(tv, connect, home):
    """The listener starts anew; who waits meanwhile is told so by the kernel."""
    tv.start()
    first = connect("first")
    limit = tv.limit_descriptors(max(tv.descriptors()) + 1)
    victim = Client()
    try:
        # The listener has closed its own.
        wait_sockets(tv, 1)
        assert first.ask("MODULE still there") == REGISTERED
    finally:
        tv.limit_descriptors(limit)
        victim.reset()
    began = time.monotonic()
    assert connect().ask("MODULE second") == REGISTERED
    assert time.monotonic() - began < 20
    assert tv.count(*LISTENING) == 2


# ------------------------------------------------------------------------------------------------- the end


def nobody(tv, connect):
    tv.wait_log(*LISTENING)


def a_client_that_waits(tv, connect):
    connect("demo")
    # The pause after a connection is over when the next one is accepted, and that one's has just begun.
    connect("second")
    return lambda: len(connections(tv)) == 2


def in_the_accept_pause(tv, connect):
    connect("demo")
    # One more, whom nobody has accepted yet.
    connect()
    return lambda: len(connections(tv)) == 1


def in_the_retry_pause(tv, connect):
    tv.wait_log(*BIND_FAILED)
    return lambda: LISTENING not in tv.lines()


def a_client_that_talks(tv, connect):
    client = connect("demo")

    def talk():
        try:
            while client.ask("RELOADSETT"):
                pass
        except OSError:
            pass

    threading.Thread(target=talk, daemon=True).start()
    reload = "TRACE", "CScanManager::reloadSettings", "Reload settings called."
    wait_until(lambda: reload in tv.lines(), "the talk to begin")


@pytest.mark.parametrize("prepare", [nobody, a_client_that_waits, in_the_accept_pause, in_the_retry_pause,
                                     a_client_that_talks])
def test_ends_in_order(tv, connect, prepare):
    with socket.socket() as holder:
        if prepare is in_the_retry_pause:
            holder.bind(("0.0.0.0", PORT))
            holder.listen()
        tv.start()
        still = prepare(tv, connect)
        if still is not None:
            assert still(), "this came too late"
        began = time.monotonic()
        assert tv.end() == 0, tv.output()
        assert time.monotonic() - began < 2


def test_clients_are_told_of_the_end(tv, connect):
    tv.start()
    client = connect("demo")
    assert tv.end() == 0, tv.output()
    assert client.receive() == ""
