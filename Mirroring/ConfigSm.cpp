// The mirroring configuration manager: session lifecycle and global session ids, GRE tunnel
// accounting, capability handling, and interface, LAG and VRF tracking.
#include <algorithm>
#include <tuple>

#include "Mirroring/MirroringForwardingModelSm.h"
#include "Mirroring/MirroringSm.h"
#include "platform/Assert.h"

namespace Mirroring {

const platform::trace::Facility TRACE("Mirroring");

const platform::syslog::Message MIRRORING_NOSESSIONGROUPS(
    "MIRRORING_NOSESSIONGROUPS", platform::syslog::Severity::warning,
    "Insufficient hardware resources to allocate mirror session %s. The current limit on the number of mirror "
    "sessions is %d.",
    "It is not possible to program the mirror session in hardware due to lack of hardware resources.",
    "Use fewer mirror sessions.", 0.0, 1.0, 0);

const platform::syslog::Message MIRRORING_TIMESTAMP_WITH_TRUNCATE_NOTSUPPORTED(
    "MIRRORING_TIMESTAMP_WITH_TRUNCATE_NOTSUPPORTED", platform::syslog::Severity::warning,
    "Timestamping on interface %s (%s) does not work with truncation configured on mirror session %s.",
    "The trunction of the mirrored packet will cause the timestamp to be lost.",
    "Disable truncation on mirror session.");

const platform::syslog::Message MIRRORING_TRUNCATION_NOT_SUPPORTED(
    "MIRRORING_TRUNCATION_NOT_SUPPORTED", platform::syslog::Severity::warning,
    "Truncation is not supported on monitor session %s's source ports that are on forwarding chip %s. %s",
    "Truncation in monitor sessions is not supported on this forwarding chip.", platform::syslog::noActionRequired);

std::ostream& operator<<(std::ostream& os, const ConfigSm&) { return os << "Mirroring::ConfigSm"; }

// Follows one physical interface's LAG membership entry.
struct ConfigSm::PhyIntfReactor {
  PhyIntfReactor(ConfigSm* sm, Ptr<const Lag::EthPhyIntfLagConfig> entry) : configSm(sm), intf(entry->intfId()) {
    reactor.on(entry->lag, [this] { handleLag(); });
  }
  void handleLag() { reviewIntfs(); }
  void handleDel() { reviewIntfs(); }
  void reviewIntfs() {
    reviewSourceIntfs(*configSm, intf);
    reviewDestIntfs(*configSm, intf);
  }
  ConfigSm* configSm;
  platform::IntfId intf;
  platform::Reactor reactor;
};

ConfigSm::ConfigSm(Ptr<const Config> mirroringConfig, Ptr<Status> mirroringStatus, Ptr<Config> mirroringHwConfig,
                   Ptr<const HwStatus> mirroringHwStatus, Ptr<const HwCapability> mirroringHwCapability,
                   Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir, Ptr<const Lag::Config> lagConfig,
                   Ptr<const Acl::Config> aclConfig,
                   Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir,
                   Ptr<const Ip::AllVrfStatusGlobal> allVrfStatus,
                   Ptr<const Interface::EthLagIntfStatusDir> lagIntfStatusDir,
                   Ptr<const Interface::AllEthPhyIntfStatusDir> allEthPhyIntfStatusDir)
    : mirroringConfig_(std::move(mirroringConfig)),
      mirroringStatus_(std::move(mirroringStatus)),
      mirroringHwConfig_(std::move(mirroringHwConfig)),
      mirroringHwStatus_(std::move(mirroringHwStatus)),
      mirroringHwCapability_(std::move(mirroringHwCapability)),
      ethIntfStatusDir_(std::move(ethIntfStatusDir)),
      lagConfig_(std::move(lagConfig)),
      aclConfig_(std::move(aclConfig)),
      forwardingModelInputDir_(std::move(forwardingModelInputDir)),
      allVrfStatus_(std::move(allVrfStatus)),
      lagIntfStatusDir_(std::move(lagIntfStatusDir)),
      allEthPhyIntfStatusDir_(std::move(allEthPhyIntfStatusDir)),
      activeIntfs_(mirroringStatus_),
      lagMembers_(lagConfig_),
      greTunnels_(mirroringStatus_),
      sessionIndex_(
          mirroringConfig_, [this](const std::string& lag) { reviewLagMembers(lag); },
          [this](const std::string& session, const std::string& intf) { hwSourceStale(session, intf); }) {
  PLATFORM_ASSERT(mirroringConfig_ && mirroringStatus_ && mirroringHwConfig_);
  if (const platform::Mount* mount = mirroringStatus_->mount()) db_ = &mount->database();
  configReactor_.on(mirroringConfig_->session, [this](const std::string& name) { handleSession(name); });
  if (mirroringHwStatus_) {
    hwStatusReactor_.on(mirroringHwStatus_->mirrorDeviceName,
                        [this](const std::string& name) { handleMirrorDeviceName(name); });
  }
  if (auto cap = mirroringHwCapability_) {
    capabilityReactor_.on(cap->maxSupportedSessions, [this] { handleMaxSupportedSessions(); });
    capabilityReactor_.on(cap->truncationSupported, [this] { handleTruncationSupported(); });
    capabilityReactor_.on(cap->truncationDefault, [this] {
      // The record may be replaced, or its size changed in place: follow both.
      truncationDefaultReactor_.detachAll();
      if (auto record = mirroringHwCapability_->truncationDefault()) {
        truncationDefaultReactor_.on(record->truncationSize, [this] { handleTruncationSupported(); });
      }
      handleTruncationSupported();
    });
    if (auto record = cap->truncationDefault()) {
      truncationDefaultReactor_.on(record->truncationSize, [this] { handleTruncationSupported(); });
    }
    // The sizes the hardware truncates to belong to the truncation capability as well.
    capabilityReactor_.on(cap->truncationSizesSupported, [this](TruncationSize) { handleTruncationSupported(); });
    capabilityReactor_.on(cap->headerRemovalSupported, [this] { handleHeaderRemovalSupported(); });
    capabilityReactor_.on(cap->cpuDestSupported, [this] { handleCpuDestSupported(); });
    capabilityReactor_.on(cap->loopbackDestSupported, [this] { handleLoopbackDestSupported(); });
    capabilityReactor_.on(cap->lagDestSupported, [this] { handleLagDestSupported(); });
    capabilityReactor_.on(cap->multiDestSupported, [this] { handleMultiDestSupported(); });
    capabilityReactor_.on(cap->multiSessionForDestSupported, [this] { handleMultiSessionForDestSupported(); });
    capabilityReactor_.on(cap->multiSessionForSourceSupported, [this] { handleMultiSessionForSourceSupported(); });
    capabilityReactor_.on(cap->rxSamplingSupported, [this] { handleRxSamplingSupported(); });
    capabilityReactor_.on(cap->sameIntfSrcAndDestSupported, [this] { handleSameIntfSrcAndDestSupported(); });
    capabilityReactor_.on(cap->timestampWithTruncationSupported,
                          [this] { handleTimestampWithTruncationSupported(); });
    capabilityReactor_.on(cap->srcAclSupported, [this] { handleSrcAclSupported(); });
  }
  if (ethIntfStatusDir_) {
    intfReactor_.on(ethIntfStatusDir_->intfStatus, [this](const platform::IntfId& i) { handleEthIntfStatus(i); });
  }
  if (lagConfig_) {
    lagReactor_.on(lagConfig_->phyIntf, [this](const platform::IntfId& i) {
      auto it = phyIntf_.find(i);
      if (it != phyIntf_.end()) {
        auto gone = std::move(it->second);
        phyIntf_.erase(it);
        gone->handleDel();
      }
      auto entry = lagConfig_->phyIntf.get(i);
      if (entry) phyIntf_[i] = std::make_unique<PhyIntfReactor>(this, entry);
      handleLagPhyIntf(i);
      // A port that joins a LAG is judged again wherever it is used, as when its LAG changes.
      if (entry) phyIntf_[i]->reviewIntfs();
    });
  }
  if (allVrfStatus_) {
    vrfReactor_.on(allVrfStatus_->vrf, [this](const platform::VrfName& v) { handleVrfStatus(v); });
  }
  handleInitialized();
}

ConfigSm::~ConfigSm() {
  // The state machines go; what they wrote stays for the next run to reconcile.
  for (const auto& [name, sm] : sessionSm_) sm->detach();
  sessionSm_.clear();
  sessionSmByName_.clear();
  companions_ = 0;
  ethIntfStatusSm_.clear();
  ethLagIntfSm_.clear();
  phyIntf_.clear();
}

// --- session lifecycle -----------------------------------------------------------------------

void ConfigSm::handleInitialized() {
  TRACE(1, *this, "::handleInitialized");
  mark();
  defaultSessionConfigSm_ =
      make<DefaultSessionConfigSm>(mirroringConfig_->defaultSessionConfig(), mirroringHwConfig_->defaultSessionConfig(),
                                   mirroringStatus_);
  if (forwardingModelInputDir_) {
    forwardingModelSm_ = mirroringForwardingModelSmFactory(mirroringStatus_, forwardingModelInputDir_);
  }
  initialized_ = true;
  sessionIndex_.notifyIs(true);
  handleMaxSupportedSessions();
  handleEthIntfStatus();
  // LAG members present at start-up get their followers as if each had just been added.
  if (lagConfig_) {
    for (const auto& intf : lagConfig_->phyIntf.keys()) {
      phyIntf_[intf] = std::make_unique<PhyIntfReactor>(this, lagConfig_->phyIntf.get(intf));
    }
    handleLagPhyIntf();
  }
  sweep();
}

void ConfigSm::mark() {
  TRACE(2, "mark");
  // A hardware copy without a status is left over as much as a status is.
  for (const auto& name : mirroringStatus_->sessionStatus.keys()) staleSessionSm_.insert(name);
  for (const auto& name : mirroringHwConfig_->session.keys()) staleSessionSm_.insert(name);
  greTunnels_.mark();
}

void ConfigSm::sweep() {
  TRACE(2, "sweep");
  const bool sessionsSwept = !staleSessionSm_.empty();
  // What the swept statuses held may have kept configured sessions out.
  std::vector<std::tuple<std::string, std::string, bool>> released;
  for (const auto& name : std::vector<std::string>(staleSessionSm_.begin(), staleSessionSm_.end())) {
    if (auto status = mirroringStatus_->sessionStatus.get(name)) {
      for (const auto& [intf, s] : status->srcOperStatus) {
        if (s.isActive()) released.emplace_back(name, intf, false);
      }
      for (const auto& [intf, s] : status->targetOperStatus) {
        if (s.isActive()) released.emplace_back(name, intf, true);
      }
    }
    // The id an earlier run gave the session is free again.
    if (const int id = claimedId(name); id >= 0) globalSessionId_[uint8_t(id)].clear();
    mirroringStatus_->sessionStatusDel(name);
    mirroringHwConfig_->sessionDel(name);
    staleSessionSm_.erase(name);
  }
  greTunnels_.sweep();
  for (const auto& [name, intf, dest] : released) handleIntfClaimChanged(name, intf, dest);
  // Room the sweep freed goes to the sessions that waited for it.
  if (sessionsSwept) retryWaiting();
}

void ConfigSm::handleSession() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleSession");
  // A walk that frees room (a session or companion goes on the way) walks again once it is
  // done, instead of starting a second walk inside itself.
  if (walkingSessions_) {
    walkAgain_ = true;
    return;
  }
  walkingSessions_ = true;
  do {
    walkAgain_ = false;
    waiting_.clear();
    for (const auto& name : mirroringConfig_->session.keys()) handleSession(name);
    admitWaitingCompanions();
  } while (walkAgain_);
  walkingSessions_ = false;
}

