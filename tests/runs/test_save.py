"""What a save leaves in its scan files, against what was planted in the pool."""

import time

import pytest

import loopdev
import ostrelscan
import poolTypes
import saving
import scanset

FULL = scanset.FULL_FILE_RECORDS


def u(raw, at, width):
    return int.from_bytes(raw[at:at + width], "little")


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
@pytest.mark.parametrize("superblock", ["SPB5", "SB64"])
@pytest.mark.parametrize("options", [(), ("-a",), ("--validation-skip",),
                                     ("-a", "--validation-skip")], ids=lambda o: "".join(o) or "-")
def test_exactly_the_selected_blocks_are_saved(pool, pool_device, tmp_path, superblock, options,
                                               compress):
    made = pool(size="4M", superblock=superblock)
    what = {"all_blocks": "-a" in options, "validated": "--validation-skip" not in options}
    with pool_device(made) as device:
        done = saving.save(device, tmp_path, *options, *["-c"] * compress)
    assert (done.status, done.stderr) == (0, "")
    assert "Scan failed" not in done.stdout
    files = saving.assert_saved(tmp_path, saving.expected(made.path, superblock, **what))
    left_out = saving.unselected(superblock, **what)
    planted = {name: count for name, count in made.types.items() if name not in left_out}
    saved = [poolTypes.classify(block) for file in files for _, block in file.records]
    assert {name: saved.count(name) for name in set(saved)} == planted
    assert sum(len(file.records) for file in files) == sum(planted.values())


@pytest.mark.parametrize("compress, letter", [(False, "T"), (True, "C")])
def test_a_set_is_split_numbered_and_flagged(pool, pool_device, tmp_path, compress, letter):
    made = pool(size="64M")
    with pool_device(made) as device:
        assert saving.save(device, tmp_path, *["-c"] * compress).status == 0
    files = saving.assert_saved(tmp_path, saving.expected(made.path))
    assert [file.path.name for file in files] == [f"{letter}00{n:05}.ZSB" for n in range(3)]
    rest = made.internal - made.types["BT leaf Z64"] - 2 * FULL
    assert [len(file.records) for file in files] == [FULL, FULL, rest]
    base = 0x200 | (0x041 if compress else 0)
    assert [file.header["flags"] for file in files] == [base, base, base | 0x002]
    assert [file.header["fileNumber"] for file in files] == [0, 1, 2]
    assert len({file.header["scanID"] for file in files}) == 1
    if not compress:
        assert [file.path.stat().st_size for file in files[:2]] == [10_486_380] * 2


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_every_header_field_stands_at_its_offset(pool, pool_device, tmp_path, compress):
    made = pool(size="4M")
    begun = int(time.time())
    with pool_device(made) as device:
        assert saving.save(device, tmp_path, *["--compress"] * compress).status == 0
    ended = int(time.time())
    raw = (tmp_path / ("C0000000.ZSB" if compress else "T0000000.ZSB")).read_bytes()
    records = made.internal - made.types["BT leaf Z64"]
    assert raw[0:4] == raw[656:660] == b"SCAN"
    assert (u(raw, 4, 2), u(raw, 6, 2)) == (2, 1)
    assert begun <= u(raw, 8, 4) <= u(raw, 12, 4) <= ended
    assert raw[16:32] != bytes(16)
    assert u(raw, 32, 8) == made.blocks
    assert u(raw, 40, 8) == len(raw)
    assert u(raw, 48, 8) == 660 + 4104 * records
    packed = scanset.pack_records(saving.expected(made.path))
    assert u(raw, 56, 4) == scanset.register_crc(packed)
    assert u(raw, 60, 4) == (0x243 if compress else 0x202)
    assert u(raw, 64, 4) == 0
    assert raw[68:72] == b"\xff\xff\xff\xff"
    assert raw[72:76] == b"\x01\0\x01\0"
    assert raw[76:144] == bytes(68)
    assert raw[144:656] == b"D\0A\0T\0A\0" + bytes(504)
    assert (raw[660:] == packed) != compress
    assert not compress or raw[660] == 0x78


def test_runs_of_different_seconds_have_scan_ids_of_their_own(pool, pool_device, tmp_path):
    ids = set()
    with pool_device(pool(size="1M")) as device:
        for _ in range(2):
            assert saving.save(device, tmp_path).status == 0
            ids.add(scanset.read_file(tmp_path / "T0000000.ZSB").header["scanID"])
            time.sleep(1.1)
    assert len(ids) == 2


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
@pytest.mark.parametrize("selected, blocks, counts", [
    (FULL, FULL + 1, [FULL]),
    (FULL, FULL + 2, [FULL, 0]),
    (FULL, FULL + 40, [FULL, 0]),
    (FULL - 1, FULL + 40, [FULL - 1]),
    (FULL + 1, FULL + 2, [FULL, 1]),
    (2 * FULL, 2 * FULL + 2, [FULL, FULL, 0]),
])
def test_a_full_file_before_the_end_of_the_range_is_followed_by_another(
        loop, tmp_path, selected, blocks, counts, compress):
    image = saving.run_of(tmp_path / "image", blocks, selected)
    with loop(image) as device:
        assert saving.save(device, tmp_path, *["-c"] * compress).status == 0
    files = saving.assert_saved(tmp_path, saving.expected(image))
    assert [len(file.records) for file in files] == counts
    last = [bool(file.header["flags"] & 0x002) for file in files]
    assert last == [False] * (len(counts) - 1) + [True]


