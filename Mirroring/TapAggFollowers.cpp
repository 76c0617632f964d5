// The followers of link status and of mirroring session status for tap and tool ports.
#include "Mirroring/TapAggSm.h"
#include "platform/Assert.h"

namespace TapAgg {

// --- link status -----------------------------------------------------------------------------

EthIntfStatusSm::IntfStatusReactor::IntfStatusReactor(Ptr<const Interface::EthIntfStatus> status, EthIntfStatusSm* sm)
    : intfId_(status->intfId()), status_(std::move(status)), sm_(sm) {
  reactor_.on(status_->linkStatus, [this] {
    if (initialized_) handleLinkStatus();
  });
}

void EthIntfStatusSm::IntfStatusReactor::handleInitialized() {
  initialized_ = true;
  handleLinkStatus();
}

// A status that appears after the port was built ("Interface status not found,") changes more
// than the link: the port is judged in full, whatever its link, as it would be at start-up.
void EthIntfStatusSm::IntfStatusReactor::handleAppeared() {
  initialized_ = true;
  const auto& switchIntfConfigSm = sm_->parent()->switchIntfConfigSm();
  if (switchIntfConfigSm && switchIntfConfigSm->initialized()) {
    if (auto* reactor = switchIntfConfigSm->switchIntfConfig(intfId_)) {
      reactor->handleSwitchportMode();
      return;
    }
  }
  handleLinkStatus();
}

void EthIntfStatusSm::IntfStatusReactor::handleLinkStatus() {
  PLATFORM_ASSERT(initialized());
  ConfigSm* parent = sm_->parent();
  const auto& switchIntfConfigSm = parent->switchIntfConfigSm();
  if (!switchIntfConfigSm || !switchIntfConfigSm->initialized()) {
    TRACE(8, "switchIntfConfigSm not initialized, return");
    return;
  }
  const Interface::LinkStatus linkStatus = status_->linkStatus();
  if (linkStatus == Interface::linkUp) {
    TRACE(8, intfId_, " linkStatus is linkUp");
    if (auto* reactor = switchIntfConfigSm->switchIntfConfig(intfId_)) {
      TRACE(8, " calling handleSwitchportMode");
      reactor->handleSwitchportMode();
    }
    return;
  }
  TRACE(8, intfId_, " linkStatus is ", static_cast<unsigned>(linkStatus));
  auto mode = switchIntfConfigSm->switchportMode(intfId_);
  if (!mode) return;
  const PortStatus portStatus = getPortStatus(*parent, intfId_);
  if (isTapMode(*mode)) switchIntfConfigSm->doUpdatePortStatusForTap(portStatus, intfId_);
  if (isToolMode(*mode)) switchIntfConfigSm->doUpdatePortStatusForTool(portStatus, intfId_);
}

void EthIntfStatusSm::IntfStatusReactor::prepareToDie() {
  TRACE(8, __PRETTY_FUNCTION__, " ", intfId_);
  reactor_.detachAll();
  const auto& switchIntfConfigSm = sm_->parent()->switchIntfConfigSm();
  // Only a status that went leaves its port to clean up: when tap aggregation is turned off the
  // switch-interface follower takes the ports down itself.
  const bool gone = !sm_->statusPresent(intfId_);
  if (initialized_ && gone && switchIntfConfigSm) {
    auto* reactor = switchIntfConfigSm->switchIntfConfig(intfId_);
    if (reactor && switchIntfConfigSm->switchIntfCliConfig(intfId_)) {
      TRACE(8, "Cleaning up");
      // The port is judged again without its status ("Interface status not found,"), the
      // state a start-up without it would publish; the roles its mode has are rebuilt, which
      // is all the clean-up would take away.
      if (isTapAggMode(reactor->config()->switchportMode())) reactor->handleSwitchportMode();
    }
  }
  initialized_ = false;
}

EthIntfStatusSm::EthIntfStatusSm(Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, ConfigSm* parent)
    : ethIntfStatusDir_(std::move(ethIntfStatusDir)), parent_(parent) {
  if (ethIntfStatusDir_) {
    intfStatus_.follow(reactor_, ethIntfStatusDir_->intfStatus, [this](IntfStatusReactor& r) {
      if (initialized_) r.handleAppeared();
    }, this);
  }
  handleInitialized();
}

EthIntfStatusSm::~EthIntfStatusSm() { reactor_.detachAll(); }

void EthIntfStatusSm::handleInitialized() {
  PLATFORM_ASSERT(!initialized());
  PLATFORM_ASSERT(parent());
  PLATFORM_ASSERT(parent()->switchIntfConfigSm());
  initialized_ = true;
  intfStatus_.forEach([](IntfStatusReactor& r) { r.handleInitialized(); });
}

void EthIntfStatusSm::prepareToDie() {
  reactor_.detachAll();
  intfStatus_.forEach([](IntfStatusReactor& r) { r.prepareToDie(); });
}

void EthIntfStatusSm::intfStatusIs(const Ptr<const Interface::EthIntfStatus>& status) {
  if (auto* r = intfStatus_.is(status->intfId(), status, this); r && initialized_) r->handleAppeared();
}

void EthIntfStatusSm::intfStatusDel(const platform::IntfId& intf) { intfStatus_.del(intf); }

void EthIntfStatusSm::intfStatusDelAll() { intfStatus_.delAll(); }

// --- mirroring sessions ----------------------------------------------------------------------

MirroringSessionStatusSm::SessionStatusReactor::SessionStatusReactor(Ptr<const Mirroring::SessionStatus> status,
                                                                     MirroringSessionStatusSm* sm)
    : status_(std::move(status)), sm_(sm) {
  reactor_.on(status_->targetOperStatus, [this](const std::string& name) {
    if (initialized_) handleTargetOperStatus(name);
  });
}

void MirroringSessionStatusSm::SessionStatusReactor::handleInitialized() {
  if (!sm_->initialized()) return;
  initialized_ = true;
  handleTargetOperStatus();
}

void MirroringSessionStatusSm::SessionStatusReactor::handleTargetOperStatus() {
  for (const auto& name : status_->targetOperStatus.keys()) handleTargetOperStatus(name);
}

void MirroringSessionStatusSm::SessionStatusReactor::handleTargetOperStatus(const std::string& name) {
  TRACE(8, __PRETTY_FUNCTION__, " ", status_->name(), " ", name);
  PLATFORM_ASSERT(initialized());
  const Mirroring::OperStatus* target = status_->targetOperStatus.find(name);
  const platform::IntfId intf(name);
  ConfigSm* parent = sm_->parent();
  const auto& switchIntfConfigSm = parent->switchIntfConfigSm();
  if (!switchIntfConfigSm) return;
  if (targetIsMirrorDestination(*parent, intf, target && target->isActive())) {
    TRACE(8, "is mirror destination- update status and hwConfig");
    const PortStatus portStatus = getPortStatus(*parent, intf);
    const auto& hwConfig = parent->hwConfig();
    // The port leaves the hardware in whatever role it is there, and its status is updated in
    // every role its mode has, also when it was out of the hardware already (a LAG member,
    // say). A role its mode does not have (one an earlier mode left) is no role to confirm.
    const auto mode = switchIntfConfigSm->switchportMode(intf);
    const bool hasRecords = switchIntfConfigSm->switchIntfCliConfig(intf) != nullptr;
    hwConfig->tapPortDel(intf);
    hwConfig->toolPortDel(intf);
    if (mode && hasRecords && isTapMode(*mode)) switchIntfConfigSm->doUpdatePortStatusForTap(portStatus, intf);
    if (mode && hasRecords && isToolMode(*mode)) switchIntfConfigSm->doUpdatePortStatusForTool(portStatus, intf);
    return;
  }
  if (auto* reactor = switchIntfConfigSm->switchIntfConfig(intf)) {
    TRACE(8, "is not mirror destination- update status and hwConfig");
    reactor->handleSwitchportMode();
  }
}

void MirroringSessionStatusSm::SessionStatusReactor::prepareToDie() {
  reactor_.detachAll();
  initialized_ = false;
}

MirroringSessionStatusSm::MirroringSessionStatusSm(Ptr<const Mirroring::Status> mirroringStatus, ConfigSm* parent)
    : mirroringStatus_(std::move(mirroringStatus)), parent_(parent) {
  if (mirroringStatus_) {
    reactor_.on(mirroringStatus_->sessionStatus, [this](const std::string& name) { sessionStatusIs(name); });
    for (const auto& [name, status] : mirroringStatus_->sessionStatus) sessionStatus_.is(name, status, this);
  }
  handleInitialized();
}

MirroringSessionStatusSm::~MirroringSessionStatusSm() { reactor_.detachAll(); }

void MirroringSessionStatusSm::handleInitialized() {
  TRACE(8, "void TapAgg::MirroringSessionStatusSm::handleInitialized()");
  PLATFORM_ASSERT(!initialized());
  PLATFORM_ASSERT(parent());
  PLATFORM_ASSERT(parent()->switchIntfConfigSm());
  PLATFORM_ASSERT(parent()->ethIntfStatusSm());
  initialized_ = true;
  sessionStatus_.forEach([](SessionStatusReactor& r) { r.handleInitialized(); });
}

// A session status that appears gets a reactor; one that goes takes its targets with it, so
// the ports it held as destinations are judged again without it.
void MirroringSessionStatusSm::sessionStatusIs(const std::string& name) {
  if (auto status = mirroringStatus_->sessionStatus.get(name)) {
    if (auto* r = sessionStatus_.is(name, status, this); r && initialized_) r->handleInitialized();
    return;
  }
  auto* gone = sessionStatus_.find(name);
  if (!gone) return;
  const std::vector<std::string> released = gone->targets();
  sessionStatus_.del(name);
  const auto& switchIntfConfigSm = parent_->switchIntfConfigSm();
  if (!switchIntfConfigSm) return;
  for (const auto& target : released) {
    if (auto* reactor = switchIntfConfigSm->switchIntfConfig(platform::IntfId(target))) reactor->handleSwitchportMode();
  }
}

void MirroringSessionStatusSm::prepareToDie() {
  TRACE(8, "void TapAgg::MirroringSessionStatusSm::prepareToDie()");
  reactor_.detachAll();
  sessionStatus_.forEach([](SessionStatusReactor& r) { r.prepareToDie(); });
}

}  // namespace TapAgg
