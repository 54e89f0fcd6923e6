// SPDX-License-Identifier: LGPL-2.1-or-later
#include "softdec/port.h"

#include <fcntl.h>
#include <poll.h>
#include <qel/device.h>
#include <sys/eventfd.h>

#include <array>

namespace softdec {

PortRef Port::open(const std::string& name) {
  const int fd = qel_device_open(name.c_str(), O_RDONLY | O_NONBLOCK);
  return fd < 0 ? nullptr : std::make_shared<Port>(name, fd);
}

Port::~Port() { qel_device_close(name_.c_str(), fd_); }

ssize_t Port::read(void* buffer, std::size_t size) { return qel_device_read(fd_, buffer, size); }

void Port::drain() {
  std::vector<std::uint8_t> buffer(64 * 1024);
  while (read(buffer.data(), buffer.size()) > 0) {
  }
}

Wake::Wake() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Wake::raise() { eventfd_write(fd_.get(), 1); }

void Wake::clear() {
  eventfd_t count = 0;
  eventfd_read(fd_.get(), &count);
}

void Wake::wait(std::initializer_list<const Port*> ports, int milliseconds) {
  std::array<pollfd, 3> entries{};
  nfds_t count = 0;
  entries[count++] = {.fd = fd_.get(), .events = POLLIN, .revents = 0};
  for (const Port* port : ports)
    if (port != nullptr) entries[count++] = {.fd = port->fd(), .events = POLLIN, .revents = 0};
  poll(entries.data(), count, milliseconds);
}

}  // namespace softdec
