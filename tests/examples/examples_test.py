#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""The examples as people run them, on a stream of our own making:
examples_test.py VANTREL FOLDER [EPG_EXAMPLE] [unittest options]."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

MAKER = FOLDER = EPG = None
PACKET = 188


def run(*command):
    return subprocess.run(
        [str(word) for word in command], capture_output=True, text=True, timeout=240, check=False
    )


def pids(path):
    data = pathlib.Path(path).read_bytes()
    return [(data[at + 1] & 0x1F) << 8 | data[at + 2] for at in range(0, len(data), PACKET)]


class Examples(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.stream = pathlib.Path(cls.folder.name) / "stream.ts"
        made = run(MAKER, "test-stream", "-o", cls.stream)
        assert made.returncode == 0, made.stderr

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def test_do_what_they_say(self):
        recording = pathlib.Path(self.folder.name) / "recording.ts"
        section = r"pid 0x0011 table 0x42 extension 0x0001 version  0 section 0/0, 41 bytes\n"
        names = ("print-sections", "print-timeline", "record", "zap")
        programs = {name: f"{FOLDER}/{name}" for name in names}
        cases = [
            (programs["print-sections"], [self.stream, 0x11, 0x42], 0, f"^({section}){{10,}}$"),
            (programs["print-sections"], ["/nowhere.ts", 0x11, 0x42], 1, "not found"),
            (programs["print-timeline"], [self.stream], 0, "^$"),
            (programs["print-timeline"], ["/nowhere.ts"], 1, "not found"),
            (programs["record"], [self.stream, recording, 0, 256, 257], 0, r"^\d+ bytes\n$"),
            (programs["record"], ["/nowhere.ts", recording, 1], 1, "not found"),
            (programs["zap"], [self.stream, 257, 258], 0, r"^(audio PID 25[78]: \d+ bytes\n){2}$"),
        ]
        if EPG:
            guide = "^service 1: now Colour bars; next More colour bars\n$"
            cases += [(EPG, [self.stream], 0, guide), (EPG, ["/nowhere.ts"], 1, "not found")]
        cases += [(name, [], 1, "usage: ") for name, *_ in cases]
        for program, arguments, status, output in cases:
            with self.subTest(program=program, arguments=arguments):
                result = run(program, *arguments)
                self.assertEqual(result.returncode, status, result.stderr)
                self.assertRegex(result.stdout + result.stderr, output)
                if program == programs["record"] and status == 0:
                    wanted = [pid for pid in pids(self.stream) if pid in (0, 256, 257)]
                    self.assertEqual(pids(recording), wanted)


if __name__ == "__main__":
    MAKER, FOLDER = sys.argv.pop(1), sys.argv.pop(1)
    if len(sys.argv) > 1 and not sys.argv[1].startswith("-"):
        EPG = sys.argv.pop(1)
    unittest.main()
