// Scenarios of tap aggregation, end to end: the real mirroringd runs the agent over a switch
// with two linecards, and the tests read back what it hands to the hardware, the groups it
// publishes, the port modes, the errdisabled interfaces and the syslog messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scenarios/ScenarioSupport.h"

using namespace hosttest;
using namespace scenario;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kHw = "tapagg/hwconfig";
constexpr const char* kStatus = "tapagg/status";
constexpr const char* kPortMode = "stp/portMode/tapagg";
constexpr const char* kErrdisable = "interface/errdisable/cause/tapagg";
constexpr const char* kMirroring = "mirroring/status";

const Json kActive = {{"active", true}, {"reason", ""}};
Json inactive(const std::string& reason) { return Json{{"active", false}, {"reason", reason}}; }

// --- building inputs -------------------------------------------------------------------------

struct Port {
  std::string mode;  // the part after "switchportMode"
  std::vector<std::string> tapGroups;
  std::vector<std::string> toolGroups;
};

// Linecard 1 (Ethernet1/1-1/8) and linecard 2 (Ethernet2/1-2/8), every link up:
//   Ethernet1/1 tap (web), Ethernet1/2 tap (web, db), Ethernet2/1 tool (web), Ethernet2/2 tool
//   (db), Ethernet2/3 tap and tool (db, db), Port-Channel1 tap (web) with the members
//   Ethernet1/5 and Ethernet2/5; Port-Channel2 access with the member Ethernet2/6; Ethernet1/3
//   (exempt from errdisable) and Ethernet1/4 access, Ethernet2/4 trunk; the VLAN interface Vlan10.
// The members' own switchport mode is access. Both linecards report a slice.
Json tapAggSwitch(const std::string& mode) {
  Json s;
  const Json up = {{"hwActive", true}, {"linkStatus", "linkUp"}};
  for (int lc = 1; lc <= 2; ++lc) {
    for (int p = 1; p <= 8; ++p) {
      s["interface/status/eth/intf"]["intfStatus"]["Ethernet" + std::to_string(lc) + "/" + std::to_string(p)] = up;
    }
    const std::string slice = "Linecard" + std::to_string(lc);
    s["hardware/fcx/slice/status"]["entry"][slice] = {
        {"@type", "Hardware::SliceStatus"}, {"ready", true}, {"linecard", lc}};
  }
  for (const char* lag : {"Port-Channel1", "Port-Channel2"}) {
    s["interface/status/eth/intf"]["intfStatus"][lag] = up;
    s["interface/status/eth/lag"]["intfStatus"][lag] = up;
  }
  s["interface/status/eth/vlan"]["intfStatus"]["Vlan10"] = {{"linkStatus", "linkUp"}};
  for (const auto& [member, lag] : {std::pair{"Ethernet1/5", "Port-Channel1"}, {"Ethernet2/5", "Port-Channel1"},
                                    {"Ethernet2/6", "Port-Channel2"}}) {
    s["lag/config"]["phyIntf"][member] = {{"lag", lag}};
    s["interface/input/forwardingmodel/lag"]["forwardingModelInput"][member] = "intfForwardingModelLagMember";
  }
  const std::vector<std::pair<std::string, Port>> ports = {
      {"Ethernet1/1", {"Tap", {"web"}, {}}},      {"Ethernet1/2", {"Tap", {"web", "db"}, {}}},
      {"Ethernet2/1", {"Tool", {}, {"web"}}},     {"Ethernet2/2", {"Tool", {}, {"db"}}},
      {"Ethernet2/3", {"TapTool", {"db"}, {"db"}}}, {"Port-Channel1", {"Tap", {"web"}, {}}},
      {"Port-Channel2", {"Access", {}, {}}},      {"Ethernet1/3", {"Access", {}, {}}},
      {"Ethernet1/4", {"Access", {}, {}}},        {"Ethernet2/4", {"Trunk", {}, {}}},
      {"Ethernet1/5", {"Access", {}, {}}},        {"Ethernet2/5", {"Access", {}, {}}},
      {"Ethernet2/6", {"Access", {}, {}}}};
  for (const auto& [intf, port] : ports) {
    const std::string m = "switchportMode" + port.mode;
    s["bridging/config"]["switchIntfConfig"][intf] = {{"switchportMode", m}};
    s["bridging/switchIntfConfig"]["switchIntfConfig"][intf] = {
        {"switchportMode", m}, {"tapGroup", port.tapGroups}, {"toolGroup", port.toolGroups}};
  }
  s["tapagg/cliconfig"] = {{"mode", mode}, {"noerrdisableIntf", {{"Ethernet1/3", true}}}};
  s["mirroring/hwcapability"] = {{"maxSupportedSessions", 4}, {"lagDestSupported", true}};
  return s;
}

