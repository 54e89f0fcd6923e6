// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/pid_table.h"

#include <cstring>
#include <new>

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

PidTable::PidTable()
    : states_(zeroed<std::uint64_t>(kPids)),
      rare_(zeroed<Rare>(kPids)),
      routes_(zeroed<Route*>(kPids + 1)) {
  states_[kNullPid] = kNoCounter;
}

Route& PidTable::make_route(unsigned pid) {
  if (!routes_[pid]) routes_[pid] = made_.emplace_back(std::make_unique<Route>()).get();
  return *routes_[pid];
}

void PidTable::update_wanted(unsigned pid, bool also) {
  if (pid >= kPids) return;
  Route* route = routes_[pid];
  if (route) route->only = only_taker(*route);
  const bool wanted = also || (route && !route->empty());
  states_[pid] &= ~pid_state::kWanted;
  if (wanted) states_[pid] |= pid_state::kWanted;
}

void PidTable::forget_progress() {
  for (std::size_t pid = 0; pid < kPids; ++pid) {
    if (states_[pid] & pid_state::kKnown) states_[pid] &= ~pid_state::kKnown;
  }
  for (const auto& route : made_) route->assembler.reset();
}

void PidTable::reset_counters() {
  for (std::size_t pid = 0; pid < kPids; ++pid) {
    if (states_[pid]) states_[pid] &= pid_state::kOnePacket - 1;
  }
  for (const auto& route : made_) route->assembler.reset_errors();
  std::memset(rare_.get(), 0, kPids * sizeof(Rare));
}

}  // namespace qel::receiver
