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

// Follows the sources and targets of one configured session, room or not, for the index.
struct ConfigSm::SessionConfigReactor {
  SessionConfigReactor(ConfigSm* sm, Ptr<const Session> s) : configSm(sm), session(std::move(s)) {
    reactor.on(session->srcIntf, [this](const std::string& intf) {
      configSm->indexIntf(session->name(), intf, false, session->srcIntf.contains(intf));
    });
    reactor.on(session->targetIntf, [this](const std::string& intf) {
      configSm->indexIntf(session->name(), intf, true, session->targetIntf.contains(intf));
    });
  }
  ConfigSm* configSm;
  Ptr<const Session> session;
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
      allEthPhyIntfStatusDir_(std::move(allEthPhyIntfStatusDir)) {
  PLATFORM_ASSERT(mirroringConfig_ && mirroringStatus_ && mirroringHwConfig_);
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
  sessionConfig_.clear();
  ethIntfStatusSm_.clear();
  ethLagIntfSm_.clear();
  phyIntf_.clear();
}

// --- session lifecycle -----------------------------------------------------------------------

void ConfigSm::handleInitialized() {
  TRACE(1, *this, "::handleInitialized");
  // The bitmap first: the tunnels an earlier run left stay taken until the sweep decides.
  greTunnelBitMap_.assign(kGreTunnelNumMax, false);
  mark();
  for (const auto& name : mirroringConfig_->session.keys()) indexSession(name);
  defaultSessionConfigSm_ =
      make<DefaultSessionConfigSm>(mirroringConfig_->defaultSessionConfig(), mirroringHwConfig_->defaultSessionConfig(),
                                   mirroringStatus_);
  if (forwardingModelInputDir_) {
    forwardingModelSm_ = mirroringForwardingModelSmFactory(mirroringStatus_, forwardingModelInputDir_);
  }
  initialized_ = true;
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
  // Every tunnel either map names; its number stays taken until a key claims the tunnel or the
  // sweep lets it go, so that no new key is given a tunnel that an old one still holds.
  for (const auto& intf : mirroringStatus_->greTunnelKey.keys()) staleGreTunnelKey_.insert(intf);
  for (const auto& [key, intf] : mirroringStatus_->greTunnelKeyToIntfId) staleGreTunnelKey_.insert(intf);
  for (const auto& intf : staleGreTunnelKey_) greTunnelNumberTake(intf);
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
  for (const auto& intf : std::vector<platform::IntfId>(staleGreTunnelKey_.begin(), staleGreTunnelKey_.end())) {
    mirroringStatus_->greTunnelKey.del(intf);
    if (greIntfUserCount(intf) == 0) {
      const uint32_t number = intf.greTunnelNumber();
      if (number >= 1 && number <= greTunnelBitMap_.size()) greTunnelBitMap_[number - 1] = false;
    }
    staleGreTunnelKey_.erase(intf);
  }
  // A key whose tunnel does not name it back is a leftover too (the two maps mirror each other).
  for (const auto& key : mirroringStatus_->greTunnelKeyToIntfId.keys()) {
    const platform::IntfId intf = mirroringStatus_->greTunnelKeyToIntfId.get(key);
    const GreTunnelKey* back = mirroringStatus_->greTunnelKey.find(intf);
    if (!back || !(*back == key)) mirroringStatus_->greTunnelKeyToIntfId.del(key);
  }
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
    if (sm && sm->session()->dropGreTunnelKey().hasUsableDestination() && !sessionSm(fwdingDropSessionName(name))) {
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
  indexSession(name);
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
  auto it = sessionSm_.find(name);
  return it == sessionSm_.end() ? Ptr<SessionSm>() : it->second;
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
  sm->handleInitialized();
  return sm;
}

void ConfigSm::sessionSmDel(const std::string& name) {
  auto it = sessionSm_.find(name);
  if (it == sessionSm_.end()) return;
  Ptr<SessionSm> sm = it->second;
  sm->doPrepareToDie();
  sessionSm_.erase(name);
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

// --- GRE tunnel interfaces -------------------------------------------------------------------

void ConfigSm::incGreIntfUserCount(const platform::IntfId& intf) {
  uint16_t c = greIntfUserCount(intf);
  TRACE(2, "Inc ", intf, " user cnt to ", c + 1);
  greIntfUserCnt_[intf] = uint16_t(c + 1);
}

void ConfigSm::decGreIntfUserCount(const platform::IntfId& intf) {
  auto it = greIntfUserCnt_.find(intf);
  const uint16_t userCnt = it == greIntfUserCnt_.end() ? 0 : it->second;
  PLATFORM_ASSERT(userCnt);
  TRACE(2, "Dec ", intf, " user cnt to ", userCnt - 1);
  it->second = uint16_t(userCnt - 1);
  if (it->second != 0) return;
  greIntfUserCnt_.erase(it);
  TRACE(2, "No more session user for ", intf, ". Deleting");
  GreTunnelKey key = mirroringStatus_->greTunnelKey.get(intf);
  mirroringStatus_->greTunnelKeyToIntfId.del(key);
  const uint32_t number = intf.greTunnelNumber();
  if (number >= 1 && number <= greTunnelBitMap_.size()) greTunnelBitMap_[number - 1] = false;
  mirroringStatus_->greTunnelKey.del(intf);
}

uint16_t ConfigSm::greIntfUserCount(const platform::IntfId& intf) const {
  auto it = greIntfUserCnt_.find(intf);
  return it == greIntfUserCnt_.end() ? 0 : it->second;
}

platform::IntfId ConfigSm::greTunnelOf(const GreTunnelKey& key) const {
  const platform::IntfId* intf = mirroringStatus_->greTunnelKeyToIntfId.find(key);
  if (!intf) return platform::IntfId();
  const uint32_t number = intf->greTunnelNumber();
  const GreTunnelKey* back = mirroringStatus_->greTunnelKey.find(*intf);
  if (!intf->isGreTunnel() || number < 1 || number > kGreTunnelNumMax || !back || !(*back == key)) {
    return platform::IntfId();
  }
  return *intf;
}

platform::IntfId ConfigSm::greTunnelIntfAlloc() {
  for (std::size_t i = 0; i < greTunnelBitMap_.size(); ++i) {
    if (greTunnelBitMap_[i]) continue;
    greTunnelBitMap_[i] = true;
    return platform::IntfId::greTunnel(uint32_t(i + 1));
  }
  TRACE(0, "No free GRE tunnel interface among ", greTunnelBitMap_.size());
  return platform::IntfId();
}

void ConfigSm::greTunnelNumberTake(const platform::IntfId& intf) {
  const uint32_t number = intf.greTunnelNumber();
  if (number >= 1 && number <= greTunnelBitMap_.size()) greTunnelBitMap_[number - 1] = true;
}

bool ConfigSm::greTunnelNumberTaken(uint32_t number) const {
  return number >= 1 && number <= greTunnelBitMap_.size() && greTunnelBitMap_[number - 1];
}

// --- capability ------------------------------------------------------------------------------

namespace {
std::vector<Ptr<SessionSm>> snapshot(const std::map<std::string, Ptr<SessionSm>>& sms) {
  std::vector<Ptr<SessionSm>> out;
  for (const auto& [name, sm] : sms) out.push_back(sm);
  return out;
}

bool capability(const Ptr<const HwCapability>& cap, bool (*read)(const HwCapability&)) {
  return cap && read(*cap);
}
}  // namespace

void ConfigSm::handleTruncationSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleTruncationSupported", ": truncationSupported = ",
        capability(mirroringHwCapability_, [](const HwCapability& c) { return c.truncationSupported(); }));
  // The hardware's default size stands in the hardware defaults, unless the operator
  // configured a default size; without the record the hardware default stays as it was.
  if (mirroringHwCapability_ && mirroringHwCapability_->truncationDefault()) {
    mirroringHwConfig_->defaultSessionConfig()->truncationSize.set(
        mirroringHwCapability_->truncationDefault()->truncationSize());
  }
  for (const auto& sm : snapshot(sessionSm_)) sm->handleTruncate();
}

void ConfigSm::handleHeaderRemovalSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleHeaderRemovalSupported", ": headerRemovalSupported = ",
        capability(mirroringHwCapability_, [](const HwCapability& c) { return c.headerRemovalSupported(); }));
  for (const auto& sm : snapshot(sessionSm_)) sm->handleHeaderRemoval();
}

