// SPDX-License-Identifier: LGPL-2.1-or-later
#include "client/temi.h"

#include "vantrel/error.h"
#include "vantrel/temi.h"

namespace vantrel::client {

gboolean set_temi(GstElement* element, gboolean enabled, GError** error) {
  const GstVantrelTemiInitiate initiate = gst_vantrel_find_temi_initiate(element);
  if (initiate == nullptr) {
    g_set_error_literal(error, VANTREL_ERROR, VANTREL_ERROR_REFUSED,
                        "the plugin has no TEMI reader");
    return FALSE;
  }
  // Waiting for the lock on a reader thread, which teardown joins, would hang.
  if (!GST_STATE_TRYLOCK(element)) {
    g_set_error_literal(error, VANTREL_ERROR, VANTREL_ERROR_BUSY, "the element changes state");
    return FALSE;
  }
  if (enabled) initiate(element);
  g_object_set(element, "enable", enabled, nullptr);
  GST_STATE_UNLOCK(element);
  return TRUE;
}

}  // namespace vantrel::client
