#!/usr/bin/env bash
# Installs what is missing, then configures and builds everything into build/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
build_type=${BUILD_TYPE:-RelWithDebInfo}
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE="$build_type" >/dev/null
cmake --build build -j "$(nproc)"
