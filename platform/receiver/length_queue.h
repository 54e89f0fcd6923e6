// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qel::receiver {

/// First in, first out; grows as needed and keeps its memory.
class LengthQueue {
 public:
  [[nodiscard]] bool empty() const { return count_ == 0; }
  void clear() { count_ = 0; }

  void push(std::uint32_t length) {
    if (count_ == slots_.size()) grow();
    slots_[(first_ + count_++) & (slots_.size() - 1)] = length;
  }

  std::uint32_t pop() {
    const std::uint32_t length = slots_[first_];
    first_ = (first_ + 1) & (slots_.size() - 1);
    --count_;
    return length;
  }

 private:
  void grow() {
    std::vector<std::uint32_t> larger(slots_.empty() ? 16 : slots_.size() * 2);
    for (std::size_t i = 0; i < count_; ++i) larger[i] = slots_[(first_ + i) & (slots_.size() - 1)];
    slots_.swap(larger);
    first_ = 0;
  }

  std::vector<std::uint32_t> slots_;  // a power of two of them
  std::size_t first_ = 0;
  std::size_t count_ = 0;
};

}  // namespace qel::receiver
