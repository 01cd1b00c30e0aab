"""What cannot work: every failure has its status and text, a whole log and a terminal as before."""

import errno
import os
import stat
import subprocess

import pytest

import loopdev
import ostrelscan
import saving
import scanset

SUPERBLOCK = ("OSTREL Pool superblock header validation error:  Pool's superblock did not validate "
              "(ensure that the correct device was given)")
WRITER = "Exception while attempting to create a ZSBFile Object:  "
PATH_TOO_LONG = WRITER + "strlen( zsbFilePath ) >= sizeof( ZF_Path )"


def system_error(errno_name):
    return saving.SYSTEM_ERROR + getattr(errno, errno_name)


def save(device, folder, *options, name="data"):
    argv = ["--automatic", "--bypass-ostrel", *options, "save", name, device]
    return saving.run_on_terminal(argv, folder)


def assert_failed(run, status, message):
    """The run ended as a failed one must, telling this status and message everywhere."""
    assert (run.status, run.restored) == (1, True)
    assert run.text.strip() == saving.failed_line(status % 2**32)
    assert run.log_run.closed
    assert f"util/ostrelscan/scanUI[497] {message}" in run.log_run.lines
    assert f"util/ostrelscan/scanUI[506]Status is {status % 2**32:x}" in run.log_run.lines
    assert run.picture.rows[19].rstrip() == message[:80].rstrip()
    assert len(run.log_run.times) == 2


def scan_failed(status):
    return f"Could not complete scan of pool - {status}"


def open_failed(device, reason):
    return f'Unable to open device "{device}" for read access - {reason}'


@pytest.fixture
def small(loop, tmp_path):
    """A device of 64 blocks that can be saved."""
    image = saving.run_of(tmp_path / "image", 64, 40)
    with loop(image) as device:
        yield device


# The directory


@pytest.mark.parametrize("path, error", [("missing", "ENOENT"), ("file", "ENOTDIR"),
                                         ("/proc/nowhere", "ENOENT"), ("/proc", "ENOENT")])
def test_a_directory_that_cannot_take_files_fails_the_save(small, tmp_path, path, error):
    (tmp_path / "file").write_bytes(b"kept")
    run = save(small, tmp_path, "-P", path)
    status = system_error(error)
    assert_failed(run, status, scan_failed(status))
    reason = os.strerror(status - saving.SYSTEM_ERROR)
    assert f"Could not create {path}/T0000000.ZSB because {reason}" in run.log_run.lines
    assert f"{path}/T0000000.ZSB\t{status}\t{2**64 - 1}\t0\t0" in run.log_run.lines
    assert run.picture.rows[22].rstrip() == f" {path}/T0000000.ZSB     Error({status})"
    assert (tmp_path / "file").read_bytes() == b"kept"


def test_a_directory_that_is_read_only_fails_the_save(small, tmpfs, tmp_path):
    with tmpfs("ro,size=64k") as folder:
        run = save(small, tmp_path, "-c", "-P", folder)
    status = system_error("EROFS")
    assert_failed(run, status, scan_failed(status))
    assert f"Could not create {folder}/C0000000.ZSB because Read-only file system" \
        in run.log_run.lines


def test_a_scan_file_that_is_a_directory_fails_the_save(small, tmp_path):
    (tmp_path / "T0000000.ZSB").mkdir()
    run = save(small, tmp_path)
    status = system_error("EISDIR")
    assert_failed(run, status, scan_failed(status))
    assert "Could not create ./T0000000.ZSB because Is a directory" in run.log_run.lines


