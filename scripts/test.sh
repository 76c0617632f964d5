#!/usr/bin/env bash
# Builds everything and runs every test. Usage: scripts/test.sh [--sanitize]
#   --sanitize  builds in build-asan/ with AddressSanitizer and UndefinedBehaviorSanitizer
set -euo pipefail
# --help prints the comment above as the usage, and does nothing else.
if [ "${1:-}" = "--help" ] || [ "${1:-}" = "-h" ]; then sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0; fi
cd "$(dirname "$0")/.."
scripts/install-deps.sh
dir=build
flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
if [ "${1:-}" = "--sanitize" ]; then
  dir=build-asan
  flags=(-DCMAKE_BUILD_TYPE=Debug -DMIRRORING_SANITIZE=ON -DMIRRORING_BENCH=OFF)
fi
cmake -S . -B "$dir" -G Ninja "${flags[@]}" >/dev/null
cmake --build "$dir"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$dir" --output-on-failure -j "$(nproc)"
