// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <memory>
#include <string>

#include "platform/receiver/ring_node.h"

namespace qel::receiver {

class Demux;
struct Port;

/// A node that only is read: a demux's record node or a decoder port. It has
/// one reader at a time, and an end of file.
class StreamNode final : public RingNode {
 public:
  /// Opens the record node of a demux; an empty pointer and `error` if it is
  /// open already.
  static std::shared_ptr<StreamNode> open_record(Demux& demux, std::string name, int flags,
                                                 int& error);
  static std::shared_ptr<StreamNode> open_port(Port& port, int flags, int& error);

  /// For the two above.
  StreamNode(Demux* demux, Port* port, std::string name, int flags);

  int set_buffer_size(std::size_t size) override;
  void close() override;
  void count(qel_node_counters& counters) const override;

 private:
  /// Calls `change` with the writer side locked.
  template <typename Change>
  int locked(Change change);

  // One of them is set.
  Demux* const demux_;
  Port* const port_;
};

}  // namespace qel::receiver
