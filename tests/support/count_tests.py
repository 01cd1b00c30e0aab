"""Counts what the reports of one or more build folders say: `count_tests.py BUILD...`.

A CTest test that runs a Python file counts as the tests of that file. Skips are listed with their
reason. Fails when nothing was run.
"""

import collections
import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def outcome(case):
    """passed, failed or skipped, of one JUnit test case."""
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    if case.get("status") == "fail":
        return "failed"
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
        return "skipped"
    return "passed"


def cases(reports):
    """The single tests of one build: those of a Python file instead of the one that ran it."""
    python = {path.stem: path for path in reports.glob("*.*.xml")}
    for case in ElementTree.parse(reports / "ctest.xml").getroot().iter("testcase"):
        name = case.get("name")
        if name in python:
            yield from ElementTree.parse(python[name]).getroot().iter("testcase")
        else:
            yield case


def main(builds):
    total = collections.Counter()
    reasons = collections.Counter()
    for build in builds:
        reports = pathlib.Path(build, "reports")
        if not (reports / "ctest.xml").exists():
            continue
        for case in cases(reports):
            result = outcome(case)
            total[result] += 1
            if result == "skipped":
                skipped = case.find("skipped")
                reasons[skipped.get("message", "") if skipped is not None else ""] += 1
    for reason, count in reasons.items():
        print(f"skipped {count}: {reason}")
    print(f"{total['passed']} passed, {total['failed']} failed, {total['skipped']} skipped")
    return 0 if total["passed"] > 0 and total["failed"] == 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
