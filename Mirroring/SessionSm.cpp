// One monitor session: the operational status of its sources and destinations, and its
// hardware copy while a destination is active.
#include <algorithm>
#include <cstdio>
#include <iterator>

#include "Mirroring/MirroringSm.h"
#include "platform/Assert.h"

namespace Mirroring {

std::ostream& operator<<(std::ostream& os, const SessionSm& sm) { return os << "Mirroring::SessionSm(" << sm.name() << ")"; }

SessionSm::SessionSm(const std::string& name, Ptr<const Session> session, Ptr<SessionStatus> sessionStatus,
                     Ptr<const DefaultSessionConfig> defaultSessionConfig, Ptr<const Acl::AclTypeConfig> aclConfig,
                     Ptr<const Acl::AclTypeConfig> ip6AclConfig, Ptr<const Acl::AclTypeConfig> macAclConfig,
                     bool forwardingDrop, ConfigSm* configSm)
    : name_(name),
      session_(std::move(session)),
      sessionStatus_(std::move(sessionStatus)),
      hwDefaultSessionConfig_(std::move(defaultSessionConfig)),
      aclConfig_(std::move(aclConfig)),
      ip6AclConfig_(std::move(ip6AclConfig)),
      macAclConfig_(std::move(macAclConfig)),
      forwardingDrop_(forwardingDrop),
      configSm_(configSm) {
  PLATFORM_ASSERT(session_ && sessionStatus_ && configSm_);
  reactor_.on(session_->srcIntf, [this](const std::string& n) { handleSource(n); });
  reactor_.on(session_->targetIntf, [this](const std::string& n) { handleDest(n); });
  reactor_.on(session_->greTunnelKey, [this] { handleGreTunnelKey(); });
  reactor_.on(session_->dropGreTunnelKey, [this] { handleDropGreTunnelKey(); });
  reactor_.on(session_->truncate, [this] { handleTruncate(); });
  reactor_.on(session_->truncationSize, [this] { handleTruncationSize(); });
  reactor_.on(session_->headerRemovalSize, [this] { handleHeaderRemoval(); });
  reactor_.on(session_->rxSampleRate, [this] { handleRxSampleRate(); });
  reactor_.on(session_->grePayloadType, [this] { handleGrePayloadType(); });
  reactor_.on(session_->greMetadata, [this](MetadataElementType) { handleGreMetadata(); });
  reactor_.on(session_->greTimestampingEnabled, [this] { handleGreTimestampingEnabled(); });
  reactor_.on(session_->portMirroringDisabled, [this] { handlePortMirroringDisabled(); });
  reactor_.on(session_->mirrorRateLimitInBps, [this] { handleMirrorRateLimit(); });
  reactor_.on(session_->mirrorRateLimitChip, [this] { handleMirrorRateLimit(); });
  reactor_.on(session_->txGreMetadataEnabled, [this] { handleTxGreMetadataEnabled(); });
  reactor_.on(session_->secureMonitor, [this] { handleSecureMonitor(); });
  reactor_.on(session_->isInternal, [this] { handleIsInternalOrOwner(); });
  reactor_.on(session_->owner, [this] { handleIsInternalOrOwner(); });
  // The hardware default payload type stands in for a session that leaves it unset.
  if (hwDefaultSessionConfig_) reactor_.on(hwDefaultSessionConfig_->grePayloadType, [this] { handleGrePayloadType(); });
}

SessionSm::~SessionSm() = default;

void SessionSm::detach() {
  reactor_.detachAll();
  srcIntfSm_.clear();
}

bool SessionSm::sameArguments(const Ptr<const Session>& session, const Ptr<SessionStatus>& status,
                              const Ptr<const DefaultSessionConfig>& defaultSessionConfig,
                              const Ptr<const Acl::AclTypeConfig>& aclConfig,
                              const Ptr<const Acl::AclTypeConfig>& ip6AclConfig,
                              const Ptr<const Acl::AclTypeConfig>& macAclConfig, bool forwardingDrop) const {
  return session == session_ && status == sessionStatus_ && defaultSessionConfig == hwDefaultSessionConfig_ &&
         aclConfig == aclConfig_ && ip6AclConfig == ip6AclConfig_ && macAclConfig == macAclConfig_ &&
         forwardingDrop == forwardingDrop_;
}

const HwCapability* SessionSm::capability() const { return configSm_->mirroringHwCapability().get(); }

// --- start-up and reconciliation -------------------------------------------------------------

void SessionSm::handleInitialized() {
  TRACE(1, *this, "::handleInitialized");
  initialized_ = true;
  sessionId_ = configSm_->allocGlobalSessionId(name_);
  sessionStatus_->sessionId.set(sessionId_);
  // A status an earlier run left with no device name is one whose hardware withdrew the name
  // it had published: it stays without one, as it would have without the restart.
  const bool withdrawn =
      configSm_->staleSessionSmHas(name_) && sessionStatus_->mirrorDeviceName().empty() && !publishedDeviceName();
  if (!withdrawn) writeDeviceName();
  mark();
  // The destinations an earlier run published as active keep their places: on hardware with
  // one destination per session the destination that won must not be challenged again by one
  // evaluated before it.
  for (const auto& [dest, status] : sessionStatus_->targetOperStatus) {
    if (status.isActive() && session_->targetIntf.contains(dest)) activeDest_.insert(dest);
  }
  handleSource();
  handleDest();
  handleTruncate();
  handleTruncationSize();
  handleHeaderRemoval();
  handleRxSampleRate();
  handleGreTunnelKey();
  handleDropGreTunnelKey();
  handleGrePayloadType();
  handleGreMetadata();
  handleGreTimestampingEnabled();
  handlePortMirroringDisabled();
  handleMirrorRateLimit();
  handleTxGreMetadataEnabled();
  sweep();
  configSm_->staleSessionSmDel(name_);
}

const std::string* SessionSm::publishedDeviceName() const {
  const auto& hwStatus = configSm_->mirroringHwStatus();
  return hwStatus ? hwStatus->mirrorDeviceName.find(name_) : nullptr;
}

void SessionSm::writeDeviceName() {
  if (const std::string* published = publishedDeviceName()) {
    sessionStatus_->mirrorDeviceName.set(*published);
    return;
  }
  char device[32];
  std::snprintf(device, sizeof device, "mirror%d", int(sessionId_));
  sessionStatus_->mirrorDeviceName.set(device);
}

void SessionSm::renumber(uint8_t id) {
  TRACE(2, *this, " takes id ", unsigned(id), " instead of ", unsigned(sessionId_));
  const bool ownName = !publishedDeviceName() && !sessionStatus_->mirrorDeviceName().empty();
  sessionId_ = id;
  sessionStatus_->sessionId.set(id);
  if (ownName) writeDeviceName();
  doMaybeUpdateHwConfig();
}

void SessionSm::mark() {
  TRACE(2, *this, "::mark");
  for (const auto& n : sessionStatus_->srcOperStatus.keys()) staleSrcOperStatus_.insert(n);
  for (const auto& n : sessionStatus_->targetOperStatus.keys()) staleTargetOperStatus_.insert(n);
  if (auto hw = configSm_->mirroringHwConfig()->session.get(name_)) {
    for (const auto& n : hw->srcIntf.keys()) staleSrcIntfInHwConfig_.insert(n);
    for (const auto& n : hw->targetIntf.keys()) staleTargetIntfInHwConfig_.insert(n);
  }
}

void SessionSm::sweep() {
  TRACE(2, *this, "::sweep");
  // A claim an earlier run left and nothing confirmed may have kept another session out.
  std::vector<std::pair<std::string, bool>> released;
  for (const auto& n : staleSrcOperStatus_) {
    if (sessionStatus_->srcOperStatus.get(n).isActive()) released.emplace_back(n, false);
    sessionStatus_->srcOperStatus.del(n);
    ipv6RefusedIs(n, OperStatus());
  }
  for (const auto& n : staleTargetOperStatus_) {
    if (sessionStatus_->targetOperStatus.get(n).isActive()) released.emplace_back(n, true);
    sessionStatus_->targetOperStatus.del(n);
  }
  if (auto hw = configSm_->mirroringHwConfig()->session.get(name_)) {
    for (const auto& n : staleSrcIntfInHwConfig_) hw->srcIntf.del(n);
    for (const auto& n : staleTargetIntfInHwConfig_) hw->targetIntf.del(n);
  }
  staleSrcOperStatus_.clear();
  staleTargetOperStatus_.clear();
  staleSrcIntfInHwConfig_.clear();
  staleTargetIntfInHwConfig_.clear();
  if (released.empty()) return;
  doMaybeUpdateHwConfig();
  if (forwardingDrop_) return;
  for (const auto& [intf, dest] : released) configSm_->handleIntfClaimChanged(name_, intf, dest);
}

// --- sources ---------------------------------------------------------------------------------

void SessionSm::handleSource() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleSource");
  for (const auto& n : session_->srcIntf.keys()) handleSource(n);
}

