// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <memory>
#include <string_view>

#include "platform/node.h"

namespace qel::receiver {

/// Opens a node of the software receiver by its logical name.
///
/// `flags` are those of open(2). On failure the pointer is empty and `error`
/// holds the errno: ENOENT, EMFILE, EBUSY, EOPNOTSUPP.
std::shared_ptr<Node> open_node(std::string_view name, int flags, int& error);

/// Path of a logical device, or nullptr: static storage.
const char* device_path(std::string_view name);

}  // namespace qel::receiver
