// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace qel::receiver {

/// A whole section where it lies: in its packet or in the assembler.
struct Section {
  const std::uint8_t* data;
  std::size_t size;
  std::size_t available;  // bytes that may be looked at, what follows included
  std::uint64_t serial;   // counts the sections begun on the PID
};

/// Takes whole sections from an assembler.
class SectionSink {
 public:
  virtual ~SectionSink() = default;
  /// May wait, and the assembler be reset meanwhile. False where it must not
  /// go on with the packet.
  virtual bool section(const Section& section) = 0;
};

/// Puts the sections of one PID together from the payloads of its packets.
class SectionAssembler {
 public:
  /// One payload; `unit_start` where it begins with a pointer_field.
  void payload(const std::uint8_t* data, std::size_t size, bool unit_start, SectionSink& sink);
  /// Something was lost: drops the section in progress.
  void lose();
  /// Starts over, without an error.
  void reset();
  /// Serial of the section that begins next.
  [[nodiscard]] std::uint64_t next_serial() const { return begun_; }
  /// Sections dropped half assembled or of impossible length.
  [[nodiscard]] std::uint64_t errors() const { return errors_; }
  void reset_errors() { errors_ = 0; }

 private:
  static constexpr std::size_t kHeader = 3;
  static constexpr std::size_t kMaxSection = 4096;
  static constexpr std::size_t kLookedAt = 18;  // bytes a filter may compare

  bool parse(const std::uint8_t* data, std::size_t size, SectionSink& sink);
  bool resume(const std::uint8_t*& data, std::size_t& size, SectionSink& sink);
  void keep(const std::uint8_t* data, std::size_t size);
  bool fill(std::size_t target, const std::uint8_t*& data, std::size_t& size);
  [[nodiscard]] static std::size_t declared_size(const std::uint8_t* header);

  std::unique_ptr<std::uint8_t[]> buffer_;  // made for the first section that spans packets
  std::size_t held_ = 0;                    // bytes of the section in progress
  bool synced_ = false;                     // a unit start was seen since the last loss
  std::uint64_t begun_ = 0;
  std::uint64_t errors_ = 0;
};

}  // namespace qel::receiver
