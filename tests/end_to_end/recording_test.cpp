// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <qel/receiver.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>

#include "tests/end_to_end/scene.h"

namespace vantrel::testing {
namespace {

using Lines = std::vector<std::string>;

/// An element that records, fed packet by packet and read in between, so that
/// what is recorded does not depend on who is faster.
class Recording {
 public:
  explicit Recording(guint demux_type) : element(demux_type), upstream_(element.get()) {
    qel_receiver_set_pacing(0, 0);
  }
  ~Recording() { qel_receiver_set_pacing(0, 1); }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  void start() {
    element.go(GST_STATE_PLAYING);
    EXPECT_TRUE(peer_.link(element.get(), "spts_src"));
    upstream_.start_of_stream();
  }
  void record(const std::string& bytes) {
    in_pieces(bytes, [&](const std::string& piece) {
      EXPECT_EQ(upstream_.push(piece), GST_FLOW_OK);
      recorded_ += node_.read();
    });
  }
  const std::string& finish() {
    EXPECT_TRUE(upstream_.send(gst_event_new_eos()));
    EXPECT_TRUE(node_.at_end());
    EXPECT_EQ(peer_.take(), (Lines{"stream-start", "caps", "stream-start", "segment", "eos"}));
    EXPECT_EQ(element.get()->numsrcpads, 1);
    return recorded_;
  }

  Element element;

 private:
  Upstream upstream_;
  Decoder peer_;
  Reader node_{"qel_dvr0"};
  std::string recorded_;
};

/// What a program, run by a shell, prints.
std::string output_of(const std::string& command) {
  std::string text;
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> buffer{};
  while (std::size_t count = fread(buffer.data(), 1, buffer.size(), pipe))
    text.append(buffer.data(), count);
  EXPECT_EQ(pclose(pipe), 0) << command << "\n" << text;
  return text;
}

/// What is wrong with a stream in the eyes of a player, and what it shows.
struct Viewing {
  explicit Viewing(const std::string& bytes, guint video, guint audio) {
    const std::string path = ::testing::TempDir() + "rec-" + std::to_string(getpid()) + ".ts";
    stream::save(path, bytes);
    complaints = output_of("ffprobe -v error " + path + " 2>&1");
    const auto map = [](guint pid) { return " -map 0:i:" + std::to_string(pid); };
    frames = output_of("ffmpeg -nostdin -v quiet -copyts -i " + path + map(video) + map(audio) +
                       " -f framemd5 -");
    std::filesystem::remove(path);
  }
  [[nodiscard]] auto count() const { return std::count(frames.begin(), frames.end(), '\n'); }

  std::string complaints;
  std::string frames;
};

bool has_player() {
  g_autofree gchar* program = g_find_program_in_path("ffprobe");
  return program != nullptr;
}

/// Streams to record from, and what is asked for.
struct Programme {
  std::string bytes;
  guint video;
  guint audio;
  guint pcr;
  std::vector<guint> others;

  [[nodiscard]] std::set<guint> pids() const {
    std::set<guint> all = {video, audio, pcr};
    all.insert(others.begin(), others.end());
    return all;
  }
};

std::vector<Programme> programmes() {
  std::vector<Programme> list = {
      {own_stream(), kVideo, kAudio, kVideo, {kPat, kPmt, kEit}},
  };
  if (stream::captured("").empty()) return list;
  list.push_back({stream::load(stream::captured("h264-mp2.ts")), 0x65, 0x64, 0x65, {0, 0x63}});
  list.push_back(
      {stream::load(stream::captured("mpts-dvbt.ts")), 0x200, 0x28A, 0x200, {0, 0x102, 0x12}});
  return list;
}

TEST(Recording, HoldsWhatWasAskedForAndPlaysAsTheSourceDoes) {
  const bool viewed = has_player();
  for (const Programme& programme : programmes()) {
    std::optional<Viewing> source;
    if (viewed) source.emplace(programme.bytes, programme.video, programme.audio);
    for (const guint demux_type : {DMX_TYPE_DTV_RECORD, DMX_TYPE_ATV_RECORD}) {
      SCOPED_TRACE(::testing::Message() << "video " << programme.video << " type " << demux_type);
      Recording recording(demux_type);
      recording.element.set("vpid", programme.video);
      recording.element.set("apid", programme.audio);
      recording.element.set("pcr-pid", programme.pcr);
      for (const guint pid : programme.others) recording.element.set("other-pid", pid);
      recording.start();
      recording.record(programme.bytes);
      const std::string& recorded = recording.finish();
      EXPECT_EQ(stream::pids_of(recorded), programme.pids());
      EXPECT_TRUE(recorded == stream::packets_of(programme.bytes, programme.pids()));
      EXPECT_EQ(stream::discontinuities(recorded), 0U);
      if (!viewed) continue;
      const Viewing viewing(recorded, programme.video, programme.audio);
      if (source->complaints.empty()) {
        EXPECT_EQ(viewing.complaints, "");
      }
      EXPECT_GT(viewing.count(), 30);
      EXPECT_TRUE(viewing.frames == source->frames);
    }
  }
  if (!viewed) GTEST_SKIP() << "ffmpeg is not installed: the recordings were not decoded";
}

/// Streams that come and go while the recording runs, from one packet to the next.
TEST(Recording, FollowsWhatIsAddedAndClearedMeanwhile) {
  struct Turn {
    const char* property;
    guint pid;
    std::set<guint> recorded;  // from here on
  };
  const Turn steps[] = {
      {"vpid", kVideo, {kVideo}},
      {"other-pid", kPat, {kVideo, kPat}},
      {"apid", kAudio, {kVideo, kPat, kAudio}},
      {"apid", kSecondAudio, {kVideo, kPat, kAudio, kSecondAudio}},
      {"other-pid", kEit, {kVideo, kPat, kAudio, kSecondAudio, kEit}},
      {"clear-pvr-record", kAudio, {kVideo, kPat, kSecondAudio, kEit}},
      {"clear-pvr-record", 0x1F0, {kVideo, kPat, kSecondAudio, kEit}},
      {"pcr-pid", kVideo, {kVideo, kPat, kSecondAudio, kEit}},
      {"clear-pvr-record", kVideo, {kPat, kSecondAudio, kEit}},
      {"vpid", kVideo, {kVideo, kPat, kSecondAudio, kEit}},
      {"clear-pvr-record", kPat, {kVideo, kSecondAudio, kEit}},
  };
  const std::string& source = own_stream();
  const std::size_t share = source.size() / 188 / std::size(steps) * 188;
  for (const guint demux_type : {DMX_TYPE_DTV_RECORD, DMX_TYPE_ATV_RECORD}) {
    Recording recording(demux_type);
    recording.start();
    std::string expected;
    std::size_t at = 0;
    for (const Turn& step : steps) {
      recording.element.set(step.property, step.pid);
      const std::string piece = source.substr(at, share);
      at += share;
      recording.record(piece);
      expected += stream::packets_of(piece, step.recorded);
    }
    EXPECT_TRUE(recording.finish() == expected) << "type " << demux_type;
  }
}

}  // namespace
}  // namespace vantrel::testing
