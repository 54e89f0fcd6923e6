// SPDX-License-Identifier: LGPL-2.1-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qel/device.h>
#include <qel/receiver.h>

#include "tests/end_to_end/scene.h"

namespace vantrel::testing {
namespace {

/// A node as a program sets it up that runs before there is a pipeline.
int programmed_node(guint pid, dmx_ts_pes pes_type) {
  const int fd = qel_device_open("qel_demux0", O_RDONLY | O_NONBLOCK);
  dmx_pes_filter_params params{.pid = static_cast<guint16>(pid),
                               .input = DMX_IN_FRONTEND,
                               .output = DMX_OUT_DECODER,
                               .pes_type = pes_type,
                               .flags = DMX_IMMEDIATE_START};
  EXPECT_EQ(qel_device_ioctl(fd, KWRX_DMX_SET_BUFFER_SIZE, 131072UL), 0);
  EXPECT_EQ(qel_device_ioctl(fd, KWRX_DMX_SET_PES_FILTER, &params), 0);
  return fd;
}

/// What the decoders of video and audio get, and how the clock stands.
struct Outcome {
  std::string video;
  std::string audio;
  bool has_clock = false;

  bool operator==(const Outcome&) const = default;
};

constexpr std::size_t kAnywhere = 1234567;  // within a packet of a picture

/// Live viewing that begins before the pipeline does, or with it.
Outcome watch(bool handed_over) {
  qel_receiver_set_pacing(0, 0);
  Reader video("vdec0");
  Reader audio("adec0");
  Outcome outcome;
  const auto drain = [&] {
    outcome.video += video.read();
    outcome.audio += audio.read();
  };
  int fds[3] = {};
  if (handed_over) {
    fds[0] = programmed_node(kVideo, DMX_PES_VIDEO0);
    fds[1] = programmed_node(kAudio, DMX_PES_AUDIO0);
    fds[2] = programmed_node(kVideo, DMX_PES_PCR0);
    in_pieces(own_stream().substr(0, kAnywhere), [&](const std::string& piece) {
      EXPECT_EQ(qel_receiver_feed(0, DMX_IN_FRONTEND, piece.data(), piece.size()), 0);
      drain();
    });
  }
  Element element(DMX_TYPE_LIVE);
  Upstream upstream(element.get());
  Trace journal;
  if (handed_over) {
    element.set("dmx-video-fd", fds[0]);
    element.set("dmx-audio-fd", fds[1]);
    element.set("dmx-pcr-fd", fds[2]);
  }
  element.set("pids", "video:256:3/audio:257:6/pcr:256:0");
  element.go(GST_STATE_PLAYING);
  element.set("videodec-device", "vdec0");
  if (handed_over) {
    EXPECT_EQ(journal.take(), std::vector<std::string>{});  // filters are left alone
  }
  upstream.start_of_stream();
  in_pieces(own_stream().substr(handed_over ? kAnywhere : 0), [&](const std::string& piece) {
    EXPECT_EQ(upstream.push(piece), GST_FLOW_OK);
    drain();
  });
  dmx_stc* stc = nullptr;
  g_object_get(element.get(), "dmx-stc", &stc, nullptr);
  outcome.has_clock = stc != nullptr && stc->stc != 0;
  journal.take();
  element.set("vpid", kEit);  // the nodes are the element's now
  EXPECT_EQ(journal.take().at(1), "ioctl(#1<qel_demux0>, KWRX_DMX_STOP) = 0");
  element.go(GST_STATE_NULL);
  EXPECT_EQ(open_nodes(0), 0);
  qel_receiver_set_pacing(0, 1);
  return outcome;
}

TEST(FastBoot, HandsOverInTheMiddleOfAPicture) {
  const Outcome plain = watch(false);
  EXPECT_TRUE(plain.video == stream::elementary_bytes(own_stream(), kVideo));
  EXPECT_TRUE(plain.audio == stream::elementary_bytes(own_stream(), kAudio));
  EXPECT_TRUE(plain.has_clock);
  EXPECT_TRUE(watch(true) == plain);
}

}  // namespace
}  // namespace vantrel::testing
