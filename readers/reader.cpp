// SPDX-License-Identifier: LGPL-2.1-or-later
#include "readers/reader.h"

#include <pthread.h>

#include "instance/log.h"
#include "instance/reader_thread.h"
#include "readers/timed_wait.h"

namespace vantrel {

void start_reader(GstVantrel* self, const Reader& reader) {
  if ((self->*reader.thread).load() != nullptr) return;
  self->*reader.run_flag = TRUE;
  self->*reader.semaphore = create_semaphore();
  g_autoptr(GError) error = nullptr;
  GThread* thread = g_thread_try_new(reader.name, reader.function, self, &error);
  self->*reader.thread = thread;
  if (thread != nullptr) return;
  LOG_ERROR_AS(reader.starter, "%s", reader.failure);
  remove_semaphore(self->*reader.semaphore);
}

void stop_reader(GstVantrel* self, const Reader& reader) {
  GThread* thread = self->*reader.thread;
  if (thread == nullptr) return;
  self->*reader.run_flag = FALSE;
  raise_semaphore(self->*reader.semaphore);
  g_thread_join(thread);
  remove_semaphore(self->*reader.semaphore);
  self->*reader.thread = nullptr;
}

void enter_reader(const GstVantrel* self, const Reader& reader) {
  reader_thread_owner = self;
  pthread_setname_np(pthread_self(), reader.thread_name);
}

void finish_data_emission(GstVantrel* self) {
  std::lock_guard lock(self->stream_lock);
  self->data_emissions--;
  self->data_emission_done.notify_all();
}

}  // namespace vantrel
