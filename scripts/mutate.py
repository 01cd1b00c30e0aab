"""Changes the product at one place, and looks whether a test notices: `mutate.py [OPTION]...`

A mutant is one small change of one statement of util/ that the tests run: a comparison, a sum, a
constant, a condition turned round, a call left out. All of them are compiled into one set of programs,
each behind a switch that the environment's MUTANT turns, so that a mutant costs no more than the tests
that are run on it: the unit tests of its file, the whole runs that know it best, others that go through
its file, and all unit tests. The first failure kills it. They are chosen at random, by a seed, so that
a run can be repeated.

    --count N       how many mutants (330; those that do not compile are left out)
    --seed N        which ones (1)
    --only TEXT     of files whose path holds TEXT
    --units         the unit tests alone
    --quick         the tests alone that know the file best; who survives them is to be run again
    --rest          the other tests alone, for those whom --quick has left
    --numbers LIST  of these, those with the numbers in a list as 3,17: survivors of a run before
    --jobs N        how many at a time (as many as there are processors)
"""

import argparse
import concurrent.futures
import dataclasses
import json
import os
import pathlib
import random
import re
import resource
import shlex
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "debug"  # where every source is compiled by itself
WORK = ROOT / "build" / "mutate"
PYTHON = "/usr/bin/python3"  # the one that Debian's packages are for
UNTOUCHED = {"errorTable", "qdsNitErrorTable", "usage", "main"}  # tables and texts
PROGRAMS = ("tests/unit_tests", "tests/screenDriver", "tests/dialogueDriver", "bin/ostrelscan",
            "bin/zsbtool")
SECONDS = 900  # that one command may take
SWITCH = """#include <cstdlib>
inline bool Mutant(int number) {
    static const char* const told = std::getenv("MUTANT");
    static const int active = told != nullptr ? std::atoi(told) : 0;
    return active == number;
}
"""

