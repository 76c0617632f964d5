// The generator's picture of the switch while it writes a stream: the interfaces and names it
// draws from, and the database content that later lines depend on (which sessions, sources,
// destinations, interface statuses, LAG members, VRFs and switchport records exist), so that
// every line it means to be good is one the database accepts.
#pragma once

#include <string>
#include <vector>

#include "consistency/Rng.h"
#include "consistency/Stream.h"

namespace consistency {

class GeneratorModel {
 public:
  explicit GeneratorModel(uint64_t seed) : rng(seed) {}

  // The switch and the state file (generatorSwitch.cpp).
  void makeSwitch();
  json makeSession();
  json makeSrcEntry();
  json greKey();
  json option(std::string& name);
  json switchIntfRecord(int mode);
  json leftovers();
  json plantLine();

  // Interfaces drawn so that a few of them are wanted by everyone.
  const std::string& anyEth() { return rng.pick(eths); }
  const std::string& hotEth() { return eths[rng.below(std::min<std::size_t>(3, eths.size()))]; }
  std::string srcIntf();
  std::string targetIntf();
  std::string anyIntf() { return rng.chance(75) ? anyEth() : rng.pick(pcs); }
  std::string direction() { return std::vector<std::string>{"both", "rx", "tx"}[rng.weighted({3, 5, 2})]; }
  int switchportMode() { return std::vector<int>{3, 4, 5, 0, 1, 2, 6, 7}[rng.weighted({6, 5, 5, 2, 1, 1, 1, 1})]; }

  // Database content the lines depend on; each an object (collections keyed by name).
  json& mount(const std::string& path) { return state[path]; }
  json& sessions() { return state["mirroring/config"]["session"]; }
  json& intfStatus() { return state["interface/status/eth/intf"]["intfStatus"]; }
  json& lagStatus() { return state["interface/status/eth/lag"]["intfStatus"]; }
  json& lagMembers() { return state["lag/config"]["phyIntf"]; }
  json& lagForwarding() { return state["interface/input/forwardingmodel/lag"]["forwardingModelInput"]; }
  json& vrfs() { return state["ip/vrf/status/global"]["vrf"]; }
  json& bridging() { return state["bridging/config"]["switchIntfConfig"]; }
  json& switchIntf() { return state["bridging/switchIntfConfig"]["switchIntfConfig"]; }
  json& tapAgg() { return state["tapagg/cliconfig"]; }

  // An existing key of an object, or "" when it is empty.
  std::string existingKey(const json& object);

  Rng rng;
  std::vector<std::string> eths, pcs, sessionNames, groups;
  std::vector<json> keyPool;
  json state = json::object();
};

// A change line: {"op":op,"path":path[,"value":value]}.
std::string changeLine(const char* op, const std::string& path, const json* value = nullptr);

}  // namespace consistency
