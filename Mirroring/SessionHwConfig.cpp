// A session's hardware copy: what the chip driver programs for the session while one of its
// destinations is active, written from the configuration, the published statuses and the
// hardware's capabilities.
#include <utility>

#include "Mirroring/MirroringSm.h"
#include "platform/Assert.h"

namespace Mirroring {

namespace {

// The truncation size the hardware is given for the one a session asks for: the size itself
// when the hardware lists it; else the smallest listed size above it, so that every byte the
// operator wanted to see is kept; else the largest listed size. Hardware that lists no sizes
// truncates to its own default only.
TruncationSize supportedTruncationSize(TruncationSize requested, const HwCapability* cap) {
  if (requested == TruncationSize::truncationSizeDefault || !cap) return TruncationSize::truncationSizeDefault;
  if (cap->truncationSizesSupported.contains(requested)) return requested;
  TruncationSize largest = TruncationSize::truncationSizeDefault;
  for (const TruncationSize size : cap->truncationSizesSupported) {  // ascending
    if (size == TruncationSize::truncationSizeDefault) continue;
    if (size > requested) return size;
    largest = size;
  }
  return largest;
}

}  // namespace

void SessionSm::hwSourceStale(const std::string& src) { hwPending_.sources.insert(src); }

void SessionSm::doMaybeUpdateHwConfig(HwScope scope, const std::string& source) {
  auto hwConfig = configSm_->mirroringHwConfig();
  if (scope == HwScope::all) hwPending_.all = true;
  if (scope == HwScope::oneSource) hwPending_.sources.insert(source);
  if (dying_) {
    hwPending_ = {};
    hwConfig->sessionDel(name_);
    return;
  }
#ifndef MIRRORING_REFERENCE_WALK
  // Nothing it is written from changed since the copy was last brought up to date: a rewrite
  // would find nothing to do (a destination decided again the same way, say).
  const bool nothingPending = !hwPending_.all && hwPending_.sources.empty() && srcAclRefresh_.empty();
  if (nothingPending && hwWrittenAt_ && hwWrittenAt_ == hwInputs()) return;
#endif
  // A status this writes rewrites the copy inside it, and takes what is pending here with it.
  if (reviewIpv6AclSources()) return;
  writeHwConfig();
  hwWrittenAt_ = hwInputs();
}

std::optional<uint64_t> SessionSm::hwInputs() const {
  uint64_t sum = 0;
  for (const platform::Entity* input :
       {static_cast<const platform::Entity*>(session_.get()), static_cast<const platform::Entity*>(sessionStatus_.get()),
        static_cast<const platform::Entity*>(configSm_->mirroringHwConfig().get()),
        static_cast<const platform::Entity*>(capability()),
        static_cast<const platform::Entity*>(hwDefaultSessionConfig_.get())}) {
    if (!input) continue;  // nothing to read there
    const platform::Mount* mount = input->mount();
    if (!mount) return std::nullopt;
    sum += mount->writes();
  }
  return sum;
}

void SessionSm::writeHwConfig() {
  auto hwConfig = configSm_->mirroringHwConfig();
  const HwPending work = std::exchange(hwPending_, {});
  if (!hasActiveDestination()) {
    srcAclRefresh_.clear();  // a new hardware copy is written whole anyway
    if (hwConfig->session.contains(name_)) {
      TRACE(2, "Deleting HwConfig for session ", name_);
      hwConfig->sessionDel(name_);
    }
    return;
  }
  TRACE(2, "Updating HwConfig for session ", name_);
  // Everything is looked at but the sources, which a session has many of: a copy written whole
  // earlier has them up to date but for the ones changed since (told here or marked stale); a
  // new copy, or one with filters to refresh, is written whole.
  bool all = work.all || !srcAclRefresh_.empty() || !hwWhole_ || !hwConfig->session.contains(name_);
#ifdef MIRRORING_REFERENCE_WALK
  all = true;  // the reference the differential check compares with
#endif
  hwWhole_ = true;
  Ptr<Session> hw = hwConfig->sessionIs(name_);
  const HwCapability* cap = capability();
  hw->secureMonitor.set(session_->secureMonitor());
  hw->isInternal.set(session_->isInternal());
  hw->owner.set(session_->owner());
  hw->sessionId.set(sessionId_);
  GrePayloadType payload = session_->grePayloadType();
  if (payload == GrePayloadType::payloadTypeUnset && hwDefaultSessionConfig_) {
    payload = hwDefaultSessionConfig_->grePayloadType();
  }
  hw->grePayloadType.set(payload);

  // Destinations: active ones, with GRE targets replaced by the tunnel the key resolves to.
  const platform::IntfId greIntf = resolvedGreIntf();
  bool tunnelWritten = false;
  auto writeTunnel = [&] {
    if (tunnelWritten) return;
    tunnelWritten = true;
    updateHwConfigTargetIntf(greIntf, forwardingDrop_);
    hw->greTunnelKey.set(session_->greTunnelKey());
    hw->dropGreTunnelKey.set(session_->dropGreTunnelKey());
  };
  for (const auto& target : session_->targetIntf.keys()) {
    if (platform::IntfId(target).isGreTunnel()) {
      writeTunnel();
      continue;
    }
    if (sessionStatus_->targetOperStatus.get(target).isActive()) {
      if (!hw->targetIntf.contains(target)) {
        hw->targetIntfIs(target);
        TRACE(2, "Session: ", name_, " adding targetIntf ", target, " targetIntfs: ", hw->targetIntf.size());
      }
      staleTargetIntfInHwConfig_.erase(target);
    } else if (hw->targetIntf.contains(target)) {
      hw->targetIntfDel(target);
      TRACE(2, "Session: ", name_, " deleting targetIntf ", target, " targetIntfs: ", hw->targetIntf.size());
    }
  }
  // A key resolved without a GRE target still sends to its tunnel.
  if (!greIntf.empty()) writeTunnel();

  // GRE options.
  hw->txGreMetadataEnabled.set(session_->txGreMetadataEnabled());
  for (const auto& element : hw->greMetadata.keys()) {
    if (!session_->greMetadata.contains(element)) hw->greMetadata.del(element);
  }
  for (const auto& [element, on] : session_->greMetadata) hw->greMetadata.set(element, true);
  hw->greTimestampingEnabled.set(session_->greTimestampingEnabled());
  hw->portMirroringDisabled.set(session_->portMirroringDisabled());

  // Sources: active ones with their direction and filter. The one-IPv6-ACL rule was applied
  // to their statuses above, so an active source is one the hardware may take.
  const std::vector<std::string> told(work.sources.begin(), work.sources.end());
  for (const auto& srcName : all ? session_->srcIntf.keys() : told) {
    auto src = session_->srcIntf.get(srcName);
    if (!src) continue;  // gone from the configuration: below
    if (!sessionStatus_->srcOperStatus.get(srcName).isActive()) {
      hw->srcIntfDel(srcName);
      continue;
    }
    if (srcAclRefresh_.erase(srcName) && hw->srcIntf.contains(srcName)) {
      // The filter's content changed under the same name: a fresh entry makes the hardware
      // read it again.
      TRACE(2, "Session: ", name_, " refreshing srcIntf ", srcName, " for ACL ", src->srcAcl());
      auto fresh = platform::make<SrcIntf>(srcName, src->direction());
      fresh->aclType.set(src->aclType());
      fresh->srcAcl.set(src->srcAcl());
      fresh->aclPriority.set(src->aclPriority());
      hw->srcIntf.insert(srcName, fresh);
    }
    Ptr<SrcIntf> hwSrc = hw->srcIntfIs(srcName, src->direction());
    hwSrc->aclType.set(src->aclType());
    hwSrc->srcAcl.set(src->srcAcl());
    hwSrc->aclPriority.set(src->aclPriority());
    staleSrcIntfInHwConfig_.erase(srcName);
  }
  srcAclRefresh_.clear();

  // Truncation and header removal, as far as the hardware does them.
  const bool truncationSupported = cap && cap->truncationSupported();
  hw->truncate.set(session_->truncate() && truncationSupported);
  hw->truncationSize.set(supportedTruncationSize(session_->truncationSize(), cap));
  hw->headerRemovalSize.set(cap && cap->headerRemovalSupported() ? session_->headerRemovalSize()
                                                                  : HeaderRemovalSize::headerRemovalNone);

  // What the configuration no longer has goes.
  for (const auto& srcName : all ? hw->srcIntf.keys() : told) {
    if (!session_->srcIntf.contains(srcName)) hw->srcIntfDel(srcName);
  }
  for (const auto& target : hw->targetIntf.keys()) {
    const bool wanted = target == greIntf.name()
                            ? sessionStatus_->targetOperStatus.get(target).isActive()
                            : session_->targetIntf.contains(target) && !platform::IntfId(target).isGreTunnel();
    if (!wanted) hw->targetIntfDel(target);
  }
  auto firstTarget = hw->targetIntf.begin();
  hw->destIntf.set(firstTarget == hw->targetIntf.end() ? std::string() : *firstTarget);

  // Rate limit and sampling (which the sources' directions decide).
  hw->mirrorRateLimitChip.set(session_->mirrorRateLimitChip());
  hw->mirrorRateLimitInBps.set(session_->mirrorRateLimitInBps());
  // Sampling is done on received traffic only: the configured rate holds when the hardware
  // samples and every source is receive-only; otherwise every packet is mirrored.
  bool rxOnly = cap && cap->rxSamplingSupported();
  for (const auto& [srcName, src] : session_->srcIntf) rxOnly = rxOnly && src->direction() == Direction::rx;
  const uint32_t rate = rxOnly ? session_->rxSampleRate() : 1;
  TRACE(2, "Set: Session=", name_, " Config.rxSampleRate=", session_->rxSampleRate(), " HwConfig.rxSampleRate=", rate);
  hw->rxSampleRate.set(rate);
}

}  // namespace Mirroring
