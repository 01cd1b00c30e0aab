"""Runs clang-tidy over the sources of a build folder's compile_commands.json, all or the named ones:
`tidy.py BUILD [OPTION | SOURCE]...`

Most of its time goes into the headers of a source, not into the source. So sources that are compiled
alike are looked at in batches, each one file that includes them. A batch with a finding, or whose
sources do not go together, is looked at again in halves, and what is said of a source by itself is
what counts. With --single all are looked at so.
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
BATCH = 22
ENTRIES = ("main", "LLVMFuzzerTestOneInput")  # of which each source may have one
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


def batches(flags_of, most):
    """Lists of sources with the same flags and the same checks."""
    def kind(source):
        return flags_of[source], checks_of(source)
    for _, alike in itertools.groupby(sorted(flags_of, key=lambda s: (kind(s), s)), kind):
        alike = list(alike)
        size = -(-len(alike) // -(-len(alike) // most))
        yield from (alike[first:first + size] for first in range(0, len(alike), size))


def includes(source):
    return re.findall(r"^#include .*", source.read_text(encoding="utf-8"), re.MULTILINE)


def unit_tests(source):
    return source.is_relative_to(ROOT / "tests/util")


def text_of(batch):
    """The names of unit tests meet: what stands in no namespace gets one of its own, behind all
    headers."""
    lines = list(dict.fromkeys(
        line for source in batch if unit_tests(source) for line in includes(source)))
    for number, source in enumerate(batch):
        alone = unit_tests(source) and not re.search(
            r"^namespace \w", source.read_text(encoding="utf-8"), re.MULTILINE)
        line = f'#include "{source}"  // NOLINT(bugprone-suspicious-include)'
        lines += [f"#define {entry} {entry}{number}" for entry in ENTRIES]
        lines.append(f"namespace unit{number} {{\n{line}\n}}" if alone else line)
        lines += [f"#undef {entry}" for entry in ENTRIES]
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


def look_at(build, folder, batch, flags, options):
    """Whether a batch is clean, and what is to be said of it."""
    if len(batch) == 1:
        return tidy(batch[0], build, *options)
    source = write_batch(folder, batch, flags)
    if tidy(source, source.parent, FINDINGS_IN, *options)[0]:
        return True, ""
    middle = len(batch) // 2
    halves = [look_at(build, folder / str(half), part, flags, options)
              for half, part in enumerate((batch[:middle], batch[middle:]))]
    return all(clean for clean, _ in halves), "".join(output for _, output in halves)


def main(build, *words):
    build = pathlib.Path(build).resolve()
    shutil.rmtree(build / "batches", ignore_errors=True)
    options = [word for word in words if word.startswith("-") and word != "--single"]
    wanted = {pathlib.Path(word).resolve() for word in words if not word.startswith("-")}
    flags_of = sources(build)
    if wanted:
        if not wanted <= flags_of.keys():
            sys.exit(f"tidy: not compiled: {', '.join(map(str, wanted - flags_of.keys()))}")
        flags_of = {source: flags_of[source] for source in wanted}
    size = 1 if "--single" in words else BATCH
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as workers:
        results = [workers.submit(look_at, build, build / "batches" / str(number), batch,
                                  flags_of[batch[0]], options)
                   for number, batch in enumerate(batches(flags_of, size))]
        outcomes = [result.result() for result in results]
    for _, output in outcomes:
        print(output, end="")
    return 0 if all(clean for clean, _ in outcomes) else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