// A companion that found no room waits, like a session, for room to be freed.
void ConfigSm::admitWaitingCompanions() {
  for (const auto& name : mirroringConfig_->session.keys()) {
    Ptr<SessionSm> sm = sessionSm(name);
    if (sm && sm->session()->dropGreTunnelKey().hasUsableDestination() && !companionSm(name)) {
      sm->handleDropGreTunnelKey();
    }
  }
}

uint32_t ConfigSm::sessionLimit() const {
  const uint32_t maxSessions = mirroringHwCapability_ ? mirroringHwCapability_->maxSupportedSessions() : 0;
  // Ids are 8 bits wide: 256 sessions at most, whatever the hardware says.
  return std::min<uint32_t>(maxSessions, 256);
}

bool ConfigSm::roomForSession(const std::string& name) const {
  const uint32_t limit = sessionLimit();
  // A session that already has a status may be rebuilt, as long as the running sessions leave
  // room (the limit may have shrunk while the agent was away); a new one needs a free status.
  if (sessionSm_.size() >= limit) return false;
  if (!mirroringStatus_->sessionStatus.contains(name) && mirroringStatus_->sessionStatus.size() >= limit) return false;
  // And an id: its own from an earlier run, or a free one.
  if (claimedId(name) >= 0) return true;
  for (const auto& [id, owner] : globalSessionId_) {
    if (id > idBound()) break;
    if (owner.empty()) return true;
  }
  return false;
}

