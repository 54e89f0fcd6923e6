// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <optional>
#include <vector>

#include "tools/analysis/timeline.h"

namespace analysis {

/// All sub-tables of each table id on each PID, and how long it takes until the
/// same section comes again.
std::vector<TableResult> tables_of(const PacketPass& pass, const Timeline& timeline);

}  // namespace analysis