void SessionSm::handleSource(const std::string& name) {
  PLATFORM_ASSERT(initialized());
  if (dying_) return;  // a session going away decides nothing more
  TRACE(1, *this, "::handleSource", "( ", name, " )");
  OperStatus status;
  if (auto src = session_->srcIntf.get(name)) {
    TRACE(2, "Source ", name, " exists in session ", name_);
    if (!srcIntfSm_.count(name)) {
      auto sm = make<SourceIntfSm>(src, configSm_->mirroringConfig(), aclConfig_, ip6AclConfig_, macAclConfig_, this);
      srcIntfSm_[name] = sm;
      sm->handleInitialized();
    }
    status = getSrcOperStatus(*configSm_, session_, name);
  } else {
    TRACE(2, "Source ", name, " removed from session ", name_);
    srcIntfSm_.erase(name);
  }
  doUpdateSrcStatus(name, status);
  configSm_->maybeUpdateSrcLagMemberState(name);
}

void SessionSm::reviewSource(const std::string& name) {
  PLATFORM_ASSERT(initialized());
  if (!session_->srcIntf.contains(name)) return;
  const OperStatus computed = srcStatusFor(name, getSrcOperStatus(*configSm_, session_, name));
  if (computed != sessionStatus_->srcOperStatus.get(name)) handleSource(name);
}