@pytest.mark.parametrize("compress", [False, True], ids=["raw", "compressed"])
def test_an_empty_last_file_is_a_header_and_no_records(loop, tmp_path, compress):
    image = saving.run_of(tmp_path / "image", FULL + 2, FULL)
    with loop(image) as device:
        assert saving.save(device, tmp_path, *["-c"] * compress).status == 0
    empty = scanset.read_set(tmp_path)[1]
    assert (empty.header["dataBytes"], empty.header["crc"]) == (660, 0xFFFFFFFF)
    assert empty.header["flags"] == (0x243 if compress else 0x202)
    assert empty.header["fileEof"] == empty.path.stat().st_size
    assert compress or empty.path.stat().st_size == 660


def test_a_pool_without_selected_blocks_leaves_one_empty_file(loop, tmp_path):
    image = saving.image_of(tmp_path / "image", 64, {})
    with loop(image) as device:
        assert saving.save(device, tmp_path, "--validation-skip").status == 0
    files = saving.assert_saved(tmp_path, [])
    assert [(file.path.name, file.header["flags"]) for file in files] == [("T0000000.ZSB", 0x202)]


def test_a_part_of_a_block_at_the_end_of_the_device_is_left_out(loop, tmp_path):
    image = saving.run_of(tmp_path / "image", 8, 7)
    with open(image, "ab") as more:
        more.write(b"BRCH" + bytes(1532))
    with loop(image) as device:
        assert saving.save(device, tmp_path).status == 0
    file, = scanset.read_set(tmp_path)
    assert [number for number, _ in file.records] == list(range(1, 8))
    assert file.header["poolBlocks"] == 8


def test_what_tells_no_size_is_taken_as_three_blocks(tmp_path):
    image = saving.run_of(tmp_path / "image", 16, 15)
    done = saving.save(image, tmp_path)
    assert done.status == 0
    assert "Blocks in pool is 3" in done.log_run.lines
    file, = saving.assert_saved(tmp_path, saving.expected(image)[:2])
    assert file.header["poolBlocks"] == 3


def test_an_image_that_answers_as_a_device_is_saved_whole(tmp_path):
    image = saving.run_of(tmp_path / "image", 16, 15)
    assert saving.save(image, tmp_path, preload=True).status == 0
    saving.assert_saved(tmp_path, saving.expected(image))


def test_the_files_go_where_the_path_says(pool, pool_device, tmp_path):
    made = pool(size="1M")
    (tmp_path / "out").mkdir()
    with pool_device(made) as device:
        assert saving.save(device, tmp_path, "-P", "out").status == 0
        assert saving.save(device, tmp_path, "-c", f"--path={tmp_path}/out/").status == 0
    names = sorted(path.name for path in (tmp_path / "out").iterdir())
    assert names == ["C0000000.ZSB", "T0000000.ZSB"]
    assert not list(tmp_path.glob("*.ZSB"))


def test_an_older_set_is_overwritten(pool, pool_device, tmp_path):
    made = pool(size="1M")
    (tmp_path / "T0000000.ZSB").write_bytes(b"old" * 2_000_000)
    with pool_device(made) as device:
        assert saving.save(device, tmp_path).status == 0
    saving.assert_saved(tmp_path, saving.expected(made.path))


def test_the_device_is_left_as_it_was(pool, loop, tmp_path):
    image = pool(size="16M").copy_to(tmp_path / "image")
    before = image.read_bytes()
    with loop(image) as device:
        assert saving.save(device, tmp_path, "-a").status == 0
        loopdev.drop_caches(device)
    assert image.read_bytes() == before


@pytest.mark.parametrize("name, units", [
    ("p", b"P\0"), ("n" * 63, b"N\0" * 63), ("größe", b"G\0R\0\xc3\0\xb6\0\xc3\0\x9f\0E\0")])
def test_the_pool_name_stands_in_the_header_byte_by_byte(loop, tmp_path, name, units):
    image = saving.run_of(tmp_path / "image", 4, 3)
    with loop(image) as device:
        done = ostrelscan.run(["--bypass-ostrel", "save", name, device], tmp_path)
    assert done.status == 0
    raw = (tmp_path / "T0000000.ZSB").read_bytes()
    assert raw[144:656] == units.ljust(512, b"\0")
