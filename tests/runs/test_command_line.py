"""Arguments, messages and exit statuses, and what stands at the head of the log."""

import re

import pytest

import ostrelscan

HINT = "Try 'ostrelscan --help' for more information.\n"
NOT_READ = "ACTION restore is legal, but you have not read usage well enough.\n"


def use(folder, *arguments):
    return ostrelscan.run(arguments, folder, automatic=False)


def failing_save(folder, *arguments):
    """A run that gets as far as its log."""
    return use(folder, "--automatic", "--bypass-ostrel", *arguments)


@pytest.mark.parametrize("arguments, stdout, stderr", [
    ([], "", "ostrelscan: missing ACTION argument.\n"),
    (["-a", "--compress"], "", "ostrelscan: missing ACTION argument.\n"),
    (["copy", "data", "/dev/x"], "ACTION copy is not legal.\n", ""),
    (["SAVE", "data", "/dev/x"], "ACTION SAVE is not legal.\n", ""),
    (["sav"], "ACTION sav is not legal.\n", ""),
    ([""], "ACTION  is not legal.\n", ""),
    (["--", "-v"], "ACTION -v is not legal.\n", ""),
    (["restore", "data", "/dev/x"], NOT_READ, ""),
    (["restore"], NOT_READ, ""),
    (["restore", "data", "/dev/x", "extra"], NOT_READ, ""),
    (["restore", "--danger"], "", "ostrelscan: missing POOLNAME argument.\n"),
    (["--danger", "restore", "data"], "", "ostrelscan: missing DEVICE argument.\n"),
    (["save"], "", "ostrelscan: missing POOLNAME argument.\n"),
    (["save", "data"], "", "ostrelscan: missing DEVICE argument.\n"),
    (["save", "data", "/dev/x", "extra"], "", "ostrelscan: unexpected argument - extra.\n"),
    (["save", "data", "/dev/x", "one", "two"], "", "ostrelscan: unexpected argument - one.\n"),
    (["save", "--danger", "data", "-c"], "", "ostrelscan: missing DEVICE argument.\n"),
])
def test_wrong_use_is_told_on_the_right_stream_and_not_logged(tmp_path, arguments, stdout, stderr):
    done = use(tmp_path, *arguments)
    assert (done.status, done.stdout, done.stderr) == (1, stdout, stderr + HINT)
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("arguments, complaint", [
    (["-x"], "invalid option -- 'x'"),
    (["--bogus", "-h"], "unrecognized option '--bogus'"),
    (["--v"], "option '--v' is ambiguous; possibilities: '--validation-skip' '--version'"),
    (["save", "data", "/dev/x", "-P"], "option requires an argument -- 'P'"),
    (["--path"], "option '--path' requires an argument"),
    (["--compress=9"], "option '--compress' doesn't allow an argument"),
])
def test_an_option_that_is_wrong_ends_with_the_hint(tmp_path, arguments, complaint):
    done = use(tmp_path, *arguments)
    assert (done.status, done.stdout) == (1, "")
    assert done.stderr == f"{ostrelscan.tool()}: {complaint}\n{HINT}"
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("option", ["-h", "--help"])
def test_the_usage_is_the_whole_help(tmp_path, golden, option):
    done = use(tmp_path, option)
    golden("usage.txt", done.stdout)
    assert (done.status, done.stderr) == (0, "")
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("arguments, path", [
    (["-P", "x", "-h"], "x/"),
    (["-h", "-P", "x"], "./"),
    (["--path=dir/", "-h"], "dir/"),
    (["-P", "/tmp/scans", "--help"], "/tmp/scans/"),
    (["-P", "one", "--path", "two", "-h"], "two/"),
    (["-P", "", "-h"], "/"),
    (["-Px", "-ach"], "x/"),
    (["nonsense", "-h", "--bogus"], "./"),
])
def test_options_act_in_their_order_and_help_ends_at_once(tmp_path, arguments, path):
    plain = use(tmp_path, "-h").stdout
    done = use(tmp_path, *arguments)
    assert (done.status, done.stderr) == (0, "")
    assert done.stdout == plain.replace('Default is "./"', f'Default is "{path}"')


@pytest.mark.parametrize("arguments", [["-v"], ["--version"], ["-vh"], ["-acv", "--bogus"]])
def test_the_version_is_two_lines(tmp_path, arguments):
    done = use(tmp_path, *arguments)
    assert (done.status, done.stderr) == (0, "")
    assert re.fullmatch(r"ostrelscan \(OSTREL\) 2\.00\n[^\n]+\n", done.stdout)
    assert list(tmp_path.iterdir()) == []


