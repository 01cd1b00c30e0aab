"""Makes the pictures of docs/pictures from the programs themselves: `pictures.py [--check]`

Each is a screen as it stands on a terminal, or the upper part of a page, as text in an SVG that follows
its reader's light or dark taste. The clock stands still for them, so that a picture changes only where the program does: --check
says which of them are out of date. OSTREL_BUILD names another build folder than build/release.
"""

import itertools
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.sax.saxutils

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "support"))
os.environ.setdefault("OSTREL_BUILD", str(ROOT / "build/release"))

import ostrelscan
import pools
import scanset
import screen

PICTURES = ROOT / "docs/pictures"
POOL = "DATA"
CLOCK_START = "1700000000"
TERMINAL = "screen-256color"  # on it every cell is drawn, where others are erased in a colour
CELL_WIDTH, CELL_HEIGHT, MARGIN = 8.4, 18, 12
PAGE_WIDTH, PAGE_HEIGHT = 1000, 1117
NAMED = ("black", "red", "green", "brown", "blue", "magenta", "cyan", "white")
# Text on the paper follows the reader's taste; where a program paints the ground, its colours stay.
LIGHT = ("#24292f", "#b3261e", "#1a7f37", "#8a6100", "#0a4fb8", "#8250df", "#0b7285", "#57606a")
DARK = ("#8b949e", "#ff7b72", "#56d364", "#e3b341", "#79c0ff", "#d2a8ff", "#56d4dd", "#c9d1d9")
GROUND = ("#101418", "#8e1b13", "#14602b", "#6b4c00", "#0b3a82", "#5b2d9e", "#0a5563", "#c4cad0")
PAINTED = ("#101418", "#ffa198", "#7ee787", "#f2cc60", "#a5d6ff", "#e2c5ff", "#a0eef4", "#f0f3f6")


def rules(prefix, palette):
    return "".join(f".{prefix}{name}{{fill:{colour}}}" for name, colour in zip(NAMED, palette))


def style():
    def taste(paper, ink, palette):
        return f".paper{{fill:{paper}}}.default{{fill:{ink}}}{rules('', palette)}"
    return ("text{font:14px monospace;white-space:pre}.bold{font-weight:bold}.on-default{fill:#f0f3f6}"
            f"{rules('on-', PAINTED)}{rules('ground-', GROUND)}{taste('#ffffff', '#24292f', LIGHT)}"
            ".exact{filter:brightness(.65)}"
            f"@media(prefers-color-scheme:dark){{{taste('#0d1117', '#e6edf3', DARK)}"
            ".exact{filter:none}}")


def colour_of(name):
    """The class of a text in a named colour; a mixed one is an attribute of its own."""
    if re.fullmatch("[0-9a-f]{6}", name):
        return f'fill="#{name}" class="exact'
    return f'class="{name}'


def look_of(cell):
    """Classes of the text and of the ground behind it ("" for paper), and whether it is bold."""
    front, back = (name.removeprefix("bright") for name in (cell.fg, cell.bg))
    if cell.reverse:
        front, back = ("black" if back == "default" else back,
                       "white" if front == "default" else front)
    if back in ("default", "black"):
        return front, "", cell.bold
    return f"on-{front}", f"ground-{back}", cell.bold


def runs(picture, row, width):
    """(column, text, look) of the neighbouring cells of a row that look alike."""
    column = 0
    cells = [picture.cell(row, at) for at in range(width)]
    for look, alike in itertools.groupby(cells, look_of):
        text = "".join(cell.data for cell in alike)
        if text.strip() or look[1]:
            yield column, text, look
        column += len(text)


def svg(picture):
    """The rows of a screen as a picture, from the first with text to the last."""
    written = [number for number, row in enumerate(picture.rows) if row.strip()]
    rows, width = range(written[0], written[-1] + 1), len(picture.rows[0])
    size = (width * CELL_WIDTH + 2 * MARGIN, len(rows) * CELL_HEIGHT + 2 * MARGIN)
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {size[0]:g} {size[1]:g}" '
             f'width="{size[0]:g}" height="{size[1]:g}">', f"<style>{style()}</style>",
             '<rect class="paper" width="100%" height="100%" rx="6" stroke="#8888" />']
    for row in rows:
        for column, text, (front, back, bold) in runs(picture, row, width):
            x, y = MARGIN + column * CELL_WIDTH, MARGIN + (row - rows[0]) * CELL_HEIGHT
            long = len(text) * CELL_WIDTH
            if back:
                lines.append(f'<rect class="{back}" x="{x:g}" y="{y:g}" width="{long:g}" '
                             f'height="{CELL_HEIGHT}" />')
            lines.append(f'<text {colour_of(front)}{" bold" * bold}" x="{x:g}" y="{y + 13:g}" '
                         f'textLength="{long:g}" xml:space="preserve">'
                         f"{xml.sax.saxutils.escape(text)}</text>")
    return "\n".join([*lines, "</svg>", ""])


