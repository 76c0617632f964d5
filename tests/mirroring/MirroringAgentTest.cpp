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

struct ExpectedMount {
  std::string path;
  std::string type;
  std::string mode;
};

const std::vector<ExpectedMount> kMounts = {
    {"mirroring/hwstatus", "Mirroring::HwStatus", "r"},
    {"mirroring/hwcapability", "Mirroring::HwCapability", "r"},
    {"mirroring/hwconfig", "Mirroring::Config", "w"},
    {"mirroring/config", "Mirroring::Config", "r"},
    {"mirroring/status", "Mirroring::Status", "w"},
    {"tapagg/cliconfig", "TapAgg::CliConfig", "r"},
    {"tapagg/hwstatus", "TapAgg::HwStatus", "r"},
    {"tapagg/hwconfig", "TapAgg::HwConfig", "w"},
    {"hardware/fcx/slice/status", "Platform::Dir", "r"},
    {"bridging/switchIntfConfig", "Bridging::SwitchIntfConfigDir", "r"},
    {"bridging/config", "Bridging::Config", "r"},
    {"tapagg/status", "TapAgg::Status", "w"},
    {"interface/status/eth/vlan", "Interface::VlanIntfStatusDir", "r"},
    {"interface/input/forwardingmodel/mirroring", "Interface::IntfForwardingModelInputDir", "w"},
    {"interface/input/forwardingmodel/lag", "Interface::IntfForwardingModelInputDir", "r"},
    {"interface/config/eth/lag", "Interface::EthLagIntfConfigDir", "r"},
    {"lag/config", "Lag::Config", "r"},
    {"lag/input/config", "Platform::Dir", "ri"},
    {"acl/config/input", "Platform::Dir", "ri"},
    {"acl/config/cli", "Acl::Input::Config", "r"},
    {"stp/portMode/tapagg", "EthIntf::PortModeConfig", "wc"},
    {"ip/vrf/status/global", "Ip::AllVrfStatusGlobal", "r"},
    {"cell/0/stageInput/boot/Mirroring", "Stage::AgentConfig", "r"},
    {"cell/0/stageAgentStatus/boot/Mirroring", "Stage::AgentStatus", "wc"},
    {"interface/errdisable/cause/tapagg", "Errdisable::CauseStatus", "wc"},
    {"interface/errdisable/causegroup/tapagg", "Errdisable::CauseGroup", "wc"},
};

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

TEST_F(MirroringAgentTest, FactoriesHandOverOneReferenceAndRegisterTheTypes) {
  Ptr<platform::Agent> a = adopt(agentFactory("Mirroring"));
  ASSERT_TRUE(a);
  EXPECT_EQ(a->refCount(), 1u);
  EXPECT_EQ(a->name(), "Mirroring");
  EXPECT_NE(dynamic_cast<MA::Agent*>(a.get()), nullptr);
  for (const char* type : {"Mirroring::Config", "Mirroring::Status", "TapAgg::CliConfig", "TapAgg::Status",
                           "Platform::Dir", "Errdisable::CauseStatus", "Stage::AgentStatus"}) {
    EXPECT_NE(platform::TypeRegistry::find(type), nullptr) << type;
  }

  Ptr<platform::Entity> r = adopt(rootFactory("Mirroring"));
  ASSERT_TRUE(r);
  EXPECT_EQ(r->refCount(), 1u);
  EXPECT_EQ(r->typeInfo().name(), "Mirroring::Agent::Root");
  auto* typed = dynamic_cast<MA::Root*>(r.get());
  ASSERT_NE(typed, nullptr);
  EXPECT_EQ(typed->name(), "Mirroring");
  EXPECT_FALSE(typed->agent());
}

