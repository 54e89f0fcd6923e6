// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/receiver.h>

#include <algorithm>
#include <cstdio>

#include "tools/core/discover.h"
#include "tools/core/failure.h"
#include "tools/core/json.h"
#include "tools/core/node_reader.h"
#include "tools/core/options.h"
#include "tools/core/output.h"
#include "tools/core/pat_rewriter.h"
#include "tools/core/pid_watch.h"
#include "tools/core/session.h"
#include "tools/vantrel/command.h"
#include "tools/vantrel/follower.h"

namespace tools {
namespace {

constexpr unsigned kAllPids = 0x2000;
/// More PIDs than the element has streams.
constexpr std::size_t kMostPids = 127;

struct RecordOptions {
  bool json = false;
  bool force = false;
  bool all = false;
  bool whole_pat = false;
  std::string output;
  std::vector<std::string> services;
  std::vector<std::string> pids;
  std::optional<double> seconds;
};

/// What is recorded.
struct Selection {
  std::vector<unsigned> services;
  std::set<unsigned> pids;
};

/// Those that were asked for by number.
std::set<unsigned> named_pids(const RecordOptions& options) {
  std::set<unsigned> pids;
  for (const std::string& pid : options.pids)
    pids.insert(parse_number("--pid", pid, 0, Programme::kNoPid));
  return pids;
}

Selection select(Input& input, const Psi& psi, const RecordOptions& options) {
  Selection selection;
  for (const std::string& wanted : options.services) {
    const Programme& programme = choose_service(psi, wanted);
    if (programme.pmt_pid == Programme::kNoPid)
      throw Failure(Status::kNotFound, "service " + std::to_string(programme.number) +
                                           " is named in " + input.location() +
                                           " but is no part of it");
    selection.services.push_back(programme.number);
    add_service(programme, &selection.pids);
  }
  selection.pids.merge(named_pids(options));
  if (selection.pids.empty() || options.all) selection.pids = {kAllPids};
  if (selection.pids.size() > kMostPids)
    throw Failure(Status::kUsage, std::to_string(selection.pids.size()) +
                                      " PIDs are too many at once; record --all of them");
  return selection;
}

/// Packets that the record node had no room for.
std::uint64_t dropped() {
  std::uint64_t count = 0;
  qel_receiver_foreach_node(
      0,
      [](const qel_node_counters* node, void* sum) {
        if (node->kind == QEL_NODE_RECORD) *static_cast<std::uint64_t*>(sum) += node->dropped;
      },
      &count);
  return count;
}

struct Result {
  double seconds = 0;
  std::uint64_t dropped = 0;
  std::set<unsigned> added;  // PIDs that a service had later
};

Result record(Input& input, const Psi& psi, const Selection& selection,
              const RecordOptions& options, PatRewriter* pat, Output* output) {
  Session session(input, Session::Mode::kRecord);
  const std::set<unsigned> named = named_pids(options);
  PidWatch watch(input, named, options.seconds);
  std::optional<Follower> follower;
  if (!options.all && !selection.services.empty())
    follower.emplace(
        input.packet_size(), psi, selection.services, selection.pids,
        [&](unsigned pid) { g_object_set(session.demux(), "other-pid", pid, nullptr); });
  session.on_feed([&](auto data) {
    watch.add(data);
    if (follower) follower->add(data);
  });
  NodeReader node("qel_dvr0", [&](std::string_view bytes) {
    output->write(pat != nullptr ? std::string_view(pat->add(bytes)) : bytes);
  });
  for (const unsigned pid : selection.pids)
    g_object_set(session.demux(), "other-pid", pid, nullptr);
  Progress progress("recording", input.size());
  session.limit(options.seconds);
  session.run(&progress, [&] {
    if (named == selection.pids) watch.check();
    return node.has_failed() || output->is_closed();
  });
  const std::uint64_t lost = dropped();
  node.close();
  output->finish();
  watch.finish();
  return {watch.rates().seconds(), lost, follower ? follower->added() : std::set<unsigned>()};
}

void print_result(const Output& output, const Selection& selection, const Result& result,
                  bool as_json) {
  const bool all = selection.pids.contains(kAllPids);
  if (as_json) {
    Json json;
    json.object().text("output", output.path()).number("bytes", output.bytes());
    json.real("seconds", result.seconds).number("dropped", result.dropped);
    json.array("services");
    for (const unsigned number : selection.services) json.number(nullptr, number);
    json.end_array().array("added_pids");
    for (const unsigned pid : result.added) json.number(nullptr, pid);
    json.end_array().end_object().print();
    return;
  }
  std::fprintf(stderr, "%s: %s, %.1f s, %s", output.path().c_str(),
               human_bytes(static_cast<double>(output.bytes())).c_str(), result.seconds,
               all ? "all PIDs" : (std::to_string(selection.pids.size()) + " PIDs").c_str());
  if (!result.added.empty()) std::fprintf(stderr, " and %zu that came later", result.added.size());
  if (result.dropped > 0)
    std::fprintf(stderr, ", %llu packets dropped", static_cast<unsigned long long>(result.dropped));
  std::fprintf(stderr, "%s\n", interrupted() ? ", ended by a signal" : "");
}

}  // namespace

void run_record(int argc, char** argv) {
  RecordOptions options;
  const auto arguments =
      Options("INPUT -o OUTPUT",
              "Records services, PIDs, or the whole stream where neither is named. The file has "
              "packets of 188 bytes. Ctrl-C ends a recording and leaves it whole.")
          .text("output", 'o', &options.output, "File, or - for standard output", "OUTPUT")
          .texts("service", 's', &options.services, "Record this service (may be given again)",
                 "NAME|NUMBER")
          .texts("pid", 'p', &options.pids, "Record this PID (may be given again)", "PID")
          .flag("all", 'a', &options.all, "Record everything")
          .seconds("duration", 'd', &options.seconds, "Record so much of the stream")
          .flag("force", 'f', &options.force, "Overwrite the file")
          .flag("whole-pat", 0, &options.whole_pat,
                "Leave the PAT as it is; else it lists the services recorded")
          .flag("json", 0, &options.json, "Print JSON")
          .parse(argc, argv, 1, 1);
  if (options.output.empty()) throw Failure(Status::kUsage, "needs --output FILE (try --help)");
  if (options.json && options.output == "-")
    throw Failure(Status::kUsage, "--json and the recording cannot both go to standard output");
  refuse_to_write_input(arguments[0], options.output);
  Input input(arguments[0]);
  const Psi psi = options.services.empty() ? Psi() : discover(input);
  input.forget();
  const Selection selection = select(input, psi, options);
  Output output(options.output, options.force);
  std::optional<PatRewriter> pat;
  if (!selection.services.empty() && !options.all && !options.whole_pat)
    pat.emplace(psi, selection.services);
  const Result result = record(input, psi, selection, options, pat ? &*pat : nullptr, &output);
  print_result(output, selection, result, options.json);
}

}  // namespace tools
