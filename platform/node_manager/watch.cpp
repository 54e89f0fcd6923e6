// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/node_manager/watch.h"

#include <mutex>

#include "platform/node_manager/faults.h"
#include "platform/node_manager/trace.h"

namespace qel {

std::atomic<unsigned> g_watch{kEnvironmentUnread};

unsigned read_watch_environment() {
  static std::once_flag once;
  std::call_once(once, [] {
    trace::read_environment();
    faults::read_environment();
    set_watch(kEnvironmentUnread, 0);
  });
  return g_watch.load(std::memory_order_acquire);
}

void set_watch(unsigned mask, unsigned bits) {
  // In this order nothing that stays on is off for a moment.
  g_watch.fetch_or(mask & bits, std::memory_order_release);
  g_watch.fetch_and(~(mask & ~bits), std::memory_order_release);
}

}  // namespace qel
