#!/usr/bin/env bash
# SPDX-License-Identifier: LGPL-2.1-or-later
#
# Builds everything and runs every test, three times: as it is (build/), with
# the address and undefined-behaviour sanitizers (build-asan/), and, of the
# tests with several threads, with the thread sanitizer (build-tsan/).
#
# Arguments go to `meson setup`, for example -Dwerror=true. VANTREL_STREAMS
# names a folder of captured streams; tests that need one skip without it.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1

./scripts/setup.sh || exit 1

# One test has Prometheus read the metrics of the receiver. Its package would start a
# service, so it is only unpacked; where it cannot be had, the test skips.
prometheus=$PWD/build/prometheus
if ! command -v prometheus >/dev/null && [ ! -x "$prometheus/usr/bin/prometheus" ]; then
  mkdir -p "$prometheus"
  (cd "$prometheus" && apt-get download prometheus && dpkg-deb -x prometheus_*.deb .) \
    >/dev/null 2>&1 || echo "prometheus cannot be had: its test will be skipped"
fi
export PATH=$PATH:$prometheus/usr/bin

# A loader that places libraries at random can take addresses that the thread
# sanitizer needs.
fixed_addresses=()
setarch --addr-no-randomize true 2>/dev/null && fixed_addresses=(setarch --addr-no-randomize)

options=("$@")
failed=0

# FOLDER SUITE [OPTION...]: the suite "" is all tests.
build_and_test() {
  local folder=$1 suite=$2 again=()
  shift 2
  echo "== $folder"
  rm -rf "$folder/test-results" "$folder/meson-logs/testlog.json"
  [ -e "$folder/build.ninja" ] && again=(--reconfigure)
  if ! meson setup "$folder" "${again[@]}" "$@" "${options[@]}" >"$folder.log"; then
    cat "$folder.log" >&2
    failed=1
    return
  fi
  rm "$folder.log"
  if ! meson compile -C "$folder"; then
    failed=1
    return
  fi
  GTEST_OUTPUT="xml:$PWD/$folder/test-results/" \
    "${fixed_addresses[@]}" meson test -C "$folder" --no-rebuild --print-errorlogs \
    ${suite:+--suite "$suite"} || failed=1
}

build_and_test build ""
# The address sanitizer's code takes longer to optimize than it saves.
build_and_test build-asan "" -Db_sanitize=address,undefined -Db_lundef=false -Doptimization=0
build_and_test build-tsan threads -Dtools=false -Db_sanitize=thread -Db_lundef=false -Doptimization=1

python3 scripts/count_tests.py build build-asan build-tsan || failed=1
exit "$failed"
