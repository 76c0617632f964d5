// The configuration manager and the session state machines together: what the consistency
// checker's invariants do not see, namely which session gets room and which id, which tunnel
// interface a key gets, and the refusals the operator reads in the syslog.
#include "MirroringFixture.h"

using namespace mirroring_test;

namespace {

const char* const kNoRoomKey = "MIRRORING_NOSESSIONGROUPS";

std::string noRoomText(const std::string& session, int limit) {
  return "Insufficient hardware resources to allocate mirror session " + session +
         ". The current limit on the number of mirror sessions is " + std::to_string(limit) + ".";
}

GreTunnelKey keyTo(const std::string& dst) {
  GreTunnelKey k;
  k.srcIpAddr = *platform::IpGenAddr::parse("1.1.1.1");
  k.dstIpAddr = *platform::IpGenAddr::parse(dst);
  return k;
}

using SessionRoom = MirroringFixture;

TEST_F(SessionRoom, RefusedSessionsAreLoggedWaitForRoomAndIdsGoLowestFirst) {
  capability->maxSupportedSessions.set(2);
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5", "Ethernet6"}) intfUp(i);
  start();
  addSession("a", {"Ethernet1"}, {"Ethernet2"});
  addSession("b", {"Ethernet3"}, {"Ethernet4"});
  addSession("c", {"Ethernet5"}, {"Ethernet6"});
  EXPECT_FALSE(status->sessionStatus.contains("c"));
  ASSERT_EQ(syslog->records().size(), 1u);
  EXPECT_EQ(syslog->records()[0].key, kNoRoomKey);
  EXPECT_EQ(syslog->records()[0].severity, platform::syslog::Severity::warning);
  EXPECT_EQ(syslog->records()[0].text, noRoomText("c", 2));
  deleteSession("a");
  ASSERT_TRUE(status->sessionStatus.contains("c"));
  EXPECT_EQ(hwSession("c")->sessionId(), 0);  // a's id, the lowest free
  EXPECT_EQ(status->sessionStatus.get("c")->mirrorDeviceName(), "mirror0");
  EXPECT_EQ(hwSession("b")->sessionId(), 1);

  // A smaller limit keeps the sessions with the lowest ids, and logs the one squeezed out.
  syslog->clear();
  capability->maxSupportedSessions.set(1);
  EXPECT_TRUE(status->sessionStatus.contains("c"));
  EXPECT_FALSE(status->sessionStatus.contains("b"));
  EXPECT_EQ(syslogTexts(kNoRoomKey), std::vector{noRoomText("b", 1)});
  // It waits for room like any refused one.
  deleteSession("c");
  EXPECT_TRUE(status->sessionStatus.contains("b"));
}

TEST_F(SessionRoom, NoSessionsAndNoSyslogWithoutHardwareSessions) {
  capability->maxSupportedSessions.set(0);
  intfUp("Ethernet1");
  start();
  addSession("a", {"Ethernet1"}, {"Ethernet2"});
  EXPECT_FALSE(status->sessionStatus.contains("a"));
  EXPECT_TRUE(syslog->records().empty());
}

TEST_F(SessionRoom, AForwardingDropCompanionIsRefusedWithoutRoomAndComesWhenASessionGoes) {
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
  EXPECT_FALSE(status->sessionStatus.contains(companion));
  EXPECT_EQ(syslogTexts(kNoRoomKey), std::vector{noRoomText(companion, 2)});
  deleteSession("b");
  EXPECT_TRUE(status->sessionStatus.contains(companion));
}

// Tunnel interfaces are numbered from Gre1, the lowest free number first; sessions with one key
// share one.
TEST_F(SessionRoom, EachKeyGetsTheLowestFreeTunnelInterface) {
  for (auto i : {"Ethernet1", "Ethernet2", "Ethernet3"}) intfUp(i);
  start();
  auto tunnelOf = [&](const std::string& s) { return hwSession(s)->targetIntf.keys(); };
  for (const auto& [name, dst] : {std::pair{"a", "10.0.0.1"}, {"b", "10.0.0.1"}, {"c", "10.0.0.3"}}) {
    addSession(name, {}, {"Gre0"}, Direction::rx)->greTunnelKey.set(keyTo(dst));
  }
  EXPECT_EQ(tunnelOf("a"), std::vector<std::string>{"Gre1"});
  EXPECT_EQ(tunnelOf("b"), std::vector<std::string>{"Gre1"});
  EXPECT_EQ(tunnelOf("c"), std::vector<std::string>{"Gre2"});
  deleteSession("a");
  deleteSession("b");
  addSession("d", {}, {"Gre0"}, Direction::rx)->greTunnelKey.set(keyTo("10.0.0.4"));
  EXPECT_EQ(tunnelOf("d"), std::vector<std::string>{"Gre1"});
}

}  // namespace
