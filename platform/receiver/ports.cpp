// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/ports.h"

#include <algorithm>

#include "platform/receiver/stream_node.h"

namespace qel::receiver {
namespace {

template <typename Predicate>
Port* find(Predicate predicate) {
  Ports& all = ports();
  const auto port = std::find_if(all.begin(), all.end(), predicate);
  return port == all.end() ? nullptr : &*port;
}

}  // namespace

Ports& ports() {
  // Never destroyed: threads of the application may read until the very end.
  static Ports& all = *new Ports{{
      {"vdec0", "/dev/qel/vdec0", DMX_PES_VIDEO0, true},
      {"vdec1", "/dev/qel/vdec1", DMX_PES_VIDEO1, true},
      {"vdec2", "/dev/qel/vdec2", DMX_PES_VIDEO2, true},
      {"vdec3", "/dev/qel/vdec3", DMX_PES_VIDEO3, true},
      {"adec0", "/dev/qel/adec0", DMX_PES_AUDIO0, false},
      {"adec1", "/dev/qel/adec1", DMX_PES_AUDIO1, false},
      {"adec2", "/dev/qel/adec2", DMX_PES_AUDIO2, false},
      {"adec3", "/dev/qel/adec3", DMX_PES_AUDIO3, false},
  }};
  return all;
}

Port* find_port(std::string_view name) {
  return find([&](const Port& port) { return port.name == name; });
}

Port* find_port(unsigned pes_type) {
  return find([&](const Port& port) { return port.pes_type == pes_type; });
}

Port* find_video_port(std::string_view path) {
  return find([&](const Port& port) { return port.video && port.path == path; });
}

}  // namespace qel::receiver
