#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""What `vantrel monitor` serves, as who scrapes it sees it:
metrics_test.py PROGRAM [unittest options]."""

import collections
import contextlib
import json
import shutil
import socket
import subprocess
import threading
import time
import unittest
import urllib.request

from broken_stream import AUDIO, NULL, Packet, plan, write
from program import PROGRAM, stored, temporary

PATIENCE = 60  # seconds, against hangs only
OPENMETRICS = "application/openmetrics-text"


def fetch(uri, **headers):
    with urllib.request.urlopen(urllib.request.Request(uri, headers=headers), timeout=PATIENCE) as it:
        return it.headers["Content-Type"], it.read().decode()


def wait_for(what, condition):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        with contextlib.suppress(OSError):
            if found := condition():
                return found
        time.sleep(0.1)
    raise AssertionError("waited in vain for " + what)


@contextlib.contextmanager
def monitor(data):
    """Feeds the data to a monitor, then null packets to keep it alive; its page's address."""
    process = subprocess.Popen([PROGRAM, "monitor", "--metrics", "127.0.0.1:0", "-"],
                               stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE)
    ended = threading.Event()

    def feed():
        with contextlib.suppress(OSError):
            process.stdin.write(data)
            while not ended.wait(0.1):
                process.stdin.write(bytes(write([Packet()])[0]) * 50)
                process.stdin.flush()
            process.stdin.close()

    feeder = threading.Thread(target=feed)
    feeder.start()
    try:
        yield process.stderr.readline().decode().split()[-1]
    finally:
        ended.set()
        process.kill()
        process.wait()
        feeder.join()
        process.stderr.close()


@contextlib.contextmanager
def prometheus(target):
    """Debian's Prometheus, which scrapes the target; the address of its queries."""
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        own = "127.0.0.1:%d" % free.getsockname()[1]
    config = stored("prometheus.yml", json.dumps(
        {"scrape_configs": [{"job_name": "vantrel", "scrape_interval": "1s",
                             "static_configs": [{"targets": [target]}]}]}).encode())
    process = subprocess.Popen(
        ["prometheus", "--config.file=" + config, "--web.listen-address=" + own,
         "--storage.tsdb.path=" + temporary("data")],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        yield "http://" + own + "/api/v1/query?query="
    finally:
        process.terminate()
        process.wait()


class Metrics(unittest.TestCase):
    """12 s of which one audio packet is missing."""

    def setUp(self):
        packets = write(plan())
        del packets[5024]
        counted = collections.Counter((row[1] & 0x1F) << 8 | row[2] for row in packets)
        del counted[NULL]
        self.packets = {str(pid): count for pid, count in counted.items()}
        self.data = b"".join(map(bytes, packets))

    def settled(self, uri):
        """Once all PIDs have all their packets."""
        def page():
            text = fetch(uri)[1]
            wanted = (f'vantrel_pid_packets_total{{pid="{pid}"}} {count}\n'
                      for pid, count in self.packets.items())
            return text if all(line in text for line in wanted) else None
        return wait_for("the counters", page)

    def test_are_clean_in_both_formats(self):
        with monitor(self.data) as uri:
            text = self.settled(uri)
            self.assertIn(f'vantrel_pid_discontinuities_total{{pid="{AUDIO}"}} 1\n', text)
            self.assertIn("# TYPE vantrel_pid_packets_total counter\n", text)
            kind, page = fetch(uri, Accept=OPENMETRICS + ";version=1.0.0,text/plain;q=0.5")
            self.assertTrue(kind.startswith(OPENMETRICS))
            self.assertIn("# TYPE vantrel_pid_packets counter\n", page)
            self.assertTrue(page.endswith("# EOF\n"))
            with self.assertRaises(urllib.error.HTTPError):
                fetch(uri.replace("/metrics", "/else"))
        if shutil.which("promtool") is None:
            self.skipTest("promtool is not installed")
        checked = subprocess.run(["promtool", "check", "metrics"], input=text.encode(),
                                 capture_output=True, timeout=PATIENCE, check=False)
        self.assertEqual((checked.returncode, checked.stdout, checked.stderr), (0, b"", b""))

    def test_are_scraped(self):
        if shutil.which("prometheus") is None:
            self.skipTest("prometheus is not installed")
        with monitor(self.data) as uri:
            self.settled(uri)
            with prometheus(uri.split("/")[2]) as query:
                def values(name):
                    found = json.loads(fetch(query + name)[1])["data"]["result"]
                    return {row["metric"]["pid"]: int(row["value"][1]) for row in found
                            if row["metric"]["pid"] != str(NULL)}
                self.assertEqual(wait_for("a scrape", lambda: values("vantrel_pid_packets_total")),
                                 self.packets)
                lost = values("vantrel_pid_discontinuities_total")
                self.assertEqual({pid for pid in lost if lost[pid]}, {str(AUDIO)})


if __name__ == "__main__":
    unittest.main()
