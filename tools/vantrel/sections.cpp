// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/receiver.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <mutex>

#include "tools/core/discover.h"
#include "tools/core/failure.h"
#include "tools/core/hex.h"
#include "tools/core/json.h"
#include "tools/core/options.h"
#include "tools/core/output.h"
#include "tools/core/pid_watch.h"
#include "tools/core/section_text.h"
#include "tools/core/session.h"
#include "tools/vantrel/command.h"

namespace tools {
namespace {

constexpr unsigned kMostFilters = 96;
constexpr unsigned kUsualPids[] = {0x00, 0x01, 0x10, 0x11, 0x12, 0x14, 0x1FFB};

struct SectionOptions {
  bool json = false;
  bool raw = false;
  bool force = false;
  bool counts = false;
  bool crc = false;
  bool changed = false;
  std::string output = "-";
  std::vector<std::string> pids;
  std::optional<unsigned> table_id;
  std::optional<unsigned> extension;
  std::optional<unsigned> number;
  std::optional<double> seconds;
  std::string match;
  std::string mask;
  std::string mode;
};

/// Prints each section in the format that was asked for.
class Printer {
 public:
  explicit Printer(const SectionOptions& options) : options_(options) {
    if (options.raw) output_.emplace(options.output, options.force);
  }

  void print(unsigned pid, std::string_view section) {
    if (is_done() || (options_.changed && !memory_.is_new(pid, section))) return;
    printed_++;
    counts_.add(pid, section);
    if (options_.counts) return;
    if (output_) return output_->write(section);
    if (options_.json) {
      Json json;
      json.object();
      add_section(json, pid, section);
      json.end_object().print(true);
      return;
    }
    std::printf("%s\n%s\n", describe_section(pid, section).c_str(), hex_dump(section).c_str());
    std::fflush(stdout);  // who follows a live stream waits for it
  }

  /// Enough, or nobody reads.
  [[nodiscard]] bool is_done() const {
    return (options_.number && printed_ >= *options_.number) || std::ferror(stdout) != 0 ||
           (output_ && output_->is_closed());
  }

  void finish() {
    if (output_) output_->finish();
    if (options_.counts) options_.json ? print_json() : print_table();
  }

  [[nodiscard]] std::uint64_t printed() const { return printed_; }

 private:
  void print_table() const {
    std::printf("  %-13s  %-20s %9s %11s %9s %7s %7s\n", "PID", "table", "sections", "bytes",
                "CRC good", "bad", "none");
    for (const auto& [key, count] : counts_.counts())
      std::printf("  %5u 0x%04x  %-20s %9" PRIu64 " %11" PRIu64 " %9" PRIu64 " %7" PRIu64
                  " %7" PRIu64 "\n",
                  key.first, key.first, table_name(key.second).c_str(), count.sections, count.bytes,
                  count.good_crc, count.bad_crc, count.without_crc);
  }

  void print_json() const {
    Json json;
    json.object().list("tables", counts_.counts(), [&](const auto& entry) {
      json.number("pid", entry.first.first)
          .number("table_id", entry.first.second)
          .text("table", table_name(entry.first.second))
          .number("sections", entry.second.sections)
          .number("bytes", entry.second.bytes)
          .number("crc_good", entry.second.good_crc)
          .number("crc_bad", entry.second.bad_crc)
          .number("crc_none", entry.second.without_crc);
    });
    json.end_object().print();
  }

