// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string_view>

namespace qel {

/// "EINVAL" for EINVAL; "?" for a number that has no name.
const char* errno_name(int error);
/// EINVAL for "EINVAL"; 0 for a name that is none.
int errno_value(std::string_view name);

}  // namespace qel
