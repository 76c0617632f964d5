#include "consistency/Differential.h"

#include <memory>
#include <utility>

#include "consistency/StateDiff.h"
#include "host/AgentHost.h"
#include "host/ChangeStream.h"
#include "platform/Codec.h"
#include "platform/Syslog.h"

namespace consistency {

namespace {

json emptyStep() { return {{"writes", json::array()}, {"syslog", json::array()}}; }

// Collects the messages raised while it is installed into the current step, as "KEY
// (severity): text".
class SyslogCapture : public platform::syslog::Sink {
 public:
  explicit SyslogCapture(json& step) : step_(step) {}
  void write(const platform::syslog::Record& r) override {
    step_["syslog"].push_back(platform::syslog::StreamSink::line(r));
  }

 private:
  json& step_;
};

std::string stepName(std::size_t step, std::size_t lines) {
  if (step == 0) return "at start-up";
  return step <= lines ? "after line " + std::to_string(step) : "at tear-down";
}

std::string entries(const json& list, std::size_t from) {
  if (from >= list.size()) return "(none)";
  std::string out;
  for (std::size_t i = from; i < list.size() && i < from + 3; ++i) {
    out += (i > from ? ", " : "") + list[i].get<std::string>();
  }
  return list.size() > from + 3 ? out + ", and " + std::to_string(list.size() - from - 3) + " more" : out;
}

// The first entry where the lists of a step differ, both sides from there on.
Failure listsDiffer(const std::string& what, const json& test, const json& ref, const std::string& at,
                    const std::string& lineText, const json& dump) {
  std::size_t i = 0;
  while (i < test.size() && i < ref.size() && test[i] == ref[i]) ++i;
  const std::string first = (i < test.size() ? test : ref)[i].get<std::string>();
  // The signature names the area of the first differing write, the key of a message.
  std::string where = first.substr(0, first.find(' '));
  if (what == "writes") {
    const json w = json::parse(first, nullptr, false);
    where = w.is_object() ? area(w.value("path", ""), dump) : "";
  }
  const std::string line = lineText.empty() ? "" : " (" + lineText.substr(0, 200) + ")";
  return Failure{sameAsReference,
                 what + " " + at + line + " differ from #" + std::to_string(i + 1) + " on (" +
                     std::to_string(test.size()) + " under test, " + std::to_string(ref.size()) +
                     " in the reference): under test " + entries(test, i) + "; reference " + entries(ref, i),
                 at, std::string(sameAsReference) + " " + what + " " + where};
}

std::optional<Failure> compareTraces(const Stream& s, const json& test, const json& ref) {
  const json& a = test["steps"];
  const json& b = ref["steps"];
  const json& dump = test.contains("dump") ? test["dump"] : ref.value("dump", json::object());
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    const std::string text = i > 0 && i <= s.lines.size() ? s.lines[i - 1].text : "";
    for (const char* what : {"writes", "syslog"}) {
      if (a[i][what] != b[i][what]) {
        return listsDiffer(what, a[i][what], b[i][what], stepName(i, s.lines.size()), text, dump);
      }
    }
  }
  const std::string ea = test.value("error", ""), eb = ref.value("error", "");
  if (ea != eb) {
    return Failure{sameAsReference,
                   "under test " + (ea.empty() ? "ran on" : ea) + "; reference " + (eb.empty() ? "ran on" : eb),
                   stepName(std::min(a.size(), b.size()), s.lines.size()), std::string(sameAsReference) + " error"};
  }
  if (!ea.empty() || test["dump"] == ref["dump"]) return std::nullopt;
  const auto ds = diffStates(ref["dump"], test["dump"]);
  return Failure{sameAsReference, "the final dumps differ (reference -> under test): " + describe(ds), "at the end",
                 std::string(sameAsReference) + " dump " + area(ds.front().path, test["dump"])};
}

}  // namespace

json traceStream(const Stream& s, const std::string& plugin, const Progress& progress) {
  auto say = [&](const std::string& what) {
    if (progress) progress(what);
  };
  json steps = json::array();
  json step = emptyStep();
  auto next = [&] { steps.push_back(std::exchange(step, emptyStep())); };
  auto capture = std::make_shared<SyslogCapture>(step);
  platform::syslog::addSink(capture);
  struct Uninstall {
    std::shared_ptr<SyslogCapture> sink;
    ~Uninstall() { platform::syslog::removeSink(sink); }
  } uninstall{capture};

  host::AgentHost host("Mirroring", 0.0);
  host.writeListenerIs([&step](const platform::Mount&, const platform::Change& c) {
    step["writes"].push_back(platform::toJson(platform::changeToValue(c)));
  });
  host::ChangeStream stream(host, {}, {});
  say("start-up");
  std::string error;
  auto state = platform::parseJson(s.state.dump(), error);
  if (!state || !host.openPlugin(plugin, error) || !host.start(&*state, "state.json", error)) {
    return {{"steps", steps}, {"error", "failed at start-up: " + error}};
  }
  next();
  for (std::size_t i = 0; i < s.lines.size(); ++i) {
    say("line " + std::to_string(i + 1));
    if (stream.runLine(s.lines[i].text, error) == host::ChangeStream::Outcome::failed) {
      return {{"steps", steps}, {"error", "failed at line " + std::to_string(i + 1) + ": " + error}};
    }
    next();
  }
  json dump = json::parse(platform::toJson(platform::dumpState(host.database())));
  say("tear-down");
  host.stop();
  next();
  return {{"steps", steps}, {"dump", std::move(dump)}};
}

std::optional<Failure> compareWithReference(const Stream& s, const CheckOptions& o, const IsolationOptions& io,
                                            Counters& counters) {
  json traces[2];
  const std::string* plugins[2] = {&o.plugin, &o.reference};
  for (int k = 0; k < 2; ++k) {
    ChildRun run = runIsolated([&](const Progress& p) { return traceStream(s, *plugins[k], p); }, io);
    counters.linesRun += s.lines.size();
    if (run.crash) {
      const std::string side = k == 0 ? "under test" : "reference";
      return Failure{sameAsReference, "the run " + side + " died: " + run.crash->detail, run.crash->where,
                     std::string(sameAsReference) + " died " + side + ": " + run.crash->signature};
    }
    traces[k] = std::move(*run.result);
  }
  return compareTraces(s, traces[0], traces[1]);
}

std::optional<std::string> probePlugin(const std::string& path, const IsolationOptions& io) {
  ChildRun run = runIsolated(
      [&](const Progress&) {
        host::AgentHost host("Mirroring", 0.0);
        std::string error;
        return json{{"error", host.openPlugin(path, error) ? "" : error}};
      },
      io);
  if (run.crash) return "opening " + path + ": " + run.crash->detail;
  const std::string error = run.result->value("error", "");
  return error.empty() ? std::nullopt : std::optional<std::string>(error);
}

}  // namespace consistency
