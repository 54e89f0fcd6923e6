#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Counts the test cases of test runs: `count_tests.py BUILD_FOLDER...`.

Meson's log knows the programs; GoogleTest's reports and unittest's closing
lines know their cases. A program without either is one case; one that failed
beyond what its cases say (a crash, a sanitizer, a time limit) is one failure
more. Prints a line per folder and the sum; fails when a case failed or a folder
ran none.
"""

import json
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree
from collections import Counter

# What Meson calls the end of a program, and what it counts as.
RESULTS = {"OK": "passed", "EXPECTEDFAIL": "passed", "SKIP": "skipped"}


def case_result(case):
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    if case.get("status") == "notrun" or case.find("skipped") is not None:
        return "skipped"
    return "passed"


def count_reported(report):
    try:
        cases = ElementTree.parse(report).iter("testcase")
    except (OSError, ElementTree.ParseError):
        return None
    return Counter(case_result(case) for case in cases)


def count_unittest(output):
    ran = re.search(r"^Ran (\d+) tests? in .*\n\n(OK|FAILED)(.*)$", output, re.MULTILINE)
    if ran is None:
        return None
    ends = {name: int(count) for name, count in re.findall(r"(\w+)=(\d+)", ran[3])}
    counts = Counter(
        failed=ends.get("failures", 0) + ends.get("errors", 0), skipped=ends.get("skipped", 0)
    )
    counts["passed"] = int(ran[1]) - counts.total()
    return counts


def count_program(test, reports):
    result = RESULTS.get(test["result"], "failed")
    program = pathlib.Path(test["command"][0]).name
    cases = count_reported(reports / ("-".join([program, *test["command"][1:2]]) + ".xml"))
    if cases is None:
        cases = count_unittest(test.get("stderr", ""))
    if cases is None:
        return Counter([result])
    if result == "failed" and cases["failed"] == 0:
        cases["failed"] += 1
    return cases


def count_folder(folder):
    log = folder / "meson-logs" / "testlog.json"
    total = Counter()
    if log.exists():
        for line in log.read_text().splitlines():
            total += count_program(json.loads(line), folder / "test-results")
    return total


def describe(counts):
    return ", ".join(f"{counts[name]} {name}" for name in ("passed", "failed", "skipped"))


def main(folders):
    total = Counter()
    complete = True
    print()
    for folder in folders:
        counts = count_folder(pathlib.Path(folder))
        print(f"{folder}: {describe(counts)}" if counts else f"{folder}: nothing ran")
        complete = complete and bool(counts)
        total += counts
    if not complete:
        total["failed"] += 1
    print(describe(total))
    return 0 if complete and total["failed"] == 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
