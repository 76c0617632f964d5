// Tap aggregation: the configuration manager and its followers, driven through the entities
// they follow. Each test starts a real TapAgg::ConfigSm over entities of its own and checks what
// it published: the hardware configuration, the group statuses, the port modes, the errdisable
// cause status, the slices and the syslog.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
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

// --- the mode and the children's lifecycle ---------------------------------------------------

using TapAggConfigSmTest = TapAggFixture;

TEST_F(TapAggConfigSmTest, StartingOffLogsNothingKeepsTheLastingChildrenAndSweepsLeftovers) {
  // What an earlier run in tap-aggregation mode left behind.
  auto e1 = port("Ethernet1", switchportModeTap, {"taps"});
  up("Ethernet1");
  hwConfig->tapPortIs(e1);
  hwConfig->toolPortIs(e1);
  status->groupIs("taps")->tapPortIs("Ethernet1", activePort());
  status->groupIs("old")->toolPortIs("Ethernet7", activePort());
  cliConfig->trafficSteeringMacAclMatchIp.set(true);

  start(kOff);

  EXPECT_THAT(operationalModeTexts(), IsEmpty());
  EXPECT_TRUE(configSm->errDisableSm());
  EXPECT_TRUE(configSm->sliceModeUpdateSm());
  EXPECT_FALSE(configSm->switchIntfConfigSm());
  EXPECT_FALSE(configSm->ethIntfStatusSm());
  EXPECT_FALSE(configSm->mirroringSessionStatusSm());
  EXPECT_FALSE(configSm->enabled());
  EXPECT_FALSE(hwConfig->mirroringRunnability());
  EXPECT_TRUE(hwConfig->trafficSteeringMacAclMatchIp());
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_THAT(groups(), IsEmpty());
  EXPECT_FALSE(portMode("Ethernet1"));
  // A tap port cannot work with the feature off.
  EXPECT_THAT(errdisabledIntfs(), ElementsAre("Ethernet1"));

  // Staying off: the mode handling runs again without a word and without a write.
  const uint64_t before = outputWrites();
  configSm->handleMode();
  EXPECT_EQ(outputWrites(), before);
  EXPECT_THAT(operationalModeTexts(), IsEmpty());
  EXPECT_FALSE(configSm->switchIntfConfigSm());

  // Traffic steering is copied while off as well.
  cliConfig->trafficSteeringMacAclMatchIp.set(false);
  EXPECT_FALSE(hwConfig->trafficSteeringMacAclMatchIp());
}

TEST_F(TapAggConfigSmTest, SwitchingBetweenExclusiveAndMixedLogsEveryTimeAndKeepsTheChildren) {
  start(kExclusive);
  EXPECT_THAT(operationalModeTexts(), ElementsAre(kExclusiveText));
  EXPECT_TRUE(configSm->enabled());
  EXPECT_TRUE(hwConfig->mirroringRunnability());
  const auto errDisable = configSm->errDisableSm();
  const auto sliceUpdater = configSm->sliceModeUpdateSm();
  const auto switchIntfs = configSm->switchIntfConfigSm();
  const auto links = configSm->ethIntfStatusSm();
  const auto sessions = configSm->mirroringSessionStatusSm();
  ASSERT_TRUE(errDisable && sliceUpdater && switchIntfs && links && sessions);
  EXPECT_TRUE(switchIntfs->initialized() && links->initialized() && sessions->initialized());

  modeIs(kMixed);
  cliConfig->trafficSteeringMacAclMatchIp.set(true);
  EXPECT_TRUE(hwConfig->trafficSteeringMacAclMatchIp());
  modeIs(kExclusive);
  cliConfig->trafficSteeringMacAclMatchIp.set(false);
  EXPECT_FALSE(hwConfig->trafficSteeringMacAclMatchIp());

  EXPECT_THAT(operationalModeTexts(), ElementsAre(kExclusiveText, kMixedText, kExclusiveText));
  EXPECT_EQ(configSm->errDisableSm(), errDisable);
  EXPECT_EQ(configSm->sliceModeUpdateSm(), sliceUpdater);
  EXPECT_EQ(configSm->switchIntfConfigSm(), switchIntfs);
  EXPECT_EQ(configSm->ethIntfStatusSm(), links);
  EXPECT_EQ(configSm->mirroringSessionStatusSm(), sessions);
  EXPECT_TRUE(hwConfig->mirroringRunnability());

  // A repeat of the same mode logs once more and builds nothing.
  configSm->handleMode();
  EXPECT_THAT(operationalModeTexts(), ElementsAre(kExclusiveText, kMixedText, kExclusiveText, kExclusiveText));
  EXPECT_EQ(configSm->switchIntfConfigSm(), switchIntfs);
}

