"""Random reads of a mounted set: `latencies.py ZSBTOOL SET FOLDER BLOCKS` prints the medians in seconds,
of blocks that nobody has read since the mount, and of the same blocks again."""

import json
import os
import pathlib
import random
import statistics
import subprocess
import sys
import time

import samples

READS = 400


def forget(folder):
    """Takes the files of the set out of the page cache."""
    for path in folder.iterdir():
        with open(path, "rb") as file:
            os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)


def timed(image, blocks):
    """The median of reading each block, which must be there."""
    taken = []
    for block in blocks:
        begin = time.perf_counter()
        content = os.pread(image, samples.BLOCK, block * samples.BLOCK)
        taken.append(time.perf_counter() - begin)
        assert len(content) == samples.BLOCK and int.from_bytes(content[8:16], "little") == block
    return statistics.median(taken)


def main(zsbtool, folder, outputs, records):
    where = pathlib.Path(outputs) / "mount"
    where.mkdir()
    served = subprocess.Popen([zsbtool, "mount", "--foreground", "--quiet", folder, where])
    try:
        while not os.listdir(where) and served.poll() is None:
            time.sleep(0.01)
        forget(pathlib.Path(folder))
        chosen = random.Random().sample(range(1, int(records)), min(READS, int(records) - 1))
        blocks = [samples.STRIDE * place for place in chosen]
        image = os.open(where / "pool.img", os.O_RDONLY)
        print(json.dumps({"cold": timed(image, blocks), "warm": timed(image, blocks)}))
        os.close(image)
    finally:
        served.terminate()
        served.wait()


if __name__ == "__main__":
    main(*sys.argv[1:])
