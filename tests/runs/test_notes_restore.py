"""What the log of a restore says of scan files that do not fit; they are restored all the same."""

import pytest

import poolTypes
import restoring
import scanset

PER_FILE = 4
RECORDS = restoring.records(range(12))
OTHER = {"scanID": bytes(range(16, 32)), "poolBlocks": 4096,
         "poolName": "OTHER".encode("utf-16-le")}
ALL_OTHER = ("its scan ID is not that of set/{first}; its pool is \"OTHER\" and not \"POOL\"; "
             "its pool has 4096 blocks and not 16384")


def notes(run):
    return [line for line in run.log_run.lines if line.startswith("Note: ")]


def misfit(number, wrong, compress=False):
    name = scanset.file_name(number, compress=compress, suffix="ZRB")
    return f"Note: set/{name} does not fit: {wrong}"


@pytest.fixture
def folder(tmp_path):
    """A folder with a whole set of three files."""
    folder = restoring.make_folder(tmp_path / "run")
    scanset.write_set(folder / "set", RECORDS, per_file=PER_FILE)
    return folder


def rewrite(folder, number, *, compress=False, **fields):
    """Writes one file of the set anew, with other header fields."""
    last = number == len(RECORDS) // PER_FILE - 1
    fields = {"flags": (0x041 if compress else 0) | (scanset.LAST_FILE if last else 0),
              "fileNumber": number, **fields}
    name = scanset.file_name(number, compress=compress, suffix="ZRB")
    return scanset.write_file(folder / "set" / name,
                              RECORDS[number * PER_FILE:(number + 1) * PER_FILE],
                              compress=compress, **fields)


def restored(folder):
    return [number for number, block in poolTypes.blocks(folder / "device")
            if block == dict(RECORDS).get(number)]


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_a_set_that_fits_has_no_note(tmp_path, compress):
    folder = restoring.make_folder(tmp_path / "run")
    scanset.write_set(folder / "set", RECORDS, per_file=PER_FILE, compress=compress)
    run = restoring.restore_to_file(folder)
    assert (run.status, notes(run)) == (0, [])


@pytest.mark.parametrize("fields, wrong", [
    ({"scanID": OTHER["scanID"]}, "its scan ID is not that of set/T0000000.ZRB"),
    ({"poolName": OTHER["poolName"]}, 'its pool is "OTHER" and not "POOL"'),
    ({"poolBlocks": 4096}, "its pool has 4096 blocks and not 16384"),
    (OTHER, ALL_OTHER.format(first="T0000000.ZRB")),
    ({"flags": scanset.STOPPED}, "its save was stopped"),
    ({"flags": scanset.STATE_CHANGE}, "its save was disturbed by a change of the pool's state"),
    ({"flags": scanset.HAD_ERROR}, "its save met an error"),
    ({"flags": scanset.STOPPED | scanset.HAD_ERROR, "poolBlocks": 1},
     "its pool has 1 blocks and not 16384; its save was stopped; its save met an error"),
    ({"signature": b"SCAM"}, "its header is damaged"),
    ({"headerVersion": 3, "scanID": bytes(16)},
     "its header is damaged; its scan ID is not that of set/T0000000.ZRB"),
])
def test_a_file_that_does_not_fit_is_noted_once_and_restored(folder, fields, wrong):
    rewrite(folder, 1, **fields)
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert notes(run) == [misfit(1, wrong)]
    assert restored(folder) == list(range(12))
    assert [row[1:] for row in restoring.history(run.log_run)] == [(0, 4, 4)] * 3


def test_flags_that_tell_no_trouble_are_not_noted(folder):
    rewrite(folder, 1, flags=scanset.BYPASSED | scanset.ANY_BLOCK | scanset.FOURTH_CLOSE)
    assert notes(restoring.restore_to_file(folder)) == []


def test_a_file_that_was_never_closed_is_noted(folder):
    rewrite(folder, 1, data=b"", payload=b"", closeTime=0, crc=0xFFFFFFFF)
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert notes(run) == [misfit(1, "it was never closed")]
    assert restored(folder) == [0, 1, 2, 3, 8, 9, 10, 11]


