#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Fails where docs/receiver.md tells a fact otherwise than the list has it.

    check_docs.py DOCUMENT LIST
"""

import sys


def told(document):
    """The facts that the document has a "here:" for, as lines of the list."""
    name = ""
    for line in document:
        if line.startswith("      here:"):
            yield f"{name}: {line.split('here:', 1)[1].strip()}"
        elif line.startswith("    ") and not line.startswith("     "):
            name = line.strip()


def main():
    with open(sys.argv[1], encoding="utf-8") as document, open(sys.argv[2], encoding="utf-8") as facts:
        known = set(facts.read().splitlines())
        lines = list(told(document))
    wrong = [line for line in lines if line not in known]
    for line in wrong:
        print("not so:", line)
    sys.exit(0 if lines and not wrong else 1)


main()
