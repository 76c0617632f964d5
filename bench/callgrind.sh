#!/usr/bin/env bash
# Instructions executed (callgrind's Ir) per iteration of agent benchmarks, each beside its
# floor's and their ratio: a measure that does not move with the load of a shared machine.
#
#   bench/callgrind.sh [REGEX]
# REGEX (default: the start-up's agent and floor, every event, the tear-down) chooses the
# agentBench benchmarks, as --benchmark_filter does. BUILD_DIR (default build-rel) is the
# Release build directory; the results go to $BUILD_DIR/callgrind/.
#
# How it counts: agentBench brackets each iteration's measured work (the timed region) with
# callgrind client requests that turn instrumentation and collection on inside and off
# outside, so set-up, checks and the benchmark library itself are not counted; after each
# benchmark it dumps the counts collected since the previous dump, named after the benchmark
# and its iterations. Each benchmark runs in its own process under callgrind: fixed-count
# benchmarks once (AGENTBENCH_ITERATIONS=1), the others for as few iterations as the benchmark
# library allows (one, with a tiny --benchmark_min_time); the figure is the dump's total divided
# by the iterations. The default set takes a few minutes of CPU.
set -euo pipefail
# --help prints the comment above as the usage, and does nothing else.
if [ "${1:-}" = "--help" ] || [ "${1:-}" = "-h" ]; then sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0; fi

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build-rel}
# Fixed-count benchmarks are named with "/iterations:N" at the end: the default leaves it open.
filter=${1:-'^(startup/(agent|floor)/|event/|teardown/)'}
out=$build/callgrind

if ! command -v valgrind >/dev/null || [ ! -f /usr/include/valgrind/callgrind.h ]; then
  echo "callgrind.sh: needs valgrind and its headers (scripts/install-deps.sh installs them)" >&2
  exit 2
fi
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C "$build" agentBench >/dev/null

rm -rf "$out"
mkdir -p "$out"
# Each benchmark runs in a process of its own: what ran before in the same process leaves the
# heap in another state, and one allocation that happens to reorganise the heap can cost more
# than a small event itself.
mapfile -t names < <(AGENTBENCH_ITERATIONS=1 "$build/bin/agentBench" --benchmark_list_tests --benchmark_filter="$filter")
[ ${#names[@]} -gt 0 ] || { echo "callgrind.sh: no benchmark matches $filter" >&2; exit 1; }
i=0
for name in "${names[@]}"; do
  i=$((i + 1))
  exact="^${name}\$"  # benchmark names hold no regex metacharacters
  AGENTBENCH_ITERATIONS=1 valgrind --tool=callgrind --instr-atstart=no --collect-atstart=no \
    --callgrind-out-file="$out/run$i.out" "$build/bin/agentBench" --benchmark_filter="$exact" \
    --benchmark_min_time=0.000001 --benchmark_format=json >"$out/run$i.json" 2>"$out/run$i.log" || {
    echo "callgrind.sh: $name failed under callgrind; see $out/run$i.log" >&2
    exit 1
  }
done
echo "results: $out" >&2

python3 - "$out" <<'EOF'
import glob, json, re, sys
out = sys.argv[1]
# Each dump names its benchmark and iterations; a benchmark run more than once (the library
# may try again with more iterations) counts by its last run, the one it reports.
ir = {}
def order(path):
    run, dump = re.search(r"run(\d+)\.out\.(\d+)$", path).groups()
    return int(run), int(dump)
for path in sorted(glob.glob(f"{out}/run*.out.*"), key=order):
    name = total = None
    for line in open(path):
        m = re.match(r"desc: Trigger: Client Request: agentBench (\S+) iterations (\d+)", line)
        if m:
            name, iterations = m[1], int(m[2])
        elif line.startswith("totals:"):
            total = int(line.split()[1])
    if name and total is not None and iterations:
        ir[re.sub(r"/iterations:\d+", "", name)] = total / iterations
for path in glob.glob(f"{out}/run*.json"):
    for b in json.load(open(path))["benchmarks"]:
        if b.get("error_occurred"):
            print(f"ERROR {b['name']}: {b.get('error_message')}")
if not ir:
    sys.exit("callgrind.sh: no benchmark ran")
def fmt(n):
    return f"{n:,.0f}"
print("instructions per iteration (callgrind Ir)")
print("| benchmark | Ir | floor Ir | x floor |")
print("| --- | ---: | ---: | ---: |")
for name, n in ir.items():
    group, variant = name.rsplit("/", 1)
    floor = ir.get(f"{group}/floor") if variant not in ("floor", "build") else None
    print(f"| {name} | {fmt(n)} | {fmt(floor) if floor else ''} | {f'{n / floor:.1f}' if floor else ''} |")
down, build = ir.get("teardown/agent"), ir.get("teardown/build")
if down and build:
    print()
    print(f"tear-down / start-up: {down / build:.3f} ({fmt(down)} against {fmt(build)} Ir)")
EOF
