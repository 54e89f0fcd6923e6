// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <thread>

#include "config/properties.h"
#include "plugin/gstvantrel.h"
#include "tests/element/harness.h"

namespace vantrel::testing {
namespace {

TEST(ElementClass, IsRegisteredOnceByFirstCallersInParallel) {
  std::array<GType, 8> types{};
  {
    std::vector<std::jthread> threads;
    for (GType& type : types) threads.emplace_back([&type] { type = gst_vantrel_get_type(); });
  }
  for (const GType type : types) EXPECT_EQ(type, types[0]);
  EXPECT_STREQ(g_type_name(types[0]), "Gstvantrel");
}

TEST(Properties, OfOtherIdsAreWarnedOfAndChangeNothing) {
  Element element;
  GObject* object = G_OBJECT(element.get());
  GParamSpec* pspec = g_object_class_find_property(G_OBJECT_GET_CLASS(object), "apid");
  g_auto(GValue) value = G_VALUE_INIT;
  g_value_init(&value, G_TYPE_UINT);
  const auto expect_warning = [](guint id) {
    const std::string text = "gstvantrel:*: invalid property id " + std::to_string(id) +
                             " for \"apid\" of type 'GParamUInt' in 'Gstvantrel'";
    g_test_expect_message("vantrel", G_LOG_LEVEL_WARNING, text.c_str());
  };
  for (const guint id : {0U, 23U, 45U}) {
    expect_warning(id);
    gst_vantrel_set_property(object, id, &value, pspec);
  }
  for (const guint id : {0U, 4U, 45U}) {
    expect_warning(id);
    gst_vantrel_get_property(object, id, &value, pspec);
  }
  g_test_assert_expected_messages();
  EXPECT_EQ(element.state()->n_streams, 0U);
  EXPECT_STREQ(vantrel_get_property_name(0), "UNKNOWN");
  EXPECT_STREQ(vantrel_get_property_name(45), "UNKNOWN");
}

TEST(Properties, ReadAnUnknownCodecAsNone) {
  Element element;
  element.state()->video_codec_type = fourcc('V', 'P', '9', '0');
  Log log;
  gint codec = 0;
  g_object_get(element.get(), "video-codec-type", &codec, nullptr);
  EXPECT_EQ(codec, -1);
  EXPECT_TRUE(log.has("videodec type convert error!"));
  EXPECT_TRUE(log.has("convert video_codec_type from VP90 to -1"));
}

TEST(Signals, WithoutHandlersDoNothingAndAddFilterReturnsTheHandle) {
  Element element;
  guint8 byte = 0;
  g_signal_emit_by_name(element.get(), "temi-data", 1U, &byte);
  EXPECT_NE(element.add(0x10000 | 0x12, 0x4E), nullptr);
  EXPECT_EQ(static_cast<SectionFilter*>(element.state()->running_section_filters.next)->pid, 0x12U);
}

std::string g_closure_called;

/// Whoever derives from the element overrides a closure by its name.
TEST(Signals, CallTheClosureOfTheirOwnName) {
  Element element;
  auto* klass = reinterpret_cast<GstVantrelClass*>(G_OBJECT_GET_CLASS(element.get()));
  ASSERT_EQ(klass->section_upload, nullptr);
  ASSERT_EQ(klass->pes_upload, nullptr);
  ASSERT_EQ(klass->temi_upload, nullptr);
  klass->section_upload = [](GstVantrel*, guint, guint, gpointer, guint, gpointer) {
    g_closure_called += " section";
  };
  klass->pes_upload = [](GstVantrel*, guint, gpointer, guint) { g_closure_called += " pes"; };
  klass->temi_upload = [](GstVantrel*, guint, gpointer) { g_closure_called += " temi"; };
  g_signal_emit_by_name(element.get(), "section-upload", 0U, 0U, nullptr, 0U, nullptr);
  g_signal_emit_by_name(element.get(), "pes-upload", 0U, nullptr, 0U);
  g_signal_emit_by_name(element.get(), "temi-data", 0U, nullptr);
  klass->section_upload = nullptr;
  klass->pes_upload = nullptr;
  klass->temi_upload = nullptr;
  EXPECT_EQ(std::exchange(g_closure_called, {}), " section pes temi");
}

TEST(Signals, RunOrdinaryHandlersBeforeTheClasssOwn) {
  Element element;
  std::pair<Element*, bool> seen{&element, false};
  using Seen = std::pair<Element*, bool>;
  const auto handler = +[](GstElement*, guint, guint, guint, gpointer, gpointer, guint, gboolean,
                           gboolean, gpointer, Seen* data) -> gpointer {
    data->second = data->first->state()->n_section_running == 0;
    return nullptr;
  };
  g_signal_connect(element.get(), "add-filter", G_CALLBACK(handler), &seen);
  gpointer handle = element.add(0x12, 0x4E);
  EXPECT_TRUE(seen.second);
  EXPECT_EQ(handle, static_cast<SectionFilter*>(element.state()->running_section_filters.next));
}

}  // namespace
}  // namespace vantrel::testing
