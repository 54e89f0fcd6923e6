// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmodule.h>

#include <cstdio>
#include <mutex>
#include <optional>
#include <string>

#include "tools/core/deadline.h"
#include "tools/core/failure.h"
#include "tools/core/hex.h"
#include "tools/core/json.h"
#include "tools/core/options.h"
#include "tools/core/pid_watch.h"
#include "tools/core/session.h"
#include "tools/vantrel/command.h"

namespace tools {
namespace {

constexpr std::uint8_t kTimeline = 0x04;
constexpr std::uint8_t kLocation = 0x05;
constexpr std::uint8_t kBaseUrl = 0x06;
/// What is live is waited for so long, where no duration is given.
constexpr double kPatience = 10;

struct TemiOptions {
  bool json = false;
  std::optional<unsigned> number;
  std::optional<double> seconds;
};

/// Reads big-endian numbers; zeros behind the end.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}

  std::uint64_t take(std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; i++, at_++)
      value = value << 8 | (at_ < bytes_.size() ? static_cast<std::uint8_t>(bytes_[at_]) : 0U);
    return value;
  }

 private:
  std::string_view bytes_;
  std::size_t at_ = 0;
};

/// A timeline descriptor (ISO/IEC 13818-1, annex U); NTP as it stands.
struct Timeline {
  explicit Timeline(std::string_view body) {
    Reader reader(body);
    const auto flags = static_cast<unsigned>(reader.take(1));
    paused = (flags & 1) != 0;
    discontinuity = (reader.take(1) & 0x80) != 0;
    id = static_cast<unsigned>(reader.take(1));
    if (const unsigned width = flags >> 6; width == 1 || width == 2) {
      timescale = static_cast<std::uint32_t>(reader.take(4));
      timestamp = reader.take(4 * width);
    }
    if ((flags & 0x20) != 0) ntp = reader.take(8);
  }

  unsigned id = 0;
  bool paused = false;
  bool discontinuity = false;
  std::optional<std::uint32_t> timescale;
  std::optional<std::uint64_t> timestamp;
  std::optional<std::uint64_t> ntp;
};

const char* kind_of(std::uint8_t tag) {
  return tag == kTimeline   ? "timeline"
         : tag == kLocation ? "location"
         : tag == kBaseUrl  ? "base-url"
                            : "unknown";
}

void print_json(std::uint8_t tag, std::string_view body) {
  Json json;
  json.object().text("kind", kind_of(tag));
  if (tag == kTimeline) {
    const Timeline timeline(body);
    json.number("timeline_id", timeline.id)
        .number_if("timescale", timeline.timescale)
        .number_if("media_timestamp", timeline.timestamp)
        .number_if("ntp_timestamp", timeline.ntp)
        .flag("paused", timeline.paused)
        .flag("discontinuity", timeline.discontinuity);
  }
  if (tag == kBaseUrl) json.text("url", std::string(body));
  json.text("data", to_hex(body)).end_object().print(true);
}

void print_text(std::uint8_t tag, std::string_view body) {
  std::printf("%-9s", kind_of(tag));
  if (tag == kTimeline) {
    const Timeline timeline(body);
    std::printf(" %3u", timeline.id);
    if (timeline.timescale && *timeline.timescale != 0)
      std::printf("  %.3f s", static_cast<double>(*timeline.timestamp) / *timeline.timescale);
    if (timeline.ntp) std::printf("  NTP %016llx", static_cast<unsigned long long>(*timeline.ntp));
    std::printf("%s%s", timeline.paused ? "  paused" : "",
                timeline.discontinuity ? "  discontinuity" : "");
  } else if (tag == kBaseUrl) {
    std::printf("  %.*s", static_cast<int>(body.size()), body.data());
  } else {
    std::printf("  %s", to_hex(body).c_str());
  }
  std::printf("\n");
  std::fflush(stdout);  // who follows a live stream waits for it
}

/// Descriptors one behind the other, cut anywhere.
class Descriptors {
 public:
  explicit Descriptors(const TemiOptions& options) : options_(options) {}

