// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gst/gst.h>
#include <gtest/gtest.h>
#include <qel/log.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

struct Line {
  std::string category;
  GstDebugLevel level;
  std::string text;
};

/// Collects what reaches the framework's debug log while it lives.
class FrameworkLog {
 public:
  FrameworkLog() { gst_debug_add_log_function(collect, this, nullptr); }
  ~FrameworkLog() { gst_debug_remove_log_function_by_data(this); }

  std::vector<Line> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  static void collect(GstDebugCategory* category, GstDebugLevel level, const gchar*, const gchar*,
                      gint, GObject*, GstDebugMessage* message, gpointer user_data) {
    auto* self = static_cast<FrameworkLog*>(user_data);
    const std::lock_guard lock(self->mutex_);
    self->lines_.push_back(
        {gst_debug_category_get_name(category), level, gst_debug_message_get(message)});
  }

  std::mutex mutex_;
  std::vector<Line> lines_;  // guarded by mutex_
};

struct SinkCall {
  int buffer;
  int priority;
  std::string tag;
  std::string text;
};

void collect_sink_call(int buffer, int priority, const char* tag, const char* text, void* data) {
  static_cast<std::vector<SinkCall>*>(data)->push_back({buffer, priority, tag, text});
}

class Log : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    gst_init(nullptr, nullptr);
    gst_debug_remove_log_function(gst_debug_log_default);
  }
  void SetUp() override { gst_debug_set_default_threshold(GST_LEVEL_NONE); }
  void TearDown() override {
    qel_log_set_sink(nullptr, nullptr);
    gst_debug_set_default_threshold(GST_LEVEL_NONE);
  }
};

TEST_F(Log, PriorityReachesTheWrongLevel) {
  static const char kTag[] = "levels";
  GstDebugCategory* category = nullptr;
  GST_DEBUG_CATEGORY_INIT(category, kTag, 0, "test");
  constexpr struct {
    int priority;
    GstDebugLevel level;
  } kRows[] = {{QEL_LOG_DEBUG, GST_LEVEL_DEBUG},
               {QEL_LOG_INFO, GST_LEVEL_INFO},
               {QEL_LOG_WARNING, GST_LEVEL_WARNING},
               {QEL_LOG_ERROR, GST_LEVEL_ERROR}};
  FrameworkLog log;
  for (const auto& row : kRows) {
    gst_debug_category_set_threshold(category, static_cast<GstDebugLevel>(row.level - 1));
    EXPECT_FALSE(qel_log_enabled(row.priority, kTag)) << row.priority;
    qel_log_write(QEL_LOG_BUFFER_MAIN, row.priority, kTag, "%s", "too low");
    EXPECT_TRUE(log.take().empty()) << row.priority;

    gst_debug_category_set_threshold(category, row.level);
    EXPECT_TRUE(qel_log_enabled(row.priority, kTag)) << row.priority;
    qel_log_write(QEL_LOG_BUFFER_MAIN, row.priority, kTag, "%s: %s(%d) > pid %d", "file", "f", 7,
                  row.priority);
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1U) << row.priority;
    EXPECT_EQ(lines[0].category, kTag);
    EXPECT_EQ(lines[0].level, row.level);
    EXPECT_EQ(lines[0].text, "file: f(7) > pid " + std::to_string(row.priority));
  }
}

TEST_F(Log, CategoryRegisteredAfterTheFirstLineIsNeverFound) {
  static const char kTag[] = "latecomer";
  FrameworkLog log;
  gst_debug_set_default_threshold(GST_LEVEL_INFO);
  qel_log_write(QEL_LOG_BUFFER_MAIN, QEL_LOG_INFO, kTag, "%s", "early");
  auto lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].category, gst_debug_category_get_name(GST_CAT_DEFAULT));

  GstDebugCategory* category = nullptr;
  GST_DEBUG_CATEGORY_INIT(category, kTag, 0, "test");
  qel_log_write(QEL_LOG_BUFFER_MAIN, QEL_LOG_INFO, kTag, "%s", "late");
  lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].category, kTag);
}

