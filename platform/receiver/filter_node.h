// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/receiver/demux.h"
#include "platform/receiver/pes.h"
#include "platform/receiver/ring_node.h"
#include "platform/receiver/stc.h"

namespace qel::receiver {

struct Port;

/// A demux or TEMI node: a filter, and what it has collected.
///
/// Fields without a word are guarded by the demux's lock.
class FilterNode final : public RingNode {
 public:
  FilterNode(Demux& demux, std::string name, int flags, bool temi);

  int start() override;
  int stop() override;
  int set_section(const dmx_sct_filter_params& params) override;
  int set_pes(const PesFilter& filter) override;
  int set_source(int source) override;
  int set_buffer_size(std::size_t size) override;
  int add_pid(unsigned pid) override;
  int remove_pid(unsigned pid) override;
  int pes_pids(std::uint16_t* pids) override;
  int stc(dmx_stc& stc) override;
  int pes_type(const char* path, std::uint32_t& type) override;
  void close() override;
  void count(qel_node_counters& counters) const override;

  // For the demux and its feeder; its lock is held.
  [[nodiscard]] qel_node_kind kind() const { return kind_; }
  [[nodiscard]] const dmx_sct_filter_params& section() const { return section_; }
  [[nodiscard]] const PesFilter& pes() const { return pes_; }
  [[nodiscard]] const std::vector<std::uint16_t>& more_pids() const { return more_pids_; }
  [[nodiscard]] bool is_temi() const { return temi_; }
  [[nodiscard]] bool is_clock() const;
  [[nodiscard]] bool is_running() const { return state_ == State::kRunning; }
  /// True where packets of this input go to the filter.
  [[nodiscard]] bool follows(const Input& input) const;
  /// A section was delivered: ends a one-shot filter and its time limit.
  void delivered();
  /// The time limit of start number `start` is over. Takes the demux's lock.
  void time_out(std::uint64_t start);
  void reset_counters() override;
  /// Drops the PES packet in progress if it comes from `input`; what follows
  /// begins at a payload unit start.
  void forget_progress(const Input& input);
  void drop_unit();

  PesUnit unit;               // the PES packet in progress
  Port* port = nullptr;       // the decoder port it feeds
  bool port_started = false;  // the port has had a payload unit start
  Stc clock;
  std::uint64_t crc_errors = 0;
  Ring::Counters passed_on;  // to a port or to the record node

 private:
  enum class State { kFresh, kSet, kRunning, kDone, kTimedOut };

  int start_locked();
  void stop_locked();
  int claim();
  void give_back();
  void finish(State state);
  bool arm();
  void disarm();

  Demux& demux_;
  const bool temi_;
  State state_ = State::kFresh;
  qel_node_kind kind_;
  bool closed_ = false;
  bool armed_ = false;        // a time limit runs
  std::uint64_t starts_ = 0;  // tells one start's time limit from the next one's
  int source_ = 0;
  dmx_sct_filter_params section_{};
  PesFilter pes_{};
  std::vector<std::uint16_t> more_pids_;
};

}  // namespace qel::receiver
