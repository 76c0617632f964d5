// Operational status of mirroring sources and destinations: the exact state and reason the
// rules give.
//
// Most cases test the rules alone: a configuration manager that may build no sessions
// (maxSupportedSessions 0), other sessions' statuses written by hand, and the rule called
// directly. The rest let real sessions publish their statuses.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/mirroring/MirroringFixture.h"

using namespace mirroring_test;

namespace {

constexpr Direction rx = Direction::rx, tx = Direction::tx, both = Direction::both;
const OperStatus kActive = OperStatus::active();

// The switch with helpers for the cases: session "b" is the one evaluated, "a" (and "c") others
// that were there first; Ethernet1 is the interface in question unless a case says otherwise.
struct World : Switch {
  void src(const std::string& s, Direction dir, const std::string& intf = "Ethernet1") {
    config->sessionIs(s)->srcIntfIs(intf, dir);
  }
  void dst(const std::string& s, const std::string& intf = "Ethernet1") { config->sessionIs(s)->targetIntfIs(intf); }
  // Configured, and published by its session with `st`.
  void pubSrc(const std::string& s, Direction dir, const OperStatus& st = OperStatus::active()) {
    src(s, dir);
    publishSrc(s, "Ethernet1", st);
  }
  void pubDst(const std::string& s, const std::string& intf = "Ethernet1", const OperStatus& st = OperStatus::active()) {
    dst(s, intf);
    publishDest(s, intf, st);
  }
  void sameIntf() { capability->sameIntfSrcAndDestSupported.set(true); }
  void greVrf(const std::string& s, const std::string& vrf) {
    auto key = config->sessionIs(s)->greTunnelKey();
    key.vrf = platform::VrfName(vrf);
    config->sessionIs(s)->greTunnelKey.set(key);
  }
  void member(const std::string& intf, const std::string& portChannel) {
    lagConfig->phyIntfIs(IntfId(intf))->lag.set(IntfId(portChannel));
  }

  // The rules.
  OperStatus srcStatus(const std::string& s, const std::string& intf) const {
    return getSrcOperStatus(*configSm, config->session.get(s), intf);
  }
  OperStatus destStatus(const std::string& s, const std::string& intf) const {
    return getDestOperStatus(*configSm, config->session.get(s), intf);
  }
};

struct Case {
  const char* what;
  std::function<void(World&)> given;
  OperStatus expected;
  std::string intf = "Ethernet1";
};

void runCases(const std::vector<Case>& cases, bool source) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    World w;
    w.start();
    w.intfUp("Ethernet1");
    c.given(w);
    EXPECT_EQ(source ? w.srcStatus("b", c.intf) : w.destStatus("b", c.intf), c.expected);
  }
}

