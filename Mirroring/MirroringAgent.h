// The Mirroring agent object: what the agent host loads, initialises and tears down.
//
// The host makes the agent and its root through the plug-in entry points `agentFactory` and
// `rootFactory`, hands the agent an entity manager and calls `doInit`, which declares the
// agent's mounts and creates its three local interface-status entities. Once the mounts are
// complete, `doMountsComplete` registers the tap-aggregation errdisable cause group, builds the
// ACL aggregate, creates the mirroring configuration manager (`Mirroring::ConfigSm`), declares
// the boot stage "MirroringHwConfigUpdate" complete and then creates the tap-aggregation
// configuration manager.
//
// Ownership: `Agent` owns `Root`, `Root` owns `AgentCreator`, `AgentCreator` owns the two
// top-level state machines. Every operation ending in `Is` returns what it already holds when
// that was built from the very same arguments (compared reference by reference), so running
// `doMountsComplete` again over the same entities leaves every state machine in place.
//
// Preconditions a caller could get wrong:
// - `entityManagerIs` must be called before `doInit`, and the entity manager must outlive the
//   agent's `doMountsComplete`.
// - The errdisable cause entity (interface/errdisable/cause/tapagg) must be mounted when the
//   mounts complete; its absence is a fatal assertion ("tapAggCause").
#pragma once

#include <string>

#include "Mirroring/MirroringModel.h"
#include "Mirroring/MirroringSm.h"
#include "Mirroring/TapAggModel.h"
#include "Mirroring/TapAggSm.h"
#include "platform/AclConfigAggregatorSm.h"
#include "platform/AclTypes.h"
#include "platform/Agent.h"
#include "platform/BridgingTypes.h"
#include "platform/Database.h"
#include "platform/Dir.h"
#include "platform/ErrdisableTypes.h"
#include "platform/EthIntfTypes.h"
#include "platform/EventLoop.h"
#include "platform/InterfaceTypes.h"
#include "platform/IpTypes.h"
#include "platform/LagTypes.h"
#include "platform/StageTypes.h"

namespace Mirroring::Agent {

using platform::Ptr;

// Owns the agent's two top-level state machines.
class AgentCreator : public platform::RefCounted {
 public:
  AgentCreator() = default;
  AgentCreator(const AgentCreator&) = delete;
  AgentCreator& operator=(const AgentCreator&) = delete;
  // The mirroring state machine goes before the tap-aggregation one.
  ~AgentCreator() override;

  const Ptr<Mirroring::ConfigSm>& configSm() const { return configSm_; }
  Ptr<Mirroring::ConfigSm> configSmIs(
      Ptr<const Mirroring::Config> mirroringConfig, Ptr<Mirroring::Status> mirroringStatus,
      Ptr<Mirroring::Config> mirroringHwConfig, Ptr<const Mirroring::HwStatus> mirroringHwStatus,
      Ptr<const Mirroring::HwCapability> mirroringHwCapability,
      Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, Ptr<const Lag::Config> lagConfig,
      Ptr<const Acl::Config> aclConfig, Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir,
      Ptr<const Ip::AllVrfStatusGlobal> allVrfStatus, Ptr<const Interface::EthLagIntfStatusDir> lagIntfStatusDir,
      Ptr<const Interface::AllEthPhyIntfStatusDir> allEthPhyIntfStatusDir);
  void configSmDel();

  const Ptr<TapAgg::ConfigSm>& tapAggConfigSm() const { return tapAggConfigSm_; }
  Ptr<TapAgg::ConfigSm> tapAggConfigSmIs(
      Ptr<const TapAgg::CliConfig> cliConfig, Ptr<TapAgg::HwConfig> hwConfig,
      Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir, Ptr<const Bridging::Config> bridgingConfig,
      const platform::Clock* clock, Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir,
      Ptr<TapAgg::Status> status, Ptr<const Mirroring::Status> mirroringStatus,
      Ptr<Errdisable::CauseStatus> errdisableCauseStatus, Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir,
      Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir, Ptr<const Lag::Config> lagConfig,
      Ptr<EthIntf::PortModeConfig> portModeConfig,
      Ptr<const Interface::IntfForwardingModelInputDir> intfForwardingModelInputDir,
      Ptr<const platform::Dir> sliceHwStatusDir);
  void tapAggConfigSmDel();

