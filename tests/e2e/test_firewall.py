"""The guard of the command port: who gets through to it, and what its files can and cannot do."""

import errno
import json
import os
import shutil
import socket
import subprocess
import sys

import pytest

from harness import BASE, EICAR, EICAR_NAME, TIMEOUT, fresh_directory, wait_until

PORT, OTHER_PORT = 8889, 8890
LISTED, UNLISTED = 1234, 4321
# In the user database of every Debian.
LISTED_NAME, LISTED_NAME_NUMBER = "daemon", 1

# Connects, sends a line, and tells what came back or the number of the error.
ASK = """
import socket, sys
try:
    with socket.create_connection((sys.argv[1], int(sys.argv[2])), timeout=float(sys.argv[3])) as connection:
        connection.sendall(b"hello")
        print(connection.recv(16).decode())
except OSError as error:
    print(error.errno or "nothing")
"""

# Sends a lot and goes: the system sends the rest for a socket that nobody owns any more.
SEND_AND_GO = """
import socket, sys
connection = socket.create_connection(("127.0.0.1", int(sys.argv[1])))
connection.setblocking(False)
sent = 0
try:
    while True:
        sent += connection.send(bytes(65536))
except BlockingIOError:
    print(sent)
"""


def python(script, *arguments, user=0, prefix=()):
    result = subprocess.run([*prefix, sys.executable, "-c", script, *map(str, arguments)], user=user, group=user,
                            extra_groups=[], cwd="/", stdout=subprocess.PIPE, check=True, timeout=TIMEOUT)
    return result.stdout.decode().strip()


def ask(user=0, address="127.0.0.1", port=PORT, prefix=(), timeout=TIMEOUT):
    """What somebody gets to hear at the port; the number of the error when he gets nothing."""
    answer = python(ASK, address, port, timeout, user=user, prefix=prefix)
    return int(answer) if answer.isdigit() else answer


REFUSED = errno.ECONNREFUSED


def rules():
    result = subprocess.run(["nft", "-j", "list", "ruleset"], stdout=subprocess.PIPE, check=True)
    return [entry for entry in json.loads(result.stdout)["nftables"] if "metainfo" not in entry]


def tables():
    return [entry["table"]["name"] for entry in rules() if "table" in entry]


def in_set(name):
    """The elements of a set of the table, as nft writes them."""
    result = subprocess.run(["nft", "-j", "-N", "list", "set", "inet", "tvfilemon", name], stdout=subprocess.PIPE,
                            check=True)
    found = next(entry["set"] for entry in json.loads(result.stdout)["nftables"] if "set" in entry)
    return found.get("elem", [])


def refused_packets(chain):
    return sum(part["counter"]["packets"] for entry in rules() if entry.get("rule", {}).get("chain") == chain
               for part in entry["rule"]["expr"] if "counter" in part)


class Guard:
    def __init__(self, program):
        self.program = program
        self.config = fresh_directory()

    def run(self, action, status=0, path="/usr/sbin:/usr/bin", **options):
        """Runs it; the result is the lines that it wrote."""
        result = subprocess.run([self.program, "--config", self.config, action], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, env={"PATH": path}, check=False,
                                timeout=TIMEOUT, **options)
        assert result.returncode == status, result
        return os.fsdecode(result.stdout).splitlines()

    def users(self, content):
        file = self.config / "port-users"
        file.write_bytes(content if isinstance(content, bytes) else content.encode())
        return file

    def addresses(self, content):
        file = self.config / "port-addresses"
        file.write_text(content)
        return file


@pytest.fixture
def guard(tv):
    """The program that guards, on a machine that has users besides root."""
    identities = open("/proc/self/uid_map", encoding="ascii").read()
    assert len(identities.splitlines()) > 1, "needs users besides root: be root, or install uidmap"
    made = Guard(tv.root / "bin" / "tvfilemon-firewall")
    assert tables() == []
    yield made
    made.run("stop")
    assert tables() == []


def test_is_closed_before_a_name_is_looked_up(guard):
    """A directory server that does not answer, and a start that is given up."""
    guard.users("somebody\n")
    directory = fresh_directory()
    asked = directory / "asked"
    program = directory / "getent"
    program.write_text(f"#!/bin/sh\n: >{asked}\nexec sleep 1000\n")
    program.chmod(0o755)
    for action in ("start", "reload"):
        subprocess.run(["nft", "flush", "ruleset"], check=True)
        process = subprocess.Popen([guard.program, "--config", guard.config, action], start_new_session=True,
                                   env={"PATH": f"{directory}:/usr/sbin:/usr/bin"}, stdin=subprocess.DEVNULL)
        wait_until(asked.exists, "the directory server to be asked")
        os.killpg(process.pid, 9)
        process.wait()
        assert tables() == ["tvfilemon"] and in_set("users") == [0]
        asked.unlink()