TEST_F(TapAggConfigSmTest, DisablingTearsTheModeChildrenDownAndEnablingBuildsThemAfresh) {
  port("Ethernet1", switchportModeTap, {"taps"});
  up("Ethernet1");
  port("Ethernet2", switchportModeTool, {}, {"tools"});
  up("Ethernet2");
  start(kExclusive);
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet2"));
  EXPECT_THAT(groups(), ElementsAre("taps", "tools"));
  EXPECT_EQ(portMode("Ethernet1"), EthIntf::portModeTapAgg);
  EXPECT_EQ(portMode("Ethernet2"), EthIntf::portModeTapAgg);
  EXPECT_THAT(errdisabledIntfs(), IsEmpty());

  // Held so that the new children cannot take the old ones' addresses.
  const auto oldSwitchIntfs = configSm->switchIntfConfigSm();
  const auto oldLinks = configSm->ethIntfStatusSm();
  const auto oldSessions = configSm->mirroringSessionStatusSm();
  const auto errDisable = configSm->errDisableSm();
  const auto sliceUpdater = configSm->sliceModeUpdateSm();

  modeIs(kOff);
  EXPECT_THAT(operationalModeTexts(), ElementsAre(kExclusiveText, kDisabledText));
  EXPECT_FALSE(configSm->switchIntfConfigSm());
  EXPECT_FALSE(configSm->ethIntfStatusSm());
  EXPECT_FALSE(configSm->mirroringSessionStatusSm());
  EXPECT_EQ(configSm->errDisableSm(), errDisable);
  EXPECT_EQ(configSm->sliceModeUpdateSm(), sliceUpdater);
  EXPECT_FALSE(configSm->enabled());
  EXPECT_FALSE(hwConfig->mirroringRunnability());
  // The switch-interface follower takes its ports, groups and port modes with it ...
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_THAT(groups(), IsEmpty());
  EXPECT_THAT(portModes->portMode.keys(), IsEmpty());
  // ... and the ports, still configured for tap aggregation, are error-disabled.
  EXPECT_THAT(errdisabledIntfs(), ElementsAre("Ethernet1", "Ethernet2"));

  cliConfig->trafficSteeringMacAclMatchIp.set(true);
  EXPECT_TRUE(hwConfig->trafficSteeringMacAclMatchIp());

  modeIs(kExclusive);
  EXPECT_THAT(operationalModeTexts(), ElementsAre(kExclusiveText, kDisabledText, kExclusiveText));
  ASSERT_TRUE(configSm->switchIntfConfigSm() && configSm->ethIntfStatusSm() && configSm->mirroringSessionStatusSm());
  EXPECT_NE(configSm->switchIntfConfigSm(), oldSwitchIntfs);
  EXPECT_NE(configSm->ethIntfStatusSm(), oldLinks);
  EXPECT_NE(configSm->mirroringSessionStatusSm(), oldSessions);
  EXPECT_TRUE(configSm->mirroringSessionStatusSm()->initialized());
  EXPECT_EQ(configSm->errDisableSm(), errDisable);
  EXPECT_TRUE(hwConfig->mirroringRunnability());
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet2"));
  EXPECT_EQ(tapStatus("taps", "Ethernet1"), activePort());
  EXPECT_EQ(toolStatus("tools", "Ethernet2"), activePort());
  EXPECT_THAT(errdisabledIntfs(), IsEmpty());
}

// --- port status -----------------------------------------------------------------------------

using TapAggPortStatusTest = TapAggFixture;

