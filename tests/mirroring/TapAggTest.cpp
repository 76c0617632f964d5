// Tap aggregation: the configuration manager and its followers, driven through the entities
// they follow. Each test starts a real TapAgg::ConfigSm over entities of its own and checks what
// the consistency checker does not: the exact reasons of the port statuses, the roles a mode
// change leaves behind, the errdisabled interfaces and their times, and the syslog.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Mirroring/TapAggSm.h"
#include "tests/mirroring/TapAggFixture.h"

namespace tapagg_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Bridging::switchportModeAccess;
using Bridging::switchportModeRouted;
using Bridging::switchportModeTap;
using Bridging::switchportModeTapTool;
using Bridging::switchportModeTool;
using Bridging::switchportModeTrunk;
using Mirroring::OperState;

constexpr TapAggMode kOff = TapAggMode::tapAggModeOff;
constexpr TapAggMode kExclusive = TapAggMode::tapAggModeExclusive;
constexpr TapAggMode kMixed = TapAggMode::tapAggModeMixed;

const char* const kExclusiveText = "Tap aggregation (exclusive mode) enabled";
const char* const kMixedText = "Tap aggregation (mixed mode) enabled";
const char* const kDisabledText = "Tap aggregation disabled";

// --- the mode ---------------------------------------------------------------------------------

using TapAggConfigSmTest = TapAggFixture;

TEST_F(TapAggConfigSmTest, EveryModeChangeIsLoggedButAStartOffIsNot) {
  start(kOff);
  EXPECT_THAT(operationalModeTexts(), IsEmpty());
  // Staying off: the mode handling runs again without a word and without a write.
  const uint64_t before = outputWrites();
  configSm->handleMode();
  EXPECT_EQ(outputWrites(), before);
  EXPECT_THAT(operationalModeTexts(), IsEmpty());

  modeIs(kExclusive);
  modeIs(kMixed);
  modeIs(kExclusive);
  configSm->handleMode();  // a repeat of the same mode logs once more
  modeIs(kOff);
  EXPECT_THAT(operationalModeTexts(),
              ElementsAre(kExclusiveText, kMixedText, kExclusiveText, kExclusiveText, kDisabledText));
  EXPECT_EQ(syslog->records().back().key, "TAPAGG_OPERATIONAL_MODE");
  EXPECT_EQ(syslog->records().back().severity, platform::syslog::Severity::informational);
}

// --- port status -----------------------------------------------------------------------------

