// Operational status of mirroring sources and destinations.
//
// Most cases test the rules alone: a configuration manager that may build no sessions
// (maxSupportedSessions 0), other sessions' statuses written by hand, and the rule called
// directly. The rest let real sessions publish their statuses and check what the rules made
// of them, first come first served.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Mirroring/MirroringSm.h"
#include "platform/Database.h"

namespace {

using Mirroring::Direction;
using Mirroring::OperStatus;
using platform::IntfId;
using platform::Ptr;

const OperStatus kActive = OperStatus::active();
OperStatus inactive(const std::string& reason) { return OperStatus::inactive(reason); }

// The entities the configuration manager follows, and the manager itself once started.
class World {
 public:
  World() {
    config = root<Mirroring::Config>("mirroring/config");
    status = root<Mirroring::Status>("mirroring/status");
    hwConfig = root<Mirroring::Config>("mirroring/hwconfig");
    hwStatus = root<Mirroring::HwStatus>("mirroring/hwstatus");
    cap = root<Mirroring::HwCapability>("mirroring/hwcapability");
    eth = root<Interface::EthIntfStatusDir>("interface/status/eth/intf");
    lag = root<Lag::Config>("lag/config");
    acl = root<Acl::Config>("acl/config/all");
    fwdModel = root<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/mirroring");
    vrfs = root<Ip::AllVrfStatusGlobal>("ip/vrf/status/global");
    lagStatus = root<Interface::EthLagIntfStatusDir>("interface/status/eth/lag");
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  void start() {
    sm = platform::make<Mirroring::ConfigSm>(config, status, hwConfig, hwStatus, cap, eth, lag, acl, fwdModel, vrfs,
                                             lagStatus);
  }

  // --- configuration ---
  void source(const std::string& session, const std::string& intf, Direction dir) {
    config->sessionIs(session)->srcIntfIs(intf, dir);
  }
  void target(const std::string& session, const std::string& intf) { config->sessionIs(session)->targetIntfIs(intf); }
  void greVrf(const std::string& session, const std::string& vrf) {
    auto key = config->sessionIs(session)->greTunnelKey();
    key.vrf = platform::VrfName(vrf);
    config->sessionIs(session)->greTunnelKey.set(key);
  }

  // --- the rest of the switch ---
  void up(const std::string& intf, bool hwActive = true) { eth->intfStatusIs(IntfId(intf))->hwActive.set(hwActive); }
  void gone(const std::string& intf) { eth->intfStatusDel(IntfId(intf)); }
  void member(const std::string& intf, const std::string& portChannel) {
    lag->phyIntfIs(IntfId(intf))->lag.set(IntfId(portChannel));
  }

  // --- what sessions published (by hand for sessions without a state machine) ---
  void publishSrc(const std::string& session, const std::string& intf, const OperStatus& s) {
    status->sessionStatusIs(session)->srcOperStatus.set(intf, s);
  }
  void publishDest(const std::string& session, const std::string& intf, const OperStatus& s) {
    status->sessionStatusIs(session)->targetOperStatus.set(intf, s);
  }
  OperStatus publishedSrc(const std::string& session, const std::string& intf) const {
    auto s = status->sessionStatus.get(session);
    return s ? s->srcOperStatus.get(intf) : OperStatus();
  }
  OperStatus publishedDest(const std::string& session, const std::string& intf) const {
    auto s = status->sessionStatus.get(session);
    return s ? s->targetOperStatus.get(intf) : OperStatus();
  }

  // --- the rules ---
  Ptr<const Mirroring::Session> session(const std::string& name) const { return config->session.get(name); }
  OperStatus srcStatus(const std::string& s, const std::string& intf) const {
    return Mirroring::getSrcOperStatus(*sm, session(s), intf);
  }
  OperStatus destStatus(const std::string& s, const std::string& intf) const {
    return Mirroring::getDestOperStatus(*sm, session(s), intf);
  }

  platform::Database db;
  Ptr<Mirroring::Config> config, hwConfig;
  Ptr<Mirroring::Status> status;
  Ptr<Mirroring::HwStatus> hwStatus;
  Ptr<Mirroring::HwCapability> cap;
  Ptr<Interface::EthIntfStatusDir> eth;
  Ptr<Lag::Config> lag;
  Ptr<Acl::Config> acl;
  Ptr<Interface::IntfForwardingModelInputDir> fwdModel;
  Ptr<Ip::AllVrfStatusGlobal> vrfs;
  Ptr<Interface::EthLagIntfStatusDir> lagStatus;
  Ptr<Mirroring::ConfigSm> sm;

 private:
  template <class T>
  Ptr<T> root(const std::string& path) {
    return platform::dynamicPtrCast<T>(db.rootIs<T>(path)->root());
  }
};

struct Case {
  const char* what;
  std::function<void(World&)> given;
  OperStatus expected;
  std::string intf = "Ethernet1";
};

// Session "b" is the one evaluated; "a" is another session that was there first. Ethernet1
// is up unless a case says otherwise.
void runCases(const std::vector<Case>& cases, bool source) {
  for (const Case& c : cases) {
    World w;
    w.start();
    w.up("Ethernet1");
    c.given(w);
    OperStatus got = source ? w.srcStatus("b", c.intf) : w.destStatus("b", c.intf);
    EXPECT_EQ(got, c.expected) << c.what;
  }
}

TEST(OperStatusTest, SourceRules) {
  const auto sameIntf = [](World& w) { w.cap->sameIntfSrcAndDestSupported.set(true); };
  std::vector<Case> cases = {
      // Direction overlaps with an active source of another session.
      {"rx there, tx here",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::rx);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::tx);
       },
       kActive},
      {"rx there, both here",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::rx);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::both);
       },
       inactive("Source Conflict")},
      {"both there, rx here",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::both);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::rx);
       },
       inactive("Source Conflict")},
      {"tx there, tx here",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::tx);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::tx);
       },
       inactive("Source Conflict")},
      {"the other session's source is inactive",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::both);
         w.publishSrc("a", "Ethernet1", inactive("Interface Mode Conflict"));
         w.source("b", "Ethernet1", Direction::both);
       },
       kActive},
      {"the other session published nothing yet",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::both);
         w.source("b", "Ethernet1", Direction::both);
       },
       kActive},
      {"the hardware shares sources between sessions",
       [](World& w) {
         w.cap->multiSessionForSourceSupported.set(true);
         w.source("a", "Ethernet1", Direction::both);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::both);
       },
       kActive},

      // GRE tunnels carry received traffic only.
      {"tx source of a GRE session",
       [](World& w) {
         w.source("b", "Ethernet1", Direction::tx);
         w.target("b", "Gre1");
       },
       inactive("GRE supported in RX direction only")},
      {"both-direction source of a session with a port and a GRE tunnel",
       [](World& w) {
         w.source("b", "Ethernet1", Direction::both);
         w.target("b", "Ethernet2");
         w.target("b", "Gre1");
       },
       inactive("GRE supported in RX direction only")},
      {"rx source of a GRE session",
       [](World& w) {
         w.source("b", "Ethernet1", Direction::rx);
         w.target("b", "Gre1");
       },
       kActive},
      {"a source conflict is reported before the GRE direction",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::both);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::tx);
         w.target("b", "Gre1");
       },
       inactive("Source Conflict")},

      // An active destination of another session.
      {"another session's destination",
       [](World& w) {
         w.target("a", "Ethernet1");
         w.publishDest("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::rx);
       },
       inactive("Destination Conflict")},
      {"another session's inactive destination",
       [](World& w) {
         w.target("a", "Ethernet1");
         w.publishDest("a", "Ethernet1", inactive("Destination Conflict"));
         w.source("b", "Ethernet1", Direction::both);
       },
       kActive},
      {"rx source on another session's destination, where the hardware allows it",
       [&](World& w) {
         sameIntf(w);
         w.target("a", "Ethernet1");
         w.publishDest("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::rx);
       },
       kActive},
      {"a shared rx source still needs its link",
       [&](World& w) {
         sameIntf(w);
         w.gone("Ethernet1");
         w.target("a", "Ethernet1");
         w.publishDest("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::rx);
       },
       inactive("Interface Mode Conflict")},
      {"tx source on another session's destination, where the hardware allows rx",
       [&](World& w) {
         sameIntf(w);
         w.target("a", "Ethernet1");
         w.publishDest("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::tx);
       },
       inactive("Destination Conflict")},
      {"rx source that is also this session's active destination",
       [&](World& w) {
         sameIntf(w);
         w.target("a", "Ethernet1");
         w.publishDest("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::rx);
         w.target("b", "Ethernet1");
         w.publishDest("b", "Ethernet1", kActive);
       },
       inactive("Destination Conflict")},

      // The interface itself.
      {"no interface status", [](World& w) {
         w.gone("Ethernet1");
         w.source("b", "Ethernet1", Direction::rx);
       },
       inactive("Interface Mode Conflict")},
      {"interface not active in hardware",
       [](World& w) {
         w.up("Ethernet1", false);
         w.source("b", "Ethernet1", Direction::rx);
       },
       inactive("Interface Mode Conflict")},
      {"a source no longer in a GRE session is not held to the direction",
       [](World& w) { w.target("b", "Gre1"); }, kActive},

      // LAG membership.
      {"member of a LAG that is a source",
       [](World& w) {
         w.member("Ethernet1", "Port-Channel1");
         w.source("a", "Port-Channel1", Direction::both);
         w.source("b", "Ethernet1", Direction::rx);
       },
       inactive("Member of a source LAG")},
      {"member of a LAG that is a destination",
       [](World& w) {
         w.member("Ethernet1", "Port-Channel1");
         w.target("a", "Port-Channel1");
         w.source("b", "Ethernet1", Direction::rx);
       },
       inactive("Member of a destination LAG")},
      {"member of a LAG that is both: the source LAG is reported",
       [](World& w) {
         w.member("Ethernet1", "Port-Channel1");
         w.target("a", "Port-Channel1");
         w.source("c", "Port-Channel1", Direction::tx);
         w.source("b", "Ethernet1", Direction::rx);
       },
       inactive("Member of a source LAG")},
      {"member of a LAG that mirroring does not use",
       [](World& w) {
         w.member("Ethernet1", "Port-Channel1");
         w.source("a", "Port-Channel2", Direction::both);
         w.source("b", "Ethernet1", Direction::rx);
       },
       kActive},
  };
  runCases(cases, true);
}

TEST(OperStatusTest, DestinationRules) {
  const auto sameIntf = [](World& w) { w.cap->sameIntfSrcAndDestSupported.set(true); };
  std::vector<Case> cases = {
      // Ethernet ports: link and LAG.
      {"an active port", [](World& w) { w.target("b", "Ethernet1"); }, kActive},
      {"no interface status", [](World& w) {
         w.gone("Ethernet1");
         w.target("b", "Ethernet1");
       },
       inactive("Interface Mode Conflict")},
      {"not active in hardware", [](World& w) {
         w.up("Ethernet1", false);
         w.target("b", "Ethernet1");
       },
       inactive("Interface Mode Conflict")},
      {"a LAG member", [](World& w) {
         w.member("Ethernet1", "Port-Channel1");
         w.target("b", "Ethernet1");
       },
       inactive("Interface Mode Conflict")},
      {"a port whose LAG membership was cleared",
       [](World& w) {
         w.member("Ethernet1", "Port-Channel1");
         w.member("Ethernet1", "");
         w.target("b", "Ethernet1");
       },
       kActive},

      // Destinations of other sessions.
      {"another session's destination",
       [](World& w) {
         w.target("a", "Ethernet1");
         w.publishDest("a", "Ethernet1", kActive);
         w.target("b", "Ethernet1");
       },
       inactive("Destination Conflict")},
      {"another session's destination, shared by the hardware, even with the link gone",
       [](World& w) {
         w.cap->multiSessionForDestSupported.set(true);
         w.gone("Ethernet1");
         w.target("a", "Ethernet1");
         w.publishDest("a", "Ethernet1", kActive);
         w.target("b", "Ethernet1");
       },
       kActive},
      {"another session's inactive destination",
       [](World& w) {
         w.target("a", "Ethernet1");
         w.publishDest("a", "Ethernet1", inactive("Interface Mode Conflict"));
         w.target("b", "Ethernet1");
       },
       kActive},

      // Sources: an active source, of any session and in any direction, is no destination.
      {"another session's receive-only source",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::rx);
         w.publishSrc("a", "Ethernet1", kActive);
         w.target("b", "Ethernet1");
       },
       inactive("Source Conflict")},
      {"this session's own active source",
       [](World& w) {
         w.source("b", "Ethernet1", Direction::tx);
         w.publishSrc("b", "Ethernet1", kActive);
         w.target("b", "Ethernet1");
       },
       inactive("Source Conflict")},
      {"another session's refused source",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::both);
         w.publishSrc("a", "Ethernet1", inactive("Source Conflict"));
         w.target("b", "Ethernet1");
       },
       kActive},
      {"also a source here, overlapping another session's active source",
       [](World& w) {
         w.source("a", "Ethernet1", Direction::both);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::rx);
         w.target("b", "Ethernet1");
       },
       inactive("Source Conflict")},
      {"rx sources on both sides, where the hardware allows it",
       [&](World& w) {
         sameIntf(w);
         w.source("a", "Ethernet1", Direction::rx);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::rx);
         w.target("b", "Ethernet1");
       },
       kActive},
      {"an rx source elsewhere lifts no destination conflict",
       [&](World& w) {
         sameIntf(w);
         w.source("a", "Ethernet1", Direction::rx);
         w.publishSrc("a", "Ethernet1", kActive);
         w.target("c", "Ethernet1");
         w.publishDest("c", "Ethernet1", kActive);
         w.target("b", "Ethernet1");
       },
       inactive("Destination Conflict")},
      {"an rx source elsewhere lifts no LAG check",
       [&](World& w) {
         sameIntf(w);
         w.member("Ethernet1", "Port-Channel1");
         w.source("a", "Ethernet1", Direction::rx);
         w.publishSrc("a", "Ethernet1", kActive);
         w.target("b", "Ethernet1");
       },
       inactive("Interface Mode Conflict")},
      {"the other session mirrors both directions, where the hardware allows rx",
       [&](World& w) {
         sameIntf(w);
         w.source("a", "Ethernet1", Direction::both);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::rx);
         w.target("b", "Ethernet1");
       },
       inactive("Source Conflict")},
      {"also this session's active source, where the hardware allows rx",
       [&](World& w) {
         sameIntf(w);
         w.source("a", "Ethernet1", Direction::rx);
         w.publishSrc("a", "Ethernet1", kActive);
         w.source("b", "Ethernet1", Direction::rx);
         w.publishSrc("b", "Ethernet1", kActive);
         w.target("b", "Ethernet1");
       },
       inactive("Source Conflict")},

      // Port-Channels.
      {"Port-Channel without hardware support",
       [](World& w) {
         w.up("Port-Channel1");
         w.target("b", "Port-Channel1");
       },
       inactive("Port-channel is not supported"), "Port-Channel1"},
      {"Port-Channel with hardware support",
       [](World& w) {
         w.cap->lagDestSupported.set(true);
         w.up("Port-Channel1");
         w.target("b", "Port-Channel1");
       },
       kActive, "Port-Channel1"},
      {"Port-Channel with hardware support is checked like a port",
       [](World& w) {
         w.cap->lagDestSupported.set(true);
         w.target("a", "Port-Channel1");
         w.publishDest("a", "Port-Channel1", kActive);
         w.up("Port-Channel1");
         w.target("b", "Port-Channel1");
       },
       inactive("Destination Conflict"), "Port-Channel1"},
      {"Port-Channel with hardware support and no status",
       [](World& w) {
         w.cap->lagDestSupported.set(true);
         w.target("b", "Port-Channel1");
       },
       inactive("Interface Mode Conflict"), "Port-Channel1"},

      // Cpu and loopback: capability only, no conflicts, no interface status.
      {"Cpu without hardware support", [](World& w) { w.target("b", "Cpu"); }, inactive("Cpu is not supported"),
       "Cpu"},
      {"Cpu, also another session's destination",
       [](World& w) {
         w.cap->cpuDestSupported.set(true);
         w.target("a", "Cpu");
         w.publishDest("a", "Cpu", kActive);
         w.target("b", "Cpu");
       },
       kActive, "Cpu"},
      {"loopback without hardware support", [](World& w) { w.target("b", "Loopback0"); },
       inactive("Loopback is not supported"), "Loopback0"},
      {"loopback, also another session's destination",
       [](World& w) {
         w.cap->loopbackDestSupported.set(true);
         w.target("a", "Loopback0");
         w.publishDest("a", "Loopback0", kActive);
         w.target("b", "Loopback0");
       },
       kActive, "Loopback0"},

      // GRE tunnels: the VRF only.
      {"GRE tunnel in the default VRF without any VRF status", [](World& w) { w.target("b", "Gre1"); }, kActive,
       "Gre1"},
      {"GRE tunnel in a missing VRF",
       [](World& w) {
         w.vrfs->vrfIs(platform::VrfName("blue"));
         w.greVrf("b", "red");
         w.target("b", "Gre1");
       },
       inactive("VRF red is not configured."), "Gre1"},
      {"GRE tunnel in a known VRF",
       [](World& w) {
         w.vrfs->vrfIs(platform::VrfName("red"));
         w.greVrf("b", "red");
         w.target("b", "Gre1");
       },
       kActive, "Gre1"},
      {"GRE tunnel shared with another session",
       [](World& w) {
         w.target("a", "Gre1");
         w.publishDest("a", "Gre1", kActive);
         w.target("b", "Gre1");
       },
       kActive, "Gre1"},
  };
  runCases(cases, false);
}

