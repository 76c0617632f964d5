// The Mirroring agent driven as the agent host drives it: factories, entity manager, doInit,
// doMountsComplete and tear-down, over an embedded state database.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Mirroring/MirroringAgent.h"
#include "platform/EventLoop.h"
#include "platform/Reactor.h"
#include "platform/Trace.h"

namespace {

using platform::Ptr;
namespace MA = Mirroring::Agent;

const std::string kStageStatusPath = "cell/0/stageAgentStatus/boot/Mirroring";

// Adopts the one reference a factory hands over.
template <class T>
Ptr<T> adopt(T* raw) {
  Ptr<T> p(raw);
  if (raw) raw->decRef();
  return p;
}

class MirroringAgentTest : public ::testing::Test {
 protected:
  void TearDown() override {
    platform::trace::configure("");
    platform::trace::setSink({});
  }

  // The host's part: the agent from its factory, its entity manager, its initialise hook.
  void init() {
    agent = adopt(agentFactory("Mirroring"));
    ASSERT_TRUE(agent);
    agent->entityManagerIs(&em);
    agent->doInit();
  }
  void mountsComplete() { agent->doMountsComplete(em.mountGroup()->status(), &em); }

  MA::Agent& mirroring() { return dynamic_cast<MA::Agent&>(*agent); }

  // What another agent or the operator writes into a mount.
  template <class T>
  Ptr<T> root(const std::string& path) {
    platform::Mount* m = db.find(path);
    return m ? platform::dynamicPtrCast<T>(m->root()) : Ptr<T>();
  }

  // A session whose source and destination are up, so that it publishes a status.
  void configureSession(const std::string& name) {
    auto config = root<Mirroring::Config>("mirroring/config");
    auto session = config->sessionIs(name);
    session->srcIntfIs("Ethernet1", Mirroring::Direction::rx);
    session->targetIntfIs("Ethernet2");
  }

