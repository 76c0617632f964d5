// The followers of the mirroring configuration manager: the session defaults, source entries,
// and the timestamp-with-truncation report. Each test runs a real configuration manager over
// entities of its own.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/mirroring/MirroringFixture.h"

using namespace mirroring_test;

namespace {

namespace sl = platform::syslog;

const char* const kTimestampKey = "MIRRORING_TIMESTAMP_WITH_TRUNCATE_NOTSUPPORTED";

std::string timestampText(const std::string& intf, const std::string& role, const std::string& session) {
  return "Timestamping on interface " + intf + " (" + role +
         ") does not work with truncation configured on mirror session " + session + ".";
}
std::string memberText(const std::string& intf, const std::string& portChannel, const std::string& session) {
  return timestampText(intf, "member of mirror destination " + portChannel, session);
}

struct Followers : MirroringFixture {
  void SetUp() override {
    MirroringFixture::SetUp();
    capability->maxSupportedSessions.set(8);
    capability->truncationSupported.set(true);
    capability->lagDestSupported.set(true);
  }
  Ptr<Interface::EthIntfStatus> ethUp(const std::string& name,
                                      Interface::TimestampMode mode = Interface::timestampModeDisabled) {
    auto s = intfUp(name);
    s->timestampMode.set(mode);
    return s;
  }
  Ptr<Interface::EthIntfStatus> eth(const std::string& name) { return ethIntfStatus->intfStatus.get(IntfId(name)); }
  // A Port-Channel that is up, and a member port with the timestamp mode its physical status reports.
  void portChannelUp(const std::string& name) {
    ethUp(name);
    lagIntfStatus->intfStatusIs(IntfId(name))->hwActive.set(true);
  }
  void member(const std::string& name, const std::string& portChannel, Interface::TimestampMode mode) {
    ethUp(name);
    phyIntfStatus->intfStatusIs(IntfId(name))->timestampMode.set(mode);
    lagConfig->phyIntfIs(IntfId(name))->lag.set(IntfId(portChannel));
  }
  Ptr<Session> session(const std::string& name, const std::string& src, Direction dir, const std::string& dest) {
    auto s = config->sessionIs(name);
    s->srcIntfIs(src, dir);
    s->targetIntfIs(dest);
    return s;
  }
  Ptr<const SrcIntf> hwSrc(const std::string& session, const std::string& intf) {
    auto s = hwConfig->session.get(session);
    return s ? Ptr<const SrcIntf>(s->srcIntf.get(intf)) : nullptr;
  }
  // The timestamp reports raised since the last call.
  std::vector<std::string> reports() {
    auto out = syslogTexts(kTimestampKey);
    syslog->clear();
    return out;
  }
};

// --- session defaults ------------------------------------------------------------------------

TEST_F(Followers, TheSessionDefaultsAreCopiedToTheHardwareAndTheStatusAndFollowed) {
  auto defaults = config->defaultSessionConfig();
  auto hwDefaults = hwConfig->defaultSessionConfig();
  defaults->grePayloadType.set(GrePayloadType::payloadTypeInnerPacket);
  defaults->greMetadata.set(MetadataElementType::switchId, true);
  defaults->greMetadata.set(MetadataElementType::timestamp, false);
  defaults->greTimestampingEnabled.set(true);
  defaults->portMirroringDisabled.set(true);
  defaults->truncationSize.set(TruncationSize::truncationSize192);
  // Left by an earlier run for an element the configuration no longer has.
  hwDefaults->greMetadata.set(MetadataElementType::vlan, true);
  status->defaultGreMetadata.set(MetadataElementType::vlan, true);

  auto expectCopied = [&](const char* when) {
    SCOPED_TRACE(when);
    EXPECT_EQ(hwDefaults->grePayloadType(), defaults->grePayloadType());
    EXPECT_EQ(status->grePayloadType(), defaults->grePayloadType());
    EXPECT_EQ(hwDefaults->greTimestampingEnabled(), defaults->greTimestampingEnabled());
    EXPECT_EQ(status->greTimestampingEnabled(), defaults->greTimestampingEnabled());
    EXPECT_EQ(hwDefaults->portMirroringDisabled(), defaults->portMirroringDisabled());
    EXPECT_EQ(hwDefaults->truncationSize(), defaults->truncationSize());
    EXPECT_EQ(hwDefaults->greMetadata.keys(), defaults->greMetadata.keys());
    EXPECT_EQ(status->defaultGreMetadata.keys(), defaults->greMetadata.keys());
    for (auto element : defaults->greMetadata.keys()) {
      EXPECT_EQ(hwDefaults->greMetadata.get(element, false), defaults->greMetadata.get(element, false));
      EXPECT_EQ(status->defaultGreMetadata.get(element, false), defaults->greMetadata.get(element, false));
    }
  };
  start();
  expectCopied("at start-up");
  ASSERT_EQ(hwDefaults->greMetadata.keys().size(), 2u);
  defaults->greMetadata.set(MetadataElementType::timestamp, true);
  defaults->greMetadata.set(MetadataElementType::ingressInterface, true);
  defaults->greMetadata.del(MetadataElementType::switchId);
  expectCopied("metadata");
  defaults->grePayloadType.set(GrePayloadType::payloadTypeFullPacket);
  defaults->greTimestampingEnabled.set(false);
  defaults->portMirroringDisabled.set(false);
  defaults->truncationSize.set(TruncationSize::truncationSize128);
  expectCopied("the rest");
}

// --- source entries --------------------------------------------------------------------------

TEST_F(Followers, DirectionPriorityAndAclFilterReachTheHardwareSession) {
  ethUp("Ethernet1");
  ethUp("Ethernet2");
  start();
  auto s1 = session("s1", "Ethernet1", Direction::both, "Ethernet2");
  ASSERT_TRUE(hwSrc("s1", "Ethernet1"));
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->direction(), Direction::both);
  auto src = s1->srcIntf.get("Ethernet1");
  src->direction.set(Direction::rx);
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->direction(), Direction::rx);

  // Without source ACL support a filter waits for the next rewrite.
  src->srcAcl.set("web");
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->srcAcl(), "");
  src->aclPriority.set(7);
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->aclPriority(), 7);
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->srcAcl(), "web");
  capability->srcAclSupported.set(true);
  src->srcAcl.set("mail");
  EXPECT_EQ(hwSrc("s1", "Ethernet1")->srcAcl(), "mail");
}