  void add(std::string_view bytes) {
    std::lock_guard lock(mutex_);
    pending_.append(bytes);
    std::size_t at = 0;
    for (std::size_t size = size_at(0); size != 0; size = size_at(at)) {
      if (!is_enough())
        print(static_cast<std::uint8_t>(pending_[at]),
              std::string_view(pending_).substr(at + 2, size - 2));
      at += size;
    }
    pending_.erase(0, at);
  }

  bool is_done() {
    std::lock_guard lock(mutex_);
    return is_enough();
  }
  bool is_empty() {
    std::lock_guard lock(mutex_);
    return count_ == 0;
  }

 private:
  /// Size of the descriptor there, 0 when it is not whole.
  [[nodiscard]] std::size_t size_at(std::size_t at) const {
    if (at + 2 > pending_.size()) return 0;
    const std::size_t size = 2U + static_cast<std::uint8_t>(pending_[at + 1]);
    return at + size <= pending_.size() ? size : 0;
  }

  void print(std::uint8_t tag, std::string_view body) {
    count_++;
    options_.json ? print_json(tag, body) : print_text(tag, body);
  }

  [[nodiscard]] bool is_enough() const {
    return (options_.number && count_ >= *options_.number) || std::ferror(stdout) != 0;
  }

  const TemiOptions& options_;
  std::mutex mutex_;  // guards the next two
  std::string pending_;
  unsigned count_ = 0;
};

void on_temi(GstElement*, guint size, gpointer data, gpointer descriptors) {
  static_cast<Descriptors*>(descriptors)->add({static_cast<const char*>(data), size});
}

/// Starting the TEMI reader is a function of the plugin, not of the element.
void start_reader(GstElement* demux) {
  using Initiate = gboolean (*)(gpointer element);
  g_autoptr(GstPlugin) plugin =
      gst_plugin_feature_get_plugin(GST_PLUGIN_FEATURE(gst_element_get_factory(demux)));
  const char* path = plugin != nullptr ? gst_plugin_get_filename(plugin) : nullptr;
  GModule* module = path != nullptr ? g_module_open(path, G_MODULE_BIND_LAZY) : nullptr;
  gpointer initiate = nullptr;
  if (module == nullptr || !g_module_symbol(module, "gst_vantrel_temi_initiate", &initiate))
    throw Failure(Status::kFailed, "this plugin reads no TEMI data");
  g_module_make_resident(module);
  reinterpret_cast<Initiate>(initiate)(demux);
}

/// Returns with the reader's thread ended: the end of the stream does not wait for
/// what it is handing out.
void read_descriptors(Input& input, const TemiOptions& options, const Deadline& patience,
                      Descriptors* descriptors) {
  Session session(input, Session::Mode::kPlay);
  g_signal_connect(session.demux(), "temi-data", G_CALLBACK(on_temi), descriptors);
  start_reader(session.demux());
  g_object_set(session.demux(), "enable", TRUE, nullptr);
  session.limit(options.seconds);
  session.run(nullptr, [&] {
    return descriptors->is_done() || (descriptors->is_empty() && patience.is_over());
  });
}

}  // namespace

void run_temi(int argc, char** argv) {
  TemiOptions options;
  const auto arguments =
      Options("INPUT", "Prints TEMI descriptors: time lines, locations and base URLs.")
          .number("number", 'n', &options.number, 1, 0xFFFFFFFF, "End after so many", "N")
          .seconds("duration", 'd', &options.seconds, "Read so much of the stream")
          .flag("json", 0, &options.json, "Print JSON, a line a descriptor")
          .parse(argc, argv, 1, 1);
  Input input(arguments[0]);
  input.forget();
  Descriptors descriptors(options);
  const Deadline patience(input.is_live() ? options.seconds.value_or(kPatience)
                                          : std::optional<double>());
  read_descriptors(input, options, patience, &descriptors);
  if (descriptors.is_empty() && !interrupted())
    throw Failure(Status::kNotFound, input.location() + ": TEMI descriptors " +
                                         (input.is_live() ? not_seen_after(patience.elapsed())
                                                          : "were not in the stream"));
}

}  // namespace tools
