// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <optional>

#include "instance/instance.h"

namespace vantrel {

/// The PES type that leads the stream to its decoder, logged; empty while the
/// video decoder that is to be asked for is not known. stream_lock held.
std::optional<dmx_ts_pes> choose_pes_type(GstVantrel* self, const GstTvTsDemuxStream* stream,
                                          guint dmx_type);

}  // namespace vantrel
