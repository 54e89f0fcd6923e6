// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/node.h"

namespace qel {

/// A node and the name it was opened with.
struct OpenNode {
  std::string name;
  std::shared_ptr<Node> node;
};

/// The nodes that are open, by descriptor.
///
/// Whoever holds the result of a look-up keeps the node, and with it the
/// number of its descriptor: it cannot be given to another file meanwhile.
class NodeTable {
 public:
  enum class Kind { kNode, kClosed, kForeign };

  struct Lookup {
    std::shared_ptr<const OpenNode> open;  // set where kind is kNode
    Kind kind = Kind::kForeign;
  };

  /// The node at `fd`. A closed one is told from a foreign descriptor as long
  /// as a call on it still runs: its eventfd is nobody's to read.
  [[nodiscard]] Lookup find(int fd) const;
  void insert(std::string_view name, std::shared_ptr<Node> node);
  /// Takes the node at `fd` out of the table, or returns nullptr.
  std::shared_ptr<const OpenNode> remove(int fd);

 private:
  struct Slot {
    std::shared_ptr<const OpenNode> open;
    std::weak_ptr<Node> closed;
  };

  mutable std::shared_mutex mutex_;  // innermost; never held in a call on a node
  std::vector<Slot> slots_;          // guarded by mutex_
};

}  // namespace qel
