// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <qel/log.h>
#include <qel/receiver.h>
#include <qel/trace.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "tests/support/process.h"
#include "tests/support/test_node.h"

namespace {

using namespace vantrel::test;

class Faults : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(qel_faults_set(nullptr), 0); }
};

/// The errno of each of six STOP requests, 0 for success, as digits: 1 where
/// the request failed.
std::string failing_stops(const TestNode& node) {
  std::string pattern;
  for (int i = 0; i < 6; ++i) pattern += node.control(KWRX_DMX_STOP) == 0 ? '0' : '1';
  return pattern;
}

TEST_F(Faults, RuleHitsOtherCallsThanItCounts) {
  constexpr struct {
    const char* which;
    const char* pattern;
  } kRows[] = {{"1", "100000"}, {"3", "001000"},   {"2-4", "011100"}, {"2-", "011111"},
               {"*", "111111"}, {"2-2", "010000"}, {"7", "000000"},   {"6-900", "000001"}};
  const TestNode node("qel_demux0");
  for (const auto& row : kRows) {
    const std::string rule = std::string("qel_demux0 KWRX_DMX_STOP ") + row.which + " EIO\n";
    ASSERT_EQ(qel_faults_set(rule.c_str()), 0) << rule;
    EXPECT_EQ(failing_stops(node), row.pattern) << rule;
  }
}

TEST_F(Faults, RuleCountsCallsThatAreNotItsOwn) {
  const TestNode node("qel_demux0");
  const TestNode other("qel_demux1");
  ASSERT_EQ(qel_faults_set("qel_demux0 KWRX_DMX_STOP 1 EIO\n* KWRX_DMX_STOP 3 EBUSY\n"), 0);
  EXPECT_EQ(other.control(KWRX_DMX_STOP), 0);
  EXPECT_EQ(node.section(100), 0);
  EXPECT_EQ(node.control(KWRX_DMX_STOP), -EIO);
  EXPECT_EQ(other.control(KWRX_DMX_STOP), -EBUSY);
}

TEST_F(Faults, ErrnoNameIsUnknownOrAnother) {
  for (int error = 1; error < 134; ++error) {
    const char* name = strerrorname_np(error);
    if (name == nullptr) continue;
    ASSERT_EQ(qel_faults_set((std::string("* open * ") + name).c_str()), 0) << name;
    EXPECT_EQ(TestNode("qel_demux0").error, error) << name;
  }
  EXPECT_EQ(qel_faults_set("* open * EWOULDBLOCK\n* read * ENOTSUP\n"), 0);
}

TEST_F(Faults, ScriptThatDoesNotParseIsTaken) {
  constexpr struct {
    const char* script;
    int line;
  } kRows[] = {
      {"", 0},
      {"# comment\n\n \t\n", 0},
      {"\t*\topen  *  EIO \r\n", 0},
      {"* open * EIO # comment", 0},
      {"* open * EIO\n\n* open", 3},
      {"* open * EIO extra", 1},
      {"* open # * EIO", 1},
      {"* fly * EIO", 1},
      {"* KWRX_DMX_STOPP * EIO", 1},
      {"* open 0 EIO", 1},
      {"* open 0-3 EIO", 1},
      {"* open 4-2 EIO", 1},
      {"* open -2 EIO", 1},
      {"* open 2-x EIO", 1},
      {"* open 2x EIO", 1},
      {"* open 99999999999999999999 EIO", 1},
      {"* open * EWHAT", 1},
      {"* open * 5", 1},
      {"* open * overflow", 1},
      {"* open * short=1", 1},
      {"* KWRX_DMX_STOP * short=1", 1},
      {"* read * short=", 1},
      {"* read * short=0", 1},
      {"* read * short=x", 1},
      {"* read * short=188\n* KWRX_DMX_STOP * overflow", 0},
  };
  for (const auto& row : kRows) EXPECT_EQ(qel_faults_set(row.script), row.line) << row.script;
}

TEST_F(Faults, BadScriptDropsTheRulesThatHold) {
  ASSERT_EQ(qel_faults_set("* open 2- EMFILE"), 0);
  const TestNode first("qel_demux0");
  EXPECT_TRUE(first);
  EXPECT_EQ(qel_faults_set("* open"), 1);
  EXPECT_FALSE(TestNode("qel_demux0"));
  EXPECT_EQ(qel_faults_set(""), 0);
  EXPECT_TRUE(TestNode("qel_demux0"));
}

