// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/instance.h"

namespace vantrel {

/// One of the element's reader threads: where the element keeps it, and how
/// long it sleeps between passes.
struct Reader {
  const char* name;         // as GLib gets it
  const char* thread_name;  // as the kernel gets it: 15 characters
  Shared<GThread*> VantrelState::*thread;
  gint VantrelState::*semaphore;
  Shared<gboolean> VantrelState::*run_flag;
  GThreadFunc function;
  const char* starter;  // the function that starts it, for the log
  const char* failure;
};

/// Sets the run flag, makes the semaphore and starts the thread, unless it runs.
/// A thread that cannot be started is logged with the reader's failure text.
void start_reader(GstVantrel* self, const Reader& reader);

/// Ends the thread within one pass and joins it, if it runs. No lock may be
/// held; not on a reader thread.
void stop_reader(GstVantrel* self, const Reader& reader);

/// What a reader thread does with itself first.
void enter_reader(const GstVantrel* self, const Reader& reader);

/// Counts an emission of "pes-upload" or "temi-data" off again, which was counted
/// before its data left the node. Takes stream_lock.
void finish_data_emission(GstVantrel* self);

}  // namespace vantrel
