// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/pes.h"

#include <cstdio>
#include <mutex>

#include "tools/core/discover.h"
#include "tools/core/failure.h"
#include "tools/core/hex.h"
#include "tools/core/json.h"
#include "tools/core/options.h"
#include "tools/core/output.h"
#include "tools/core/pid_watch.h"
#include "tools/core/session.h"
#include "tools/vantrel/command.h"

namespace tools {
namespace {

struct PesOptions {
  bool json = false;
  bool raw = false;
  bool hex = false;
  bool force = false;
  std::string output = "-";
  std::string service;
  std::optional<unsigned> pid;
  std::optional<unsigned> number;
  std::optional<double> seconds;
};

/// The streams that are read: one of subtitles, one of teletext.
struct Texts {
  std::optional<unsigned> subtitle;
  std::optional<unsigned> teletext;
  std::set<unsigned> announced;  // by the service they were taken from

  [[nodiscard]] bool empty() const { return !subtitle && !teletext; }
};

std::set<unsigned> pids_of(const Texts& texts) {
  std::set<unsigned> pids;
  for (const auto& pid : {texts.subtitle, texts.teletext})
    if (pid) pids.insert(*pid);
  return pids;
}

void take_streams(const Programme& programme, Texts* texts) {
  if (const StreamInfo* stream = programme.find("subtitle")) texts->subtitle = stream->pid;
  if (const StreamInfo* stream = programme.find("teletext")) texts->teletext = stream->pid;
  for (const StreamInfo& stream : programme.streams)
    if (stream.kind == "subtitle" || stream.kind == "teletext") texts->announced.insert(stream.pid);
}

/// Those of the service; without one, of the first that has any.
Texts find_texts(const Psi& psi, const std::string& service) {
  Texts texts;
  if (!service.empty()) {
    take_streams(choose_service(psi, service), &texts);
  } else {
    for (const auto& [number, programme] : psi.programmes())
      if (texts.empty()) take_streams(programme, &texts);
  }
  if (texts.empty())
    throw Failure(Status::kNotFound, (service.empty() ? "no service" : "\"" + service + '"') +
                                         " has subtitles or teletext; --pid reads any PID");
  return texts;
}

void print_packet(unsigned pid, std::string_view packet, const PesOptions& options) {
  const auto pts = pts_of(packet);
  const unsigned stream_id = packet.size() > 3 ? static_cast<std::uint8_t>(packet[3]) : 0;
  if (options.json) {
    Json()
        .object()
        .number("pid", pid)
        .number("stream_id", stream_id)
        .number_if("pts", pts)
        .number("size", packet.size())
        .text("data", to_hex(packet))
        .end_object()
        .print(true);
    return;
  }
  std::printf("PID %u (0x%04x)  stream_id 0x%02x  ", pid, pid, stream_id);
  if (pts) std::printf("PTS %.3f s  ", static_cast<double>(*pts) / 90000);
  std::printf("%zu bytes\n%s", packet.size(), options.hex ? hex_dump(packet).c_str() : "");
  std::fflush(stdout);  // who follows a live stream waits for it
}

/// Announced streams that would have given something.
std::string way_out(const PidWatch& watch, const Texts& texts) {
  std::string text;
  for (const unsigned pid : texts.announced)
    if (watch.rates().pid(pid).packets > 0)
      text += (text.empty() ? "; there is --pid " : ", ") + std::to_string(pid);
  return text;
}

/// Why there is nothing.
[[noreturn]] void fail_empty(const PidWatch& watch, const Texts& texts) {
  if (const std::string missing = watch.missing(); !missing.empty())
    throw Failure(Status::kNotFound, missing + way_out(watch, texts));
  const unsigned pid = texts.subtitle ? *texts.subtitle : *texts.teletext;
  const std::string text = "PID " + std::to_string(pid);
  if (watch.rates().pid(pid).scrambled > 0)
    throw Failure(Status::kScrambled, text + " is scrambled");
  throw Failure(Status::kNotFound, text + " carries no whole PES packet");
}

void read_packets(Input& input, const Texts& texts, const PesOptions& options) {
  std::optional<Output> output;
  if (options.raw) output.emplace(options.output, options.force);
  Session session(input, Session::Mode::kPlay);
  PidWatch watch(input, pids_of(texts), options.seconds);
  std::mutex mutex;  // guards the output and the next one
  std::uint64_t count = 0;
  session.on_feed([&](auto data) { watch.add(data); });
  session.on_pes([&](unsigned pid, std::string_view packet) {
    std::lock_guard lock(mutex);
    if (options.number && count >= *options.number) return;
    count++;
    output ? output->write(packet) : print_packet(pid, packet, options);
  });
  if (texts.subtitle)
    g_object_set(session.demux(), "sub-pid", static_cast<gint>(*texts.subtitle), nullptr);
  if (texts.teletext)
    g_object_set(session.demux(), "ttx-pid", static_cast<gint>(*texts.teletext), nullptr);
  session.limit(options.seconds);
  session.run(nullptr, [&] {
    watch.check();
    std::lock_guard lock(mutex);
    return (options.number && count >= *options.number) || std::ferror(stdout) != 0 ||
           (output && output->is_closed());
  });
  if (output) output->finish();
  if (count == 0 && !interrupted()) fail_empty(watch, texts);
}

}  // namespace

void run_pes(int argc, char** argv) {
  PesOptions options;
  const auto arguments =
      Options("INPUT",
              "Prints the PES packets of a service's subtitles and teletext, or of any PID.")
          .text("service", 's', &options.service, "The service; else the first with any",
                "NAME|NUMBER")
          .number("pid", 'p', &options.pid, 1, Programme::kNoPid - 1, "This PID", "PID")
          .number("number", 'n', &options.number, 1, 0xFFFFFFFF, "End after so many", "N")
          .seconds("duration", 'd', &options.seconds, "Read so much of the stream")
          .flag("hex", 'x', &options.hex, "Their bytes in hexadecimal too")
          .flag("raw", 0, &options.raw, "Write the packets' bytes")
          .text("output", 'o', &options.output, "Where --raw writes to (default: -)", "FILE")
          .flag("force", 'f', &options.force, "Overwrite the file")
          .flag("json", 0, &options.json, "Print JSON, a line a packet")
          .parse(argc, argv, 1, 1);
  if (options.raw && options.json)
    throw Failure(Status::kUsage, "--raw and --json exclude one another");
  refuse_to_write_input(arguments[0], options.output);
  Input input(arguments[0]);
  Texts texts;
  if (options.pid)
    texts.subtitle = options.pid;
  else
    texts = find_texts(discover(input), options.service);
  input.forget();
  read_packets(input, texts, options);
}

}  // namespace tools
