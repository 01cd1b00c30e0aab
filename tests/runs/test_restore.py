"""Restores of whole sets: the round trip, and sets that are not what a save leaves."""

import os
import pathlib
import sys

import pytest

import loopdev
import ostrelscan
import poolTypes
import pools
import restoring
import scanset
import screen

POOL = "DATA"
BLOCK = restoring.BLOCK
OPTIONS = {"raw": [], "compressed": ["--compress"]}


# The round trip


class Saved:
    """A pool that was saved with all its blocks; the set is named for a restore. A save that looks
    at the superblock leaves out what looks like leaves of the other format."""

    def __init__(self, kind, folder):
        self.pool = pools.pool(size="16M")
        self.folder = restoring.make_folder(folder)
        with loopdev.loop(self.pool.path, read_only=True) as device:
            self.save = ostrelscan.run(["--bypass-ostrel", "--validation-skip", "-a",
                                        *OPTIONS[kind], "-P", "set", "save", POOL, device],
                                       self.folder)
        for path in (self.folder / "set").iterdir():
            path.rename(path.with_suffix(".ZRB"))

    def target(self, folder):
        return restoring.target_image(folder / "target.img", self.pool.blocks)

    def compare(self, target, kept):
        """Every block of the target is the pool's, but for the types in `kept`, which are as they
        were. Returns how many were compared."""
        compared = 0
        pairs = zip(poolTypes.blocks(self.pool.path), poolTypes.blocks(target), strict=True)
        for (number, wanted), (_, found) in pairs:
            if poolTypes.classify(wanted) in kept:
                wanted = restoring.SUPERBLOCK if number == 1 else restoring.FILLER
            assert found == wanted, (number, poolTypes.classify(wanted))
            compared += 1
        return compared


@pytest.fixture(scope="module", params=OPTIONS)
def saved(request, tmp_path_factory):
    if not loopdev.have_loop():
        pytest.skip(loopdev.have_loop().why)
    made = Saved(request.param, tmp_path_factory.mktemp("saved") / request.param)
    assert made.save.status == 0
    return made


def run_in(saved, folder):
    """A folder of its own for a run, with the saved set in it."""
    folder.mkdir()
    (folder / "set").symlink_to(saved.folder / "set")
    return folder


def test_a_restore_brings_back_every_block_but_msap(saved, loop, tmp_path):
    target = saved.target(tmp_path)
    with loop(target) as device:
        run = restoring.restore(run_in(saved, tmp_path / "run"), device, "-a", pool=POOL)
    assert (run.status, run.stderr) == (0, "")
    assert saved.compare(target, {"MSAP"}) == saved.pool.blocks == 4096
    found = restoring.history(run.log_run)
    assert [status for _, status, _, _ in found] == [0, 0]
    assert [(total, current) for _, _, total, current in found] == [(2555, 2555), (1541, 1541)]


def test_a_restore_leaves_user_blocks_alone_unless_told(saved, loop, tmp_path):
    target = saved.target(tmp_path)
    with loop(target) as device:
        run = restoring.restore(run_in(saved, tmp_path / "run"), device, pool=POOL)
    assert run.status == 0
    assert saved.compare(target, {"MSAP", "User"}) == saved.pool.blocks
    told = [line for line in restoring.pass_lines(run.log_run)
            if not line.startswith("util/common/zsbFile[1782] Could not open set/T0000000.ZRB")]
    assert told == [
        "In RunRestoreMain(start)",
        "util/ostrelscan/scanEngine[738]",
        "warning: different zlib version",
        "util/ostrelscan/scanEngine[1041]ZRB EOF found",
        "util/ostrelscan/scanEngine[1041]ZRB EOF found",
        "In RunRestoreMain(exit)",
    ]