uint32_t ConfigSm::idBound() const {
  const uint32_t maxSessions = mirroringHwCapability_ ? mirroringHwCapability_->maxSupportedSessions() : 0;
  return std::min<uint32_t>(maxSessions, 255);
}

// A restart gives a session whose id lies beyond the table the lowest free id, in the order it
// creates sessions (configuration order, a companion right after its session); a running
// agent does the same when the limit shrinks, so that hardware ids stay where the hardware
// has sessions, and a restart changes none.
void ConfigSm::renumberBeyondBound() {
  const uint32_t bound = idBound();
  for (const auto& name : mirroringConfig_->session.keys()) {
    for (const auto& smName : {name, fwdingDropSessionName(name)}) {
      Ptr<SessionSm> sm = sessionSm(smName);
      if (!sm || sm->sessionId() <= bound) continue;
      for (auto& [id, owner] : globalSessionId_) {
        if (id > bound) break;
        if (!owner.empty()) continue;
        globalSessionId_[sm->sessionId()].clear();
        owner = smName;
        sm->renumber(id);
        break;
      }
    }
  }
}

// The id an earlier run gave a session, as its hardware copy or else its status carries it,
// while the table keeps it for the session; else -1.
int ConfigSm::claimedId(const std::string& name) const {
  auto kept = [&](int32_t id) {
    auto it = id < 0 || id > 255 ? globalSessionId_.end() : globalSessionId_.find(uint8_t(id));
    return it != globalSessionId_.end() && it->second == name;
  };
  if (auto hw = mirroringHwConfig_->session.get(name); hw && kept(hw->sessionId())) return hw->sessionId();
  if (auto status = mirroringStatus_->sessionStatus.get(name); status && kept(status->sessionId())) {
    return status->sessionId();
  }
  return -1;
}

