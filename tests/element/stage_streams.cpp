// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/element/stage_streams.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <sstream>

#include "demux/caps.h"
#include "demux/change.h"
#include "demux/pads.h"
#include "demux/pes_filter.h"
#include "demux/stream_table.h"
#include "events/senders.h"

namespace vantrel::testing {
namespace {

constexpr auto kContents = std::to_array<const char*>(
    {"video", "audio", "subtitle", "teletext", "pcr", "video-sub", "audio-desc", "other"});

using Arguments = std::vector<std::string>;

guint number(const std::string& text) { return static_cast<guint>(std::stoul(text)); }

const char* truth(bool value) { return value ? "= TRUE" : "= FALSE"; }

StreamPtr record(GstVantrel* element, const std::string& index) {
  return index == "-" ? nullptr : element->streams.at(number(index));
}

std::string change(GstVantrel* element, const Arguments& arguments) {
  const auto content = std::find(kContents.begin(), kContents.end(), arguments[0]);
  return truth(gst_tv_ts_demux_change_stream(
      element, static_cast<GstTvTsDemuxStreamContent>(content - kContents.begin()),
      number(arguments[1]), number(arguments[2])));
}

template <auto kStep>
std::string step(GstVantrel* element, const Arguments& arguments) {
  return truth(kStep(element, record(element, arguments[0]).get()));
}

template <auto kStep>
std::string filter(GstVantrel* element, const Arguments& arguments) {
  return truth(kStep(record(element, arguments[0]).get()));
}

std::string create(GstVantrel* element, const Arguments& arguments) {
  return truth(gst_tv_ts_demux_create_stream(element, record(element, arguments[0])));
}

std::string unregister(GstVantrel* element, const Arguments& arguments) {
  return truth(gst_tv_ts_demux_unregister_stream(element, number(arguments[0])) != nullptr &&
               element->streams[element->n_streams] == nullptr);
}

std::string set_descriptor(GstVantrel* element, const Arguments& arguments) {
  const StreamPtr stream = record(element, arguments[0]);
  gst_tv_ts_demux_close_demux(stream.get());
  stream->fd = std::stoi(arguments[1]);
  return "";
}

std::string choose(GstVantrel* element, const Arguments& arguments) {
  element->audio_dec_index = number(arguments[0]);
  element->isdb_index = number(arguments[1]);
  return "";
}

std::string two_pid(GstVantrel* element, const Arguments& arguments) {
  gst_tv_ts_demux_HFR_2PID_event(element, std::stoi(arguments[0]));
  return "";
}

/// Takes the caps.
std::string text_of(GstCaps* caps) {
  if (caps == nullptr) return "= NULL";
  g_autofree gchar* text = gst_caps_to_string(caps);
  const bool fixed = gst_caps_is_fixed(caps);
  gst_caps_unref(caps);
  return std::string(fixed ? "= " : "= not fixed: ") + text;
}

std::string caps(GstVantrel*, const Arguments& arguments) {
  return text_of(gst_vantrel_map_caps(number(arguments[0])));
}

std::string map_caps(GstVantrel* element, const Arguments& arguments) {
  return text_of(gst_tv_ts_demux_map_caps(element, number(arguments[0])));
}

std::string fill(GstVantrel* element, const Arguments&) {
  for (guint pid = element->n_streams; pid < kMaxStreams; pid++)
    gst_tv_ts_demux_change_stream(element, STREAM_CONTENT_OTHER, pid, 30);
  return "";
}

const std::map<std::string, std::string (*)(GstVantrel*, const Arguments&)> kCommands = {
    {"change", change},
    {"open", step<gst_tv_ts_demux_open_demux>},
    {"program", step<gst_tv_ts_demux_program_demux>},
    {"create", create},
    {"start-filter", filter<gst_tv_ts_demux_start_demux>},
    {"stop-filter", filter<gst_tv_ts_demux_stop_demux>},
    {"close", filter<gst_tv_ts_demux_close_demux>},
    {"unregister", unregister},
    {"descriptor", set_descriptor},
    {"choose", choose},
    {"two-pid", two_pid},
    {"caps", caps},
    {"map-caps", map_caps},
    {"fill", fill},
};

}  // namespace

std::string content_name(guint content) {
  return content < kContents.size() ? kContents[content] : "content " + std::to_string(content);
}

std::optional<std::string> run_on_streams(GstVantrel* element, const std::string& command) {
  std::istringstream words(command);
  std::string word;
  words >> word;
  const auto found = kCommands.find(word);
  if (found == kCommands.end()) return std::nullopt;
  return found->second(element, {std::istream_iterator<std::string>(words), {}});
}

}  // namespace vantrel::testing
