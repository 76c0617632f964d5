// Session options, source filters and capability changes: what reaches each session's status
// and hardware copy, and which sessions a change re-evaluates.
#include <map>
#include <set>

#include "MirroringFixture.h"
#include "platform/Reactor.h"

using namespace mirroring_test;

namespace {

Ptr<Session> withSource(Ptr<Session> s, const std::string& intf, const std::string& acl = "",
                        Acl::AclType type = Acl::aclTypeIp) {
  auto src = s->srcIntfIs(intf, Direction::rx);
  src->aclType.set(type);
  src->srcAcl.set(acl);
  return s;
}

}  // namespace

// --- truncation -------------------------------------------------------------------------------

using Truncation = MirroringFixture;

TEST_F(Truncation, StateFollowsTheRequestAndTheCapability) {
  intfUp("Ethernet1");
  intfUp("Ethernet2");
  start();
  auto s = addSession("s1", {"Ethernet1"}, {"Ethernet2"}, Direction::rx);
  auto truncation = [&] { return status->sessionStatus.get("s1")->truncateOperStatus(); };
  EXPECT_EQ(truncation(), inactive(reason::notConfigured));
  EXPECT_FALSE(hwSession("s1")->truncate());

  s->truncate.set(true);
  EXPECT_EQ(truncation(), inactive(reason::notSupported));
  EXPECT_FALSE(hwSession("s1")->truncate()) << "the hardware is not asked for what it cannot do";

  capability->truncationSupported.set(true);
  EXPECT_EQ(truncation(), active());
  EXPECT_TRUE(hwSession("s1")->truncate());
  capability->truncationSupported.set(false);
  EXPECT_EQ(truncation(), inactive(reason::notSupported));
  EXPECT_FALSE(hwSession("s1")->truncate());

  capability->truncationSupported.set(true);
  s->truncate.set(false);
  EXPECT_EQ(truncation(), inactive(reason::notConfigured));
  EXPECT_FALSE(hwSession("s1")->truncate());
}

TEST_F(Truncation, TheSizeWrittenIsOneTheHardwareLists) {
  capability->truncationSupported.set(true);
  capability->truncationSizesSupported.insert(TruncationSize::truncationSize128);
  capability->truncationSizesSupported.insert(TruncationSize::truncationSize192);
  intfUp("Ethernet1");
  intfUp("Ethernet2");
  start();
  auto s = addSession("s1", {"Ethernet1"}, {"Ethernet2"}, Direction::rx);
  s->truncate.set(true);
  auto written = [&] { return hwSession("s1")->truncationSize(); };

  const std::vector<std::pair<TruncationSize, TruncationSize>> cases = {
      {TruncationSize::truncationSize128, TruncationSize::truncationSize128},
      {TruncationSize::truncationSize160, TruncationSize::truncationSize192},  // the next larger
      {TruncationSize::truncationSize256, TruncationSize::truncationSize192},  // nothing larger: the largest
      {TruncationSize::truncationSizeDefault, TruncationSize::truncationSizeDefault},
  };
  for (const auto& [requested, expected] : cases) {
    s->truncationSize.set(requested);
    EXPECT_EQ(written(), expected) << platform::enumName(requested);
  }

  // A change of the list alone rewrites the sessions.
  s->truncationSize.set(TruncationSize::truncationSize256);
  capability->truncationSizesSupported.insert(TruncationSize::truncationSize256);
  EXPECT_EQ(written(), TruncationSize::truncationSize256);
  for (auto size : capability->truncationSizesSupported.keys()) capability->truncationSizesSupported.del(size);
  EXPECT_EQ(written(), TruncationSize::truncationSizeDefault) << "no sizes listed: the hardware's own";
}

