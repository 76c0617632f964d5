// Tap aggregation: the configuration manager and its followers.
//
// `TapAgg::ConfigSm` follows the tap-aggregation mode. It keeps `SliceModeUpdateSm` (chip
// slices) and `ErrDisableSm` (ports whose switchport mode conflicts with the mode) in every
// mode, and while the mode is not off it keeps three more followers, created and destroyed
// together: `SwitchIntfConfigSm` (tap and tool ports into the hardware configuration and their
// status into the groups), `EthIntfStatusSm` (link changes) and `MirroringSessionStatusSm` (a
// port that becomes an active mirror destination leaves tap aggregation).
//
// The switchport mode of an interface is read from the resolved bridging configuration
// (`Bridging::Config`); its tap and tool groups and raw tap interfaces from the CLI record in
// `Bridging::SwitchIntfConfigDir`, which is also what the hardware configuration refers to.
//
// Whether a port is active and why not is decided by `getPortStatus`; a port that is down only
// for its link stays in the hardware configuration (`keptInHardware`).
//
// Everything runs on the agent's one event-loop thread; handlers call each other re-entrantly.
// Children hold a plain back pointer to the `ConfigSm` that owns them.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "Mirroring/ActiveIntfIndex.h"
#include "Mirroring/LagMemberIndex.h"
#include "Mirroring/MirroringModel.h"
#include "Mirroring/TapAggModel.h"
#include "platform/BridgingTypes.h"
#include "platform/Dir.h"
#include "platform/ErrdisableTypes.h"
#include "platform/EthIntfTypes.h"
#include "platform/EventLoop.h"
#include "platform/InterfaceTypes.h"
#include "platform/LagTypes.h"
#include "platform/Reactor.h"
#include "platform/ReactorMap.h"
#include "platform/Syslog.h"
#include "platform/Trace.h"

namespace TapAgg {

using platform::Ptr;

extern const platform::trace::Facility TRACE;
extern const platform::syslog::Message TAPAGG_OPERATIONAL_MODE;

// Feature toggles, each read once per process and then cached.
bool toggleMirrorDestinationOnTapToolPortEnabled();
bool toggleTapToolPortsEnabled();

// Roles of a switchport mode.
inline bool isTapMode(Bridging::SwitchportMode m) {
  return m == Bridging::switchportModeTap || m == Bridging::switchportModeTapTool;
}
inline bool isToolMode(Bridging::SwitchportMode m) {
  return m == Bridging::switchportModeTool || m == Bridging::switchportModeTapTool;
}
inline bool isTapAggMode(Bridging::SwitchportMode m) { return isTapMode(m) || isToolMode(m); }

// An interface's resolved switchport mode; nullopt without the configuration or its record.
inline std::optional<Bridging::SwitchportMode> switchportModeOf(const Ptr<const Bridging::Config>& bridging,
                                                                const platform::IntfId& intf) {
  auto record = bridging ? bridging->switchIntfConfig.get(intf) : nullptr;
  if (!record) return std::nullopt;
  return record->switchportMode();
}

class ConfigSm;
class SwitchIntfConfigSm;

// --- port status (pure reads) ----------------------------------------------------------------

PortStatus getPortStatus(const ConfigSm& configSm, const platform::IntfId& intf);
bool toolInterfaceInUse(const ConfigSm& configSm, const platform::IntfId& intf);
// A port stays in the hardware configuration while active, or when its link is the one reason.
bool keptInHardware(const PortStatus& status);
// Whether a session target takes the interface's path as a mirror destination.
bool targetIsMirrorDestination(const ConfigSm& configSm, const platform::IntfId& intf, bool targetActive);

// --- slices ----------------------------------------------------------------------------------

// Writes, for every slice that reports hardware status, whether tap aggregation runs on it.
class SliceModeUpdateSm : public platform::RefCounted {
 public:
  SliceModeUpdateSm(Ptr<const platform::Dir> sliceHwStatusDir, Ptr<const CliConfig> cliConfig,
                    Ptr<HwConfig> hwConfig);
  void handleSliceHwStatus(const std::string& name);
  void handleSliceHwStatus();
  void prepareToDie();

