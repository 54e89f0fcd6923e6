// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

/// A decoded picture: rows of red, green and blue, one byte each.
struct Picture {
  int width = 0;
  int height = 0;
  int shown_width = 0;  // with square pixels, at this height
  std::vector<std::uint8_t> rgb;

  [[nodiscard]] bool empty() const { return rgb.empty(); }
};

/// Whether a decoder can begin in this piece of an elementary stream of the
/// ISO/IEC 13818-1 stream type: it has a sequence header or parameter set.
bool has_beginning(std::string_view elementary_stream, unsigned stream_type);

/// Decodes an elementary stream until a picture shows something; where none does,
/// takes the one with most to see among the first. With `widest`, pictures that
/// are wider are made smaller and have square pixels. Failure when there is none.
/// May be called from several threads at a time.
Picture decode_picture(const std::string& elementary_stream, unsigned stream_type, int widest = 0);

/// The picture as PNG; Failure when it cannot be encoded.
std::string encode_png(const Picture& picture);

/// Writes the picture as PNG; Failure when it cannot be written.
void write_png(const Picture& picture, const std::string& path);

/// The picture in colour blocks of at most `columns` characters a row, for
/// terminals with 24-bit colours.
std::string draw(const Picture& picture, int columns);

}  // namespace tools
