// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/ring.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace qel::receiver {
namespace {

/// Bytes from which on letting go of a lock is worth what it costs.
constexpr std::size_t kLongCopy = 8 * 1024;

/// The least from one wake to the next, unless a part of the ring is full by then.
constexpr std::chrono::milliseconds kBetweenWakes{1};
constexpr std::size_t kPartToWakeAt = 2;

/// In pieces: for a long memcpy() the processor's string instruction is taken, which
/// is slow where source and target are not aligned alike, as here.
void copy_long(std::uint8_t* to, const std::uint8_t* from, std::size_t count) {
  constexpr std::size_t kPiece = 1024;
  for (std::size_t at = 0; at < count; at += kPiece)
    std::memcpy(to + at, from + at, std::min(kPiece, count - at));
}

/// An event descriptor above 0, which callers take for "no descriptor".
vantrel::UniqueFD make_event() {
  vantrel::UniqueFD event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (event.get() == 0) return vantrel::UniqueFD(fcntl(event.get(), F_DUPFD_CLOEXEC, 3));
  return event;
}

}  // namespace

/// mutex_, taken. Once it is let go of, the descriptor shows what has changed.
class Ring::Change {
 public:
  explicit Change(Ring& ring) : lock(ring.mutex_), ring_(ring) {}
  ~Change() {
    lock.unlock();
    ring_.show();
  }
  Change(const Change&) = delete;
  Change& operator=(const Change&) = delete;

  std::unique_lock<std::mutex> lock;

 private:
  Ring& ring_;
};

Ring::Ring(Shape shape, std::size_t size, WakeSoon wake_soon)
    : shape_(shape), wake_soon_(std::move(wake_soon)), event_(make_event()), size_(size) {}

void Ring::rollback() {
  const std::size_t length = static_cast<std::size_t>(produced_ - committed_);
  write_ = write_ >= length ? write_ - length : write_ + memory_.size() - length;
  produced_ = committed_;
}

void Ring::overflow() {
  rollback();
  ++counters_.dropped;
  if (overflowed_) return;
  overflowed_ = true;
  overflowed_at_ = committed_;
}

bool Ring::put(const std::uint8_t* data, std::size_t count) {
  if (!has_room(count)) {
    overflow();
    return false;
  }
  append(data, count);
  commit();
  return true;
}

void Ring::publish(bool may_wait, Clock::time_point now) {
  const Change change(*this);
  if (committed_ != published_) {
    available_ += static_cast<std::size_t>(committed_ - published_);
    published_ = committed_;
    for (const std::uint32_t length : lengths_to_publish_) lengths_.push(length);
    lengths_to_publish_.clear();
    ended_ = false;
    empty_ = false;
  }
  if (overflowed_) mark_overflow(overflowed_at_);
  overflowed_ = false;
  if (!may_wait || !put_off_wake(now)) signal();
}

/// True where the reader sleeps on, and will be woken soon.
bool Ring::put_off_wake(Clock::time_point now) {
  if (wake_ == Wake::kAtOnce || is_signalled() || overflow_waits_) return false;
  if (available_ >= size_ / kPartToWakeAt) return false;
  if (!late_ && now - woken_ < kBetweenWakes) late_ = wake_comes_ = wake_comes_ || wake_soon_();
  return late_;
}

void Ring::wake() {
  const Change change(*this);
  wake_comes_ = false;
  if (late_) signal();
}

int Ring::allocate(std::size_t size) {
  constexpr std::size_t kAlignment = 64;
  Mapping memory((size + kAlignment - 1) / kAlignment * kAlignment);
  if (!memory.bytes()) return -ENOMEM;
  Change change(*this);
  wait_for_copy(change.lock);
  memory_ = std::move(memory);
  size_ = size;
  exists_ = true;
  forget();
  return 0;
}

int Ring::ensure_allocated() { return memory_.bytes() ? 0 : allocate(size_); }

void Ring::set_ways(Shape shape, Wake wake) {
  const std::lock_guard<std::mutex> lock(mutex_);
  shape_ = shape;
  wake_ = wake;
}

void Ring::discard() {
  Change change(*this);
  wait_for_copy(change.lock);
  forget();
}

void Ring::wait_for_copy(std::unique_lock<std::mutex>& lock) {
  copied_.wait(lock, [this] { return !copying_; });
}

void Ring::forget() {
  committed_ = published_ = produced_;
  lengths_to_publish_.clear();
  write_ = 0;
  overflowed_ = false;
  consumed_.store(produced_, std::memory_order_release);
  read_ = available_ = left_ = 0;
  lengths_.clear();
  overflow_waits_ = timed_out_ = false;
  ++releases_;
  signal();
  room_.notify_all();
}

void Ring::reset_counters() {
  counters_ = {};
  const std::lock_guard<std::mutex> lock(mutex_);
  overflows_ = 0;
}

