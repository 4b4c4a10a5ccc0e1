"""Who gets through to the command port of a machine that runs the package as it is."""

import os
import shutil
import subprocess

import pytest

from machine import Network, run, wait_until

REQUEST = "SCANURL http://localhost/"
GUARD = "tvfilemon-firewall.service"
# Of no user in particular.
USER = "1234"
HERE_ADDRESS, OTHER_ADDRESS = "192.0.2.1", "192.0.2.2"


def connects(booted, user, address="127.0.0.1"):
    """Whether somebody on the machine gets a connection; what is said when not is one thing."""
    result = booted.run("setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", "timeout", "5",
                        "bash", "-c", f"exec 3<>/dev/tcp/{address}/8889", check=False)
    assert result.returncode == 0 or "Connection refused" in result.stdout, result.stdout
    return result.returncode == 0


@pytest.fixture(scope="module")
def neighbour(booted):
    """Another machine, on a wire to the booted one."""
    process = subprocess.Popen(["unshare", "--net", "--kill-child", "sleep", "infinity"])
    network = Network(process.pid)
    try:
        wait_until(lambda: not os.path.samefile(f"/proc/{process.pid}/ns/net", "/proc/self/ns/net"), "a network")
        run(["ip", "link", "add", "wire", "netns", str(booted.leader), "type", "veth",
             "peer", "name", "wire", "netns", str(process.pid)])
        for number, address in ((booted.leader, HERE_ADDRESS), (process.pid, OTHER_ADDRESS)):
            for command in (f"address add {address}/24 dev wire", "link set wire up"):
                run(["nsenter", f"--target={number}", "--net", "ip", *command.split()])
        yield network
    finally:
        process.kill()
        process.wait()


def refused(network, address):
    with pytest.raises(OSError):
        network.ask(REQUEST, address=address, timeout=2)


def test_root_is_let_in_and_others_are_not(booted):
    assert booted.ask(REQUEST) == ["CLEAN"]
    assert connects(booted, "0") and not connects(booted, USER) and not connects(booted, USER, "127.1.2.3")


def test_a_listed_user_is_let_in_until_he_is_taken_off(booted):
    users = booted.path("/etc/talvenor/port-users")
    before = users.read_text()
    users.write_text(f"{before}{USER}\n")
    booted.run("systemctl", "reload", GUARD)
    assert connects(booted, USER) and not connects(booted, "1235")
    users.write_text(before)
    booted.run("systemctl", "reload", GUARD)
    assert not connects(booted, USER)


def test_only_this_machine_reaches_the_port(booted, neighbour):
    refused(neighbour, HERE_ADDRESS)
    # Not even by its own address, by which the service would answer to the wire.
    refused(booted, HERE_ADDRESS)
    assert booted.ask(REQUEST) == ["CLEAN"]


def test_each_of_the_two_guards_holds_without_the_other(booted, neighbour):
    """The address rules of the unit alone, and the table alone."""
    addresses = booted.path("/etc/talvenor/port-addresses")
    before = addresses.read_text()
    drop_in = booted.path("/etc/systemd/system/tvfilemon.service.d/addresses.conf")
    try:
        addresses.write_text(f"{before}{OTHER_ADDRESS}\n")
        booted.run("systemctl", "reload", GUARD)
        refused(neighbour, HERE_ADDRESS)
        # As it is documented, both are opened.
        drop_in.parent.mkdir()
        drop_in.write_text(f"[Service]\nIPAddressAllow={OTHER_ADDRESS}\n")
        booted.run("systemctl", "daemon-reload")
        booted.restart()
        assert neighbour.ask(REQUEST, address=HERE_ADDRESS) == ["CLEAN"]
        addresses.write_text(before)
        booted.run("systemctl", "reload", GUARD)
        refused(neighbour, HERE_ADDRESS)
    finally:
        addresses.write_text(before)
        shutil.rmtree(drop_in.parent, ignore_errors=True)
        booted.run("systemctl", "daemon-reload")
        booted.run("systemctl", "reload", GUARD)
        booted.restart()


@pytest.mark.parametrize("commands", [
    ["enable --now"], ["start", "start"], ["start", "stop"], ["start", "restart"], ["start"] + ["reload"] * 5])
def test_the_rules_of_debian_do_not_open_the_port(booted, commands):
    """Each of these deletes all tables."""
    try:
        for command in commands:
            booted.run("systemctl", *command.split(), "nftables.service")
            assert not connects(booted, USER), command
            assert booted.is_active(GUARD)
    finally:
        booted.run("systemctl", "disable", "--now", "nftables.service")
    assert not connects(booted, USER)


def test_the_guard_is_up_before_the_service_starts(booted):
    """Also at a boot, which both are started by."""
    booted.restart()
    guarded = int(booted.property(GUARD, "ActiveEnterTimestampMonotonic"))
    started = int(booted.property("tvfilemon.service", "InactiveExitTimestampMonotonic"))
    assert 0 < guarded < started, (guarded, started)
    wanted = booted.run("systemctl", "show", "--property=Wants,Upholds", "tvfilemon.service", "multi-user.target").stdout
    assert GUARD in wanted and "tvfilemon.service" in wanted, wanted


def test_a_restart_of_the_guard_does_not_open_the_port(booted):
    drop_in = booted.path(f"/run/systemd/system/{GUARD}.d")
    drop_in.mkdir(parents=True)
    # Time to look.
    (drop_in / "slow.conf").write_text("[Service]\nExecStartPre=/bin/sleep 3\n")
    booted.run("systemctl", "daemon-reload")
    try:
        booted.run("systemctl", "restart", "--no-block", GUARD)
        wait_until(lambda: booted.property(GUARD, "SubState") == "start-pre", "the guard to be down")
        assert not connects(booted, USER)
        assert booted.property(GUARD, "SubState") == "start-pre"
    finally:
        shutil.rmtree(drop_in)
        booted.run("systemctl", "daemon-reload")
    wait_until(lambda: booted.is_active(GUARD), "the guard")


def test_the_guard_cannot_be_stopped_alone(booted):
    booted.run("systemctl", "stop", GUARD)
    wait_until(lambda: booted.is_active(GUARD), "the guard")
    assert not connects(booted, USER)


def test_the_guard_goes_and_comes_with_the_service(booted):
    booted.run("systemctl", "stop", "tvfilemon.service")
    wait_until(lambda: "tvfilemon" not in booted.run("nft", "list", "tables").stdout, "the table to go")
    assert not booted.is_active(GUARD)
    booted.restart()
    assert booted.is_active(GUARD) and not connects(booted, USER)
