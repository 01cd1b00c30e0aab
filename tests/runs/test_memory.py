"""Runs that find no memory: each ends by itself, with its pass gone to its end, its record closed, the
terminal given back, and a reason told."""

import itertools

import pytest

import ostrelscan
import poolTypes
import restoring
import saving
import scanset

RECORDS = restoring.records(range(9))
UNPAINTED = "The screen could not be painted: std::bad_alloc"
UNMADE = "Exception while attempting to create a UserInterface Object:  std::bad_alloc"
NO_MEMORY = 20000
REFUSED = 20008
FAILED = {"The dialogue failed: std::bad_alloc", UNPAINTED}
UNREAD = "Exception while attempting to open a ZSBFile Object:  std::bad_alloc"

SAVE = ["--automatic", *saving.arguments("../image", "--validation-skip")]
RUNS = pytest.mark.parametrize("words", [
    SAVE, [*SAVE, "-c"],
    ["--automatic", "--bypass-ostrel", *restoring.arguments("device", "--validation-skip")]],
    ids=["save", "compressed", "restore"])


@pytest.fixture
def image(tmp_path):
    return saving.run_of(tmp_path / "image", 64, 40)


@pytest.fixture
def fresh(image, tmp_path):
    """Makes folders to run in, with a set to restore and a plain file to restore it to."""
    assert image.name == "image"
    numbers = itertools.count()

    def make():
        folder = restoring.make_folder(tmp_path / f"run{next(numbers)}")
        scanset.write_set(folder / "set", RECORDS, per_file=4)
        (folder / "device").write_bytes(b"")
        return folder
    return make


def short_of_memory(words, folder, left, *which):
    """A run on a terminal that gets so many objects; `which` names the settings of the fault."""
    env = ostrelscan.preload("libmemoryfaults.so", "libsizepreload.so", MEMORY_LEFT=str(left),
                             **{f"MEMORY_{name}": "1" for name in which})
    return saving.run_on_terminal(words, folder, env=env)


def assert_whole(folder, image, words):
    """The pass has gone to its end, whatever became of the run."""
    if "restore" in words:
        device = dict(poolTypes.blocks(folder / "device"))
        assert [device[number] for number, _ in RECORDS] == [block for _, block in RECORDS]
    else:
        saving.assert_saved(folder, saving.expected(image, validated=False))


def assert_untouched(folder):
    assert (folder / "device").read_bytes() == b""
    assert not list(folder.glob("*.ZSB"))


def began(run):
    return "(start)" in run.log


@RUNS
def test_a_run_that_memory_leaves_ends_in_order(fresh, words):
    statuses = set()
    for left in [*range(20), *range(20, 60, 4), 200]:
        run = short_of_memory(words, fresh(), left)
        saving.assert_orderly(run)
        statuses.add(run.status)
    assert statuses == {0, 1}


@RUNS
def test_a_run_in_a_small_space_ends_in_order(fresh, words):
    if ostrelscan.sanitized():
        pytest.skip("a sanitizer needs the space itself")
    statuses = set()
    for mebibytes in range(6, 70, 3):
        run = saving.run_in_shell(f'exec prlimit --as={mebibytes << 20} "$0" "$@"', fresh(),
                                  *words, env=ostrelscan.preload("libsizepreload.so"))
        statuses.add(run.status)
        if run.status != 127:  # the system's loader found no space for the program
            saving.assert_orderly(run)
    assert {0, 1} <= statuses


# The operator thread


def assert_failed_before_the_pass(run, folder):
    """Nothing is begun, and the reason is told where it can be."""
    assert run.status == 1
    assert_untouched(folder)
    if not run.log:
        assert run.text.strip() == "ostrelscan: no memory"
    elif not run.log_run.closed:
        assert run.log_run.lines[-2:] == [UNMADE, saving.NO_SCREEN]
    else:
        assert {UNREAD, *FAILED} & set(run.log_run.lines)
        assert run.text.strip() in (saving.failed_line(NO_MEMORY), saving.failed_line(REFUSED))


@pytest.mark.parametrize("how", [("OF_OPERATOR", "ONCE"), ("OF_OPERATOR",)],
                         ids=["once", "from then on"])
@RUNS
def test_whatever_object_the_operator_thread_does_not_get_the_run_ends_in_order(fresh, image, words,
                                                                                how):
    for left in itertools.count():
        folder = fresh()
        run = short_of_memory(words, folder, left, *how)
        saving.assert_orderly(run)
        if run.status == 0:
            break
        assert_failed_before_the_pass(run, folder)
    assert left > 5
    assert_whole(folder, image, words)


@RUNS
def test_drawing_needs_no_object(fresh, image, words):
    """The run gets what it needs until its pass is under way, and nothing from then on."""
    needed = next(left for left in itertools.count()
                  if began(short_of_memory(words, fresh(), left, "OF_OPERATOR")))
    folder = fresh()
    run = short_of_memory(words, folder, needed, "OF_OPERATOR")
    assert (run.status, run.text.strip()) == (0, "")
    assert_whole(folder, image, words)


@pytest.mark.parametrize("how", [("FOR_SCREEN", "ONCE"), ("FOR_SCREEN",)],
                         ids=["once", "from then on"])
@RUNS
def test_wherever_drawing_fails_the_pass_goes_to_its_end(fresh, image, words, how):
    outcomes = set()
    for left in range(1, 150, 6):
        folder = fresh()
        run = short_of_memory(words, folder, left, *how)
        saving.assert_orderly(run)
        outcomes.add((began(run), run.status))
        if not began(run):
            assert_failed_before_the_pass(run, folder)
            continue
        assert_whole(folder, image, words)
        if run.status == 1:
            assert run.log_run.closed
            assert run.log_run.lines.count(UNPAINTED) == 1
            assert run.text.strip() == saving.failed_line(NO_MEMORY)
    assert {(False, 1), (True, 1)} <= outcomes


def test_a_line_of_the_log_that_finds_no_memory_is_told_and_ends_no_run(fresh, image):
    words = ["--automatic"] * 60 + SAVE
    for left in itertools.count():
        folder = fresh()
        run = short_of_memory(words, folder, left, "OF_OPERATOR", "ONCE")
        if run.status == 0:
            break
    assert run.restored and run.log_run.closed
    assert run.text.strip() == "ostrelscan.log is not complete: it could not be written."
    assert "</CommandLine>" not in run.log
    assert_whole(folder, image, words)
