// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/export.h"
#include "instance/instance.h"

G_BEGIN_DECLS

/**
 * gst_vantrel_map_caps:
 * @codec_id: codec id, 1 to 30
 *
 * Any thread.
 *
 * Returns: (transfer full) (nullable): the caps that a stream of this codec is
 *   announced with, or %NULL for an id without caps
 */
VANTREL_EXPORT GstCaps* gst_vantrel_map_caps(guint codec_id);

/**
 * gst_tv_ts_demux_map_caps:
 * @vantrel: the element
 * @index: index in its stream table
 *
 * Any thread; takes the element's stream_lock.
 *
 * Returns: (transfer full) (nullable): the caps of that stream, or %NULL for an
 *   empty slot or a codec without caps
 */
VANTREL_EXPORT GstCaps* gst_tv_ts_demux_map_caps(GstVantrel* vantrel, guint index);

G_END_DECLS
