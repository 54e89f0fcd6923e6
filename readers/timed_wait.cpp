// SPDX-License-Identifier: LGPL-2.1-or-later
#include "readers/timed_wait.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <thread>

namespace vantrel {
namespace {

/// semctl's fourth argument, which the caller defines: as large as its largest
/// member, since that is how it is taken from the argument list.
union SemaphoreArgument {
  int value;
  semid_ds* status;
  unsigned short* values;
};

}  // namespace

int create_semaphore() { return semget(IPC_PRIVATE, 1, IPC_CREAT | 0666); }

void raise_semaphore(int semaphore_id) {
  semctl(semaphore_id, 0, SETVAL, SemaphoreArgument{.value = 1});
}

void remove_semaphore(int semaphore_id) { semctl(semaphore_id, 0, IPC_RMID); }

int WaitForSingleObject(int semaphore_id, int timeout_ms) {
  sembuf take{.sem_num = 0, .sem_op = -1, .sem_flg = SEM_UNDO};
  const timespec timeout{.tv_sec = timeout_ms / 1000, .tv_nsec = timeout_ms % 1000 * 1000000L};
  if (semtimedop(semaphore_id, &take, 1, &timeout) == 0) return kWaitTaken;
  return errno == EAGAIN ? kWaitTimeout : kWaitFailed;
}

bool sleep_between_passes(int semaphore_id, int timeout_ms) {
  const int result = WaitForSingleObject(semaphore_id, timeout_ms);
  if (result == kWaitFailed && errno != EINTR)
    std::this_thread::sleep_for(std::chrono::milliseconds(timeout_ms));
  return result == kWaitTaken;
}

}  // namespace vantrel
