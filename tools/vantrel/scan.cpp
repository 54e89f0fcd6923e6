// SPDX-License-Identifier: LGPL-2.1-or-later
#include <algorithm>
#include <cstdio>
#include <mutex>

#include "tools/analysis/packet_counts.h"
#include "tools/core/discover.h"
#include "tools/core/failure.h"
#include "tools/core/json.h"
#include "tools/core/options.h"
#include "tools/core/session.h"
#include "tools/vantrel/command.h"

namespace tools {
namespace {

constexpr unsigned kNull = 0x1FFF;
/// What is live is looked at for so long.
constexpr double kScanSeconds = 5;

/// Everything that scan finds.
struct Scan {
  explicit Scan(unsigned packet_size) : rates(packet_size) {}

  Psi psi;
  analysis::PacketCounts rates;
};

/// What a PID is for, where the tables say so.
std::string role_of(const Psi& psi, unsigned pid) {
  if (const char* name = fixed_pid_name(pid)) return name;
  if (psi.emm_pids().contains(pid)) return "EMM";
  if (const auto guide = psi.guide_pids().find(pid); guide != psi.guide_pids().end())
    return guide->second;
  for (const auto& [number, programme] : psi.programmes()) {
    const std::string of = " of service " + std::to_string(number);
    if (programme.pmt_pid == pid) return "PMT" + of;
    if (programme.ca_pids.contains(pid)) return "ECM" + of;
    for (const StreamInfo& stream : programme.streams) {
      if (stream.pid == pid) return stream.codec + of;
      if (stream.ca_pids.contains(pid)) return "ECM" + of;
    }
  }
  for (const auto& [number, programme] : psi.programmes())
    if (programme.pcr_pid == pid) return "PCR of service " + std::to_string(number);
  return "";
}

/// Reads it all: tables that change on the way too.
void look_at_all(Input& input, std::optional<double> seconds, Scan* scan) {
  Session session(input, Session::Mode::kPlay);
  std::mutex mutex;  // guards scan->psi
  session.on_section([&](unsigned pid, std::string_view section) {
    std::lock_guard lock(mutex);
    scan->psi.add(pid, section);
  });
  session.on_feed([&](auto data) { scan->rates.add(data); });
  for (const unsigned pid : {0x00U, 0x01U, 0x11U, 0x14U, 0x1FFBU, scan->psi.network_pid()})
    session.add_filter({.pid = pid, .changed_only = true, .check_crc = pid != 0x14});
  std::set<unsigned> pmt_pids;
  for (const auto& [number, programme] : scan->psi.programmes())
    if (programme.pmt_pid != Programme::kNoPid && pmt_pids.insert(programme.pmt_pid).second)
      session.add_filter({.pid = programme.pmt_pid, .table_id = 0x02, .check_crc = true});
  session.limit(seconds);
  Progress progress("scanning", input.size());
  session.run(&progress);
  scan->rates.finish();
}

std::string rate_text(std::optional<double> bits) {
  if (!bits) return "-";
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), *bits < 10000 ? "%.1f" : "%.0f", *bits / 1000);
  return text.data();
}

void print_stream(const Scan& scan, const char* what, unsigned pid, const std::string& codec,
                  const std::string& language) {
  const analysis::PacketCounts::Pid& counts = scan.rates.pid(pid);
  const char* state = counts.packets == 0    ? "  not sent"
                      : counts.scrambled > 0 ? "  scrambled"
                                             : "";
  std::printf(
      "    %-9s %5u 0x%04x  %-18s %-4s %9s%s\n", what, pid, pid, codec.c_str(), language.c_str(),
      counts.packets == 0 ? "" : rate_text(scan.rates.bits_per_second(counts.packets)).c_str(),
      state);
}

void print_service(const Scan& scan, const Programme& programme) {
  std::printf("\n%u  %s%s%s%s%s", programme.number, programme.channel.c_str(),
              programme.channel.empty() ? "" : " ",
              programme.name.empty() ? "(no name)" : programme.name.c_str(),
              programme.provider.empty() ? "" : "  by ", programme.provider.c_str());
  if (programme.service_type != 0)
    std::printf("  [%s]", service_type_name(programme.service_type).c_str());
  if (programme.scrambled) std::printf("  scrambled");
  if (programme.pmt_pid == Programme::kNoPid) std::printf("  (named only, not in this stream)");
  std::printf("\n");
  if (programme.pmt_pid == Programme::kNoPid) return;
  print_stream(scan, "PMT", programme.pmt_pid, "", "");
  for (const StreamInfo& stream : programme.streams)
    print_stream(scan, stream.kind.c_str(), stream.pid, stream.codec, stream.language);
  if (programme.pcr_pid != kNull)
    std::printf("    PCR       %5u 0x%04x\n", programme.pcr_pid, programme.pcr_pid);
}

