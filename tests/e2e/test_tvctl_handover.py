"""What `tvctl scan` and `tvctl sweep` hand to the service, while others change the tree."""

import os
import resource
import subprocess
import time

import pytest

from harness import EICAR_NAME, exists, quarantine_name, wait_until, write_once
from tool import KEPT_CHANGE_TIMES, WITHOUT_PRIVILEGES, Tool

CLEAN = b"nothing in here"

BY_PATH = ("tvctl: tvfilemon cannot be handed open files from here; they are scanned by their paths, which others may "
           "change meanwhile\n")

# As the unit has it, and with the /proc that the unit gives it.
CONFINED = ["/usr/bin/unshare", "--mount", "/bin/sh", "-ec",
            "mount -n -t proc -o hidepid=invisible,subset=pid proc /proc; exec \"$@\"", "sh", "/usr/bin/setpriv",
            "--bounding-set=-all,+dac_override,+fowner,+setuid,+setgid,+kill", "--inh-caps=-all", "--no-new-privs"]

COMMANDS = [["scan", "--clean"], ["sweep"]]


@pytest.fixture
def tvctl(tv):
    return Tool(tv, KEPT_CHANGE_TIMES)


@pytest.fixture
def confined(tv):
    """The service with what the unit leaves it."""
    return lambda: tv.start(command=[*CONFINED, tv.root / "bin" / "tvfilemon"])


@pytest.fixture
def fake_service(tv, impostor):
    tv.configure()
    return lambda *replies, **options: impostor("REGISTERED!", *replies, **options)


def capabilities(process, kind):
    """The set of that kind, as the kernel writes it."""
    with open(f"/proc/{process}/status", encoding="ascii") as status:
        return int(dict(line.split(":\t") for line in status if ":\t" in line)[f"Cap{kind}"], 16)


# ------------------------------------------------------------------------------------- directories exchanged


@pytest.mark.parametrize("command", COMMANDS)
def test_a_directory_that_becomes_a_link_leads_nobody_elsewhere(tvctl, home, files, fake_service, command):
    for directory in (home / "d", files / "precious"):
        directory.mkdir()
        write_once(directory / "bad")

    def exchange(_request):
        os.rename(home / "d", home / "away")
        os.symlink(files / "precious", home / "d")
        return "INFECTED X"

    def remove(request):
        # By the name that it is told, as the service does.
        os.unlink(request.partition(b" ")[2])
        return "FAILED 0"

    fake_service(exchange, remove)
    document = tvctl.json(*command, home, status=1)
    assert document["removed"] == 1 and document["detections"][0]["path"] == f"{home}/d/bad"
    assert exists(files / "precious/bad") and not exists(home / "away/bad")


@pytest.mark.parametrize("command", COMMANDS)
def test_another_file_of_the_name_is_left_alone(tvctl, home, fake_service, command):
    bad = write_once(home / "bad")

    def exchange(_request):
        os.rename(bad, home / "away")
        write_once(bad, CLEAN)
        return "INFECTED X"

    service = fake_service(exchange)
    found = tvctl.json(*command, bad, status=1)["detections"][0]
    assert (found["action"], found["detail"]) == ("not removed", "not removed: another file has its name by now")
    assert len(service.requests) == 2 and exists(bad)


def test_a_directory_that_is_exchanged_hides_nothing(tvctl, home, fake_service):
    for directory, content in (("d", EICAR_NAME.encode()), ("other", CLEAN)):
        (home / directory).mkdir()
        for name in ("1", "2"):
            write_once(home / directory / name, content)

    def exchange(_request):
        os.rename(home / "d", home / "away")
        os.rename(home / "other", home / "d")
        return "CLEAN"

    service = fake_service(exchange, "CLEAN")
    tvctl.json("sweep", home)
    # What the walk stands at, not what has its path by then.
    assert service.requests[2] == os.fsencode(f"SCAN {home}/away/2")


# ------------------------------------------------------------------------------------------ with the service


@pytest.mark.parametrize("command", COMMANDS)
def test_a_confined_service(tv, tvctl, home, confined, command):
    bad = write_once(home / "bad")
    write_once(home / "good", CLEAN)
    confined()
    assert capabilities(tv.process.pid, "Prm") == 1 << 1 | 1 << 3 | 1 << 5 | 1 << 6 | 1 << 7
    result = tvctl.run(*command, home, status=1)
    assert f"{bad}: {EICAR_NAME} - removed; its copy is in the quarantine" in result.lines()
    assert result.errors == "" and not exists(bad)
    [copy] = tv.quarantined()
    assert quarantine_name(bad).fullmatch(copy)


def test_the_copy_tells_where_it_comes_from(tv, tvctl, home, confined):
    bad = write_once(home / "bad")
    os.chmod(bad, 0o751)
    confined()
    tvctl.json("sweep", status=1)
    [entry] = tvctl.json("quarantine", "list")["copies"]
    assert (entry["path"], entry["virus"]) == (str(bad), EICAR_NAME)
    [copy] = tv.quarantine.iterdir()
    assert b"mode=0751" in os.getxattr(copy, "user.tvfilemon.original")


