/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

#include <gst/gst.h>
#include <vantrel/section_filter.h>

G_BEGIN_DECLS

#define VANTREL_TYPE_RECEIVER (vantrel_receiver_get_type())

/**
 * VantrelReceiver:
 *
 * What an element "vantrel" reads from the stream, for applications in any
 * language: sections, subtitle and teletext PES packets, TEMI descriptors and
 * the system time clock, as #GBytes and numbers.
 *
 * With a #GMainContext, signals are emitted by whoever runs that context, one
 * after the other in the order of arrival. Without one they are emitted on the
 * element's reader threads, with no lock held: handlers may add and remove
 * filters and write properties there, but must be quick and must not change the
 * element's state (see gst_element_call_async()).
 *
 * Every function may be called from any thread.
 */
G_DECLARE_FINAL_TYPE(VantrelReceiver, vantrel_receiver, VANTREL, RECEIVER, GObject)

/**
 * vantrel_receiver_new:
 * @element: (transfer none): a "vantrel" element, which is held
 * @context: (nullable): where signals are emitted; %NULL: where data is read
 * @error: return location for an error
 *
 * Fails with %VANTREL_ERROR_FOREIGN for another kind of element.
 *
 * Returns: (transfer full): a receiver, or %NULL with @error set
 */
VantrelReceiver *vantrel_receiver_new(GstElement *element, GMainContext *context, GError **error);

/**
 * vantrel_receiver_get_element:
 * @self: a receiver
 *
 * Returns: (transfer none): its element
 */
GstElement *vantrel_receiver_get_element(VantrelReceiver *self);

/**
 * vantrel_receiver_add_filter:
 * @self: a receiver
 * @filter: (transfer none): a filter that does not run; keep it as long as its
 *   sections are wanted
 * @error: return location for an error
 *
 * Starts the filter, in any state of the element. 96 run at a time, further ones
 * wait until one of those is removed. Fails with %VANTREL_ERROR_INVALID,
 * %VANTREL_ERROR_BUSY where the filter runs already, %VANTREL_ERROR_REFUSED
 * where there is no node for it.
 *
 * Returns: %TRUE, or %FALSE with @error set
 */
gboolean vantrel_receiver_add_filter(VantrelReceiver *self, VantrelSectionFilter *filter,
                                     GError **error);

/**
 * vantrel_receiver_remove_filter:
 * @self: a receiver
 * @filter: a filter of this receiver
 * @error: return location for an error
 *
 * Ends the filter. Without a context its handlers do not run any more when this
 * returns, unless it is called from one of them; with a context that holds
 * where the context runs. Fails with %VANTREL_ERROR_FOREIGN for a filter that
 * is not one of this receiver, and leaves that alone.
 *
 * Returns: %TRUE, or %FALSE with @error set
 */
gboolean vantrel_receiver_remove_filter(VantrelReceiver *self, VantrelSectionFilter *filter,
                                        GError **error);

/**
 * vantrel_receiver_set_temi:
 * @self: a receiver
 * @enabled: whether TEMI descriptors are wanted
 * @error: return location for an error
 *
 * Starts or stops #VantrelReceiver::temi. Taking the element to READY ends it.
 * Fails with %VANTREL_ERROR_BUSY while the element changes state, and with
 * %VANTREL_ERROR_REFUSED where the plugin has no TEMI reader.
 *
 * Returns: %TRUE, or %FALSE with @error set
 */
gboolean vantrel_receiver_set_temi(VantrelReceiver *self, gboolean enabled, GError **error);

/**
 * vantrel_receiver_read_stc:
 * @self: a receiver
 * @stc: (out): the system time clock in units of 27 MHz
 *
 * The clock that the element's property "stc" names, as last read from a
 * stream's node.
 *
 * Returns: %TRUE; or %FALSE with @stc 0 while no stream is open, or no PCR came
 */
gboolean vantrel_receiver_read_stc(VantrelReceiver *self, guint64 *stc);

/**
 * vantrel_receiver_get_dropped:
 * @self: a receiver
 *
 * Returns: deliveries that were dropped because the context did not keep up
 *   (see #VantrelReceiver:max-pending)
 */
guint64 vantrel_receiver_get_dropped(VantrelReceiver *self);

G_END_DECLS
