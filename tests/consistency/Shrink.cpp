#include "consistency/Shrink.h"

#include "consistency/Differential.h"

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace consistency {

namespace {

class Shrinker {
 public:
  Shrinker(const Failure& f, const CheckOptions& o, const ShrinkOptions& so, const IsolationOptions& io)
      : target_(f.signature), last_(f), o_(o), so_(so), io_(io), started_(std::chrono::steady_clock::now()) {
    o_.only = f.signature;
  }

  bool fails(const Stream& candidate) {
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
    if (runs_ >= so_.maxRuns || elapsed > so_.maxSeconds) return false;
    ++runs_;
    CheckResult r = checkIsolated(candidate, o_, io_);
    if (!r.failure || r.failure->signature != target_) return false;
    last_ = *r.failure;
    return true;
  }

  // Delta debugging: the smallest subset of `items` (by removing chunks, halves first) for
  // which `fails(build(subset))` still holds.
  template <class T, class Build>
  std::vector<T> ddmin(std::vector<T> keep, const Build& build) {
    std::size_t n = 2;
    while (!keep.empty()) {
      const std::size_t chunk = (keep.size() + n - 1) / n;
      bool reduced = false;
      for (std::size_t start = 0; start < keep.size(); start += chunk) {
        std::vector<T> candidate(keep.begin(), keep.begin() + long(start));
        candidate.insert(candidate.end(), keep.begin() + long(std::min(keep.size(), start + chunk)), keep.end());
        if (fails(build(candidate))) {
          keep = std::move(candidate);
          n = std::max<std::size_t>(n - 1, 2);
          reduced = true;
          break;
        }
      }
      if (reduced) continue;
      if (n >= keep.size()) break;
      n = std::min(n * 2, keep.size());
    }
    return keep;
  }

  // The lines (the marked restart stays).
  void lines(Stream& s) {
    std::vector<std::size_t> all;
    for (std::size_t i = 0; i < s.lines.size(); ++i) {
      if (s.lines[i].mark != Line::Mark::restartUnderTest) all.push_back(i);
    }
    auto build = [&s](const std::vector<std::size_t>& k) {
      Stream c = s;
      c.lines.clear();
      std::set<std::size_t> kept(k.begin(), k.end());
      for (std::size_t i = 0; i < s.lines.size(); ++i) {
        if (kept.count(i) || s.lines[i].mark == Line::Mark::restartUnderTest) c.lines.push_back(s.lines[i]);
      }
      return c;
    };
    s = build(ddmin(all, build));
  }

  // Members of the state file, outermost first: mounts, their fields, the entries of those
  // and their members.
  void state(Stream& s) { stateMembers(s, s.state, 0); }
  void stateMembers(Stream& s, json& object, int depth) {
    if (depth > 4 || !object.is_object()) return;
    const json original = object;
    auto build = [&](const std::vector<std::string>& kept) {
      json smaller = json::object();
      for (const auto& k : kept) smaller[k] = original[k];
      object = std::move(smaller);
      return std::cref(s);
    };
    build(ddmin(keysOf(original), build));
    for (const auto& key : keysOf(object)) stateMembers(s, object[key], depth + 1);
  }

  // Members of the values of good lines, and their members.
  void values(Stream& s) {
    for (auto& line : s.lines) {
      if (line.mark != Line::Mark::none) continue;
      json change = json::parse(line.text, nullptr, false);
      if (!change.is_object() || !change.contains("value") || !change["value"].is_object()) continue;
      // Keeps a smaller value when the failure stays.
      auto attempt = [&](const json& smaller) {
        const std::string saved = line.text;
        json c = change;
        c["value"] = smaller;
        line.text = c.dump();
        if (fails(s)) {
          change = std::move(c);
          return true;
        }
        line.text = saved;
        return false;
      };
      for (const auto& key : keysOf(change["value"])) {
        json smaller = change["value"];
        smaller.erase(key);
        if (attempt(smaller)) continue;
        for (const auto& inner : keysOf(change["value"][key])) {
          json smallerInner = change["value"];
          smallerInner[key].erase(inner);
          attempt(smallerInner);
        }
      }
    }
  }

  int runs() const { return runs_; }
  const Failure& last() const { return last_; }

 private:
  static std::vector<std::string> keysOf(const json& o) {
    std::vector<std::string> out;
    if (o.is_object()) {
      for (const auto& [k, v] : o.items()) out.push_back(k);
    }
    return out;
  }

  std::string target_;
  Failure last_;
  CheckOptions o_;
  ShrinkOptions so_;
  IsolationOptions io_;
  std::chrono::steady_clock::time_point started_;
  int runs_ = 0;
};

// The line number of "after line N", or 0.
std::size_t failingLine(const Failure& f) {
  const std::string prefix = "after line ";
  if (f.where.rfind(prefix, 0) != 0) return 0;
  return std::size_t(std::stoul(f.where.substr(prefix.size())));
}

}  // namespace

ShrinkResult shrink(const Stream& s, const Failure& failure, const CheckOptions& o, const ShrinkOptions& so,
                    const IsolationOptions& io) {
  Shrinker shrinker(failure, o, so, io);
  Stream cur = s;
  if (failure.boundary >= 0) {
    cur.lines.insert(cur.lines.begin() + failure.boundary,
                     Line{R"({"op":"restart"})", Line::Mark::restartUnderTest, ""});
    if (!shrinker.fails(cur)) return ShrinkResult{s, failure, shrinker.runs()};
  }
  if (std::size_t n = failingLine(failure); n > 0 && n < cur.lines.size()) {
    Stream cut = cur;
    cut.lines.resize(n);
    if (shrinker.fails(cut)) cur = std::move(cut);
  }
  shrinker.lines(cur);
  shrinker.state(cur);
  shrinker.values(cur);
  shrinker.lines(cur);
  return ShrinkResult{cur, shrinker.last(), shrinker.runs()};
}

bool writeReproducer(const std::string& dir, const Stream& s, const Failure& f, const std::string& mirroringd,
                     const std::string& reference, std::string& error) {
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) {
    error = "cannot create " + dir + ": " + ec.message();
    return false;
  }
  std::ofstream(dir + "/state.json") << s.state.dump(2) << '\n';
  std::ofstream(dir + "/changes.jsonl") << changesText(s);
  std::ofstream(dir + "/failure.txt") << "seed " << s.seed << "\n"
                                      << f.invariant << " (" << f.where << ")\n"
                                      << f.detail << "\n";
  const std::string script = dir + "/replay.sh";
  const bool differs = f.invariant == sameAsReference;
  std::ofstream(script) << "#!/bin/sh\n"
                        << "# " << f.invariant << ", seed " << s.seed << ". The checker replays it with\n"
                        << "#   consistencyCheck --replay " << dir << (differs ? " --reference " + reference : "")
                        << "\n"
                        << (differs ? "# With MIRRORINGD_PLUGIN=" + reference + " it runs the reference.\n" : "")
                        << "cd \"$(dirname \"$0\")\"\n"
                        << "exec \"${MIRRORINGD:-" << mirroringd
                        << "}\" --view --dump - --changes changes.jsonl state.json\n";
  ::chmod(script.c_str(), 0755);
  return true;
}

bool readReproducer(const std::string& dir, Stream& s, std::string& error) {
  std::ifstream state(dir + "/state.json"), changes(dir + "/changes.jsonl");
  if (!state || !changes) {
    error = dir + " holds no state.json and changes.jsonl";
    return false;
  }
  std::stringstream st, ch;
  st << state.rdbuf();
  ch << changes.rdbuf();
  s.state = json::parse(st.str(), nullptr, false);
  if (s.state.is_discarded()) {
    error = dir + "/state.json is not JSON";
    return false;
  }
  s.lines = parseChanges(ch.str());
  return true;
}

}  // namespace consistency
