// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/section_assembler.h"

#include <algorithm>
#include <cstring>

namespace qel::receiver {

constexpr std::uint8_t kStuffing = 0xff;

std::size_t SectionAssembler::declared_size(const std::uint8_t* header) {
  return kHeader + ((std::size_t{header[1]} & 0x0f) << 8 | header[2]);
}

void SectionAssembler::reset() {
  held_ = 0;
  synced_ = false;
}

void SectionAssembler::lose() {
  if (held_ > 0) ++errors_;
  reset();
}

void SectionAssembler::payload(const std::uint8_t* data, std::size_t size, bool unit_start,
                               SectionSink& sink) {
  if (size == 0) return;
  if (!unit_start) {
    if (synced_) parse(data, size, sink);
    return;
  }
  const std::size_t pointer = *data++;
  --size;
  if (pointer > size) {
    lose();
    return;
  }
  if (synced_ && held_ > 0) {
    // What precedes the pointer's target ends the section in progress; a
    // section may also end before it.
    const std::uint8_t* tail = data;
    std::size_t tail_size = pointer;
    if (!resume(tail, tail_size, sink)) return;
    if (held_ > 0) lose();
  }
  synced_ = true;
  parse(data + pointer, size - pointer, sink);
}

/// Ends the section in progress and goes through those that follow.
bool SectionAssembler::parse(const std::uint8_t* data, std::size_t size, SectionSink& sink) {
  if (held_ > 0 && !resume(data, size, sink)) return false;
  while (size > 0 && held_ == 0 && synced_) {
    if (data[0] == kStuffing) {
      synced_ = false;  // the rest is stuffing; the next section has a pointer
      return true;
    }
    ++begun_;
    if (size < kHeader) {
      keep(data, size);
      return true;
    }
    const std::size_t length = declared_size(data);
    if (length > kMaxSection) {
      ++errors_;
      reset();
      return true;
    }
    if (length > size) {
      keep(data, size);
      return true;
    }
    const Section whole{data, length, size, begun_ - 1};
    data += length;
    size -= length;
    if (!sink.section(whole)) return false;
  }
  return true;
}

/// Continues the section in progress; delivers it where it ends here.
bool SectionAssembler::resume(const std::uint8_t*& data, std::size_t& size, SectionSink& sink) {
  if (!fill(kHeader, data, size)) return true;
  const std::size_t length = declared_size(buffer_.get());
  if (length > kMaxSection) {
    ++errors_;
    reset();
    return true;
  }
  if (!fill(length, data, size)) return true;
  const std::size_t beyond = std::min(size, kLookedAt);
  std::memcpy(buffer_.get() + length, data, beyond);
  held_ = 0;
  return sink.section({buffer_.get(), length, length + beyond, begun_ - 1});
}

void SectionAssembler::keep(const std::uint8_t* data, std::size_t size) {
  if (!buffer_) buffer_ = std::make_unique<std::uint8_t[]>(kMaxSection + kLookedAt);
  fill(size, data, size);
}

/// Moves bytes into the buffer until it holds `target` of them.
bool SectionAssembler::fill(std::size_t target, const std::uint8_t*& data, std::size_t& size) {
  if (held_ >= target) return true;
  const std::size_t count = std::min(size, target - held_);
  std::memcpy(buffer_.get() + held_, data, count);
  held_ += count;
  data += count;
  size -= count;
  return held_ == target;
}

}  // namespace qel::receiver
