// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gtest/gtest.h>
#include <vantrel/client.h>

#include <memory>
#include <thread>

#include "tests/element/harness.h"
#include "tests/support/ts_builder.h"

namespace vantrel::testing {
namespace {

struct Unref {
  template <typename Object>
  void operator()(Object* object) const {
    g_object_unref(object);
  }
};
using stream::text;
using Receiver = std::unique_ptr<VantrelReceiver, Unref>;
using Filter = std::unique_ptr<VantrelSectionFilter, Unref>;

constexpr auto kEvery = VANTREL_FILTER_FLAGS_NONE;

std::string text(GBytes* bytes) {
  return {static_cast<const char*>(g_bytes_get_data(bytes, nullptr)), g_bytes_get_size(bytes)};
}

/// What signals brought, and on which thread last. The connection has a share of
/// it, since a handler may still run when the test has heard enough.
class Ear {
 public:
  explicit Ear(VantrelSectionFilter* filter) { listen(filter, "section", G_CALLBACK(on_bytes)); }
  explicit Ear(VantrelReceiver* receiver) {
    listen(receiver, "temi", G_CALLBACK(on_bytes));
    listen(receiver, "pes", G_CALLBACK(on_pes));
  }
  std::vector<std::string> heard() {
    std::lock_guard lock(state_->mutex);
    return state_->heard;
  }
  bool wait_for(std::size_t count) {
    return eventually([&] { return heard().size() >= count; });
  }
  std::thread::id thread() {
    std::lock_guard lock(state_->mutex);
    return state_->thread;
  }
  /// Runs inside each emission; set before the filter runs.
  void then(std::function<void()> action) { state_->then = std::move(action); }

 private:
  struct State {
    std::mutex mutex;
    std::vector<std::string> heard;  // guarded by mutex
    std::thread::id thread;          // guarded by mutex
    std::function<void()> then = [] {};
  };
  using Share = std::shared_ptr<State>;

  void listen(gpointer object, const char* signal, GCallback callback) {
    g_signal_connect_data(
        object, signal, callback, new Share(state_),
        [](gpointer share, GClosure*) { delete static_cast<Share*>(share); }, G_CONNECT_DEFAULT);
  }
  static void on_bytes(gpointer, GBytes* bytes, Share* share) {
    {
      std::lock_guard lock((*share)->mutex);
      (*share)->heard.push_back(text(bytes));
      (*share)->thread = std::this_thread::get_id();
    }
    (*share)->then();
  }
  static void on_pes(gpointer object, guint, GBytes* bytes, Share* share) {
    on_bytes(object, bytes, share);
  }

  Share state_ = std::make_shared<State>();
};

/// A playing element and its receiver.
struct Client : ::testing::Test {
  explicit Client(GMainContext* context = nullptr)
      : receiver(vantrel_receiver_new(element.get(), context, nullptr)) {
    element.go(GST_STATE_PLAYING);
  }
  bool add(const Filter& filter) {
    return vantrel_receiver_add_filter(receiver.get(), filter.get(), nullptr) != FALSE;
  }
  bool remove(const Filter& filter) {
    return vantrel_receiver_remove_filter(receiver.get(), filter.get(), nullptr) != FALSE;
  }
  void feed(guint pid, const std::vector<stream::Bytes>& sections) {
    element.feed(text(mux.sections(pid, sections)));
  }

