#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds, and starts tavelquiston. Arguments go to the program.
# Without a display it runs the demo instead: a private X server and a short scripted recording.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "🔍 No display here: running the demo recording on a private X server"
  exec scripts/demo.sh "$@"
fi
exec build/src/app/tavelquiston "$@"
