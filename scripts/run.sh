#!/usr/bin/env bash
# Sets up the machine, builds a release build of Vesk and launches it.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVESK_TESTS=OFF -DVESK_BENCH=OFF
cmake --build build/release --target vesk

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "No display found: starting Vesk on a virtual X server (xvfb-run)."
  exec xvfb-run -a build/release/vesk "$@"
fi
exec build/release/vesk "$@"
