// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/instance.h"

namespace vantrel {

/// Class handler of "add-filter": a filter for the sections of `pid` that match
/// the table id and extension (16 bits count), or `filter_len` bytes of pattern
/// in section-header positions, which stay the caller's and must outlive the
/// filter. Any thread, a "section-upload" handler's too.
///
/// Returns the handle, also of a filter that waits for one of the 96 slots; NULL
/// when the node cannot be opened or programmed.
gpointer gst_vantrel_add_filter(GstVantrel* self, guint pid, guint table_id, guint table_id_ex,
                                gpointer mask, gpointer filter, guint filter_len,
                                gboolean check_version, gboolean check_crc, gpointer mode);

/// Class handler of "remove-filter": when it returns, the filter's handler does
/// not run and will not be called again. It may still run where it is the caller,
/// or where the caller is a handler of pad-added, pad-removed or of an event, whose
/// end it may be waiting for. A handle that is not, or no longer, one of the
/// element's is ignored. Any thread.
void gst_vantrel_remove_filter(GstVantrel* self, gpointer handle);

/// The property way to the same: builds a filter from the section parameters,
/// which the caller guards with filter_lock.
SectionFilter* gst_vantrel_create_section_filter(GstVantrel* self);

/// Frees the filter named by section_handler. `filter_guard` holds filter_lock
/// and is released when it has to wait for an emission of the filter.
void gst_vantrel_free_section_filter(GstVantrel* self, std::unique_lock<std::mutex>& filter_guard);

/// Gives a record back that is on no list.
void release_section_filter(SectionFilter* filter);

/// End of the section reader: removes and frees every filter. Takes section_lock.
void vantrel_clear_section_filter(GstVantrel* self);

}  // namespace vantrel