TEST_F(TapAggPortStatusTest, ReasonsAccumulateInCheckOrderAndOnlyALinkReasonStaysInHardware) {
  start(kExclusive);
  port("Ethernet1", switchportModeTap, {"g"});
  up("Ethernet1");
  EXPECT_EQ(tapStatus("g", "Ethernet1"), activePort());
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));

  // A port that is down only for its link is in hardware, inactive in its group, whether it
  // was configured in that state or its link went down later.
  const std::vector<std::tuple<const char*, Interface::LinkStatus, const char*>> linkReasons = {
      {"Ethernet11", Interface::linkDown, "Link down,"},
      {"Ethernet12", Interface::linkUnknown, "Link unknown,"},
      {"Ethernet13", Interface::linkNotPresent, "Link unknown,"},
  };
  for (const auto& [intf, linkStatus, reason] : linkReasons) {
    link(intf, linkStatus);
    port(intf, switchportModeTap, {"g"});
    EXPECT_EQ(tapStatus("g", intf), inactivePort(reason)) << intf;
    EXPECT_TRUE(hwConfig->tapPort.contains(IntfId(intf))) << intf;
    bridging->switchIntfConfigDel(IntfId(intf));
    link("Ethernet1", linkStatus);
    EXPECT_EQ(tapStatus("g", "Ethernet1"), inactivePort(reason)) << reason;
    EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1")) << reason;
  }

  // A LAG member is out, even when its link is a reason as well.
  link("Ethernet1", Interface::linkDown);
  lagForwarding->forwardingModelInputIs(IntfId("Ethernet1"), Interface::intfForwardingModelLagMember);
  EXPECT_EQ(tapStatus("g", "Ethernet1"), inactivePort("Link down,Lag member,"));
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  // Only the LAG-member forwarding model counts.
  lagForwarding->forwardingModelInputIs(IntfId("Ethernet1"), Interface::intfForwardingModelBridged);
  EXPECT_EQ(tapStatus("g", "Ethernet1"), inactivePort("Link down,"));
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  lagForwarding->forwardingModelInputIs(IntfId("Ethernet1"), Interface::intfForwardingModelLagMember);
  up("Ethernet1");
  EXPECT_EQ(tapStatus("g", "Ethernet1"), inactivePort("Lag member,"));
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  lagForwarding->forwardingModelInputDel(IntfId("Ethernet1"));
  EXPECT_EQ(tapStatus("g", "Ethernet1"), activePort());
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));

  // A tool port leaving for a LAG goes the same way.
  port("Ethernet3", switchportModeTool, {}, {"t"});
  up("Ethernet3");
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet3"));
  lagForwarding->forwardingModelInputIs(IntfId("Ethernet3"), Interface::intfForwardingModelLagMember);
  EXPECT_EQ(toolStatus("t", "Ethernet3"), inactivePort("Lag member,"));
  EXPECT_THAT(hwToolPorts(), IsEmpty());

  // Without an interface status the LAG check is not made; the port is out of hardware.
  lagForwarding->forwardingModelInputIs(IntfId("Ethernet2"), Interface::intfForwardingModelLagMember);
  port("Ethernet2", switchportModeTap, {"g"});
  EXPECT_EQ(tapStatus("g", "Ethernet2"), inactivePort("Interface status not found,"));
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
}

