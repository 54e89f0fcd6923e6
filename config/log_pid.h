// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "config/properties.h"
#include "instance/log.h"

namespace vantrel {

/// The line that most PID properties begin with.
inline void log_pid(const char* function, guint id, guint pid) {
  LOG_INFO_AS(function, "[%s(%d)] pid : 0x%x(%d)", vantrel_get_property_name(id), id, pid, pid);
}

}  // namespace vantrel
