// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>

#include <thread>

#include "config/properties.h"
#include "plugin/gstvantrel.h"
#include "plugin/marshallers.h"
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

/// What a closure's callback got, in its order.
std::vector<gpointer> g_called_with;

gpointer note_nine(gpointer instance, guint a, guint b, guint c, gpointer d, gpointer e, guint f,
                   gboolean g, gboolean h, gpointer i, gpointer data) {
  g_called_with = {instance, GUINT_TO_POINTER(a), GUINT_TO_POINTER(b), GUINT_TO_POINTER(c), d,
                   e,        GUINT_TO_POINTER(f), GINT_TO_POINTER(g),  GINT_TO_POINTER(h),  i,
                   data};
  return &g_called_with;
}
void note_five(gpointer instance, guint a, guint b, gpointer c, guint d, gpointer e,
               gpointer data) {
  g_called_with = {instance, GUINT_TO_POINTER(a), GUINT_TO_POINTER(b), c, GUINT_TO_POINTER(d), e,
                   data};
}
void note_three(gpointer instance, guint a, gpointer b, guint c, gpointer data) {
  g_called_with = {instance, GUINT_TO_POINTER(a), b, GUINT_TO_POINTER(c), data};
}

struct MarshallerCase {
  const char* name;
  GSignalCMarshaller marshal;
  GCallback callback;
  std::vector<GType> types;
};

const MarshallerCase kMarshallers[] = {
    {"gst_vantrel_marshal_VOID__UINT_UINT_POINTER_UINT_POINTER",
     gst_vantrel_marshal_VOID__UINT_UINT_POINTER_UINT_POINTER,
     G_CALLBACK(note_five),
     {G_TYPE_UINT, G_TYPE_UINT, G_TYPE_POINTER, G_TYPE_UINT, G_TYPE_POINTER}},
    {"gst_vantrel_marshal_VOID__UINT_POINTER_UINT",
     gst_vantrel_marshal_VOID__UINT_POINTER_UINT,
     G_CALLBACK(note_three),
     {G_TYPE_UINT, G_TYPE_POINTER, G_TYPE_UINT}},
    {"gst_vantrel_marshal_POINTER__UINT_UINT_UINT_POINTER_POINTER_UINT_BOOLEAN_BOOLEAN_POINTER",
     gst_vantrel_marshal_POINTER__UINT_UINT_UINT_POINTER_POINTER_UINT_BOOLEAN_BOOLEAN_POINTER,
     G_CALLBACK(note_nine),
     {G_TYPE_UINT, G_TYPE_UINT, G_TYPE_UINT, G_TYPE_POINTER, G_TYPE_POINTER, G_TYPE_UINT,
      G_TYPE_BOOLEAN, G_TYPE_BOOLEAN, G_TYPE_POINTER}},
};

/// A call of a marshaller: numbers 1, 2, ... as arguments, TRUE as booleans.
struct MarshallerCall {
  MarshallerCall(const MarshallerCase& row, GObject* instance) : arguments(row.types.size() + 1) {
    g_value_init(&arguments[0], G_TYPE_OBJECT);
    g_value_set_object(&arguments[0], instance);
    expected = {instance};
    for (std::size_t i = 1; i < arguments.size(); i++) {
      GValue* value = &arguments[i];
      g_value_init(value, row.types[i - 1]);
      const bool flag = row.types[i - 1] == G_TYPE_BOOLEAN;
      expected.push_back(GSIZE_TO_POINTER(flag ? 1 : i));
      if (row.types[i - 1] == G_TYPE_UINT) g_value_set_uint(value, static_cast<guint>(i));
      if (row.types[i - 1] == G_TYPE_POINTER) g_value_set_pointer(value, expected.back());
      if (flag) g_value_set_boolean(value, TRUE);
    }
    g_value_init(&result, G_TYPE_POINTER);
  }
  ~MarshallerCall() { g_value_unset(&arguments[0]); }

  std::vector<GValue> arguments;
  std::vector<gpointer> expected;
  GValue result = G_VALUE_INIT;
};

TEST(Marshallers, PassArgumentsInOrderAndDataLastOrFirst) {
  Element element;
  for (const MarshallerCase& row : kMarshallers) {
    SCOPED_TRACE(row.name);
    MarshallerCall call(row, G_OBJECT(element.get()));
    gpointer data = &call;
    const auto run = [&](GClosure* closure, gpointer marshal_data) {
      g_closure_ref(closure);
      g_closure_sink(closure);
      row.marshal(closure, &call.result, static_cast<guint>(call.arguments.size()),
                  call.arguments.data(), nullptr, marshal_data);
      g_closure_unref(closure);
      return std::exchange(g_called_with, {});
    };
    std::vector<gpointer> expected = call.expected;
    expected.push_back(data);
    EXPECT_EQ(run(g_cclosure_new(row.callback, data, nullptr), nullptr), expected);
    const auto none = G_CALLBACK(+[] { ADD_FAILURE() << "the closure's own callback"; });
    EXPECT_EQ(run(g_cclosure_new(none, data, nullptr), reinterpret_cast<gpointer>(row.callback)),
              expected);
    std::swap(expected.front(), expected.back());
    EXPECT_EQ(run(g_cclosure_new_swap(row.callback, data, nullptr), nullptr), expected);
    if (row.types.size() == 9) {
      EXPECT_EQ(g_value_get_pointer(&call.result), &g_called_with);
    }
  }
}

TEST(Marshallers, CallNothingWithTooFewValuesOrNoPlaceForTheResult) {
  Element element;
  for (const MarshallerCase& row : kMarshallers) {
    SCOPED_TRACE(row.name);
    MarshallerCall call(row, G_OBJECT(element.get()));
    const auto count = static_cast<guint>(call.arguments.size());
    GClosure* closure = g_cclosure_new(row.callback, nullptr, nullptr);
    const auto refuse = [&](GValue* result, guint values, const std::string& failed) {
      const std::string text = "*" + std::string(row.name) + "*'" + failed + "'*";
      g_test_expect_message(nullptr, G_LOG_LEVEL_CRITICAL, text.c_str());
      row.marshal(closure, result, values, call.arguments.data(), nullptr, nullptr);
    };
    refuse(&call.result, count - 1, "n_param_values == " + std::to_string(count));
    if (count == 10) refuse(nullptr, count, "return_value != NULL");
    g_test_assert_expected_messages();
    EXPECT_TRUE(g_called_with.empty());
    g_closure_sink(closure);
  }
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
