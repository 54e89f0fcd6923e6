// SPDX-License-Identifier: LGPL-2.1-or-later
#include "common/unique_fd.h"

#include <unistd.h>

namespace vantrel {

void UniqueFD::reset(int fd) {
  const int old = std::exchange(fd_, fd);
  if (old >= 0 && old != fd) ::close(old);
}

}  // namespace vantrel
