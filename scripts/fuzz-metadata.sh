#!/usr/bin/env bash
# Builds the metadata decoder's libFuzzer target with clang and runs it for a bounded time.
#   scripts/fuzz-metadata.sh [seconds]        default 600
# The working corpus lives in build-fuzz/corpus (seeded from fuzz/corpus); crash inputs are
# written to build-fuzz/crashes. Exits non-zero when the fuzzer found a crash.
set -euo pipefail

seconds="${1:-600}"
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-fuzz"

if ! command -v clang++ >/dev/null 2>&1; then
  echo "❌ clang++ is needed for fuzzing (Debian packages clang and libclang-rt-14-dev)" >&2
  exit 1
fi

cmake -S "$root" -B "$build" -G Ninja -DTQ_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DTAVELQUISTON_BUILD_TESTS=OFF -DTAVELQUISTON_BUILD_BENCH=OFF >/dev/null
ninja -C "$build" metadata_fuzz

mkdir -p "$build/corpus" "$build/crashes"
cp -n "$root"/fuzz/corpus/* "$build/corpus/" 2>/dev/null || true

echo "🔍 Fuzzing the metadata decoder for ${seconds}s"
set +e
"$build/fuzz/metadata_fuzz" "$build/corpus" \
  -dict="$root/fuzz/metadata.dict" -max_total_time="$seconds" -max_len=65536 -timeout=10 \
  -rss_limit_mb=2048 -artifact_prefix="$build/crashes/" -print_final_stats=1 2>&1 |
  tee "$build/fuzz.log" | grep -E '^(#[0-9]+ +(INITED|DONE)|stat::|==[0-9]+==ERROR|SUMMARY|artifact_prefix)' 
status=${PIPESTATUS[0]}
set -e

crashes=$(find "$build/crashes" -type f | wc -l)
runs=$(grep -Eo 'stat::number_of_executed_units: [0-9]+' "$build/fuzz.log" | grep -Eo '[0-9]+$' || echo 0)
echo "📊 ${runs} executions, ${crashes} crash inputs, exit status ${status}"
[ "$status" -eq 0 ] && [ "$crashes" -eq 0 ]