bool Ring::wait_until_read(std::unique_lock<FairMutex>& demux, std::uint64_t target,
                           Clock::duration limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  const std::uint64_t releases = releases_;
  if (late_) signal();
  show();
  // Both locks are held here: a release that comes now finds the wait begun.
  demux.unlock();
  const bool done = room_.wait_for(lock, limit, [&] {
    return closed_ || releases_ != releases || consumed_.load(std::memory_order_relaxed) >= target;
  });
  lock.unlock();
  demux.lock();
  return done;
}

ssize_t Ring::read(void* buffer, std::size_t size, bool blocking) {
  if (!blocking && size > 0 && empty_) {
    show();  // whoever left it empty may not have come to that
    return -EAGAIN;
  }
  Change change(*this);
  for (;;) {
    wait_for_copy(change.lock);
    if (closed_) return -EBADF;
    if (size == 0 || !exists_) return 0;
    if (overflow_due()) {
      overflow_waits_ = false;
      ++overflows_;
      signal();
      return -EOVERFLOW;
    }
    if (available_ > 0) return static_cast<ssize_t>(take(buffer, size, change.lock));
    if (timed_out_) {
      timed_out_ = false;
      signal();
      return -ETIMEDOUT;
    }
    if (ended_) return 0;
    if (!blocking) return -EAGAIN;
    data_.wait(change.lock);
  }
}

/// A long copy is made without the lock: who publishes meanwhile does not wait.
std::size_t Ring::take(void* buffer, std::size_t size, std::unique_lock<std::mutex>& lock) {
  std::size_t count = std::min(size, available_);
  if (shape_ == Shape::kRecords) {
    if (left_ == 0) left_ = lengths_.pop();
    count = std::min(count, left_);
    left_ -= count;
  } else if (overflow_waits_) {
    const std::uint64_t before = overflow_at_ - consumed_.load(std::memory_order_relaxed);
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, before));
  }
  const bool unlocked = count >= kLongCopy;
  copying_ = unlocked;
  if (unlocked) lock.unlock();
  copy_out(static_cast<std::uint8_t*>(buffer), count);
  if (unlocked) lock.lock();
  if (std::exchange(copying_, false)) copied_.notify_all();
  read_ += count;
  if (read_ >= memory_.size()) read_ -= memory_.size();
  available_ -= count;
  consumed_.fetch_add(count, std::memory_order_release);
  if (!late_ || available_ == 0) signal();
  room_.notify_all();
  return count;
}

void Ring::copy_out(std::uint8_t* buffer, std::size_t count) const {
  const std::size_t first = std::min(count, memory_.size() - read_);
  copy_long(buffer, memory_.bytes() + read_, first);
  copy_long(buffer + first, memory_.bytes(), count - first);
}

std::size_t Ring::available() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return available_;
}

std::uint64_t Ring::overflows() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return overflows_;
}

// The error comes after what was whole when the first record was dropped;
// further drops until then are told with it.
void Ring::mark_overflow(std::uint64_t position) {
  if (overflow_waits_) return;
  overflow_waits_ = true;
  overflow_at_ = position;
}

bool Ring::overflow_due() const {
  return overflow_waits_ && consumed_.load(std::memory_order_relaxed) == overflow_at_;
}

void Ring::force_overflow() {
  const Change change(*this);
  if (!exists_) return;  // reads give 0, whatever is marked
  mark_overflow(consumed_.load(std::memory_order_relaxed) + available_);
  signal();
}

void Ring::time_out() {
  const Change change(*this);
  timed_out_ = true;
  signal();
}

void Ring::end() {
  const Change change(*this);
  ended_ = true;
  signal();
}

void Ring::close() {
  const Change change(*this);
  closed_ = true;
  signal();
  room_.notify_all();
}

void Ring::release() {
  const std::lock_guard<std::mutex> lock(mutex_);
  ++releases_;
  room_.notify_all();
}

/// To be called when that has changed which makes a read give something. As empty_ is
/// read without the lock, it is true only while the turn for that has come.
void Ring::signal() {
  const bool readable = available_ > 0 || overflow_waits_ || timed_out_ || ended_ || closed_;
  late_ = false;
  if (readable) empty_ = false;
  if (readable != is_signalled()) {
    ++turns_;
    if (readable && wake_ == Wake::kModerated) woken_ = Clock::now();
    if (readable) data_.notify_all();
  }
  if (!readable) empty_ = exists_;
}

/// Returns once the last turn is shown: who polls is not to be told again and again of what
/// is gone. Two turns may come at once, and still are written: the first of them may have
/// been seen by one who now waits for an edge.
void Ring::show() {
  if (shown_ == turns_) return;
  const std::lock_guard<std::mutex> lock(event_mutex_);
  for (std::uint64_t turn = turns_; shown_ != turn; turn = turns_) {
    eventfd_t value;
    if (turn % 2 != 0) {
      eventfd_write(event_.get(), 1);
    } else if (shown_ % 2 != 0) {
      eventfd_read(event_.get(), &value);
    }
    shown_ = turn;
  }
}

}  // namespace qel::receiver