OperStatus SessionSm::srcStatusFor(const std::string& name, OperStatus computed) const {
  if (computed.isActive() && ipv6AclTaken(name)) return OperStatus::inactive(reason::multipleIpv6Acls);
  return computed;
}

bool SessionSm::ipv6AclTaken(const std::string& src) const {
  auto hasIpv6Acl = [](const Ptr<const SrcIntf>& entry) {
    return entry && !entry->srcAcl().empty() && entry->aclType() == Acl::aclTypeIpv6;
  };
  if (!hasIpv6Acl(session_->srcIntf.get(src))) return false;
  for (const auto& [other, entry] : session_->srcIntf) {
    if (other == src) return false;  // only sources before this one count
    if (hasIpv6Acl(entry) && sessionStatus_->srcOperStatus.get(other).isActive()) return true;
  }
  return false;
}

bool SessionSm::reviewIpv6AclSources() {
  // One pass in interface order over the sources the rule can change: whether an earlier source
  // holds the session's IPv6 ACL is carried along. A source neither filtering with an IPv6 ACL
  // nor refused by the rule neither holds the ACL nor changes here.
  bool held = false;
  for (const auto& src : ipv6AclCandidates()) {
    Ptr<const SrcIntf> entry = session_->srcIntf.get(src);
    if (!entry) continue;
    const OperStatus published = sessionStatus_->srcOperStatus.get(src);
    const bool ipv6 = !entry->srcAcl().empty() && entry->aclType() == Acl::aclTypeIpv6;
    const bool taken = ipv6 && held;
    if (published.isActive() && taken) {
      TRACE(2, "Session ", name_, " source ", src, ": the session's IPv6 mirroring ACL is taken");
      doUpdateSrcStatus(src, OperStatus::inactive(reason::multipleIpv6Acls));
      return true;
    }
    if (!taken && published.state == OperState::inactive && published.reason == reason::multipleIpv6Acls) {
      // The source that held the session's IPv6 ACL let go of it (or this one no longer
      // filters with one): judged again by the ordinary rules.
      TRACE(2, "Session ", name_, " source ", src, ": the session's IPv6 mirroring ACL is free");
      doUpdateSrcStatus(src, getSrcOperStatus(*configSm_, session_, src));
      return true;
    }
    held = held || (ipv6 && published.isActive());
  }
  return false;
}

