// The mirroring agent at switch scale (bench/ScaleSwitch.h), run through the host the way
// mirroringd runs it, each figure beside a floor measured in the same run: the cost of writing
// the same outputs into the same containers with no agent logic.
//
// Groups (name = group/variant; bench/AgentBenchStartup.cpp and bench/AgentBenchEvents.cpp):
//   startup   agent   open the plug-in, start the agent with the scale state (loaded after
//                     doInit, as a state file is), run everything pending
//             inputs  load the inputs alone into the agent's mounts, no agent (for reference)
//             floor   load the inputs and the converged outputs into the agent's mounts
//   growth/sessions/N, growth/sources/S
//             agent   start an agent over mounts that hold the inputs but no outputs yet: N
//                     sessions of 16 sources (16 to 255), or 64 sessions of S sources (1 to 64)
//             floor   load the converged outputs into such mounts
//   restart   agent   start a new agent over everything the last one left (inputs unchanged);
//                     the old agent's tear-down is not timed
//             floor   load inputs and outputs into mounts that already hold them (every write
//                     is equal, so nothing is written: the cost of finding that out)
//   teardown  agent   stop the converged agent and destroy its host (and so its database)
//             build   the start-up that built it (as startup/agent), for the ratio
//             floor   destroy a host holding the same state with no agent running
//   event/E   agent   one change and the change that undoes it, each followed by the agent's
//                     reaction (both halves in one iteration, so the state comes back)
//             floor   the same two changes and every write the agent made for them, replayed
//                     into a copy of the converged state with no agent
// Changes are applied without the codec's validation pass in both variants; the floor of an
// event resolves each written path from the mount down, which the agent (holding its
// entities) does not, so it is the least a generic writer can do, not a raw store.
//
// Counters, per iteration: the agent's writes on its output mounts by area (w.mir: mirroring
// status, hardware configuration and forwarding model; w.tap: tap-aggregation configuration
// and status, port mode and errdisable causes; w.oth: boot stage and errdisable cause group)
// and the minimum those changes need (min.*, as bench/MinimumWrites.h counts it). Events also
// report each half: w.there/min.there and w.back/min.back. Every benchmark checks that each
// iteration wrote the same, and that an event comes back to the state it started from.
#include "bench/AgentBench.h"

#include <cstdlib>
#include <iostream>
#include <map>

#include "bench/MinimumWrites.h"
#include "platform/Syslog.h"
#include "platform/Toggles.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#define AGENTBENCH_CALLGRIND 1
#endif

