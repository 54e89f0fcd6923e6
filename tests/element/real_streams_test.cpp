// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/element/harness.h"
#include "tests/support/test_node.h"
#include "tests/support/ts_reader.h"

/// Captured streams, played from the file to the application's signals and to a
/// decoder's port, beside what a plain reading of the file says is in it.
namespace vantrel::testing {
namespace {

using stream::elementary_bytes;
using stream::Payload;
using stream::payloads;

/// The PES packets of a PID, each as long as it says, or up to the next one.
std::vector<std::string> pes_packets(const std::string& file, guint pid) {
  std::vector<std::string> packets;
  for (const Payload& payload : payloads(file, pid)) {
    if (payload.unit_start) packets.emplace_back();
    if (!packets.empty()) packets.back() += payload.bytes;
  }
  for (std::string& packet : packets) {
    const std::size_t length = stream::byte_at(packet, 4) << 8 | stream::byte_at(packet, 5);
    if (length >= 3) packet.resize(std::min(packet.size(), length + 6));
  }
  return packets;
}

/// Takes the whole sections off the front of what was gathered; stuffing and
/// what precedes a first section are no sections.
void take_sections(std::string& gathered, std::vector<std::string>& sections) {
  while (gathered.size() >= 3 && stream::byte_at(gathered, 0) != 0xFF) {
    const std::size_t size =
        3 + ((stream::byte_at(gathered, 1) & 0xF) << 8 | stream::byte_at(gathered, 2));
    if (size > gathered.size()) return;
    sections.push_back(gathered.substr(0, size));
    gathered.erase(0, size);
  }
}

std::vector<std::string> sections(const std::string& file, guint pid, guint table_id) {
  std::vector<std::string> all;
  std::string gathered;
  bool synced = false;
  for (const Payload& payload : payloads(file, pid)) {
    if (!payload.follows) {
      gathered.clear();
      synced = false;
    }
    std::string bytes = payload.bytes;
    if (payload.unit_start) {
      const std::size_t pointer = stream::byte_at(bytes, 0);
      if (synced) take_sections(gathered += bytes.substr(1, pointer), all);
      gathered.clear();
      bytes.erase(0, 1 + pointer);
      synced = true;
    }
    if (synced) take_sections(gathered += bytes, all);
  }
  std::erase_if(
      all, [&](const std::string& section) { return stream::byte_at(section, 0) != table_id; });
  return all;
}

/// Plays a file through filesrc and the element until EOS.
class Player {
 public:
  explicit Player(const std::string& path) : pipeline_(gst_pipeline_new(nullptr)) {
    gst_object_ref_sink(pipeline_);
    GstElement* source = gst_element_factory_make("filesrc", nullptr);
    g_object_set(source, "location", path.c_str(), nullptr);
    gst_bin_add_many(GST_BIN(pipeline_), source, GST_ELEMENT(gst_object_ref(element.get())),
                     nullptr);
    EXPECT_TRUE(gst_element_link(source, element.get()));
  }
  ~Player() {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
  }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  /// No data passes before play() while a stream is not programmed.
  void pause() { gst_element_set_state(pipeline_, GST_STATE_PAUSED); }

  void play() {
    gst_element_set_state(pipeline_, GST_STATE_PLAYING);
    g_autoptr(GstBus) bus = gst_element_get_bus(pipeline_);
    const auto types = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
    g_autoptr(GstMessage) message =
        gst_bus_timed_pop_filtered(bus, 3 * kPatience.count() * GST_SECOND, types);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(GST_MESSAGE_TYPE(message), GST_MESSAGE_EOS);
  }

  Element element;

 private:
  GstElement* pipeline_;
};

class RealStream : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("VANTREL_STREAMS") == nullptr)
      GTEST_SKIP() << "VANTREL_STREAMS names no folder of captured streams";
  }

  /// The bytes of a captured file, which must be there.
  static std::string load(const char* name) {
    std::string bytes = stream::load(stream::captured(name));
    EXPECT_FALSE(bytes.empty()) << name;
    return bytes;
  }
};

TEST_F(RealStream, GivesItsSubtitlesAndTeletextByteForByte) {
  struct Case {
    const char* file;
    std::vector<guint> subtitles;
    guint teletext;
  };
  const Case cases[] = {
      {"h264-subtitles.ts", {0xBC7}, 0},
      {"mpts-dvbt.ts", {0x240, 0x241, 0x257}, 0x242},
      {"scrambled.ts", {0x157}, 0},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.file);
    const std::string file = load(row.file);
    Player player(stream::captured(row.file));
    std::vector<guint> pids = row.subtitles;
    const auto add_caption = [&](guint pid) {
      player.element.set("isdb-pid", static_cast<gint>(pid));
    };
    add_caption(pids[0]);
    player.pause();  // captions have streams of their own once there are pads
    std::for_each(pids.begin() + 1, pids.end(), add_caption);
    if (row.teletext != 0) {
      player.element.set("ttx-pid", static_cast<gint>(row.teletext));
      pids.push_back(row.teletext);
    }
    player.play();
    for (const guint pid : pids) {
      SCOPED_TRACE(pid);
      const auto expected = pes_packets(file, pid);
      EXPECT_FALSE(expected.empty());
      EXPECT_TRUE(player.element.received(pid) == expected);
    }
  }
}

TEST_F(RealStream, GivesItsTablesSectionBySection) {
  struct Case {
    const char* file;
    guint pid;
    guint table_id;
  };
  const Case cases[] = {
      {"mpts-dvbt.ts", 0x00, 0x00},  {"mpts-dvbt.ts", 0x100, 0x02},
      {"mpts-dvbt.ts", 0x11, 0x42},  {"mpts-dvbt.ts", 0x12, 0x4E},
      {"mpts-dvbt.ts", 0xBB9, 0x3C}, {"h264-subtitles.ts", 0xBC2, 0x02},
      {"eit.ts", 0x12, 0x4E},        {"eit.ts", 0x12, 0x50},
      {"atsc.ts", 0x1FFB, 0xC7},     {"isdb.ts", 0x12, 0x60},
      {"scrambled.ts", 0x16E, 0x81},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(::testing::Message()
                 << row.file << " PID " << row.pid << " table " << row.table_id);
    const auto expected = sections(load(row.file), row.pid, row.table_id);
    EXPECT_FALSE(expected.empty());
    Player player(stream::captured(row.file));
    player.element.add(row.pid, row.table_id);
    player.play();
    EXPECT_TRUE(player.element.received(row.pid) == expected);
  }
}

TEST_F(RealStream, ReachesTheVideoDecoderWhole) {
  struct Case {
    const char* file;
    guint pid;
    guint codec;
  };
  const Case cases[] = {
      {"h264-subtitles.ts", 0xBC3, 3},
      {"h264-mp2.ts", 0x65, 3},
      {"mpts-dvbt.ts", 0x200, 2},
      {"scrambled.ts", 0x3F2, 3},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.file);
    const std::string expected = elementary_bytes(load(row.file), row.pid);
    EXPECT_FALSE(expected.empty());
    Player player(stream::captured(row.file));
    const std::string entry = std::to_string(row.pid) + ":" + std::to_string(row.codec);
    player.element.set("pids", ("video:" + entry).c_str());
    test::TestNode port("vdec0", O_RDONLY);
    std::string received;
    test::Background reader([&] {
      received = stream::text(port.read_all());
      return port.last;
    });
    player.pause();
    player.element.set("videodec-device", "vdec0");
    player.play();
    EXPECT_EQ(reader.result(), 0);
    EXPECT_TRUE(received == expected);
  }
}

}  // namespace
}  // namespace vantrel::testing