namespace {
// Re-evaluates, in every session, the destinations that `pick` selects.
void reviewDests(const std::map<std::string, Ptr<SessionSm>>& sms, bool (*pick)(const std::string&)) {
  for (const auto& sm : snapshot(sms)) {
    for (const auto& dest : sm->session()->targetIntf.keys()) {
      if (pick(dest)) sm->handleDest(dest);
    }
  }
}
}  // namespace

void ConfigSm::handleCpuDestSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleCpuDestSupported", ": cpuDestSupported = ",
        capability(mirroringHwCapability_, [](const HwCapability& c) { return c.cpuDestSupported(); }));
  reviewDests(sessionSm_, [](const std::string& d) { return d == kCpuIntfName; });
}

void ConfigSm::handleLoopbackDestSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleLoopbackDestSupported", ": loopbackDestSupported = ",
        capability(mirroringHwCapability_, [](const HwCapability& c) { return c.loopbackDestSupported(); }));
  reviewDests(sessionSm_, [](const std::string& d) { return platform::IntfId(d).isLoopback(); });
}

void ConfigSm::handleLagDestSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleLagDestSupported", ": lagSupported = ",
        capability(mirroringHwCapability_, [](const HwCapability& c) { return c.lagDestSupported(); }));
  reviewDests(sessionSm_, [](const std::string& d) { return platform::IntfId(d).isPortChannel(); });
}

