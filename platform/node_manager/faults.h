// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string_view>

#include "platform/node_manager/fault_script.h"

namespace qel::faults {

/// Takes the rules of the file that QEL_FAULTS names.
void read_environment();

/// Counts the call and returns what befalls it. Only where watched() says so.
FaultEffect next(std::string_view node, std::string_view call);

/// True while the rules are those of a QEL_FAULTS file that does not parse: a
/// program under test must not run as if it had no faults.
bool broken();

}  // namespace qel::faults
