// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>

#include "platform/receiver/feeder.h"
#include "platform/receiver/filter_node.h"
#include "platform/receiver/ports.h"
#include "platform/receiver/stream_node.h"

namespace qel::receiver {
namespace {

/// Whose ring a PES filter fills; nullptr where nobody reads the port.
RingNode* target_of(FilterNode& filter) {
  if (!filter.port) return &filter;
  return filter.port->reader.get();
}

/// A port takes everything from its first payload unit start on: what lies
/// behind a wrong PES_packet_length is for the decoder to judge.
std::size_t bytes_for_port(const FilterNode& filter, const Packet& packet) {
  return packet.unit_start() || filter.port_started ? packet.payload_size() : 0;
}

PesUnit::Step take(PesUnit& unit, const Packet& packet) {
  return unit.take(packet.payload(), packet.payload_size(), packet.unit_start());
}

}  // namespace

RingNode* Feeder::pes_without_room(const Packet& packet, const Route& route, std::size_t& bytes) {
  if (packet.scrambled() || !packet.has_payload()) return nullptr;
  for (FilterNode* filter : route.pes) {
    RingNode* node = target_of(*filter);
    if (!node || !node->is_read() || node->ring.has_room(packet.payload_size())) continue;
    if (filter->port) {
      bytes = bytes_for_port(*filter, packet);
    } else {
      PesUnit after = filter->unit;
      bytes = take(after, packet).bytes;
      if (after.total() > node->ring.size()) continue;  // will never fit
    }
    // A payload unit start ends the packet in progress, whole as it is.
    if (packet.unit_start()) commit(node->ring);
    if (!node->ring.has_room(bytes) && node->ring.could_have_room(bytes)) return node;
  }
  return nullptr;
}

/// Ends the record being built, or so many, to be shown at the batch's end.
void Feeder::commit(Ring& ring, std::size_t records) {
  ring.commit(records);
  demux_.touch(ring);
}

bool Feeder::pes_to_only(const Packet& packet, FilterNode& filter) {
  RingNode* node = target_of(filter);
  if (node && !node->ring.has_room(packet.payload_size())) return false;
  if (filter.port) {
    to_port(filter, packet);
  } else {
    to_tap(filter, packet);
  }
  return true;
}

/// Stops before the PES packet's declared end would fall within a packet.
std::size_t Feeder::pes_to_only(const Run& run, FilterNode& filter) {
  constexpr std::size_t kPayload = kPacketSize - kHeaderSize;
  RingNode* node = target_of(filter);
  PesUnit& unit = filter.unit;
  if (!node || !(filter.port ? filter.port_started : unit.open())) return 0;
  const auto tail = node->ring.tail();
  const std::size_t limit = std::min({run.count, tail.size() / kPayload, unit.rest() / kPayload});
  const std::size_t count = copy_payloads(run, tail.data(), limit);
  node->ring.advance(count * kPayload);
  const bool was_open = unit.open();
  if (was_open) unit.advance(count * kPayload);
  if (filter.port) filter.passed_on.bytes += count * kPayload;
  const bool in_pieces = filter.port && (lossless() || !was_open);
  if (in_pieces || !unit.open()) commit(node->ring, in_pieces ? count : 1);
  return count;
}

void Feeder::to_pes(const Packet& packet, Route& route) {
  if (!packet.has_payload()) return;
  for (FilterNode* filter : route.pes) {
    if (packet.scrambled()) {
      filter->drop_unit();
    } else if (filter->port) {
      to_port(*filter, packet);
    } else {
      to_tap(*filter, packet);
    }
  }
}

void Feeder::to_tap(FilterNode& filter, const Packet& packet) {
  Ring& ring = filter.ring;
  if (packet.unit_start()) commit(ring);
  const PesUnit::Step step = take(filter.unit, packet);
  if (step.bytes == 0) return;
  if (!ring.has_room(step.bytes) || filter.unit.total() > ring.size()) {
    ring.overflow();
    demux_.touch(ring);
    filter.unit = {};
    return;
  }
  ring.append(packet.payload(), step.bytes);
  if (step.completes) commit(ring);
}

/// A lossless input passes everything on as it comes; a live one by whole PES
/// packets, so that what does not fit is missing as a whole.
void Feeder::to_port(FilterNode& filter, const Packet& packet) {
  RingNode* reader = target_of(filter);
  if (!reader) {
    filter.port_started = false;
    return;
  }
  Ring& ring = reader->ring;
  if (packet.unit_start()) commit(ring);
  const std::size_t bytes = bytes_for_port(filter, packet);
  if (bytes == 0) return;
  if (!ring.has_room(bytes)) {
    ring.overflow();
    demux_.touch(ring);
    filter.unit = {};
    filter.port_started = false;
    ++filter.passed_on.dropped;
    return;
  }
  filter.unit.take(packet.payload(), bytes, packet.unit_start());
  filter.port_started = true;
  filter.passed_on.records += packet.unit_start();
  filter.passed_on.bytes += bytes;
  ring.append(packet.payload(), bytes);
  if (lossless() || !filter.unit.open()) commit(ring);
}

/// At the end of the stream: what is in progress will not grow.
void Feeder::complete_units() {
  for (const auto& node : demux_.nodes) {
    const bool pes = node->kind() == QEL_NODE_PES_TAP || node->kind() == QEL_NODE_PES_DECODER;
    if (!pes || !node->follows(input_)) continue;
    if (RingNode* target = target_of(*node)) commit(target->ring);
    node->unit = {};
    node->port_started = false;
  }
}

}  // namespace qel::receiver