  const Ptr<const platform::Dir>& sliceHwStatusDir() const { return sliceHwStatusDir_; }

 private:
  Ptr<const platform::Dir> sliceHwStatusDir_;
  Ptr<const CliConfig> cliConfig_;
  Ptr<HwConfig> hwConfig_;
  platform::Reactor reactor_;
};

// --- errdisable ------------------------------------------------------------------------------

// Error-disables the interfaces whose switchport mode conflicts with the tap-aggregation mode.
class ErrDisableSm : public platform::RefCounted {
 public:
  ErrDisableSm(Ptr<const CliConfig> cliConfig, Ptr<const Bridging::Config> bic,
               Ptr<Errdisable::CauseStatus> causeStatus, Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir,
               Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir,
               Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, Ptr<const Lag::Config> lagConfig,
               const platform::Clock* clock);
  ~ErrDisableSm() override;

  bool errDisableNeeded(const platform::IntfId& intf) const;
  platform::IntfId activeIntf(const platform::IntfId& intf) const;
  bool isTapAggLag(const platform::IntfId& intf) const;
  void doUpdateErrDisableCauseStatus(const platform::IntfId& intf);

  void handleInitialized();
  void handleMode();
  void handleNoerrdisableIntf(const platform::IntfId& intf);
  void handleEthIntfStatus(const platform::IntfId& intf);
  void handleEthIntfStatus();
  void handleVlanIntfStatus(const platform::IntfId& intf);
  void handleVlanIntfStatus();

  void switchIntfConfigIs(const Ptr<const Bridging::SwitchIntfConfig>& config);
  void switchIntfConfigDel(const platform::IntfId& intf);
  void switchIntfConfigDelAll();
  void phyIntfIs(const Ptr<const Lag::EthPhyIntfLagConfig>& config);
  void phyIntfDel(const platform::IntfId& intf);
  void phyIntfDelAll();

  const Ptr<const CliConfig>& cliConfig() const { return cliConfig_; }
  bool initialized() const { return initialized_; }
  bool tracksSwitchIntf(const platform::IntfId& intf) const { return switchIntfConfig_.find(intf) != nullptr; }
  bool tracksPhyIntf(const platform::IntfId& intf) const { return phyIntf_.find(intf) != nullptr; }

 private:
  struct SwitchIntfReactor;
  struct PhyIntfReactor;
  double now() const { return clock_ ? clock_->now() : 0.0; }
  void errDisable(const platform::IntfId& intf);
  void release(const platform::IntfId& intf);

  Ptr<const CliConfig> cliConfig_;
  Ptr<const Bridging::Config> bic_;
  Ptr<Errdisable::CauseStatus> causeStatus_;
  Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir_;
  Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir_;
  Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
  Ptr<const Lag::Config> lagConfig_;
  // Built before the handlers below follow the LAG configuration, so up to date when they run.
  Mirroring::LagMemberIndex lagMembers_;
  const platform::Clock* clock_;
  platform::ReactorMap<platform::IntfId, SwitchIntfReactor> switchIntfConfig_;
  platform::ReactorMap<platform::IntfId, PhyIntfReactor> phyIntf_;
  platform::Reactor reactor_;
  bool initialized_ = false;
};

// --- switch interfaces -----------------------------------------------------------------------

// Turns the switchport configuration of every interface into tap and tool ports: entries in
// the hardware configuration, the port's status in each of its groups, and its port mode.
class SwitchIntfConfigSm : public platform::RefCounted {
 public:
  // Follows the resolved switchport mode of one interface.
  class SwitchIntfConfigReactor {
   public:
    SwitchIntfConfigReactor(Ptr<const Bridging::SwitchIntfConfig> config, SwitchIntfConfigSm* sm);
    void handleInitialized();
    void handleSwitchportModeReactor();
    void handleSwitchportMode();
    void doUpdatePortStatus();
    void prepareToDie();
    const platform::IntfId& intfId() const { return intfId_; }
    const Ptr<const Bridging::SwitchIntfConfig>& config() const { return config_; }
    const Ptr<const Bridging::SwitchIntfConfig>& entry() const { return config_; }
    bool initialized() const { return initialized_; }

