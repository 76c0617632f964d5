// Plays a change stream into a running agent host, one line at a time.
//
// A line is a JSON object: a change ("set", "merge", "del" at a path, applied through the
// codec) or a host command ("restart", "advance", "dump", "view"). Blank lines and lines
// starting with '#' are skipped. After each line the event loop runs its pending work, so the
// agent has reacted before the next line is read. A bad line is rejected whole: the codec
// validates a change before writing anything, and commands check all their members first.
// Rejections are reported as "<stream name>:<line number>: <what is wrong>".
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "host/AgentHost.h"

namespace host {

// A message no longer than about `limit` bytes: a very long one (a line holding a megabyte
// of name) keeps its start and its end, which say where and what, around a note of what was
// left out. Cuts fall between UTF-8 characters.
std::string shortened(std::string message, std::size_t limit = 600);

class ChangeStream {
 public:
  struct Outputs {
    std::ostream* dump = nullptr;    // "dump" commands; null: `view`'s stream
    std::ostream* view = nullptr;    // "view" commands (and dumps without a destination)
    std::ostream* errors = nullptr;  // rejected lines
    std::ostream* changesOut = nullptr;  // the agent's writes, flushed after each line
  };
  struct Counts {
    uint64_t lines = 0;     // every line read, blank and comment lines included
    uint64_t changes = 0;   // set, merge and del applied
    uint64_t commands = 0;  // host commands run
    uint64_t rejected = 0;
  };
  enum class Outcome { skipped, applied, command, rejected, failed };

  ChangeStream(AgentHost& host, Outputs outputs, std::vector<std::string> dumpMounts);

  // One line; `error` says why when the outcome is rejected (bad line) or failed (the agent
  // could not be restarted, which ends the run).
  Outcome runLine(std::string_view line, std::string& error);

  // Every line of `in`; `name` is the stream's name in messages. Stops early at a failure, and
  // at the first rejected line when `strict`. Answers the outcome that stopped it, else applied.
  Outcome runStream(std::istream& in, const std::string& name, bool strict);

  // Writes the state of `mounts` (all, or the --dump-mount list, when empty) to the dump output.
  void dump(const std::vector<std::string>& mounts = {});
  void view();

  const Counts& counts() const { return counts_; }

 private:
  Outcome runCommand(const std::string& op, const platform::Value& line, std::string& error);

  AgentHost& host_;
  Outputs out_;
  std::vector<std::string> dumpMounts_;
  Counts counts_;
};

}  // namespace host
