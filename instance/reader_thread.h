// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/instance.h"

namespace vantrel {

/// The element whose reader the calling thread is; NULL on other threads.
inline thread_local const GstVantrel* reader_thread_owner = nullptr;

/// Whether the calling thread is one that teardown of `self` joins.
inline bool on_reader_thread_of(const GstVantrel* self) { return reader_thread_owner == self; }

}  // namespace vantrel
