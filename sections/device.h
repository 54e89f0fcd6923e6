// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include "instance/instance.h"

namespace vantrel {

// The node of a section filter and the running list. The caller holds
// section_lock.

constexpr int kSectionStarted = 0;
constexpr int kSectionNoSlot = -1;
constexpr int kSectionFailed = -2;

/// Opens and programs the filter's node and puts it at the head of the running
/// list; kSectionNoSlot opens nothing, kSectionFailed leaves nothing open.
int vantrel_start_section_filter(GstVantrel* self, SectionFilter* filter);

/// Stops and closes a running filter, takes it off the list, and starts waiting
/// ones, oldest first, until one does not start.
void vantrel_remove_section_filter(GstVantrel* self, SectionFilter* filter);

/// Makes the poll table and the poll set what the running list is.
void vantrel_update_poll_section_fds(GstVantrel* self);

/// Makes `set` the element's poll set and puts the filters into it that were
/// started while there was none. Takes section_lock.
void vantrel_attach_poll_set(GstVantrel* self, std::shared_ptr<PollSet> set);

}  // namespace vantrel
