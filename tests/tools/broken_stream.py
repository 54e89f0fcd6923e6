# SPDX-License-Identifier: LGPL-2.1-or-later
"""A multiplex of one packet a millisecond, whose faults are known.

make() plans the packets of a stream without fault; a case changes the plan, where
continuity counters follow, or the finished packets, where they do not.
"""

PAT, NIT, SDT, EIT, TDT, PMT, VIDEO, AUDIO, NULL = (
    0x00, 0x10, 0x11, 0x12, 0x14, 0x1000, 0x100, 0x101, 0x1FFF)
TICKS = 27000  # of 27 MHz a packet
WRAP = 300 << 33


def crc32(data):
    crc = 0xFFFFFFFF
    for byte in data:
        crc ^= byte << 24
        for _ in range(8):
            crc = (crc << 1 ^ 0x04C11DB7 if crc & 0x80000000 else crc << 1) & 0xFFFFFFFF
    return crc.to_bytes(4, "big")


def section(table_id, extension, body, number=0, last=0, version=0):
    size = (len(body) + 9) | 0xB000
    head = bytes([table_id]) + size.to_bytes(2, "big") + extension.to_bytes(2, "big")
    whole = head + bytes([0xC1 | version << 1, number, last]) + body
    return whole + crc32(whole)


def stamp(prefix, value):
    return bytes([prefix << 4 | value >> 29 & 14 | 1, value >> 22 & 255, value >> 14 & 254 | 1,
                  value >> 7 & 255, value << 1 & 254 | 1])


def pes(stream_id, time):
    head = bytes([0, 0, 1, stream_id, 0, 0, 0x80, 0x80 if time is not None else 0, 5])
    return head + (stamp(2, time * 90) if time is not None else b"\xff" * 5) + b"\x55" * 100


TABLES = {
    PAT: section(0x00, 1, b"\x00\x00\xe0\x10\x00\x01\xf0\x00"),
    PMT: section(0x02, 1, b"\xe1\x00\xf0\x00\x02\xe1\x00\xf0\x00\x03\xe1\x01\xf0\x00"),
    NIT: section(0x40, 1, b"\xf0\x00\xf0\x00"),
    SDT: section(0x42, 1, b"\x00\x01\xff\x00\x01\xfc\x80\x05\x48\x03\x01\x00\x00"),
    EIT: section(0x4E, 1, b"\x00\x01\x00\x01\x00\x4e"),
    TDT: b"\x70\x70\x05\xe6\x00\x12\x00\x00",
}


class Packet:
    def __init__(self, pid=NULL, payload=b"", start=False, pcr=None):
        self.pid, self.payload, self.start, self.pcr = pid, payload, start, pcr
        self.scrambled = self.discontinuity = False

    def write(self, counter):
        field = b""
        if self.pcr is not None or self.discontinuity:
            field = bytes([self.discontinuity << 7 | (self.pcr is not None) << 4])
        if self.pcr is not None:
            base, extension = divmod(self.pcr % WRAP, 300)
            field += (base << 15 | 0x7E00 | extension).to_bytes(6, "big")
        if field:
            field = bytes([len(field)]) + field
        control = (0xC0 if self.scrambled else 0) | (0x30 if field else 0x10) | counter
        head = bytes([0x47, self.start << 6 | self.pid >> 8, self.pid & 255, control])
        return bytearray((head + field + self.payload).ljust(188, b"\xff"))


def table(pid, payload=None):
    return Packet(pid, b"\0" + (payload or TABLES[pid]), True)


def plan(seconds=12, first_pcr=0):
    """PAT and PMT each 100 ms, SI each second, NIT and TDT each 5 s, PCR each 30,
    PTS each 60 ms."""
    packets = []
    for ms in range(seconds * 1000):
        if ms % 100 < 2:
            packet = table((PAT, PMT)[ms % 100])
        elif ms % 1000 in (12, 13):
            packet = table((SDT, EIT)[ms % 1000 - 12])
        elif ms % 5000 in (14, 16):
            packet = table((NIT, TDT)[ms % 5000 // 16])
        elif ms % 30 == 5:
            packet = Packet(VIDEO, b"\x55" * 150, pcr=first_pcr + ms * TICKS)
        elif ms % 60 in (7, 8):
            packet = Packet((VIDEO, AUDIO)[ms % 60 - 7], pes(0xE0 - 32 * (ms % 60 - 7), ms), True)
        else:
            packet = Packet((VIDEO, NULL, AUDIO)[ms % 3], b"\x55" * 184)
        packets.append(packet)
    return packets


def write(packets):
    counters = {}
    written = []
    for packet in packets:
        counters[packet.pid] = counters.get(packet.pid, -1) + 1
        written.append(packet.write(counters[packet.pid] & 15))
    return written


def of(packets, pid, begin, end):
    return [i for i in range(begin, end) if packets[i].pid == pid]


def pid_of(packet):
    return (packet[1] & 0x1F) << 8 | packet[2]
