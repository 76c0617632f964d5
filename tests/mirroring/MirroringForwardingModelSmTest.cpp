// The forwarding model of mirror destinations: what lands in the mirroring forwarding-model
// input as session destinations come and go, at start-up, and across a restart.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Mirroring/MirroringForwardingModelSm.h"
#include "Mirroring/MirroringModel.h"
#include "platform/Database.h"
#include "platform/InterfaceTypes.h"

namespace {

using Interface::IntfForwardingModel;
using Interface::intfForwardingModelDisabled;
using Interface::intfForwardingModelQuietDataLink;
using Mirroring::OperState;
using Mirroring::OperStatus;
using platform::IntfId;
using platform::Ptr;

constexpr OperState active = OperState::active;
constexpr OperState inactive = OperState::inactive;
constexpr OperState unknown = OperState::unknown;

// One switch's worth of state: the mirroring status the sessions publish, the directory the
// state machine writes, and the state machine itself (absent while "the agent is down").
struct Switch {
  platform::Database db;
  platform::Mount* statusMount = db.rootIs<Mirroring::Status>("mirroring/status");
  platform::Mount* modelMount =
      db.rootIs<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/mirroring");
  Ptr<Mirroring::Status> status = platform::dynamicPtrCast<Mirroring::Status>(statusMount->root());
  Ptr<Interface::IntfForwardingModelInputDir> models =
      platform::dynamicPtrCast<Interface::IntfForwardingModelInputDir>(modelMount->root());
  Ptr<Mirroring::MirroringForwardingModelSm> sm;

  void start() { sm = Mirroring::mirroringForwardingModelSmFactory(status, models); }
  void stop() { sm = nullptr; }

  void target(const std::string& session, const std::string& intf, OperState state) {
    status->sessionStatusIs(session)->targetOperStatus.set(intf, OperStatus(state));
  }
  void targetDel(const std::string& session, const std::string& intf) {
    status->sessionStatusIs(session)->targetOperStatus.del(intf);
  }
  void sessionDel(const std::string& session) { status->sessionStatusDel(session); }

  // What an earlier run (or anyone) left in the directory.
  void seed(const std::string& intf, IntfForwardingModel model) { models->forwardingModelInputIs(IntfId(intf), model); }

