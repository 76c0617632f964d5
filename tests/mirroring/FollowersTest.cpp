// The followers of the mirroring configuration manager: the session defaults, Ethernet
// interface status, LAG membership and source entries, and the timestamp-with-truncation report.
// Each test runs a real configuration manager over entities of its own.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Mirroring/MirroringSm.h"
#include "platform/Syslog.h"

namespace {

using Mirroring::Direction;
using Mirroring::MetadataElementType;
using Mirroring::OperState;
using Mirroring::OperStatus;
using platform::IntfId;
using platform::Ptr;
namespace sl = platform::syslog;

const char* const kTimestampKey = "MIRRORING_TIMESTAMP_WITH_TRUNCATE_NOTSUPPORTED";

std::string timestampText(const std::string& intf, const std::string& role, const std::string& session) {
  return "Timestamping on interface " + intf + " (" + role +
         ") does not work with truncation configured on mirror session " + session + ".";
}

// The inputs and outputs of one configuration manager, and a syslog capture.
class MirroringFixture : public ::testing::Test {
 protected:
  MirroringFixture() {
    capability->maxSupportedSessions.set(8);
    capability->truncationSupported.set(true);
    capability->lagDestSupported.set(true);
    for (auto type : Acl::allAclTypes) acl->configIs(type);
  }
  void SetUp() override {
    savedSinks = sl::sinks();
    sl::clearSinks();
    sl::addSink(capture);
  }
  void TearDown() override {
    configSm = nullptr;
    sl::clearSinks();
    for (auto& sink : savedSinks) sl::addSink(sink);
  }

  void start(bool withPhyDir = true) {
    configSm = platform::make<Mirroring::ConfigSm>(config, status, hwConfig, hwStatus, capability, eth, lag, acl,
                                                   forwardingModel, vrfs, lagStatus,
                                                   withPhyDir ? phy : Ptr<Interface::AllEthPhyIntfStatusDir>());
  }

  Ptr<Interface::EthIntfStatus> ethUp(const std::string& name,
                                      Interface::TimestampMode mode = Interface::timestampModeDisabled) {
    auto s = eth->intfStatusIs(IntfId(name));
    s->hwActive.set(true);
    s->linkStatus.set(Interface::linkUp);
    s->timestampMode.set(mode);
    return s;
  }
  // A member port of a Port-Channel, with the timestamp mode its physical status reports.
  void member(const std::string& name, const std::string& portChannel, Interface::TimestampMode mode) {
    ethUp(name);
    phy->intfStatusIs(IntfId(name))->timestampMode.set(mode);
    lag->phyIntfIs(IntfId(name))->lag.set(IntfId(portChannel));
  }
  Ptr<Mirroring::Session> session(const std::string& name, const std::string& src, Direction dir,
                                  const std::string& dest) {
    auto s = config->sessionIs(name);
    s->srcIntfIs(src, dir);
    s->targetIntfIs(dest);
    return s;
  }
  OperStatus srcStatus(const std::string& session, const std::string& intf) {
    auto s = status->sessionStatus.get(session);
    return s ? s->srcOperStatus.get(intf) : OperStatus();
  }
  OperStatus destStatus(const std::string& session, const std::string& intf) {
    auto s = status->sessionStatus.get(session);
    return s ? s->targetOperStatus.get(intf) : OperStatus();
  }
  Ptr<const Mirroring::SrcIntf> hwSrc(const std::string& session, const std::string& intf) {
    auto s = hwConfig->session.get(session);
    return s ? Ptr<const Mirroring::SrcIntf>(s->srcIntf.get(intf)) : nullptr;
  }
  std::vector<std::string> timestampMessages() {
    std::vector<std::string> out;
    for (const auto& r : capture->records()) {
      if (r.key == kTimestampKey) out.push_back(r.text);
    }
    return out;
  }

