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
# and the throughput of a long mixed change stream (bench/ScaleStream.h), in lines per second
# of CPU time, beside its floor:
#   stream     the Mirroring plug-in over the scale state, then the stream
#   floor      the test plug-in as agent "Passive" (it mounts and builds nothing) over the same
#              records, then the same changes on them: the host alone
# A stream's time is the CPU time of its run less that of a run of the same start-up alone.
#
#   bench/agent.sh
# BUILD_DIR (default build-rel), RUNS (default 5) and STREAM_LINES (default 200000; 0: no
# stream) can be overridden; the generated files go to $BUILD_DIR/scale/. Run it under `nice`
# on a shared machine: CPU time is what to compare.
set -euo pipefail
# --help prints the comment above as the usage, and does nothing else.
if [ "${1:-}" = "--help" ] || [ "${1:-}" = "-h" ]; then sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0; fi

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build-rel}
runs=${RUNS:-5}
lines=${STREAM_LINES:-200000}
work=$build/scale

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C "$build" mirroringd Mirroring TestAgent scaleSwitchState >/dev/null

mkdir -p "$work"
stream=()
if [ "$lines" -gt 0 ]; then
  stream=(--stream "$work/stream.jsonl" --stream-lines "$lines" --floor-state "$work/floor-state.json"
          --floor-stream "$work/floor-stream.jsonl")
fi
"$build/bin/scaleSwitchState" "$work/state.json" "$work/changes.jsonl" "${stream[@]}"
echo '{}' >"$work/empty.json"
"$build/bin/mirroringd" --quiet-syslog --dump "$work/converged.json" "$work/state.json"

python3 - "$build/bin/mirroringd" "$work" "$runs" "$lines" "$build/lib/libTestAgent.so" <<'EOF'
import itertools, json, os, statistics, subprocess, sys, time

mirroringd, work, runs, lines, test_plugin = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4]), sys.argv[5]
cases = [
    ("empty", [f"{work}/empty.json"]),
    ("startup", [f"{work}/state.json"]),
    ("events", ["--changes", f"{work}/changes.jsonl", f"{work}/state.json"]),
    ("converged", [f"{work}/converged.json"]),
]

# --strict: a line the program refuses fails the run, rather than being timed as a refusal.
def run(args):
    start = time.monotonic()
    p = subprocess.Popen([mirroringd, "--quiet-syslog", "--strict"] + args, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(p.pid, 0)
    wall = time.monotonic() - start
    if status != 0:
        sys.exit(f"mirroringd {' '.join(args)} failed")
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss

# What the agent writes, from one more run with the change stream out (not timed: writing it
# costs time of its own). Lines on the interface statuses are the input's own changes.
def writes(args):
    out = f"{work}/changes-out.jsonl"
    subprocess.run([mirroringd, "--quiet-syslog", "--strict", "--changes-out", out] + args, check=True,
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

if lines <= 0:
    sys.exit(0)

# Each stream is checked once, untimed, on its first lines (every kind of change many times
# over): the state must come back to where the stream started, and the agent's writes per
# line are counted on that run.
def check(name, plugin, state, stream):
    prefix, start, end = f"{work}/{name}-prefix.jsonl", f"{work}/{name}-start.json", f"{work}/{name}-end.json"
    with open(stream) as src, open(prefix, "w") as dst:
        dst.writelines(itertools.islice(src, min(lines, 6000)))
    checked = sum(1 for _ in open(prefix))
    subprocess.run([mirroringd, "--quiet-syslog", *plugin, "--dump", start, state], check=True,
                   stdout=subprocess.DEVNULL)
    w = writes([*plugin, "--dump", end, "--changes", prefix, state])
    back = json.load(open(end)) == json.load(open(start))
    return back, (w["mirroring"] + w["tapagg"]) / checked, checked

streams = [  # the floor first: the stream's ratio needs it
    ("floor", "test plug-in (Passive): floor", ["--plugin", test_plugin, "--agent", "Passive"],
     f"{work}/floor-state.json", f"{work}/floor-stream.jsonl"),
    ("stream", "Mirroring", [], f"{work}/state.json", f"{work}/stream.jsonl"),
]
print()
print(f"mixed change stream of {lines} lines (bench/ScaleStream.h), CPU-time medians of {runs} runs")
print("| plug-in | with stream ms | start-up alone ms | lines/s | µs/line | x floor | state back | agent writes/line |")
print("| --- | ---: | ---: | ---: | ---: | ---: | --- | ---: |")
floor_line = None
for name, label, plugin, state, stream in streams:
    back, per_line_writes, checked = check(name, plugin, state, stream)
    alone = statistics.median(run([*plugin, state])[1] for _ in range(runs))
    total = statistics.median(run([*plugin, "--changes", stream, state])[1] for _ in range(runs))
    per_line = max(total - alone, 1e-9) / lines
    floor_line = floor_line or per_line
    print(f"| {label} | {total * 1000:.0f} | {alone * 1000:.0f} | {1 / per_line:.0f} | {per_line * 1e6:.2f} | "
          f"{per_line / floor_line:.1f} | {'yes' if back else 'NO'} (first {checked} lines) | {per_line_writes:.2f} |")
EOF
