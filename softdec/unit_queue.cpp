// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/unit_queue.h"

#include <algorithm>

#include "softdec/stamp.h"

namespace softdec {
namespace {

constexpr std::int64_t kSpan = 3 * kTicksPerSecond;
/// Bound for what has no times; three seconds at 170 Mbit/s.
constexpr std::size_t kMostBytes = std::size_t{64} << 20;
/// Subtitles that wait: minutes of them.
constexpr std::size_t kMostOffered = 256;

}  // namespace

bool UnitQueue::push(Item item, std::uint64_t generation) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return flushing_ || generation != generation_ || !full(); });
  if (flushing_ || generation != generation_) return false;
  append(std::move(item));
  return true;
}

void UnitQueue::offer(Item item) {
  const std::lock_guard lock(mutex_);
  if (flushing_) return;
  while (!entries_.empty() && entries_.size() >= kMostOffered) take_first();
  append(std::move(item));
}

std::optional<Item> UnitQueue::pop() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return flushing_ || !entries_.empty(); });
  if (flushing_) return std::nullopt;
  changed_.notify_all();
  return take_first();
}

void UnitQueue::set_flushing(bool flushing) {
  const std::lock_guard lock(mutex_);
  flushing_ = flushing;
  drop_all();
}

void UnitQueue::clear() {
  const std::lock_guard lock(mutex_);
  drop_all();
}

std::uint64_t UnitQueue::generation() const {
  const std::lock_guard lock(mutex_);
  return generation_;
}

void UnitQueue::append(Item item) {
  const std::int64_t duration = advance(item.unit);
  duration_ += duration;
  bytes_ += item.unit.payload.size();
  entries_.push_back({std::move(item), duration});
  changed_.notify_all();
}

Item UnitQueue::take_first() {
  Entry entry = std::move(entries_.front());
  entries_.pop_front();
  duration_ -= entry.duration;
  bytes_ -= entry.item.unit.payload.size();
  return std::move(entry.item);
}

bool UnitQueue::full() const { return duration_ >= kSpan || bytes_ >= kMostBytes; }

/// What a unit adds to the time in the queue; a jump adds nothing.
std::int64_t UnitQueue::advance(const PesUnit& unit) {
  const auto now = unit.order();
  if (!now) return 0;
  const std::int64_t step = newest_ ? difference(*now, *newest_) : 0;
  newest_ = now;
  return step < kTicksPerSecond ? std::max<std::int64_t>(step, 0) : 0;
}

void UnitQueue::drop_all() {
  entries_.clear();
  bytes_ = 0;
  duration_ = 0;
  newest_.reset();
  ++generation_;
  changed_.notify_all();
}

}  // namespace softdec
