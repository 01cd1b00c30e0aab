"""Runs the sessions that documents show: indented lines that begin with "$ " are typed, and what
stands below is what must be seen; "..." stands for anything, alone on a line for any lines."""

import os
import re
import subprocess

MARK = "\x01"
# The tool's screen is taken away: a reader sees it on his terminal, and what stands behind it.
TOOL = r"""ostrelscan() {
    command ostrelscan "$@" >"$SCREEN"
    local status=$?
    sed -z 's/.*\x1b\[?1049l//; s/\x1b\[[0-9;?]*[a-z]//g; s/\x1b[>=]//g; s/\r//g' "$SCREEN" |
        sed -n '/./p'
    return $status
}
"""


def sessions(text):
    """(command, lines below it) of every command that a document shows."""
    found = []
    for line in text.splitlines():
        shown = re.match(r"    (.*)", line)
        if not shown:
            found.append(None)
        elif shown[1].startswith("$ "):
            found.append((shown[1][2:], []))
        elif found and found[-1]:
            found[-1][1].append(shown[1])
    return [session for session in found if session]


def script(commands):
    return TOOL + "".join(f"{command}\nprintf '{MARK}\\n'\n" for command in [":", *commands])


def run(commands, folder, before=(), env=None, timeout=300):
    """What each command prints, in one shell in that folder; `before` is what the shell runs under."""
    path = folder / "session.sh"
    path.write_text(script(commands), encoding="utf-8")
    done = subprocess.run([*map(str, before), "bash", str(path)], cwd=folder, check=False,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          timeout=timeout, env={**os.environ, "TERM": "xterm-256color",
                                                "SCREEN": str(folder / "screen.txt"), **(env or {})})
    printed = done.stdout.decode(errors="replace").split(MARK + "\n")
    assert len(printed) == len(commands) + 2, printed[-1]
    return [text.splitlines() for text in printed[1:-1]]


def fits(shown, printed):
    """Whether the printed lines are those that a document shows."""
    pattern = "".join(r"(?:.*\n)*?" if line.strip() == "..." else
                      ".*".join(map(re.escape, line.rstrip().split("..."))) + r"[ ]*\n"
                      for line in shown)
    return re.fullmatch(pattern, "".join(f"{line}\n" for line in printed)) is not None
