"""run.sh, as far as it prepares the place of the service; what it would build is there already."""

import os
import shutil
import signal
import subprocess

import pytest

from harness import BASE, PRELOAD, SIGNATURES, STAGED, TIMEOUT, Path, fresh_directory, wait_until

CMAKE = f"""#!/bin/sh
# "cmake --install BUILD --prefix ROOT"; nothing has to be built.
[ "$1" = --install ] || exit 0
mkdir -p "$4" && exec cp -R {STAGED}/. "$4"
"""


class Clone:
    """A clone in a mount namespace of its own, which belongs to the process `holder`."""

    def __init__(self, propagation):
        base = fresh_directory()
        self.path = base / "clone"
        self.path.mkdir()
        # No link: the script finds the rest by its own place.
        shutil.copy(BASE / "tools" / "run.sh", self.path)
        (self.path / "packaging").symlink_to(BASE / "packaging")
        self.programs = base / "programs"
        self.programs.mkdir()
        for name, text in (("cmake", CMAKE), ("freshclam", "#!/bin/sh\nexit 1\n")):
            (self.programs / name).write_text(text)
            (self.programs / name).chmod(0o755)
        self.output = base / "output"
        self.holder = subprocess.Popen(["unshare", "--mount", "--propagation", "private", "sh", "-c",
                                        f"mount --make-r{propagation} / && echo && exec sleep infinity"],
                                       stdout=subprocess.PIPE)
        assert self.holder.stdout.readline() == b"\n"
        self.process = None

    def inside(self, *command):
        return ["nsenter", f"--target={self.holder.pid}", "--mount", *command]

    def run(self):
        """Returns when the service watches."""
        environment = {"PATH": f"{self.programs}:/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root",
                       "ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=0",
                       "TVFILEMON_TEST_SIGNATURES": str(SIGNATURES)}
        if PRELOAD.exists():
            environment["LD_PRELOAD"] = str(PRELOAD)
        with open(self.output, "wb") as output:
            self.process = subprocess.Popen(self.inside(f"{self.path}/run.sh"), env=environment, cwd="/",
                                            stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        wait_until(self._watches, self.output.read_text)

    def _watches(self):
        assert self.process.poll() is None, self.output.read_text()
        log = self.path / "build" / "root" / "logs" / "tvfilemon.log"
        return log.exists() and "Watching: /media" in log.read_text()

    def mounts(self, process):
        """Options by place, as the process sees them."""
        lines = Path(f"/proc/{process.pid}/mounts").read_text().splitlines()
        return {line.split()[1]: (line.split()[2], line.split()[3].split(",")) for line in lines}

    def unpacks_in(self):
        targets = [os.readlink(entry) for entry in Path(f"/proc/{self.process.pid}/fd").iterdir()]
        return next(os.path.dirname(target) for target in targets if "/tvfilemon-engine-" in target)

    def close(self):
        if self.process is not None:
            self.process.send_signal(signal.SIGTERM)
            assert self.process.wait(TIMEOUT) == 0, self.output.read_text()
        self.holder.kill()
        self.holder.wait()
        self.holder.stdout.close()


@pytest.fixture
def clone(home, request):
    made = Clone(request.param)
    yield made
    made.close()


@pytest.mark.parametrize("clone", ["shared"], indirect=True)
def test_the_engine_unpacks_in_a_memory_of_its_own(clone):
    clone.run()
    place = str(clone.path / "build" / "root" / "unpack")
    kind, options = clone.mounts(clone.process)[place]
    assert kind == "tmpfs" and {"size=524288k", "mode=700", "noexec", "nosuid", "nodev"} <= set(options), options
    assert clone.unpacks_in() == place
    # Nobody else has it.
    assert place not in clone.mounts(clone.holder)


@pytest.mark.parametrize("clone", ["shared"], indirect=True)
def test_the_service_sees_what_is_mounted_later(clone):
    clone.run()
    Path("/media/stick").mkdir()
    subprocess.run(clone.inside("mount", "-n", "-t", "tmpfs", "tmpfs", "/media/stick"), check=True)
    assert "/media/stick" in clone.mounts(clone.process)


@pytest.mark.parametrize("clone", ["private"], indirect=True)
def test_what_is_mounted_later_goes_before_a_place_in_memory(clone):
    """Where mounts do not arrive in a namespace of the service's own, it gets none."""
    clone.run()
    assert os.path.samefile(f"/proc/{clone.process.pid}/ns/mnt", f"/proc/{clone.holder.pid}/ns/mnt")
    assert not clone.unpacks_in().startswith(str(clone.path))
