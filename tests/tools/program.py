# SPDX-License-Identifier: LGPL-2.1-or-later
"""What the tests of the tool share: they are run as TEST PROGRAM [unittest options]."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

import broken_stream

# Threads of decoders end while the address sanitizer looks for leaks at the end
# of a program, which it does not always survive.
os.environ["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"

PROGRAM = sys.argv.pop(1)
STREAMS = os.environ.get("VANTREL_STREAMS")
FOLDER = tempfile.TemporaryDirectory()
needs_streams = unittest.skipUnless(STREAMS, "VANTREL_STREAMS is not set")


def run(*arguments, **options):
    options.setdefault("capture_output", True)
    return subprocess.run([PROGRAM, *arguments], timeout=280, check=False, **options)


def report(*arguments):
    """What the program says as JSON."""
    result = run(*arguments, "--json")
    assert result.returncode == 0, (arguments, result.stderr)
    return json.loads(result.stdout)


def temporary(name):
    return os.path.join(FOLDER.name, name)


def captured(name):
    return os.path.join(STREAMS, name)


def own_stream():
    path = temporary("own.ts")
    if not os.path.exists(path):
        assert run("test-stream", "-o", path).returncode == 0
    return path


def stored(name, data):
    path = temporary(name)
    with open(path, "wb") as file:
        file.write(data)
    return path


def planned(name, packets):
    """The planned packets as a file."""
    return stored(name, b"".join(broken_stream.write(packets)))


def change_pmt(packets, begin, body):
    """PMTs from a packet on say something else."""
    section = broken_stream.section(0x02, 1, body)
    for i in broken_stream.of(packets, broken_stream.PMT, begin, len(packets)):
        packets[i] = broken_stream.table(broken_stream.PMT, section)