// --- timestamping with truncation ------------------------------------------------------------

TEST_F(Followers, AnEthernetDestinationThatTimestampsIsReportedWhileItsSessionTruncates) {
  ethUp("Ethernet1");
  ethUp("Ethernet2");
  start();
  auto s1 = session("s1", "Ethernet1", Direction::rx, "Ethernet2");
  s1->truncate.set(true);
  ASSERT_TRUE(status->sessionStatus.get("s1")->truncateOperStatus().isActive());
  EXPECT_TRUE(reports().empty()) << "the destination does not timestamp";

  eth("Ethernet2")->timestampMode.set(Interface::timestampModeHeader);
  ASSERT_FALSE(syslog->records().empty());
  EXPECT_EQ(syslog->records().back().severity, sl::Severity::warning);
  EXPECT_EQ(reports(), std::vector{timestampText("Ethernet2", "mirror destination", "s1")});
  // A source that timestamps is no concern of the check.
  eth("Ethernet1")->timestampMode.set(Interface::timestampModeHeader);
  EXPECT_TRUE(reports().empty());
  // Without truncation in force there is nothing to report.
  s1->truncate.set(false);
  reports();
  eth("Ethernet2")->timestampMode.set(Interface::timestampModeBeforeFcs);
  checkSessionsTruncateAndTimestampMode(*configSm, eth("Ethernet2"), IntfId("Ethernet2"));
  EXPECT_TRUE(reports().empty());
}

TEST_F(Followers, APortChannelDestinationReportsEachTimestampingMember) {
  ethUp("Ethernet1");
  portChannelUp("Port-Channel10");
  member("Ethernet3", "Port-Channel10", Interface::timestampModeHeader);
  member("Ethernet4", "Port-Channel10", Interface::timestampModeReplaceFcs);
  member("Ethernet5", "Port-Channel10", Interface::timestampModeDisabled);
  member("Ethernet6", "Port-Channel20", Interface::timestampModeHeader);
  start();
  session("s1", "Ethernet1", Direction::rx, "Port-Channel10")->truncate.set(true);
  ASSERT_TRUE(dest("s1", "Port-Channel10").isActive());
  const std::vector<std::string> both = {memberText("Ethernet3", "Port-Channel10", "s1"),
                                         memberText("Ethernet4", "Port-Channel10", "s1")};
  reports();
  checkIntfTimestampModeAndLog(*configSm, eth("Port-Channel10"), IntfId("Port-Channel10"), "s1");
  EXPECT_EQ(reports(), both);

  // The same check runs when the Port-Channel's status changes its timestamp mode.
  eth("Port-Channel10")->timestampMode.set(Interface::timestampModeHeader);
  EXPECT_EQ(reports(), both);
  // A member that starts timestamping is reported alone, and so is a timestamping port that joins.
  phyIntfStatus->intfStatus.get(IntfId("Ethernet5"))->timestampMode.set(Interface::timestampModeHeader);
  EXPECT_EQ(reports(), std::vector{memberText("Ethernet5", "Port-Channel10", "s1")});
  lagConfig->phyIntf.get(IntfId("Ethernet6"))->lag.set(IntfId("Port-Channel10"));
  EXPECT_EQ(reports(), std::vector{memberText("Ethernet6", "Port-Channel10", "s1")});
}

