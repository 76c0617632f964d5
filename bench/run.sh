#!/usr/bin/env bash
# Builds the benchmarks in Release, runs each 5 times and prints the medians with their ratio
# to the floor of their group ("<group>/floor", measured in the same run).
#
#   bench/run.sh [extra benchmark flags, e.g. --benchmark_filter=attr_set]
# BUILD_DIR (default build-rel) and OUT (default $BUILD_DIR/bench.json) can be overridden.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build-rel}
out=${OUT:-$build/bench.json}

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C "$build" platformBench >/dev/null

"$build/bin/platformBench" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
  --benchmark_format=json "$@" >"$out"
echo "results: $out" >&2

python3 - "$out" <<'EOF'
import json, sys
data = json.load(open(sys.argv[1]))
# CPU time excludes the time the process sat descheduled on a busy machine.
stat = {}
for b in data["benchmarks"]:
    if b.get("run_type") == "aggregate" and b["aggregate_name"] in ("median", "cv"):
        stat.setdefault(b["run_name"], {})[b["aggregate_name"]] = b["cpu_time"]
print(f"{data['context'].get('num_cpus')} cpus; CPU-time medians of "
      f"{data['benchmarks'][0].get('repetitions', '?')} repetitions")
print("| benchmark | median ns | x floor | cv |")
print("| --- | ---: | ---: | ---: |")
for name, s in stat.items():
    floor = stat.get(name.rsplit("/", 1)[0] + "/floor", {}).get("median")
    ratio = f"{s['median'] / floor:.2f}" if floor else "-"
    cv = f"{100 * s['cv']:.0f}%" if "cv" in s else "-"
    print(f"| {name} | {s['median']:.2f} | {ratio} | {cv} |")
EOF
