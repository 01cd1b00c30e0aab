"""`zsbtool preflight`: what a careful operator looks at before a restore."""

import contextlib
import os
import pathlib
import shlex
import shutil
import subprocess

import pytest

import damagedset
import loopdev
import restoring
import scanset
import zsbtool
from damagedset import POOL_BLOCKS, Set

Z64 = b"SB64" + bytes(4092)


@pytest.fixture
def loop():
    """loopdev.loop, where loop devices can be had."""
    if not (answer := loopdev.have_loop()):
        pytest.skip(answer.why)
    return loopdev.loop


def pool_image(path, blocks=POOL_BLOCKS, superblock=restoring.SUPERBLOCK):
    with open(path, "wb") as image:
        image.write(bytes(4096) + superblock)
        image.truncate(blocks * 4096)
    return path


def verdicts(found):
    """What is not good, by its check."""
    return {row["check"]: row["verdict"] for row in found["items"] if row["verdict"] != "ok"}


def text_of(found, check):
    [text] = [row["text"] for row in found["items"] if row["check"] == check]
    return text


@contextlib.contextmanager
def unchanged(*paths):
    before = [pathlib.Path(path).read_bytes() for path in paths]
    yield
    assert [pathlib.Path(path).read_bytes() for path in paths] == before


def preflight(source, device, *, pool="POOL", status=0):
    return zsbtool.document("preflight", "--quiet", source, pool, device, status=status)


# The one warning that a loop device has: nobody gave it a serial number.
NOTHING_ELSE = {"serial": "warning"}


@pytest.mark.parametrize("pool", ["POOL", "pool", "PooL"])
def test_all_is_well(tmp_path, loop, pool):
    source, image = Set().write(tmp_path / "set"), pool_image(tmp_path / "image")
    with unchanged(image), loop(image) as device:
        found = preflight(source, device, pool=pool)
        assert found["restoreCommand"] == (
            f"ostrelscan --danger -P {source}/ restore {pool} {device}")
    assert verdicts(found) == NOTHING_ELSE
    assert [row["check"] for row in found["items"]] == [
        "problems", "ending", "choice", "pool-name", "block-device", "size", "read-only", "mounted",
        "held", "superblock", "model", "serial"]
    assert text_of(found, "size") == "400.0 KiB, 100 blocks, as the pool"


def test_the_command_that_is_shown_restores(tmp_path, loop):
    made = Set()
    damagedset.with_block(made, 1, b"none")
    folder = tmp_path / "it's here"
    source, image = made.write(folder), pool_image(tmp_path / "image")
    with loop(image) as device:
        command = preflight(source, device)["restoreCommand"]
        assert command == (f"ostrelscan --danger -a -P '{tmp_path}/it'\\''s here/' restore POOL "
                           f"{device}")
        words = shlex.split(command)
        assert words[4] == f"{folder}/"
        done = subprocess.run(
            [zsbtool.program().with_name("ostrelscan"), "--automatic", "--bypass-ostrel",
             *words[1:]], cwd=tmp_path, stdin=subprocess.DEVNULL, capture_output=True, check=False)
        assert done.returncode == 0
    for file in made.files:
        for number, block in file.records:
            assert restoring.read_block(image, number) == block


def test_user_blocks_ask_for_all_blocks(tmp_path, loop):
    source, image = Set(), pool_image(tmp_path / "image")
    damagedset.with_block(source, 1, b"none")
    with loop(image) as device:
        found = preflight(source.write(tmp_path / "set"), device)
    assert found["restoreCommand"].startswith("ostrelscan --danger -a -P ")


@pytest.mark.parametrize("plant, check", [
    (lambda made: made[1].fields.update(crc=1), "problems"),
    (lambda made: made.drop(3), "problems"),
], ids=["a crc", "no last file"])
def test_a_set_with_problems_stops_it(tmp_path, loop, plant, check):
    made, image = Set(), pool_image(tmp_path / "image")
    plant(made)
    with loop(image) as device:
        found = preflight(made.write(tmp_path / "set"), device, status=2)
    assert verdicts(found) == {**NOTHING_ELSE, check: "stop"}