void print_pids(const Scan& scan) {
  std::printf("\n  %5s %6s %10s %9s\n", "PID", "", "packets", "kbit/s");
  for (unsigned pid = 0; pid <= kNull; pid++) {
    const analysis::PacketCounts::Pid& counts = scan.rates.pid(pid);
    if (counts.packets == 0) continue;
    std::printf("  %5u 0x%04x %10llu %9s  %s%s\n", pid, pid,
                static_cast<unsigned long long>(counts.packets),
                rate_text(scan.rates.bits_per_second(counts.packets)).c_str(),
                role_of(scan.psi, pid).c_str(), counts.scrambled > 0 ? "  scrambled" : "");
  }
}

void print_text(const Input& input, const Scan& scan, bool pids) {
  std::printf("%s: %llu packets of %u bytes, %s kbit/s", input.location().c_str(),
              static_cast<unsigned long long>(scan.rates.packets()), input.packet_size(),
              rate_text(scan.rates.bits_per_second()).c_str());
  if (input.junk() > 0)
    std::printf(", %llu bytes before the first", static_cast<unsigned long long>(input.junk()));
  std::printf("\n");
  if (!scan.psi.network().empty()) std::printf("network: %s\n", scan.psi.network().c_str());
  if (!scan.psi.time().empty()) std::printf("time: %s\n", scan.psi.time().c_str());
  if (!scan.psi.has_pat()) std::printf("no PAT, so no services are known\n");
  for (const auto& [number, programme] : scan.psi.programmes()) print_service(scan, programme);
  if (pids || scan.psi.programmes().empty()) print_pids(scan);
}

void add_rate(Json& json, const Scan& scan, std::uint64_t packets) {
  if (const auto rate = scan.rates.bits_per_second(packets)) json.real("bit_rate", *rate);
}

void add_service(Json& json, const Scan& scan, const Programme& programme) {
  json.number("service_id", programme.number)
      .text_if("channel", programme.channel)
      .text_if("name", programme.name)
      .text_if("provider", programme.provider);
  if (programme.service_type != 0)
    json.number("service_type", programme.service_type)
        .text("type", service_type_name(programme.service_type));
  json.flag("scrambled", programme.scrambled);
  if (programme.pmt_pid == Programme::kNoPid) return;
  json.number("pmt_pid", programme.pmt_pid).number("pcr_pid", programme.pcr_pid);
  json.list("streams", programme.streams, [&](const StreamInfo& stream) {
    const analysis::PacketCounts::Pid& counts = scan.rates.pid(stream.pid);
    json.number("pid", stream.pid)
        .number("stream_type", stream.stream_type)
        .text("kind", stream.kind)
        .text("codec", stream.codec)
        .text_if("language", stream.language)
        .flag("scrambled", counts.scrambled > 0)
        .number("packets", counts.packets);
    add_rate(json, scan, counts.packets);
  });
}

void print_json(const Input& input, const Scan& scan) {
  Json json;
  json.object()
      .text("input", input.location())
      .number("packet_size", input.packet_size())
      .number("junk", input.junk())
      .number("packets", scan.rates.packets());
  add_rate(json, scan, scan.rates.packets());
  json.number("transport_stream_id", scan.psi.transport_stream_id())
      .text_if("network", scan.psi.network())
      .text_if("time", scan.psi.time());
  json.list("services", scan.psi.programmes(),
            [&](const auto& entry) { add_service(json, scan, entry.second); });
  std::vector<unsigned> pids;
  for (unsigned pid = 0; pid <= kNull; pid++)
    if (scan.rates.pid(pid).packets > 0) pids.push_back(pid);
  json.list("pids", pids, [&](unsigned pid) {
    const analysis::PacketCounts::Pid& counts = scan.rates.pid(pid);
    json.number("pid", pid).number("packets", counts.packets);
    json.number("scrambled_packets", counts.scrambled);
    json.text_if("role", role_of(scan.psi, pid));
    add_rate(json, scan, counts.packets);
  });
  json.end_object().print();
}

}  // namespace

void run_scan(int argc, char** argv) {
  bool as_json = false;
  bool pids = false;
  std::optional<double> seconds;
  const auto arguments = Options("INPUT",
                                 "Lists the services of a transport stream, their streams with "
                                 "codec, language and bit rate in kbit/s.")
                             .flag("json", 0, &as_json, "Print JSON")
                             .flag("pids", 'p', &pids, "List every PID too")
                             .seconds("duration", 'd', &seconds,
                                      "Look at so much of the stream (live: 5 s, files: all)")
                             .parse(argc, argv, 1, 1);
  Input input(arguments[0]);
  if (input.is_live() && !seconds) seconds = kScanSeconds;
  Scan scan(input.packet_size());
  scan.psi = discover(input);
  input.forget();
  look_at_all(input, seconds, &scan);
  as_json ? print_json(input, scan) : print_text(input, scan, pids);
}

}  // namespace tools
