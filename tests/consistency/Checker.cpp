#include "consistency/Checker.h"

#include <algorithm>
#include <memory>

#include "consistency/Invariants.h"
#include "consistency/Rng.h"
#include "consistency/StateDiff.h"
#include "host/AgentHost.h"
#include "host/ChangeStream.h"
#include "platform/Codec.h"

namespace consistency {

namespace {

json asJson(const platform::Value& v) {
  switch (v.kind()) {
    case platform::Value::Kind::null:
      return nullptr;
    case platform::Value::Kind::boolean:
      return v.asBool();
    case platform::Value::Kind::integer: {
      int64_t i = 0;
      v.toInt64(i);
      return i;
    }
    case platform::Value::Kind::unsignedInteger: {
      uint64_t u = 0;
      v.toUint64(u);
      return u;
    }
    case platform::Value::Kind::real:
      return v.asReal();
    case platform::Value::Kind::string:
      return v.asString();
    case platform::Value::Kind::array: {
      json a = json::array();
      for (const auto& e : v.asArray()) a.push_back(asJson(e));
      return a;
    }
    case platform::Value::Kind::object: {
      json o = json::object();
      for (const auto& [k, e] : v.asObject()) o[k] = asJson(e);
      return o;
    }
  }
  return nullptr;
}

std::string where(int line) { return line < 0 ? "after start-up" : "after line " + std::to_string(line + 1); }

class AgentRun {
 public:
  explicit AgentRun(const CheckOptions& o) : host_("Mirroring", 0.0), stream_(host_, {}, {}) {
    std::string error;
    pluginOk_ = host_.openPlugin(o.plugin, error);
    pluginError_ = error;
    host_.writeListenerIs([this](const platform::Mount&, const platform::Change& c) {
      writes.push_back(Write{platform::opName(c.op), c.path, c.key ? platform::toJson(*c.key) : std::string()});
    });
  }
  bool start(const platform::Value& state, std::string& error) {
    if (!pluginOk_) {
      error = pluginError_;
      return false;
    }
    return host_.start(&state, "state.json", error);
  }
  host::ChangeStream::Outcome line(const std::string& text, std::string& error) {
    writes.clear();
    return stream_.runLine(text, error);
  }
  bool restart(std::string& error) {
    writes.clear();
    return host_.restart(error);
  }
  json dump() { return asJson(platform::dumpState(host_.database())); }

  struct Write {
    std::string op, path, key;
  };
  std::vector<Write> writes;

 private:
  host::AgentHost host_;
  host::ChangeStream stream_;
  bool pluginOk_ = false;
  std::string pluginError_;
};

class StreamCheck {
 public:
  StreamCheck(const Stream& s, const CheckOptions& o, const std::function<void(const std::string&)>& progress)
      : s_(s), o_(o), progress_(progress) {
    std::string error;
    auto parsed = platform::parseJson(s.state.dump(), error);
    if (parsed) state_ = std::move(*parsed);
    for (std::size_t i = 0; i < s.lines.size(); ++i) {
      if (s.lines[i].mark == Line::Mark::restartUnderTest) marked_ = int(i);
    }
  }

  CheckResult run() {
    baseRun();
    if (!result_.failure && o_.restartChecks) equivalence();
    return result_;
  }

 private:
  void say(const std::string& what) {
    if (progress_) progress_(what);
  }
  // Records a failure; false when it is one the caller is not looking for (the run goes on).
  bool fail(const std::string& invariant, const std::string& detail, const std::string& at,
            const std::string& signature = "", int boundary = -1) {
    Failure f{invariant, detail, at, signature.empty() ? invariant : signature, boundary};
    if (!wanted(f, o_)) return false;
    result_.failure = std::move(f);
    return true;
  }
  bool checkInvariantsAt(const json& dump, const std::string& at) {
    for (const Violation& v : checkInvariants(dump)) {
      if (fail(v.invariant, v.detail, at)) return true;
    }
    return false;
  }