std::string change(const std::string& op, const std::string& path, const Json& value = Json()) {
  Json c = {{"op", op}, {"path", path}};
  if (!value.is_null()) c["value"] = value;
  return c.dump();
}
std::string setMode(const std::string& mode) { return change("set", "tapagg/cliconfig/mode", mode); }
std::string setLink(const std::string& intf, const std::string& link) {
  return change("merge", "interface/status/eth/intf/intfStatus/" + intf, {{"linkStatus", link}});
}
std::string advance(double seconds) { return Json{{"op", "advance"}, {"seconds", seconds}}.dump(); }
std::string capture(const std::string& target) {
  return change("set", "mirroring/config/session/capture",
                {{"srcIntf", {{"Ethernet1/4", {{"direction", "rx"}}}}}, {"targetIntf", {target}}});
}
const std::string kNoCapture = change("del", "mirroring/config/session/capture");

std::vector<std::string> texts(const std::vector<Json>& syslog) {
  std::vector<std::string> out;
  for (const auto& line : syslog) out.push_back(line.value("text", ""));
  return out;
}

class TapAggScenario : public ScenarioTest {
 protected:
  // Runs the agent with the toggle files written into a directory of the test's own (none:
  // every toggle takes its default).
  Outcome runTapAgg(const Json& state, const std::vector<std::string>& changes,
                    const std::vector<std::string>& mounts = {kErrdisable, kPortMode, kHw, kStatus},
                    const std::string& mirroringToggles = "", const std::string& olvoToggles = "") {
    fs::create_directories(dir_ / "toggles");
    fs::remove(dir_ / "toggles" / "Mirroring.json");
    fs::remove(dir_ / "toggles" / "Olvo.json");
    if (!mirroringToggles.empty()) file("toggles/Mirroring.json", mirroringToggles);
    if (!olvoToggles.empty()) file("toggles/Olvo.json", olvoToggles);
    return runScenario(state, changes, mounts, {"--toggles", path("toggles")});
  }
};

// --- start-up and restart --------------------------------------------------------------------

TEST_F(TapAggScenario, StartUpKeepsWhatTheConfigurationConfirmsAndSweepsWhatAnEarlierRunLeft) {
  const auto ref = [](const std::string& intf) { return "bridging/switchIntfConfig/switchIntfConfig/" + intf; };
  const auto leftovers = [&](const std::string& mode) {
    Json s = tapAggSwitch(mode);
    // Ethernet1/4 and Ethernet2/4 were tap and tool ports once; Ethernet1/8 has no configuration.
    s[kHw]["tapPort"] = {{"Ethernet1/1", ref("Ethernet1/1")}, {"Ethernet1/4", ref("Ethernet1/4")}};
    s[kHw]["toolPort"] = {{"Ethernet2/1", ref("Ethernet2/1")}, {"Ethernet2/4", ref("Ethernet2/4")}};
    s[kStatus]["group"]["web"]["tapPort"] = {{"Ethernet1/1", kActive}, {"Ethernet1/4", kActive}};
    s[kStatus]["group"]["old"]["toolPort"] = {{"Ethernet2/4", inactive("Link down,")}};
    s[kPortMode]["portMode"] = {{"Ethernet1/4", "portModeTapAgg"}, {"Ethernet1/8", "portModeTapAgg"}};
    return s;
  };

  Outcome on = runTapAgg(leftovers("tapAggModeExclusive"), {});
  Json end = on.last();
  EXPECT_THAT(keys(end[kHw]["tapPort"]), ElementsAre("Ethernet1/1", "Ethernet1/2", "Ethernet2/3", "Port-Channel1"));
  EXPECT_THAT(keys(end[kHw]["toolPort"]), ElementsAre("Ethernet2/1", "Ethernet2/2", "Ethernet2/3"));
  EXPECT_EQ(end[kHw]["tapPort"]["Ethernet1/1"], ref("Ethernet1/1"));
  EXPECT_THAT(keys(end[kStatus]["group"]), ElementsAre("db", "web"));
  EXPECT_EQ(end[kStatus]["group"]["web"]["tapPort"],
            (Json{{"Ethernet1/1", kActive}, {"Ethernet1/2", kActive}, {"Port-Channel1", kActive}}));
  EXPECT_EQ(end[kStatus]["group"]["web"]["toolPort"], (Json{{"Ethernet2/1", kActive}}));
  EXPECT_THAT(keys(end[kPortMode]["portMode"]),
              ElementsAre("Ethernet1/1", "Ethernet1/2", "Ethernet2/1", "Ethernet2/2", "Ethernet2/3", "Port-Channel1"));

  // Started off, nothing of tap aggregation is left, and nothing is logged.
  Outcome off = runTapAgg(leftovers("tapAggModeOff"), {});
  end = off.last();
  EXPECT_EQ(end[kHw]["tapPort"], Json::object());
  EXPECT_EQ(end[kHw]["toolPort"], Json::object());
  EXPECT_EQ(end[kStatus]["group"], Json::object());
  EXPECT_EQ(end[kPortMode]["portMode"], Json::object());
  EXPECT_FALSE(end[kHw]["mirroringRunnability"]);
  EXPECT_THAT(off.syslog, IsEmpty());
}