TEST_F(Followers, AMembersTimestampModeFallsBackToTheEthernetStatus) {
  ethUp("Ethernet1");
  portChannelUp("Port-Channel10");
  ethUp("Ethernet3", Interface::timestampModeHeader);
  lagConfig->phyIntfIs(IntfId("Ethernet3"))->lag.set(IntfId("Port-Channel10"));
  ethUp("Ethernet4", Interface::timestampModeDisabled);
  lagConfig->phyIntfIs(IntfId("Ethernet4"))->lag.set(IntfId("Port-Channel10"));
  start(/*withPhyDir=*/false);
  session("s1", "Ethernet1", Direction::rx, "Port-Channel10")->truncate.set(true);
  reports();
  checkIntfTimestampModeAndLog(*configSm, nullptr, IntfId("Port-Channel10"), "s1");
  EXPECT_EQ(reports(), std::vector{memberText("Ethernet3", "Port-Channel10", "s1")});
}

// The session side: truncation that starts being done, a destination that becomes active and
// hardware that stops keeping timestamps each report the destinations that timestamp.
TEST_F(Followers, ReportedWhenASessionsTruncationOrDestinationOrTheHardwareChanges) {
  capability->truncationSupported.set(false);
  capability->multiDestSupported.set(true);
  ethUp("Ethernet1");
  ethUp("Ethernet2", Interface::timestampModeHeader);
  portChannelUp("Port-Channel10");
  member("Ethernet3", "Port-Channel10", Interface::timestampModeHeader);
  member("Ethernet4", "Port-Channel10", Interface::timestampModeDisabled);
  member("Ethernet5", "Port-Channel10", Interface::timestampModeBeforeFcs);
  start();
  auto s1 = session("s1", "Ethernet1", Direction::rx, "Ethernet2");
  s1->targetIntfIs("Port-Channel10");
  const std::vector<std::string> all = {timestampText("Ethernet2", "mirror destination", "s1"),
                                        memberText("Ethernet3", "Port-Channel10", "s1"),
                                        memberText("Ethernet5", "Port-Channel10", "s1")};
  reports();
  // A change of the session's truncation checks its destinations, whatever truncation's state.
  s1->truncate.set(true);
  EXPECT_EQ(reports(), all);
  capability->truncationSupported.set(true);
  EXPECT_EQ(reports(), all);
  // An interface's own timestamp mode is checked against the sessions that truncate.
  eth("Ethernet4")->timestampMode.set(Interface::timestampModeHeader);
  EXPECT_EQ(reports(), std::vector{memberText("Ethernet4", "Port-Channel10", "s1")});
  eth("Ethernet4")->timestampMode.set(Interface::timestampModeDisabled);

  eth("Ethernet2")->hwActive.set(false);
  EXPECT_TRUE(reports().empty()) << "a destination that stops being active is no concern";
  eth("Ethernet2")->hwActive.set(true);
  EXPECT_EQ(reports(), std::vector{all[0]});

  // Hardware that keeps timestamps with truncation never reports.
  capability->timestampWithTruncationSupported.set(true);
  EXPECT_TRUE(reports().empty());
  eth("Ethernet2")->timestampMode.set(Interface::timestampModeBeforeFcs);
  phyIntfStatus->intfStatus.get(IntfId("Ethernet3"))->timestampMode.set(Interface::timestampModeReplaceFcs);
  for (const char* intf : {"Ethernet2", "Ethernet3", "Port-Channel10"}) {
    checkSessionsTruncateAndTimestampMode(*configSm, eth(intf), IntfId(intf));
  }
  EXPECT_TRUE(reports().empty());
  capability->timestampWithTruncationSupported.set(false);
  EXPECT_EQ(reports(), all);

  // The second message of the pair is registered although nothing raises it.
  const sl::Message* notSupported = sl::findDefinition("MIRRORING_TRUNCATION_NOT_SUPPORTED");
  ASSERT_NE(notSupported, nullptr);
  EXPECT_EQ(notSupported->severity(), sl::Severity::warning);
  EXPECT_EQ(notSupported->format(),
            "Truncation is not supported on monitor session %s's source ports that are on forwarding chip %s. %s");
}

}  // namespace
