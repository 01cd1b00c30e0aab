"""The sets that are worked on: made once by the tests' own writer, and kept."""

import dataclasses
import multiprocessing
import pathlib
import random
import struct
import sys
import zlib

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "support"))

import scanset  # noqa: E402

STRIDE = 3    # every third block of the pool is held
BLOCK = scanset.BLOCK_BYTES
PER_FILE = scanset.FULL_FILE_RECORDS


@dataclasses.dataclass(frozen=True)
class Sample:
    """The same records in several forms."""
    folder: pathlib.Path
    blocks: int    # records, at the blocks STRIDE, 2 * STRIDE, ...

    @property
    def raw(self):
        return self.folder / "raw"

    @property
    def compressed(self):
        return self.folder / "compressed"

    @property
    def image(self):
        return self.folder / "pool.img"

    @property
    def gzip(self):
        return self.folder / "all.gz"

    @property
    def raw_files(self):
        return sorted(self.raw.iterdir())

    @property
    def pool_blocks(self):
        return STRIDE * (self.blocks + 1)


def content(rng, number):
    """A block as metadata is: ascending keys, small numbers, some that are anything."""
    entries = []
    for place in range(170):
        entries += (number * 1000 + 3 * place, rng.getrandbits(20), 0x1000, (number << 8) + place)
    head = rng.choice((b"BRCH", b"LEAF", b"PAML", b"XLEF", b"DirH")) + struct.pack("<IQ", 32, number)
    return (head + struct.pack("<" + "QIIQ" * 170, *(value % 2**32 for value in entries))
            )[:BLOCK].ljust(BLOCK, b"\0")


def gzip_member(stream, payload):
    """A zlib stream with gzip's head and end around its blocks."""
    ends = struct.pack("<II", zlib.crc32(payload), len(payload) % 2**32)
    return b"\x1f\x8b\x08\0\0\0\0\0\0\xff" + stream[2:-4] + ends


def make_file(task):
    """One file of both sets, and its member of the gzip file."""
    sample, number, last = task
    rng = random.Random(number)
    numbers = range(1 + number * PER_FILE, 1 + min((number + 1) * PER_FILE, sample.blocks))
    records = [(STRIDE * place, content(rng, STRIDE * place)) for place in numbers]
    payload = scanset.pack_records(records)
    stream = zlib.compress(payload)
    for folder, compress in ((sample.raw, False), (sample.compressed, True)):
        scanset.write_file(folder / scanset.file_name(number, compress=compress), payload=payload,
                           data=stream if compress else payload, fileNumber=number,
                           poolBlocks=sample.pool_blocks,
                           flags=(0x041 if compress else 0) | (scanset.LAST_FILE if last else 0))
    with open(sample.image, "r+b") as image:
        for block, content_of in records:
            image.seek(block * BLOCK)
            image.write(content_of)
    return gzip_member(stream, payload)


def prepare(folder, mebibytes, say):
    """The sample of so many MiB of blocks, made where it is not there yet."""
    sample = Sample(folder, mebibytes * 256)
    if sample.gzip.exists():
        return sample
    say(f"bench: making the sample in {folder}")
    for inside in (sample.raw, sample.compressed):
        inside.mkdir(parents=True, exist_ok=True)
    with open(sample.image, "wb") as image:
        image.truncate(sample.pool_blocks * BLOCK)
    files = -(-sample.blocks // PER_FILE)
    tasks = [(sample, number, number == files - 1) for number in range(files)]
    unfinished = sample.gzip.with_suffix(".part")
    with multiprocessing.Pool() as workers, open(unfinished, "wb") as whole:
        for member in workers.imap(make_file, tasks):
            whole.write(member)
    unfinished.rename(sample.gzip)    # the last that is made
    return sample
