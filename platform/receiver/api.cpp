// SPDX-License-Identifier: LGPL-2.1-or-later
#include <errno.h>
#include <qel/receiver.h>

#include <algorithm>
#include <mutex>

#include "platform/receiver/feeder.h"
#include "platform/receiver/filter_node.h"
#include "platform/receiver/receiver.h"

using qel::receiver::Demux;
using qel::receiver::FairMutex;
using qel::receiver::Feeder;
using qel::receiver::find_demux;

namespace {

using Lock = std::lock_guard<FairMutex>;

/// From 0 or -errno to the C way of telling.
int result(int value) {
  if (value >= 0) return value;
  errno = -value;
  return -1;
}

}  // namespace

int qel_receiver_feed(unsigned int number, enum dmx_input input, const void* data, size_t size) {
  if (!data && size > 0) return result(-EINVAL);
  Demux* demux = find_demux(number, input);
  if (!demux) return -1;
  return result(
      Feeder(*demux, demux->inputs[input]).feed(static_cast<const std::uint8_t*>(data), size));
}

int qel_receiver_end(unsigned int number, enum dmx_input input) {
  Demux* demux = find_demux(number, input);
  return demux ? result(Feeder(*demux, demux->inputs[input]).end()) : -1;
}

int qel_receiver_set_flushing(unsigned int number, enum dmx_input input, int flushing) {
  Demux* demux = find_demux(number, input);
  if (!demux) return -1;
  const Lock lock(demux->mutex);
  demux->set_flushing(demux->inputs[input], flushing != 0);
  return 0;
}

int qel_receiver_set_pacing(unsigned int number, int on) {
  Demux* demux = find_demux(number);
  if (!demux) return -1;
  const Lock lock(demux->mutex);
  demux->set_pacing(on != 0);
  return 0;
}

int qel_receiver_has_stream_nodes(unsigned int number) {
  Demux* demux = find_demux(number);
  if (!demux) return -1;
  const Lock lock(demux->mutex);
  return std::ranges::any_of(demux->nodes, [](const auto& node) {
    return node->kind() != QEL_NODE_SECTION && node->kind() != QEL_NODE_TEMI;
  });
}
