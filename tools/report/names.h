// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>

#include "tools/core/psi.h"

namespace report {

/// "Das Erste", or "service 28106" without a name.
std::string name_of(const tools::Programme& programme);
/// The programme's video; null when it has none.
const tools::StreamInfo* video_of(const tools::Programme& programme);

}  // namespace report
