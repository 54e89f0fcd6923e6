// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <qel/base_filter.h>

#include "instance/export.h"

// The six operations that the base class calls, one at a time, and a worker
// behind each. The operations log what their worker failed to do and return
// TRUE whatever it was; the workers return the outcome.

G_BEGIN_DECLS

/** gst_vantrel_initiate: start-up: readers, poll set, pads and nodes. Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_initiate(GstTvBaseFilter* filter);
/** gst_vantrel_pes_initiate: Returns: %FALSE when a stream's node cannot be opened */
VANTREL_EXPORT gboolean gst_vantrel_pes_initiate(GstTvBaseFilter* filter);

/** gst_vantrel_start: programs and starts every stream's filter. Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_start(GstTvBaseFilter* filter);
/** gst_vantrel_pes_start: Returns: %FALSE when a filter cannot be programmed */
VANTREL_EXPORT gboolean gst_vantrel_pes_start(GstTvBaseFilter* filter);

/** gst_vantrel_stop: stops every stream's filter; nodes stay open. Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_stop(GstTvBaseFilter* filter);
/** gst_vantrel_pes_stop: Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_pes_stop(GstTvBaseFilter* filter);

/** gst_vantrel_pause: the readers read on and deliver nothing. Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_pause(GstTvBaseFilter* filter);
/** gst_vantrel_pes_pause: Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_pes_pause(GstTvBaseFilter* filter);

/** gst_vantrel_resume: undoes pause. Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_resume(GstTvBaseFilter* filter);
/** gst_vantrel_pes_resume: Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_pes_resume(GstTvBaseFilter* filter);

/** gst_vantrel_destory: teardown: joins the readers, closes every node. Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_destory(GstTvBaseFilter* filter);
/** gst_vantrel_pes_destory: the part of the PES reader and the streams. Returns: %TRUE */
VANTREL_EXPORT gboolean gst_vantrel_pes_destory(GstTvBaseFilter* filter);

G_END_DECLS
