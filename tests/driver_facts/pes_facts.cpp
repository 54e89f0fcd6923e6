// SPDX-License-Identifier: LGPL-2.1-or-later
#include <sys/ioctl.h>

#include "tests/driver_facts/facts.h"
#include "tests/support/process.h"

namespace facts {
namespace {

using stream::kPacketSize;

Bytes pes_packets(unsigned pid = kPesPid) { return mux().unit(pid, pes_packet()); }

void feed_pes(unsigned pid = kPesPid) { feed(pes_packets(pid)); }

void tap_reads(Node& node) {
  fact("pes.tap: size set read poll",
       {node.size(kLargeBuffer), node.pes(kPesPid, DMX_OUT_TAP), node.read(), node.poll()});
  feed_pes();
  fact("pes.tap, a PES packet of 500 bytes: poll reads bytes",
       {node.poll(), node.drain(), node.data == pes_packet() ? "equal" : "differ"});
  feed(pes_packets() + pes_packets());
  fact("pes.tap, two of 500: read(100) read(700) read",
       {node.read(100), node.read(700), node.read()});
  const Bytes whole = pes_packets();
  feed(slice(whole, kPacketSize, whole.size() - kPacketSize));
  fact("pes.tap, PES packet without its start", node.drain());
  const Bytes gap = pes_packets();
  const Bytes third = slice(gap, 2 * kPacketSize, kPacketSize);
  feed(join({slice(gap, 0, kPacketSize), third, third, pcr(kPesPid, 0)}));
  fact("pes.tap, packets 1 3 3 and an adaptation-only one", node.drain());
}

void tap_states(Node& node) {
  feed_pes();
  fact("pes.stop with data: stop read poll stop",
       {node.stop(), node.read(), node.poll(), node.stop()});
  feed_pes();
  fact("pes.start: start read", {node.start(), node.read()});
  feed_pes();
  fact("pes.start while running with data: start read", {node.start(), node.read()});
  feed_pes();
  fact("pes.set while running with data: set read",
       {node.pes(kPesPid + 1, DMX_OUT_TAP), node.read()});
  feed(pes_packets() + mux().unit(kPesPid + 1, slice(pes_packet(), 0, 60)));
  fact("pes.set, data of old(500) and new(60) pid", node.drain());
  fact("pes.size while running: other same", {node.size(4096), node.size(kLargeBuffer)});
  fact("pes.section filter on the same node: set", node.section(kSectionPid));
  feed(pes_packets(kPesPid + 1) + packed(kSectionPid, section(0x42, 1, 20)));
  fact("pes.section filter on the same node: reads", node.drain());
}

void tap_overflow(Node& node) {
  fact("pes.stop size(1024) set", {node.stop(), node.size(1024), node.pes(kPesPid, DMX_OUT_TAP)});
  feed(mux().unit(kPesPid, Bytes(920, 'x')));
  const std::string polled = node.poll();
  feed(mux().unit(kPesPid, Bytes(184, 'y')));
  fact("pes.overflow of 1024 by packet 6: poll-at-5 poll reads poll",
       {polled, node.poll(), node.drain(), node.poll()});
  feed(mux().unit(kPesPid, Bytes(184, 'y')));
  fact("pes.overflow, next packet", node.drain());
}

void ts_taps(Node& node, Node& other, Node& record) {
  fact("pes.output ts-tap: set", node.pes(kPesPid, DMX_OUT_TS_TAP));
  feed_pes();
  fact("pes.output ts-tap: node read poll, dvr poll reads",
       {node.read(), node.poll(), record.poll(), record.drain()});
  fact("pes.output ts-tap twice on one pid: set", other.pes(kPesPid, DMX_OUT_TS_TAP));
  feed_pes();
  fact("pes.output ts-tap twice on one pid: dvr reads", record.drain());
  other.pes(kPesPid + 1, DMX_OUT_TS_TAP);
  feed(join({pes_packets(), pes_packets(kPesPid + 1), pcr(kPesPid, 0), pes_packets(kPesPid + 2)}));
  fact("pes.output ts-tap on two pids, 3+3+1 packets: dvr reads", record.drain());
}

void tsdemux_taps(Node& node, Node& other, Node& record) {
  fact("pes.output tsdemux-tap: set", node.pes(kPesPid, DMX_OUT_TSDEMUX_TAP));
  feed_pes();
  fact("pes.output tsdemux-tap: reads, dvr reads", {node.drain(), record.drain()});
  std::uint16_t pid = kPesPid + 2;
  fact("pes.tsdemux-tap add-pid; on ts-tap",
       {node.control(DMX_ADD_PID, &pid), other.control(DMX_ADD_PID, &pid)});
  feed(pes_packets() + mux().unit(kPesPid + 2, slice(pes_packet(), 0, 184)));
  fact("pes.tsdemux-tap add-pid: reads; remove-pid",
       {node.drain(), node.control(DMX_REMOVE_PID, &pid)});
}

void types(Node& first, Node& second) {
  constexpr unsigned kVideo = DMX_PES_VIDEO0;
  fact("pes.type taken: video0 video0 video1",
       {first.pes(kPesPid, DMX_OUT_DECODER, kVideo), second.pes(kPesPid, DMX_OUT_DECODER, kVideo),
        second.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO1)});
  fact("pes.type taken, with a tap: video0", second.pes(kPesPid + 1, DMX_OUT_TAP, kVideo));
  second.pes(kPesPid, DMX_OUT_DECODER, kVideo);
  fact("pes.type taken: first-stops second-starts first-starts",
       {first.stop(), second.start(), first.start()});
  second.stop();
  {
    Node holder;
    holder.pes(kPesPid, DMX_OUT_DECODER, kVideo);
  }
  fact("pes.type of a node closed while running: video0",
       first.pes(kPesPid, DMX_OUT_DECODER, kVideo));
  fact("pes.type other twice on one pid",
       {first.pes(kPesPid, DMX_OUT_TAP), second.pes(kPesPid, DMX_OUT_TAP)});
  feed_pes();
  fact("pes.type other twice on one pid: reads", {first.drain(), second.drain()});
}

std::string pes_pids(Node& node) {
  std::array<std::uint16_t, 5> pids{};
  std::string text = node.control(DMX_GET_PES_PIDS, pids.data());
  for (const unsigned pid : pids) text += " " + std::to_string(pid);
  return text;
}

}  // namespace

