#!/usr/bin/env bash
# SPDX-License-Identifier: LGPL-2.1-or-later
#
# Builds for release, measures everything in one run and prints the figures side
# by side. Wants an idle machine. Details stay in build-bench/results/.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh
[ -e build-bench/build.ninja ] ||
  meson setup build-bench --buildtype=release -Dbenchmarks=true -Dtests=false
meson compile -C build-bench

results=$PWD/build-bench/results
mkdir -p "$results"
export GST_PLUGIN_PATH=$PWD/build-bench/plugin:$PWD/build-bench/softdec
export GST_REGISTRY=$results/registry.bin
# Large pieces of memory in large pages, as Debian's kernel gives them; others do where asked.
export GLIBC_TUNABLES=glibc.malloc.hugetlb=1

measure() { # NAME PROGRAM [OPTION...]
  echo "measuring: $1"
  ${on:-} "build-bench/benchmarks/$2" "${@:3}" \
    --benchmark_repetitions="${repetitions:-5}" --benchmark_display_aggregates_only=true \
    --benchmark_min_time="${seconds:-0.3}" \
    --benchmark_out="$results/$1.json" --benchmark_out_format=json \
    >"$results/$1.txt" 2>&1
}

measure crc crc-bench
measure section section-bench
measure receiver receiver-bench
# In turn, and often: the host of a virtual machine may take a core away for seconds.
repetitions=15 seconds=0.1 \
  measure stream stream-bench --benchmark_enable_random_interleaving=true
on='taskset --cpu-list 0' measure stream-one-core stream-bench --benchmark_filter=Play
echo "measuring: response"
build-bench/benchmarks/response >"$results/response.json"
echo "measuring: pes"
build-bench/benchmarks/pes-bench >"$results/pes.json"
echo "measuring: watch (five minutes)"
build-bench/benchmarks/watch 60 "$results" >"$results/watch.json"
python3 benchmarks/report.py "$results"
python3 benchmarks/scaling.py build-bench/benchmarks/scaling-worker