# What is changed into what.
CHANGES = [
    (r" == ", " != "), (r" != ", " == "), (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "),
    (r" >= ", " > "), (r" && ", " || "), (r" \|\| ", " && "), (r" \+ ", " - "), (r" - ", " + "),
    (r" \+= ", " -= "), (r"\+\+", "--"), (r" & ", " | "), (r" % ", " / "), (r" \* ", " / "),
    (r"\btrue\b", "false"), (r"\bfalse\b", "true"),
    (r"(?<![\w.\"'\[])(\d+)(?![\w.\"'])", lambda match: str(int(match[1]) + 1)),
]

# The statements that can stand behind a switch, as they stand in one line.
CONDITION = re.compile(r"(\s*(?:\} else )?(?:if|while) \((?:.*; )?)((?!.* = ).*)(\) \{)")
RETURN = re.compile(r"(\s*)return (.+);")
DEFINITION = re.compile(r"(\s*(?!constexpr|static|return|using|throw)(?:const )?[\w:<>,*&]+[*&]? "
                        r"\w+ = )(.+)(;)")
STEP = re.compile(r"(\s*)(?!return|throw|break|continue|using|delete|goto)"
                  r"((?:[\w\]\[.:>*()-]+ [-+|&]?= .+|(?:\+\+|--)?[\w.:>\[\]-]+(?:\(.*\))?);)")

# The whole runs that go through a file of the tool, by the start of its path: those that know it best,
# and behind the bar others.
RUNS = {
    "util/zsbtool/badBlocks": "zsbtool/test_bad_blocks.py | zsbtool/test_log.py",
    "util/zsbtool/blockNumbers": "zsbtool/test_find.py zsbtool/test_cat.py | zsbtool/test_compare.py",
    "util/zsbtool/blockTypeNames": "zsbtool/test_list.py zsbtool/test_map.py | zsbtool/test_report.py",
    "util/zsbtool/cat": "zsbtool/test_cat.py |",
    "util/zsbtool/check": "zsbtool/test_check.py | zsbtool/test_preflight.py",
    "util/zsbtool/compar": "zsbtool/test_compare.py |",
    "util/zsbtool/csv": "zsbtool/test_export.py |",
    "util/zsbtool/database": "zsbtool/test_export.py |",
    "util/zsbtool/differences": "zsbtool/test_compare.py |",
    "util/zsbtool/export": "zsbtool/test_export.py |",
    "util/zsbtool/find": "zsbtool/test_find.py |",
    "util/zsbtool/html": "zsbtool/test_report.py |",
    "util/zsbtool/imageC": "zsbtool/test_image.py |",
    "util/zsbtool/imageM": "zsbtool/test_mount.py |",
    "util/zsbtool/info": "zsbtool/test_info.py |",
    "util/zsbtool/list": "zsbtool/test_list.py |",
    "util/zsbtool/log": "zsbtool/test_log.py |",
    "util/zsbtool/madeSet": "zsbtool/test_pack.py zsbtool/test_merge.py | zsbtool/test_prepare.py",
    "util/zsbtool/map": "zsbtool/test_map.py | zsbtool/test_report.py",
    "util/zsbtool/merge": "zsbtool/test_merge.py |",
    "util/zsbtool/mount": "zsbtool/test_mount.py |",
    "util/zsbtool/pack": "zsbtool/test_pack.py |",
    "util/zsbtool/openSet": "zsbtool/test_list.py zsbtool/test_check.py | zsbtool/test_info.py",
    "util/zsbtool/output": "zsbtool/test_pack.py zsbtool/test_export.py | zsbtool/test_prepare.py",
    "util/zsbtool/poolImage": "zsbtool/test_compare.py |",
    "util/zsbtool/preflight": "zsbtool/test_preflight.py |",
    "util/zsbtool/prepare": "zsbtool/test_prepare.py |",
    "util/zsbtool/report": "zsbtool/test_report.py |",
    "util/zsbtool/runLog": "zsbtool/test_log.py | zsbtool/test_bad_blocks.py zsbtool/test_report.py",
    "util/zsbtool/setReport": "zsbtool/test_check.py zsbtool/test_report.py | zsbtool/test_image.py",
    "util/zsbtool/setSearch": "zsbtool/test_check.py |",
    "util/zsbtool/status": "zsbtool/test_status.py | zsbtool/test_report.py",
    "util/zsbtool/targetDevice": "zsbtool/test_preflight.py |",
    "util/zsbtool/": "zsbtool/test_frame.py zsbtool/test_odd_places.py zsbtool/test_check.py | "
                     "zsbtool/test_info.py zsbtool/test_list.py zsbtool/test_report.py "
                     "zsbtool/test_pack.py zsbtool/test_memory.py",
    "util/ostrelscan/restoreDialogue": "runs/test_restore_dialogue.py | runs/test_restore.py",
    "util/ostrelscan/restore": "runs/test_restore_faults.py runs/test_restore.py | "
                               "runs/test_pool_lock_restore.py runs/test_notes_restore.py",
    "util/ostrelscan/screen": "runs/test_screen_layer.py runs/test_screen_input.py "
                              "runs/test_screen_text.py | runs/test_screen_size.py runs/test_screen.py "
                              "runs/test_memory.py",
    "util/ostrelscan/signal": "runs/test_signals_save.py runs/test_signals_terminal.py | "
                              "runs/test_signals_restore.py",
    "util/ostrelscan/terminal": "runs/test_signals_terminal.py | runs/test_screen.py",
    "util/ostrelscan/failedReads": "runs/test_notes.py | runs/test_bad_blocks.py",
    "util/ostrelscan/passNotes": "runs/test_notes.py | runs/test_notes_restore.py",
    "util/ostrelscan/poolDevice": "runs/test_bad_blocks.py | runs/test_bad_sectors.py runs/test_notes.py "
                                  "runs/test_save.py runs/test_restore_faults.py",
    "util/ostrelscan/commandLine": "runs/test_command_line.py | runs/test_log.py",
    "util/ostrelscan/run": "runs/test_log.py runs/test_restore.py | runs/test_command_line.py "
                           "runs/test_save.py runs/test_bad_input.py runs/test_memory.py "
                           "runs/test_signals_save.py",
    "util/ostrelscan/scanUI": "runs/test_dialogue.py runs/test_screen.py | runs/test_save.py "
                              "runs/test_restore_dialogue.py runs/test_log.py runs/test_memory.py "
                              "runs/test_signals_terminal.py",
    "util/ostrelscan/scanEngine": "runs/test_save.py runs/test_pool_lock_states.py | "
                                  "runs/test_restore.py runs/test_save_faults.py",
    "util/ostrelscan/": "runs/test_save.py | runs/test_save_faults.py runs/test_screen.py "
                        "runs/test_restore_dialogue.py runs/test_log.py runs/test_bad_blocks.py",
    "util/common/he": "| runs/test_pool_lock_changes.py runs/test_pool_lock_bus.py",
    "util/common/poolLock": "| runs/test_pool_lock_changes.py runs/test_pool_lock_states.py",
    "util/common/log": "runs/test_log.py | runs/test_save_faults.py",
    "util/common/scanSet": "| zsbtool/test_check.py zsbtool/test_merge.py zsbtool/test_mount.py "
                           "zsbtool/test_report.py zsbtool/test_pack.py",
    "util/common/scanPieces": "| zsbtool/test_check.py zsbtool/test_pack.py",
    "util/common/scan": "| zsbtool/test_check.py zsbtool/test_pack.py zsbtool/test_merge.py "
                        "runs/test_save.py runs/test_restore.py",
    "util/common/": "| runs/test_save.py runs/test_restore.py runs/test_log.py zsbtool/test_check.py",
}


@dataclasses.dataclass
class Mutant:
    number: int
    path: str
    line: int
    before: str
    after: str  # the line with the switch in it
    change: str  # the line as changed

    def __str__(self):
        return f"{self.path}:{self.line}: {self.before.strip()}  ->  {self.change.strip()}"


def covered_lines():
    """The lines of util/ that tests run, by file, as scripts/coverage has found them."""
    report = json.loads((ROOT / "build/coverage/coverage.json").read_text(encoding="utf-8"))
    return {file["file"]: {line["line_number"] for line in file["lines"] if line["count"] > 0}
            for file in report["files"] if file["file"].endswith(".cpp")}


def in_text(code, at):
    """Whether a place is within a literal text."""
    return code[:at].replace('\\"', "").count('"') % 2 == 1


def changed(code):
    """The code with one change each."""
    for pattern, replacement in CHANGES:
        for match in re.finditer(pattern, code):
            if not in_text(code, match.start()):
                new = replacement if isinstance(replacement, str) else replacement(match)
                yield code[:match.start()] + new + code[match.end():]


def mutants_of_line(line):
    """(the line with a switch "@@", the line as changed) for every change."""
    if match := CONDITION.fullmatch(line):
        start, condition, end = match.groups()
        for new in (f"!({condition})", *changed(condition)):
            yield f"{start}@@ ? bool({new}) : bool({condition}){end}", f"{start}{new}{end}"
    elif match := RETURN.fullmatch(line):
        for new in changed(match[2]):
            yield f"{match[1]}if (@@) {{ return {new}; }} {line.strip()}", f"return {new};"
    elif match := DEFINITION.fullmatch(line):
        for new in changed(match[2]):
            yield f"{match[1]}@@ ? ({new}) : ({match[2]});", f"{match[1]}{new};"
    elif match := STEP.fullmatch(line):
        for new in (";", *changed(match[2])):
            yield f"{match[1]}if (@@) {{ {new} }} else {{ {match[2]} }}", new


def begins_a_statement(before):
    """Whether a line may, as far as the line before it tells."""
    code = before.split("//")[0].rstrip()
    return not code or code[-1] in ";{}:"


def mutants_of(path, lines):
    text = (ROOT / path).read_text(encoding="utf-8").splitlines()
    for number, line in enumerate(text, 1):
        if number in lines and begins_a_statement(text[number - 2]) and "//" not in line:
            for after, change in mutants_of_line(line):
                yield Mutant(0, path, number, line, after, change)


def choose(count, seed, only):
    """One mutant for a line at most."""
    all_of = [mutant for path, lines in sorted(covered_lines().items())
              if only in path and pathlib.Path(path).stem not in UNTOUCHED
              for mutant in mutants_of(path, lines)]
    random.Random(seed).shuffle(all_of)
    chosen = {}
    for mutant in all_of:
        if len(chosen) < count:
            chosen.setdefault((mutant.path, mutant.line), mutant)
    for number, mutant in enumerate(chosen.values(), 1):
        mutant.number = number
    return list(chosen.values())


def limit_time():
    """No process of a test needs so many seconds of a processor: what does goes round for ever."""
    resource.setrlimit(resource.RLIMIT_CPU, (90, 90))


def run(command, seconds, **how):
    """What a command that fails, or takes longer, says of that; nothing of one that succeeds."""
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True, errors="replace",
                          start_new_session=True, preexec_fn=limit_time, **how) as process:
        try:
            told, _ = process.communicate(timeout=seconds)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, 9)
            return "time"
    failed = re.search(r"^(?:FAILED|ERROR) \S*?(test_\S+)|^\[  FAILED  \] (\S+)", told, re.M)
    return "" if process.returncode == 0 else (failed[1] or failed[2] if failed else "a crash")