void ConfigSm::handleMultiDestSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleMultiDestSupported");
  for (const auto& sm : snapshot(sessionSm_)) sm->handleDest();
}

void ConfigSm::handleMultiSessionForDestSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleMultiSessionForDestSupported");
  for (const auto& sm : snapshot(sessionSm_)) sm->handleDest();
}

void ConfigSm::handleMultiSessionForSourceSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleMultiSessionForSourceSupported");
  for (const auto& sm : snapshot(sessionSm_)) sm->handleSource();
}

void ConfigSm::handleRxSamplingSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleRxSamplingSupported", ": rxSamplingSupported = ",
        capability(mirroringHwCapability_, [](const HwCapability& c) { return c.rxSamplingSupported(); }));
  for (const auto& sm : snapshot(sessionSm_)) sm->handleRxSampleRate();
}

void ConfigSm::handleSameIntfSrcAndDestSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleSameIntfSrcAndDestSupported", ": sameIntfSrcAndDestSupported = ",
        capability(mirroringHwCapability_, [](const HwCapability& c) { return c.sameIntfSrcAndDestSupported(); }));
  // Both rules read it: sources first, as an interface status change does.
  for (const auto& sm : snapshot(sessionSm_)) {
    sm->handleSource();
    sm->handleDest();
  }
}

void ConfigSm::handleTimestampWithTruncationSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleTimestampWithTruncationSupported", ": timestampWithTruncationSupported = ",
        capability(mirroringHwCapability_,
                   [](const HwCapability& c) { return c.timestampWithTruncationSupported(); }));
  // Nothing to program; hardware that stops keeping timestamps reports what truncates them.
  for (const auto& sm : snapshot(sessionSm_)) {
    if (sm->sessionStatus()->truncateOperStatus().isActive()) sm->checkTimestampMode();
  }
}

void ConfigSm::handleSrcAclSupported() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleSrcAclSupported", ": srcAclSupported = ",
        capability(mirroringHwCapability_, [](const HwCapability& c) { return c.srcAclSupported(); }));
  // Filters that waited for the next rewrite get it now.
  for (const auto& sm : snapshot(sessionSm_)) {
    bool filtered = false;
    for (const auto& [intf, src] : sm->session()->srcIntf) filtered = filtered || !src->srcAcl().empty();
    if (filtered) sm->doMaybeUpdateHwConfig();
  }
}

void ConfigSm::handleMirrorDeviceName(const std::string& name) {
  PLATFORM_ASSERT(initialized());
  TRACE(2, *this, "::handleMirrorDeviceName", "( ", name, " )");
  auto status = mirroringStatus_->sessionStatus.get(name);
  if (!status) return;
  // The device name is the hardware's when it published one, else none; written once so that
  // an unchanged name is no write at all.
  std::string device;
  if (mirroringHwStatus_) {
    if (const std::string* published = mirroringHwStatus_->mirrorDeviceName.find(name)) device = *published;
  }
  status->mirrorDeviceName.set(device);
}

