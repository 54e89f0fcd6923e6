// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <functional>
#include <map>
#include <set>
#include <span>
#include <vector>

#include "tools/analysis/packet_reader.h"
#include "tools/analysis/section_assembler.h"
#include "tools/core/psi.h"

namespace tools {

/// The PIDs that belong in a recording of a service: its own, and what players and
/// receivers want beside them.
void add_service(const Programme& programme, std::set<unsigned>* pids);

/// Looks for further PIDs of services in their PAT and PMTs while a stream is recorded.
/// It sees the stream before the receiver does, so that nothing of them is missed.
class Follower : private analysis::PacketSink {
 public:
  using Found = std::function<void(unsigned pid)>;

  /// `psi` is what the beginning of the stream says, `pids` what is recorded by it; gives
  /// each PID besides to `found`, once.
  Follower(unsigned packet_size, Psi psi, std::vector<unsigned> services, std::set<unsigned> pids,
           Found found);

  void add(std::span<const std::uint8_t> data) { reader_.add(data); }
  /// Those that were found.
  [[nodiscard]] const std::set<unsigned>& added() const { return added_; }

 private:
  void packet(const std::uint8_t* bytes, std::uint64_t number) override;
  void sync_byte_error(std::uint64_t) override {}
  void sync_loss(std::uint64_t) override {}
  void look_again();

  analysis::PacketReader reader_;
  Psi psi_;
  const std::vector<unsigned> services_;
  std::set<unsigned> pids_;
  const Found found_;
  std::set<unsigned> added_;
  std::map<unsigned, analysis::SectionAssembler> tables_;  // by PID: PAT and PMTs
};

}  // namespace tools
