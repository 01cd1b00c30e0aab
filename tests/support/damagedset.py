"""Sets of scan files with planted faults, made with the tests' own writer."""

import dataclasses
import pathlib
import struct
import zlib

import restoring
import scanset

PER_FILE = 6
FILES = 4
POOL_BLOCKS = 100
OTHER_SCAN = bytes(range(100, 116))


@dataclasses.dataclass
class File:
    """One file before it is written, and what is done to its bytes afterwards."""

    number: int
    records: list
    fields: dict
    name: str = ""
    damage: list = dataclasses.field(default_factory=list)


class Set:
    """24 blocks in four files, as a save makes them; a fault changes what it likes, then `write`."""

    def __init__(self, *, compress=False, suffix="ZRB"):
        self.compress = compress
        self.suffix = suffix
        blocks = restoring.records(range(1, 1 + PER_FILE * FILES))
        blocks[0] = (1, restoring.SUPERBLOCK)
        self.files = []
        for number in range(FILES):
            part = blocks[PER_FILE * number:PER_FILE * (number + 1)]
            flags = (0x041 if compress else 0) | (0x002 if number == FILES - 1 else 0)
            self.files.append(File(number, part, {"flags": flags, "fileNumber": number,
                                                  "poolBlocks": POOL_BLOCKS}))

    def __getitem__(self, number):
        return next(file for file in self.files if file.number == number)

    def name(self, number):
        return scanset.file_name(number, compress=self.compress, suffix=self.suffix)

    def set_flag(self, number, flag):
        self[number].fields["flags"] |= flag

    def drop(self, number):
        self.files.remove(self[number])

    def renumber(self, number, block):
        """Gives the last record of a file another block number."""
        records = self[number].records
        records[-1] = (block, records[-1][1])

    def write(self, folder):
        folder = pathlib.Path(folder)
        folder.mkdir(parents=True, exist_ok=True)
        for file in self.files:
            compress = bool(file.fields["flags"] & 0x001)
            path = scanset.write_file(folder / (file.name or self.name(file.number)), file.records,
                                      **{"compress": compress, **file.fields})
            for change in file.damage:
                path.write_bytes(change(path.read_bytes()))
        return folder


def patched(offset, new):
    """Puts bytes at an offset, from the end when that is negative."""
    def change(raw):
        at = offset if offset >= 0 else len(raw) + offset
        return raw[:at] + new + raw[at + len(new):]
    return change


def flipped(offset):
    def change(raw):
        at = offset if offset >= 0 else len(raw) + offset
        return raw[:at] + bytes((raw[at] ^ 0xFF,)) + raw[at + 1:]
    return change


def cut_to(length):
    return lambda raw: raw[:length]


def never_closed(raw):
    """The header as it was at the file's creation, before what was written since."""
    header = bytearray(raw[:660])
    struct.pack_into("<I", header, 12, 0)
    struct.pack_into("<QQI", header, 40, 660, 660, 0xFFFFFFFF)
    return bytes(header) + raw[660:]


def with_block(set_, number, magic):
    """Gives the last record of a file a block of another type."""
    records = set_[number].records
    block = records[-1][0]
    records[-1] = (block, magic.ljust(4, b"\0") + bytes(4092))


def _short_header(set_):
    set_[1].damage.append(cut_to(500))


def _bad_signature(set_):
    set_[1].damage.append(patched(0, b"NACS"))


def _bad_trailer(set_):
    set_[1].damage.append(patched(656, b"NACS"))


def _bad_version(set_):
    set_[1].fields["headerVersion"] = 3


def _never_closed(set_):
    set_[1].damage.append(never_closed)


def _wrong_crc(set_):
    set_[1].fields["crc"] = 12345


def _changed_record(set_):
    set_[1].damage.append(flipped(660 + 4104 + 2000))


def _cut(set_):
    set_[1].damage.append(lambda raw: raw[:-7])


def _cut_record(set_):
    set_[1].damage.append(lambda raw: raw[:-4104])


def _cut_to_header(set_):
    set_[1].damage.append(cut_to(660))


def _trailing(set_):
    set_[1].damage.append(lambda raw: raw + b"more")


def _order(set_):
    records = set_[1].records
    records[2], records[3] = records[3], records[2]


def _file_order(set_):
    """Each file ascends, and one begins below the one before."""
    set_[1].records, set_[2].records = set_[2].records, set_[1].records


def _twice_beside(set_):
    set_[1].records.append(set_[1].records[-1])


def _twice_across(set_):
    set_[2].records.insert(0, set_[1].records[-1])


def _range(set_):
    set_.renumber(3, POOL_BLOCKS)


def _far_range(set_):
    set_.renumber(3, 2**64 - 1)


def _flag(flag):
    return lambda set_: set_.set_flag(1, flag)


def _unreadable(set_):
    set_[1].damage.append(lambda raw: raw)


def _no_first(set_):
    set_.drop(0)


