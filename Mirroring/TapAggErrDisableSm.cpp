// Error-disabling the interfaces whose switchport mode conflicts with the tap-aggregation mode.
//
// Exclusive mode: every ordinary switch port and every VLAN interface conflicts. Off: every tap
// or tool port conflicts. Mixed: a linecard with a tap-aggregation slice profile ("Linecard<n>")
// behaves as exclusive, one without as off. The exemption list spares a port, except a LAG
// member, which always follows its LAG.
#include "Mirroring/TapAggSm.h"
#include "platform/Assert.h"

namespace TapAgg {

// Follows one interface's switchport mode.
struct ErrDisableSm::SwitchIntfReactor {
  SwitchIntfReactor(Ptr<const Bridging::SwitchIntfConfig> c, ErrDisableSm* s)
      : intfId(c->intfId()), config(std::move(c)), sm(s) {
    reactor.on(config->switchportMode, [this] {
      if (initialized) handleSwitchportMode();
    });
  }
  const Ptr<const Bridging::SwitchIntfConfig>& entry() const { return config; }
  void handleSwitchportMode() { sm->doUpdateErrDisableCauseStatus(intfId); }
  void handleInitialized() {
    initialized = true;
    handleSwitchportMode();
  }
  // The switchport configuration is gone: nothing of its own conflicts any more. What still
  // reads it is judged again, as a start-up would judge it: a LAG member by its LAG, a LAG's
  // members by what their LAG is now.
  void prepareToDie() {
    reactor.detachAll();
    if (sm->causeStatus_->intfStatus.contains(intfId)) sm->causeStatus_->intfStatusDel(intfId);
    if (initialized) sm->doUpdateErrDisableCauseStatus(intfId);
    initialized = false;
  }

  platform::IntfId intfId;
  Ptr<const Bridging::SwitchIntfConfig> config;
  ErrDisableSm* sm;
  platform::Reactor reactor;
  bool initialized = false;
};

// Follows one physical port's LAG membership.
struct ErrDisableSm::PhyIntfReactor {
  PhyIntfReactor(Ptr<const Lag::EthPhyIntfLagConfig> c, ErrDisableSm* s)
      : intfId(c->intfId()), config(std::move(c)), sm(s) {
    reactor.on(config->lag, [this] {
      if (initialized) handleLag();
    });
  }
  const Ptr<const Lag::EthPhyIntfLagConfig>& entry() const { return config; }
  void handleLag() { sm->doUpdateErrDisableCauseStatus(intfId); }
  void handleInitialized() {
    initialized = true;
    handleLag();
  }
  // The port is judged once more as it leaves.
  void prepareToDie() {
    reactor.detachAll();
    handleLag();
    initialized = false;
  }

