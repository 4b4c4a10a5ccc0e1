"""The life of the package, in the order of these files: each goes on where the one before ended."""

import shutil

import pytest

import machine

ORDER = ["test_directory", "test_booted", "test_guard", "test_reboot", "test_signatures", "test_fleet", "test_broken",
         "test_end", "test_new_machine"]


def pytest_collection_modifyitems(items):
    # Stable: within a file the order stays.
    items.sort(key=lambda item: ORDER.index(item.module.__name__))


@pytest.fixture(scope="session")
def booted():
    """The machine, booted once for all tests that need it, with the package on it."""
    container = machine.Container()
    if not machine.installed_version():
        shutil.copy(machine.DEB, machine.ROOT)
        container.run("apt-get", "install", "--yes", "--no-install-recommends", f"/{machine.DEB.name}")
    yield container
    container.close()


FIGURES = []


@pytest.fixture
def report_figure():
    """Takes a line with a measured figure for the summary."""
    return FIGURES.append


def pytest_terminal_summary(terminalreporter):
    for figure in FIGURES:
        terminalreporter.write_line(figure)
