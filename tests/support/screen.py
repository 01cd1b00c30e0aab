"""Runs a program under a pseudo-terminal and shows what stands on its screen."""

import copy
import os
import select
import signal
import time

import pexpect
import ptyprocess
import pyte
import wcwidth

ALTERNATE_SCREEN = {47, 1047, 1049}

KEYS = {
    "enter": "\r",
    "keypad enter": "\x1bOM",
    "escape": "\x1b",
    "backspace": "\x7f",
    "delete": "\x1b[3~",
    "insert": "\x1b[2~",
    "up": "\x1bOA",
    "down": "\x1bOB",
    "right": "\x1bOC",
    "left": "\x1bOD",
    "home": "\x1bOH",
    "end": "\x1bOF",
    "page up": "\x1b[5~",
    "page down": "\x1b[6~",
    "f1": "\x1bOP",
}


def _row(cells, columns):
    """A row's text. A wide character stands in two cells, the second of them empty; where one of
    both was written over, the other is blank, as on a terminal."""
    text = ""
    half = False  # whether the second cell of a wide character must follow
    for column in range(columns):
        data = cells[column].data
        after = cells[column + 1].data if column + 1 < columns else " "
        wide = data != "" and wcwidth.wcwidth(data[0]) == 2
        if not (data == "" and half):
            text += " " if data == "" or (wide and after != "") else data
        half = wide and after == ""
    return text


def _copied(buffer):
    """The lines of a screen and their cells; a cell itself never changes."""
    copied = copy.copy(buffer)
    copied.update((row, copy.copy(line)) for row, line in buffer.items())
    return copied


class Picture:
    """A screen at one moment: its rows at full width and each cell with its attributes."""

    def __init__(self, screen):
        self.rows = [_row(screen.buffer[row], screen.columns) for row in range(screen.lines)]
        self.cursor = (screen.cursor.y, screen.cursor.x)
        self._cells = _copied(screen.buffer)

    @property
    def text(self):
        return "\n".join(row.rstrip() for row in self.rows)

    def cell(self, row, column):
        """The character with its `fg`, `bg` and `bold`, as pyte names them."""
        return self._cells[row][column]


class _Stream(pyte.ByteStream):
    """The sequences of pyte and, beside them, "repeat the last character"."""

    csi = {**pyte.ByteStream.csi, "b": "repeat_character"}
    events = pyte.ByteStream.events | {"repeat_character"}


class _Screen(pyte.Screen):
    """A pyte screen with an alternate buffer; what is left behind there is kept."""

    def __init__(self, columns, rows):
        self.left = []
        self.bells = 0
        self._main = None
        self._last_drawn = " "
        super().__init__(columns, rows)

    def bell(self, *_):
        self.bells += 1

    def draw(self, data):
        self._last_drawn = data[-1:] or self._last_drawn
        super().draw(data)

    def repeat_character(self, count=1):
        self.draw(self._last_drawn * max(count, 1))

    def erase_in_display(self, how=0, *args, **kwargs):
        """As pyte does, but for cells too that were never drawn: they take the colours."""
        for row in range(self.lines):
            line = self.buffer[row]
            line.update({column: line[column] for column in range(self.columns)})
        super().erase_in_display(how, *args, **kwargs)

    def set_mode(self, *modes, **kwargs):
        if kwargs.get("private") and ALTERNATE_SCREEN & set(modes) and self._main is None:
            self._main = (_copied(self.buffer), copy.copy(self.cursor))
            self.erase_in_display(2)
        super().set_mode(*modes, **kwargs)

    def reset_mode(self, *modes, **kwargs):
        if kwargs.get("private") and ALTERNATE_SCREEN & set(modes) and self._main is not None:
            self.left.append(Picture(self))
            buffer, self.cursor = self._main
            self.buffer.clear()
            self.buffer.update(buffer)
            self._main = None
        super().reset_mode(*modes, **kwargs)