  bool startRun(AgentRun& run) {
    std::string error;
    if (run.start(state_, error)) return true;
    fail("startFails", error, "at start-up");
    return false;
  }

  // One line of the base run; true when the run must stop.
  bool baseLine(AgentRun& run, std::size_t i, json& current, bool& dirty) {
    const Line& l = s_.lines[i];
    const std::string at = where(int(i));
    say("line " + std::to_string(i + 1));
    std::string error;
    auto outcome = run.line(l.text, error);
    ++result_.counters.lines;
    ++result_.counters.linesRun;
    json after = run.dump();
    if (l.mark == Line::Mark::bad) {
      if (outcome != host::ChangeStream::Outcome::rejected) {
        if (fail("badLineRefused", "a bad line (" + l.note + ") was accepted: " + l.text, at,
                 "badLineRefused: " + l.note)) {
          return true;
        }
      } else if (after != current || !run.writes.empty()) {
        const auto ds = diffStates(current, after);
        const std::string what =
            ds.empty() ? "wrote " + run.writes.front().op + " " + run.writes.front().path : "changed " + describe(ds);
        if (fail("badLineChangesNothing", "a refused line " + what, at)) {
          return true;
        }
      }
      current = std::move(after);
      return false;
    }
    if (outcome == host::ChangeStream::Outcome::failed) {
      fail("restartFails", error, at);
      return true;
    }
    if (outcome == host::ChangeStream::Outcome::rejected) {
      if (fail("goodLineAccepted", error + ": " + l.text, at, "goodLineAccepted: " + error)) return true;
    }
    if (isRestart(l.text)) {
      ++result_.counters.restarts;
      dirty = false;
    } else if (plantsAgentOutput(l.text)) {
      dirty = true;
    }
    current = std::move(after);
    return !dirty && checkInvariantsAt(current, at);
  }

  void baseRun() {
    ++result_.counters.streams;
    AgentRun run(o_);
    say("start-up");
    if (!startRun(run)) return;
    json current = run.dump();
    if (checkInvariantsAt(current, "after start-up")) return;
    bool dirty = false;
    dirtyAt_.assign(s_.lines.size() + 1, false);
    for (std::size_t i = 0; i < s_.lines.size(); ++i) {
      dirtyAt_[i] = dirty;
      if (int(i) == marked_) continue;  // the base run is the stream without it
      if (baseLine(run, i, current, dirty)) return;
    }
    final_ = current;
    if (!o_.restartChecks) return;
    std::string error;
    if (dirty) {
      // Leftovers planted without a restart of their own: the first restart reconciles them.
      say("restart after planted leftovers");
      if (!run.restart(error)) {
        fail("restartFails", error, "restart after the stream");
        return;
      }
      ++result_.counters.restarts;
      current = run.dump();
    }
    say("restart over the final state");
    if (!run.restart(error)) {
      fail("restartFails", error, "restart over the final state");
      return;
    }
    ++result_.counters.restarts;
    json after = run.dump();
    const auto ds = untolerated(diffStates(current, after), current, after);
    // A write is judged by the value at its path before and after, like a difference.
    std::vector<Difference> writes;
    for (const auto& w : run.writes) {
      const json* a = valueAt(current, w.path);
      const json* b = valueAt(after, w.path);
      writes.push_back(
          Difference{w.path, a ? std::optional<json>(*a) : std::nullopt, b ? std::optional<json>(*b) : std::nullopt});
    }
    const auto ws = untolerated(writes, current, after);
    if (!ds.empty() || !ws.empty()) {
      const std::string what = !ds.empty() ? "changed " + describe(ds) : "wrote " + describe(ws);
      if (fail("restartIdempotent", "a restart over the final state " + what, "restart over the final state",
               "restartIdempotent " + area(!ds.empty() ? ds.front().path : ws.front().path, after))) {
        return;
      }
    }
    checkInvariantsAt(after, "after a restart over the final state");
  }