  const SectionOptions& options_;
  std::optional<Output> output_;
  SectionCounts counts_;
  SectionMemory memory_;
  std::uint64_t printed_ = 0;
};

/// Those that carry tables, by what the stream says of itself.
std::set<unsigned> table_pids(Input& input) {
  const Psi psi = discover(input);
  std::set<unsigned> pids(std::begin(kUsualPids), std::end(kUsualPids));
  pids.insert(psi.emm_pids().begin(), psi.emm_pids().end());
  for (const auto& [number, programme] : psi.programmes()) {
    if (programme.pmt_pid != Programme::kNoPid) pids.insert(programme.pmt_pid);
    pids.insert(programme.ca_pids.begin(), programme.ca_pids.end());
    for (const StreamInfo& stream : programme.streams)
      pids.insert(stream.ca_pids.begin(), stream.ca_pids.end());
  }
  return pids;
}

std::set<unsigned> chosen_pids(const SectionOptions& options) {
  std::set<unsigned> pids;
  for (const std::string& pid : options.pids)
    pids.insert(parse_number("--pid", pid, 0, Programme::kNoPid));
  return pids;
}

void copy(const std::string& bytes, std::array<std::uint8_t, 15>* to) {
  std::copy(bytes.begin(), bytes.end(), to->begin());
}

/// A filter as the options describe it, of no PID yet.
SectionRequest request_of(const SectionOptions& options) {
  SectionRequest request;
  request.changed_only = options.changed;
  request.check_crc = options.crc;
  request.table_id = options.table_id.value_or(SectionRequest::kAny);
  request.extension = options.extension.value_or(0);
  if (options.match.empty() && options.mask.empty() && options.mode.empty()) return request;
  const std::size_t most = request.match.size();
  const std::string match = parse_hex("--match", options.match, most);
  const std::string all(match.size(), '\xFF');
  const std::string none(match.size(), '\0');
  const std::string mask = options.mask.empty() ? all : parse_hex("--mask", options.mask, most);
  const std::string mode = options.mode.empty() ? none : parse_hex("--mode", options.mode, most);
  if (mask.size() != match.size() || mode.size() != match.size())
    throw Failure(Status::kUsage, "--match, --mask and --mode have to be of one length");
  copy(match, &request.match);
  copy(mask, &request.mask);
  copy(mode, &request.mode);
  request.length = static_cast<unsigned>(match.size());
  return request;
}

/// Why there is nothing.
[[noreturn]] void fail_empty(const Input& input, const std::set<unsigned>& pids,
                             const PidWatch& watch) {
  std::string text;
  for (const unsigned pid : pids) {
    if (watch.rates().pid(pid).packets == 0) continue;
    qel_pid_counters counters = {};
    qel_receiver_get_pid_counters(0, input.is_live() ? DMX_IN_FRONTEND : DMX_IN_DVR, pid,
                                  &counters);
    text += (text.empty() ? "PID " : "; PID ") + std::to_string(pid) +
            (counters.sections == 0 ? " carries no whole section"
                                    : " came by, but no section passed the filter");
  }
  const std::string missing = watch.missing();
  throw Failure(Status::kNotFound, text + (text.empty() || missing.empty() ? "" : "; ") + missing);
}

void read_sections(Input& input, const std::set<unsigned>& pids, SectionRequest request,
                   const SectionOptions& options) {
  Printer printer(options);
  Session session(input, Session::Mode::kPlay);
  std::mutex mutex;  // guards printer
  session.on_section([&](unsigned pid, std::string_view section) {
    std::lock_guard lock(mutex);
    printer.print(pid, section);
  });
  for (const unsigned pid : pids) {
    request.pid = pid;
    session.add_filter(request);
  }
  Progress progress("reading sections", options.counts || options.raw ? input.size() : 0);
  const bool shows = options.counts || (options.raw && options.output != "-");
  PidWatch watch(input, pids, options.seconds);
  session.on_feed([&](auto data) { watch.add(data); });
  session.limit(options.seconds);
  session.run(shows ? &progress : nullptr, [&] {
    watch.check();
    std::lock_guard lock(mutex);
    return printer.is_done();
  });
  printer.finish();
  if (printer.printed() == 0 && !interrupted() && !options.counts) fail_empty(input, pids, watch);
}

}  // namespace

void run_sections(int argc, char** argv) {
  SectionOptions options;
  const auto arguments =
      Options("INPUT",
              "Prints the sections that pass a filter, as headers and hexadecimal bytes.\n"
              "--match, --mask and --mode are up to 15 bytes in section-header positions; "
              "bits set in the mask count, and where the mode has them too, at least one "
              "must differ.")
          .texts("pid", 'p', &options.pids, "The PID; may be given again", "PID")
          .number("table-id", 't', &options.table_id, 0, 255, "This table id only", "ID")
          .number("extension", 'e', &options.extension, 1, 65535, "This extension only", "ID")
          .text("match", 0, &options.match, "Bytes to match, instead of the two", "HEX")
          .text("mask", 0, &options.mask, "Bits of them that count (default: all)", "HEX")
          .text("mode", 0, &options.mode, "Bits that must differ (default: none)", "HEX")
          .flag("crc", 'c', &options.crc, "Sections with a good CRC only")
          .flag("changed", 0, &options.changed, "Sections that differ from the last in their place")
          .number("number", 'n', &options.number, 1, 0xFFFFFFFF, "End after so many", "N")
          .seconds("duration", 'd', &options.seconds, "Read so much of the stream")
          .flag("counts", 0, &options.counts,
                "Count sections and CRC verdicts; without --pid of all tables")
          .flag("raw", 0, &options.raw, "Write the sections' bytes")
          .text("output", 'o', &options.output, "Where --raw writes to (default: -)", "FILE")
          .flag("force", 'f', &options.force, "Overwrite the file")
          .flag("json", 0, &options.json, "Print JSON, a line a section")
          .parse(argc, argv, 1, 1);
  std::set<unsigned> pids = chosen_pids(options);
  if (pids.empty() && !options.counts)
    throw Failure(Status::kUsage, "needs --pid, or --counts for all tables (try --help)");
  if (options.mode.size() + options.mask.size() > 0 && options.match.empty())
    throw Failure(Status::kUsage, "--mask and --mode go with --match");
  const SectionRequest request = request_of(options);
  if (options.raw && options.json)
    throw Failure(Status::kUsage, "--raw and --json exclude one another");
  refuse_to_write_input(arguments[0], options.output);
  Input input(arguments[0]);
  if (pids.empty()) pids = table_pids(input);
  if (pids.size() > kMostFilters)
    throw Failure(Status::kUsage, "more than 96 PIDs at once; name some with --pid");
  input.forget();
  read_sections(input, pids, request, options);
}

}  // namespace tools
