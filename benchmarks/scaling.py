#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Six receivers in one process and in six: scaling.py WORKER [ROUNDS].

Both arrangements do the same work, three times in turn; the median of each is
printed. Memory is proportional set size: what processes share is divided.
"""

import json
import statistics
import subprocess
import sys

RECEIVERS = 6
REPETITIONS = 3


def measure(worker, rounds, processes):
    share = RECEIVERS // processes
    running = [
        subprocess.Popen(
            [worker, str(i * share), str(share), str(rounds)],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
        )
        for i in range(processes)
    ]

    def tell_all():
        for process in running:
            process.stdin.write("\n")
            process.stdin.flush()

    for process in running:
        assert process.stdout.readline() == "ready\n"
    tell_all()
    results = [json.loads(process.stdout.readline()) for process in running]
    tell_all()
    for process in running:
        process.wait()
    total = {key: sum(row[key] for row in results) for key in results[0]}
    total["seconds"] = max(row["seconds"] for row in results)
    return total


def main(worker, rounds="20"):
    rows = {1: [], RECEIVERS: []}
    for _ in range(REPETITIONS):
        for processes, found in rows.items():
            found.append(measure(worker, int(rounds), processes))
    print(f"\nSix receivers, 11 section filters each, {rows[1][0]['bytes'] / 1e9:.1f} GB in all")
    for processes, found in rows.items():
        middle = {key: statistics.median(row[key] for row in found) for key in found[0]}
        print(
            f"  {processes} process{'es' if processes > 1 else '  '}"
            f"  {middle['bytes'] / middle['seconds'] / 1e6:>7.0f} MB/s"
            f"  {1e9 * middle['cpu'] / middle['bytes']:>6.2f} s of CPU a GB"
            f"  {middle['pss_kib'] / 1024:>6.1f} MiB"
            f"  {middle['sections']:>9.0f} sections"
        )


if __name__ == "__main__":
    main(*sys.argv[1:])
