#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Puts the results of one run side by side: report.py FOLDER.

Rates are medians of the repetitions; where two threads work on two cores, which other
machines on the same host disturb for seconds, the fastest, with the medians in brackets.
Each row says what is compared with what.
"""

import collections
import json
import pathlib
import statistics
import sys


def rates(path, statistic=statistics.median):
    """Rate of each benchmark by its name."""
    found = collections.defaultdict(list)
    for row in json.loads(path.read_text())["benchmarks"]:
        if row["run_type"] == "iteration":
            found[row["run_name"].removesuffix("/real_time")].append(row["bytes_per_second"])
    return {name: statistic(repetitions) for name, repetitions in found.items()}


def line(what, value, target):
    print(f"  {what:<66} {value:>18}   {target}")


def print_receiver(receiver):
    print("\nReceiver: generated multiplex of 263 MB, 128 PIDs, mapped, 64 KiB blocks")
    walk, none = receiver["BM_BareWalk/0"], receiver["BM_NoFilter/0"]
    line("no filter, counters on / bare walk over the headers", f"{none / walk:.2f} x", ">= 0.75")
    for taps in (1, 8, 32, 128):
        rate = receiver[f"BM_PesTaps/0/{taps}"]
        line(f"{taps} of the 128 PIDs tapped and read / no filter", f"{rate / none:.2f} x", "")
    ratio = receiver["BM_PesFilters/8"] / receiver["BM_PesFilters/128"]
    line("all of a stream taken by PES filters: time of 128 / of 8", f"{ratio:.2f} x", "<= 1.3")


def print_sections(section):
    print("\nSections: 11 PIDs, 90 to 4096 bytes, 60 % of the packets, CRC on, 64 KiB blocks")
    peer = section["BM_SectionsDvbpsi"]

    def rate(filters, size):
        return section[f"BM_SectionsElement/filters:{filters}/dmx-buf-size:{size}"]

    big, default = 1 << 20, 131072
    line('"section-upload", 11 filters, 1 MiB / libdvbpsi', f"{rate(11, big) / peer:.2f} x", ">= 3")
    line('"section-upload", 96 filters, 1 MiB / libdvbpsi', f"{rate(96, big) / peer:.2f} x", "")
    line("time of 96 filters / of 11, 1 MiB", f"{rate(11, big) / rate(96, big):.2f} x", "<= 1.5")
    line('11 filters, default "dmx-buf-size" / libdvbpsi', f"{rate(11, default) / peer:.2f} x", "")
    line('96 filters, default "dmx-buf-size" / libdvbpsi', f"{rate(96, default) / peer:.2f} x", "")


def print_streams(stream, fastest, one_core):
    print("\nStreams: one HD programme to its ports, 20 services to a recording, 64 KiB blocks")

    def ratio(rows, name):
        return f"{rows[name + '/vantrel'] / rows[name + '/tsdemux']:.2f}"

    for name, what, target in (
        ("PlayFile", "filesrc ! vantrel / filesrc ! tsdemux", ">= 1.7"),
        ("PlayMemory", "the same fed from memory", ">= 2"),
    ):
        line(what, f"{ratio(fastest, name)} ({ratio(stream, name)}) x", target)
        line("  all on one core", f"{ratio(one_core, name)} x", "")
    all_pids = stream["Record/multiplex/60"]
    if "BM_RecordAvformat" in stream:
        line("60 PIDs recorded / libavformat", f"{all_pids / stream['BM_RecordAvformat']:.2f} x", ">= 2")
    for name, what in (
        ("Record/one/3", "time of 60 PIDs recorded / of 3 that carry as much"),
        ("Record/multiplex/3", "the same / of 3 of the 60, a twentieth to copy"),
    ):
        line(what, f"{stream[name] / all_pids:.2f} x", "<= 1.3")
    copies = stream["Record/multiplex/3"] / stream["BM_CopyTwice"]
    line("all bytes only copied in and out / 3 of the 60 recorded", f"{copies:.2f} x", "")


def print_crc(crc):
    print("\nCRC-32/MPEG-2 over 4 KiB")
    line("portable, 16 tables", f"{crc['run/CrcPortable'] / 1e9:.1f} GB/s", ">= 2.5")
    line("chosen at run time", f"{crc['run/CrcChosen'] / 1e9:.1f} GB/s", ">= 10 with CLMUL")


def print_response(response):
    print("\nResponse: 1000 samples each")
    for name, what, target in (
        ("section_latency", "last packet of a section fed -> handler", "p99 < 1500 us"),
        ("zap", '"vpid" write, while being fed', "median < 50 us"),
        ("zap_with_3_subtitles", "the same with three subtitle streams", "median < 50 us"),
    ):
        row = response[name]
        text = f"{row['median']:.0f} / {row['p99']:.0f} / {row['worst']:.0f} us"
        line(f"{what}: median / p99 / worst", text, target)
    start, byte = response["zap_to_unit_start"], response["zap_to_first_byte"]
    line('"vpid" write -> next PES packet begins, in 15 Mbit/s: median', f"{start['median']:.0f} us", "")
    line('"vpid" write -> first PES byte read: median', f"{byte['median']:.0f} us", "")
    for name, what in (
        ("idle", "an element that waits"),
        ("idle_bare", "a bare loop of 1 ms"),
    ):
        row = response[name]
        text = f"{row['wakeups']:.0f} /s, {100 * row['core_share']:.2f} %"
        line(f"{what}: wake-ups, share of a core", text, "")
    idle = response["idle96"]
    line("96 idle filters: share of a core", f"{100 * idle['core_share']:.2f} %", "< 1 %")
    line("96 idle filters: memory", f"{idle['bytes'] / 1024:.0f} KiB", "< 4096 KiB")


def print_pes(pes):
    print('\nPES packets through "pes-upload"')
    for size in (2000, 60000):
        row = pes[f"pes_{size}"]
        text = f"{row['bytes_per_second'] / 1e6:.1f} MB/s"
        line(f"of {size} bytes", text, "")
        line("the same / one full node a pass", f"{row['buffers_a_pass']:.2f} x", "")


def print_watch(watch):
    print("\nWatching: a flash and a beep each second, software decoders")
    for name, what in (("file", "a recording"), ("live", "live"), ("tsdemux", "by tsdemux")):
        row = watch["sync_" + name]
        text = f"{row['min']:.0f} / {row['max']:.0f} ms"
        line(f"sound behind picture, {what}: least / most", text, "-40 to +60 ms")
    for name, what in (("file", "a recording"), ("live", "live"), ("tsdemux", "by tsdemux")):
        row = watch["start_" + name]
        text = f"{row['median']:.0f} / {row['max']:.0f} ms"
        line(f"first picture decoded, {what}: median / most", text, "<= 1300 ms")
    cpu = watch["cpu"]
    line("HD decoded: processor time / with tsdemux", f"{cpu['watch'] / cpu['watch_tsdemux']:.2f} x", "")
    line("the same without decoders", f"{cpu['demux'] / cpu['demux_tsdemux']:.2f} x", "")


def main(folder):
    print_receiver(rates(folder / "receiver.json"))
    stream = folder / "stream.json"
    print_streams(rates(stream), rates(stream, max), rates(folder / "stream-one-core.json"))
    print_sections(rates(folder / "section.json"))
    print_crc(rates(folder / "crc.json"))
    print_response(json.loads((folder / "response.json").read_text()))
    print_pes(json.loads((folder / "pes.json").read_text()))
    if (folder / "watch.json").exists():
        print_watch(json.loads((folder / "watch.json").read_text()))


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
