"""What the shells offer when somebody presses Tab, in real shells."""

import re
import subprocess

import pytest

BASH = """
source {file}
COMP_WORDS=({words}) COMP_CWORD={index}
_tvctl
printf '%s\\n' "${{COMPREPLY[@]}}"
"""

# A shell at a terminal of its own, in which everything that is offered is printed instead. Before its prompt is there the
# terminal itself would answer, and take the line back at ^U.
ZSH = r"""
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell 'PS1=; stty columns 300 rows 300'
zpty -w shell "fpath=($1 \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w shell 'compadd () {
    if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then
        builtin compadd "$@"
        return
    fi
    local -a hits
    builtin compadd -A hits "$@"
    print -rl -- HIT:$^hits
}'
zpty -w shell 'PS1=PRO""MPT; print READ""Y'
zpty -r shell line '*READY*PROMPT'
zpty -w -n shell "$2"$'\t'
zpty -w -n shell $'\C-u'
zpty -w shell 'print DO''NE'
while zpty -r shell line; do
    print -r -- "$line"
    [[ $line == *DONE* ]] && break
done
"""


def offered_by_bash(tvctl, *words):
    """What bash offers for the last of `words`."""
    script = BASH.format(file=tvctl.installation.root / "share/bash-completion/completions/tvctl",
                         words=" ".join(f"'{word}'" for word in ("tvctl", *words)), index=len(words))
    result = subprocess.run(["bash", "--norc", "-c", script], capture_output=True, text=True, check=True)
    assert result.stderr == ""
    return result.stdout.split()


def offered_by_zsh(tvctl, text):
    """What zsh shows for the text, "tvctl ..."."""
    directory = tvctl.installation.root / "share/zsh/vendor-completions"
    result = subprocess.run(["zsh", "-f", "-c", ZSH, "zsh", directory, text], capture_output=True, text=True,
                            check=True, timeout=60)
    return re.findall(r"HIT:(\S+)", result.stdout)


def commands_in(help_text):
    """Names of the subcommands that the help shows."""
    _, _, section = help_text.partition("\nSubcommands:\n")
    return re.findall(r"^  (\S+)", section, re.MULTILINE)


def walk(tvctl, *command):
    """Every command with the help that it prints."""
    text = tvctl.run(*command, "--help").output
    yield command, text
    for name in commands_in(text):
        yield from walk(tvctl, *command, name)


def test_bash_offers_every_command_and_option(tvctl):
    seen = 0
    for command, text in walk(tvctl):
        options = re.findall(r"(?<![\w-])--[a-z][a-z-]*", text.partition("\nOptions:\n")[2])
        assert set(options) <= set(offered_by_bash(tvctl, *command, "--")), command
        subcommands = commands_in(text)
        if subcommands:
            assert sorted(subcommands) == sorted(offered_by_bash(tvctl, *command, "")), command
        seen += 1
    assert seen > 2


@pytest.mark.parametrize("words, offered", [
    (("rel",), ["reload"]),
    (("reload", ""), ["db", "ioc-db", "ioc-settings", "settings"]),
    (("reload", "ioc-"), ["ioc-db", "ioc-settings"]),
    (("--root", "/", "rel"), ["reload"]),
    (("reload", "--js"), ["--json"]),
])
def test_bash_offers(tvctl, words, offered):
    assert offered_by_bash(tvctl, *words) == offered


def test_bash_offers_directories(tvctl, files):
    (files / "directory with spaces").mkdir()
    (files / "file").touch()
    result = subprocess.run(
        ["bash", "--norc", "-c", BASH.format(
            file=tvctl.installation.root / "share/bash-completion/completions/tvctl",
            words=f"tvctl --root '{files}/'", index=2)], capture_output=True, text=True, check=True)
    assert result.stdout == f"{files}/directory with spaces\n"


def test_zsh_offers(tvctl):
    commands = commands_in(tvctl.run("--help").output)
    assert sorted(offered_by_zsh(tvctl, "tvctl ")) == sorted(commands)
    assert sorted(offered_by_zsh(tvctl, "tvctl reload ")) == ["db", "ioc-db", "ioc-settings", "settings"]
    assert "--json" in offered_by_zsh(tvctl, "tvctl reload --")
