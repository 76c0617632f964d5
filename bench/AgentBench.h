// What the agent benchmarks share (bench/AgentBench.cpp describes the benchmarks): the host
// the plug-in runs in, the switch-scale states and their converged outputs, the count of the
// agent's writes against the minimum, and the bracket around each iteration's measured work
// that instruction counts use.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/ScaleSwitch.h"
#include "host/AgentHost.h"
#include "platform/Codec.h"
#include "platform/Database.h"

namespace agentbench {

using host::AgentHost;
using platform::Change;
using platform::Database;
using platform::Mount;
using platform::Value;

[[noreturn]] void fail(const std::string& what);

// --- what the agent writes ----------------------------------------------------------------------

enum Area { mirroring, tapagg, other, kAreas };

// The area of a mount the agent writes, or -1 for one it only reads (the interface statuses
// it creates as local entities are filled by the state file, so they count as inputs).
int areaOf(const Mount& m);

struct Counts {
  uint64_t n[kAreas] = {};
  uint64_t total() const { return n[0] + n[1] + n[2]; }
  Counts operator-(const Counts& o) const;
  Counts operator+(const Counts& o) const;
  Counts per(int64_t iterations) const;
  bool operator==(const Counts&) const = default;
};

// The writes of every iteration of a benchmark, which must be the same each time.
struct SameWrites {
  Counts writes;
  bool same = true, seen = false;
  void saw(const Counts& w) {
    same = same && (!seen || w == writes);
    writes = w;
    seen = true;
  }
};

// The writes counted so far on the agent's output mounts.
Counts outputWrites(const Database& db);
Value dumpOutputs(const Database& db);
// The least writes from `before` (a dump of the outputs; null: nothing written yet) to now.
Counts minimum(const Value* before, const Database& db);
void report(benchmark::State& st, const Counts& writes, const Counts& least);

// --- hosts --------------------------------------------------------------------------------------

std::unique_ptr<AgentHost> openHost();
void start(AgentHost& h, const Value* state);
void load(Database& db, const Value& state);
// The agent's mounts with nothing in them: an agent started on no state, then dropped.
std::unique_ptr<AgentHost> emptyMounts();
// Applies changes with no validation pass, as a writer that trusts its input would; `play`
// lets the agent react after each.
void replay(Database& db, const std::vector<Change>& changes);
void play(AgentHost& h, const std::vector<Change>& changes);
std::vector<Change> parse(const std::vector<std::string>& lines);

// --- the scale states and what the agent makes of them ------------------------------------------

struct Size {
  int sessions = bench::kMaxScaleSessions;
  int sources = 16;  // per session
  auto operator<=>(const Size&) const = default;
};

const bench::ScaleSwitch& scaleSwitch(Size size = {});

struct Converged {
  Value all;              // every mount after start-up
  Value outputs;          // the agent's output mounts
  Counts startupWrites;   // what the agent wrote getting there
  Counts startupMinimum;  // the least that needed
};
const Converged& converged(Size size = {});

// --- running and counting -----------------------------------------------------------------------

// Brackets the measured work of one iteration. Under callgrind (bench/callgrind.sh) it turns
// instrumentation and collection on inside and off outside, so that the instructions counted
// are those of the measured work alone; elsewhere it costs a few instructions.
class Measured {
 public:
  Measured();
  ~Measured();
  Measured(const Measured&) = delete;
  Measured& operator=(const Measured&) = delete;
};

// Whole start-ups take tenths of a second and need a fresh database each (made untimed), so
// they run a fixed, small number of times: 3, or AGENTBENCH_ITERATIONS.
int64_t fixedIterations();

// Registers `fn` as benchmark `name`; under callgrind each run ends with a dump of the counts
// collected since the last one, named after the benchmark and its iterations.
benchmark::internal::Benchmark* add(const std::string& name, std::function<void(benchmark::State&)> fn);

void registerStartup();
void registerEvents();

}  // namespace agentbench
