// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <linux/dvb/dmx.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>

namespace qel {

/// A demux input of the receiver.
struct FeedTarget {
  unsigned demux = 0;
  dmx_input input = DMX_IN_FRONTEND;

  bool operator==(const FeedTarget&) const = default;
};

/// The way from a sink pad into an input of the receiver.
///
/// One thread feeds (the pad's streaming thread); any thread may flush, stop
/// or redirect it meanwhile. Nothing of the input is touched that this feed
/// did not put there: two elements may name the same demux.
class InputFeed {
 public:
  /// A new run begins: data passes.
  void begin(FeedTarget target);
  /// The filters of the run are being programmed, one after the other...
  void starting();
  /// ...and now they are, if `done`: the first buffer need not wait.
  void started(bool done);
  /// Ends the run: what waits is released, nothing passes any more...
  void stop();
  /// ...and, once the streaming thread is out, the input is given up, with no
  /// half-assembled data of this run in it.
  void finish();

  void begin_flush();
  void end_flush();

  /// Data goes to another input from now on; the old one is flushed.
  void redirect(FeedTarget target);

  /// Filters `data`; false while flushing or stopped.
  bool feed(std::span<const std::uint8_t> data);
  /// The end of the stream, held until the data is read; false when a flush or
  /// the end of the run released it.
  bool end();

 private:
  enum Closed : unsigned { kStopped = 1, kFlushing = 2, kRedirecting = 4 };
  using Lock = std::unique_lock<std::mutex>;

  bool feed_batch(std::span<const std::uint8_t> batch);
  bool wait_until_open(Lock& lock);
  bool wait_while_redirecting(Lock& lock);
  [[nodiscard]] bool first_must_wait() const;
  template <typename Call>
  int call_receiver(Lock& lock, Call call);
  void warn_once();
  void close(Closed reason);
  void reopen(Closed reason);
  void flush_input(bool on);

  // Order: redirect_mutex_ > mutex_ > the receiver's locks.
  std::mutex redirect_mutex_;  // one redirection at a time
  std::mutex mutex_;           // guards all fields below
  std::condition_variable changed_;
  FeedTarget target_;
  unsigned closed_ = kStopped;  // reasons why nothing passes
  bool starting_ = false;       // start runs
  bool started_ = false;
  bool first_passed_ = false;  // the DVR input has got its first data
  bool in_receiver_ = false;   // the streaming thread is in a call below
  bool used_ = false;          // the input has data of this run
  bool refused_ = false;       // another one feeds the input
  bool flushing_input_ = false;
  bool warned_ = false;
};

}  // namespace qel