TEST_F(TapAggPortStatusTest, AMirrorDestinationIsNamedOnceAndOnlyATapToolPortInUseCounts) {
  start(kExclusive);
  link("Ethernet2", Interface::linkDown);
  port("Ethernet2", switchportModeTool, {}, {"t"});
  ASSERT_THAT(hwToolPorts(), ElementsAre("Ethernet2"));
  target("s1", "Ethernet2", OperState::active);
  target("s2", "Ethernet2", OperState::active);
  EXPECT_EQ(portStatusOf("Ethernet2"), inactivePort("Link down,Mirror destination,"));
  EXPECT_EQ(toolStatus("t", "Ethernet2"), inactivePort("Link down,Mirror destination,"));
  EXPECT_THAT(hwToolPorts(), IsEmpty());

  // A target that is not active makes nothing a destination.
  port("Ethernet4", switchportModeTool, {}, {"t"});
  up("Ethernet4");
  target("s1", "Ethernet4", OperState::inactive);
  target("s2", "Ethernet4", OperState::unknown);
  EXPECT_EQ(portStatusOf("Ethernet4"), activePort());
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet4"));

  // Whether a tap-and-tool port is taken as a tool interface.
  port("Ethernet1", switchportModeTap, {"taps"});
  port("Ethernet3", switchportModeTapTool, {"taps"}, {"t"});
  port("Ethernet5", switchportModeTap, {"taps"});
  auto inUse = [this](const std::string& intf) { return TapAgg::toolInterfaceInUse(*configSm, IntfId(intf)); };
  EXPECT_FALSE(inUse("Ethernet3"));
  cli("Ethernet1")->tapRawIntfIs(IntfId("Ethernet3"), true);
  cli("Ethernet1")->tapRawIntfIs(IntfId("Ethernet5"), true);
  EXPECT_TRUE(inUse("Ethernet3"));
  EXPECT_FALSE(inUse("Ethernet5"));  // a tap port is no tool interface
  switchportModeIs("Ethernet1", switchportModeTool);
  EXPECT_FALSE(inUse("Ethernet3"));  // only a tap port's raw interfaces count
  cli("Ethernet3")->toolIntfInUse.set(2);
  EXPECT_TRUE(inUse("Ethernet3"));
  cli("Ethernet3")->toolIntfInUse.set(0);
  switchportModeIs("Ethernet1", switchportModeTap);
  EXPECT_TRUE(inUse("Ethernet3"));

  // An active destination on a tap-and-tool port is spared while no tap port uses it (with
  // the toggle on); a tool-only port never is.
  up("Ethernet3");
  target("s3", "Ethernet3", OperState::active);
  EXPECT_EQ(portStatusOf("Ethernet3"), inactivePort("Mirror destination,"));
  cli("Ethernet1")->tapRawIntfDel(IntfId("Ethernet3"));
  const bool spared = TapAgg::toggleMirrorDestinationOnTapToolPortEnabled();
  EXPECT_EQ(portStatusOf("Ethernet3"), spared ? activePort() : inactivePort("Mirror destination,"));
  target("s3", "Ethernet2", OperState::active);
  EXPECT_EQ(portStatusOf("Ethernet2"), inactivePort("Link down,Mirror destination,"));
}

// --- hardware membership and groups ----------------------------------------------------------

using TapAggSwitchIntfTest = TapAggFixture;

TEST_F(TapAggSwitchIntfTest, EachModeCleansItsOwnRolesBeforeRebuilding) {
  start(kExclusive);
  port("Ethernet1", switchportModeTool, {"taps"}, {"tools"});
  up("Ethernet1");
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(groups(), ElementsAre("tools"));
  EXPECT_EQ(portMode("Ethernet1"), EthIntf::portModeTapAgg);

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

  // An ordinary mode removes both roles and the groups they leave empty.
  switchportModeIs("Ethernet1", switchportModeRouted);
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_THAT(groups(), IsEmpty());
  EXPECT_FALSE(portMode("Ethernet1"));

  switchportModeIs("Ethernet1", switchportModeTool);
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet1"));
  EXPECT_EQ(toolStatus("tools", "Ethernet1"), activePort());
  EXPECT_EQ(portMode("Ethernet1"), EthIntf::portModeTapAgg);

  // The CLI record gone takes every role, also the one an earlier mode left behind.
  switchportModeIs("Ethernet1", switchportModeTap);
  ASSERT_THAT(hwToolPorts(), ElementsAre("Ethernet1"));
  cliIntfs->switchIntfConfigDel(IntfId("Ethernet1"));
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_THAT(groups(), IsEmpty());
}

