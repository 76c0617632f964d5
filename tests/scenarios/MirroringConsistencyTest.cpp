// Faults that random churn found, each as the state file and the change stream that showed it:
// the state each ends in is one the rules allow, and restarting the agent over it changes
// nothing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "scenarios/MirroringScenario.h"

using namespace hosttest;
using namespace scenario;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

Json greKey(const std::string& src, const std::string& dst) { return {{"srcIpAddr", src}, {"dstIpAddr", dst}}; }


// The tunnels of a dump, each with the key it stands for, from both maps: they must agree.
std::map<std::string, Json> tunnels(Json dump) {
  std::map<std::string, Json> forward, reverse;
  for (const auto& [intf, key] : dump[kStatus]["greTunnelKey"].items()) forward[intf] = key;
  for (const auto& pair : dump[kStatus]["greTunnelKeyToIntfId"]) reverse[pair["value"]] = pair["key"];
  EXPECT_EQ(forward, reverse) << "the two maps mirror each other";
  return forward;
}

Json statusOf(Json dump, const std::string& session) { return dump[kStatus]["sessionStatus"][session]; }
Json hwOf(Json dump, const std::string& session) { return dump[kHwConfig]["session"][session]; }

struct Reproducer {
  std::string name;
  Json state;
  std::vector<std::string> stream;
  std::function<void(const Outcome&)> expect;
  std::vector<std::string> mounts = {kStatus, kHwConfig, kForwardingModel};
};


Json capability(int maxSessions) { return {{"maxSupportedSessions", maxSessions}}; }

