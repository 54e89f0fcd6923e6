// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace softdec {

/// The clocks as a decoder sees them.
class Clocks {
 public:
  virtual ~Clocks() = default;
  /// Running time in nanoseconds; none while there is no clock to follow.
  [[nodiscard]] virtual std::optional<std::int64_t> running_time() const = 0;
  /// What running time counts from: changes with a pause or a seek.
  [[nodiscard]] virtual std::uint64_t base_time() const = 0;
  /// True where data comes in at its own pace.
  [[nodiscard]] virtual bool live() const = 0;
  /// The demux's system time clock in 90 kHz, if it runs.
  [[nodiscard]] virtual std::optional<std::uint64_t> system_time() const = 0;
};

/// Which running time belongs to which time stamp: one for all decoders of a
/// demux, so that sound and picture stay together.
///
/// A live stream is shown when its system time clock says so. What is played
/// from a file comes faster than that; there the smallest of the decoders' first
/// time stamps is shown at once, and all others at their distance from it. A
/// stream whose times jump (another recording behind the first one, a clock that
/// was set) goes on where it was: whichever decoder comes to the jump first opens
/// a new epoch, and the others find it when they get there.
///
/// Any thread; one lock.
class Timeline {
 public:
  /// A decoder's place in it; all fields guarded by the timeline's lock.
  struct Member {
    std::optional<std::uint64_t> first;  // since the last reset
    std::uint64_t epoch = 0;
    std::optional<std::int64_t> last;  // in ticks of the epoch
    std::int64_t step = 0;             // ticks between the last two
    bool cancelled = true;
  };

  /// The record of a demux, made by whoever asks first, gone with the last one.
  static std::shared_ptr<Timeline> of(const void* demux);

  void join(Member& member);
  void leave(Member& member);
  /// Lets nobody wait in running_time(), until it is set back.
  void cancel(Member& member, bool cancelled);
  /// A time stamp was read; counts if it is the first.
  void report(Member& member, std::uint64_t stamp);
  /// Something that decoders wait for may have come.
  void wake();
  /// Forgets the mapping. `from_zero`: running time will start anew.
  void reset(bool from_zero);
  /// The running time of a stamp in nanoseconds. Waits, where nothing is agreed
  /// on yet, for the clock and a moment for the first stamps of the others. None
  /// when cancelled.
  std::optional<std::int64_t> running_time(Member& member, std::uint64_t stamp,
                                           const Clocks& clocks);
  /// The same for what only goes along with decoders and is far between. Waits
  /// until one of them comes near the stamp. None when `cancelled`, which a wake()
  /// has looked at, or when none comes near it within a minute.
  std::optional<std::int64_t> follow(std::uint64_t stamp, const std::atomic<bool>& cancelled);

 private:
  using Lock = std::unique_lock<std::mutex>;

  struct Epoch {
    std::uint64_t stamp;  // the newest one, 33 bits
    std::int64_t ticks;   // the same, counted without a wrap
    std::int64_t origin;  // running time of ticks 0, nanoseconds
  };

  [[nodiscard]] bool all_reported() const;
  [[nodiscard]] std::uint64_t smallest_first(std::uint64_t stamp) const;
  bool agree(Lock& lock, Member& member, std::uint64_t stamp, const Clocks& clocks);
  void open_epoch(std::uint64_t stamp, std::int64_t running_time);
  bool open_epoch_by_clock(std::uint64_t stamp, const Clocks& clocks);
  Epoch& epoch_of(Member& member);
  [[nodiscard]] const Epoch* epoch_near(std::uint64_t stamp) const;
  void follow_jump(Member& member, std::uint64_t stamp, const Clocks& clocks);
  std::int64_t place(Member& member, std::uint64_t stamp);

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Member*> members_;
  std::deque<Epoch> epochs_;
  std::uint64_t first_epoch_ = 0;  // number of epochs_.front()
  std::uint64_t base_time_ = 0;    // when they were agreed on
  bool from_zero_ = false;
};

/// A decoder's place in a timeline, left with the last reference.
class Place {
 public:
  Place(std::shared_ptr<Timeline> timeline, bool cancelled);
  ~Place() { timeline_->leave(member_); }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  void cancel(bool cancelled) { timeline_->cancel(member_, cancelled); }
  void report(std::uint64_t stamp) { timeline_->report(member_, stamp); }
  void wake() { timeline_->wake(); }
  void reset(bool from_zero) { timeline_->reset(from_zero); }
  std::optional<std::int64_t> running_time(std::uint64_t stamp, const Clocks& clocks) {
    return timeline_->running_time(member_, stamp, clocks);
  }

 private:
  std::shared_ptr<Timeline> timeline_;
  Timeline::Member member_;
};

}  // namespace softdec
