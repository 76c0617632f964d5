#!/usr/bin/env bash
# Builds the agent and the host, then runs mirroringd on the example switch and shows the view.
# Usage: scripts/run-example.sh [extra mirroringd options]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target mirroringd Mirroring
exec build/bin/mirroringd --view --changes examples/switch/changes.jsonl examples/switch/state.json "$@"
