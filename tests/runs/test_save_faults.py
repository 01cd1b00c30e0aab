"""Saves whose scan file cannot be flushed or closed: what is told, and what the file says."""

import pytest

import ostrelscan
import saving

FLUSH = "STATUS ZSBFile::DataWriteFlush(): "
CLOSE = "STATUS ZSBFile::CreateClose(bool, bool, bool, bool, long unsigned int*): "
NO_SPACE, IO_ERROR = "No space left on device", "Input/output error"
NO_SPACE_STATUS, IO_ERROR_STATUS = 0x22BA501C, 0x22BA5005


@pytest.mark.parametrize("options, faults, status, told, flags", [
    ((), "fflush=28", NO_SPACE_STATUS, [CLOSE + NO_SPACE], 0x202),
    ((), "fclose=5", IO_ERROR_STATUS, [CLOSE + IO_ERROR], 0x202),
    ((), "fflush=28,fclose=5", NO_SPACE_STATUS, [CLOSE + NO_SPACE, CLOSE + IO_ERROR], 0x202),
    # The end of a compressed stream is flushed before the header is written, and so told in it.
    (("-c",), "fflush=28", NO_SPACE_STATUS, [FLUSH + NO_SPACE, CLOSE + NO_SPACE], 0x2C3),
    (("-c",), "fclose=5", IO_ERROR_STATUS, [CLOSE + IO_ERROR], 0x243),
    (("-c",), "fflush=28,fclose=5", NO_SPACE_STATUS,
     [FLUSH + NO_SPACE, CLOSE + NO_SPACE, CLOSE + IO_ERROR], 0x2C3),
], ids=["raw flush", "raw close", "raw both", "compressed flush", "compressed close",
        "compressed both"])
def test_a_scan_file_that_cannot_be_flushed_or_closed_fails_the_save(tmp_path, options, faults,
                                                                     status, told, flags):
    image = saving.run_of(tmp_path / "image", 3, 2)
    name = "C0000000.ZSB" if options else "T0000000.ZSB"
    run = saving.save(image, tmp_path, *options, env=ostrelscan.preload(
        "libclosefaults.so", FAULT_PATH=str(tmp_path / name), FAULT_CALLS=faults))
    assert (run.status, run.stderr) == (1, "")
    assert run.stdout.endswith(f"\n{saving.failed_line(status)}\n")
    body = run.log_run.body
    assert body[body.index(saving.ZLIB_WARNING):][:len(told) + 2] == [
        saving.ZLIB_WARNING, *told, "In RunDumpMain(exit)"]
    assert f"util/ostrelscan/scanUI[497] Could not complete scan of pool - {status}" in body
    assert f"util/ostrelscan/scanUI[506]Status is {status:x}" in body
    # The faults come once the calls are done, so nothing is lost.
    file, = saving.assert_saved(tmp_path, saving.expected(image))
    assert file.header["flags"] == flags
    assert f"./{name}\t{status}\t{file.header['crc']}\t2555\t2" in body
