// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include "tests/element/harness.h"

namespace vantrel::testing {
namespace {

/// The word in "pids" for each content and its codec there; a property for those
/// that have none.
struct Content {
  const char* name;
  int codec;
};
constexpr Content kContents[8] = {{"video", 3}, {"audio", 6},     {"subtitle", 29}, {"ttx-pid", -1},
                                  {"pcr", 0},   {"video-sub", 4}, {"ad-pid", -1},   {"other", 30}};

void set_content(Element& element, guint content, guint pid) {
  const Content& row = kContents[content];
  if (row.codec < 0) return element.set(row.name, pid);
  const std::string fields = ":" + std::to_string(pid) + ":" + std::to_string(row.codec);
  element.set("pids", (row.name + fields).c_str());
}

// Row: the new content; a 1 stops the content of the column.
constexpr int kStops[8][8] = {
    // V  A  S  T  P  VS AD O
    {0, 1, 1, 1, 0, 0, 1, 0},  // video
    {1, 0, 1, 1, 0, 1, 1, 0},  // audio
    {0, 0, 0, 1, 0, 0, 0, 0},  // subtitle
    {0, 0, 1, 0, 0, 0, 0, 0},  // teletext
    {0, 0, 1, 1, 0, 0, 0, 0},  // PCR
    {0, 1, 1, 1, 0, 0, 1, 0},  // second video
    {1, 1, 1, 1, 0, 1, 0, 0},  // audio description
    {0, 0, 0, 0, 0, 0, 0, 0},  // other
};

/// What becomes of the second PID of a content: only written down, programmed
/// in place of the first, or given a stream of its own.
enum class Second { kWritten, kProgrammed, kOwnStream };

/// A demux type and a state, and the contents as bits whose stream takes a second
/// PID and is programmed, or takes it and is not; the others get a stream more.
struct Situation {
  guint demux_type;
  GstState state;
  guint programmed;
  guint written;
};

constexpr guint kPcr = 1U << STREAM_CONTENT_PCR;
constexpr guint kOther = 1U << STREAM_CONTENT_OTHER;
constexpr Situation kSituations[] = {
    {DMX_TYPE_LIVE, GST_STATE_NULL, 0, 0xFF},
    {DMX_TYPE_PVR_PLAYBACK, GST_STATE_NULL, 0, 0xFF},
    {DMX_TYPE_DTV_RECORD, GST_STATE_NULL, 0, kPcr},
    {DMX_TYPE_ATV_RECORD, GST_STATE_NULL, 0, kPcr},
    {9, GST_STATE_NULL, 0, kPcr},
    {DMX_TYPE_LIVE, GST_STATE_PAUSED, 0xFF & ~kOther, kOther},
    {DMX_TYPE_PVR_PLAYBACK, GST_STATE_PAUSED, 0xFF & ~kOther, kOther},
    {DMX_TYPE_DTV_RECORD, GST_STATE_PAUSED, kPcr, 0},
    {DMX_TYPE_ATV_RECORD, GST_STATE_PAUSED, kPcr, 0},
    {9, GST_STATE_PAUSED, 0xFF & ~kOther, 0},
};

Second second_of(const Situation& row, guint content) {
  if ((row.programmed >> content & 1) != 0) return Second::kProgrammed;
  return (row.written >> content & 1) != 0 ? Second::kWritten : Second::kOwnStream;
}

/// An element with a stream of each content, all on one PID.
struct OnOnePid : Element {
  static constexpr guint kPid = 0x123;

  explicit OnOnePid(const Situation& row) : Element(row.demux_type) {
    set("videodec-device", "vdec0");
    set("videodec-device-sub", "vdec1");
    if (row.state != GST_STATE_NULL) go(row.state);
    for (guint content = 0; content < 8; content++) set_content(*this, content, kPid);
  }

  std::vector<guint> pids_of(guint content) {
    std::vector<guint> pids;
    for (guint i = 0; i < state()->n_streams; i++)
      if (state()->streams[i]->content == content) pids.push_back(state()->streams[i]->pid);
    return pids;
  }
};

/// Contents that the lines say were stopped for sharing a PID, as bits.
guint stopped_in(const std::vector<Log::Line>& lines) {
  guint stopped = 0;
  for (const Log::Line& line : lines) {
    if (!line.message.starts_with("[GST_VANTREL] can not set same PID, so stop filter: fd["))
      continue;
    const std::size_t content = line.message.find("content[");
    stopped |= 1U << std::stoul(line.message.substr(content + 8));
  }
  return stopped;
}

int programmed_in(const std::vector<Log::Line>& lines) {
  int programmed = 0;
  for (const Log::Line& line : lines)
    if (line.message.starts_with("DMX_SET_PES_FILTER ")) programmed++;
  return programmed;
}

TEST(StreamChange, StopsExactlyTheConflictingContentsOnTheSamePid) {
  for (const Situation& row : kSituations) {
    OnOnePid element(row);
    for (guint fresh = 0; fresh < 8; fresh++) {
      SCOPED_TRACE(::testing::Message() << "demux type " << row.demux_type << ", state "
                                        << row.state << ", new " << fresh);
      guint stops = 0;
      for (guint old = 0; old < 8; old++) stops |= static_cast<guint>(kStops[fresh][old]) << old;
      Log log;
      set_content(element, fresh, 0x200 + fresh);
      EXPECT_EQ(stopped_in(log.take()), 0U);
      set_content(element, fresh, OnOnePid::kPid);
      EXPECT_EQ(stopped_in(log.take()), stops);
    }
  }
}

TEST(StreamChange, GivesASecondPidToTheStreamThereIsOrToOneMore) {
  constexpr guint kSecond = 0x124;
  for (const Situation& row : kSituations) {
    OnOnePid element(row);
    for (guint content = 0; content < 8; content++) {
      SCOPED_TRACE(::testing::Message() << "demux type " << row.demux_type << ", state "
                                        << row.state << ", content " << content);
      const Second second = second_of(row, content);
      Log log;
      set_content(element, content, kSecond);
      const bool programs = row.state != GST_STATE_NULL && second != Second::kWritten;
      EXPECT_EQ(programmed_in(log.take()), programs ? 1 : 0);
      const auto pids = second == Second::kOwnStream ? std::vector{OnOnePid::kPid, kSecond}
                                                     : std::vector{kSecond};
      EXPECT_EQ(element.pids_of(content), pids);
    }
  }
}

}  // namespace
}  // namespace vantrel::testing
