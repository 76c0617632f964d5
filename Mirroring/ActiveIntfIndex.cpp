#include "Mirroring/ActiveIntfIndex.h"

namespace Mirroring {

// Follows one session status: which of its sources and destinations are active.
struct ActiveIntfIndex::SessionReactor {
  SessionReactor(ActiveIntfIndex* idx, std::string n, platform::Ptr<const SessionStatus> s)
      : index(idx), name(std::move(n)), status(std::move(s)) {
    if (index->sources_) {
      reactor.on(status->srcOperStatus, [this](const std::string& intf) { index->intfIs(*this, intf, false); });
    }
    reactor.on(status->targetOperStatus, [this](const std::string& intf) { index->intfIs(*this, intf, true); });
  }
  ActiveIntfIndex* index;
  std::string name;
  platform::Ptr<const SessionStatus> status;
  platform::Reactor reactor;
};

ActiveIntfIndex::ActiveIntfIndex(platform::Ptr<const Status> status, bool sources)
    : status_(std::move(status)), sources_(sources) {
  if (!status_) return;
  reactor_.on(status_->sessionStatus, [this](const std::string& name) { sessionStatusIs(name); });
  for (const auto& name : status_->sessionStatus.keys()) sessionStatusIs(name);
}

ActiveIntfIndex::~ActiveIntfIndex() = default;

void ActiveIntfIndex::sessionStatusIs(const std::string& name) {
  platform::Ptr<const SessionStatus> status = status_->sessionStatus.get(name);
  auto it = sessions_.find(name);
  if (it != sessions_.end()) {
    if (it->second->status == status) return;
    // What it holds is what the index heard of last: every change was told.
    std::unique_ptr<SessionReactor> gone = std::move(it->second);
    sessions_.erase(it);
    for (const auto& [intf, operStatus] : gone->status->srcOperStatus) {
      if (sources_ && operStatus.isActive()) holderIs(name, intf, false, false);
    }
    for (const auto& [intf, operStatus] : gone->status->targetOperStatus) {
      if (operStatus.isActive()) holderIs(name, intf, true, false);
    }
  }
  if (!status) return;
  auto& s = *(sessions_[name] = std::make_unique<SessionReactor>(this, name, status));
  if (sources_) {
    for (const auto& [intf, operStatus] : status->srcOperStatus) intfIs(s, intf, false);
  }
  for (const auto& [intf, operStatus] : status->targetOperStatus) intfIs(s, intf, true);
}

void ActiveIntfIndex::intfIs(SessionReactor& s, const std::string& intf, bool dest) {
  const auto& coll = dest ? s.status->targetOperStatus : s.status->srcOperStatus;
  const OperStatus* operStatus = coll.find(intf);
  holderIs(s.name, intf, dest, operStatus && operStatus->isActive());
}

void ActiveIntfIndex::holderIs(const std::string& session, const std::string& intf, bool dest, bool active) {
  (dest ? dest_ : src_).is(intf, session, active);
}

namespace {
#ifdef MIRRORING_REFERENCE_WALK
// The reference the differential check compares with: every status walked on every question.
const SessionNames& walk(const platform::Ptr<const Status>& status, const std::string& intf, bool dest) {
  static SessionNames found;
  found.clear();
  if (!status) return found;
  for (const auto& [name, s] : status->sessionStatus) {
    const OperStatus* o = (dest ? s->targetOperStatus : s->srcOperStatus).find(intf);
    if (o && o->isActive()) found.push_back(name);
  }
  return found;
}
#endif
}  // namespace

const SessionNames& ActiveIntfIndex::activeSrcHolders(const std::string& intf) const {
#ifdef MIRRORING_REFERENCE_WALK
  return walk(status_, intf, false);
#endif
  return src_.of(intf);
}

const SessionNames& ActiveIntfIndex::activeDestHolders(const std::string& intf) const {
#ifdef MIRRORING_REFERENCE_WALK
  return walk(status_, intf, true);
#endif
  return dest_.of(intf);
}

}  // namespace Mirroring
