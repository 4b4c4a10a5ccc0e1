"""The package on a Debian that has nothing but its base, without a running init."""

import difflib
import os
import shutil
import stat
from pathlib import Path

import machine
from files import MARK, OLDER, contents, description, install, provide_signatures, traces
from machine import EICAR, chroot, outside, run, wait_gone

HERE = Path(__file__).parent
SERVICE = "tvfilemon.service"


def test_installs_on_a_bare_debian():
    shutil.copy(machine.DEB, machine.ROOT)
    assert not traces()
    install(machine.other_version(OLDER), OLDER)


def test_runs_under_restrictions_by_hand():
    provide_signatures()
    service = machine.ByHand()
    try:
        service.wait_log("Watching: /media")
        user = service.path("/home/u")
        user.mkdir()
        service.wait_log("New Directory added: /home/u")
        (user / "eicar.com").write_bytes(EICAR)
        wait_gone(user / "eicar.com")
        assert [path.suffix for path in service.path("/var/lib/talvenor/quarantine").iterdir()] == [".tvq"]
        assert service.run("tvctl", "status", check=False).returncode in (0, 1)
        service.run("tvctl", "reload", "settings")
    finally:
        service.close()
    # Made by the service, and for root alone although nothing set its mask.
    assert stat.S_IMODE(os.stat(outside("/var/log/talvenor")).st_mode) == 0o700


def test_an_upgrade_keeps_what_is_there():
    places = ("/var/lib/talvenor/settings", "/var/lib/talvenor/quarantine")
    before = contents(*places)
    assert len(before) >= 2
    mine = outside("/etc/talvenor/port-users")
    mine.write_text("daemon\n")
    install(f"./{machine.DEB.name}")
    assert machine.installed_version() != OLDER
    after = contents(*places)
    assert {path: after[path] for path in before} == before
    assert mine.read_text() == "daemon\n"
    for place in places:
        assert stat.S_IMODE(os.stat(outside(place)).st_mode) == 0o700


def test_files_owners_and_modes():
    listed = chroot("dpkg-query", "--listfiles", "tvfilemon").stdout.split()
    common = {"/.", "/etc", "/etc/logrotate.d", "/lib", "/lib/systemd", "/lib/systemd/system", "/usr", "/usr/bin",
              "/usr/lib", "/usr/share", "/usr/share/doc", "/usr/share/man", "/usr/share/man/man1",
              "/usr/share/man/man8", "/usr/share/zsh", "/usr/share/bash-completion",
              "/usr/share/bash-completion/completions", "/usr/share/zsh/vendor-completions", "/var", "/var/lib",
              "/var/log"}
    # Documents are left out of machines that are made small.
    present = [description(path) for path in sorted(set(listed) - common) if not path.startswith("/usr/share/")]
    expected = (HERE / "files.txt").read_text().splitlines(keepends=True)
    difference = "".join(difflib.unified_diff(expected, present, "files.txt", "the package"))
    assert not difference, difference


def test_documents_and_completions_come_along():
    # They are left out of the machine, which is small. Messages name the first ones.
    listed = run(["dpkg-deb", "--contents", machine.DEB]).stdout
    for name in ("doc/tvfilemon/firewall.md", "doc/tvfilemon/fleet.md", "doc/tvfilemon/signatures.md",
                 "doc/tvfilemon/tvctl.md", "man/man1/tvctl.1.gz", "man/man8/tvfilemon.8.gz",
                 "bash-completion/completions/tvctl", "zsh/vendor-completions/_tvctl"):
        assert f" ./usr/share/{name}\n" in listed, (name, listed)


def test_units_are_tight():
    """The exposure at most, ten times what systemd shows. The update runs another user's program, and the sweep has to
    be seen by the service."""
    limits = {SERVICE: 25, "tvfilemon-export.service": 10, "tvfilemon-firewall.service": 20,
              "tvfilemon-full-sweep.service": 27, "tvfilemon-limits.service": 15, "tvfilemon-sweep.service": 27,
              "tvfilemon-update.service": 28}
    assert set(limits) == {path.name for path in outside("/lib/systemd/system").glob("tvfilemon*.service")}
    for unit, limit in limits.items():
        result = chroot("systemd-analyze", "security", "--offline=yes", f"--threshold={limit}", "--no-pager",
                        f"/lib/systemd/system/{unit}", check=False)
        assert result.returncode == 0, result.stdout


def test_units_are_understood():
    units = [f"/lib/systemd/system/{path.name}" for path in outside("/lib/systemd/system").glob("tvfilemon*")]
    assert f"/lib/systemd/system/{SERVICE}" in units
    # Of the machine's own units it may complain.
    result = chroot("systemd-analyze", "verify", "--man=no", *units, check=False)
    assert "tvfilemon" not in result.stdout, result.stdout


def test_limits_are_raised_and_never_lowered(tmp_path):
    """On files that stand for the kernel's: the real ones are those of the machine that runs the tests."""
    limits = tmp_path / "fs" / "inotify"
    limits.mkdir(parents=True)
    names = ("max_user_watches", "max_queued_events", "max_user_instances")

    def results(program="tvfilemon-limits.conf", **present):
        for name in names:
            (limits / name).write_text(f"{present[name]}\n")
        result = run([outside("/usr/lib/Talvenor/lib/tvfilemon-limits"), outside(f"/usr/lib/Talvenor/lib/{program}"),
                      tmp_path], check=False)
        return result.returncode, [int((limits / name).read_text()) for name in names]

    kernel = {"max_user_watches": 68000, "max_queued_events": 16384, "max_user_instances": 128}
    assert results(**kernel) == (0, [524288, 262144, 512])
    large = {"max_user_watches": 1048576, "max_queued_events": 16384, "max_user_instances": 8192}
    assert results(**large) == (0, [1048576, 262144, 8192])
    # What it cannot compare it leaves alone, and says so.
    strange = {"max_user_watches": 68000, "max_queued_events": 16384, "max_user_instances": "99999999999999999999"}
    assert results(**strange) == (1, [524288, 262144, 99999999999999999999])


def test_a_root_made_by_hand_is_not_mixed_in():
    chroot("apt-get", "remove", "--yes", "tvfilemon")
    assert outside("/var/lib/talvenor/settings").is_dir()
    by_hand = outside("/usr/lib/Talvenor/settings")
    by_hand.mkdir(parents=True)
    result = chroot("apt-get", "install", "--yes", f"./{machine.DEB.name}", check=False)
    assert result.returncode != 0 and "/usr/lib/Talvenor/settings is there already" in result.stdout
    by_hand.rmdir()
    by_hand.parent.rmdir()
    install(f"./{machine.DEB.name}")


def test_a_purge_keeps_the_quarantine_on_request():
    outside(MARK).write_bytes(b"kept")
    os.chmod(outside(MARK), 0o400)
    outside("/etc/talvenor/keep-quarantine").touch()
    chroot("apt-get", "purge", "--yes", "tvfilemon")
    kept = {"/var/lib/talvenor", "/var/lib/talvenor/quarantine"}
    assert {path for path in traces() if not path.startswith("/var/lib/talvenor/quarantine/")} == kept
    assert outside(MARK).read_bytes() == b"kept"
    assert stat.S_IMODE(os.stat(outside("/var/lib/talvenor/quarantine")).st_mode) == 0o700