TEST(OperStatusTest, SourceRules) {
  const OperStatus srcConflict = inactive("Source Conflict"), destConflict = inactive("Destination Conflict");
  const OperStatus modeConflict = inactive("Interface Mode Conflict"), greRx = inactive("GRE supported in RX direction only");
  runCases(
      {
          // Direction overlaps with an active source of another session.
          {"rx there, tx here", [](World& w) { w.pubSrc("a", rx); w.src("b", tx); }, kActive},
          {"rx there, both here", [](World& w) { w.pubSrc("a", rx); w.src("b", both); }, srcConflict},
          {"both there, rx here", [](World& w) { w.pubSrc("a", both); w.src("b", rx); }, srcConflict},
          {"tx there, tx here", [](World& w) { w.pubSrc("a", tx); w.src("b", tx); }, srcConflict},
          {"the other session's source is inactive",
           [](World& w) { w.pubSrc("a", both, inactive("Interface Mode Conflict")); w.src("b", both); }, kActive},
          {"the other session published nothing yet", [](World& w) { w.src("a", both); w.src("b", both); }, kActive},
          {"the hardware shares sources between sessions",
           [](World& w) {
             w.capability->multiSessionForSourceSupported.set(true);
             w.pubSrc("a", both); w.src("b", both);
           },
           kActive},
          // GRE tunnels carry received traffic only.
          {"tx source of a GRE session", [](World& w) { w.src("b", tx); w.dst("b", "Gre1"); }, greRx},
          {"both-direction source of a session with a port and a GRE tunnel",
           [](World& w) { w.src("b", both); w.dst("b", "Ethernet2"); w.dst("b", "Gre1"); }, greRx},
          {"rx source of a GRE session", [](World& w) { w.src("b", rx); w.dst("b", "Gre1"); }, kActive},
          {"a source conflict is reported before the GRE direction",
           [](World& w) { w.pubSrc("a", both); w.src("b", tx); w.dst("b", "Gre1"); }, srcConflict},
          {"a source no longer in a GRE session is not held to the direction",
           [](World& w) { w.dst("b", "Gre1"); }, kActive},
          // An active destination of another session.
          {"another session's destination", [](World& w) { w.pubDst("a"); w.src("b", rx); }, destConflict},
          {"another session's inactive destination",
           [](World& w) { w.pubDst("a", "Ethernet1", inactive("Destination Conflict")); w.src("b", both); }, kActive},
          {"rx source on another session's destination, where the hardware allows it",
           [](World& w) { w.sameIntf(); w.pubDst("a"); w.src("b", rx); }, kActive},
          {"a shared rx source still needs its link",
           [](World& w) { w.sameIntf(); w.intfGone("Ethernet1"); w.pubDst("a"); w.src("b", rx); }, modeConflict},
          {"tx source on another session's destination, where the hardware allows rx",
           [](World& w) { w.sameIntf(); w.pubDst("a"); w.src("b", tx); }, destConflict},
          {"rx source that is also this session's active destination",
           [](World& w) { w.sameIntf(); w.pubDst("a"); w.src("b", rx); w.pubDst("b"); }, destConflict},
          // The interface itself.
          {"no interface status", [](World& w) { w.intfGone("Ethernet1"); w.src("b", rx); }, modeConflict},
          {"interface not active in hardware", [](World& w) { w.intfUp("Ethernet1", false); w.src("b", rx); },
           modeConflict},
          // LAG membership.
          {"member of a LAG that is a source",
           [](World& w) { w.member("Ethernet1", "Port-Channel1"); w.src("a", both, "Port-Channel1"); w.src("b", rx); },
           inactive("Member of a source LAG")},
          {"member of a LAG that is a destination",
           [](World& w) { w.member("Ethernet1", "Port-Channel1"); w.dst("a", "Port-Channel1"); w.src("b", rx); },
           inactive("Member of a destination LAG")},
          {"member of a LAG that is both: the source LAG is reported",
           [](World& w) {
             w.member("Ethernet1", "Port-Channel1"); w.dst("a", "Port-Channel1"); w.src("c", tx, "Port-Channel1");
             w.src("b", rx);
           },
           inactive("Member of a source LAG")},
          {"member of a LAG that mirroring does not use",
           [](World& w) { w.member("Ethernet1", "Port-Channel1"); w.src("a", both, "Port-Channel2"); w.src("b", rx); },
           kActive},
      },
      true);
}

