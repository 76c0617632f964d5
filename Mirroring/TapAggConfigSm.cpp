// The tap-aggregation configuration manager, the port-status rules and the slice writer.
#include <mutex>

#include "Mirroring/TapAggSm.h"
#include "platform/Assert.h"
#include "platform/Toggles.h"

namespace TapAgg {

const platform::trace::Facility TRACE("TapAgg");

const platform::syslog::Message TAPAGG_OPERATIONAL_MODE(
    "TAPAGG_OPERATIONAL_MODE", platform::syslog::Severity::informational, "Tap aggregation %s",
    "Tap aggregation feature is enabled or disabled. Some features and/or ports may be disabled if their "
    "configuration is not compatible with the current tap aggregation mode. In exclusive mode the layer2/layer3 "
    "protocols may not work as expected",
    "");

bool toggleMirrorDestinationOnTapToolPortEnabled() {
  static const bool enabled = platform::toggles::enabled("MirrorDestinationOnTapToolPort", "Mirroring.json", true);
  return enabled;
}

bool toggleTapToolPortsEnabled() {
  static const bool enabled = platform::toggles::enabled("TapToolPorts", "Olvo.json", true);
  return enabled;
}

std::ostream& operator<<(std::ostream& os, const ConfigSm&) { return os << "TapAgg::ConfigSm"; }

// --- port status -----------------------------------------------------------------------------

namespace {

// Whether an active destination of a session takes the port out of tap aggregation: a
// tap-and-tool port that no tap port uses as its tool interface may stay, if the toggle says so.
bool activeTargetIsDestination(const ConfigSm& configSm, const platform::IntfId& intf) {
  if (!toggleMirrorDestinationOnTapToolPortEnabled()) return true;
  auto mode = switchportModeOf(configSm.bridgingConfig(), intf);
  if (!mode || *mode != Bridging::switchportModeTapTool) return true;
  return toolInterfaceInUse(configSm, intf);
}

}  // namespace

bool targetIsMirrorDestination(const ConfigSm& configSm, const platform::IntfId& intf, bool targetActive) {
  if (targetActive && activeTargetIsDestination(configSm, intf)) return true;
  // The CPU is never a tap or tool port; taking the destination path for it writes nothing.
  return intf.isCpu();
}

PortStatus getPortStatus(const ConfigSm& configSm, const platform::IntfId& intf) {
  if (TRACE.enabled(8)) TRACE(8, __PRETTY_FUNCTION__, " for ", intf);
  PortStatus status;
  auto fail = [&status](const char* reason) {
    status.active = false;
    status.reason += reason;
  };
  Ptr<const Interface::EthIntfStatus> eth;
  if (const auto& dir = configSm.ethIntfStatusDir()) eth = dir->intfStatus.get(intf);
  if (!eth) {
    fail(reason::intfStatusNotFound);
  } else {
    if (eth->linkStatus() != Interface::linkUp) {
      fail(eth->linkStatus() == Interface::linkDown ? reason::linkDown : reason::linkUnknown);
    }
    const auto& fwd = configSm.intfForwardingModelInputDir();
    if (fwd && fwd->forwardingModelInput.get(intf, Interface::intfForwardingModelBridged) ==
                   Interface::intfForwardingModelLagMember) {
      fail(reason::lagMember);
    }
  }
  // Held as an active destination by any session, a companion or a leftover alike.
  if (!configSm.mirroringDestHolders(intf).empty() && activeTargetIsDestination(configSm, intf)) {
    fail(reason::mirrorDestination);
  }
  if (TRACE.enabled(2)) TRACE(2, __PRETTY_FUNCTION__, " portStatus ", status);
  return status;
}

bool toolInterfaceInUse(const ConfigSm& configSm, const platform::IntfId& intf) {
  if (TRACE.enabled(8)) TRACE(8, __PRETTY_FUNCTION__, " for ", intf);
  if (!configSm.bridgingConfig()) return false;
  auto mode = switchportModeOf(configSm.bridgingConfig(), intf);
  if (!mode || !isToolMode(*mode)) return false;
  const auto& dir = configSm.switchIntfConfigDir();
  if (!dir) return false;
  if (auto own = dir->switchIntfConfig.get(intf); own && own->toolIntfInUse() != 0) return true;
  for (const auto& [other, record] : dir->switchIntfConfig) {
    if (other == intf) continue;
    auto otherMode = switchportModeOf(configSm.bridgingConfig(), other);
    if (!otherMode || !isTapMode(*otherMode)) continue;
    if (record->tapRawIntf.contains(intf)) return true;
  }
  return false;
}

bool keptInHardware(const PortStatus& status) {
  return status.active || status.reason == reason::linkDown || status.reason == reason::linkUnknown;
}

// --- slices ----------------------------------------------------------------------------------

SliceModeUpdateSm::SliceModeUpdateSm(Ptr<const platform::Dir> sliceHwStatusDir, Ptr<const CliConfig> cliConfig,
                                     Ptr<HwConfig> hwConfig)
    : sliceHwStatusDir_(std::move(sliceHwStatusDir)), cliConfig_(std::move(cliConfig)), hwConfig_(std::move(hwConfig)) {
  if (sliceHwStatusDir_) {
    reactor_.on(sliceHwStatusDir_->entry, [this](const std::string& name) { handleSliceHwStatus(name); });
  }
  if (cliConfig_) {
    reactor_.on(cliConfig_->mode, [this] { handleSliceHwStatus(); });
    // In mixed mode a slice runs tap aggregation while it has a profile: a profile that comes
    // or goes rewrites its slice at once.
    reactor_.on(cliConfig_->sliceProfileConfig, [this](const std::string& name) {
      if (sliceHwStatusDir_ && sliceHwStatusDir_->entry.contains(name)) handleSliceHwStatus(name);
    });
  }
  // Slices that already report status at start-up are written at once.
  handleSliceHwStatus();
}

void SliceModeUpdateSm::handleSliceHwStatus(const std::string& name) {
  if (TRACE.enabled(5)) TRACE(5, __PRETTY_FUNCTION__, " slice: ", name);
  if (!sliceHwStatusDir_ || !sliceHwStatusDir_->entry.contains(name)) {
    hwConfig_->sliceDel(name);
    return;
  }
  bool value = false;
  switch (cliConfig_ ? cliConfig_->mode() : TapAggMode::tapAggModeOff) {
    case TapAggMode::tapAggModeOff:
      value = false;
      break;
    case TapAggMode::tapAggModeExclusive:
      value = true;
      break;
    case TapAggMode::tapAggModeMixed:
      value = cliConfig_->sliceProfileConfig.contains(name);
      break;
    default:
      PLATFORM_ASSERT(0 && "unknown mode");
  }
  hwConfig_->sliceIs(name, value);
}

void SliceModeUpdateSm::handleSliceHwStatus() {
  if (TRACE.enabled(5)) TRACE(5, "void TapAgg::SliceModeUpdateSm::handleSliceHwStatus()");
  if (!sliceHwStatusDir_) return;
  for (const auto& name : sliceHwStatusDir_->entry.keys()) handleSliceHwStatus(name);
}

void SliceModeUpdateSm::prepareToDie() { reactor_.detachAll(); }

// --- the configuration manager ---------------------------------------------------------------

ConfigSm::ConfigSm(Ptr<const CliConfig> cliConfig, Ptr<HwConfig> hwConfig,
                   Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir,
                   Ptr<const Bridging::Config> bridgingConfig, const platform::Clock* clock,
                   Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, Ptr<Status> status,
                   Ptr<const Mirroring::Status> mirroringStatus, Ptr<Errdisable::CauseStatus> errdisableCauseStatus,
                   Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir,
                   Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir, Ptr<const Lag::Config> lagConfig,
                   Ptr<EthIntf::PortModeConfig> portModeConfig,
                   Ptr<const Interface::IntfForwardingModelInputDir> intfForwardingModelInputDir,
                   Ptr<const platform::Dir> sliceHwStatusDir)
    : cliConfig_(std::move(cliConfig)),
      hwConfig_(std::move(hwConfig)),
      switchIntfConfigDir_(std::move(switchIntfConfigDir)),
      bridgingConfig_(std::move(bridgingConfig)),
      clock_(clock),
      ethIntfStatusDir_(std::move(ethIntfStatusDir)),
      status_(std::move(status)),
      mirroringStatus_(std::move(mirroringStatus)),
      errdisableCauseStatus_(std::move(errdisableCauseStatus)),
      vlanIntfStatusDir_(std::move(vlanIntfStatusDir)),
      ethLagIntfStatusDir_(std::move(ethLagIntfStatusDir)),
      lagConfig_(std::move(lagConfig)),
      portModeConfig_(std::move(portModeConfig)),
      intfForwardingModelInputDir_(std::move(intfForwardingModelInputDir)),
      sliceHwStatusDir_(std::move(sliceHwStatusDir)),
      mirroringActive_(mirroringStatus_, false) {
  PLATFORM_ASSERT(cliConfig_);
  PLATFORM_ASSERT(hwConfig_);
  PLATFORM_ASSERT(status_);
  cliConfigReactor_.on(cliConfig_->mode, [this] {
    if (initialized_) handleMode();
  });
  cliConfigReactor_.on(cliConfig_->trafficSteeringMacAclMatchIp, [this] {
    if (initialized_) handleTrafficSteeringMacAclMatchIp();
  });
}

ConfigSm::~ConfigSm() {
  cliConfigReactor_.detachAll();
  // The mode followers go first, in the reverse order of their creation.
  mirroringSessionStatusSmDel();
  ethIntfStatusSmDel();
  switchIntfConfigSmDel();
  errDisableSmDel();
  sliceModeUpdateSmDel();
}

void ConfigSm::handleInitialized() {
  TRACE(8, "void TapAgg::ConfigSm::handleInitialized()");
  sliceModeUpdateSmIs(sliceHwStatusDir_, cliConfig_, hwConfig_);
  initialized_ = true;
  mark();
  handleMode();
  handleTrafficSteeringMacAclMatchIp();
  sweep();
}

void ConfigSm::mark() {
  TRACE(8, "void TapAgg::ConfigSm::mark()");
  for (const auto& intf : hwConfig_->tapPort.keys()) staleTapPortSetIs(intf);
  for (const auto& intf : hwConfig_->toolPort.keys()) staleToolPortSetIs(intf);
  for (const auto& group : status_->group.keys()) {
    staleGroupSetIs(group);
    const auto groupStatus = status_->group.get(group);
    for (const auto& intfName : groupStatus->tapPort.keys()) staleGroupMemberSet_.insert({group, true, intfName});
    for (const auto& intfName : groupStatus->toolPort.keys()) staleGroupMemberSet_.insert({group, false, intfName});
  }
  if (portModeConfig_) {
    for (const auto& intfName : portModeConfig_->portMode.keys()) stalePortModeSet_.insert(intfName);
  }
}

void ConfigSm::sweep() {
  TRACE(8, "void TapAgg::ConfigSm::sweep()");
  for (auto intfs = staleTapPortSet_; const auto& intf : intfs) {
    hwConfig_->tapPortDel(intf);
    staleTapPortSetDel(intf);
  }
  for (auto intfs = staleToolPortSet_; const auto& intf : intfs) {
    hwConfig_->toolPortDel(intf);
    staleToolPortSetDel(intf);
  }
  // Whole groups first: the members of a group that goes need no deletion of their own.
  for (auto groups = staleGroupSet_; const auto& group : groups) {
    status_->groupDel(group);
    staleGroupSetDel(group);
  }
  for (auto members = staleGroupMemberSet_; const auto& [group, isTap, intfName] : members) {
    if (auto groupStatus = status_->group.get(group)) {
      if (isTap) {
        groupStatus->tapPortDel(intfName);
      } else {
        groupStatus->toolPortDel(intfName);
      }
      if (groupStatus->tapPort.empty() && groupStatus->toolPort.empty()) status_->groupDel(group);
    }
    staleGroupMemberSetDel(group, isTap, intfName);
  }
  for (auto intfNames = stalePortModeSet_; const auto& intfName : intfNames) {
    portModeConfig_->portModeDel(intfName);
    stalePortModeSetDel(intfName);
  }
}

void ConfigSm::handleMode() {
  const TapAggMode mode = cliConfig_->mode();
  if (TRACE.enabled(8)) TRACE(8, "void TapAgg::ConfigSm::handleMode()", " mode ", mode);
  if (mode != TapAggMode::tapAggModeOff) {
    enabled_ = true;
    TAPAGG_OPERATIONAL_MODE(mode == TapAggMode::tapAggModeExclusive ? "(exclusive mode) enabled"
                                                                      : "(mixed mode) enabled");
    if (!switchIntfConfigSm()) {
      PLATFORM_ASSERT(!mirroringSessionStatusSm());
      PLATFORM_ASSERT(!ethIntfStatusSm());
      switchIntfConfigSmIs(hwConfig_, switchIntfConfigDir_, bridgingConfig_, status_, mirroringStatus_,
                           intfForwardingModelInputDir_);
      ethIntfStatusSmIs(ethIntfStatusDir_);
      mirroringSessionStatusSmIs(mirroringStatus_);
    }
  } else if (enabled_) {
    enabled_ = false;
    TAPAGG_OPERATIONAL_MODE("disabled");
    PLATFORM_ASSERT(switchIntfConfigSm());
    PLATFORM_ASSERT(ethIntfStatusSm());
    PLATFORM_ASSERT(mirroringSessionStatusSm());
    mirroringSessionStatusSm_->prepareToDie();
    mirroringSessionStatusSmDel();
    ethIntfStatusSm_->prepareToDie();
    ethIntfStatusSmDel();
    switchIntfConfigSm_->prepareToDie();
    switchIntfConfigSmDel();
  } else {
    PLATFORM_ASSERT(!switchIntfConfigSm());
    PLATFORM_ASSERT(!ethIntfStatusSm());
  }
  if (!errDisableSm()) {
    TRACE(3, "Creating errDisableSm");
    errDisableSmIs(cliConfig_, bridgingConfig_, errdisableCauseStatus_, vlanIntfStatusDir_, ethLagIntfStatusDir_,
                   ethIntfStatusDir_, lagConfig_);
  }
  reviewScheduledIs(true);
  hwConfig_->mirroringRunnabilityIs(cliConfig_->mode() != TapAggMode::tapAggModeOff);
}

void ConfigSm::handleTrafficSteeringMacAclMatchIp() {
  const bool value = cliConfig_->trafficSteeringMacAclMatchIp();
  if (TRACE.enabled(8)) {
    TRACE(8, "void TapAgg::ConfigSm::handleTrafficSteeringMacAclMatchIp()", " trafficSteeringMacAclMatchIp ", value);
  }
  hwConfig_->trafficSteeringMacAclMatchIpIs(value);
}

// --- children --------------------------------------------------------------------------------

Ptr<ErrDisableSm> ConfigSm::errDisableSmIs(Ptr<const CliConfig> cliConfig, Ptr<const Bridging::Config> bridgingConfig,
                                           Ptr<Errdisable::CauseStatus> errdisableCauseStatus,
                                           Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir,
                                           Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir,
                                           Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir,
                                           Ptr<const Lag::Config> lagConfig) {
  errDisableSm_ = platform::make<ErrDisableSm>(std::move(cliConfig), std::move(bridgingConfig),
                                               std::move(errdisableCauseStatus), std::move(vlanIntfStatusDir),
                                               std::move(ethLagIntfStatusDir), std::move(ethIntfStatusDir),
                                               std::move(lagConfig), clock_);
  return errDisableSm_;
}

Ptr<SwitchIntfConfigSm> ConfigSm::switchIntfConfigSmIs(
    Ptr<HwConfig> hwConfig, Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir,
    Ptr<const Bridging::Config> bridgingConfig, Ptr<Status> status, Ptr<const Mirroring::Status> mirroringStatus,
    Ptr<const Interface::IntfForwardingModelInputDir> intfForwardingModelInputDir) {
  switchIntfConfigSm_ = platform::make<SwitchIntfConfigSm>(
      std::move(hwConfig), std::move(switchIntfConfigDir), std::move(bridgingConfig), std::move(status),
      std::move(mirroringStatus), std::move(intfForwardingModelInputDir), this);
  switchIntfConfigSm_->handleInitialized();
  return switchIntfConfigSm_;
}

Ptr<EthIntfStatusSm> ConfigSm::ethIntfStatusSmIs(Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir) {
  ethIntfStatusSm_ = platform::make<EthIntfStatusSm>(std::move(ethIntfStatusDir), this);
  return ethIntfStatusSm_;
}

Ptr<MirroringSessionStatusSm> ConfigSm::mirroringSessionStatusSmIs(Ptr<const Mirroring::Status> mirroringStatus) {
  mirroringSessionStatusSm_ = platform::make<MirroringSessionStatusSm>(std::move(mirroringStatus), this);
  return mirroringSessionStatusSm_;
}

Ptr<SliceModeUpdateSm> ConfigSm::sliceModeUpdateSmIs(Ptr<const platform::Dir> sliceHwStatusDir,
                                                     Ptr<const CliConfig> cliConfig, Ptr<HwConfig> hwConfig) {
  sliceModeUpdateSm_ =
      platform::make<SliceModeUpdateSm>(std::move(sliceHwStatusDir), std::move(cliConfig), std::move(hwConfig));
  return sliceModeUpdateSm_;
}

void ConfigSm::errDisableSmDel() { errDisableSm_ = nullptr; }
void ConfigSm::switchIntfConfigSmDel() { switchIntfConfigSm_ = nullptr; }
void ConfigSm::ethIntfStatusSmDel() { ethIntfStatusSm_ = nullptr; }
void ConfigSm::mirroringSessionStatusSmDel() { mirroringSessionStatusSm_ = nullptr; }
void ConfigSm::sliceModeUpdateSmDel() { sliceModeUpdateSm_ = nullptr; }

}  // namespace TapAgg
