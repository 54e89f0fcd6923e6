// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "vantrel/receiver.h"

namespace vantrel::client {

/// Emit "pes" and "temi".
void emit_pes(VantrelReceiver* self, guint pid, GBytes* pes);
void emit_temi(VantrelReceiver* self, GBytes* data);

}  // namespace vantrel::client
