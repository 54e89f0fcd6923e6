/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

#include <glib-object.h>

G_BEGIN_DECLS

/**
 * VantrelFilterFlags:
 * @VANTREL_FILTER_FLAGS_NONE: every section that matches
 * @VANTREL_FILTER_FLAGS_CHANGED_ONLY: leave out a section with version and CRC_32
 *   of the one before it on this filter; where several sections pass in turn,
 *   each is another than the one before, and none is left out
 * @VANTREL_FILTER_FLAGS_CHECK_CRC: leave out sections with a bad CRC_32
 *
 * Which of the matching sections a filter delivers.
 */
typedef enum {
  VANTREL_FILTER_FLAGS_NONE = 0,
  VANTREL_FILTER_FLAGS_CHANGED_ONLY = 1 << 0,
  VANTREL_FILTER_FLAGS_CHECK_CRC = 1 << 1,
} VantrelFilterFlags;

#define VANTREL_TYPE_FILTER_FLAGS (vantrel_filter_flags_get_type())
GType vantrel_filter_flags_get_type(void);

#define VANTREL_TYPE_SECTION_FILTER (vantrel_section_filter_get_type())

/**
 * VantrelSectionFilter:
 *
 * Which sections (ISO/IEC 13818-1, 2.4.4) an application wants.
 *
 * A filter is made, connected to with #VantrelSectionFilter::section, and then
 * given to vantrel_receiver_add_filter(); so that nothing is missed. It runs
 * until vantrel_receiver_remove_filter(), or until nobody holds it any more:
 * the receiver does not. While it runs it holds its receiver.
 *
 * Taking the element to READY ends its filters; those that are to go on are
 * removed before and added again after.
 */
G_DECLARE_FINAL_TYPE(VantrelSectionFilter, vantrel_section_filter, VANTREL, SECTION_FILTER, GObject)

/**
 * vantrel_section_filter_new:
 * @pid: PID, 0 to 0x1fff
 * @table_id: table id, 0 to 255; -1 for any
 * @table_id_ext: table id extension, 0 to 65535; -1 for any
 * @flags: which sections to deliver
 *
 * Any thread.
 *
 * Returns: (transfer full): a filter that does not run yet
 */
VantrelSectionFilter *vantrel_section_filter_new(guint pid, gint table_id, gint table_id_ext,
                                                 VantrelFilterFlags flags);

/**
 * vantrel_section_filter_new_pattern:
 * @pid: PID, 0 to 0x1fff
 * @pattern: bytes to match, 1 to 15: byte 0 stands for the table id, bytes 1
 *   and 2 are ignored, byte 3 and what follows for the section's bytes there
 * @mask: as many bytes; bits that are set count
 * @mode: (nullable): as many bytes; of the bits that are set here, if any, at
 *   least one must differ from @pattern. %NULL: all bits must be equal
 * @flags: which sections to deliver
 *
 * The bytes are kept by the filter. Any thread.
 *
 * Returns: (transfer full): a filter that does not run yet
 */
VantrelSectionFilter *vantrel_section_filter_new_pattern(guint pid, GBytes *pattern, GBytes *mask,
                                                         GBytes *mode, VantrelFilterFlags flags);

/**
 * vantrel_section_filter_get_pid:
 * @self: a filter
 *
 * Returns: its PID
 */
guint vantrel_section_filter_get_pid(VantrelSectionFilter *self);

/**
 * vantrel_section_filter_is_added:
 * @self: a filter
 *
 * Any thread.
 *
 * Returns: %TRUE from vantrel_receiver_add_filter() until it is removed
 */
gboolean vantrel_section_filter_is_added(VantrelSectionFilter *self);

G_END_DECLS
