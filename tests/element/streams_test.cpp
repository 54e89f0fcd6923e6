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

TEST(StreamChange, StopsExactlyTheConflictingContentsOnTheSamePid) {
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
  for (guint fresh = 0; fresh < 8; fresh++) {
    for (guint old = 0; old < 8; old++) {
      if (old == fresh) continue;
      SCOPED_TRACE(::testing::Message() << "new " << fresh << " over " << old);
      Element element(DMX_TYPE_LIVE);
      element.set("videodec-device", "vdec0");
      element.set("videodec-device-sub", "vdec1");
      element.go(GST_STATE_PAUSED);
      set_content(element, old, 0x123);
      Log log;
      set_content(element, fresh, 0x123);
      int stops = 0;
      for (const Log::Line& line : log.take())
        if (line.message.starts_with("[GST_VANTREL] can not set same PID, so stop filter: fd["))
          stops++;
      EXPECT_EQ(stops, kStops[fresh][old]);
    }
  }
}

}  // namespace
}  // namespace vantrel::testing
