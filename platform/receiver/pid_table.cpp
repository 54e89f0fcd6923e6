// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/pid_table.h"

#include <cstring>
#include <new>

#include "platform/receiver/filter_node.h"

namespace qel::receiver {

namespace {

FilterNode* only_taker(const Route& route) {
  if (!route.sections.empty() || !route.packets.empty()) return nullptr;
  if (route.pes.size() + route.record.size() != 1) return nullptr;
  return route.pes.empty() ? route.record.front() : route.pes.front();
}

template <typename T>
T* zeroed(std::size_t count) {
  void* memory = std::calloc(count, sizeof(T));
  if (!memory) throw std::bad_alloc();
  return static_cast<T*>(memory);
}

// Null packets have no counter that means anything.
constexpr std::uint64_t kNoCounter = pid_state::kCompared << pid_state::kIgnoreShift;

}  // namespace

PidTable::PidTable() : entries_(zeroed<Entry>(kPids + 1)), rare_(zeroed<Rare>(kPids)) {
  entries_[kNullPid].state = kNoCounter;
}

Route& PidTable::make_route(unsigned pid) {
  Route*& route = entries_[pid].route;
  if (!route) route = made_.emplace_back(std::make_unique<Route>()).get();
  return *route;
}

void PidTable::update_wanted(unsigned pid, bool paces) {
  if (pid >= kPids) return;
  auto& [state, route] = entries_[pid];
  state &= ~(pid_state::kWanted | pid_state::kClock);
  if (paces || (route && !route->empty())) state |= pid_state::kWanted;
  if (paces || (route && !route->clocks.empty())) state |= pid_state::kClock;
  if (!route) return;
  route->only = only_taker(*route);
  const bool recorded = route->only && !route->record.empty();
  route->recorded = recorded ? &route->only->passed_on : nullptr;
}

void PidTable::forget_progress() {
  for (std::size_t pid = 0; pid < kPids; ++pid) {
    std::uint64_t& state = entries_[pid].state;
    if (state & pid_state::kKnown) state &= ~pid_state::kKnown;
  }
  for (const auto& route : made_) route->assembler.reset();
}

void PidTable::reset_counters() {
  for (std::size_t pid = 0; pid < kPids; ++pid) {
    std::uint64_t& state = entries_[pid].state;
    if (state) state &= pid_state::kOnePacket - 1;
  }
  for (const auto& route : made_) route->assembler.reset_errors();
  std::memset(rare_.get(), 0, kPids * sizeof(Rare));
}

}  // namespace qel::receiver