std::vector<std::string> SessionSm::ipv6AclCandidates() {
#ifdef MIRRORING_REFERENCE_WALK
  // The reference the differential check compares with: every source, every time.
  return session_->srcIntf.keys();
#endif
  // The configuration's sources are counted again when anything in its mount was written since.
  const platform::Mount* mount = session_->mount();
  if (!mount || ipv6SourcesAt_ != mount->writes()) {
    ipv6Sources_.clear();
    for (const auto& [src, entry] : session_->srcIntf) {
      if (!entry->srcAcl().empty() && entry->aclType() == Acl::aclTypeIpv6) ipv6Sources_.push_back(src);
    }
    ipv6SourcesAt_ = mount ? std::optional<uint64_t>(mount->writes()) : std::nullopt;
  }
  if (!ipv6Refused_) {
    ipv6Refused_.emplace();
    for (const auto& [src, status] : sessionStatus_->srcOperStatus) ipv6RefusedIs(src, status);
  }
  std::vector<std::string> candidates;
  std::set_union(ipv6Sources_.begin(), ipv6Sources_.end(), ipv6Refused_->begin(), ipv6Refused_->end(),
                 std::back_inserter(candidates));
  return candidates;
}

void SessionSm::ipv6RefusedIs(const std::string& name, const OperStatus& status) {
  if (!ipv6Refused_) return;  // read from the statuses when first needed
  if (status.state == OperState::inactive && status.reason == reason::multipleIpv6Acls) {
    ipv6Refused_->insert(name);
  } else {
    ipv6Refused_->erase(name);
  }
}

void SessionSm::doUpdateSrcStatus(const std::string& name, const OperStatus& requested) {
  if (dying_) return;
  const OperStatus status = srcStatusFor(name, requested);
  TRACE(2, *this, " source ", name, " status ", status);
  const bool wasActive = sessionStatus_->srcOperStatus.get(name).isActive();
  if (status.state != OperState::unknown) {
    sessionStatus_->srcOperStatus.set(name, status);
  } else {
    sessionStatus_->srcOperStatus.del(name);
  }
  ipv6RefusedIs(name, status);
  staleSrcOperStatus_.erase(name);
  doMaybeUpdateHwConfig(HwScope::oneSource, name);
  // Another session may have been refused the interface, or be holding it as a destination.
  if (wasActive != status.isActive() && !forwardingDrop_ && !dying_) {
    configSm_->handleIntfClaimChanged(name_, name, false);
  }
}

bool SessionSm::hasActiveSource() const {
  for (const auto& [n, s] : sessionStatus_->srcOperStatus) {
    if (s.isActive()) return true;
  }
  return false;
}

// --- destinations ----------------------------------------------------------------------------

void SessionSm::handleDest() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleDest");
  for (const auto& n : session_->targetIntf.keys()) handleDest(n);
}

void SessionSm::handleDest(const std::string& name) {
  PLATFORM_ASSERT(initialized());
  if (dying_) return;  // a session going away decides nothing more
  TRACE(1, *this, "::handleDest", "( ", name, " )");
  const bool wasActive = sessionStatus_->targetOperStatus.get(name).isActive();
  const bool configured = session_->targetIntf.contains(name);
  const OperStatus status = destStatus(name);
  doUpdateDestStatus(name, status);
  const platform::IntfId intf(name);
  if (name == kCpuIntfName || intf.isLoopback()) return;
  // A GRE destination decides which sources may stay (receive only).
  if (intf.isGreTunnel()) handleSource();
  const HwCapability* cap = capability();
  if (configured && (!wasActive || status.isActive()) && !(cap && cap->timestampWithTruncationSupported())) {
    auto ethDir = configSm_->ethIntfStatusDir();
    checkIntfTimestampModeAndLog(*configSm_, ethDir ? ethDir->intfStatus.get(intf) : nullptr, intf, name_);
  }
  configSm_->maybeUpdateSrcLagMemberState(name);
}

