// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>

namespace qel::receiver {

/// Copies a caller's record in; false where its pointer is bad.
bool copy_from_user(void* to, const void* from, std::size_t size);
/// Copies a record out to the caller; false where its pointer is bad.
bool copy_to_user(void* to, const void* from, std::size_t size);

}  // namespace qel::receiver