void ConfigSm::claimIds() {
  // Hardware copies first: theirs is the id the hardware was programmed with.
  auto claim = [&](const std::string& name, int32_t id) {
    if (id < 0 || id > 255) return;
    auto it = globalSessionId_.find(uint8_t(id));
    if (it != globalSessionId_.end() && it->second.empty()) it->second = name;
  };
  for (const auto& [name, hw] : mirroringHwConfig_->session) claim(name, hw->sessionId());
  for (const auto& [name, status] : mirroringStatus_->sessionStatus) {
    if (!mirroringHwConfig_->session.contains(name)) claim(name, status->sessionId());
  }
}

void ConfigSm::retryWaiting() {
  if (!waiting_.empty() && mirroringStatus_->sessionStatus.size() < sessionLimit()) handleSession();
}

void ConfigSm::refuseForRoom(const std::string& name) {
  const uint16_t maxSessions = mirroringHwCapability_ ? mirroringHwCapability_->maxSupportedSessions() : 0;
  TRACE(2, "Max sessions reached. Could not create SessionSm for ", name);
  if (maxSessions != 0) MIRRORING_NOSESSIONGROUPS(name, maxSessions);
  waiting_.insert(name);
}

void ConfigSm::companionDel(const std::string& name) {
  if (!sessionSm(name)) return;
  TRACE(2, "Deleting session ", name);
  sessionSmDel(name);
  mirroringStatus_->sessionStatusDel(name);
  retryWaiting();
}

