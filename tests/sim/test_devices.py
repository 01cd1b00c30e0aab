import array
import errno
import fcntl
import mmap
import os
import struct

import pytest

BLOCK = 4096
BLOCKS = 512
BLKGETSIZE64 = 0x80081272


@pytest.fixture
def image(tmp_path):
    path = tmp_path / "pool.img"
    path.write_bytes(b"".join(struct.pack("<Q", n) * (BLOCK // 8) for n in range(BLOCKS)))
    return path


@pytest.fixture
def served(start, image):
    return start("--pool", f"P,-,maintenance,{image}", "--bad", "P,5+70-72+200")


@pytest.fixture
def loop(served):
    """A loop device over the served image."""
    device = served.run_inside("losetup", "--find", "--show", "/_admin/Devices/P",
                               capture_output=True, text=True, check=True).stdout.strip()
    yield device
    served.run_inside("losetup", "--detach", device, check=True)


def open_device(served, flags=os.O_RDWR):
    return os.open(served.inside("/_admin/Devices/P"), flags)


def number_at(descriptor, block):
    return struct.unpack_from("<Q", os.pread(descriptor, BLOCK, block * BLOCK))[0]


def test_the_image_is_shown_with_its_size(served):
    folder = served.inside("/_admin/Devices")
    assert os.listdir(folder) == ["P"]
    assert os.stat(folder + "/P").st_size == BLOCKS * BLOCK


def test_the_size_request_of_a_block_device_is_answered(served):
    device = open_device(served)
    size = array.array("Q", [0])
    fcntl.ioctl(device, BLKGETSIZE64, size)
    assert size[0] == BLOCKS * BLOCK
    with pytest.raises(OSError) as failure:
        fcntl.ioctl(device, 0x1260, size)  # BLKGETSIZE
    assert failure.value.errno == errno.ENOTTY
    os.close(device)


def test_reads_and_writes_reach_the_image(served, image):
    device = open_device(served)
    assert number_at(device, 9) == 9
    assert os.pwrite(device, b"x" * BLOCK, 9 * BLOCK) == BLOCK
    os.fsync(device)
    os.close(device)
    with image.open("rb") as file:
        file.seek(8 * BLOCK)
        assert struct.unpack("<Q", file.read(8))[0] == 8
        file.seek(9 * BLOCK)
        assert file.read(BLOCK) == b"x" * BLOCK


def test_the_image_keeps_its_size(served, image):
    device = open_device(served)
    with pytest.raises(OSError) as failure:
        os.pwrite(device, b"x", BLOCKS * BLOCK)
    assert failure.value.errno == errno.ENOSPC
    with pytest.raises(PermissionError):
        os.ftruncate(device, 0)
    os.close(device)
    assert image.stat().st_size == BLOCKS * BLOCK


def bad_blocks(device):
    """The blocks that fail when each is read alone, past every cache."""
    bad = []
    buffer = mmap.mmap(-1, BLOCK)
    for block in range(BLOCKS):
        try:
            assert os.preadv(device, [buffer], block * BLOCK) == BLOCK
            assert struct.unpack_from("<Q", buffer)[0] == block
        except OSError as failure:
            assert failure.errno == errno.EIO
            bad.append(block)
    return bad


def test_a_loop_device_over_the_image_has_bad_blocks(served, loop):
    device = os.open(loop, os.O_RDONLY | os.O_DIRECT)
    size = array.array("Q", [0])
    fcntl.ioctl(device, BLKGETSIZE64, size)
    assert size[0] == BLOCKS * BLOCK
    assert bad_blocks(device) == [5, 70, 71, 72, 200]
    os.close(device)


def test_bad_blocks_come_and_go_while_the_device_is_in_use(served, loop):
    device = os.open(loop, os.O_RDONLY | os.O_DIRECT)
    served.control("bad", "P", "none")
    assert bad_blocks(device) == []
    served.control("bad", "P", "5,9")
    assert bad_blocks(device) == [5, 9]
    os.close(device)


def test_writes_and_reads_can_fail_apart(served):
    served.control("bad", "P", "3", "write")
    device = open_device(served)
    assert number_at(device, 3) == 3
    with pytest.raises(OSError) as failure:
        os.pwrite(device, b"x" * BLOCK, 3 * BLOCK)
    assert failure.value.errno == errno.EIO
    served.control("bad", "P", "4", "read")
    assert os.pwrite(device, b"x" * BLOCK, 3 * BLOCK) == BLOCK
    with pytest.raises(OSError) as failure:
        os.pread(device, BLOCK, 4 * BLOCK)
    assert failure.value.errno == errno.EIO
    os.close(device)


def test_writes_through_a_loop_device_reach_the_image_or_fail(served, loop, image):
    device = os.open(loop, os.O_RDWR | os.O_DIRECT)
    buffer = mmap.mmap(-1, BLOCK)
    buffer.write(b"y" * BLOCK)
    assert os.pwritev(device, [buffer], 8 * BLOCK) == BLOCK
    with pytest.raises(OSError) as failure:
        os.pwritev(device, [buffer], 70 * BLOCK)
    assert failure.value.errno == errno.EIO
    os.fsync(device)
    os.close(device)
    with image.open("rb") as file:
        file.seek(8 * BLOCK)
        assert file.read(BLOCK) == b"y" * BLOCK
        file.seek(70 * BLOCK)
        assert struct.unpack("<Q", file.read(8))[0] == 70


def test_a_buffered_reader_of_the_loop_device_sees_every_good_byte(served, loop, image):
    served.control("bad", "P", "none")
    with open(loop, "rb") as device:
        assert device.read() == image.read_bytes()


def test_a_pool_without_an_image_has_no_device(start):
    sim = start("--pool", "A,-,active,/dev/pool/A", "--pool", "B,-,active")
    assert os.listdir(sim.inside("/_admin/Devices")) == []


@pytest.mark.parametrize("words", [["P", "9-5"], ["P", "x"], ["P", ""], ["P", "1", "some"],
                                   ["Q", "1"]])
def test_a_list_of_bad_blocks_that_makes_no_sense_is_an_error(served, words):
    served.control("bad", *words, status=2)
