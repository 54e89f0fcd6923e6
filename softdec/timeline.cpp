// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/timeline.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <utility>

#include "softdec/stamp.h"

namespace softdec {
namespace {

/// Time for the first picture to be decoded before it is due.
constexpr std::int64_t kStartMargin = 250'000'000;
/// How long a decoder that has data waits for one that has none yet.
constexpr auto kCompany = std::chrono::milliseconds(200);
/// Times that go back by more than reordering, or ahead by more than a pause of
/// speech or a lost signal, have jumped.
constexpr std::int64_t kBack = kTicksPerSecond / 2;
constexpr std::int64_t kAhead = 10 * kTicksPerSecond;
constexpr std::size_t kEpochs = 8;
constexpr auto kFollowing = std::chrono::minutes(1);

}  // namespace

std::shared_ptr<Timeline> Timeline::of(const void* demux) {
  static std::mutex mutex;
  static auto& all = *new std::map<const void*, std::weak_ptr<Timeline>>;
  const std::lock_guard lock(mutex);
  std::erase_if(all, [](const auto& entry) { return entry.second.expired(); });
  std::shared_ptr<Timeline> found = all[demux].lock();
  if (found == nullptr) all[demux] = found = std::make_shared<Timeline>();
  return found;
}

Place::Place(std::shared_ptr<Timeline> timeline, bool cancelled) : timeline_(std::move(timeline)) {
  member_.cancelled = cancelled;
  timeline_->join(member_);
}

void Timeline::join(Member& member) {
  const std::lock_guard lock(mutex_);
  members_.push_back(&member);
}

void Timeline::leave(Member& member) {
  const std::lock_guard lock(mutex_);
  std::erase(members_, &member);
  changed_.notify_all();
}

void Timeline::cancel(Member& member, bool cancelled) {
  const std::lock_guard lock(mutex_);
  member.cancelled = cancelled;
  changed_.notify_all();
}

void Timeline::report(Member& member, std::uint64_t stamp) {
  const std::lock_guard lock(mutex_);
  if (member.first) return;
  member.first = stamp;
  changed_.notify_all();
}

void Timeline::wake() {
  const std::lock_guard lock(mutex_);
  changed_.notify_all();
}

void Timeline::reset(bool from_zero) {
  const std::lock_guard lock(mutex_);
  first_epoch_ += epochs_.size();
  epochs_.clear();
  for (Member* member : members_) {
    member->first.reset();
    member->last.reset();
  }
  from_zero_ = from_zero;
}

std::optional<std::int64_t> Timeline::running_time(Member& member, std::uint64_t stamp,
                                                   const Clocks& clocks) {
  Lock lock(mutex_);
  // A live stream went on while running time stood.
  if (clocks.live() && !epochs_.empty() && base_time_ != clocks.base_time()) {
    first_epoch_ += epochs_.size();
    epochs_.clear();
  }
  if (epochs_.empty() && !agree(lock, member, stamp, clocks)) return std::nullopt;
  follow_jump(member, stamp, clocks);
  const std::int64_t ticks = place(member, stamp);
  return epoch_of(member).origin + to_nanoseconds(ticks);
}

std::optional<std::int64_t> Timeline::follow(std::uint64_t stamp,
                                             const std::atomic<bool>& cancelled) {
  Lock lock(mutex_);
  const Epoch* epoch = nullptr;
  changed_.wait_for(lock, kFollowing,
                    [&] { return cancelled || (epoch = epoch_near(stamp)) != nullptr; });
  if (cancelled || epoch == nullptr) return std::nullopt;
  return epoch->origin + to_nanoseconds(epoch->ticks + difference(stamp, epoch->stamp));
}

/// The newest one: a stamp that comes again belongs to what comes next.
const Timeline::Epoch* Timeline::epoch_near(std::uint64_t stamp) const {
  const auto found = std::find_if(epochs_.rbegin(), epochs_.rend(), [&](const Epoch& epoch) {
    return std::abs(difference(stamp, epoch.stamp)) < kAhead;
  });
  return found != epochs_.rend() ? &*found : nullptr;
}

bool Timeline::all_reported() const {
  return std::all_of(members_.begin(), members_.end(),
                     [](const Member* member) { return member->cancelled || member->first; });
}

std::uint64_t Timeline::smallest_first(std::uint64_t stamp) const {
  for (const Member* member : members_)
    if (member->first && std::abs(difference(*member->first, stamp)) < kAhead &&
        difference(*member->first, stamp) < 0)
      stamp = *member->first;
  return stamp;
}

/// Opens the first epoch, unless another decoder does so meanwhile.
bool Timeline::agree(Lock& lock, Member& member, std::uint64_t stamp, const Clocks& clocks) {
  const bool from_zero = from_zero_ && !clocks.live();
  const auto over = [&] { return member.cancelled || !epochs_.empty(); };
  changed_.wait(lock, [&] { return over() || from_zero || clocks.running_time(); });
  if (!over() && clocks.live() && open_epoch_by_clock(stamp, clocks)) return true;
  changed_.wait_for(lock, kCompany, [&] { return over() || all_reported(); });
  if (member.cancelled) return false;
  if (!epochs_.empty()) return true;
  const std::int64_t now = clocks.running_time().value_or(0);
  base_time_ = clocks.base_time();
  open_epoch(smallest_first(stamp), from_zero ? 0 : now + kStartMargin);
  return true;
}

void Timeline::open_epoch(std::uint64_t stamp, std::int64_t running_time) {
  epochs_.push_back({stamp, 0, running_time});
  if (epochs_.size() > kEpochs) {
    epochs_.pop_front();
    ++first_epoch_;
  }
  changed_.notify_all();
}

/// Due when the system time clock, which runs with running time, gets there.
bool Timeline::open_epoch_by_clock(std::uint64_t stamp, const Clocks& clocks) {
  const auto system = clocks.system_time();
  const auto now = clocks.running_time();
  if (!system || !now) return false;
  const std::int64_t ahead = difference(stamp, *system);
  if (std::abs(ahead) > kAhead) return false;
  base_time_ = clocks.base_time();
  open_epoch(stamp, *now + to_nanoseconds(ahead));
  return true;
}

Timeline::Epoch& Timeline::epoch_of(Member& member) {
  const bool exists = member.epoch >= first_epoch_ && member.epoch < first_epoch_ + epochs_.size();
  if (!exists) {
    member.epoch = first_epoch_ + epochs_.size() - 1;
    member.last.reset();
  }
  return epochs_[member.epoch - first_epoch_];
}

void Timeline::follow_jump(Member& member, std::uint64_t stamp, const Clocks& clocks) {
  const Epoch& epoch = epoch_of(member);
  if (!member.last) return;
  const std::int64_t moved = epoch.ticks + difference(stamp, epoch.stamp) - *member.last;
  if (moved > -kBack && moved < kAhead) return;
  const std::int64_t next = epoch.origin + to_nanoseconds(*member.last + member.step);
  member.last.reset();
  for (std::size_t i = member.epoch - first_epoch_ + 1; i < epochs_.size(); ++i) {
    if (std::abs(difference(stamp, epochs_[i].stamp)) >= kAhead) continue;
    member.epoch = first_epoch_ + i;
    return;
  }
  if (!clocks.live() || !open_epoch_by_clock(stamp, clocks)) open_epoch(stamp, next);
  member.epoch = first_epoch_ + epochs_.size() - 1;
}

/// The stamp in ticks of the member's epoch.
std::int64_t Timeline::place(Member& member, std::uint64_t stamp) {
  Epoch& epoch = epoch_of(member);
  const std::int64_t ticks = epoch.ticks + difference(stamp, epoch.stamp);
  if (ticks > epoch.ticks) {
    epoch.ticks = ticks;
    epoch.stamp = stamp;
    changed_.notify_all();
  }
  if (member.last)
    member.step = std::clamp<std::int64_t>(ticks - *member.last, 0, kTicksPerSecond / 5);
  member.last = ticks;
  return ticks;
}

}  // namespace softdec
