// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/receiver.h>

#include <optional>

#include "common/crc32_mpeg.h"
#include "platform/receiver/feeder.h"
#include "platform/receiver/filter_node.h"
#include "platform/receiver/stream_node.h"
#include "platform/receiver/temi.h"

namespace qel::receiver {
namespace {

/// True where waiting for the reader would make room.
bool lacks_room(const RingNode& node, std::size_t bytes) {
  return node.is_read() && !node.ring.has_room(bytes) && node.ring.could_have_room(bytes);
}

}  // namespace

/// Takes sections from the assembler to the filters of a PID.
class Feeder::Delivery final : public SectionSink {
 public:
  Delivery(Feeder& feeder, Route& route, unsigned pid)
      : feeder_(feeder), route_(route), pid_(pid) {}
  bool section(const Section& section) override {
    cancelled_ = !feeder_.deliver(route_, pid_, section);
    return !cancelled_;
  }
  [[nodiscard]] bool cancelled() const { return cancelled_; }

 private:
  Feeder& feeder_;
  Route& route_;
  const unsigned pid_;
  bool cancelled_ = false;
};

bool Feeder::dispatch(const Packet& packet, bool lost) {
  if (packet.has_pcr() && !pace(packet)) return false;
  temi_.clear();
  if (!demux_.temi.empty() && packet.has_flags()) append_temi(packet, temi_);
  // What may wait comes first, so that the rest is done in one go.
  if (lossless() && !make_room(packet)) return false;
  Route* route = input_.pids.route(packet.pid());
  hand_out(packet, route);
  return !route || route->sections.empty() || sections(packet, *route, lost);
}

bool Feeder::make_room(const Packet& packet) {
  std::size_t bytes = 0;
  while (RingNode* node = without_room(packet, bytes)) {
    if (!wait_for_room(*node, bytes, packet.pid())) return false;
  }
  return true;
}

/// A node that takes `bytes` of the packet, and has no room for them now.
RingNode* Feeder::without_room(const Packet& packet, std::size_t& bytes) {
  const Route* all = input_.pids.route(kAllPids);
  const Route* one = input_.pids.route(packet.pid());
  bytes = kPacketSize;
  bool recorded = false;
  for (const Route* route : {all, one}) {
    if (!route) continue;
    for (FilterNode* filter : route->packets) {
      if (lacks_room(*filter, bytes)) return filter;
    }
    recorded |= !route->record.empty();
  }
  if (recorded && demux_.record && lacks_room(*demux_.record, bytes)) return demux_.record.get();
  bytes = temi_.size();
  for (FilterNode* filter : demux_.temi) {
    if (bytes > 0 && lacks_room(*filter, bytes)) return filter;
  }
  return one ? pes_without_room(packet, *one, bytes) : nullptr;
}

/// To everyone but section filters; does not wait.
void Feeder::hand_out(const Packet& packet, Route* route) {
  Route* all = input_.pids.route(kAllPids);
  for (Route* each : {all, route}) {
    if (!each) continue;
    for (FilterNode* filter : each->packets) {
      filter->ring.put(packet.bytes(), kPacketSize);
      demux_.touch(filter->ring);
    }
  }
  to_record(packet, route);
  if (!temi_.empty()) {
    for (FilterNode* filter : demux_.temi) {
      filter->ring.put(temi_.data(), temi_.size());
      demux_.touch(filter->ring);
    }
  }
  if (!route) return;
  if (packet.has_pcr() && !route->clocks.empty()) {
    const auto now = std::chrono::steady_clock::now();
    for (FilterNode* filter : route->clocks) {
      filter->clock.on_pcr(packet.pcr(), now, packet.discontinuity());
    }
  }
  if (!route->pes.empty()) to_pes(packet, *route);
}

/// Once, however many filters ask for it.
void Feeder::to_record(const Packet& packet, const Route* route) {
  const Route* all = input_.pids.route(kAllPids);
  const bool recorded = (all && !all->record.empty()) || (route && !route->record.empty());
  if (!recorded || !demux_.record) return;
  const bool taken = demux_.record->ring.put(packet.bytes(), kPacketSize);
  demux_.touch(demux_.record->ring);
  for (const Route* each : {all, route}) {
    if (!each) continue;
    for (FilterNode* filter : each->record) {
      Ring::Counters& passed = filter->passed_on;
      passed.records += taken;
      passed.bytes += taken ? kPacketSize : 0;
      passed.dropped += !taken;
    }
  }
}

/// Packets that go to the record node alone, whatever their PID. Gives the number of
/// those it takes at once: up to the end of the ring's memory.
std::size_t Feeder::record(const std::uint8_t* data, std::size_t count) {
  if (!demux_.record) return 0;
  Ring& ring = demux_.record->ring;
  const auto tail = ring.tail();
  const std::size_t room = tail.size() / kPacketSize;
  const RecordedRun run{input_.pids.entries(), data,
                        input_.sync.stride(),  std::min(count, room),
                        input_.wanted_bits,    &input_.counters.scrambled};
  const std::size_t taken = copy_recorded(run, tail.data());
  ring.advance(taken * kPacketSize);
  ring.commit(taken);
  demux_.touch(ring);
  return taken;
}

bool Feeder::sections(const Packet& packet, Route& route, bool lost) {
  if (lost || (packet.scrambled() && packet.has_payload())) route.assembler.lose();
  if (packet.scrambled() || !packet.has_payload()) return true;
  Delivery delivery(*this, route, packet.pid());
  route.assembler.payload(packet.payload(), packet.payload_size(), packet.unit_start(), delivery);
  return !delivery.cancelled();
}

/// A section to the filters it matches. May wait; who wants it is looked up
/// again afterwards.
bool Feeder::deliver(Route& route, unsigned pid, const Section& section) {
  constexpr std::uint8_t kSyntaxIndicator = 0x80;
  const SectionKey key(section.data, section.available);
  const bool has_crc = section.data[1] & kSyntaxIndicator;
  PidTable::Rare& rare = input_.pids.rare(pid);
  std::optional<bool> good;  // worked out for the first filter that asks
  bool first = true;
  ++rare.sections;
  for (;; first = false) {
    matches_.clear();
    for (const SectionEntry& entry : route.sections) {
      if (section.serial < entry.first_serial || !entry.matcher.matches(key)) continue;
      if (entry.check_crc && has_crc) {
        if (!good) {
          good = vantrel::crc32_mpeg(section.data, section.size) == 0;
          rare.crc_errors += !*good;
        }
        if (!*good) {
          entry.node->crc_errors += first;
          continue;
        }
      }
      matches_.push_back(entry.node);
    }
    if (!lossless()) break;
    FilterNode* full = nullptr;
    for (FilterNode* node : matches_) {
      if (!full && lacks_room(*node, section.size)) full = node;
    }
    if (!full) break;
    if (!wait_for_room(*full, section.size, pid)) return false;
  }
  for (FilterNode* node : matches_) {
    const bool taken = node->ring.put(section.data, section.size);
    demux_.touch(node->ring);
    if (taken) node->delivered();
  }
  return true;
}

}  // namespace qel::receiver