  stream::Multiplex mux;
  Element element;
  Receiver receiver;
};

Filter by_id(guint pid, gint table_id, gint extension = -1, VantrelFilterFlags flags = kEvery) {
  return Filter(vantrel_section_filter_new(pid, table_id, extension, flags));
}

/// The caller's bytes are gone when this returns.
Filter by_pattern(guint pid, const std::string& match, const std::string& mask,
                  const std::string& mode = "") {
  const auto bytes = [](const std::string& of) { return g_bytes_new(of.data(), of.size()); };
  g_autoptr(GBytes) match_bytes = bytes(match);
  g_autoptr(GBytes) mask_bytes = bytes(mask);
  g_autoptr(GBytes) mode_bytes = mode.empty() ? nullptr : bytes(mode);
  return Filter(
      vantrel_section_filter_new_pattern(pid, match_bytes, mask_bytes, mode_bytes, kEvery));
}

TEST_F(Client, DeliversToEachFilterWhatItAskedFor) {
  const auto one = stream::section(0x4e, 1, 100);
  const auto zero = stream::section(0x4e, 0, 60);
  const auto other = stream::section(0x50, 1, 80);
  const std::string three("\x4e\0\0", 3);
  struct Case {
    Filter filter;
    std::vector<stream::Bytes> expected;
  } cases[] = {
      {by_id(0x12, 0x4e), {one, zero}},
      {by_id(0x12, -1), {one, zero, other}},
      {by_id(0x12, 0x4e, 0), {zero}},
      {by_id(0x12, -1, 1), {one, other}},
      {by_pattern(0x12, three + std::string(2, 0), "\xff\x01\x01\xff\xff"), {zero}},
      {by_pattern(0x12, "\x4e", "\xff", "\xff"), {other}},
      {by_id(0x13, -1), {}},
  };
  std::vector<std::unique_ptr<Ear>> ears;
  for (const Case& row : cases) {
    ears.push_back(std::make_unique<Ear>(row.filter.get()));
    EXPECT_TRUE(add(row.filter));
  }
  feed(0x12, {one, zero, other});
  for (std::size_t i = 0; i < std::size(cases); i++) {
    SCOPED_TRACE(i);
    std::vector<std::string> expected;
    for (const auto& section : cases[i].expected) expected.push_back(text(section));
    EXPECT_TRUE(ears[i]->wait_for(expected.size()));
    EXPECT_EQ(ears[i]->heard(), expected);
  }
}

// A waiting filter's pattern is read when its turn comes.
TEST_F(Client, KeepsPatternsForFiltersThatWait) {
  std::vector<Filter> running;
  for (int i = 0; i < 96; i++) EXPECT_TRUE(add(running.emplace_back(by_id(0x100, 0))));
  const Filter waiting = by_pattern(0x12, "\x4e", "\xff");
  Ear ear(waiting.get());
  EXPECT_TRUE(add(waiting));
  running.pop_back();
  feed(0x12, {stream::section(0x50, 1, 40), stream::section(0x4e, 1, 50)});
  EXPECT_TRUE(ear.wait_for(1));
  EXPECT_EQ(ear.heard().front().size(), 50U);
}

/// Runs behind the element's own handler: the filter runs, its handle is not
/// known to the receiver yet. Returns the handle in that handler's stead.
gpointer deliver_early(GstElement*, guint, guint, guint, gpointer, gpointer, guint, gboolean,
                       gboolean, gpointer, Client* client) {
  client->feed(0x12, {stream::section(0x4e, 1, 40)});
  client->element.wait_for(1);
  g_usleep(20000);  // enough for a receiver that does not wait to lose the section
  return static_cast<SectionFilter*>(client->element.state()->running_section_filters.next);
}

TEST_F(Client, MissesNoSectionThatComesBeforeTheHandle) {
  g_signal_connect_after(element.get(), "add-filter", G_CALLBACK(deliver_early), this);
  const Filter filter = by_id(0x12, 0x4e);
  Ear ear(filter.get());
  EXPECT_TRUE(add(filter));
  EXPECT_TRUE(ear.wait_for(1));
}

TEST_F(Client, RefusesPolitely) {
  g_autoptr(GstElement) stranger = GST_ELEMENT(gst_object_ref_sink(gst_bin_new("stranger")));
  g_autoptr(GError) error = nullptr;
  EXPECT_EQ(vantrel_receiver_new(stranger, nullptr, &error), nullptr);
  EXPECT_TRUE(g_error_matches(error, VANTREL_ERROR, VANTREL_ERROR_FOREIGN));
  Receiver none(
      VANTREL_RECEIVER(g_object_new(VANTREL_TYPE_RECEIVER, "element", stranger, nullptr)));
  Receiver second(vantrel_receiver_new(element.get(), nullptr, nullptr));
  const Filter running = by_id(0x12, 0x4e);
  EXPECT_TRUE(add(running));
  const Filter idle = by_id(0x12, 0x4e);
  const auto add_to = vantrel_receiver_add_filter;
  const auto remove_from = vantrel_receiver_remove_filter;
  struct Case {
    decltype(add_to) call;
    VantrelReceiver* receiver;
    Filter made;
    VantrelSectionFilter* filter;
    VantrelError code;
    const char* faults = "";
  } cases[] = {
      {add_to, receiver.get(), nullptr, running.get(), VANTREL_ERROR_BUSY},
      {add_to, second.get(), nullptr, running.get(), VANTREL_ERROR_BUSY},
      {add_to, none.get(), nullptr, idle.get(), VANTREL_ERROR_FOREIGN},
      {remove_from, second.get(), nullptr, running.get(), VANTREL_ERROR_FOREIGN},
      {remove_from, receiver.get(), nullptr, idle.get(), VANTREL_ERROR_FOREIGN},
      {add_to, receiver.get(), by_pattern(1, "ab", "a"), nullptr, VANTREL_ERROR_INVALID},
      {add_to, receiver.get(), by_pattern(1, "ab", "ab", "a"), nullptr, VANTREL_ERROR_INVALID},
      {add_to, receiver.get(), by_pattern(1, "", ""), nullptr, VANTREL_ERROR_INVALID},
      {add_to, receiver.get(), by_pattern(1, std::string(16, 'a'), std::string(16, 'a')), nullptr,
       VANTREL_ERROR_INVALID},
      {add_to, receiver.get(), nullptr, idle.get(), VANTREL_ERROR_REFUSED, "* open * EMFILE"},
      {add_to, receiver.get(), nullptr, idle.get(), VANTREL_ERROR_REFUSED,
       "* KWRX_DMX_SET_FILTER * EINVAL"},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(&row - cases);
    Faults faults(row.faults);
    g_clear_error(&error);
    EXPECT_FALSE(row.call(row.receiver, row.made ? row.made.get() : row.filter, &error));
    EXPECT_TRUE(g_error_matches(error, VANTREL_ERROR, row.code));
  }
  EXPECT_TRUE(vantrel_section_filter_is_added(running.get()));
  EXPECT_TRUE(add(idle));
}

TEST_F(Client, EndsAFilterWhereverItsLastReferenceGoes) {
  Filter own = by_id(0x12, 0x4e);
  Filter elsewhere = by_id(0x12, 0x4e);
  Ear own_ear(own.get());
  Ear other_ear(elsewhere.get());
  own_ear.then([&] { own.reset(); });
  EXPECT_TRUE(add(own));
  EXPECT_TRUE(add(elsewhere));
  feed(0x12, {stream::section(0x4e, 1, 40), stream::section(0x4e, 2, 40)});
  EXPECT_TRUE(other_ear.wait_for(2));
  EXPECT_TRUE(own_ear.wait_for(1));
  std::thread([&] { elsewhere.reset(); }).join();
  EXPECT_TRUE(eventually([] { return open_nodes(0) == 0; }));
  EXPECT_EQ(own_ear.heard().size(), 1U);
}

// The element frees its filters at READY and may give their addresses out again.
TEST_F(Client, LeavesAFilterAloneThatHasTheHandleOfAnEndedOne) {
  for (int i = 0; i < 20; i++) {
    const Filter ended = by_id(0x12, 0x4e);
    EXPECT_TRUE(add(ended));
    element.go(GST_STATE_READY);
    const Filter next = by_id(0x12, 0x4e);
    Ear ear(next.get());
    EXPECT_TRUE(add(next));
    element.go(GST_STATE_PLAYING);
    EXPECT_TRUE(remove(ended));
    feed(0x12, {stream::section(0x4e, 1, 40)});
    EXPECT_TRUE(ear.wait_for(1));
  }
}

TEST_F(Client, GivesPesTemiAndTheClock) {
  Ear ear(receiver.get());
  guint64 stc = 1;
  EXPECT_FALSE(vantrel_receiver_read_stc(receiver.get(), &stc));
  EXPECT_EQ(stc, 0U);
  element.set("sub-pid", 0x100);
  element.set("pcr-pid", 0x101U);
  const stream::Bytes pes = stream::pes(0xbd, 500);
  element.feed(text(mux.unit(0x100, pes)));
  EXPECT_TRUE(ear.wait_for(1));
  EXPECT_EQ(ear.heard().back(), text(pes));

  element.feed(text(mux.packet(0x101, {}, {.pcr = 27'000'000})));
  EXPECT_TRUE(vantrel_receiver_read_stc(receiver.get(), &stc));
  EXPECT_GE(stc, 27'000'000U);

  const stream::Bytes descriptor = stream::timeline(1, 90000, 2);
  EXPECT_TRUE(vantrel_receiver_set_temi(receiver.get(), TRUE, nullptr));
  element.feed(text(mux.packet(0x102, {}, {.af_descriptors = descriptor})));
  EXPECT_TRUE(ear.wait_for(2));
  EXPECT_EQ(ear.heard().back(), text(descriptor));
  EXPECT_TRUE(vantrel_receiver_set_temi(receiver.get(), FALSE, nullptr));
}

struct ClientWithContext : Client {
  ClientWithContext() : Client(g_main_context_new()) {
    g_object_get(receiver.get(), "context", &context, nullptr);
    g_main_context_unref(context);  // the fixture's own reference
  }
  ~ClientWithContext() override { g_main_context_unref(context); }
  void run_until(const std::function<bool()>& condition) {
    EXPECT_TRUE(eventually([&] {
      while (g_main_context_iteration(context, FALSE)) continue;
      return condition();
    }));
  }
  GMainContext* context;
};

TEST_F(ClientWithContext, DeliversThereAndNothingOfARemovedFilter) {
  const Filter kept = by_id(0x12, 0x4e);
  const Filter removed = by_id(0x12, 0x4e);
  Ear kept_ear(kept.get());
  Ear removed_ear(removed.get());
  kept_ear.then([&] {
    if (vantrel_section_filter_is_added(removed.get())) remove(removed);
  });
  EXPECT_TRUE(add(removed));
  EXPECT_TRUE(add(kept));
  feed(0x12, {stream::section(0x4e, 1, 40), stream::section(0x4e, 2, 40)});
  run_until([&] { return kept_ear.heard().size() == 2; });
  EXPECT_EQ(kept_ear.thread(), std::this_thread::get_id());
  EXPECT_LE(removed_ear.heard().size(), 2U);
  const std::size_t before = removed_ear.heard().size();
  feed(0x12, {stream::section(0x4e, 3, 40)});
  run_until([&] { return kept_ear.heard().size() == 3; });
  EXPECT_EQ(removed_ear.heard().size(), before);
}

TEST_F(ClientWithContext, HoldsNoMoreThanItMayWhereTheContextDoesNotRun) {
  g_object_set(receiver.get(), "max-pending", guint64{100}, nullptr);
  const Filter filter = by_id(0x12, 0x4e);
  Ear ear(filter.get());
  EXPECT_TRUE(add(filter));
  feed(0x12, std::vector(5, stream::section(0x4e, 1, 40)));
  EXPECT_TRUE(eventually([&] { return vantrel_receiver_get_dropped(receiver.get()) == 3; }));
  EXPECT_TRUE(ear.heard().empty());
  run_until([&] { return ear.heard().size() == 2; });
  feed(0x12, {stream::section(0x4e, 1, 40)});
  run_until([&] { return ear.heard().size() == 3; });
}

TEST_F(ClientWithContext, ForgetsWhatWaitsWhenTheReceiverGoes) {
  Filter filter = by_id(0x12, 0x4e);
  Ear ear(filter.get());
  EXPECT_TRUE(add(filter));
  feed(0x12, {stream::section(0x4e, 1, 40)});
  EXPECT_TRUE(eventually([&] { return element.delivered() == 1; }));
  receiver.reset();
  filter.reset();
  while (g_main_context_iteration(context, FALSE)) continue;
  EXPECT_TRUE(ear.heard().empty());
  EXPECT_EQ(open_nodes(0), 0);
}

}  // namespace
}  // namespace vantrel::testing