void SessionSm::activeDestIs(const std::string& name) {
  if (activeDest_.insert(name).second) handleActiveDest();
}

void SessionSm::activeDestDel(const std::string& name) {
  if (activeDest_.erase(name)) handleActiveDest();
}

void SessionSm::writeDestStatus(const std::string& name, const OperStatus& status) {
  // Only the destinations the session names hold its places; a resolved tunnel stands in for
  // a named one.
  if (status.isActive() && session_->targetIntf.contains(name)) {
    activeDestIs(name);
  } else {
    activeDestDel(name);
  }
  if (status.state != OperState::unknown) {
    TRACE(4, *this, " targetOperStatusIs ", name, " ", status);
    sessionStatus_->targetOperStatus.set(name, status);
  } else {
    sessionStatus_->targetOperStatus.del(name);
  }
  staleTargetOperStatus_.erase(name);
}

void SessionSm::doUpdateDestStatus(const std::string& name, const OperStatus& status) {
  if (dying_) return;
  const bool wasActive = sessionStatus_->targetOperStatus.get(name).isActive();
  writeDestStatus(name, status);
  doMaybeUpdateHwConfig(HwScope::settings);  // the sources do not read the destinations
  if (wasActive == status.isActive() || dying_) return;
  redecideRefusedDests(name);
  if (forwardingDrop_) return;
  // The companion's one-port rule counts this session's active destinations.
  Ptr<SessionSm> companion = configSm_->companionSm(name_);
  if (companion && companion->initialized()) {
    for (const auto& dest : companion->session_->targetIntf.keys()) companion->reviewDest(dest);
  }
  // Another session may have been refused the interface, or be holding it as a source.
  configSm_->handleIntfClaimChanged(name_, name, true);
}

void SessionSm::redecideRefusedDests(const std::string& changed) {
  const HwCapability* cap = capability();
  if (cap && cap->multiDestSupported()) return;
  for (const auto& dest : session_->targetIntf.keys()) {
    const OperStatus published = sessionStatus_->targetOperStatus.get(dest);
    if (dest == changed || published.state != OperState::inactive) continue;
    if (destStatus(dest) == published) continue;
    TRACE(4, (changed == kCpuIntfName ? "CPU " : ""), "Deciding again on ", dest, " after ", changed);
    handleDest(dest);
  }
}

void SessionSm::reviewDest(const std::string& name) {
  PLATFORM_ASSERT(initialized());
  if (!session_->targetIntf.contains(name)) return;
  if (destStatus(name) != sessionStatus_->targetOperStatus.get(name)) handleDest(name);
}

OperStatus SessionSm::destStatus(const std::string& name) const {
  const platform::IntfId intf(name);
  // A tunnel this session resolves its key to keeps its status while no longer named.
  if (!session_->targetIntf.contains(name)) return tunnelStatus(intf);
  if (!intf.isGreTunnel()) return getDestOperStatus(*configSm_, session_, name);
  // A named tunnel stands for the one the session's own key resolves to (the drop key's, for a
  // companion): without a key that has a destination address there is nothing to decide on
  // yet; with one, it is judged by that key's VRF.
  const GreTunnelKey& key = forwardingDrop_ ? session_->dropGreTunnelKey() : session_->greTunnelKey();
  if (!key.hasUsableDestination() && intf != resolvedGreIntf()) return OperStatus();
  return greDestOperStatus(*configSm_, key.vrf);
}