// Real sessions: whoever published first keeps the interface; the loser gets it back when
// the winner goes away.
TEST(OperStatusTest, FirstPublishedWins) {
  World w;
  w.cap->maxSupportedSessions.set(8);
  for (const char* intf : {"Ethernet1", "Ethernet10", "Ethernet11"}) w.up(intf);
  w.source("a", "Ethernet1", Direction::rx);
  w.target("a", "Ethernet10");
  w.source("b", "Ethernet1", Direction::tx);
  w.target("b", "Ethernet11");
  w.source("c", "Ethernet1", Direction::both);
  w.target("c", "Ethernet10");
  w.start();

  EXPECT_EQ(w.publishedSrc("a", "Ethernet1"), kActive);
  EXPECT_EQ(w.publishedDest("a", "Ethernet10"), kActive);
  EXPECT_EQ(w.publishedSrc("b", "Ethernet1"), kActive);
  EXPECT_EQ(w.publishedDest("b", "Ethernet11"), kActive);
  EXPECT_EQ(w.publishedSrc("c", "Ethernet1"), inactive("Source Conflict"));
  EXPECT_EQ(w.publishedDest("c", "Ethernet10"), inactive("Destination Conflict"));

  // The rules agree with what was published, from either side.
  EXPECT_EQ(w.srcStatus("a", "Ethernet1"), kActive);
  EXPECT_EQ(w.destStatus("a", "Ethernet10"), kActive);
  EXPECT_EQ(w.srcStatus("c", "Ethernet1"), inactive("Source Conflict"));

  w.config->sessionDel("a");
  EXPECT_EQ(w.publishedDest("c", "Ethernet10"), kActive);
  // b's tx source still overlaps c's.
  EXPECT_EQ(w.publishedSrc("c", "Ethernet1"), inactive("Source Conflict"));
}