class Bench:
    """A build, with objects in it that have the mutants: they come first where a program is linked."""

    def __init__(self):
        shutil.rmtree(WORK, ignore_errors=True)
        self.shadow = WORK / "build"  # the build, but for the programs with the mutants in them
        for name in ("bin", "tests", "lib"):
            (self.shadow / name).mkdir(parents=True)
            for entry in (BUILD / name).iterdir():
                (self.shadow / name / entry.name).symlink_to(entry)
        self._commands = {entry["file"]: entry["command"] for entry in json.loads(
            (BUILD / "compile_commands.json").read_text(encoding="utf-8"))}
        self._objects = []

    def compile(self, path, mutants):
        """Compiles a source with its mutants; those that do not compile are left out. The others."""
        lines = (ROOT / path).read_text(encoding="utf-8").splitlines()
        source = WORK / path.replace("/", ".")
        while mutants:
            self._write(source, lines, mutants)
            told = subprocess.run(self._command(path, source), cwd=BUILD, capture_output=True,
                                  text=True, check=False)
            if told.returncode == 0:
                self._objects.append(str(source.with_suffix(".o")))
                break
            wrong = {int(line) - 1 for line in
                     re.findall(rf"{re.escape(source.name)}:(\d+):\d+: error", told.stderr)}
            kept = [mutant for mutant in mutants if mutant.line not in wrong]
            mutants = kept if len(kept) < len(mutants) else []
        return mutants

    @staticmethod
    def _write(source, lines, mutants):
        lines = list(lines)
        for mutant in mutants:
            lines[mutant.line - 1] = mutant.after.replace("@@", f"Mutant({mutant.number})")
        source.write_text('#include "switch.h"\n' + "\n".join(lines) + "\n", encoding="utf-8")

    def _command(self, path, source):
        command = shlex.split(self._commands[str(ROOT / path)])
        return [*command[:command.index("-o")], f"-I{WORK}", "-O0", "-w", "-U_FORTIFY_SOURCE", "-o",
                str(source.with_suffix(".o")), "-c", str(source)]

    def link(self, target):
        told = subprocess.run(["ninja", "-C", str(BUILD), "-t", "commands", target],
                              capture_output=True, text=True, check=True).stdout
        command = shlex.split(told.strip().splitlines()[-1].removeprefix(": && ").split(" && ")[0])
        at = command.index("-o")
        program = self.shadow / target
        program.unlink()
        command[at + 1] = str(program)
        # The first of two definitions counts: the mutants stand before every library.
        foreign = {"tests/unit_tests": "none", "bin/zsbtool": "util.ostrelscan."}.get(
            target, "util.zsbtool.")
        objects = [name for name in self._objects if foreign not in name]
        command[1:1] = [*objects, "-fuse-ld=lld", "-Wl,--allow-multiple-definition"]
        subprocess.run(command, cwd=BUILD, check=True)