  platform::IntfId intfId;
  Ptr<const Lag::EthPhyIntfLagConfig> config;
  ErrDisableSm* sm;
  platform::Reactor reactor;
  bool initialized = false;
};

ErrDisableSm::ErrDisableSm(Ptr<const CliConfig> cliConfig, Ptr<const Bridging::Config> bic,
                           Ptr<Errdisable::CauseStatus> causeStatus,
                           Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir,
                           Ptr<const Interface::EthLagIntfStatusDir> ethLagIntfStatusDir,
                           Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, Ptr<const Lag::Config> lagConfig,
                           const platform::Clock* clock)
    : cliConfig_(std::move(cliConfig)),
      bic_(std::move(bic)),
      causeStatus_(std::move(causeStatus)),
      vlanIntfStatusDir_(std::move(vlanIntfStatusDir)),
      ethLagIntfStatusDir_(std::move(ethLagIntfStatusDir)),
      ethIntfStatusDir_(std::move(ethIntfStatusDir)),
      lagConfig_(std::move(lagConfig)),
      lagMembers_(lagConfig_),
      clock_(clock) {
  PLATFORM_ASSERT(cliConfig_);
  PLATFORM_ASSERT(causeStatus_);
  reactor_.on(cliConfig_->mode, [this] { handleMode(); });
  reactor_.on(cliConfig_->noerrdisableIntf, [this](const platform::IntfId& intf) { handleNoerrdisableIntf(intf); });
  if (bic_) {
    switchIntfConfig_.follow(reactor_, bic_->switchIntfConfig, [this](SwitchIntfReactor& r) {
      if (initialized_) r.handleInitialized();
    }, this);
  }
  if (lagConfig_) {
    phyIntf_.follow(reactor_, lagConfig_->phyIntf, [this](PhyIntfReactor& r) {
      if (initialized_) r.handleInitialized();
    }, this);
  }
  if (ethIntfStatusDir_) {
    reactor_.on(ethIntfStatusDir_->intfStatus, [this](const platform::IntfId& intf) { handleEthIntfStatus(intf); });
  }
  if (vlanIntfStatusDir_) {
    reactor_.on(vlanIntfStatusDir_->intfStatus, [this](const platform::IntfId& intf) { handleVlanIntfStatus(intf); });
  }
  handleInitialized();
}

ErrDisableSm::~ErrDisableSm() {
  // Going away with the agent: what is error-disabled stays so until the next run judges again.
  reactor_.detachAll();
  switchIntfConfig_.forEach([](SwitchIntfReactor& r) { r.reactor.detachAll(); });
  phyIntf_.forEach([](PhyIntfReactor& r) { r.reactor.detachAll(); });
}

void ErrDisableSm::handleInitialized() {
  PLATFORM_ASSERT(!initialized());
  initialized_ = true;
  // An entry left by an earlier run for an interface that nothing here judges any more would
  // never be cleared: those go before everything is judged again.
  for (const auto& intf : causeStatus_->intfStatus.keys()) {
    const bool vlan = vlanIntfStatusDir_ && vlanIntfStatusDir_->intfStatus.contains(intf);
    if (!vlan && !tracksSwitchIntf(intf) && !tracksPhyIntf(intf)) causeStatus_->intfStatusDel(intf);
  }
  switchIntfConfig_.forEach([](SwitchIntfReactor& r) { r.handleInitialized(); });
  phyIntf_.forEach([](PhyIntfReactor& r) { r.handleInitialized(); });
  handleEthIntfStatus();
  handleVlanIntfStatus();
}

// --- the decision ----------------------------------------------------------------------------

bool ErrDisableSm::errDisableNeeded(const platform::IntfId& intf) const {
  if (!initialized()) {
    TRACE(8, intf, " Not initialized. return false");
    return false;
  }
  const auto mode = switchportModeOf(bic_, intf);
  if (!mode) {
    TRACE(8, intf, " No switchIntfConfig found: return false");
    return false;
  }
  const Bridging::SwitchportMode switchportMode = *mode;
  const bool tapAggPort = isTapAggMode(switchportMode);
  const bool exempt = cliConfig_->noerrdisableIntf.get(intf, false);
  bool need = false;
  switch (cliConfig_->mode()) {
    case TapAggMode::tapAggModeExclusive:
      need = !tapAggPort && !exempt;
      break;
    case TapAggMode::tapAggModeOff:
      PLATFORM_ASSERT(!cliConfig()->enabled());
      need = tapAggPort;
      break;
    case TapAggMode::tapAggModeMixed: {
      if (!intf.isEthernet()) break;
      const platform::IntfId active = activeIntf(intf);
      const bool lag = ethLagIntfStatusDir_ && ethLagIntfStatusDir_->intfStatus.contains(active);
      const bool profiled = cliConfig_->sliceProfileConfig.contains("Linecard" + std::to_string(intf.module()));
      if (!profiled) {
        need = lag ? isTapAggLag(active) : tapAggPort && !exempt;
      } else {
        need = lag ? !isTapAggLag(active) : !tapAggPort && !exempt;
      }
      break;
    }
    default:
      PLATFORM_ASSERT(0 && "unknown mode");
  }
  TRACE(8, intf, " switchportMode ", static_cast<unsigned>(switchportMode), " errdisable: ", need);
  return need;
}

platform::IntfId ErrDisableSm::activeIntf(const platform::IntfId& intf) const {
  if (lagConfig_) {
    if (auto member = lagConfig_->phyIntf.get(intf); member && !member->lag().empty()) return member->lag();
  }
  return intf;
}

bool ErrDisableSm::isTapAggLag(const platform::IntfId& intf) const {
  const auto mode = switchportModeOf(bic_, intf);
  if (!mode) {
    TRACE(8, intf, " No switchIntfConfig found: return false");
    return false;
  }
  return isTapAggMode(*mode);
}

void ErrDisableSm::errDisable(const platform::IntfId& intf) {
  // Only an interface that exists is disabled: one whose status went loses its entry, and is
  // judged again when its status comes back.
  const bool exists = (ethIntfStatusDir_ && ethIntfStatusDir_->intfStatus.contains(intf)) ||
                      (vlanIntfStatusDir_ && vlanIntfStatusDir_->intfStatus.contains(intf));
  if (!exists) {
    TRACE(8, "No status for ", intf, ": nothing to disable");
    if (causeStatus_->intfStatus.contains(intf)) release(intf);
    return;
  }
  TRACE(8, "Adding intfStatus for ", intf);
  causeStatus_->intfStatusIs(intf, now());
}

void ErrDisableSm::release(const platform::IntfId& intf) {
  TRACE(8, "Removing intfStatus for ", intf);
  causeStatus_->intfStatusDel(intf);
}

void ErrDisableSm::doUpdateErrDisableCauseStatus(const platform::IntfId& intf) {
  TRACE(8, __PRETTY_FUNCTION__, " ", intf);
  const bool mixed = cliConfig_->mode() == TapAggMode::tapAggModeMixed;
  const platform::IntfId subject = mixed ? intf : activeIntf(intf);
  const bool need = errDisableNeeded(subject);
  TRACE(8, " activeIntf ", subject, " errdisable state ", need);
  if (need) {
    errDisable(intf);
  } else {
    release(intf);
  }
  // The members of a LAG are judged by their LAG: each is judged again now, by the rule that
  // judges it on its own (by its LAG outside mixed mode, by itself in it), also where the LAG
  // has no status (yet), so that a member is disabled exactly as a start-up would disable it.
  if (!lagConfig_ || !intf.isPortChannel()) return;
  std::vector<platform::IntfId> members;
  for (const auto& member : lagMembers_.membersOf(intf)) {
    if (tracksPhyIntf(member) && !member.isPortChannel()) members.push_back(member);
  }
  for (const auto& member : members) doUpdateErrDisableCauseStatus(member);
}

// --- handlers --------------------------------------------------------------------------------

// Every interface is judged again under the new mode: those the start-up judges, also the ones
// without an Ethernet status (a Port-Channel known only by its switchport record), so that a
// mode change leaves what a start-up in that mode would.
void ErrDisableSm::handleMode() {
  if (!initialized()) return;
  switchIntfConfig_.forEach([](SwitchIntfReactor& r) { r.handleSwitchportMode(); });
  phyIntf_.forEach([](PhyIntfReactor& r) { r.handleLag(); });
  handleEthIntfStatus();
  handleVlanIntfStatus();
}

// VLAN interfaces are judged with the Ethernet interfaces when they are listed there; those
// that are not are judged here, so that start-up and every mode change reach each of them.
void ErrDisableSm::handleVlanIntfStatus() {
  if (!vlanIntfStatusDir_) return;
  for (const auto& vlan : vlanIntfStatusDir_->intfStatus.keys()) {
    if (!ethIntfStatusDir_ || !ethIntfStatusDir_->intfStatus.contains(vlan)) handleVlanIntfStatus(vlan);
  }
}

void ErrDisableSm::handleNoerrdisableIntf(const platform::IntfId& intf) {
  TRACE(8, __PRETTY_FUNCTION__, " ", intf, " added? ", cliConfig_->noerrdisableIntf.contains(intf));
  doUpdateErrDisableCauseStatus(intf);
}

void ErrDisableSm::handleVlanIntfStatus(const platform::IntfId& intf) {
  if (!initialized()) return;
  const bool exists = vlanIntfStatusDir_ && vlanIntfStatusDir_->intfStatus.contains(intf);
  if (exists && cliConfig_->mode() == TapAggMode::tapAggModeExclusive) {
    TRACE(8, " Err disable vlan ", intf, " in tap-agg mode");
    causeStatus_->intfStatusIs(intf, now());
    return;
  }
  TRACE(8, " Enable vlan ", intf, " in normal mode");
  if (causeStatus_->intfStatus.contains(intf)) causeStatus_->intfStatusDel(intf);
}

void ErrDisableSm::handleEthIntfStatus(const platform::IntfId& intf) {
  if (!initialized()) return;
  if (!ethIntfStatusDir_ || !ethIntfStatusDir_->intfStatus.contains(intf)) {
    TRACE(8, " Intf ", intf, " is deleted - remove from errdisable state");
    if (causeStatus_->intfStatus.contains(intf)) {
      TRACE(8, "Removing ", intf, " from errdisable state");
      causeStatus_->intfStatusDel(intf);
    }
    return;
  }
  TRACE(8, " Intf ", intf, " is present - errdisable if required");
  if (vlanIntfStatusDir_ && vlanIntfStatusDir_->intfStatus.contains(intf)) {
    handleVlanIntfStatus(intf);
    return;
  }
  if (auto* reactor = switchIntfConfig_.find(intf)) reactor->handleSwitchportMode();
  // A LAG member is judged by its LAG too: it may be disabled for it now that it exists.
  if (auto* member = phyIntf_.find(intf)) member->handleLag();
}

void ErrDisableSm::handleEthIntfStatus() {
  if (!ethIntfStatusDir_) return;
  for (const auto& intf : ethIntfStatusDir_->intfStatus.keys()) handleEthIntfStatus(intf);
}

// --- followed entries ------------------------------------------------------------------------

void ErrDisableSm::switchIntfConfigIs(const Ptr<const Bridging::SwitchIntfConfig>& config) {
  if (auto* r = switchIntfConfig_.is(config->intfId(), config, this); r && initialized_) r->handleInitialized();
}

void ErrDisableSm::switchIntfConfigDel(const platform::IntfId& intf) { switchIntfConfig_.del(intf); }

void ErrDisableSm::switchIntfConfigDelAll() { switchIntfConfig_.delAll(); }

void ErrDisableSm::phyIntfIs(const Ptr<const Lag::EthPhyIntfLagConfig>& config) {
  if (auto* r = phyIntf_.is(config->intfId(), config, this); r && initialized_) r->handleInitialized();
}

void ErrDisableSm::phyIntfDel(const platform::IntfId& intf) { phyIntf_.del(intf); }

void ErrDisableSm::phyIntfDelAll() { phyIntf_.delAll(); }

}  // namespace TapAgg