namespace agentbench {

namespace {

constexpr const char* kAgentName = "Mirroring";
const char* const kAreaName[kAreas] = {"mir", "tap", "oth"};

std::vector<std::string> outputMounts(const Database& db) {
  std::vector<std::string> out;
  for (const Mount* m : db.mounts()) {
    if (areaOf(*m) >= 0) out.push_back(m->path());
  }
  return out;
}

// Applies one change with no validation pass.
void write(Database& db, const Change& c) {
  std::string error;
  platform::Target t = platform::resolvePath(db, c.path, c.key, error);
  if (!error.empty()) fail(c.path + ": " + error);
  if (!t.field) fail(c.path + ": names a whole entity");
  platform::DecodeContext ctx;
  ctx.resolver = &db;
  const auto mode = c.op == Change::Op::merge ? platform::ApplyMode::merge : platform::ApplyMode::set;
  const Value* value = c.value ? &*c.value : nullptr;
  bool ok;
  if (t.key) {
    platform::CollectionField* coll = t.field->asCollection();
    ok = c.op == Change::Op::del ? coll->eraseEntry(*t.key, ctx, false)
                                 : coll->applyEntry(*t.key, value, mode, ctx, false);
  } else {
    ok = value && t.field->apply(*value, mode, ctx, false);
  }
  if (!ok) fail(c.path + ": " + ctx.error);
}

}  // namespace

void fail(const std::string& what) {
  std::cerr << "agentBench: " << what << std::endl;
  std::abort();
}

// --- what the agent writes ----------------------------------------------------------------------

int areaOf(const Mount& m) {
  if (!m.writableByAgent() || m.local()) return -1;
  const std::string& p = m.path();
  if (p.starts_with("mirroring/") || p == "interface/input/forwardingmodel/mirroring") return mirroring;
  if (p.starts_with("tapagg/") || p == "stp/portMode/tapagg" || p == "interface/errdisable/cause/tapagg") {
    return tapagg;
  }
  return other;
}

Counts Counts::operator-(const Counts& o) const {
  Counts d;
  for (int a = 0; a < kAreas; ++a) d.n[a] = n[a] - o.n[a];
  return d;
}

Counts Counts::operator+(const Counts& o) const {
  Counts s;
  for (int a = 0; a < kAreas; ++a) s.n[a] = n[a] + o.n[a];
  return s;
}

Counts Counts::per(int64_t iterations) const {
  Counts c;
  for (int a = 0; a < kAreas; ++a) c.n[a] = iterations > 0 ? n[a] / uint64_t(iterations) : 0;
  return c;
}

Counts outputWrites(const Database& db) {
  Counts c;
  for (const Mount* m : db.mounts()) {
    if (int a = areaOf(*m); a >= 0) c.n[a] += m->writes();
  }
  return c;
}

Value dumpOutputs(const Database& db) { return platform::dumpState(db, outputMounts(db)); }

Counts minimum(const Value* before, const Database& db) {
  Counts c;
  for (const Mount* m : db.mounts()) {
    const int a = areaOf(*m);
    if (a < 0) continue;
    c.n[a] += bench::minimumWrites(before ? before->find(m->path()) : nullptr, *m);
  }
  return c;
}

void report(benchmark::State& st, const Counts& writes, const Counts& least) {
  for (int a = 0; a < kAreas; ++a) {
    st.counters[std::string("w.") + kAreaName[a]] = double(writes.n[a]);
    st.counters[std::string("min.") + kAreaName[a]] = double(least.n[a]);
  }
}

// --- hosts --------------------------------------------------------------------------------------

std::unique_ptr<AgentHost> openHost() {
  auto h = std::make_unique<AgentHost>(kAgentName, 0.0);
  std::string error;
  if (!h->openPlugin(MIRRORING_PLUGIN_PATH, error)) fail(error);
  return h;
}

void start(AgentHost& h, const Value* state) {
  std::string error;
  if (!h.start(state, "the scale state", error)) fail(error);
}

void load(Database& db, const Value& state) {
  std::string error;
  if (!platform::loadState(db, state, error)) fail(error);
}

std::unique_ptr<AgentHost> emptyMounts() {
  auto h = openHost();
  start(*h, nullptr);
  h->stop();
  return h;
}

void play(AgentHost& h, const std::vector<Change>& changes) {
  for (const Change& c : changes) {
    write(h.database(), c);
    h.loop().runPending();
  }
}

void replay(Database& db, const std::vector<Change>& changes) {
  for (const Change& c : changes) write(db, c);
}

std::vector<Change> parse(const std::vector<std::string>& lines) {
  std::vector<Change> out;
  for (const auto& line : lines) {
    std::string error;
    std::optional<Value> v = platform::parseJson(line, error);
    Change c;
    if (!v || !platform::parseChange(*v, c, error)) fail(line + ": " + error);
    out.push_back(std::move(c));
  }
  return out;
}

// --- the scale states and what the agent makes of them ------------------------------------------

const bench::ScaleSwitch& scaleSwitch(Size size) {
  static std::map<Size, bench::ScaleSwitch> made;
  auto it = made.find(size);
  if (it == made.end()) it = made.emplace(size, bench::makeScaleSwitch(size.sessions, size.sources)).first;
  return it->second;
}

const Converged& converged(Size size) {
  static std::map<Size, Converged> made;
  if (auto it = made.find(size); it != made.end()) return it->second;
  Converged& c = made[size];
  auto h = openHost();
  start(*h, &scaleSwitch(size).state);
  c.all = platform::dumpState(h->database());
  c.outputs = dumpOutputs(h->database());
  c.startupWrites = outputWrites(h->database());
  c.startupMinimum = minimum(nullptr, h->database());
  return c;
}

// --- running and counting -----------------------------------------------------------------------

#ifdef AGENTBENCH_CALLGRIND
Measured::Measured() {
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_TOGGLE_COLLECT;
}
Measured::~Measured() {
  CALLGRIND_TOGGLE_COLLECT;
  CALLGRIND_STOP_INSTRUMENTATION;
}
#else
Measured::Measured() {}
Measured::~Measured() {}
#endif

int64_t fixedIterations() {
  static const int64_t n = [] {
    const char* v = std::getenv("AGENTBENCH_ITERATIONS");
    const long parsed = v ? std::strtol(v, nullptr, 10) : 0;
    return parsed > 0 ? int64_t(parsed) : int64_t(3);
  }();
  return n;
}

benchmark::internal::Benchmark* add(const std::string& name, std::function<void(benchmark::State&)> fn) {
  return benchmark::RegisterBenchmark(name.c_str(), [name, fn](benchmark::State& st) {
    fn(st);
#ifdef AGENTBENCH_CALLGRIND
    const std::string dump = "agentBench " + name + " iterations " + std::to_string(st.iterations());
    CALLGRIND_DUMP_STATS_AT(dump.c_str());
#endif
  });
}

}  // namespace agentbench

int main(int argc, char** argv) {
  // Messages the agent raises (the tap-aggregation mode, sessions without room) go nowhere.
  platform::syslog::clearSinks();
  // No toggle file: the benchmarks run with the toggles' defaults, which is worth no warning.
  platform::toggles::setWarningHandler([](std::string_view) {});
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  const bench::ScaleSwitch& sw = agentbench::scaleSwitch();
  benchmark::AddCustomContext(
      "scale", std::to_string(sw.ports) + " ports, " + std::to_string(sw.lags) + " Port-Channels, " +
                   std::to_string(sw.sessions) + " sessions with " + std::to_string(sw.sources) + " sources, " +
                   std::to_string(sw.tapPorts) + " tap and " + std::to_string(sw.toolPorts) + " tool ports in " +
                   std::to_string(sw.groups) + " groups");
  for (const auto& ev : sw.events) benchmark::AddCustomContext("event/" + ev.name, ev.what);
  agentbench::registerStartup();
  agentbench::registerEvents();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
