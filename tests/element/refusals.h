// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <string>

namespace vantrel::testing {

/// Has the system refuse `what` from now on: "semget", "gst_poll_new", or the
/// name of a thread that cannot be made; "" refuses nothing.
void system_refuses(const std::string& what);

/// Number of semaphore sets that this process made and that still exist.
std::size_t semaphore_sets();

}  // namespace vantrel::testing
