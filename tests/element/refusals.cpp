// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/element/refusals.h"

#include <dlfcn.h>
#include <gst/gst.h>
#include <sys/sem.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <vector>

namespace {

std::mutex g_mutex;  // threads are made by threads
std::string g_refused;
std::vector<int> g_semaphores_made;

bool is_refused(const char* name) {
  const std::lock_guard lock(g_mutex);
  return name != nullptr && g_refused == name;
}

template <typename Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// In place of the libraries' functions of these names.

GThread* g_thread_try_new(const gchar* name, GThreadFunc function, gpointer data, GError** error) {
  if (!is_refused(name))
    return real<decltype(g_thread_try_new)>(__func__)(name, function, data, error);
  g_set_error_literal(error, G_THREAD_ERROR, G_THREAD_ERROR_AGAIN, "refused");
  return nullptr;
}

int semget(key_t key, int count, int flags) noexcept {
  if (is_refused(__func__)) {
    errno = ENOSPC;
    return -1;
  }
  const std::lock_guard lock(g_mutex);
  return g_semaphores_made.emplace_back(real<decltype(semget)>(__func__)(key, count, flags));
}

GstPoll* gst_poll_new(gboolean controllable) {
  return is_refused(__func__) ? nullptr : real<decltype(gst_poll_new)>(__func__)(controllable);
}

namespace vantrel::testing {

void system_refuses(const std::string& what) {
  const std::lock_guard lock(g_mutex);
  g_refused = what;
}

std::size_t semaphore_sets() {
  const std::lock_guard lock(g_mutex);
  const auto exists = [](int id) { return semctl(id, 0, GETVAL) != -1; };
  return static_cast<std::size_t>(
      std::count_if(g_semaphores_made.begin(), g_semaphores_made.end(), exists));
}

}  // namespace vantrel::testing