def unit_filter(path):
    """The unit tests of a file of its own, by the names of its test suites."""
    tests = list(ROOT.glob(f"tests/{pathlib.Path(path).with_suffix('')}*Test.cpp"))
    text = "".join(test.read_text(encoding="utf-8") for test in tests)
    return ":".join(f"*{suite}.*" for suite in
                    sorted(set(re.findall(r"^TEST\w*\(\s*(\w+),", text, re.M))))


def stages(bench, mutant, options):
    """The commands that may notice a mutant, those that know its file best first."""
    tests = [bench.shadow / "tests" / "unit_tests", "--gtest_brief=1"]
    own = unit_filter(mutant.path)
    best, _, others = next(files for start, files in RUNS.items()
                           if mutant.path.startswith(start)).partition("|")
    runs = [[PYTHON, "-m", "pytest", "-q", "-x", "--tb=no", "-p", "no:cacheprovider",
             ROOT / "tests" / name] for name in best.split() + others.split()]
    if options.units:
        runs = []
    behind = len(best.split())
    if not options.rest:
        if own:
            yield [*tests, f"--gtest_filter={own}"]
        yield from runs[:behind]
    if not options.quick:
        # What both programs are made of is what unit tests know; of each program whole runs know more.
        common = mutant.path.startswith("util/common/")
        yield from ([tests] if common else runs[behind:])
        yield from (runs[behind:] if common else [tests])


