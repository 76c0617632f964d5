// Followers of the session defaults, of Ethernet interface status and of LAG membership, and
// the report of destinations whose timestamps truncation would destroy.
#include <ostream>
#include <set>
#include <string>

#include "Mirroring/MirroringSm.h"
#include "platform/Assert.h"

namespace Mirroring {

namespace {

const char* const kMemberOfMirrorDestination = "member of mirror destination ";
const char* const kMirrorDestination = "mirror destination";

bool timestampWithTruncationSupported(const ConfigSm& configSm) {
  const auto& capability = configSm.mirroringHwCapability();
  return capability && capability->timestampWithTruncationSupported();
}

// The timestamp mode of a port: the interface's status and its physical status describe the
// same port, so a mode that either of them has on counts.
Interface::TimestampMode phyTimestampMode(const ConfigSm& configSm, const platform::IntfId& intf) {
  if (const auto& phyDir = configSm.allEthPhyIntfStatusDir()) {
    auto phy = phyDir->intfStatus.get(intf);
    if (phy && phy->timestampMode() != Interface::timestampModeDisabled) return phy->timestampMode();
  }
  if (const auto& ethDir = configSm.ethIntfStatusDir()) {
    if (auto eth = ethDir->intfStatus.get(intf)) return eth->timestampMode();
  }
  return Interface::timestampModeDisabled;
}

std::string elementName(MetadataElementType element) {
  if (const char* name = platform::enumName(element)) return name;
  return std::to_string(static_cast<unsigned>(element));
}

void logTimestampWithTruncate(const platform::IntfId& intf, const std::string& role, const std::string& session) {
  TRACE(2, "Timestamping on ", intf, " (", role, ") is lost to truncation in session ", session);
  MIRRORING_TIMESTAMP_WITH_TRUNCATE_NOTSUPPORTED(intf.name(), role, session);
}

}  // namespace

static std::ostream& operator<<(std::ostream& os, const DefaultSessionConfigSm&) {
  return os << "Mirroring::DefaultSessionConfigSm";
}

static std::ostream& operator<<(std::ostream& os, const EthIntfStatusSm& sm) {
  return os << "Mirroring::EthIntfStatusSm(" << sm.intfId() << ")";
}

static std::ostream& operator<<(std::ostream& os, const EthLagIntfSm& sm) {
  return os << "Mirroring::EthLagIntfSm(" << sm.intfId() << ")";
}

// --- the timestamp-with-truncation report ----------------------------------------------------

void checkSessionsTruncateAndTimestampMode(const ConfigSm& configSm,
                                           const Ptr<const Interface::EthIntfStatus>& ethIntfStatus,
                                           const platform::IntfId& intf) {
  if (timestampWithTruncationSupported(configSm)) return;
  const auto& status = configSm.mirroringStatus();
  if (!status) return;
  // A member of a Port-Channel destination loses its timestamps just as a destination does.
  const platform::IntfId lag = intf.isPortChannel() ? platform::IntfId() : configSm.lagOf(intf.name());
  for (const auto& [sessionName, sessionStatus] : status->sessionStatus) {
    if (!sessionStatus->truncateOperStatus().isActive()) continue;
    if (sessionStatus->targetOperStatus.contains(intf.name())) {
      checkIntfTimestampModeAndLog(configSm, ethIntfStatus, intf, sessionName);
    }
    if (!lag.empty() && sessionStatus->targetOperStatus.contains(lag.name()) &&
        phyTimestampMode(configSm, intf) != Interface::timestampModeDisabled) {
      logTimestampWithTruncate(intf, kMemberOfMirrorDestination + lag.name(), sessionName);
    }
  }
}

void checkIntfTimestampModeAndLog(const ConfigSm& configSm, const Ptr<const Interface::EthIntfStatus>& ethIntfStatus,
                                  const platform::IntfId& intf, const std::string& session) {
  if (!intf.isPortChannel()) {
    if (!ethIntfStatus) return;
    if (ethIntfStatus->timestampMode() != Interface::timestampModeDisabled ||
        phyTimestampMode(configSm, intf) != Interface::timestampModeDisabled) {
      logTimestampWithTruncate(intf, kMirrorDestination, session);
    }
    return;
  }
  const auto& lagConfig = configSm.lagConfig();
  if (!lagConfig) return;
  const std::string role = kMemberOfMirrorDestination + intf.name();
  for (const auto& [member, memberConfig] : lagConfig->phyIntf) {
    if (memberConfig->lag() != intf) continue;
    if (phyTimestampMode(configSm, member) != Interface::timestampModeDisabled) {
      logTimestampWithTruncate(member, role, session);
    }
  }
}

// --- DefaultSessionConfigSm ------------------------------------------------------------------

DefaultSessionConfigSm::DefaultSessionConfigSm(Ptr<const DefaultSessionConfig> config,
                                               Ptr<DefaultSessionConfig> hwConfig, Ptr<Status> status)
    : config_(std::move(config)), hwConfig_(std::move(hwConfig)), status_(std::move(status)) {
  if (config_) {
    reactor_.on(config_->grePayloadType, [this] { handleGrePayloadType(); });
    reactor_.on(config_->greMetadata, [this](const MetadataElementType& e) { handleGreMetadata(e); });
    reactor_.on(config_->greTimestampingEnabled, [this] { handleGreTimestampingEnabled(); });
    reactor_.on(config_->portMirroringDisabled, [this] { handlePortMirroringDisabled(); });
    reactor_.on(config_->truncationSize, [this] { handleTruncationSize(); });
  }
  handleInitialized();
}

void DefaultSessionConfigSm::handleInitialized() {
  TRACE(1, *this, "::handleInitialized");
  initialized_ = true;
  handleGrePayloadType();
  handleGreMetadata();
  handleGreTimestampingEnabled();
  handlePortMirroringDisabled();
  handleTruncationSize();
}

void DefaultSessionConfigSm::handleGrePayloadType() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleGrePayloadType");
  if (!config_) return;
  const GrePayloadType type = config_->grePayloadType();
  if (hwConfig_) hwConfig_->grePayloadType.set(type);
  if (status_) status_->grePayloadType.set(type);
}

