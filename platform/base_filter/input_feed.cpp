// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/base_filter/input_feed.h"

#include <qel/receiver.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "platform/log/log_line.h"

namespace qel {
namespace {

/// Small enough that a request waits no longer than it takes to filter it.
constexpr std::size_t kBatchSize = 64 * 1024;

/// Nodes are programmed without word to us.
constexpr auto kRecheckNodes = std::chrono::milliseconds(10);

}  // namespace

void InputFeed::begin(FeedTarget target) {
  const std::lock_guard lock(mutex_);
  target_ = target;
  closed_ = 0;
  starting_ = started_ = first_passed_ = used_ = refused_ = warned_ = false;
}

void InputFeed::starting() {
  const std::lock_guard lock(mutex_);
  starting_ = true;
  if (!started_) first_passed_ = false;
}

void InputFeed::started(bool done) {
  const std::lock_guard lock(mutex_);
  starting_ = false;
  started_ |= done;
  changed_.notify_all();
}

void InputFeed::stop() {
  const std::lock_guard lock(mutex_);
  close(kStopped);
}

void InputFeed::finish() {
  const std::lock_guard lock(mutex_);
  closed_ &= ~kFlushing;
  flush_input(false);
}

void InputFeed::begin_flush() {
  const std::lock_guard lock(mutex_);
  close(kFlushing);
}

void InputFeed::end_flush() {
  const std::lock_guard lock(mutex_);
  reopen(kFlushing);
}

void InputFeed::redirect(FeedTarget target) {
  const std::lock_guard one_at_a_time(redirect_mutex_);
  Lock lock(mutex_);
  if (target == target_) return;
  close(kRedirecting);
  changed_.wait(lock, [this] { return !in_receiver_; });
  flush_input(false);
  target_ = target;
  first_passed_ = used_ = refused_ = warned_ = false;
  reopen(kRedirecting);
}

bool InputFeed::feed(std::span<const std::uint8_t> data) {
  while (!data.empty()) {
    const auto batch = data.first(std::min(data.size(), kBatchSize));
    if (!feed_batch(batch)) return false;
    data = data.subspan(batch.size());
  }
  return true;
}

bool InputFeed::end() {
  Lock lock(mutex_);
  if (!wait_while_redirecting(lock)) return false;
  if (refused_ || target_.demux >= QEL_RECEIVER_DEMUXES) return true;
  call_receiver(lock, [](FeedTarget to) { return qel_receiver_end(to.demux, to.input); });
  return wait_while_redirecting(lock);
}

bool InputFeed::feed_batch(std::span<const std::uint8_t> batch) {
  Lock lock(mutex_);
  if (!wait_until_open(lock)) return false;
  if (target_.demux >= QEL_RECEIVER_DEMUXES) {
    warn_once();
    return true;
  }
  const bool used_before = used_;
  const int error = call_receiver(lock, [batch](FeedTarget to) {
    return qel_receiver_feed(to.demux, to.input, batch.data(), batch.size());
  });
  refused_ = error == EBUSY;
  if (refused_) used_ = used_before;  // the receiver has warned
  return wait_while_redirecting(lock);
}

/// True once data may pass, false when the run or a flush ends that.
bool InputFeed::wait_until_open(Lock& lock) {
  while (wait_while_redirecting(lock)) {
    if (!first_must_wait()) {
      first_passed_ |= target_.input == DMX_IN_DVR;
      return true;
    }
    changed_.wait_for(lock, kRecheckNodes);
  }
  return false;
}

bool InputFeed::wait_while_redirecting(Lock& lock) {
  changed_.wait(lock, [this] { return closed_ != kRedirecting; });
  return closed_ == 0;
}

/// A recording is read as fast as it can be: what comes before start has programmed
/// the streams would be lost, also to those that were programmed before, as start
/// does it again.
bool InputFeed::first_must_wait() const {
  if (started_ || first_passed_ || target_.input != DMX_IN_DVR) return false;
  return starting_ || qel_receiver_has_stream_nodes(target_.demux) == 1;
}

/// Calls the receiver without the lock, which a flush needs to end the call.
template <typename Call>
int InputFeed::call_receiver(Lock& lock, Call call) {
  const FeedTarget target = target_;
  used_ = true;
  in_receiver_ = true;
  lock.unlock();
  const int error = call(target) == 0 ? 0 : errno;
  lock.lock();
  in_receiver_ = false;
  changed_.notify_all();
  return error;
}

void InputFeed::warn_once() {
  if (std::exchange(warned_, true)) return;
  QEL_LOG_LINE(QEL_LOG_WARNING, "there is no demux %u, data dropped", target_.demux);
}

void InputFeed::close(Closed reason) {
  closed_ |= reason;
  flush_input(true);
  changed_.notify_all();
}

void InputFeed::reopen(Closed reason) {
  closed_ &= ~static_cast<unsigned>(reason);
  if (closed_ == 0) flush_input(false);
  changed_.notify_all();
}

void InputFeed::flush_input(bool on) {
  if (on == flushing_input_ || (on && !used_)) return;
  flushing_input_ = on;
  qel_receiver_set_flushing(target_.demux, target_.input, on ? 1 : 0);
}

}  // namespace qel
