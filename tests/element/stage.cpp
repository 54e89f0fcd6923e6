// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/element/stage.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <qel/device.h>
#include <qel/trace.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iomanip>
#include <regex>
#include <sstream>

#include "plugin/gstvantrel.h"
#include "plugin/lifecycle.h"
#include "readers/temi_reader.h"
#include "tests/element/refusals.h"
#include "tests/element/stage_streams.h"

namespace vantrel::testing {
namespace {

struct Operation {
  const char* name;
  gboolean (*run)(GstTvBaseFilter*);
};

constexpr Operation kOperations[] = {
    {"initiate", gst_vantrel_initiate},
    {"pes_initiate", gst_vantrel_pes_initiate},
    {"start", gst_vantrel_start},
    {"pes_start", gst_vantrel_pes_start},
    {"stop", gst_vantrel_stop},
    {"pes_stop", gst_vantrel_pes_stop},
    {"pause", gst_vantrel_pause},
    {"pes_pause", gst_vantrel_pes_pause},
    {"resume", gst_vantrel_resume},
    {"pes_resume", gst_vantrel_pes_resume},
    {"destory", gst_vantrel_destory},
    {"pes_destory", gst_vantrel_pes_destory},
    {"temi_initiate", gst_vantrel_temi_initiate},
};

/// From now on no descriptor is to be had; or again as many as before.
void limit_descriptors(bool limited) {
  static rlimit before = [] {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    return limit;
  }();
  rlimit limit = before;
  if (limited) {
    const int lowest_free = dup(STDOUT_FILENO);
    close(lowest_free);
    limit.rlim_cur = static_cast<rlim_t>(lowest_free);
  }
  setrlimit(RLIMIT_NOFILE, &limit);
}

std::string pad_names(GstElement* element) {
  std::string names;
  for (const GList* pad = element->srcpads; pad != nullptr; pad = pad->next)
    names = std::string(" ") + GST_PAD_NAME(pad->data) + names;  // the last one added comes first
  return names;
}

/// A line of the trace without time, thread and descriptor numbers.
std::string without_numbers(const std::string& line) {
  static const std::regex kNode(R"(-?[0-9]+<)");
  static const std::regex kOpened(R"(^(open\(.*\) = )[0-9]+$)");
  static const std::regex kClosed(R"(^(close\(.*, )[0-9]+\))");
  std::string text = std::regex_replace(call_of(line), kNode, "<");
  text = std::regex_replace(text, kOpened, "$1fd");
  return std::regex_replace(text, kClosed, "$1fd)");
}

/// Without addresses and descriptor numbers, line ends and quotes escaped.
std::string printable(const std::string& message) {
  static const std::regex kAddress("0x[0-9a-f]{9,}");
  static const std::regex kDescriptor(R"((fd: |fd = |fd\[|poll fd |fastboot )\d+)");
  std::string text = std::regex_replace(message, kAddress, "ADDRESS");
  text = std::regex_replace(text, kDescriptor, "$1FD");
  g_autofree gchar* escaped = g_strescape(text.c_str(), nullptr);
  return escaped;
}

}  // namespace

const std::map<std::string, Stage::Command> Stage::kCommands = {
    {"new", &Stage::make},
    {"release", &Stage::release},
    {"state", &Stage::change_state},
    {"link", &Stage::link},
    {"refuse", &Stage::refuse},
    {"upstream", &Stage::link_upstream},
    {"announce", &Stage::announce},
    {"hand-over", &Stage::hand_over},
    {"fault", &Stage::set_fault},
    {"lack", &Stage::lack},
    {"unlink", &Stage::unlink},
    {"occupy", &Stage::occupy},
    {"send", &Stage::send},
    {"seek", &Stage::seek},
    {"lose", &Stage::lose_record},
    {"describe", &Stage::describe},
    {"show", &Stage::show},
    {"register", &Stage::register_plugin},
    {"add", &Stage::add_filter},
    {"pattern", &Stage::add_pattern},
    {"remove", &Stage::remove_filter},
};

Stage::Stage() {
  qel_log_set_sink(on_log, this);
  qel_trace_set_callback(on_trace, this, 0);
}

Stage::~Stage() {
  release("");
  qel_trace_set_callback(nullptr, nullptr, 0);
  qel_log_set_sink(nullptr, nullptr);
  qel_faults_set(nullptr);
}

void Stage::on_log(int buffer, int priority, const char* tag, const char* text, void* data) {
  auto* self = static_cast<Stage*>(data);
  if (std::this_thread::get_id() != self->thread_ || std::string(tag) == "qel") return;
  const Log::Line line = Log::parse(buffer, priority, tag, text);
  if (line.message == "[PERF_CHECK][BEGIN]" && priority == QEL_LOG_DEBUG)
    return self->write("> " + line.function);
  if (line.message == "[PERF_CHECK][END]" && priority == QEL_LOG_DEBUG)
    return self->write_end(line.function);
  const std::string level(1, "??? DIWE"[priority + 1]);
  self->write(level + (buffer == QEL_LOG_BUFFER_SYSTEM ? "2 " : " ") + line.function + " \"" +
              printable(line.message) + "\"");
}

void Stage::write_end(const std::string& function) {
  if (!lines_.empty() && lines_.back() == "> " + function)
    lines_.back() = "<> " + function;
  else
    write("< " + function);
}

void Stage::on_trace(const char* line, void* data) {
  auto* self = static_cast<Stage*>(data);
  if (std::this_thread::get_id() == self->thread_) self->write(without_numbers(line));
}

std::vector<std::string> Stage::run(const std::string& command) {
  const std::size_t space = command.find(' ');
  const std::size_t equals = command.find('=');
  const std::string word = command.substr(0, space);
  const std::string rest = space != command.npos ? command.substr(space + 1) : "";
  if (const auto found = kCommands.find(word); found != kCommands.end())
    (this->*found->second)(rest);
  else if (command[0] == '?')
    get_property(command.substr(1));
  else if (const auto result = run_on_streams(element_, command))
    result->empty() ? void() : write(*result);
  else if (equals != command.npos)
    set_property(command.substr(0, equals), command.substr(equals + 1));
  else if (!call_operation(command))
    ADD_FAILURE() << "no such command: " << command;
  return std::exchange(lines_, {});
}

void Stage::make(const std::string&) {
  release("");
  element_ = static_cast<GstVantrel*>(g_object_new(gst_vantrel_get_type(), nullptr));
  gst_object_ref_sink(element_);
  g_signal_connect(element_, "no-more-pads", G_CALLBACK(on_no_more_pads), this);
  g_signal_connect(element_, "pad-added", G_CALLBACK(on_pad_added), this);
  g_signal_connect(element_, "pad-removed", G_CALLBACK(on_pad_removed), this);
}

void Stage::on_no_more_pads(GstElement*, gpointer self) {
  static_cast<Stage*>(self)->write("no more pads");
}

void Stage::on_pad_added(GstElement*, GstPad* pad, gpointer self) {
  static_cast<Stage*>(self)->write(std::string("pad added: ") + GST_PAD_NAME(pad) +
                                   (GST_PAD_IS_ACTIVE(pad) ? "" : ", not active"));
}

void Stage::on_pad_removed(GstElement*, GstPad* pad, gpointer self) {
  static_cast<Stage*>(self)->write(std::string("pad removed: ") + GST_PAD_NAME(pad) +
                                   (GST_PAD_IS_ACTIVE(pad) ? ", active" : ""));
}

void Stage::release(const std::string&) {
  decoders_.clear();
  upstream_.reset();
  for (auto& [index, record] : lost_) element_->streams[index] = std::move(record);
  lost_.clear();
  filters_.clear();
  if (element_ != nullptr) {
    gst_element_set_state(as_element(element_), GST_STATE_NULL);
    gst_object_unref(std::exchange(element_, nullptr));
  }
  system_refuses("");
  limit_descriptors(false);
}

void Stage::change_state(const std::string& name) {
  GstState state = GST_STATE_NULL;
  for (const GstState other : {GST_STATE_READY, GST_STATE_PAUSED, GST_STATE_PLAYING})
    if (name == gst_element_state_get_name(other)) state = other;
  const auto result = gst_element_set_state(as_element(element_), state);
  write(std::string("= ") + gst_element_state_change_return_get_name(result));
}

void Stage::link(const std::string& pad) {
  auto& decoder = decoders_[pad] = std::make_unique<Decoder>();
  decoder->listen(writer_of(pad));
  EXPECT_TRUE(decoder->link(as_element(element_), pad.c_str())) << pad;
}

std::function<void(const std::string&)> Stage::writer_of(const std::string& who) {
  return [this, who](const std::string& event) {
    if (std::this_thread::get_id() == thread_) write(who + " <- " + event);
  };
}

void Stage::refuse(const std::string& pad) {
  decoders_[pad]->answer([](GstEvent*) -> gboolean { return FALSE; });
}

void Stage::unlink(const std::string& pad) { decoders_[pad]->unlink(); }

void Stage::link_upstream(const std::string&) {
  upstream_ = std::make_unique<Upstream>(as_element(element_));
  upstream_->listen(writer_of("upstream"));
}

void Stage::send(const std::string& arguments) {
  const std::size_t space = arguments.find(' ');
  Decoder& decoder = *decoders_.at(arguments.substr(0, space));
  const std::string event = space != arguments.npos ? arguments.substr(space + 1) : "";
  const bool taken = event.empty()
                         ? decoder.send(gst_event_new_custom(GST_EVENT_CUSTOM_UPSTREAM, nullptr))
                     : event == "latency" ? decoder.send(gst_event_new_latency(0))
                                          : decoder.send_custom(event.c_str());
  write(taken ? "= TRUE" : "= FALSE");
}

void Stage::seek(const std::string& arguments) {
  const std::size_t space = arguments.find(' ');
  Decoder& decoder = *decoders_.at(arguments.substr(0, space));
  write(decoder.seek(std::stod(arguments.substr(space + 1))) ? "= TRUE" : "= FALSE");
}

void Stage::announce(const std::string& structure) {
  const bool taken =
      structure.empty()
          ? upstream_->send(gst_event_new_custom(GST_EVENT_CUSTOM_DOWNSTREAM_OOB, nullptr))
          : upstream_->announce(structure.c_str());
  write(taken ? "= TRUE" : "= FALSE");
}

void Stage::add_filter(const std::string& arguments) {
  std::istringstream words(arguments);
  guint pid = 0, table_id = 0, extension = 0, version = 0, crc = 0;
  words >> std::setbase(0) >> pid >> table_id >> extension >> version >> crc;
  gpointer handle = nullptr;
  g_signal_emit_by_name(element_, "add-filter", pid, table_id, extension, nullptr, nullptr, 0U,
                        version, crc, nullptr, &handle);
  note_filter(handle);
}

void Stage::add_pattern(const std::string& arguments) {
  std::istringstream words(arguments);
  guint pid = 0;
  words >> std::setbase(0) >> pid;
  std::array<gpointer, 3> patterns{};
  std::size_t size = 0;
  for (gpointer& pattern : patterns) {
    std::string digits;
    words >> digits;
    if (digits == "-") continue;
    std::string& bytes = patterns_.emplace_back();
    for (std::size_t at = 0; at < digits.size(); at += 2)
      bytes.push_back(static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16)));
    pattern = bytes.data();
    size = bytes.size();
  }
  gpointer handle = nullptr;
  g_signal_emit_by_name(element_, "add-filter", pid, 0U, 0U, patterns[1], patterns[0],
                        static_cast<guint>(size), FALSE, FALSE, patterns[2], &handle);
  note_filter(handle);
}

