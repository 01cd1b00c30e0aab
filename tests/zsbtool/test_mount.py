"""`zsbtool mount`: the pool of a set as an image, with errors where the set is at fault."""

import concurrent.futures
import contextlib
import errno
import os
import pathlib
import random
import shutil
import signal
import subprocess
import time
import zlib

import pytest

import damagedset
import loopdev
import restoring
import scanset
import zsbtool
from damagedset import Set

BLOCK = 4096
ZEROS = bytes(BLOCK)

if not loopdev.have_fuse():
    pytest.skip(loopdev.have_fuse().why, allow_module_level=True)


def unmount(folder):
    words = ["umount"] if os.geteuid() == 0 else ["fusermount3", "-u"]
    subprocess.run([*words, folder], check=True, capture_output=True)


def wait_until(happened):
    until = time.monotonic() + 60
    while not happened():
        assert time.monotonic() < until
        time.sleep(0.01)


def processes_with(argument):
    """The processes that were started with this argument."""
    found = []
    for path in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        with contextlib.suppress(OSError):
            if argument.encode() in path.read_bytes().split(b"\0"):
                found.append(int(path.parent.name))
    return found


@contextlib.contextmanager
def mounted(made, where, *options, status=0, told=(), **how):
    """The image of a set, which is mounted in the background; `told` is what must be said."""
    where.mkdir(exist_ok=True)
    done = zsbtool.run("mount", *options, made, where, **how)
    try:
        assert (done.status, done.text) == (status, "")
        assert done.err.splitlines() == [f"zsbtool: {line}" for line in told]
        yield where / "pool.img"
    finally:
        unmount(where)


@contextlib.contextmanager
def served(made, where, *options):
    """The program itself, which mounts and stays."""
    where.mkdir()
    argv = [zsbtool.program(), "mount", "--foreground", *options, made, where]
    with subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE) as process:
        try:
            wait_until(lambda: os.listdir(where) or process.poll() is not None)
            yield process
        finally:
            process.terminate()
            process.communicate(timeout=60)


def read_block(image, block):
    """The bytes of a block, or the name of the error."""
    with open(image, "rb", buffering=0) as file:
        try:
            return os.pread(file.fileno(), BLOCK, block * BLOCK)
        except OSError as error:
            return errno.errorcode[error.errno]


def held(made):
    return {block: content for file in made.files for block, content in file.records}


def unread(image, blocks):
    """Those of some blocks that cannot be read."""
    return [block for block in blocks if read_block(image, block) == "EIO"]


def broken(first, last):
    return f"blocks {first} to {last}: what the set does not hold of them cannot be read"


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_blocks_stand_at_their_places_and_zeros_elsewhere(tmp_path, compress):
    made = Set(compress=compress)
    wanted = b"".join(held(made).get(block, ZEROS) for block in range(damagedset.POOL_BLOCKS))
    with mounted(made.write(tmp_path / "set"), tmp_path / "pool") as image:
        assert os.listdir(image.parent) == ["pool.img"]
        assert image.read_bytes() == wanted
        assert image.stat().st_size == len(wanted) == damagedset.POOL_BLOCKS * BLOCK
        assert image.stat().st_blocks * 512 == 24 * BLOCK
        with open(image, "rb", buffering=0) as file:
            assert os.pread(file.fileno(), 9000, 5000) == wanted[5000:14000]
            assert os.pread(file.fileno(), BLOCK, len(wanted) - 10) == wanted[-10:]
            assert os.pread(file.fileno(), BLOCK, len(wanted)) == b""
    assert os.listdir(tmp_path / "pool") == []


def test_nothing_can_be_changed(tmp_path):
    made = Set().write(tmp_path / "set")
    with mounted(made, tmp_path / "pool") as image:
        for how in (os.O_RDWR, os.O_WRONLY, os.O_RDONLY | os.O_TRUNC):
            with pytest.raises(OSError):
                os.close(os.open(image, how))
        for change in (image.unlink, lambda: (image.parent / "new").touch()):
            with pytest.raises(OSError):
                change()


@pytest.fixture(scope="module")
def large(tmp_path_factory):
    """A compressed set of some files of a thousand blocks, every third of the pool."""
    folder = tmp_path_factory.mktemp("large")
    rng = random.Random(4)
    words = [rng.randbytes(60) for _ in range(50)]
    records = [(block, (b"LEAF" + block.to_bytes(8, "little")
                        + b"".join(rng.choices(words, k=90)))[:BLOCK].ljust(BLOCK, b"\0"))
               for block in range(1, 9001, 3)]
    scanset.write_set(folder, records, per_file=1000, compress=True, poolBlocks=10_000)
    return folder, dict(records)


def test_a_compressed_set_is_read_at_any_place_by_many_at_once(large, tmp_path):
    folder, blocks = large
    def reader(seed):
        rng = random.Random(seed)
        asked = [rng.randrange(9500) for _ in range(200)]
        return [block for block in asked if read_block(image, block) != blocks.get(block, ZEROS)]
    with mounted(folder, tmp_path / "pool") as image:
        with concurrent.futures.ThreadPoolExecutor(8) as readers:
            assert [wrong for wrong in readers.map(reader, range(8)) if wrong] == []
        whole = image.read_bytes()
    assert whole == b"".join(blocks.get(block, ZEROS) for block in range(10_000))


