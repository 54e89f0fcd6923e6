// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/mapping.h"

#include <sys/mman.h>

namespace qel::receiver {

namespace {

constexpr std::size_t kHugePage = 2 * 1024 * 1024;

std::uint8_t* map(std::size_t size) {
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return memory != MAP_FAILED ? static_cast<std::uint8_t*>(memory) : nullptr;
}

/// At a boundary of huge pages, which are asked for: a port's buffer is gone
/// through from end to end, and a fault for each small page costs as much as the
/// bytes copied there.
std::uint8_t* map_huge(std::size_t size) {
  std::uint8_t* memory = map(size + kHugePage);
  if (memory == nullptr) return nullptr;
  const std::size_t before = -reinterpret_cast<std::uintptr_t>(memory) % kHugePage;
  if (before > 0) munmap(memory, before);
  munmap(memory + before + size, kHugePage - before);
  madvise(memory + before, size, MADV_HUGEPAGE);
  return memory + before;
}

}  // namespace

Mapping::Mapping(std::size_t size) {
  bytes_ = size % kHugePage == 0 && size > 0 ? map_huge(size) : map(size);
  if (bytes_ != nullptr) size_ = size;
}

Mapping::~Mapping() {
  if (bytes_) munmap(bytes_, size_);
}

}  // namespace qel::receiver