void Stage::note_filter(gpointer handle) {
  filters_.push_back(handle);
  write(handle == nullptr ? "= NULL" : "= ADDRESS");
}

void Stage::remove_filter(const std::string& number) {
  g_signal_emit_by_name(element_, "remove-filter", filters_.at(std::stoul(number) - 1));
}

void Stage::hand_over(const std::string& property) {
  const int fd = qel_device_open("qel_demux0", O_RDONLY | O_NONBLOCK);
  g_object_set(element_, property.c_str(), fd, nullptr);
}

void Stage::set_fault(const std::string& rule) {
  faults_ = rule.empty() ? "" : faults_ + rule + "\n";
  EXPECT_EQ(qel_faults_set(faults_.c_str()), 0) << rule;
}

void Stage::lack(const std::string& what) {
  system_refuses(what == "semaphores" ? "semget" : what);
  limit_descriptors(what == "descriptors");
}

void Stage::occupy(const std::string& name) {
  gst_element_add_pad(as_element(element_), gst_pad_new(name.c_str(), GST_PAD_SRC));
  g_test_expect_message("GStreamer", G_LOG_LEVEL_CRITICAL, "*is not unique*");
}

void Stage::lose_record(const std::string& index) {
  const auto i = static_cast<guint>(std::stoul(index));
  std::swap(element_->streams[i], lost_[i]);
}

