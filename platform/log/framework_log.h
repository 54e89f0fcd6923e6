// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gst/gst.h>

namespace qel::log {

/// Level of the framework that a priority of the log service maps to.
GstDebugLevel framework_level(int priority);

/// The debug category whose name is the tag, or the default category as long
/// as nobody has registered one; nullptr before gst_init(). `tag` lives as long
/// as the process.
GstDebugCategory* framework_category(const char* tag);

}  // namespace qel::log