def test_files_that_are_not_renamed_stop_it(tmp_path, loop):
    source, image = Set(suffix="ZSB").write(tmp_path / "set"), pool_image(tmp_path / "image")
    with loop(image) as device:
        assert verdicts(preflight(source, device, status=2)) == {**NOTHING_ELSE, "ending": "stop"}
        assert zsbtool.run("prepare", source, tmp_path / "out").status == 0
        assert verdicts(preflight(tmp_path / "out", device)) == NOTHING_ELSE


def test_people_are_told_how_many_stops_there_are_if_any(tmp_path, loop):
    source, image = Set(suffix="ZSB").write(tmp_path / "set"), pool_image(tmp_path / "image")
    with loop(image) as device:
        assert "do not restore: 1 stop\n" in zsbtool.run("preflight", source, "POOL", device).text
        assert zsbtool.run("prepare", source, tmp_path / "out").status == 0
        assert "do not" not in zsbtool.run("preflight", tmp_path / "out", "POOL", device).text


def test_a_set_that_a_restore_would_pass_over_stops_it(tmp_path, loop):
    image = pool_image(tmp_path / "image")
    Set().write(tmp_path / "set")
    Set(compress=True).write(tmp_path / "set")
    numbered = Set()
    for file in numbered.files:
        file.name = scanset.file_name(file.number, set_number=3, suffix="ZRB")
    numbered.write(tmp_path / "numbered")
    with loop(image) as device:
        for path in (tmp_path / "set/C0000000.ZRB", tmp_path / "numbered/T0300000.ZRB"):
            found = preflight(path, device, status=2)
            assert verdicts(found) == {**NOTHING_ELSE, "choice": "stop"}
            assert text_of(found, "choice") == "a restore looks for T0000000.ZRB"
        assert verdicts(preflight(tmp_path / "set/T0000000.ZRB", device)) == NOTHING_ELSE


@pytest.mark.parametrize("blocks, verdict, text", [
    (24, "stop", "96.0 KiB, 24 blocks: too small for block 24"),
    (25, "warning", "100.0 KiB, 25 blocks: smaller than the pool with its 100 blocks"),
    (101, "warning", "404.0 KiB, 101 blocks: larger than the pool with its 100 blocks")])
def test_the_size_is_held_against_the_pool_and_the_highest_block(tmp_path, loop, blocks, verdict,
                                                                 text):
    source, image = Set().write(tmp_path / "set"), pool_image(tmp_path / "image", blocks)
    with loop(image) as device:
        found = preflight(source, device, status=2 if verdict == "stop" else 0)
    assert verdicts(found) == {**NOTHING_ELSE, "size": verdict}
    assert text_of(found, "size") == text


def test_another_name_is_a_warning(tmp_path, loop):
    source, image = Set().write(tmp_path / "set"), pool_image(tmp_path / "image")
    with loop(image) as device:
        found = preflight(source, device, pool="OTHER")
    assert verdicts(found) == {**NOTHING_ELSE, "pool-name": "warning"}
    assert text_of(found, "pool-name") == 'the set is of pool "POOL", and it is to go onto "OTHER"'


def test_a_read_only_device_stops_it(tmp_path, loop):
    source, image = Set().write(tmp_path / "set"), pool_image(tmp_path / "image")
    with loop(image, read_only=True) as device:
        assert verdicts(preflight(source, device, status=2)) == {
            **NOTHING_ELSE, "read-only": "stop"}


def test_a_device_that_somebody_holds_stops_it(tmp_path, loop):
    source, image = Set().write(tmp_path / "set"), pool_image(tmp_path / "image")
    with loop(image) as device:
        holder = os.open(device, os.O_RDONLY | os.O_EXCL)
        try:
            found = preflight(source, device, status=2)
        finally:
            os.close(holder)
        assert verdicts(found) == {**NOTHING_ELSE, "held": "stop"}
        assert verdicts(preflight(source, device)) == NOTHING_ELSE