def padded(folder, length):
    """A path of that length, with its slash at the end, to this folder under the current one."""
    path = f"{folder}/"
    path = "./" * ((length - len(path)) // 2) + path
    return path if len(path) == length else path[:-1] + "//"


def test_a_path_of_511_characters_is_taken(small, tmp_path):
    (tmp_path / "out").mkdir()
    path = padded("out", 511)
    assert len(path) == 511
    run = save(small, tmp_path, "-P", path)
    assert (run.status, run.restored) == (0, True)
    assert [record[0] for record in scanset.set_records(tmp_path / "out")] == list(range(1, 41))


@pytest.mark.parametrize("length", [512, 513, 4000])
def test_a_longer_path_fails_the_save(small, tmp_path, length):
    (tmp_path / "out").mkdir()
    run = save(small, tmp_path, "-P", padded("out", length))
    assert (run.status, run.restored) == (1, True)
    assert run.text.strip() == saving.failed_line(1)
    assert run.log_run.closed
    assert f"util/ostrelscan/scanUI[497] {PATH_TOO_LONG}" in run.log_run.lines
    assert PATH_TOO_LONG in run.log_run.lines
    assert list((tmp_path / "out").iterdir()) == []


# The disk


def assert_whole_so_far(file, records):
    """The header tells an error and counts only whole records, which are right."""
    assert file.header["flags"] & 0x080
    count, rest = divmod(file.header["dataBytes"] - 660, 4104)
    assert rest == 0 and 0 < count < len(records)
    return count


def test_a_disk_that_gets_full_ends_a_raw_save(pool, pool_device, tmpfs, tmp_path):
    made = pool(size="16M")
    records = saving.expected(made.path)
    with pool_device(made) as device, tmpfs("size=2M") as folder:
        run = save(device, tmp_path, "-P", folder)
        status = system_error("ENOSPC")
        assert_failed(run, status, scan_failed(status))
        file, = scanset.read_set(folder)
        count = assert_whole_so_far(file, records)
        assert file.header["flags"] == 0x280
        assert count == (2 * 1024 * 1024 - 660) // 4104
        assert file.records[:count] == records[:count]
    log = run.log_run.lines
    assert "ZSBFile::Write:: No space left on device" in log
    assert "util/common/zsbFile[480] Error writing to destination file 1008 bytes." in log
    assert f"{folder}/T0000000.ZSB\t{status}\t{file.header['crc']}\t2555\t{count}" in log


def test_a_disk_that_gets_full_ends_a_compressed_save(pool, pool_device, tmpfs, tmp_path):
    made = pool(size="16M")
    with pool_device(made) as device, tmpfs("size=256k") as folder:
        run = save(device, tmp_path, "-c", "-P", folder)
        assert_failed(run, -2, scan_failed(-2))
        file, = scanset.read_set(folder)
        assert_whole_so_far(file, saving.expected(made.path))
        assert file.header["flags"] == 0x2C1
        assert file.header["fileEof"] <= file.path.stat().st_size
    log = run.log_run.lines
    assert "ZSBFile::Write:: No space left on device" in log
    assert "util/common/zsbFile[480] Error writing to destination file 4000 bytes." in log


def test_a_disk_that_is_full_already_fails_the_first_record(small, tmpfs, tmp_path):
    with tmpfs("size=4k") as folder:
        (folder / "fill").write_bytes(bytes(4096))
        run = save(small, tmp_path, "-P", folder)
    status = system_error("ENOSPC")
    assert_failed(run, status, scan_failed(status))
    assert "ZSBFile::WriteHeader(): No space left on device" in run.log_run.lines
    assert "util/common/zsbFile[503] Error writing to destination file 660 bytes." \
        in run.log_run.lines


# The device


@pytest.mark.parametrize("device, reason", [
    ("missing", "No such file or directory"), ("file/below", "Not a directory"), ("", None)])
def test_a_device_that_cannot_be_opened_fails_the_save(tmp_path, device, reason):
    (tmp_path / "file").write_bytes(b"")
    run = save(device, tmp_path)
    message = open_failed(device, reason or "No such file or directory")
    assert_failed(run, 1, message)
    assert message in run.log_run.lines
    assert run.picture.rows[0].startswith(" Scanning 0 blocks on DATA.")
    assert not list(tmp_path.glob("*.ZSB"))


def test_a_device_without_hardware_fails_the_save(tmp_path):
    node = tmp_path / "node"
    try:
        os.mknod(node, stat.S_IFBLK | 0o600, os.makedev(240, 77))
    except OSError as error:
        pytest.skip(f"no device nodes: {error}")
    run = save(node, tmp_path)
    shown = next(line for line in run.log_run.lines if line.startswith("Unable to open device "))
    assert shown in {open_failed(node, os.strerror(number)) for number in (1, 6, 13, 19)}
    assert_failed(run, 1, shown)


def test_a_device_that_is_a_directory_fails_the_check(tmp_path):
    (tmp_path / "folder").mkdir()
    run = save("folder", tmp_path)
    assert_failed(run, 1, SUPERBLOCK)
    assert "Blocks in pool is 3" in run.log_run.lines


@pytest.mark.parametrize("size, blocks", [(0, 1), (512, 1), (4096, 1), (4608, 1)])
def test_a_device_too_short_for_a_superblock_fails_the_check(loop, tmp_path, size, blocks):
    image = loopdev.sparse_image(tmp_path / "image", size)
    with loop(image) as device:
        run = save(device, tmp_path)
    assert_failed(run, 1, SUPERBLOCK)
    assert f"Blocks in pool is {blocks}" in run.log_run.lines
    assert "util/ostrelscan/scanEngine[505]" in run.log_run.lines
    assert not list(tmp_path.glob("*.ZSB"))


def test_an_empty_device_is_one_unreadable_block_where_nothing_is_checked(loop, tmp_path):
    image = loopdev.sparse_image(tmp_path / "image", 0)
    with loop(image) as device:
        run = save(device, tmp_path, "--validation-skip", "-a")
    assert (run.status, run.restored) == (0, True)
    file, = saving.assert_saved(tmp_path, [])
    assert file.header["flags"] == 0x202
    assert any(line.endswith("Block - 0 Status - 4e84") for line in run.log_run.lines)


@pytest.mark.parametrize("blocks, selected", [(1, 0), (2, 1)])
def test_a_device_of_a_block_or_two_is_saved(loop, tmp_path, blocks, selected):
    magics = {1: b"SPB5"} if blocks == 2 else {}
    image = saving.image_of(tmp_path / "image", blocks, magics)
    with loop(image) as device:
        run = save(device, tmp_path, *["--validation-skip"] * (blocks == 1))
    assert (run.status, run.restored) == (0, True)
    assert len(scanset.set_records(tmp_path)) == selected
    assert f"Blocks in pool is {blocks}" in run.log_run.lines


# The pool's name


def test_a_name_of_63_characters_is_taken(small, tmp_path):
    run = save(small, tmp_path, name="n" * 63)
    assert (run.status, run.restored) == (0, True)
    assert scanset.read_set(tmp_path)[0].pool_name == "N" * 63


@pytest.mark.parametrize("length", [64, 300, 5000])
def test_a_longer_name_fails_the_save(small, tmp_path, length):
    run = save(small, tmp_path, name="n" * length)
    assert (run.status, run.restored) == (1, True)
    assert run.text.strip() == saving.failed_line(1)
    assert run.log_run.closed
    for line in (WRITER + "Poolname is too long",
                 f"util/ostrelscan/scanUI[497] {WRITER}Poolname is too long"):
        assert line in run.log_run.lines
    assert not list(tmp_path.glob("*.ZSB"))


# The log


def unlogged(device, folder, **env):
    """A run without a log to look at."""
    argv = [ostrelscan.tool(), "--automatic", *saving.arguments(device)]
    return subprocess.run(argv, cwd=folder, capture_output=True, text=True, check=False,
                          stdin=subprocess.DEVNULL, env={**os.environ, "TERM": "xterm", **env})


def assert_no_log(done, reason):
    assert (done.returncode, done.stdout) == (1, "\n")
    assert done.stderr == f"  Log file error: {reason}\n"


def test_a_log_that_is_a_directory_ends_the_program(small, tmp_path):
    (tmp_path / ostrelscan.LOG_NAME).mkdir()
    done = unlogged(small, tmp_path)
    assert_no_log(done, "Is a directory")


def test_a_log_in_a_read_only_directory_ends_the_program(small, tmpfs):
    with tmpfs("ro,size=64k") as folder:
        done = unlogged(small, folder)
        assert_no_log(done, "Read-only file system")
        assert list(folder.iterdir()) == []


def test_a_log_that_opens_for_the_probe_alone_ends_the_program(small, tmp_path):
    done = unlogged(small, tmp_path, **ostrelscan.preload("libcallfaults.so", FAULT_CALL="log"))
    assert (done.returncode, done.stdout) == (1, "Unable to open error log file.\n\n")
    assert done.stderr == ""
    assert (tmp_path / ostrelscan.LOG_NAME).read_bytes() == b""


def test_a_log_on_a_full_disk_does_not_spoil_the_save(pool, pool_device, tmpfs, tmp_path):
    made = pool(size="1M")
    (tmp_path / "out").mkdir()
    with pool_device(made) as device, tmpfs("size=4k") as folder:
        (folder / "fill").write_bytes(bytes(4096))
        done = saving.save(device, folder, "-P", tmp_path / "out")
    assert (done.status, done.stderr) == (0, "")
    saving.assert_saved(tmp_path / "out", saving.expected(made.path))