TEST_F(TapAggScenario, ARestartAnywhereInTheStreamEndsInTheSameStates) {
  const Json state = tapAggSwitch("tapAggModeExclusive");
  const std::vector<std::string> stream = {
      setLink("Ethernet1/1", "linkDown"),
      // The tool port Ethernet2/2 joins Port-Channel1.
      change("set", "lag/config/phyIntf/Ethernet2/2", {{"lag", "Port-Channel1"}}),
      change("set", "interface/input/forwardingmodel/lag/forwardingModelInput/Ethernet2/2",
             "intfForwardingModelLagMember"),
      change("set", "bridging/switchIntfConfig/switchIntfConfig/Ethernet1/2/tapGroup", {"db"}),
      // Ethernet1/4 becomes a tap port of a new group.
      change("set", "bridging/switchIntfConfig/switchIntfConfig/Ethernet1/4/tapGroup", {"new"}),
      change("set", "bridging/config/switchIntfConfig/Ethernet1/4/switchportMode", "switchportModeTap"),
      change("set", "tapagg/cliconfig/noerrdisableIntf/Ethernet2/4", true),
      change("set", "tapagg/cliconfig/sliceProfileConfig/Linecard2", "tapagg"),
      setMode("tapAggModeMixed"),
      capture("Ethernet2/1"),
      setMode("tapAggModeExclusive"),
      setLink("Ethernet1/1", "linkUp"),
      kNoCapture,
      change("del", "lag/config/phyIntf/Ethernet2/2"),
      change("del", "interface/input/forwardingmodel/lag/forwardingModelInput/Ethernet2/2"),
      setMode("tapAggModeOff"),
  };
  auto withDumps = [&](std::optional<std::size_t> restartAt) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i <= stream.size(); ++i) {
      if (restartAt == i) lines.push_back(kRestart);
      if (i == stream.size()) break;
      lines.push_back(stream[i]);
      lines.push_back(kDump);
    }
    return lines;
  };
  Outcome plain = runTapAgg(state, withDumps(std::nullopt));
  ASSERT_EQ(plain.dumps.size(), stream.size() + 1);

  // The stream does what it says, so that the comparisons below compare something.
  auto after = [&](std::size_t line) { return plain.dumps[line - 1]; };
  EXPECT_EQ(after(1)[kStatus]["group"]["web"]["tapPort"]["Ethernet1/1"], inactive("Link down,"));
  EXPECT_EQ(after(3)[kStatus]["group"]["db"]["toolPort"]["Ethernet2/2"], inactive("Lag member,"));
  EXPECT_FALSE(after(3)[kHw]["toolPort"].contains("Ethernet2/2"));
  EXPECT_FALSE(after(4)[kStatus]["group"]["web"]["tapPort"].contains("Ethernet1/2"));
  EXPECT_EQ(after(6)[kStatus]["group"]["new"]["tapPort"]["Ethernet1/4"], kActive);
  EXPECT_FALSE(after(7)[kErrdisable]["intfStatus"].contains("Ethernet2/4"));
  EXPECT_TRUE(after(9)[kErrdisable]["intfStatus"].contains("Ethernet1/1")) << "a tap port, linecard without profile";
  EXPECT_EQ(after(10)[kStatus]["group"]["web"]["toolPort"]["Ethernet2/1"], inactive("Mirror destination,"));
  EXPECT_EQ(after(13)[kStatus]["group"]["web"]["toolPort"]["Ethernet2/1"], kActive);
  EXPECT_EQ(after(15)[kStatus]["group"]["db"]["toolPort"]["Ethernet2/2"], kActive);
  EXPECT_EQ(plain.last()[kHw]["tapPort"], Json::object());

  for (std::size_t at = 0; at <= stream.size(); ++at) {
    Outcome restarted = runTapAgg(state, withDumps(at));
    ASSERT_EQ(restarted.dumps.size(), plain.dumps.size()) << "restart before line " << at + 1;
    for (std::size_t d = 0; d < plain.dumps.size(); ++d) {
      EXPECT_TRUE(restarted.dumps[d] == plain.dumps[d]) << "restart before line " << at + 1 << ", dump " << d + 1
                                                       << " differs by "
                                                       << Json::diff(plain.dumps[d], restarted.dumps[d]).dump();
    }
  }
}

