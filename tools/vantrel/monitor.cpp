// SPDX-License-Identifier: LGPL-2.1-or-later
#include <unistd.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <optional>

#include "tools/core/deadline.h"
#include "tools/core/discover.h"
#include "tools/core/failure.h"
#include "tools/core/json.h"
#include "tools/core/options.h"
#include "tools/core/session.h"
#include "tools/vantrel/command.h"
#include "tools/vantrel/counters.h"
#include "tools/vantrel/metrics.h"

namespace tools {
namespace {

constexpr unsigned kTablePids[] = {0x00, 0x01, 0x10, 0x11, 0x12, 0x14};
constexpr double kInterval = 1;

struct MonitorOptions {
  bool json = false;
  bool live = false;
  std::string metrics;
  std::optional<double> seconds;
  std::optional<double> interval;
};

/// Of the input as a whole: what went wrong before it came here.
struct InputRow {
  const char* name;
  std::uint64_t qel_input_counters::*value;
};

constexpr auto kInputRows = std::to_array<InputRow>({
    {"bytes", &qel_input_counters::bytes},
    {"packets", &qel_input_counters::packets},
    {"null_packets", &qel_input_counters::null_packets},
    {"scrambled", &qel_input_counters::scrambled},
    {"repeated", &qel_input_counters::repeated},
    {"transport_errors", &qel_input_counters::transport_errors},
    {"discontinuities", &qel_input_counters::discontinuities},
    {"sync_losses", &qel_input_counters::sync_losses},
    {"skipped_bytes", &qel_input_counters::skipped_bytes},
});

void print_json(const Counters& counters, double seconds) {
  Json json;
  json.object().real("seconds", seconds);
  for (const InputRow& row : kInputRows) json.number(row.name, counters.input.*row.value);
  json.number("errors", counters.errors()).number("drops", counters.drops());
  json.list("pids", counters.pids, [&](const Counters::Pid& row) {
    json.number("pid", row.pid)
        .number("packets", row.counters.packets)
        .number("discontinuities", row.counters.discontinuities)
        .number("sections", row.counters.sections)
        .number("section_errors", row.counters.section_errors)
        .number("crc_errors", row.counters.crc_errors);
  });
  json.end_object().print(true);
}

/// The PIDs with anything wrong, and the nodes that dropped.
void print_troubles(const Counters& counters) {
  for (const Counters::Pid& row : counters.pids)
    if (row.counters.discontinuities + row.counters.section_errors + row.counters.crc_errors > 0)
      std::printf("  PID %4u 0x%04x: %" PRIu64 " discontinuities, %" PRIu64
                  " broken sections, %" PRIu64 " bad CRCs\n",
                  row.pid, row.pid, row.counters.discontinuities, row.counters.section_errors,
                  row.counters.crc_errors);
  for (const qel_node_counters& node : counters.nodes)
    if (node.dropped > 0)
      std::printf("  node %s PID %u: %" PRIu64 " records dropped here, for lack of room\n",
                  node.name, node.pid, node.dropped);
}

/// One line a round; on a terminal it replaces the last.
void print_line(const Counters& counters, double seconds, double bits) {
  static const bool terminal = isatty(STDOUT_FILENO) != 0;
  std::printf("%s%8.1f s  %9" PRIu64 " packets  %8.0f kbit/s  %" PRIu64 " errors  %" PRIu64
              " drops%s",
              terminal ? "\r\033[K" : "", seconds, counters.input.packets, bits / 1000,
              counters.errors(), counters.drops(), terminal ? "" : "\n");
  std::fflush(stdout);
}

/// Prints the counters every interval and at the end.
class Monitor {
 public:
  Monitor(const MonitorOptions& options, dmx_input input)
      : options_(options), input_(input), whole_(std::nullopt), round_(options.interval) {}

  void tick() {
    if (round_.is_over()) show();
  }

  void finish() {
    show();
    if (options_.json) return;
    if (isatty(STDOUT_FILENO) != 0) std::printf("\n");
    const Counters counters = Counters::read(input_);
    for (const InputRow& row : kInputRows)
      std::printf("  %-18s %12" PRIu64 "\n", row.name, counters.input.*row.value);
    print_troubles(counters);
  }

 private:
  void show() {
    const Counters counters = Counters::read(input_);
    const double seconds = round_.elapsed();
    const auto bits = static_cast<double>(counters.input.bytes - bytes_) * 8 / seconds;
    bytes_ = counters.input.bytes;
    round_ = Deadline(options_.interval);
    if (options_.json)
      print_json(counters, whole_.elapsed());
    else
      print_line(counters, whole_.elapsed(), bits);
  }

  const MonitorOptions& options_;
  dmx_input input_;
  Deadline whole_;
  Deadline round_;
  std::uint64_t bytes_ = 0;
};

void watch_tables(Session& session, const Psi& psi) {
  std::set<unsigned> pids(std::begin(kTablePids), std::end(kTablePids));
  for (const auto& [number, programme] : psi.programmes())
    if (programme.pmt_pid != Programme::kNoPid) pids.insert(programme.pmt_pid);
  // TDT and RST have no CRC to be checked.
  for (const unsigned pid : pids)
    session.add_filter({.pid = pid, .changed_only = true, .check_crc = pid != 0x14});
}

}  // namespace

void run_monitor(int argc, char** argv) {
  MonitorOptions options;
  const auto arguments =
      Options("INPUT",
              "Shows the receiver's counters while the input plays. Errors are what the stream "
              "came with; drops are what found no room here.")
          .flag("live", 'l', &options.live, "Play a file at its own pace")
          .seconds("interval", 'i', &options.interval, "Time between rounds (default: 1)")
          .seconds("duration", 'd', &options.seconds, "Stop after so much of the stream")
          .text("metrics", 'm', &options.metrics, "Serve them as OpenMetrics over HTTP",
                "ADDRESS:PORT")
          .flag("json", 0, &options.json, "Print JSON, a line a round")
          .parse(argc, argv, 1, 1);
  if (!options.interval) options.interval = kInterval;
  Input input(arguments[0]);
  const dmx_input side = input.is_live() || options.live ? DMX_IN_FRONTEND : DMX_IN_DVR;
  std::optional<MetricsServer> server;
  if (!options.metrics.empty()) {
    server.emplace(options.metrics, side);
    std::fprintf(stderr, "serving %s\n", server->uri().c_str());
  }
  const Psi psi = discover(input);
  input.forget();
  Session session(input, Session::Mode::kPlay, options.live);
  watch_tables(session, psi);
  Monitor monitor(options, side);
  session.limit(options.seconds);
  session.run(nullptr, [&] {
    monitor.tick();
    return std::ferror(stdout) != 0;
  });
  monitor.finish();
}

}  // namespace tools