TEST(OperStatusTest, DestinationRules) {
  const OperStatus srcConflict = inactive("Source Conflict"), destConflict = inactive("Destination Conflict");
  const OperStatus modeConflict = inactive("Interface Mode Conflict");
  runCases(
      {
          // Ethernet ports: link and LAG.
          {"an active port", [](World& w) { w.dst("b"); }, kActive},
          {"no interface status", [](World& w) { w.intfGone("Ethernet1"); w.dst("b"); }, modeConflict},
          {"not active in hardware", [](World& w) { w.intfUp("Ethernet1", false); w.dst("b"); }, modeConflict},
          {"a LAG member", [](World& w) { w.member("Ethernet1", "Port-Channel1"); w.dst("b"); }, modeConflict},
          {"a port whose LAG membership was cleared",
           [](World& w) { w.member("Ethernet1", "Port-Channel1"); w.member("Ethernet1", ""); w.dst("b"); }, kActive},
          // Destinations of other sessions.
          {"another session's destination", [](World& w) { w.pubDst("a"); w.dst("b"); }, destConflict},
          {"another session's destination, shared by the hardware, even with the link gone",
           [](World& w) {
             w.capability->multiSessionForDestSupported.set(true);
             w.intfGone("Ethernet1"); w.pubDst("a"); w.dst("b");
           },
           kActive},
          {"another session's inactive destination",
           [](World& w) { w.pubDst("a", "Ethernet1", inactive("Interface Mode Conflict")); w.dst("b"); }, kActive},
          // Sources: an active source, of any session and in any direction, is no destination.
          {"another session's receive-only source", [](World& w) { w.pubSrc("a", rx); w.dst("b"); }, srcConflict},
          {"this session's own active source", [](World& w) { w.pubSrc("b", tx); w.dst("b"); }, srcConflict},
          {"another session's refused source",
           [](World& w) { w.pubSrc("a", both, inactive("Source Conflict")); w.dst("b"); }, kActive},
          {"also a source here, overlapping another session's active source",
           [](World& w) { w.pubSrc("a", both); w.src("b", rx); w.dst("b"); }, srcConflict},
          {"rx sources on both sides, where the hardware allows it",
           [](World& w) { w.sameIntf(); w.pubSrc("a", rx); w.src("b", rx); w.dst("b"); }, kActive},
          {"an rx source elsewhere lifts no destination conflict",
           [](World& w) { w.sameIntf(); w.pubSrc("a", rx); w.pubDst("c"); w.dst("b"); }, destConflict},
          {"an rx source elsewhere lifts no LAG check",
           [](World& w) { w.sameIntf(); w.member("Ethernet1", "Port-Channel1"); w.pubSrc("a", rx); w.dst("b"); },
           modeConflict},
          {"the other session mirrors both directions, where the hardware allows rx",
           [](World& w) { w.sameIntf(); w.pubSrc("a", both); w.src("b", rx); w.dst("b"); }, srcConflict},
          {"also this session's active source, where the hardware allows rx",
           [](World& w) { w.sameIntf(); w.pubSrc("a", rx); w.pubSrc("b", rx); w.dst("b"); }, srcConflict},
          // Port-Channels.
          {"Port-Channel without hardware support",
           [](World& w) { w.intfUp("Port-Channel1"); w.dst("b", "Port-Channel1"); },
           inactive("Port-channel is not supported"), "Port-Channel1"},
          {"Port-Channel with hardware support",
           [](World& w) {
             w.capability->lagDestSupported.set(true);
             w.intfUp("Port-Channel1"); w.dst("b", "Port-Channel1");
           },
           kActive, "Port-Channel1"},
          {"Port-Channel with hardware support is checked like a port",
           [](World& w) {
             w.capability->lagDestSupported.set(true);
             w.pubDst("a", "Port-Channel1"); w.intfUp("Port-Channel1"); w.dst("b", "Port-Channel1");
           },
           destConflict, "Port-Channel1"},
          {"Port-Channel with hardware support and no status",
           [](World& w) { w.capability->lagDestSupported.set(true); w.dst("b", "Port-Channel1"); }, modeConflict,
           "Port-Channel1"},
          // Cpu and loopback: capability only, no conflicts, no interface status.
          {"Cpu without hardware support", [](World& w) { w.dst("b", "Cpu"); }, inactive("Cpu is not supported"),
           "Cpu"},
          {"Cpu, also another session's destination",
           [](World& w) { w.capability->cpuDestSupported.set(true); w.pubDst("a", "Cpu"); w.dst("b", "Cpu"); },
           kActive, "Cpu"},
          {"loopback without hardware support", [](World& w) { w.dst("b", "Loopback0"); },
           inactive("Loopback is not supported"), "Loopback0"},
          {"loopback, also another session's destination",
           [](World& w) {
             w.capability->loopbackDestSupported.set(true);
             w.pubDst("a", "Loopback0"); w.dst("b", "Loopback0");
           },
           kActive, "Loopback0"},
          // GRE tunnels: the VRF only.
          {"GRE tunnel in the default VRF without any VRF status", [](World& w) { w.dst("b", "Gre1"); }, kActive,
           "Gre1"},
          {"GRE tunnel in a missing VRF",
           [](World& w) { w.vrfStatus->vrfIs(platform::VrfName("blue")); w.greVrf("b", "red"); w.dst("b", "Gre1"); },
           inactive("VRF red is not configured."), "Gre1"},
          {"GRE tunnel in a known VRF",
           [](World& w) { w.vrfStatus->vrfIs(platform::VrfName("red")); w.greVrf("b", "red"); w.dst("b", "Gre1"); },
           kActive, "Gre1"},
          {"GRE tunnel shared with another session", [](World& w) { w.pubDst("a", "Gre1"); w.dst("b", "Gre1"); },
           kActive, "Gre1"},
      },
      false);
}