TEST_F(TapAggSwitchIntfTest, GroupsComeWithTheirFirstMemberAndGoWithTheirLast) {
  start(kExclusive);
  port("Ethernet1", switchportModeTap, {"g"});
  up("Ethernet1");
  port("Ethernet2", switchportModeTool, {}, {"g"});
  up("Ethernet2");
  EXPECT_THAT(groups(), ElementsAre("g"));
  EXPECT_EQ(tapStatus("g", "Ethernet1"), activePort());
  EXPECT_EQ(toolStatus("g", "Ethernet2"), activePort());

  cli("Ethernet1")->tapGroupIs("h");
  EXPECT_EQ(tapStatus("h", "Ethernet1"), activePort());
  cli("Ethernet1")->tapGroupDel("g");
  EXPECT_FALSE(tapStatus("g", "Ethernet1"));
  EXPECT_EQ(toolStatus("g", "Ethernet2"), activePort());
  EXPECT_THAT(groups(), ElementsAre("g", "h"));

  // A tap group on a tool-only port writes nothing.
  uint64_t before = outputWrites();
  cli("Ethernet2")->tapGroupIs("x");
  cli("Ethernet2")->tapGroupDel("x");
  EXPECT_EQ(outputWrites(), before);
  EXPECT_THAT(groups(), ElementsAre("g", "h"));

  // The last member out takes the group with it; hardware entries stay with the port.
  cli("Ethernet2")->toolGroupDel("g");
  EXPECT_THAT(groups(), ElementsAre("h"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet2"));

  // An empty group is removed by the next deletion, even one naming a group that is not there.
  status->groupIs("empty");
  configSm->switchIntfConfigSm()->doDeletePortStatus("missing", true, IntfId("Ethernet1"));
  EXPECT_THAT(groups(), ElementsAre("h"));

  // The CLI record gone: the port's roles, groups and port mode go with it.
  cliIntfs->switchIntfConfigDel(IntfId("Ethernet1"));
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  EXPECT_THAT(groups(), IsEmpty());
  EXPECT_FALSE(portMode("Ethernet1"));
  // The switchport record gone: hardware entry and port mode go.
  EXPECT_EQ(portMode("Ethernet2"), EthIntf::portModeTapAgg);
  bridging->switchIntfConfigDel(IntfId("Ethernet2"));
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_FALSE(portMode("Ethernet2"));

  // Either half coming back alone builds nothing; the second half builds the port.
  before = outputWrites();
  switchportModeIs("Ethernet1", switchportModeTap);
  EXPECT_THAT(hwTapPorts(), IsEmpty());
  port("Ethernet1", switchportModeTap, {"g"});
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_EQ(tapStatus("g", "Ethernet1"), activePort());
  EXPECT_GT(outputWrites(), before);
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

// --- mirroring destinations ------------------------------------------------------------------

using TapAggSessionStatusTest = TapAggFixture;

TEST_F(TapAggSessionStatusTest, AToolPortLeavesHardwareWhileItIsAnActiveDestination) {
  start(kExclusive);
  port("Ethernet2", switchportModeTool, {}, {"t"});
  up("Ethernet2");
  ASSERT_THAT(hwToolPorts(), ElementsAre("Ethernet2"));

  auto becomesDestination = [this] {
    target("s1", "Ethernet2", OperState::active);
    EXPECT_THAT(hwToolPorts(), IsEmpty());
    EXPECT_EQ(toolStatus("t", "Ethernet2"), inactivePort("Mirror destination,"));
  };
  auto isBack = [this](const char* how) {
    EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet2")) << how;
    EXPECT_EQ(toolStatus("t", "Ethernet2"), activePort()) << how;
  };

  becomesDestination();
  target("s1", "Ethernet2", OperState::inactive);
  isBack("target inactive");

  becomesDestination();
  mirroring->sessionStatusIs("s1")->targetOperStatus.del("Ethernet2");
  isBack("target removed");

  becomesDestination();
  mirroring->sessionStatusDel("s1");
  isBack("session status deleted");

  // Targets that are no tap or tool port, the CPU among them, change nothing here.
  port("Ethernet9", switchportModeAccess);
  up("Ethernet9");
  const uint64_t before = outputWrites();
  target("s2", "Ethernet9", OperState::active);
  target("s2", "Cpu", OperState::inactive);
  target("s2", "Ethernet9", OperState::inactive);
  EXPECT_EQ(outputWrites(), before);

  // A destination published before tap aggregation starts keeps the port out from the start.
  modeIs(kOff);
  target("s3", "Ethernet2", OperState::active);
  modeIs(kMixed);
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_EQ(toolStatus("t", "Ethernet2"), inactivePort("Mirror destination,"));
}

TEST_F(TapAggSessionStatusTest, ATapToolDestinationStaysUntilATapPortTakesItRaw) {
  if (!TapAgg::toggleMirrorDestinationOnTapToolPortEnabled()) {
    GTEST_SKIP() << "MirrorDestinationOnTapToolPort is off in this process";
  }
  start(kExclusive);
  port("Ethernet1", switchportModeTap, {"taps"});
  up("Ethernet1");
  port("Ethernet3", switchportModeTapTool, {"taps"}, {"tools"});
  up("Ethernet3");
  target("s1", "Ethernet3", OperState::active);
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1", "Ethernet3"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet3"));
  EXPECT_EQ(toolStatus("tools", "Ethernet3"), activePort());

  // A tap port passing it on raw makes it a tool interface in use: a destination after all.
  cli("Ethernet1")->tapRawIntfIs(IntfId("Ethernet3"), true);
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_EQ(tapStatus("taps", "Ethernet3"), inactivePort("Mirror destination,"));
  EXPECT_EQ(toolStatus("tools", "Ethernet3"), inactivePort("Mirror destination,"));

  cli("Ethernet1")->tapRawIntfDel(IntfId("Ethernet3"));
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1", "Ethernet3"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet3"));
  EXPECT_EQ(toolStatus("tools", "Ethernet3"), activePort());

  // Taken as a tool interface by some other user, and released again.
  cli("Ethernet3")->toolIntfInUse.set(1);
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_EQ(toolStatus("tools", "Ethernet3"), inactivePort("Mirror destination,"));
  cli("Ethernet3")->toolIntfInUse.set(0);
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet3"));

  // The listing tap port becoming a tap port again re-judges its raw interfaces.
  switchportModeIs("Ethernet1", switchportModeAccess);
  cli("Ethernet1")->tapRawIntfIs(IntfId("Ethernet3"), true);
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet3"));
  switchportModeIs("Ethernet1", switchportModeTap);
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_EQ(toolStatus("tools", "Ethernet3"), inactivePort("Mirror destination,"));
  // ... and ceasing to be one releases them again.
  switchportModeIs("Ethernet1", switchportModeAccess);
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet3"));
  EXPECT_EQ(toolStatus("tools", "Ethernet3"), activePort());
}