  Ptr<Mirroring::Config> config = platform::make<Mirroring::Config>();
  Ptr<Mirroring::Status> status = platform::make<Mirroring::Status>();
  Ptr<Mirroring::Config> hwConfig = platform::make<Mirroring::Config>();
  Ptr<Mirroring::HwStatus> hwStatus = platform::make<Mirroring::HwStatus>();
  Ptr<Mirroring::HwCapability> capability = platform::make<Mirroring::HwCapability>();
  Ptr<Interface::EthIntfStatusDir> eth = platform::make<Interface::EthIntfStatusDir>();
  Ptr<Interface::AllEthPhyIntfStatusDir> phy = platform::make<Interface::AllEthPhyIntfStatusDir>();
  Ptr<Interface::EthLagIntfStatusDir> lagStatus = platform::make<Interface::EthLagIntfStatusDir>();
  Ptr<Lag::Config> lag = platform::make<Lag::Config>();
  Ptr<Acl::Config> acl = platform::make<Acl::Config>();
  Ptr<Interface::IntfForwardingModelInputDir> forwardingModel =
      platform::make<Interface::IntfForwardingModelInputDir>();
  Ptr<Ip::AllVrfStatusGlobal> vrfs = platform::make<Ip::AllVrfStatusGlobal>();
  Ptr<Mirroring::ConfigSm> configSm;

