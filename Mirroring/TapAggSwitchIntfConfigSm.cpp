// Tap and tool ports from the switchport configuration: hardware entries, group statuses and
// port modes, torn down and rebuilt on every change of an interface.
#include "Mirroring/TapAggSm.h"
#include "platform/Assert.h"

namespace TapAgg {

namespace {

// The roles that a clean-up for a mode removes. The pattern is deliberate: a tap port cleans
// its tap role only, a tool port its tool role only, every other known mode both, and a mode
// this program does not know neither.
struct CleanupRoles {
  bool tap = false;
  bool tool = false;
};
CleanupRoles cleanupRoles(Bridging::SwitchportMode mode) {
  switch (mode) {
    case Bridging::switchportModeTap:
      return {true, false};
    case Bridging::switchportModeTool:
      return {false, true};
    case Bridging::switchportModeAccess:
    case Bridging::switchportModeTrunk:
    case Bridging::switchportModeDot1qTunnel:
    case Bridging::switchportModeTapTool:
    case Bridging::switchportModeRouted:
      return {true, true};
  }
  return {};
}

}  // namespace

// --- the reactor on an interface's switchport mode -------------------------------------------

SwitchIntfConfigSm::SwitchIntfConfigReactor::SwitchIntfConfigReactor(Ptr<const Bridging::SwitchIntfConfig> config,
                                                                     SwitchIntfConfigSm* sm)
    : intfId_(config->intfId()), config_(std::move(config)), sm_(sm) {
  reactor_.on(config_->switchportMode, [this] {
    if (initialized_) handleSwitchportModeReactor();
  });
}

void SwitchIntfConfigSm::SwitchIntfConfigReactor::handleInitialized() {
  initialized_ = true;
  if (!sm_->switchIntfCliConfig(intfId_)) {
    TRACE(8, intfId_, " SwitchIntfCliConfig not initialized. Cleanup and return");
    sm_->doInitCleanup(intfId_);
    return;
  }
  handleSwitchportMode();
  if (auto* cli = sm_->switchIntfCliConfig(intfId_)) sm_->doReviewRawIntfs(*cli->config());
}

void SwitchIntfConfigSm::SwitchIntfConfigReactor::handleSwitchportModeReactor() {
  sm_->doDeleteGroupsLeft(intfId_, config_->switchportMode());
  handleSwitchportMode();
  if (auto* cli = sm_->switchIntfCliConfig(intfId_)) sm_->doReviewRawIntfs(*cli->config());
}

void SwitchIntfConfigSm::SwitchIntfConfigReactor::handleSwitchportMode() {
  const Bridging::SwitchportMode mode = config_->switchportMode();
  TRACE(8, "intf ", intfId_, " mode ", static_cast<unsigned>(mode));
  if (!sm_->switchIntfCliConfig(intfId_)) {
    TRACE(8, " switchIntfCliConfig not initialized. Return");
    return;
  }
  if (!sm_->switchportMode(intfId_)) return;
  const auto& portModeConfig = sm_->parent()->portModeConfig();
  if (isTapAggMode(mode)) {
    // A tap-aggregation mode cleans exactly the roles it rebuilds, from the same groups, and
    // the clean-up changes nothing the port status is computed from: the rebuild alone, which
    // writes only what differs, leaves what clean-up and rebuild would. So the hardware sees
    // no port vanish and come back, and a restart over unchanged inputs writes nothing.
    if (portModeConfig) portModeConfig->portModeIs(intfId_.name(), EthIntf::portModeTapAgg);
    sm_->parent()->stalePortModeSetDel(intfId_.name());
    doUpdatePortStatus();
    sm_->doRemoveInvalidGroups();
    return;
  }
  if (mode <= Bridging::switchportModeRouted) sm_->doCleanup(intfId_, mode);
  if (portModeConfig) portModeConfig->portModeDel(intfId_.name());
}

void SwitchIntfConfigSm::SwitchIntfConfigReactor::doUpdatePortStatus() {
  const Bridging::SwitchportMode mode = config_->switchportMode();
  TRACE(8, __PRETTY_FUNCTION__, " intf ", intfId_, " mode ", static_cast<unsigned>(mode));
  const bool isTap = mode == Bridging::switchportModeTap;
  const bool isTool = mode == Bridging::switchportModeTool;
  const bool isTapTool = mode == Bridging::switchportModeTapTool;
  PLATFORM_ASSERT(isTap || isTool || isTapTool);
  auto* cli = sm_->switchIntfCliConfig(intfId_);
  if (!cli) return;
  ConfigSm* parent = sm_->parent();
  const PortStatus status = getPortStatus(*parent, intfId_);
  const bool inHw = keptInHardware(status);
  const auto& hwConfig = sm_->hwConfig();
  if (!isTool) {
    TRACE(8, __PRETTY_FUNCTION__, " Adding ", intfId_, " as tap port, active?", status.active);
    sm_->doUpdatePortStatusForTap(status, intfId_);
    if (inHw) {
      hwConfig->tapPortIs(cli->config());
      parent->staleTapPortSetDel(intfId_);
    } else {
      hwConfig->tapPortDel(intfId_);
    }
  }
  if (isTap) return;
  TRACE(8, __PRETTY_FUNCTION__, " Adding ", intfId_, " as tool port, active?", status.active);
  sm_->doUpdatePortStatusForTool(status, intfId_);
  if (inHw) {
    hwConfig->toolPortIs(cli->config());
    parent->staleToolPortSetDel(intfId_);
  } else {
    hwConfig->toolPortDel(intfId_);
  }
}

void SwitchIntfConfigSm::SwitchIntfConfigReactor::prepareToDie() {
  reactor_.detachAll();
  if (initialized_) {
    // Without its switchport record the interface is no tap or tool port any more: both roles
    // go, a role an earlier mode left behind included.
    sm_->doCleanup(intfId_, Bridging::switchportModeTapTool);
    // Nothing keeps the port mode of an interface that is no longer followed.
    if (const auto& portModeConfig = sm_->parent()->portModeConfig()) portModeConfig->portModeDel(intfId_.name());
    if (auto* cli = sm_->switchIntfCliConfig(intfId_)) sm_->doReviewRawIntfs(*cli->config());
  }
  initialized_ = false;
}

// --- the reactor on an interface's groups ----------------------------------------------------

SwitchIntfConfigSm::SwitchIntfCliConfigReactor::SwitchIntfCliConfigReactor(
    Ptr<const Bridging::Input::SwitchIntfConfig> config, SwitchIntfConfigSm* sm)
    : intfId_(config->intfId()), config_(std::move(config)), sm_(sm) {
  reactor_.on(config_->tapGroup, [this](const std::string& group) {
    if (initialized_) handleTapGroupStatus(group);
  });
  reactor_.on(config_->toolGroup, [this](const std::string& group) {
    if (initialized_) handleToolGroupStatus(group);
  });
  reactor_.on(config_->tapRawIntf, [this](const platform::IntfId& raw) {
    if (initialized_) handleTapRawIntfStatus(raw);
  });
  // Taken as a tool interface or released: whether it may stay a mirror destination changes.
  reactor_.on(config_->toolIntfInUse, [this] {
    if (!initialized_ || !toggleMirrorDestinationOnTapToolPortEnabled()) return;
    if (auto* partner = sm_->switchIntfConfig(intfId_); partner && partner->initialized()) {
      partner->handleSwitchportMode();
    }
  });
}

void SwitchIntfConfigSm::SwitchIntfCliConfigReactor::handleInitialized() {
  initialized_ = true;
  auto* partner = sm_->switchIntfConfig(intfId_);
  if (!partner) {
    TRACE(8, intfId_, " SwitchIntfConfig not initialized. Cleanup and return");
    sm_->doInitCleanup(intfId_);
    return;
  }
  // A partner that is not initialised yet builds the port when it is.
  if (!partner->initialized()) return;
  partner->handleSwitchportMode();
  sm_->doReviewRawIntfs(*config_);
}

void SwitchIntfConfigSm::SwitchIntfCliConfigReactor::handleGroupStatus(const std::string& group, bool isTap) {
  SwitchIntfConfigSm* switchIntfConfigSm = sm_;
  PLATFORM_ASSERT(switchIntfConfigSm);
  if (!sm_->initialized()) {
    TRACE(8, " switchIntfConfigSm not initialized -return");
    return;
  }
  auto mode = sm_->switchportMode(intfId_);
  TRACE(8, "intf ", intfId_, " mode ", mode ? static_cast<int>(*mode) : -1, " groupName ", group);
  if (!mode || !(isTap ? isTapMode(*mode) : isToolMode(*mode))) return;
  const auto& groups = isTap ? config_->tapGroup : config_->toolGroup;
  if (groups.contains(group)) {
    TRACE(8, "Added member ", group);
    const PortStatus status = getPortStatus(*sm_->parent(), intfId_);
    if (isTap) {
      sm_->doUpdatePortStatusForTap(status, intfId_);
    } else {
      sm_->doUpdatePortStatusForTool(status, intfId_);
    }
  } else {
    TRACE(8, "Removed member ", group);
    sm_->doDeletePortStatus(group, isTap, intfId_);
    sm_->doRemoveInvalidGroups();
  }
}

void SwitchIntfConfigSm::SwitchIntfCliConfigReactor::handleTapGroupStatus(const std::string& group) {
  handleGroupStatus(group, true);
}

void SwitchIntfConfigSm::SwitchIntfCliConfigReactor::handleTapGroupStatus() {
  for (const auto& group : config_->tapGroup.keys()) handleTapGroupStatus(group);
}

void SwitchIntfConfigSm::SwitchIntfCliConfigReactor::handleToolGroupStatus(const std::string& group) {
  handleGroupStatus(group, false);
}

void SwitchIntfConfigSm::SwitchIntfCliConfigReactor::handleToolGroupStatus() {
  for (const auto& group : config_->toolGroup.keys()) handleToolGroupStatus(group);
}

void SwitchIntfConfigSm::SwitchIntfCliConfigReactor::handleTapRawIntfStatus(const platform::IntfId& raw) {
  if (!toggleMirrorDestinationOnTapToolPortEnabled()) return;
  TRACE(8, " tapRawIntf", raw);
  if (!sm_->switchIntfConfig(intfId_)) return;
  auto mode = sm_->switchportMode(intfId_);
  if (!mode || !isTapMode(*mode)) return;
  if (auto* rawReactor = sm_->switchIntfConfig(raw)) rawReactor->handleSwitchportMode();
}

void SwitchIntfConfigSm::SwitchIntfCliConfigReactor::prepareToDie() {
  reactor_.detachAll();
  if (initialized_) {
    // Without its groups the interface is no tap or tool port any more: both roles go (a role
    // an earlier mode left behind included), and its port mode too.
    sm_->doCleanup(intfId_, Bridging::switchportModeTapTool);
    if (const auto& portModeConfig = sm_->parent()->portModeConfig()) portModeConfig->portModeDel(intfId_.name());
    sm_->doReviewRawIntfs(*config_);
  }
  initialized_ = false;
}

// --- the follower ----------------------------------------------------------------------------

SwitchIntfConfigSm::SwitchIntfConfigSm(Ptr<HwConfig> hwConfig,
                                       Ptr<const Bridging::SwitchIntfConfigDir> switchIntfConfigDir,
                                       Ptr<const Bridging::Config> bridgingConfig, Ptr<Status> status,
                                       Ptr<const Mirroring::Status> mirroringStatus,
                                       Ptr<const Interface::IntfForwardingModelInputDir> lagForwardingModelInputDir,
                                       ConfigSm* parent)
    : hwConfig_(std::move(hwConfig)),
      switchIntfConfigDir_(std::move(switchIntfConfigDir)),
      bridgingConfig_(std::move(bridgingConfig)),
      status_(std::move(status)),
      mirroringStatus_(std::move(mirroringStatus)),
      lagForwardingModelInputDir_(std::move(lagForwardingModelInputDir)),
      parent_(parent) {
  if (bridgingConfig_) {
    switchIntfConfig_.follow(reactor_, bridgingConfig_->switchIntfConfig, [this](SwitchIntfConfigReactor& r) {
      if (initialized_) r.handleInitialized();
    }, this);
  }
  if (switchIntfConfigDir_) {
    switchIntfCliConfig_.follow(reactor_, switchIntfConfigDir_->switchIntfConfig, [this](SwitchIntfCliConfigReactor& r) {
      if (initialized_) r.handleInitialized();
    }, this);
  }
  if (lagForwardingModelInputDir_) {
    reactor_.on(lagForwardingModelInputDir_->forwardingModelInput, [this](const platform::IntfId& intf) {
      if (initialized_) handleLagForwardingModelInput(intf);
    });
  }
}

SwitchIntfConfigSm::~SwitchIntfConfigSm() { reactor_.detachAll(); }

void SwitchIntfConfigSm::handleInitialized() {
  PLATFORM_ASSERT(!initialized());
  PLATFORM_ASSERT(parent());
  initialized_ = true;
  // Group reactors first: they leave building the port to their partner, which builds it once.
  switchIntfCliConfig_.forEach([](SwitchIntfCliConfigReactor& r) { r.handleInitialized(); });
  switchIntfConfig_.forEach([](SwitchIntfConfigReactor& r) { r.handleInitialized(); });
}

void SwitchIntfConfigSm::prepareToDie() {
  reactor_.detachAll();
  switchIntfConfig_.forEach([](SwitchIntfConfigReactor& r) { r.prepareToDie(); });
  switchIntfCliConfig_.forEach([](SwitchIntfCliConfigReactor& r) { r.prepareToDie(); });
}

std::optional<Bridging::SwitchportMode> SwitchIntfConfigSm::switchportMode(const platform::IntfId& intf) const {
  return switchportModeOf(bridgingConfig_, intf);
}

void SwitchIntfConfigSm::switchIntfConfigIs(const Ptr<const Bridging::SwitchIntfConfig>& config) {
  if (auto* r = switchIntfConfig_.is(config->intfId(), config, this); r && initialized_) r->handleInitialized();
}

void SwitchIntfConfigSm::switchIntfConfigDel(const platform::IntfId& intf) { switchIntfConfig_.del(intf); }

void SwitchIntfConfigSm::switchIntfCliConfigIs(const Ptr<const Bridging::Input::SwitchIntfConfig>& config) {
  if (auto* r = switchIntfCliConfig_.is(config->intfId(), config, this); r && initialized_) r->handleInitialized();
}

void SwitchIntfConfigSm::switchIntfCliConfigDel(const platform::IntfId& intf) { switchIntfCliConfig_.del(intf); }

// The interfaces a tap port passes on raw are in use while it is a tap port: whatever makes it
// one or not (its mode, either of its records) decides again whether they may stay mirror
// destinations.
void SwitchIntfConfigSm::doReviewRawIntfs(const Bridging::Input::SwitchIntfConfig& tapConfig) {
  if (!toggleMirrorDestinationOnTapToolPortEnabled()) return;
  for (const auto& raw : tapConfig.tapRawIntf.keys()) {
    if (raw == tapConfig.intfId()) continue;  // the port itself is judged by its own change
    if (auto* rawReactor = switchIntfConfig(raw); rawReactor && rawReactor->initialized()) {
      rawReactor->handleSwitchportMode();
    }
  }
}

// --- group statuses --------------------------------------------------------------------------

void SwitchIntfConfigSm::doUpdatePortStatusForGroups(const PortStatus& portStatus, const platform::IntfId& intf,
                                                     bool isTap) {
  if (!switchIntfConfigDir_) return;
  auto config = switchIntfConfigDir_->switchIntfConfig.get(intf);
  if (!config) return;
  for (const auto& group : (isTap ? config->tapGroup : config->toolGroup).keys()) {
    TRACE(8, " Updating group ", group, isTap ? " with tap port " : " with tool port ", intf);
    auto groupStatus = status_->groupIs(group);
    parent_->staleGroupSetDel(group);
    parent_->staleGroupMemberSetDel(group, isTap, intf.name());
    if (isTap) {
      groupStatus->tapPortIs(intf.name(), portStatus);
    } else {
      groupStatus->toolPortIs(intf.name(), portStatus);
    }
  }
}

void SwitchIntfConfigSm::doUpdatePortStatusForTap(const PortStatus& portStatus, const platform::IntfId& intf) {
  doUpdatePortStatusForGroups(portStatus, intf, true);
}

void SwitchIntfConfigSm::doUpdatePortStatusForTool(const PortStatus& portStatus, const platform::IntfId& intf) {
  doUpdatePortStatusForGroups(portStatus, intf, false);
}

void SwitchIntfConfigSm::doDeletePortStatus(const std::string& group, bool isTap, const platform::IntfId& intf) {
  if (auto groupStatus = status_->group.get(group)) {
    auto& ports = isTap ? groupStatus->tapPort : groupStatus->toolPort;
    if (ports.contains(intf.name())) {
      TRACE(8, isTap ? "Remove tap intf " : "Remove tool intf ", intf, " from grp ", group);
      ports.del(intf.name());
    }
  }
  doRemoveInvalidGroups();
}

void SwitchIntfConfigSm::doRemoveInvalidGroups() {
  // Looked over in place (no copies): this runs after every port update, and rarely finds one.
  std::vector<std::string> empty;
  for (const auto& [group, groupStatus] : status_->group) {
    if (groupStatus->tapPort.empty() && groupStatus->toolPort.empty()) empty.push_back(group);
  }
  for (const auto& group : empty) status_->groupDel(group);
}

// Removes the port in one role from every group that shows it so and that `which` names.
void SwitchIntfConfigSm::doDeleteRoleFromGroups(const platform::IntfId& intf, bool isTap,
                                                const std::function<bool(const std::string&)>& which) {
  for (const auto& group : status_->group.keys()) {
    auto groupStatus = status_->group.get(group);
    if (!groupStatus || !which(group)) continue;
    auto& ports = isTap ? groupStatus->tapPort : groupStatus->toolPort;
    if (!ports.contains(intf.name())) continue;
    TRACE(8, isTap ? "Remove tap intf " : "Remove tool intf ", intf, " from grp ", group);
    ports.del(intf.name());
  }
}

// A role a new mode has again leaves the groups the port left while it had another mode (a
// record that comes or goes cleans every group itself, so only a mode change needs this).
void SwitchIntfConfigSm::doDeleteGroupsLeft(const platform::IntfId& intf, Bridging::SwitchportMode mode) {
  auto* cli = switchIntfCliConfig(intf);
  if (!cli) return;
  const auto& config = *cli->config();
  if (isTapMode(mode)) {
    doDeleteRoleFromGroups(intf, true, [&](const std::string& g) { return !config.tapGroup.contains(g); });
  }
  if (isToolMode(mode)) {
    doDeleteRoleFromGroups(intf, false, [&](const std::string& g) { return !config.toolGroup.contains(g); });
  }
}

// A role that goes leaves the hardware and every group that shows the port in it: the groups
// configured now, and any the port left while it had another mode.
void SwitchIntfConfigSm::doCleanup(const platform::IntfId& intf, Bridging::SwitchportMode mode) {
  if (!switchIntfCliConfig(intf)) return;
  const CleanupRoles roles = cleanupRoles(mode);
  const auto every = [](const std::string&) { return true; };
  if (roles.tap) {
    hwConfig_->tapPortDel(intf);
    doDeleteRoleFromGroups(intf, true, every);
  }
  if (roles.tool) {
    hwConfig_->toolPortDel(intf);
    doDeleteRoleFromGroups(intf, false, every);
  }
  doRemoveInvalidGroups();
}

// An interface with only one half of its configuration is no tap or tool port: whatever an
// earlier run or an earlier configuration left for it goes, from every group.
void SwitchIntfConfigSm::doInitCleanup(const platform::IntfId& intf) {
  TRACE(8, __PRETTY_FUNCTION__, " intf ", intf);
  hwConfig_->tapPortDel(intf);
  hwConfig_->toolPortDel(intf);
  const auto every = [](const std::string&) { return true; };
  doDeleteRoleFromGroups(intf, true, every);
  doDeleteRoleFromGroups(intf, false, every);
  if (const auto& portModeConfig = parent_->portModeConfig()) portModeConfig->portModeDel(intf.name());
  doRemoveInvalidGroups();
}

// --- LAG membership --------------------------------------------------------------------------

// A port that joins a LAG as a member is no tap or tool port of its own: its entries leave the
// hardware configuration at once and its groups show why. The toggle "TapToolPorts" decides
// whether tool ports are taken out here directly (on) or left to the full re-evaluation (off),
// which reaches the same result through the port status. A port that leaves its LAG, or whose
// status allows it, is rebuilt through its switchport-mode handling.
void SwitchIntfConfigSm::handleLagForwardingModelInput(const platform::IntfId& intf) {
  const bool present = lagForwardingModelInputDir_ && lagForwardingModelInputDir_->forwardingModelInput.contains(intf);
  TRACE(8, " input for intfId ", intf, " added? ", present);
  auto* reactor = switchIntfConfig(intf);
  if (!reactor || !reactor->initialized() || !switchIntfCliConfig(intf)) return;
  const Bridging::SwitchportMode mode = reactor->config()->switchportMode();
  if (present && isTapAggMode(mode)) {
    const PortStatus status = getPortStatus(*parent_, intf);
    if (!keptInHardware(status)) {
      bool removed = false;
      if (isToolMode(mode) && toggleTapToolPortsEnabled()) {
        TRACE(8, " Removing tool port.");
        hwConfig_->toolPortDel(intf);
        doUpdatePortStatusForTool(status, intf);
        removed = true;
      }
      if (isTapMode(mode)) {
        TRACE(8, " Removing tap port.");
        hwConfig_->tapPortDel(intf);
        doUpdatePortStatusForTap(status, intf);
        removed = true;
      }
      // A tool role left alone (toggle off) is settled by the full re-evaluation below.
      const bool toolLeft = isToolMode(mode) && !toggleTapToolPortsEnabled();
      if (removed && !toolLeft) return;
    }
  }
  TRACE(8, " calling handleSwitchportMode");
  reactor->handleSwitchportMode();
}

void SwitchIntfConfigSm::handleLagForwardingModelInput() {
  if (!lagForwardingModelInputDir_) return;
  for (const auto& intf : lagForwardingModelInputDir_->forwardingModelInput.keys()) handleLagForwardingModelInput(intf);
}

}  // namespace TapAgg