// --- link changes ----------------------------------------------------------------------------

using TapAggLinkTest = TapAggFixture;

TEST_F(TapAggLinkTest, LinkChangesRewriteTapAndToolPortsOnly) {
  start(kExclusive);
  port("Ethernet1", switchportModeTap, {"g"});
  up("Ethernet1");
  port("Ethernet2", switchportModeTool, {}, {"t"});
  up("Ethernet2");
  port("Ethernet5", switchportModeTapTool, {"g"}, {"t"});
  up("Ethernet5");
  port("Ethernet9", switchportModeAccess);
  up("Ethernet9");

  // Down: both roles show it and stay in hardware. Up: rebuilt active.
  link("Ethernet5", Interface::linkDown);
  EXPECT_EQ(tapStatus("g", "Ethernet5"), inactivePort("Link down,"));
  EXPECT_EQ(toolStatus("t", "Ethernet5"), inactivePort("Link down,"));
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1", "Ethernet5"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet2", "Ethernet5"));
  up("Ethernet5");
  EXPECT_EQ(tapStatus("g", "Ethernet5"), activePort());
  EXPECT_EQ(toolStatus("t", "Ethernet5"), activePort());

  // Up on a port that left hardware for another reason puts it back once the reason is gone.
  link("Ethernet1", Interface::linkDown);
  lagForwarding->forwardingModelInputIs(IntfId("Ethernet1"), Interface::intfForwardingModelLagMember);
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet5"));
  up("Ethernet1");
  EXPECT_EQ(tapStatus("g", "Ethernet1"), inactivePort("Lag member,"));
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet5"));
  lagForwarding->forwardingModelInputDel(IntfId("Ethernet1"));
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1", "Ethernet5"));

  // An ordinary port's link writes nothing.
  const uint64_t before = outputWrites();
  link("Ethernet9", Interface::linkDown);
  up("Ethernet9");
  EXPECT_EQ(outputWrites(), before);

  // An interface status gone takes the port out of the hardware; its groups say why, as a
  // start-up without the status would.
  eth->intfStatusDel(IntfId("Ethernet2"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet5"));
  EXPECT_EQ(toolStatus("t", "Ethernet2"), inactivePort("Interface status not found,"));
  eth->intfStatusDel(IntfId("Ethernet5"));
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(hwToolPorts(), IsEmpty());
  EXPECT_EQ(tapStatus("g", "Ethernet5"), inactivePort("Interface status not found,"));
  EXPECT_THAT(groups(), ElementsAre("g", "t"));

  // Back with its link up, it is rebuilt whole.
  up("Ethernet5");
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1", "Ethernet5"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet5"));
  EXPECT_EQ(toolStatus("t", "Ethernet5"), activePort());

  // Back with its link down, it is judged in full as well: down for its link alone, it is
  // handed to the hardware, as a start-up in this state would do.
  eth->intfStatusDel(IntfId("Ethernet2"));
  link("Ethernet2", Interface::linkDown);
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet2", "Ethernet5"));
  EXPECT_EQ(toolStatus("t", "Ethernet2"), inactivePort("Link down,"));
}