// --- the mode ---------------------------------------------------------------------------------

TEST_F(TapAggScenario, ModeChangesAreLoggedAndRunnabilityPortsAndSlicesFollowThem) {
  Json state = tapAggSwitch("tapAggModeOff");
  state["tapagg/cliconfig"]["sliceProfileConfig"] = {{"Linecard2", "tapagg"}};
  Outcome o = runTapAgg(
      state, {kDump, change("set", "tapagg/cliconfig/trafficSteeringMacAclMatchIp", true), kDump,
              setMode("tapAggModeExclusive"), kDump, setMode("tapAggModeMixed"), kDump,
              // A slice that reports status later, without a profile; and one that stops reporting.
              change("set", "hardware/fcx/slice/status/entry/Linecard3",
                     {{"@type", "Hardware::SliceStatus"}, {"ready", true}, {"linecard", 3}}),
              change("del", "hardware/fcx/slice/status/entry/Linecard1"), kDump, setMode("tapAggModeOff"), kDump,
              setMode("tapAggModeExclusive")});
  ASSERT_EQ(o.dumps.size(), 7u);
  EXPECT_THAT(texts(o.syslog), ElementsAre("Tap aggregation (exclusive mode) enabled",
                                           "Tap aggregation (mixed mode) enabled", "Tap aggregation disabled",
                                           "Tap aggregation (exclusive mode) enabled"));
  EXPECT_EQ(o.syslog[0]["key"], "TAPAGG_OPERATIONAL_MODE");
  EXPECT_EQ(o.syslog[0]["severity"], "informational");

  std::vector<bool> runnable;
  for (const auto& d : o.dumps) runnable.push_back(d[kHw]["mirroringRunnability"].get<bool>());
  EXPECT_THAT(runnable, ElementsAre(false, false, true, true, true, false, true));
  EXPECT_TRUE(o.dumps[1][kHw]["trafficSteeringMacAclMatchIp"]) << "copied while off";

  const auto slices = [&](std::size_t d) { return o.dumps[d][kHw]["slice"]; };
  EXPECT_EQ(slices(0), (Json{{"Linecard1", false}, {"Linecard2", false}}));
  EXPECT_EQ(slices(2), (Json{{"Linecard1", true}, {"Linecard2", true}}));
  EXPECT_EQ(slices(3), (Json{{"Linecard1", false}, {"Linecard2", true}})) << "mixed: the profiled slice only";
  EXPECT_EQ(slices(4), (Json{{"Linecard2", true}, {"Linecard3", false}}));
  EXPECT_EQ(slices(5), (Json{{"Linecard2", false}, {"Linecard3", false}}));
  EXPECT_EQ(slices(6), (Json{{"Linecard2", true}, {"Linecard3", true}}));

  // Off holds no port; every enabling builds them all, and disabling takes them all away.
  for (std::size_t d : {0u, 1u, 5u}) {
    EXPECT_EQ(o.dumps[d][kHw]["tapPort"], Json::object()) << d;
    EXPECT_EQ(o.dumps[d][kStatus]["group"], Json::object()) << d;
    EXPECT_EQ(o.dumps[d][kPortMode]["portMode"], Json::object()) << d;
  }
  for (std::size_t d : {2u, 3u, 6u}) {
    EXPECT_THAT(keys(o.dumps[d][kHw]["tapPort"]),
                ElementsAre("Ethernet1/1", "Ethernet1/2", "Ethernet2/3", "Port-Channel1"));
    EXPECT_THAT(keys(o.dumps[d][kHw]["toolPort"]), ElementsAre("Ethernet2/1", "Ethernet2/2", "Ethernet2/3"));
    EXPECT_THAT(keys(o.dumps[d][kStatus]["group"]), ElementsAre("db", "web"));
    EXPECT_EQ(o.dumps[d][kPortMode]["portMode"].size(), 6u);
  }
}