   private:
    platform::IntfId intfId_;
    Ptr<const Bridging::SwitchIntfConfig> config_;
    SwitchIntfConfigSm* sm_;
    platform::Reactor reactor_;
    bool initialized_ = false;
  };

  // Follows the tap and tool groups and raw tap interfaces of one interface.
  class SwitchIntfCliConfigReactor {
   public:
    SwitchIntfCliConfigReactor(Ptr<const Bridging::Input::SwitchIntfConfig> config, SwitchIntfConfigSm* sm);
    void handleInitialized();
    void handleTapGroupStatus(const std::string& group);
    void handleTapGroupStatus();
    void handleToolGroupStatus(const std::string& group);
    void handleToolGroupStatus();
    void handleTapRawIntfStatus(const platform::IntfId& intf);
    void prepareToDie();
    const platform::IntfId& intfId() const { return intfId_; }
    const Ptr<const Bridging::Input::SwitchIntfConfig>& config() const { return config_; }
    const Ptr<const Bridging::Input::SwitchIntfConfig>& entry() const { return config_; }
    bool initialized() const { return initialized_; }

   private:
    void handleGroupStatus(const std::string& group, bool isTap);
    platform::IntfId intfId_;
    Ptr<const Bridging::Input::SwitchIntfConfig> config_;
    SwitchIntfConfigSm* sm_;
    platform::Reactor reactor_;
    bool initialized_ = false;
  };

  SwitchIntfConfigSm(Ptr<HwConfig> hwConfig, Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir,
                     Ptr<const Bridging::Config> bridgingConfig, Ptr<Status> status,
                     Ptr<const Mirroring::Status> mirroringStatus,
                     Ptr<const Interface::IntfForwardingModelInputDir> lagForwardingModelInputDir, ConfigSm* parent);
  ~SwitchIntfConfigSm() override;

  void handleInitialized();
  void prepareToDie();
  void handleLagForwardingModelInput(const platform::IntfId& intf);
  void handleLagForwardingModelInput();

  void doUpdatePortStatusForTap(const PortStatus& status, const platform::IntfId& intf);
  void doUpdatePortStatusForTool(const PortStatus& status, const platform::IntfId& intf);
  void doDeletePortStatus(const std::string& group, bool isTap, const platform::IntfId& intf);
  void doRemoveInvalidGroups();
  void doCleanup(const platform::IntfId& intf, Bridging::SwitchportMode mode);
  void doDeleteRoleFromGroups(const platform::IntfId& intf, bool isTap,
                              const std::function<bool(const std::string&)>& which);
  void doInitCleanup(const platform::IntfId& intf);
  void doReviewRawIntfs(const Bridging::Input::SwitchIntfConfig& tapConfig);
  void doDeleteGroupsLeft(const platform::IntfId& intf, Bridging::SwitchportMode mode);

  void switchIntfConfigIs(const Ptr<const Bridging::SwitchIntfConfig>& config);
  void switchIntfConfigDel(const platform::IntfId& intf);
  void switchIntfCliConfigIs(const Ptr<const Bridging::Input::SwitchIntfConfig>& config);
  void switchIntfCliConfigDel(const platform::IntfId& intf);

  SwitchIntfConfigReactor* switchIntfConfig(const platform::IntfId& intf) const { return switchIntfConfig_.find(intf); }
  SwitchIntfCliConfigReactor* switchIntfCliConfig(const platform::IntfId& intf) const {
    return switchIntfCliConfig_.find(intf);
  }
  // The mode of an interface in the bridging configuration; nullopt when it has no record.
  std::optional<Bridging::SwitchportMode> switchportMode(const platform::IntfId& intf) const;

  const Ptr<HwConfig>& hwConfig() const { return hwConfig_; }
  const Ptr<Status>& status() const { return status_; }
  ConfigSm* parent() const { return parent_; }
  bool initialized() const { return initialized_; }

 private:
  void doUpdatePortStatusForGroups(const PortStatus& status, const platform::IntfId& intf, bool isTap);

