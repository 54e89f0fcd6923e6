// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <string>
#include <string_view>

namespace tools {

/// Two digits a byte.
std::string to_hex(std::string_view bytes);

/// Bytes of hexadecimal digits; Failure, which names `what`, for anything else and
/// for more than `most` bytes.
std::string parse_hex(const std::string& what, std::string_view text, std::size_t most);

/// Lines of offset, 16 bytes in hexadecimal, and what of it is ASCII.
std::string hex_dump(std::string_view bytes);

}  // namespace tools
