#!/usr/bin/env bash
# Builds the agent and the host, then runs mirroringd on the example switch and shows the view.
# Usage: scripts/run-example.sh [extra mirroringd options]
# (build/bin/mirroringd --help lists mirroringd's options.)
set -euo pipefail
# --help prints the comment above as the usage, and does nothing else.
if [ "${1:-}" = "--help" ] || [ "${1:-}" = "-h" ]; then sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0; fi
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target mirroringd Mirroring
exec build/bin/mirroringd --view --changes examples/switch/changes.jsonl examples/switch/state.json "$@"