def _gap(set_):
    set_.drop(1)


def _gap_of_two(set_):
    set_.drop(1)
    set_.drop(2)


def _other_number(set_):
    set_[1].fields["fileNumber"] = 7


def _no_last(set_):
    set_[3].fields["flags"] &= ~0x002


def _lost_end(set_):
    set_.drop(3)


def _early_last(set_):
    set_.set_flag(1, 0x002)


def _mixed_scan(set_):
    set_[1].fields["scanID"] = OTHER_SCAN


def _other_pool(set_):
    set_[1].fields["poolName"] = "OTHER".encode("utf-16-le")


def _other_size(set_):
    set_[1].fields["poolBlocks"] = POOL_BLOCKS + 1


def _mixed_compression(set_):
    set_[1].fields["flags"] ^= 0x041


def _stray_behind(set_):
    set_.files.append(File(4, restoring.records(range(50, 53)),
                           {"flags": 0x002 | 0x041 * set_.compress, "fileNumber": 4,
                            "scanID": OTHER_SCAN, "poolBlocks": POOL_BLOCKS}))


def _stray_of_another_number(set_):
    name = scanset.file_name(0, compress=set_.compress, suffix=set_.suffix, set_number=1)
    set_.files.append(File(-1, restoring.records([3]),
                           {"flags": 0x002 | 0x041 * set_.compress, "scanID": OTHER_SCAN,
                            "poolBlocks": POOL_BLOCKS}, name=name))


def _deflate(set_):
    set_[1].damage.append(flipped(664))


def _bad_end(set_):
    set_[1].damage.append(flipped(-1))


def _no_end(set_):
    """A stream that lacks its end, in a file whose header says so long it is."""
    stream = zlib.compress(scanset.pack_records(set_[1].records))[:-6]
    set_[1].fields.update(fileEof=660 + len(stream))
    set_[1].damage.append(lambda raw: raw[:660] + stream)


def _behind_stream(set_):
    set_[1].fields.update(fileEof=660 + 9 + len(
        zlib.compress(scanset.pack_records(set_[1].records), -1)))
    set_[1].damage.append(lambda raw: raw + b"nine more")


@dataclasses.dataclass(frozen=True)
class Fault:
    """What is planted, and what must be found of it: the code and the file's number, if any."""

    name: str
    plant: object
    code: str
    file: int | None = 1
    kinds: tuple = (False, True)  # raw, compressed


RAW, COMPRESSED = (False,), (True,)

FAULTS = (
    Fault("short header", _short_header, "short-header"),
    Fault("bad signature", _bad_signature, "bad-signature"),
    Fault("bad trailer", _bad_trailer, "bad-signature"),
    Fault("bad version", _bad_version, "bad-version"),
    Fault("never closed", _never_closed, "never-closed"),
    Fault("wrong crc", _wrong_crc, "crc"),
    Fault("changed record", _changed_record, "crc", kinds=RAW),
    Fault("cut", _cut, "truncated"),
    Fault("a record cut", _cut_record, "truncated", kinds=RAW),
    Fault("cut behind the header", _cut_to_header, "truncated"),
    Fault("broken stream", _deflate, "deflate", kinds=COMPRESSED),
    Fault("wrong end of the stream", _bad_end, "deflate", kinds=COMPRESSED),
    Fault("no end of the stream", _no_end, "deflate", kinds=COMPRESSED),
    Fault("bytes behind the data", _trailing, "trailing-data"),
    Fault("bytes behind the stream", _behind_stream, "trailing-data", kinds=COMPRESSED),
    Fault("two blocks swapped", _order, "block-order"),
    Fault("two files swapped", _file_order, "block-order", 2),
    Fault("a block twice", _twice_beside, "block-twice"),
    Fault("a block in two files", _twice_across, "block-twice", 2),
    Fault("a block behind the end", _range, "block-range", 3),
    Fault("a block far behind the end", _far_range, "block-range", 3),
    Fault("stopped", _flag(0x008), "stopped"),
    Fault("state change", _flag(0x010), "state-change"),
    Fault("write error", _flag(0x080), "write-error"),
    Fault("no first file", _no_first, "no-first-file", None),
    Fault("a file missing", _gap, "gap", None),
    Fault("two files missing", _gap_of_two, "gap", None),
    Fault("another number in the header", _other_number, "gap"),
    Fault("no last file", _no_last, "no-last-file", None),
    Fault("the last file missing", _lost_end, "no-last-file", None),
    Fault("an early last file", _early_last, "early-last-file"),
    Fault("another scan", _mixed_scan, "mixed-scan"),
    Fault("another pool", _other_pool, "mixed-pool"),
    Fault("another size of the pool", _other_size, "mixed-pool"),
    Fault("another compression", _mixed_compression, "mixed-compression"),
    Fault("a file behind the last", _stray_behind, "stray-file", 4),
    Fault("a file of another set number", _stray_of_another_number, "stray-file", -1),
)
