#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""What the receiver says of streams, and takes out of them:
content_test.py PROGRAM [unittest options]."""

import json
import os
import pty
import re
import shutil
import subprocess
import unittest

import atsc_stream
import broken_stream
from broken_stream import AUDIO, NULL, VIDEO
from program import (PROGRAM, captured, change_pmt, needs_streams, own_stream, planned, report,
                     run, temporary)


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


class Ports(unittest.TestCase):
    SUBTITLE = 0x102
    PMT = (b"\xe1\x00\xf0\x00\x02\xe1\x00\xf0\x00\x03\xe1\x01\xf0\x00"
           b"\x06\xe1\x02\xf0\x0a\x59\x08eng\x10\x00\x01\x00\x01")
    BEGIN = 1000  # seconds, of the clock

    def stream(self):
        """Five seconds, subtitles of 100 bytes in every other NULL packet, and the last
        packet of sound scrambled."""
        packets = broken_stream.plan(5, self.BEGIN * 1000 * broken_stream.TICKS)
        change_pmt(packets, 0, self.PMT)
        subtitle = b"\0\0\1\xbd" + (94).to_bytes(2, "big") + b"\x80\0\0" + b"\x55" * 91
        for i in broken_stream.of(packets, NULL, 0, len(packets))[::2]:
            packets[i] = broken_stream.Packet(self.SUBTITLE, subtitle.ljust(184, b"\xff"), True)
        packets[broken_stream.of(packets, AUDIO, 0, len(packets))[-1]].scrambled = True
        return packets

    def test_are_given_what_is_in_the_stream(self):
        packets = self.stream()
        path = planned("ports.ts", packets)

        def size(pid, first):
            """Payload of clear packets from the first that begins a PES packet."""
            return sum(176 if packet.pcr is not None else 184 for packet in packets[first:]
                       if packet.pid == pid and not packet.scrambled)

        def starts(pid):
            return sum(packet.pid == pid and packet.start for packet in packets)

        subtitles = starts(self.SUBTITLE)
        found = report("ports", path)
        stc = found.pop("stc")
        self.assertEqual(found, {
            "service_id": 1,
            "ports": [
                {"port": "vdec0", "pid": VIDEO, "codec": "MPEG-2 video", "scrambled": False,
                 "bytes": size(VIDEO, 7), "pes_packets": starts(VIDEO),
                 "first_pts": 7 * 90, "last_pts": 4987 * 90},
                {"port": "adec0", "pid": AUDIO, "codec": "MPEG-1 audio", "scrambled": True,
                 "bytes": size(AUDIO, 8), "pes_packets": starts(AUDIO),
                 "first_pts": 8 * 90, "last_pts": 4988 * 90},
            ],
            "texts": [{"kind": "subtitle", "pid": self.SUBTITLE, "bytes": 100 * subtitles,
                       "pes_packets": subtitles}],
        })
        # Of the last PCR, from which the clock runs on.
        self.assertGreaterEqual(stc, self.BEGIN + 4.985)
        self.assertLess(stc, self.BEGIN + 60)
        said = " ".join(run("ports", path, text=True).stdout.split())
        for part in (
            f"vdec0 256 0x0100 MPEG-2 video {size(VIDEO, 7)} bytes {starts(VIDEO)} PES "
            "PTS 0.007 to 4.987 s adec0",
            f"adec0 257 0x0101 MPEG-1 audio {size(AUDIO, 8)} bytes {starts(AUDIO)} PES "
            "PTS 0.008 to 4.988 s scrambled subtitle",
            f"subtitle 258 0x0102 DVB subtitles {100 * subtitles} bytes {subtitles} PES STC 10",
            "DVR: 940000 bytes, 5000 packets",
        ):
            self.assertIn(part, said)


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


class Snapshots(unittest.TestCase):
    COLUMNS, LINES, BARS = 72, 20, 7
    # Colours of the bars, and of what is below them from two thirds of the height on.
    UPPER = ("white", "yellow", "cyan", "green", "magenta", "red", "blue")
    LOWER = ("blue", "black", "magenta", "black", "cyan", "black", "white")
    NAMES = {(r > 0, g > 0, b > 0): name for r, g, b, name in (
        (0, 0, 0, "black"), (0, 0, 1, "blue"), (0, 1, 0, "green"), (0, 1, 1, "cyan"),
        (1, 0, 0, "red"), (1, 0, 1, "magenta"), (1, 1, 0, "yellow"), (1, 1, 1, "white"))}

    def shown(self, *arguments, colours):
        """What a terminal is sent."""
        environment = {key: value for key, value in os.environ.items() if key != "COLORTERM"}
        ours, theirs = pty.openpty()
        with subprocess.Popen(
                [PROGRAM, "watch", "--force", "--snapshot", temporary("shown.png"), own_stream(),
                 *arguments], stdout=theirs, stderr=subprocess.DEVNULL,
                env={**environment, **({"COLORTERM": "truecolor"} if colours else {})}) as process:
            os.close(theirs)
            shown = b""
            try:
                while piece := os.read(ours, 65536):
                    shown += piece
            except OSError:  # the other side is closed
                pass
            os.close(ours)
            self.assertEqual(process.wait(60), 0)
        return shown.decode()

    def name(self, colour):
        for value in colour:
            self.assertTrue(value < 40 or value > 215, colour)
        return self.NAMES[tuple(value > 128 for value in colour)]

    def test_are_drawn_in_terminals_with_colours(self):
        rows = [[[int(number) for number in cell] for cell in re.findall(
            r"\x1b\[38;2;(\d+);(\d+);(\d+)m\x1b\[48;2;(\d+);(\d+);(\d+)m\u2580", line)]
                for line in self.shown(colours=True).splitlines()]
        self.assertEqual([len(row) for row in rows], [self.COLUMNS] * self.LINES + [0])
        middles = [(2 * bar + 1) * self.COLUMNS // (2 * self.BARS) for bar in range(self.BARS)]
        # The upper half of line 13 ends at 27/40 of the height.
        for line, upper, lower in ((8, self.UPPER, self.UPPER), (13, self.UPPER, self.LOWER)):
            cells = [rows[line][middle] for middle in middles]
            self.assertEqual(tuple(self.name(cell[:3]) for cell in cells), upper, line)
            self.assertEqual(tuple(self.name(cell[3:]) for cell in cells), lower, line)

    def test_are_not_drawn_elsewhere(self):
        for shown in (self.shown(colours=False), self.shown("--json", colours=True),
                      run("watch", "-f", "--snapshot", temporary("shown.png"), own_stream(),
                          env={**os.environ, "COLORTERM": "truecolor"}, text=True).stdout):
            self.assertIn("shown.png", shown)
            self.assertFalse("\x1b" in shown)

    def test_say_why_there_is_no_picture(self):
        def none_sent(packet):
            packet.pid = NULL if packet.pid == VIDEO else packet.pid

        def no_data(packet):
            if packet.pid == VIDEO:
                packet.payload, packet.start = bytes(176), False

        def zeros(packet):
            if packet.pid == VIDEO:
                packet.payload = bytes(176)

        def scrambled(packet):
            packet.scrambled = packet.pid == VIDEO

        for change, status, reason in (
            (none_sent, 5, "named but not sent"),
            (no_data, 5, "sent, but no PES packet in it holds data"),
            (zeros, 5, "sent, but no PES packet in it holds data"),
            (scrambled, 6, "scrambled"),
        ):
            packets = broken_stream.plan(2)
            for packet in packets:
                change(packet)
            path = planned("without.ts", packets)
            for choice in ([], ["--service", "1"]):
                result = run("watch", "--snapshot", temporary("none"), *choice, path, text=True)
                self.assertEqual(
                    (result.returncode, result.stderr),
                    (status, f"vantrel watch: {'' if choice else 'no picture: '}service 1: "
                             f"the video on PID 256 is {reason}\n"), change)


@needs_streams
class Pictures(unittest.TestCase):
    CLEAR = {
        "mpts-dvbt.ts": (720, 576),
        "h264-subtitles.ts": (1920, 1080),
        "h264-mp2.ts": (1024, 576),
        "scrambled.ts": (1920, 1080),
    }
    WITHOUT = {"eit.ts": (5, "no service"), "isdb.ts": (6, "scrambled"),
               "atsc.ts": (5, "no service with streams in it; there are: none")}

    def test_are_shown_where_there_is_clear_video(self):
        for name, size in self.CLEAR.items():
            picture = temporary(name + ".png")
            report("watch", "--snapshot", picture, captured(name))
            self.assertEqual(png_size(picture), size, name)
        for name, (status, reason) in self.WITHOUT.items():
            result = run("watch", "--snapshot", temporary("none"), captured(name), text=True)
            self.assertEqual(result.returncode, status, result.stderr)
            self.assertIn(reason, result.stderr, name)
            self.assertEqual(result.stderr.count("\n"), 1, result.stderr)


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
