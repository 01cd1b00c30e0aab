"""Records scripts/demo as docs/pictures/demo.cast, an asciicast that `asciinema play` shows: the real
programs beside the stand-in, which needs root. OSTREL_BUILD names another build folder than
build/release.
"""

import json
import os
import pathlib
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "support"))
os.environ.setdefault("OSTREL_BUILD", str(ROOT / "build/release"))

import screen

CAST = ROOT / "docs/pictures/demo.cast"
ROWS, COLUMNS = 30, 100
READING = 4.0  # seconds that a viewer gets for a step


def record():
    """[seconds, "o", text] of what the demonstration writes."""
    argv = [sys.executable, ROOT / "scripts/sample_run.py"]
    environment = {"SAMPLE_SIZE": "96M", "SAMPLE_PAUSE": str(READING)}
    events, begun, added, shown, alive = [], time.monotonic(), 0.0, 0, True
    with screen.Terminal(argv, rows=ROWS, columns=COLUMNS, env=environment) as terminal:
        while alive:
            alive = terminal.pump(0.1)
            text = terminal.output[shown:].decode(errors="ignore")
            shown = len(terminal.output)
            if "\n== " in text:
                added += READING
            if text:
                events.append([round(time.monotonic() - begun + added, 2), "o", text])
        if terminal.wait_exit() != 0:
            raise SystemExit("the demonstration failed")
    return events


def main():
    header = {"version": 2, "width": COLUMNS, "height": ROWS, "idle_time_limit": READING,
              "title": "ostrelscan: scripts/demo", "env": {"TERM": "xterm-256color"}}
    CAST.write_text("".join(f"{json.dumps(line)}\n" for line in [header, *record()]), encoding="utf-8")


if __name__ == "__main__":
    main()
