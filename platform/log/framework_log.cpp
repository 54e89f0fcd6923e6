// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/log/framework_log.h"

#include <qel/log.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>

namespace qel::log {
namespace {

constexpr std::array<GstDebugLevel, QEL_LOG_ERROR - QEL_LOG_DEBUG + 1> kLevels = {
    GST_LEVEL_DEBUG, GST_LEVEL_INFO, GST_LEVEL_WARNING, GST_LEVEL_ERROR};

/// Categories found so far, by the address of the tag: categories live as long
/// as the process, as tags do. A miss is never kept, since a plugin that loads
/// later may register the category then.
class CategoryCache {
 public:
  GstDebugCategory* find(const char* tag) const {
    const std::size_t count = count_.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < count; ++i)
      if (entries_[i].tag == tag) return entries_[i].category;
    return nullptr;
  }

  void add(const char* tag, GstDebugCategory* category) {
    const std::lock_guard lock(mutex_);
    const std::size_t count = count_.load(std::memory_order_relaxed);
    if (count == entries_.size() || find(tag) != nullptr) return;
    entries_[count] = {tag, category};
    count_.store(count + 1, std::memory_order_release);
  }

 private:
  struct Entry {
    const char* tag;
    GstDebugCategory* category;
  };

  std::mutex mutex_;                 // writers only
  std::array<Entry, 16> entries_{};  // immutable below count_
  std::atomic<std::size_t> count_{0};
};

CategoryCache g_categories;

}  // namespace

GstDebugLevel framework_level(int priority) {
  const int row = std::clamp(priority, QEL_LOG_DEBUG, QEL_LOG_ERROR) - QEL_LOG_DEBUG;
  return kLevels[static_cast<std::size_t>(row)];
}

GstDebugCategory* framework_category(const char* tag) {
  if (GstDebugCategory* known = g_categories.find(tag)) return known;
  GstDebugCategory* category = nullptr;
  GST_DEBUG_CATEGORY_GET(category, tag);
  if (category == nullptr) return GST_CAT_DEFAULT;
  g_categories.add(tag, category);
  return category;
}

}  // namespace qel::log