def killer(bench, mutant, options):
    """What notices the mutant, or nothing."""
    environment = {**os.environ, "MUTANT": str(mutant.number), "OSTREL_BUILD": str(bench.shadow),
                   "PYTHONPYCACHEPREFIX": str(ROOT / "build" / "pycache"), "PYTHONDONTWRITEBYTECODE": ""}
    for command in stages(bench, mutant, options):
        if by := run(command, SECONDS, env=environment, cwd=WORK):
            return by
    return ""


def compile_all(bench, chosen):
    """The mutants that are programs."""
    files = sorted({mutant.path for mutant in chosen})
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        kept = list(pool.map(lambda path: bench.compile(
            path, [mutant for mutant in chosen if mutant.path == path]), files))
    for target in PROGRAMS:
        bench.link(target)
    return sorted((mutant for mutants in kept for mutant in mutants), key=lambda one: one.number)


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--count", type=int, default=330)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", default="")
    parser.add_argument("--units", action="store_true")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--rest", action="store_true")
    parser.add_argument("--numbers", default="")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    options = parser.parse_args()
    bench = Bench()
    (WORK / "switch.h").write_text(SWITCH, encoding="utf-8")
    mutants = compile_all(bench, choose(options.count, options.seed, options.only))
    if options.numbers:
        wanted = set(map(int, options.numbers.split(",")))
        mutants = [mutant for mutant in mutants if mutant.number in wanted]
    nobody = Mutant(0, "util/common/", 0, "", "", "nothing is changed")
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool, \
            open(WORK / "report.txt", "w", encoding="utf-8") as report:
        running = {pool.submit(killer, bench, mutant, options): mutant
                   for mutant in [nobody, *mutants]}
        for done in concurrent.futures.as_completed(running):
            mutant, by = running[done], done.result()
            if mutant is nobody and by:
                raise SystemExit(f"without a mutant, {by} fails")
            told = f"killed {mutant.number} by {by}" if by else f"survived {mutant.number}"
            print(f"{told:60} {mutant}", file=report, flush=True)


if __name__ == "__main__":
    main()
