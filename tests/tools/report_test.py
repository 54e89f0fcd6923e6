#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Reports of streams with known faults, and the page in a browser:
report_test.py PROGRAM FOLDER-FOR-PICTURES [unittest options]."""

import collections
import json
import os
import re
import shutil
import subprocess
import sys
import unittest

import program
from broken_stream import (AUDIO, EIT, NIT, NULL, PAT, PMT, SDT, TABLES, TDT, WRAP,
                           Packet, of, plan, section, table, write)
from program import FOLDER, STREAMS, captured, needs_streams, run, stored

PICTURES = sys.argv.pop(1)  # program has taken the first


def call(*command):
    return subprocess.run(command, capture_output=True, timeout=280, check=False)


def report(path):
    return program.report("report", "--no-pictures", path)


def errors(found):
    """Checks that found something: number to count, first and last packet."""
    return {check["number"]: (check["count"], check["first"]["packet"], check["last"]["packet"])
            for check in found["checks"] if check["count"]}


# Changes of the plan. Each takes the packets.


def without(pid, begin, end):
    def change(packets):
        for i in of(packets, pid, begin, end):
            packets[i] = Packet()
    return change


def put(places):
    def change(packets):
        for i, packet in places.items():
            assert packets[i].pid == NULL, i
            packets[i] = packet
    return change


def pcr(begin, end, change_value):
    def change(packets):
        for packet in packets[begin:end]:
            if packet.pcr is not None:
                packet.pcr = change_value(packet.pcr)
    return change


def signalled_jump(packets):
    pcr(6000, 12000, lambda value: value + 10 * 27000000)(packets)
    packets[6005].discontinuity = True


def no_pts(packets):
    for i in of(packets, AUDIO, 3000, 4000):
        packets[i].start = False


def scrambled(packets):
    for i in of(packets, AUDIO, 5000, 5100):
        packets[i].scrambled = True


# Changes of finished packets.


def set_byte(index, at, value):
    def change(packets):
        packets[index][at] = value
    return change


def flip(index, at, bits):
    def change(packets):
        packets[index][at] ^= bits
    return change


def both(*changes):
    def change(packets):
        for one in changes:
            one(packets)
    return change


def three_times(packets):
    packets[5023] = packets[5024] = packets[5022]


def swap_out(packets):
    packets[5022] = bytearray(b"\x47\x1f\xff\x10").ljust(188, b"\xff")


def cut(packets):
    del packets[5016][100:]


# What is wrong, the change of the plan, the change of the packets, and what is to
# be found: count, first and last packet by check.
CASES = (
    ("nothing", None, None, {}),
    ("PCR wraps", "wrap", None, {}),
    ("sync byte", None, set_byte(5016, 0, 0), {"1.2": (1, 5016, 5016)}),
    ("two sync bytes", None, both(set_byte(5016, 0, 0), set_byte(5017, 0, 1)),
     {"1.1": (1, 5016, 5016), "1.2": (2, 5016, 5017)}),
    ("bytes lost", None, cut, {"1.1": (1, 5017, 5017), "1.2": (2, 5017, 5018)}),
    ("no PAT", without(PAT, 2000, 3000), None, {"1.3": (1, 3000, 3000)}),
    ("another table on PID 0", put({5017: table(PAT, TABLES[SDT])}), None,
     {"1.3": (1, 5017, 5017)}),
    ("packet lost", None, swap_out, {"1.4": (1, 5025, 5025)}),
    ("packet three times", without(AUDIO, 5024, 5025), three_times, {"1.4": (1, 5024, 5024)}),
    ("no PMT", without(PMT, 2000, 3000), None, {"1.5": (1, 3001, 3001)}),
    ("no audio", without(AUDIO, 3000, 9000), None, {"1.6": (1, 9002, 9002), "2.5": (1, 9008, 9008)}),
    ("transport error", None, both(*(flip(i, 1, 0x80) for i in (5016, 6018))),
     {"2.1": (2, 5016, 6018)}),
    ("PMT damaged", None, flip(5001, 15, 1), {"2.2": (1, 5001, 5001)}),
    ("PCRs missing", pcr(6000, 6090, lambda value: None), None,
     {"2.3a": (1, 6095, 6095), "2.3b": (1, 6095, 6095)}),
    ("PCR jumps", pcr(6000, 12000, lambda value: value + 10 * 27000000), None,
     {"2.3b": (1, 6005, 6005)}),
    ("PCR jumps back", pcr(6000, 12000, lambda value: value - 3 * 27000000), None,
     {"2.3b": (1, 6005, 6005)}),
    ("PCR jumps with notice", signalled_jump, None, {}),
    ("PCR 518 ns late", pcr(6000, 6030, lambda value: value + 14), None, {"2.4": (1, 6005, 6005)}),
    ("PCR 481 ns late", pcr(6000, 6030, lambda value: value + 13), None, {}),
    ("PCR 40 us early", pcr(6000, 6030, lambda value: value - 1080), None,
     {"2.4": (1, 6005, 6005)}),
    ("no PTS", no_pts, None, {"2.5": (1, 4028, 4028)}),
    ("scrambled without CAT", scrambled, None, {"2.6": (1, 5003, 5003)}),
    ("no NIT", without(NIT, 0, 12000), None, {"3.1": (1, 11999, 11999)}),
    ("SDT twice in 1 ms", put({5011: table(SDT)}), None, {"3.2": (1, 5012, 5012)}),
    ("no SDT", without(SDT, 2000, 4000), None, {"3.2": (1, 4012, 4012), "3.5": (1, 4012, 4012)}),
    ("unreferenced PID", put({5017: Packet(0x222, b"\x55" * 184)}), None,
     {"3.4": (1, 5017, 5017)}),
    ("no EIT", without(EIT, 2000, 4000), None, {"3.2": (1, 4013, 4013), "3.6": (1, 4013, 4013)}),
    ("SDT on RST's PID", put({5017: table(0x13, TABLES[SDT])}), None, {"3.7": (1, 5017, 5017)}),
    ("SDT on TDT's PID", put({5017: table(TDT, TABLES[SDT])}), None, {"3.8": (1, 5017, 5017)}),
)


class KnownFaults(unittest.TestCase):
    def test_are_found_where_they_are_and_nothing_else(self):
        for name, change, damage, expected in CASES:
            with self.subTest(name):
                packets = plan(first_pcr=WRAP - 6 * 27000000 if change == "wrap" else 0)
                if callable(change):
                    change(packets)
                written = write(packets)
                if damage:
                    damage(written)
                found = report(stored("broken.ts", b"".join(written)))
                self.assertEqual(errors(found), expected)
                self.assertAlmostEqual(found["duration"], 12, 1)

    def test_have_byte_offsets_and_times(self):
        packets = write(plan())
        packets[5016][0] = 0
        for size, before, behind in ((188, 0, 0), (192, 4, 0), (204, 0, 16)):
            data = b"junk" + b"".join(
                b"\0" * before + packet + b"\0" * behind for packet in packets)
            (check,) = [row for row in report(stored("sized.ts", data))["checks"] if row["count"]]
            self.assertEqual(check["first"]["offset"], 4 + before + 5016 * size)
            self.assertAlmostEqual(check["first"]["seconds"], 5.016, 6)


@needs_streams
class BroadcastStreams(unittest.TestCase):
    def test_have_the_continuity_errors_that_ffprobe_finds(self):
        if shutil.which("ffprobe") is None:
            self.skipTest("ffprobe is not installed")
        with open(captured("h264-mp2.ts"), "rb") as file:
            data = bytearray(file.read())
        for at in range(200 * 188, len(data), 173 * 188):
            data[at + 1 : at + 3] = b"\x1f\xff"  # a packet less on some PID
        path = stored("gaps.ts", data)
        other = call("ffprobe", "-v", "debug", "-count_packets", "-show_streams", path).stderr
        counted = other[other.index(b"After avformat_find_stream_info"):]  # what is not probing
        wanted = collections.Counter(
            int(pid) for pid in re.findall(rb"Continuity check failed for pid (\d+)", counted))
        (check,) = [row for row in report(path)["checks"] if row["number"] == "1.4"]
        self.assertGreater(len(wanted), 1)
        self.assertEqual({row["pid"]: row["count"] for row in check["findings"]}, wanted)

    def test_are_what_they_are_known_to_be(self):
        found = report(captured("mpts-dvbt.ts"))
        self.assertEqual(errors(found), {"3.4": (1, 199, 199)})  # teletext that no PMT names
        self.assertEqual(len(found["clocks"]), 9)
        for clock in found["clocks"]:  # 8k, 64-QAM, 3/4, guard interval 1/4
            self.assertAlmostEqual(clock["bits_per_second"] / 22394118, 1, 4)


# What a browser is asked about a page, in its title.
QUESTIONS = """<script>document.title = JSON.stringify({
  wide: document.documentElement.scrollWidth > innerWidth,
  sections: [...document.querySelectorAll('section')].filter(s => s.innerText.length > 40).length,
  pictures: [...document.images].filter(i => i.complete && i.naturalWidth > 100).length,
  plots: document.querySelectorAll('svg.plot').length,
  broken: [...document.querySelectorAll('.checks summary')].filter(s => s.offsetHeight > 32).length,
  tiny: [...document.querySelectorAll('svg.plot')].filter(
      s => s.getBoundingClientRect().width / s.viewBox.baseVal.width < 0.7).length,
  script: (document.querySelector('#pids th.number').click(),
           document.querySelectorAll('[data-order]').length)})</script>"""


class Page(unittest.TestCase):
    def look(self, source, name, width):
        """Shows a page, keeps a picture of it, and returns the browser's answers."""
        page = os.path.join(FOLDER.name, name + ".html")
        result = run("report", "--force", "-o", page, source)
        self.assertEqual(result.returncode, 0, result.stderr)
        with open(page, encoding="utf-8") as file:
            text = file.read()
        self.assertNotRegex(text, r"""(src|href|url)[=(]["']?(https?:|//|file:)""")
        asked = stored(name + "-asked.html", (text + QUESTIONS).encode())
        browser = ["chromium", "--headless=new", "--no-sandbox", "--disable-gpu",
                   "--hide-scrollbars", "--enable-logging=stderr", f"--window-size={width},2400",
                   f"--user-data-dir={FOLDER.name}/browser"]
        shown = call(*browser, "--dump-dom", "file://" + asked)
        self.assertNotIn(b"CONSOLE", shown.stderr)
        call(*browser, f"--screenshot={PICTURES}/{name}-{width}.png", "file://" + page)
        title = re.search(r"<title>(.*?)</title>", shown.stdout.decode()).group(1)
        return json.loads(title)

    def test_is_whole_in_a_browser(self):
        if shutil.which("chromium") is None:
            self.skipTest("chromium is not installed")
        packets = plan()
        TEXT = b"<script>alert(1)</script>&\""
        body = b"\x00\x01\xff\x00\x01\xfc\x80" + bytes([len(TEXT) + 5, 0x48, len(TEXT) + 3, 1, 0])
        hostile = table(SDT, section(0x42, 1, body + bytes([len(TEXT)]) + TEXT))
        for i in of(packets, SDT, 0, len(packets)):
            packets[i] = hostile
        sources = [(stored("made.ts", b"".join(write(packets))), "made", 700, 0, 3)]
        if STREAMS:
            sources.append((captured("mpts-dvbt.ts"), "mpts-dvbt", 1300, 5, 19))
        for source, name, width, pictures, plots in sources:
            answers = self.look(source, name, width)
            self.assertEqual(answers, {"wide": False, "sections": 8, "pictures": pictures,
                                       "plots": plots, "broken": 0, "tiny": 0, "script": 1}, name)


class Mistakes(unittest.TestCase):
    def test_are_named_with_a_status(self):
        own = stored("own.ts", b"".join(write(plan(1))))
        there = stored("there.html", b"")
        for arguments, status, text in (
            ([own], 2, b"where to?"),
            ([own, "-o", there], 7, b"--force"),
            ([own, "-o", "/nowhere/page.html"], 7, b"No such file"),
            (["/nowhere/x.ts", "--json"], 3, b"No such file"),
            ([own, "-o", "-", "--json"], 2, b"both"),
        ):
            result = run("report", *arguments)
            self.assertEqual(result.returncode, status, arguments)
            self.assertIn(text, result.stderr)


if __name__ == "__main__":
    os.makedirs(PICTURES, exist_ok=True)
    unittest.main()
