"""Restores that go wrong: what is written, what is told, and how the device is left."""

import concurrent.futures
import contextlib
import errno
import subprocess
import time

import pytest

import loopdev
import ostrelscan
import poolTypes
import restoring
import scanset
from restoring import BLOCK, SYSTEM_ERROR

RECORDS = restoring.records(list(range(8)) + [20, 21, 22, 5])
BLOCKS = 64
STARTED = ["In RunRestoreMain(start)", "util/ostrelscan/scanEngine[738]"]
READER = "warning: different zlib version"
FILE_END = "util/ostrelscan/scanEngine[1041]ZRB EOF found"
ENDED = "In RunRestoreMain(exit)"


@pytest.fixture
def folder(tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    scanset.write_set(folder / "set", RECORDS, per_file=9)
    return folder


@pytest.fixture
def image(tmp_path):
    return restoring.target_image(tmp_path / "target.img", BLOCKS)


def failed_with(run, status):
    """The run has told its status everywhere; returns what the pass logged between its ends."""
    assert (run.status, run.stderr) == (1, "")
    assert run.stdout.endswith(f"\nScan failed (see ostrelscan.log for more details): {status}\n")
    assert run.log_run.closed
    assert (f"util/ostrelscan/scanUI[727] Could not restore complete pool - {status}"
            in run.log_run.body)
    lines = restoring.pass_lines(run.log_run)
    assert lines[:3] == [*STARTED, READER] and lines[-1] == ENDED
    return lines[3:-1]


def failed_write(block, error):
    """What the log says of a block that could not be written."""
    status = SYSTEM_ERROR + error
    return [
        f"util/ostrelscan/scanEngine[1452] Write error to device during restore{error:x}",
        f"util/ostrelscan/scanEngine[1453]  Write was to block - {block:x}",
        "TrackWriteErrorStats",
        f"  Write error recorded from util/ostrelscan/scanEngine[1454]  Block - {block:x} "
        f"Status - {status:x}",
        f"util/ostrelscan/scanEngine[1058] Write error to device during restore{status}",
    ]


def restored_blocks(image):
    """The numbers of the image's blocks that hold what the set has for them."""
    wanted = dict(RECORDS)
    return [number for number, block in poolTypes.blocks(image) if block == wanted.get(number)]


def changed_blocks(image):
    untouched = {restoring.FILLER, restoring.SUPERBLOCK}
    return [number for number, block in poolTypes.blocks(image) if block not in untouched]


# A block that cannot be written, told by the write itself


@pytest.mark.parametrize("fault, error", [("badwrite=21", errno.EIO), ("enospc=21", errno.ENOSPC)])
def test_the_first_failed_write_ends_the_restore_at_its_block(fault_disk, folder, image, tmp_path,
                                                              fault, error):
    with fault_disk(image, tmp_path / "mnt", fault) as disk:
        run = restoring.restore(folder, disk.disk, "--validation-skip")
        assert disk.counts()["writes"] == (10, 1)
    status = SYSTEM_ERROR + error
    assert failed_with(run, status) == [FILE_END, *failed_write(21, error)]
    assert changed_blocks(image) == restored_blocks(image) == [*range(8), 20]
    assert restoring.history(run.log_run) == [("T0000000.ZRB", 0, 9, 9),
                                              ("T0000001.ZRB", status, 3, 1)]


def test_a_block_that_is_not_written_may_be_bad(fault_disk, folder, image, tmp_path):
    with fault_disk(image, tmp_path / "mnt", "badwrite=10-19,23-63") as disk:
        run = restoring.restore(folder, disk.disk, "--validation-skip")
    assert run.status == 0
    assert restored_blocks(image) == [*range(8), 20, 21, 22]


def test_a_device_that_takes_no_write_fails_at_the_first_block(fault_disk, folder, image,
                                                               tmp_path):
    before = image.read_bytes()
    with fault_disk(image, tmp_path / "mnt", "readonly") as disk:
        run = restoring.restore(folder, disk.disk)
    assert failed_with(run, SYSTEM_ERROR + errno.EROFS) == failed_write(0, errno.EROFS)
    assert image.read_bytes() == before


def test_a_device_that_is_too_short_fails_at_its_end(loop, folder, tmp_path):
    image = restoring.target_image(tmp_path / "short.img", 21)
    with loop(image) as device:
        run = restoring.restore(folder, device)
    status = SYSTEM_ERROR + errno.ENOSPC
    assert failed_with(run, status)[-5:] == failed_write(21, errno.ENOSPC)
    assert restored_blocks(image) == [*range(8), 20], "what was written has reached the device"


@pytest.mark.parametrize("number", [BLOCKS + 1, 2**40, 2**51, 2**52 + 3, 2**64 - 1])
def test_a_block_that_the_device_does_not_have_fails_its_seek(loop, folder, image, number):
    restoring.replace_set(folder, restoring.records([3, number, 4]))
    with loop(image) as device:
        run = restoring.restore(folder, device)
    status = SYSTEM_ERROR + errno.EINVAL
    assert failed_with(run, status) == [
        "util/ostrelscan/scanEngine[1438] Seek error on device during restore - 16",
        f"util/ostrelscan/scanEngine[1439]  Seek was to block - {number:x}",
        "TrackWriteErrorStats",
        f"  Write error recorded from util/ostrelscan/scanEngine[1441]  Block - {number:x} "
        f"Status - {status:x}",
        f"util/ostrelscan/scanEngine[1058] Write error to device during restore{status}",
    ]
    assert changed_blocks(image) == [3]


# Faults that come while the restore runs


def slowly(output, device, microseconds=3000):
    """Runs the tool with a delay before each write to its device."""
    return restoring.trace_command(output, "write", "-P", str(device), "-e",
                                   f"inject=write:delay_enter={microseconds}")


@contextlib.contextmanager
def in_background(folder, *arguments, **how):
    """A restore that runs while the body does; what it yields gives its run."""
    environment = {**restoring.without_leak_check(), **how.pop("env", {})}
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        yield pool.submit(restoring.restore, folder, *arguments, env=environment, **how)


def wait_for(condition, seconds=20):
    until = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < until
        time.sleep(0.005)


@pytest.mark.parametrize("fault, error, closing", [
    ("readonly", errno.EROFS, []),
    ("gone", errno.EIO, ["Unable to sync data to device - 5", "Unable to close device - 5"]),
])
def test_a_device_that_fails_in_the_middle_is_still_stored_and_closed(fault_disk, folder, tmp_path,
                                                                      fault, error, closing):
    image = restoring.target_image(tmp_path / "target.img", 1024)
    restoring.replace_set(folder, restoring.records(range(1024)))
    with fault_disk(image, tmp_path / "mnt") as disk:
        with in_background(folder, disk.disk,
                           before=slowly(tmp_path / "trace.txt", disk.disk)) as restore:
            wait_for(lambda: disk.counts()["writes"][0] >= 20)
            disk.command(fault)
            run = restore.result(60)
        writes, failed = disk.counts()["writes"]
    assert failed == 1
    lines = failed_with(run, SYSTEM_ERROR + error)
    assert lines == [*failed_write(writes - 1, error), *closing]
    assert changed_blocks(image) == list(range(writes - 1))


def test_a_block_device_that_turns_read_only_fails_at_the_next_block(loop, folder, tmp_path):
    if not loopdev.have_administration():
        pytest.skip(loopdev.have_administration().why)
    image = restoring.target_image(tmp_path / "target.img", 1024)
    restoring.replace_set(folder, restoring.records(range(1024)))
    trace = tmp_path / "trace.txt"
    with loop(image) as device:
        with in_background(folder, device, before=slowly(trace, device)) as restore:
            wait_for(lambda: trace.exists() and trace.read_bytes().count(b"write(") >= 20)
            subprocess.run(["blockdev", "--setro", device], check=True)
            run = restore.result(60)
        subprocess.run(["blockdev", "--setrw", device], check=True)
    written = len(changed_blocks(image))
    assert 0 < written < 1024 and changed_blocks(image) == list(range(written))
    lines = failed_with(run, SYSTEM_ERROR + errno.EPERM)
    assert lines == failed_write(written, errno.EPERM)


# What is told when the device is stored and closed


@pytest.mark.parametrize("fault", ["badwrite=21", "enospc=21", "readonly"])
def test_an_error_that_the_sync_finds_is_told_as_its_number(fault_loop, folder, image, tmp_path,
                                                            fault):
    with fault_loop(image, tmp_path / "mnt", fault) as (device, disk):
        run = restoring.restore(folder, device, "--validation-skip")
        assert disk.counts()["writes"][1] > 0
        disk.command("clear")
    # The loop device knows but one kind of error.
    assert failed_with(run, errno.EIO) == [FILE_END, FILE_END, "Unable to sync data to device - 5"]


STEPS = {"fflush": "Unable to flush data to device - ", "fsync": "Unable to sync data to device - ",
         "fclose": "Unable to close device - "}


@pytest.mark.parametrize("calls", [
    {"fflush": 28}, {"fsync": 5}, {"fclose": 122}, {"fflush": 28, "fclose": 5},
    {"fsync": 5, "fclose": 28}, {"fflush": 30, "fsync": 5, "fclose": 28}],
    ids=lambda calls: " ".join(calls))
def test_the_first_failure_of_the_closing_steps_is_the_status(loop, folder, image, calls):
    with loop(image) as device:
        run = restoring.restore(folder, device, env=close_faults(device, calls))
    told = [STEPS[step] + str(error) for step, error in calls.items()]
    assert failed_with(run, next(iter(calls.values()))) == [FILE_END, FILE_END, *told]
    assert restored_blocks(image) == [*range(8), 20, 21, 22]


def close_faults(device, calls):
    text = ",".join(f"{step}={error}" for step, error in calls.items())
    return ostrelscan.preload("libclosefaults.so", FAULT_PATH=str(device), FAULT_CALLS=text)


def test_a_failed_write_stays_the_status_whatever_the_closing_steps_say(fault_disk, folder, image,
                                                                       tmp_path):
    calls = {"fflush": 28, "fsync": 30, "fclose": 122}
    with fault_disk(image, tmp_path / "mnt", "badwrite=3") as disk:
        run = restoring.restore(folder, disk.disk, "--validation-skip",
                                env=close_faults(disk.disk, calls))
    assert failed_with(run, SYSTEM_ERROR + errno.EIO) == [
        *failed_write(3, errno.EIO), *(STEPS[step] + str(calls[step]) for step in STEPS)]


def test_the_device_is_stored_when_memory_ends_in_the_middle(loop, folder, image):
    scanset.write_file(folder / "set" / "T0000001.ZRB", RECORDS[9:], compress=True, fileNumber=1)
    memory = ostrelscan.preload("libcallfaults.so", FAULT_CALL="memory")
    with loop(image) as device:
        run = restoring.restore(folder, device, env=memory)
    assert failed_with(run, 24999) == [FILE_END, "Exception while running a pass:  std::bad_alloc"]
    assert restored_blocks(image) == [*range(8), 20]


def test_every_closing_step_follows_a_failed_write(fault_disk, folder, image, tmp_path):
    trace = tmp_path / "trace.txt"
    with fault_disk(image, tmp_path / "mnt", "badwrite=3") as disk:
        restoring.restore(folder, disk.disk, "--validation-skip",
                          env=restoring.without_leak_check(),
                          before=restoring.trace_command(trace, "write,fsync,close", "-P",
                                                         str(disk.disk)))
    calls = [call.name for call in restoring.traced_calls(trace)]
    assert calls == ["write"] * 4 + ["fsync", "close"]


# Devices and pools that are not to be had


def told_as(run, message, *, log=()):
    """The pass has ended before its loop with status 1 and this message."""
    assert run.status == 1
    assert run.stdout.endswith("\nScan failed (see ostrelscan.log for more details): 1\n")
    body = run.log_run.body
    assert f"util/ostrelscan/scanUI[727] {message}" in body
    assert ENDED not in body
    start = body.index("In RunRestoreMain(start)")
    assert body[start + 1:start + 1 + len(log)] == list(log)


def test_a_missing_device_is_told_and_not_made(folder):
    run = restoring.restore(folder, folder / "none")
    message = (f'Unable to open device "{folder}/none" for write access - '
               "No such file or directory")
    told_as(run, message, log=[message, "Done "])
    assert not (folder / "none").exists()


def test_a_read_only_device_is_told_and_left_alone(loop, folder, image):
    before = image.read_bytes()
    with loop(image, read_only=True) as device:
        run = restoring.restore(folder, device)
    if "Unable to open device" in run.log:  # some kernels do not even open it
        message = f'Unable to open device "{device}" for write access - Permission denied'
        told_as(run, message, log=[message, "Done "])
    else:
        assert failed_with(run, SYSTEM_ERROR + errno.EPERM) == failed_write(0, errno.EPERM)
    assert image.read_bytes() == before


def test_a_device_that_is_gone_is_told(fault_disk, folder, image, tmp_path):
    with fault_disk(image, tmp_path / "mnt", "gone") as disk:
        run = restoring.restore(folder, disk.disk)
    message = f'Unable to open device "{disk.disk}" for write access - Input/output error'
    told_as(run, message, log=[message, "Done "])


UNVALIDATED = ("OSTREL Pool superblock header validation error:  Pool's superblock did not "
               "validate (ensure that the correct device was given)")


def overwrite(image, number, block):
    with open(image, "r+b") as file:
        file.seek(number * BLOCK)
        file.write(block)


@pytest.mark.parametrize("start, status", [(b"sbo5", 24861), (b"so64", 24861), (b"", 24861)])
def test_a_device_without_a_superblock_is_left_alone(loop, folder, image, start, status):
    overwrite(image, 1, start.ljust(BLOCK, b"\0"))
    before = image.read_bytes()
    with loop(image) as device:
        run = restoring.restore(folder, device)
    told_as(run, UNVALIDATED, log=["util/ostrelscan/scanEngine[738]",
                                   f"Validation status - {status}", UNVALIDATED,
                                   "util/ostrelscan/scanEngine[774]", "Done "])
    assert image.read_bytes() == before


@pytest.mark.parametrize("start", [b"SPB5", b"SB64"])
def test_both_superblock_formats_validate(loop, folder, image, start):
    overwrite(image, 1, start.ljust(BLOCK, b"\0"))
    with loop(image) as device:
        assert restoring.restore(folder, device).status == 0


def test_a_device_of_one_block_does_not_validate(loop, folder, tmp_path):
    image = restoring.target_image(tmp_path / "one.img", 1)
    with loop(image) as device:
        run = restoring.restore(folder, device)
    told_as(run, UNVALIDATED, log=["util/ostrelscan/scanEngine[738]", "Validation status - 20100"])


def test_a_superblock_that_cannot_be_read_does_not_validate(fault_disk, folder, image, tmp_path):
    with fault_disk(image, tmp_path / "mnt", "badread=1") as disk:
        run = restoring.restore(folder, disk.disk)
    told_as(run, UNVALIDATED, log=["util/ostrelscan/scanEngine[738]",
                                   f"Validation status - {SYSTEM_ERROR + errno.EIO}"])


def test_a_pool_name_that_no_scan_file_holds_is_told(loop, folder, image):
    with loop(image) as device:
        run = restoring.restore(folder, device, pool="P" * 64)
    message = "Exception while attempting to create a ZSBFile Object:  Poolname is too long"
    told_as(run, message, log=["util/ostrelscan/scanEngine[738]", message, "Done "])
    assert changed_blocks(image) == []