void SessionSm::handleActiveDest() {
  sessionStatus_->multiDestActive.set(activeDest_.size() >= 2);
  bool any = activeDest_.size() >= 2;
  if (!any) {
    for (const auto& [n, sm] : configSm_->sessionSms()) {
      if (sm->activeDest().size() > 1) {
        any = true;
        break;
      }
    }
  }
  configSm_->mirroringStatus()->multiDestActive.set(any);
}

bool SessionSm::hasActiveDestination() const {
  for (const auto& [n, s] : sessionStatus_->targetOperStatus) {
    if (s.isActive()) return true;
  }
  return false;
}

// --- GRE tunnels -----------------------------------------------------------------------------

platform::IntfId SessionSm::resolvedGreIntf() const {
  const GreTunnelKey& key = forwardingDrop_ ? session_->dropGreTunnelKey() : session_->greTunnelKey();
  if (!key.hasUsableDestination()) return platform::IntfId();
  return configSm_->greTunnelOf(key);
}

std::string SessionSm::resolveGreTargetIntf(const std::string&) const { return resolvedGreIntf().name(); }

OperStatus SessionSm::tunnelStatus(const platform::IntfId& tunnel) const {
  if (tunnel.empty()) return OperStatus();
  if (tunnel != resolvedGreIntf()) {
    return session_->targetIntf.contains(tunnel.name()) ? destStatus(tunnel.name()) : OperStatus();
  }
  const GreTunnelKey& key = forwardingDrop_ ? session_->dropGreTunnelKey() : session_->greTunnelKey();
  return greDestOperStatus(*configSm_, key.vrf);
}

void SessionSm::writeTunnelStatus(const platform::IntfId& tunnel) {
  if (!tunnel.empty()) writeDestStatus(tunnel.name(), tunnelStatus(tunnel));
}

void SessionSm::handleGreTunnelKey() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleGreTunnelKey");
  // The companion's tunnel is its parent's drop key's; the key only tells it the VRF its
  // parent's destinations are judged by.
  if (forwardingDrop_) {
    doMaybeUpdateHwConfig();  // its hardware copy carries its parent's key
    return;
  }
  platform::IntfId intf = handleGreTunnelKeyToIntfId(prevGreIntfId_, session_->greTunnelKey());
  prevGreIntfId_ = intf;
  updateHwConfigTargetIntf(intf, false);
  handleDest();
  // The hardware copy carries the key itself.
  doMaybeUpdateHwConfig();
}

void SessionSm::handleDropGreTunnelKey() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleDropGreTunnelKey");
  if (forwardingDrop_) {
    // The companion publishes its tunnel's status and sends to it; the parent counts it.
    const platform::IntfId tunnel = resolvedGreIntf();
    const platform::IntfId old = prevDropGreIntfId_;
    prevDropGreIntfId_ = tunnel;
    writeTunnelStatus(tunnel);
    if (old != tunnel) writeTunnelStatus(old);
    doMaybeUpdateHwConfig();
    handleDest();  // its GRE targets stand for this tunnel
    return;
  }
  prevDropGreIntfId_ = handleGreTunnelKeyToIntfId(prevDropGreIntfId_, session_->dropGreTunnelKey());
  doMaybeUpdateHwConfig();  // the hardware copy carries the drop key too
  const std::string companion = fwdingDropSessionName(name_);
  if (session_->dropGreTunnelKey().hasUsableDestination()) {
    if (!configSm_->sessionSm(companion)) {
      // The companion is a session of its own: without room it is refused as a session is.
      if (!configSm_->roomForSession(companion)) {
        configSm_->refuseForRoom(companion);
        return;
      }
      TRACE(2, "Creating session ", companion);
      configSm_->sessionSmIs(companion, session_, configSm_->mirroringStatus()->sessionStatusIs(companion),
                             hwDefaultSessionConfig_, aclConfig_, ip6AclConfig_, macAclConfig_, true);
    }
  } else {
    configSm_->companionDel(companion);
  }
}

