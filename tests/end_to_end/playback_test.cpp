// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "tests/end_to_end/scene.h"

namespace vantrel::testing {
namespace {

using Lines = std::vector<std::string>;

/// A recording that is played: the nodes #1 video, #2 audio, #3 PCR and
/// #4 audio description; decoders on the pads, readers on their ports.
class Playback {
 public:
  Playback() : element(DMX_TYPE_PVR_PLAYBACK), upstream_(element.get()) {
    const auto note = [this](const std::string& who) {
      return [this, who](const std::string& event) { journal_.note(who + " <- " + event); };
    };
    element.set("pids", "video:256:3/audio:257:6/pcr:256:0");
    element.set("ad-pid", kSecondAudio);
    element.go(GST_STATE_PLAYING);
    element.set("videodec-device", "vdec0");
    EXPECT_TRUE(decoders_[0].link(element.get(), "video-src"));
    EXPECT_TRUE(decoders_[1].link(element.get(), "audio-src"));
    EXPECT_TRUE(decoders_[2].link(element.get(), "audio-description-src"));
    upstream_.start_of_stream();
    journal_.take();
    upstream_.listen(note("upstream"));
    for (std::size_t i = 0; i < std::size(decoders_); i++) decoders_[i].listen(note(kNames[i]));
  }

  /// Sends a custom event upstream, as the audio decoder.
  void send(const char* structure) { EXPECT_FALSE(decoders_[1].send_custom(structure)); }
  void seek(gdouble rate) { EXPECT_TRUE(decoders_[0].seek(rate)); }
  Lines journal() { return journal_.take(); }

  /// Plays these bytes; what comes out at the ports of video, audio, description.
  std::array<std::string, 3> play(const std::string& bytes) {
    std::array<std::string, 3> out;
    in_pieces(bytes, [&](const std::string& piece) {
      EXPECT_EQ(upstream_.push(piece), GST_FLOW_OK);
      for (std::size_t i = 0; i < out.size(); i++) out[i] += ports_[i].read();
    });
    return out;
  }

  Element element;

 private:
  static constexpr std::array kNames = {"video", "audio", "description"};

  std::array<Reader, 3> ports_ = {Reader("vdec0"), Reader("adec0"), Reader("adec1")};
  Trace journal_;
  Upstream upstream_;
  std::array<Decoder, 3> decoders_;
};

std::string request(int node, const char* name) {
  return "ioctl(#" + std::to_string(node) + "<qel_demux0>, KWRX_DMX_" + name + ") = 0";
}
std::string stop(int node) { return request(node, "STOP"); }
std::string start(int node) { return request(node, "START"); }

const std::string kFeedOn = "upstream <- dvr-start, dvr-start-feed=(boolean)true;";
const std::string kFeedOff = "upstream <- dvr-start, dvr-start-feed=(boolean)false;";

/// What is done, what that does in its order, and which ports get data then.
struct Step {
  const char* what;
  void (*act)(Playback&);
  Lines journal;
  std::array<bool, 3> plays;
};

const Step kSteps[] = {
    {"goes on", [](Playback&) {}, {}, {true, true, true}},
    {"seek while everything runs",
     [](Playback& playback) { playback.seek(1.0); },
     {"upstream <- seek"},
     {true, true, true}},
    {"flush before a seek",
     [](Playback& playback) { playback.send("flush, before=(int)1;"); },
     {stop(1), stop(2), stop(3), stop(4), "upstream <- flush, before=(int)1;"},
     {false, false, false}},
    {"fast forward",
     [](Playback& playback) { playback.seek(2.0); },
     {start(1), start(3), "upstream <- seek"},
     {true, false, false}},
    {"back to normal speed",
     [](Playback& playback) { playback.seek(1.0); },
     {start(2), start(4), "upstream <- seek"},
     {true, true, true}},
    {"seek of the audio",
     [](Playback& playback) { playback.send("x, dmx-seek-audio=(boolean)false;"); },
     {stop(2), stop(4)},
     {true, false, false}},
    {"audio stopped for good",
     [](Playback& playback) { playback.send("x, dmx-stop=(boolean)true;"); },
     {},
     {true, false, false}},
    {"seek without audio",
     [](Playback& playback) { playback.seek(1.0); },
     {"upstream <- seek"},
     {true, false, false}},
    {"audio again",
     [](Playback& playback) { playback.send("x, dmx-stop=(boolean)false;"); },
     {start(2)},
     {true, true, false}},
    {"seek with audio",
     [](Playback& playback) { playback.seek(1.0); },
     {start(4), "upstream <- seek"},
     {true, true, true}},
    {"recording no longer fed",
     [](Playback& playback) { playback.send("x, dvr-stop=(boolean)true;"); },
     {kFeedOff, stop(2)},
     {true, false, true}},
    {"recording fed again",
     [](Playback& playback) { playback.send("x, dvr-stop=(boolean)false;"); },
     {start(2), kFeedOn},
     {true, true, true}},
    {"another codec",
     [](Playback& playback) { playback.element.set("video-codec-type", 1); },
     {"video <- video-decode-info, videodec-device=(string)vdec0, "
      "video-codec-type=(uint)875967048;",
      kFeedOff, stop(1), stop(2), stop(3), stop(4),
      "video <- flush-video, flush-video=(boolean)true;",
      "audio <- flush-audio, flush-audio=(boolean)true;",
      "description <- flush-audio, flush-audio=(boolean)true;", start(1), start(2), start(3),
      start(4), kFeedOn},
     {true, true, true}},
};

/// A port is silent while its filter is stopped, and begins with a payload unit
/// start when it runs again; a filter that goes on leaves no gap.
TEST(Playback, StopsAndStartsWhatSeeksAndDecodersAskFor) {
  constexpr std::array kPids = {kVideo, kAudio, kSecondAudio};
  const std::string& source = own_stream();
  const std::size_t share = source.size() / 188 / std::size(kSteps) * 188;
  Playback playback;
  std::array<std::string, 3> got;
  std::array<std::string, 3> expected;
  std::array<std::string, 3> run;  // packets since the filter was started last
  const auto end_run = [&](std::size_t i) {
    expected[i] += stream::elementary_bytes(run[i], kPids[i]);
    run[i].clear();
  };
  for (std::size_t step = 0; step < std::size(kSteps); step++) {
    const Step& row = kSteps[step];
    SCOPED_TRACE(row.what);
    row.act(playback);
    const Lines journal = playback.journal();
    EXPECT_EQ(journal, row.journal);
    const std::string piece = source.substr(step * share, share);
    const auto out = playback.play(piece);
    for (std::size_t i = 0; i < out.size(); i++) {
      EXPECT_EQ(!out[i].empty(), row.plays[i]) << "port " << i;
      const std::string node = "#" + std::to_string(i == 2 ? 4 : i + 1);
      for (const std::string& line : journal)
        if (line.find(node) != line.npos) end_run(i);
      got[i] += out[i];
      if (row.plays[i]) run[i] += piece;
    }
  }
  for (std::size_t i = 0; i < got.size(); i++) {
    end_run(i);
    EXPECT_TRUE(got[i] == expected[i]) << "port " << i;
  }
}

}  // namespace
}  // namespace vantrel::testing