void ConfigSm::handleSession(const std::string& name) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleSession", "( ", name, " )");
  Ptr<const Session> session = mirroringConfig_->session.get(name);
  sessionIndex_.sessionIs(name);
  if (session) {
    if (sessionSm(name)) return;
    if (!roomForSession(name)) {
      refuseForRoom(name);
      return;
    }
    waiting_.erase(name);
    TRACE(4, "Creating SessionSm for session ", name);
    Ptr<SessionStatus> status = mirroringStatus_->sessionStatusIs(name);
    Ptr<const Acl::AclTypeConfig> ipAcl, ip6Acl, macAcl;
    if (aclConfig_) {
      ipAcl = aclConfig_->config.get(Acl::aclTypeIp);
      ip6Acl = aclConfig_->config.get(Acl::aclTypeIpv6);
      macAcl = aclConfig_->config.get(Acl::aclTypeMac);
    }
    sessionSmIs(name, session, status, mirroringHwConfig_->defaultSessionConfig(), ipAcl, ip6Acl, macAcl, false);
    return;
  }
  TRACE(2, "Deleting SessionSm for session ", name);
  waiting_.erase(name);
  waiting_.erase(fwdingDropSessionName(name));
  const bool hadStatus = mirroringStatus_->sessionStatus.contains(name);
  deleteSession(name);
  // Its room (and its companion's) goes to whoever waits for it.
  if (hadStatus) retryWaiting();
}

void ConfigSm::deleteSession(const std::string& name) {
  const std::string companion = fwdingDropSessionName(name);
  if (sessionSm(companion)) {
    sessionSmDel(companion);
    mirroringStatus_->sessionStatusDel(companion);
  }
  if (sessionSm(name)) sessionSmDel(name);
  mirroringStatus_->sessionStatusDel(name);
}

Ptr<SessionSm> ConfigSm::sessionSm(const std::string& name) const {
  auto it = sessionSmByName_.find(name);
  return it == sessionSmByName_.end() ? Ptr<SessionSm>() : Ptr<SessionSm>(it->second);
}

Ptr<SessionSm> ConfigSm::companionSm(const std::string& parent) const {
  if (companions_ == 0) return nullptr;  // most switches have none: no name to build and look up
  companionName_.assign(kFwdingDropPrefix).append(parent);
  return sessionSm(companionName_);
}

Ptr<SessionSm> ConfigSm::sessionSmIs(const std::string& name, Ptr<const Session> session, Ptr<SessionStatus> status,
                                     Ptr<const DefaultSessionConfig> defaultSessionConfig,
                                     Ptr<const Acl::AclTypeConfig> aclConfig,
                                     Ptr<const Acl::AclTypeConfig> ip6AclConfig,
                                     Ptr<const Acl::AclTypeConfig> macAclConfig, bool forwardingDrop) {
  if (auto existing = sessionSm(name)) {
    if (existing->sameArguments(session, status, defaultSessionConfig, aclConfig, ip6AclConfig, macAclConfig,
                                forwardingDrop)) {
      return existing;
    }
    sessionSmDel(name);
  }
  auto sm = make<SessionSm>(name, session, status, defaultSessionConfig, aclConfig, ip6AclConfig, macAclConfig,
                            forwardingDrop, this);
  // Registered before it initialises: the rules look sessions up by name while it does.
  sessionSm_[name] = sm;
  sessionSmByName_[name] = sm.get();
  companions_ += forwardingDrop;
  ++sessionSmChanges_;
  sm->handleInitialized();
  return sm;
}

void ConfigSm::sessionSmDel(const std::string& name) {
  auto it = sessionSm_.find(name);
  if (it == sessionSm_.end()) return;
  Ptr<SessionSm> sm = it->second;
  sm->doPrepareToDie();
  companions_ -= sm->forwardingDrop();
  sessionSm_.erase(name);
  sessionSmByName_.erase(name);
  ++sessionSmChanges_;
}

