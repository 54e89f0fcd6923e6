// SPDX-License-Identifier: LGPL-2.1-or-later
#include "client/core.h"

#include <algorithm>
#include <utility>

#include "client/filter_private.h"
#include "client/receiver_private.h"

namespace vantrel::client {

Core::Core(VantrelReceiver* receiver, GMainContext* context)
    : context_(context != nullptr ? g_main_context_ref(context) : nullptr), receiver_(receiver) {}

Core::~Core() {
  if (context_ != nullptr) g_main_context_unref(context_);
}

void Core::leave() {
  std::lock_guard lock(mutex_);
  receiver_ = nullptr;
  pending_.clear();
}

bool Core::add(GstElement* element, VantrelSectionFilter* filter) {
  std::lock_guard lock(mutex_);
  gpointer handle = nullptr;
  Pattern& pattern = filter->pattern;
  const gboolean changed = (filter->flags & VANTREL_FILTER_FLAGS_CHANGED_ONLY) != 0;
  const gboolean checked = (filter->flags & VANTREL_FILTER_FLAGS_CHECK_CRC) != 0;
  g_signal_emit_by_name(element, "add-filter", filter->pid, static_cast<guint>(filter->table_id),
                        0U, pattern.mask.data(), pattern.match.data(), pattern.size, changed,
                        checked, pattern.mode.data(), &handle);
  if (handle == nullptr) return false;
  filters_[next_serial_] = {handle, filter};
  serials_[handle] = next_serial_++;
  return true;
}

bool Core::remove(GstElement* element, VantrelSectionFilter* filter) {
  gpointer handle = nullptr;
  {
    std::lock_guard lock(mutex_);
    const auto entry = find(filter);
    if (entry == filters_.end()) return false;
    const auto known = serials_.find(entry->second.handle);
    if (known != serials_.end() && known->second == entry->first) {
      handle = entry->second.handle;
      serials_.erase(known);
    }
    filters_.erase(entry);
  }
  // Another filter's by now: the element went to READY and gave it out again.
  if (handle != nullptr) g_signal_emit_by_name(element, "remove-filter", handle);
  return true;
}

std::unordered_map<guint64, Core::Entry>::iterator Core::find(const VantrelSectionFilter* filter) {
  return std::find_if(filters_.begin(), filters_.end(),
                      [filter](const auto& entry) { return entry.second.filter == filter; });
}

VantrelReceiver* Core::take_receiver() {
  std::lock_guard lock(mutex_);
  return receiver_ != nullptr ? static_cast<VantrelReceiver*>(g_object_ref(receiver_)) : nullptr;
}

VantrelSectionFilter* Core::take_filter(guint64 serial) {
  std::lock_guard lock(mutex_);
  const auto entry = filters_.find(serial);
  if (entry == filters_.end()) return nullptr;
  return static_cast<VantrelSectionFilter*>(g_object_ref(entry->second.filter));
}

guint64 Core::serial_of(gconstpointer handle) {
  std::lock_guard lock(mutex_);
  const auto serial = serials_.find(handle);
  return serial != serials_.end() ? serial->second : 0;
}

void Core::arrived(Kind kind, guint pid, gconstpointer handle, gconstpointer data, gsize size) {
  const guint64 serial = kind == Kind::kSection ? serial_of(handle) : 0;
  // One that the application added to the element itself.
  if (kind == Kind::kSection && serial == 0) return;
  Delivery delivery{kind, pid, serial, Bytes(g_bytes_new(data, size))};
  if (context_ == nullptr)
    emit(delivery);
  else
    enqueue(std::move(delivery));
}

void Core::emit(const Delivery& delivery) {
  if (delivery.kind == Kind::kSection) {
    g_autoptr(VantrelSectionFilter) filter = take_filter(delivery.serial);
    if (filter != nullptr) emit_section(filter, delivery.bytes.get());
    return;
  }
  g_autoptr(VantrelReceiver) receiver = take_receiver();
  if (receiver == nullptr) return;
  if (delivery.kind == Kind::kPes)
    emit_pes(receiver, delivery.pid, delivery.bytes.get());
  else
    emit_temi(receiver, delivery.bytes.get());
}

void Core::enqueue(Delivery delivery) {
  const gsize size = g_bytes_get_size(delivery.bytes.get());
  std::lock_guard lock(mutex_);
  if (receiver_ == nullptr) return;
  if (pending_bytes_ + size > max_pending_) {
    dropped_++;
    return;
  }
  pending_bytes_ += size;
  pending_.push_back(std::move(delivery));
  if (!std::exchange(scheduled_, true)) schedule();
}

void Core::schedule() {
  sources_++;
  held_by_sources_ = shared_from_this();
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_static_name(source, "vantrel deliveries");
  g_source_set_callback(source, dispatch, this, forget_source);
  g_source_attach(source, context_);
  g_source_unref(source);
}

void Core::forget_source(gpointer core) {
  auto* self = static_cast<Core*>(core);
  std::shared_ptr<Core> released;  // without the mutex, which may go with it
  std::lock_guard lock(self->mutex_);
  if (--self->sources_ == 0) released.swap(self->held_by_sources_);
}

std::deque<Delivery> Core::take_pending() {
  std::lock_guard lock(mutex_);
  scheduled_ = false;
  pending_bytes_ = 0;
  return std::exchange(pending_, {});
}

gboolean Core::dispatch(gpointer core) {
  auto* self = static_cast<Core*>(core);
  for (const Delivery& delivery : self->take_pending()) self->emit(delivery);
  return G_SOURCE_REMOVE;
}

void Core::set_max_pending(guint64 bytes) {
  std::lock_guard lock(mutex_);
  max_pending_ = bytes;
}

guint64 Core::max_pending() {
  std::lock_guard lock(mutex_);
  return max_pending_;
}

guint64 Core::dropped() {
  std::lock_guard lock(mutex_);
  return dropped_;
}

}  // namespace vantrel::client