class _Process(ptyprocess.PtyProcess):
    """The program has its terminal's size before it runs. The library sets it once more from outside,
    some time after the start: that would undo what the program has made of it meanwhile."""

    _started = False

    def setwinsize(self, *size):
        if self._started:
            super().setwinsize(*size)
        self._started = True


def _let_writes_fail_as_they_do():
    """Python ignores what ends a program that writes too much or to nobody, and would hand that on."""
    for number in (signal.SIGPIPE, signal.SIGXFSZ):
        signal.signal(number, signal.SIG_DFL)


class _Child(pexpect.spawn):
    def _spawnpty(self, args, **kwargs):
        return _Process.spawn(args, **kwargs)


class Terminal:
    """A program with a terminal of its own; a context manager that ends the program."""

    def __init__(self, argv, *, rows=25, columns=80, term="xterm-256color", env=None, cwd=None):
        """`term` None leaves TERM unset; `env` adds to the environment of the tests."""
        full = {**os.environ, "TERM": term, **(env or {})}
        full = {name: value for name, value in full.items() if value is not None}
        for size in ("LINES", "COLUMNS"):
            full.pop(size, None)
        self.output = b""
        self.status = None
        self._screen = _Screen(columns, rows)
        self._stream = _Stream(self._screen)
        argv = [os.fspath(arg) for arg in argv]
        self.child = _Child(
            argv[0], argv[1:], dimensions=(rows, columns), env=full, cwd=cwd, echo=False,
            preexec_fn=_let_writes_fail_as_they_do)
        self.child.delaybeforesend = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.child.close(force=True)

    def pump(self, seconds=0.0):
        """Takes in what the program writes for `seconds`; False at the end of its output."""
        until = time.monotonic() + seconds
        while not self.child.closed:
            left = max(until - time.monotonic(), 0)
            if self._readable(min(left, 0.05)):
                data = self._read()
                if not data:
                    return False
                self.output += data
                self._stream.feed(data)
            if left == 0:
                return True
        return False

    def _readable(self, seconds):
        return bool(select.select([self.child.child_fd], [], [], seconds)[0])

    def _read(self):
        """What the program wrote last, nothing at the end. The end comes from the terminal and not
        from the program's death, which can be seen before its last words."""
        try:
            return os.read(self.child.child_fd, 65536)
        except OSError:
            return b""

    def now(self):
        self.pump()
        return Picture(self._screen)

    def rows(self):
        return self.now().rows

    def cell(self, row, column):
        return self.now().cell(row, column)

    @property
    def bells(self):
        self.pump()
        return self._screen.bells

    def last_full(self):
        """The last picture before the program left the alternate screen; without such a screen
        (or before the program has left it) what stands on the terminal."""
        now = self.now()
        return self._screen.left[-1] if self._screen.left else now

    def wait_for(self, wanted, timeout=60.0):
        """Waits for a text, or for a picture that the function `wanted` accepts; returns it."""
        accepts = wanted if callable(wanted) else lambda picture: wanted in picture.text
        until = time.monotonic() + timeout
        while True:
            alive = self.pump(0.02)
            picture = Picture(self._screen)
            if accepts(picture):
                return picture
            if not alive or time.monotonic() > until:
                why = "timeout" if alive else "end of output"
                raise AssertionError(f"{why}, waiting for {wanted!r}; on screen:\n{picture.text}")

    def send(self, text):
        self.child.send(text)

    def key(self, name):
        self.send(KEYS[name])

    def resize(self, rows, columns):
        self._screen.resize(rows, columns)
        self.child.setwinsize(rows, columns)

    def wait_exit(self, timeout=60.0):
        """Waits for the program's end; returns its exit status, or minus the signal's number."""
        if self.pump(timeout):
            raise AssertionError(f"still running; on screen:\n{self.now().text}")
        self.child.wait()
        self.child.close()
        ended = self.child.exitstatus
        self.status = ended if ended is not None else -self.child.signalstatus
        return self.status