def test_a_mounted_device_stops_it(tmp_path, loop):
    if not (answer := loopdev.have_private_mounts()):
        pytest.skip(answer.why)
    if not shutil.which("mkfs.ext4"):
        pytest.skip("mkfs.ext4 is not installed")
    source, image = Set().write(tmp_path / "set"), pool_image(tmp_path / "image", 2000)
    folder = tmp_path / "a b"
    folder.mkdir()
    subprocess.run(["mkfs.ext4", "-q", "-F", image], check=True)
    script = 'mount -o ro "$0" "$1" || exit 77; shift; exec "$@"'
    with loop(image) as device:
        shown = zsbtool.run("preflight", "--json", source, "POOL", device,
                            before=("unshare", "--mount", "sh", "-c", script, device, folder))
    if shown.status == 77:
        pytest.skip(f"no such file system here: {shown.err}")
    found = zsbtool.checked("preflight", shown.out)
    assert shown.status == 2
    assert verdicts(found) == {**NOTHING_ELSE, "size": "warning", "mounted": "stop", "held": "stop",
                               "superblock": "stop"}
    assert text_of(found, "mounted") == f"it is mounted at {folder}"


@pytest.mark.parametrize("superblock, text", [
    (b"sbo5" + bytes(4092), "there is no superblock on it"),
    (bytes(4096), "there is no superblock on it"),
    (Z64, "its superblock is of a Z64 pool, and the set is of the other format")])
def test_a_wrong_superblock_stops_it(tmp_path, loop, superblock, text):
    source = Set().write(tmp_path / "set")
    image = pool_image(tmp_path / "image", superblock=superblock)
    with loop(image) as device:
        found = preflight(source, device, status=2)
    assert verdicts(found) == {**NOTHING_ELSE, "superblock": "stop"}
    assert text_of(found, "superblock") == text


@pytest.mark.parametrize("magic, superblock, good", [
    (b"LEAF", restoring.SUPERBLOCK, True), (b"LEAF", Z64, False),
    (b"BtqZ", restoring.SUPERBLOCK, False), (b"BtqZ", Z64, True),
    (b"MFL ", restoring.SUPERBLOCK, True), (b"MFL ", Z64, True)])
def test_without_a_superblock_in_the_set_its_leaves_tell_the_format(tmp_path, loop, magic,
                                                                    superblock, good):
    (tmp_path / "set").mkdir()
    scanset.write_set(tmp_path / "set", restoring.records([7, 8], magic), poolBlocks=POOL_BLOCKS)
    image = pool_image(tmp_path / "image", superblock=superblock)
    with loop(image) as device:
        found = preflight(tmp_path / "set", device, status=0 if good else 2)
    assert verdicts(found) == (
        NOTHING_ELSE if good else {**NOTHING_ELSE, "superblock": "stop"})


@pytest.mark.parametrize("own, leaf, other", [
    (restoring.SUPERBLOCK, b"BtqZ", Z64), (Z64, b"LEAF", restoring.SUPERBLOCK)])
def test_the_superblock_in_the_set_tells_the_format_whatever_its_leaves_say(tmp_path, loop, own,
                                                                            leaf, other):
    (tmp_path / "set").mkdir()
    scanset.write_set(tmp_path / "set", [(1, own), *restoring.records([7, 8], leaf)],
                      poolBlocks=POOL_BLOCKS)
    for name, superblock, status in (("own", own, 0), ("other", other, 2)):
        image = pool_image(tmp_path / name, superblock=superblock)
        with loop(image) as device:
            found = preflight(tmp_path / "set", device, status=status)
        assert ("superblock" in verdicts(found)) == (status == 2)


def test_a_device_that_ends_before_its_superblock_has_none(tmp_path, loop):
    source, image = Set().write(tmp_path / "set"), pool_image(tmp_path / "image")
    os.truncate(image, 4096)
    with loop(image) as device:
        found = preflight(source, device, status=2)
    assert text_of(found, "superblock") == "there is no superblock on it"