  Ptr<HwConfig> hwConfig_;
  Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir_;
  Ptr<const Bridging::Config> bridgingConfig_;
  Ptr<Status> status_;
  Ptr<const Mirroring::Status> mirroringStatus_;
  Ptr<const Interface::IntfForwardingModelInputDir> lagForwardingModelInputDir_;
  ConfigSm* parent_;
  platform::ReactorMap<platform::IntfId, SwitchIntfConfigReactor> switchIntfConfig_;
  platform::ReactorMap<platform::IntfId, SwitchIntfCliConfigReactor> switchIntfCliConfig_;
  platform::Reactor reactor_;
  bool initialized_ = false;
};

// --- link status -----------------------------------------------------------------------------

// Follows the link of every Ethernet interface and brings tap and tool ports up to date.
class EthIntfStatusSm : public platform::RefCounted {
 public:
  class IntfStatusReactor {
   public:
    IntfStatusReactor(Ptr<const Interface::EthIntfStatus> status, EthIntfStatusSm* sm);
    void handleInitialized();
    void handleAppeared();
    void handleLinkStatus();
    void prepareToDie();
    bool initialized() const { return initialized_; }
    const Ptr<const Interface::EthIntfStatus>& entry() const { return status_; }

   private:
    platform::IntfId intfId_;
    Ptr<const Interface::EthIntfStatus> status_;
    EthIntfStatusSm* sm_;
    platform::Reactor reactor_;
    bool initialized_ = false;
  };

  EthIntfStatusSm(Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, ConfigSm* parent);
  ~EthIntfStatusSm() override;
  void handleInitialized();
  void prepareToDie();
  void intfStatusIs(const Ptr<const Interface::EthIntfStatus>& status);
  void intfStatusDel(const platform::IntfId& intf);
  void intfStatusDelAll();

  ConfigSm* parent() const { return parent_; }
  bool initialized() const { return initialized_; }
  bool statusPresent(const platform::IntfId& intf) const {
    return ethIntfStatusDir_ && ethIntfStatusDir_->intfStatus.contains(intf);
  }

 private:
  Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
  ConfigSm* parent_;
  platform::ReactorMap<platform::IntfId, IntfStatusReactor> intfStatus_;
  platform::Reactor reactor_;
  bool initialized_ = false;
};

// --- mirroring sessions ----------------------------------------------------------------------

// Takes a tap or tool port out of tap aggregation while it is an active mirror destination.
class MirroringSessionStatusSm : public platform::RefCounted {
 public:
  class SessionStatusReactor {
   public:
    SessionStatusReactor(Ptr<const Mirroring::SessionStatus> status, MirroringSessionStatusSm* sm);
    void handleInitialized();
    void handleTargetOperStatus();
    void handleTargetOperStatus(const std::string& name);
    void prepareToDie();
    bool initialized() const { return initialized_; }
    const Ptr<const Mirroring::SessionStatus>& entry() const { return status_; }
    std::vector<std::string> targets() const { return status_->targetOperStatus.keys(); }

   private:
    Ptr<const Mirroring::SessionStatus> status_;
    MirroringSessionStatusSm* sm_;
    platform::Reactor reactor_;
    bool initialized_ = false;
  };

  MirroringSessionStatusSm(Ptr<const Mirroring::Status> mirroringStatus, ConfigSm* parent);
  ~MirroringSessionStatusSm() override;
  void handleInitialized();
  void prepareToDie();

  ConfigSm* parent() const { return parent_; }
  bool initialized() const { return initialized_; }

 private:
  void sessionStatusIs(const std::string& name);
  Ptr<const Mirroring::Status> mirroringStatus_;
  ConfigSm* parent_;
  platform::ReactorMap<std::string, SessionStatusReactor> sessionStatus_;
  platform::Reactor reactor_;
  bool initialized_ = false;
};

// --- the configuration manager ---------------------------------------------------------------

class ConfigSm : public platform::RefCounted {
 public:
  ConfigSm(Ptr<const CliConfig> cliConfig, Ptr<HwConfig> hwConfig,
           Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir, Ptr<const Bridging::Config> bridgingConfig,
           const platform::Clock* clock, Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, Ptr<Status> status,
           Ptr<const Mirroring::Status> mirroringStatus, Ptr<Errdisable::CauseStatus> errdisableCauseStatus,
           Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir,
           Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir, Ptr<const Lag::Config> lagConfig,
           Ptr<EthIntf::PortModeConfig> portModeConfig,
           Ptr<const Interface::IntfForwardingModelInputDir> intfForwardingModelInputDir,
           Ptr<const platform::Dir> sliceHwStatusDir);
  ~ConfigSm() override;

