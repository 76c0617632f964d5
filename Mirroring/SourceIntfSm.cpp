// One source interface of one session: its direction, ACL filter and ACL priority, and the
// ACLs themselves, reach the source's operational status and the session's hardware copy.
#include <ostream>
#include <string>
#include <utility>

#include "Mirroring/MirroringSm.h"
#include "platform/Assert.h"

namespace Mirroring {

static std::ostream& operator<<(std::ostream& os, const SourceIntfSm& sm) {
  return os << "Mirroring::SourceIntfSm(" << sm.name() << ")";
}

SourceIntfSm::SourceIntfSm(Ptr<const SrcIntf> srcIntf, Ptr<const Config> config,
                           Ptr<const Acl::AclTypeConfig> aclConfig, Ptr<const Acl::AclTypeConfig> ip6AclConfig,
                           Ptr<const Acl::AclTypeConfig> macAclConfig, SessionSm* sessionSm)
    : srcIntf_(std::move(srcIntf)),
      config_(std::move(config)),
      aclConfig_(std::move(aclConfig)),
      ip6AclConfig_(std::move(ip6AclConfig)),
      macAclConfig_(std::move(macAclConfig)),
      sessionSm_(sessionSm) {
  PLATFORM_ASSERT(srcIntf_);
  PLATFORM_ASSERT(sessionSm_);
  // The session and its companion share the entry, and either may rewrite its hardware copy
  // while the other has yet to hear of the change: the first to hear marks it for both.
  auto onEntry = [this](const auto& attr, void (SourceIntfSm::*handler)()) {
    reactor_.on(attr, [this, handler] {
      entryChanged();
      (this->*handler)();
    });
  };
  onEntry(srcIntf_->direction, &SourceIntfSm::handleDirection);
  onEntry(srcIntf_->srcAcl, &SourceIntfSm::handleSrcAcl);
  // The filter is the ACL's type and name together: a new type with the same name is a new
  // filter as much as a new name is.
  onEntry(srcIntf_->aclType, &SourceIntfSm::handleSrcAcl);
  onEntry(srcIntf_->aclPriority, &SourceIntfSm::handlePriority);
  for (const auto& [typeConfig, type] : {std::pair{aclConfig_, Acl::aclTypeIp}, std::pair{ip6AclConfig_, Acl::aclTypeIpv6},
                                         std::pair{macAclConfig_, Acl::aclTypeMac}}) {
    if (!typeConfig) continue;
    reactor_.on(typeConfig->acl, [this, type](const std::string& acl) { handleAclConfig(type, acl); });
  }
  // The session files the follower first and then runs handleInitialized.
}

void SourceIntfSm::handleInitialized() {
  TRACE(1, *this, "::handleInitialized");
  initialized_ = true;
  direction_ = srcIntf_->direction();
  handleDirection();
}

// The rewrites below need look at no other source than this one, which is marked.
void SourceIntfSm::entryChanged() {
  const std::string& session = sessionSm_->session() ? sessionSm_->session()->name() : sessionSm_->name();
  sessionSm_->configSm()->hwSourceStale(session, name());
}

void SourceIntfSm::handleDirection() {
  PLATFORM_ASSERT(initialized());
  TRACE(2, *this, "::handleDirection");
  ConfigSm& configSm = *sessionSm_->configSm();
  const std::string& intf = name();
  const OperStatus prev = sessionSm_->sessionStatus() ? sessionSm_->sessionStatus()->srcOperStatus.get(intf)
                                                      : OperStatus();
  const OperStatus status = getSrcOperStatus(configSm, sessionSm_->session(), intf);
  TRACE(2, *this, "::handleDirection ", intf, " in session ", sessionSm_->name(), " was ", prev, " now ", status);
  // Written even when unchanged: the hardware copy carries the direction.
  sessionSm_->doUpdateSrcStatus(intf, status);

  // The direction is part of how the session holds the interface: another session may have
  // been refused it for the direction this source had, or may take it as a destination now.
  // (A change of the source's state told them already.)
  const Direction direction = srcIntf_->direction();
  const bool directionChanged = direction != direction_;
  direction_ = direction;
  if (!directionChanged || sessionSm_->forwardingDrop() || sessionSm_->dying()) return;
  const OperStatus now = sessionSm_->sessionStatus()->srcOperStatus.get(intf);
  if (now.isActive() == prev.isActive()) configSm.handleIntfClaimChanged(sessionSm_->name(), intf, false);
}

void SourceIntfSm::handleSrcAcl() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleSrcAcl");
  ConfigSm& configSm = *sessionSm_->configSm();
  const auto& capability = configSm.mirroringHwCapability();
  // Without ACL-filtered sources the filter only reaches the hardware with the next rewrite.
  if (!capability || !capability->srcAclSupported()) {
    sessionSm_->hwSourceStale(name());
    return;
  }
  if (srcIntf_->aclType() == Acl::aclTypeIpv6) {
    // An IPv6 filter's status is the hardware writer's business (one IPv6 mirroring ACL per
    // session); the rewrite applies that rule and carries the filter.
    sessionSm_->doMaybeUpdateHwConfig(SessionSm::HwScope::settings);
    return;
  }

  const std::string& intf = name();
  const OperStatus published =
      sessionSm_->sessionStatus() ? sessionSm_->sessionStatus()->srcOperStatus.get(intf) : OperStatus();
  const OperStatus status = getSrcOperStatus(configSm, sessionSm_->session(), intf);
  if (status != published) {
    TRACE(2, *this, "::handleSrcAcl ", intf, " in session ", sessionSm_->name(), " now ", status);
    sessionSm_->doUpdateSrcStatus(intf, status);
  } else {
    // The hardware entry names the filter: refresh it even though the status stands.
    sessionSm_->doMaybeUpdateHwConfig(SessionSm::HwScope::settings);
  }
  if (!published.isActive() || !config_) return;

  // The interface this source held may now go to a session that filters it with an IPv6 ACL.
  const std::string ownSession = sessionSm_->session() ? sessionSm_->session()->name() : sessionSm_->name();
  for (const auto& otherName : config_->session.keys()) {
    if (otherName == ownSession || otherName == sessionSm_->name()) continue;
    Ptr<SessionSm> other = configSm.sessionSm(otherName);
    if (!other || !other->session() || !other->sessionStatus()) continue;
    Ptr<const SrcIntf> otherSrc = other->session()->srcIntf.get(intf);
    if (!otherSrc || otherSrc->aclType() != Acl::aclTypeIpv6) continue;
    const OperStatus otherStatus = getSrcOperStatus(configSm, other->session(), intf);
    if (other->sessionStatus()->srcOperStatus.get(intf).state == OperState::inactive && otherStatus.isActive()) {
      TRACE(2, "handleSrcAcl:: updating the status of ", intf, " to ", otherStatus, " in session ", otherName);
      other->doUpdateSrcStatus(intf, otherStatus);
      break;
    }
  }
}

void SourceIntfSm::handlePriority() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handlePriority");
  sessionSm_->doMaybeUpdateHwConfig(SessionSm::HwScope::settings);
}

void SourceIntfSm::handleAclConfig(Acl::AclType type, const std::string& aclName) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleAclConfig( ", aclName, " )");
  // Other ACLs, also one of another type under the same name, do not concern this source.
  if (aclName.empty() || aclName != srcIntf_->srcAcl() || type != srcIntf_->aclType()) return;
  // The hardware entry refers to the filter by name: it is written afresh so that the
  // hardware reads the changed rules.
  sessionSm_->doRefreshSrcAcl(name());
}

}  // namespace Mirroring