TEST_F(Faults, FailingCallStillActs) {
  const TestNode node("qel_demux2");
  ASSERT_EQ(qel_faults_set("qel_demux2 KWRX_DMX_SET_FILTER 1 EINVAL"), 0);
  EXPECT_EQ(node.section(100), -EINVAL);
  EXPECT_EQ(qel_receiver_has_stream_nodes(2), 1);
}

class FaultyReads : public Faults {
 protected:
  /// A section of 20 bytes waits on the node.
  void SetUp() override {
    ASSERT_EQ(node_.section(100), 0);
    feed_section();
  }
  void feed_section() {
    static stream::Multiplex multiplex;
    const stream::Bytes data = multiplex.sections(100, {kSection});
    ASSERT_EQ(qel_receiver_feed(4, DMX_IN_FRONTEND, data.data(), data.size()), 0);
  }

  const stream::Bytes kSection = stream::short_section(0x42, 20);
  TestNode node_{"qel_demux4"};
};

TEST_F(FaultyReads, ReadIsNotShortenedOrLosesData) {
  ASSERT_EQ(qel_faults_set("qel_demux4 read 1 short=7"), 0);
  EXPECT_EQ(node_.read(), stream::slice(kSection, 0, 7));
  EXPECT_EQ(node_.read(), stream::slice(kSection, 7, 13));
}

TEST_F(FaultyReads, FailedReadTakesData) {
  ASSERT_EQ(qel_faults_set("qel_demux4 read 1 EIO"), 0);
  EXPECT_EQ(node_.drain(), (std::vector{-EIO, 20}));
}

TEST_F(FaultyReads, OverflowIsNotReportedOnce) {
  ASSERT_EQ(qel_faults_set("* read 2 overflow\n* KWRX_DMX_GET_STC * overflow"), 0);
  EXPECT_EQ(node_.drain(), (std::vector{20, -EOVERFLOW}));
  dmx_stc stc{};
  node_.control(KWRX_DMX_GET_STC, &stc);
  EXPECT_TRUE(node_.readable());
  feed_section();
  EXPECT_EQ(node_.drain(), (std::vector{-EOVERFLOW, 20}));
  feed_section();
  node_.control(KWRX_DMX_GET_STC, &stc);
  feed_section();
  EXPECT_EQ(node_.drain(), (std::vector{20, -EOVERFLOW, 20}));
  const TestNode without_buffer("qel_demux4");
  without_buffer.control(KWRX_DMX_GET_STC, &stc);
  EXPECT_FALSE(without_buffer.readable());
}

// The environment is read once in a process: each of these has its own.
class FaultsFile : public testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    path_ = own_file("vantrel-faults");
  }
  void TearDown() override { unlink(path_.c_str()); }
  void write(const char* text) { std::ofstream(path_) << text; }

  /// Prints what is logged, and the errno of two opens.
  [[noreturn]] void open_twice() const {
    setenv("QEL_FAULTS", path_.c_str(), 1);
    qel_log_set_sink(
        [](int, int, const char*, const char* text, void*) { std::fprintf(stderr, "%s\n", text); },
        nullptr);
    for (int i = 0; i < 2; ++i) {
      errno = 0;
      qel_device_open("qel_demux0", O_NONBLOCK);
      std::fprintf(stderr, "open: %s\n", errno != 0 ? strerrorname_np(errno) : "fine");
    }
    if (qel_faults_set("") == 0 && qel_device_open("qel_demux0", O_NONBLOCK) > 0)
      std::fprintf(stderr, "cleared\n");
    _exit(0);
  }

  std::string path_;
};

TEST_F(FaultsFile, RulesAreNotTaken) {
  write("# for a test\nqel_demux0 open 2 EMFILE\n");
  EXPECT_EXIT(open_twice(), testing::ExitedWithCode(0), "open: fine\nopen: EMFILE\ncleared");
}

TEST_F(FaultsFile, FileThatDoesNotParseGoesUnnoticed) {
  write("* open 9 EIO\n* read 1 EWHAT\n");
  EXPECT_EXIT(open_twice(), testing::ExitedWithCode(0),
              path_ + ":2: .*\nopen: EINVAL\nopen: EINVAL\ncleared");
}

TEST_F(FaultsFile, MissingFileGoesUnnoticed) {
  EXPECT_EXIT(open_twice(), testing::ExitedWithCode(0),
              path_ + ".*\nopen: EINVAL\nopen: EINVAL\ncleared");
}

}  // namespace
