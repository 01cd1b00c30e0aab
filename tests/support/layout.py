"""What the dialogues show, and where, for tests of whole screens."""

import re

import poolTypes

CONSENT = "Do you wish to restore the pool?"
PAUSE = "  Press any key to continue...."


def layout(size, rows):
    """The whole screen from {row: text}; what the pad holds beyond the screen is cut off."""
    height, width = size
    return [rows.get(row, "").ljust(width)[:width] for row in range(height)]


def shows(size, rows):
    """Whether a picture is this layout, for Terminal.wait_for."""
    wanted = layout(size, rows)
    return lambda picture: picture.rows == wanted


def table_rows(counts, out):
    """{row: text} of the types in three columns of 14; those of `out` are left out of the run."""
    cells = [f"{name:>14} {'-' if name in out else '+'} {counts.get(name, 0):>8}"
             for name in poolTypes.NAMES]
    columns = (cells[:14], cells[14:28], cells[28:])
    return {5 + row: "".join(f"{column[row] if row < len(column) else '':<26}"
                             for column in columns) for row in range(14)}


def progress_rows(picture, total, current, done):
    """Rows 1 and 2 as they must be; the rate depends on the whole seconds passed, so it is taken
    from the screen when it is one that fits."""
    shown = re.search(r"\((\d+) blks/sec", picture.text)
    fitting = {(current + done) // seconds for seconds in range(1, 60)}
    rate = int(shown[1]) if shown and int(shown[1]) in fitting else -1
    percent = min(100 - (total - current) * 100 // total, 100)
    left = ((total - current) // max(rate + 1, 1) + 59) // 60
    files = (100000 // (percent + 1) * done + 2559) // 2560000 + 1
    return [f"Blk {current}({done} dumped) in 0 mins ({rate} blks/sec).  ",
            f" {percent}% done ({left} mins left).  {files} ZSB files will be created.    "]


def running_rows(picture, current):
    """What a running save shows of a feed (saving.Feed) behind so many blocks, all of them saved."""
    rows = {0: ' Scanning 3 blocks on DATA.  Storing to "./".'}
    rows.update(enumerate(progress_rows(picture, 3, current, current), 1))
    rows.update(table_rows({"BT branch": current}, {"User"}))
    rows[22] = f" ./T0000000.ZSB     {current} of 2555            "
    return rows


def shows_blocks(current):
    """Whether a picture shows the feed's save behind so many blocks, for Terminal.wait_for."""
    return lambda picture: (picture.rows[1].startswith(f"Blk {current}(")
                            and f"     {current} of 2555" in picture.rows[22]
                            and picture.rows[0].startswith(" Scanning 3 blocks"))


def consent_rows(path, pool):
    """{row: text} of a restore's first question."""
    return {18: f"The scan files located at {path} will be restored onto pool {pool}.",
            19: "  WARNING: Restoring causes the current contents of the pool to be lost.",
            20: "  WARNING: Restoring incorrect scan files will cause data loss.",
            21: "  WARNING: Restoring scan files to a pool that has been used since the original "
                "scan will cause data loss.",
            23: f"{CONSENT} n"}


def other_name_rows(path, stored, pool):
    """{row: text} of its second question, about a set of another pool."""
    return {18: f"The scan files at {path} are for a pool called {stored}.",
            19: f"You have asked them to be restored to a pool called {pool}.",
            20: " WARNING: Restoring incorrect scan files will cause data loss.",
            21: f"{CONSENT} n"}
