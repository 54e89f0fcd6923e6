// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/pes.h"

#include <algorithm>

namespace qel::receiver {

void PesUnit::gather(const std::uint8_t* payload, std::size_t size) {
  const std::size_t count = std::min(size, kHeader - taken_);
  std::copy_n(payload, count, header_.begin() + static_cast<std::ptrdiff_t>(taken_));
  if (taken_ + count == kHeader) total_ = declared_size();
}

std::size_t PesUnit::declared_size() const {
  constexpr std::size_t kShortestHeader = 3;  // what follows PES_packet_length in a stream's header
  if (header_[0] != 0 || header_[1] != 0 || header_[2] != 1) return 0;
  const std::size_t length = std::size_t{header_[4]} << 8 | header_[5];
  // Pictures of more than 64 KiB are met whose length has wrapped around; one
  // that does not even hold the header is no length.
  if (length < kShortestHeader) return 0;
  return kHeader + length;
}

}  // namespace qel::receiver
