#!/usr/bin/env bash
# SPDX-License-Identifier: LGPL-2.1-or-later
#
# Sets up, builds, and does with a transport stream what a receiver does: finds
# its services, reads the programme guide and shows a picture. FILE, or a stream
# that is made first.
set -euo pipefail
file=${1:+$(realpath "$1")}
cd "$(dirname "$0")/.."
root=$PWD

./scripts/setup.sh
[ -e build/build.ninja ] || meson setup build
meson compile -C build

export GST_PLUGIN_PATH="$root/build/plugin:$root/build/softdec${GST_PLUGIN_PATH:+:$GST_PLUGIN_PATH}"
export GST_REGISTRY=${GST_REGISTRY:-$root/build/registry.bin}
vantrel=$root/build/tools/vantrel/vantrel
mkdir -p build/demo

step() {
  printf '\n\033[1m$ vantrel %s\033[0m\n' "$*"
  "$vantrel" "$@"
}

if [ -z "$file" ]; then
  file=build/demo/test.ts
  step test-stream --force --output "$file"
fi
step scan "$file"
step sections --counts "$file"
# A stream may have no guide or no picture; each says so in a line.
step epg "$file" || true
step ports "$file" || true
step watch --force --snapshot build/demo/picture.png "$file" || true
