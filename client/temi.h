// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

namespace vantrel::client {

/// Starts or stops the element's TEMI reader; FALSE with the error.
gboolean set_temi(GstElement* element, gboolean enabled, GError** error);

}  // namespace vantrel::client
