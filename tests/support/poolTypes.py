"""The block types once more, for an independent look at pools and scan files."""

import collections

TYPES = (
    ("ADGD tree", b"ADGD"), ("BT branch", b"BRCH"), ("BT leaf Z32", b"LEAF"),
    ("BT leaf Z64", b"BtqZ"), ("BTI branch", b"iBbM"), ("BTI leaf", b"iBlM"),
    ("Checkpoint", b"CKP7"), ("DBT branch", b"DLEF"), ("DBT leaf", b"DBRH"),
    ("EFL branch", b"EBRH"), ("EFL leaf", b"ELEF"), ("EFL log", b"ELOG"),
    ("FMAP branch", b"PAMB"), ("FMAP leaf", b"PAML"), ("FMAP root", b"PAMR"),
    ("FT branch", b"XBRH"), ("FT leaf", b"XLEF"), ("MFL node", b"MFL "),
    ("MSAP", b"PASM"), ("NT node", b"DirH"), ("PT node(old)", b"PRGQ"),
    ("PT node", b"PRG2"), ("PL node", b"PLOG"), ("SBH Z32", b"SPB5"),
    ("SBH Z64", b"SB64"), ("SBH(del Z32)", b"sbo5"), ("SBH(del Z64)", b"so64"),
    ("Snap admin", b"APNS"), ("Snap header", b"HPNS"), ("Snap map", b"MPNS"),
    ("Snap leaf", b"LPNS"), ("UBT branch", b"UBRH"), ("UBT leaf", b"ULEF"),
    ("UBT name", b"UNAM"), ("PDB", b"ZPoo"), ("PLDB", b"ZPLo"), ("VDB", b"ZVol"),
    ("VLDB", b"ZVLo"), ("Zlog", b"ZLBH"), ("KUVO(New)", None), ("User", None),
)
NAMES = tuple(name for name, _ in TYPES)

_BY_FIRST_WORD = {magic: name for name, magic in TYPES if magic}


def classify(block):
    name = _BY_FIRST_WORD.get(bytes(block[:4]))
    return name or ("KUVO(New)" if block[4:8] == b"oVUk" else "User")


def blocks(path):
    """(number, block) of each whole 4096-byte block of a file or device."""
    with open(path, "rb") as image:
        for number, block in enumerate(iter(lambda: image.read(4096), b"")):
            if len(block) == 4096:
                yield number, block


def census(path):
    """How many blocks of each type stand in a file, in the order of the table."""
    seen = collections.Counter(classify(block) for _, block in blocks(path))
    return {name: seen[name] for name in NAMES}
