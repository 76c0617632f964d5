// Whole start-ups, how they grow, restarts and tear-downs (bench/AgentBench.cpp lists them).
#include "bench/AgentBench.h"

namespace agentbench {

namespace {

void startupAgent(benchmark::State& st) {
  const Converged& c = converged();
  Counts writes;
  bool same = true;
  for (auto _ : st) {
    st.PauseTiming();
    auto h = std::make_unique<AgentHost>("Mirroring", 0.0);
    st.ResumeTiming();
    {
      Measured m;
      std::string error;
      if (!h->openPlugin(MIRRORING_PLUGIN_PATH, error) || !h->start(&scaleSwitch().state, "scale", error)) fail(error);
    }
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
    {
      Measured m;
      load(h->database(), state);
    }
    st.PauseTiming();
    writes = outputWrites(h->database()) - before;
    h.reset();
    st.ResumeTiming();
  }
  report(st, writes, least);
}

void startupInputs(benchmark::State& st) { loadIntoEmptyMounts(st, scaleSwitch().state, Counts{}); }
void startupFloor(benchmark::State& st) { loadIntoEmptyMounts(st, converged().all, converged().startupMinimum); }

// Mounts holding the inputs and no outputs, as the agent finds them on a first start.
std::unique_ptr<AgentHost> inputsOnly(Size size) {
  auto h = emptyMounts();
  load(h->database(), scaleSwitch(size).state);
  return h;
}

// Convergence over mounts that hold the inputs: by the agent, or (floor) by loading what the
// agent converges to.
void converge(benchmark::State& st, Size size, bool agent) {
  const Value* outputs = agent ? nullptr : &converged(size).outputs;
  Counts writes, least;
  for (auto _ : st) {
    st.PauseTiming();
    auto h = inputsOnly(size);
    const Counts before = outputWrites(h->database());
    const Value outputsBefore = dumpOutputs(h->database());
    st.ResumeTiming();
    {
      Measured m;
      if (agent) start(*h, nullptr);
      else load(h->database(), *outputs);
    }
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
  SameWrites writes;
  for (auto _ : st) {
    st.PauseTiming();
    h->loop().runPending();
    const Counts before = outputWrites(h->database());
    h->stop();  // the tear-down's writes, if any, count with the restart
    st.ResumeTiming();
    {
      Measured m;
      start(*h, nullptr);
    }
    st.PauseTiming();
    writes.saw(outputWrites(h->database()) - before);
    st.ResumeTiming();
  }
  if (!writes.same) st.SkipWithError("restarts wrote differently from one to the next");
  if (!(platform::dumpState(h->database()) == all)) st.SkipWithError("a restart changed the state");
  report(st, writes.writes, minimum(&outputs, h->database()));
}

void restartFloor(benchmark::State& st) {
  auto h = openHost();
  start(*h, &scaleSwitch().state);
  h->stop();
  const Counts before = outputWrites(h->database());
  for (auto _ : st) {
    Measured m;
    load(h->database(), converged().all);
  }
  report(st, outputWrites(h->database()) - before, Counts{});
}

// The agent's tear-down: stopping it (whatever it writes on the way out counts, against a
// minimum of nothing) and destroying the host with everything in its database.
void teardownAgent(benchmark::State& st) {
  SameWrites writes;
  for (auto _ : st) {
    st.PauseTiming();
    auto h = openHost();
    start(*h, &scaleSwitch().state);
    const Counts before = outputWrites(h->database());
    st.ResumeTiming();
    {
      Measured m;
      h->stop();
    }
    st.PauseTiming();
    writes.saw(outputWrites(h->database()) - before);
    st.ResumeTiming();
    {
      Measured m;
      h.reset();
    }
  }
  if (!writes.same) st.SkipWithError("tear-downs wrote differently from one to the next");
  report(st, writes.writes, Counts{});
}

// The same host and database with the agent stopped (untimed): what destroying them costs.
void teardownFloor(benchmark::State& st) {
  for (auto _ : st) {
    st.PauseTiming();
    auto h = openHost();
    start(*h, &scaleSwitch().state);
    h->stop();
    st.ResumeTiming();
    Measured m;
    h.reset();
  }
}

}  // namespace

// Growth series: how start-up grows with the number of sessions (16 sources each), and with
// the number of sources per session at a fixed 64 sessions.
constexpr int kGrowthSessions[] = {16, 32, 64, 128, bench::kMaxScaleSessions};
constexpr int kGrowthSources[] = {1, 4, 16, 32, 64};
constexpr int kSourcesSeriesSessions = 64;

void registerStartup() {
  using benchmark::kMillisecond;
  const int64_t n = fixedIterations();
  add("startup/agent", startupAgent)->Unit(kMillisecond)->Iterations(n);
  add("startup/inputs", startupInputs)->Unit(kMillisecond)->Iterations(n);
  add("startup/floor", startupFloor)->Unit(kMillisecond)->Iterations(n);
  auto growth = [n](const std::string& group, Size size) {
    add(group + "/agent", [size](benchmark::State& st) { converge(st, size, true); })->Unit(kMillisecond)->Iterations(n);
    add(group + "/floor", [size](benchmark::State& st) { converge(st, size, false); })->Unit(kMillisecond)->Iterations(n);
  };
  for (int sessions : kGrowthSessions) growth("growth/sessions/" + std::to_string(sessions), Size{sessions, 16});
  for (int sources : kGrowthSources) {
    growth("growth/sources/" + std::to_string(sources), Size{kSourcesSeriesSessions, sources});
  }
  add("restart/agent", restartAgent)->Unit(kMillisecond)->Iterations(n);
  add("restart/floor", restartFloor)->Unit(kMillisecond)->Iterations(n);
  add("teardown/agent", teardownAgent)->Unit(kMillisecond)->Iterations(n);
  add("teardown/build", startupAgent)->Unit(kMillisecond)->Iterations(n);
  add("teardown/floor", teardownFloor)->Unit(kMillisecond)->Iterations(n);
}

}  // namespace agentbench
