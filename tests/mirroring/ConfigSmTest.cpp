// The configuration manager and the session state machines together: sessions from
// configuration to status and hardware copy, ids, limits, conflicts and restarts.
#include "MirroringFixture.h"

using namespace mirroring_test;

using SessionLifecycle = MirroringFixture;

TEST_F(SessionLifecycle, ASessionReachesStatusHardwareAndForwardingModelAndIsReversedOnDelete) {
  intfUp("Ethernet1");
  intfUp("Ethernet2");
  start();
  addSession("s1", {"Ethernet1"}, {"Ethernet2"});
  EXPECT_EQ(source("s1", "Ethernet1"), active());
  EXPECT_EQ(dest("s1", "Ethernet2"), active());
  auto hw = hwSession("s1");
  ASSERT_TRUE(hw);
  EXPECT_TRUE(hw->srcIntf.contains("Ethernet1"));
  EXPECT_TRUE(hw->targetIntf.contains("Ethernet2"));
  EXPECT_EQ(hw->sessionId(), 0);
  EXPECT_EQ(status->sessionStatus.get("s1")->mirrorDeviceName(), "mirror0");
  EXPECT_EQ(fwdModel->forwardingModelInput.get(IntfId("Ethernet2")), Interface::intfForwardingModelQuietDataLink);

  deleteSession("s1");
  EXPECT_FALSE(status->sessionStatus.contains("s1"));
  EXPECT_FALSE(hwSession("s1"));
  EXPECT_TRUE(fwdModel->forwardingModelInput.empty());
  EXPECT_EQ(configSm->globalSessionIdCount(), 0u);
}

TEST_F(SessionLifecycle, NoActiveDestinationMeansNoHardwareCopy) {
  intfUp("Ethernet1");
  start();
  addSession("s1", {"Ethernet1"}, {"Ethernet2"});  // Ethernet2 has no status yet
  EXPECT_EQ(dest("s1", "Ethernet2"), inactive(reason::interfaceModeConflict));
  EXPECT_EQ(source("s1", "Ethernet1"), active());
  EXPECT_FALSE(hwSession("s1"));
  intfUp("Ethernet2");
  EXPECT_EQ(dest("s1", "Ethernet2"), active());
  ASSERT_TRUE(hwSession("s1"));
  EXPECT_TRUE(hwSession("s1")->srcIntf.contains("Ethernet1"));
  intfGone("Ethernet2");
  EXPECT_FALSE(hwSession("s1"));
  EXPECT_EQ(source("s1", "Ethernet1"), active());  // the status keeps the sources
}

TEST_F(SessionLifecycle, RefusedSessionsWaitForRoomAndIdsGoLowestFirst) {
  capability->maxSupportedSessions.set(2);
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5", "Ethernet6"}) intfUp(i);
  start();
  addSession("a", {"Ethernet1"}, {"Ethernet2"});
  addSession("b", {"Ethernet3"}, {"Ethernet4"});
  addSession("c", {"Ethernet5"}, {"Ethernet6"});
  EXPECT_FALSE(status->sessionStatus.contains("c"));
  ASSERT_EQ(syslog->records().size(), 1u);
  EXPECT_EQ(syslog->records()[0].text,
            "Insufficient hardware resources to allocate mirror session c. The current limit on the number of "
            "mirror sessions is 2.");
  deleteSession("a");
  ASSERT_TRUE(status->sessionStatus.contains("c"));
  EXPECT_EQ(hwSession("c")->sessionId(), 0);  // a's id, the lowest free
  EXPECT_EQ(hwSession("b")->sessionId(), 1);

  // A smaller limit keeps the sessions with the lowest ids.
  syslog->clear();
  capability->maxSupportedSessions.set(1);
  EXPECT_TRUE(status->sessionStatus.contains("c"));
  EXPECT_FALSE(status->sessionStatus.contains("b"));
  EXPECT_EQ(syslog->records().size(), 1u);
  // The session squeezed out waits for room like any refused one.
  deleteSession("c");
  EXPECT_TRUE(status->sessionStatus.contains("b"));
}

