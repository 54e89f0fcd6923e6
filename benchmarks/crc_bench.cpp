// SPDX-License-Identifier: LGPL-2.1-or-later
//
// CRC-32/MPEG-2 over 4 KiB, the longest section, in cache.
#include <benchmark/benchmark.h>

#include <vector>

#include "common/crc32_mpeg.h"

namespace {

using Crc = std::uint32_t (*)(const void*, std::size_t);

void run(benchmark::State& state, Crc crc) {
  const std::vector<std::uint8_t> bytes(4096, 0x5a);
  for (auto _ : state) benchmark::DoNotOptimize(crc(bytes.data(), bytes.size()));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}

BENCHMARK_CAPTURE(run, CrcPortable, vantrel::crc32_mpeg_portable);
BENCHMARK_CAPTURE(run, CrcChosen, vantrel::crc32_mpeg);

}  // namespace

BENCHMARK_MAIN();
