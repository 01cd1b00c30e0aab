"""The terminal under which the tests run programs."""

import time

import screen


def test_a_program_that_changes_the_size_of_its_terminal_is_not_overruled(tmp_path, monkeypatch):
    """However late the library is that sets the size from outside when the program runs."""
    changed = tmp_path / "changed"
    set_size = screen._Process.setwinsize

    def set_late(process, *size):
        while not changed.exists():
            time.sleep(0.01)
        set_size(process, *size)

    monkeypatch.setattr(screen._Process, "setwinsize", set_late)
    script = f"stty rows 7 cols 9; touch {changed}; read line; stty size"
    with screen.Terminal(["/bin/sh", "-c", script]) as terminal:
        terminal.send("\n")
        terminal.wait_for("7 9")
        monkeypatch.undo()
        assert terminal.wait_exit() == 0


def test_a_program_sees_each_new_size_of_its_terminal():
    script = "stty size; read line; stty size"
    with screen.Terminal(["/bin/sh", "-c", script], rows=30, columns=90) as terminal:
        terminal.wait_for("30 90")
        terminal.resize(31, 91)
        terminal.send("\n")
        terminal.wait_for("31 91")
        assert terminal.wait_exit() == 0
