#include "Mirroring/MirroringAgent.h"

#include "platform/Assert.h"
#include "platform/PlatformTypes.h"

namespace Mirroring::Agent {

// --- AgentCreator ----------------------------------------------------------------------------

AgentCreator::~AgentCreator() {
  configSmDel();
  tapAggConfigSmDel();
}

Ptr<Mirroring::ConfigSm> AgentCreator::configSmIs(
    Ptr<const Mirroring::Config> mirroringConfig, Ptr<Mirroring::Status> mirroringStatus,
    Ptr<Mirroring::Config> mirroringHwConfig, Ptr<const Mirroring::HwStatus> mirroringHwStatus,
    Ptr<const Mirroring::HwCapability> mirroringHwCapability, Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir,
    Ptr<const Lag::Config> lagConfig, Ptr<const Acl::Config> aclConfig,
    Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir,
    Ptr<const Ip::AllVrfStatusGlobal> allVrfStatus, Ptr<const Interface::EthLagIntfStatusDir> lagIntfStatusDir,
    Ptr<const Interface::AllEthPhyIntfStatusDir> allEthPhyIntfStatusDir) {
  if (configSm_ && configSm_->mirroringConfig() == mirroringConfig &&
      configSm_->mirroringStatus() == mirroringStatus && configSm_->mirroringHwConfig() == mirroringHwConfig &&
      configSm_->mirroringHwStatus() == mirroringHwStatus &&
      configSm_->mirroringHwCapability() == mirroringHwCapability &&
      configSm_->ethIntfStatusDir() == ethIntfStatusDir && configSm_->lagConfig() == lagConfig &&
      configSm_->aclConfig() == aclConfig && configSm_->forwardingModelInputDir() == forwardingModelInputDir &&
      configSm_->allVrfStatus() == allVrfStatus && configSm_->lagIntfStatusDir() == lagIntfStatusDir &&
      configSm_->allEthPhyIntfStatusDir() == allEthPhyIntfStatusDir) {
    return configSm_;
  }
  // The old manager lets go of the status and hardware configuration before the new one
  // takes them over: two managers must never write them at once.
  configSmDel();
  configSm_ = platform::make<Mirroring::ConfigSm>(
      std::move(mirroringConfig), std::move(mirroringStatus), std::move(mirroringHwConfig),
      std::move(mirroringHwStatus), std::move(mirroringHwCapability), std::move(ethIntfStatusDir),
      std::move(lagConfig), std::move(aclConfig), std::move(forwardingModelInputDir), std::move(allVrfStatus),
      std::move(lagIntfStatusDir), std::move(allEthPhyIntfStatusDir));
  return configSm_;
}

void AgentCreator::configSmDel() { configSm_ = nullptr; }

Ptr<TapAgg::ConfigSm> AgentCreator::tapAggConfigSmIs(
    Ptr<const TapAgg::CliConfig> cliConfig, Ptr<TapAgg::HwConfig> hwConfig,
    Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir, Ptr<const Bridging::Config> bridgingConfig,
    const platform::Clock* clock, Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, Ptr<TapAgg::Status> status,
    Ptr<const Mirroring::Status> mirroringStatus, Ptr<Errdisable::CauseStatus> errdisableCauseStatus,
    Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir,
    Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir, Ptr<const Lag::Config> lagConfig,
    Ptr<EthIntf::PortModeConfig> portModeConfig,
    Ptr<const Interface::IntfForwardingModelInputDir> intfForwardingModelInputDir,
    Ptr<const platform::Dir> sliceHwStatusDir) {
  const auto& sm = tapAggConfigSm_;
  if (sm && sm->cliConfig() == cliConfig && sm->hwConfig() == hwConfig &&
      sm->switchIntfConfigDir() == switchIntfConfigDir && sm->bridgingConfig() == bridgingConfig &&
      sm->clock() == clock && sm->ethIntfStatusDir() == ethIntfStatusDir && sm->status() == status &&
      sm->mirroringStatus() == mirroringStatus && sm->errdisableCauseStatus() == errdisableCauseStatus &&
      sm->vlanIntfStatusDir() == vlanIntfStatusDir && sm->ethLagIntfStatusDir() == ethLagIntfStatusDir &&
      sm->lagConfig() == lagConfig && sm->portModeConfig() == portModeConfig &&
      sm->intfForwardingModelInputDir() == intfForwardingModelInputDir &&
      sm->sliceHwStatusDir() == sliceHwStatusDir) {
    return tapAggConfigSm_;
  }
  tapAggConfigSmDel();
  tapAggConfigSm_ = platform::make<TapAgg::ConfigSm>(
      std::move(cliConfig), std::move(hwConfig), std::move(switchIntfConfigDir), std::move(bridgingConfig), clock,
      std::move(ethIntfStatusDir), std::move(status), std::move(mirroringStatus), std::move(errdisableCauseStatus),
      std::move(vlanIntfStatusDir), std::move(ethLagIntfStatusDir), std::move(lagConfig), std::move(portModeConfig),
      std::move(intfForwardingModelInputDir), std::move(sliceHwStatusDir));
  tapAggConfigSm_->handleInitialized();
  return tapAggConfigSm_;
}

void AgentCreator::tapAggConfigSmDel() { tapAggConfigSm_ = nullptr; }

// --- Root ------------------------------------------------------------------------------------

Root::~Root() { agentDel(); }

Ptr<AgentCreator> Root::agentIs() {
  if (!agent_) agent_ = platform::make<AgentCreator>();
  return agent_;
}

void Root::agentDel() { agent_ = nullptr; }

// --- Agent -----------------------------------------------------------------------------------

Agent::Agent(const std::string& name) : platform::Agent(name) {}

Agent::~Agent() {
  rootDel();
  aclConfigAggregatorSmDel();
  bootStagesHelperDel();
  // Everything else the agent still holds goes before the framework's part of the agent.
  mirroringConfig_ = nullptr;
  mirroringHwStatus_ = nullptr;
  mirroringHwCapability_ = nullptr;
  mirroringHwConfig_ = nullptr;
  mirroringStatus_ = nullptr;
  ethIntfStatusDir_ = nullptr;
  lagIntfStatusDir_ = nullptr;
  vlanIntfStatusDir_ = nullptr;
  allEthPhyIntfStatusDir_ = nullptr;
  cliConfig_ = nullptr;
  hwConfig_ = nullptr;
  tapAggHwStatus_ = nullptr;
  tapAggStatus_ = nullptr;
  fcxHwStatusDir_ = nullptr;
  switchIntfConfigDir_ = nullptr;
  bridgingConfig_ = nullptr;
  stpPortConfig_ = nullptr;
  tapAggCause_ = nullptr;
  forwardingModelInputDir_ = nullptr;
  lagForwardingModelInputDir_ = nullptr;
  lagConfig_ = nullptr;
  allVrfStatus_ = nullptr;
  aclInputDir_ = nullptr;
  aclCliInput_ = nullptr;
  aclConfig_ = nullptr;
  stageConfig_ = nullptr;
  stageStatus_ = nullptr;
  clock_ = nullptr;
  mountGroup_ = nullptr;
}

void Agent::doInit() {
  platform::EntityManager* em = entityManager();
  PLATFORM_ASSERT(em);
  mountGroup_ = em->mountGroup();
  platform::MountGroup& g = *mountGroup_;
  g.doMount<Mirroring::HwStatus>("mirroring/hwstatus", "r");
  g.doMount<Mirroring::HwCapability>("mirroring/hwcapability", "r");
  g.doMount<Mirroring::Config>("mirroring/hwconfig", "w");
  g.doMount<Mirroring::Config>("mirroring/config", "r");
  g.doMount<Mirroring::Status>("mirroring/status", "w");
  g.doMount<TapAgg::CliConfig>("tapagg/cliconfig", "r");
  g.doMount<TapAgg::HwStatus>("tapagg/hwstatus", "r");
  g.doMount<TapAgg::HwConfig>("tapagg/hwconfig", "w");
  g.doMount<platform::Dir>("hardware/fcx/slice/status", "r");
  g.doMount<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig", "r");
  g.doMount<Bridging::Config>("bridging/config", "r");
  g.doMount<TapAgg::Status>("tapagg/status", "w");
  g.doMount<Interface::VlanIntfStatusDir>("interface/status/eth/vlan", "r");
  g.doMount<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/mirroring", "w");
  g.doMount<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/lag", "r");
  g.doMount<Interface::EthLagIntfConfigDir>("interface/config/eth/lag", "r");
  g.doMount<Lag::Config>("lag/config", "r");
  g.doMount<platform::Dir>("lag/input/config", "ri");
  g.doMount<platform::Dir>("acl/config/input", "ri");
  g.doMount<Acl::Input::Config>("acl/config/cli", "r");
  g.doMount<EthIntf::PortModeConfig>("stp/portMode/tapagg", "wc");
  g.doMount<Ip::AllVrfStatusGlobal>("ip/vrf/status/global", "r");
  g.doMount<Stage::AgentConfig>(Stage::cellPath("stageInput/boot/Mirroring", 0), "r");
  g.doMount<Stage::AgentStatus>(Stage::cellPath("stageAgentStatus/boot/Mirroring", 0), "wc");
  g.doMount<Errdisable::CauseStatus>("interface/errdisable/cause/tapagg", "wc");
  g.doMount<Errdisable::CauseGroup>("interface/errdisable/causegroup/tapagg", "wc");

  em->localEntityIs<Interface::EthIntfStatusDir>("EthIntfStatusDir", "interface/status/eth/intf");
  em->localEntityIs<Interface::AllEthPhyIntfStatusDir>("AllEthPhyIntfStatusDir", "interface/status/eth/phy/all");
  em->localEntityIs<Interface::EthLagIntfStatusDir>("EthLagIntfStatusDir", "interface/status/eth/lag");
  em->localEntitiesCreatedIs(true);
  g.close(false, "", 0);
}

void Agent::doMountsComplete(platform::MountStatus status, platform::EntityManager* em) {
  PLATFORM_ASSERT(status == platform::MountStatus::success);
  PLATFORM_ASSERT(em);
  TRACE(0, "Mounts Complete");
  initErrdisableEntity();

  mirroringConfig_ = em->lookup<const Mirroring::Config>("mirroring/config");
  mirroringHwStatus_ = em->lookup<const Mirroring::HwStatus>("mirroring/hwstatus");
  mirroringHwCapability_ = em->lookup<const Mirroring::HwCapability>("mirroring/hwcapability");
  ethIntfStatusDir_ = em->lookup<const Interface::EthIntfStatusDir>("interface/status/eth/intf");
  mirroringHwConfig_ = em->lookup<Mirroring::Config>("mirroring/hwconfig");
  mirroringStatus_ = em->lookup<Mirroring::Status>("mirroring/status");
  cliConfig_ = em->lookup<const TapAgg::CliConfig>("tapagg/cliconfig");
  tapAggHwStatus_ = em->lookup<const TapAgg::HwStatus>("tapagg/hwstatus");
  hwConfig_ = em->lookup<TapAgg::HwConfig>("tapagg/hwconfig");
  fcxHwStatusDir_ = em->lookup<const platform::Dir>("hardware/fcx/slice/status");
  switchIntfConfigDir_ = em->lookup<const Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig");
  bridgingConfig_ = em->lookup<const Bridging::Config>("bridging/config");
  aclInputDir_ = em->lookup<const platform::Dir>("acl/config/input");

  // The aggregate is the agent's own and lives as long as the agent: a second run of this
  // hook must hand the state machines the same entity, or they would all be rebuilt.
  if (!aclConfig_) aclConfig_ = platform::make<Acl::Config>();
  aclCliInput_ = em->lookup<const Acl::Input::Config>("acl/config/cli");
  aclConfigAggregatorSmIs(aclInputDir_, aclCliInput_, aclConfig_);

  allEthPhyIntfStatusDir_ = em->lookup<const Interface::AllEthPhyIntfStatusDir>("interface/status/eth/phy/all");
  tapAggStatus_ = em->lookup<TapAgg::Status>("tapagg/status");
  Ptr<Errdisable::CauseStatus> tapAggCause = em->lookup<Errdisable::CauseStatus>("interface/errdisable/cause/tapagg");
  PLATFORM_ASSERT(tapAggCause);
  tapAggCause_ = tapAggCause;

  vlanIntfStatusDir_ = em->lookup<const Interface::VlanIntfStatusDir>("interface/status/eth/vlan");
  lagIntfStatusDir_ = em->lookup<const Interface::EthLagIntfStatusDir>("interface/status/eth/lag");
  forwardingModelInputDir_ =
      em->lookup<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/mirroring");
  lagForwardingModelInputDir_ =
      em->lookup<const Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/lag");
  lagConfig_ = em->lookup<const Lag::Config>("lag/config");
  stpPortConfig_ = em->lookup<EthIntf::PortModeConfig>("stp/portMode/tapagg");
  allVrfStatus_ = em->lookup<const Ip::AllVrfStatusGlobal>("ip/vrf/status/global");

  Ptr<Root> root = rootIs("Mirroring");
  Ptr<AgentCreator> creator = root->agentIs();

  stageConfig_ = em->lookup<const Stage::AgentConfig>(Stage::cellPath("stageInput/boot/Mirroring", 0));
  stageStatus_ = em->lookup<Stage::AgentStatus>(Stage::cellPath("stageAgentStatus/boot/Mirroring", 0));
  bootStagesHelperIs("bootStageClass", stageConfig_, stageStatus_, nullptr, stageConfig_, this);

  creator->configSmIs(mirroringConfig_, mirroringStatus_, mirroringHwConfig_, mirroringHwStatus_,
                      mirroringHwCapability_, ethIntfStatusDir_, lagConfig_, aclConfig_, forwardingModelInputDir_,
                      allVrfStatus_, lagIntfStatusDir_, allEthPhyIntfStatusDir_);
  // Whoever waits for the mirroring hardware configuration may go on once the mirroring
  // state machine has published what the configuration asks for.
  bootStagesHelper_->stageCompleteIs(kMirroringHwConfigUpdateStage);

  clock_ = &em->clock();

  creator->tapAggConfigSmIs(cliConfig_, hwConfig_, switchIntfConfigDir_, bridgingConfig_, clock_, ethIntfStatusDir_,
                            tapAggStatus_, Ptr<const Mirroring::Status>(mirroringStatus_), tapAggCause_,
                            vlanIntfStatusDir_, lagIntfStatusDir_, lagConfig_, stpPortConfig_,
                            lagForwardingModelInputDir_, fcxHwStatusDir_);
}

Ptr<Root> Agent::rootIs(const std::string& name) {
  if (root_ && root_->name() == name) return root_;
  rootDel();
  root_ = platform::make<Root>(name);
  return root_;
}

void Agent::rootDel() { root_ = nullptr; }

Ptr<Acl::AclConfigAggregatorSm> Agent::aclConfigAggregatorSmIs(Ptr<const platform::Dir> inputDir,
                                                               Ptr<const Acl::Input::Config> cliInput,
                                                               Ptr<Acl::Config> aclConfig) {
  if (aclConfigAggregatorSm_ && aclConfigAggregatorSm_->inputDir() == inputDir &&
      aclConfigAggregatorSm_->cliInput() == cliInput && aclConfigAggregatorSm_->aggregate() == aclConfig) {
    return aclConfigAggregatorSm_;
  }
  // Only one aggregator may write the aggregate.
  aclConfigAggregatorSmDel();
  aclConfigAggregatorSm_ =
      platform::make<Acl::AclConfigAggregatorSm>(std::move(inputDir), std::move(cliInput), std::move(aclConfig));
  return aclConfigAggregatorSm_;
}

void Agent::aclConfigAggregatorSmDel() { aclConfigAggregatorSm_ = nullptr; }

Ptr<Stage::BootStagesHelper> Agent::bootStagesHelperIs(const std::string& stageClass,
                                                       Ptr<const Stage::AgentConfig> stageConfig,
                                                       Ptr<Stage::AgentStatus> stageStatus,
                                                       Ptr<const platform::Dir> progressDir,
                                                       Ptr<const Stage::AgentConfig> agentConfig,
                                                       platform::Agent* agent) {
  if (bootStagesHelper_ && bootStagesHelper_->stageClass() == stageClass &&
      bootStagesHelper_->stageConfig() == stageConfig && bootStagesHelper_->stageStatus() == stageStatus &&
      bootStagesHelper_->progressDir() == progressDir && bootStagesHelper_->agentConfig() == agentConfig &&
      bootStagesHelper_->agent() == agent) {
    return bootStagesHelper_;
  }
  bootStagesHelper_ = platform::make<Stage::BootStagesHelper>(stageClass, std::move(stageConfig),
                                                              std::move(stageStatus), std::move(progressDir),
                                                              std::move(agentConfig), agent);
  return bootStagesHelper_;
}

void Agent::bootStagesHelperDel() { bootStagesHelper_ = nullptr; }

void Agent::initErrdisableEntity() {
  TRACE(0, "Agent::", "initErrdisableEntity");
  Errdisable::ErrdisableCauseGroupInit(entityManager(), "tapagg", false, "Switchport mode unsupported", true, false,
                                       true, true, Errdisable::causeGroupTypeInterface, 1, "errdisabled");
}

}  // namespace Mirroring::Agent

extern "C" platform::Agent* agentFactory(const char* name) {
  // The host registers the platform's types itself; a host that does not still gets them.
  platform::registerPlatformTypes();
  Mirroring::registerMirroringTypes();
  TapAgg::registerTapAggTypes();
  return platform::make<Mirroring::Agent::Agent>(name ? name : "").release();
}

extern "C" platform::Entity* rootFactory(const char* name) {
  return platform::make<Mirroring::Agent::Root>(name ? name : "").release();
}