  std::vector<int> boundaries() {
    if (marked_ >= 0) return {marked_};
    std::vector<int> candidates;
    const int n = int(s_.lines.size());
    for (int p = 0; p < n; ++p) {
      if (dirtyAt_[std::size_t(p)] || isRestart(s_.lines[std::size_t(p)].text)) continue;
      if (p > 0 && isRestart(s_.lines[std::size_t(p - 1)].text)) continue;
      candidates.push_back(p);
    }
    if (int(candidates.size()) <= o_.boundaries) return candidates;
    Rng rng(s_.seed * 0x9E3779B97F4A7C15ull + 0xB0);
    std::vector<int> chosen;
    while (int(chosen.size()) < o_.boundaries) {
      int p = candidates[rng.below(candidates.size())];
      if (std::find(chosen.begin(), chosen.end(), p) == chosen.end()) chosen.push_back(p);
    }
    std::sort(chosen.begin(), chosen.end());
    return chosen;
  }

  void equivalence() {
    for (int p : boundaries()) {
      const std::string at = "restart inserted before line " + std::to_string(p + 1);
      AgentRun run(o_);
      say(at + ": start-up");
      if (!startRun(run)) return;
      for (std::size_t i = 0; i < s_.lines.size(); ++i) {
        std::string error;
        if (int(i) == p) {
          say(at + ": the restart");
          if (!run.restart(error)) {
            fail("restartFails", error, at);
            return;
          }
          ++result_.counters.restarts;
          if (int(i) == marked_) continue;
        }
        say(at + ": line " + std::to_string(i + 1));
        if (run.line(s_.lines[i].text, error) == host::ChangeStream::Outcome::failed) {
          fail("restartFails", error, at);
          return;
        }
        ++result_.counters.linesRun;
        if (isRestart(s_.lines[i].text)) ++result_.counters.restarts;
      }
      json after = run.dump();
      const auto ds = untolerated(diffStates(final_, after), final_, after);
      if (!ds.empty() && fail("restartEquivalence", "the final state differs: " + describe(ds), at,
                              "restartEquivalence " + area(ds.front().path, after), p)) {
        return;
      }
    }
  }

  const Stream& s_;
  const CheckOptions& o_;
  const std::function<void(const std::string&)>& progress_;
  platform::Value state_;
  int marked_ = -1;
  std::vector<bool> dirtyAt_;
  json final_;
  CheckResult result_;
};

}  // namespace

Counters& Counters::operator+=(const Counters& o) {
  streams += o.streams;
  lines += o.lines;
  linesRun += o.linesRun;
  restarts += o.restarts;
  return *this;
}

bool wanted(const Failure& f, const CheckOptions& o) {
  if (!o.only.empty() && f.signature != o.only) return false;
  for (const auto& known : o.skip) {
    if (f.signature.rfind(known, 0) == 0) return false;
  }
  return true;
}

CheckResult checkStream(const Stream& s, const CheckOptions& o,
                        const std::function<void(const std::string&)>& progress) {
  return StreamCheck(s, o, progress).run();
}

json failureToJson(const Failure& f) {
  return {{"invariant", f.invariant},
          {"detail", f.detail},
          {"where", f.where},
          {"signature", f.signature},
          {"boundary", f.boundary}};
}

Failure failureFromJson(const json& j) {
  return Failure{j.value("invariant", ""), j.value("detail", ""), j.value("where", ""), j.value("signature", ""),
                 j.value("boundary", -1)};
}

json countersToJson(const Counters& c) {
  return {{"streams", c.streams}, {"lines", c.lines}, {"linesRun", c.linesRun}, {"restarts", c.restarts}};
}

Counters countersFromJson(const json& j) {
  Counters c;
  c.streams = j.value("streams", uint64_t(0));
  c.lines = j.value("lines", uint64_t(0));
  c.linesRun = j.value("linesRun", uint64_t(0));
  c.restarts = j.value("restarts", uint64_t(0));
  return c;
}

}  // namespace consistency
