"""Runs clang-tidy over the sources of a build folder's compile_commands.json: `tidy.py BUILD [OPTION]...`

Most of its time goes into the headers of a source, not into the source. So sources that are compiled
alike are looked at in batches, each one file that includes them. A batch with a finding, or whose
sources do not go together, is looked at source by source, and only that counts. With --single all are.
"""

import concurrent.futures
import itertools
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BATCH = 10
FINDINGS_IN = r"--header-filter=((util|sim)/.*\.h|\.cpp)$"


def sources(build):
    """{source: its flags}, for what the project itself compiles."""
    commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    found = {}
    for entry in commands:
        words = shlex.split(entry["command"])
        flags = words[1:words.index("-o")]
        found[pathlib.Path(entry["file"])] = tuple(flags)
    return found


def checks_of(source):
    """The .clang-tidy that is nearest to a source."""
    return next(folder / ".clang-tidy" for folder in source.parents
                if (folder / ".clang-tidy").exists())


def batches(flags_of):
    """Lists of sources with the same flags and the same checks."""
    def kind(source):
        return flags_of[source], checks_of(source)
    for _, alike in itertools.groupby(sorted(flags_of, key=lambda s: (kind(s), s)), kind):
        alike = list(alike)
        size = -(-len(alike) // -(-len(alike) // BATCH))
        yield from (alike[first:first + size] for first in range(0, len(alike), size))


def includes(source):
    return re.findall(r"^#include .*", source.read_text(encoding="utf-8"), re.MULTILINE)


def text_of(batch):
    """What stands in no namespace gets one of its own, behind all headers, since the names of unit
    tests meet."""
    lines = list(dict.fromkeys(line for source in batch for line in includes(source)))
    for number, source in enumerate(batch):
        line = f'#include "{source}"  // NOLINT(bugprone-suspicious-include)'
        alone = source.is_relative_to(ROOT / "tests/util") and not re.search(
            r"^namespace \w", source.read_text(encoding="utf-8"), re.MULTILINE)
        lines.append(f"namespace unit{number} {{\n{line}\n}}" if alone else line)
    return "\n".join(lines) + "\n"


def write_batch(folder, batch, flags):
    """Makes a folder with the batch's source, its checks and its command."""
    folder.mkdir(parents=True)
    source = folder / "batch.cpp"
    source.write_text(text_of(batch), encoding="utf-8")
    shutil.copy(checks_of(batch[0]), folder)
    command = {"directory": str(folder), "file": str(source),
               "arguments": ["c++", *flags, "-c", str(source)]}
    (folder / "compile_commands.json").write_text(json.dumps([command]), encoding="utf-8")
    return source


def tidy(source, database, *options):
    done = subprocess.run(["clang-tidy", "--quiet", "-p", database, *options, source],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    output = re.sub(r"^\d+ warnings? generated\.\n", "", done.stdout, flags=re.MULTILINE)
    return done.returncode == 0, output


def look_at(build, number, batch, flags, options):
    """Whether a batch is clean, and what is to be said of it."""
    if len(batch) > 1 and "--single" not in options:
        source = write_batch(build / "batches" / str(number), batch, flags)
        if tidy(source, source.parent, FINDINGS_IN, *options)[0]:
            return True, ""
    options = [option for option in options if option != "--single"]
    results = [tidy(source, build, *options) for source in batch]
    return all(clean for clean, _ in results), "".join(output for _, output in results)


def main(build, *options):
    build = pathlib.Path(build).resolve()
    shutil.rmtree(build / "batches", ignore_errors=True)
    flags_of = sources(build)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as workers:
        results = [workers.submit(look_at, build, number, batch, flags_of[batch[0]], options)
                   for number, batch in enumerate(batches(flags_of))]
        outcomes = [result.result() for result in results]
    for _, output in outcomes:
        print(output, end="")
    return 0 if all(clean for clean, _ in outcomes) else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
