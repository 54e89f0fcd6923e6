// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cerrno>

namespace vantrel {

/// Gives the caller its errno back at the end of the scope.
class ErrnoGuard {
 public:
  ErrnoGuard() = default;
  ErrnoGuard(const ErrnoGuard&) = delete;
  ErrnoGuard& operator=(const ErrnoGuard&) = delete;
  ~ErrnoGuard() { errno = saved_; }

 private:
  int saved_ = errno;
};

}  // namespace vantrel