def test_a_restore_under_the_pool_lock_brings_back_the_same(saved, loop, tmp_path):
    if not loopdev.have_service():
        pytest.skip(loopdev.have_service().why)
    binaries = ostrelscan.build_folder() / "bin"
    target = saved.target(tmp_path)
    check = ('"$@"; status=$?; "$CONTROL" list > held.txt; "$CONTROL" trace > trace.txt; '
             "exit $status")
    environment = {"OSTRELSIM_SOCKET": str(tmp_path / "bus"), "CONTROL": binaries / "ostrelsimctl",
                   "LD_LIBRARY_PATH": str(ostrelscan.build_folder() / "lib")}
    with loop(target) as device:
        run = restoring.restore(
            run_in(saved, tmp_path / "run"), device, "-a", pool=POOL, bypass=False,
            env={name: str(value) for name, value in environment.items()},
            before=[binaries / "ostrelsim", "--private", "--pool", f"{POOL},-,maintenance,{device}",
                    "--", "sh", "-c", check, "sh"])
    assert run.status == 0, run.log
    assert saved.compare(target, {"MSAP"}) == saved.pool.blocks
    held = (run.folder / "held.txt").read_text(encoding="utf-8")
    assert f"pool {POOL} " in held and "registration " not in held
    assert "OSTREL.PoolLock" in (run.folder / "trace.txt").read_text(encoding="utf-8")


def test_a_restore_that_the_operator_agreed_to_brings_back_the_same(saved, loop, tmp_path):
    target = saved.target(tmp_path)
    folder = run_in(saved, tmp_path / "run")
    with loop(target) as device:
        argv = [ostrelscan.tool(), "--bypass-ostrel", "-a",
                *restoring.arguments(device, pool=POOL.lower())]
        with screen.Terminal(argv, cwd=folder) as terminal:
            terminal.wait_for("Do you wish to restore the pool?")
            terminal.send("y")
            terminal.wait_for("Press any key to continue....", timeout=30)
            terminal.send("\r")
            assert terminal.wait_exit() == 0
    assert saved.compare(target, {"MSAP"}) == saved.pool.blocks


def test_a_second_restore_changes_nothing(saved, loop, tmp_path):
    target = saved.target(tmp_path)
    folder = run_in(saved, tmp_path / "run")
    with loop(target) as device:
        assert restoring.restore(folder, device, "-a", pool=POOL).status == 0
        first = target.read_bytes()
        assert restoring.restore(folder, device, "-a", pool=POOL).status == 0
    assert target.read_bytes() == first


# Sets that are not what a save leaves


@pytest.fixture
def folder(tmp_path):
    return restoring.make_folder(tmp_path / "run")


def write(folder, number, records, *, compress=False, flags=0, **fields):
    flags |= 0x041 if compress else 0
    name = scanset.file_name(number, compress=compress, suffix="ZRB")
    return scanset.write_file(folder / "set" / name, records, compress=compress, flags=flags,
                              fileNumber=number, **fields)


def on_device(folder):
    """{block number: block} of what stands on the folder's device file."""
    return {number: block for number, block in poolTypes.blocks(folder / "device")
            if block != restoring.EMPTY}


def failed_with(run, status):
    assert run.status == 1
    assert run.stdout.endswith(
        f"\nScan failed (see ostrelscan.log for more details): {status}\n")
    failure = f"Could not restore complete pool - {status}"
    assert f"util/ostrelscan/scanUI[727] {failure}" in run.log_run.body
    assert restoring.pass_lines(run.log_run)[-1] == "In RunRestoreMain(exit)"
    return restoring.history(run.log_run)


PARTS = [restoring.records(range(0, 3)), restoring.records(range(10, 13)),
         restoring.records(range(20, 23))]


@pytest.mark.parametrize("compress", [False, True])
def test_a_set_made_by_others_is_restored(folder, compress):
    scanset.write_set(folder / "set", sum(PARTS, []), per_file=4, compress=compress)
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert on_device(folder) == dict(sum(PARTS, []))
    assert len(restoring.history(run.log_run)) == 3


