// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "readers/reader.h"

namespace vantrel {

/// The thread that reads the running section filters and emits
/// "section-upload". On its way out it frees every filter.
extern const Reader kSectionReader;

}  // namespace vantrel
