// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <set>
#include <string>

#include "tests/element/decoder.h"
#include "tests/element/harness.h"
#include "tests/support/test_node.h"
#include "tests/support/ts_reader.h"

namespace vantrel::testing {

/// A stream with real encoders' video and audio and with service information,
/// made once; reports a failure and is empty where it cannot be made.
const std::string& own_stream();
/// Its PIDs.
inline constexpr guint kPat = 0, kEit = 0x12, kPmt = 0x20, kVideo = 0x100, kAudio = 0x101,
                       kSecondAudio = 0x102;

/// A node that the test reads itself, as a recorder or a decoder would.
class Reader {
 public:
  explicit Reader(const char* node) : node_(node, O_RDONLY | O_NONBLOCK) {}

  /// All that waits.
  std::string read() { return stream::text(node_.read_all()); }
  /// Whether the stream has ended: nothing waits, and nothing will.
  bool at_end() { return node_.read().empty() && node_.last == 0; }

 private:
  test::TestNode node_;
};

/// Gives the stream to `take` in pieces that no node is too small for.
template <typename Take>
void in_pieces(const std::string& bytes, Take&& take) {
  constexpr std::size_t kPiece = 188 * 340;
  for (std::size_t at = 0; at < bytes.size(); at += kPiece) take(bytes.substr(at, kPiece));
}

}  // namespace vantrel::testing