// Hardware with one mirror port: the destination that became active first keeps it. A
// destination not yet active is refused while exactly one other is active, but not when
// there are more (sessions that came from hardware with several ports).
TEST(OperStatusTest, MultiplePortsRule) {
  {
    World w;
    w.cap->maxSupportedSessions.set(4);
    for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3"}) w.up(intf);
    for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3"}) w.target("s", intf);
    w.start();

    EXPECT_EQ(w.publishedDest("s", "Ethernet1"), kActive);
    EXPECT_EQ(w.publishedDest("s", "Ethernet2"), inactive("Multiple ports are not supported"));
    EXPECT_EQ(w.publishedDest("s", "Ethernet3"), inactive("Multiple ports are not supported"));

    Ptr<Mirroring::SessionSm> s = w.sm->sessionSm("s");
    ASSERT_TRUE(s);
    ASSERT_EQ(s->activeDest().size(), 1u);
    struct Expect {
      const char* dest;
      OperStatus status;
    };
    const auto check = [&](const char* when, const std::vector<Expect>& expects) {
      for (const Expect& e : expects) EXPECT_EQ(w.destStatus("s", e.dest), e.status) << when << ": " << e.dest;
    };
    check("one active",
          {
              {"Ethernet1", kActive},
              {"Ethernet2", inactive("Multiple ports are not supported")},
              // Whatever else was wrong with it, the one-port limit is what the operator sees.
              {"Cpu", inactive("Multiple ports are not supported")},
              {"Loopback0", inactive("Multiple ports are not supported")},
              {"Port-Channel1", inactive("Multiple ports are not supported")},
              // Tunnels do not count as ports.
              {"Gre1", kActive},
          });

    // The active one goes: the first refused one takes its place, and what the operator sees
    // of the others is decided again against it.
    w.up("Ethernet1", false);
    EXPECT_EQ(w.publishedDest("s", "Ethernet1"), inactive("Multiple ports are not supported"));
    EXPECT_EQ(w.publishedDest("s", "Ethernet2"), kActive);
    EXPECT_EQ(w.publishedDest("s", "Ethernet3"), inactive("Multiple ports are not supported"));
    w.up("Ethernet2", false);
    EXPECT_EQ(w.publishedDest("s", "Ethernet3"), kActive);
    w.up("Ethernet3", false);
    ASSERT_TRUE(s->activeDest().empty());
    check("none active", {{"Ethernet1", inactive("Interface Mode Conflict")}, {"Cpu", inactive("Cpu is not supported")}});
  }
  {
    // Sessions that come from hardware with several ports: while two are active, one not yet
    // active is not refused; the two refuse each other, and the later one stays.
    World w;
    w.cap->maxSupportedSessions.set(4);
    for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3"}) w.up(intf);
    for (const char* intf : {"Ethernet1", "Ethernet2"}) {
      w.target("s", intf);
      w.publishDest("s", intf, kActive);
    }
    w.start();
    EXPECT_EQ(w.publishedDest("s", "Ethernet1"), inactive("Multiple ports are not supported"));
    EXPECT_EQ(w.publishedDest("s", "Ethernet2"), kActive);
  }
  {
    World w;
    w.cap->maxSupportedSessions.set(4);
    w.cap->multiDestSupported.set(true);
    for (const char* intf : {"Ethernet1", "Ethernet2"}) {
      w.up(intf);
      w.target("s", intf);
    }
    w.start();
    EXPECT_EQ(w.publishedDest("s", "Ethernet1"), kActive);
    EXPECT_EQ(w.publishedDest("s", "Ethernet2"), kActive);
    EXPECT_EQ(w.destStatus("s", "Ethernet1"), kActive);
  }
  {
    // One configured destination: the limit never applies, whatever the session's state.
    World w;
    w.cap->maxSupportedSessions.set(4);
    w.target("s", "Ethernet1");
    w.start();
    Ptr<Mirroring::SessionSm> s = w.sm->sessionSm("s");
    ASSERT_TRUE(s);
    s->doUpdateDestStatus("Ethernet9", kActive);
    w.up("Ethernet1");
    EXPECT_EQ(w.destStatus("s", "Ethernet1"), kActive);
  }
}