// One port, Ethernet1, in the mode and groups a row gives (tap group "g", tool group "t"), with
// what happens to it after start-up; then its status, the same in each of its groups, and
// whether the hardware keeps it in each of its roles (only a reason of the link alone does).
TEST(TapAggPortStatusTest, ReasonsAccumulateInCheckOrderAndOnlyALinkReasonStaysInHardware) {
  struct Row {
    const char* what;
    Bridging::SwitchportMode mode;
    std::function<void(TapAggFixture&)> given;
    std::string reason;  // empty: active
  };
  const auto lagMember = [](TapAggFixture& f) {
    f.lagForwarding->forwardingModelInputIs(IntfId("Ethernet1"), Interface::intfForwardingModelLagMember);
  };
  const auto destination = [](TapAggFixture& f) { f.target("s1", "Ethernet1", OperState::active); };
  // Ethernet2, a tap port, passes its traffic on raw to Ethernet1.
  const auto usedRaw = [](TapAggFixture& f) {
    f.port("Ethernet2", switchportModeTap, {"g"});
    f.cli("Ethernet2")->tapRawIntfIs(IntfId("Ethernet1"), true);
  };
  const bool spared = TapAgg::toggleMirrorDestinationOnTapToolPortEnabled();
  const std::vector<Row> rows = {
      {"up", switchportModeTap, [](TapAggFixture&) {}, ""},
      {"link down", switchportModeTap, [](TapAggFixture& f) { f.link("Ethernet1", Interface::linkDown); },
       "Link down,"},
      {"link unknown", switchportModeTool, [](TapAggFixture& f) { f.link("Ethernet1", Interface::linkUnknown); },
       "Link unknown,"},
      {"link not present", switchportModeTapTool,
       [](TapAggFixture& f) { f.link("Ethernet1", Interface::linkNotPresent); }, "Link unknown,"},
      {"a LAG member", switchportModeTool, lagMember, "Lag member,"},
      {"a LAG member with its link down", switchportModeTap,
       [&](TapAggFixture& f) { f.link("Ethernet1", Interface::linkDown); lagMember(f); }, "Link down,Lag member,"},
      {"another forwarding model", switchportModeTap,
       [](TapAggFixture& f) {
         f.lagForwarding->forwardingModelInputIs(IntfId("Ethernet1"), Interface::intfForwardingModelBridged);
       },
       ""},
      {"no interface status (the LAG check is not made)", switchportModeTap,
       [&](TapAggFixture& f) { f.eth->intfStatusDel(IntfId("Ethernet1")); lagMember(f); },
       "Interface status not found,"},
      {"a mirror destination, of two sessions, with its link down", switchportModeTool,
       [&](TapAggFixture& f) {
         f.link("Ethernet1", Interface::linkDown), destination(f);
         f.target("s2", "Ethernet1", OperState::active);
       },
       "Link down,Mirror destination,"},
      {"a destination that is not active", switchportModeTool,
       [](TapAggFixture& f) {
         f.target("s1", "Ethernet1", OperState::inactive); f.target("s2", "Ethernet1", OperState::unknown);
       },
       ""},
      {"a mirror destination gone again", switchportModeTool,
       [&](TapAggFixture& f) { destination(f); f.mirroring->sessionStatusDel("s1"); }, ""},
      {"a tap-and-tool destination no tap port uses", switchportModeTapTool, destination,
       spared ? "" : "Mirror destination,"},
      {"a tap-and-tool destination a tap port uses raw", switchportModeTapTool,
       [&](TapAggFixture& f) { destination(f); usedRaw(f); }, "Mirror destination,"},
      {"a tap-and-tool destination used raw by a port that is no tap port", switchportModeTapTool,
       [&](TapAggFixture& f) { destination(f); usedRaw(f); f.switchportModeIs("Ethernet2", switchportModeTool); },
       spared ? "" : "Mirror destination,"},
      {"a tap-and-tool destination in use as a tool interface", switchportModeTapTool,
       [&](TapAggFixture& f) { destination(f); f.cli("Ethernet1")->toolIntfInUse.set(2); }, "Mirror destination,"},
      {"a tap-and-tool destination whose tap port lets go", switchportModeTapTool,
       [&](TapAggFixture& f) {
         destination(f); usedRaw(f); f.cli("Ethernet2")->tapRawIntfDel(IntfId("Ethernet1"));
       },
       spared ? "" : "Mirror destination,"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    struct : TapAggFixture {
      void TestBody() override {}
    } f;
    f.SetUp();
    f.start(kExclusive);
    f.port("Ethernet1", row.mode, {"g"}, {"t"});
    f.up("Ethernet1");
    row.given(f);
    const PortStatus expected = row.reason.empty() ? activePort() : inactivePort(row.reason);
    const bool kept = row.reason.empty() || row.reason == "Link down," || row.reason == "Link unknown,";
    EXPECT_EQ(f.portStatusOf("Ethernet1"), expected);
    if (TapAgg::isTapMode(row.mode)) {
      EXPECT_EQ(f.tapStatus("g", "Ethernet1"), expected);
      EXPECT_EQ(f.hwConfig->tapPort.contains(IntfId("Ethernet1")), kept);
    }
    if (TapAgg::isToolMode(row.mode)) {
      EXPECT_EQ(f.toolStatus("t", "Ethernet1"), expected);
      EXPECT_EQ(f.hwConfig->toolPort.contains(IntfId("Ethernet1")), kept);
    }
    f.TearDown();
  }
}

// --- roles -------------------------------------------------------------------------------------

using TapAggSwitchIntfTest = TapAggFixture;

TEST_F(TapAggSwitchIntfTest, EachModeCleansItsOwnRolesBeforeRebuilding) {
  start(kExclusive);
  port("Ethernet1", switchportModeTool, {"taps"}, {"tools"});
  up("Ethernet1");
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(groups(), ElementsAre("tools"));

  // A tap port cleans its tap role only: what the tool role left stays.
  switchportModeIs("Ethernet1", switchportModeTap);
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet1"));
  EXPECT_EQ(tapStatus("taps", "Ethernet1"), activePort());
  EXPECT_EQ(toolStatus("tools", "Ethernet1"), activePort());

  // A link change of a tap port updates its tap role; tap-and-tool rebuilds both roles.
  link("Ethernet1", Interface::linkDown);
  EXPECT_EQ(tapStatus("taps", "Ethernet1"), inactivePort("Link down,"));
  EXPECT_EQ(toolStatus("tools", "Ethernet1"), activePort());
  switchportModeIs("Ethernet1", switchportModeTapTool);
  EXPECT_EQ(tapStatus("taps", "Ethernet1"), inactivePort("Link down,"));
  EXPECT_EQ(toolStatus("tools", "Ethernet1"), inactivePort("Link down,"));
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet1"));
  up("Ethernet1");

  // A mode this program does not know cleans nothing but is no tap-aggregation port.
  switchportModeIs("Ethernet1", static_cast<Bridging::SwitchportMode>(7));
  EXPECT_FALSE(portMode("Ethernet1"));
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(groups(), ElementsAre("taps", "tools"));

  // The CLI record gone takes every role, also the one an earlier mode left behind.
  switchportModeIs("Ethernet1", switchportModeTap);
  ASSERT_THAT(hwToolPorts(), ElementsAre("Ethernet1"));
  cliIntfs->switchIntfConfigDel(IntfId("Ethernet1"));
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_THAT(groups(), IsEmpty());
}

// --- errdisable ------------------------------------------------------------------------------

using TapAggErrDisableTest = TapAggFixture;

TEST_F(TapAggErrDisableTest, ExclusiveModeDisablesOrdinaryPortsAndALagWithItsMembers) {
  for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5", "Ethernet6",
                           "Ethernet7", "Port-Channel1"}) {
    up(intf);
  }
  switchportModeIs("Ethernet1", switchportModeAccess);
  switchportModeIs("Ethernet2", switchportModeTap);
  switchportModeIs("Ethernet3", switchportModeTool);
  switchportModeIs("Ethernet4", switchportModeAccess);
  cliConfig->noerrdisableIntf.set(IntfId("Ethernet4"), true);
  switchportModeIs("Ethernet5", switchportModeRouted);
  switchportModeIs("Port-Channel1", switchportModeTrunk);
  switchportModeIs("Ethernet6", switchportModeTap);  // judged by its LAG, not by its own mode
  switchportModeIs("Ethernet7", switchportModeAccess);
  lagMember("Ethernet6", "Port-Channel1");
  lagMember("Ethernet7", "Port-Channel1");

  start(kExclusive);
  EXPECT_THAT(errdisabledIntfs(),
              UnorderedElementsAre("Ethernet1", "Ethernet5", "Ethernet6", "Ethernet7", "Port-Channel1"));
  EXPECT_EQ(errdisabledSince("Ethernet1"), 1000.0);

  // The LAG and its members are released and disabled together, with the time of the change.
  clock.advance(50);
  switchportModeIs("Port-Channel1", switchportModeTap);
  EXPECT_THAT(errdisabledIntfs(), UnorderedElementsAre("Ethernet1", "Ethernet5"));
  switchportModeIs("Port-Channel1", switchportModeTrunk);
  EXPECT_THAT(errdisabledIntfs(),
              UnorderedElementsAre("Ethernet1", "Ethernet5", "Ethernet6", "Ethernet7", "Port-Channel1"));
  EXPECT_EQ(errdisabledSince("Ethernet7"), 1050.0);
  EXPECT_EQ(errdisabledSince("Ethernet1"), 1000.0);

  // The exemption list spares a port; a member follows its LAG whatever the list says.
  cliConfig->noerrdisableIntf.set(IntfId("Ethernet1"), true);
  cliConfig->noerrdisableIntf.set(IntfId("Ethernet7"), true);
  EXPECT_THAT(errdisabledIntfs(), UnorderedElementsAre("Ethernet5", "Ethernet6", "Ethernet7", "Port-Channel1"));
  clock.advance(50);
  cliConfig->noerrdisableIntf.set(IntfId("Ethernet1"), false);
  EXPECT_EQ(errdisabledSince("Ethernet1"), 1100.0);
  // Every evaluation that finds the need writes the time again.
  clock.advance(5);
  switchportModeIs("Ethernet5", switchportModeAccess);
  EXPECT_EQ(errdisabledSince("Ethernet5"), 1105.0);

  // Leaving the LAG, a member is judged by its own mode.
  lagConfig->phyIntfIs(IntfId("Ethernet6"))->lag.set(IntfId());
  EXPECT_FALSE(errdisabledSince("Ethernet6"));
  EXPECT_TRUE(errdisabledSince("Ethernet7"));

  // With the feature off, tap and tool ports are the ones that conflict; the list does not matter.
  cliConfig->noerrdisableIntf.set(IntfId("Ethernet3"), true);
  modeIs(kOff);
  EXPECT_THAT(errdisabledIntfs(), UnorderedElementsAre("Ethernet2", "Ethernet3", "Ethernet6"));
}