void DefaultSessionConfigSm::handleGreMetadata(MetadataElementType element) {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleGreMetadata( ", elementName(element), " )");
  const bool* value = config_ ? config_->greMetadata.find(element) : nullptr;
  if (value) {
    if (hwConfig_) hwConfig_->greMetadata.set(element, *value);
    if (status_) status_->defaultGreMetadata.set(element, *value);
  } else {
    if (hwConfig_) hwConfig_->greMetadata.del(element);
    if (status_) status_->defaultGreMetadata.del(element);
  }
}

void DefaultSessionConfigSm::handleGreMetadata() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleGreMetadata");
  // What an earlier run copied and the configuration no longer has goes as well.
  std::set<MetadataElementType> elements;
  if (config_) {
    for (const auto& [element, value] : config_->greMetadata) elements.insert(element);
  }
  if (hwConfig_) {
    for (const auto& element : hwConfig_->greMetadata.keys()) elements.insert(element);
  }
  if (status_) {
    for (const auto& element : status_->defaultGreMetadata.keys()) elements.insert(element);
  }
  for (const auto element : elements) handleGreMetadata(element);
}

void DefaultSessionConfigSm::handleGreTimestampingEnabled() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleGreTimestampingEnabled");
  if (!config_) return;
  const bool enabled = config_->greTimestampingEnabled();
  if (hwConfig_) hwConfig_->greTimestampingEnabled.set(enabled);
  if (status_) status_->greTimestampingEnabled.set(enabled);
}

void DefaultSessionConfigSm::handlePortMirroringDisabled() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handlePortMirroringDisabled");
  if (config_ && hwConfig_) hwConfig_->portMirroringDisabled.set(config_->portMirroringDisabled());
}

void DefaultSessionConfigSm::handleTruncationSize() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleTruncationSize");
  if (!config_ || !hwConfig_) return;
  // The hardware's own default size is written by the capability handler when it changes.
  hwConfig_->truncationSize.set(config_->truncationSize());
}

// --- EthIntfStatusSm -------------------------------------------------------------------------

EthIntfStatusSm::EthIntfStatusSm(Ptr<const Interface::EthIntfStatus> status,
                                 Ptr<const Interface::EthPhyIntfStatus> phyStatus, ConfigSm* configSm)
    : status_(std::move(status)), phyStatus_(std::move(phyStatus)), configSm_(configSm) {
  PLATFORM_ASSERT(status_);
  PLATFORM_ASSERT(configSm_);
  intfId_ = status_->intfId();
  reactor_.on(status_->hwActive, [this] { handleActiveStatus(); });
  reactor_.on(status_->timestampMode, [this] { handleTimestampMode(); });
  // A physical port's timestamp mode is read from its physical status where there is one.
  if (phyStatus_) reactor_.on(phyStatus_->timestampMode, [this] { handleTimestampMode(); });
  // The owner files the follower first and then runs handleInitialized.
}

void EthIntfStatusSm::handleInitialized() {
  TRACE(1, *this, "::handleInitialized");
  initialized_ = true;
  reviewSourceIntfs(*configSm_, intfId_);
  reviewDestIntfs(*configSm_, intfId_);
  handleTimestampMode();
}

void EthIntfStatusSm::handleActiveStatus() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleActiveStatus");
  // Sources first: a destination's conflicts are decided against the sources' new state.
  reviewSourceIntfs(*configSm_, intfId_);
  reviewDestIntfs(*configSm_, intfId_);
}

void EthIntfStatusSm::handleTimestampMode() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleTimestampMode");
  checkSessionsTruncateAndTimestampMode(*configSm_, status_, intfId_);
}

void EthIntfStatusSm::doPrepareToDie() {
  TRACE(1, *this, "::doPrepareToDie");
  reactor_.detachAll();
  reviewSourceIntfs(*configSm_, intfId_);
  reviewDestIntfs(*configSm_, intfId_);
}

// --- EthLagIntfSm ----------------------------------------------------------------------------

EthLagIntfSm::EthLagIntfSm(Ptr<const Lag::EthPhyIntfLagConfig> config, ConfigSm* configSm)
    : config_(std::move(config)), configSm_(configSm) {
  PLATFORM_ASSERT(config_);
  PLATFORM_ASSERT(configSm_);
  intfId_ = config_->intfId();
  reactor_.on(config_->lag, [this] { handleLagPhyIntfLag(); });
  // The owner files the follower first and then runs handleInitialized.
}

void EthLagIntfSm::handleInitialized() {
  TRACE(1, *this, "::handleInitialized");
  initialized_ = true;
  handleLagPhyIntfLag();
}

void EthLagIntfSm::handleLagPhyIntfLag() {
  PLATFORM_ASSERT(initialized());
  TRACE(1, *this, "::handleLagPhyIntfLag");
  Ptr<const Interface::EthIntfStatus> status;
  if (const auto& dir = configSm_->ethIntfStatusDir()) status = dir->intfStatus.get(intfId_);
  checkSessionsTruncateAndTimestampMode(*configSm_, status, intfId_);
}

}  // namespace Mirroring