def test_a_missing_file_in_the_middle_ends_the_restore(folder):
    write(folder, 0, PARTS[0])
    write(folder, 2, PARTS[2], flags=scanset.LAST_FILE)
    run = restoring.restore_to_file(folder)
    assert failed_with(run, 20444) == [("T0000000.ZRB", 0, 3, 3), ("T0000001.ZRB", 20444, 0, 0)]
    assert on_device(folder) == dict(PARTS[0])
    assert ("util/common/zsbFile[1782] Could not open set/T0000001.ZRB because "
            "No such file or directory") in run.log_run.body


def test_a_file_under_the_other_letter_in_the_middle_is_not_looked_for(folder):
    write(folder, 0, PARTS[0])
    write(folder, 1, PARTS[1], compress=True, flags=scanset.LAST_FILE)
    run = restoring.restore_to_file(folder)
    assert failed_with(run, 20444)[1] == ("T0000001.ZRB", 20444, 0, 0)


def test_files_of_two_sets_are_restored_as_they_are_numbered(folder):
    write(folder, 0, PARTS[0], scanID=b"A" * 16)
    write(folder, 1, PARTS[1], scanID=b"B" * 16, pool_name="OTHER", flags=scanset.LAST_FILE)
    assert restoring.restore_to_file(folder).status == 0
    assert on_device(folder) == dict(PARTS[0] + PARTS[1])


def test_a_last_file_flag_too_early_ends_the_restore_as_a_whole_one(folder):
    write(folder, 0, PARTS[0])
    write(folder, 1, PARTS[1], flags=scanset.LAST_FILE)
    write(folder, 2, PARTS[2], flags=scanset.LAST_FILE)
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert on_device(folder) == dict(PARTS[0] + PARTS[1])
    assert len(restoring.history(run.log_run)) == 2


def test_a_set_without_a_last_file_is_restored_and_told(folder):
    write(folder, 0, PARTS[0])
    write(folder, 1, PARTS[1])
    run = restoring.restore_to_file(folder)
    assert failed_with(run, 20444)[2] == ("T0000002.ZRB", 20444, 0, 0)
    assert on_device(folder) == dict(PARTS[0] + PARTS[1])


def test_of_two_sets_under_both_letters_the_raw_one_is_restored(folder):
    write(folder, 0, PARTS[0], flags=scanset.LAST_FILE)
    write(folder, 0, PARTS[1], compress=True, flags=scanset.LAST_FILE)
    assert restoring.restore_to_file(folder).status == 0
    assert on_device(folder) == dict(PARTS[0])


@pytest.mark.parametrize("letter, compress", [("T", True), ("C", False)])
def test_the_header_and_not_the_letter_says_how_to_read(folder, letter, compress):
    path = write(folder, 0, PARTS[0], compress=compress, flags=scanset.LAST_FILE)
    path.rename(path.with_name(letter + path.name[1:]))
    assert restoring.restore_to_file(folder).status == 0
    assert on_device(folder) == dict(PARTS[0])


def test_msap_blocks_are_read_and_never_written(folder):
    write(folder, 0, restoring.records([4], b"PASM") + PARTS[1], flags=scanset.LAST_FILE)
    run = restoring.restore_to_file(folder, "--all-blocks")
    assert run.status == 0
    assert on_device(folder) == dict(PARTS[1])
    assert restoring.history(run.log_run) == [("T0000000.ZRB", 0, 4, 4)]


# Damaged files


def change(path, offset, mask=0xFF):
    with open(path, "r+b") as file:
        file.seek(offset)
        byte = file.read(1)[0]
        file.seek(offset)
        file.write(bytes([byte ^ mask]))


def cut(path, size):
    os.truncate(path, size)


SHORT_READ = ["ZSBFile::DataRead:: Success",
              "util/common/zsbFile[1837] Error reading destination file 1008"]
NO_INPUT = ["util/common/zsbFile[1924] Error: 22114ffb(err is fffffffb)."]
DATA_ERROR = ["util/common/zsbFile[1924] Error: 22114ffd(err is fffffffd)."]