uint8_t ConfigSm::allocGlobalSessionId(const std::string& name) {
  TRACE(1, *this, "::allocGlobalSessionId");
  // Reused only when the table kept it for this session: an id outside the table, or one
  // that another leftover claimed first, is stale.
  if (const int claimed = claimedId(name); claimed >= 0) {
    ++globalSessionIdCount_;
    TRACE(1, *this, "::allocGlobalSessionId", " reuse id:", claimed, " for session:", name);
    return uint8_t(claimed);
  }
  for (auto& [id, owner] : globalSessionId_) {
    if (id > idBound()) break;
    if (!owner.empty()) continue;
    owner = name;
    TRACE(1, *this, "::allocGlobalSessionId", " allocated id:", unsigned(id), " for session:", name);
    ++globalSessionIdCount_;
    return id;
  }
  PLATFORM_ASSERT(0 && "no global session available");
  return 0;
}

void ConfigSm::freeGlobalSessionId(const std::string& name, uint8_t id) {
  TRACE(1, *this, "::freeGlobalSessionId", " free id:", unsigned(id), " for session: ", name);
  globalSessionId_[id].clear();
  --globalSessionIdCount_;
}

void ConfigSm::handleMaxSupportedSessions() {
  PLATFORM_ASSERT(initialized());
  const uint16_t maxSessions = mirroringHwCapability_ ? mirroringHwCapability_->maxSupportedSessions() : 0;
  TRACE(1, *this, "::handleMaxSupportedSessions", ": maxSupportedSessions = ", maxSessions);
  const uint32_t limit = sessionLimit();
  if (limit < globalSessionIdCount_) {
    TRACE(1, "maxSupportedSessions decreased while global id in use");
    TRACE(1, "maxSupportedSessions ", maxSessions, " < freeGlobalSessions ", globalSessionIdCount_);
    uint32_t inUse = 0;
    const auto snapshot = globalSessionId_;
    for (const auto& [id, sessionName] : snapshot) {
      if (sessionName.empty()) continue;
      if (++inUse <= limit) continue;
      // A companion may have gone with its session already.
      if (!sessionSm(sessionName)) continue;
      TRACE(1, "Deleting session ", sessionName);
      deleteSession(sessionName);
      MIRRORING_NOSESSIONGROUPS(sessionName, maxSessions);
      // It stays configured, and takes the next room that is freed.
      waiting_.insert(sessionName);
    }
    PLATFORM_ASSERT(globalSessionIdCount_ <= limit);
    renumberBeyondBound();
    // A squeezed-out session took its companion with it, though the companion's id was kept:
    // that room goes to whoever waits.
    retryWaiting();
    return;
  }
  // One entry more than the limit admits; ids are 8 bits wide, so the table stops at 255.
  for (uint32_t id = 0; id <= std::min<uint32_t>(maxSessions, 255); ++id) globalSessionId_.try_emplace(uint8_t(id));
  // Ids that hardware copies and statuses carry are kept for their sessions; an id outside the
  // table, or one an earlier claim (in name order) holds already, is not.
  claimIds();
  renumberBeyondBound();
  handleSession();
}

// --- interfaces, LAGs and VRFs ---------------------------------------------------------------

void ConfigSm::handleEthIntfStatus(const platform::IntfId& intf) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleEthIntfStatus", "( ", intf, " )");
  auto it = ethIntfStatusSm_.find(intf);
  if (it != ethIntfStatusSm_.end()) {
    Ptr<EthIntfStatusSm> old = it->second;
    ethIntfStatusSm_.erase(it);
    old->doPrepareToDie();
  }
  Ptr<const Interface::EthIntfStatus> status = ethIntfStatusDir_ ? ethIntfStatusDir_->intfStatus.get(intf) : nullptr;
  if (!status) return;
  TRACE(2, "Creating EthIntfStatusSm for ", intf);
  Ptr<const Interface::EthPhyIntfStatus> phy =
      allEthPhyIntfStatusDir_ ? allEthPhyIntfStatusDir_->intfStatus.get(intf) : nullptr;
  auto sm = make<EthIntfStatusSm>(status, phy, this);
  ethIntfStatusSm_[intf] = sm;
  sm->handleInitialized();
}

void ConfigSm::handleEthIntfStatus() {
  PLATFORM_ASSERT(initialized());
  if (!ethIntfStatusDir_) return;
  for (const auto& intf : ethIntfStatusDir_->intfStatus.keys()) handleEthIntfStatus(intf);
}

