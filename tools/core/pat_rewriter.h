// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/analysis/section_assembler.h"
#include "tools/core/psi.h"

namespace tools {

/// Replaces the PAT of a recorded stream by one that lists only the services that
/// were recorded, so that players do not look for the others. It follows the stream's:
/// a service whose PMT moves is listed where it is then.
class PatRewriter {
 public:
  PatRewriter(Psi psi, std::vector<unsigned> numbers);

  /// Packets of 188 bytes, cut anywhere; returns those that are whole by now.
  std::string add(std::string_view bytes);

 private:
  void take(const std::uint8_t* packet, std::string* out);
  void write_section();

  Psi psi_;
  const std::vector<unsigned> numbers_;
  analysis::SectionAssembler assembler_;  // of the stream's PAT
  std::vector<unsigned> pmt_pids_;        // as section_ has them
  unsigned version_ = 0;                  // the next one's
  std::string section_;                   // with pointer_field, stuffed to a packet's payload
  unsigned counter_ = 0;
  std::string rest_;
};

}  // namespace tools