 private:
  Ptr<Mirroring::ConfigSm> configSm_;
  Ptr<TapAgg::ConfigSm> tapAggConfigSm_;
};

// The agent's root: its name and the creator of its state machines.
class Root : public platform::EntityOf<Root> {
 public:
  static constexpr const char* typeName = "Mirroring::Agent::Root";
  Root() = default;
  explicit Root(const std::string& agentName) { name.set(agentName); }
  // Drops the creator, and with it the state machines.
  ~Root() override;

  platform::Attr<std::string> name{this};

  const Ptr<AgentCreator>& agent() const { return agent_; }
  Ptr<AgentCreator> agentIs();
  void agentDel();

  template <class D>
  void fields(D& d) {
    d("name", name);
  }

 private:
  Ptr<AgentCreator> agent_;
};

class Agent : public platform::Agent {
 public:
  explicit Agent(const std::string& name);
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;
  ~Agent() override;

  void doInit() override;
  void doMountsComplete(platform::MountStatus status, platform::EntityManager* em) override;

  Ptr<Root> rootIs(const std::string& name);
  void rootDel();
  Ptr<Acl::AclConfigAggregatorSm> aclConfigAggregatorSmIs(Ptr<const platform::Dir> inputDir,
                                                          Ptr<const Acl::Input::Config> cliInput,
                                                          Ptr<Acl::Config> aclConfig);
  void aclConfigAggregatorSmDel();
  Ptr<Stage::BootStagesHelper> bootStagesHelperIs(const std::string& stageClass,
                                                  Ptr<const Stage::AgentConfig> stageConfig,
                                                  Ptr<Stage::AgentStatus> stageStatus,
                                                  Ptr<const platform::Dir> progressDir,
                                                  Ptr<const Stage::AgentConfig> agentConfig, platform::Agent* agent);
  void bootStagesHelperDel();
  void initErrdisableEntity();

  // What the agent holds (null until the mounts complete).
  platform::MountGroup* mountGroup() const { return mountGroup_; }
  const Ptr<Root>& root() const { return root_; }
  const Ptr<const Mirroring::Config>& mirroringConfig() const { return mirroringConfig_; }
  const Ptr<const Mirroring::HwStatus>& mirroringHwStatus() const { return mirroringHwStatus_; }
  const Ptr<const Mirroring::HwCapability>& mirroringHwCapability() const { return mirroringHwCapability_; }
  const Ptr<Mirroring::Config>& mirroringHwConfig() const { return mirroringHwConfig_; }
  const Ptr<Mirroring::Status>& mirroringStatus() const { return mirroringStatus_; }
  const Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir() const { return ethIntfStatusDir_; }
  const Ptr<const Interface::EthLagIntfStatusDir>& lagIntfStatusDir() const { return lagIntfStatusDir_; }
  const Ptr<const Interface::VlanIntfStatusDir>& vlanIntfStatusDir() const { return vlanIntfStatusDir_; }
  const Ptr<const Interface::AllEthPhyIntfStatusDir>& allEthPhyIntfStatusDir() const {
    return allEthPhyIntfStatusDir_;
  }
  const Ptr<const TapAgg::CliConfig>& cliConfig() const { return cliConfig_; }
  const Ptr<TapAgg::HwConfig>& hwConfig() const { return hwConfig_; }
  const Ptr<const TapAgg::HwStatus>& tapAggHwStatus() const { return tapAggHwStatus_; }
  const Ptr<TapAgg::Status>& tapAggStatus() const { return tapAggStatus_; }
  const Ptr<const platform::Dir>& fcxHwStatusDir() const { return fcxHwStatusDir_; }
  const Ptr<const Bridging::SwitchIntfConfigDir>& switchIntfConfigDir() const { return switchIntfConfigDir_; }
  const Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
  const Ptr<EthIntf::PortModeConfig>& stpPortConfig() const { return stpPortConfig_; }
  const Ptr<Errdisable::CauseStatus>& tapAggCause() const { return tapAggCause_; }
  const Ptr<Interface::IntfForwardingModelInputDir>& forwardingModelInputDir() const {
    return forwardingModelInputDir_;
  }
  const Ptr<const Interface::IntfForwardingModelInputDir>& lagForwardingModelInputDir() const {
    return lagForwardingModelInputDir_;
  }
  const Ptr<const Lag::Config>& lagConfig() const { return lagConfig_; }
  const Ptr<const Ip::AllVrfStatusGlobal>& allVrfStatus() const { return allVrfStatus_; }
  const Ptr<const platform::Dir>& aclInputDir() const { return aclInputDir_; }
  const Ptr<const Acl::Input::Config>& aclCliInput() const { return aclCliInput_; }
  const Ptr<Acl::Config>& aclConfig() const { return aclConfig_; }
  const Ptr<Acl::AclConfigAggregatorSm>& aclConfigAggregatorSm() const { return aclConfigAggregatorSm_; }
  const Ptr<const Stage::AgentConfig>& stageConfig() const { return stageConfig_; }
  const Ptr<Stage::AgentStatus>& stageStatus() const { return stageStatus_; }
  const Ptr<Stage::BootStagesHelper>& bootStagesHelper() const { return bootStagesHelper_; }
  platform::Clock* clock() const { return clock_; }

