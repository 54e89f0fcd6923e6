// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#define GST_USE_UNSTABLE_API
#include <gst/mpegts/mpegts.h>

#include "tools/core/psi.h"

namespace tools {

/// Kind, codec and language of a PMT's stream.
StreamInfo describe_stream(const GstMpegtsPMTStream& stream);

}  // namespace tools
