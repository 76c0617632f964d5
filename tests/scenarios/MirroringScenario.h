// What the mirroring scenario tests share: a small switch as a state file, sessions as JSON,
// change lines that add and delete them or flap an interface, and the fixture that runs
// mirroringd over them and dumps the agent's writable mirroring mounts.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "scenarios/ScenarioSupport.h"

namespace scenario {

// The mounts tap aggregation writes.
inline const std::vector<std::string> kTapAggMounts = {"tapagg/hwconfig", "tapagg/status", "stp/portMode/tapagg",
                                                       "interface/errdisable/cause/tapagg"};

// Change lines by path.
inline std::string setAt(const std::string& path, const Json& value) {
  return Json{{"op", "set"}, {"path", path}, {"value", value}}.dump();
}
inline std::string setMember(const std::string& path) { return Json{{"op", "set"}, {"path", path}}.dump(); }
inline std::string del(const std::string& path) { return Json{{"op", "del"}, {"path", path}}.dump(); }

inline constexpr const char* kStatus = "mirroring/status";
inline constexpr const char* kHwConfig = "mirroring/hwconfig";
inline constexpr const char* kForwardingModel = "interface/input/forwardingmodel/mirroring";
inline constexpr const char* kQuietDataLink = "intfForwardingModelQuietDataLink";

inline const Json kActive = Json::parse(R"({"state": "active", "reason": ""})");
inline Json inactive(const std::string& reason) { return Json{{"state", "inactive"}, {"reason", reason}}; }

// --- building inputs -------------------------------------------------------------------------

// A switch with Ethernet1..12 active in hardware, two port-channels, the default VRF, and a
// hardware that supports `maxSessions` sessions, port-channel and CPU destinations, one
// destination per session and no sharing of sources or destinations between sessions.
inline Json switchState(int maxSessions) {
  Json s;
  s["mirroring/hwcapability"] = {{"maxSupportedSessions", maxSessions},
                                 {"lagDestSupported", true},
                                 {"cpuDestSupported", true},
                                 {"truncationSupported", true}};
  // (No references into `s` are kept: an ordered object moves its members when it grows.)
  const Json up = {{"hwActive", true}, {"linkStatus", "linkUp"}};
  for (int i = 1; i <= 12; ++i) s["interface/status/eth/intf"]["intfStatus"]["Ethernet" + std::to_string(i)] = up;
  for (const char* lag : {"Port-Channel1", "Port-Channel2"}) {
    s["interface/status/eth/intf"]["intfStatus"][lag] = up;
    s["interface/status/eth/lag"]["intfStatus"][lag] = up;
  }
  s["ip/vrf/status/global"]["vrf"]["default"] = {{"state", "vrfStateActive"}};
  return s;
}

// A session's configuration: sources as (interface, direction), destinations by name.
inline Json session(const std::vector<std::pair<std::string, std::string>>& sources,
                    const std::vector<std::string>& targets) {
  Json s;
  s["srcIntf"] = Json::object();
  for (const auto& [intf, dir] : sources) s["srcIntf"][intf] = {{"direction", dir}};
  s["targetIntf"] = targets;
  return s;
}

// A GRE session: receive-only sources into the session's own tunnel ("Gre0") to `dst`.
inline Json greSession(const std::vector<std::string>& sources, const std::string& dst, const std::string& vrf) {
  Json s = session({}, {"Gre0"});
  for (const auto& intf : sources) s["srcIntf"][intf] = {{"direction", "rx"}};
  s["greTunnelKey"] = {{"srcIpAddr", "10.0.0.1"}, {"dstIpAddr", dst}, {"vrf", vrf}};
  return s;
}

inline std::string addSession(const std::string& name, const Json& value) {
  return Json{{"op", "set"}, {"path", "mirroring/config/session/" + name}, {"value", value}}.dump();
}
inline std::string delSession(const std::string& name) {
  return Json{{"op", "del"}, {"path", "mirroring/config/session/" + name}}.dump();
}
inline std::string setHwActive(const std::string& intf, bool active) {
  return Json{{"op", "merge"},
              {"path", "interface/status/eth/intf/intfStatus/" + intf},
              {"value", {{"hwActive", active}}}}
      .dump();
}

class MirroringScenario : public ScenarioTest {
 protected:
  // Runs mirroringd with the agent over `state` and `changes`, dumping the agent's three writable
  // mirroring mounts.
  Outcome runScenario(const Json& state, const std::vector<std::string>& changes) {
    return ScenarioTest::runScenario(state, changes, {kStatus, kHwConfig, kForwardingModel});
  }
};

}  // namespace scenario
