// SPDX-License-Identifier: LGPL-2.1-or-later
//
// The example that PRINT_TIMELINE names reads what was written into a file.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>

#include "tests/support/ts_builder.h"
#include "tests/support/ts_reader.h"

namespace {

using stream::operator+;
using stream::operator+=;

std::string output_of(const std::string& command) {
  std::string text;
  FILE* pipe = popen(command.c_str(), "r");
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  return pclose(pipe) == 0 ? text : "failed";
}

TEST(Timeline, ReachesAnApplicationThatOnlyKnowsThePlugin) {
  stream::Multiplex mux;
  stream::Bytes packets;
  for (std::uint8_t i = 0; i < 100; i++)
    packets += mux.packet(
        0x100 + i % 3, stream::counting(i % 2 != 0 ? 100 : 0),
        {.pcr = i * 300000,
         .af_descriptors = stream::timeline(7, 1000, 40U * i) + stream::af_descriptor(9, {1, 2}) +
                           stream::af_descriptor(5, {i})});
  const std::string path = testing::TempDir() + "timeline-" + std::to_string(getpid()) + ".ts";
  stream::save(path, stream::text(packets));
  std::string expected;
  for (unsigned i = 0; i < 100; i++) {
    char line[100];
    std::snprintf(line, sizeof line,
                  "timeline 40 7f 07 00 00 03 e8 00 00 %02x %02x\nlocation %02x\n", 40 * i >> 8,
                  40 * i & 0xff, i);
    expected += line;
  }
  EXPECT_EQ(output_of("\"$PRINT_TIMELINE\" '" + path + "'"), expected);
  std::remove(path.c_str());
}

}  // namespace