 private:
  platform::MountGroup* mountGroup_ = nullptr;  // owned by the entity manager
  Ptr<const Mirroring::Config> mirroringConfig_;
  Ptr<const Mirroring::HwStatus> mirroringHwStatus_;
  Ptr<const Mirroring::HwCapability> mirroringHwCapability_;
  Ptr<Mirroring::Config> mirroringHwConfig_;
  Ptr<Mirroring::Status> mirroringStatus_;
  Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
  Ptr<const Interface::EthLagIntfStatusDir> lagIntfStatusDir_;
  Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir_;
  Ptr<const Interface::AllEthPhyIntfStatusDir> allEthPhyIntfStatusDir_;
  Ptr<const TapAgg::CliConfig> cliConfig_;
  Ptr<TapAgg::HwConfig> hwConfig_;
  Ptr<const TapAgg::HwStatus> tapAggHwStatus_;
  Ptr<TapAgg::Status> tapAggStatus_;
  Ptr<const platform::Dir> fcxHwStatusDir_;
  Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir_;
  Ptr<const Bridging::Config> bridgingConfig_;
  Ptr<EthIntf::PortModeConfig> stpPortConfig_;
  Ptr<Errdisable::CauseStatus> tapAggCause_;
  Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir_;
  Ptr<const Interface::IntfForwardingModelInputDir> lagForwardingModelInputDir_;
  Ptr<const Lag::Config> lagConfig_;
  Ptr<const Ip::AllVrfStatusGlobal> allVrfStatus_;
  Ptr<const platform::Dir> aclInputDir_;
  Ptr<const Acl::Input::Config> aclCliInput_;
  Ptr<Acl::Config> aclConfig_;
  Ptr<Acl::AclConfigAggregatorSm> aclConfigAggregatorSm_;
  Ptr<const Stage::AgentConfig> stageConfig_;
  Ptr<Stage::AgentStatus> stageStatus_;
  Ptr<Stage::BootStagesHelper> bootStagesHelper_;
  platform::Clock* clock_ = nullptr;  // the event loop's, which outlives the agent
  Ptr<Root> root_;
};

// The boot stage declared complete once the mirroring state machine exists.
inline constexpr const char* kMirroringHwConfigUpdateStage = "MirroringHwConfigUpdate";

}  // namespace Mirroring::Agent

// Plug-in entry points; each returns one counted reference that the caller adopts.
extern "C" platform::Agent* agentFactory(const char* name);
extern "C" platform::Entity* rootFactory(const char* name);
