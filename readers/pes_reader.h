// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "readers/reader.h"

namespace vantrel {

/// The thread that reads the nodes of subtitle and teletext streams and emits
/// "pes-upload".
extern const Reader kPesReader;

}  // namespace vantrel
