"""Where the service finds and makes its directories, by the place of its executable."""

import os
import subprocess

import pytest

from harness import Chroot, EICAR, INSTRUMENTS, Installation, Path, cleaned, found, wait_gone, write_once

FIXED_ROOT = "/usr/lib/Talvenor"


@pytest.fixture
def chroot(mounts, home):
    return Chroot(mounts)


@pytest.mark.parametrize("place, root", [
    ("/opt/x/bin", FIXED_ROOT),
    ("/opt/bin", "/opt"),
    ("/usr/bin", "/usr"),
    ("/bin", "/"),
    ("/opt/a/b/bin", "/opt/a/b"),
    ("/opt/a/b/c/anything", "/opt/a/b/c"),
])
def test_the_root(chroot, home, place, root):
    tv = Installation(f"{chroot.path}{root}")
    executable = Path(f"{chroot.path}{place}/tvfilemon")
    libraries = executable.parent.parent / "lib"
    if not executable.exists():
        executable.parent.mkdir(parents=True, exist_ok=True)
        os.link(tv.root / "bin" / "tvfilemon", executable)
    # They lie beside the executable, wherever it looks for everything else.
    if not (libraries / "libtvcore.so.1").exists():
        libraries.mkdir(exist_ok=True)
        subprocess.run(["cp", "-a", "--", *(tv.root / "lib").glob("*tv*"), libraries], check=True)
    try:
        tv.start(command=chroot.command(f"{place}/tvfilemon"))
        path = write_once(home / "eicar")
        wait_gone(path)
        lines = [line.what() for line in tv.settle()]
        assert found(path) in lines and cleaned(path) in lines
        assert list(tv.quarantined().values()) == [EICAR]
        assert len(tv.reports()) == 1
    finally:
        tv.close()
    tv.check_log()


def test_the_popup_program_by_itself(tv):
    result = subprocess.run([tv.root / "lib" / "tvnotify-send"], capture_output=True, text=True, check=False,
                            env=INSTRUMENTS)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == "tvnotify-send is started by libtvnotify, to show its popups\n"
