// Single events over the converged scale state (bench/AgentBench.cpp describes the groups,
// bench/ScaleSwitch.cpp the events).
#include <map>

#include "bench/AgentBench.h"

namespace agentbench {

namespace {

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

struct EventRun {
  std::vector<Change> there, back;            // the event's own changes
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

void eventAgent(benchmark::State& st, const bench::ScaleEvent& ev) {
  const EventRun& run = probe(ev);
  if (!run.roundTrip) {
    st.SkipWithError("the event does not come back to the state it started from");
    return;
  }
  AgentHost& h = eventHost();
  const Counts before = outputWrites(h.database());
  for (auto _ : st) {
    Measured m;
    play(h, run.there);
    play(h, run.back);
  }
  const Counts total = outputWrites(h.database()) - before;
  const Counts expected = run.wThere + run.wBack;
  const Counts perIteration = total.per(st.iterations());
  if (!(perIteration == expected) || total.total() != expected.total() * st.iterations()) {
    st.SkipWithError("the event wrote differently from one iteration to the next");
  }
  reportEvent(st, run, perIteration);
}

void eventFloor(benchmark::State& st, const bench::ScaleEvent& ev) {
  const EventRun& run = probe(ev);
  Database& db = floorHost().database();
  const Value start = platform::dumpState(db);
  const Counts before = outputWrites(db);
  for (auto _ : st) {
    Measured m;
    replay(db, run.there);
    replay(db, run.wroteThere);
    replay(db, run.back);
    replay(db, run.wroteBack);
  }
  if (!(platform::dumpState(db) == start)) st.SkipWithError("the replay does not come back to where it started");
  reportEvent(st, run, (outputWrites(db) - before).per(st.iterations()));
}

}  // namespace

void registerEvents() {
  for (const bench::ScaleEvent& ev : scaleSwitch().events) {
    const bench::ScaleEvent* e = &ev;
    add("event/" + ev.name + "/agent", [e](benchmark::State& st) { eventAgent(st, *e); })->Unit(benchmark::kMicrosecond);
    add("event/" + ev.name + "/floor", [e](benchmark::State& st) { eventFloor(st, *e); })->Unit(benchmark::kMicrosecond);
  }
}

}  // namespace agentbench
