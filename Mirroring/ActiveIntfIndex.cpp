#include "Mirroring/ActiveIntfIndex.h"

namespace Mirroring {

// Follows one session status: which of its sources and destinations are active.
struct ActiveIntfIndex::SessionReactor {
  SessionReactor(ActiveIntfIndex* idx, std::string n, platform::Ptr<const SessionStatus> s)
      : index(idx), name(std::move(n)), status(std::move(s)) {
    reactor.on(status->srcOperStatus, [this](const std::string& intf) { index->intfIs(*this, intf, false); });
    reactor.on(status->targetOperStatus, [this](const std::string& intf) { index->intfIs(*this, intf, true); });
  }
  ActiveIntfIndex* index;
  std::string name;
  platform::Ptr<const SessionStatus> status;
  std::set<std::string> src, dest;  // what the index holds for it
  platform::Reactor reactor;
};

ActiveIntfIndex::ActiveIntfIndex(platform::Ptr<const Status> status) : status_(std::move(status)) {
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
    std::unique_ptr<SessionReactor> gone = std::move(it->second);
    sessions_.erase(it);
    for (const auto& intf : gone->src) holderIs(name, intf, false, false);
    for (const auto& intf : gone->dest) holderIs(name, intf, true, false);
  }
  if (!status) return;
  auto& s = *(sessions_[name] = std::make_unique<SessionReactor>(this, name, status));
  for (const auto& [intf, operStatus] : status->srcOperStatus) intfIs(s, intf, false);
  for (const auto& [intf, operStatus] : status->targetOperStatus) intfIs(s, intf, true);
}

void ActiveIntfIndex::intfIs(SessionReactor& s, const std::string& intf, bool dest) {
  const auto& coll = dest ? s.status->targetOperStatus : s.status->srcOperStatus;
  const OperStatus* operStatus = coll.find(intf);
  const bool active = operStatus && operStatus->isActive();
  auto& held = dest ? s.dest : s.src;
  if (active ? !held.insert(intf).second : held.erase(intf) == 0) return;
  holderIs(s.name, intf, dest, active);
}

void ActiveIntfIndex::holderIs(const std::string& session, const std::string& intf, bool dest, bool active) {
  auto& index = dest ? dest_ : src_;
  if (active) {
    index[intf].insert(session);
    return;
  }
  auto it = index.find(intf);
  if (it == index.end()) return;
  it->second.erase(session);
  if (it->second.empty()) index.erase(it);
}

namespace {
const std::set<std::string> kNone;

#ifdef MIRRORING_REFERENCE_WALK
// The reference the differential check compares with: every status walked on every question.
const std::set<std::string>& walk(const platform::Ptr<const Status>& status, const std::string& intf, bool dest) {
  static std::set<std::string> found;
  found.clear();
  if (!status) return found;
  for (const auto& [name, s] : status->sessionStatus) {
    const OperStatus* o = (dest ? s->targetOperStatus : s->srcOperStatus).find(intf);
    if (o && o->isActive()) found.insert(name);
  }
  return found;
}
#endif
}  // namespace

const std::set<std::string>& ActiveIntfIndex::activeSrcHolders(const std::string& intf) const {
#ifdef MIRRORING_REFERENCE_WALK
  return walk(status_, intf, false);
#endif
  auto it = src_.find(intf);
  return it == src_.end() ? kNone : it->second;
}

const std::set<std::string>& ActiveIntfIndex::activeDestHolders(const std::string& intf) const {
#ifdef MIRRORING_REFERENCE_WALK
  return walk(status_, intf, true);
#endif
  auto it = dest_.find(intf);
  return it == dest_.end() ? kNone : it->second;
}

}  // namespace Mirroring