# What is done to the second file of a set of three, the status it ends with, the lines that the
# log tells it by, and how many of its three blocks are restored.
DAMAGES = {
    "raw cut after the header":
        (False, lambda path: cut(path, 660), restoring.SYSTEM_ERROR, SHORT_READ, 0),
    "raw cut in a record":
        (False, lambda path: cut(path, 9000), restoring.SYSTEM_ERROR, SHORT_READ, 2),
    "compressed cut after the header":
        (True, lambda path: cut(path, 660), 0x22114FFB, NO_INPUT, 0),
    "compressed cut in the stream":
        (True, lambda path: cut(path, path.stat().st_size - 30), 0x22114FFB, NO_INPUT, None),
    "deflate data flipped":
        (True, lambda path: change(path, 662, 0x06), 0x22114FFD, DATA_ERROR, 0),
    "checksum of the stream flipped":
        (True, lambda path: change(path, path.stat().st_size - 1), 0x22114FFD, DATA_ERROR, 2),
}


@pytest.mark.parametrize("name", DAMAGES)
def test_a_damaged_file_ends_the_restore_at_its_block(folder, name):
    compress, damage, status, told, restored = DAMAGES[name]
    for number, part in enumerate(PARTS):
        path = write(folder, number, part, compress=compress,
                     flags=scanset.LAST_FILE if number == 2 else 0)
        if number == 1:
            damage(path)
    run = restoring.restore_to_file(folder)
    found = failed_with(run, status)
    assert len(found) == 2 and found[1][1:3] == (status, 3)
    lines = restoring.pass_lines(run.log_run)
    assert lines[-1 - len(told):-1] == told
    current = found[1][3]
    assert restored in (None, current)
    assert on_device(folder) == dict(PARTS[0] + PARTS[1][:current])


# Damage that a restore does not look at, or that ends a file early, without a word.
QUIET = {
    "signature flipped": ({"signature": b"SCAM"}, 3),
    "trailer flipped": ({"trailerSignature": b"NACS"}, 3),
    "wrong version": ({"headerVersion": 3}, 3),
    "wrong crc": ({"crc": 0}, 3),
    "data bytes 0": ({"dataBytes": 0}, 3),
    "data bytes below the header": ({"dataBytes": 659}, 3),
    "data bytes huge": ({"dataBytes": 2**64 - 1}, 3),
    "file end 0": ({"fileEof": 0}, 0),
    "file end below the header": ({"fileEof": 659}, 0),
    "file end in the first record": ({"fileEof": 661}, 1),
}


@pytest.mark.parametrize("name", QUIET)
def test_a_lying_header_bounds_what_is_read(folder, name):
    fields, restored = QUIET[name]
    write(folder, 0, PARTS[0], **{"flags": scanset.LAST_FILE, **fields})
    problems = scanset.read_file(folder / "set" / "T0000000.ZRB").problems
    assert problems == [f"wrong {next(iter(fields))}"]
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert on_device(folder) == dict(PARTS[0][:restored])
    claimed = max(fields.get("dataBytes", 660 + 3 * 4104) - 660, 0) // 4104
    assert restoring.history(run.log_run) == [("T0000000.ZRB", 0, claimed, restored)]


def test_a_file_end_that_is_too_high_is_found_behind_the_last_block(folder):
    write(folder, 0, PARTS[0], flags=scanset.LAST_FILE, fileEof=2**63)
    run = restoring.restore_to_file(folder)
    assert failed_with(run, restoring.SYSTEM_ERROR)[0][3] == 3
    assert on_device(folder) == dict(PARTS[0])


def test_a_record_of_another_length_ends_the_restore(folder):
    payload = scanset.pack_records(PARTS[0])[:-1000]
    write(folder, 0, (), compress=True, payload=payload, flags=scanset.LAST_FILE)
    run = restoring.restore_to_file(folder)
    assert failed_with(run, 20004)[0][3] == 2
    assert ("util/common/zsbFile[1946] Size should be 4104 but is c20.  Error: 4e24"
            in run.log_run.body)
    assert on_device(folder) == dict(PARTS[0][:2])


