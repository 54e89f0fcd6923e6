// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Runs the tests of the files named as arguments, `pads` for pads_test.cpp, or
// all: a folder's tests are one program, and a process of their own each.
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

/// Names of the tests in `file` as a filter takes them; "" where there are none.
std::string tests_of(const std::string& file) {
  std::string names;
  const auto* all = testing::UnitTest::GetInstance();
  for (int i = 0; i < all->total_test_suite_count(); i++) {
    const auto* suite = all->GetTestSuite(i);
    for (int j = 0; j < suite->total_test_count(); j++) {
      const auto* test = suite->GetTestInfo(j);
      if (std::filesystem::path(test->file()).filename() == file)
        names += std::string(suite->name()) + "." + test->name() + ":";
    }
  }
  return names;
}

/// Where all programs report to a folder, this run gets a file of its own there.
void name_report(const std::string& program, const std::string& part) {
  std::string& report = testing::GTEST_FLAG(output);
  if (!report.empty() && report.back() == '/')
    report += std::filesystem::path(program).filename().string() + "-" + part + ".xml";
}

}  // namespace

int main(int argc, char** argv) {
  // Before GoogleTest takes the file's name.
  if (argc > 1 && argv[1][0] != '-') name_report(argv[0], argv[1]);
  testing::InitGoogleTest(&argc, argv);
  gst_init(&argc, &argv);
  if (argc > 1) {
    const std::string tests = tests_of(std::string(argv[1]) + "_test.cpp");
    if (tests.empty()) {
      std::fprintf(stderr, "no tests in %s_test.cpp\n", argv[1]);
      return 2;
    }
    // A death test's child comes with a filter of its own.
    if (testing::GTEST_FLAG(filter) == "*") testing::GTEST_FLAG(filter) = tests;
  }
  return RUN_ALL_TESTS();
}
