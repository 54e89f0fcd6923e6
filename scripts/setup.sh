#!/usr/bin/env bash
# SPDX-License-Identifier: LGPL-2.1-or-later
#
# Installs the Debian packages that building, testing and running the
# demonstration need, and nothing else. Does nothing when none is missing.
set -euo pipefail

packages=(
  # build
  g++ meson ninja-build pkg-config
  libglib2.0-dev libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  libgstreamer-plugins-bad1.0-dev libjson-glib-dev libsoup-3.0-dev linux-libc-dev
  # the client library for other languages, and the example in Python
  gobject-introspection libgirepository1.0-dev python3-gi
  # tests and benchmarks
  libgtest-dev libbenchmark-dev libdvbpsi-dev python3 ffmpeg
  # the report in a browser
  chromium fonts-dejavu-core
  # pipelines: appsrc, parsers, mpegtsmux, x264enc, decoders, gst-inspect-1.0
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-libav gstreamer1.0-x
)

is_installed() {
  dpkg-query --show --showformat='${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed
}

if ! command -v dpkg-query >/dev/null; then
  echo "setup: not a Debian system; these packages (or what they are called here) are needed:" >&2
  printf '  %s\n' "${packages[@]}" >&2
  exit 1
fi

missing=()
for package in "${packages[@]}"; do
  is_installed "$package" || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages are installed"
  exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup: cannot install without root or sudo; missing: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

install=(apt-get install -y --no-install-recommends "${missing[@]}")
echo "setup: installing ${missing[*]}"
if ! { "${as_root[@]}" apt-get update &&
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive "${install[@]}"; }; then
  echo "setup: could not install; still missing of: ${missing[*]}" >&2
  exit 1
fi
