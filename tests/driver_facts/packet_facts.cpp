// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/driver_facts/facts.h"

namespace facts {
namespace {

using stream::kPacketSize;

Bytes section_of_300() { return section(0x42, 1, 300); }
Bytes section_of_40() { return section(0x42, 2, 40); }
Bytes packets_of_300() { return packed(kSectionPid, section_of_300()); }

Bytes first_packet(const Bytes& packets) { return slice(packets, 0, kPacketSize); }
Bytes further_packets(const Bytes& packets) {
  return slice(packets, kPacketSize, packets.size() - kPacketSize);
}

/// The packets, then a section of 40 bytes, and what comes of it.
std::string with_a_40_behind(Node& node, const Bytes& packets) {
  feed(packets + packed(kSectionPid, section_of_40()));
  return node.drain();
}

/// A section of 300 behind other ones, and after its first packet one without
/// a payload.
std::string adaptation_only_amid(Node& node, const Bytes& before) {
  const Bytes packets = packed(kSectionPid, before + section_of_300());
  feed(join({first_packet(packets), pcr(kSectionPid, 0), further_packets(packets)}));
  return node.drain();
}

}  // namespace

void shared_pids() {
  Node first, second;
  first.section(kSectionPid);
  second.section(kSectionPid);
  feed(packets_of_300());
  fact("shared-pid.both nodes: reads", {first.drain(), second.drain()});
  second.pes(kSectionPid, DMX_OUT_TAP);
  feed(packets_of_300());
  fact("shared-pid.section filter and tap: reads", {first.drain(), second.drain()});

  second.section(kSectionPid);
  second.stop();
  Bytes packets = packets_of_300();
  feed(first_packet(packets));
  second.start();
  feed(further_packets(packets) + packed(kSectionPid, section_of_40()));
  fact("shared-pid.second node starts amid a section of 300, then 40: first, second",
       {first.drain(), second.drain()});
  packets = packets_of_300();
  feed(first_packet(packets));
  second.stop();
  feed(further_packets(packets) + packed(kSectionPid, section_of_40()));
  fact("shared-pid.second node stops amid a section of 300, then 40: first", first.drain());
}

void damaged_packets() {
  Node node;
  node.section(kSectionPid);
  Bytes packets = packets_of_300();
  feed(first_packet(packets));
  node.start();
  fact("packets.started amid a section of 300, then 40",
       with_a_40_behind(node, further_packets(packets)));
  packets = packets_of_300();
  packets[kPacketSize + 3] ^= 8;
  fact("packets.counter jump in the 300, then 40", with_a_40_behind(node, packets));
  fact("packets.first packet of the 300 sent twice, then 40",
       with_a_40_behind(node, stream::with_repeated(packets_of_300(), 0)));
  packets = packed(kSectionPid, section(0x42, 1, 500));
  fact("packets.second of three packets of a 500 sent twice, then 40",
       with_a_40_behind(node, stream::with_repeated(packets, 1)));
  fact("packets.transport error in the 300, then 40",
       with_a_40_behind(node, stream::with_transport_error(packets_of_300(), 1)));
  fact("packets.scrambled bits in the 300, then 40",
       with_a_40_behind(node, stream::with_scrambling(packets_of_300(), 1)));
  fact("packets.adaptation-only packet amid the 300", adaptation_only_amid(node, {}));
  fact("packets.adaptation-only packet amid the 300 behind a 40 in one packet",
       adaptation_only_amid(node, section_of_40()));
  // The last 40 bytes of a section of 223 stand before the next one's start.
  const Bytes whole = section(0x42, 3, 183 + 40);
  stream::Header start;
  start.unit_start = true;
  const Bytes head = mux().packet(kSectionPid, Bytes{0} + slice(whole, 0, 183), start);
  const Bytes tail = join({Bytes{40}, slice(whole, 183, 40), section_of_40(), Bytes(103, 0xff)});
  feed(head + mux().packet(kSectionPid, tail, start));
  fact("packets.section ended by a pointer field, then 40", node.drain());
}

void feeding() {
  Node node;
  node.section(kSectionPid);
  const Bytes packet = packed(kSectionPid, section_of_40());
  fact("dvr.packet in two writes: write read write read",
       {feed(slice(packet, 0, 50)), node.read(), feed(slice(packet, 50, 138)), node.read()});
  const Bytes junk = {'j', 'u', 'n', 'k'};
  fact("dvr.junk before the packet: write read",
       {feed(junk + packed(kSectionPid, section_of_40())), node.drain()});
  node.stop();
  fact("dvr.write with no filter", feed(packed(kSectionPid, section_of_40())));
}

}  // namespace facts
