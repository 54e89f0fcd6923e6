// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <array>

#include "vantrel/section_filter.h"

namespace vantrel::client {

/// Bytes of a pattern at most.
constexpr gsize kMaxPattern = 15;

/// The arrays that the element borrows while the filter runs, in section-header
/// positions. No bytes: by table id alone.
struct Pattern {
  std::array<guint8, kMaxPattern> match{};
  std::array<guint8, kMaxPattern> mask{};
  std::array<guint8, kMaxPattern> mode{};
  guint size = 0;
};

/// Emits "section".
void emit_section(VantrelSectionFilter* self, GBytes* section);

}  // namespace vantrel::client

struct _VantrelReceiver;

struct _VantrelSectionFilter {
  GObject parent;

  // Set when it is constructed.
  guint pid;
  gint table_id;
  gint table_id_ext;
  guint flags;
  GBytes *pattern_bytes, *mask_bytes, *mode_bytes;
  gboolean is_valid;
  vantrel::client::Pattern pattern;

  /// Held while the filter runs; atomic.
  _VantrelReceiver* receiver;
};