platform::IntfId SessionSm::handleGreTunnelKeyToIntfId(const platform::IntfId& prev, const GreTunnelKey& key) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleGreTunnelKeyToIntfId", " session ", name_, " prev ", prev, " key ", key);
  auto status = configSm_->mirroringStatus();
  // The session holds `prev` (counted once) until it lets go of it here.
  bool held = !prev.empty() && configSm_->greIntfUserCount(prev) != 0;
  if (!key.hasUsableDestination()) {
    TRACE(2, "Existing target intf is : ", prev);
    if (held && prev.isGreTunnel() && !(status->greTunnelKey.get(prev) == key)) {
      configSm_->decGreIntfUserCount(prev);
      writeTunnelStatus(prev);
      doMaybeUpdateHwConfig();
    }
    return platform::IntfId();
  }
  platform::IntfId id = configSm_->greTunnelOf(key);
  if (held && id != prev) {
    TRACE(2, "Deleting existing gre tunnel ", prev, " from ", name_);
    configSm_->decGreIntfUserCount(prev);
    held = false;
  }
  if (id.empty()) {
    // A key the maps do not agree on gets a tunnel of its own; the leftover goes in the sweep.
    if (const platform::IntfId* mapped = status->greTunnelKeyToIntfId.find(key)) TRACE(0, "Invalid greIntfId ", *mapped);
    id = configSm_->greTunnelIntfAlloc();
    if (id.empty()) {
      writeTunnelStatus(prev);
      doMaybeUpdateHwConfig();
      return id;
    }
    TRACE(2, "Creating new greIntfId ", id);
    status->greTunnelKeyToIntfId.set(key, id);
    status->greTunnelKey.set(id, key);
  } else {
    TRACE(2, "Restoring greIntfId ", id);
    configSm_->greTunnelNumberTake(id);
  }
  // A session counts once per tunnel it holds, however often its key is resolved again; a new
  // tunnel under the name just let go of is a new hold.
  if (!held) configSm_->incGreIntfUserCount(id);
  configSm_->staleGreTunnelKeyDel(id);
  // The statuses of both tunnels, and then the hardware copy, in one go: the copy never sees
  // the session between the two.
  writeTunnelStatus(id);
  if (prev != id) writeTunnelStatus(prev);
  doMaybeUpdateHwConfig();
  return id;
}

// The tunnel is in the hardware copy exactly while its status is active there.
void SessionSm::updateHwConfigTargetIntf(const platform::IntfId& intf, bool drop) {
  const GreTunnelKey& key = drop ? session_->dropGreTunnelKey() : session_->greTunnelKey();
  auto hw = configSm_->mirroringHwConfig()->session.get(name_);
  if (!hw || intf.empty()) return;  // written with the rest when the session gets its hardware copy
  if (key.hasUsableDestination() && sessionStatus_->targetOperStatus.get(intf.name()).isActive()) {
    if (!hw->targetIntf.contains(intf.name())) {
      hw->targetIntfIs(intf.name());
      TRACE(2, "Session: ", name_, " adding targetIntf ", intf, " targetIntfs: ", hw->targetIntf.size());
    }
    staleTargetIntfInHwConfig_.erase(intf.name());
  } else if (hw->targetIntf.contains(intf.name())) {
    TRACE(2, "Deleting interface: ", intf);
    hw->targetIntfDel(intf.name());
  }
}

// --- options ---------------------------------------------------------------------------------

void SessionSm::handleTruncate() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleTruncate");
  TRACE(2, "Computing operStatus for truncate in session ", name_);
  const HwCapability* cap = capability();
  OperStatus status;
  if (!session_->truncate()) {
    status = OperStatus::inactive(reason::notConfigured);
  } else if (cap && cap->truncationSupported()) {
    status = OperStatus::active();
  } else {
    status = OperStatus::inactive(reason::notSupported);
  }
  sessionStatus_->truncateOperStatus.set(status);
  doMaybeUpdateHwConfig(HwScope::settings);
  checkTimestampMode();
}

