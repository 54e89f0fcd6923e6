// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/node_manager/trace.h"

#include <fcntl.h>
#include <qel/marker.h>
#include <qel/trace.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "common/errno_guard.h"
#include "platform/callback_slot.h"
#include "platform/log/log_line.h"
#include "platform/node_manager/errno_name.h"
#include "platform/node_manager/requests.h"
#include "platform/node_manager/watch.h"
#include "platform/receiver/user_memory.h"

namespace qel::trace {
namespace {

/// The file of QEL_TRACE: opened at most once, and for the life of the process.
struct File {
  std::mutex mutex;  // keeps lines whole
  int fd = -1;
  bool reads = false;
} g_file;  // fd and reads: constant once the environment is read

CallbackSlot<const char*> g_callback;
std::atomic<bool> g_callback_reads{false};

void write_whole(int fd, std::string_view text) {
  const std::lock_guard lock(g_file.mutex);
  while (!text.empty()) {
    const ssize_t count = ::write(fd, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

/// A line under construction; it goes out when it goes out of scope.
class Line {
 public:
  enum class Kind { kCall, kRead };

  explicit Line(Kind kind = Kind::kCall) : kind_(kind) {
    const gint64 now = g_get_monotonic_time();
    add("%" G_GINT64_FORMAT ".%06d %d ", now / G_USEC_PER_SEC,
        static_cast<int>(now % G_USEC_PER_SEC), static_cast<int>(gettid()));
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  ~Line() {
    const bool read = kind_ == Kind::kRead;
    if (!read || g_callback_reads.load(std::memory_order_relaxed)) g_callback.call(text_->str);
    if (g_file.fd >= 0 && (!read || g_file.reads)) {
      g_string_append_c(text_, '\n');
      write_whole(g_file.fd, {text_->str, text_->len});
    }
    g_string_free(text_, TRUE);
  }

  [[gnu::format(printf, 2, 3)]] void add(const char* format, ...) {
    va_list args;
    va_start(args, format);
    g_string_append_vprintf(text_, format, args);
    va_end(args);
  }
  void add_name(const char* name) {
    if (name == nullptr)
      add("NULL");
    else
      append_quoted(text_, name);
  }
  void add_result(long result) {
    if (result < 0)
      add(" = -1 %s", errno_name(static_cast<int>(-result)));
    else
      add(" = %ld", result);
  }
  void add_record(void (*print)(GString*, const void*), const void* record) {
    print(text_, record);
  }

 private:
  const vantrel::ErrnoGuard keep_errno_;
  const Kind kind_;
  GString* const text_ = g_string_sized_new(256);
};

const char* or_null(const char* name) { return name != nullptr ? name : "NULL"; }

/// Decodes a record, in the caller's memory still, around the result.
void add_record_and_result(Line& line, const Request& request, const void* argument, long result) {
  alignas(std::max_align_t) unsigned char record[kMaxRecord];
  const bool readable =
      argument != nullptr && receiver::copy_from_user(record, argument, request.size);
  if (readable && request.print_in != nullptr) {
    line.add(", ");
    line.add_record(request.print_in, record);
  } else if (argument == nullptr) {
    line.add(", NULL");
  } else if (!readable) {
    line.add(", %p", argument);
  }
  line.add(")");
  line.add_result(result);
  if (readable && result >= 0 && request.print_out != nullptr) {
    line.add(" => ");
    line.add_record(request.print_out, record);
  }
}

}  // namespace

void read_environment() {
  const char* name = secure_getenv("QEL_TRACE");
  if (name == nullptr || *name == '\0') return;
  g_file.fd = std::strcmp(name, "-") == 0
                  ? STDERR_FILENO
                  : ::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
  if (g_file.fd < 0) {
    QEL_LOG_LINE(QEL_LOG_WARNING, "trace file %s: %s", name, g_strerror(errno));
    return;
  }
  const char* reads = secure_getenv("QEL_TRACE_READS");
  g_file.reads = reads != nullptr && std::strcmp(reads, "1") == 0;
  set_watch(kTraceCalls | kTraceReads, kTraceCalls | (g_file.reads ? kTraceReads : 0U));
}

void open(const char* name, int flags, long result) {
  Line line;
  line.add("open(");
  line.add_name(name);
  line.add(", %#x)", static_cast<unsigned>(flags));
  line.add_result(result);
}

void close(const char* name, int fd, long result) {
  Line line;
  line.add("close(");
  line.add_name(name);
  line.add(", %d)", fd);
  line.add_result(result);
}

void path(const char* name, const char* result, int error) {
  Line line;
  line.add("path(");
  line.add_name(name);
  line.add(")");
  if (result == nullptr) return line.add_result(-error);
  line.add(" = ");
  line.add_name(result);
}

void control(int fd, const char* name, unsigned long request, const void* argument, long result) {
  Line line;
  line.add("ioctl(%d<%s>, ", fd, or_null(name));
  const Request* known = find_request(static_cast<std::uint32_t>(request));
  if (known == nullptr)
    line.add("%#x", static_cast<std::uint32_t>(request));
  else
    line.add("%s", known->name);
  if (known != nullptr && known->kind == ArgumentKind::kRecord)
    return add_record_and_result(line, *known, argument, result);
  if (known != nullptr && known->kind == ArgumentKind::kNumber)
    line.add(", %zu", reinterpret_cast<std::size_t>(argument));
  line.add(")");
  line.add_result(result);
}

void read(int fd, const char* name, std::size_t size, long result) {
  Line line(Line::Kind::kRead);
  line.add("read(%d<%s>, %zu)", fd, or_null(name), size);
  line.add_result(result);
}

void marker(const char* text, std::size_t length) {
  Line line;
  line.add("prctl(%d, ", QEL_MARKER_OPTION);
  line.add_name(text);
  line.add(", %zu)", length);
}

}  // namespace qel::trace

void qel_trace_set_callback(QelTraceCallback callback, void* user_data, int reads) {
  using namespace qel;
  static std::mutex mutex;  // one change at a time
  watched();
  const std::lock_guard lock(mutex);
  const bool calls = callback != nullptr;
  trace::g_callback_reads = calls && reads != 0;
  trace::g_callback.set(callback, user_data);
  const bool file = trace::g_file.fd >= 0;
  const unsigned bits = (calls || file ? kTraceCalls : 0U) |
                        (trace::g_callback_reads || trace::g_file.reads ? kTraceReads : 0U);
  set_watch(kTraceCalls | kTraceReads, bits);
}
