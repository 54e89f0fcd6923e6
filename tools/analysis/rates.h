// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <vector>

#include "tools/analysis/evaluate.h"

namespace analysis {

/// Bit rates of all PIDs over the same spans of time, by the multiplex's clock.
std::vector<PidResult> rates_of(const PacketPass& pass, const Clock* clock, std::uint64_t packets);

}  // namespace analysis