class Listener:
    """Answers every line on a port, on all addresses."""

    ANSWER = """
import socket, sys, threading
def answer(connection):
    while data := connection.recv(65536):
        connection.sendall(b"welcome")
server = socket.create_server(("", int(sys.argv[1])), family=socket.AF_INET6, dualstack_ipv6=True)
print("ready", flush=True)
while True:
    threading.Thread(target=answer, args=(server.accept()[0],), daemon=True).start()
"""

    def __init__(self, port):
        self.process = subprocess.Popen([sys.executable, "-c", self.ANSWER, str(port)], stdout=subprocess.PIPE)
        assert self.process.stdout.readline() == b"ready\n"

    def close(self):
        self.process.kill()
        self.process.communicate()


@pytest.fixture
def listener():
    listeners = [Listener(port) for port in (PORT, OTHER_PORT)]
    yield
    for made in listeners:
        made.close()


class Neighbour:
    """Another machine, on a cable of its own."""

    HERE, THERE, HERE_6, THERE_6 = "192.0.2.1", "192.0.2.2", "2001:db8::1", "2001:db8::2"

    def __init__(self):
        self._process = subprocess.Popen(["unshare", "--net", "sh", "-c", "echo; exec sleep infinity"],
                                         stdout=subprocess.PIPE)
        self._process.stdout.readline()
        self.prefix = ["nsenter", f"--net=/proc/{self._process.pid}/ns/net"]
        self._ip("link", "add", "here", "type", "veth", "peer", "name", "there", "netns", str(self._process.pid))
        for name, address, address_6, prefix in (("here", self.HERE, self.HERE_6, []),
                                                 ("there", self.THERE, self.THERE_6, self.prefix)):
            self._ip("address", "add", f"{address}/24", "dev", name, prefix=prefix)
            self._ip("address", "add", f"{address_6}/64", "dev", name, "nodad", prefix=prefix)
            self._ip("link", "set", name, "up", prefix=prefix)

    def _ip(self, *arguments, prefix=()):
        subprocess.run([*prefix, "ip", *arguments], check=True)

    def ask(self, **options):
        return ask(prefix=self.prefix, **options)

    def close(self):
        self._ip("link", "delete", "here")
        self._process.kill()
        self._process.communicate()


@pytest.fixture
def neighbour():
    made = Neighbour()
    yield made
    made.close()


# ------------------------------------------------------------------------------------------------- users


def test_only_root_without_a_list(guard, listener):
    assert ask(UNLISTED) == "welcome"
    guard.run("start")
    assert ask() == "welcome"
    assert ask(UNLISTED) == REFUSED
    guard.run("stop")
    assert ask(UNLISTED) == "welcome"


def test_listed_users(guard, listener):
    guard.users(f"# who may\n{LISTED_NAME}\n  {LISTED} # a number\n")
    assert guard.run("start") == []
    assert [ask(user) for user in (0, LISTED, LISTED_NAME_NUMBER)] == ["welcome"] * 3
    assert ask(UNLISTED) == REFUSED


@pytest.mark.parametrize("address", ["127.0.0.1", "127.8.8.9", "::1", Neighbour.HERE, Neighbour.HERE_6])
def test_no_way_round_by_another_address(guard, listener, neighbour, address):
    guard.run("start")
    assert ask(address=address) == "welcome"
    assert ask(UNLISTED, address) == REFUSED


def test_other_ports_and_tables_are_left_alone(guard, listener, neighbour):
    subprocess.run(["nft", "add table inet other; add chain inet other c; add rule inet other c accept"], check=True)
    before = rules()
    try:
        guard.run("start")
        assert ask(UNLISTED, port=OTHER_PORT) == "welcome"
        assert neighbour.ask(address=neighbour.HERE, port=OTHER_PORT) == "welcome"
        assert all(entry in rules() for entry in before)
        guard.run("stop")
        assert rules() == before
    finally:
        subprocess.run(["nft", "delete table inet other"], check=True)