def test_a_file_shorter_than_a_header_restores_nothing(folder):
    path = write(folder, 0, PARTS[0])
    cut(path, 659)
    write(folder, 1, PARTS[1], flags=scanset.LAST_FILE)
    run = restoring.restore_to_file(folder)
    assert run.status == 0
    assert restoring.history(run.log_run) == [("T0000000.ZRB", 0, 0, 0), ("T0000001.ZRB", 0, 3, 3)]


def make_unreadable(path):
    path.write_bytes(b"")
    path.chmod(0)


# Root reads everything, unless it lets go of the right to.
AS_ORDINARY = ["setpriv", "--bounding-set=-dac_override,-dac_read_search",
               "--inh-caps=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []

NO_FILES = {
    "directory": (pathlib.Path.mkdir, "Is a directory"),
    "fifo": (os.mkfifo, "Illegal seek"),
    "unreadable": (make_unreadable, "Permission denied"),
    "loop of links": (lambda path: path.symlink_to(path), "Too many levels of symbolic links"),
}


@pytest.mark.parametrize("kind", NO_FILES)
def test_what_is_no_readable_file_ends_the_restore_as_a_missing_one(folder, kind):
    make, reason = NO_FILES[kind]
    write(folder, 0, PARTS[0])
    make(folder / "set" / "T0000001.ZRB")
    run = restoring.restore_to_file(folder, before=AS_ORDINARY, timeout=20)
    assert failed_with(run, 20444)[1] == ("T0000001.ZRB", 20444, 0, 0)
    assert (f"util/common/zsbFile[1782] Could not open set/T0000001.ZRB because {reason}"
            in run.log_run.body)


@pytest.mark.parametrize("kind", NO_FILES)
def test_what_is_no_readable_file_at_the_start_makes_way_for_the_other_letter(folder, kind):
    make, _ = NO_FILES[kind]
    make(folder / "set" / "T0000000.ZRB")
    write(folder, 0, PARTS[0], compress=True, flags=scanset.LAST_FILE)
    run = restoring.restore_to_file(folder, before=AS_ORDINARY, timeout=20)
    assert run.status == 0
    assert on_device(folder) == dict(PARTS[0])


MEASURE = """
import resource, subprocess, sys
status = subprocess.run(sys.argv[1:]).returncode
with open("peak.txt", "w") as file:
    print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, file=file)
sys.exit(status)
"""


def limited(folder):
    """A command that runs the tool with little room to allocate, and says how much it used. A
    sanitizer keeps its own maps, so there its allocator is told."""
    limit = [] if ostrelscan.sanitized() else ["prlimit", f"--as={256 << 20}"]
    return [sys.executable, "-c", MEASURE, *limit]


@pytest.mark.parametrize("compress", [False, True])
def test_nothing_is_allocated_by_what_a_file_claims(folder, compress):
    allocators = {name: f"{os.environ.get(name, '')}:max_allocation_size_mb=64".lstrip(":")
                  for name in ("ASAN_OPTIONS", "TSAN_OPTIONS")}
    peaks = []
    for claim in (None, 2**64 - 1, 2**62, 2**40):
        lies = {"dataBytes": claim, "fileEof": claim, "poolBlocks": claim} if claim else {}
        write(folder, 0, PARTS[0], compress=compress, flags=scanset.LAST_FILE, **lies)
        run = restoring.restore_to_file(folder, before=limited(folder), env=allocators)
        assert on_device(folder) == dict(PARTS[0])
        assert run.log_run.closed and run.status == (1 if claim and not compress else 0)
        peaks.append(int((folder / "peak.txt").read_text(encoding="ascii")))
    assert max(peaks) - peaks[0] < 8192, peaks
