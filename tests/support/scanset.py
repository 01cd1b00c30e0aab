"""Reads and writes scan files with struct and zlib alone, so that the project's own code is
compared with something else. A file that breaks a rule is still read as far as it goes; what is
wrong with it stands in `problems`."""

import dataclasses
import pathlib
import struct
import zlib

HEADER_BYTES = 660
BLOCK_BYTES = 4096
RECORD_BYTES = 8 + BLOCK_BYTES
FULL_FILE_RECORDS = 2555

COMPRESSED, LAST_FILE, AS_RAW, STOPPED = 0x001, 0x002, 0x004, 0x008
STATE_CHANGE, FOURTH_CLOSE, WITH_COMPRESSED = 0x010, 0x020, 0x040
HAD_ERROR, ANY_BLOCK, BYPASSED = 0x080, 0x100, 0x200

# Name, offset and struct format of each header field.
FIELDS = (
    ("signature", 0, "<4s"),
    ("headerVersion", 4, "<H"),
    ("headerRevision", 6, "<H"),
    ("createTime", 8, "<I"),
    ("closeTime", 12, "<I"),
    ("scanID", 16, "<16s"),
    ("poolBlocks", 32, "<Q"),
    ("fileEof", 40, "<Q"),
    ("dataBytes", 48, "<Q"),
    ("crc", 56, "<I"),
    ("flags", 60, "<I"),
    ("fileNumber", 64, "<I"),
    ("compressionLevel", 68, "<i"),
    ("versionMajor", 72, "<H"),
    ("versionMinor", 74, "<H"),
    ("reserved", 76, "<68s"),
    ("poolName", 144, "<512s"),
    ("trailerSignature", 656, "<4s"),
)


@dataclasses.dataclass
class ScanFile:
    path: pathlib.Path
    header: dict
    data: bytes  # the data area as it stands in the file
    payload: bytes  # the records' bytes, inflated where they are compressed
    problems: list

    @property
    def pool_name(self):
        return self.header["poolName"].decode("utf-16-le").rstrip("\0")

    @property
    def records(self):
        """(block number, 4096 bytes) of each whole record."""
        whole = len(self.payload) // RECORD_BYTES * RECORD_BYTES
        return [
            (int.from_bytes(self.payload[at:at + 8], "little"),
             self.payload[at + 8:at + RECORD_BYTES])
            for at in range(0, whole, RECORD_BYTES)
        ]


def register_crc(payload):
    """The CRC register behind `payload`: from all ones, without the final inversion."""
    return zlib.crc32(payload) ^ 0xFFFFFFFF


def file_name(number, *, compress=False, suffix="ZSB", set_number=0):
    return f"{'C' if compress else 'T'}{set_number:02d}{number:05d}.{suffix}"


def _inflate(data, problems):
    stream = zlib.decompressobj()
    payload = b""
    try:
        payload = stream.decompress(data)
    except zlib.error as error:
        problems.append(f"zlib: {error}")
    else:
        if not stream.eof:
            problems.append("the zlib stream has no end")
        if stream.unused_data:
            problems.append(f"{len(stream.unused_data)} bytes behind the zlib stream")
    return payload


def _header_problems(header, file_bytes, payload):
    compressed = bool(header["flags"] & COMPRESSED)
    rules = (
        (header["signature"] == b"SCAN", "signature"),
        (header["trailerSignature"] == b"SCAN", "trailerSignature"),
        (header["headerVersion"] in (1, 2), "headerVersion"),
        (header["reserved"] == bytes(68), "reserved"),
        (header["fileEof"] == file_bytes, "fileEof"),
        (header["dataBytes"] == HEADER_BYTES + len(payload), "dataBytes"),
        (len(payload) % RECORD_BYTES == 0, "length of the records"),
        (header["crc"] == register_crc(payload), "crc"),
        (bool(header["flags"] & WITH_COMPRESSED) == compressed, "flags"),
    )
    return [f"wrong {what}" for right, what in rules if not right]


def parse_header(raw):
    return {name: struct.unpack_from(form, raw, at)[0] for name, at, form in FIELDS}


def read_file(path):
    """The scan file at `path`; ValueError when it is shorter than a header."""
    path = pathlib.Path(path)
    raw = path.read_bytes()
    if len(raw) < HEADER_BYTES:
        raise ValueError(f"{path}: {len(raw)} bytes are no scan file")
    header, data, problems = parse_header(raw), raw[HEADER_BYTES:], []
    inflated = header["flags"] & COMPRESSED and not header["flags"] & AS_RAW
    payload = _inflate(data, problems) if inflated else data
    problems += _header_problems(header, len(raw), payload)
    return ScanFile(path, header, data, payload, problems)


def read_set(folder, *, suffix="ZSB"):
    """The files of set 0 in a folder, of either letter, by their numbers."""
    found = sorted(pathlib.Path(folder).glob(f"[CT]00*.{suffix}"), key=lambda path: path.name[1:])
    return [read_file(path) for path in found]


def set_records(folder, *, suffix="ZSB"):
    return [record for file in read_set(folder, suffix=suffix) for record in file.records]


def pack_records(records):
    return b"".join(struct.pack("<Q", number) + block for number, block in records)


def pack_header(**fields):
    raw = bytearray(HEADER_BYTES)
    for name, at, form in FIELDS:
        struct.pack_into(form, raw, at, fields[name])
    return bytes(raw)


def write_file(path, records=(), *, compress=False, level=-1, pool_name="POOL", payload=None,
               data=None, **fields):
    """Writes one scan file and returns its path. `payload` stands in for the records' bytes,
    `data` for the whole data area; any header field can be given instead of the right one."""
    payload = pack_records(records) if payload is None else payload
    if data is None:
        data = zlib.compress(payload, level) if compress else payload
    known = {
        "signature": b"SCAN", "headerVersion": 2, "headerRevision": 1,
        "createTime": 1_700_000_000, "closeTime": 1_700_000_060,
        "scanID": bytes(range(16)), "poolBlocks": 16384,
        "fileEof": HEADER_BYTES + len(data), "dataBytes": HEADER_BYTES + len(payload),
        "crc": register_crc(payload), "flags": LAST_FILE | (0x041 if compress else 0),
        "fileNumber": 0, "compressionLevel": level, "versionMajor": 1, "versionMinor": 1,
        "reserved": bytes(68), "poolName": b"".join(bytes((c, 0)) for c in pool_name.encode()),
        "trailerSignature": b"SCAN",
    }
    unknown = set(fields) - set(known)
    if unknown:
        raise TypeError(f"no such header fields: {sorted(unknown)}")
    path = pathlib.Path(path)
    path.write_bytes(pack_header(**{**known, **fields}) + data)
    return path


def write_set(folder, records, *, per_file=FULL_FILE_RECORDS, suffix="ZRB", compress=False,
              **fields):
    """Writes records as a whole set of files, split after `per_file` records; returns the paths.
    The last file alone carries the last-file flag, unless `flags` is given for all."""
    records = list(records)
    parts = [records[at:at + per_file] for at in range(0, len(records), per_file)] or [[]]
    paths = []
    for number, part in enumerate(parts):
        flags = (0x041 if compress else 0) | (LAST_FILE if number == len(parts) - 1 else 0)
        name = file_name(number, compress=compress, suffix=suffix)
        paths.append(write_file(pathlib.Path(folder) / name, part, compress=compress,
                                **{"flags": flags, "fileNumber": number, **fields}))
    return paths
