#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""The receiver as people run it, rightly and wrongly:
handling_test.py PROGRAM [unittest options]."""

import json
import os
import select
import shutil
import signal
import socket
import subprocess
import threading
import time
import unittest

import broken_stream
from program import (PROGRAM, captured, change_pmt, needs_streams, own_stream, planned,
                     report, run, temporary)


class Sender:
    """A stream that is sent to a port of this machine, over and over."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        with open(path, "rb") as file:
            self.packets = file.read()
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.send)

    def send(self):
        while True:
            for at in range(0, len(self.packets), 1316):
                self.socket.sendto(self.packets[at:at + 1316], ("127.0.0.1", self.port))
                if self.ended.wait(0.001):
                    return

    def __enter__(self):
        self.thread.start()
        return f"udp://127.0.0.1:{self.port}"

    def __exit__(self, *_):
        self.ended.set()
        self.thread.join()
        self.socket.close()


class Inputs(unittest.TestCase):
    def test_are_alike_whatever_they_come_through(self):
        wanted = report("scan", own_stream())["services"]
        with open(own_stream(), "rb") as file:
            result = run("scan", "-", "--json", stdin=file)
            self.assertEqual(json.loads(result.stdout)["services"], wanted)
        with Sender(own_stream()) as uri:
            (service,) = report("scan", "-d", "1", uri)["services"]
            self.assertEqual(service["name"], wanted[0]["name"])
            self.assertEqual([row["codec"] for row in service["streams"]],
                             [row["codec"] for row in wanted[0]["streams"]])
            for command in (["pes", "--pid", "300"], ["sections", "--pid", "300"],
                            ["record", "--pid", "300", "-o", temporary("none.ts")]):
                result = run(*command, "-d", "0.5", uri, text=True)
                self.assertEqual(result.returncode, 5, result.stderr)
                self.assertRegex(result.stderr, r"PID 300 not seen after \d+(\.\d+)? s$")
                self.assertGreaterEqual(float(result.stderr.split()[-2]), 0.5)

    def test_have_packets_of_three_sizes_behind_junk(self):
        with open(own_stream(), "rb") as file:
            data = file.read(188 * 5000)
        packets = [data[at:at + 188] for at in range(0, len(data), 188)]
        for size, before, behind in ((188, b"", b""), (192, bytes(4), b""), (204, b"", bytes(16))):
            path = temporary("sized.ts")
            with open(path, "wb") as file:
                file.write(b"junk!" + b"".join(before + packet + behind for packet in packets))
            found = report("scan", path)
            self.assertEqual((found["packet_size"], found["packets"], found["junk"]),
                             (size, 5000, 5))

    def test_are_played_by_the_tables_of_their_beginning(self):
        packets = broken_stream.plan()
        change_pmt(packets, 2000,
                   b"\xe3\x00\xf0\x00\x02\xe3\x00\xf0\x00\x03\xe3\x01\xf0\x00")
        path = planned("pids-change.ts", packets)
        recorded = temporary("pids-before.ts")
        report("record", "-s", "1", "-o", recorded, path)
        pids = {row["pid"] for row in report("scan", recorded)["pids"]}
        self.assertLessEqual({broken_stream.VIDEO, broken_stream.AUDIO}, pids)

    def test_are_recorded_where_a_service_goes_to(self):
        packets = broken_stream.plan()
        moved = {broken_stream.PMT: 0x1100, broken_stream.VIDEO: 0x300, broken_stream.AUDIO: 0x301}
        tables = {
            broken_stream.PAT: broken_stream.section(
                0x00, 1, b"\x00\x01\xf1\x00", version=1),
            0x1100: broken_stream.section(
                0x02, 1, b"\xe3\x00\xf0\x00\x02\xe3\x00\xf0\x00\x03\xe3\x01\xf0\x00"),
        }
        for packet in packets[6000:]:
            packet.pid = moved.get(packet.pid, packet.pid)
            if packet.pid in tables:
                packet.payload = b"\0" + tables[packet.pid]
        path, recorded = planned("moves.ts", packets), temporary("followed.ts")
        result = report("record", "-s", "1", "-o", recorded, path)
        self.assertEqual(result["added_pids"], sorted(moved.values()))
        with open(recorded, "rb") as file:
            kept = list(iter(lambda: file.read(188), b""))
        self.assertEqual([broken_stream.pid_of(packet) for packet in kept],
                         [packet.pid for packet in packets if packet.pid != broken_stream.NULL])
        pats = [packet for packet in kept if broken_stream.pid_of(packet) == broken_stream.PAT]
        self.assertEqual([packet[15:17] for packet in pats],
                         [b"\xf0\x00"] * 60 + [b"\xf1\x00"] * 60)

    def test_end_at_once_where_nobody_reads_on(self):
        reader, writer = os.pipe()
        os.close(reader)
        for command in (["scan", "--pids"], ["epg", "--json"], ["sections", "--pid", "0"],
                        ["pes", "--pid", "257", "--json"]):
            result = run(*command, own_stream(), capture_output=False, stdout=writer,
                         stderr=subprocess.PIPE)
            self.assertEqual((result.returncode, result.stderr), (0, b""), command)
        os.close(writer)

    def test_leave_a_whole_recording_behind_when_interrupted(self):
        path = temporary("cut.ts")
        process = subprocess.Popen([PROGRAM, "record", "-s", "1", "-o", path, "-"],
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        with open(own_stream(), "rb") as file:
            process.stdin.write(file.read(1_000_003))
        process.stdin.flush()
        while not os.path.exists(path) or os.path.getsize(path) == 0:
            self.assertIsNone(process.poll(), "it ended by itself")
            time.sleep(0.01)
        process.send_signal(signal.SIGINT)
        with process.stderr:
            self.assertEqual(process.wait(60), 0, process.stderr.read())
        process.stdin.close()
        self.assertEqual(os.path.getsize(path) % 188, 0)
        self.assertEqual(report("scan", path)["services"][0]["name"], "Test Card")


class Outputs(unittest.TestCase):
    COMMANDS = (["scan"], ["scan", "--json"], ["sections", "--pid", "0", "--json"],
                ["pes", "--pid", "257"], ["record", "-o", "-"], ["report", "-o", "-"])

    def test_that_do_not_fit_are_failures(self):
        with open("/dev/full", "wb") as full:
            for command in (*self.COMMANDS, ["--help"]):
                arguments = command if command == ["--help"] else [*command, own_stream()]
                result = run(*arguments, capture_output=False, stdout=full,
                             stderr=subprocess.PIPE, text=True)
                self.assertEqual(result.returncode, 7, (command, result.stderr))
                self.assertRegex(result.stderr, "No space left|cannot be written")

    def test_never_take_the_place_of_the_input(self):
        path = temporary("kept.ts")
        link = temporary("link.ts")
        shutil.copy(own_stream(), path)
        os.symlink(path, link)
        for command in (["record", "-o"], ["report", "-o"], ["watch", "--snapshot"],
                        ["sections", "--pid", "0", "--raw", "-o"],
                        ["pes", "--pid", "257", "--raw", "-o"]):
            for output in (path, link):
                result = run(*command, output, "--force", path, text=True)
                self.assertEqual(result.returncode, 7, (command, result.stderr))
                self.assertIn("is the input", result.stderr)
        self.assertEqual(os.path.getsize(path), os.path.getsize(own_stream()))

    def test_are_removed_when_empty_but_for_pipes(self):
        pipe = temporary("pipe")
        os.mkfifo(pipe)
        reader = os.open(pipe, os.O_RDONLY | os.O_NONBLOCK)
        file = temporary("left.ts")
        for path, there in ((pipe, True), (file, False)):
            result = run("record", "-p", "300", "-f", "-o", path, own_stream())
            self.assertEqual((result.returncode, os.path.exists(path)), (5, there))
        os.close(reader)

    def test_closed_by_the_caller_are_nobody_elses(self):
        shell = '"$0" {} <&- >&- 2>"$1"'
        for arguments, status in (("scan -", 3), (f"scan {own_stream()}", 7)):
            errors = temporary("errors")
            result = subprocess.run(["sh", "-c", shell.format(arguments), PROGRAM, errors],
                                    timeout=60, check=False)
            self.assertEqual(result.returncode, status, arguments)

    def test_have_names_in_any_locale(self):
        path = temporary("Été ü.ts")
        result = run("record", "-d", "0.5", "-o", path, own_stream(),
                     env={**os.environ, "LC_ALL": "C"}, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)
        result = run("epg", "-s", "Été", path, env={**os.environ, "LC_ALL": "C"},
                     text=True, encoding="utf-8")
        self.assertEqual(result.returncode, 5, result.stderr)
        self.assertIn('no service "Été"', result.stderr)

    def test_come_before_the_input_goes_on(self):
        with open(own_stream(), "rb") as file:
            beginning = file.read(300_000)
        for arguments in (["sections", "--pid", "0"], ["sections", "--pid", "0", "--json"],
                          ["pes", "--pid", "257"], ["pes", "--pid", "257", "--json"]):
            process = subprocess.Popen([PROGRAM, *arguments, "-"], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE)
            process.stdin.write(beginning)
            process.stdin.flush()
            came, _, _ = select.select([process.stdout], [], [], 60)
            process.stdin.close()
            process.stdout.close()
            process.wait(60)
            self.assertTrue(came, arguments)

    def test_end_well_where_a_signal_comes_before_services(self):
        for command in (["watch"], ["watch", "--snapshot", temporary("none.png")], ["ports"],
                        ["pes"], ["epg"], ["record", "-s", "1", "-o", temporary("none.ts")]):
            process = subprocess.Popen([PROGRAM, *command, "--json", "-"], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            # A pipe that was read holds the packets, and nothing names a service.
            process.stdin.write(b"\x47\x1f\xff\x10".ljust(188, b"\xff") * 10000)
            process.stdin.flush()
            process.send_signal(signal.SIGINT)
            output, errors = process.communicate(timeout=60)
            self.assertEqual((process.returncode, errors), (0, b""), command)
            json.loads(output)


class Watching(unittest.TestCase):
    """With the framework's sinks for tests, which keep to the clock."""

    SINKS = {**os.environ, "GST_PLUGIN_FEATURE_RANK": "fakevideosink:MAX,fakeaudiosink:MAX"}
    NOTHING = {name: value for name, value in os.environ.items()
               if name not in ("DISPLAY", "WAYLAND_DISPLAY", "XDG_RUNTIME_DIR", "PULSE_SERVER")}

    def watch(self, *arguments):
        result = run("watch", "--json", *arguments, env=self.SINKS)
        self.assertEqual(result.returncode, 0, result.stderr)
        return json.loads(result.stdout)

    def test_shows_and_sounds_what_was_asked_for_until_the_end(self):
        short = temporary("short.ts")
        run("record", own_stream(), "-d", "1.5", "-o", short)
        for arguments, audio, end in (
            ([short], 257, "end of the stream"),
            (["--audio", "deu", "-d", "1.5", own_stream()], 258, "duration"),
        ):
            found = self.watch(*arguments)
            self.assertEqual((found["service_id"], found["video_pid"], found["audio_pid"],
                              found["end"]), (1, 256, audio, end))
            # The multiplexer's clock runs ahead; a slow machine leaves out pictures.
            self.assertIn(found["pictures"], range(2, 45))
            self.assertAlmostEqual(found["sound_seconds"], 1.5, delta=0.7)

    def test_ends_when_interrupted(self):
        process = subprocess.Popen([PROGRAM, "watch", own_stream()], env=self.SINKS, text=True,
                                   stderr=subprocess.PIPE)
        self.assertIn("Test Card", process.stderr.readline())
        process.send_signal(signal.SIGINT)
        _, errors = process.communicate(timeout=60)
        self.assertEqual((process.returncode, errors), (0, ""))

    def test_says_what_is_missing(self):
        for arguments, status, text in (
            (["--audio", "fre"], 5, "eng, ger"),
            (["--subtitles"], 5, "no subtitle"),
            ([], 7, "no display"),
        ):
            result = run("watch", *arguments, own_stream(), env=self.NOTHING, text=True)
            self.assertEqual(result.returncode, status, result.stderr)
            self.assertIn(text, result.stderr)

    def test_says_what_is_not_decoded(self):
        packets = broken_stream.plan(2)
        change_pmt(packets, 0,
                   b"\xe1\x00\xf0\x00\x10\xe1\x00\xf0\x00\x03\xe1\x01\xf0\x00")
        path = planned("mpeg4.ts", packets)
        result = run("watch", path, env=self.SINKS, text=True)
        self.assertIn("MPEG-1 audio; MPEG-4 video is not decoded here", result.stderr)

    @needs_streams
    def test_shows_subtitles_and_takes_the_clear_service(self):
        found = self.watch("--subtitles", captured("h264-subtitles.ts"))
        self.assertEqual(found["subtitle_pid"], 0xBC7)
        self.assertEqual(self.watch("-d", "0.5", captured("scrambled.ts"))["service_id"], 8810)
        result = run("watch", "-s", "8803", captured("scrambled.ts"), env=self.SINKS, text=True)
        self.assertEqual(result.returncode, 6, result.stderr)


class Mistakes(unittest.TestCase):
    def test_are_named_in_one_line_with_a_status(self):
        noise = temporary("noise")
        with open(noise, "wb") as file:
            file.write(os.urandom(200000))
        text = temporary("text")
        with open(text, "w", encoding="ascii") as file:
            file.write("Go not gently.\n" * 20000)
        picture = temporary("picture.png")
        run("watch", "--snapshot", picture, own_stream())
        empty = temporary("empty")
        open(empty, "wb").close()
        own = own_stream()
        for arguments, status, text in (
            ([], 2, "--help"),
            (["scna", own], 2, '"scan"'),
            (["help", "scna"], 2, '"scan"'),
            (["scan"], 2, "INPUT"),
            (["scan", "--bogus", own], 2, "--bogus"),
            (["scan", own, own], 2, "too many arguments"),
            (["scan", "--duration", "soon", own], 2, '"soon"'),
            (["scan", "/nowhere/x.ts"], 3, "No such file"),
            (["scan", "/"], 3, "is a folder"),
            (["scan", empty], 3, "is empty"),
            (["scan", "nonsense://x"], 3, "nonsense"),
            *((["scan", wrong], 4, "no MPEG transport stream")
              for wrong in (noise, text, picture)),
            (["pes", "--pid", "300", own], 5, "PID 300 was not in the stream"),
            (["sections", "--pid", "0x12c", own], 5, "PID 300 was not in the stream"),
            (["record", "-p", "300", "-p", "301", "-o", temporary("x.ts"), own], 5,
             "PIDs 300, 301 were not in the stream"),
            (["temi", own], 5, "TEMI descriptors were not in the stream"),
            (["epg", "--service", "None Such", own], 5, '1 "Test Card"'),
            (["watch", "--service", "9", "--snapshot", temporary("x"), own], 5, '1 "Test Card"'),
            (["watch", "--snapshot", picture, own], 7, "--force"),
            *(([*words, "/nowhere/x", noise], 7, "/nowhere/x: No such file")
              for words in (["watch", "--snapshot"], ["report", "-o"])),
            (["test-stream", "-o", "/nowhere/x.ts"], 7, "No such file"),
            (["pes", "--raw", "--json", "-p", "257", own], 2, "--raw"),
            (["sections", "--raw", "--json", "-p", "0", own], 2, "--raw"),
        ):
            result = run(*arguments, text=True)
            self.assertEqual(result.returncode, status, (arguments, result.stderr))
            self.assertIn(text, result.stderr, arguments)
            self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
            if not arguments or arguments[0] == "test-stream":
                continue
            result = run(*arguments, "--json", text=True)
            said = json.loads(result.stdout)
            self.assertEqual((result.returncode, said["status"]), (status, status), arguments)
            self.assertIn(text, said["error"])

    @needs_streams
    def test_of_announcements_name_the_subtitles_that_are_sent(self):
        result = run("pes", captured("scrambled.ts"), text=True)
        self.assertEqual(result.returncode, 5, result.stderr)
        self.assertIn("PID 342 was not in the stream; there is --pid 343", result.stderr)


if __name__ == "__main__":
    unittest.main()