  void handleInitialized();
  void handleMode();
  void handleTrafficSteeringMacAclMatchIp();
  void mark();
  void sweep();

  void staleTapPortSetIs(const platform::IntfId& i) { staleTapPortSet_.insert(i); }
  void staleTapPortSetDel(const platform::IntfId& i) { staleTapPortSet_.erase(i); }
  bool staleTapPortSetHas(const platform::IntfId& i) const { return staleTapPortSet_.count(i) != 0; }
  void staleTapPortSetDelAll() { staleTapPortSet_.clear(); }
  void staleToolPortSetIs(const platform::IntfId& i) { staleToolPortSet_.insert(i); }
  void staleToolPortSetDel(const platform::IntfId& i) { staleToolPortSet_.erase(i); }
  bool staleToolPortSetHas(const platform::IntfId& i) const { return staleToolPortSet_.count(i) != 0; }
  void staleToolPortSetDelAll() { staleToolPortSet_.clear(); }
  void staleGroupSetIs(const std::string& g) { staleGroupSet_.insert(g); }
  void staleGroupSetDel(const std::string& g) { staleGroupSet_.erase(g); }
  bool staleGroupSetHas(const std::string& g) const { return staleGroupSet_.count(g) != 0; }
  void staleGroupSetDelAll() { staleGroupSet_.clear(); }
  // Port modes are reconciled with the ports: one that no tap or tool port confirms at start-up
  // (an earlier run's, for an interface that has changed or gone since) is swept.
  void stalePortModeSetDel(const std::string& intfName) { stalePortModeSet_.erase(intfName); }
  // So are the ports listed in a group: a group that is confirmed may still list a port that has
  // left it since, and no handler of that port would remove it.
  void staleGroupMemberSetDel(const std::string& group, bool isTap, const std::string& intfName) {
    staleGroupMemberSet_.erase({group, isTap, intfName});
  }

  // Children.
  Ptr<ErrDisableSm> errDisableSmIs(Ptr<const CliConfig> cliConfig, Ptr<const Bridging::Config> bridgingConfig,
                                   Ptr<Errdisable::CauseStatus> errdisableCauseStatus,
                                   Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir,
                                   Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir,
                                   Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir,
                                   Ptr<const Lag::Config> lagConfig);
  Ptr<SwitchIntfConfigSm> switchIntfConfigSmIs(
      Ptr<HwConfig> hwConfig, Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir,
      Ptr<const Bridging::Config> bridgingConfig, Ptr<Status> status, Ptr<const Mirroring::Status> mirroringStatus,
      Ptr<const Interface::IntfForwardingModelInputDir> intfForwardingModelInputDir);
  Ptr<EthIntfStatusSm> ethIntfStatusSmIs(Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir);
  Ptr<MirroringSessionStatusSm> mirroringSessionStatusSmIs(Ptr<const Mirroring::Status> mirroringStatus);
  Ptr<SliceModeUpdateSm> sliceModeUpdateSmIs(Ptr<const platform::Dir> sliceHwStatusDir,
                                             Ptr<const CliConfig> cliConfig, Ptr<HwConfig> hwConfig);
  void errDisableSmDel();
  void switchIntfConfigSmDel();
  void ethIntfStatusSmDel();
  void mirroringSessionStatusSmDel();
  void sliceModeUpdateSmDel();

  const Ptr<ErrDisableSm>& errDisableSm() const { return errDisableSm_; }
  const Ptr<SwitchIntfConfigSm>& switchIntfConfigSm() const { return switchIntfConfigSm_; }
  const Ptr<EthIntfStatusSm>& ethIntfStatusSm() const { return ethIntfStatusSm_; }
  const Ptr<MirroringSessionStatusSm>& mirroringSessionStatusSm() const { return mirroringSessionStatusSm_; }
  const Ptr<SliceModeUpdateSm>& sliceModeUpdateSm() const { return sliceModeUpdateSm_; }

