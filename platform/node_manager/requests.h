// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qel {

enum class ArgumentKind { kNone, kNumber, kRecord };

/// What people are shown of a request.
struct Request {
  std::uint32_t number;
  const char* name;
  ArgumentKind kind;
  /// Bytes of the record, at most kMaxRecord.
  std::size_t size;
  /// Prints what goes in, or comes back, from an aligned copy of the record;
  /// nullptr where nothing does.
  void (*print_in)(GString* out, const void* record);
  void (*print_out)(GString* out, const void* record);
};

constexpr std::size_t kMaxRecord = 64;

/// The request of that number or name, or nullptr.
const Request* find_request(std::uint32_t number);
const Request* find_request(std::string_view name);

/// Appends a string in double quotes, on one line whatever it holds.
void append_quoted(GString* out, std::string_view text);

}  // namespace qel
