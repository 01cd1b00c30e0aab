"""Reads scan files, made from docs/scan-files.md alone, for tools of your own: `zsbreader.py FILE...`

    for number, block in zsbreader.ScanFile("T0000000.ZSB").records(): ...
"""

import struct
import sys
import zlib

HEADER = struct.Struct("<4sHHII16sQQQIIIiHH68s512s4s")
RECORD = struct.Struct("<Q4096s")
COMPRESSED, LAST_FILE, AS_RAW, STOPPED, STATE_CHANGE, HAD_ERROR, BYPASSED = (
    0x001, 0x002, 0x004, 0x008, 0x010, 0x080, 0x200)


class ScanFile:
    """A scan file's header; ValueError where the file is none."""

    def __init__(self, path):
        self.path = path
        with open(path, "rb") as file:
            header = file.read(HEADER.size)
        if len(header) < HEADER.size:
            raise ValueError(f"{path} ends inside its header")
        (signature, self.version, self.revision, self.create_time, self.close_time, self.scan_id,
         self.pool_blocks, self.file_eof, self.data_bytes, self.crc, self.flags, self.file_number,
         self.compression_level, self.major, self.minor, _, name, trailer) = HEADER.unpack(header)
        if signature != b"SCAN" or trailer != b"SCAN" or self.version not in (1, 2):
            raise ValueError(f"{path} is no scan file")
        self.pool_name = bytes(name[::2]).partition(b"\0")[0]

    def data(self):
        """The bytes of the records, inflated where they are compressed."""
        with open(self.path, "rb") as file:
            file.seek(HEADER.size)
            data = file.read()
        if self.flags & COMPRESSED and not self.flags & AS_RAW:
            data = zlib.decompressobj().decompress(data)
        return data[:self.data_bytes - HEADER.size]

    def records(self):
        """(number, 4096 bytes) of each block; ValueError behind the last good one where records are
        missing or not those that were saved."""
        data = self.data()
        whole = len(data) // RECORD.size * RECORD.size
        yield from RECORD.iter_unpack(data[:whole])
        sound = zlib.crc32(data) ^ 0xFFFFFFFF == self.crc or self.close_time == 0
        if len(data) != self.data_bytes - HEADER.size or not sound:
            raise ValueError(f"{self.path} is damaged")


def main(paths):
    for path in paths:
        file = ScanFile(path)
        numbers = [number for number, _ in file.records()]
        print(f"{path}: pool {file.pool_name.decode(errors='replace')}, file {file.file_number}, "
              f"{len(numbers)} of {file.pool_blocks} blocks{' (last)' * bool(file.flags & LAST_FILE)}")


if __name__ == "__main__":
    main(sys.argv[1:])