std::vector<Reproducer> reproducers() {
  std::vector<Reproducer> cases;

  // The new tunnel of a changed key comes back under the released name: it must still be
  // counted, so that its last user takes it away.
  cases.push_back({"a tunnel goes with its last user after the key changed",
                   {{"mirroring/hwcapability", capability(4)}},
                   {setAt("mirroring/config/session/s",
                          {{"targetIntf", {"Gre0"}}, {"greTunnelKey", greKey("10.0.0.2", "198.51.100.1")}}),
                    setAt("mirroring/config/session/s/greTunnelKey", greKey("10.0.0.2", "2001:db8::1")), kDump,
                    del("mirroring/config/session/s")},
                   [](const Outcome& o) {
                     auto changed = tunnels(o.dumps.at(0));
                     ASSERT_EQ(changed.size(), 1u);
                     EXPECT_EQ(changed.begin()->second["dstIpAddr"], "2001:db8::1");
                     EXPECT_THAT(tunnels(o.last()), IsEmpty());
                   }});

  // An earlier run left Gre1 for b's key; a, first in name order, has a new key.
  Json leftover = {{"mirroring/hwcapability", capability(4)}};
  leftover["mirroring/config"]["session"]["a"] = {{"targetIntf", {"Gre0"}},
                                                  {"greTunnelKey", greKey("10.0.0.1", "192.0.2.20")}};
  leftover["mirroring/config"]["session"]["b"] = {{"targetIntf", {"Gre0"}},
                                                  {"greTunnelKey", greKey("10.0.0.1", "192.0.2.10")}};
  leftover["mirroring/status"] = Json::parse(R"({
      "greTunnelKey": {"Gre1": {"srcIpAddr": "10.0.0.1", "dstIpAddr": "192.0.2.10"}},
      "greTunnelKeyToIntfId": [{"key": {"srcIpAddr": "10.0.0.1", "dstIpAddr": "192.0.2.10"}, "value": "Gre1"}]})");
  cases.push_back({"a tunnel an earlier run left keeps its key and is never given to another", leftover, {},
                   [](const Outcome& o) {
                     auto t = tunnels(o.last());
                     ASSERT_EQ(t.size(), 2u);
                     EXPECT_EQ(t["Gre1"]["dstIpAddr"], "192.0.2.10");
                     EXPECT_EQ(t["Gre2"]["dstIpAddr"], "192.0.2.20");
                     EXPECT_EQ(hwOf(o.last(), "b")["targetIntf"], Json::array({"Gre1"}));
                     EXPECT_EQ(hwOf(o.last(), "a")["targetIntf"], Json::array({"Gre2"}));
                   }});

  // A tunnel's status written or withdrawn while its key is resolved takes the hardware copy
  // with it, in the session and in its forwarding-drop companion.
  const Json key = greKey("10.0.0.1", "198.51.100.1");
  cases.push_back({"a tunnel's status and the hardware copy move together",
                   {{"mirroring/hwcapability", capability(5)}},
                   {setAt("mirroring/config/session/a", {{"srcIntf", {{"Ethernet14", {{"direction", "tx"}}}}},
                                                         {"targetIntf", Json::array()},
                                                         {"greTunnelKey", key},
                                                         {"dropGreTunnelKey", key}}),
                    kDump,
                    setAt("mirroring/config/session/a",
                          {{"srcIntf", {{"Ethernet11", {{"direction", "rx"}}}}}, {"targetIntf", Json::array()}})},
                   [](const Outcome& o) {
                     const Json first = o.dumps.at(0);
                     for (const char* s : {"a", "__fwdingDrop_a"}) {
                       EXPECT_EQ(statusOf(first, s)["targetOperStatus"]["Gre1"], kActive) << s;
                       EXPECT_EQ(hwOf(first, s)["targetIntf"], Json::array({"Gre1"})) << s;
                     }
                     EXPECT_EQ(o.last()[kHwConfig]["session"], Json::object());
                     EXPECT_THAT(keys(o.last()[kStatus]["sessionStatus"]), ElementsAre("a"));
                     EXPECT_THAT(tunnels(o.last()), IsEmpty());
                   }});

  // One destination per session: the one refused for that takes over when the active one goes.
  Json oneDest = switchState(4);
  oneDest["mirroring/config"]["session"]["s"] = session({{"Ethernet1", "rx"}}, {"Ethernet2", "Ethernet3"});
  for (const auto& [how, line] :
       {std::pair{"goes down", setHwActive("Ethernet2", false)},
        std::pair{"is removed", del("mirroring/config/session/s/targetIntf/Ethernet2")}}) {
    cases.push_back({std::string("a standby destination is promoted when the active one ") + how, oneDest,
                     {kDump, line}, [](const Outcome& o) {
                       EXPECT_EQ(statusOf(o.dumps.at(0), "s")["targetOperStatus"]["Ethernet3"],
                                 inactive("Multiple ports are not supported"));
                       EXPECT_EQ(statusOf(o.last(), "s")["targetOperStatus"]["Ethernet3"], kActive);
                       EXPECT_EQ(hwOf(o.last(), "s")["targetIntf"], Json::array({"Ethernet3"}));
                     }});
  }

  // The companion's room goes to the session that waited for it.
  Json companion = switchState(2);
  companion["mirroring/config"]["session"]["a"] = session({{"Ethernet1", "rx"}}, {"Cpu"});
  companion["mirroring/config"]["session"]["a"]["dropGreTunnelKey"] = key;
  companion["mirroring/config"]["session"]["b"] = session({{"Ethernet2", "rx"}}, {"Ethernet5"});
  cases.push_back({"room freed by a companion goes to a waiting session", companion,
                   {kDump, setAt("mirroring/config/session/a/dropGreTunnelKey", Json::object())},
                   [](const Outcome& o) {
                     EXPECT_THAT(keys(o.dumps.at(0)[kStatus]["sessionStatus"]), ElementsAre("__fwdingDrop_a", "a"));
                     EXPECT_THAT(keys(o.last()[kStatus]["sessionStatus"]), ElementsAre("a", "b"));
                     EXPECT_EQ(statusOf(o.last(), "b")["targetOperStatus"]["Ethernet5"], kActive);
                   }});

  // An active source elsewhere is no destination; with hardware that allows both on one
  // interface, only a receive-only source leaves it free.
  for (const auto& [sameIntf, direction, expected] :
       {std::tuple{false, "both", inactive("Source Conflict")}, std::tuple{false, "rx", inactive("Source Conflict")},
        std::tuple{true, "tx", inactive("Source Conflict")}, std::tuple{true, "rx", kActive}}) {
    Json state = switchState(4);
    state["mirroring/hwcapability"]["sameIntfSrcAndDestSupported"] = sameIntf;
    state["mirroring/config"]["session"]["a"] = session({{"Ethernet3", direction}}, {"Ethernet5"});
    cases.push_back({std::string("a destination that is an active ") + direction + " source elsewhere" +
                         (sameIntf ? " with sameIntfSrcAndDestSupported" : ""),
                     state,
                     {addSession("s2", session({{"Ethernet1", "rx"}}, {"Ethernet3"}))},
                     [expected = expected](const Outcome& o) {
                       EXPECT_EQ(statusOf(o.last(), "a")["srcOperStatus"]["Ethernet3"], kActive);
                       EXPECT_EQ(statusOf(o.last(), "s2")["targetOperStatus"]["Ethernet3"], expected);
                     }});
  }

  // A Port-Channel configured as a source by a session refused for room still makes its members
  // no source anywhere.
  Json lagSource = switchState(1);
  lagSource["lag/config"]["phyIntf"]["Ethernet10"] = {{"lag", "Port-Channel2"}};
  lagSource["mirroring/config"]["session"]["s0"] = session({{"Ethernet10", "rx"}}, {"Ethernet5"});
  lagSource["mirroring/config"]["session"]["s5"] = session({}, {"Ethernet6"});
  cases.push_back({"a member of a Port-Channel that a waiting session mirrors is no source", lagSource,
                   {kDump, setAt("mirroring/config/session/s5/srcIntf/Port-Channel2", {{"direction", "rx"}})},
                   [](const Outcome& o) {
                     EXPECT_EQ(statusOf(o.dumps.at(0), "s0")["srcOperStatus"]["Ethernet10"], kActive);
                     EXPECT_FALSE(o.last()[kStatus]["sessionStatus"].contains("s5"));
                     EXPECT_EQ(statusOf(o.last(), "s0")["srcOperStatus"]["Ethernet10"],
                               inactive("Member of a source LAG"));
                   }});

  // A shared destination that joined a Port-Channel is kept only while another session vouches
  // for it.
  Json shared = switchState(4);
  shared["mirroring/hwcapability"]["multiSessionForDestSupported"] = true;
  shared["mirroring/config"]["session"]["s1"] = session({{"Ethernet1", "rx"}}, {"Ethernet5"});
  shared["mirroring/config"]["session"]["s2"] = session({{"Ethernet2", "rx"}}, {"Ethernet5"});
  cases.push_back({"a shared destination that joined a Port-Channel goes with its last other user", shared,
                   {setAt("lag/config/phyIntf/Ethernet5", {{"lag", "Port-Channel2"}}), kDump, delSession("s2")},
                   [](const Outcome& o) {
                     EXPECT_EQ(statusOf(o.dumps.at(0), "s1")["targetOperStatus"]["Ethernet5"], kActive);
                     EXPECT_EQ(statusOf(o.last(), "s1")["targetOperStatus"]["Ethernet5"],
                               inactive("Interface Mode Conflict"));
                     EXPECT_EQ(o.last()[kForwardingModel]["forwardingModelInput"], Json::object());
                     EXPECT_FALSE(o.last()[kHwConfig]["session"].contains("s1"));
                   }});

  // Hardware session ids are 8 bits wide: a limit beyond them leaves the rest without room.
  Json many = {{"mirroring/hwcapability", capability(257)}};
  for (int i = 0; i < 257; ++i) {
    char name[8];
    std::snprintf(name, sizeof name, "s%03d", i);
    many["mirroring/config"]["session"][name] = session({}, {});
  }
  cases.push_back({"sessions beyond the id space are refused like any other lack of room", many, {},
                   [](const Outcome& o) {
                     EXPECT_EQ(o.last()[kStatus]["sessionStatus"].size(), 256u);
                     EXPECT_FALSE(o.last()[kStatus]["sessionStatus"].contains("s256"));
                     ASSERT_EQ(o.syslog.size(), 1u);
                     EXPECT_EQ(o.syslog[0]["key"], "MIRRORING_NOSESSIONGROUPS");
                   }});

  // What an earlier run, or a damaged store, left: an id the table does not have, and one id
  // on two hardware sessions. The leftovers are stale: their ids are not reused.
  Json damaged = switchState(4);
  for (const auto& [name, id] : {std::pair{"x", 200}, std::pair{"y", 1}, std::pair{"z", 1}}) {
    damaged["mirroring/config"]["session"][name] = session({{"Ethernet1", "rx"}}, {"Cpu"});
    damaged["mirroring/hwconfig"]["session"][name] = {{"sessionId", id}, {"targetIntf", {"Cpu"}}};
    damaged["mirroring/status"]["sessionStatus"][name] = Json::object();
  }
  damaged["mirroring/hwconfig"]["session"]["gone"] = {{"sessionId", 3}, {"targetIntf", {"Cpu"}}};
  damaged["mirroring/hwcapability"]["multiSessionForSourceSupported"] = true;
  damaged["mirroring/hwcapability"]["multiSessionForDestSupported"] = true;
  cases.push_back({"damaged leftover hardware sessions are stale", damaged, {}, [](const Outcome& o) {
                     std::set<int> ids;
                     const Json hw = o.last()[kHwConfig]["session"];
                     for (const auto& [name, session] : hw.items()) ids.insert(session["sessionId"].get<int>());
                     EXPECT_EQ(ids.size(), 3u) << o.last()[kHwConfig]["session"].dump();
                     EXPECT_FALSE(ids.count(200));
                     EXPECT_EQ(hwOf(o.last(), "y")["sessionId"], 1) << "the first claim of an id keeps it";
                     EXPECT_THAT(keys(o.last()[kHwConfig]["session"]), ElementsAre("x", "y", "z"));
                   }});
  // The session a smaller limit squeezes out lets go of what it held, also a Port-Channel
  // member whose sessions are reviewed on its way out.
  Json squeezed = switchState(2);
  squeezed["lag/config"]["phyIntf"]["Ethernet1"] = {{"lag", "Port-Channel1"}};
  cases.push_back({"a session squeezed out by a smaller limit lets go of its interfaces", squeezed,
                   {addSession("b", session({}, {"Ethernet6"})),
                    addSession("a", session({{"Ethernet1", "both"}}, {"Ethernet5"})),
                    setAt("mirroring/config/session/b/srcIntf/Ethernet1", {{"direction", "rx"}}), kDump,
                    setAt("mirroring/hwcapability/maxSupportedSessions", 1)},
                   [](const Outcome& o) {
                     EXPECT_EQ(statusOf(o.dumps.at(0), "b")["srcOperStatus"]["Ethernet1"], inactive("Source Conflict"));
                     EXPECT_THAT(keys(o.last()[kStatus]["sessionStatus"]), ElementsAre("b"));
                     EXPECT_EQ(statusOf(o.last(), "b")["srcOperStatus"]["Ethernet1"], kActive);
                   }});

  // A tunnel target without a key to resolve has nothing to be decided on: no status, no copy.
  // Then a drop key without a destination address reaches the copy like any key change.
  cases.push_back({"a tunnel target waits for its key", {{"mirroring/hwcapability", capability(4)}},
                   {addSession("s", session({}, {"Gre0"})), kDump,
                    setAt("mirroring/config/session/s/greTunnelKey", key),
                    setAt("mirroring/config/session/s/dropGreTunnelKey", {{"dstIpAddr", "0.0.0.0"}})},
                   [](const Outcome& o) {
                     EXPECT_EQ(statusOf(o.dumps.at(0), "s")["targetOperStatus"], Json::object());
                     EXPECT_EQ(o.dumps.at(0)[kHwConfig]["session"], Json::object());
                     EXPECT_EQ(statusOf(o.last(), "s")["targetOperStatus"]["Gre0"], kActive);
                     EXPECT_EQ(hwOf(o.last(), "s")["dropGreTunnelKey"]["dstIpAddr"], "0.0.0.0");
                   }});

  // Tunnels are not ports: on one-destination hardware they neither hold the session's port
  // nor let a second one in; and a restart finds the same.
  Json tunnelAndPorts = switchState(4);
  tunnelAndPorts["mirroring/config"]["session"]["s"] = session({}, {"Cpu", "Ethernet2"});
  tunnelAndPorts["mirroring/config"]["session"]["s"]["greTunnelKey"] = key;
  cases.push_back({"tunnels do not count against the one port", tunnelAndPorts,
                   {setMember("mirroring/config/session/s/targetIntf/Gre0")}, [](const Outcome& o) {
                     const Json targets = statusOf(o.last(), "s")["targetOperStatus"];
                     EXPECT_EQ(targets["Cpu"], kActive);
                     EXPECT_EQ(targets["Ethernet2"], inactive("Multiple ports are not supported"));
                     EXPECT_EQ(targets["Gre0"], kActive);
                   }});

  // A shared destination seen by several sessions at start-up keeps its forwarding model: the
  // walk of the sessions takes nothing away that a later one holds.
  Json sharedGre = switchState(4);
  sharedGre["mirroring/config"]["session"]["s1"] = greSession({}, "192.0.2.1", "blue");
  sharedGre["mirroring/config"]["session"]["s2"] = greSession({}, "192.0.2.1", "default");
  cases.push_back({"a restart does not flap a shared forwarding model", sharedGre, {}, [](const Outcome& o) {
                     EXPECT_EQ(statusOf(o.last(), "s1")["targetOperStatus"]["Gre0"],
                               inactive("VRF blue is not configured."));
                     EXPECT_EQ(o.last()[kForwardingModel]["forwardingModelInput"]["Gre0"], kQuietDataLink);
                   }});

  // The forwarding-drop companion holds copies of its parent's destinations: they follow the
  // interface as the parent's do.
  Json companionCopies = switchState(4);
  companionCopies["mirroring/hwcapability"]["multiSessionForDestSupported"] = true;
  companionCopies["mirroring/config"]["session"]["s"] = session({}, {"Ethernet1"});
  companionCopies["mirroring/config"]["session"]["s"]["dropGreTunnelKey"] = key;
  cases.push_back({"a companion's copies of its parent's destinations follow the interface", companionCopies,
                   {kDump, setAt("lag/config/phyIntf/Ethernet1", {{"lag", "Port-Channel2"}})}, [](const Outcome& o) {
                     EXPECT_EQ(statusOf(o.dumps.at(0), "__fwdingDrop_s")["targetOperStatus"]["Ethernet1"], kActive);
                     for (const char* s : {"s", "__fwdingDrop_s"}) {
                       EXPECT_EQ(statusOf(o.last(), s)["targetOperStatus"]["Ethernet1"],
                                 inactive("Interface Mode Conflict"))
                           << s;
                     }
                     EXPECT_FALSE(o.last()[kForwardingModel]["forwardingModelInput"].contains("Ethernet1"));
                   }});

  // Where one interface may be a source and a destination, a receive-only source elsewhere
  // lifts only that conflict: sharing a destination, and a Port-Channel member, are refused.
  Json sameIntf = switchState(4);
  sameIntf["mirroring/hwcapability"]["sameIntfSrcAndDestSupported"] = true;
  sameIntf["lag/config"]["phyIntf"]["Ethernet2"] = {{"lag", "Port-Channel1"}};
  sameIntf["mirroring/config"]["session"]["a"] = session({{"Ethernet1", "rx"}, {"Ethernet2", "rx"}}, {"Ethernet5"});
  cases.push_back({"a receive-only source lifts only the source conflict", sameIntf,
                   {addSession("b", session({}, {"Ethernet1"})), addSession("c", session({}, {"Ethernet1"})),
                    addSession("d", session({}, {"Ethernet2"}))},
                   [](const Outcome& o) {
                     EXPECT_EQ(statusOf(o.last(), "b")["targetOperStatus"]["Ethernet1"], kActive);
                     EXPECT_EQ(statusOf(o.last(), "c")["targetOperStatus"]["Ethernet1"],
                               inactive("Destination Conflict"));
                     EXPECT_EQ(statusOf(o.last(), "d")["targetOperStatus"]["Ethernet2"],
                               inactive("Interface Mode Conflict"));
                   }});

  // A session with no active destination has no hardware copy, but an id all the same: a
  // restart must not give it another one (nor another device name).
  Json noCopy = switchState(4);
  noCopy["mirroring/config"]["session"]["a"] = session({{"Ethernet1", "rx"}}, {"Ethernet5"});
  noCopy["mirroring/config"]["session"]["b"] = session({{"Ethernet2", "rx"}}, {"Ethernet6"});
  noCopy["mirroring/config"]["session"]["c"] = session({{"Ethernet3", "rx"}}, {"Ethernet7"});
  noCopy["interface/status/eth/intf"]["intfStatus"]["Ethernet6"]["hwActive"] = false;
  cases.push_back({"a session without a hardware copy keeps its id", noCopy, {delSession("a")},
                   [](const Outcome& o) {
                     EXPECT_FALSE(o.last()[kHwConfig]["session"].contains("b"));
                     EXPECT_EQ(statusOf(o.last(), "b")["sessionId"], 1);
                     EXPECT_EQ(statusOf(o.last(), "b")["mirrorDeviceName"], "mirror1");
                   }});
  // The companion's GRE targets stand for its own (drop) tunnel: judged by the drop key's VRF,
  // and its copy follows its parent's keys.
  Json companionGre = {{"mirroring/hwcapability", capability(4)}};
  companionGre["mirroring/config"]["session"]["s"] = {
      {"targetIntf", {"Gre0"}},
      {"greTunnelKey", greKey("10.0.0.1", "192.0.2.2")},
      {"dropGreTunnelKey", {{"dstIpAddr", "2001:db8::99"}, {"vrf", "red"}}}};
  cases.push_back({"a companion's tunnel targets follow its own tunnel", companionGre,
                   {setAt("mirroring/config/session/s/greTunnelKey", greKey("10.0.0.1", "192.0.2.3"))},
                   [](const Outcome& o) {
                     const Json companion = statusOf(o.last(), "__fwdingDrop_s");
                     EXPECT_EQ(companion["targetOperStatus"]["Gre0"], inactive("VRF red is not configured."));
                     EXPECT_FALSE(o.last()[kHwConfig]["session"].contains("__fwdingDrop_s"));
                     EXPECT_EQ(hwOf(o.last(), "s")["greTunnelKey"]["dstIpAddr"], "192.0.2.3");
                   }});

  // A smaller limit: the session squeezed out takes its companion along, and the room left is
  // given again; ids beyond the limit are given up for the lowest free ones, as a restart
  // would; a device name the hardware withdrew stays withdrawn.
  Json shrink = {{"mirroring/hwcapability", capability(3)}};
  shrink["mirroring/config"]["session"]["s3"] = session({}, {});
  cases.push_back({"a smaller limit keeps no companion without its session", shrink,
                   {addSession("s2", session({}, {})), delSession("s3"),
                    setAt("mirroring/config/session/s2/dropGreTunnelKey", {{"dstIpAddr", "2001:db8::99"}}),
                    setAt("mirroring/hwcapability/maxSupportedSessions", 1)},
                   [](const Outcome& o) {
                     EXPECT_THAT(keys(o.last()[kStatus]["sessionStatus"]), ElementsAre("s2"));
                     EXPECT_EQ(statusOf(o.last(), "s2")["sessionId"], 0);
                   }});
  Json renumber = {{"mirroring/hwcapability", capability(8)}};
  for (const char* name : {"s1", "s2", "s3"}) renumber["mirroring/config"]["session"][name] = session({}, {});
  cases.push_back({"ids beyond a smaller limit are given up", renumber,
                   {delSession("s1"), delSession("s2"), setAt("mirroring/hwcapability/maxSupportedSessions", 1),
                    setAt("mirroring/hwstatus/mirrorDeviceName/s3", "mon2"), del("mirroring/hwstatus/mirrorDeviceName/s3")},
                   [](const Outcome& o) {
                     EXPECT_EQ(statusOf(o.last(), "s3")["sessionId"], 0);
                     EXPECT_EQ(statusOf(o.last(), "s3")["mirrorDeviceName"], "");
                   }});

  // A companion's one-port rule counts its parent's active destinations: the parent's Cpu
  // losing its place decides the companion's refused copies again.
  Json parentCount = Json::parse(R"({"mirroring/hwcapability": {"cpuDestSupported": true, "maxSupportedSessions": 2}})");
  Json dropOnly = session({}, {"Ethernet2", "Port-Channel1"});
  dropOnly["dropGreTunnelKey"] = {{"dstIpAddr", "198.51.100.7"}};
  cases.push_back({"a companion's refused copies follow its parent's active destinations", parentCount,
                   {addSession("s3", dropOnly), setMember("mirroring/config/session/s3/targetIntf/Cpu"),
                    setAt("mirroring/hwcapability/cpuDestSupported", false)},
                   [](const Outcome& o) {
                     EXPECT_EQ(statusOf(o.last(), "__fwdingDrop_s3")["targetOperStatus"]["Ethernet2"],
                               inactive("Interface Mode Conflict"));
                   }});

  // Tap aggregation. A port that becomes a mirror destination while out of the hardware (a
  // LAG member) says so in its groups, as a start-up would.
  const Json destOutOfHw = Json::parse(R"({
      "bridging/config": {"switchIntfConfig": {"Ethernet3": {"switchportMode": "switchportModeTap"}}},
      "bridging/switchIntfConfig": {"switchIntfConfig": {"Ethernet3": {"tapGroup": ["g2"]}}},
      "interface/input/forwardingmodel/lag": {"forwardingModelInput": {"Ethernet3": "intfForwardingModelLagMember"}},
      "interface/status/eth/intf": {"intfStatus": {"Ethernet3": {"hwActive": true}}},
      "lag/config": {"phyIntf": {"Ethernet3": {"lag": "Port-Channel1"}}},
      "mirroring/config": {"session": {"s1": {"targetIntf": ["Ethernet3"]}}},
      "mirroring/hwcapability": {"maxSupportedSessions": 4},
      "tapagg/cliconfig": {"mode": "tapAggModeExclusive"}})");
  cases.push_back({"a tap port out of the hardware that becomes a mirror destination says so", destOutOfHw,
                   {del("lag/config/phyIntf/Ethernet3")},
                   [](const Outcome& o) {
                     EXPECT_EQ(o.last()["tapagg/status"]["group"]["g2"]["tapPort"]["Ethernet3"]["reason"],
                               "Link unknown,Lag member,Mirror destination,");
                   },
                   kTapAggMounts});

  // A port whose interface status goes is judged as one that never had it; and one whose
  // switchport record goes takes every role with it, also one an earlier mode left behind.
  const Json ports = Json::parse(R"({
      "bridging/config": {"switchIntfConfig": {"Ethernet1": {"switchportMode": "switchportModeTapTool"},
                                               "Ethernet4": {"switchportMode": "switchportModeTap"}}},
      "bridging/switchIntfConfig": {"switchIntfConfig": {"Ethernet1": {"toolGroup": ["g3"]},
                                                         "Ethernet4": {"tapGroup": ["g2"], "toolGroup": ["g4"]}}},
      "interface/status/eth/intf": {"intfStatus": {"Ethernet1": {}, "Ethernet4": {}}}})");
  cases.push_back({"tap and tool ports whose status or switchport record goes", ports,
                   {setAt("tapagg/cliconfig/mode", "tapAggModeExclusive"),
                    del("interface/status/eth/intf/intfStatus/Ethernet1"),
                    setAt("bridging/config/switchIntfConfig/Ethernet4", {{"switchportMode", "switchportModeTool"}}),
                    del("bridging/config/switchIntfConfig/Ethernet4")},
                   [](const Outcome& o) {
                     const Json groups = o.last()["tapagg/status"]["group"];
                     EXPECT_EQ(groups["g3"]["toolPort"]["Ethernet1"]["reason"], "Interface status not found,");
                     EXPECT_THAT(keys(groups), ElementsAre("g3"));
                     EXPECT_EQ(o.last()["tapagg/hwconfig"]["tapPort"], Json::object());
                   },
                   kTapAggMounts});

  // A member is judged by its Port-Channel's switchport mode also while the Port-Channel has
  // no status.
  const Json member = Json::parse(R"({
      "interface/status/eth/intf": {"intfStatus": {"Ethernet2": {}}},
      "lag/config": {"phyIntf": {"Ethernet2": {"lag": "Port-Channel2"}}}})");
  cases.push_back({"a member follows its Port-Channel's switchport mode", member,
                   {setAt("bridging/config/switchIntfConfig/Ethernet2", Json::object()),
                    setAt("bridging/config/switchIntfConfig/Port-Channel2", {{"switchportMode", 5}}),
                    del("bridging/config/switchIntfConfig/Ethernet2")},
                   [](const Outcome& o) {
                     EXPECT_THAT(keys(o.last()["interface/errdisable/cause/tapagg"]["intfStatus"]),
                                 ElementsAre("Ethernet2"));
                   },
                   kTapAggMounts});

  // A group a port left while in another mode loses it when the role goes or comes back: the
  // tool port of g1 turned tap, moved to g2 and g3, then tool again or tap aggregation off.
  const Json leftGroup = Json::parse(R"({
      "bridging/config": {"switchIntfConfig": {"Ethernet2": {"switchportMode": "switchportModeTapTool"}}},
      "bridging/switchIntfConfig": {"switchIntfConfig": {"Ethernet2": {"toolGroup": ["g1", "g3"]}}},
      "tapagg/cliconfig": {"mode": "tapAggModeExclusive"}})");
  for (const char* last : {"switchportModeTool", "off"}) {
    const std::string final = std::string(last) == "off"
                                  ? setAt("tapagg/cliconfig/mode", "tapAggModeOff")
                                  : setAt("bridging/config/switchIntfConfig/Ethernet2", {{"switchportMode", last}});
    cases.push_back({std::string("a group the tool port left while tap, then ") + last, leftGroup,
                     {setAt("bridging/config/switchIntfConfig/Ethernet2", {{"switchportMode", "switchportModeTap"}}),
                      setAt("bridging/switchIntfConfig/switchIntfConfig/Ethernet2/toolGroup", Json{"g2", "g3"}), final},
                     [off = std::string(last) == "off"](const Outcome& o) {
                       const Json groups = o.last()["tapagg/status"]["group"];
                       const std::vector<std::string> left = off ? std::vector<std::string>{}
                                                                 : std::vector<std::string>{"g2", "g3"};
                       EXPECT_EQ(keys(groups), left);
                     },
                     kTapAggMounts});
  }

  // A tap-and-tool port that a tap port passes on raw stays out of the hardware while it is a
  // mirror destination; either record of the tap port going frees it, coming back takes it.
  const Json rawUser = Json::parse(R"({
      "bridging/config": {"switchIntfConfig": {"Ethernet1": {"switchportMode": "switchportModeTap"},
                                               "Ethernet2": {"switchportMode": "switchportModeTapTool"}}},
      "bridging/switchIntfConfig": {"switchIntfConfig": {"Ethernet1": {"tapRawIntf": {"Ethernet2": true}},
                                                         "Ethernet2": {}}},
      "interface/status/eth/intf": {"intfStatus": {"Ethernet2": {"hwActive": true}}},
      "mirroring/config": {"session": {"s1": {"targetIntf": ["Ethernet2"]}}},
      "mirroring/hwcapability": {"maxSupportedSessions": 2},
      "tapagg/cliconfig": {"mode": "tapAggModeExclusive"}})");
  for (const auto& [mount, record] : {std::pair{"bridging/config", "switchIntfConfig"},
                                      std::pair{"bridging/switchIntfConfig", "switchIntfConfig"}}) {
    const std::string path = std::string(mount) + "/" + record + "/Ethernet1";
    cases.push_back({"the raw interface of a tap port whose " + std::string(mount) + " record goes and comes back",
                     rawUser,
                     {del(path), kDump, setAt(path, rawUser[mount][record]["Ethernet1"])},
                     [](const Outcome& o) {
                       EXPECT_TRUE(o.dumps.at(0)["tapagg/hwconfig"]["tapPort"].contains("Ethernet2"));
                       EXPECT_FALSE(o.last()["tapagg/hwconfig"]["tapPort"].contains("Ethernet2"));
                     },
                     kTapAggMounts});
  }

  // A tap port that lists itself as a raw interface goes as any other when its groups go.
  for (const char* mode : {"switchportModeTap", "switchportModeTapTool"}) {
    Json selfRaw = Json::parse(R"({
        "bridging/switchIntfConfig": {"switchIntfConfig": {"Ethernet4": {"tapRawIntf": {"Ethernet4": true}}}},
        "interface/status/eth/intf": {"intfStatus": {"Ethernet4": {}}},
        "tapagg/cliconfig": {"mode": "tapAggModeExclusive"}})");
    selfRaw["bridging/config"]["switchIntfConfig"]["Ethernet4"]["switchportMode"] = mode;
    cases.push_back({std::string("a tap port that is its own raw interface, ") + mode, selfRaw,
                     {del("bridging/switchIntfConfig/switchIntfConfig/Ethernet4")},
                     [](const Outcome& o) {
                       EXPECT_EQ(o.last()["tapagg/hwconfig"]["tapPort"], Json::object());
                       EXPECT_EQ(o.last()["stp/portMode/tapagg"]["portMode"], Json::object());
                     },
                     kTapAggMounts});
  }

  // A role a mode change left behind is no role of the port: a mirror destination takes it out
  // of the hardware, and a restart sweeps its groups instead of confirming them.
  const Json leftRole = Json::parse(R"({
      "bridging/config": {"switchIntfConfig": {"Port-Channel2": {"switchportMode": "switchportModeTapTool"}}},
      "bridging/switchIntfConfig": {"switchIntfConfig": {"Port-Channel2": {"tapGroup": ["g3"]}}},
      "interface/status/eth/intf": {"intfStatus": {"Port-Channel2": {"hwActive": true}}},
      "mirroring/hwcapability": {"lagDestSupported": true, "maxSupportedSessions": 3},
      "tapagg/cliconfig": {"mode": "tapAggModeExclusive"}})");
  cases.push_back({"a role left behind on a port that is a mirror destination", leftRole,
                   {addSession("s3", session({}, {"Cpu", "Port-Channel2"})),
                    setAt("bridging/config/switchIntfConfig/Port-Channel2", {{"switchportMode", "switchportModeTool"}}),
                    kRestart},
                   [](const Outcome& o) {
                     EXPECT_EQ(o.last()["tapagg/status"]["group"], Json::object());
                     EXPECT_EQ(o.last()["tapagg/hwconfig"]["tapPort"], Json::object());
                   },
                   kTapAggMounts});

  // And the members of a Port-Channel whose switchport record goes are judged by what it is
  // now (tap aggregation is off: a tap-and-tool Port-Channel disables its members).
  const Json memberOfGone = Json::parse(R"({
      "bridging/config": {"switchIntfConfig": {"Port-Channel1": {"switchportMode": "switchportModeTapTool"}}},
      "interface/status/eth/intf": {"intfStatus": {"Ethernet3": {}}},
      "lag/config": {"phyIntf": {"Ethernet3": {"lag": "Port-Channel1"}}}})");
  cases.push_back({"members of a Port-Channel whose switchport record goes", memberOfGone,
                   {kDump, del("bridging/config/switchIntfConfig/Port-Channel1")},
                   [](const Outcome& o) {
                     EXPECT_THAT(keys(o.dumps.at(0)["interface/errdisable/cause/tapagg"]["intfStatus"]),
                                 ElementsAre("Ethernet3"));
                     EXPECT_THAT(keys(o.last()["interface/errdisable/cause/tapagg"]["intfStatus"]), IsEmpty());
                   },
                   kTapAggMounts});

  // Only an interface that exists is errdisabled, also after a mode change.
  const Json noStatus = Json::parse(R"({
      "bridging/config": {"switchIntfConfig": {"Port-Channel2": {}, "Ethernet5": {}}},
      "interface/status/eth/intf": {"intfStatus": {"Ethernet5": {"hwActive": true}}}})");
  cases.push_back({"an interface without a status is not errdisabled", noStatus,
                   {setAt("tapagg/cliconfig/mode", "tapAggModeExclusive")},
                   [](const Outcome& o) {
                     EXPECT_THAT(keys(o.last()["interface/errdisable/cause/tapagg"]["intfStatus"]),
                                 ElementsAre("Ethernet5"));
                   },
                   kTapAggMounts});
  return cases;
}

TEST_F(MirroringScenario, EachFaultChurnFoundEndsInAStateTheRulesAllowAndARestartKeeps) {
  for (const auto& c : reproducers()) {
    SCOPED_TRACE(c.name);
    Outcome o = ScenarioTest::runScenario(c.state, c.stream, c.mounts);
    try {
      c.expect(o);
    } catch (const std::exception& e) {
      ADD_FAILURE() << e.what();
    }
    // The same stream, then a restart: the restart writes nothing and changes nothing.
    std::vector<std::string> thenRestart = c.stream;
    thenRestart.push_back(kRestart);
    Outcome r = ScenarioTest::runScenario(c.state, thenRestart, c.mounts);
    EXPECT_EQ(r.last(), o.last());
    EXPECT_EQ(r.out.size(), o.out.size()) << "the restart wrote " << (r.out.size() > o.out.size() ? r.out.back() : Json());
  }
}

}  // namespace
