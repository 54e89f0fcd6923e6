// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <set>
#include <string>
#include <vector>

#include "tools/analysis/timeline.h"

namespace analysis {

/// The checks that need times or tables: counts their errors in the pass.
class Conclusions {
 public:
  Conclusions(PacketPass* pass, const Timeline& timeline, const std::vector<Reference>& references);

  void draw();
  /// Why a check that found nothing could find nothing, or empty.
  [[nodiscard]] std::string not_measured(Check check) const;

 private:
  void tables();
  void programmes();
  void sparse_pids();
  void repetition();
  void clocks();
  void time_stamps();
  void access();
  void unreferenced();

  void absences(Check check, unsigned pid, int table_id, std::vector<std::uint64_t> packets,
                std::uint64_t from, double limit);
  [[nodiscard]] bool came(unsigned pid) const { return came_.contains(pid); }
  [[nodiscard]] double seconds(std::uint64_t packet, unsigned pid) const;

  PacketPass* pass_;
  const Timeline& timeline_;
  const std::vector<Reference>& references_;
  std::set<unsigned> came_;
  std::size_t deviations_ = 0;  // PCRs whose accuracy was measured
};

}  // namespace analysis
