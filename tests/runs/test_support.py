"""The test support itself, tried against plain tools."""

import concurrent.futures
import contextlib
import errno
import hashlib
import json
import mmap
import os
import pathlib
import subprocess
import sys
import time
import zlib

import pytest

import loopdev
import ostrelscan
import poolTypes
import scanset
import screen

BLOCK = 4096


def mkpool(*arguments, cwd=None):
    return subprocess.run([ostrelscan.helper("mkpool"), *arguments], capture_output=True,
                          text=True, check=False, cwd=cwd)


def digest(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


# mkpool


def test_mkpool_makes_the_same_pool_from_the_same_seed(tmp_path):
    outputs = []
    for name, seed in (("a", "7"), ("b", "7"), ("c", "8")):
        done = mkpool("--size", "2M", "--seed", seed, tmp_path / name)
        outputs.append((done.stdout, digest(tmp_path / name)))
    assert outputs[0] == outputs[1]
    assert outputs[0][1] != outputs[2][1]


def test_mkpool_replaces_what_the_output_held(tmp_path):
    (tmp_path / "old").write_bytes(b"\xff" * 4 * 1024 * 1024)
    mkpool("--size", "1M", tmp_path / "old")
    mkpool("--size", "1M", tmp_path / "new")
    assert digest(tmp_path / "old") == digest(tmp_path / "new")


@pytest.mark.parametrize("superblock", ["SPB5", "SB64"])
@pytest.mark.parametrize("size, internal", [
    ("256K", 0.0), ("256K", 1.0), ("16M", 0.35), ("16M", 0.02), ("16M", 1.0)])
def test_mkpool_plants_what_it_says(pool, size, internal, superblock):
    made = pool(size=size, seed=3, internal=internal, superblock=superblock)
    assert poolTypes.census(made.path) == made.types
    assert list(made.types) == list(poolTypes.NAMES)
    assert min(made.types.values()) >= 1
    assert sum(made.types.values()) == made.blocks == made.size // BLOCK
    assert made.path.stat().st_size == made.size
    assert made.superblock == superblock


@pytest.mark.parametrize("internal", [0.1, 0.35, 0.8])
def test_mkpool_keeps_the_share_of_internal_blocks(pool, internal):
    made = pool(size="16M", internal=internal)
    assert made.internal == pytest.approx(internal * made.blocks, abs=1)


def test_mkpool_puts_superblock_label_and_last_block_where_they_belong(pool):
    made = pool(size="16M", superblock="SB64")
    found = [block for _, block in poolTypes.blocks(made.path)]
    assert found[1][:4] == b"SB64"
    assert poolTypes.classify(found[0]) == "User" and any(found[0])
    assert poolTypes.classify(found[-1]) != "User"


def test_mkpool_sets_traps_for_a_classification(pool):
    found = [block for _, block in poolTypes.blocks(pool(size="16M").path)]
    magics = [magic for _, magic in poolTypes.TYPES if magic]
    known = [block for block in found if block[:4] in magics]
    user = [block for block in found if poolTypes.classify(block) == "User"]
    assert any(block[4:8] == b"oVUk" for block in known)
    assert any(block[:4] == b"oVUk" for block in user)
    assert any(magic in block for block in user for magic in magics)


def test_mkpool_content_compresses_like_metadata(pool):
    internal, user = bytearray(), []
    for _, block in poolTypes.blocks(pool(size="16M").path):
        if poolTypes.classify(block) == "User":
            user.append(block)
        else:
            internal += block
    assert 3.0 <= len(internal) / len(zlib.compress(internal, 6)) <= 6.0
    ratios = [BLOCK / len(zlib.compress(block, 6)) for block in user]
    assert min(ratios) < 1.0 and any(2 < ratio < 10 for ratio in ratios)


def test_mkpool_leaves_holes_for_zero_blocks(pool):
    made = pool(size="16M")
    zeros = sum(not any(block) for _, block in poolTypes.blocks(made.path))
    assert zeros > made.types["User"] // 8
    assert made.path.stat().st_blocks * 512 < made.size


@pytest.mark.parametrize("arguments, complaint", [
    ([], "exactly one OUTPUT"),
    (["a", "b"], "exactly one OUTPUT"),
    (["--size", "5000", "a"], "the size must be"),
    (["--size", "4096", "a"], "the size must be"),
    (["--size", "M", "a"], "the size is no number"),
    (["--seed", "x", "a"], "the seed is no number"),
    (["--internal", "1.5", "a"], "the share of internal blocks must be"),
    (["--superblock", "SPB6", "a"], "the superblock must be"),
    (["--bogus", "a"], "unknown option"),
    (["/dev/null"], "not a regular file"),
    (["missing/a"], "missing/a: No such file"),
])
def test_mkpool_refuses_bad_arguments(tmp_path, arguments, complaint):
    done = mkpool(*arguments, cwd=tmp_path)
    assert (done.returncode, done.stdout) == (1, "")
    assert complaint in done.stderr
    assert not list(tmp_path.iterdir())


# faultdisk and loop devices


def failing_reads(device, blocks):
    """The blocks that cannot be read, each tried by itself past the device's cache."""
    failed = []
    with mmap.mmap(-1, BLOCK) as buffer:
        file = os.open(device, os.O_RDONLY | os.O_DIRECT)
        for number in range(blocks):
            try:
                assert os.preadv(file, [buffer], number * BLOCK) == BLOCK
            except OSError as error:
                assert error.errno == errno.EIO
                failed.append(number)
        os.close(file)
    return failed


def failing_writes(device, blocks):
    """{block: errno} of the blocks that cannot be written."""
    failed = {}
    with mmap.mmap(-1, BLOCK) as buffer:
        buffer.write(b"w" * BLOCK)
        file = os.open(device, os.O_WRONLY | os.O_DIRECT)
        for number in range(blocks):
            try:
                assert os.pwritev(file, [buffer], number * BLOCK) == BLOCK
            except OSError as error:
                failed[number] = error.errno
        os.close(file)
    return failed


def test_a_loop_device_shows_the_image_and_goes_away(loop, pool, tmp_path):
    image = pool(size="1M").copy_to(tmp_path / "pool.img")
    with loop(image, read_only=True) as device:
        assert digest(device) == digest(image)
        assert pathlib.Path(device).is_block_device()
    attached = subprocess.run(["losetup", "-j", image], capture_output=True, check=True)
    assert attached.stdout == b""


def test_a_loop_device_is_detached_when_the_test_fails(loop, tmp_path):
    image = loopdev.sparse_image(tmp_path / "image", 1 << 20)
    with contextlib.suppress(KeyError), loop(image):
        raise KeyError
    attached = subprocess.run(["losetup", "-j", image], capture_output=True, check=True)
    assert attached.stdout == b""


def test_faultdisk_fails_exactly_the_bad_blocks_on_read(fault_loop, pool, tmp_path):
    made = pool(size="1M")
    bad = [0, 17, 18, 100, 255]
    with fault_loop(made.copy_to(tmp_path / "image"), tmp_path / "mnt",
                    "badread=0,17-18", "badread=100,255") as (device, disk):
        assert failing_reads(device, made.blocks) == bad
        assert disk.faults() == ["badread 0,17,18,100,255"]
        requests, failed = disk.counts()["reads"]
        assert len(bad) <= failed < requests
        disk.command("clear")
        loopdev.drop_caches(device, disk.disk)
        assert digest(device) == digest(made.path)


def test_faultdisk_fails_exactly_the_bad_blocks_on_write(fault_loop, tmp_path):
    image = loopdev.sparse_image(tmp_path / "image", 32 * BLOCK)
    with fault_loop(image, tmp_path / "mnt", "badwrite=20", "enospc=30") as (device, disk):
        assert failing_writes(device, 32) == {20: errno.EIO, 30: errno.ENOSPC}
        assert disk.counts()["writes"][1] == 2
    found = [number for number, block in poolTypes.blocks(image) if block != b"w" * BLOCK]
    assert found == [20, 30]


def test_faultdisk_fails_a_request_that_touches_a_bad_block_whole(fault_disk, tmp_path):
    image = loopdev.sparse_image(tmp_path / "image", 16 * BLOCK)
    with fault_disk(image, tmp_path / "mnt", "badwrite=3") as disk:
        file = os.open(disk.disk, os.O_RDWR)
        for offset, length in ((2 * BLOCK, 2 * BLOCK), (4 * BLOCK - 1, 2), (3 * BLOCK + 9, 1)):
            with pytest.raises(OSError) as failure:
                os.pwrite(file, b"x" * length, offset)
            assert failure.value.errno == errno.EIO
        assert os.pwrite(file, b"x", 3 * BLOCK - 1) == os.pwrite(file, b"x", 4 * BLOCK) == 1
        os.close(file)
    assert pathlib.Path(image).read_bytes().count(b"x") == 2


def test_faultdisk_takes_commands_while_it_is_mounted(fault_disk, tmp_path):
    image = loopdev.sparse_image(tmp_path / "image", 16 * BLOCK)
    with fault_disk(image, tmp_path / "mnt") as disk:
        assert (disk.faults(), disk.counts()) == ([], {"reads": (0, 0), "writes": (0, 0)})
        file = os.open(disk.disk, os.O_RDWR)
        disk.command("readonly")
        with pytest.raises(OSError) as failure:
            os.pwrite(file, b"x", 0)
        assert failure.value.errno == errno.EROFS
        assert os.pread(file, BLOCK, 0) == bytes(BLOCK)
        disk.command("gone")
        assert disk.faults() == ["readonly", "gone"]
        for use in (lambda: os.pwrite(file, b"x", 0), lambda: os.fsync(file),
                    lambda: os.open(disk.disk, os.O_RDONLY)):
            with pytest.raises(OSError) as failure:
                use()
            assert failure.value.errno == errno.EIO
        disk.command("clear")
        assert os.pwrite(file, b"x", 0) == 1
        os.close(file)


def test_faultdisk_stands_still_at_a_paused_block_until_it_is_told_to_go_on(fault_loop, pool,
                                                                            tmp_path):
    made = pool(size="1M")
    image = made.copy_to(tmp_path / "image")
    with fault_loop(image, tmp_path / "mnt", "pause=200") as (device, disk):
        with subprocess.Popen(["cp", device, tmp_path / "copy"]) as reader:
            disk.wait_for_pause()
            assert reader.poll() is None
            disk.go_on()
            assert reader.wait(30) == 0
        assert digest(tmp_path / "copy") == digest(made.path) and disk.faults() == []


def seconds_of_reads(disk, count):
    """How long so many reads take that begin together."""
    def read(number):
        file = os.open(disk.disk, os.O_RDONLY | os.O_DIRECT)
        with mmap.mmap(-1, BLOCK) as buffer:
            assert os.preadv(file, [buffer], number * BLOCK) == BLOCK
        os.close(file)
    begin = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(count) as readers:
        list(readers.map(read, range(count)))
    return time.monotonic() - begin


@pytest.mark.parametrize("way", [(), ("queued",)], ids=["alone", "queued"])
def test_faultdisk_takes_its_time_for_each_request(fault_disk, tmp_path, way):
    image = loopdev.sparse_image(tmp_path / "image", 16 * BLOCK)
    with fault_disk(image, tmp_path / "mnt", "latency=50000", *way) as disk:
        assert seconds_of_reads(disk, 8) >= 8 * 0.05
        disk.command("latency 0")
        disk.command("bandwidth 1")
        assert seconds_of_reads(disk, 16) >= 16 * BLOCK / 1e6


def test_faultdisk_serves_many_requests_at_once(fault_disk, tmp_path):
    """A busy machine only ever adds to the time: the best of a few attempts is the disk's own."""
    image = loopdev.sparse_image(tmp_path / "image", 16 * BLOCK)
    with fault_disk(image, tmp_path / "mnt", "latency=500000", "atonce") as disk:
        taken = [seconds_of_reads(disk, 8)]
        while len(taken) < 5 and min(taken) >= 8 * 0.5:
            taken.append(seconds_of_reads(disk, 8))
        assert 0.5 <= min(taken) < 8 * 0.5
        disk.command("latency 0")
        disk.command("bandwidth 1")
        assert seconds_of_reads(disk, 16) >= 16 * BLOCK / 1e6


@pytest.mark.parametrize("line", ["badread", "badread x", "badread 1,", "badread 5-4", "bad 1",
                                  "latency", "latency x", "bandwidth 1,2"])
def test_faultdisk_refuses_a_command_it_does_not_know(fault_disk, tmp_path, line):
    image = loopdev.sparse_image(tmp_path / "image", 16 * BLOCK)
    with fault_disk(image, tmp_path / "mnt") as disk:
        with pytest.raises(OSError) as failure:
            disk.command(line)
        assert failure.value.errno == errno.EINVAL
        assert disk.faults() == []


def test_faultdisk_unmounts_when_it_is_ended(fault_disk, tmp_path):
    image = loopdev.sparse_image(tmp_path / "image", 16 * BLOCK)
    with fault_disk(image, tmp_path / "mnt"):
        assert sorted(os.listdir(tmp_path / "mnt")) == ["control", "disk"]
    assert os.listdir(tmp_path / "mnt") == []


# sizepreload

ASK_SIZE = """
import fcntl, json, os, sys, termios
answers = []
for request in (0x80081272, termios.TIOCGWINSZ):
    try:
        with open(sys.argv[1], "rb") as file:
            answers.append(int.from_bytes(fcntl.ioctl(file, request, bytes(8)), "little"))
    except OSError as error:
        answers.append(error.strerror)
reader, writer = os.pipe()
os.write(writer, b"abc")
answers.append(int.from_bytes(fcntl.ioctl(reader, termios.FIONREAD, bytes(4)), "little"))
print(json.dumps(answers))
"""
NO_TERMINAL = os.strerror(errno.ENOTTY)


def ask_size(path, environment):
    done = subprocess.run([sys.executable, "-c", ASK_SIZE, path], capture_output=True, check=True,
                          env={**os.environ, **environment})
    return json.loads(done.stdout)


def test_sizepreload_answers_the_size_of_an_image_and_nothing_else(tmp_path):
    image = loopdev.sparse_image(tmp_path / "image", 5 * 1024**3 + 1)
    assert ask_size(image, {}) == [NO_TERMINAL, NO_TERMINAL, 3]
    assert ask_size(image, ostrelscan.preload_environment()) == [5 * 1024**3 + 1, NO_TERMINAL, 3]


def test_sizepreload_leaves_real_devices_alone(loop, tmp_path):
    image = loopdev.sparse_image(tmp_path / "image", 1 << 20)
    with loop(image) as device:
        assert ask_size(device, ostrelscan.preload_environment())[0] == 1 << 20
    assert ask_size("/dev/null", ostrelscan.preload_environment())[0] == NO_TERMINAL


# scanset


def some_records(count):
    return [(7 * n, n.to_bytes(4, "big") * (BLOCK // 4)) for n in range(count)]


@pytest.mark.parametrize("compress", [False, True])
def test_a_scan_file_written_is_read_back(tmp_path, compress):
    records = some_records(5)
    path = scanset.write_file(tmp_path / "f", records, compress=compress, pool_name="DATA")
    file = scanset.read_file(path)
    assert (file.records, file.problems, file.pool_name) == (records, [], "DATA")
    assert file.header["dataBytes"] == 660 + 5 * 4104
    assert file.header["flags"] == (0x043 if compress else 0x002)
    assert (file.header["fileEof"] < file.header["dataBytes"]) == compress


def test_a_scan_file_holds_its_fields_at_their_offsets(tmp_path):
    raw = scanset.write_file(tmp_path / "f", some_records(1), fileNumber=0x0A0B0C0D,
                             poolBlocks=0x1122334455667788).read_bytes()
    assert len(raw) == 660 + 4104
    assert raw[:8] == b"SCAN\x02\0\x01\0"
    assert raw[32:40] == bytes.fromhex("8877665544332211")
    assert raw[56:60] == (zlib.crc32(raw[660:]) ^ 0xFFFFFFFF).to_bytes(4, "little")
    assert raw[64:72] == bytes.fromhex("0d0c0b0affffffff")
    assert raw[144:154] == b"P\0O\0O\0L\0\0\0"
    assert raw[656:660] == b"SCAN"


def test_an_empty_scan_file_stores_the_initial_crc(tmp_path):
    file = scanset.read_file(scanset.write_file(tmp_path / "f"))
    assert (file.header["crc"], file.header["dataBytes"], file.problems) == (0xFFFFFFFF, 660, [])


def test_a_set_is_split_numbered_and_flagged(tmp_path):
    records = some_records(7)
    paths = scanset.write_set(tmp_path, records, per_file=3, compress=True)
    assert [path.name for path in paths] == ["C0000000.ZRB", "C0000001.ZRB", "C0000002.ZRB"]
    files = scanset.read_set(tmp_path, suffix="ZRB")
    assert [file.header["flags"] for file in files] == [0x041, 0x041, 0x043]
    assert [file.header["fileNumber"] for file in files] == [0, 1, 2]
    assert scanset.set_records(tmp_path, suffix="ZRB") == records


@pytest.mark.parametrize("field, value", [
    ("signature", b"SCAM"), ("trailerSignature", b"NACS"), ("headerVersion", 3), ("fileEof", 659),
    ("dataBytes", 660), ("crc", 0), ("flags", 0x001), ("reserved", b"x" * 68)])
def test_a_lying_header_field_is_noticed(tmp_path, field, value):
    path = scanset.write_file(tmp_path / "f", some_records(2), compress=True, **{field: value})
    assert scanset.read_file(path).problems == [f"wrong {field}"]


def test_a_damaged_data_area_is_noticed(tmp_path):
    path = scanset.write_file(tmp_path / "f", some_records(2), compress=True)
    whole = path.read_bytes()
    path.write_bytes(whole[:-4])
    assert "the zlib stream has no end" in scanset.read_file(path).problems
    path.write_bytes(whole + b"tail")
    assert "4 bytes behind the zlib stream" in scanset.read_file(path).problems
    path.write_bytes(whole[:-1] + bytes([whole[-1] ^ 1]))
    assert any(problem.startswith("zlib:") for problem in scanset.read_file(path).problems)
    path.write_bytes(whole[:659])
    with pytest.raises(ValueError):
        scanset.read_file(path)


def test_an_unknown_header_field_is_refused(tmp_path):
    with pytest.raises(TypeError):
        scanset.write_file(tmp_path / "f", magic=1)


# screen

SHOW = """
import curses, sys
def show(screen):
    curses.start_color()
    curses.init_pair(1, curses.COLOR_WHITE, curses.COLOR_BLUE)
    rows, columns = screen.getmaxyx()
    screen.addstr(2, 3, f"{rows} rows of {columns}", curses.color_pair(1) | curses.A_BOLD)
    screen.addstr(4, 0, "=" * 60)
    while (key := screen.getch()) != ord("q"):
        if key == curses.KEY_RESIZE:
            screen.addstr(3, 3, "{} rows of {}".format(*screen.getmaxyx()))
        else:
            screen.addstr(5, 3, curses.keyname(key).decode())
            curses.beep()
curses.wrapper(show)
print("good bye")
sys.exit(3)
"""


@pytest.fixture
def shown():
    with screen.Terminal([sys.executable, "-c", SHOW]) as terminal:
        yield terminal


def test_the_screen_shows_text_and_attributes_cell_by_cell(shown):
    picture = shown.wait_for("25 rows of 80")
    assert [len(row) for row in picture.rows] == [80] * 25
    assert picture.rows[2] == "   25 rows of 80".ljust(80)
    assert shown.wait_for("====").rows[4] == ("=" * 60).ljust(80)
    cell = picture.cell(2, 3)
    assert (cell.data, cell.fg, cell.bg, cell.bold) == ("2", "white", "blue", True)


def test_the_screen_passes_keys_and_counts_bells(shown):
    shown.wait_for("25 rows")
    shown.key("up")
    shown.wait_for("KEY_UP")
    shown.send("z")
    shown.wait_for(lambda picture: picture.rows[5].startswith("   z"))
    shown.pump(0.2)
    assert shown.bells == 2


def test_the_screen_follows_a_resize(shown):
    shown.wait_for("25 rows")
    shown.resize(40, 132)
    assert [len(row) for row in shown.wait_for("40 rows of 132").rows] == [132] * 40


def test_the_screen_keeps_the_last_picture_after_the_end(shown):
    shown.wait_for("25 rows")
    shown.send("q")
    assert shown.wait_exit() == 3
    assert shown.last_full().rows[2].strip() == "25 rows of 80"
    assert shown.now().text.strip() == "good bye"


def test_waiting_for_what_never_comes_shows_the_screen(shown):
    with pytest.raises(AssertionError, match="(?s)timeout.*25 rows of 80"):
        shown.wait_for("never", timeout=2)


@pytest.mark.parametrize("term", ["no-such-terminal", None])
def test_a_terminal_that_cannot_be_had_reaches_the_program(term):
    show = 'import os; print("TERM is", os.environ.get("TERM"))'
    with screen.Terminal([sys.executable, "-c", show], term=term) as terminal:
        terminal.wait_for(f"TERM is {term}")
        assert terminal.wait_exit() == 0


def test_the_screen_repeats_a_character_and_reports_a_signal():
    script = r"printf 'ab\033[5b|'; kill -TERM $$"
    with screen.Terminal(["/bin/sh", "-c", script]) as terminal:
        assert terminal.wait_exit() == -15
        assert terminal.rows()[0].rstrip() == "abbbbbb|"


# The run log and the runner

LOG = """<ostrelscan>
ostrelscan - KUVO Pool Scanner
  Version: 2.00
  Build: Jan  9 2024 at 16:05:31
<CommandLine>
 <argv index="0x0" argv="ostrelscan" />
 <argv index="0x1" argv="a "quoted" />" />
</CommandLine>
<CurrentTime time="Nov 21, 2026  03:47:21 AM  +0000" timeValue="1795232841" />
Done 
<CurrentTime time="Nov 21, 2026  03:47:22 AM  +0000" timeValue="1795232842" />
</ostrelscan>
"""


def test_a_log_is_split_into_its_runs():
    broken, whole = ostrelscan.split_log("<ostrelscan>\nhalf\n" + LOG)
    assert (broken.closed, broken.lines) == (False, ["half"])
    assert whole.closed
    assert (whole.version, whole.build) == ("2.00", "Jan  9 2024 at 16:05:31")
    assert whole.arguments == ["ostrelscan", 'a "quoted" />']
    assert whole.times == [1795232841, 1795232842]
    assert whole.body[0] == "Done " and len(whole.body) == 2


def test_a_line_outside_of_every_run_is_an_error():
    for text in ("stray\n" + LOG, LOG + "stray\n"):
        with pytest.raises(ValueError, match="stray"):
            ostrelscan.split_log(text)


def test_the_runner_reports_status_output_and_log(tmp_path):
    script = tmp_path / "tool"
    script.write_text('#!/bin/sh\necho "$@"; cat; echo oops >&2\n'
                      f'printf %s "$LOG" > {ostrelscan.LOG_NAME}; exit 1\n')
    script.chmod(0o755)
    done = ostrelscan.run(["save", "POOL", 3], tmp_path, program=script, env={"LOG": LOG})
    assert (done.status, done.stdout, done.stderr) == (1, "--automatic save POOL 3\n", "oops\n")
    assert done.log_run.closed and 0 < done.seconds < 60
