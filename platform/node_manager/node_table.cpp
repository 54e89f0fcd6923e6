// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/node_manager/node_table.h"

#include <mutex>
#include <utility>

namespace qel {

NodeTable::Lookup NodeTable::find(int fd) const {
  const std::shared_lock lock(mutex_);
  const auto index = static_cast<std::size_t>(fd);
  if (fd < 0 || index >= slots_.size()) return {};
  const Slot& slot = slots_[index];
  if (slot.open != nullptr) return {slot.open, Kind::kNode};
  return {nullptr, slot.closed.expired() ? Kind::kForeign : Kind::kClosed};
}

void NodeTable::insert(std::string_view name, std::shared_ptr<Node> node) {
  const auto index = static_cast<std::size_t>(node->fd());
  auto open = std::make_shared<const OpenNode>(OpenNode{std::string(name), std::move(node)});
  const std::lock_guard lock(mutex_);
  if (index >= slots_.size()) slots_.resize(index + 1);
  slots_[index] = {std::move(open), {}};
}

std::shared_ptr<const OpenNode> NodeTable::remove(int fd) {
  const std::lock_guard lock(mutex_);
  const auto index = static_cast<std::size_t>(fd);
  if (fd < 0 || index >= slots_.size() || slots_[index].open == nullptr) return nullptr;
  Slot& slot = slots_[index];
  slot.closed = slot.open->node;
  return std::exchange(slot.open, nullptr);
}

}  // namespace qel
