"""What bash and zsh complete, typed into the real shells."""

import contextlib
import os
import re
import subprocess

import pexpect
import pytest

import house

COMPLETIONS = house.ROOT / "completions"
ALL = "\x18a"  # inserts everything that fits
START = {
    "bash": ["bash", "--norc", "--noprofile", "-i"],
    "zsh": ["zsh", "-f", "-i"],
}
SETTINGS = {
    "bash": r"""bind 'set enable-bracketed-paste off'
bind '"\C-xa": insert-completions'
. {completions}/bash/ostrelscan; . {completions}/bash/zsbtool
_ostrelscan_devices={folder}/pools""",
    "zsh": r"""unsetopt auto_remove_slash prompt_sp; unset zle_bracketed_paste; bindkey -e
fpath=({completions}/zsh $fpath); autoload -Uz compinit; compinit -D -u
zle -C all-matches complete-word _generic; bindkey '^Xa' all-matches
zstyle ':completion:all-matches:*' completer _all_matches _complete
zstyle ':completion:all-matches:*' insert true
_ostrelscan_devices={folder}/pools""",
}


class Shell:
    """An interactive shell with the completions, in a folder with two sets and three pools."""

    def __init__(self, kind, folder, build):
        for name in ("pools", "scans/july", "scans/june", "other"):
            (folder / name).mkdir(parents=True)
        for name in ("pools/DATA", "pools/DUMP", "pools/OTHER", "scans/july/T0000000.ZSB"):
            (folder / name).touch()
        self.child = pexpect.spawn(
            START[kind][0], START[kind][1:], cwd=folder, encoding="utf-8", echo=False, timeout=60,
            dimensions=(50, 2000),
            env={"PATH": f"{build}/bin:{os.environ['PATH']}", "TERM": "dumb", "HOME": str(folder),
                 "LC_ALL": "C.UTF-8"})
        for line in SETTINGS[kind].format(completions=COMPLETIONS, folder=folder).splitlines():
            self.child.send(line + "\n")
        self.ask("printf ")

    def ask(self, typed):
        """The words of a line as it stands when its keys have been typed."""
        self.child.send(f"{typed}\x01printf '<%s>' '' ready \x05;echo; echo 'en''d'\n")
        self.child.expect(r"<><ready>([^\r\n]*)\r*\n(?:[^\n]*\n)*?end\r*\n")
        return re.findall(r"<([^>]*)>", self.child.match[1])


@pytest.fixture(scope="module", params=["bash", "zsh"])
def shell(request, build, tmp_path_factory):
    running = Shell(request.param, tmp_path_factory.mktemp(request.param), build)
    yield running
    with contextlib.suppress(OSError):
        running.child.close(force=True)


def options(build, *words):
    shown = subprocess.run([build / "bin" / words[0], *words[1:]], capture_output=True, text=True,
                           check=True).stdout
    return {option for line in re.findall(r"^ +(-.*?)(?:[ =]|$)(?!-)", shown, re.MULTILINE)
            for option in re.findall(r"-[-a-zA-Z]+", line)}


@pytest.mark.parametrize("typed, words", [
    ("ostrelscan sa\t", ["save"]),
    ("ostrelscan --dan\t res\t", ["--danger", "restore"]),
    ("ostrelscan save da\t", ["save", "DATA"]),
    ("ostrelscan -P other save ot\t", ["-P", "other", "save", "OTHER"]),
    ("ostrelscan --val\t -P ot\t save DU\t", ["--validation-skip", "-P", "other/", "save", "DUMP"]),
    ("ostrelscan --path=sca\t", ["--path=scans/"]),
    ("ostrelscan save DATA ./po\tDATA", ["save", "DATA", "./pools/DATA"]),
    ("zsbtool bad\t", ["bad-blocks"]),
    ("zsbtool help che\t", ["help", "check"]),
    ("zsbtool check --rec\t sca\t", ["check", "--recursive", "scans/"]),
    ("zsbtool check --jobs 2 scans/jul\tT\t", ["check", "--jobs", "2", "scans/july/T0000000.ZSB"]),
    ("zsbtool list --ending zr\t", ["list", "--ending", "zrb"]),
])
def test_a_line_is_completed(shell, typed, words):
    assert shell.ask(typed) == [typed.split()[0], *words]


def test_a_device_follows_its_pool(shell):
    *_, device = shell.ask("ostrelscan save data \t")
    assert device.endswith("/pools/DATA")


@pytest.mark.parametrize("typed, words", [
    ("ostrelscan ", {"save", "restore"}),
    ("ostrelscan save ", {"DATA", "DUMP", "OTHER"}),
    ("zsbtool info --prefix ", {"T", "C"}),
])
def test_everything_that_fits_is_offered(shell, typed, words):
    assert set(shell.ask(typed + ALL)[len(typed.split()):]) == words


def test_every_option_of_the_tool_is_offered(shell, build):
    offered = {word.rstrip("=") for word in shell.ask("ostrelscan --" + ALL)[1:]}
    wanted = {option for option in options(build, "ostrelscan", "--help") if len(option) > 2}
    assert len(wanted) == 9 and offered == wanted


def test_every_command_of_the_companion_and_its_options_are_offered(shell, build):
    shown = subprocess.run([build / "bin/zsbtool", "--help"], capture_output=True, text=True,
                           check=True).stdout.split("\nCommands:\n")[1].split("\n\n")[0]
    commands = set(re.findall(r"^  ([a-z-]+)", shown, re.MULTILINE))
    assert len(commands) > 5 and set(shell.ask("zsbtool " + ALL)[1:]) == commands
    for command in ("check", "list"):
        assert set(shell.ask(f"zsbtool {command} --{ALL}")[2:]) == {
            option for option in options(build, "zsbtool", command, "--help") if len(option) > 2}