TEST_F(Log, MoreTagsThanAreRememberedMixUpCategories) {
  constexpr int kTags = 40;
  static std::string tags[kTags];
  for (int i = 0; i < kTags; ++i) {
    tags[i] = "tag" + std::to_string(i);
    GstDebugCategory* category = nullptr;
    GST_DEBUG_CATEGORY_INIT(category, tags[i].c_str(), 0, "test");
    gst_debug_category_set_threshold(category, GST_LEVEL_ERROR);
  }
  FrameworkLog log;
  for (int round = 0; round < 2; ++round)
    for (const auto& tag : tags) {
      qel_log_write(QEL_LOG_BUFFER_MAIN, QEL_LOG_ERROR, tag.c_str(), "%s", "x");
      const auto lines = log.take();
      ASSERT_EQ(lines.size(), 1U);
      EXPECT_EQ(lines[0].category, tag);
    }
}

TEST_F(Log, LongLineIsCutOrLosesItsEnd) {
  std::vector<SinkCall> calls;
  qel_log_set_sink(collect_sink_call, &calls);
  for (const std::size_t size : {0U, 1U, 510U, 511U, 512U, 513U, 100000U}) {
    const std::string text(size, 'x');
    qel_log_write(QEL_LOG_BUFFER_SYSTEM, QEL_LOG_DEBUG, "long", "%s", text.c_str());
    qel_log_write(QEL_LOG_BUFFER_SYSTEM, QEL_LOG_DEBUG, "long", "%s\n", text.c_str());
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].text, text);
    EXPECT_EQ(calls[1].text, text + "\n");
    calls.clear();
  }
}

TEST_F(Log, SinkMissesBufferPriorityOrTagOrLeaksToTheFramework) {
  std::vector<SinkCall> calls;
  FrameworkLog log;
  gst_debug_set_default_threshold(GST_LEVEL_WARNING);
  qel_log_set_sink(collect_sink_call, &calls);
  log.take();
  qel_log_write(QEL_LOG_BUFFER_SYSTEM, QEL_LOG_WARNING, "tag", "%d", 5);
  EXPECT_TRUE(qel_log_enabled(QEL_LOG_DEBUG, "tag")) << "whatever the framework's level";
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].buffer, QEL_LOG_BUFFER_SYSTEM);
  EXPECT_EQ(calls[0].priority, QEL_LOG_WARNING);
  EXPECT_EQ(calls[0].tag, "tag");
  EXPECT_TRUE(log.take().empty());

  qel_log_set_sink(nullptr, nullptr);
  qel_log_write(QEL_LOG_BUFFER_SYSTEM, QEL_LOG_WARNING, "tag", "%d", 5);
  EXPECT_EQ(calls.size(), 1U);
  EXPECT_EQ(log.take().size(), 1U);
  EXPECT_FALSE(qel_log_enabled(QEL_LOG_DEBUG, "tag"));
}

TEST_F(Log, LineChangesErrno) {
  qel_log_set_sink([](int, int, const char*, const char*, void*) { errno = ENOTTY; }, nullptr);
  errno = EOVERFLOW;
  qel_log_write(QEL_LOG_BUFFER_MAIN, QEL_LOG_ERROR, "tag", "%s", "x");
  EXPECT_EQ(errno, EOVERFLOW);
}

TEST_F(Log, FormerSinkRunsAfterItWasReplaced) {
  struct Owner {
    std::atomic<bool> alive{true};
    std::atomic<int> calls{0};
  };
  std::atomic<bool> stop{false};
  std::atomic<int> late_calls{0};
  static std::atomic<int>* late = &late_calls;
  const QelLogSink sink = [](int, int, const char*, const char*, void* data) {
    auto* owner = static_cast<Owner*>(data);
    ++owner->calls;
    if (!owner->alive) ++*late;
  };
  std::vector<std::thread> writers;
  for (int i = 0; i < 3; ++i)
    writers.emplace_back([&stop] {
      while (!stop) qel_log_write(QEL_LOG_BUFFER_MAIN, QEL_LOG_DEBUG, "race", "%d", 1);
    });
  std::vector<std::unique_ptr<Owner>> owners;
  for (int round = 0; round < 200; ++round) {
    owners.push_back(std::make_unique<Owner>());
    qel_log_set_sink(sink, owners.back().get());
    while (owners.back()->calls == 0) std::this_thread::yield();
    qel_log_set_sink(nullptr, nullptr);
    owners.back()->alive = false;
  }
  stop = true;
  for (auto& writer : writers) writer.join();
  EXPECT_EQ(late_calls, 0);
}

}  // namespace
