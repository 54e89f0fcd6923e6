// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

#include "softdec/pes_parser.h"

namespace softdec {

/// What a port's reader hands to the thread that pushes: a unit, or the end.
struct Item {
  PesUnit unit;
  bool end = false;
};

/// Three seconds of a stream between the thread that reads the port and the one
/// that pushes. Without them a decoder that waits for a picture's time would
/// leave the port full, and the feed of the demux waiting before the sound
/// that belongs to that picture.
class UnitQueue {
 public:
  /// Waits for room. False, and nothing added, when flushed since `generation`.
  bool push(Item item, std::uint64_t generation);
  /// Waits for nothing: where there is no room the oldest go.
  void offer(Item item);
  /// Waits for an item; none while flushing.
  std::optional<Item> pop();

  /// Drops everything and lets nobody wait, until it is set back.
  void set_flushing(bool flushing);
  /// Drops what is in it.
  void clear();
  /// Counts flushes; what was read before one is not to be pushed after it.
  [[nodiscard]] std::uint64_t generation() const;

 private:
  struct Entry {
    Item item;
    std::int64_t duration;
  };
  [[nodiscard]] bool full() const;
  std::int64_t advance(const PesUnit& unit);
  void append(Item item);
  Item take_first();
  void drop_all();

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // All guarded by mutex_.
  std::deque<Entry> entries_;
  std::size_t bytes_ = 0;
  std::int64_t duration_ = 0;  // 90 kHz
  std::optional<std::uint64_t> newest_;
  std::uint64_t generation_ = 0;
  bool flushing_ = true;
};

}  // namespace softdec
