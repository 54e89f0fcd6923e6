#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""What the receiver says of streams, and takes out of them:
content_test.py PROGRAM [unittest options]."""

import json
import shutil
import subprocess
import unittest

import atsc_stream
from program import captured, needs_streams, own_stream, report, run, temporary


def png_size(path):
    with open(path, "rb") as file:
        head = file.read(24)
    assert head[:8] == b"\x89PNG\r\n\x1a\n", path
    return int.from_bytes(head[16:20], "big"), int.from_bytes(head[20:24], "big")


class OwnStream(unittest.TestCase):
    def test_comes_out_as_it_was_made(self):
        found = report("scan", own_stream())
        self.assertEqual(found["network"], "Vantrel Net")
        (service,) = found["services"]
        self.assertEqual((service["name"], service["provider"]), ("Test Card", "vantrel"))
        kinds = [(row["codec"], row.get("language")) for row in service["streams"]]
        self.assertEqual(kinds[0][0], "H.264")
        self.assertEqual([language for _, language in kinds[1:]], ["eng", "ger"])
        (guide,) = report("epg", own_stream())["services"]
        self.assertEqual(guide["present"]["title"], "Colour bars")
        self.assertEqual(guide["following"]["title"], "More colour bars")
        picture = temporary("own.png")
        report("watch", "--snapshot", picture, "--service", "test card", own_stream())
        self.assertEqual(png_size(picture), (640, 360))


def temi_stream():
    """The stream with a time line descriptor in every thousandth packet."""
    descriptor = bytes([4, 11, 0x40, 0x7F, 77]) + (90000).to_bytes(4, "big")
    with open(own_stream(), "rb") as file:
        packets = file.read()
    path = temporary("temi.ts")
    with open(path, "wb") as file:
        for i in range(0, len(packets) // 188, 1000):
            fields = b"\x01" + bytes([14, 0x0F]) + descriptor + (i * 90).to_bytes(4, "big")
            packet = b"\x47\x01\x00\x20\xb7" + fields
            file.write(packets[i * 188:(i + 1000) * 188] + packet.ljust(188, b"\xff"))
    return path


def lines(*arguments):
    result = run(*arguments)
    assert result.returncode == 0, (arguments, result.stderr)
    return [json.loads(line) for line in result.stdout.splitlines()]


class Data(unittest.TestCase):
    def test_is_printed_as_it_was_sent(self):
        for arguments, fields in (
            (("sections", "--pid", "0x11", "-t", "0x42", "--crc", own_stream()),
             {"pid": 17, "table_id": 66, "extension": 1, "crc": "good"}),
            (("sections", "--pid", "0", "--match", "000001", own_stream()),
             {"pid": 0, "table_id": 0}),
            (("pes", "--pid", "257", own_stream()), {"pid": 257, "stream_id": 0xC0}),
            (("temi", temi_stream()),
             {"kind": "timeline", "timeline_id": 77, "timescale": 90000}),
        ):
            rows = lines(*arguments, "--json", "--number", "2")
            self.assertEqual(len(rows), 2, arguments)
            for row in rows:
                self.assertEqual(row, {**row, **fields}, arguments)
        first, second = lines("temi", temi_stream(), "--json", "-n", "2")
        self.assertEqual(second["media_timestamp"] - first["media_timestamp"], 90000)

    def test_of_changed_sections_comes_once_each(self):
        places = [(row["table_id"], row.get("extension"), row.get("section"))
                  for row in lines("sections", "-p", "0x11", "-p", "0x12", "--changed", "--json",
                                   own_stream())]
        self.assertEqual(sorted(places), [(0x42, 1, 0), (0x4E, 1, 0), (0x4E, 1, 1)])

    def test_ends_with_the_duration_by_the_streams_clock(self):
        for seconds in (1, 3):
            path = temporary(f"{seconds}s.ts")
            found = report("record", own_stream(), "-d", str(seconds), "-o", path)
            self.assertAlmostEqual(found["seconds"], seconds, delta=0.1)
            stamps = [row["pts"] for row in lines("pes", "--pid", "257", "--json", path)]
            self.assertAlmostEqual((stamps[-1] - stamps[0]) / 90000, seconds, delta=0.5)


class Atsc(unittest.TestCase):
    def test_channels_and_guide_are_read(self):
        path = temporary("atsc.ts")
        with open(path, "wb") as file:
            file.write(atsc_stream.make())
        (service,) = report("scan", path)["services"]
        self.assertEqual((service["channel"], service["name"], service["type"]),
                         ("7.1", "WVTL", "television"))
        (guide,) = report("epg", path)["services"]
        self.assertEqual((guide["service_id"], guide["name"], guide["missing_sections"]),
                         (3, "WVTL", 0))
        self.assertEqual([(row["start"], row["duration"], row["title"], row.get("text"))
                          for row in guide["schedule"]],
                         [("2024-05-17T16:43:02Z", 1800, "News at Noon", "What happened."),
                          ("2024-05-17T17:13:02Z", 3600, "Weather", None)])
        self.assertEqual(guide["present"], guide["schedule"][0])
        self.assertEqual(guide["following"], guide["schedule"][1])


@needs_streams
class Isdb(unittest.TestCase):
    def test_characters_that_are_not_decoded_are_left_out(self):
        for guide in report("epg", captured("isdb.ts"))["services"]:
            for row in guide["schedule"]:
                self.assertNotEqual(row["undecoded"], "title" in row, row)
        service = report("scan", captured("isdb.ts"))["services"][0]
        self.assertEqual([row["kind"] for row in service["streams"] if row["pid"] == 0x145],
                         ["subtitle"])


@needs_streams
class Pictures(unittest.TestCase):
    CLEAR = {
        "mpts-dvbt.ts": (720, 576),
        "h264-subtitles.ts": (1920, 1080),
        "h264-mp2.ts": (1024, 576),
        "scrambled.ts": (1920, 1080),
    }
    WITHOUT = {"eit.ts": (5, "no service"), "isdb.ts": (6, "scrambled")}

    def test_are_shown_where_there_is_clear_video(self):
        for name, size in self.CLEAR.items():
            picture = temporary(name + ".png")
            report("watch", "--snapshot", picture, captured(name))
            self.assertEqual(png_size(picture), size, name)
        for name, (status, reason) in self.WITHOUT.items():
            result = run("watch", "--snapshot", temporary("none"), captured(name), text=True)
            self.assertEqual(result.returncode, status, result.stderr)
            self.assertIn(reason, result.stderr, name)


@needs_streams
class Recordings(unittest.TestCase):
    def test_hold_what_was_asked_for(self):
        name = captured("mpts-dvbt.ts")
        everything = run("record", name, "-o", "-").stdout
        with open(name, "rb") as file:
            self.assertEqual(everything, file.read())
        path = temporary("rai2.ts")
        report("record", name, "--service", "rai 2", "-o", path)
        found = report("scan", path)["services"]
        self.assertEqual([row["service_id"] for row in found if "pmt_pid" in row], [3402])
        self.assertTrue(all(row["packets"] for row in found[1]["streams"]))

    def test_survive_a_closed_pipe(self):
        reader = subprocess.Popen(["head", "-c", "1000"], stdin=subprocess.PIPE,
                                  stdout=subprocess.DEVNULL)
        result = run("record", captured("mpts-dvbt.ts"), "-o", "-",
                     stdout=reader.stdin, stderr=subprocess.PIPE, capture_output=False)
        reader.stdin.close()
        reader.wait()
        self.assertEqual(result.returncode, 0, result.stderr)


@needs_streams
@unittest.skipUnless(shutil.which("ffprobe"), "ffprobe is not installed")
class ScanBesideFfprobe(unittest.TestCase):
    def test_names_the_same_services_and_pids(self):
        for name in ("mpts-dvbt.ts", "h264-subtitles.ts", "h264-mp2.ts", "scrambled.ts"):
            theirs = json.loads(subprocess.run(
                ["ffprobe", "-v", "quiet", "-of", "json", "-show_programs", captured(name)],
                capture_output=True, check=True, timeout=240).stdout)["programs"]
            ours = [row for row in report("scan", captured(name))["services"] if "pmt_pid" in row]
            self.assertEqual(
                {row["service_id"]: row["pmt_pid"] for row in ours},
                {row["program_num"]: row["pmt_pid"] for row in theirs}, name)
            for row in theirs:
                (mine,) = [each for each in ours if each["service_id"] == row["program_num"]]
                self.assertLessEqual({int(stream["id"], 16) for stream in row["streams"]},
                                     {stream["pid"] for stream in mine["streams"]}, name)


if __name__ == "__main__":
    unittest.main()
