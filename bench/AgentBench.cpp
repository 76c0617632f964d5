// The mirroring agent at switch scale (bench/ScaleSwitch.h), run through the host the way
// mirroringd runs it, each figure beside a floor measured in the same run: the cost of writing
// the same outputs into the same containers with no agent logic.
//
// Groups (name = group/variant):
//   startup   agent   open the plug-in, start the agent with the scale state (loaded after
//                     doInit, as a state file is), run everything pending
//             inputs  load the inputs alone into the agent's mounts, no agent (for reference)
//             floor   load the inputs and the converged outputs into the agent's mounts
//   converge/N agent  start an agent over mounts that hold the inputs but no outputs yet, with
//                     N of the 255 sessions configured (64, 128, 255)
//             floor   load the converged outputs into such mounts
//   restart   agent   start a new agent over everything the last one left (inputs unchanged);
//                     the old agent's tear-down is not timed
//             floor   load inputs and outputs into mounts that already hold them (every write
//                     is equal, so nothing is written: the cost of finding that out)
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
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/MinimumWrites.h"
#include "bench/ScaleSwitch.h"
#include "host/AgentHost.h"
#include "platform/Codec.h"
#include "platform/Database.h"
#include "platform/Syslog.h"
#include "platform/Toggles.h"

namespace {

using host::AgentHost;
using platform::Change;
using platform::Database;
using platform::Mount;
using platform::Value;

constexpr const char* kAgentName = "Mirroring";

[[noreturn]] void fail(const std::string& what) {
  std::cerr << "agentBench: " << what << std::endl;
  std::abort();
}

// --- what the agent writes ----------------------------------------------------------------------

enum Area { mirroring, tapagg, other, kAreas };
const char* const kAreaName[kAreas] = {"mir", "tap", "oth"};

// The area of a mount the agent writes, or -1 for one it only reads (the interface statuses
// it creates as local entities are filled by the state file, so they count as inputs).
int areaOf(const Mount& m) {
  if (!m.writableByAgent() || m.local()) return -1;
  const std::string& p = m.path();
  if (p.starts_with("mirroring/") || p == "interface/input/forwardingmodel/mirroring") return mirroring;
  if (p.starts_with("tapagg/") || p == "stp/portMode/tapagg" || p == "interface/errdisable/cause/tapagg") {
    return tapagg;
  }
  return other;
}

struct Counts {
  uint64_t n[kAreas] = {};
  uint64_t total() const { return n[0] + n[1] + n[2]; }
  Counts operator-(const Counts& o) const {
    Counts d;
    for (int a = 0; a < kAreas; ++a) d.n[a] = n[a] - o.n[a];
    return d;
  }
  Counts operator+(const Counts& o) const {
    Counts s;
    for (int a = 0; a < kAreas; ++a) s.n[a] = n[a] + o.n[a];
    return s;
  }
  bool operator==(const Counts&) const = default;
};

// The writes counted so far on the agent's output mounts.
Counts outputWrites(const Database& db) {
  Counts c;
  for (const Mount* m : db.mounts()) {
    if (int a = areaOf(*m); a >= 0) c.n[a] += m->writes();
  }
  return c;
}

std::vector<std::string> outputMounts(const Database& db) {
  std::vector<std::string> out;
  for (const Mount* m : db.mounts()) {
    if (areaOf(*m) >= 0) out.push_back(m->path());
  }
  return out;
}

Value dumpOutputs(const Database& db) { return platform::dumpState(db, outputMounts(db)); }

// The least writes from `before` (a dump of the outputs; null: nothing written yet) to now.
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

// The agent's mounts with nothing in them: an agent started on no state, then dropped.
std::unique_ptr<AgentHost> emptyMounts() {
  auto h = openHost();
  start(*h, nullptr);
  h->stop();
  return h;
}

// Applies one change with no validation pass, as a writer that trusts its input would.
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

// --- the scale state and what the agent makes of it ---------------------------------------------

constexpr int kFullSize = 255;

const bench::ScaleSwitch& scaleSwitch(int sessions = kFullSize) {
  static std::map<int, bench::ScaleSwitch> made;
  auto it = made.find(sessions);
  if (it == made.end()) it = made.emplace(sessions, bench::makeScaleSwitch(sessions)).first;
  return it->second;
}

struct Converged {
  Value all;              // every mount after start-up
  Value outputs;          // the agent's output mounts
  Counts startupWrites;   // what the agent wrote getting there
  Counts startupMinimum;  // the least that needed
};

const Converged& converged(int sessions = kFullSize) {
  static std::map<int, Converged> made;
  if (auto it = made.find(sessions); it != made.end()) return it->second;
  Converged& c = made[sessions];
  auto h = openHost();
  start(*h, &scaleSwitch(sessions).state);
  c.all = platform::dumpState(h->database());
  c.outputs = dumpOutputs(h->database());
  c.startupWrites = outputWrites(h->database());
  c.startupMinimum = minimum(nullptr, h->database());
  return c;
}

// A converged agent, shared by the event benchmarks (each event comes back where it started).
AgentHost& eventHost() {
  static std::unique_ptr<AgentHost> h = [] {
    auto h = openHost();
    start(*h, &scaleSwitch().state);
    return h;
  }();
  return *h;
}

// The same converged state with no agent: where the floors of the events replay.
AgentHost& floorHost() {
  static std::unique_ptr<AgentHost> h = [] {
    auto h = openHost();
    start(*h, &scaleSwitch().state);
    h->stop();
    return h;
  }();
  return *h;
}

// --- start-up, convergence, restart -------------------------------------------------------------

void startupAgent(benchmark::State& st) {
  const Converged& c = converged();
  Counts writes;
  bool same = true;
  for (auto _ : st) {
    st.PauseTiming();
    auto h = std::make_unique<AgentHost>(kAgentName, 0.0);
    st.ResumeTiming();
    std::string error;
    if (!h->openPlugin(MIRRORING_PLUGIN_PATH, error) || !h->start(&scaleSwitch().state, "scale", error)) fail(error);
    st.PauseTiming();
    writes = outputWrites(h->database());
    same = same && writes == c.startupWrites;
    h.reset();
    st.ResumeTiming();
  }
  if (!same) st.SkipWithError("start-up wrote differently from one run to the next");
  report(st, writes, c.startupMinimum);
}

// Loads `state` into empty mounts; reports what that wrote on the output mounts.
void loadIntoEmptyMounts(benchmark::State& st, const Value& state, const Counts& least) {
  Counts writes;
  for (auto _ : st) {
    st.PauseTiming();
    auto h = emptyMounts();
    const Counts before = outputWrites(h->database());
    st.ResumeTiming();
    load(h->database(), state);
    st.PauseTiming();
    writes = outputWrites(h->database()) - before;
    h.reset();
    st.ResumeTiming();
  }
  report(st, writes, least);
}

void startupInputs(benchmark::State& st) { loadIntoEmptyMounts(st, scaleSwitch().state, Counts{}); }
void startupFloor(benchmark::State& st) {
  loadIntoEmptyMounts(st, converged().all, converged().startupMinimum);
}

// Mounts holding the inputs and no outputs, as the agent finds them on a first start.
std::unique_ptr<AgentHost> inputsOnly(int sessions) {
  auto h = emptyMounts();
  load(h->database(), scaleSwitch(sessions).state);
  return h;
}

void convergeAgent(benchmark::State& st, int sessions) {
  Counts writes, least;
  for (auto _ : st) {
    st.PauseTiming();
    auto h = inputsOnly(sessions);
    const Counts before = outputWrites(h->database());
    const Value outputsBefore = dumpOutputs(h->database());
    st.ResumeTiming();
    start(*h, nullptr);
    st.PauseTiming();
    writes = outputWrites(h->database()) - before;
    least = minimum(&outputsBefore, h->database());
    h.reset();
    st.ResumeTiming();
  }
  report(st, writes, least);
}

void convergeFloor(benchmark::State& st, int sessions) {
  const Value& outputs = converged(sessions).outputs;
  Counts writes, least;
  for (auto _ : st) {
    st.PauseTiming();
    auto h = inputsOnly(sessions);
    const Counts before = outputWrites(h->database());
    const Value outputsBefore = dumpOutputs(h->database());
    st.ResumeTiming();
    load(h->database(), outputs);
    st.PauseTiming();
    writes = outputWrites(h->database()) - before;
    least = minimum(&outputsBefore, h->database());
    h.reset();
    st.ResumeTiming();
  }
  report(st, writes, least);
}

void restartAgent(benchmark::State& st) {
  auto h = openHost();
  start(*h, &scaleSwitch().state);
  const Value all = platform::dumpState(h->database());
  const Value outputs = dumpOutputs(h->database());
  Counts writes;
  bool first = true, same = true;
  for (auto _ : st) {
    st.PauseTiming();
    h->loop().runPending();
    const Counts before = outputWrites(h->database());
    h->stop();  // the tear-down's writes, if any, count with the restart
    st.ResumeTiming();
    start(*h, nullptr);
    st.PauseTiming();
    const Counts w = outputWrites(h->database()) - before;
    same = same && (first || w == writes);
    writes = w;
    first = false;
    st.ResumeTiming();
  }
  if (!same) st.SkipWithError("restarts wrote differently from one to the next");
  if (!(platform::dumpState(h->database()) == all)) st.SkipWithError("a restart changed the state");
  report(st, writes, minimum(&outputs, h->database()));
}

void restartFloor(benchmark::State& st) {
  AgentHost& h = floorHost();
  const Counts before = outputWrites(h.database());
  for (auto _ : st) load(h.database(), converged().all);
  report(st, outputWrites(h.database()) - before, Counts{});
}

// --- single events ------------------------------------------------------------------------------

struct EventRun {
  std::vector<Change> there, back;          // the event's own changes
  std::vector<Change> wroteThere, wroteBack;  // what the agent wrote for each
  Counts wThere, wBack, minThere, minBack;
  bool roundTrip = false;
};

// Plays the event once on the shared agent, recording what the agent writes.
const EventRun& probe(const bench::ScaleEvent& ev) {
  static std::map<std::string, EventRun> runs;
  if (auto it = runs.find(ev.name); it != runs.end()) return it->second;
  EventRun& run = runs[ev.name];
  run.there = parse(ev.there);
  run.back = parse(ev.back);
  AgentHost& h = eventHost();
  Database& db = h.database();
  const Value start = platform::dumpState(db);
  const Value startOutputs = dumpOutputs(db);
  std::vector<Change>* sink = nullptr;
  h.writeListenerIs([&sink](const Mount& m, const Change& c) {
    if (areaOf(m) >= 0) sink->push_back(c);
  });
  const Counts w0 = outputWrites(db);
  sink = &run.wroteThere;
  play(h, run.there);
  const Counts w1 = outputWrites(db);
  const Value middle = dumpOutputs(db);
  run.minThere = minimum(&startOutputs, db);
  sink = &run.wroteBack;
  play(h, run.back);
  const Counts w2 = outputWrites(db);
  run.minBack = minimum(&middle, db);
  h.writeListenerIs(nullptr);
  run.wThere = w1 - w0;
  run.wBack = w2 - w1;
  run.roundTrip = platform::dumpState(db) == start;
  return run;
}

void reportEvent(benchmark::State& st, const EventRun& run, const Counts& perIteration) {
  report(st, perIteration, run.minThere + run.minBack);
  st.counters["w.there"] = double(run.wThere.total());
  st.counters["min.there"] = double(run.minThere.total());
  st.counters["w.back"] = double(run.wBack.total());
  st.counters["min.back"] = double(run.minBack.total());
}

void eventAgent(benchmark::State& st, const bench::ScaleEvent* ev) {
  const EventRun& run = probe(*ev);
  if (!run.roundTrip) {
    st.SkipWithError("the event does not come back to the state it started from");
    return;
  }
  AgentHost& h = eventHost();
  const Counts before = outputWrites(h.database());
  for (auto _ : st) {
    play(h, run.there);
    play(h, run.back);
  }
  const Counts total = outputWrites(h.database()) - before;
  const Counts expected = run.wThere + run.wBack;
  Counts perIteration;
  for (int a = 0; a < kAreas; ++a) perIteration.n[a] = total.n[a] / st.iterations();
  if (!(perIteration == expected) || total.total() != expected.total() * st.iterations()) {
    st.SkipWithError("the event wrote differently from one iteration to the next");
  }
  reportEvent(st, run, perIteration);
}

void eventFloor(benchmark::State& st, const bench::ScaleEvent* ev) {
  const EventRun& run = probe(*ev);
  Database& db = floorHost().database();
  const Value start = platform::dumpState(db);
  const Counts before = outputWrites(db);
  for (auto _ : st) {
    replay(db, run.there);
    replay(db, run.wroteThere);
    replay(db, run.back);
    replay(db, run.wroteBack);
  }
  Counts perIteration;
  const Counts total = outputWrites(db) - before;
  for (int a = 0; a < kAreas; ++a) perIteration.n[a] = total.n[a] / st.iterations();
  if (!(platform::dumpState(db) == start)) st.SkipWithError("the replay does not come back to where it started");
  reportEvent(st, run, perIteration);
}

void registerAll() {
  using benchmark::kMicrosecond;
  using benchmark::kMillisecond;
  // Whole start-ups take tenths of a second and need a fresh database each (made untimed), so
  // they run a fixed, small number of times.
  benchmark::RegisterBenchmark("startup/agent", startupAgent)->Unit(kMillisecond)->Iterations(3);
  benchmark::RegisterBenchmark("startup/inputs", startupInputs)->Unit(kMillisecond)->Iterations(3);
  benchmark::RegisterBenchmark("startup/floor", startupFloor)->Unit(kMillisecond)->Iterations(3);
  // Convergence with fewer sessions shows how its cost grows with the number of sessions.
  for (int sessions : {64, 128, kFullSize}) {
    const std::string group = "converge/" + std::to_string(sessions);
    benchmark::RegisterBenchmark((group + "/agent").c_str(), convergeAgent, sessions)->Unit(kMillisecond)->Iterations(3);
    benchmark::RegisterBenchmark((group + "/floor").c_str(), convergeFloor, sessions)->Unit(kMillisecond)->Iterations(3);
  }
  benchmark::RegisterBenchmark("restart/agent", restartAgent)->Unit(kMillisecond)->Iterations(3);
  benchmark::RegisterBenchmark("restart/floor", restartFloor)->Unit(kMillisecond)->Iterations(3);
  for (const bench::ScaleEvent& ev : scaleSwitch().events) {
    benchmark::RegisterBenchmark(("event/" + ev.name + "/agent").c_str(), eventAgent, &ev)->Unit(kMicrosecond);
    benchmark::RegisterBenchmark(("event/" + ev.name + "/floor").c_str(), eventFloor, &ev)->Unit(kMicrosecond);
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Messages the agent raises (the tap-aggregation mode, sessions without room) go nowhere.
  platform::syslog::clearSinks();
  // No toggle file: the benchmarks run with the toggles' defaults, which is worth no warning.
  platform::toggles::setWarningHandler([](std::string_view) {});
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  const bench::ScaleSwitch& sw = scaleSwitch();
  benchmark::AddCustomContext(
      "scale", std::to_string(sw.ports) + " ports, " + std::to_string(sw.lags) + " Port-Channels, " +
                   std::to_string(sw.sessions) + " sessions with " + std::to_string(sw.sources) + " sources, " +
                   std::to_string(sw.tapPorts) + " tap and " + std::to_string(sw.toolPorts) + " tool ports in " +
                   std::to_string(sw.groups) + " groups");
  for (const auto& ev : sw.events) benchmark::AddCustomContext("event/" + ev.name, ev.what);
  registerAll();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