  std::optional<IntfForwardingModel> model(const std::string& intf) const {
    const IntfForwardingModel* m = models->forwardingModelInput.find(IntfId(intf));
    return m ? std::optional(*m) : std::nullopt;
  }
  std::map<std::string, IntfForwardingModel> entries() const {
    std::map<std::string, IntfForwardingModel> out;
    for (const auto& [intf, m] : models->forwardingModelInput) out.emplace(intf.name(), m);
    return out;
  }
  std::vector<std::string> sessionsOf(const std::string& intf) const {
    std::vector<std::string> out;
    if (auto list = sm->activeIntfMirroringSessionList(IntfId(intf))) {
      for (const auto& [name, on] : list->sessionList()) {
        if (on) out.push_back(name);
      }
    }
    return out;
  }
  uint64_t writes() const { return modelMount->writes(); }
};

using Sessions = std::vector<std::string>;
using Entries = std::map<std::string, IntfForwardingModel>;

TEST(MirroringForwardingModelSm, SharedDestinationsAndTheCpu) {
  Switch sw;
  sw.start();
  ASSERT_TRUE(sw.sm->initialized());

  // The CPU destination is never given a forwarding model, neither way.
  sw.target("s1", "Cpu", active);
  sw.target("s1", "Cpu", inactive);
  sw.target("s1", "Cpu", active);
  EXPECT_EQ(sw.writes(), 0u);
  EXPECT_FALSE(sw.sm->activeIntfMirroringSessionList(IntfId("Cpu")));

  // Two sessions with one destination: one entry, written once (the second write is equal).
  sw.target("s1", "Ethernet3/1", active);
  sw.target("s2", "Ethernet3/1", active);
  EXPECT_EQ(sw.model("Ethernet3/1"), intfForwardingModelQuietDataLink);
  EXPECT_EQ(sw.sessionsOf("Ethernet3/1"), (Sessions{"s1", "s2"}));
  EXPECT_EQ(sw.writes(), 1u);

  // The first session letting go keeps the entry; the second removes it and its list.
  sw.target("s2", "Ethernet3/1", inactive);
  EXPECT_EQ(sw.model("Ethernet3/1"), intfForwardingModelQuietDataLink);
  EXPECT_EQ(sw.sessionsOf("Ethernet3/1"), (Sessions{"s1"}));
  EXPECT_EQ(sw.writes(), 1u);
  sw.target("s1", "Ethernet3/1", unknown);  // not computed is not active either
  EXPECT_EQ(sw.model("Ethernet3/1"), std::nullopt);
  EXPECT_FALSE(sw.sm->activeIntfMirroringSessionList(IntfId("Ethernet3/1")));
  EXPECT_EQ(sw.writes(), 2u);

  // A destination that never was active leaves nothing behind when it turns inactive.
  sw.target("s3", "Port-Channel7", inactive);
  EXPECT_EQ(sw.model("Port-Channel7"), std::nullopt);
  EXPECT_FALSE(sw.sm->activeIntfMirroringSessionList(IntfId("Port-Channel7")));
  EXPECT_EQ(sw.writes(), 2u);

  // Becoming active again after the entry went away writes it again.
  sw.target("s3", "Port-Channel7", active);
  EXPECT_EQ(sw.model("Port-Channel7"), intfForwardingModelQuietDataLink);
  EXPECT_EQ(sw.writes(), 3u);
  EXPECT_EQ(sw.entries().size(), 1u);
}

TEST(MirroringForwardingModelSm, RemovedDestinationsAndSessionsAreWithdrawn) {
  Switch sw;
  sw.start();
  sw.target("s1", "Ethernet1", active);
  sw.target("s1", "Ethernet2", active);
  sw.target("s1", "Gre3", active);
  sw.target("s1", "Cpu", active);
  sw.target("s2", "Ethernet2", active);
  ASSERT_EQ(sw.entries().size(), 3u);

  // A destination removed from the session is let go of like an inactive one.
  sw.targetDel("s1", "Gre3");
  EXPECT_EQ(sw.model("Gre3"), std::nullopt);
  EXPECT_FALSE(sw.sm->activeIntfMirroringSessionList(IntfId("Gre3")));

  // Deleting the whole status withdraws the session from every destination it had; a
  // destination another session still uses stays.
  const uint64_t before = sw.writes();
  sw.sessionDel("s1");
  EXPECT_EQ(sw.model("Ethernet1"), std::nullopt);
  EXPECT_EQ(sw.model("Ethernet2"), intfForwardingModelQuietDataLink);
  EXPECT_EQ(sw.sessionsOf("Ethernet2"), (Sessions{"s2"}));
  EXPECT_EQ(sw.writes(), before + 1);  // Ethernet1 only
  EXPECT_FALSE(sw.sm->sessionStatus("s1"));

  // A status replaced by another entity under the same name: what the old one claimed is
  // withdrawn, what the new one lists is claimed.
  auto fresh = platform::make<Mirroring::SessionStatus>("s2");
  fresh->targetOperStatus.set("Ethernet4", OperStatus(active));
  sw.status->sessionStatus.insert("s2", fresh);
  EXPECT_EQ(sw.model("Ethernet2"), std::nullopt);
  EXPECT_EQ(sw.model("Ethernet4"), intfForwardingModelQuietDataLink);
  EXPECT_EQ(sw.sessionsOf("Ethernet4"), (Sessions{"s2"}));
  // And the new entity is the one followed from now on.
  sw.target("s2", "Ethernet4", inactive);
  EXPECT_EQ(sw.model("Ethernet4"), std::nullopt);
  EXPECT_TRUE(sw.entries().empty());
  EXPECT_TRUE(sw.sm->activeIntfMirroringSessionLists().empty());
}

TEST(MirroringForwardingModelSm, StartUpSweepKeepsActiveDestinationsOnly) {
  Switch sw;
  // Left by an earlier run: one entry in use but with a value someone spoiled, one in use and
  // right, one whose destination is now inactive, one that no session lists any more.
  sw.seed("Ethernet1", intfForwardingModelDisabled);
  sw.seed("Ethernet2", intfForwardingModelQuietDataLink);
  sw.seed("Ethernet9", intfForwardingModelQuietDataLink);
  sw.seed("Ethernet8", intfForwardingModelQuietDataLink);
  sw.target("s1", "Ethernet1", active);
  sw.target("s1", "Ethernet2", active);
  sw.target("s2", "Ethernet9", inactive);
  sw.target("s2", "Ethernet10", active);
  sw.target("s2", "Cpu", active);
  const uint64_t before = sw.writes();

  sw.start();
  EXPECT_EQ(sw.entries(), (Entries{{"Ethernet1", intfForwardingModelQuietDataLink},
                                    {"Ethernet2", intfForwardingModelQuietDataLink},
                                    {"Ethernet10", intfForwardingModelQuietDataLink}}));
  // Ethernet1 rewritten, Ethernet10 added, Ethernet9 and Ethernet8 removed; Ethernet2 untouched.
  EXPECT_EQ(sw.writes(), before + 4);
  EXPECT_EQ(sw.sessionsOf("Ethernet2"), (Sessions{"s1"}));
  EXPECT_FALSE(sw.sm->staleForwardingModelInputHas(IntfId("Ethernet8")));
  EXPECT_FALSE(sw.sm->staleForwardingModelInputHas(IntfId("Ethernet2")));
  for (const auto& [name, reactor] : sw.sm->sessionStatuses()) EXPECT_TRUE(reactor->initialized()) << name;

  // The reconciled state machine goes on following: the last user of Ethernet2 leaving
  // removes it although this instance never wrote it.
  sw.target("s1", "Ethernet2", inactive);
  EXPECT_EQ(sw.model("Ethernet2"), std::nullopt);
}

// Runs the same status changes on two switches, one of whose agents is down between two of
// them; both must end with the same directory, and a restart over unchanged inputs writes
// nothing.
TEST(MirroringForwardingModelSm, RestartConvergesToTheSameEntries) {
  using Step = std::function<void(Switch&)>;
  const std::vector<Step> before = {
      [](Switch& s) { s.target("s1", "Ethernet1", active); },
      [](Switch& s) { s.target("s1", "Ethernet2", active); },
      [](Switch& s) { s.target("s2", "Ethernet2", active); },
      [](Switch& s) { s.target("s2", "Port-Channel1", active); },
      [](Switch& s) { s.target("s3", "Ethernet5", active); },
  };
  const std::vector<Step> whileDown = {
      [](Switch& s) { s.target("s1", "Ethernet1", inactive); },
      [](Switch& s) { s.sessionDel("s2"); },
      [](Switch& s) { s.target("s4", "Ethernet6", active); },
  };
  const std::vector<Step> after = {
      [](Switch& s) { s.target("s3", "Ethernet5", inactive); },
      [](Switch& s) { s.target("s4", "Ethernet2", active); },
      [](Switch& s) { s.sessionDel("s1"); },
  };

  Switch steady, restarted;
  steady.start();
  restarted.start();
  for (const auto& step : before) {
    step(steady);
    step(restarted);
  }

  // Tear-down leaves the directory alone, and the gone instance no longer reacts.
  const auto entriesAtStop = restarted.entries();
  const uint64_t writesAtStop = restarted.writes();
  restarted.stop();
  EXPECT_EQ(restarted.entries(), entriesAtStop);
  EXPECT_EQ(restarted.writes(), writesAtStop);

  // A restart over unchanged inputs writes nothing and rebuilds the same bookkeeping.
  restarted.start();
  EXPECT_EQ(restarted.writes(), writesAtStop);
  EXPECT_EQ(restarted.sessionsOf("Ethernet2"), (Sessions{"s1", "s2"}));
  restarted.stop();

  for (const auto& step : whileDown) {
    step(steady);
    step(restarted);
  }
  EXPECT_EQ(restarted.writes(), writesAtStop);  // nobody is listening
  restarted.start();
  EXPECT_EQ(restarted.entries(), steady.entries());

  for (const auto& step : after) {
    step(steady);
    step(restarted);
  }
  EXPECT_EQ(restarted.entries(), steady.entries());
  EXPECT_EQ(steady.entries(), (Entries{{"Ethernet2", intfForwardingModelQuietDataLink},
                                       {"Ethernet6", intfForwardingModelQuietDataLink}}));
  EXPECT_EQ(restarted.sessionsOf("Ethernet2"), (Sessions{"s4"}));
}

}  // namespace
