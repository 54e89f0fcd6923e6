// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "platform/receiver/packet.h"

namespace qel::receiver {

/// Appends the TEMI descriptors (timeline, location, base URL) in the packet's
/// adaptation field extension, tag and length included. What is not whole, or
/// stands in a field whose lengths contradict each other, is left out.
void append_temi(const Packet& packet, std::vector<std::uint8_t>& descriptors);

}  // namespace qel::receiver