def test_who_is_taken_off_the_list_loses_his_connections(guard, listener):
    guard.users(f"{LISTED}\n")
    guard.run("start")
    talk = """
import socket, sys
connection = socket.create_connection(("127.0.0.1", int(sys.argv[1])))
for line in sys.stdin:
    connection.sendall(b"hello")
    print(connection.recv(16).decode(), flush=True)
"""
    process = subprocess.Popen([sys.executable, "-c", talk, str(PORT)], user=LISTED, group=LISTED, extra_groups=[],
                               cwd="/", stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    process.stdin.write(b"\n")
    process.stdin.flush()
    assert process.stdout.readline() == b"welcome\n"
    guard.users("")
    guard.run("reload")
    output, errors = process.communicate(b"\n", timeout=TIMEOUT)
    assert b"ConnectionResetError" in errors and output == b"", (output, errors)


def test_the_end_of_a_connection_needs_no_owner(guard):
    guard.users(f"{LISTED}\n")
    guard.run("start")
    with socket.create_server(("127.0.0.1", PORT)) as server:
        sent = int(python(SEND_AND_GO, PORT, user=LISTED))
        server.settimeout(TIMEOUT)
        connection = server.accept()[0]
        connection.settimeout(TIMEOUT)
        with connection:
            received = 0
            while data := connection.recv(1 << 20):
                received += len(data)
    assert received == sent


def test_the_service_behind_it(guard, tv, tvctl):
    guard.users(f"{LISTED}\n")
    guard.run("start")
    tv.start()
    assert tvctl.run("url", EICAR.decode(), status=1).lines() == [f"{EICAR.decode()}: infected, {EICAR_NAME}"]
    talk = """
import socket, sys
connection = socket.create_connection(("127.0.0.1", 8889))
connection.sendall(b"MODULE demo")
print(connection.recv(4096).decode())
"""
    assert python(talk, user=LISTED) == "REGISTERED!"
    assert ask(UNLISTED) == REFUSED


# --------------------------------------------------------------------------------------------- addresses


def test_other_machines_are_refused(guard, listener, neighbour):
    for address in (neighbour.HERE, neighbour.HERE_6):
        assert neighbour.ask(address=address) == "welcome"
        guard.run("start")
        # It hears nothing, not even that; the counter tells that the question came.
        assert neighbour.ask(address=address, timeout=0.3) == "nothing"
        assert refused_packets("remote") > 0
        assert neighbour.ask(address=address, port=OTHER_PORT) == "welcome"
        guard.run("stop")


@pytest.mark.parametrize("line", [Neighbour.THERE, "192.0.2.0/24", "0.0.0.0/0", "192.0.2.7/24"])
def test_an_address_that_is_let_in(guard, listener, neighbour, line):
    guard.addresses(f"# the office\n198.51.100.0/24\n{line}\n")
    assert guard.run("start") == []
    assert neighbour.ask(address=neighbour.HERE) == "welcome"
    assert neighbour.ask(address=neighbour.HERE_6, timeout=0.3) == "nothing"
    # For other machines only: their users are not known here.
    assert ask(UNLISTED) == REFUSED
    guard.addresses("198.51.100.0/24\n")
    guard.run("reload")
    assert neighbour.ask(address=neighbour.HERE, timeout=0.3) == "nothing"


# ------------------------------------------------------------------------------------------------- files


BAD_USERS = ["no-such-user", "}; flush ruleset", "0-4294967295", "4294967295", "99999999999999999999", "010", "-1",
             "--help", "-x", "12 13", "$(id)", "`id`", "*", "1;2", "0x4d2", "+1", "../passwd", "daemon:", "a" * 5000]


def test_bad_lines_are_told_and_change_nothing_else(guard):
    guard.users("\n".join([str(LISTED), *BAD_USERS, LISTED_NAME]))
    lines = guard.run("start")
    assert [int(line.split(":")[2]) for line in lines] == list(range(2, len(BAD_USERS) + 2))
    assert all(line.endswith("; left out") for line in lines)
    assert in_set("users") == [0, LISTED_NAME_NUMBER, LISTED]
    assert guard.run("check", status=1) == lines


BAD_ADDRESSES = ["::1", "2001:db8::/32", "example.org", "256.0.0.1", "1.2.3", "1.2.3.4/33", "1.2.3.4/", "1.2.3.4/08",
                 "01.2.3.4", "1.2.3.4, 5.6.7.8", "1.2.3.4-5.6.7.8", "1.2.3.4 }", "0.0.0.0/0; drop"]


def test_bad_addresses_are_told_and_change_nothing_else(guard):
    guard.addresses("\n".join(["198.51.100.1", *BAD_ADDRESSES, "10.0.0.0/8", "10.1.0.0/16"]))
    lines = guard.run("start")
    assert [int(line.split(":")[2]) for line in lines] == list(range(2, len(BAD_ADDRESSES) + 2))
    assert in_set("addresses") == [{"prefix": {"addr": "10.0.0.0", "len": 8}}, "198.51.100.1"]


@pytest.mark.parametrize("content, numbers", [
    (b"", [0]),
    (b"0\n0\n1234\n1234\n", [0, LISTED]),
    (b"1234", [0, LISTED]),
    (b"1234\r\ndaemon\r\n", [0, LISTED_NAME_NUMBER, LISTED]),
    (b"\t1234\t# him\n\n#daemon\n", [0, LISTED]),
    # Without its zero byte it would be another user.
    (b"12\x0034\n1\n", [0, LISTED_NAME_NUMBER]),
    (b"\xff\xfe1\x002\x003\x004\x00\n", [0]),
    (bytes(range(256)), [0]),
])
def test_contents_of_the_list(guard, content, numbers):
    guard.users(content)
    guard.run("start")
    assert in_set("users") == numbers


def test_a_long_list(guard):
    numbers = [*range(0, 4000, 2)]
    guard.users("".join(f"{number}\n" for number in numbers * 2))
    assert guard.run("start") == []
    assert in_set("users") == numbers


@pytest.mark.parametrize("action", ["start", "reload"])
def test_only_root_when_the_lists_cannot_be_loaded(guard, files, action):
    """As with lists that are too long for the kernel."""
    guard.addresses("198.51.100.1\n")
    if action == "reload":
        guard.run("start")
    guard.users(f"{LISTED}\n")
    program = files / "nft"
    program.write_text(f"""#!/bin/bash
        rules=$(cat)
        [[ $rules != *{LISTED}* ]] && /usr/sbin/nft "$@" <<<"$rules"
        """)
    program.chmod(0o755)
    lines = guard.run(action, status=1, path=f"{files}:/usr/sbin:/usr/bin")
    assert len(lines) == 1 and "only root may use the port now" in lines[0]
    assert (in_set("users"), in_set("addresses")) == ([0], [])


def test_a_list_that_others_can_write_to_is_left_out(guard):
    file = guard.users(f"{LISTED}\n")
    for spoil in (lambda: file.chmod(0o664), lambda: file.chmod(0o646),
                  lambda: (file.chmod(0o644), os.chown(file, LISTED, 0))):
        spoil()
        assert ["others than root can write to it" in line for line in guard.run("start")] == [True]
        assert in_set("users") == [0]
    os.chown(file, 0, 0)
    assert guard.run("reload") == []
    assert in_set("users") == [0, LISTED]


def test_what_is_no_file_is_left_out(guard):
    (guard.config / "port-users").mkdir()
    os.mkfifo(guard.config / "port-addresses")
    assert len(guard.run("start")) == 2
    assert in_set("users") == [0]


def test_the_files_of_the_package(guard):
    """Comments only."""
    for name in ("port-users", "port-addresses"):
        shutil.copy(BASE / "packaging" / "firewall" / name, guard.config)
    assert guard.run("start") == []
    assert (in_set("users"), in_set("addresses")) == ([0], [])


def test_again_and_again(guard):
    guard.users(f"{LISTED}\n")
    guard.run("check")
    assert tables() == []
    guard.run("start")
    once = subprocess.check_output(["nft", "list", "ruleset"])
    guard.run("start")
    guard.run("reload")
    assert subprocess.check_output(["nft", "list", "ruleset"]) == once
    guard.run("check")
    assert tables() == ["tvfilemon"]
    guard.run("stop")
    guard.run("stop")
    assert tables() == []


def test_without_the_right_to_do_it(guard):
    guard.run("start")
    before = rules()
    for action in ("start", "stop"):
        assert guard.run(action, status=1, user=UNLISTED, group=UNLISTED, extra_groups=[]) != []
    assert rules() == before


@pytest.mark.parametrize("arguments", [[], ["begin"], ["start", "now"], ["--config", "/"]])
def test_usage(guard, arguments):
    result = subprocess.run([guard.program, *arguments], stderr=subprocess.PIPE, check=False)
    assert result.returncode == 2 and result.stderr.startswith(b"usage: ")