def page_svg(html):
    """The upper part of a page that zsbtool makes: its markup is XML as it stands."""
    page_style = re.search(r"<style>(.*?)</style>", html, re.DOTALL)[1]
    body = re.search(r"<body>(.*)</body>", html, re.DOTALL)[1]
    size = f"width:{PAGE_WIDTH}px;height:{PAGE_HEIGHT}px"
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {PAGE_WIDTH} {PAGE_HEIGHT}" '
            f'width="{PAGE_WIDTH}" height="{PAGE_HEIGHT}" style="{size}">\n'
            f"<style>{page_style}body {{ margin: 0; height: 100%; }}</style>\n"
            '<foreignObject width="100%" height="100%">'
            f'<body xmlns="http://www.w3.org/1999/xhtml">{body}</body></foreignObject></svg>\n')


class Stage:
    """A folder with a sample pool, in which programs are looked at."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        pools.pool(size="64M", seed=5).copy_to(self.folder / "pool.img")
        self.environment = ostrelscan.preload_environment()
        self.environment["LD_PRELOAD"] += f":{ostrelscan.helper('libclocksteps.so')}"
        self.environment.update(CLOCK_START=CLOCK_START, LC_ALL="C.UTF-8")

    def tool(self, *words, until=None, key="", columns=80):
        """The tool's screen once a text stands on it, where the key ends the run, or its last one."""
        with screen.Terminal([ostrelscan.tool(), "--bypass-ostrel", *words], cwd=self.folder,
                             term=TERMINAL, columns=columns, env=self.environment) as terminal:
            picture = until and terminal.wait_for(until, timeout=120)
            terminal.send(key)
            terminal.wait_exit(120)
            return picture or terminal.last_full()

    def companion(self, *words):
        """A prompt with the words typed, and what zsbtool prints behind it."""
        shown = " ".join(words)
        command = f"printf '$ zsbtool %s\\n' \"{shown}\"; zsbtool {shown}"
        path = f"{ostrelscan.build_folder()}/bin:{os.environ['PATH']}"
        with screen.Terminal(["/bin/sh", "-c", command], cwd=self.folder, rows=80, columns=100,
                             env={**self.environment, "PATH": path, "LD_PRELOAD": None}) as terminal:
            terminal.wait_exit(60)
            return terminal.now()

    def report(self, *words):
        """The page that zsbtool makes of a set and a log."""
        subprocess.run([ostrelscan.build_folder() / "bin/zsbtool", "report", "-o", "report.html", *words],
                       cwd=self.folder, check=False, stdout=subprocess.DEVNULL)
        return (self.folder / "report.html").read_text(encoding="utf-8")


def spoil(path):
    """Changes a byte of the first record."""
    content = bytearray(path.read_bytes())
    content[scanset.HEADER_BYTES + 100] ^= 1
    path.write_bytes(content)


def settle_scan_id(folder):
    """Gives the files of a set the same scan ID at every time."""
    for path in folder.glob("*.Z?B"):
        with open(path, "r+b") as file:
            file.seek(16)
            file.write(bytes(range(16)))


def make(folder):
    """{name: the picture's text}"""
    stage = Stage(folder)
    (stage.folder / "set").mkdir()
    saved = stage.tool("-P", "set", "save", POOL, "pool.img", until="Press any key", key=" ")
    made = {"save": saved, "check": stage.companion("check", "set"),
            "map": stage.companion("map", "set")}
    for file in (stage.folder / "set").glob("*.ZSB"):
        file.rename(file.with_suffix(".ZRB"))
    restoring = ("--danger", "-P", "set", "restore", POOL, "pool.img")
    made["question"] = stage.tool(*restoring, until="Do you wish", key="n",
                                  columns=112)
    made["restore"] = stage.tool("--validation-skip", "--danger", "--automatic", "-P", "set", "restore",
                                 POOL, "pool.img")
    made["error"] = stage.tool("save", POOL, "/dev/pool/DATA", until="Press any key", key=" ",
                               columns=90)
    spoil(max((stage.folder / "set").iterdir()))
    made["spoilt"] = stage.companion("check", "set")
    settle_scan_id(stage.folder / "set")
    return {"report": page_svg(stage.report("set", "ostrelscan.log")),
            **{name: svg(picture) for name, picture in made.items()}}


def main(arguments):
    with tempfile.TemporaryDirectory(prefix="ostrelscan-pictures-") as folder:
        made = make(folder)
    if "--check" in arguments:
        there = {path.stem: path.read_text(encoding="utf-8") for path in PICTURES.glob("*.svg")}
        stale = sorted(name for name in {*made, *there} if made.get(name) != there.get(name))
        print("".join(f"docs/pictures/{name}.svg is out of date\n" for name in stale), end="")
        return 1 if stale else 0
    PICTURES.mkdir(exist_ok=True)
    for name, text in made.items():
        (PICTURES / f"{name}.svg").write_text(text, encoding="utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
