// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

#include "instance/export.h"

G_BEGIN_DECLS

/**
 * gst_vantrel_get_type:
 *
 * Any thread.
 *
 * Returns: the element's type, registered on first use
 */
VANTREL_EXPORT GType gst_vantrel_get_type(void);

/**
 * gst_plugin_desc:
 *
 * What the framework's loader reads.
 */
extern VANTREL_EXPORT GstPluginDesc gst_plugin_desc;

G_END_DECLS