  // Inputs and outputs.
  const Ptr<const CliConfig>& cliConfig() const { return cliConfig_; }
  const Ptr<HwConfig>& hwConfig() const { return hwConfig_; }
  const Ptr<const Bridging::SwitchIntfConfigDir>& switchIntfConfigDir() const { return switchIntfConfigDir_; }
  const Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
  const platform::Clock* clock() const { return clock_; }
  const Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir() const { return ethIntfStatusDir_; }
  const Ptr<Status>& status() const { return status_; }
  const Ptr<const Mirroring::Status>& mirroringStatus() const { return mirroringStatus_; }
  const Ptr<Errdisable::CauseStatus>& errdisableCauseStatus() const { return errdisableCauseStatus_; }
  const Ptr<const Interface::VlanIntfStatusDir>& vlanIntfStatusDir() const { return vlanIntfStatusDir_; }
  const Ptr<const Interface::EthLagIntfStatusDir>& ethLagIntfStatusDir() const { return ethLagIntfStatusDir_; }
  const Ptr<const Lag::Config>& lagConfig() const { return lagConfig_; }
  const Ptr<EthIntf::PortModeConfig>& portModeConfig() const { return portModeConfig_; }
  const Ptr<const Interface::IntfForwardingModelInputDir>& intfForwardingModelInputDir() const {
    return intfForwardingModelInputDir_;
  }
  const Ptr<const platform::Dir>& sliceHwStatusDir() const { return sliceHwStatusDir_; }
  // The mirroring sessions that hold an interface as an active destination.
  const Mirroring::SessionNames& mirroringDestHolders(const platform::IntfId& intf) const {
    return mirroringActive_.activeDestHolders(intf.name());
  }

  bool enabled() const { return enabled_; }
  bool initialized() const { return initialized_; }
  // The review timer has no handler of its own: arming it only wakes the clock.
  bool reviewScheduled() const { return reviewScheduled_; }
  void reviewScheduledIs(bool v) { reviewScheduled_ = v; }

 private:
  Ptr<const CliConfig> cliConfig_;
  Ptr<HwConfig> hwConfig_;
  Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir_;
  Ptr<const Bridging::Config> bridgingConfig_;
  const platform::Clock* clock_;
  Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
  Ptr<Status> status_;
  Ptr<const Mirroring::Status> mirroringStatus_;
  Ptr<Errdisable::CauseStatus> errdisableCauseStatus_;
  Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir_;
  Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir_;
  Ptr<const Lag::Config> lagConfig_;
  Ptr<EthIntf::PortModeConfig> portModeConfig_;
  Ptr<const Interface::IntfForwardingModelInputDir> intfForwardingModelInputDir_;
  Ptr<const platform::Dir> sliceHwStatusDir_;
  // First to follow the mirroring status: up to date before anyone here hears of a change.
  Mirroring::ActiveIntfIndex mirroringActive_;

  std::set<platform::IntfId> staleTapPortSet_;
  std::set<platform::IntfId> staleToolPortSet_;
  std::set<std::string> staleGroupSet_;
  std::set<std::string> stalePortModeSet_;
  std::set<std::tuple<std::string, bool, std::string>> staleGroupMemberSet_;  // group, tap?, interface
  Ptr<ErrDisableSm> errDisableSm_;
  Ptr<SwitchIntfConfigSm> switchIntfConfigSm_;
  Ptr<EthIntfStatusSm> ethIntfStatusSm_;
  Ptr<MirroringSessionStatusSm> mirroringSessionStatusSm_;
  Ptr<SliceModeUpdateSm> sliceModeUpdateSm_;
  bool enabled_ = false;
  bool initialized_ = false;
  bool reviewScheduled_ = false;
  platform::Reactor cliConfigReactor_;
};
std::ostream& operator<<(std::ostream& os, const ConfigSm& sm);

}  // namespace TapAgg
