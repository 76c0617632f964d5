// consistencyCheck: random change streams through the mirroring agent, checked after every
// line against the invariants, across restarts and for restart equivalence. Failures are
// minimised and written as reproducers. See docs/consistency.md.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>

#include "consistency/Differential.h"
#include "consistency/Generator.h"
#include "consistency/Invariants.h"
#include "consistency/Shrink.h"
#include "host/AgentHost.h"
#include "host/Options.h"
#include "platform/Syslog.h"
#include "platform/Toggles.h"

namespace consistency {

namespace {

using Clock = std::chrono::steady_clock;

struct Settings {
  std::string seeds;
  uint64_t seed = 1;
  double seconds = 0;
  int lines = 40;
  std::string replay;
  std::string out = "consistency-reproducers";
  bool shrink = true;
  ShrinkOptions shrinkOptions;
  CheckOptions check;
  IsolationOptions isolation;
  double progressEvery = 10;
};

std::string ownDirectory() {
  std::error_code ec;
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::string(".") : exe.parent_path().string();
}

// The state file one mount a line, for the terminal.
std::string compactState(const json& state) {
  std::string out = "{\n";
  std::size_t i = 0;
  for (const auto& [mount, content] : state.items()) {
    out += "  " + json(mount).dump() + ": " + content.dump() + (++i < state.size() ? ",\n" : "\n");
  }
  return out + "}";
}

class Run {
 public:
  explicit Run(const Settings& s) : s_(s), started_(Clock::now()), lastProgress_(started_) {}

  void stream(const Stream& st) {
    const auto t0 = Clock::now();
    CheckResult r = checkIsolated(st, s_.check, s_.isolation);
    checking_ += std::chrono::duration<double>(Clock::now() - t0).count();
    counters_ += r.counters;
    if (r.failure) failure(st, *r.failure);
    progress(false);
  }

  int finish() {
    progress(true);
    std::printf(
        "\n%llu streams, %llu lines (%llu run in all, restart equivalence and reference runs included), "
        "%llu restarts, %.1f s checking: %.2f streams/s, %.0f lines/s\n",
        (unsigned long long)counters_.streams, (unsigned long long)counters_.lines,
        (unsigned long long)counters_.linesRun, (unsigned long long)counters_.restarts, checking_,
        counters_.streams / std::max(checking_, 1e-9), counters_.lines / std::max(checking_, 1e-9));
    if (byInvariant_.empty()) {
      std::printf("no failures\n");
      return 0;
    }
    std::printf("failures by invariant:\n");
    for (const auto& [name, n] : byInvariant_) std::printf("  %-32s %llu\n", name.c_str(), (unsigned long long)n);
    std::printf("distinct faults (%zu):\n", firstSeed_.size());
    for (const auto& [signature, seed] : firstSeed_) {
      std::printf("  seed %-8llu %s\n", (unsigned long long)seed, signature.c_str());
    }
    return 1;
  }

 private:
  void failure(const Stream& st, const Failure& f) {
    ++byInvariant_[f.invariant];
    auto [it, fresh] = firstSeed_.emplace(f.signature, st.seed);
    if (!fresh) {
      std::printf("seed %llu: %s (%s), as seed %llu\n", (unsigned long long)st.seed, f.invariant.c_str(),
                  f.where.c_str(), (unsigned long long)it->second);
      return;
    }
    std::printf("seed %llu: FAILED %s (%s): %s\n", (unsigned long long)st.seed, f.invariant.c_str(), f.where.c_str(),
                f.detail.c_str());
    if (!s_.shrink) return;
    ShrinkResult m = consistency::shrink(st, f, s_.check, s_.shrinkOptions, s_.isolation);
    const std::string dir = s_.out + "/" + f.invariant + "-seed" + std::to_string(st.seed);
    std::string error;
    const bool written =
        writeReproducer(dir, m.stream, m.failure, ownDirectory() + "/mirroringd", s_.check.reference, error);
    std::printf("  minimised in %d runs to %zu lines: %s (%s): %s\n", m.runs, m.stream.lines.size(),
                m.failure.invariant.c_str(), m.failure.where.c_str(), m.failure.detail.c_str());
    std::printf("  state.json:\n%s\n  changes.jsonl:\n%s", compactState(m.stream.state).c_str(),
                changesText(m.stream).c_str());
    std::printf("  %s\n",
                written ? ("written to " + dir + " (replay.sh runs mirroringd on it)").c_str() : error.c_str());
    std::fflush(stdout);
  }

  void progress(bool last) {
    const auto now = Clock::now();
    if (!last && std::chrono::duration<double>(now - lastProgress_).count() < s_.progressEvery) return;
    lastProgress_ = now;
    uint64_t failures = 0;
    for (const auto& [name, n] : byInvariant_) failures += n;
    std::printf("[%6.1f s] %llu streams, %llu lines, %llu restarts, %llu failures\n",
                std::chrono::duration<double>(now - started_).count(), (unsigned long long)counters_.streams,
                (unsigned long long)counters_.lines, (unsigned long long)counters_.restarts,
                (unsigned long long)failures);
    std::fflush(stdout);
  }

