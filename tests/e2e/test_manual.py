"""The manual pages, as installed."""

import re
import subprocess

import pytest

from test_tvctl_completion import walk


def page_text(tv, page):
    section = page.rpartition(".")[2]
    path = tv.root / "share/man" / f"man{section}" / page
    result = subprocess.run(["mandoc", "-Tlint", "-Werror", path], capture_output=True, text=True, check=False)
    assert result.returncode == 0, result.stdout
    shown = subprocess.run(["mandoc", "-Tascii", "-Owidth=400", path], capture_output=True, text=True, check=True)
    return re.sub(".\b", "", shown.stdout)


@pytest.mark.parametrize("page, heading", [("tvctl.1", "tvctl(1)"), ("tvfilemon.8", "tvfilemon(8)")])
def test_the_page_is_sound(tv, page, heading):
    text = page_text(tv, page)
    assert text.startswith(heading)
    for section in ("NAME", "SYNOPSIS", "DESCRIPTION", "SEE ALSO"):
        assert f"\n{section}\n" in text


def test_every_command_and_option_is_described(tv, tvctl):
    text = page_text(tv, "tvctl.1")
    missing = []
    for command, help_text in walk(tvctl):
        if command and not re.search(r"(?<![\w-])" + " ".join(map(re.escape, command)) + r"(?![\w-])", text):
            missing.append(" ".join(command))
        for option in set(re.findall(r"(?<![\w-])--[a-z][a-z-]*", help_text.partition("\nOptions:\n")[2])):
            if not re.search(re.escape(option) + r"(?![\w-])", text) and option != "--no-colour":
                missing.append(" ".join((*command, option)))
    assert missing == []