def test_the_log_begins_with_version_build_arguments_and_time(tmp_path):
    run = failing_save(tmp_path, "save", "data", "none").log_run
    assert run.lines[0] == "ostrelscan - KUVO Pool Scanner"
    assert run.lines[1] == "  Version: 2.00"
    assert re.fullmatch(r"  Build: [A-Z][a-z]{2} [ \d]\d \d{4} at \d\d:\d\d:\d\d", run.lines[2])
    assert run.lines[3] == "<CommandLine>"
    assert run.lines[4] == f' <argv index="0x0" argv="{ostrelscan.tool()}" />'
    assert run.lines[10] == "</CommandLine>"
    assert run.lines[11].startswith("<CurrentTime ")


def test_arguments_are_logged_with_hexadecimal_indices_and_the_name_in_upper_case(tmp_path):
    done = failing_save(tmp_path, "-a", "-c", "--validation-skip", "-P", "out", "-c", "-a", "save",
                        "data", "none")
    shown = [line for line in done.log_run.lines if line.startswith(" <argv ")]
    wanted = [ostrelscan.tool(), "--automatic", "--bypass-ostrel", "-a", "-c",
              "--validation-skip", "-P", "out", "-c", "-a", "save", "DATA", "none"]
    assert shown == [f' <argv index="0x{index:x}" argv="{argument}" />'
                     for index, argument in enumerate(wanted)]
    assert shown[10].startswith(' <argv index="0xa" ')


def test_a_plain_command_has_the_name_at_index_two(tmp_path):
    done = use(tmp_path, "save", "data", "none")
    assert done.log_run.arguments[1:] == ["save", "DATA", "none"]
    assert ' <argv index="0x2" argv="DATA" />' in done.log_run.lines


def test_options_may_stand_anywhere(tmp_path):
    done = use(tmp_path, "save", "--automatic", "data", "-c", "none", "-P", "out",
               "--bypass-ostrel")
    assert "<Path>out/</Path>" in done.log_run.lines
    assert "<Compress>1</Compress>" in done.log_run.lines
    assert done.log_run.arguments[-3:] == ["save", "DATA", "none"]


def test_the_environment_does_not_change_where_options_may_stand(tmp_path):
    run = ostrelscan.run(["save", "data", "no-device", "--bypass-ostrel"], tmp_path,
                         env={"POSIXLY_CORRECT": "1"})
    assert run.stderr == ""
    assert "--bypass-ostrel" in run.log_run.arguments


def test_long_options_may_be_cut_short(tmp_path):
    done = use(tmp_path, "--auto", "--byp", "--comp", "--val", "save", "data", "none")
    assert "<Compress>1</Compress>" in done.log_run.lines


@pytest.mark.parametrize("name, upper", [
    ("dAta_9-z", "DATA_9-Z"), ("a<&>\"b", "A<&>\"B"), ("größe", "GRößE"), ("", "")])
def test_the_pool_name_alone_is_turned_into_upper_case(tmp_path, name, upper):
    done = failing_save(tmp_path, "-P", "low", "save", name, "dev/low")
    assert f"<PoolName>{upper}</PoolName>" in done.log_run.lines
    assert "<Path>low/</Path>" in done.log_run.lines
    assert "<DO_DeviceName>dev/low</DO_DeviceName>" in done.log_run.lines
    assert done.log_run.arguments[-3:] == ["save", upper, "dev/low"]


@pytest.mark.parametrize("given, used", [
    ([], "./"), (["-P", "/tmp/scans"], "/tmp/scans/"), (["-P", "dir/"], "dir/"),
    (["--path="], "/"), (["-P", "a//"], "a//"), (["-P", "<&>"], "<&>/")])
def test_the_path_ends_in_a_slash(tmp_path, given, used):
    done = failing_save(tmp_path, *given, "save", "data", "none")
    assert f"<Path>{used}</Path>" in done.log_run.lines


def test_a_failed_run_exits_with_1_and_says_so_on_standard_output(tmp_path):
    done = failing_save(tmp_path, "save", "data", "none")
    assert done.status == 1
    assert done.stdout.endswith("\nScan failed (see ostrelscan.log for more details): 1\n")
    assert done.stderr == ""
    assert done.log_run.closed