void pes_taps() {
  Node node;
  tap_reads(node);
  tap_states(node);
  tap_overflow(node);
}

void pes_outputs() {
  Node node, other;
  fact("pes.output decoder: set", node.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO0));
  feed_pes();
  fact("pes.output decoder: read poll", {node.read(), node.poll()});
  fact("pes.output decoder, type other: set", node.pes(kPesPid, DMX_OUT_DECODER));
  Node record(O_RDONLY | O_NONBLOCK, "qel_dvr0");
  ts_taps(node, other, record);
  tsdemux_taps(node, other, record);
  fact("pes.output 7: set", node.pes(kPesPid, 7));
  node.stop();
  node.size(kLargeBuffer);
  fact("pes.pid 0x2000: tap ts-tap",
       {node.pes(0x2000, DMX_OUT_TAP), other.pes(0x2000, DMX_OUT_TS_TAP)});
  feed(pes_packets() + pes_packets(kPesPid + 1));
  fact("pes.pid 0x2000, 6 packets: tap reads, dvr reads", {node.drain(), record.drain()});
}

void pes_requests() {
  Node node, other;
  fact("pes.pid 0x2001 0xffff; start after it",
       {node.pes(0x2001, DMX_OUT_TAP), node.pes(0xffff, DMX_OUT_TAP), node.start()});
  fact("pes.type 21; start after it", {node.pes(kPesPid, DMX_OUT_TAP, 21), node.start()});
  fact("pes.input dvr: set", node.pes(kPesPid, DMX_OUT_TAP, DMX_PES_OTHER, DMX_IN_DVR));
  feed_pes();
  fact("pes.input dvr: reads", node.drain());
  types(node, other);
  node.pes(kPesPid, DMX_OUT_DECODER, DMX_PES_VIDEO0);
  fact("pes.get-pes-pids, video0 on 512", pes_pids(node));
  node.stop();
  fact("pes.get-pes-pids, stopped", pes_pids(node));

  Node blocking(O_RDWR);
  blocking.pes(kPesPid, DMX_OUT_TAP);
  vantrel::test::Background reader([&] { return blocking.read(400); });
  reader.waits();
  for (int i = 0; i < 3; ++i) feed(mux().unit(kPesPid, Bytes(184, 'x')));
  fact("pes.blocking read(400), 184 at a time", reader.result());
}

}  // namespace facts
