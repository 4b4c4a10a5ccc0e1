"""Clients that ask for more than anybody could answer, send anything, and leave at any moment."""

import concurrent.futures
import contextlib
import os
import random
import statistics
import threading
import time

from archives import write_slow_infected
from commandclient import DISCONNECTED, REGISTERED, is_open, start_slow_scan
from harness import EICAR_NAME, Unwatched, wait_gone, wait_until, write_once
from processes import kilobytes

INFECTED = f"INFECTED {EICAR_NAME}"

# The most that anybody else may wait: far less than for a client that never reads, and what a busy machine may need.
LONGEST = 5


def threads_of(tv):
    return len(os.listdir(f"/proc/{tv.process.pid}/task"))


def send_all_that_is_taken(client, message):
    """Until nobody takes any more for a moment."""
    client.socket.settimeout(0.5)
    with contextlib.suppress(TimeoutError):
        while True:
            client.socket.sendall(message)


def test_requests_that_nobody_serves_yet(tv, connect, files, report_figure):
    slow = write_slow_infected(files / "slow.zip", archives=20)
    tv.start()
    busy = connect("busy")
    clients = [connect(f"client{number}") for number in range(8)]
    start_slow_scan(tv, busy, slow)
    before = kilobytes(tv, "VmRSS")
    flood = [threading.Thread(target=send_all_that_is_taken, args=(client, b"SCAN /" + b"x" * 4090))
             for client in clients]
    for thread in flood:
        thread.start()
    for thread in flood:
        thread.join()
    each = (kilobytes(tv, "VmRSS") - before) / len(clients)
    assert is_open(tv, slow), "the scan was over too soon for this test"
    report_figure(f"a client that floods while nothing is served costs {each:.0f} kB")
    for client in clients:
        client.reset()
    assert busy.receive() == INFECTED
    # What the scan takes more lies in it, too.
    assert each < 500
    wait_until(lambda: tv.count(*DISCONNECTED) == len(clients), "all of them to be gone", 120)


def test_reloads_over_and_over(tv, connect, home, report_figure, long_form):
    seconds = 600 if long_form else 8
    unwatched = Unwatched()
    tv.start()
    clients = [connect() for _ in range(3)]
    stop = threading.Event()
    answered = []

    def read(client):
        with contextlib.suppress(OSError):
            while not stop.is_set():
                answered.append(client.receive())

    def flood(client):
        reader = threading.Thread(target=read, args=(client,), daemon=True)
        reader.start()
        with contextlib.suppress(OSError):
            while not stop.is_set():
                client.send("RELOADDB")

    floods = [threading.Thread(target=flood, args=(client,), daemon=True) for client in clients]
    for thread in floods:
        thread.start()
    wait_until(lambda: len(answered) > 20, "the first reloads")
    before = kilobytes(tv, "VmRSS")
    times = []
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        began = time.monotonic()
        wait_gone(unwatched.move_in(home / f"file{len(times)}"))
        times.append(time.monotonic() - began)
    grown = kilobytes(tv, "VmRSS") - before
    stop.set()
    for client in clients:
        client.reset()
    assert grown < 50000
    # Each waits for one reload, or a few.
    assert statistics.median(times) < 1 and max(times) < LONGEST, times
    report_figure(f"beside three clients that reload the databases without end ({len(answered)} replies), an infected"
                  f" file goes in {statistics.median(times) * 1000:.0f} ms (median), {max(times) * 1000:.0f} ms the"
                  f" longest; memory grew by {grown} kB")
    assert connect("after").ask("RELOADSETT") == "SUCCESS"


def go(client, eicar, noise):
    client.close()


def reset(client, eicar, noise):
    client.reset()


def ask_and_go(client, eicar, noise):
    for _ in range(20):
        client.send(f"SCAN {eicar}")
    client.close()


def ask_and_reset(client, eicar, noise):
    client.send("MODULE gone")
    client.send(f"SCAN {eicar}")
    client.reset()


def send_noise(client, eicar, noise):
    with contextlib.suppress(OSError):
        client.socket.sendall(noise)
    client.close()


def stop_sending(client, eicar, noise):
    client.send(noise[:100])
    client.socket.shutdown(1)
    while client.receive():
        pass
    client.close()


def never_read(client, eicar, noise):
    # It stays until the service has enough of it.
    with contextlib.suppress(OSError):
        send_all_that_is_taken(client, noise[:4096])


WAYS = [go, reset, ask_and_go, ask_and_reset, send_noise, stop_sending, never_read]


def test_clients_that_leave_in_all_ways(tv, connect, home, files, small_send_buffers, report_figure, long_form):
    unwatched = Unwatched()
    eicar = write_once(files / "eicar")
    clean = write_once(files / "clean", b"clean")
    tv.start()
    steady = connect("steady")
    number = random.Random(6)
    wait_gone(unwatched.move_in(home / "before"))
    assert steady.ask(f"SCAN {eicar}") == INFECTED
    opened, threads = tv.descriptors(), threads_of(tv)
    others = concurrent.futures.ThreadPoolExecutor(1)
    times = []
    rounds = 100 if long_form else 1
    for turn in range(rounds * len(WAYS)):
        other = others.submit(WAYS[turn % len(WAYS)], connect(receive_buffer=16384), eicar, number.randbytes(200000))
        is_over = False
        while not is_over:
            # Once more when it is over.
            is_over = other.done()
            began = time.monotonic()
            assert steady.ask(f"SCAN {clean}") == "CLEAN"
            assert steady.ask(f"SCAN {eicar}") == INFECTED
            times.append(time.monotonic() - began)
        other.result()
        wait_gone(unwatched.move_in(home / f"file{turn}"))
    gone = rounds * len(WAYS)
    wait_until(lambda: tv.count(*DISCONNECTED) == gone, "all of them to be gone")
    # The program that shows popups may have come or gone meanwhile.
    wait_until(lambda: len(tv.descriptors()) <= len(opened) + 2 and threads_of(tv) <= threads,
               lambda: f"{threads} threads and {opened}; there are {threads_of(tv)} and {tv.descriptors()}")
    assert statistics.median(times) < 1 and max(times) < LONGEST, times
    report_figure(f"beside {gone} clients that leave in {len(WAYS)} ways, two scans for another take"
                  f" {statistics.median(times) * 1000:.1f} ms (median), {max(times) * 1000:.0f} ms the longest")
    assert steady.ask("MODULE again") == REGISTERED