TEST_F(SessionLifecycle, NoSessionsAndNoSyslogWithoutHardwareSessions) {
  capability->maxSupportedSessions.set(0);
  intfUp("Ethernet1");
  start();
  addSession("a", {"Ethernet1"}, {"Ethernet2"});
  EXPECT_FALSE(status->sessionStatus.contains("a"));
  EXPECT_TRUE(syslog->records().empty());
}

TEST_F(SessionLifecycle, ConflictsGoFirstComeFirstServedAndAreHandedOver) {
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3"}) intfUp(i);
  start();
  addSession("a", {"Ethernet1"}, {"Ethernet2"});
  addSession("b", {"Ethernet1"}, {"Ethernet3"});
  EXPECT_EQ(source("b", "Ethernet1"), inactive(reason::sourceConflict));
  deleteSession("a");
  EXPECT_EQ(source("b", "Ethernet1"), active());
  EXPECT_TRUE(hwSession("b")->srcIntf.contains("Ethernet1"));
}

TEST_F(SessionLifecycle, DestinationConflictIsHandedToTheNextSession) {
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3"}) intfUp(i);
  start();
  addSession("a", {"Ethernet1"}, {"Ethernet3"});
  addSession("b", {"Ethernet2"}, {"Ethernet3"});
  addSession("c", {"Ethernet2"}, {"Ethernet3"});
  EXPECT_EQ(dest("b", "Ethernet3"), inactive(reason::destinationConflict));
  config->session.get("a")->targetIntfDel("Ethernet3");
  EXPECT_EQ(dest("b", "Ethernet3"), active());
  EXPECT_EQ(dest("c", "Ethernet3"), inactive(reason::destinationConflict));
}

TEST_F(SessionLifecycle, ARestartKeepsWhatIsStillConfiguredAndSweepsTheRest) {
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"}) intfUp(i);
  start();
  addSession("a", {"Ethernet1"}, {"Ethernet2"});
  addSession("b", {"Ethernet3"}, {"Ethernet4"});
  config->session.get("b")->greTunnelKey.set([] {
    GreTunnelKey k;
    k.dstIpAddr = *platform::IpGenAddr::parse("10.0.0.1");
    return k;
  }());
  configSm = nullptr;  // the agent goes away; everything it wrote stays
  deleteSession("b");  // and the configuration changes meanwhile
  const uint64_t before = writes();
  start();
  EXPECT_TRUE(status->sessionStatus.contains("a"));
  EXPECT_FALSE(status->sessionStatus.contains("b"));
  EXPECT_FALSE(hwSession("b"));
  EXPECT_TRUE(status->greTunnelKey.empty());
  EXPECT_TRUE(status->greTunnelKeyToIntfId.empty());
  EXPECT_EQ(hwSession("a")->sessionId(), 0);
  EXPECT_GT(writes(), before);

  // A restart over unchanged inputs writes nothing at all.
  configSm = nullptr;
  const uint64_t steady = writes();
  start();
  EXPECT_EQ(writes(), steady);
}

TEST_F(SessionLifecycle, ARestartGivesASessionBackTheIdItsHardwareCopyCarries) {
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"}) intfUp(i);
  start();
  addSession("a", {"Ethernet1"}, {"Ethernet2"});
  addSession("b", {"Ethernet3"}, {"Ethernet4"});
  EXPECT_EQ(hwSession("b")->sessionId(), 1);
  configSm = nullptr;
  deleteSession("a");
  start();
  EXPECT_EQ(hwSession("b")->sessionId(), 1);  // not the lowest free id
  addSession("c", {"Ethernet1"}, {"Ethernet2"});
  EXPECT_EQ(hwSession("c")->sessionId(), 0);
}

using Gre = MirroringFixture;

namespace {
GreTunnelKey keyTo(const std::string& dst, const std::string& vrf = "default") {
  GreTunnelKey k;
  k.srcIpAddr = *platform::IpGenAddr::parse("1.1.1.1");
  k.dstIpAddr = *platform::IpGenAddr::parse(dst);
  k.vrf = platform::VrfName(vrf);
  return k;
}
}  // namespace

