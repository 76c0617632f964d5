// The operational status of mirroring sources and destinations.
//
// These rules only read. What they read about other sessions is what those sessions already
// published in the status entity, so whoever published first keeps a contested interface; the
// rules never look at another session's configuration without its status record.
//
// Every input may be missing while the agent starts or shuts down: a missing capability means
// "not supported", a missing directory means "nothing in it", a missing session means "no
// entries of its own".

#include <string>
#include <vector>

#include "Mirroring/MirroringSm.h"

namespace Mirroring {

namespace {

using CapabilityFlag = platform::Attr<bool> HwCapability::*;

bool capability(const ConfigSm& configSm, CapabilityFlag flag) {
  const Ptr<const HwCapability>& cap = configSm.mirroringHwCapability();
  return cap && ((*cap).*flag)();
}

std::string sessionName(const Ptr<const Session>& session) { return session ? session->name() : std::string(); }

Ptr<const SessionStatus> statusOf(const ConfigSm& configSm, const std::string& name) {
  Ptr<const Status> status = configSm.mirroringStatus();
  if (!status) return nullptr;
  return status->sessionStatus.get(name);
}

bool isActiveIn(const platform::Coll<std::string, OperStatus>& statuses, const std::string& intf) {
  const OperStatus* s = statuses.find(intf);
  return s && s->isActive();
}

Ptr<const SrcIntf> srcEntry(const Ptr<const Session>& session, const std::string& intf) {
  if (!session) return nullptr;
  return session->srcIntf.get(intf);
}

bool overlaps(Direction a, Direction b) { return a == Direction::both || b == Direction::both || a == b; }

int asNumber(Direction d) { return static_cast<int>(d); }

std::string vrfNotConfiguredReason(const platform::VrfName& vrf) {
  std::string text = reason::vrfNotConfigured;
  auto at = text.find("%s");
  if (at != std::string::npos) text.replace(at, 2, vrf.str());
  return text;
}

// Whether another session with an active source on `dest` mirrors more than its received
// traffic there; only rx sources can share an interface with a destination.
bool otherSessionSourcesNonRx(const ConfigSm& configSm, const std::string& thisSession, const std::string& dest) {
  const Ptr<const Config>& config = configSm.mirroringConfig();
  if (!config) return false;
  for (const auto& name : configSm.activeSrcHolders(dest)) {
    if (name == thisSession) continue;
    Ptr<const Session> other = config->session.get(name);
    Ptr<const SrcIntf> otherSrc = other ? other->srcIntf.get(dest) : nullptr;
    if (otherSrc && otherSrc->direction() != Direction::rx) return true;
  }
  return false;
}

// Whether `dest` is an active source of any session that names it, this one included.
bool activeSourceAnywhere(const ConfigSm& configSm, const std::string& dest) {
  const SessionNames& named = configSm.srcSessionsOf(dest);
  for (const auto& name : configSm.activeSrcHolders(dest)) {
    if (containsName(named, name)) {
      TRACE(2, dest, " is an active source in session ", name);
      return true;
    }
  }
  return false;
}

// The rule for plain destinations (Ethernet ports, and Port-Channels where supported).
OperStatus portDestOperStatus(const ConfigSm& configSm, const Ptr<const Session>& session, const std::string& dest) {
  const std::string thisSession = sessionName(session);
  // An interface mirrored as a source is no destination, whichever session mirrors it and in
  // whatever direction; hardware that allows both on one interface takes it as a destination
  // only from sources of other sessions that mirror what it receives.
  if (activeSourceAnywhere(configSm, dest)) {
    if (!capability(configSm, &HwCapability::sameIntfSrcAndDestSupported)) {
      return OperStatus::inactive(reason::sourceConflict);
    }
    Ptr<const SessionStatus> own = statusOf(configSm, thisSession);
    if (own && isActiveIn(own->srcOperStatus, dest)) {
      TRACE(2, dest, " is already active src for same session ", thisSession);
      return OperStatus::inactive(reason::sourceConflict);
    }
    if (otherSessionSourcesNonRx(configSm, thisSession, dest)) return OperStatus::inactive(reason::sourceConflict);
    // Only received traffic is mirrored from it elsewhere: no conflict, and the destination is
    // judged like any other.
  }
  if (alreadyActiveDest(configSm, session, dest)) {
    // A destination shared with another session skips the link and LAG check: the session
    // that holds it already vouched for it.
    if (capability(configSm, &HwCapability::multiSessionForDestSupported)) return OperStatus::active();
    return OperStatus::inactive(reason::destinationConflict);
  }
  if (destStatusLagCheck(configSm, dest)) return OperStatus::active();
  return OperStatus::inactive(reason::interfaceModeConflict);
}

// Hardware that mirrors to one port only: the destination that became active first keeps
// it. A destination not yet active is refused only while exactly one other is active.
OperStatus applyMultiplePortsRule(const ConfigSm& configSm, const Ptr<const Session>& session,
                                  const std::string& dest, OperStatus result) {
  if (dest.empty() || capability(configSm, &HwCapability::multiDestSupported)) return result;
  if (!session || session->targetIntf.size() < 2) return result;
  Ptr<SessionSm> sm = configSm.sessionSm(session->name());
  if (!sm) return result;
  // Tunnels are not ports: only active port destinations hold the session's one port.
  std::size_t count = 0;
  for (const auto& active : sm->activeDest()) count += platform::IntfId(active).isGreTunnel() ? 0 : 1;
  Ptr<const SessionStatus> published = sm->sessionStatus();
  bool prevActive = published && isActiveIn(published->targetOperStatus, dest);
  if ((prevActive && count >= 2) || (!prevActive && count == 1)) {
    return OperStatus::inactive(reason::multiplePortsNotSupported);
  }
  return result;
}

}  // namespace

bool alreadyActiveSource(const ConfigSm& configSm, const Ptr<const Session>& session, const std::string& intf) {
  if (session) {
    Ptr<SessionSm> sm = configSm.sessionSm(session->name());
    // The forwarding-drop companion mirrors what its parent already owns.
    if (sm && sm->forwardingDrop()) return false;
  }
  if (capability(configSm, &HwCapability::multiSessionForSourceSupported)) return false;
  const Ptr<const Config>& config = configSm.mirroringConfig();
  if (!config) return false;
  const std::string thisSession = sessionName(session);
  Ptr<const SrcIntf> thisSrc = srcEntry(session, intf);
  if (!thisSrc) return false;
  // Only configured sessions count: a companion's or a leftover's status holds nothing here.
  for (const auto& name : configSm.activeSrcHolders(intf)) {
    if (name == thisSession) continue;
    Ptr<const Session> other = config->session.get(name);
    Ptr<const SrcIntf> otherSrc = other ? other->srcIntf.get(intf) : nullptr;
    if (otherSrc && overlaps(thisSrc->direction(), otherSrc->direction())) {
      TRACE(2, intf, " of new sesion ", thisSession, " is already active in the direction for session ", name);
      return true;
    }
  }
  return false;
}

bool alreadyActiveDest(const ConfigSm& configSm, const Ptr<const Session>& session, const std::string& intf) {
  const Ptr<const Config>& config = configSm.mirroringConfig();
  if (!config) return false;
  const std::string thisSession = sessionName(session);
  for (const auto& name : configSm.activeDestHolders(intf)) {
    if (name == thisSession || !config->session.contains(name)) continue;
    TRACE(2, intf, " of sesion ", thisSession, " is already active dest for session ", name);
    return true;
  }
  return false;
}

bool intfStatusCheck(const ConfigSm& configSm, const std::string& intf) {
  const Ptr<const Interface::EthIntfStatusDir>& dir = configSm.ethIntfStatusDir();
  Ptr<const Interface::EthIntfStatus> status = dir ? dir->intfStatus.get(platform::IntfId(intf)) : nullptr;
  if (!status) {
    TRACE(2, "Still waiting for the EthIntfStatus to show up on ", intf);
    return false;
  }
  if (!status->hwActive()) {
    TRACE(2, "The interface ", intf, " no longer exists.");
    return false;
  }
  return true;
}

bool destStatusLagCheck(const ConfigSm& configSm, const std::string& intf) {
  if (!intfStatusCheck(configSm, intf)) return false;
  if (!configSm.lagOf(intf).empty()) {
    TRACE(2, intf, " is currently a lag member - failed.");
    return false;
  }
  TRACE(2, intf, " is not a lag member - passed.");
  return true;
}

bool isSrcLagConfigured(const ConfigSm& configSm, const std::string& intf) {
  platform::IntfId lag = configSm.lagOf(intf);
  if (lag.empty() || !configSm.isMirroringSrcPort(lag.name())) return false;
  TRACE(2, intf, " is a member of mirroring source LAG");
  return true;
}

bool isDestLagConfigured(const ConfigSm& configSm, const std::string& intf) {
  platform::IntfId lag = configSm.lagOf(intf);
  if (lag.empty() || !configSm.isMirroringDestPort(lag.name())) return false;
  TRACE(2, intf, " is a member of mirroring destination LAG");
  return true;
}

OperStatus getSrcOperStatus(const ConfigSm& configSm, const Ptr<const Session>& session, const std::string& src) {
  const std::string thisSession = sessionName(session);
  TRACE(2, "Computing operStatus for source ", src, " in session ", thisSession);

  if (alreadyActiveSource(configSm, session, src)) return OperStatus::inactive(reason::sourceConflict);

  // A GRE tunnel carries only what the sources receive.
  Ptr<const SrcIntf> entry = srcEntry(session, src);
  if (entry) {
    TRACE(2, "checking for direction conflict for GRE tunnel ", src, " dir ", asNumber(entry->direction()));
    if (entry->direction() != Direction::rx) {
      for (const std::string& target : session->targetIntf) {
        TRACE(2, "targetIntf ", target, " session ", thisSession);
        if (platform::IntfId(target).isGreTunnel()) return OperStatus::inactive(reason::greRxOnly);
      }
    }
  }

  if (alreadyActiveDest(configSm, session, src)) {
    if (!capability(configSm, &HwCapability::sameIntfSrcAndDestSupported)) {
      return OperStatus::inactive(reason::destinationConflict);
    }
    Ptr<const SessionStatus> own = statusOf(configSm, thisSession);
    if (own && isActiveIn(own->targetOperStatus, src)) {
      TRACE(2, src, " is already active dest for same session ", thisSession);
      return OperStatus::inactive(reason::destinationConflict);
    }
    // Received traffic can be mirrored from a port that is also another session's
    // destination; what it transmits is the mirrored traffic itself. The source is then judged
    // like any other.
    if (!entry || entry->direction() != Direction::rx) return OperStatus::inactive(reason::destinationConflict);
  }

  return configSm.srcIntfStatus(src);
}

OperStatus srcIntfOperStatus(const ConfigSm& configSm, const std::string& src) {
  if (!intfStatusCheck(configSm, src)) return OperStatus::inactive(reason::interfaceModeConflict);
  if (isSrcLagConfigured(configSm, src)) return OperStatus::inactive(reason::memberOfSourceLag);
  if (isDestLagConfigured(configSm, src)) return OperStatus::inactive(reason::memberOfDestinationLag);
  return OperStatus::active();
}

OperStatus getDestOperStatus(const ConfigSm& configSm, const Ptr<const Session>& session, const std::string& dest) {
  TRACE(2, "Computing operStatus for destination ", dest, " in session ", sessionName(session));
  platform::IntfId id(dest);

  if (id.isGreTunnel()) {
    // Tunnels are not ports: the one-port limit does not count them.
    return greDestOperStatus(configSm, session ? session->greTunnelKey().vrf : platform::VrfName());
  }

  OperStatus result;
  if (id.isPortChannel() && !capability(configSm, &HwCapability::lagDestSupported)) {
    result = OperStatus::inactive(reason::portChannelNotSupported);
  } else if (dest == kCpuIntfName) {
    result = capability(configSm, &HwCapability::cpuDestSupported) ? OperStatus::active()
                                                                    : OperStatus::inactive(reason::cpuNotSupported);
  } else if (id.isLoopback()) {
    result = capability(configSm, &HwCapability::loopbackDestSupported)
                 ? OperStatus::active()
                 : OperStatus::inactive(reason::loopbackNotSupported);
  } else {
    result = portDestOperStatus(configSm, session, dest);
  }
  return applyMultiplePortsRule(configSm, session, dest, std::move(result));
}

OperStatus greDestOperStatus(const ConfigSm& configSm, const platform::VrfName& vrf) {
  const Ptr<const Ip::AllVrfStatusGlobal>& vrfs = configSm.allVrfStatus();
  if (vrfs && vrfs->vrf.contains(vrf)) return OperStatus::active();
  if (vrf.isDefault()) return OperStatus::active();
  return OperStatus::inactive(vrfNotConfiguredReason(vrf));
}

// The configuration does not change while the agent reacts, so the sessions that name the
// interface are known up front; the handlers may write statuses that others follow, so the
// walk is over a copy.
void reviewSourceIntfs(ConfigSm& configSm, const platform::IntfId& intf) {
  TRACE(2, "reviewSourceIntfs for ", intf);
  const SessionNames names = configSm.srcSessionsOf(intf.name());
  for (const std::string& name : names) {
    Ptr<SessionSm> sm = configSm.sessionSm(name);
    if (!sm) continue;
    sm->handleSource(intf.name());
    if (Ptr<SessionSm> companion = configSm.companionSm(name)) {
      companion->handleSource(intf.name());
    }
  }
}

void reviewDestIntfs(ConfigSm& configSm, const platform::IntfId& intf) {
  TRACE(2, "reviewDestIntfs for ", intf);
  const SessionNames names = configSm.targetSessionsOf(intf.name());
  for (const std::string& name : names) {
    Ptr<SessionSm> sm = configSm.sessionSm(name);
    if (!sm) continue;
    sm->handleDest(intf.name());
    // The companion holds copies of its parent's destinations.
    if (Ptr<SessionSm> companion = configSm.companionSm(name)) companion->handleDest(intf.name());
  }
}

}  // namespace Mirroring