def test_a_loop_device_stands_on_it(large, tmp_path):
    if not loopdev.have_loop():
        pytest.skip(loopdev.have_loop().why)
    folder, blocks = large
    with mounted(folder, tmp_path / "pool") as image, loopdev.loop(image) as device:
        size = subprocess.run(["blockdev", "--getsize64", "--getro", device], check=True,
                              capture_output=True, text=True).stdout.split()
        assert size == [str(10_000 * BLOCK), "1"]
        for block in (1, 2, 4000, 8998):
            assert read_block(device, block) == blocks.get(block, ZEROS)


def test_of_a_block_that_is_there_twice_the_last_one_is_shown(tmp_path):
    made = Set()
    other = restoring.records([7])[0][1][:-4] + b"last"
    made[2].records.insert(0, (7, other))
    folder = made.write(tmp_path / "set")
    with mounted(folder, tmp_path / "pool", status=2,
                 told=[f"{made.name(2)}: block-twice: 1 block that came before"]) as image:
        assert read_block(image, 7) == other


class TestFaults:
    """Files hold the blocks 1 to 6, 7 to 12, 13 to 18, and 19 to 24 of a hundred."""

    def show(self, made, tmp_path, *options, told):
        return mounted(made.write(tmp_path / "set"), tmp_path / "pool", *options, status=2,
                       told=told)

    @pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
    def test_what_a_file_lost_cannot_be_read_up_to_the_next_good_one(self, tmp_path, compress):
        made = Set(compress=compress)
        made[2].records = [(block + 30, content) for block, content in made[2].records]
        made[3].records = [(block + 40, content) for block, content in made[3].records]
        payload = scanset.pack_records(made[1].records)[:3 * 4104 + 100]
        stream = zlib.compressobj()
        data = stream.compress(payload) + stream.flush(zlib.Z_SYNC_FLUSH) if compress else payload
        whole = made.write(tmp_path / "set") / made.name(1)
        text = f"it has {660 + len(data)} bytes of {whole.stat().st_size}"
        made[1].damage.append(lambda raw: raw[:660] + data)
        with self.show(made, tmp_path, told=[f"{made.name(1)}: truncated: {text}",
                                             broken(10, 42)]) as image:
            assert unread(image, range(100)) == list(range(10, 43))
            assert [read_block(image, block) for block in (9, 43)] == [
                held(made)[9], held(made)[43]]
            assert read_block(image, 42 + 10) == ZEROS

    def test_what_is_held_elsewhere_can_be_read(self, tmp_path):
        made = Set(compress=True)
        made[1].damage.append(damagedset.flipped(664))
        made[2].fields["crc"] = 1
        made[2].records[0] = (12, made[2].records[0][1])
        crc = scanset.register_crc(scanset.pack_records(made[2].records))
        told = [f"{made.name(1)}: deflate: its compressed stream is broken behind record 0",
                f"{made.name(2)}: crc: the CRC of its records is {crc}, and that of its header 1",
                broken(7, 18)]
        with self.show(made, tmp_path, told=told) as image:
            assert unread(image, range(100)) == [7, 8, 9, 10, 11, 13]
            assert read_block(image, 12) == made[2].records[0][1]

    def test_a_file_that_is_missing_is_lost(self, tmp_path):
        made = Set()
        made.drop(1)
        with self.show(made, tmp_path, told=["the set: gap: file 1 is missing",
                                             broken(7, 12)]) as image:
            assert unread(image, range(100)) == list(range(7, 13))

    def test_an_end_that_is_missing_is_lost(self, tmp_path):
        made = Set()
        made.drop(3)
        told = ["the set: no-last-file: no file at the end says that it is the last",
                broken(19, 99)]
        with self.show(made, tmp_path, told=told) as image:
            assert unread(image, range(100)) == list(range(19, 100))

    def test_behind_a_save_that_was_stopped_are_zeros(self, tmp_path):
        made = Set()
        made.drop(3)
        made.set_flag(2, 0x008)
        told = ["the set: no-last-file: no file at the end says that it is the last",
                f"{made.name(2)}: stopped: its save was stopped"]
        with self.show(made, tmp_path, told=told) as image:
            assert unread(image, range(100)) == []
            assert read_block(image, 19) == ZEROS

    def test_a_file_that_is_no_scan_file_is_lost(self, tmp_path):
        made = Set()
        made[0].damage.append(damagedset.cut_to(100))
        told = [f"{made.name(0)}: short-header: it has 100 bytes, and a header has 660",
                broken(0, 6)]
        with self.show(made, tmp_path, told=told) as image:
            assert unread(image, range(100)) == list(range(7))

    @pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
    def test_a_file_with_a_wrong_crc_is_served_and_named(self, tmp_path, compress):
        made = Set(compress=compress)
        made[1].fields["crc"] = 12345
        crc = scanset.register_crc(scanset.pack_records(made[1].records))
        named = (f"{made.name(1)}: crc: the CRC of its records is {crc}, and that of its header "
                 "12345")
        with self.show(made, tmp_path, told=[named]) as image:
            assert unread(image, range(100)) == []
            assert read_block(image, 9) == held(made)[9]
        with self.show(made, tmp_path, "--strict", told=[named, broken(7, 12)]) as image:
            assert unread(image, range(100)) == list(range(7, 13))

    def test_a_file_that_vanishes_meanwhile_reads_as_an_error(self, tmp_path):
        made = Set()
        folder = made.write(tmp_path / "set")
        with mounted(folder, tmp_path / "pool") as image:
            (folder / made.name(1)).unlink()
            assert unread(image, range(100)) == list(range(7, 13))


