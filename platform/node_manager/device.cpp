// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/device.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <utility>

#include "platform/node_manager/faults.h"
#include "platform/node_manager/node_table.h"
#include "platform/node_manager/requests.h"
#include "platform/node_manager/trace.h"
#include "platform/node_manager/watch.h"
#include "platform/receiver/driver.h"

namespace {

using qel::FaultEffect;
using qel::NodeTable;

/// Never destroyed: threads may still call while the process exits.
NodeTable& nodes() {
  static NodeTable& table = *new NodeTable;
  return table;
}

/// From the convention inside (-errno) to that of the system calls.
template <typename Result>
Result to_caller(long result) {
  if (result >= 0) return static_cast<Result>(result);
  errno = static_cast<int>(-result);
  return -1;
}

long system_result(long result) { return result < 0 ? -errno : result; }

const char* name_of(const NodeTable::Lookup& at) {
  return at.kind == NodeTable::Kind::kNode ? at.open->name.c_str() : nullptr;
}

long open_node(unsigned watch, const char* name, int flags) {
  const bool faulty = (watch & qel::kFaults) != 0;
  if (name == nullptr || (faulty && qel::faults::broken())) return -EINVAL;
  if (faulty) {
    const FaultEffect effect = qel::faults::next(name, "open");
    if (effect.error != 0) return -effect.error;
  }
  int error = 0;
  auto node = qel::receiver::open_node(name, flags | O_CLOEXEC, error);
  if (node == nullptr) return -error;
  const int fd = node->fd();
  nodes().insert(name, std::move(node));
  return fd;
}

/// Asks the node, or the system where the descriptor is none of ours.
template <typename AskNode, typename AskSystem>
long ask(const NodeTable::Lookup& at, AskNode ask_node, AskSystem ask_system) {
  if (at.kind == NodeTable::Kind::kNode) return ask_node(*at.open->node);
  return at.kind == NodeTable::Kind::kClosed ? -EBADF : system_result(ask_system());
}

// The names of these two are known to the thread sanitizer's settings: who uses a
// closed descriptor races with whoever has its number next.

[[gnu::noinline]] int control_foreign(int fd, unsigned long request, void* argument) {
  return ::ioctl(fd, request, argument);
}

[[gnu::noinline]] ssize_t read_foreign(int fd, void* buffer, std::size_t size) {
  return ::read(fd, buffer, size);
}

long control(const NodeTable::Lookup& at, int fd, unsigned long request, void* argument) {
  return ask(
      at, [&](qel::Node& node) -> long { return node.control(request, argument); },
      [&] { return control_foreign(fd, request, argument); });
}

long read(const NodeTable::Lookup& at, int fd, void* buffer, std::size_t size) {
  return ask(
      at, [&](qel::Node& node) -> long { return node.read(buffer, size); },
      [&] { return read_foreign(fd, buffer, size); });
}

/// What the fault rules have for a call on a node.
FaultEffect apply_faults(unsigned watch, const NodeTable::Lookup& at, std::string_view call) {
  if ((watch & qel::kFaults) == 0 || at.kind != NodeTable::Kind::kNode) return {};
  const FaultEffect effect = qel::faults::next(at.open->name, call);
  if (effect.error == 0 && effect.overflow) at.open->node->force_overflow();
  return effect;
}

long watched_control(unsigned watch, const NodeTable::Lookup& at, int fd, unsigned long request,
                     void* argument) {
  const qel::Request* known = qel::find_request(static_cast<std::uint32_t>(request));
  const FaultEffect effect = apply_faults(watch, at, known != nullptr ? known->name : "");
  const long result = effect.error != 0 ? -effect.error : control(at, fd, request, argument);
  if ((watch & qel::kTraceCalls) != 0)
    qel::trace::control(fd, name_of(at), request, argument, result);
  return result;
}

long watched_read(unsigned watch, const NodeTable::Lookup& at, int fd, void* buffer,
                  std::size_t size) {
  const FaultEffect effect = apply_faults(watch, at, "read");
  const long result =
      effect.error != 0 ? -effect.error : read(at, fd, buffer, std::min(size, effect.limit));
  if ((watch & qel::kTraceReads) != 0) qel::trace::read(fd, name_of(at), size, result);
  return result;
}

// The look-up ends with these two, before errno is set: it may be the last to
// hold a node, whose end makes system calls.
long find_and_control(int fd, unsigned long request, void* argument) {
  const unsigned watch = qel::watched();
  const NodeTable::Lookup at = nodes().find(fd);
  return watch == 0 ? control(at, fd, request, argument)
                    : watched_control(watch, at, fd, request, argument);
}

long find_and_read(int fd, void* buffer, std::size_t size) {
  const unsigned watch = qel::watched();
  const NodeTable::Lookup at = nodes().find(fd);
  return watch == 0 ? read(at, fd, buffer, size) : watched_read(watch, at, fd, buffer, size);
}

long close_node(const char* name, int fd) {
  const auto removed = nodes().remove(fd);
  const long result = removed != nullptr ? 0 : -EBADF;
  if (removed != nullptr) removed->node->close();
  // While the node is still held: no later open's line with the same number
  // comes before this one.
  if ((qel::watched() & qel::kTraceCalls) != 0) qel::trace::close(name, fd, result);
  return result;
}

}  // namespace

int qel_device_open(const char* name, int flags) {
  const unsigned watch = qel::watched();
  const long result = open_node(watch, name, flags);
  if ((watch & qel::kTraceCalls) != 0) qel::trace::open(name, flags, result);
  return to_caller<int>(result);
}

int qel_device_close(const char* name, int fd) { return to_caller<int>(close_node(name, fd)); }

const char* get_device_path(const char* name) {
  const char* path = name != nullptr ? qel::receiver::device_path(name) : nullptr;
  const int error = name != nullptr ? ENOENT : EINVAL;
  if ((qel::watched() & qel::kTraceCalls) != 0) qel::trace::path(name, path, error);
  if (path == nullptr) errno = error;
  return path;
}

int qel_device_ioctl(int fd, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  void* argument = va_arg(args, void*);
  va_end(args);
  return to_caller<int>(find_and_control(fd, request, argument));
}

ssize_t qel_device_read(int fd, void* buffer, size_t size) {
  return to_caller<ssize_t>(find_and_read(fd, buffer, size));
}
