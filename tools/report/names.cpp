// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/report/names.h"

#include "tools/report/sections.h"

namespace report {
namespace {

std::string purpose_in(const tools::Programme& programme, unsigned pid) {
  for (const tools::StreamInfo& stream : programme.streams) {
    if (stream.pid == pid)
      return stream.codec + (stream.language.empty() ? "" : " (" + stream.language + ")");
    if (stream.ca_pids.contains(pid)) return "ECM";
  }
  if (programme.ca_pids.contains(pid)) return "ECM";
  if (programme.pmt_pid == pid) return "PMT";
  return programme.pcr_pid == pid ? "PCR" : "";
}

}  // namespace

std::string name_of(const tools::Programme& programme) {
  return programme.name.empty() ? "service " + std::to_string(programme.number) : programme.name;
}

const tools::StreamInfo* video_of(const tools::Programme& programme) {
  for (const tools::StreamInfo& stream : programme.streams)
    if (stream.kind == "video") return &stream;
  return nullptr;
}

std::string purpose_of(const Report& report, unsigned pid) {
  if (const char* name = tools::fixed_pid_name(pid)) return name;
  for (const auto& [number, programme] : report.psi->programmes())
    if (const std::string found = purpose_in(programme, pid); !found.empty())
      return name_of(programme) + ": " + found;
  if (report.psi->emm_pids().contains(pid)) return "EMM";
  return pid == report.psi->network_pid() ? "NIT" : "";
}

}  // namespace report