void ConfigSm::handleLagPhyIntf(const platform::IntfId& intf) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleLagPhyIntf", "( ", intf, " )");
  Ptr<const Lag::EthPhyIntfLagConfig> entry = lagConfig_ ? lagConfig_->phyIntf.get(intf) : nullptr;
  if (!entry) {
    ethLagIntfSm_.erase(intf);
    return;
  }
  TRACE(2, "Creating EthLagIntfSm for ", intf);
  auto sm = make<EthLagIntfSm>(entry, this);
  ethLagIntfSm_[intf] = sm;
  sm->handleInitialized();
}

void ConfigSm::handleLagPhyIntf() {
  PLATFORM_ASSERT(initialized());
  if (!lagConfig_) return;
  for (const auto& intf : lagConfig_->phyIntf.keys()) handleLagPhyIntf(intf);
}

void ConfigSm::handleVrfStatus(const platform::VrfName& vrf) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleVrfStatus", "( ", vrf, " )");
  for (const auto& name : mirroringConfig_->session.keys()) {
    Ptr<const Session> session = mirroringConfig_->session.get(name);
    auto sm = sessionSm(name);
    if (!session || !sm) continue;
    auto companion = companionSm(name);
    if (session->greTunnelKey().vrf == vrf) {
      sm->handleGreTunnelKey();
      sm->handleDest();
      // The companion judges its parent's destinations by the parent's key as well.
      if (companion) companion->handleDest();
    }
    // The companion's own tunnel is its parent's drop key's.
    if (companion && session->dropGreTunnelKey().vrf == vrf) companion->handleDropGreTunnelKey();
  }
}

void ConfigSm::handleSourceDeactivation(const std::string& sessionName, const std::string& intfName) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleSourceDeactivation", "( ", intfName, " )");
  handleIntfClaimChanged(sessionName, intfName, false);
}

void ConfigSm::handleDestDeactivation(const std::string& sessionName, const std::string& intfName) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleDestDeactivation", "( ", intfName, " )");
  handleIntfClaimChanged(sessionName, intfName, true);
}

// Whether a session holds an interface, and in which direction, is what the other sessions'
// decisions about it read; so every one of them is taken again, destinations first, each in
// configuration order (a session before its companion). The first session that can take an
// interface let go of gets it, and the others see it taken. The changed decision itself is
// not taken again: its session is writing it.
void ConfigSm::handleIntfClaimChanged(const std::string& sessionName, const std::string& intfName, bool dest) {
  // Only the sessions that name the interface decide about it (a companion with its parent).
  auto each = [&](bool destPass, auto&& review) {
    const SessionNames names = destPass ? targetSessionsOf(intfName) : srcSessionsOf(intfName);
    auto visit = [&](const Ptr<SessionSm>& sm) {
      if (!sm || sm->dying() || (sm->name() == sessionName && destPass == dest)) return;
      review(*sm);
    };
    for (const auto& t : names) {
      visit(sessionSm(t));
      visit(companionSm(t));  // looked up after its parent's review, as the parent's may change it
    }
  };
  each(true, [&](SessionSm& sm) {
    if (!sm.session()->targetIntf.contains(intfName)) return;
    TRACE(2, "Checking if ", intfName, " is a destination in ", sm.name());
    const bool was = sm.activeDest().count(intfName) != 0;
    sm.reviewDest(intfName);
    if (!was && sm.activeDest().count(intfName)) TRACE(2, "Activated destination ", intfName, " in ", sm.name());
  });
  each(false, [&](SessionSm& sm) {
    if (!sm.session()->srcIntf.contains(intfName)) return;
    TRACE(2, "Checking if ", intfName, " is a source in ", sm.name());
    if (!TRACE.enabled(2)) return sm.reviewSource(intfName);
    const bool was = sm.sessionStatus()->srcOperStatus.get(intfName).isActive();
    sm.reviewSource(intfName);
    if (!was && sm.sessionStatus()->srcOperStatus.get(intfName).isActive()) {
      TRACE(2, "Activating source ", intfName, " in ", sm.name());
    }
  });
}