TEST_F(Gre, SessionsWithTheSameKeyShareOneTunnelInterface) {
  for (auto i : {"Ethernet1", "Ethernet2"}) intfUp(i);
  start();
  auto a = addSession("a", {"Ethernet1"}, {"Gre0"}, Direction::rx);
  a->greTunnelKey.set(keyTo("10.0.0.1"));
  auto b = addSession("b", {"Ethernet2"}, {"Gre0"}, Direction::rx);
  b->greTunnelKey.set(keyTo("10.0.0.1"));
  const IntfId gre1("Gre1");
  EXPECT_EQ(configSm->greIntfUserCount(gre1), 2);
  EXPECT_TRUE(hwSession("a")->targetIntf.contains("Gre1"));
  EXPECT_TRUE(hwSession("b")->targetIntf.contains("Gre1"));
  EXPECT_EQ(status->greTunnelKeyToIntfId.get(keyTo("10.0.0.1")), gre1);

  deleteSession("a");
  EXPECT_EQ(configSm->greIntfUserCount(gre1), 1);
  EXPECT_TRUE(configSm->greTunnelNumberTaken(1));
  EXPECT_TRUE(status->greTunnelKey.contains(gre1));
  deleteSession("b");
  EXPECT_EQ(configSm->greIntfUserCount(gre1), 0);
  EXPECT_FALSE(configSm->greTunnelNumberTaken(1));
  EXPECT_TRUE(status->greTunnelKey.empty());
  EXPECT_TRUE(status->greTunnelKeyToIntfId.empty());
}

TEST_F(Gre, OnlyReceiveSourcesAndConfiguredVrfs) {
  for (auto i : {"Ethernet1", "Ethernet2"}) intfUp(i);
  start();
  auto a = platform::make<Session>("a");
  a->srcIntfIs("Ethernet1", Direction::rx);
  a->srcIntfIs("Ethernet2", Direction::both);
  a->targetIntfIs("Gre0");
  a->greTunnelKey.set(keyTo("10.0.0.1", "red"));
  config->session.insert("a", a);
  EXPECT_EQ(source("a", "Ethernet1"), active());
  EXPECT_EQ(source("a", "Ethernet2"), inactive(reason::greRxOnly));
  EXPECT_EQ(dest("a", "Gre0"), inactive("VRF red is not configured."));
  EXPECT_FALSE(hwSession("a"));
  vrfStatus->vrf.is(platform::VrfName("red"));
  EXPECT_EQ(dest("a", "Gre0"), active());
  ASSERT_TRUE(hwSession("a"));
  EXPECT_TRUE(hwSession("a")->targetIntf.contains("Gre1"));
  EXPECT_FALSE(hwSession("a")->srcIntf.contains("Ethernet2"));
}

TEST_F(Gre, AForwardingDropCompanionIsRefusedWithoutRoomAndComesWhenASessionGoes) {
  capability->maxSupportedSessions.set(2);
  for (auto i : {"Ethernet1", "Ethernet2"}) intfUp(i);
  start();
  auto a = addSession("a", {"Ethernet1"}, {"Gre0"}, Direction::rx);
  a->greTunnelKey.set(keyTo("10.0.0.1"));
  auto b = addSession("b", {"Ethernet2"}, {"Gre0"}, Direction::rx);
  b->greTunnelKey.set(keyTo("10.0.0.2"));
  const std::string companion = fwdingDropSessionName("a");

  // Both hardware sessions are taken: the companion is refused as a session would be.
  a->dropGreTunnelKey.set(keyTo("10.0.0.9"));
  EXPECT_FALSE(configSm->sessionSm(companion));
  EXPECT_FALSE(status->sessionStatus.contains(companion));
  ASSERT_FALSE(syslog->records().empty());
  EXPECT_EQ(syslog->records().back().key, "MIRRORING_NOSESSIONGROUPS");
  EXPECT_EQ(syslog->records().back().text, "Insufficient hardware resources to allocate mirror session " +
                                                companion + ". The current limit on the number of mirror sessions is 2.");

  deleteSession("b");
  ASSERT_TRUE(configSm->sessionSm(companion));
  EXPECT_TRUE(status->sessionStatus.contains(companion));
  EXPECT_LT(hwSession(companion) ? hwSession(companion)->sessionId() : 0u, 2u);
}
