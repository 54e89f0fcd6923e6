// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/report/gather.h"

#include <algorithm>

#include "tools/core/picture.h"
#include "tools/core/progress.h"
#include "tools/core/stream_limit.h"
#include "tools/report/names.h"

namespace report {
namespace {

using analysis::Role;
using tools::Programme;

/// Windows over a file; the same without a known size.
constexpr std::uint64_t kWindows = 480;
constexpr std::uint64_t kWindowOfStreams = 1000;
/// Enough of a video, from where a decoder can begin, to find a picture in.
constexpr std::size_t kKeepVideo = 2 * 1024 * 1024;

std::uint64_t window_of(const tools::Input& input) {
  return input.size() > 0 ? input.size() / input.packet_size() / kWindows : kWindowOfStreams;
}

Role role_of(const tools::StreamInfo& stream) {
  if (stream.kind == "video") return Role::video;
  return stream.kind == "audio" ? Role::audio : Role::other;
}

}  // namespace

Gather::Gather(tools::Input& input, bool pictures)
    : input_(input),
      pictures_(pictures),
      pass_(window_of(input),
            [this](unsigned pid, const analysis::Section& section) { take(pid, section); }),
      reader_(input.packet_size(), &pass_) {}

void Gather::run(std::optional<double> seconds) {
  tools::StreamLimit limit(seconds, input_.packet_size(), input_.is_live());
  const auto over = [&] { return limit.is_over(); };
  tools::Progress progress("examining packets", input_.size());
  while (const tools::BufferPtr buffer = over() ? nullptr : input_.next(over)) {
    const tools::MappedBuffer map(buffer.get());
    const std::size_t size = limit.take({map.data(), map.size()});
    reader_.add({map.data(), size});
    begin_pictures(kKeepVideo);
    progress.show(read_ += size);
  }
  reader_.finish();
  pass_.finish();
}

void Gather::take(unsigned pid, const analysis::Section& section) {
  constexpr unsigned kLastPsi = 2;
  const std::string_view bytes(reinterpret_cast<const char*>(section.bytes.data()),
                               section.bytes.size());
  psi_.add(pid, bytes);
  epg_.add(pid, bytes);
  if (section.bytes[0] <= kLastPsi) refer_all(section.last_packet);
}

void Gather::refer(unsigned pid, Role role, unsigned programme, std::uint64_t packet) {
  if (pid != Programme::kNoPid) named_.try_emplace({pid, role, programme}, packet);
}

void Gather::refer_to(const Programme& programme, std::uint64_t packet) {
  const unsigned number = programme.number;
  refer(programme.pmt_pid, Role::pmt, number, packet);
  refer(programme.pcr_pid, Role::pcr, number, packet);
  for (const unsigned pid : programme.ca_pids) refer(pid, Role::access, number, packet);
  for (const tools::StreamInfo& stream : programme.streams) {
    refer(stream.pid, role_of(stream), number, packet);
    for (const unsigned pid : stream.ca_pids) refer(pid, Role::access, number, packet);
    if (pictures_ && stream.kind == "video")
      pass_.keep_stream(stream.pid, kKeepVideo, [type = stream.stream_type](std::string_view unit) {
        return tools::has_beginning(unit, type);
      });
  }
  if (programme.pmt_pid != Programme::kNoPid) pass_.read_sections(programme.pmt_pid);
}

void Gather::refer_all(std::uint64_t packet) {
  for (const auto& [number, programme] : psi_.programmes()) refer_to(programme, packet);
  for (const unsigned pid : psi_.emm_pids()) refer(pid, Role::access, 0, packet);
  refer(psi_.network_pid(), Role::other, 0, packet);
}

std::vector<analysis::Reference> Gather::references() const {
  std::vector<analysis::Reference> references;
  for (const auto& [key, packet] : named_)
    references.push_back({std::get<0>(key), std::get<1>(key), std::get<2>(key), packet});
  return references;
}

/// Of videos of which that many bytes are there. The pass keeps no more of them, so
/// that they can be decoded while it goes on.
void Gather::begin_pictures(std::size_t enough) {
  if (!pictures_) return;
  for (const auto& [number, programme] : psi_.programmes()) {
    const tools::StreamInfo* video = video_of(programme);
    const std::string* stream = video != nullptr ? pass_.stream(video->pid) : nullptr;
    if (stream != nullptr && stream->size() >= enough && pictured_.insert(video->pid).second)
      queue_.add(video->pid, stream, video->stream_type);
  }
}

std::string Gather::why_no_picture(const tools::StreamInfo& video) const {
  const std::vector<unsigned>& came = pass_.pids();
  if (std::find(came.begin(), came.end(), video.pid) == came.end())
    return "No picture: the video is announced and not sent.";
  return pass_.record(video.pid).scrambled > 0 ? "No picture: the video is scrambled."
                                               : "No picture: no video begins in what was read.";
}

/// One of each video, though several programmes may have it.
void Gather::take_pictures(Report* report) {
  begin_pictures(1);
  const std::map<unsigned, Snapshot> snapshots = queue_.finish();
  for (const auto& [number, programme] : psi_.programmes()) {
    const tools::StreamInfo* video = video_of(programme);
    if (video == nullptr) continue;
    const auto found = snapshots.find(video->pid);
    report->snapshots[number] = found != snapshots.end()
                                    ? found->second
                                    : Snapshot{.png = {}, .reason = why_no_picture(*video)};
  }
}

Report Gather::finish() {
  Report report;
  report.file = input_.location();
  report.size = read_;
  report.psi = &psi_;
  report.guides = epg_.guides();
  report.result = analysis::evaluate(&pass_, reader_, references());
  if (pictures_) take_pictures(&report);
  return report;
}

}  // namespace report