void ConfigSm::maybeUpdateSrcLagMemberState(const std::string& intfName) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::maybeUpdateSrcLagMemberState", "( ", intfName, " )");
  // A Port-Channel that starts or stops being a source changes what its members may be.
  const platform::IntfId intf(intfName);
  if (intf.isPortChannel()) reviewLagMembers(intfName);
  const platform::IntfId lag = lagOf(intfName);
  if (lag.empty() || !lagIntfStatusDir_ || !lagIntfStatusDir_->intfStatus.contains(lag)) {
    TRACE(2, "Can't find LagIntfStatus for ", intfName);
    return;
  }
  // The sessions that have the member or its LAG as a source, in configuration order.
  SessionNames names = srcSessionsOf(intfName);
  for (const auto& name : SessionNames(srcSessionsOf(lag.name()))) insertName(names, name);
  for (const auto& name : names) {
    auto session = mirroringConfig_->session.get(name);
    auto sm = sessionSm(name);
    auto status = mirroringStatus_->sessionStatus.get(name);
    if (!session || !sm || !status) continue;
    for (const std::string& src : {intfName, lag.name()}) {
      if (!session->srcIntf.contains(src)) continue;
      OperStatus newStatus = getSrcOperStatus(*this, session, src);
      OperStatus oldStatus = status->srcOperStatus.get(src);
      if (newStatus == oldStatus) continue;
      TRACE(2, "oldstatus:", oldStatus, " newstatus:", newStatus);
      sm->doUpdateSrcStatus(src, newStatus);
    }
  }
}

bool ConfigSm::isMirroringSrcPort(const std::string& intfName) const {
  TRACE(2, "isMirroringSrcPort", " Intf: ", intfName);
  return !srcSessionsOf(intfName).empty();
}

bool ConfigSm::isMirroringDestPort(const std::string& intfName) const {
  TRACE(2, "isMirroringDestPort", " Intf: ", intfName);
  return !targetSessionsOf(intfName).empty();
}

uint64_t ConfigSm::factGeneration() const {
  return db_->totalWrites() + activeIntfs_.changes() + lagMembers_.changes() + sessionIndex_.changes() +
         sessionSmChanges_;
}

OperStatus ConfigSm::srcIntfStatus(const std::string& intfName) const {
#ifndef MIRRORING_REFERENCE_WALK
  // Read again while tracing, so that the trace tells each reading.
  if (db_ && !TRACE.enabled(2)) {
    const uint64_t at = factGeneration();
    if (srcIntfAnswer_ && srcIntfAnswer_->at == at && srcIntfAnswer_->intf == intfName) return srcIntfAnswer_->status;
    OperStatus status = srcIntfOperStatus(*this, intfName);
    srcIntfAnswer_ = SrcIntfAnswer{intfName, at, status};
    return status;
  }
#endif
  return srcIntfOperStatus(*this, intfName);
}

// Each session deciding about a Port-Channel asks for its members to be reviewed, one after
// another; a review that changed nothing stands until something changes.
void ConfigSm::reviewLagMembers(const std::string& lag) {
  TRACE(2, "Reviewing the members of ", lag);
#ifndef MIRRORING_REFERENCE_WALK
  const uint64_t before = db_ ? factGeneration() : 0;
  auto last = lagReviewedAt_.find(lag);
  if (db_ && last != lagReviewedAt_.end() && last->second == before) return;
#endif
  const std::set<platform::IntfId> members = lagMembers_.membersOf(platform::IntfId(lag));
  for (const auto& member : members) reviewSourceIntfs(*this, member);
#ifndef MIRRORING_REFERENCE_WALK
  if (db_ && factGeneration() == before) lagReviewedAt_[lag] = before;
#endif
}

// Whatever rewrites a session's hardware copy before the session hears of a change to one of
// its sources' entries looks at that source too; the companion's copy has its parent's sources.
void ConfigSm::hwSourceStale(const std::string& sessionName, const std::string& intfName) {
  if (Ptr<SessionSm> sm = sessionSm(sessionName)) sm->hwSourceStale(intfName);
  if (Ptr<SessionSm> companion = companionSm(sessionName)) companion->hwSourceStale(intfName);
}

platform::IntfId ConfigSm::lagOf(const std::string& intfName) const { return lagMembers_.lagOf(intfName); }

}  // namespace Mirroring
