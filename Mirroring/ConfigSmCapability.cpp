// The configuration manager's reactions to the hardware's capabilities: each capability
// decides which of every session's decisions are taken again.
#include "Mirroring/MirroringSm.h"
#include "platform/Assert.h"

namespace Mirroring {

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

}  // namespace Mirroring