// --- errdisable -------------------------------------------------------------------------------

TEST_F(TapAggScenario, ErrdisableInExclusiveModeAndOffFollowsPortChannelsExemptionsAndTheClock) {
  Outcome o = runTapAgg(
      tapAggSwitch("tapAggModeExclusive"),
      {kDump, advance(10), change("del", "tapagg/cliconfig/noerrdisableIntf/Ethernet1/3"),
       change("set", "tapagg/cliconfig/noerrdisableIntf/Ethernet1/4", true),
       // A member is judged by its Port-Channel: exempting it alone changes nothing but the time.
       change("set", "tapagg/cliconfig/noerrdisableIntf/Ethernet2/6", true), kDump, advance(5),
       change("set", "interface/status/eth/vlan/intfStatus/Vlan20", {{"linkStatus", "linkUp"}}),
       change("set", "bridging/config/switchIntfConfig/Ethernet2/4/switchportMode", "switchportModeTool"), kDump,
       advance(5), setMode("tapAggModeOff")});
  ASSERT_EQ(o.dumps.size(), 4u);
  const auto errdisabled = [&](std::size_t d) { return o.dumps[d][kErrdisable]["intfStatus"]; };
  // Ordinary ports, the access Port-Channel with its member, and the VLAN interface; not the
  // exempt Ethernet1/3, nor the members of the tap Port-Channel1.
  EXPECT_EQ(errdisabled(0), (Json{{"Ethernet1/4", 0.0}, {"Ethernet2/4", 0.0}, {"Ethernet2/6", 0.0},
                                  {"Port-Channel2", 0.0}, {"Vlan10", 0.0}}));
  EXPECT_EQ(errdisabled(1), (Json{{"Ethernet1/3", 10.0}, {"Ethernet2/4", 0.0}, {"Ethernet2/6", 10.0},
                                  {"Port-Channel2", 0.0}, {"Vlan10", 0.0}}));
  EXPECT_EQ(errdisabled(2), (Json{{"Ethernet1/3", 10.0}, {"Ethernet2/6", 10.0}, {"Port-Channel2", 0.0},
                                  {"Vlan10", 0.0}, {"Vlan20", 15.0}}));
  // Off: every tap or tool port, the tap Port-Channel with its members; everything else is free.
  EXPECT_EQ(errdisabled(3), (Json{{"Ethernet1/1", 20.0}, {"Ethernet1/2", 20.0}, {"Ethernet1/5", 20.0},
                                  {"Ethernet2/1", 20.0}, {"Ethernet2/2", 20.0}, {"Ethernet2/3", 20.0},
                                  {"Ethernet2/4", 20.0}, {"Ethernet2/5", 20.0}, {"Port-Channel1", 20.0}}));
}

