// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "common/unique_fd.h"

namespace softdec {

/// A node that is only read: a decoder port or a record node. Closed with the
/// last reference, so that who polls it keeps its descriptor from being reused.
class Port {
 public:
  /// Opens the node by its logical name; nullptr with errno.
  static std::shared_ptr<Port> open(const std::string& name);

  Port(std::string name, int fd) : name_(std::move(name)), fd_(fd) {}
  ~Port();
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] int fd() const { return fd_; }
  /// What qel_device_read() gives: bytes, 0 at the end of the file, -1 with errno.
  ssize_t read(void* buffer, std::size_t size);
  /// Throws away what waits.
  void drain();

 private:
  std::string name_;
  int fd_;
};

using PortRef = std::shared_ptr<Port>;

/// Ends a wait from another thread. Stays raised until cleared.
class Wake {
 public:
  Wake();
  void raise();
  void clear();
  /// Waits until one of the ports is readable, the wake is raised or so many
  /// milliseconds are over (-1: no limit). Missing ports are passed over.
  void wait(std::initializer_list<const Port*> ports, int milliseconds);

 private:
  vantrel::UniqueFD fd_;
};

}  // namespace softdec
