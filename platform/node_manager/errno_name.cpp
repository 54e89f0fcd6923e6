// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/node_manager/errno_name.h"

#include <cerrno>
#include <cstring>

namespace qel {
namespace {

/// Above the last number that Linux uses.
constexpr int kErrnoEnd = 134;

struct Alias {
  std::string_view name;
  int value;
};
constexpr Alias kAliases[] = {
    {"EWOULDBLOCK", EWOULDBLOCK}, {"ENOTSUP", ENOTSUP}, {"EDEADLOCK", EDEADLOCK}};

}  // namespace

const char* errno_name(int error) {
  const char* name = strerrorname_np(error);
  return name != nullptr ? name : "?";
}

int errno_value(std::string_view name) {
  for (int value = 1; value < kErrnoEnd; ++value)
    if (name == errno_name(value)) return value;
  for (const Alias& alias : kAliases)
    if (name == alias.name) return alias.value;
  return 0;
}

}  // namespace qel
