// SPDX-License-Identifier: LGPL-2.1-or-later
//
// GLib's locks are futexes and its queues are its own, none of them built for
// the thread sanitizer: it would call what they guard unguarded. These functions
// stand in front of GLib's and GStreamer's and tell it which thread's work comes
// before which other's. Part of test programs of the thread sanitizer's build.
#include <dlfcn.h>
#include <gst/gst.h>
#include <sanitizer/tsan_interface.h>

#include <memory>

namespace {

template <typename Function>
Function* next(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
#define REAL(name) ([] { static auto* const real = next(&name, #name); return real; }())

/// What a thread of the framework's pool is to call, and who asked for it.
struct Call {
  GstElementCallAsyncFunc function;
  gpointer data;
  GDestroyNotify destroy;
};

void run(GstElement* element, gpointer data) {
  auto* call = static_cast<Call*>(data);
  __tsan_acquire(call);
  call->function(element, call->data);
}

void destroy(gpointer data) {
  const std::unique_ptr<Call> call(static_cast<Call*>(data));
  __tsan_acquire(call.get());
  if (call->destroy != nullptr) call->destroy(call->data);
}

/// All buses as one: whoever takes a message comes after all who posted one.
char messages;

}  // namespace

extern "C" {

void g_mutex_lock(GMutex* mutex) {
  REAL(g_mutex_lock)(mutex);
  __tsan_acquire(mutex);
}

gboolean g_mutex_trylock(GMutex* mutex) {
  const gboolean locked = REAL(g_mutex_trylock)(mutex);
  if (locked) __tsan_acquire(mutex);
  return locked;
}

void g_mutex_unlock(GMutex* mutex) {
  __tsan_release(mutex);
  REAL(g_mutex_unlock)(mutex);
}

void g_rec_mutex_lock(GRecMutex* mutex) {
  REAL(g_rec_mutex_lock)(mutex);
  __tsan_acquire(mutex);
}

gboolean g_rec_mutex_trylock(GRecMutex* mutex) {
  const gboolean locked = REAL(g_rec_mutex_trylock)(mutex);
  if (locked) __tsan_acquire(mutex);
  return locked;
}

void g_rec_mutex_unlock(GRecMutex* mutex) {
  __tsan_release(mutex);
  REAL(g_rec_mutex_unlock)(mutex);
}

void gst_element_call_async(GstElement* element, GstElementCallAsyncFunc function, gpointer data,
                            GDestroyNotify free_data) {
  auto* call = new Call{function, data, free_data};
  __tsan_release(call);
  REAL(gst_element_call_async)(element, run, call, destroy);
}

gboolean gst_element_post_message(GstElement* element, GstMessage* message) {
  __tsan_release(&messages);
  return REAL(gst_element_post_message)(element, message);
}

GstMessage* gst_bus_timed_pop_filtered(GstBus* bus, GstClockTime timeout, GstMessageType types) {
  GstMessage* message = REAL(gst_bus_timed_pop_filtered)(bus, timeout, types);
  __tsan_acquire(&messages);
  return message;
}

}  // extern "C"