TEST_F(MirroringAgentTest, InitDeclaresTheMountsInOrderAndCreatesTheLocalEntities) {
  init();
  platform::MountGroup& group = *em.mountGroup();
  EXPECT_EQ(mirroring().mountGroup(), &group);
  const auto& declared = group.declared();
  ASSERT_EQ(declared.size(), kMounts.size());
  for (std::size_t i = 0; i < kMounts.size(); ++i) {
    EXPECT_EQ(declared[i].path, kMounts[i].path) << "row " << i + 1;
    EXPECT_EQ(declared[i].typeName, kMounts[i].type) << "row " << i + 1;
    EXPECT_EQ(declared[i].mode, kMounts[i].mode) << "row " << i + 1;
  }
  EXPECT_TRUE(group.closed());
  EXPECT_TRUE(group.problems().empty());
  EXPECT_EQ(group.status(), platform::MountStatus::success);

  EXPECT_TRUE(em.localEntitiesCreated());
  const std::vector<std::pair<std::string, std::string>> locals = {
      {"interface/status/eth/intf", "Interface::EthIntfStatusDir"},
      {"interface/status/eth/phy/all", "Interface::AllEthPhyIntfStatusDir"},
      {"interface/status/eth/lag", "Interface::EthLagIntfStatusDir"},
  };
  for (const auto& [path, type] : locals) {
    platform::Mount* m = db.find(path);
    ASSERT_NE(m, nullptr) << path;
    EXPECT_TRUE(m->local()) << path;
    EXPECT_EQ(m->root()->typeInfo().name(), type) << path;
  }
  // Nothing is built before the mounts complete.
  EXPECT_FALSE(mirroring().root());
  EXPECT_FALSE(mirroring().mirroringConfig());
}

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
  root<Acl::Input::Config>("acl/config/cli")->configIs(Acl::aclTypeIp)->aclIs("web")->ruleIs(10, "permit ip any any");

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

  ASSERT_TRUE(mirroring().root());
  EXPECT_EQ(mirroring().root()->name(), "Mirroring");
  Ptr<MA::AgentCreator> creator = mirroring().root()->agent();
  ASSERT_TRUE(creator);
  // Tap aggregation gets its inputs, each from its own place, and has started up.
  Ptr<TapAgg::ConfigSm> tapAgg = creator->tapAggConfigSm();
  ASSERT_TRUE(tapAgg);
  EXPECT_TRUE(tapAgg->initialized());
  EXPECT_TRUE(tapAgg->sliceModeUpdateSm());
  EXPECT_TRUE(tapAgg->errDisableSm());
  EXPECT_EQ(tapAgg->hwConfig(), root<TapAgg::HwConfig>("tapagg/hwconfig"));
  EXPECT_EQ(tapAgg->status(), root<TapAgg::Status>("tapagg/status"));
  EXPECT_EQ(tapAgg->mirroringStatus(), root<Mirroring::Status>("mirroring/status"));
  EXPECT_EQ(tapAgg->errdisableCauseStatus(), root<Errdisable::CauseStatus>("interface/errdisable/cause/tapagg"));
  EXPECT_EQ(tapAgg->intfForwardingModelInputDir(),
            root<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/lag"));
  EXPECT_EQ(tapAgg->portModeConfig(), root<EthIntf::PortModeConfig>("stp/portMode/tapagg"));
  EXPECT_EQ(tapAgg->sliceHwStatusDir(), root<platform::Dir>("hardware/fcx/slice/status"));
  EXPECT_EQ(tapAgg->ethIntfStatusDir(), eth);
  Ptr<Mirroring::ConfigSm> configSm = creator->configSm();
  ASSERT_TRUE(configSm);
  EXPECT_TRUE(configSm->initialized());
  // Each input reaches the configuration manager in its own place (several share a type).
  EXPECT_EQ(configSm->mirroringConfig(), root<Mirroring::Config>("mirroring/config"));
  EXPECT_EQ(configSm->mirroringHwConfig(), root<Mirroring::Config>("mirroring/hwconfig"));
  EXPECT_EQ(configSm->mirroringStatus(), root<Mirroring::Status>("mirroring/status"));
  EXPECT_EQ(configSm->mirroringHwStatus(), root<Mirroring::HwStatus>("mirroring/hwstatus"));
  EXPECT_EQ(configSm->mirroringHwCapability(), root<Mirroring::HwCapability>("mirroring/hwcapability"));
  EXPECT_EQ(configSm->ethIntfStatusDir(), eth);
  EXPECT_EQ(configSm->lagConfig(), root<Lag::Config>("lag/config"));
  EXPECT_EQ(configSm->aclConfig(), mirroring().aclConfig());
  EXPECT_EQ(configSm->forwardingModelInputDir(),
            root<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/mirroring"));
  EXPECT_EQ(configSm->allVrfStatus(), root<Ip::AllVrfStatusGlobal>("ip/vrf/status/global"));
  EXPECT_EQ(configSm->lagIntfStatusDir(), root<Interface::EthLagIntfStatusDir>("interface/status/eth/lag"));
  EXPECT_EQ(configSm->allEthPhyIntfStatusDir(),
            root<Interface::AllEthPhyIntfStatusDir>("interface/status/eth/phy/all"));
  EXPECT_EQ(mirroring().lagForwardingModelInputDir(),
            root<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/lag"));
  EXPECT_EQ(mirroring().tapAggCause(), root<Errdisable::CauseStatus>("interface/errdisable/cause/tapagg"));
  EXPECT_EQ(mirroring().clock(), &loop.clock());

  // The ACL aggregate is the agent's own, fed from the CLI input.
  ASSERT_TRUE(mirroring().aclConfig());
  EXPECT_EQ(db.find("acl/config/cli")->root(), mirroring().aclConfigAggregatorSm()->cliInput());
  auto ipAcls = mirroring().aclConfig()->config.get(Acl::aclTypeIp);
  ASSERT_TRUE(ipAcls);
  EXPECT_TRUE(ipAcls->acl.contains("web"));

  // The configured session runs.
  EXPECT_TRUE(root<Mirroring::Status>("mirroring/status")->sessionStatus.contains("s1"));

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
  EXPECT_EQ(mirroring().aclConfig(), configSm->aclConfig());
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

TEST_F(MirroringAgentTest, RootAndCreatorKeepWhatTheyHold) {
  init();
  Ptr<MA::Root> r = mirroring().rootIs("Mirroring");
  EXPECT_EQ(mirroring().rootIs("Mirroring"), r);
  Ptr<MA::AgentCreator> creator = r->agentIs();
  EXPECT_EQ(r->agentIs(), creator);
  // Another name is another root.
  EXPECT_NE(mirroring().rootIs("Other"), r);
  EXPECT_EQ(mirroring().root()->name(), "Other");
  mirroring().rootDel();
  EXPECT_FALSE(mirroring().root());
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