TEST_F(TapAggErrDisableTest, MixedModeFollowsLinecardProfilesAndReleasesVlanInterfaces) {
  for (const char* intf : {"Ethernet3/1", "Ethernet3/2", "Ethernet3/3", "Ethernet4/1", "Ethernet4/2", "Ethernet4/3",
                           "Port-Channel2", "Port-Channel3"}) {
    up(intf);
  }
  switchportModeIs("Ethernet3/1", switchportModeTap);
  switchportModeIs("Ethernet3/2", switchportModeAccess);
  switchportModeIs("Ethernet3/3", switchportModeAccess);
  switchportModeIs("Port-Channel3", switchportModeTap);
  lagMember("Ethernet3/3", "Port-Channel3");
  switchportModeIs("Ethernet4/1", switchportModeTap);
  switchportModeIs("Ethernet4/2", switchportModeAccess);
  switchportModeIs("Ethernet4/3", switchportModeTool);
  switchportModeIs("Port-Channel2", switchportModeAccess);
  lagMember("Ethernet4/3", "Port-Channel2");
  cliConfig->noerrdisableIntf.set(IntfId("Ethernet4/3"), true);
  cliConfig->sliceProfileConfig.set("Linecard4", "tapagg");
  vlans->intfStatusIs(IntfId("Vlan10"));

  start(kMixed);
  // Linecard 3 has no profile: a tap port conflicts, and so does a member of a tap LAG.
  // Linecard 4 has one: an access port conflicts, and so does a member of an access LAG, exempt
  // or not. Port-Channels and VLAN interfaces are never disabled in mixed mode.
  EXPECT_THAT(errdisabledIntfs(), UnorderedElementsAre("Ethernet3/1", "Ethernet3/3", "Ethernet4/2", "Ethernet4/3"));
  cliConfig->noerrdisableIntf.set(IntfId("Ethernet4/2"), true);
  EXPECT_THAT(errdisabledIntfs(), UnorderedElementsAre("Ethernet3/1", "Ethernet3/3", "Ethernet4/3"));

  // A new profile takes effect when the interfaces are judged again, not before.
  const uint64_t before = outputWrites();
  cliConfig->sliceProfileConfig.set("Linecard3", "tapagg");
  EXPECT_EQ(outputWrites(), before);

  clock.advance(7);
  modeIs(kExclusive);
  EXPECT_EQ(errdisabledSince("Vlan10"), 1007.0);
  clock.advance(1);
  vlans->intfStatusIs(IntfId("Vlan20"));
  EXPECT_EQ(errdisabledSince("Vlan20"), 1008.0);
  vlans->intfStatusDel(IntfId("Vlan20"));
  EXPECT_FALSE(errdisabledSince("Vlan20"));

  modeIs(kMixed);
  EXPECT_THAT(errdisabledIntfs(), UnorderedElementsAre("Ethernet3/2", "Ethernet4/3"));

  // A deleted Ethernet interface leaves the cause status.
  eth->intfStatusDel(IntfId("Ethernet4/3"));
  EXPECT_THAT(errdisabledIntfs(), ElementsAre("Ethernet3/2"));
}