TEST_F(TapAggScenario, ErrdisableInMixedModeFollowsTheLinecardProfileAndPortChannels) {
  Json state = tapAggSwitch("tapAggModeExclusive");
  state["tapagg/cliconfig"]["sliceProfileConfig"] = {{"Linecard1", "tapagg"}};
  state["tapagg/cliconfig"]["noerrdisableIntf"]["Ethernet2/2"] = true;
  state["tapagg/cliconfig"]["noerrdisableIntf"]["Ethernet2/5"] = true;
  Outcome o = runTapAgg(state, {advance(3), setMode("tapAggModeMixed"), kDump, advance(4),
                                // A member leaves the tap Port-Channel1 on the profiled linecard, and
                                // Port-Channel2 becomes a tap port on the other.
                                change("del", "lag/config/phyIntf/Ethernet1/5"),
                                change("set", "bridging/config/switchIntfConfig/Port-Channel2/switchportMode",
                                       "switchportModeTap")});
  ASSERT_EQ(o.dumps.size(), 2u);
  // Linecard 1 (profiled) as exclusive: its access port. Linecard 2 as off: its tap and tool
  // ports except the exempt Ethernet2/2, and Ethernet2/5 as a member of the tap Port-Channel1,
  // exempt or not. No Port-Channel and no VLAN interface. Every entry is judged anew.
  EXPECT_EQ(o.dumps[0][kErrdisable]["intfStatus"],
            (Json{{"Ethernet1/4", 3.0}, {"Ethernet2/1", 3.0}, {"Ethernet2/3", 3.0}, {"Ethernet2/5", 3.0}}));
  // Ethernet1/5 is an ordinary access port of linecard 1 now; Ethernet2/6 a member of a tap
  // Port-Channel on linecard 2.
  EXPECT_EQ(o.last()[kErrdisable]["intfStatus"],
            (Json{{"Ethernet1/4", 3.0}, {"Ethernet1/5", 7.0}, {"Ethernet2/1", 3.0}, {"Ethernet2/3", 3.0},
                  {"Ethernet2/5", 3.0}, {"Ethernet2/6", 7.0}}));
  // Ports of both linecards stay tap and tool ports.
  EXPECT_THAT(keys(o.last()[kHw]["tapPort"]),
              ElementsAre("Ethernet1/1", "Ethernet1/2", "Ethernet2/3", "Port-Channel1", "Port-Channel2"));
}

// --- mirroring --------------------------------------------------------------------------------

TEST_F(TapAggScenario, AToolPortLeavesWhileItIsAnActiveMirrorDestination) {
  const std::string hwActive = "interface/status/eth/intf/intfStatus/Ethernet2/1";
  Outcome o = runTapAgg(tapAggSwitch("tapAggModeExclusive"),
                        {capture("Ethernet2/1"), kDump, change("merge", hwActive, {{"hwActive", false}}), kDump,
                         change("merge", hwActive, {{"hwActive", true}}), kDump, kNoCapture},
                        {kHw, kStatus, kPortMode, kMirroring});
  ASSERT_EQ(o.dumps.size(), 4u);
  const auto target = [&](std::size_t d) {
    return o.dumps[d][kMirroring]["sessionStatus"]["capture"]["targetOperStatus"]["Ethernet2/1"]["state"];
  };
  const auto inToolPorts = [&](std::size_t d) { return o.dumps[d][kHw]["toolPort"].contains("Ethernet2/1"); };
  const auto webStatus = [&](std::size_t d) { return o.dumps[d][kStatus]["group"]["web"]["toolPort"]["Ethernet2/1"]; };

  EXPECT_EQ(target(0), "active");
  EXPECT_FALSE(inToolPorts(0));
  EXPECT_EQ(webStatus(0), inactive("Mirror destination,"));
  EXPECT_EQ(o.dumps[0][kPortMode]["portMode"]["Ethernet2/1"], "portModeTapAgg") << "still a tool port";
  // The destination goes inactive: the port is back.
  EXPECT_EQ(target(1), "inactive");
  EXPECT_TRUE(inToolPorts(1));
  EXPECT_EQ(webStatus(1), kActive);
  // Active again, and out again; the session goes, and the port is back for good.
  EXPECT_FALSE(inToolPorts(2));
  EXPECT_EQ(webStatus(2), inactive("Mirror destination,"));
  EXPECT_EQ(o.last()[kMirroring]["sessionStatus"], Json::object());
  EXPECT_TRUE(inToolPorts(3));
  EXPECT_EQ(webStatus(3), kActive);
  // Nothing else moved.
  EXPECT_THAT(keys(o.last()[kHw]["toolPort"]), ElementsAre("Ethernet2/1", "Ethernet2/2", "Ethernet2/3"));
}