void SessionSm::checkTimestampMode() {
  PLATFORM_ASSERT(initialized());
  const HwCapability* cap = capability();
  if (cap && cap->timestampWithTruncationSupported()) return;
  auto ethDir = configSm_->ethIntfStatusDir();
  for (const auto& dest : session_->targetIntf.keys()) {
    const platform::IntfId intf(dest);
    checkIntfTimestampModeAndLog(*configSm_, ethDir ? ethDir->intfStatus.get(intf) : nullptr, intf, name_);
  }
}

void SessionSm::doRefreshSrcAcl(const std::string& src) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::doRefreshSrcAcl", "( ", src, " )");
  srcAclRefresh_.insert(src);
  doMaybeUpdateHwConfig();
}

#define MIRRORING_OPTION_HANDLER(handler)   \
  void SessionSm::handler() {               \
    if (!initialized_) return;              \
    TRACE(1, *this, "::" #handler);         \
    doMaybeUpdateHwConfig(HwScope::settings); \
  }
MIRRORING_OPTION_HANDLER(handleTruncationSize)
MIRRORING_OPTION_HANDLER(handleHeaderRemoval)
MIRRORING_OPTION_HANDLER(handleGrePayloadType)
MIRRORING_OPTION_HANDLER(handleGreMetadata)
MIRRORING_OPTION_HANDLER(handleGreTimestampingEnabled)
MIRRORING_OPTION_HANDLER(handlePortMirroringDisabled)
MIRRORING_OPTION_HANDLER(handleTxGreMetadataEnabled)
#undef MIRRORING_OPTION_HANDLER

#define MIRRORING_CHECKED_OPTION_HANDLER(handler) \
  void SessionSm::handler() {                     \
    PLATFORM_ASSERT(initialized());               \
    TRACE(1, *this, "::" #handler);               \
    doMaybeUpdateHwConfig(HwScope::settings);     \
  }
MIRRORING_CHECKED_OPTION_HANDLER(handleRxSampleRate)
MIRRORING_CHECKED_OPTION_HANDLER(handleMirrorRateLimit)
MIRRORING_CHECKED_OPTION_HANDLER(handleSecureMonitor)
MIRRORING_CHECKED_OPTION_HANDLER(handleIsInternalOrOwner)
#undef MIRRORING_CHECKED_OPTION_HANDLER

// --- tear-down -------------------------------------------------------------------------------

void SessionSm::doPrepareToDie() {
  TRACE(1, *this, "::doPrepareToDie");
  if (!initialized_) return;
  // From here on the session takes part in no decision, and has no hardware copy.
  dying_ = true;
  configSm_->sessionSmChanged();
  if (!forwardingDrop_) {
    handleGreTunnelKeyToIntfId(prevGreIntfId_, GreTunnelKey{});
    handleGreTunnelKeyToIntfId(prevDropGreIntfId_, GreTunnelKey{});
    prevGreIntfId_ = prevDropGreIntfId_ = platform::IntfId();
  }
  configSm_->mirroringHwConfig()->sessionDel(name_);
  // Withdraw this session's claims first, so the sessions that lost a conflict to it can win.
  std::vector<std::string> activeDests(activeDest_.begin(), activeDest_.end());
  std::vector<std::pair<std::string, bool>> sources;
  for (const auto& [n, s] : sessionStatus_->srcOperStatus) sources.emplace_back(n, s.isActive());
  reactor_.detachAll();
  srcIntfSm_.clear();
  for (const auto& n : sessionStatus_->srcOperStatus.keys()) sessionStatus_->srcOperStatus.del(n);
  for (const auto& n : sessionStatus_->targetOperStatus.keys()) sessionStatus_->targetOperStatus.del(n);
  ipv6Refused_.reset();
  activeDest_.clear();
  handleActiveDest();
  for (const auto& dest : activeDests) configSm_->handleDestDeactivation(name_, dest);
  for (const auto& [src, wasActive] : sources) {
    configSm_->maybeUpdateSrcLagMemberState(src);
    if (wasActive) configSm_->handleSourceDeactivation(name_, src);
  }
  configSm_->freeGlobalSessionId(name_, sessionId_);
  initialized_ = false;
}

}  // namespace Mirroring
