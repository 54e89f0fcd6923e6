// SPDX-License-Identifier: LGPL-2.1-or-later
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "tools/analysis/packet_counts.h"
#include "tools/core/discover.h"
#include "tools/core/failure.h"
#include "tools/core/json.h"
#include "tools/core/node_reader.h"
#include "tools/core/options.h"
#include "tools/core/output.h"
#include "tools/core/pes.h"
#include "tools/core/picture.h"
#include "tools/core/session.h"
#include "tools/vantrel/command.h"
#include "tools/vantrel/play.h"

namespace tools {
namespace {

/// Enough of a video to find a picture in.
constexpr std::size_t kKeepVideo = 8 * 1024 * 1024;
constexpr int kColumns = 72;

struct WatchOptions {
  bool json = false;
  bool force = false;
  std::string snapshot;
  std::string service;
};

/// The beginning of a service's video, as it comes out of the decoder's port.
/// Failure when there is none, or none that is clear.
std::string read_video(Input& input, const Programme& programme, const StreamInfo& video) {
  Session session(input, Session::Mode::kPlay);
  analysis::PacketCounts rates(input.packet_size());
  session.on_feed([&](auto data) { rates.add(data); });
  PesParser pes(kKeepVideo);
  NodeReader port("vdec0", [&](std::string_view data) { pes.add(data); });
  g_object_set(session.demux(), "pids", pids_of(programme, {&video}).c_str(), nullptr);
  session.prepare();
  // Playback leaves the video stream to the naming of its decoder.
  g_object_set(session.demux(), "videodec-device", "vdec0", nullptr);
  Progress progress("playing service " + std::to_string(programme.number), input.size());
  session.run(&progress, [&] { return port.bytes() >= kKeepVideo; });
  port.close();
  pes.finish();
  if (interrupted()) throw Failure(Status::kNotFound, "ended by a signal");
  const std::string on = "service " + std::to_string(programme.number) + ": the video on PID " +
                         std::to_string(video.pid) + " is ";
  if (!pes.payload().empty()) return pes.payload();
  if (rates.pid(video.pid).scrambled > 0) throw Failure(Status::kScrambled, on + "scrambled");
  const bool sent = rates.pid(video.pid).packets > 0;
  throw Failure(Status::kNotFound,
                on + (sent ? "sent, but no PES packet in it holds data" : "named but not sent"));
}

Picture picture_of(Input& input, const Programme& programme) {
  const StreamInfo* video = programme.find("video");
  if (video == nullptr)
    throw Failure(Status::kNotFound, "service " + std::to_string(programme.number) +
                                         " has no video that is decoded here");
  return decode_picture(read_video(input, programme, *video), video->stream_type);
}

/// The service asked for; without one, the first of which there is a picture.
Picture find_picture(Input& input, const Psi& psi, const std::string& wanted, unsigned* number) {
  const Programme& chosen = choose_service(psi, wanted);
  *number = chosen.number;
  if (!wanted.empty()) return picture_of(input, chosen);
  std::string reasons;
  Status status = Status::kNotFound;
  for (const auto& [candidate, programme] : psi.programmes()) {
    if (programme.streams.empty() || interrupted()) continue;
    try {
      input.rewind();
      *number = candidate;
      return picture_of(input, programme);
    } catch (const Failure& failure) {
      reasons += (reasons.empty() ? "" : "; ") + std::string(failure.what());
      status = failure.status();
    }
  }
  throw Failure(interrupted() ? Status::kNotFound : status, "no picture: " + reasons);
}

bool shows_colours() {
  const char* colours = std::getenv("COLORTERM");
  return isatty(STDOUT_FILENO) != 0 && colours != nullptr;
}

void take_snapshot(Input& input, const Psi& psi, const WatchOptions& options) {
  unsigned number = 0;
  const Picture picture = find_picture(input, psi, options.service, &number);
  write_png(picture, options.snapshot);
  if (options.json) {
    Json()
        .object()
        .text("picture", options.snapshot)
        .number("service_id", number)
        .number("width", picture.width)
        .number("height", picture.height)
        .end_object()
        .print();
    return;
  }
  if (shows_colours()) std::fputs(draw(picture, kColumns).c_str(), stdout);
  std::printf("%s: %d x %d, service %u\n", options.snapshot.c_str(), picture.width, picture.height,
              number);
}

/// A number and "the first one" need no names to be known.
bool needs_names(const std::string& service) {
  return std::any_of(service.begin(), service.end(), [](char c) { return !g_ascii_isdigit(c); });
}

}  // namespace

void run_watch(int argc, char** argv) {
  const auto begun = std::chrono::steady_clock::now();
  PlayOptions play_options;
  WatchOptions options;
  const auto arguments =
      Options("INPUT", "Plays a service in a window, or takes a picture of it.")
          .text("service", 's', &options.service, "The service; else the first with a picture",
                "NAME|NUMBER")
          .text("audio", 'a', &play_options.audio, "Sound in this language, as in eng", "LANG")
          .language("subtitles", &play_options.subtitles, "DVB subtitles, in this language")
          .seconds("duration", 'd', &play_options.seconds, "Play so much of the stream")
          .text("snapshot", 0, &options.snapshot, "Write a picture, play nothing", "PNG")
          .flag("force", 'f', &options.force, "Overwrite the picture")
          .flag("json", 0, &options.json, "Print JSON at the end")
          .parse(argc, argv, 1, 1);
  refuse_to_write_input(arguments[0], options.snapshot);
  if (!options.snapshot.empty()) refuse_to_overwrite(options.snapshot, options.force);
  Input input(arguments[0]);
  const bool names = !input.is_live() || needs_names(options.service);
  const Psi psi = discover(input, names ? Names::kWanted : Names::kNotWanted);
  if (!options.snapshot.empty()) return take_snapshot(input, psi, options);
  input.forget();
  play_options.json = options.json;
  play_options.service = options.service;
  play(input, psi, play_options, begun);
}

}  // namespace tools
