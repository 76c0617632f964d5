#!/usr/bin/env bash
# Whole-process runs of mirroringd on the switch-scale state (bench/ScaleSwitch.h): wall time,
# CPU time (user + system) and peak resident memory of the process, as the kernel accounts
# them for the child, with the medians of RUNS runs of each case:
#
#   empty      the program and the plug-in with an empty state: the process floor
#   startup    start-up over the scale state, then exit
#   events     start-up, every benchmark event there and back, a restart, then exit
#   converged  start-up over the state an earlier run left (its dump: inputs and outputs), as
#              after a restart of the whole program
#
#   bench/agent.sh
# BUILD_DIR (default build-rel) and RUNS (default 5) can be overridden; the generated files go
# to $BUILD_DIR/scale/. Run it under `nice` on a shared machine: CPU time is what to compare.
set -euo pipefail
# --help prints the comment above as the usage, and does nothing else.
if [ "${1:-}" = "--help" ] || [ "${1:-}" = "-h" ]; then sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0; fi

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build-rel}
runs=${RUNS:-5}
work=$build/scale

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C "$build" mirroringd Mirroring scaleSwitchState >/dev/null

mkdir -p "$work"
"$build/bin/scaleSwitchState" "$work/state.json" "$work/changes.jsonl"
echo '{}' >"$work/empty.json"
"$build/bin/mirroringd" --quiet-syslog --dump "$work/converged.json" "$work/state.json"

python3 - "$build/bin/mirroringd" "$work" "$runs" <<'EOF'
import json, os, statistics, subprocess, sys, time

mirroringd, work, runs = sys.argv[1], sys.argv[2], int(sys.argv[3])
cases = [
    ("empty", [f"{work}/empty.json"]),
    ("startup", [f"{work}/state.json"]),
    ("events", ["--changes", f"{work}/changes.jsonl", f"{work}/state.json"]),
    ("converged", [f"{work}/converged.json"]),
]

def run(args):
    start = time.monotonic()
    p = subprocess.Popen([mirroringd, "--quiet-syslog"] + args, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(p.pid, 0)
    wall = time.monotonic() - start
    if status != 0:
        sys.exit(f"mirroringd {' '.join(args)} failed")
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss

# What the agent writes, from one more run with the change stream out (not timed: writing it
# costs time of its own). Lines on the interface statuses are the input's own changes.
def writes(args):
    out = f"{work}/changes-out.jsonl"
    subprocess.run([mirroringd, "--quiet-syslog", "--changes-out", out] + args, check=True,
                   stdout=subprocess.DEVNULL)
    count = {"mirroring": 0, "tapagg": 0}
    for line in open(out):
        path = json.loads(line)["path"]
        if path.startswith(("mirroring/", "interface/input/forwardingmodel/mirroring")):
            count["mirroring"] += 1
        elif path.startswith(("tapagg/", "stp/portMode/tapagg", "interface/errdisable/cause/tapagg")):
            count["tapagg"] += 1
    return count

print(f"mirroringd, medians of {runs} runs")
print("| case | wall ms | CPU ms | x empty (CPU) | peak RSS MiB | agent writes mirroring / tap aggregation |")
print("| --- | ---: | ---: | ---: | ---: | ---: |")
floor = None
for name, args in cases:
    results = [run(args) for _ in range(runs)]
    wall = statistics.median(r[0] for r in results) * 1000
    cpu = statistics.median(r[1] for r in results) * 1000
    rss = statistics.median(r[2] for r in results) / 1024
    floor = floor or cpu
    w = writes(args)
    print(f"| {name} | {wall:.0f} | {cpu:.0f} | {cpu / floor:.1f} | {rss:.1f} | {w['mirroring']} / {w['tapagg']} |")
EOF
