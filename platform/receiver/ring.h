// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <span>
#include <vector>

#include "common/unique_fd.h"
#include "platform/receiver/fair_mutex.h"
#include "platform/receiver/length_queue.h"
#include "platform/receiver/mapping.h"

namespace qel::receiver {

/// The buffer between a feeder and the reader of a node.
///
/// The feeder builds records in place and commits them; the reader sees them
/// when they are published, once a batch. The memory is gone through from end to end
/// also while nothing waits: in the same few pages, writer and reader, on two cores,
/// would fetch each other's cache lines all the time. Its locks, in the order in which
/// they are taken:
///
///   writer side:  the lock of the demux that feeds the ring;
///   mutex_:       what reader and writer share;
///   event_mutex_: what the descriptor shows. Mostly taken alone: who is woken by the
///                 descriptor shall not find mutex_ taken by the one who wakes.
class Ring {
 public:
  using Clock = std::chrono::steady_clock;

  /// What one read may return: a record or the rest of one, or any bytes.
  enum class Shape { kRecords, kBytes };
  /// When a reader that waits is woken: by each batch that brings something, or, where
  /// batches follow each other fast, no more than once a millisecond.
  enum class Wake { kAtOnce, kModerated };
  /// Sees to it that wake() is called within a millisecond; false where it cannot.
  /// Called under the ring's locks.
  using WakeSoon = std::function<bool()>;

  struct Counters {
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;
    std::uint64_t dropped = 0;
  };

  Ring(Shape shape, std::size_t size, WakeSoon wake_soon);

  [[nodiscard]] int fd() const { return event_.get(); }

  // Writer side.
  [[nodiscard]] std::size_t size() const { return size_; }
  /// True where `count` bytes fit now behind the record being built.
  [[nodiscard]] bool has_room(std::size_t count) const { return used() + count <= size_; }
  /// True where they would fit once the reader has taken everything whole.
  [[nodiscard]] bool could_have_room(std::size_t count) const {
    return produced_ - committed_ + count <= size_;
  }
  /// Adds to the record being built, for which there must be room.
  void append(const std::uint8_t* data, std::size_t count);
  /// The room in one piece that append() would use next...
  [[nodiscard]] std::span<std::uint8_t> tail() {
    return {memory_.bytes() + write_, std::min(size_ - used(), memory_.size() - write_)};
  }
  /// ...of which `count` bytes are filled now.
  void advance(std::size_t count);
  /// Ends the record being built, or so many of them.
  void commit(std::size_t records = 1);
  /// Drops the record being built and has the reader told of an overflow.
  void overflow();
  /// Drops the record being built.
  void rollback();
  /// Appends and commits; an overflow where there is no room. False then.
  bool put(const std::uint8_t* data, std::size_t count);
  /// Shows the reader what was committed; wakes it, if not later. `may_wait` where the
  /// writer waits for room: no data is lost to a reader that sleeps on.
  void publish(bool may_wait, Clock::time_point now);
  /// Takes what the buffer needs; 0 or -ENOMEM. Drops what is in it.
  int allocate(std::size_t size);
  /// Allocates the size it has unless that was done.
  int ensure_allocated();
  /// Changes the ways of an empty ring.
  void set_ways(Shape shape, Wake wake);
  /// Drops what was not read, with errors that wait; releases the writer.
  void discard();
  [[nodiscard]] const Counters& counters() const { return counters_; }
  void reset_counters();

  /// Number of bytes that must have been read for `count` more to fit.
  [[nodiscard]] std::uint64_t target_for_room(std::size_t count) const {
    return produced_ + count - size_;
  }
  [[nodiscard]] std::uint64_t target_for_empty() const { return committed_; }
  /// Waits, `demux` given up meanwhile, until `target` bytes have been read.
  /// False when `limit` is over; true too when release() was called.
  bool wait_until_read(std::unique_lock<FairMutex>& demux, std::uint64_t target,
                       Clock::duration limit);

  // Any thread.
  ssize_t read(void* buffer, std::size_t size, bool blocking);
  [[nodiscard]] std::size_t available() const;
  [[nodiscard]] std::uint64_t overflows() const;
  /// Wakes the reader if that was put off.
  void wake();
  void force_overflow();
  void time_out();
  void end();
  void close();
  /// Makes wait_until_read() return.
  void release();

  /// True while in its demux's list of rings to publish. Writer side.
  bool touched = false;

 private:
  class Change;

