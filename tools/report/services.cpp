// SPDX-License-Identifier: LGPL-2.1-or-later
#include <glib.h>

#include <algorithm>
#include <array>

#include "tools/report/format.h"
#include "tools/report/names.h"
#include "tools/report/sections.h"

namespace report {
namespace {

const analysis::PidResult* find_pid(const Report& report, unsigned pid) {
  const auto found = std::find_if(report.result.pids.begin(), report.result.pids.end(),
                                  [&](const analysis::PidResult& row) { return row.pid == pid; });
  return found != report.result.pids.end() ? &*found : nullptr;
}

void write_picture(Markup* out, const Report& report, const tools::Programme& programme) {
  const auto found = report.snapshots.find(programme.number);
  static const Snapshot kNone{.png = {}, .reason = "No video."};
  const Snapshot& snapshot = found != report.snapshots.end() ? found->second : kNone;
  if (snapshot.png.empty()) {
    out->leaf("p", snapshot.reason, {{"class", "no-picture"}});
    return;
  }
  g_autofree gchar* encoded =
      g_base64_encode(reinterpret_cast<const guchar*>(snapshot.png.data()), snapshot.png.size());
  out->empty("img", {{"src", std::string("data:image/png;base64,") + encoded},
                     {"width", std::to_string(snapshot.width)},
                     {"height", std::to_string(snapshot.height)},
                     {"alt", "A picture of " + name_of(programme)}});
}

std::string access_of(const analysis::PidResult* pid) {
  if (pid == nullptr) return "not sent";
  if (pid->record->scrambled == 0) return "clear";
  return pid->record->scrambled == pid->record->packets ? "scrambled" : "partly scrambled";
}

void write_streams(Markup* out, const Report& report, const tools::Programme& programme) {
  if (programme.streams.empty()) return;
  open_table(out, {"PID", "Kind", "Codec", "Language", "#Bit rate", "Access"});
  for (const tools::StreamInfo& stream : programme.streams) {
    const analysis::PidResult* pid = find_pid(report, stream.pid);
    out->open("tr");
    cell(out, hex(stream.pid), "mono");
    cell(out, stream.kind);
    cell(out, stream.codec);
    cell(out, stream.language);
    cell(out, pid != nullptr && pid->mean_rate > 0 ? rate(pid->mean_rate) : "–", "number");
    cell(out, access_of(pid), pid == nullptr ? "soft" : "");
    out->close();
  }
  close_table(out);
}

double rate_of(const Report& report, const tools::Programme& programme) {
  double sum = 0;
  for (const tools::StreamInfo& stream : programme.streams)
    if (const analysis::PidResult* pid = find_pid(report, stream.pid)) sum += pid->mean_rate;
  return sum;
}

void write_service(Markup* out, const Report& report, const tools::Programme& programme) {
  const bool pictures = !report.snapshots.empty();
  out->open("article", {{"class", pictures ? "service card" : "service card plain"}});
  if (pictures) {
    out->open("div", {{"class", "picture"}});
    write_picture(out, report, programme);
    out->close();
  }
  out->open("div", {{"class", "about"}});
  out->leaf("h3", name_of(programme));
  std::string facts = "service " + std::to_string(programme.number);
  if (programme.service_type != 0)
    facts += " · " + tools::service_type_name(programme.service_type);
  if (!programme.provider.empty()) facts += " · " + programme.provider;
  if (programme.pmt_pid != tools::Programme::kNoPid) facts += " · PMT " + hex(programme.pmt_pid);
  if (programme.pcr_pid != tools::Programme::kNoPid) facts += " · PCR " + hex(programme.pcr_pid);
  if (!programme.has_pmt) facts += " · announced, without a PMT";
  if (const double sum = rate_of(report, programme); sum > 0) facts += " · " + rate(sum);
  out->leaf("p", facts, {{"class", "soft"}});
  write_streams(out, report, programme);
  out->close().close();
}

}  // namespace

void write_services(Markup* out, const Report& report) {
  if (report.psi->programmes().empty())
    out->leaf("p", "No PAT and no SDT came by, so no service is known.", {{"class", "soft"}});
  out->open("div", {{"class", "services"}});
  for (const auto& [number, programme] : report.psi->programmes())
    if (programme.has_pmt) write_service(out, report, programme);
  for (const auto& [number, programme] : report.psi->programmes())
    if (!programme.has_pmt) write_service(out, report, programme);
  out->close();
}

}  // namespace report
