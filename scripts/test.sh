#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds, and runs every test. Integration tests start and
# stop their own X server, window manager, PulseAudio and D-Bus; every test has a time bound.
# Extra arguments go to ctest (for example: -R XvfbSession).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh
ctest --test-dir build --output-on-failure --timeout 300 -j "$(nproc)" "$@"