TEST_F(TapAggScenario, ATapAndToolPortStaysAnActiveDestinationUnlessATapPortUsesItOrTheToggleIsOff) {
  const std::string raw = "bridging/switchIntfConfig/switchIntfConfig/Ethernet1/1/tapRawIntf/Ethernet2/3";
  const auto both = [](const Json& dump) {
    return std::pair{dump[kHw]["tapPort"].contains("Ethernet2/3"), dump[kHw]["toolPort"].contains("Ethernet2/3")};
  };
  const auto status = [](const Json& dump) { return dump[kStatus]["group"]["db"]["toolPort"]["Ethernet2/3"]; };
  const std::pair kIn{true, true}, kOut{false, false};

  Outcome on = runTapAgg(tapAggSwitch("tapAggModeExclusive"),
                         {capture("Ethernet2/3"), kDump, change("set", raw, true), kDump, change("del", raw)});
  ASSERT_EQ(on.dumps.size(), 3u);
  EXPECT_EQ(both(on.dumps[0]), kIn);
  EXPECT_EQ(status(on.dumps[0]), kActive);
  // The tap port Ethernet1/1 passes its traffic on raw to Ethernet2/3: it is in use as a tool.
  EXPECT_EQ(both(on.dumps[1]), kOut);
  EXPECT_EQ(status(on.dumps[1]), inactive("Mirror destination,"));
  EXPECT_EQ(on.dumps[1][kStatus]["group"]["db"]["tapPort"]["Ethernet2/3"], inactive("Mirror destination,"));
  EXPECT_EQ(both(on.last()), kIn);
  EXPECT_EQ(status(on.last()), kActive);

  Outcome off = runTapAgg(tapAggSwitch("tapAggModeExclusive"), {capture("Ethernet2/3"), kDump, kNoCapture},
                          {kHw, kStatus}, R"({"MirrorDestinationOnTapToolPort": false})");
  ASSERT_EQ(off.dumps.size(), 2u);
  EXPECT_EQ(both(off.dumps[0]), kOut);
  EXPECT_EQ(status(off.dumps[0]), inactive("Mirror destination,"));
  EXPECT_EQ(both(off.last()), kIn);
}

TEST_F(TapAggScenario, APortThatJoinsALagLeavesTheHardwareInBothRolesWhateverTheToolPortToggle) {
  const std::string member = "interface/input/forwardingmodel/lag/forwardingModelInput/Ethernet2/3";
  const std::vector<std::string> stream = {change("set", member, "intfForwardingModelLagMember"), kDump,
                                           change("del", member)};
  for (const char* toggles : {"", R"({"TapToolPorts": false})"}) {
    SCOPED_TRACE(toggles);
    Outcome o = runTapAgg(tapAggSwitch("tapAggModeExclusive"), stream, {kHw, kStatus}, "", toggles);
    ASSERT_EQ(o.dumps.size(), 2u);
    const Json& joined = o.dumps[0];
    EXPECT_FALSE(joined[kHw]["tapPort"].contains("Ethernet2/3"));
    EXPECT_FALSE(joined[kHw]["toolPort"].contains("Ethernet2/3"));
    EXPECT_EQ(joined[kStatus]["group"]["db"]["tapPort"]["Ethernet2/3"], inactive("Lag member,"));
    EXPECT_EQ(joined[kStatus]["group"]["db"]["toolPort"]["Ethernet2/3"], inactive("Lag member,"));
    // Out of the LAG again, the port is rebuilt in both roles.
    EXPECT_TRUE(o.last()[kHw]["tapPort"].contains("Ethernet2/3"));
    EXPECT_TRUE(o.last()[kHw]["toolPort"].contains("Ethernet2/3"));
    EXPECT_EQ(o.last()[kStatus]["group"]["db"]["toolPort"]["Ethernet2/3"], kActive);
  }
}

// --- the example ----------------------------------------------------------------------------

