// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qel {

/// What a rule does to a call; several rules add up.
struct FaultEffect {
  /// The call fails with this errno and does nothing; 0: it goes on.
  int error = 0;
  /// A read gets at most so many bytes.
  std::size_t limit = SIZE_MAX;
  /// The node's buffer overflows before the call.
  bool overflow = false;
};

/// One line of a script: NODE CALL WHICH EFFECT.
struct FaultRule {
  std::string node;
  std::string call;
  std::uint64_t first = 1;
  std::uint64_t last = UINT64_MAX;
  FaultEffect effect;
  /// Calls that node and call matched so far.
  std::uint64_t count = 0;

  [[nodiscard]] bool matches(std::string_view node_name, std::string_view call_name) const {
    return (node == "*" || node == node_name) && call == call_name;
  }
};

/// 0 with the rules of the script in `rules`, or the number of the first line
/// that does not parse.
int parse_fault_script(std::string_view script, std::vector<FaultRule>& rules);

}  // namespace qel
