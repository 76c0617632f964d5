// Minimisation of a failing stream, and reproducers on disk.
//
// A failing stream is cut down while the same failure (the same signature) persists: the
// lines after the failing one go, then delta debugging removes lines, then parts of the state
// file, then members of the lines' values. A restart-equivalence failure first becomes a
// stream whose inserted restart is marked as the one under test.
#pragma once

#include <string>

#include "consistency/Checker.h"
#include "consistency/Isolated.h"

namespace consistency {

struct ShrinkOptions {
  int maxRuns = 400;
  double maxSeconds = 60;
};

struct ShrinkResult {
  Stream stream;
  Failure failure;
  int runs = 0;
};

ShrinkResult shrink(const Stream& s, const Failure& failure, const CheckOptions& o, const ShrinkOptions& so,
                    const IsolationOptions& io);

// Writes state.json, changes.jsonl, failure.txt and replay.sh (the mirroringd command line).
// `reference`: the reference plug-in a difference from it was found with.
bool writeReproducer(const std::string& dir, const Stream& s, const Failure& f, const std::string& mirroringd,
                     const std::string& reference, std::string& error);
bool readReproducer(const std::string& dir, Stream& s, std::string& error);

}  // namespace consistency