// examples/tapagg, as the examples README tells it, with a dump in place of every view.
TEST_F(TapAggScenario, TheExampleRunsAsItsReadmeTells) {
  const fs::path example = fs::path(SOURCE_DIR) / "examples" / "tapagg";
  Outcome o = runTapAgg(Json::parse(readFile(example / "state.json")), streamOf(example / "changes.jsonl", kDump));
  EXPECT_THAT(texts(o.syslog), ElementsAre("Tap aggregation (exclusive mode) enabled",
                                           "Tap aggregation (mixed mode) enabled", "Tap aggregation disabled"));
  // The views of steps 1, 2, 4, 5, 6, 7 and 8, the two hardware dumps of the stream, the end.
  ASSERT_EQ(o.dumps.size(), 10u);
  const Json start = o.dumps[0], destination = o.dumps[2], linkDown = o.dumps[3], lagMember = o.dumps[4],
             regrouped = o.dumps[5], mixed = o.dumps[6], off = o.dumps[8];
  EXPECT_EQ(o.dumps[1], (Json{{kHw, start[kHw]}})) << "the stream's own dump of step 1";

  EXPECT_THAT(keys(start[kHw]["tapPort"]),
              ElementsAre("Ethernet3/1", "Ethernet3/2", "Ethernet3/3", "Ethernet3/4", "Ethernet4/3"));
  EXPECT_THAT(keys(start[kHw]["toolPort"]),
              ElementsAre("Ethernet3/4", "Ethernet4/1", "Ethernet4/2", "Ethernet4/3", "Port-Channel5"));
  EXPECT_EQ(start[kErrdisable]["intfStatus"],
            (Json{{"Ethernet3/5", 0.0}, {"Ethernet3/6", 0.0}, {"Ethernet4/4", 0.0}, {"Vlan10", 0.0}}));

  EXPECT_FALSE(destination[kHw]["toolPort"].contains("Ethernet4/2"));
  for (const char* group : {"web", "db"}) {
    EXPECT_EQ(destination[kStatus]["group"][group]["toolPort"]["Ethernet4/2"], inactive("Mirror destination,"))
        << group;
  }
  EXPECT_TRUE(linkDown[kHw]["toolPort"].contains("Ethernet4/2")) << "handed back when the session went";
  EXPECT_EQ(linkDown[kStatus]["group"]["web"]["tapPort"]["Ethernet3/2"], inactive("Link down,"));
  EXPECT_TRUE(linkDown[kHw]["tapPort"].contains("Ethernet3/2"));
  EXPECT_EQ(lagMember[kStatus]["group"]["web"]["toolPort"]["Ethernet4/1"], inactive("Lag member,"));
  EXPECT_FALSE(lagMember[kHw]["toolPort"].contains("Ethernet4/1"));
  EXPECT_FALSE(lagMember[kErrdisable]["intfStatus"].contains("Ethernet4/1"));
  EXPECT_THAT(keys(regrouped[kStatus]["group"]), ElementsAre("db", "voice", "web"));
  EXPECT_THAT(keys(regrouped[kStatus]["group"]["db"]["tapPort"]), ElementsAre("Ethernet3/4"));

  EXPECT_EQ(mixed[kHw]["slice"], (Json{{"Linecard3", true}, {"Linecard4", false}}));
  EXPECT_EQ(o.dumps[7], (Json{{kHw, mixed[kHw]}})) << "the stream's own dump of step 7";
  EXPECT_EQ(mixed[kErrdisable]["intfStatus"], (Json{{"Ethernet3/5", 60.0}, {"Ethernet3/6", 60.0}, {"Ethernet4/1", 60.0},
                                                    {"Ethernet4/2", 60.0}, {"Ethernet4/3", 60.0}}));

  Json everyTapToolPort;
  for (const char* intf : {"Ethernet3/1", "Ethernet3/2", "Ethernet3/3", "Ethernet3/4", "Ethernet4/1", "Ethernet4/2",
                           "Ethernet4/3", "Ethernet4/7", "Ethernet4/8", "Port-Channel5"}) {
    everyTapToolPort[intf] = 120.0;
  }
  EXPECT_EQ(off[kErrdisable]["intfStatus"], everyTapToolPort);
  EXPECT_EQ(off[kHw]["slice"], (Json{{"Linecard3", false}, {"Linecard4", false}}));
  EXPECT_EQ(off[kHw]["tapPort"], Json::object());
  EXPECT_EQ(off[kHw]["toolPort"], Json::object());
  EXPECT_EQ(off[kStatus]["group"], Json::object());
  EXPECT_EQ(off[kPortMode]["portMode"], Json::object());
  EXPECT_EQ(o.last(), off);
}

}  // namespace
