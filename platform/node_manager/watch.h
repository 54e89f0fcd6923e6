// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <atomic>

namespace qel {

/// What besides the node itself looks at calls. All zero in a program that
/// neither traces nor injects faults: a call then pays one load.
enum Watch : unsigned {
  kTraceCalls = 1,
  kTraceReads = 2,
  kFaults = 4,
  kEnvironmentUnread = 8,
};

extern std::atomic<unsigned> g_watch;

/// Reads QEL_TRACE, QEL_TRACE_READS and QEL_FAULTS, once in a process.
unsigned read_watch_environment();

inline unsigned watched() {
  const unsigned watch = g_watch.load(std::memory_order_acquire);
  if ((watch & kEnvironmentUnread) != 0) [[unlikely]]
    return read_watch_environment();
  return watch;
}

/// Of the bits in `mask`, sets those of `bits` and clears the others.
void set_watch(unsigned mask, unsigned bits);

}  // namespace qel
