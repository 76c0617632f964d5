// Scenarios of tap aggregation, end to end: the real mirroringd runs the agent, and the tests
// read back what it hands to the hardware, the groups it publishes, the port modes, the
// errdisabled interfaces and the syslog messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scenarios/ScenarioSupport.h"

using namespace hosttest;
using namespace scenario;
using ::testing::ElementsAre;

namespace {

constexpr const char* kHw = "tapagg/hwconfig";
constexpr const char* kStatus = "tapagg/status";
constexpr const char* kPortMode = "stp/portMode/tapagg";
constexpr const char* kErrdisable = "interface/errdisable/cause/tapagg";

const Json kActive = {{"active", true}, {"reason", ""}};
Json inactive(const std::string& reason) { return Json{{"active", false}, {"reason", reason}}; }

// --- building inputs -------------------------------------------------------------------------

// Tap aggregation in exclusive mode over the tap-and-tool port Ethernet2/3 (tap and tool group
// db), with the source a mirror session can use, Ethernet1/4.
Json tapToolSwitch() {
  return Json::parse(R"({
      "bridging/config": {"switchIntfConfig": {"Ethernet2/3": {"switchportMode": "switchportModeTapTool"},
                                               "Ethernet1/4": {"switchportMode": "switchportModeAccess"}}},
      "bridging/switchIntfConfig": {"switchIntfConfig": {"Ethernet2/3": {"tapGroup": ["db"], "toolGroup": ["db"]}}},
      "interface/status/eth/intf": {"intfStatus": {"Ethernet2/3": {"hwActive": true, "linkStatus": "linkUp"},
                                                   "Ethernet1/4": {"hwActive": true, "linkStatus": "linkUp"}}},
      "mirroring/hwcapability": {"maxSupportedSessions": 4},
      "tapagg/cliconfig": {"mode": "tapAggModeExclusive"}})");
}

std::string change(const std::string& op, const std::string& path, const Json& value = Json()) {
  Json c = {{"op", op}, {"path", path}};
  if (!value.is_null()) c["value"] = value;
  return c.dump();
}
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

// --- toggles ----------------------------------------------------------------------------------

// The consistency checker takes every toggle at its default (on); what each one changes when it
// is off is shown here on the tap-and-tool port Ethernet2/3 of group db: it leaves the hardware
// in both roles with the reason, and comes back whole.
TEST_F(TapAggScenario, WithAToggleOffATapAndToolPortLeavesTheHardwareInBothRoles) {
  const std::string member = "interface/input/forwardingmodel/lag/forwardingModelInput/Ethernet2/3";
  struct Row {
    const char* what;
    std::string mirroringToggles, olvoToggles;
    std::vector<std::string> stream;
    std::string reason;
  };
  const std::vector<Row> rows = {
      {"an active mirror destination, though no tap port uses it", R"({"MirrorDestinationOnTapToolPort": false})", "",
       {capture("Ethernet2/3"), kDump, kNoCapture}, "Mirror destination,"},
      {"a port that joins a LAG", "", R"({"TapToolPorts": false})",
       {change("set", member, "intfForwardingModelLagMember"), kDump, change("del", member)}, "Lag member,"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Outcome o = runTapAgg(tapToolSwitch(), row.stream, {kHw, kStatus}, row.mirroringToggles,
                          row.olvoToggles);
    ASSERT_EQ(o.dumps.size(), 2u);
    for (const char* role : {"tapPort", "toolPort"}) {
      EXPECT_FALSE(o.dumps[0][kHw][role].contains("Ethernet2/3")) << role;
      EXPECT_EQ(o.dumps[0][kStatus]["group"]["db"][role]["Ethernet2/3"], inactive(row.reason)) << role;
      EXPECT_TRUE(o.last()[kHw][role].contains("Ethernet2/3")) << role;
      EXPECT_EQ(o.last()[kStatus]["group"]["db"][role]["Ethernet2/3"], kActive) << role;
    }
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
