// The forwarding model of mirror destinations: one entry per active destination but the CPU,
// written once however many sessions share it. (That the entries are exactly the active
// destinations, also after a start-up over leftovers, the consistency checker sees.)
#include <gtest/gtest.h>

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
using Interface::intfForwardingModelQuietDataLink;
using Mirroring::OperState;
using Mirroring::OperStatus;
using platform::IntfId;
using platform::Ptr;

constexpr OperState active = OperState::active;
constexpr OperState inactive = OperState::inactive;
constexpr OperState unknown = OperState::unknown;

// One switch's worth of state: the mirroring status the sessions publish, the directory the
// state machine writes, and the state machine itself.
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

  void target(const std::string& session, const std::string& intf, OperState state) {
    status->sessionStatusIs(session)->targetOperStatus.set(intf, OperStatus(state));
  }

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

}  // namespace