  [[nodiscard]] std::size_t used() const {
    return static_cast<std::size_t>(produced_ - consumed_.load(std::memory_order_acquire));
  }
  void wait_for_copy(std::unique_lock<std::mutex>& lock);
  [[nodiscard]] bool put_off_wake(Clock::time_point now);
  void mark_overflow(std::uint64_t position);
  [[nodiscard]] bool overflow_due() const;
  std::size_t take(void* buffer, std::size_t size, std::unique_lock<std::mutex>& lock);
  void copy_out(std::uint8_t* buffer, std::size_t count) const;
  [[nodiscard]] bool is_signalled() const { return turns_ % 2 != 0; }
  void signal();
  void show();
  void forget();

  // What the feeder writes with each packet and what the reader writes lie apart.
  static constexpr std::size_t kCacheLine = 64;

  Shape shape_;  // written under both locks
  const WakeSoon wake_soon_;
  vantrel::UniqueFD event_;

  // Writer side. Positions count bytes since the ring was made.
  Mapping memory_;
  std::size_t size_;
  std::size_t write_ = 0;  // offset in memory_
  std::uint64_t produced_ = 0;
  std::uint64_t committed_ = 0;
  std::uint64_t published_ = 0;
  bool overflowed_ = false;
  std::uint64_t overflowed_at_ = 0;
  std::vector<std::uint32_t> lengths_to_publish_;
  Counters counters_;

  alignas(kCacheLine) mutable std::mutex mutex_;
  std::condition_variable data_;            // mutex_; the reader waits
  std::condition_variable room_;            // mutex_; the writer waits
  std::atomic<std::uint64_t> consumed_{0};  // written under mutex_
  std::size_t read_ = 0;                    // mutex_; offset in memory_
  std::size_t available_ = 0;               // mutex_
  std::size_t left_ = 0;                    // mutex_; of the record being read
  LengthQueue lengths_;                     // mutex_; of records not begun
  bool exists_ = false;                     // mutex_; the buffer was made
  bool closed_ = false;                     // mutex_
  bool ended_ = false;                      // mutex_; end of file until new data
  bool timed_out_ = false;                  // mutex_; to be told once
  bool overflow_waits_ = false;             // mutex_; to be told once, at
  std::uint64_t overflow_at_ = 0;           // mutex_; this position
  std::uint64_t overflows_ = 0;             // mutex_; times told
  Wake wake_ = Wake::kModerated;            // mutex_
  std::atomic<bool> empty_{false};          // written under mutex_; a read gives -EAGAIN
  std::atomic<std::uint64_t> turns_{0};     // written under mutex_; odd: event_ is to be readable
  std::atomic<std::uint64_t> shown_{0};     // written under event_mutex_; the turn event_ shows
  bool late_ = false;                       // mutex_; it is not to be yet, and will be soon
  bool wake_comes_ = false;                 // mutex_; wake() will be called
  Clock::time_point woken_;                 // mutex_; when event_ was last to be readable
  std::uint64_t releases_ = 0;              // mutex_
  /// A reader copies, without mutex_: what it copies, and memory_, stay meanwhile.
  bool copying_ = false;            // mutex_
  std::condition_variable copied_;  // mutex_; others wait for the copy's end
  std::mutex event_mutex_;          // none is taken under it
};

// Once per packet, all of these.

/// For what packets hold: compilers make of a memcpy() whose count they know to be
/// small an instruction that takes longer to start than to copy.
inline void copy_bytes(std::uint8_t* to, const std::uint8_t* from, std::size_t count) {
  constexpr std::size_t kStep = 16;
  constexpr std::size_t kLong = 256;
  if (count > kLong) {
    std::memcpy(to, from, count);
    return;
  }
  if (count < kStep) {
    for (std::size_t i = 0; i < count; ++i) to[i] = from[i];
    return;
  }
  for (std::size_t i = 0; i + kStep < count; i += kStep) std::memcpy(to + i, from + i, kStep);
  std::memcpy(to + count - kStep, from + count - kStep, kStep);
}

inline void Ring::append(const std::uint8_t* data, std::size_t count) {
  const std::size_t first = std::min(count, memory_.size() - write_);
  copy_bytes(memory_.bytes() + write_, data, first);
  if (first < count) copy_bytes(memory_.bytes(), data + first, count - first);
  advance(count);
}

inline void Ring::advance(std::size_t count) {
  write_ += count;
  if (write_ >= memory_.size()) write_ -= memory_.size();
  produced_ += count;
}

inline void Ring::commit(std::size_t records) {
  const std::uint64_t length = produced_ - committed_;
  if (length == 0) return;
  if (shape_ == Shape::kRecords) lengths_to_publish_.push_back(static_cast<std::uint32_t>(length));
  committed_ = produced_;
  counters_.records += records;
  counters_.bytes += length;
}

}  // namespace qel::receiver
