// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <glib-object.h>

#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "vantrel/receiver.h"

namespace vantrel::client {

/// What a delivery is of.
enum class Kind { kSection, kPes, kTemi };

struct BytesUnref {
  void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
};
using Bytes = std::unique_ptr<GBytes, BytesUnref>;

/// Something that the element read, on its way to the application.
struct Delivery {
  Kind kind;
  guint pid;       // of PES
  guint64 serial;  // of a section's filter
  Bytes bytes;
};

/// A receiver's state that outlives it: the element's callbacks and a source of
/// the context may still be under way when the receiver is disposed of.
///
/// Receiver and filters are not held. They leave, under the mutex, in their
/// dispose; until then their memory is good, and one that was taken before
/// stays until it is given back.
class Core : public std::enable_shared_from_this<Core> {
 public:
  Core(VantrelReceiver* receiver, GMainContext* context);
  ~Core();
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  /// The receiver is disposed of.
  void leave();

  /// Emits "add-filter". The mutex is held meanwhile, so that a section that
  /// comes before the handle is known waits for it; the element emits without a
  /// lock, so nothing waits for that in turn.
  bool add(GstElement* element, VantrelSectionFilter* filter);
  /// Emits "remove-filter" and waits for the filter's emission; mutex free.
  bool remove(GstElement* element, VantrelSectionFilter* filter);

  /// On a reader thread; `handle` names a section's filter.
  void arrived(Kind kind, guint pid, gconstpointer handle, gconstpointer data, gsize size);

  void set_max_pending(guint64 bytes);
  guint64 max_pending();
  guint64 dropped();

 private:
  struct Entry {
    gpointer handle;
    VantrelSectionFilter* filter;
  };

  VantrelReceiver* take_receiver();
  VantrelSectionFilter* take_filter(guint64 serial);
  std::unordered_map<guint64, Entry>::iterator find(const VantrelSectionFilter* filter);
  guint64 serial_of(gconstpointer handle);
  void emit(const Delivery& delivery);
  void enqueue(Delivery delivery);
  void schedule();
  std::deque<Delivery> take_pending();
  static gboolean dispatch(gpointer core);
  static void forget_source(gpointer core);

  GMainContext* const context_;

  std::mutex mutex_;  // guards what follows; never held while signals are emitted
  VantrelReceiver* receiver_;
  guint64 next_serial_ = 1;
  // A handle may come again once the element has freed it, a serial does not.
  std::unordered_map<guint64, Entry> filters_;
  std::unordered_map<gconstpointer, guint64> serials_;
  std::deque<Delivery> pending_;
  bool scheduled_ = false;
  /// Sources of the context that are still to run, or to be destroyed unrun.
  unsigned sources_ = 0;
  std::shared_ptr<Core> held_by_sources_;
  guint64 pending_bytes_ = 0;
  guint64 max_pending_ = 0;
  guint64 dropped_ = 0;
};

}  // namespace vantrel::client
