"""What the page of the format comes with: the description for Kaitai Struct, the reader made from the
page alone, and the entry for file(1), on sets that the tool saved."""

import importlib.util
import re
import subprocess

import pytest

import house
import ksy
import ostrelscan
import pools
import scanset

DOCS = house.ROOT / "docs"


def load_reader():
    spec = importlib.util.spec_from_file_location("zsbreader", DOCS / "zsbreader.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


READER = load_reader()
DESCRIPTION = ksy.Description((DOCS / "zsb.ksy").read_text(encoding="utf-8"))


@pytest.fixture(scope="module", params=["raw", "compressed"])
def saved(request, tmp_path_factory):
    """A set of two files and more, as scanset reads it."""
    folder = tmp_path_factory.mktemp(request.param)
    done = ostrelscan.run(
        ["--bypass-ostrel", *["--compress"] * (request.param == "compressed"), "save", "données",
         pools.pool(size="64M").path], folder, preload=True)
    assert done.status == 0
    files = scanset.read_set(folder)
    assert len(files) > 1 and not any(file.problems for file in files)
    return files


def snake(name):
    return re.sub(r"(?<=[a-z])([A-Z])", r"_\1", name).lower().replace("_i_d", "_id")


def test_the_description_reads_a_set_as_it_was_saved(saved):
    for file in saved:
        read = DESCRIPTION.parse(file.path.read_bytes())
        assert read.rest == b""
        for name, _, form in scanset.FIELDS:
            wanted = file.header[name]
            if name == "poolName":
                wanted = wanted.decode("utf-16-le")
            assert getattr(read.header, snake(name)) == wanted, name
        records = (read.raw or read.compressed).records
        assert [(record.block_number, record.block) for record in records] == file.records
        assert (read.raw is None) == bool(file.header["flags"] & scanset.COMPRESSED)


def test_the_reader_of_the_page_reads_a_set_as_it_was_saved(saved):
    for file in saved:
        read = READER.ScanFile(file.path)
        assert list(read.records()) == file.records
        assert read.pool_name.decode() == "DONNéES"
        assert (read.pool_blocks, read.file_number, read.flags, read.crc, read.scan_id) == tuple(
            file.header[name] for name in ("poolBlocks", "fileNumber", "flags", "crc", "scanID"))


def test_the_reader_is_as_short_as_the_page_promises():
    text = (DOCS / "zsbreader.py").read_text(encoding="utf-8")
    assert len([line for line in text.splitlines() if line.strip()]) <= 60


def test_the_reader_runs_by_itself(saved):
    done = subprocess.run(["/usr/bin/python3", DOCS / "zsbreader.py", saved[-1].path],
                          capture_output=True, text=True, check=True)
    assert done.stdout == (f"{saved[-1].path}: pool DONNéES, file {len(saved) - 1}, "
                           f"{len(saved[-1].records)} of 16384 blocks (last)\n")


@pytest.mark.parametrize("fields, problem", [
    ({"crc": 1}, "is damaged"),
    ({"signature": b"SCAM"}, "is no scan file"),
    ({"headerVersion": 3}, "is no scan file"),
    ({"dataBytes": 660 + 2 * 4104}, "is damaged"),
])
def test_the_reader_tells_a_broken_file(tmp_path, fields, problem):
    path = scanset.write_file(tmp_path / "T0000000.ZSB", [(7, bytes(4096))], **fields)
    with pytest.raises(ValueError, match=problem):
        list(READER.ScanFile(path).records())


@pytest.mark.parametrize("change, error", [
    (("contents: SCAN", "contents: SCAM"), ValueError),
    (("size: 4096", "size: 4095"), EOFError),
    (("size: 68", "size: 67"), ValueError),
    (("process: zlib", "process: rot13"), NotImplementedError),
])
def test_a_wrong_description_does_not_pass(tmp_path, change, error):
    path = scanset.write_file(tmp_path / "C0000000.ZSB", [(7, bytes(4096))], compress=True)
    text = (DOCS / "zsb.ksy").read_text(encoding="utf-8")
    assert change[0] in text
    with pytest.raises(error):
        ksy.Description(text.replace(*change)).parse(path.read_bytes())


@pytest.mark.parametrize("fields, records", [
    ({"closeTime": 0, "dataBytes": 660}, 0), ({"flags": 0x045}, 1), ({"flags": 0x002}, 1)])
def test_odd_files_are_read_as_the_page_tells(tmp_path, fields, records):
    """A file that was never closed has no records, and one with flag 0x004 raw ones."""
    path = scanset.write_file(tmp_path / "T0000000.ZSB", [(7, b"\1" * 4096)], **fields)
    assert len(DESCRIPTION.parse(path.read_bytes()).raw.records) == records
    assert len(list(READER.ScanFile(path).records())) == records


def kind_of(path, *options):
    return subprocess.run(["file", "--brief", "-m", DOCS / "zsb.magic", *options, path],
                          capture_output=True, text=True, check=True).stdout.strip()


def test_file_knows_a_saved_set(saved):
    for file in saved:
        form = "compressed" if file.path.name.startswith("C") else "raw"
        last = " (last)" * (file is saved[-1])
        assert re.fullmatch(
            rf"OSTREL scan file of pool .*, file {file.header['fileNumber']}{re.escape(last)}, {form}, "
            r"without the service, closed \w{3} \w{3} .*", kind_of(file.path))
        assert kind_of(file.path, "--mime-type") == "application/x-ostrel-scan"


@pytest.mark.parametrize("fields, shown", [
    ({"closeTime": 0}, "OSTREL scan file of pool POOL, file 0 (last), raw, never closed"),
    ({"flags": 0x0D8, "closeTime": 0, "fileNumber": 3}, "OSTREL scan file of pool POOL, file 3, raw, "
     "stopped, ended by a state change, with an error, never closed"),
])
def test_file_tells_what_a_header_says(tmp_path, fields, shown):
    assert kind_of(scanset.write_file(tmp_path / "T0000000.ZSB", **fields)) == shown


def test_file_knows_nothing_else_as_a_scan_file(tmp_path):
    (tmp_path / "text").write_text("SCAN the horizon\n" * 100, encoding="ascii")
    assert "OSTREL" not in kind_of(tmp_path / "text")
