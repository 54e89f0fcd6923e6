# SPDX-License-Identifier: LGPL-2.1-or-later
"""A stream of ATSC A/65 tables: one channel, two events, a text to the first."""

import collections

from broken_stream import section

SYSTEM_TIME = 1_400_000_000  # GPS seconds
LEAP_SECONDS = 18
PIDS = {"PSIP": 0x1FFB, "EIT-0": 0x1D00, "ETT-0": 0x1E00}


def strings(text):
    return b"\x01eng\x01\x00\x00" + bytes([len(text)]) + text.encode("ascii")


def event(number, start, seconds, title):
    title = strings(title)
    length = (0xD00000 | seconds).to_bytes(3, "big")
    return ((0xC000 | number).to_bytes(2, "big") + start.to_bytes(4, "big") + length +
            bytes([len(title)]) + title + b"\xf0\x00")


def guide_entry(table_type, pid):
    return table_type.to_bytes(2, "big") + (0xE000 | pid).to_bytes(2, "big") + \
        b"\xe0\x00\x00\x00\x64\xf0\x00"


CHANNEL = ("WVTL".encode("utf-16-be").ljust(14, b"\0") +
           (0xF00000 | 7 << 10 | 1).to_bytes(3, "big") + b"\x04\x00\x00\x00\x00" +
           b"\x00\x05\x00\x03\x0d\xc2\x00\x2a\xfc\x00")
SECTIONS = (
    (0, section(0x00, 5, b"\x00\x03\xe0\x30")),
    (0x30, section(0x02, 3, b"\xe0\x31\xf0\x00\x02\xe0\x31\xf0\x00")),
    (PIDS["PSIP"], section(0xC7, 0, b"\x00\x00\x02" + guide_entry(0x100, PIDS["EIT-0"]) +
                           guide_entry(0x200, PIDS["ETT-0"]) + b"\xf0\x00")),
    (PIDS["PSIP"], section(0xC8, 5, b"\x00\x01" + CHANNEL + b"\xfc\x00")),
    (PIDS["PSIP"], section(0xCD, 0, b"\x00" + SYSTEM_TIME.to_bytes(4, "big") +
                           bytes([LEAP_SECONDS, 0x60, 0]))),
    (PIDS["EIT-0"], section(0xCB, 42, b"\x00\x02" +
                            event(1, SYSTEM_TIME - 600, 1800, "News at Noon") +
                            event(2, SYSTEM_TIME + 1200, 3600, "Weather"))),
    (PIDS["ETT-0"], section(0xCC, 1, b"\x00" + (42 << 16 | 1 << 2 | 2).to_bytes(4, "big") +
                            strings("What happened."))),
)


def make():
    packets = []
    counters = collections.Counter()
    for pid, table in SECTIONS * 16:
        head = bytes([0x47, 0x40 | pid >> 8, pid & 255, 0x10 | counters[pid] % 16, 0])
        packets.append((head + table).ljust(188, b"\xff"))
        counters[pid] += 1
    return b"".join(packets)