  const Settings& s_;
  Clock::time_point started_, lastProgress_;
  double checking_ = 0;
  Counters counters_;
  std::map<std::string, uint64_t> byInvariant_;
  std::map<std::string, uint64_t> firstSeed_;
};

bool parseSeeds(const std::string& text, uint64_t& first, uint64_t& last) {
  try {
    std::size_t dash = text.find('-');
    std::size_t used = 0;
    first = std::stoull(text.substr(0, dash), &used);
    last = dash == std::string::npos ? first : std::stoull(text.substr(dash + 1));
    return used == (dash == std::string::npos ? text.size() : dash) && first <= last;
  } catch (const std::exception&) {
    return false;
  }
}

int replay(const Settings& s) {
  Stream st;
  std::string error;
  if (!readReproducer(s.replay, st, error)) {
    std::fprintf(stderr, "consistencyCheck: %s\n", error.c_str());
    return 2;
  }
  CheckResult r = checkIsolated(st, s.check, s.isolation);
  if (!r.failure) {
    std::printf("%s: no failure (%zu lines)\n", s.replay.c_str(), st.lines.size());
    return 0;
  }
  std::printf("%s: FAILED %s (%s): %s\n", s.replay.c_str(), r.failure->invariant.c_str(), r.failure->where.c_str(),
              r.failure->detail.c_str());
  return 1;
}

}  // namespace

int checkMain(int argc, char** argv) {
  Settings s;
  std::string invariantList;
  for (const Invariant& inv : invariants()) invariantList += "\n  " + std::string(inv.name) + ": " + inv.rule;
  CLI::App app(
      "Random change streams through the mirroring agent, checked after every line against the invariants, "
      "across restarts and for restart equivalence; failures are minimised into reproducers.");
  app.footer("Invariants:" + invariantList +
             "\nAlso: goodLineAccepted, badLineRefused, badLineChangesNothing, "
             "restartIdempotent, restartEquivalence, startFails, restartFails, agentAbort, agentCrash, sanitizer, "
             "timeout; with --reference, sameAsReference.");
  auto* seeds = app.add_option("--seeds", s.seeds, "a bounded run over the seeds A-B (default 1-20)");
  auto* seconds =
      app.add_option("--seconds", s.seconds, "an unbounded run: streams from --seed on until N seconds pass")
          ->check(CLI::PositiveNumber);
  app.add_option("--seed", s.seed, "the first seed of an unbounded run")->needs(seconds);
  app.add_option("--lines", s.lines, "lines per stream")->check(CLI::Range(1, 100000))->capture_default_str();
  app.add_option("--boundaries", s.check.boundaries, "restart boundaries checked per stream when it has more")
      ->check(CLI::Range(0, 100000))
      ->capture_default_str();
  auto* replayOpt = app.add_option("--replay", s.replay, "check the reproducer in DIR (state.json, changes.jsonl)");
  app.add_option("--out", s.out, "where reproducers go")->capture_default_str();
  s.check.plugin = host::defaultPluginPath();
  app.add_option("--plugin", s.check.plugin, "the agent plug-in")->capture_default_str();
  app.add_option("--reference", s.check.reference,
                 "a second build of the agent (libMirroringReference.so): every stream runs through both plug-ins, "
                 "which must make the same writes and messages line by line and end in the same state")
      ->check(CLI::ExistingFile);
  app.add_flag("!--no-shrink", s.shrink, "report failures without minimising them");
  app.add_option("--shrink-runs", s.shrinkOptions.maxRuns, "runs a minimisation may take")->capture_default_str();
  app.add_option("--shrink-seconds", s.shrinkOptions.maxSeconds, "time a minimisation may take")->capture_default_str();
  app.add_option("--skip", s.check.skip, "pass over failures whose signature starts with this (repeatable)");
  app.add_option("--timeout", s.isolation.timeoutSeconds, "seconds a stream's checks may take")->capture_default_str();
  app.add_option("--progress", s.progressEvery, "seconds between progress lines")->capture_default_str();
  seeds->excludes(seconds);
  replayOpt->excludes(seeds)->excludes(seconds);
  CLI11_PARSE(app, argc, argv);

  // The agent's messages are not what is checked; toggles keep their defaults, as documented.
  platform::syslog::clearSinks();
  platform::toggles::setDirectory("/nonexistent/consistencyCheck/toggles");
  platform::toggles::setWarningHandler([](std::string_view) {});

  // Absolute, so that the loader does not search for it and a reproducer's replay.sh can name it.
  if (!s.check.reference.empty()) s.check.reference = std::filesystem::absolute(s.check.reference).string();
  // The plug-in is loaded once here, so that every forked child finds it loaded; but with a
  // reference neither may be loaded here (see Differential.h): each child opens its own.
  host::AgentHost preload("Mirroring", 0);
  std::string error;
  if (s.check.reference.empty() && !preload.openPlugin(s.check.plugin, error)) {
    std::fprintf(stderr, "consistencyCheck: %s\n", error.c_str());
    return 2;
  }
  for (const std::string& plugin : s.check.reference.empty() ? std::vector<std::string>{}
                                                               : std::vector{s.check.plugin, s.check.reference}) {
    if (auto problem = probePlugin(plugin, s.isolation)) {
      std::fprintf(stderr, "consistencyCheck: %s\n", problem->c_str());
      return 2;
    }
  }
  if (!s.replay.empty()) return replay(s);
  Run run(s);
  if (s.seconds > 0) {
    const auto until = Clock::now() + std::chrono::duration<double>(s.seconds);
    for (uint64_t seed = s.seed; Clock::now() < until; ++seed) run.stream(generateStream(seed, s.lines));
    return run.finish();
  }
  uint64_t first = 1, last = 20;
  if (!s.seeds.empty() && !parseSeeds(s.seeds, first, last)) {
    std::fprintf(stderr, "consistencyCheck: --seeds takes A-B with A <= B, got \"%s\"\n", s.seeds.c_str());
    return 2;
  }
  for (uint64_t seed = first; seed <= last; ++seed) run.stream(generateStream(seed, s.lines));
  return run.finish();
}

}  // namespace consistency

int main(int argc, char** argv) { return consistency::checkMain(argc, argv); }
