// SPDX-License-Identifier: LGPL-2.1-or-later
#include "common/crc32_mpeg.h"

#include <array>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "common/byte_reader.h"

namespace vantrel {
namespace {

constexpr std::uint32_t kPolynomial = 0x04C11DB7;
constexpr std::uint32_t kPreset = 0xFFFFFFFF;
constexpr std::size_t kStep = 16;
/// Below this many bytes the folding does not pay.
constexpr std::size_t kMinCarryless = 128;

using Table = std::array<std::uint32_t, 256>;

/// Table k advances a byte over k further zero bytes.
constexpr std::array<Table, kStep> make_tables() {
  std::array<Table, kStep> tables{};
  for (std::uint32_t byte = 0; byte < 256; byte++) {
    std::uint32_t crc = byte << 24;
    for (int bit = 0; bit < 8; bit++) crc = crc << 1 ^ ((crc >> 31) != 0 ? kPolynomial : 0);
    tables[0][byte] = crc;
  }
  for (std::size_t k = 1; k < kStep; k++)
    for (std::size_t byte = 0; byte < 256; byte++)
      tables[k][byte] = tables[k - 1][byte] << 8 ^ tables[0][tables[k - 1][byte] >> 24];
  return tables;
}

constexpr std::array<Table, kStep> kTables = make_tables();

/// Four bytes of a step, the first of which is followed by `after` more.
inline std::uint32_t advance(std::uint32_t word, std::size_t after) {
  return kTables[after][word >> 24] ^ kTables[after - 1][word >> 16 & 0xFF] ^
         kTables[after - 2][word >> 8 & 0xFF] ^ kTables[after - 3][word & 0xFF];
}

std::uint32_t update(std::uint32_t crc, const std::uint8_t* bytes, std::size_t size) {
  for (; size >= kStep; size -= kStep, bytes += kStep)
    crc = advance(read_u32(bytes) ^ crc, 15) ^ advance(read_u32(bytes + 4), 11) ^
          advance(read_u32(bytes + 8), 7) ^ advance(read_u32(bytes + 12), 3);
  for (; size > 0; size--, bytes++) crc = crc << 8 ^ kTables[0][crc >> 24 ^ *bytes];
  return crc;
}

}  // namespace

std::uint32_t crc32_mpeg_portable(const void* data, std::size_t size) {
  return update(kPreset, static_cast<const std::uint8_t*>(data), size);
}

#if defined(__x86_64__)

namespace {

#define CARRYLESS __attribute__((target("pclmul,ssse3,sse4.1")))

/// x^n modulo the polynomial, for a block that moves up by 512 or 128 bits: its
/// upper and its lower half.
CARRYLESS inline __m128i fold_512() { return _mm_set_epi64x(0x8833794C, 0xE6228B11); }
CARRYLESS inline __m128i fold_128() { return _mm_set_epi64x(0xC5B9CD4C, 0xE8A45605); }

/// Sixteen bytes as a polynomial: the first byte has the highest powers.
CARRYLESS inline __m128i load(const std::uint8_t* bytes) {
  const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)), reverse);
}

CARRYLESS inline __m128i fold(__m128i block, __m128i constants, __m128i next) {
  return _mm_xor_si128(next, _mm_xor_si128(_mm_clmulepi64_si128(block, constants, 0x11),
                                           _mm_clmulepi64_si128(block, constants, 0x00)));
}

/// Folds whole blocks of 64 and then of 16 bytes into one of 16, which has the
/// same remainder. `bytes` and `size` are left at what remains.
CARRYLESS __m128i fold_blocks(const std::uint8_t*& bytes, std::size_t& size) {
  __m128i lanes[4];
  for (int i = 0; i < 4; i++) lanes[i] = load(bytes + 16 * i);
  lanes[0] = _mm_xor_si128(lanes[0], _mm_set_epi32(static_cast<int>(kPreset), 0, 0, 0));
  for (bytes += 64, size -= 64; size >= 64; bytes += 64, size -= 64)
    for (int i = 0; i < 4; i++) lanes[i] = fold(lanes[i], fold_512(), load(bytes + 16 * i));
  for (int i = 1; i < 4; i++) lanes[i] = fold(lanes[i - 1], fold_128(), lanes[i]);
  for (; size >= 16; bytes += 16, size -= 16) lanes[3] = fold(lanes[3], fold_128(), load(bytes));
  return lanes[3];
}

}  // namespace

bool crc32_mpeg_has_carryless() {
  return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3") &&
         __builtin_cpu_supports("sse4.1");
}

CARRYLESS std::uint32_t crc32_mpeg_carryless(const void* data, std::size_t size) {
  if (size < kMinCarryless) return crc32_mpeg_portable(data, size);
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  alignas(16) std::uint8_t block[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(block),
                  _mm_shuffle_epi8(fold_blocks(bytes, size), reverse));
  return update(update(0, block, sizeof block), bytes, size);
}

#else

bool crc32_mpeg_has_carryless() { return false; }

std::uint32_t crc32_mpeg_carryless(const void* data, std::size_t size) {
  return crc32_mpeg_portable(data, size);
}

#endif

std::uint32_t crc32_mpeg(const void* data, std::size_t size) {
  static const bool carryless = crc32_mpeg_has_carryless();
  return carryless && size >= kMinCarryless ? crc32_mpeg_carryless(data, size)
                                            : crc32_mpeg_portable(data, size);
}

}  // namespace vantrel