// Hardware with one mirror port: the destination that became active first keeps it, and the
// others show the one-port limit whatever else is wrong with them; tunnels are no ports.
TEST(OperStatusTest, MultiplePortsRule) {
  const OperStatus multiple = inactive("Multiple ports are not supported");
  {
    World w;
    w.capability->maxSupportedSessions.set(4);
    for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3"}) {
      w.intfUp(intf);
      w.dst("s", intf);
    }
    w.start();
    EXPECT_EQ(w.dest("s", "Ethernet1"), kActive);
    EXPECT_EQ(w.dest("s", "Ethernet2"), multiple);
    for (const char* intf : {"Ethernet2", "Cpu", "Loopback0", "Port-Channel1"}) {
      EXPECT_EQ(w.destStatus("s", intf), multiple) << intf;
    }
    EXPECT_EQ(w.destStatus("s", "Gre1"), kActive);
    // The active one goes: the first refused one takes its place.
    w.intfUp("Ethernet1", false);
    EXPECT_EQ(w.dest("s", "Ethernet1"), multiple);
    EXPECT_EQ(w.dest("s", "Ethernet2"), kActive);
    EXPECT_EQ(w.dest("s", "Ethernet3"), multiple);
    w.intfUp("Ethernet2", false);
    w.intfUp("Ethernet3", false);
    EXPECT_EQ(w.destStatus("s", "Cpu"), inactive("Cpu is not supported")) << "none active: its own reason";
  }
  {
    // Sessions that come from hardware with several ports: the two refuse each other, and the
    // later one stays.
    World w;
    w.capability->maxSupportedSessions.set(4);
    for (const char* intf : {"Ethernet1", "Ethernet2"}) {
      w.intfUp(intf);
      w.pubDst("s", intf);
    }
    w.start();
    EXPECT_EQ(w.dest("s", "Ethernet1"), multiple);
    EXPECT_EQ(w.dest("s", "Ethernet2"), kActive);
  }
}

// Hardware that lets an interface be a source and a destination re-judges every session when
// it says so. (The consistency checker leaves these cases out: who came first decides them.)
TEST(OperStatusTest, SharingAnInterfaceBetweenSourceAndDestinationReJudgesEverySession) {
  World w;
  w.capability->maxSupportedSessions.set(8);
  for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3"}) w.intfUp(intf);
  w.src("a", rx);
  w.dst("a", "Ethernet2");
  w.src("b", rx);
  w.dst("b", "Ethernet1");
  w.src("c", rx, "Ethernet2");
  w.dst("c", "Ethernet3");
  w.start();
  EXPECT_EQ(w.dest("b", "Ethernet1"), inactive("Source Conflict"));
  EXPECT_EQ(w.source("c", "Ethernet2"), inactive("Destination Conflict"));

  // a's destination Ethernet2 may be c's rx source, and a's rx source Ethernet1 b's destination;
  // b's own source still overlaps a's.
  w.sameIntf();
  EXPECT_EQ(w.source("c", "Ethernet2"), kActive);
  EXPECT_EQ(w.dest("a", "Ethernet2"), kActive);
  EXPECT_EQ(w.dest("b", "Ethernet1"), kActive);
  EXPECT_EQ(w.source("b", "Ethernet1"), inactive("Source Conflict"));
}

}  // namespace
