// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/end_to_end/scene.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tools/core/make_stream.h"

namespace vantrel::testing {

const std::string& own_stream() {
  static const std::string bytes = [] {
    const std::string path = ::testing::TempDir() + "own-" + std::to_string(getpid()) + ".ts";
    tools::make_stream(path);
    std::string made = stream::load(path);
    std::filesystem::remove(path);
    return made;
  }();
  return bytes;
}

}  // namespace vantrel::testing
