// Runs a stream's checks in a forked child, so that an agent that stops (an assertion, a
// signal, a sanitizer report, a hang) is reported like any other failure and the run goes on.
//
// The child sends where it is and its result through a pipe; its standard error goes to a
// file that the parent reads when the child dies, for the assertion or sanitizer text.
#pragma once

#include "consistency/Checker.h"

namespace consistency {

struct IsolationOptions {
  unsigned timeoutSeconds = 300;  // a child still running then is stopped and reported
};

// The stream's checks in a child; then, with `o.reference` set and nothing found, the
// comparison with the reference (Differential.h).
CheckResult checkIsolated(const Stream& s, const CheckOptions& o, const IsolationOptions& io = {});

using Progress = std::function<void(const std::string&)>;

struct ChildRun {
  std::optional<json> result;    // what the work answered
  std::optional<Failure> crash;  // the fault that ended the child, when it did not end cleanly
};

// Runs `work` in a forked child (which tells where it is through `progress`, may be empty).
ChildRun runIsolated(const std::function<json(const Progress&)>& work, const IsolationOptions& io);

// The fault a dead child's standard error shows: the rule ("agentAbort", "sanitizer",
// "timeout"), a signature without addresses or directories, and the telling lines.
Failure crashFailure(int waitStatus, const std::string& stderrText, const std::string& lastProgress);

}  // namespace consistency