  std::vector<std::shared_ptr<sl::Sink>> savedSinks;
  std::shared_ptr<sl::CaptureSink> capture = std::make_shared<sl::CaptureSink>();
};

// --- session defaults ------------------------------------------------------------------------

using DefaultSessionConfigSmTest = MirroringFixture;

TEST_F(DefaultSessionConfigSmTest, CopiesTheDefaultsAndFollowsEveryChange) {
  auto defaults = config->defaultSessionConfig();
  auto hwDefaults = hwConfig->defaultSessionConfig();
  defaults->grePayloadType.set(Mirroring::GrePayloadType::payloadTypeInnerPacket);
  defaults->greMetadata.set(MetadataElementType::switchId, true);
  defaults->greMetadata.set(MetadataElementType::timestamp, false);
  defaults->greTimestampingEnabled.set(true);
  defaults->portMirroringDisabled.set(true);
  defaults->truncationSize.set(Mirroring::TruncationSize::truncationSize192);
  // Left by an earlier run for an element the configuration no longer has.
  hwDefaults->greMetadata.set(MetadataElementType::vlan, true);
  status->defaultGreMetadata.set(MetadataElementType::vlan, true);

  start();
  ASSERT_TRUE(configSm->defaultSessionConfigSm());
  EXPECT_TRUE(configSm->defaultSessionConfigSm()->initialized());
  EXPECT_EQ(hwDefaults->grePayloadType(), Mirroring::GrePayloadType::payloadTypeInnerPacket);
  EXPECT_EQ(status->grePayloadType(), Mirroring::GrePayloadType::payloadTypeInnerPacket);
  EXPECT_TRUE(hwDefaults->greTimestampingEnabled());
  EXPECT_TRUE(status->greTimestampingEnabled());
  EXPECT_TRUE(hwDefaults->portMirroringDisabled());
  EXPECT_EQ(hwDefaults->truncationSize(), Mirroring::TruncationSize::truncationSize192);
  const std::vector<MetadataElementType> expected = {MetadataElementType::switchId, MetadataElementType::timestamp};
  EXPECT_EQ(hwDefaults->greMetadata.keys(), expected);
  EXPECT_EQ(status->defaultGreMetadata.keys(), expected);
  EXPECT_EQ(hwDefaults->greMetadata.get(MetadataElementType::timestamp, true), false) << "values are copied";
  EXPECT_EQ(status->defaultGreMetadata.get(MetadataElementType::switchId, false), true);

  // Each change reaches the hardware defaults and the status.
  defaults->greMetadata.set(MetadataElementType::timestamp, true);
  EXPECT_TRUE(hwDefaults->greMetadata.get(MetadataElementType::timestamp, false));
  EXPECT_TRUE(status->defaultGreMetadata.get(MetadataElementType::timestamp, false));
  defaults->greMetadata.set(MetadataElementType::ingressInterface, true);
  EXPECT_TRUE(hwDefaults->greMetadata.contains(MetadataElementType::ingressInterface));
  EXPECT_TRUE(status->defaultGreMetadata.contains(MetadataElementType::ingressInterface));
  defaults->greMetadata.del(MetadataElementType::switchId);
  EXPECT_FALSE(hwDefaults->greMetadata.contains(MetadataElementType::switchId));
  EXPECT_FALSE(status->defaultGreMetadata.contains(MetadataElementType::switchId));

  defaults->grePayloadType.set(Mirroring::GrePayloadType::payloadTypeFullPacket);
  EXPECT_EQ(hwDefaults->grePayloadType(), Mirroring::GrePayloadType::payloadTypeFullPacket);
  EXPECT_EQ(status->grePayloadType(), Mirroring::GrePayloadType::payloadTypeFullPacket);
  defaults->greTimestampingEnabled.set(false);
  EXPECT_FALSE(hwDefaults->greTimestampingEnabled());
  EXPECT_FALSE(status->greTimestampingEnabled());
  defaults->portMirroringDisabled.set(false);
  EXPECT_FALSE(hwDefaults->portMirroringDisabled());
  defaults->truncationSize.set(Mirroring::TruncationSize::truncationSize128);
  EXPECT_EQ(hwDefaults->truncationSize(), Mirroring::TruncationSize::truncationSize128);
}

// --- interface status ------------------------------------------------------------------------

using EthIntfStatusSmTest = MirroringFixture;

TEST_F(EthIntfStatusSmTest, InterfaceStateReevaluatesTheSessionsThatUseIt) {
  ethUp("Ethernet1");
  ethUp("Ethernet2");
  start();
  session("s1", "Ethernet1", Direction::rx, "Ethernet2");
  ASSERT_TRUE(srcStatus("s1", "Ethernet1").isActive());
  ASSERT_TRUE(destStatus("s1", "Ethernet2").isActive());
  ASSERT_EQ(configSm->ethIntfStatusSms().count(IntfId("Ethernet1")), 1u);

  eth->intfStatus.get(IntfId("Ethernet1"))->hwActive.set(false);
  EXPECT_EQ(srcStatus("s1", "Ethernet1"), OperStatus::inactive(Mirroring::reason::interfaceModeConflict));
  eth->intfStatus.get(IntfId("Ethernet1"))->hwActive.set(true);
  EXPECT_TRUE(srcStatus("s1", "Ethernet1").isActive());

  eth->intfStatus.get(IntfId("Ethernet2"))->hwActive.set(false);
  EXPECT_EQ(destStatus("s1", "Ethernet2"), OperStatus::inactive(Mirroring::reason::interfaceModeConflict));
  eth->intfStatus.get(IntfId("Ethernet2"))->hwActive.set(true);
  EXPECT_TRUE(destStatus("s1", "Ethernet2").isActive());

  // A status that goes away takes the interface out of every session that uses it.
  eth->intfStatusDel(IntfId("Ethernet2"));
  EXPECT_EQ(destStatus("s1", "Ethernet2"), OperStatus::inactive(Mirroring::reason::interfaceModeConflict));
  EXPECT_EQ(configSm->ethIntfStatusSms().count(IntfId("Ethernet2")), 0u);
  // One that shows up late brings its interface in.
  auto s1 = config->sessionIs("s1");
  s1->targetIntfDel("Ethernet2");
  s1->targetIntfIs("Ethernet3");
  EXPECT_EQ(destStatus("s1", "Ethernet3"), OperStatus::inactive(Mirroring::reason::interfaceModeConflict));
  ethUp("Ethernet3");
  EXPECT_TRUE(destStatus("s1", "Ethernet3").isActive());
}

// --- timestamping with truncation ------------------------------------------------------------

using TimestampTruncationTest = MirroringFixture;

TEST_F(TimestampTruncationTest, EthernetDestinationThatTimestampsIsReported) {
  ethUp("Ethernet1");
  ethUp("Ethernet2");
  start();
  auto s1 = session("s1", "Ethernet1", Direction::rx, "Ethernet2");
  s1->truncate.set(true);
  ASSERT_TRUE(status->sessionStatus.get("s1")->truncateOperStatus().isActive());
  EXPECT_TRUE(timestampMessages().empty()) << "the destination does not timestamp";

  eth->intfStatus.get(IntfId("Ethernet2"))->timestampMode.set(Interface::timestampModeHeader);
  const std::vector<std::string> expected = {timestampText("Ethernet2", "mirror destination", "s1")};
  EXPECT_EQ(timestampMessages(), expected);
  ASSERT_FALSE(capture->records().empty());
  EXPECT_EQ(capture->records().back().severity, sl::Severity::warning);

  // A source that timestamps is no concern of the check.
  capture->clear();
  eth->intfStatus.get(IntfId("Ethernet1"))->timestampMode.set(Interface::timestampModeHeader);
  EXPECT_TRUE(timestampMessages().empty());

  // Without truncation in force there is nothing to report.
  s1->truncate.set(false);
  capture->clear();
  eth->intfStatus.get(IntfId("Ethernet2"))->timestampMode.set(Interface::timestampModeBeforeFcs);
  Mirroring::checkSessionsTruncateAndTimestampMode(*configSm, eth->intfStatus.get(IntfId("Ethernet2")),
                                                   IntfId("Ethernet2"));
  EXPECT_TRUE(timestampMessages().empty());

  // Timestamping off: nothing either, and no status at all is no report.
  Mirroring::checkIntfTimestampModeAndLog(*configSm, nullptr, IntfId("Ethernet2"), "s1");
  eth->intfStatus.get(IntfId("Ethernet2"))->timestampMode.set(Interface::timestampModeDisabled);
  Mirroring::checkIntfTimestampModeAndLog(*configSm, eth->intfStatus.get(IntfId("Ethernet2")), IntfId("Ethernet2"),
                                          "s1");
  EXPECT_TRUE(timestampMessages().empty());
}

TEST_F(TimestampTruncationTest, PortChannelDestinationReportsEachTimestampingMember) {
  ethUp("Ethernet1");
  ethUp("Port-Channel10");
  lagStatus->intfStatusIs(IntfId("Port-Channel10"))->hwActive.set(true);
  member("Ethernet3", "Port-Channel10", Interface::timestampModeHeader);
  member("Ethernet4", "Port-Channel10", Interface::timestampModeReplaceFcs);
  member("Ethernet5", "Port-Channel10", Interface::timestampModeDisabled);
  member("Ethernet6", "Port-Channel20", Interface::timestampModeHeader);
  start();
  auto s1 = session("s1", "Ethernet1", Direction::rx, "Port-Channel10");
  s1->truncate.set(true);
  ASSERT_TRUE(destStatus("s1", "Port-Channel10").isActive());
  ASSERT_TRUE(status->sessionStatus.get("s1")->truncateOperStatus().isActive());

  const std::string role = "member of mirror destination Port-Channel10";
  capture->clear();
  Mirroring::checkIntfTimestampModeAndLog(*configSm, eth->intfStatus.get(IntfId("Port-Channel10")),
                                          IntfId("Port-Channel10"), "s1");
  const std::vector<std::string> both = {timestampText("Ethernet3", role, "s1"),
                                         timestampText("Ethernet4", role, "s1")};
  EXPECT_EQ(timestampMessages(), both);

  // The same check runs when the Port-Channel's status changes its timestamp mode.
  capture->clear();
  eth->intfStatus.get(IntfId("Port-Channel10"))->timestampMode.set(Interface::timestampModeHeader);
  EXPECT_EQ(timestampMessages(), both);

  // A member that starts timestamping is reported alone, under its Port-Channel.
  capture->clear();
  phy->intfStatus.get(IntfId("Ethernet5"))->timestampMode.set(Interface::timestampModeHeader);
  EXPECT_EQ(timestampMessages(), std::vector<std::string>{timestampText("Ethernet5", role, "s1")});

  // A timestamping port that joins the Port-Channel is reported when it joins.
  capture->clear();
  lag->phyIntf.get(IntfId("Ethernet6"))->lag.set(IntfId("Port-Channel10"));
  EXPECT_EQ(timestampMessages(), std::vector<std::string>{timestampText("Ethernet6", role, "s1")});
}

TEST_F(TimestampTruncationTest, MemberTimestampModeFallsBackToTheEthernetStatus) {
  ethUp("Ethernet1");
  ethUp("Port-Channel10");
  lagStatus->intfStatusIs(IntfId("Port-Channel10"))->hwActive.set(true);
  ethUp("Ethernet3", Interface::timestampModeHeader);
  lag->phyIntfIs(IntfId("Ethernet3"))->lag.set(IntfId("Port-Channel10"));
  ethUp("Ethernet4", Interface::timestampModeDisabled);
  lag->phyIntfIs(IntfId("Ethernet4"))->lag.set(IntfId("Port-Channel10"));
  start(/*withPhyDir=*/false);
  session("s1", "Ethernet1", Direction::rx, "Port-Channel10")->truncate.set(true);

  capture->clear();
  Mirroring::checkIntfTimestampModeAndLog(*configSm, nullptr, IntfId("Port-Channel10"), "s1");
  EXPECT_EQ(timestampMessages(), std::vector<std::string>{timestampText(
                                     "Ethernet3", "member of mirror destination Port-Channel10", "s1")});
}

// The session side: truncation that starts being done, a destination that becomes active and
// hardware that stops keeping timestamps each report the destinations that timestamp.
TEST_F(TimestampTruncationTest, ReportedWhenASessionsTruncationOrDestinationChangesAndForTruncatingSessions) {
  capability->truncationSupported.set(false);
  capability->multiDestSupported.set(true);
  ethUp("Ethernet1");
  ethUp("Ethernet2", Interface::timestampModeHeader);
  ethUp("Port-Channel10");
  lagStatus->intfStatusIs(IntfId("Port-Channel10"))->hwActive.set(true);
  member("Ethernet3", "Port-Channel10", Interface::timestampModeHeader);
  member("Ethernet4", "Port-Channel10", Interface::timestampModeDisabled);
  member("Ethernet5", "Port-Channel10", Interface::timestampModeBeforeFcs);
  start();
  auto s1 = session("s1", "Ethernet1", Direction::rx, "Ethernet2");
  s1->targetIntfIs("Port-Channel10");
  const std::string role = "member of mirror destination Port-Channel10";
  const std::vector<std::string> all = {timestampText("Ethernet2", "mirror destination", "s1"),
                                        timestampText("Ethernet3", role, "s1"), timestampText("Ethernet5", role, "s1")};
  // A change of the session's truncation checks its destinations, whatever truncation's state.
  capture->clear();
  s1->truncate.set(true);
  EXPECT_EQ(timestampMessages(), all);
  capture->clear();
  capability->truncationSupported.set(true);
  EXPECT_EQ(timestampMessages(), all);

  // An interface's own timestamp mode is checked against the sessions that truncate.
  capture->clear();
  eth->intfStatus.get(IntfId("Ethernet4"))->timestampMode.set(Interface::timestampModeHeader);
  EXPECT_EQ(timestampMessages(), std::vector<std::string>{timestampText("Ethernet4", role, "s1")});
  eth->intfStatus.get(IntfId("Ethernet4"))->timestampMode.set(Interface::timestampModeDisabled);

  capture->clear();
  eth->intfStatus.get(IntfId("Ethernet2"))->hwActive.set(false);
  EXPECT_TRUE(timestampMessages().empty()) << "a destination that stops being active is no concern";
  eth->intfStatus.get(IntfId("Ethernet2"))->hwActive.set(true);
  EXPECT_EQ(timestampMessages(), std::vector<std::string>{all[0]});

  capture->clear();
  capability->timestampWithTruncationSupported.set(true);
  EXPECT_TRUE(timestampMessages().empty());
  capability->timestampWithTruncationSupported.set(false);
  EXPECT_EQ(timestampMessages(), all);

  // The second message of the pair is registered although nothing raises it.
  const sl::Message* notSupported = sl::findDefinition("MIRRORING_TRUNCATION_NOT_SUPPORTED");
  ASSERT_NE(notSupported, nullptr);
  EXPECT_EQ(notSupported->severity(), sl::Severity::warning);
  EXPECT_EQ(notSupported->format(),
            "Truncation is not supported on monitor session %s's source ports that are on forwarding chip %s. %s");
}

TEST_F(TimestampTruncationTest, HardwareThatKeepsTimestampsWithTruncationNeverReports) {
  capability->timestampWithTruncationSupported.set(true);
  ethUp("Ethernet1");
  ethUp("Ethernet2", Interface::timestampModeHeader);
  ethUp("Port-Channel10");
  lagStatus->intfStatusIs(IntfId("Port-Channel10"))->hwActive.set(true);
  member("Ethernet3", "Port-Channel10", Interface::timestampModeHeader);
  start();
  session("s1", "Ethernet1", Direction::rx, "Ethernet2")->truncate.set(true);
  session("s2", "Ethernet1", Direction::rx, "Port-Channel10")->truncate.set(true);
  ASSERT_TRUE(status->sessionStatus.get("s1")->truncateOperStatus().isActive());

  eth->intfStatus.get(IntfId("Ethernet2"))->timestampMode.set(Interface::timestampModeBeforeFcs);
  phy->intfStatus.get(IntfId("Ethernet3"))->timestampMode.set(Interface::timestampModeBeforeFcs);
  eth->intfStatus.get(IntfId("Ethernet3"))->timestampMode.set(Interface::timestampModeBeforeFcs);
  for (const char* intf : {"Ethernet2", "Ethernet3", "Port-Channel10"}) {
    Mirroring::checkSessionsTruncateAndTimestampMode(*configSm, eth->intfStatus.get(IntfId(intf)), IntfId(intf));
  }
  EXPECT_TRUE(timestampMessages().empty());
}

// --- source entries --------------------------------------------------------------------------

using SourceIntfSmTest = MirroringFixture;

TEST_F(SourceIntfSmTest, DirectionAndPriorityReachTheHardwareSession) {
  ethUp("Ethernet1");
  ethUp("Ethernet2");
  start();
  auto s1 = session("s1", "Ethernet1", Direction::both, "Ethernet2");
  ASSERT_TRUE(hwSrc("s1", "Ethernet1"));
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->direction(), Direction::both);

