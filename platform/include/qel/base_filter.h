/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

/**
 * SECTION:qel/base_filter.h
 * @short_description: base class of elements that program a demultiplexer
 *
 * #GstTvBaseFilter owns the always-present sink pad "sink", made from the
 * subclass's template of that name, and drives the subclass through six
 * operations by element state:
 *
 * |[
 * READY   -> PAUSED    initiate, then the parent's change; NO_PREROLL
 * PAUSED  -> PLAYING   the parent's change, then start
 * PLAYING -> PAUSED    pause, then the parent's change; NO_PREROLL
 * PAUSED  -> READY     feed released, the parent's change, stop, destory
 * dispose              destory, if it is still due
 * ]|
 *
 * `resume` is for subclasses' own callers: start after a pause does its work.
 * All six run in the thread that changes the state, one at a time.
 *
 * The buffers of the sink pad go to the demultiplexer named by the subclass's
 * properties "demux-id" and "demux-type" (0 and 2: front-end input, else DVR).
 * The first of the DVR input waits until `start` has returned while the demux has
 * nodes of streams, which would miss it; a flush and the end of the run release it.
 */

#include <gst/gst.h>

G_BEGIN_DECLS

#define GST_TYPE_TV_BASE_FILTER (gst_tv_base_filter_get_type())
#define GST_TV_BASE_FILTER(obj) \
  (G_TYPE_CHECK_INSTANCE_CAST((obj), GST_TYPE_TV_BASE_FILTER, GstTvBaseFilter))
#define GST_TV_BASE_FILTER_CLASS(klass) \
  (G_TYPE_CHECK_CLASS_CAST((klass), GST_TYPE_TV_BASE_FILTER, GstTvBaseFilterClass))
#define GST_TV_BASE_FILTER_GET_CLASS(obj) \
  (G_TYPE_INSTANCE_GET_CLASS((obj), GST_TYPE_TV_BASE_FILTER, GstTvBaseFilterClass))

typedef struct _GstTvBaseFilter GstTvBaseFilter;
typedef struct _GstTvBaseFilterClass GstTvBaseFilterClass;
typedef struct _GstTvBaseFilterPrivate GstTvBaseFilterPrivate;

/**
 * GstTvBaseFilter:
 * @sinkpad: the sink pad, owned by the element; a subclass may set its event
 *   function in its instance initialiser
 */
struct _GstTvBaseFilter {
  GstElement element;

  GstPad *sinkpad;

  /*< private >*/
  GstTvBaseFilterPrivate *priv;
  gpointer _gst_reserved[GST_PADDING];
};

/**
 * GstTvBaseFilterClass:
 * @initiate: makes ready: threads, pads, nodes
 * @start: programs and starts all filters; after a pause, goes on
 * @stop: stops all filters; nodes stay open
 * @destory: undoes @initiate
 * @pause: holds the delivery of data
 * @resume: undoes @pause
 *
 * An operation that is not set counts as done. FALSE from @initiate or @start
 * fails the state change, and what was done is undone. A subclass whose
 * threads call out refuses state changes asked for from them in its own
 * change_state, since a thread cannot join itself.
 */
struct _GstTvBaseFilterClass {
  GstElementClass parent_class;

  gboolean (*initiate)(GstTvBaseFilter *filter);
  gboolean (*start)(GstTvBaseFilter *filter);
  gboolean (*stop)(GstTvBaseFilter *filter);
  gboolean (*destory)(GstTvBaseFilter *filter);
  gboolean (*pause)(GstTvBaseFilter *filter);
  gboolean (*resume)(GstTvBaseFilter *filter);

  /*< private >*/
  gpointer _gst_reserved[GST_PADDING_LARGE];
};

/** gst_tv_base_filter_get_type: Returns: the type, registered on first use; any thread. */
GType gst_tv_base_filter_get_type(void);

G_DEFINE_AUTOPTR_CLEANUP_FUNC(GstTvBaseFilter, gst_object_unref)

G_END_DECLS