TEST_F(TapAggErrDisableTest, VlanInterfacesPresentAtStartUpAreDisabledInExclusiveMode) {
  vlans->intfStatusIs(IntfId("Vlan10"));
  start(kExclusive);
  EXPECT_THAT(errdisabledIntfs(), ElementsAre("Vlan10"));
  modeIs(kMixed);
  EXPECT_THAT(errdisabledIntfs(), IsEmpty());
}

// --- start-up ----------------------------------------------------------------------------------

using TapAggRestartTest = TapAggFixture;

// What an earlier run left for ports that are no longer tap or tool ports, or no longer
// configured at all, is swept at start-up; what the configuration confirms is kept.
TEST_F(TapAggRestartTest, StartUpKeepsWhatIsStillConfiguredAndSweepsTheRest) {
  port("Ethernet1", switchportModeTap, {"taps"});
  up("Ethernet1");
  port("Ethernet2", switchportModeTool, {}, {"tools"});
  up("Ethernet2");
  port("Ethernet8", switchportModeAccess, {"old"});
  auto unconfigured = platform::make<Bridging::Input::SwitchIntfConfig>(IntfId("Ethernet9"));
  for (const auto& intf : {cli("Ethernet1"), cli("Ethernet8"), unconfigured}) hwConfig->tapPortIs(intf);
  for (const auto& intf : {cli("Ethernet2"), unconfigured}) hwConfig->toolPortIs(intf);
  status->groupIs("taps")->tapPortIs("Ethernet1", activePort());
  status->groupIs("old")->tapPortIs("Ethernet8", activePort());
  status->groupIs("gone")->toolPortIs("Ethernet9", activePort());
  status->groupIs("taps")->tapPortIs("Ethernet9", activePort());  // the group stays, the entry must not

  start(kExclusive);
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet2"));
  EXPECT_THAT(groups(), ElementsAre("taps", "tools"));
  EXPECT_EQ(tapStatus("taps", "Ethernet9"), std::nullopt);
}

// --- slices ----------------------------------------------------------------------------------

TEST(TapAggSliceDeathTest, AModeBeyondMixedStopsTheSliceUpdater) {
  auto cliConfig = platform::make<TapAgg::CliConfig>();
  auto hwConfig = platform::make<TapAgg::HwConfig>();
  auto dir = platform::make<platform::Dir>();
  dir->entry.insert("Linecard3", platform::make<Hardware::SliceStatus>());
  auto sm = platform::make<TapAgg::SliceModeUpdateSm>(dir, cliConfig, hwConfig);
  EXPECT_FALSE(hwConfig->slice.get("Linecard3", true));
  EXPECT_DEATH(cliConfig->mode.set(static_cast<TapAggMode>(3)), "assertion failed: 0 && \"unknown mode\"");
}

}  // namespace
}  // namespace tapagg_test
