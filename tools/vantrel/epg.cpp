// SPDX-License-Identifier: LGPL-2.1-or-later
#include <glib.h>

#include <cstdio>
#include <set>

#include "tools/core/discover.h"
#include "tools/core/epg.h"
#include "tools/core/failure.h"
#include "tools/core/json.h"
#include "tools/core/options.h"
#include "tools/core/session.h"
#include "tools/vantrel/command.h"

namespace tools {
namespace {

using Guides = std::map<ServiceKey, Guide>;

constexpr unsigned kEitPid = 0x12;
constexpr unsigned kAtscPid = 0x1FFB;
/// What is live is read for so long: present and following come every 2 s, a
/// schedule every 10 s or slower.
constexpr double kGuideSeconds = 12;

struct EpgOptions {
  bool json = false;
  bool now = false;
  bool long_texts = false;
  bool utc = false;
  std::string service;
  std::optional<double> seconds;
};

std::string time_text(std::int64_t seconds, const char* format, bool utc) {
  if (seconds == 0) return "undefined";
  g_autoptr(GDateTime) time =
      utc ? g_date_time_new_from_unix_utc(seconds) : g_date_time_new_from_unix_local(seconds);
  g_autofree gchar* text = g_date_time_format(time, format);
  return text;
}

/// Filters for all PIDs with a guide; for ATSC's as an MGT names them.
class GuideFilters {
 public:
  GuideFilters(Session& session, const Psi& psi) : session_(session), psi_(psi) {
    watch(kEitPid);
    watch(kAtscPid);
    watch_named();
  }

  /// In the thread that sections come in.
  void add(unsigned pid, std::string_view section) {
    if (pid != kAtscPid) return;
    psi_.add(pid, section);
    watch_named();
  }

 private:
  void watch_named() {
    for (const auto& [pid, name] : psi_.guide_pids()) watch(pid);
  }

  void watch(unsigned pid) {
    if (watched_.insert(pid).second) session_.add_filter({.pid = pid, .check_crc = true});
  }

  Session& session_;
  Psi psi_;
  std::set<unsigned> watched_;
};

void read_guides(Input& input, const Psi& psi, const std::optional<double>& seconds, Epg* epg) {
  Session session(input, Session::Mode::kPlay);
  GuideFilters filters(session, psi);
  session.on_section([&](unsigned pid, std::string_view section) {
    epg->add(pid, section);
    filters.add(pid, section);
  });
  session.limit(seconds);
  Progress progress("reading the guide", input.size());
  session.run(&progress);
}

std::string name_of(const Psi& psi, const ServiceKey& key, const Guide& guide) {
  const auto found = psi.programmes().find(key.service_id);
  return guide.actual && found != psi.programmes().end() ? found->second.name : "";
}

const char* title_of(const Event& event) {
  return event.undecoded       ? "(in ARIB's characters, which are not decoded)"
         : event.title.empty() ? "(no title)"
                               : event.title.c_str();
}

void print_event(const char* what, const Event& event, const EpgOptions& options) {
  std::printf("  %-5s %s - %s  %s%s%s\n", what,
              time_text(event.start, "%a %d %b %H:%M", options.utc).c_str(),
              time_text(event.start + event.duration, "%H:%M", options.utc).c_str(),
              title_of(event), event.text.empty() || !options.long_texts ? "" : ": ",
              options.long_texts ? event.text.c_str() : "");
  if (options.long_texts && !event.extended.empty())
    std::printf("        %s\n", event.extended.c_str());
}

void print_text(const Psi& psi, const Guides& guides, const EpgOptions& options) {
  for (const auto& [key, guide] : guides) {
    if (!guide.actual && !guide.present && !guide.following && guide.schedule.empty()) continue;
    const std::string name = name_of(psi, key, guide);
    std::printf("%u  %s%s", key.service_id, name.empty() ? "(no name)" : name.c_str(),
                guide.actual ? "" : "  [other transport stream]");
    if (guide.missing > 0) std::printf("  [incomplete: %u sections missing]", guide.missing);
    std::printf("\n");
    if (guide.present) print_event("now", *guide.present, options);
    if (guide.following) print_event("next", *guide.following, options);
    if (options.now) continue;
    for (const Event& event : guide.schedule) print_event("", event, options);
  }
}

void add_event(Json& json, const Event& event) {
  json.number("id", event.id);
  if (event.start != 0) json.text("start", time_text(event.start, "%Y-%m-%dT%H:%M:%SZ", true));
  json.number("duration", event.duration)
      .number("running_status", event.running_status)
      .flag("scrambled", event.scrambled)
      .flag("undecoded", event.undecoded)
      .text_if("language", event.language)
      .text_if("title", event.title)
      .text_if("text", event.text)
      .text_if("extended", event.extended);
}

void add_optional(Json& json, const char* name, const std::optional<Event>& event) {
  if (!event) return;
  json.object(name);
  add_event(json, *event);
  json.end_object();
}

void print_json(const Psi& psi, const Guides& guides, const EpgOptions& options) {
  Json json;
  json.object().list("services", guides, [&](const auto& entry) {
    const auto& [key, guide] = entry;
    json.number("service_id", key.service_id)
        .number("transport_stream_id", key.transport_stream_id)
        .number("original_network_id", key.original_network_id)
        .text_if("name", name_of(psi, key, guide))
        .flag("actual", guide.actual)
        .number("missing_sections", guide.missing);
    add_optional(json, "present", guide.present);
    add_optional(json, "following", guide.following);
    if (!options.now)
      json.list("schedule", guide.schedule, [&](const Event& event) { add_event(json, event); });
  });
  json.end_object().print();
}

/// Keeps the one that was asked for; Failure when it has no guide.
void choose(const Psi& psi, const std::string& wanted, Guides* guides) {
  std::erase_if(*guides, [&](const auto& entry) {
    const std::string name = name_of(psi, entry.first, entry.second);
    return wanted != std::to_string(entry.first.service_id) &&
           g_ascii_strcasecmp(name.c_str(), wanted.c_str()) != 0;
  });
  if (!guides->empty()) return;
  const Programme& programme = choose_service(psi, wanted);
  throw Failure(Status::kNotFound,
                "there is no guide for service " + std::to_string(programme.number));
}

}  // namespace

void run_epg(int argc, char** argv) {
  EpgOptions options;
  const auto arguments =
      Options("INPUT", "Prints present and following events and the schedule of each service.")
          .flag("json", 0, &options.json, "Print JSON")
          .flag("now", 'n', &options.now, "Present and following events only")
          .flag("long", 'l', &options.long_texts, "Descriptions too")
          .flag("utc", 'u', &options.utc, "Times in UTC, not in the local time zone")
          .text("service", 's', &options.service, "This service only", "NAME|NUMBER")
          .seconds("duration", 'd', &options.seconds,
                   "Read so much of the stream (live: 12 s, files: all)")
          .parse(argc, argv, 1, 1);
  Input input(arguments[0]);
  if (input.is_live() && !options.seconds) options.seconds = kGuideSeconds;
  const Psi psi = discover(input);
  input.forget();
  Epg epg;
  read_guides(input, psi, options.seconds, &epg);
  Guides guides = epg.guides();
  if (!options.service.empty()) choose(psi, options.service, &guides);
  if (guides.empty() && !interrupted())
    throw Failure(Status::kNotFound,
                  input.location() + ": no event information in it (PID 18, or ATSC's tables)");
  options.json ? print_json(psi, guides, options) : print_text(psi, guides, options);
}

}  // namespace tools
