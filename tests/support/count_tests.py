"""Counts what the reports of one or more build folders say: `count_tests.py BUILD...`.

A CTest test that writes a report of its own counts as the tests in that report. What failed is named,
and skips are listed with their reason. Fails when nothing was run.
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


def single_tests(report):
    """The tests in the report of one CTest test; none where it wrote no whole one."""
    try:
        return list(ElementTree.parse(report).getroot().iter("testcase"))
    except (OSError, ElementTree.ParseError):
        return []


def cases(reports):
    """The single tests of one build. A CTest test counts itself where it has no report, and where it
    failed although none of its tests did: it may have died among them."""
    for case in ElementTree.parse(reports / "ctest.xml").getroot().iter("testcase"):
        singles = single_tests(reports / f"{case.get('name')}.xml")
        yield from singles
        if not singles or (outcome(case) == "failed"
                           and "failed" not in map(outcome, singles)):
            yield case


def reason_of(case):
    skipped = case.find("skipped")
    return skipped.get("message", "") if skipped is not None else case.get("status")


def main(builds):
    total = collections.Counter()
    reasons = collections.Counter()
    for build in map(pathlib.Path, builds):
        reports = build / "reports"
        if not (reports / "ctest.xml").exists():
            continue
        count = collections.Counter()
        for case in cases(reports):
            result = outcome(case)
            count[result] += 1
            if result == "failed":
                print(f"failed in {build.name}: {case.get('classname')}.{case.get('name')}")
            if result == "skipped":
                reasons[reason_of(case)] += 1
        print(f"{build.name}: {count['passed']} passed")
        total += count
    for reason, count in reasons.items():
        print(f"skipped {count}: {reason}")
    print(f"{total['passed']} passed, {total['failed']} failed, {total['skipped']} skipped")
    return 0 if total["passed"] > 0 and total["failed"] == 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
