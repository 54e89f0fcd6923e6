// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <map>
#include <memory>
#include <set>
#include <tuple>
#include <vector>

#include "tools/analysis/packet_pass.h"
#include "tools/analysis/packet_reader.h"
#include "tools/core/epg.h"
#include "tools/core/input.h"
#include "tools/core/psi.h"
#include "tools/report/picture.h"
#include "tools/report/report.h"

namespace report {

/// Reads a stream once: packets go to the analysis, its sections to the tables,
/// and what tables say of PIDs back to the analysis.
class Gather {
 public:
  /// With pictures where they are wanted.
  Gather(tools::Input& input, bool pictures);

  /// To the input's end, the first `seconds` of it, or a signal.
  void run(std::optional<double> seconds);
  /// The report, which refers to this.
  Report finish();

 private:
  void take(unsigned pid, const analysis::Section& section);
  void refer(unsigned pid, analysis::Role role, unsigned programme, std::uint64_t packet);
  void refer_to(const tools::Programme& programme, std::uint64_t packet);
  void refer_all(std::uint64_t packet);
  [[nodiscard]] std::vector<analysis::Reference> references() const;
  void begin_pictures(std::size_t enough);
  void take_pictures(Report* report);
  [[nodiscard]] std::string why_no_picture(const tools::StreamInfo& video) const;

  tools::Input& input_;
  bool pictures_;
  tools::Psi psi_;
  tools::Epg epg_;
  analysis::PacketPass pass_;
  analysis::PacketReader reader_;
  std::uint64_t read_ = 0;  // bytes
  /// PID, role and programme to the packet that named it first.
  std::map<std::tuple<unsigned, analysis::Role, unsigned>, std::uint64_t> named_;
  std::set<unsigned> pictured_;  // PIDs in the queue
  PictureQueue queue_;           // last: it reads streams of the pass
};

}  // namespace report
