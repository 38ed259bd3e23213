#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds, and starts tavelquiston. Arguments go to the program.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh
exec build/src/app/tavelquiston "$@"
