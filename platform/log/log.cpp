// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/log.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "common/errno_guard.h"
#include "platform/callback_slot.h"
#include "platform/log/framework_log.h"

namespace {

using vantrel::ErrnoGuard;

qel::CallbackSlot<int, int, const char*, const char*> g_sink;

bool framework_enabled(int priority, const char* tag) {
  const GstDebugLevel level = qel::log::framework_level(priority);
  if (level > _gst_debug_min) return false;
  GstDebugCategory* category = qel::log::framework_category(tag);
  return category != nullptr && level <= gst_debug_category_get_threshold(category);
}

/// The text is complete: it names its own source, so none is given here. The
/// framework ends lines itself.
void write_to_framework(int priority, const char* tag, char* text, std::size_t length) {
  if (!framework_enabled(priority, tag)) return;
  while (length > 0 && text[length - 1] == '\n') text[--length] = '\0';
  gst_debug_log_literal(qel::log::framework_category(tag), qel::log::framework_level(priority), "",
                        "", 0, nullptr, text);
}

void write_line(int buffer, int priority, const char* tag, char* text, std::size_t length) {
  if (g_sink.is_set() && g_sink.call(buffer, priority, tag, text)) return;
  write_to_framework(priority, tag, text, length);
}

}  // namespace

void qel_log_set_sink(QelLogSink sink, void* user_data) { g_sink.set(sink, user_data); }

int qel_log_enabled(int priority, const char* tag) {
  return g_sink.is_set() || framework_enabled(priority, tag);
}

void qel_log_write(int buffer, int priority, const char* tag, const char* format, ...) {
  if (!qel_log_enabled(priority, tag)) return;
  const ErrnoGuard keep_errno;
  char line[512];
  va_list args;
  va_start(args, format);
  const int length = vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (length < 0) return;
  if (static_cast<std::size_t>(length) < sizeof line) {
    write_line(buffer, priority, tag, line, static_cast<std::size_t>(length));
    return;
  }
  std::string text(static_cast<std::size_t>(length), '\0');
  va_start(args, format);
  vsnprintf(text.data(), text.size() + 1, format, args);
  va_end(args);
  write_line(buffer, priority, tag, text.data(), text.size());
}
