// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>

namespace qel {

/// One open node, as a driver backend gives it to the node manager.
///
/// Methods return what the system call would, with -errno for a failure. The
/// node manager holds a reference during each call, so that a node may be
/// closed while calls on it run.
class Node {
 public:
  virtual ~Node() = default;

  /// The descriptor that becomes readable with data: above 0, owned by the
  /// node, valid until it is destroyed.
  [[nodiscard]] virtual int fd() const = 0;
  /// One request, of which the low 32 bits count; `argument` is the pointer or number as the
  /// request has it.
  virtual int control(unsigned long request, void* argument) = 0;
  /// One read of at most `size` bytes; blocks unless opened with O_NONBLOCK.
  virtual ssize_t read(void* buffer, std::size_t size) = 0;
  /// Behaves as if the node's buffer had overflowed just now.
  virtual void force_overflow() = 0;
  /// Ends the node: stops its filter; blocked calls and later ones give
  /// -EBADF. The descriptor stays open until the last reference is gone.
  virtual void close() = 0;
};

}  // namespace qel
