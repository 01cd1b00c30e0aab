"""The demonstration: both of its roads, and what it says."""

import os
import pathlib
import re
import signal
import subprocess
import sys

import pytest

import loopdev
import pools
import screen

SAMPLE_RUN = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "sample_run.py"
SIZE = "96M"


def show(*arguments, size=SIZE, keys=""):
    done = subprocess.run([sys.executable, SAMPLE_RUN, *arguments], input=keys,
                          capture_output=True, text=True, timeout=300, check=False,
                          env={**os.environ, "SAMPLE_SIZE": size})
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def expect_save_and_restore(shown):
    planted = pools.pool(size=SIZE, seed=7).types
    saved = sum(count for name, count in planted.items() if name not in ("User", "BT leaf Z64"))
    files = [int(count) for count in re.findall(r"T\d{7}\.ZSB +\d+ bytes +(\d+) blocks  sound", shown)]
    assert sum(files) == saved and files[:-1] == [2555] * (len(files) - 1)
    for name, count in planted.items():
        taken = 0 if name in ("User", "BT leaf Z64") else count
        assert f"{name:>14} {taken:>6} of {count:<6}" in shown
    assert f"Scanning {96 * 256} blocks on SAMPLE." in shown
    restored = saved - planted["MSAP"]
    assert f"{restored} restored blocks compared, all equal; {planted['MSAP']} MSAP blocks" in shown
    assert shown.rstrip().endswith("== Done")


def test_the_full_road_shows_a_refused_and_a_forced_change():
    for answer in (loopdev.have_loop(), loopdev.have_service()):
        if not answer:
            pytest.skip(answer.why)
    shown = show()
    expect_save_and_restore(shown)
    assert "pool SAMPLE: refused by OSTREL.PoolLock with 20880" in shown
    assert "OSTREL.PoolLock answered 0x0\npool SAMPLE: now active after" in shown
    assert "$ zsbtool bad-blocks\n1000\n1001\n" in shown
    assert re.search(r"zsbtool check raw\n.*\n.*\nrestorable\n", shown)
    assert re.search(r"zsbtool check packed\n(.*\n){5}not restorable: 2 problems\n", shown)
    assert "Scan failed (see ostrelscan.log for more details): 20826" in shown


def test_the_plain_road_works_without_devices_and_says_so():
    shown = show("--plain")
    expect_save_and_restore(shown)
    assert "Without block devices and service (it was not wanted): image files" in shown


def test_a_key_goes_on_between_the_steps_where_that_is_asked_for():
    shown = show("--plain", "--pause", size="16M", keys="\n\n\n\n")
    steps = re.split("-- a key goes on --\n", shown)
    assert [re.search(r"== (\w+,? \w+)", step)[1] for step in steps] == [
        "A save", "Checks, of", "A map", "A restore", "The restored"]
    assert "-- a key" not in show("--plain", size="16M")


@pytest.mark.parametrize("key, pause", [("x", "300"), (None, "0.5")], ids=["key", "nobody"])
@pytest.mark.parametrize("before", [[], ["/bin/sh", "-c", 'stty rows 0 cols 0; exec "$@"', "sh"]],
                         ids=["with-a-size", "without"])
def test_on_a_terminal_the_save_waits_for_a_key_but_not_for_ever(key, pause, before):
    with screen.Terminal([*before, sys.executable, SAMPLE_RUN, "--plain"], rows=60,
                         env={"SAMPLE_SIZE": "16M", "SAMPLE_PAUSE": pause}) as terminal:
        picture = terminal.wait_for("Press any key to continue....", timeout=60)
        assert picture.rows[0].startswith(" Scanning 4096 blocks on SAMPLE.")
        if key:
            terminal.send(key)
        assert terminal.wait_exit(60) == 0
        assert terminal.now().text.rstrip().endswith("== Done")


def test_a_demonstration_that_is_ended_cleans_up(tmp_path):
    with screen.Terminal([sys.executable, SAMPLE_RUN, "--plain"],
                         env={"SAMPLE_SIZE": "16M", "TMPDIR": str(tmp_path)}) as terminal:
        terminal.wait_for("Press any key to continue....", timeout=60)
        assert [path.name[:15] for path in tmp_path.iterdir()] == ["ostrelscan-demo"]
        os.kill(terminal.child.pid, signal.SIGTERM)
        assert terminal.wait_exit(60) == 130
    assert list(tmp_path.iterdir()) == []
