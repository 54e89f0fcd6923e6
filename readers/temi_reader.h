// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/export.h"
#include "readers/reader.h"

namespace vantrel {

/// The thread that reads the TEMI node and emits "temi-data".
extern const Reader kTemiReader;

}  // namespace vantrel

G_BEGIN_DECLS

/**
 * gst_vantrel_temi_initiate:
 * @filter: the element
 *
 * Opens the TEMI node of the element's demux id and starts the reader thread.
 * Nothing is read until the property "enable" is set and the element initiated.
 * A second call reuses the node and the thread. Any thread and any state.
 * vantrel/temi.h tells applications how to get here.
 *
 * Returns: %TRUE
 */
VANTREL_EXPORT gboolean gst_vantrel_temi_initiate(GstTvBaseFilter* filter);

G_END_DECLS
