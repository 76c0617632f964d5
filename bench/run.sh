#!/usr/bin/env bash
# Builds the benchmarks in Release, runs each 5 times and prints the medians with their ratio
# to the floor of their group ("<group>/floor", measured in the same run); for the growth
# series the exponent between successive points, and the tear-down against the start-up.
#
#   bench/run.sh [extra benchmark flags, e.g. --benchmark_filter=attr_set]
# BENCHES (default "platformBench agentBench") names the binaries to run; BUILD_DIR (default
# build-rel) the build directory; REPS (default 5) the repetitions. Each binary's results go
# to $BUILD_DIR/<binary>.json.
set -euo pipefail
# --help prints the comment above as the usage, and does nothing else.
if [ "${1:-}" = "--help" ] || [ "${1:-}" = "-h" ]; then sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0; fi

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build-rel}
benches=${BENCHES:-platformBench agentBench}
reps=${REPS:-5}

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
# shellcheck disable=SC2086
ninja -C "$build" $benches >/dev/null

for bench in $benches; do
  out=$build/$bench.json
  "$build/bin/$bench" --benchmark_repetitions="$reps" --benchmark_report_aggregates_only=true \
    --benchmark_format=json "$@" >"$out"
  echo "results: $out" >&2

  python3 - "$out" <<'EOF'
import json, math, re, sys
data = json.load(open(sys.argv[1]))
# "group/variant/iterations:3" is "group/variant" run a fixed number of times.
def short(name):
    return re.sub(r"/(iterations|min_time|repeats):[^/]+", "", name)
# CPU time excludes the time the process sat descheduled on a busy machine.
stat, unit, counters = {}, {}, {}
for b in data["benchmarks"]:
    if b.get("run_type") != "aggregate" or b.get("error_occurred"):
        continue
    name = short(b["run_name"])
    if b["aggregate_name"] in ("median", "cv"):
        stat.setdefault(name, {})[b["aggregate_name"]] = b["cpu_time"]
    if b["aggregate_name"] == "median":
        unit[name] = b.get("time_unit", "ns")
        counters[name] = {k: v for k, v in b.items() if k.startswith(("w.", "min."))}
for b in data["benchmarks"]:
    if b.get("error_occurred"):
        print(f"ERROR {b['name']}: {b.get('error_message')}")
if not stat:
    sys.exit(0)
reps = data["benchmarks"][0].get("repetitions", "?")
print(f"{data['context'].get('num_cpus')} cpus; CPU-time medians of {reps} repetitions")
with_writes = any(counters.values())
areas = ("mir", "tap", "oth")
def trio(c, prefix):
    return "/".join(f"{c.get(prefix + a, 0):.0f}" for a in areas)
header = "| benchmark | median | x floor | cv |"
rule = "| --- | ---: | ---: | ---: |"
if with_writes:
    header += " writes mir/tap/oth | minimum mir/tap/oth | there / back (minimum) |"
    rule += " ---: | ---: | ---: |"
print(header)
print(rule)
for name, s in stat.items():
    # A build (the start-up a tear-down is set against) is a reference of its own, not floored.
    floor = None if name.endswith("/build") else stat.get(name.rsplit("/", 1)[0] + "/floor", {}).get("median")
    ratio = f"{s['median'] / floor:.2f}" if floor else "-"
    cv = f"{100 * s['cv']:.0f}%" if "cv" in s else "-"
    u = unit[name].replace("us", "µs")
    line = f"| {name} | {s['median']:.2f} {u} | {ratio} | {cv} |"
    if with_writes:
        c = counters.get(name, {})
        halves = "-"
        if "w.there" in c:
            halves = f"{c['w.there']:.0f} / {c['w.back']:.0f} ({c['min.there']:.0f} / {c['min.back']:.0f})"
        line += f" {trio(c, 'w.')} | {trio(c, 'min.')} | {halves} |"
    print(line)

# Growth series ("growth/<series>/<n>/agent|floor"): the local exponent between successive
# points, log(t2/t1) / log(n2/n1): 1 is linear, 2 quadratic.
series = {}
for name, s in stat.items():
    m = re.fullmatch(r"growth/([^/]+)/(\d+)/(agent|floor)", name)
    if m:
        series.setdefault(m[1], {}).setdefault(int(m[2]), {})[m[3]] = s["median"]
def exponent(a, b, n1, n2):
    return f"{math.log(b / a) / math.log(n2 / n1):.2f}" if a and b else "-"
for name, points in series.items():
    print()
    print(f"growth by {name}: the exponent from the point above, log(t2/t1) / log(n2/n1)")
    print(f"| {name} | agent | floor | x floor | agent exponent | floor exponent |")
    print("| ---: | ---: | ---: | ---: | ---: | ---: |")
    last = None
    for n in sorted(points):
        a, f = points[n].get("agent"), points[n].get("floor")
        u = unit.get(f"growth/{name}/{n}/agent", "").replace("us", "µs")
        ea = exponent(points[last].get("agent"), a, last, n) if last else ""
        ef = exponent(points[last].get("floor"), f, last, n) if last else ""
        ratio = f"{a / f:.1f}" if a and f else "-"
        print(f"| {n} | {a or 0:.2f} {u} | {f or 0:.2f} {u} | {ratio} | {ea} | {ef} |")
        last = n

# A tear-down beside the start-up that built it.
down, build = stat.get("teardown/agent", {}).get("median"), stat.get("teardown/build", {}).get("median")
if down and build:
    print()
    print(f"tear-down / start-up: {down / build:.3f} ({down:.2f} against {build:.2f} {unit['teardown/agent']})")
EOF
done
