// A generated (or replayed) test case of the consistency checker: a state file and a change
// stream in mirroringd's formats, with what the checker must know about some of its lines.
//
// A reproducer on disk is `state.json` plus `changes.jsonl`; the marks travel in comment lines
// ("# consistency: ...") that mirroringd skips, so the same files replay with mirroringd.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace consistency {

using nlohmann::json;

struct Line {
  enum class Mark {
    none,
    bad,               // deliberately bad: must be refused and change nothing
    restartUnderTest,  // a restart whose presence must not change the final state
  };
  std::string text;
  Mark mark = Mark::none;
  std::string note;  // for a bad line, what is wrong with it
};

struct Stream {
  uint64_t seed = 0;
  json state = json::object();
  std::vector<Line> lines;
};

// Whether a line writes a mount that only the agent writes: an earlier run's leftovers planted
// on purpose. The rules do not hold between such a line and the next restart.
bool plantsAgentOutput(const std::string& lineText);
bool isRestart(const std::string& lineText);

// The change stream as mirroringd reads it, marks as comment lines.
std::string changesText(const Stream& s);
// Reads what changesText wrote (any change stream: lines without marks are plain lines).
std::vector<Line> parseChanges(const std::string& text);

}  // namespace consistency