void ConfigSm::handleMirrorDeviceName() {
  PLATFORM_ASSERT(initialized());
  for (const auto& sm : snapshot(sessionSm_)) handleMirrorDeviceName(sm->name());
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
    auto companion = sessionSm(fwdingDropSessionName(name));
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
  const std::vector<std::string> names = mirroringConfig_->session.keys();
  auto each = [&](bool destPass, auto&& review) {
    for (const auto& t : names) {
      for (const auto& smName : {t, fwdingDropSessionName(t)}) {
        Ptr<SessionSm> sm = sessionSm(smName);
        if (!sm || sm->dying() || (smName == sessionName && destPass == dest)) continue;
        review(*sm);
      }
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
  if (platform::IntfId(intfName).isPortChannel() && lagConfig_) {
    for (const auto& member : lagConfig_->phyIntf.keys()) {
      if (lagConfig_->phyIntf.get(member)->lag().name() == intfName) reviewSourceIntfs(*this, member);
    }
  }
  const platform::IntfId lag = lagOf(intfName);
  if (lag.empty() || !lagIntfStatusDir_ || !lagIntfStatusDir_->intfStatus.contains(lag)) {
    TRACE(2, "Can't find LagIntfStatus for ", intfName);
    return;
  }
  for (const auto& [name, session] : mirroringConfig_->session) {
    auto sm = sessionSm(name);
    auto status = mirroringStatus_->sessionStatus.get(name);
    if (!sm || !status) continue;
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
  return srcSessions_.count(intfName) != 0;
}

bool ConfigSm::isMirroringDestPort(const std::string& intfName) const {
  TRACE(2, "isMirroringDestPort", " Intf: ", intfName);
  return targetSessions_.count(intfName) != 0;
}

namespace {
const std::set<std::string> kNoSessions;
}

const std::set<std::string>& ConfigSm::srcSessionsOf(const std::string& intfName) const {
  auto it = srcSessions_.find(intfName);
  return it == srcSessions_.end() ? kNoSessions : it->second;
}

const std::set<std::string>& ConfigSm::targetSessionsOf(const std::string& intfName) const {
  auto it = targetSessions_.find(intfName);
  return it == targetSessions_.end() ? kNoSessions : it->second;
}

// The index follows every configured session, whether it found room or not: a Port-Channel
// that a waiting session names is a mirroring source all the same.
void ConfigSm::indexSession(const std::string& name) {
  Ptr<const Session> session = mirroringConfig_->session.get(name);
  auto it = sessionConfig_.find(name);
  if (it != sessionConfig_.end()) {
    if (it->second->session == session) return;
    std::unique_ptr<SessionConfigReactor> gone = std::move(it->second);
    sessionConfig_.erase(it);
    for (const auto& intf : gone->session->srcIntf.keys()) indexIntf(name, intf, false, false);
    for (const auto& intf : gone->session->targetIntf.keys()) indexIntf(name, intf, true, false);
  }
  if (!session) return;
  sessionConfig_[name] = std::make_unique<SessionConfigReactor>(this, session);
  for (const auto& intf : session->srcIntf.keys()) indexIntf(name, intf, false, true);
  for (const auto& intf : session->targetIntf.keys()) indexIntf(name, intf, true, true);
}

void ConfigSm::indexIntf(const std::string& session, const std::string& intf, bool target, bool present) {
  auto& index = target ? targetSessions_ : srcSessions_;
  auto it = index.find(intf);
  const bool was = it != index.end();
  if (present) {
    index[intf].insert(session);
  } else if (was) {
    it->second.erase(session);
    if (it->second.empty()) index.erase(it);
  }
  const bool now = index.count(intf) != 0;
  if (was != now && initialized_ && platform::IntfId(intf).isPortChannel()) reviewLagMembers(intf);
}

void ConfigSm::reviewLagMembers(const std::string& lag) {
  if (!lagConfig_) return;
  TRACE(2, "Reviewing the members of ", lag);
  for (const auto& [member, entry] : lagConfig_->phyIntf) {
    if (entry->lag().name() == lag) reviewSourceIntfs(*this, member);
  }
}

platform::IntfId ConfigSm::lagOf(const std::string& intfName) const {
  if (!lagConfig_) return platform::IntfId();
  auto entry = lagConfig_->phyIntf.get(platform::IntfId(intfName));
  return entry ? entry->lag() : platform::IntfId();
}

}  // namespace Mirroring
