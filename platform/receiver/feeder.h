// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "platform/receiver/demux.h"
#include "platform/receiver/packet.h"
#include "platform/receiver/run.h"
#include "platform/receiver/section_assembler.h"

namespace qel::receiver {

class RingNode;
class StreamNode;

/// One call of feed or end on an input: holds the demux's lock, and gives it
/// up between batches and while it waits.
class Feeder {
 public:
  Feeder(Demux& demux, Input& input);
  Feeder(const Feeder&) = delete;
  Feeder& operator=(const Feeder&) = delete;
  ~Feeder();

  /// Both give 0 or -errno.
  int feed(const std::uint8_t* data, std::size_t size);
  int end();

 private:
  enum class Continuity { kInOrder, kRepeat, kLost };
  class Delivery;

  // feeder.cpp: the call
  int begin();
  [[nodiscard]] bool cancelled() const { return flushes_ != input_.flushes; }
  [[nodiscard]] bool lossless() const { return lossless_; }
  std::size_t feed_carried(const std::uint8_t* data, std::size_t size);
  std::size_t run(const std::uint8_t* data, std::size_t size, std::size_t fresh);
  void watch_pace(std::size_t bytes);
  void next_batch();

  // walk.cpp: packets in sync
  std::size_t walk(const std::uint8_t* data, std::size_t count);
  std::size_t quick(const std::uint8_t* data, std::size_t count);
  bool look_at(const std::uint8_t* data);
  Continuity follow(const Packet& packet, std::uint64_t& state);

  // dispatch.cpp: a packet that somebody wants. False: the call is cancelled.
  bool dispatch(const Packet& packet, bool lost);
  bool make_room(const Packet& packet);
  RingNode* without_room(const Packet& packet, std::size_t& bytes);
  void hand_out(const Packet& packet, Route* route);
  void to_record(const Packet& packet, const Route* route);
  std::size_t record(const std::uint8_t* data, std::size_t count);
  bool sections(const Packet& packet, Route& route, bool lost);
  bool deliver(Route& route, unsigned pid, const Section& section);

  // pes_delivery.cpp: PES packets to taps and ports
  bool pes_to_only(const Packet& packet, FilterNode& filter);
  std::size_t pes_to_only(const Run& run, FilterNode& filter);
  RingNode* pes_without_room(const Packet& packet, const Route& route, std::size_t& bytes);
  void to_pes(const Packet& packet, Route& route);
  void commit(Ring& ring, std::size_t records = 1);
  void to_tap(FilterNode& filter, const Packet& packet);
  void to_port(FilterNode& filter, const Packet& packet);
  void complete_units();

  // waiting.cpp
  bool pace(const Packet& packet);
  bool wait_for_room(RingNode& node, std::size_t bytes, unsigned pid);
  bool wait_until_read(RingNode& node, std::uint64_t target, unsigned pid);
  bool wait_until_empty();
  [[nodiscard]] StreamNode* own_record() const;
  void hold_clocks(bool hold);

  Demux& demux_;
  Input& input_;
  std::unique_lock<FairMutex> lock_;
  bool owner_ = false;  // this call, not another one, feeds the input
  const bool lossless_;
  std::uint64_t flushes_ = 0;
  std::vector<FilterNode*> matches_;  // of the section being delivered
  std::vector<std::uint8_t> temi_;    // descriptors of the packet at hand
};

}  // namespace qel::receiver
