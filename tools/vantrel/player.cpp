// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/vantrel/player.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "common/unique_fd.h"
#include "tools/core/failure.h"

namespace tools {
namespace {

// Ports and subtitles bear the names of the demultiplexer's pads they belong to.
constexpr const char* kVideoPad = "video-src";
constexpr const char* kAudioPad = "audio-src";
constexpr const char* kSubtitlePad = "subtitle-src";
/// A few pictures are decoded ahead, so that a hard one does not come late.
const std::string kVideo =
    "qelvideodec name=video-src device=vdec0 ! decodebin ! "
    "queue max-size-buffers=4 max-size-bytes=0 max-size-time=0 ! videoconvert ! deinterlace ! ";
const std::string kSubtitles =
    "dvbsuboverlay name=overlay qelsubtitle name=subtitle-src ! overlay.text_sink overlay. ! ";
const std::string kVideoEnd = "videoconvert ! videoscale name=end";
const std::string kAudio =
    "qelaudiodec name=audio-src ! decodebin ! queue ! audioconvert ! audioresample name=end";

void leave_out(const char* sink) {
  GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), sink);
  if (feature == nullptr) return;
  gst_plugin_feature_set_rank(feature, GST_RANK_NONE);
  gst_object_unref(feature);
}

/// DirectFB's sink ends the process where it finds no screen; the console's take
/// seconds to fail, and have no business beside a display server.
void choose_among_sinks() {
  leave_out("dfbvideosink");
  if (std::getenv("DISPLAY") == nullptr && std::getenv("WAYLAND_DISPLAY") == nullptr) return;
  leave_out("kmssink");
  leave_out("fbdevsink");
}

/// The libraries behind sinks that are not to be had complain by themselves.
class QuietErrors {
 public:
  QuietErrors() : kept_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    const vantrel::UniqueFD nothing(open("/dev/null", O_WRONLY | O_CLOEXEC));
    dup2(nothing.get(), STDERR_FILENO);
  }
  ~QuietErrors() { dup2(kept_.get(), STDERR_FILENO); }
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;

 private:
  vantrel::UniqueFD kept_;
};

/// The sink that the framework chooses; nothing where it finds none and would go
/// on with one that throws all away.
PipelinePtr find_sink(const char* chooser) {
  const QuietErrors quiet;
  GstElement* made = gst_element_factory_make(chooser, nullptr);
  if (made == nullptr) return nullptr;
  PipelinePtr sink(GST_ELEMENT(gst_object_ref_sink(made)));
  if (gst_element_set_state(made, GST_STATE_READY) == GST_STATE_CHANGE_FAILURE) return nullptr;
  const GList* child = GST_BIN_CHILDREN(made);
  if (child == nullptr) return nullptr;
  GstElementFactory* factory = gst_element_get_factory(GST_ELEMENT(child->data));
  if (g_str_equal(gst_plugin_feature_get_name(factory), "fakesink")) return nullptr;
  return sink;
}

GstElement* parse(const std::string& description) {
  g_autoptr(GError) error = nullptr;
  GstElement* bin = gst_parse_bin_from_description_full(description.c_str(), FALSE, nullptr,
                                                        GST_PARSE_FLAG_FATAL_ERRORS, &error);
  if (bin == nullptr)
    throw Failure(Status::kFailed, std::string(error->message) +
                                       " (is GStreamer's package missing, or GST_PLUGIN_PATH not "
                                       "set?)");
  return bin;
}

/// The bin keeps it.
GstElement* find(GstElement* bin, const char* name) {
  g_autoptr(GstElement) found = gst_bin_get_by_name(GST_BIN(bin), name);
  return found;
}

void add_probe(GstElement* element, const char* pad_name, GstPadProbeType type,
               GstPadProbeCallback call, gpointer data) {
  g_autoptr(GstPad) pad = gst_element_get_static_pad(element, pad_name);
  gst_pad_add_probe(pad, type, call, data, nullptr);
}

/// The end for an output that will get nothing from its decoder any more.
void end_output(GstElement* output) {
  g_autoptr(GstPad) pad = gst_element_get_static_pad(output, "sink");
  gst_pad_send_event(pad, gst_event_new_stream_start("ended"));
  gst_pad_send_event(pad, gst_event_new_eos());
}

bool is_error(GstMessage* message, GQuark domain, int code) {
  g_autoptr(GError) error = nullptr;
  gst_message_parse_error(message, &error, nullptr);
  return g_error_matches(error, domain, code) != FALSE;
}

}  // namespace