class TestItsEnd:
    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
    def test_a_signal_unmounts(self, tmp_path, number):
        folder = Set().write(tmp_path / "set")
        with served(folder, tmp_path / "pool") as process:
            process.send_signal(number)
            assert process.wait(timeout=60) == 0
            assert process.communicate() == (b"", b"")
        assert os.listdir(tmp_path / "pool") == []
        assert not os.path.ismount(tmp_path / "pool")

    def test_a_reader_does_not_hold_it_up(self, tmp_path):
        folder = Set().write(tmp_path / "set")
        with served(folder, tmp_path / "pool") as process:
            reader = os.open(tmp_path / "pool/pool.img", os.O_RDONLY)
            os.pread(reader, BLOCK, 0)
            process.terminate()
            assert process.wait(timeout=60) == 0
            with pytest.raises(OSError):
                os.close(reader)
        assert not os.path.ismount(tmp_path / "pool")

    def test_who_unmounts_ends_it(self, tmp_path):
        made = Set()
        made[1].fields["crc"] = 1
        with served(made.write(tmp_path / "set"), tmp_path / "pool") as process:
            unmount(tmp_path / "pool")
            assert process.wait(timeout=60) == 2

    def test_in_the_background_a_signal_unmounts_too(self, tmp_path):
        folder = Set().write(tmp_path / "set")
        where = tmp_path / "pool"
        where.mkdir()
        assert zsbtool.run("mount", folder, where).status == 0
        [process] = processes_with(str(where))
        os.kill(process, signal.SIGTERM)
        wait_until(lambda: not os.path.ismount(where))


def test_paths_may_be_relative_and_not_ascii(tmp_path):
    folder = Set(compress=True).write(tmp_path / "größe 集")
    (tmp_path / "pool é").mkdir()
    assert zsbtool.run("mount", folder.name, "pool é", cwd=tmp_path).status == 0
    try:
        assert read_block(tmp_path / "pool é/pool.img", 3) == held(Set())[3]
    finally:
        unmount(tmp_path / "pool é")


def test_a_set_may_be_mounted_over_itself(tmp_path):
    made = Set()
    folder = made.write(tmp_path / "set")
    with mounted(folder, folder) as image:
        assert os.listdir(folder) == ["pool.img"]
        assert read_block(image, 3) == held(made)[3]
    assert len(os.listdir(folder)) == 4


def test_a_set_of_one_empty_file_is_a_pool_of_zeros(tmp_path):
    (tmp_path / "set").mkdir()
    scanset.write_file(tmp_path / "set/T0000000.ZSB", poolBlocks=3)
    with mounted(tmp_path / "set", tmp_path / "pool") as image:
        assert image.read_bytes() == 3 * ZEROS


@pytest.mark.parametrize("words, error", [
    (["set", "missing"], "missing: No such file or directory"),
    (["set", "set/T0000000.ZRB"], "set/T0000000.ZRB: Not a directory"),
    (["missing", "pool"], "missing: No such file or directory"),
    (["pool", "pool"], "pool: there is no such set of scan files"),
    (["none", "pool"], "none: no file has a header that tells the pool's size"),
])
def test_what_cannot_be_mounted_ends_with_1(tmp_path, words, error):
    Set().write(tmp_path / "set")
    for name in ("pool", "none"):
        (tmp_path / name).mkdir()
    (tmp_path / "none/T0000000.ZSB").touch()
    shown = zsbtool.run("mount", *words, cwd=tmp_path)
    assert (shown.status, shown.text, shown.err) == (1, "", f"zsbtool: {error}\n")


def test_a_folder_without_rights_ends_with_1(somebody):
    folder = Set().write(somebody.folder / "set")
    (somebody.folder / "pool").mkdir()
    folder.chmod(0)
    shown = zsbtool.run("mount", folder, somebody.folder / "pool", **somebody.how)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err == f"zsbtool: {folder}: Permission denied\n"
    folder.chmod(0o755)
    shown = zsbtool.run("mount", folder, somebody.folder / "pool", **somebody.how)
    assert (shown.status, shown.text) == (1, "")
    assert shown.err.endswith(f"zsbtool: {somebody.folder}/pool: it cannot be mounted on\n")
    shutil.rmtree(folder)