// --- slices ----------------------------------------------------------------------------------

using TapAggSliceTest = TapAggFixture;

TEST_F(TapAggSliceTest, SlicesFollowTheModeTheProfilesAndTheirStatusEntries) {
  slice("Linecard3");
  slice("Linecard4");
  hwConfig->sliceIs("Gone", true);
  cliConfig->sliceProfileConfig.set("Linecard4", "tapagg");
  auto written = [this] {
    std::map<std::string, bool> out;
    for (const auto& name : hwConfig->slice.keys()) out[name] = hwConfig->slice.get(name);
    return out;
  };
  using M = std::map<std::string, bool>;

  start(kOff);  // slices reporting at start-up are written at once
  EXPECT_EQ(written(), (M{{"Gone", true}, {"Linecard3", false}, {"Linecard4", false}}));
  modeIs(kExclusive);
  EXPECT_EQ(written(), (M{{"Gone", true}, {"Linecard3", true}, {"Linecard4", true}}));
  modeIs(kMixed);
  EXPECT_EQ(written(), (M{{"Gone", true}, {"Linecard3", false}, {"Linecard4", true}}));
  // A profile that comes or goes rewrites its slice; one for a slice without status writes none.
  cliConfig->sliceProfileConfig.set("Linecard3", "tapagg");
  cliConfig->sliceProfileConfig.set("Linecard9", "tapagg");
  EXPECT_EQ(written(), (M{{"Gone", true}, {"Linecard3", true}, {"Linecard4", true}}));
  cliConfig->sliceProfileConfig.del("Linecard3");
  EXPECT_EQ(written(), (M{{"Gone", true}, {"Linecard3", false}, {"Linecard4", true}}));

  slice("Linecard5");
  slices->entry.del("Linecard4");
  EXPECT_EQ(written(), (M{{"Gone", true}, {"Linecard3", false}, {"Linecard5", false}}));
  modeIs(kOff);
  EXPECT_EQ(written(), (M{{"Gone", true}, {"Linecard3", false}, {"Linecard5", false}}));
  modeIs(kExclusive);
  EXPECT_EQ(written(), (M{{"Gone", true}, {"Linecard3", true}, {"Linecard5", true}}));
}

TEST(TapAggSliceDeathTest, AModeBeyondMixedStopsTheSliceUpdater) {
  auto cliConfig = platform::make<TapAgg::CliConfig>();
  auto hwConfig = platform::make<TapAgg::HwConfig>();
  auto dir = platform::make<platform::Dir>();
  dir->entry.insert("Linecard3", platform::make<Hardware::SliceStatus>());
  auto sm = platform::make<TapAgg::SliceModeUpdateSm>(dir, cliConfig, hwConfig);
  EXPECT_FALSE(hwConfig->slice.get("Linecard3", true));
  EXPECT_DEATH(cliConfig->mode.set(static_cast<TapAggMode>(3)), "assertion failed: 0 && \"unknown mode\"");
}

// --- restart ---------------------------------------------------------------------------------

using TapAggRestartTest = TapAggFixture;