def test_a_file_closed_without_records_fits(folder):
    rewrite(folder, 1, data=b"", payload=b"")
    assert notes(restoring.restore_to_file(folder)) == []


@pytest.mark.parametrize("length", [0, 1, 659])
def test_a_file_without_a_whole_header_is_noted_and_skipped(folder, length):
    path = folder / "set" / "T0000001.ZRB"
    path.write_bytes(path.read_bytes()[:length])
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert notes(run) == [misfit(1, "it is too short to have a header")]
    assert restored(folder) == [0, 1, 2, 3, 8, 9, 10, 11]


def test_a_header_that_cannot_be_read_is_noted(folder, fault_disk, tmp_path):
    path = folder / "set" / "T0000001.ZRB"
    image = tmp_path / "image"
    image.write_bytes(path.read_bytes())
    with fault_disk(image, tmp_path / "mnt", "badread=0") as disk:
        path.unlink()
        path.symlink_to(disk.disk)
        run = restoring.restore_to_file(folder)
    status = restoring.SYSTEM_ERROR + 5
    assert notes(run) == [misfit(1, f"its header cannot be read (status {status})")]
    assert run.status == 0


def test_a_last_file_with_the_next_beside_it_is_noted_and_ends_the_restore(folder):
    rewrite(folder, 1, flags=scanset.LAST_FILE)
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert notes(run) == [misfit(1, "it says that it is the last, and the next lies beside it")]
    assert restored(folder) == list(range(8))


@pytest.mark.parametrize("beside", ["C0000003.ZRB", "T0000003.ZSB", "T0000004.ZRB", "T0100003.ZRB"])
def test_a_file_that_is_not_the_next_of_the_set_is_not_noted(folder, beside):
    (folder / "set" / beside).write_bytes(b"")
    run = restoring.restore_to_file(folder)
    assert (run.status, notes(run)) == (0, [])


def test_a_missing_last_file_is_the_failure_it_always_was_and_no_note(folder):
    (folder / "set" / "T0000002.ZRB").unlink()
    run = restoring.restore_to_file(folder)
    assert run.status == 1
    assert notes(run) == []
    assert "util/ostrelscan/scanUI[727] Could not restore complete pool - 20444" in run.log


def test_every_file_that_does_not_fit_has_a_line_in_the_order_of_the_set(folder):
    rewrite(folder, 1, **OTHER)
    rewrite(folder, 2, flags=scanset.LAST_FILE | scanset.STOPPED, **OTHER)
    run = restoring.restore_to_file(folder)
    every = ALL_OTHER.format(first="T0000000.ZRB")
    assert notes(run) == [misfit(1, every), misfit(2, every + "; its save was stopped")]


def test_a_set_whose_first_file_is_short_is_measured_by_the_next(folder):
    (folder / "set" / "T0000000.ZRB").write_bytes(b"")
    rewrite(folder, 2, flags=scanset.LAST_FILE, poolBlocks=4096)
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert notes(run) == [misfit(0, "it is too short to have a header"),
                          misfit(2, "its pool has 4096 blocks and not 16384")]


def test_compressed_files_are_judged_the_same_way(tmp_path):
    folder = restoring.make_folder(tmp_path / "run")
    scanset.write_set(folder / "set", RECORDS, per_file=PER_FILE, compress=True)
    rewrite(folder, 1, compress=True, flags=0x041 | scanset.LAST_FILE | scanset.HAD_ERROR)
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert notes(run) == [misfit(1, "its save met an error; it says that it is the last, and the "
                                    "next lies beside it", compress=True)]


def test_a_note_comes_before_what_is_said_of_its_file(folder):
    rewrite(folder, 1, flags=scanset.HAD_ERROR)
    run = restoring.restore_to_file(folder)
    end = "util/ostrelscan/scanEngine[1041]ZRB EOF found"
    assert restoring.pass_lines(run.log_run)[-5:-1] == [
        end, misfit(1, "its save met an error"), end, end]


def test_a_restore_that_is_refused_says_nothing_of_its_files(folder):
    rewrite(folder, 0, flags=scanset.HAD_ERROR)
    run = restoring.restore(folder, "none")
    assert (run.status, notes(run)) == (1, [])
