// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/analysis/packet.h"
#include "tools/core/psi.h"

namespace tools {

/// Replaces the PAT of a recorded stream by one that lists only the services that
/// were recorded, so that players do not look for the others.
class PatRewriter {
 public:
  PatRewriter(const Psi& psi, const std::vector<unsigned>& numbers);

  /// Packets of 188 bytes, cut anywhere; returns those that are whole by now.
  std::string add(std::string_view bytes);

 private:
  void take(const std::uint8_t* packet, std::string* out);

  std::string section_;  // with pointer_field, stuffed to a packet's payload
  unsigned counter_ = 0;
  std::string rest_;
};

}  // namespace tools