void Stage::register_plugin(const std::string&) {
  write(gst_plugin_desc.plugin_init(nullptr) ? "= TRUE" : "= FALSE");
}

void Stage::describe(const std::string&) { lines_ = describe_class(); }

void Stage::show(const std::string&) {
  const GstVantrel* self = element_;
  std::string text = ":";
  const auto flag = [&](bool set, const char* name) { text += set ? std::string(" ") + name : ""; };
  flag(self->initiated == 1, "initiated");
  flag(self->opened, "opened");
  flag(self->devices_created, "devices_created");
  flag(self->paused, "paused");
  flag(self->audio_dmx_enabled, "audio_dmx_enabled");
  flag(self->start_userdata_flag, "start_userdata_flag");
  flag(self->start_pesdata_flag, "start_pesdata_flag");
  flag(self->start_temi_flag, "start_temi_flag");
  flag(self->userdata_thread != nullptr, "userdata_thread");
  flag(self->pesdata_thread != nullptr, "pesdata_thread");
  flag(self->temi_thread != nullptr, "temi_thread");
  flag(self->usrdata_poll != nullptr, "usrdata_poll");
  flag(self->temi_fd >= 0, "temi_fd");
  flag(self->temi_enable, "temi_enable");
  flag(self->video_codec_sub != 0, "video_codec_sub");
  flag(self->audio_codec_sub != 0, "audio_codec_sub");
  flag(self->fastboot_videodec_flag, "fastboot_videodec_flag");
  write(text);
  if (const std::string pads = pad_names(&element_->element); !pads.empty())
    write(":   pads" + pads);
  if (const auto& isdb = self->isdb_pids; self->isdb_index != 0 || isdb[0] + isdb[1] + isdb[2] != 0)
    write(":   isdb " + std::to_string(isdb[0]) + " " + std::to_string(isdb[1]) + " " +
          std::to_string(isdb[2]) + ", index " + std::to_string(self->isdb_index));
  std::lock_guard lock(element_->stream_lock);
  for (guint i = 0; i < self->n_streams; i++) {
    if (self->streams[i] == nullptr) continue;
    const GstTvTsDemuxStream& stream = *self->streams[i];
    write(":   " + content_name(stream.content) + " " + std::to_string(stream.pid) + ":" +
          std::to_string(stream.codec) + (stream.fd > 0 ? " open" : "") +
          (stream.running ? " running" : "") + (stream.pad ? " pad" : ""));
  }
}

void Stage::set_property(const std::string& name, const std::string& value) {
  if (value == "NULL")
    g_object_set(element_, name.c_str(), nullptr, nullptr);
  else
    gst_util_set_object_arg(G_OBJECT(element_), name.c_str(), value.c_str());
}

void Stage::get_property(const std::string& name) {
  g_auto(GValue) value = G_VALUE_INIT;
  g_object_get_property(G_OBJECT(element_), name.c_str(), &value);
  g_autofree gchar* text = g_strdup_value_contents(&value);
  write(std::string("= ") + (G_VALUE_HOLDS_POINTER(&value) && text[0] == '(' ? "ADDRESS" : text));
}

bool Stage::call_operation(const std::string& name) {
  for (const Operation& row : kOperations) {
    if (name != row.name) continue;
    write(row.run(element_) ? "= TRUE" : "= FALSE");
    return true;
  }
  return false;
}

}  // namespace vantrel::testing