Outputs::Outputs(const Shown& shown) {
  choose_among_sinks();
  if (shown.video != nullptr) video = find_sink("autovideosink");
  if (shown.video != nullptr && video == nullptr)
    throw Failure(Status::kNoOutput,
                  "there is no display to show pictures on; --snapshot PNG needs none");
  if (shown.audio == nullptr) return;
  audio = find_sink("autoaudiosink");
  if (audio != nullptr) return;
  if (shown.video == nullptr)
    throw Failure(Status::kNoOutput, "there is no sound output, and the service has no picture");
  std::fprintf(stderr, "%s: there is no sound output; playing without sound\n", g_get_prgname());
}

Player::Player(Session& session, const Shown& shown, const Outputs& outputs)
    : pipeline_(session.pipeline()) {
  session.on_error([this](GstMessage* message) { return on_error(message); });
  g_signal_connect(session.demux(), "pad-added", G_CALLBACK(on_pad), pipeline_);
  if (outputs.video != nullptr)
    add(kVideo + (shown.subtitle != nullptr ? kSubtitles : "") + kVideoEnd, kVideoPad,
        outputs.video, on_picture);
  if (outputs.audio != nullptr) add(kAudio, kAudioPad, outputs.audio, on_sound);
}

/// What its pipeline calls is gone with it.
Player::~Player() { gst_element_set_state(pipeline_, GST_STATE_NULL); }

void Player::add(const std::string& elements, const char* port, const PipelinePtr& output,
                 GstPadProbeCallback count) {
  GstElement* bin = parse(elements);
  gst_bin_add_many(GST_BIN(pipeline_), bin, GST_ELEMENT(gst_object_ref(output.get())), nullptr);
  gst_element_link(find(bin, "end"), output.get());
  const Branch& branch = branches_.emplace_back(bin, find(bin, port), output.get());
  add_probe(branch.port, "src", GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, on_end,
            const_cast<Branch*>(&branch));
  add_probe(branch.output, "sink", GST_PAD_PROBE_TYPE_BUFFER, count, this);
}

void Player::on_pad(GstElement* demux, GstPad* pad, gpointer pipeline) {
  g_autofree gchar* name = gst_pad_get_name(pad);
  g_autoptr(GstElement) port = gst_bin_get_by_name(GST_BIN(pipeline), name);
  if (port != nullptr && !gst_element_link_pads(demux, name, port, "sink"))
    GST_ELEMENT_ERROR(port, STREAM, FORMAT, ("%s cannot be decoded.", name), (nullptr));
}

/// A stream that never came: its decoder would take the end for an error.
GstPadProbeReturn Player::on_end(GstPad* pad, GstPadProbeInfo* info, gpointer branch) {
  if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) != GST_EVENT_EOS ||
      gst_pad_has_current_caps(pad))
    return GST_PAD_PROBE_OK;
  end_output(static_cast<Branch*>(branch)->output);
  return GST_PAD_PROBE_DROP;
}

GstPadProbeReturn Player::on_picture(GstPad*, GstPadProbeInfo*, gpointer data) {
  auto* self = static_cast<Player*>(data);
  if (self->pictures_++ == 0)
    self->first_picture_ = std::chrono::steady_clock::now().time_since_epoch().count();
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn Player::on_sound(GstPad*, GstPadProbeInfo* info, gpointer data) {
  const GstClockTime duration = GST_BUFFER_DURATION(GST_PAD_PROBE_INFO_BUFFER(info));
  if (GST_CLOCK_TIME_IS_VALID(duration)) static_cast<Player*>(data)->sound_ += duration;
  return GST_PAD_PROBE_OK;
}

std::optional<double> Player::first_picture() const {
  if (first_picture_ == 0) return std::nullopt;
  return static_cast<double>(first_picture_) / 1e9;
}

/// Sound that cannot be decoded does not end the pictures. Of pictures that cannot,
/// who plays has to say more than the decoder does.
ErrorVerdict Player::on_error(GstMessage* message) {
  closed_ = is_error(message, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND) &&
            GST_OBJECT_FLAG_IS_SET(GST_MESSAGE_SRC(message), GST_ELEMENT_FLAG_SINK);
  if (closed_) return ErrorVerdict::kEnd;
  for (const Branch& branch : branches_)
    if (branches_.size() > 1 && branch.port == find(pipeline_, kAudioPad) &&
        gst_object_has_as_ancestor(GST_MESSAGE_SRC(message), GST_OBJECT(branch.elements))) {
      std::fprintf(stderr, "%s: no sound: %s\n", g_get_prgname(), error_text(message).c_str());
      end_output(branch.output);
      return ErrorVerdict::kGoOn;
    }
  const bool undecoded = is_error(message, GST_STREAM_ERROR, GST_STREAM_ERROR_DECODE);
  return undecoded && pictures_ == 0 ? ErrorVerdict::kEnd : ErrorVerdict::kFail;
}

}  // namespace tools
