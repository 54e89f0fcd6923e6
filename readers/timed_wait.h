// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

namespace vantrel {

/// Results of WaitForSingleObject.
constexpr int kWaitTaken = 0;
constexpr int kWaitTimeout = 258;
constexpr int kWaitFailed = -1;

/// Makes a private semaphore set of one semaphore with value 0; -1 with errno
/// where the system has none left.
int create_semaphore();

/// Raises the semaphore, so that the reader which sleeps on it ends.
void raise_semaphore(int semaphore_id);

void remove_semaphore(int semaphore_id);

/// A reader's sleep: takes the semaphore, or returns after `timeout_ms`.
int WaitForSingleObject(int semaphore_id, int timeout_ms);

/// The same for a reader's loop; true when the reader is to end. A wait that
/// fails at once becomes a plain sleep of the same length, so that a reader
/// without a semaphore does not spin.
bool sleep_between_passes(int semaphore_id, int timeout_ms);

}  // namespace vantrel