TEST_F(Truncation, TheHardwareDefaultSizeIsWhatTheOperatorOrTheHardwareSaidLast) {
  start();
  auto configured = config->defaultSessionConfig();
  auto hwDefault = hwConfig->defaultSessionConfig();
  EXPECT_EQ(hwDefault->truncationSize(), TruncationSize::truncationSizeDefault);

  auto record = platform::make<TruncationDefault>();
  record->truncationSize.set(TruncationSize::truncationSize128);
  capability->truncationDefault.set(record);
  EXPECT_EQ(hwDefault->truncationSize(), TruncationSize::truncationSize128);
  capability->truncationDefault()->truncationSize.set(TruncationSize::truncationSize160);
  EXPECT_EQ(hwDefault->truncationSize(), TruncationSize::truncationSize160) << "a change in place counts";

  // Each side writes its own size when it changes.
  configured->truncationSize.set(TruncationSize::truncationSize192);
  EXPECT_EQ(hwDefault->truncationSize(), TruncationSize::truncationSize192);
  capability->truncationDefault()->truncationSize.set(TruncationSize::truncationSize256);
  EXPECT_EQ(hwDefault->truncationSize(), TruncationSize::truncationSize256);
  configured->truncationSize.set(TruncationSize::truncationSizeDefault);
  EXPECT_EQ(hwDefault->truncationSize(), TruncationSize::truncationSizeDefault);

  // Without the record a capability change leaves the hardware default as it was.
  capability->truncationDefault()->truncationSize.set(TruncationSize::truncationSize128);
  capability->truncationDefault.set(nullptr);
  capability->truncationSupported.set(true);
  EXPECT_EQ(hwDefault->truncationSize(), TruncationSize::truncationSize128);

  // A new agent over the same inputs writes the configured default, as at any start.
  configSm = nullptr;
  start();
  EXPECT_EQ(hwDefault->truncationSize(), TruncationSize::truncationSizeDefault);
}

// --- the other options ------------------------------------------------------------------------

using Options = MirroringFixture;

