#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds, and starts tavelquiston. Arguments go to the program.
# On a machine without a display it runs the recording demo (scripts/demo.sh) instead.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh
# Without a display the program cannot start; show what it records instead.
if [[ -z ${DISPLAY:-} && -z ${WAYLAND_DISPLAY:-} ]]; then
  exec scripts/demo.sh
fi
exec build/src/app/tavelquiston "$@"
