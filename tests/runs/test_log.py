"""The run log, line by line."""

import re
import time

import pytest

import ostrelscan
import saving
import scanset

TIME = (r'<CurrentTime time="[A-Z][a-z]{2} \d\d, \d{4}  \d\d:\d\d:\d\d [AP]M  [+-]\d{4}" '
        r'timeValue="\d{10}" />')
BUILD = r"  Build: [A-Z][a-z]{2} [ \d]\d \d{4} at \d\d:\d\d:\d\d"


def masked(log, device):
    """The log with what differs from run to run behind names."""
    log = re.sub(TIME, "TIME", log)
    log = re.sub(BUILD, "  Build: DATE at CLOCK", log)
    return log.replace(str(ostrelscan.tool()), "TOOL").replace(str(device), "DEVICE")


@pytest.fixture
def small(tmp_path):
    """A pool of 42 blocks: 27 of a selected type, 12 user blocks and 3 leaves of the other
    format."""
    magics = {1: b"SPB5", **dict.fromkeys(range(4, 30), b"LEAF"),
              **dict.fromkeys(range(38, 41), b"BtqZ")}
    return saving.image_of(tmp_path / "image", 42, magics)


@pytest.mark.parametrize("name, options", [
    ("log-success.txt", ()), ("log-compressed-all.txt", ("-a", "-c"))])
def test_the_log_of_a_save(loop, small, tmp_path, golden, name, options):
    with loop(small) as device:
        done = saving.save(device, tmp_path, *options)
        assert done.status == 0
        golden(name, masked(done.log, device))


def test_the_log_of_a_save_of_three_files(loop, tmp_path, golden):
    image = saving.run_of(tmp_path / "image", 2 * 2555 + 9, 2 * 2555 + 4)
    with loop(image) as device:
        done = saving.save(device, tmp_path)
        assert done.status == 0
        golden("log-three-files.txt", masked(done.log, device))


def test_the_log_of_a_device_that_is_no_pool(loop, tmp_path, golden):
    image = saving.image_of(tmp_path / "image", 42, {1: b"sbo5"})
    with loop(image) as device:
        done = saving.save(device, tmp_path)
        assert done.status == 1
        golden("log-no-superblock.txt", masked(done.log, device))


def test_the_log_of_a_path_that_is_missing(loop, small, tmp_path, golden):
    with loop(small) as device:
        done = saving.save(device, tmp_path, "-P", "missing")
        assert done.status == 1
        golden("log-no-directory.txt", masked(done.log, device))


def test_the_log_of_a_device_that_is_missing(tmp_path, golden):
    done = saving.save("none", tmp_path)
    assert done.status == 1
    golden("log-no-device.txt", masked(done.log, "none"))


def test_the_log_of_a_name_that_is_too_long(loop, small, tmp_path, golden):
    with loop(small) as device:
        done = ostrelscan.run(["--bypass-ostrel", "save", "n" * 64, device], tmp_path)
        assert done.status == 1
        golden("log-long-name.txt", masked(done.log, device))


def test_the_log_of_a_pool_with_bad_blocks(fault_loop, small, tmp_path, golden):
    with fault_loop(small, tmp_path / "mnt", "badread=0,17,26,41") as (device, _):
        done = saving.save(device, tmp_path)
        assert done.status == 0
        golden("log-bad-blocks.txt", masked(done.log, device))


def test_the_log_grows_by_one_element_with_every_run(loop, small, tmp_path):
    with loop(small) as device:
        saving.save(device, tmp_path)
        first = (tmp_path / ostrelscan.LOG_NAME).read_text()
        saving.save("none", tmp_path)
        done = saving.save(device, tmp_path, "-c")
    assert done.log.startswith(first)
    runs = ostrelscan.split_log(done.log)
    assert [run.closed for run in runs] == [True] * 3
    assert ["<Compress>1</Compress>" in run.lines for run in runs] == [False, False, True]
    assert ["Unable to open" in "".join(run.lines) for run in runs] == [False, True, False]


def test_both_time_stamps_tell_the_run_in_local_time(loop, small, tmp_path):
    begun = int(time.time())
    with loop(small) as device:
        done = saving.save(device, tmp_path, env={"TZ": "XYZ-3"})
    run = done.log_run
    assert begun <= run.times[0] <= run.times[1] <= time.time()
    stamp = next(line for line in run.lines if line.startswith("<CurrentTime "))
    shown = time.strftime("%b %d, %Y  %I:%M:%S %p  +0300", time.gmtime(run.times[0] + 3 * 3600))
    assert stamp == f'<CurrentTime time="{shown}" timeValue="{run.times[0]}" />'


def test_nothing_of_the_log_reaches_standard_error_or_the_screen(loop, small, tmp_path):
    with loop(small) as device:
        good = saving.save(device, tmp_path)
        bad = saving.save(device, tmp_path, "-P", "missing")
    assert good.stderr == bad.stderr == ""
    for text in ("RunDumpMain", "Could not create", "<Options>", "zlib"):
        assert text in bad.log
        assert text not in good.stdout + bad.stdout


@pytest.mark.parametrize("options", [(), ("-c",)], ids=["raw", "compressed"])
def test_the_history_tells_each_file_with_its_crc_and_counts(loop, tmp_path, options):
    image = saving.run_of(tmp_path / "image", 2555 + 9, 2555 + 4)
    with loop(image) as device:
        done = saving.save(device, tmp_path, *options)
    lines = done.log_run.lines
    files = scanset.read_set(tmp_path)
    at = lines.index("Current Scan File History:")
    assert lines[at - 1] == ""
    assert lines[at + 1:at + 4] == [
        f"./{file.path.name}\t0\t{file.header['crc']}\t2555\t{len(file.records)}"
        for file in files] + [""]
