// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/vantrel/play.h"

#include <gst/tag/tag.h>

#include <chrono>
#include <cstdio>

#include "tools/core/discover.h"
#include "tools/core/failure.h"
#include "tools/core/json.h"
#include "tools/core/pid_watch.h"
#include "tools/core/session.h"
#include "tools/vantrel/player.h"

namespace tools {
namespace {

/// So much of a stream tells whether it is scrambled.
constexpr double kClearWithin = 2;

/// German is "ger" and "deu".
std::string same_code(const std::string& language) {
  const char* code = gst_tag_get_language_code_iso_639_2B(language.c_str());
  return code != nullptr ? code : language;
}

const StreamInfo* find(const Programme& programme, const char* kind, const std::string& language) {
  for (const StreamInfo& stream : programme.streams)
    if (stream.kind == kind && stream.codec_id != 0 &&
        (language.empty() || same_code(stream.language) == same_code(language)))
      return &stream;
  return nullptr;
}

std::string name_of(const Programme& programme) {
  return "service " + std::to_string(programme.number) +
         (programme.name.empty() ? "" : " \"" + programme.name + '"');
}

/// The stream asked for; Failure, which says which there are, when there is none.
const StreamInfo* choose(const Programme& programme, const char* kind,
                         const std::string& language) {
  if (const StreamInfo* found = find(programme, kind, language)) return found;
  std::string languages;
  for (const StreamInfo& stream : programme.streams)
    if (stream.kind == kind && stream.codec_id != 0)
      languages += (languages.empty() ? "" : ", ") +
                   (stream.language.empty() ? "one without a language" : stream.language);
  throw Failure(Status::kNotFound,
                name_of(programme) + " has no " + kind +
                    (language.empty() ? "" : " in \"" + language + '"') +
                    (languages.empty() ? "" : "; there is: " + languages) +
                    (find(programme, "teletext", "") != nullptr && languages.empty()
                         ? " but teletext, which is not shown"
                         : ""));
}

Shown choose_streams(const Programme& programme, const PlayOptions& options) {
  Shown shown;
  shown.video = programme.find("video");
  shown.audio =
      options.audio.empty() ? programme.find("audio") : choose(programme, "audio", options.audio);
  if (options.subtitles) shown.subtitle = choose(programme, "subtitle", *options.subtitles);
  if (shown.video == nullptr && shown.audio == nullptr)
    throw Failure(Status::kNotFound,
                  name_of(programme) + " has neither video nor audio that is decoded here");
  return shown;
}

/// Clear pictures before scrambled ones, these before sound alone.
int merit(const Programme& programme) {
  if (programme.find("video") != nullptr) return programme.scrambled ? 2 : 3;
  return programme.find("audio") != nullptr && !programme.scrambled ? 1 : 0;
}

const Programme& choose_playable(const Psi& psi, const std::string& wanted) {
  if (!wanted.empty()) return choose_service(psi, wanted);
  const Programme* best = &choose_service(psi, "");
  for (const auto& [number, programme] : psi.programmes())
    if (merit(programme) > merit(*best)) best = &programme;
  return *best;
}

std::string describe(const StreamInfo& stream) {
  return stream.codec + (stream.language.empty() ? "" : " " + stream.language);
}

/// Why there is no picture, or no sound.
std::string left_out(const Programme& programme, const char* kind, const StreamInfo* shown) {
  if (shown != nullptr) return "";
  for (const StreamInfo& stream : programme.streams)
    if (stream.kind == kind) return "; " + stream.codec + " is not decoded here";
  return "";
}

void announce(const Programme& programme, const Shown& shown) {
  std::string streams;
  for (const StreamInfo* stream : {shown.video, shown.audio, shown.subtitle})
    if (stream != nullptr) streams += (streams.empty() ? "" : ", ") + describe(*stream);
  std::fprintf(stderr, "playing %s: %s%s%s; Ctrl-C ends\n", name_of(programme).c_str(),
               streams.c_str(), left_out(programme, "video", shown.video).c_str(),
               left_out(programme, "audio", shown.audio).c_str());
}

/// One play of a service.
class Play {
 public:
  Play(Input& input, const Programme& programme, const PlayOptions& options)
      : options_(options),
        programme_(programme),
        shown_(choose_streams(programme, options)),
        main_(shown_.video != nullptr ? *shown_.video : *shown_.audio),
        outputs_(shown_),
        // The other one of two may come late, or not at all.
        watch_(input, {main_.pid}, std::nullopt),
        session_(input, Session::Mode::kPlay),
        player_(session_, shown_, outputs_) {}

  void run(const Input& input) {
    if (!options_.json) announce(programme_, shown_);
    g_object_set(session_.demux(), "pids",
                 pids_of(programme_, {shown_.video, shown_.audio, shown_.subtitle}).c_str(),
                 nullptr);
    session_.on_feed([&](auto data) { watch_.add(data); });
    session_.limit(options_.seconds);
    session_.drop_rest();
    Progress progress("playing", input.size());
    session_.run(&progress, [&] {
      watch_.check();
      return is_scrambled();
    });
  }

  /// Failure where nothing came out.
  void finish(std::chrono::steady_clock::time_point begun) {
    const bool empty = shown_.video != nullptr ? player_.pictures() == 0 : player_.sound() == 0;
    if (empty && !interrupted() && !player_.is_closed()) fail();
    if (options_.json) print(std::chrono::duration<double>(begun.time_since_epoch()).count());
  }

 private:
  [[nodiscard]] bool is_scrambled() const {
    const analysis::PacketCounts::Pid& counts = watch_.rates().pid(main_.pid);
    return counts.packets > 0 && counts.scrambled == counts.packets &&
           watch_.rates().seconds() > kClearWithin;
  }

  [[noreturn]] void fail() const {
    watch_.finish();
    const std::string what =
        name_of(programme_) + ": " + main_.kind + " on PID " + std::to_string(main_.pid);
    if (watch_.rates().pid(main_.pid).scrambled > 0)
      throw Failure(Status::kScrambled, what + " is scrambled");
    throw Failure(Status::kNotFound, what + ": nothing in it could be decoded");
  }

  [[nodiscard]] const char* end() const {
    return interrupted()           ? "signal"
           : player_.is_closed()   ? "window closed"
           : session_.is_limited() ? "duration"
                                   : "end of the stream";
  }

  void print(double begun) const {
    Json json;
    json.object().number("service_id", programme_.number).text_if("name", programme_.name);
    if (shown_.video != nullptr) json.number("video_pid", shown_.video->pid);
    if (outputs_.audio != nullptr) json.number("audio_pid", shown_.audio->pid);
    if (shown_.subtitle != nullptr) json.number("subtitle_pid", shown_.subtitle->pid);
    json.number("pictures", player_.pictures()).real("sound_seconds", player_.sound());
    if (const auto first = player_.first_picture())
      json.real("first_picture_after", *first - begun);
    json.text("end", end()).end_object().print();
  }

  const PlayOptions& options_;
  const Programme& programme_;
  Shown shown_;
  const StreamInfo& main_;
  Outputs outputs_;
  PidWatch watch_;
  Session session_;
  Player player_;
};

}  // namespace

void play(Input& input, const Psi& psi, const PlayOptions& options,
          std::chrono::steady_clock::time_point begun) {
  Play play(input, choose_playable(psi, options.service), options);
  play.run(input);
  play.finish(begun);
}

}  // namespace tools