  platform::Database db;
  platform::EventLoop loop;
  platform::EntityManager em{db, loop};
  Ptr<platform::Agent> agent;
};

TEST_F(MirroringAgentTest, MountsCompleteWiresTheStateMachinesAndDeclaresTheBootStage) {
  std::vector<std::string> lines;
  platform::trace::configure("Mirroring/0");
  platform::trace::setSink([&](std::string_view facility, int level, std::string_view text) {
    if (facility == "Mirroring" && level == 0) lines.emplace_back(text);
  });
  init();
  root<Mirroring::HwCapability>("mirroring/hwcapability")->maxSupportedSessions.set(4);
  auto eth = root<Interface::EthIntfStatusDir>("interface/status/eth/intf");
  eth->intfStatusIs(platform::IntfId("Ethernet1"))->hwActive.set(true);
  eth->intfStatusIs(platform::IntfId("Ethernet2"))->hwActive.set(true);
  configureSession("s1");

  // The boot stage may be declared complete only once the mirroring state machine exists.
  auto stageStatus = root<Stage::AgentStatus>(kStageStatusPath);
  bool configSmWhenStageCompleted = false;
  platform::Reactor stageReactor;
  stageReactor.on(stageStatus->complete, [&](const std::string& stage) {
    if (stage != MA::kMirroringHwConfigUpdateStage) return;
    const auto& r = mirroring().root();
    configSmWhenStageCompleted = r && r->agent() && r->agent()->configSm();
  });

  mountsComplete();

  EXPECT_EQ(lines, (std::vector<std::string>{"Mounts Complete", "Agent::initErrdisableEntity"}));
  EXPECT_TRUE(configSmWhenStageCompleted);
  EXPECT_TRUE(stageStatus->complete.get("MirroringHwConfigUpdate", false));
  ASSERT_TRUE(mirroring().bootStagesHelper());
  EXPECT_EQ(mirroring().bootStagesHelper()->stageClass(), "bootStageClass");
  EXPECT_EQ(mirroring().bootStagesHelper()->stageStatus(), stageStatus);
  EXPECT_EQ(mirroring().bootStagesHelper()->agent(), agent.get());

  auto group = root<Errdisable::CauseGroup>("interface/errdisable/causegroup/tapagg");
  EXPECT_EQ(group->groupName(), "tapagg");
  EXPECT_EQ(group->causeDescription(), "Switchport mode unsupported");
  EXPECT_EQ(group->stateText(), "errdisabled");
  EXPECT_EQ(group->groupType(), Errdisable::causeGroupTypeInterface);
  EXPECT_EQ(group->priority(), 1u);
  EXPECT_FALSE(group->recoveryByDefault());
  EXPECT_TRUE(group->shutdownLink());
  EXPECT_FALSE(group->logEvents());
  EXPECT_TRUE(group->perInterface());
  EXPECT_TRUE(group->showInStatus());

  // The configured session runs, and so does tap aggregation.
  EXPECT_TRUE(root<Mirroring::Status>("mirroring/status")->sessionStatus.contains("s1"));
  Ptr<MA::AgentCreator> creator = mirroring().root()->agent();
  Ptr<Mirroring::ConfigSm> configSm = creator->configSm();
  Ptr<TapAgg::ConfigSm> tapAgg = creator->tapAggConfigSm();
  ASSERT_TRUE(configSm && tapAgg);
  EXPECT_TRUE(tapAgg->initialized());

  // A second completion over the same entities keeps everything in place.
  Ptr<Acl::AclConfigAggregatorSm> aggregator = mirroring().aclConfigAggregatorSm();
  Ptr<Stage::BootStagesHelper> helper = mirroring().bootStagesHelper();
  Ptr<MA::Root> agentRoot = mirroring().root();
  mountsComplete();
  EXPECT_EQ(mirroring().root(), agentRoot);
  EXPECT_EQ(mirroring().root()->agent(), creator);
  EXPECT_EQ(creator->configSm(), configSm);
  EXPECT_EQ(creator->tapAggConfigSm(), tapAgg);
  EXPECT_EQ(mirroring().aclConfigAggregatorSm(), aggregator);
  EXPECT_EQ(mirroring().bootStagesHelper(), helper);
}

TEST_F(MirroringAgentTest, DestroyingTheAgentStopsItsStateMachines) {
  init();
  root<Mirroring::HwCapability>("mirroring/hwcapability")->maxSupportedSessions.set(4);
  mountsComplete();
  auto status = root<Mirroring::Status>("mirroring/status");
  Ptr<Acl::Config> aggregate = mirroring().aclConfig();
  configureSession("s1");
  ASSERT_TRUE(status->sessionStatus.contains("s1")) << "the agent reacts while it lives";

  agent = nullptr;

  // Nothing reacts any more: not the mirroring configuration manager ...
  configureSession("s2");
  EXPECT_FALSE(status->sessionStatus.contains("s2"));
  // ... nor the ACL aggregator.
  root<Acl::Input::Config>("acl/config/cli")->configIs(Acl::aclTypeMac)->aclIs("late");
  EXPECT_FALSE(aggregate->config.get(Acl::aclTypeMac)->acl.contains("late"));
  // What the agent wrote stays for its next run.
  EXPECT_TRUE(status->sessionStatus.contains("s1"));
  EXPECT_TRUE(root<Stage::AgentStatus>(kStageStatusPath)->complete.get("MirroringHwConfigUpdate", false));
}

using MirroringAgentDeathTest = MirroringAgentTest;

TEST_F(MirroringAgentDeathTest, MountFailureAndMissingCauseAreFatal) {
  init();
  EXPECT_DEATH(agent->doMountsComplete(platform::MountStatus::failure, &em),
               "status == platform::MountStatus::success");

  // A writable entity of another type where the errdisable cause should be.
  platform::Database other;
  other.modeIs(*other.rootIs<Errdisable::CauseGroup>("interface/errdisable/cause/tapagg"), "wc");
  platform::EntityManager otherEm(other, loop);
  Ptr<platform::Agent> second = adopt(agentFactory("Mirroring"));
  second->entityManagerIs(&otherEm);
  second->doInit();
  EXPECT_FALSE(otherEm.mountGroup()->problems().empty());
  EXPECT_DEATH(second->doMountsComplete(platform::MountStatus::success, &otherEm), "tapAggCause");
}

}  // namespace