  s1->srcIntf.get("Ethernet1")->direction.set(Direction::tx);
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->direction(), Direction::tx);
  s1->srcIntf.get("Ethernet1")->aclPriority.set(7);
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->aclPriority(), 7);
}

TEST_F(SourceIntfSmTest, NarrowingADirectionReleasesTheInterfaceInAnotherSession) {
  ethUp("Ethernet1");
  ethUp("Ethernet2");
  ethUp("Ethernet3");
  start();
  auto a = session("a", "Ethernet1", Direction::both, "Ethernet2");
  session("b", "Ethernet1", Direction::tx, "Ethernet3");
  ASSERT_TRUE(srcStatus("a", "Ethernet1").isActive());
  ASSERT_EQ(srcStatus("b", "Ethernet1"), OperStatus::inactive(Mirroring::reason::sourceConflict));

  a->srcIntf.get("Ethernet1")->direction.set(Direction::rx);
  EXPECT_TRUE(srcStatus("a", "Ethernet1").isActive());
  EXPECT_TRUE(srcStatus("b", "Ethernet1").isActive());
  ASSERT_TRUE(hwSrc("b", "Ethernet1"));
  EXPECT_EQ(hwSrc("b", "Ethernet1")->direction(), Direction::tx);
}

TEST_F(SourceIntfSmTest, AclFilterReachesTheHardwareOnlyWhereSourceAclsAreSupported) {
  ethUp("Ethernet1");
  ethUp("Ethernet2");
  start();
  auto s1 = session("s1", "Ethernet1", Direction::rx, "Ethernet2");
  auto src = s1->srcIntf.get("Ethernet1");

  src->srcAcl.set("web");
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->srcAcl(), "") << "waits for the next rewrite";
  src->aclPriority.set(3);
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->srcAcl(), "web");

  capability->srcAclSupported.set(true);
  src->srcAcl.set("mail");
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->srcAcl(), "mail");
  EXPECT_TRUE(srcStatus("s1", "Ethernet1").isActive());
}

}  // namespace
