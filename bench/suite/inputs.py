"""The files and texts that all sides get."""

import functools
import os
from pathlib import Path

import harness

HEADER_COUNT = 2000
SMALL_SIZE = 2600


def listing(name, lines):
    """A file with these lines."""
    path = harness.fresh_directory() / name
    path.write_text("".join(f"{line}\n" for line in lines))
    return path


@functools.cache
def infected_file():
    return harness.write_once(harness.fresh_directory() / "infected")


@functools.cache
def headers():
    """Real files: the first header files of the machine. In memory afterwards."""
    paths = sorted(path for path in Path("/usr/include").glob("**/*.h") if path.is_file())[:HEADER_COUNT]
    assert len(paths) == HEADER_COUNT, f"only {len(paths)} header files"
    for path in paths:
        path.read_bytes()
    return paths


@functools.cache
def small_file():
    """Clean text of a usual length."""
    source = next(content for content in (path.read_bytes() for path in headers()) if len(content) >= SMALL_SIZE)
    return harness.write_once(harness.fresh_directory() / "clean", source[:SMALL_SIZE])


@functools.cache
def growing_input():
    return harness.write_once(harness.fresh_directory() / "filler", b"int a;\n" * 10)


def urls(count):
    return [f"http://host{number % 977}.example/path/{number}/page.html?query={number * 7919}"
            for number in range(count)]


def make_files(directory, count, size):
    """Files whose content no two have in common."""
    piece = os.urandom(size - 8)
    paths = []
    for number in range(count):
        path = directory / f"file-{number}"
        path.write_bytes(number.to_bytes(8, "little") + piece)
        paths.append(path)
    return paths


def make_names(directory, count):
    """Names of one small file: to whoever goes by paths they are as many files."""
    source = harness.write_once(directory / "source", b"content\n")
    paths = []
    for number in range(count):
        path = f"{directory}/file-{number}"
        os.link(source, path)
        paths.append(path)
    return paths


def make_tree(top, count):
    """`count` directories below `top`, four levels deep, as many in each as that takes."""
    fan_out = next(number for number in range(2, count) if sum(number ** level for level in range(1, 5)) >= count)
    level = [str(top)]
    made = 0
    while made < count:
        below = [f"{parent}/directory-{number}" for parent in level for number in range(fan_out)][:count - made]
        for path in below:
            os.mkdir(path)
        made += len(below)
        level = below
