// The checker catches faults: hand-made dumps, each breaking one rule, must each be reported
// by the named invariant; the consistent dump they start from must pass every rule.
#include <gtest/gtest.h>

#include <functional>

#include "consistency/Invariants.h"
#include "consistency/StateDiff.h"

namespace consistency {
namespace {

json key(const std::string& dst, const std::string& vrf = "default") {
  return {{"srcIpAddr", dst.empty() ? "" : "10.0.0.1"},
          {"dstIpAddr", dst},
          {"ttl", 128},
          {"tos", 0},
          {"greProto", 35006},
          {"greKey", 0},
          {"vrf", vrf}};
}
json active() { return {{"state", "active"}, {"reason", ""}}; }
json inactive(const std::string& why) { return {{"state", "inactive"}, {"reason", why}}; }
json up() { return {{"hwActive", true}, {"linkStatus", "linkUp"}}; }
const char* kQuiet = "intfForwardingModelQuietDataLink";

// s1 mirrors Ethernet1 (rx) to Ethernet2; s2 mirrors Ethernet3 (rx) to a GRE tunnel, Gre1;
// Ethernet4 is a tap port of group g1, in exclusive mode.
json consistentDump() {
  return {
      {"mirroring/hwcapability", {{"maxSupportedSessions", 4}, {"cpuDestSupported", true}, {"lagDestSupported", true}}},
      {"interface/status/eth/intf",
       {{"intfStatus",
         {{"Ethernet1", up()},
          {"Ethernet2", up()},
          {"Ethernet3", up()},
          {"Ethernet4", up()},
          {"Ethernet5", up()},
          {"Port-Channel1", up()}}}}},
      {"ip/vrf/status/global", {{"vrf", {{"default", {{"state", "vrfStateActive"}}}}}}},
      {"mirroring/config",
       {{"session",
         {{"s1",
           {{"srcIntf", {{"Ethernet1", {{"direction", "rx"}}}}},
            {"targetIntf", {"Ethernet2"}},
            {"greTunnelKey", key("")},
            {"dropGreTunnelKey", key("")}}},
          {"s2",
           {{"srcIntf", {{"Ethernet3", {{"direction", "rx"}}}}},
            {"targetIntf", {"Gre0"}},
            {"greTunnelKey", key("192.0.2.1")},
            {"dropGreTunnelKey", key("")}}}}}}},
      {"mirroring/status",
       {{"sessionStatus",
         {{"s1", {{"srcOperStatus", {{"Ethernet1", active()}}}, {"targetOperStatus", {{"Ethernet2", active()}}}}},
          {"s2",
           {{"srcOperStatus", {{"Ethernet3", active()}}},
            {"targetOperStatus", {{"Gre0", active()}, {"Gre1", active()}}}}}}},
        {"greTunnelKey", {{"Gre1", key("192.0.2.1")}}},
        {"greTunnelKeyToIntfId", {{{"key", key("192.0.2.1")}, {"value", "Gre1"}}}}}},
      {"mirroring/hwconfig",
       {{"session",
         {{"s1",
           {{"sessionId", 0}, {"srcIntf", {{"Ethernet1", {{"direction", "rx"}}}}}, {"targetIntf", {"Ethernet2"}}}},
          {"s2", {{"sessionId", 1}, {"srcIntf", {{"Ethernet3", {{"direction", "rx"}}}}}, {"targetIntf", {"Gre1"}}}}}}}},
      {"interface/input/forwardingmodel/mirroring",
       {{"forwardingModelInput", {{"Ethernet2", kQuiet}, {"Gre0", kQuiet}, {"Gre1", kQuiet}}}}},
      {"tapagg/cliconfig", {{"mode", "tapAggModeExclusive"}, {"trafficSteeringMacAclMatchIp", false}}},
      {"tapagg/hwconfig",
       {{"mirroringRunnability", true},
        {"trafficSteeringMacAclMatchIp", false},
        {"tapPort", {{"Ethernet4", "bridging/switchIntfConfig/switchIntfConfig/Ethernet4"}}},
        {"toolPort", json::object()},
        {"slice", json::object()}}},
      {"bridging/config", {{"switchIntfConfig", {{"Ethernet4", {{"switchportMode", "switchportModeTap"}}}}}}},
      {"bridging/switchIntfConfig",
       {{"switchIntfConfig",
         {{"Ethernet4",
           {{"switchportMode", "switchportModeTap"}, {"tapGroup", {"g1"}}, {"toolGroup", json::array()}}}}}}},
      {"tapagg/status",
       {{"group",
         {{"g1", {{"tapPort", {{"Ethernet4", {{"active", true}, {"reason", ""}}}}}, {"toolPort", json::object()}}}}}}},
      {"stp/portMode/tapagg", {{"portMode", {{"Ethernet4", "portModeTapAgg"}}}}},
  };
}

struct Case {
  const char* fault;
  const char* invariant;
  std::function<void(json&)> breakIt;
};

json& status(json& d, const char* s) { return d["mirroring/status"]["sessionStatus"][s]; }
json& config(json& d, const char* s) { return d["mirroring/config"]["session"][s]; }

const std::vector<Case>& cases() {
  static const std::vector<Case> list = {
      {"a leaked tunnel", "greTunnelsForKeys",
       [](json& d) {
         d["mirroring/status"]["greTunnelKey"]["Gre2"] = key("192.0.2.2");
         d["mirroring/status"]["greTunnelKeyToIntfId"].push_back({{"key", key("192.0.2.2")}, {"value", "Gre2"}});
       }},
      {"a session's key without a tunnel", "greTunnelsForKeys",
       [](json& d) { config(d, "s1")["dropGreTunnelKey"] = key("192.0.2.7"); }},
      {"two keys on one tunnel", "greMapsMirror",
       [](json& d) {
         d["mirroring/status"]["greTunnelKeyToIntfId"].push_back({{"key", key("192.0.2.2")}, {"value", "Gre1"}});
       }},
      {"a tunnel beyond Gre64", "greMapsMirror",
       [](json& d) {
         d["mirroring/status"]["greTunnelKey"]["Gre65"] = key("192.0.2.1", "blue");
         d["mirroring/status"]["greTunnelKeyToIntfId"].push_back(
             {{"key", key("192.0.2.1", "blue")}, {"value", "Gre65"}});
       }},
      {"a hardware session without an active destination", "hwSessionHasActiveDestination",
       [](json& d) { status(d, "s1")["targetOperStatus"]["Ethernet2"] = inactive("Interface Mode Conflict"); }},
      {"a hardware session without a status", "hwSessionHasActiveDestination",
       [](json& d) {
         d["mirroring/hwconfig"]["session"]["s9"] = {{"sessionId", 5}, {"targetIntf", {"Cpu"}}};
       }},
      {"an active session without hardware session", "activeSessionProgrammed",
       [](json& d) { d["mirroring/hwconfig"]["session"].erase("s2"); }},
      {"an inactive source in hardware", "hwSourcesActive",
       [](json& d) { status(d, "s1")["srcOperStatus"]["Ethernet1"] = inactive("Source Conflict"); }},
      {"a hardware tunnel that is not the session's", "hwTargetsActive",
       [](json& d) { d["mirroring/hwconfig"]["session"]["s2"]["targetIntf"] = {"Gre2"}; }},
      {"two hardware sessions with one id", "hwSessionIds",
       [](json& d) { d["mirroring/hwconfig"]["session"]["s2"]["sessionId"] = 0; }},
      {"a hardware copy with another id than its status", "hwSessionIds",
       [](json& d) { status(d, "s2")["sessionId"] = 3; }},
      {"two statuses with one id", "hwSessionIds",
       [](json& d) {
         status(d, "s1")["sessionId"] = 0;
         status(d, "s2")["sessionId"] = 0;
         d["mirroring/hwconfig"]["session"].erase("s2");
       }},
      {"a forwarding-model entry for an inactive port", "forwardingModel",
       [](json& d) { d["interface/input/forwardingmodel/mirroring"]["forwardingModelInput"]["Ethernet3"] = kQuiet; }},
      {"an active destination without forwarding model", "forwardingModel",
       [](json& d) { d["interface/input/forwardingmodel/mirroring"]["forwardingModelInput"].erase("Ethernet2"); }},
      {"a status of an unconfigured session", "statusesForConfiguredSessions",
       [](json& d) {
         status(d, "s9") = {{"srcOperStatus", json::object()}};
       }},
      {"a companion without a drop key", "statusesForConfiguredSessions",
       [](json& d) {
         status(d, "__fwdingDrop_s1") = {{"srcOperStatus", json::object()}};
       }},
      {"more statuses than the limit", "sessionLimit",
       [](json& d) { d["mirroring/hwcapability"]["maxSupportedSessions"] = 1; }},
      {"a session waiting while there is room", "noIdleRoom",
       [](json& d) {
         config(d, "s3") = {{"targetIntf", {"Cpu"}}};
       }},
      {"one source active in two sessions", "sourceConflict",
       [](json& d) {
         config(d, "s2")["srcIntf"]["Ethernet1"] = {{"direction", "both"}};
         status(d, "s2")["srcOperStatus"]["Ethernet1"] = active();
       }},
      {"one destination active in two sessions", "destinationConflict",
       [](json& d) {
         config(d, "s3") = {{"targetIntf", {"Ethernet2"}}};
         status(d, "s3") = {{"targetOperStatus", {{"Ethernet2", active()}}}};
       }},
      {"a destination that is an active source elsewhere", "sourceIsDestination",
       [](json& d) {
         config(d, "s2")["srcIntf"]["Ethernet2"] = {{"direction", "rx"}};
         status(d, "s2")["srcOperStatus"]["Ethernet2"] = active();
       }},
      {"a transmit source of a GRE session", "greSourcesRxOnly",
       [](json& d) { config(d, "s2")["srcIntf"]["Ethernet3"]["direction"] = "tx"; }},
      {"a member of a mirrored Port-Channel as a source", "lagMemberSource",
       [](json& d) {
         d["lag/config"]["phyIntf"]["Ethernet1"] = {{"lag", "Port-Channel1"}};
         config(d, "s2")["srcIntf"]["Port-Channel1"] = {{"direction", "rx"}};
       }},
      {"two port destinations on one-destination hardware", "singleDestination",
       [](json& d) {
         config(d, "s1")["targetIntf"].push_back("Ethernet5");
         status(d, "s1")["targetOperStatus"]["Ethernet5"] = active();
         d["mirroring/hwconfig"]["session"]["s1"]["targetIntf"].push_back("Ethernet5");
         d["interface/input/forwardingmodel/mirroring"]["forwardingModelInput"]["Ethernet5"] = kQuiet;
       }},
      {"an active destination whose port is gone", "activeInterfaceUsable",
       [](json& d) { d["interface/status/eth/intf"]["intfStatus"]["Ethernet2"]["hwActive"] = false; }},
      {"an active GRE destination in a missing VRF", "activeInterfaceUsable",
       [](json& d) { config(d, "s2")["greTunnelKey"]["vrf"] = "blue"; }},
      {"an active GRE destination whose key has no destination", "activeInterfaceUsable",
       [](json& d) { config(d, "s2")["greTunnelKey"]["dstIpAddr"] = "0.0.0.0"; }},
      {"a standby destination never promoted", "usableDestinationIdle",
       [](json& d) {
         config(d, "s1")["targetIntf"] = {"Ethernet2", "Ethernet5"};
         status(d, "s1")["targetOperStatus"] = {{"Ethernet2", inactive("Interface Mode Conflict")},
                                                {"Ethernet5", inactive("Multiple ports are not supported")}};
         d["interface/status/eth/intf"]["intfStatus"]["Ethernet2"]["hwActive"] = false;
         d["mirroring/hwconfig"]["session"].erase("s1");
         d["interface/input/forwardingmodel/mirroring"]["forwardingModelInput"].erase("Ethernet2");
       }},
      {"a source refused for a conflict that is gone", "usableSourceIdle",
       [](json& d) {
         status(d, "s1")["srcOperStatus"]["Ethernet1"] = inactive("Source Conflict");
         d["mirroring/hwconfig"]["session"]["s1"]["srcIntf"] = json::object();
       }},
      {"a group without ports", "tapAggGroupsHavePorts",
       [](json& d) {
         d["tapagg/status"]["group"]["g2"] = {{"tapPort", json::object()}, {"toolPort", json::object()}};
       }},
      {"ports published with tap aggregation off", "tapAggOff",
       [](json& d) {
         d["tapagg/cliconfig"]["mode"] = "tapAggModeOff";
         d["tapagg/hwconfig"]["mirroringRunnability"] = false;
       }},
      {"a slice left out of tap aggregation in exclusive mode", "tapAggSlices",
       [](json& d) {
         d["hardware/fcx/slice/status"]["entry"]["Linecard1"] = {{"@type", "Hardware::SliceStatus"}};
         d["tapagg/hwconfig"]["slice"]["Linecard1"] = false;
       }},
      {"a tap entry for an access port", "tapAggPortRoles",
       [](json& d) {
         d["bridging/config"]["switchIntfConfig"]["Ethernet4"]["switchportMode"] = "switchportModeAccess";
       }},
      {"a group entry for a group the port left", "tapAggPortRoles",
       [](json& d) { d["bridging/switchIntfConfig"]["switchIntfConfig"]["Ethernet4"]["tapGroup"] = {"g2"}; }},
      {"a stale port status", "tapAggPortStatus",
       [](json& d) { d["interface/status/eth/intf"]["intfStatus"]["Ethernet4"]["linkStatus"] = "linkDown"; }},
      {"a mirror destination left in the hardware", "tapAggPortStatus",
       [](json& d) {
         config(d, "s1")["targetIntf"] = {"Ethernet4"};
         status(d, "s1")["targetOperStatus"] = {{"Ethernet4", active()}};
         d["mirroring/hwconfig"]["session"]["s1"]["targetIntf"] = {"Ethernet4"};
         d["interface/input/forwardingmodel/mirroring"]["forwardingModelInput"] = {
             {"Ethernet4", kQuiet}, {"Gre0", kQuiet}, {"Gre1", kQuiet}};
       }},
      {"a tap-aggregation port without its port mode", "tapAggPortModes",
       [](json& d) { d["stp/portMode/tapagg"]["portMode"] = json::object(); }},
  };
  return list;
}

TEST(Invariants, ConsistentDumpPasses) {
  for (const Violation& v : checkInvariants(consistentDump())) ADD_FAILURE() << v.invariant << ": " << v.detail;
}

TEST(Invariants, EachFaultIsReportedByItsInvariant) {
  for (const Case& c : cases()) {
    json d = consistentDump();
    c.breakIt(d);
    std::vector<std::string> reported;
    for (const Violation& v : checkInvariants(d)) reported.push_back(v.invariant);
    const bool found = std::find(reported.begin(), reported.end(), c.invariant) != reported.end();
    EXPECT_TRUE(found) << c.fault << ": not reported by " << c.invariant
                       << "; reported: " << ::testing::PrintToString(reported);
  }
}

TEST(Invariants, EveryInvariantHasACase) {
  for (const Invariant& inv : invariants()) {
    bool covered = false;
    for (const Case& c : cases()) covered = covered || std::string(c.invariant) == inv.name;
    EXPECT_TRUE(covered) << inv.name;
  }
}

TEST(StateDiff, NamesThePathsThatDifferWithBothValues) {
  json a = consistentDump(), b = a;
  b["mirroring/status"]["greTunnelKey"].erase("Gre1");
  b["tapagg/hwconfig"]["mirroringRunnability"] = false;
  const auto ds = diffStates(a, b);
  ASSERT_EQ(ds.size(), 2u);
  EXPECT_EQ(describe(ds[0]), "mirroring/status/greTunnelKey/Gre1: " + key("192.0.2.1").dump() + " -> absent");
  EXPECT_EQ(describe(ds[1]), "tapagg/hwconfig/mirroringRunnability: true -> false");
}

// Each documented restart exception tolerates its own difference and nothing next to it.
TEST(StateDiff, RestartExceptionsTolerateOnlyWhatIsDocumented) {
  struct ExceptionCase {
    const char* what;
    bool tolerated;
    std::function<void(json&)> change;
    std::function<void(json&)> context = [](json&) {};  // what holds before and after
  };
  auto mixed = [](json& d) { d["tapagg/cliconfig"]["mode"] = "tapAggModeMixed"; };
  const std::vector<ExceptionCase> exceptionCases = {
      {"another reason for a refused source", false,
       [](json& d) { status(d, "s1")["srcOperStatus"]["Ethernet1"] = inactive("GRE supported in RX direction only"); }},
      {"a refused source that became active", false,
       [](json& d) { status(d, "s1")["srcOperStatus"]["Ethernet1"] = active(); }},
      {"a device name renumbered", false, [](json& d) { status(d, "s2")["mirrorDeviceName"] = "mirror3"; }},
      {"an errdisable time rewritten", true,
       [](json& d) { d["interface/errdisable/cause/tapagg"]["intfStatus"]["Ethernet5"] = 5.0; }},
      {"an interface errdisabled anew", false,
       [](json& d) { d["interface/errdisable/cause/tapagg"]["intfStatus"]["Ethernet3"] = 0.0; }},
      {"an Ethernet port errdisabled anew in mixed mode", true,
       [](json& d) { d["interface/errdisable/cause/tapagg"]["intfStatus"]["Ethernet3"] = 0.0; }, mixed},
      {"a Port-Channel errdisabled anew in mixed mode", false,
       [](json& d) { d["interface/errdisable/cause/tapagg"]["intfStatus"]["Port-Channel1"] = 0.0; }, mixed},
      {"a tool role a mode change to tap left behind, swept", true,
       [](json& d) { d["tapagg/hwconfig"]["toolPort"].erase("Ethernet4"); }},
      {"the port's own tap role, swept", false, [](json& d) { d["tapagg/hwconfig"]["tapPort"].erase("Ethernet4"); }},
  };
  json before = consistentDump();
  status(before, "s1")["srcOperStatus"]["Ethernet1"] = inactive("Source Conflict");
  status(before, "s2")["mirrorDeviceName"] = "mirror1";
  before["interface/errdisable/cause/tapagg"]["intfStatus"]["Ethernet5"] = 0.0;
  before["tapagg/hwconfig"]["toolPort"]["Ethernet4"] = "bridging/switchIntfConfig/switchIntfConfig/Ethernet4";
  for (const ExceptionCase& c : exceptionCases) {
    json start = before;
    c.context(start);
    json after = start;
    c.change(after);
    const auto differences = diffStates(start, after);
    ASSERT_FALSE(differences.empty()) << c.what;
    EXPECT_EQ(untolerated(differences, start, after).empty(), c.tolerated) << c.what << ": " << describe(differences);
  }
}

}  // namespace
}  // namespace consistency
