// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "softdec/delegate.h"

namespace softdec {

/// Registers the element of a kind, which lives as long as the process.
bool register_element(GstPlugin* plugin, const Kind& kind);

}  // namespace softdec
