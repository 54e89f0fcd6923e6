// SPDX-License-Identifier: LGPL-2.1-or-later
#include "config/handlers.h"
#include "instance/instance.h"
#include "sections/registry.h"

namespace vantrel {

void set_prop_demux_section_filtering(GstVantrel* self, guint, const GValue* value) {
  std::unique_lock lock(self->filter_lock);
  if (!g_value_get_boolean(value)) {
    gst_vantrel_free_section_filter(self, lock);
    return;
  }
  gst_vantrel_create_section_filter(self);
  self->filter_index = 0;
  self->mask_index = 0;
}

}  // namespace vantrel
