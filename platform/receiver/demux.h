// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <linux/dvb/dmx.h>
#include <qel/receiver.h>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/receiver/fair_mutex.h"
#include "platform/receiver/pacer.h"
#include "platform/receiver/pid_table.h"
#include "platform/receiver/sync.h"

namespace qel::receiver {

class Demux;
class FilterNode;
class Ring;
class RingNode;
class StreamNode;

/// One of a demux's two inputs. All of it is guarded by the demux's lock.
struct Input {
  static constexpr std::size_t kCarry = 2048;

  /// Drops what is half assembled and lets sync be found anew.
  void forget_progress();

  PidTable pids;
  qel_input_counters counters{};

  Sync sync;
  std::size_t gap = 0;      // bytes to pass over before the next packet
  std::size_t carried = 0;  // bytes in carry: a packet that is not whole yet
  std::array<std::uint8_t, kCarry> carry;

  /// Bits of a packet's first four bytes that make it wanted whatever its PID.
  std::uint32_t wanted_bits = 0;

  bool feeding = false;  // a thread is in feed or end
  bool second_feeder_told = false;
  bool flushing = false;
  std::uint64_t flushes = 0;             // a feeder compares, to see that one came
  std::shared_ptr<RingNode> waiting_on;  // what a waiting feeder waits for

  std::condition_variable_any pace;  // a feeder ahead of time waits here
  Pacer pacer;
  std::uint64_t bytes_without_pcr = 0;
};

/// A demux: its inputs, its nodes, and where packets go.
///
/// Locks, in the order in which they are taken:
///   mutex of demux 0, 1, ... 5 (all of them only to open, close or resize a
///   decoder port; otherwise one) > the timers' lock, the lock of a ring.
///
/// `mutex` guards everything here, and the writer side of the rings of its
/// nodes and of the ports it feeds. A feeder holds it for a batch.
class Demux {
 public:
  explicit Demux(unsigned index);

  [[nodiscard]] Input& input(unsigned which) { return inputs[which]; }
  [[nodiscard]] bool is_front_end(const Input& input) const {
    return &input == &inputs[DMX_IN_FRONTEND];
  }

  /// Sends packets to a filter, or no longer.
  void attach(FilterNode& filter);
  void detach(FilterNode& filter);
  /// To be called when the uses of a PID, or of all PIDs, have changed.
  void refresh(Input& input, unsigned pid);

  /// Notes a ring that publish() is to show to its reader.
  void touch(Ring& ring);
  /// Readers of a stream that would wait for them may be woken a little later.
  void publish(bool lossless);

  void set_pacing(bool on);
  /// Lets another PID set the pace.
  void restart_pacing(Input& input);
  void set_flushing(Input& input, bool flushing);
  /// The running filter of a PCR type, or the first one of any; or nullptr.
  [[nodiscard]] FilterNode* clock(unsigned pes_type) const;

  const unsigned number;
  FairMutex mutex;
  std::array<Input, 2> inputs;
  std::vector<std::shared_ptr<FilterNode>> nodes;
  std::shared_ptr<StreamNode> record;
  std::vector<FilterNode*> temi;    // running TEMI nodes
  std::vector<FilterNode*> clocks;  // running PCR filters, first started first
  /// Running filter that has a decoder's PES type.
  std::array<FilterNode*, DMX_PES_OTHER> decoders{};
  std::array<std::uint16_t, 5> pes_pids;  // as DMX_GET_PES_PIDS gives them
  bool pacing;

 private:
  void attach_pes(FilterNode& filter);
  /// Has a feeder that waits look again whether it must.
  static void release_feeder(Input& input);

  std::vector<Ring*> touched_;
};

}  // namespace qel::receiver
