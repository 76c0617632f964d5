// What the scenario tests share: mirroringd run with the real agent plug-in over a state file
// and a change stream, and the helpers that read what the run left (dumps, the change stream
// out, syslog lines).
#pragma once

#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

// The shared runner starts mirroringd with the plug-in named TEST_AGENT_PATH: here, the agent.
#define TEST_AGENT_PATH MIRRORING_PLUGIN_PATH
#include "host/MirroringdRunner.h"

namespace scenario {

using hosttest::Json;

inline const std::string kDump = R"({"op":"dump"})";
inline const std::string kRestart = R"({"op":"restart"})";

// What one run left: the dumps (each dump command's, then the final one) of the mounts the
// scenario asked for, every change the agent made, and the syslog messages.
struct Outcome {
  std::vector<Json> dumps;
  std::vector<Json> out;
  std::vector<Json> syslog;

  // A copy: reading a member that is not there then fails a comparison instead of the run.
  Json last() const { return dumps.back(); }
};

inline std::vector<std::string> segments(const std::string& path) {
  std::vector<std::string> out;
  std::istringstream in(path);
  for (std::string segment; std::getline(in, segment, '/');) out.push_back(segment);
  return out;
}

// The value that change `c` gives to `path` (which must not hold an interface with '/'):
// the value itself when the change names the path, the part of it below the path when the
// change writes an ancestor, and nothing when the change does not set the path.
inline std::optional<Json> valueSetAt(const Json& c, const std::string& path) {
  if (c.value("op", "") != "set") return std::nullopt;
  const std::string target = c.value("path", "");
  const Json v0 = c.contains("value") ? c.at("value") : Json(true);  // a set member has no value
  if (target == path) return v0;
  if (path.rfind(target + "/", 0) != 0) return std::nullopt;
  Json v = v0;
  for (const auto& seg : segments(path.substr(target.size() + 1))) {
    if (v.is_object() && v.contains(seg)) {
      v = Json(v[seg]);
    } else if (v.is_array() && std::find(v.begin(), v.end(), Json(seg)) != v.end()) {
      v = true;  // a member of a set
    } else {
      return std::nullopt;
    }
  }
  return v;
}

// Whether change `c` erases `path`, itself or with an ancestor.
inline bool erases(const Json& c, const std::string& path) {
  if (c.value("op", "") != "del") return false;
  const std::string target = c.value("path", "");
  return target == path || path.rfind(target + "/", 0) == 0;
}

inline constexpr std::ptrdiff_t kNever = -1;

// The position of the first change that sets `path` (to `value`, if given), or kNever.
inline std::ptrdiff_t firstSet(const std::vector<Json>& out, const std::string& path,
                               const std::optional<Json>& value = std::nullopt) {
  auto it = std::find_if(out.begin(), out.end(), [&](const Json& c) {
    auto v = valueSetAt(c, path);
    return v && (!value || *v == *value);
  });
  return it == out.end() ? kNever : it - out.begin();
}

// The position of the first change that erases `path`, or kNever.
inline std::ptrdiff_t firstDel(const std::vector<Json>& out, const std::string& path) {
  auto it = std::find_if(out.begin(), out.end(), [&](const Json& c) { return erases(c, path); });
  return it == out.end() ? kNever : it - out.begin();
}

inline std::size_t count(const std::vector<Json>& out, const std::string& op, const std::string& path) {
  return std::size_t(std::count_if(out.begin(), out.end(), [&](const Json& c) {
    return c.value("op", "") == op && c.value("path", "") == path;
  }));
}

inline std::vector<std::string> keys(const Json& object) {
  std::vector<std::string> out;
  if (object.is_object()) {
    for (const auto& [k, v] : object.items()) out.push_back(k);
  }
  return out;
}

// Where two change streams part, for failure messages.
inline std::string firstDifference(const std::vector<Json>& expected, const std::vector<Json>& actual) {
  std::size_t i = 0;
  while (i < expected.size() && i < actual.size() && expected[i] == actual[i]) ++i;
  auto at = [](const std::vector<Json>& v, std::size_t k) { return k < v.size() ? v[k].dump() : "(end)"; };
  return "change " + std::to_string(i + 1) + " is " + at(actual, i) + " instead of " + at(expected, i);
}

// The lines of a change stream file that change something or command the host; comments and
// blank lines are left out, and so are views (which are for people) unless `viewAs` names a
// line to put in their place.
inline std::vector<std::string> streamOf(const hosttest::fs::path& file, const std::string& viewAs = "") {
  std::vector<std::string> stream;
  for (const auto& line : hosttest::lines(hosttest::readFile(file))) {
    if (line.find_first_not_of(" \t") == std::string::npos || line.front() == '#') continue;
    if (line.find(R"("op":"view")") != std::string::npos) {
      if (!viewAs.empty()) stream.push_back(viewAs);
      continue;
    }
    stream.push_back(line);
  }
  return stream;
}

class ScenarioTest : public hosttest::MirroringdTest {
 protected:
  // Runs mirroringd with the agent over `state` and `changes`, dumping `mounts`; every line must
  // be accepted and nothing reported on standard error. `extra` options go before the state file.
  Outcome runScenario(const Json& state, const std::vector<std::string>& changes,
                      const std::vector<std::string>& mounts, const std::vector<std::string>& extra = {}) {
    std::string stream;
    for (const auto& line : changes) stream += line + "\n";
    for (const char* f : {"dump.json", "out.jsonl", "syslog.jsonl"}) hosttest::fs::remove(this->path(f));
    std::vector<std::string> args = {"--strict", "--quiet-syslog", "--dump", this->path("dump.json")};
    for (const auto& m : mounts) args.insert(args.end(), {"--dump-mount", m});
    args.insert(args.end(), {"--changes-out", this->path("out.jsonl"), "--syslog-json", this->path("syslog.jsonl"),
                             "--changes", file("changes.jsonl", stream)});
    args.insert(args.end(), extra.begin(), extra.end());
    args.push_back(file("state.json", state.dump(2)));
    hosttest::Result r = run(args);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "") << "nothing rejected, nothing reported";
    Outcome o;
    o.dumps = hosttest::documents(hosttest::readFile(this->path("dump.json")));
    for (const auto& line : hosttest::lines(hosttest::readFile(this->path("out.jsonl")))) {
      o.out.push_back(Json::parse(line));
    }
    for (const auto& line : hosttest::lines(hosttest::readFile(this->path("syslog.jsonl")))) {
      o.syslog.push_back(Json::parse(line));
    }
    if (o.dumps.empty()) o.dumps.emplace_back(Json::object());
    return o;
  }
};

}  // namespace scenario