// The capability to share an interface between a source and a destination re-evaluates every
// session; the review functions re-evaluate exactly the sessions that use one interface in one
// role.
TEST(OperStatusTest, ReviewsReevaluateUsers) {
  World w;
  w.cap->maxSupportedSessions.set(8);
  for (const char* intf : {"Ethernet1", "Ethernet2", "Ethernet3"}) w.up(intf);
  w.source("a", "Ethernet1", Direction::rx);
  w.target("a", "Ethernet2");
  w.source("b", "Ethernet1", Direction::rx);
  w.target("b", "Ethernet1");
  w.source("c", "Ethernet2", Direction::rx);
  w.target("c", "Ethernet3");
  w.start();

  EXPECT_EQ(w.publishedSrc("b", "Ethernet1"), inactive("Source Conflict"));
  EXPECT_EQ(w.publishedDest("b", "Ethernet1"), inactive("Source Conflict"));
  EXPECT_EQ(w.publishedSrc("c", "Ethernet2"), inactive("Destination Conflict"));

  // Ethernet2 is a's destination and may be c's rx source too; Ethernet1 is a's rx source and
  // may be b's destination. b's own source still overlaps a's.
  w.cap->sameIntfSrcAndDestSupported.set(true);
  EXPECT_EQ(w.publishedSrc("c", "Ethernet2"), kActive);
  EXPECT_EQ(w.publishedDest("a", "Ethernet2"), kActive);
  EXPECT_EQ(w.publishedDest("b", "Ethernet1"), kActive);
  EXPECT_EQ(w.publishedSrc("b", "Ethernet1"), inactive("Source Conflict"));

  // Statuses made stale by hand are put right only by the review of their interface and role.
  w.publishSrc("c", "Ethernet2", inactive("Interface Mode Conflict"));
  w.publishDest("b", "Ethernet1", inactive("Interface Mode Conflict"));
  Mirroring::reviewDestIntfs(*w.sm, IntfId("Ethernet2"));
  Mirroring::reviewSourceIntfs(*w.sm, IntfId("Ethernet1"));
  EXPECT_EQ(w.publishedSrc("c", "Ethernet2"), inactive("Interface Mode Conflict"));
  EXPECT_EQ(w.publishedDest("b", "Ethernet1"), inactive("Interface Mode Conflict"));
  Mirroring::reviewSourceIntfs(*w.sm, IntfId("Ethernet2"));
  EXPECT_EQ(w.publishedSrc("c", "Ethernet2"), kActive);
  Mirroring::reviewDestIntfs(*w.sm, IntfId("Ethernet1"));
  EXPECT_EQ(w.publishedDest("b", "Ethernet1"), kActive);
  EXPECT_EQ(w.publishedSrc("a", "Ethernet1"), kActive);
}

}  // namespace