def test_capabilities_are_dropped(tvctl, home, fake_service):
    write_once(home / "file", CLEAN)
    seen = []

    def look(_request):
        [process] = [pid for pid in filter(str.isdigit, os.listdir("/proc")) if is_tool(pid)]
        seen.extend(capabilities(process, kind) for kind in ("Prm", "Eff", "Inh"))
        return "CLEAN"

    fake_service(look)
    tvctl.run("scan", home)
    dac_override = 1 << 1
    assert seen == [dac_override, dac_override, 0]


def is_tool(pid):
    try:
        return os.readlink(f"/proc/{pid}/exe").endswith("/bin/tvctl")
    except OSError:
        return False


@pytest.mark.parametrize("command", ["scan", "sweep"])
def test_a_file_with_many_names_is_scanned_once(tv, tvctl, home, files, fake_service, command):
    first = write_once(files / "first", CLEAN)
    (home / "names").mkdir()
    for number in range(20):
        os.link(write_once(home / "names/0", CLEAN) if number == 0 else home / "names/0", home / f"names/{number}x")
    write_once(home / "single", CLEAN)
    changed = os.stat(home / "names/0").st_ctime
    wait_until(lambda: time.time() > changed + 3.1, "the clock")
    service = fake_service("CLEAN")
    document = tvctl.json(command, home)
    assert document["files"] == 22 and len(service.requests) == 1 + 2
    assert exists(first)


@pytest.mark.parametrize("action, removed", [(None, 3), (0, 0)])
def test_each_name_of_an_infected_file(tv, tvctl, home, action, removed):
    bad = write_once(home / "bad")
    for name in ("bad2", "bad3"):
        os.link(bad, home / name)
    if action is not None:
        tv.configure(action=action)
    tv.start()
    document = tvctl.json("sweep", status=1)
    assert (document["infected"], document["removed"]) == (3, removed)
    assert [found["path"] for found in document["detections"]] == [f"{home}/{name}" for name in ("bad", "bad2", "bad3")]


# ----------------------------------------------------------------------- a service that reaches no descriptor


def test_a_scan_by_path(tvctl, home, files, fake_service):
    bad = write_once(home / "bad")
    fake_service("INFECTED X", reaches=False)
    result = tvctl.run("scan", home, status=1)
    assert result.errors == BY_PATH and result.lines()[0] == f"{bad}: X"


@pytest.mark.parametrize("mode, owner, says", [
    (0o1777, 0, "others may write in {} and could have another file in its place"),
    (0o770, 0, "others may write in {} and could have another file in its place"),
    (0o755, 1, "{} belongs to somebody else, who could have another file in its place"),
])
def test_nothing_is_removed_by_a_path_that_others_may_change(tvctl, home, fake_service, mode, owner, says):
    bad = write_once(home / "bad")
    os.chown(home, owner, -1)
    os.chmod(home, mode)
    service = fake_service("INFECTED X", reaches=False)
    found = tvctl.json("scan", "--clean", bad, status=1)["detections"][0]
    trusted = os.stat("/").st_uid == 0
    expected = says.format(home) if trusted else "/ belongs to somebody else, who could have another file in its place"
    assert (found["action"], found["detail"]) == ("not removed", f"not removed: {expected}")
    assert len(service.requests) == 2 and exists(bad)


def test_a_sweep_by_path_is_none(tv, tvctl, home, fake_service):
    write_once(home / "file", CLEAN)
    changed = os.stat(home / "file").st_ctime
    wait_until(lambda: time.time() > changed + 2.2, "the clock")
    service = fake_service("CLEAN", reaches=False)
    for _ in range(2):
        result = tvctl.run("sweep", home)
        assert result.errors == BY_PATH
    assert len(service.requests) == 2 * 2
    service.close()
    tv.start()
    assert tvctl.json("sweep", home)["files"] == 1
    assert tvctl.json("sweep", home)["files"] == 0


def test_somebody_who_is_not_root(tv, tvctl, home, confined):
    write_once(home / "bad")
    confined()
    os.chmod(tv.root, 0o755)
    person = ["/usr/bin/setpriv", "--reuid=1", "--regid=1", "--clear-groups"]
    result = tvctl.run("scan", home, status=1, wrapper=person)
    assert BY_PATH in result.errors and result.lines()[0] == f"{home}/bad: {EICAR_NAME}"


# ------------------------------------------------------------------------------------------------ deep trees


def make_deep(path, levels):
    path.mkdir()
    here = os.open(path, os.O_PATH)
    for _ in range(levels - 1):
        os.mkdir("d", dir_fd=here)
        deeper = os.open("d", os.O_PATH, dir_fd=here)
        os.close(here)
        here = deeper
    os.close(os.open("file", os.O_CREAT | os.O_WRONLY, dir_fd=here))
    os.close(here)


def processor_seconds(run):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    run()
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


@pytest.mark.parametrize("command", ["scan", "sweep"])
def test_a_deep_tree_costs_as_much_as_a_wide_one(tv, tvctl, fake_service, home, command):
    fake_service("CLEAN")
    tv.configure(exclude={"0": [f"{home}/none"], "1": [f"{home}/none"]})
    seconds = {}
    for levels in (10000, 40000):
        root = home / str(levels)
        make_deep(root, levels)
        seconds[levels] = processor_seconds(lambda: tvctl.run(command, root, timeout=120))
        subprocess.run(["rm", "-rf", root], check=True)
    assert seconds[40000] < 8 * seconds[10000] and seconds[40000] < 10, seconds
