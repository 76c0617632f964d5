#include "Mirroring/MirroringForwardingModelSm.h"

#include <utility>
#include <vector>

#include "Mirroring/MirroringSm.h"
#include "platform/Assert.h"

namespace Mirroring {

using platform::IntfId;
using platform::Ptr;

std::ostream& operator<<(std::ostream& os, const MirroringForwardingModelSm&) {
  return os << "Mirroring::MirroringForwardingModelSm";
}

std::ostream& operator<<(std::ostream& os, const MirroringForwardingModelSm::SessionStatusReactor&) {
  return os << "Mirroring::MirroringForwardingModelSm::SessionStatusReactor";
}

// --- one session ---------------------------------------------------------------------------

MirroringForwardingModelSm::SessionStatusReactor::SessionStatusReactor(Ptr<const SessionStatus> sessionStatus,
                                                                      MirroringForwardingModelSm* sm)
    : sessionStatus_(std::move(sessionStatus)), sessionName_(sessionStatus_->name()), sm_(sm) {
  reactor_.on(sessionStatus_->targetOperStatus, [this](const std::string& target) {
    if (!sm_) return;  // the state machine is being torn down
    Ptr<SessionStatusReactor> keep(this);  // the change may delete the session status, and us
    handleTargetOperStatus(target);
  });
}

void MirroringForwardingModelSm::SessionStatusReactor::detach() {
  reactor_.detachAll();
  sm_ = nullptr;
}

void MirroringForwardingModelSm::SessionStatusReactor::handleTargetOperStatus(const std::string& target) {
  // Until the state machine has marked what an earlier instance left, activations must wait.
  if (!initialized_ || !sm_) return;
  TRACE(8, *this, "::handleTargetOperStatus target=", target);
  const OperStatus* status = sessionStatus_->targetOperStatus.find(target);
  // A destination removed from the session is let go of like an inactive one.
  const bool active = status && status->isActive();
  sm_->doSetForwardingModel(target, active, sessionName_);
}

void MirroringForwardingModelSm::SessionStatusReactor::handleTargetOperStatus() {
  for (const std::string& target : sessionStatus_->targetOperStatus.keys()) handleTargetOperStatus(target);
}

void MirroringForwardingModelSm::SessionStatusReactor::handleInitialized() {
  TRACE(8, *this, "::handleInitialized sessionName=", sessionName_);
  initialized_ = true;
  handleTargetOperStatus();
}

void MirroringForwardingModelSm::SessionStatusReactor::doPrepareToDie() {
  TRACE(8, *this, "::doPrepareToDie sessionName=", sessionName_);
  // The entity stays readable after it left the collection: we hold it. Destinations it no
  // longer lists were already let go of by their own change.
  if (!initialized_ || !sm_) return;
  for (const std::string& target : sessionStatus_->targetOperStatus.keys()) {
    sm_->doSetForwardingModel(target, false, sessionName_);
  }
}

// --- the state machine -----------------------------------------------------------------------

MirroringForwardingModelSm::MirroringForwardingModelSm(
    Ptr<const Status> mirroringStatus, Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir)
    : mirroringStatus_(std::move(mirroringStatus)), forwardingModelInputDir_(std::move(forwardingModelInputDir)) {
  PLATFORM_ASSERT(mirroringStatus_);
  PLATFORM_ASSERT(forwardingModelInputDir_);
  statusReactor_.on(mirroringStatus_->sessionStatus,
                    [this](const std::string& sessionName) { handleSessionStatus(sessionName); });
  // Reactors of the sessions already there start uninitialised; handleInitialized wakes them
  // after the directory has been marked.
  for (const auto& [name, status] : mirroringStatus_->sessionStatus) sessionStatusIs(status);
  handleInitialized();
}

MirroringForwardingModelSm::~MirroringForwardingModelSm() {
  // No withdrawal here: the directory is left for the next instance's sweep, so a restart
  // does not flap the forwarding model of ports that stay mirror destinations.
  statusReactor_.detachAll();
  sessionStatusDelAll();
  activeIntfMirroringSessionListDelAll();
  staleForwardingModelInputDelAll();
}

void MirroringForwardingModelSm::handleSessionStatus(const std::string& sessionName) {
  TRACE(8, *this, "::handleSessionStatus sessionName=", sessionName);
  if (Ptr<const SessionStatus> status = mirroringStatus_->sessionStatus.get(sessionName)) {
    sessionStatusIs(status);
  } else {
    sessionStatusDel(sessionName);
  }
}

void MirroringForwardingModelSm::handleInitialized() {
  TRACE(8, *this, "::handleInitialized");
  initialized_ = true;
  // Mark.
  for (const auto& [intf, model] : forwardingModelInputDir_->forwardingModelInput) staleForwardingModelInputIs(intf);
  // Every activation takes its interface out of the stale set.
  std::vector<Ptr<SessionStatusReactor>> reactors;
  for (const auto& [name, reactor] : sessionStatus_) reactors.push_back(reactor);
  // Meanwhile an inactive destination takes nothing away: a session walked later may hold the
  // same interface, and the sweep removes what none does, so a shared entry is not flapped.
  waking_ = true;
  for (const auto& reactor : reactors) reactor->handleInitialized();
  waking_ = false;
  // Sweep.
  const std::vector<IntfId> stale(staleForwardingModelInput_.begin(), staleForwardingModelInput_.end());
  for (const IntfId& intf : stale) {
    TRACE(4, *this, "::handleInitialized removing stale forwarding model for ", intf);
    forwardingModelInputDir_->forwardingModelInputDel(intf);
    staleForwardingModelInputDel(intf);
  }
}

void MirroringForwardingModelSm::doSetForwardingModel(const std::string& intfName, bool active,
                                                      const std::string& sessionName) {
  TRACE(8, *this, "::doSetForwardingModel", " intfName=", intfName, " active=", active, " sessionName=", sessionName);
  if (intfName == kCpuIntfName) return;  // the CPU port has no forwarding model to quieten
  const IntfId intf(intfName);
  if (active) {
    TRACE(2, *this, "::doSetForwardingModel", " setting forwarding model for ", intf,
          " to intfForwardingModelQuietDataLink");
    activeIntfMirroringSessionListIs(intf)->sessionListIs(sessionName, true);
    // Written on every activation: an equal value is no write, a different one is repaired.
    forwardingModelInputDir_->forwardingModelInputIs(intf, Interface::intfForwardingModelQuietDataLink);
    staleForwardingModelInputDel(intf);
    return;
  }
  // Get or create: a list created here for an interface that was never active ends up empty
  // and is deleted below at once.
  activeIntfMirroringSessionListIs(intf)->sessionListDel(sessionName);
  Ptr<const ActiveIntfMirroringSessionList> list = activeIntfMirroringSessionList(intf);
  PLATFORM_ASSERT(list);
  if (!list->sessionList().empty()) return;  // another session keeps it a quiet destination
  if (waking_) return;                          // the sweep decides
  TRACE(2, *this, "::doSetForwardingModel", " removing forwarding model for ", intf);
  forwardingModelInputDir_->forwardingModelInputDel(intf);
  activeIntfMirroringSessionListDel(intf);
}

Ptr<ActiveIntfMirroringSessionList> MirroringForwardingModelSm::activeIntfMirroringSessionListIs(const IntfId& intf) {
  auto it = activeIntfMirroringSessionList_.lower_bound(intf);
  if (it == activeIntfMirroringSessionList_.end() || intf < it->first) {
    it = activeIntfMirroringSessionList_.emplace_hint(it, intf, platform::make<ActiveIntfMirroringSessionList>(intf));
  }
  return it->second;
}

void MirroringForwardingModelSm::activeIntfMirroringSessionListDel(const IntfId& intf) {
  activeIntfMirroringSessionList_.erase(intf);
}

void MirroringForwardingModelSm::activeIntfMirroringSessionListDelAll() { activeIntfMirroringSessionList_.clear(); }

Ptr<const ActiveIntfMirroringSessionList> MirroringForwardingModelSm::activeIntfMirroringSessionList(
    const IntfId& intf) const {
  auto it = activeIntfMirroringSessionList_.find(intf);
  return it == activeIntfMirroringSessionList_.end() ? Ptr<const ActiveIntfMirroringSessionList>() : it->second;
}

Ptr<MirroringForwardingModelSm::SessionStatusReactor> MirroringForwardingModelSm::sessionStatusIs(
    Ptr<const SessionStatus> status) {
  PLATFORM_ASSERT(status);
  const std::string name = status->name();
  auto it = sessionStatus_.find(name);
  if (it != sessionStatus_.end()) {
    if (it->second->sessionStatus() == status) return it->second;
    // The entry was replaced by another entity: withdraw what the old one claimed.
    sessionStatusDel(name);
  }
  auto reactor = platform::make<SessionStatusReactor>(std::move(status), this);
  sessionStatus_.emplace(name, reactor);
  if (initialized_) reactor->handleInitialized();
  return reactor;
}

void MirroringForwardingModelSm::sessionStatusDel(const std::string& sessionName) {
  auto it = sessionStatus_.find(sessionName);
  if (it == sessionStatus_.end()) return;
  Ptr<SessionStatusReactor> reactor = it->second;
  reactor->doPrepareToDie();
  reactor->detach();
  it = sessionStatus_.find(sessionName);  // the withdrawal may have re-entered
  if (it != sessionStatus_.end() && it->second == reactor) sessionStatus_.erase(it);
}

void MirroringForwardingModelSm::sessionStatusDelAll() {
  for (auto& [name, reactor] : sessionStatus_) reactor->detach();
  sessionStatus_.clear();
}

Ptr<MirroringForwardingModelSm::SessionStatusReactor> MirroringForwardingModelSm::sessionStatus(
    const std::string& sessionName) const {
  auto it = sessionStatus_.find(sessionName);
  return it == sessionStatus_.end() ? Ptr<SessionStatusReactor>() : it->second;
}

Ptr<MirroringForwardingModelSm> mirroringForwardingModelSmFactory(
    Ptr<const Status> mirroringStatus, Ptr<Interface::IntfForwardingModelInputDir> forwardingModelInputDir) {
  return platform::make<MirroringForwardingModelSm>(std::move(mirroringStatus), std::move(forwardingModelInputDir));
}

}  // namespace Mirroring
