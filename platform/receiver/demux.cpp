// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/demux.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "platform/receiver/filter_node.h"

namespace qel::receiver {
namespace {

constexpr std::uint32_t kPacketsWithAdaptation = header_bits::kAdaptation;
constexpr std::uint32_t kEveryPacket = header_bits::kSyncWithoutError;

bool pacing_at_first() {
  const char* pace = std::getenv("QEL_PACE");
  return !pace || std::string_view(pace) != "none";
}

}  // namespace

void Input::forget_progress() {
  pids.forget_progress();
  sync.reset();
  gap = carried = 0;
}

Demux::Demux(unsigned index) : number(index), pacing(pacing_at_first()) {
  pes_pids.fill(0xffff);
  touched_.reserve(QEL_RECEIVER_NODES);
  for (Input& input : inputs) refresh(input, kAllPids);
}

void Demux::attach(FilterNode& filter) {
  if (filter.kind() == QEL_NODE_TEMI) {
    temi.push_back(&filter);
    for (Input& input : inputs) refresh(input, kAllPids);
  } else if (filter.kind() == QEL_NODE_SECTION) {
    const dmx_sct_filter_params& section = filter.section();
    for (Input& input : inputs) {
      Route& route = input.pids.make_route(section.pid);
      route.sections.push_back({SectionMatcher(section.filter), route.assembler.next_serial(),
                                &filter, (section.flags & DMX_CHECK_CRC) != 0});
      refresh(input, section.pid);
    }
  } else {
    attach_pes(filter);
  }
}

void Demux::attach_pes(FilterNode& filter) {
  const PesFilter& pes = filter.pes();
  Input& in = input(pes.input);
  Route& route = in.pids.make_route(pes.pid);
  if (pes.pes_type < pes_pids.size()) pes_pids[pes.pes_type] = static_cast<std::uint16_t>(pes.pid);
  if (filter.is_clock()) {
    clocks.push_back(&filter);
    route.clocks.push_back(&filter);
  }
  if (pes.output == DMX_OUT_TS_TAP) route.record.push_back(&filter);
  if (pes.output == DMX_OUT_TAP && pes.pid == kAllPids) route.packets.push_back(&filter);
  if (pes.output == DMX_OUT_TAP && pes.pid != kAllPids) route.pes.push_back(&filter);
  if (pes.output == DMX_OUT_DECODER && pes.pid != kAllPids && filter.port) {
    route.pes.push_back(&filter);
  }
  if (pes.output == DMX_OUT_TSDEMUX_TAP) {
    route.packets.push_back(&filter);
    for (const unsigned pid : filter.more_pids()) {
      auto& packets = in.pids.make_route(pid).packets;
      if (std::find(packets.begin(), packets.end(), &filter) == packets.end()) {
        packets.push_back(&filter);
      }
      refresh(in, pid);
    }
  }
  refresh(in, pes.pid);
}

void Demux::detach(FilterNode& filter) {
  std::erase(temi, &filter);
  std::erase(clocks, &filter);
  for (Input& input : inputs) {
    const auto leave = [&](unsigned pid) {
      Route* route = input.pids.route(pid);
      if (!route) return;
      for (auto* list : {&route->pes, &route->packets, &route->record, &route->clocks}) {
        std::erase(*list, &filter);
      }
      std::erase_if(route->sections, [&](const SectionEntry& e) { return e.node == &filter; });
      if (route->sections.empty()) route->assembler.reset();
      refresh(input, pid);
    };
    if (filter.kind() == QEL_NODE_SECTION) {
      leave(filter.section().pid);
    } else {
      leave(filter.pes().pid);
      for (const unsigned pid : filter.more_pids()) leave(pid);
    }
    refresh(input, kAllPids);
    // It may wait for room in a port or the record node, on this filter's behalf.
    release_feeder(input);
  }
}

void Demux::release_feeder(Input& input) {
  if (input.waiting_on) input.waiting_on->ring.release();
}

void Demux::refresh(Input& input, unsigned pid) {
  const bool paces = is_front_end(input) && pacing;
  input.pids.update_wanted(pid, paces && input.pacer.pid() == pid);
  const Route* all = input.pids.route(kAllPids);
  input.wanted_bits = 0;
  if (!temi.empty() || (paces && !input.pacer.pid())) input.wanted_bits = kPacketsWithAdaptation;
  if (all && !all->empty()) input.wanted_bits |= kEveryPacket;
}

void Demux::touch(Ring& ring) {
  if (ring.touched) return;
  ring.touched = true;
  touched_.push_back(&ring);
}

void Demux::publish(bool lossless) {
  if (touched_.empty()) return;
  const Ring::Clock::time_point now = Ring::Clock::now();
  for (Ring* ring : touched_) {
    ring->touched = false;
    ring->publish(lossless, now);
  }
  touched_.clear();
}

void Demux::set_pacing(bool on) {
  Input& live = inputs[DMX_IN_FRONTEND];
  pacing = on;
  restart_pacing(live);
  live.pace.notify_all();
}

void Demux::restart_pacing(Input& input) {
  const unsigned former = input.pacer.pid().value_or(kAllPids);
  input.pacer.reset();
  refresh(input, former);
}

void Demux::set_flushing(Input& input, bool flushing) {
  input.flushing = flushing;
  if (!flushing) return;
  ++input.flushes;
  input.forget_progress();
  restart_pacing(input);
  for (const auto& node : nodes) node->forget_progress(input);
  release_feeder(input);
  input.pace.notify_all();
}

FilterNode* Demux::clock(unsigned pes_type) const {
  for (FilterNode* filter : clocks) {
    if (filter->pes().pes_type == pes_type) return filter;
  }
  return clocks.empty() ? nullptr : clocks.front();
}

}  // namespace qel::receiver