TEST_F(Options, EachReachesTheHardwareCopyAsTheHardwareCanTakeIt) {
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3"}) intfUp(i);
  config->defaultSessionConfig()->grePayloadType.set(GrePayloadType::payloadTypeInnerPacket);
  start();
  auto s = addSession("s1", {"Ethernet1"}, {"Ethernet2"}, Direction::rx);
  auto hw = [&] { return hwSession("s1"); };

  // Sampling: the configured rate where the hardware samples and every source is rx only.
  s->rxSampleRate.set(1000);
  EXPECT_EQ(hw()->rxSampleRate(), 1u);
  capability->rxSamplingSupported.set(true);
  EXPECT_EQ(hw()->rxSampleRate(), 1000u);
  s->srcIntfIs("Ethernet3", Direction::tx);
  EXPECT_EQ(hw()->rxSampleRate(), 1u);
  s->srcIntf.get("Ethernet3")->direction.set(Direction::rx);
  EXPECT_EQ(hw()->rxSampleRate(), 1000u);

  // Header removal only where the hardware removes headers.
  s->headerRemovalSize.set(HeaderRemovalSize::headerRemoval8);
  EXPECT_EQ(hw()->headerRemovalSize(), HeaderRemovalSize::headerRemovalNone);
  capability->headerRemovalSupported.set(true);
  EXPECT_EQ(hw()->headerRemovalSize(), HeaderRemovalSize::headerRemoval8);

  s->mirrorRateLimitChip.set("chip1");
  s->mirrorRateLimitInBps.set(2'000'000'000);
  EXPECT_EQ(hw()->mirrorRateLimitChip(), "chip1");
  EXPECT_EQ(hw()->mirrorRateLimitInBps(), 2'000'000'000u);

  // The payload type falls back to the default while the session leaves it unset.
  EXPECT_EQ(hw()->grePayloadType(), GrePayloadType::payloadTypeInnerPacket);
  config->defaultSessionConfig()->grePayloadType.set(GrePayloadType::payloadTypeFullPacket);
  EXPECT_EQ(hw()->grePayloadType(), GrePayloadType::payloadTypeFullPacket);
  s->grePayloadType.set(GrePayloadType::payloadTypeInnerPacket);
  EXPECT_EQ(hw()->grePayloadType(), GrePayloadType::payloadTypeInnerPacket);

  // Every configured metadata element is inserted, whatever its value says.
  s->greMetadata.set(MetadataElementType::switchId, true);
  s->greMetadata.set(MetadataElementType::vlan, false);
  EXPECT_EQ(hw()->greMetadata.keys(), (std::vector{MetadataElementType::switchId, MetadataElementType::vlan}));
  EXPECT_TRUE(hw()->greMetadata.get(MetadataElementType::vlan, false));
  s->greMetadata.del(MetadataElementType::switchId);
  EXPECT_EQ(hw()->greMetadata.keys(), std::vector{MetadataElementType::vlan});

  s->greTimestampingEnabled.set(true);
  s->txGreMetadataEnabled.set(true);
  s->portMirroringDisabled.set(true);
  s->secureMonitor.set(true);
  s->isInternal.set(true);
  s->owner.set(Owner::ownerPolicy);
  EXPECT_TRUE(hw()->greTimestampingEnabled());
  EXPECT_TRUE(hw()->txGreMetadataEnabled());
  EXPECT_TRUE(hw()->portMirroringDisabled());
  EXPECT_TRUE(hw()->secureMonitor());
  EXPECT_TRUE(hw()->isInternal());
  EXPECT_EQ(hw()->owner(), Owner::ownerPolicy);
}

// --- capability changes -----------------------------------------------------------------------

using Capability = MirroringFixture;

TEST_F(Capability, MirrorDeviceNamesAreCopiedFromTheHardwareStatus) {
  intfUp("Ethernet1");
  intfUp("Ethernet2");
  hwStatus->mirrorDeviceName.set("early", "mon7");  // published before the session exists
  hwStatus->mirrorDeviceName.set("ghost", "mon9");  // for a session never configured
  start();
  addSession("s1", {"Ethernet1"}, {"Ethernet2"}, Direction::rx);
  addSession("early", {"Ethernet1"}, {"Ethernet2"}, Direction::rx);
  auto device = [&](const std::string& s) { return status->sessionStatus.get(s)->mirrorDeviceName(); };
  EXPECT_EQ(device("s1"), "mirror0");
  EXPECT_EQ(device("early"), "mon7");
  EXPECT_FALSE(status->sessionStatus.contains("ghost"));

  hwStatus->mirrorDeviceName.set("s1", "mon3");
  EXPECT_EQ(device("s1"), "mon3");
  hwStatus->mirrorDeviceName.del("s1");
  EXPECT_EQ(device("s1"), "") << "the hardware's device is gone";
  hwStatus->mirrorDeviceName.set("ghost", "mon10");
  EXPECT_FALSE(status->sessionStatus.contains("ghost"));
}

// --- source filters ---------------------------------------------------------------------------

using SourceFilters = MirroringFixture;

// The ACL aggregate replaces an ACL whose content changed; the hardware must then reprogram
// the sources that filter with it, and only those.
TEST_F(SourceFilters, AnAclEditRewritesOnlyTheSourcesThatFilterWithIt) {
  capability->srcAclSupported.set(true);
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet5", "Ethernet6"}) intfUp(i);
  auto ipAcls = aclConfig->config.get(Acl::aclTypeIp);
  auto ip6Acls = aclConfig->config.get(Acl::aclTypeIpv6);
  ipAcls->aclIs("web")->ruleIs(10, "permit tcp any any eq 80");
  start();
  auto s1 = platform::make<Session>("s1");
  withSource(s1, "Ethernet1", "web");
  withSource(s1, "Ethernet2");
  s1->targetIntfIs("Ethernet5");
  config->session.insert("s1", s1);
  auto s2 = withSource(platform::make<Session>("s2"), "Ethernet3", "mail");
  s2->targetIntfIs("Ethernet6");
  config->session.insert("s2", s2);

  std::map<std::string, int> rewritten;
  platform::Reactor watch;
  for (const char* s : {"s1", "s2"}) {
    watch.on(hwConfig->session.get(s)->srcIntf, [&, s](const std::string& intf) { ++rewritten[s + ("/" + intf)]; });
  }
  auto edit = [](const Ptr<Acl::AclTypeConfig>& acls, const std::string& name, const std::string& rule) {
    auto fresh = platform::make<Acl::AclConfig>(name);
    fresh->ruleIs(10, rule);
    acls->acl.insert(name, fresh);
  };

  edit(ipAcls, "web", "permit tcp any any eq 443");
  EXPECT_EQ(rewritten, (std::map<std::string, int>{{"s1/Ethernet1", 1}}));
  EXPECT_EQ(hwSession("s1")->srcIntf.get("Ethernet1")->srcAcl(), "web");

  rewritten.clear();
  edit(ip6Acls, "web", "permit ipv6 any any");  // same name, another type
  edit(ipAcls, "dns", "permit udp any any eq 53");
  EXPECT_TRUE(rewritten.empty());

  ipAcls->aclDel("web");
  EXPECT_EQ(rewritten, (std::map<std::string, int>{{"s1/Ethernet1", 1}})) << "the filter it names is gone";

  // A new filter name reaches the hardware at once, and from then on that ACL's edits do.
  rewritten.clear();
  s1->srcIntf.get("Ethernet1")->srcAcl.set("mail");
  EXPECT_EQ(hwSession("s1")->srcIntf.get("Ethernet1")->srcAcl(), "mail");
  rewritten.clear();
  edit(ipAcls, "mail", "permit tcp any any eq 25");
  EXPECT_EQ(rewritten, (std::map<std::string, int>{{"s1/Ethernet1", 1}, {"s2/Ethernet3", 1}}));

  // The type is part of the filter.
  s1->srcIntf.get("Ethernet1")->aclType.set(Acl::aclTypeMac);
  EXPECT_EQ(hwSession("s1")->srcIntf.get("Ethernet1")->aclType(), Acl::aclTypeMac);
  EXPECT_EQ(source("s1", "Ethernet1"), active());
}

TEST_F(SourceFilters, OneIpv6AclPerSessionTheFirstSourceInInterfaceOrderKeepsIt) {
  capability->srcAclSupported.set(true);
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet5", "Ethernet6"}) intfUp(i);
  start();
  auto s1 = platform::make<Session>("s1");
  withSource(s1, "Ethernet1");
  withSource(s1, "Ethernet2", "v6a", Acl::aclTypeIpv6);
  withSource(s1, "Ethernet3", "v6b", Acl::aclTypeIpv6);
  s1->targetIntfIs("Ethernet5");
  config->session.insert("s1", s1);
  const OperStatus refused = inactive(reason::multipleIpv6Acls);
  EXPECT_EQ(source("s1", "Ethernet3"), refused);
  // A second session wants Ethernet3 too; it gets it while s1 refuses it, and from then on
  // s1 sees it taken.
  addSession("s2", {"Ethernet3"}, {"Ethernet6"}, Direction::rx);
  auto inHardware = [&](const std::string& intf) { return hwSession("s1")->srcIntf.contains(intf); };

  EXPECT_EQ(source("s1", "Ethernet2"), active());
  EXPECT_EQ(source("s1", "Ethernet3"), inactive(reason::sourceConflict));
  EXPECT_TRUE(inHardware("Ethernet2"));
  EXPECT_FALSE(inHardware("Ethernet3"));
  EXPECT_EQ(source("s2", "Ethernet3"), active());

  // An earlier source that takes an IPv6 ACL takes the session's one.
  auto first = s1->srcIntf.get("Ethernet1");
  first->aclType.set(Acl::aclTypeIpv6);
  first->srcAcl.set("v6c");
  EXPECT_EQ(source("s1", "Ethernet1"), active());
  EXPECT_EQ(source("s1", "Ethernet2"), refused);
  EXPECT_FALSE(inHardware("Ethernet2"));
  EXPECT_EQ(hwSession("s1")->srcIntf.get("Ethernet1")->srcAcl(), "v6c");

  // Letting go of it readmits the next one, judged by the ordinary rules.
  first->srcAcl.set("");
  EXPECT_EQ(source("s1", "Ethernet2"), active());
  EXPECT_TRUE(inHardware("Ethernet2"));
  s1->srcIntfDel("Ethernet2");
  EXPECT_EQ(source("s1", "Ethernet3"), inactive(reason::sourceConflict)) << "s2 took it meanwhile";
  deleteSession("s2");
  EXPECT_EQ(source("s1", "Ethernet3"), active());
  EXPECT_TRUE(inHardware("Ethernet3"));
}
