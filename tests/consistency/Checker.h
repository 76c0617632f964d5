// Runs one stream through the agent in this process, the way mirroringd does (the plug-in
// loaded by the host library, one change line at a time), and checks it:
//
// - after start-up and after every line, the invariants (not between a line that plants
//   leftovers in the agent's own mounts and the next restart);
// - every good line is accepted; every bad line is refused and changes nothing (the dump is
//   the same, the agent wrote nothing);
// - a restart over the final state writes nothing and changes nothing, and the invariants
//   hold after it;
// - restart equivalence: with a restart inserted at a line boundary, the stream ends in the
//   same state as without it (every boundary of a short stream, a seeded sample of a long
//   one; or only the restart a stream marks as under test).
//
// The run stops at the first failure it looks for.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "consistency/Stream.h"

namespace consistency {

struct Failure {
  std::string invariant;  // the rule that broke
  std::string detail;     // why: paths and values
  std::string where;      // "after line 7", "restart over the final state", ...
  // What makes two failures the same fault: the rule, and for some rules more (the kind of a
  // bad line, the text of an assertion).
  std::string signature;
  int boundary = -1;  // restart equivalence: the restart was inserted before this line
};

struct Counters {
  uint64_t streams = 0;
  uint64_t lines = 0;     // lines of the streams themselves
  uint64_t linesRun = 0;  // every line run, restart-equivalence runs included
  uint64_t restarts = 0;  // agent restarts of every kind
  Counters& operator+=(const Counters& o);
};

struct CheckOptions {
  std::string plugin;
  // A second build of the agent: when set, every stream also runs through both plug-ins, which
  // must do exactly the same (see Differential.h).
  std::string reference;
  int boundaries = 6;  // restart boundaries checked when a stream has more
  bool restartChecks = true;
  // When set, only failures with this signature count (shrinking); others are passed over.
  std::string only;
  // Failures whose signature starts with one of these are passed over (known faults, to look
  // further in an exploratory run).
  std::vector<std::string> skip;
};

struct CheckResult {
  std::optional<Failure> failure;
  Counters counters;
};

// Whether a failure counts under `o.only` and `o.skip`.
bool wanted(const Failure& f, const CheckOptions& o);

// `progress` hears where the run is (for reports of a run that dies); may be empty.
CheckResult checkStream(const Stream& s, const CheckOptions& o,
                        const std::function<void(const std::string&)>& progress);

json failureToJson(const Failure& f);
Failure failureFromJson(const json& j);
json countersToJson(const Counters& c);
Counters countersFromJson(const json& j);

}  // namespace consistency
