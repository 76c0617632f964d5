// What must hold in the database after the agent has reacted to any line, checked on a dump
// (every mount, as JSON, the way `platform::dumpState` writes it).
//
// Each invariant is a named rule; a violation names the rule and says why, with the paths and
// values involved. The rules follow from how the agent decides (docs/mirroring.md,
// docs/tapagg.md); where a corner case is not clear-cut, a rule checks the clear cases and its
// code says what it leaves out.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace consistency {

struct Violation {
  std::string invariant;
  std::string detail;
};

class DumpView;

struct Invariant {
  const char* name;
  const char* rule;  // one line, for --help and the documentation
  void (*check)(const DumpView& dump, std::vector<std::string>& details);
};

// Every invariant: sessions, usability of sources and destinations, tap aggregation.
const std::vector<Invariant>& invariants();
const std::vector<Invariant>& mirroringInvariants();
const std::vector<Invariant>& usabilityInvariants();
const std::vector<Invariant>& tapAggInvariants();

// All violations of all invariants, in the order of `invariants()`.
std::vector<Violation> checkInvariants(const nlohmann::json& dump);

}  // namespace consistency