def test_a_superblock_that_cannot_be_read_stops_it(tmp_path, fault_loop):
    source, image = Set().write(tmp_path / "set"), pool_image(tmp_path / "image")
    with fault_loop(image, tmp_path / "mnt", "badread=1") as (device, _):
        found = preflight(source, device, status=2)
    assert verdicts(found) == {**NOTHING_ELSE, "superblock": "stop"}
    assert text_of(found, "superblock") == "its superblock cannot be read: Input/output error"


@pytest.mark.parametrize("what", ["a file", "a folder", "/dev/null"])
def test_what_is_no_block_device_stops_it(tmp_path, what):
    source, image = Set().write(tmp_path / "set"), pool_image(tmp_path / "image")
    device = {"a file": image, "a folder": tmp_path}.get(what, what)
    found = preflight(source, device, status=2)
    assert verdicts(found) == {"block-device": "stop"}
    assert [row["check"] for row in found["items"]][-1] == "block-device"


def test_no_such_device_ends_with_1(tmp_path):
    source = Set().write(tmp_path / "set")
    shown = zsbtool.run("preflight", source, "POOL", "nowhere", cwd=tmp_path)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == "zsbtool: nowhere: No such file or directory\n"


def test_a_device_that_may_not_be_opened_ends_with_1(somebody, loop):
    source, image = Set().write(somebody.folder / "set"), pool_image(somebody.folder / "image")
    source.chmod(0o755)
    with loop(image) as device:
        shown = zsbtool.run("preflight", source, "POOL", device, **somebody.how)
        assert (shown.status, shown.text) == (1, "")
        assert shown.err == f"zsbtool: {device}: Permission denied\n"


@pytest.mark.parametrize("what", ["missing", "empty"])
def test_without_a_set_it_ends_with_1(tmp_path, what):
    (tmp_path / "empty").mkdir()
    shown = zsbtool.run("preflight", what, "POOL", "/dev/null", cwd=tmp_path)
    assert (shown.status, shown.text) == (1, "")


def test_a_set_of_one_empty_file(tmp_path, loop):
    (tmp_path / "set").mkdir()
    scanset.write_file(tmp_path / "set" / "T0000000.ZRB", poolBlocks=2)
    image = pool_image(tmp_path / "image", 2)
    with loop(image) as device:
        assert verdicts(preflight(tmp_path / "set", device)) == NOTHING_ELSE


def test_names_that_a_shell_would_read_otherwise(tmp_path):
    def command(folder, pool, device):
        shown = zsbtool.run("preflight", "--json", folder, pool, device, cwd=tmp_path)
        assert shown.status == 2
        found = zsbtool.checked("preflight", shown.out)["restoreCommand"]
        read = subprocess.run(["bash", "-c", f"printf '%s\\0' {found}"], capture_output=True,
                              check=True)
        return found, [os.fsdecode(word) for word in read.stdout.split(b"\0")[:-1]]
    Set().write(tmp_path / "Käse $HOME")
    Set().write(tmp_path / "new\nline\x1b[2J")
    (tmp_path / "-d").touch()
    (tmp_path / "a'b\\c").touch()
    assert command("Käse $HOME", "POOL", "./-d") == (
        "ostrelscan --danger -P 'Käse $HOME/' restore POOL ./-d",
        ["ostrelscan", "--danger", "-P", "Käse $HOME/", "restore", "POOL", "./-d"])
    found, words = command("new\nline\x1b[2J", "Ä B", "a'b\\c")
    assert "\n" not in found and "\x1b" not in found
    assert words == ["ostrelscan", "--danger", "-P", "new\nline\x1b[2J/", "restore", "Ä B",
                     "a'b\\c"]


def test_people_get_a_table_and_the_command(tmp_path, golden):
    made = Set(suffix="ZSB")
    made.write(tmp_path / "set")
    (tmp_path / "image").touch()
    shown = zsbtool.run("preflight", "set", "OTHER", "image", cwd=tmp_path)
    assert (shown.status, shown.err) == (2, "")
    golden("preflight.txt", shown.text)
    shown = zsbtool.run("preflight", "--json", "set", "OTHER", "image", cwd=tmp_path)
    golden("preflight.json", shown.text)
