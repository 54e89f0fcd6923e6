// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/hex.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "tools/core/failure.h"

namespace tools {
namespace {

constexpr std::size_t kLine = 16;
constexpr std::string_view kDigits = "0123456789abcdef";

void append_line(std::string_view bytes, std::size_t offset, std::string* out) {
  std::array<char, 16> head;
  std::snprintf(head.data(), head.size(), "  %04zx ", offset);
  std::string hex;
  std::string text;
  for (const char byte : bytes) {
    hex += ' ' + to_hex({&byte, 1});
    text += g_ascii_isprint(byte) ? byte : '.';
  }
  hex.resize(3 * kLine, ' ');
  *out += head.data() + hex + "  " + text + '\n';
}

}  // namespace

std::string to_hex(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

std::string parse_hex(const std::string& what, std::string_view text, std::size_t most) {
  if (text.starts_with("0x")) text.remove_prefix(2);
  const bool digits = 
      std::all_of(text.begin(), text.end(), [](char c) { return g_ascii_isxdigit(c); });
  if (!digits || text.empty() || text.size() % 2 != 0 || text.size() / 2 > most)
    throw Failure(Status::kUsage, what + ": \"" + std::string(text) + "\" is not 1 to " +
                                      std::to_string(most) +
                                      " bytes of two hexadecimal digits each");
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); at += 2)
    bytes += static_cast<char>(g_ascii_xdigit_value(text[at]) << 4 |
                               g_ascii_xdigit_value(text[at + 1]));
  return bytes;
}

std::string hex_dump(std::string_view bytes) {
  std::string out;
  for (std::size_t at = 0; at < bytes.size(); at += kLine)
    append_line(bytes.substr(at, kLine), at, &out);
  return out;
}

}  // namespace tools
