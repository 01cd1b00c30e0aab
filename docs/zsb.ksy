# Scan files for Kaitai Struct; docs/scan-files.md is the page that it follows.
meta:
  id: zsb
  title: Scan file, the internal blocks of an OSTREL storage pool
  file-extension:
    - zsb
    - zrb
  endian: le
doc: |
  A header of 660 bytes and then records, each a block number and the image of that block. The records
  stand in the file as they are, or as one zlib stream.
seq:
  - id: header
    type: header
  - id: raw
    doc: The records of a raw file; there are as many as the header says.
    size: header.data_bytes - 660
    type: records
    if: not header.is_stream
  - id: compressed
    doc: The records of a compressed file.
    size-eos: true
    process: zlib
    type: records
    if: header.is_stream and header.data_bytes > 660
types:
  header:
    seq:
      - id: signature
        contents: SCAN
      - id: header_version
        type: u2
        doc: 2; readers take 1 and 2.
      - id: header_revision
        type: u2
      - id: create_time
        type: u4
        doc: UTC seconds.
      - id: close_time
        type: u4
        doc: UTC seconds; 0 until the file is closed.
      - id: scan_id
        size: 16
        doc: GUID of the run, the same in every file of a set.
      - id: pool_blocks
        type: u8
        doc: The device's size in blocks.
      - id: file_eof
        type: u8
        doc: Length of the file.
      - id: data_bytes
        type: u8
        doc: 660 + 4104 for each record.
      - id: crc
        type: u4
        doc: CRC-32 register over the uncompressed records, from 0xffffffff, not inverted at the end.
      - id: flags
        type: u4
      - id: file_number
        type: u4
        doc: As in the name.
      - id: compression_level
        type: s4
        doc: zlib's, also in raw files; -1 is its default.
      - id: version_major
        type: u2
      - id: version_minor
        type: u2
      - id: reserved
        size: 68
      - id: pool_name
        type: str
        size: 512
        encoding: UTF-16LE
        doc: Filled up with zeros.
      - id: trailer_signature
        contents: SCAN
    instances:
      is_stream:
        value: (flags & 0x001) != 0 and (flags & 0x004) == 0
      is_last:
        value: (flags & 0x002) != 0
      was_stopped:
        value: (flags & 0x008) != 0
      state_was_changed:
        value: (flags & 0x010) != 0
      had_error:
        value: (flags & 0x080) != 0
      has_any_block:
        value: (flags & 0x100) != 0
      bypassed_the_service:
        value: (flags & 0x200) != 0
  records:
    seq:
      - id: records
        type: record
        repeat: eos
  record:
    seq:
      - id: block_number
        type: u8
      - id: block
        size: 4096