TEST_F(TapAggRestartTest, StartUpKeepsWhatIsStillConfiguredAndSweepsTheRest) {
  port("Ethernet1", switchportModeTap, {"taps"});
  up("Ethernet1");
  port("Ethernet2", switchportModeTool, {}, {"tools"});
  up("Ethernet2");
  port("Ethernet3", switchportModeTap, {"taps"});  // configured, but no interface status
  port("Ethernet8", switchportModeAccess, {"old"});
  // A port whose configuration is gone altogether.
  auto unconfigured = platform::make<Bridging::Input::SwitchIntfConfig>(IntfId("Ethernet9"));
  for (const auto& intf : {cli("Ethernet1"), cli("Ethernet3"), cli("Ethernet8"), unconfigured}) {
    hwConfig->tapPortIs(intf);
  }
  for (const auto& intf : {cli("Ethernet2"), unconfigured}) hwConfig->toolPortIs(intf);
  status->groupIs("taps")->tapPortIs("Ethernet1", activePort());
  status->groupIs("tools")->toolPortIs("Ethernet2", inactivePort("Link down,"));
  status->groupIs("old")->tapPortIs("Ethernet8", activePort());
  status->groupIs("gone")->toolPortIs("Ethernet9", activePort());
  // A port that left "taps" while the agent was down: the group survives, the entry must not.
  status->groupIs("taps")->tapPortIs("Ethernet9", activePort());
  status->groupIs("tools")->tapPortIs("Ethernet2", activePort());

  start(kExclusive);
  EXPECT_THAT(hwTapPorts(), ElementsAre("Ethernet1"));
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet2"));
  EXPECT_EQ(hwConfig->tapPort.get(IntfId("Ethernet1")).get().get(), cli("Ethernet1").get());
  EXPECT_THAT(groups(), ElementsAre("taps", "tools"));
  EXPECT_EQ(tapStatus("taps", "Ethernet9"), std::nullopt);
  EXPECT_EQ(tapStatus("tools", "Ethernet2"), std::nullopt);
  EXPECT_EQ(tapStatus("taps", "Ethernet1"), activePort());
  EXPECT_EQ(tapStatus("taps", "Ethernet3"), inactivePort("Interface status not found,"));
  EXPECT_EQ(toolStatus("tools", "Ethernet2"), activePort());
  for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet8", "Ethernet9"}) {
    EXPECT_FALSE(configSm->staleTapPortSetHas(IntfId(intf))) << intf;
    EXPECT_FALSE(configSm->staleToolPortSetHas(IntfId(intf))) << intf;
  }
  EXPECT_FALSE(configSm->staleGroupSetHas("gone"));
}

TEST_F(TapAggRestartTest, ARestartOverUnchangedInputsEndsInTheSameState) {
  port("Ethernet1", switchportModeTap, {"taps"});
  up("Ethernet1");
  port("Ethernet2", switchportModeTool, {}, {"tools"});
  link("Ethernet2", Interface::linkDown);
  port("Ethernet3", switchportModeTapTool, {"taps"}, {"tools"});
  up("Ethernet3");
  port("Ethernet4", switchportModeTool, {}, {"tools"});
  up("Ethernet4");
  target("s1", "Ethernet4", OperState::active);
  port("Ethernet5", switchportModeAccess);
  up("Ethernet5");
  vlans->intfStatusIs(IntfId("Vlan10"));
  slice("Linecard1");
  start(kExclusive);
  auto outputs = [this] {
    return std::vector<platform::Value>{platform::entityToValue(*hwConfig), platform::entityToValue(*status),
                                        platform::entityToValue(*portModes), platform::entityToValue(*errdisabled)};
  };
  const auto before = outputs();
  EXPECT_THAT(hwToolPorts(), ElementsAre("Ethernet2", "Ethernet3"));
  EXPECT_THAT(errdisabledIntfs(), UnorderedElementsAre("Ethernet5", "Vlan10"));

  const uint64_t writes = outputWrites();
  start();
  EXPECT_EQ(outputs(), before);
  // Confirmed in place: no port leaves the hardware and comes back.
  EXPECT_EQ(outputWrites(), writes);
  EXPECT_THAT(operationalModeTexts(), ElementsAre(kExclusiveText, kExclusiveText));
}

}  // namespace
}  // namespace tapagg_test
