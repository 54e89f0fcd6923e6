// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/dmx.h>
#include <qel/receiver.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>

#include "tools/analysis/packet_counts.h"
#include "tools/core/discover.h"
#include "tools/core/failure.h"
#include "tools/core/json.h"
#include "tools/core/node_reader.h"
#include "tools/core/options.h"
#include "tools/core/pes.h"
#include "tools/core/session.h"
#include "tools/vantrel/command.h"

namespace tools {
namespace {

constexpr double kPtsHertz = 90000;

/// A decoder's port, and what came out of it.
class PortCount {
 public:
  PortCount(const char* name, const StreamInfo& from)
      : stream(from), reader(name, [this](std::string_view data) { pes.add(data); }) {}

  void finish() {
    reader.close();
    pes.finish();
  }

  const StreamInfo& stream;
  PesParser pes{0};
  NodeReader reader;
};

/// Subtitles or teletext, as the element hands them out.
struct TextCount {
  const StreamInfo* stream = nullptr;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
};

/// A service on its way to the decoders.
struct Played {
  std::list<PortCount> ports;
  std::list<TextCount> texts;
  std::optional<double> stc;  // seconds
  std::string receiver;
  std::set<unsigned> scrambled;  // PIDs
};

void name_streams(GstElement* demux, const Programme& programme) {
  const std::string pids = pids_of(programme, {programme.find("video"), programme.find("audio")});
  g_object_set(demux, "pids", pids.c_str(), nullptr);
  if (const StreamInfo* subtitle = programme.find("subtitle"))
    g_object_set(demux, "sub-pid", static_cast<gint>(subtitle->pid), nullptr);
  if (const StreamInfo* teletext = programme.find("teletext"))
    g_object_set(demux, "ttx-pid", static_cast<gint>(teletext->pid), nullptr);
}

void open_ports(const Programme& programme, Played* played) {
  if (const StreamInfo* video = programme.find("video"))
    played->ports.emplace_back("vdec0", *video);
  if (const StreamInfo* audio = programme.find("audio"))
    played->ports.emplace_back("adec0", *audio);
  for (const char* kind : {"subtitle", "teletext"})
    if (const StreamInfo* stream = programme.find(kind)) played->texts.push_back({stream});
}

std::optional<double> clock_of(GstElement* demux) {
  dmx_stc* stc = nullptr;
  g_object_get(demux, "dmx-stc", &stc, nullptr);
  if (stc == nullptr || stc->base == 0) return std::nullopt;
  return static_cast<double>(stc->stc) / stc->base / kPtsHertz;
}

std::string counters_text() {
  const std::unique_ptr<char, decltype(&std::free)> text(qel_receiver_describe(0), &std::free);
  return text != nullptr ? text.get() : "";
}

void play(Input& input, const Programme& programme, Played* played) {
  Session session(input, Session::Mode::kPlay);
  std::mutex mutex;  // guards the counts of texts
  session.on_pes([&](unsigned pid, std::string_view packet) {
    std::lock_guard lock(mutex);
    for (TextCount& text : played->texts) {
      if (text.stream->pid != pid) continue;
      text.packets++;
      text.bytes += packet.size();
    }
  });
  analysis::PacketCounts rates(input.packet_size());
  session.on_feed([&](auto data) { rates.add(data); });
  qel_receiver_reset_counters(0);
  open_ports(programme, played);
  name_streams(session.demux(), programme);
  session.prepare();
  // Playback leaves the video stream to the naming of its decoder.
  g_object_set(session.demux(), "videodec-device", "vdec0", nullptr);
  Progress progress("playing service " + std::to_string(programme.number), input.size());
  session.run(&progress);
  played->stc = clock_of(session.demux());
  played->receiver = counters_text();
  for (PortCount& port : played->ports) {
    port.finish();
    if (rates.pid(port.stream.pid).scrambled > 0) played->scrambled.insert(port.stream.pid);
  }
}

void print_port(const PortCount& port, bool scrambled) {
  std::printf("  %-9s %5u 0x%04x  %-14s %10" PRIu64 " bytes %7" PRIu64 " PES",
              port.reader.name().c_str(), port.stream.pid, port.stream.pid,
              port.stream.codec.c_str(), port.reader.bytes(), port.pes.packets());
  if (port.pes.first_pts())
    std::printf("  PTS %.3f to %.3f s", static_cast<double>(*port.pes.first_pts()) / kPtsHertz,
                static_cast<double>(*port.pes.last_pts()) / kPtsHertz);
  std::printf("%s\n", scrambled ? "  scrambled" : "");
}

void print_text(const Programme& programme, const Played& played) {
  std::printf("service %u  %s\n\n", programme.number, programme.name.c_str());
  for (const PortCount& port : played.ports)
    print_port(port, played.scrambled.contains(port.stream.pid));
  for (const TextCount& text : played.texts)
    std::printf("  %-9s %5u 0x%04x  %-14s %10" PRIu64 " bytes %7" PRIu64 " PES\n",
                text.stream->kind.c_str(), text.stream->pid, text.stream->pid,
                text.stream->codec.c_str(), text.bytes, text.packets);
  if (played.stc) std::printf("  %-9s %.3f s at the end\n", "STC", *played.stc);
  std::printf("\n%s", played.receiver.c_str());
}

void print_json(const Programme& programme, const Played& played) {
  Json json;
  json.object().number("service_id", programme.number).text_if("name", programme.name);
  json.list("ports", played.ports, [&](const PortCount& port) {
    json.text("port", port.reader.name())
        .number("pid", port.stream.pid)
        .text("codec", port.stream.codec)
        .flag("scrambled", played.scrambled.contains(port.stream.pid))
        .number("bytes", port.reader.bytes())
        .number("pes_packets", port.pes.packets())
        .number_if("first_pts", port.pes.first_pts())
        .number_if("last_pts", port.pes.last_pts());
  });
  json.list("texts", played.texts, [&](const TextCount& text) {
    json.text("kind", text.stream->kind)
        .number("pid", text.stream->pid)
        .number("bytes", text.bytes)
        .number("pes_packets", text.packets);
  });
  if (played.stc) json.real("stc", *played.stc);
  json.end_object().print();
}

}  // namespace

void run_ports(int argc, char** argv) {
  bool as_json = false;
  std::string service;
  const auto arguments =
      Options("INPUT",
              "Plays a service and counts what reaches its decoders: bytes, PES packets and\n"
              "time stamps at each port, subtitles and teletext, clock and counters.")
          .text("service", 's', &service, "The service; else the first with streams", "NAME|NUMBER")
          .flag("json", 0, &as_json, "Print JSON")
          .parse(argc, argv, 1, 1);
  Input input(arguments[0]);
  const Psi psi = discover(input);
  const Programme& programme = choose_service(psi, service);
  input.rewind();
  Played played;
  play(input, programme, &played);
  as_json ? print_json(programme, played) : print_text(programme, played);
}

}  // namespace tools
