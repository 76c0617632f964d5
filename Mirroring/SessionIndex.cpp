#include "Mirroring/SessionIndex.h"

#include "platform/IntfId.h"

namespace Mirroring {

struct SessionIndex::SessionReactor {
  SessionReactor(SessionIndex* idx, platform::Ptr<const Session> s) : index(idx), session(std::move(s)) {
    reactor.on(session->srcIntf, [this](const std::string& intf) {
      if (index->sourceChanged_) index->sourceChanged_(session->name(), intf);
      index->intfIs(session->name(), intf, false, session->srcIntf.contains(intf));
      index->tell();
    });
    reactor.on(session->targetIntf, [this](const std::string& intf) {
      index->intfIs(session->name(), intf, true, session->targetIntf.contains(intf));
      index->tell();
    });
  }
  SessionIndex* index;
  platform::Ptr<const Session> session;
  platform::Reactor reactor;
};

SessionIndex::SessionIndex(platform::Ptr<const Config> config, PortChannelNamed changed,
                           SourceChanged sourceChanged)
    : config_(std::move(config)), tell_(std::move(changed)), sourceChanged_(std::move(sourceChanged)) {
  for (const auto& name : config_->session.keys()) sessionIs(name);
}

SessionIndex::~SessionIndex() = default;

void SessionIndex::sessionIs(const std::string& name) {
  platform::Ptr<const Session> session = config_->session.get(name);
  auto it = sessions_.find(name);
  if (it != sessions_.end()) {
    if (it->second->session == session) return;
    std::unique_ptr<SessionReactor> gone = std::move(it->second);
    sessions_.erase(it);
    for (const auto& intf : gone->session->srcIntf.keys()) intfIs(name, intf, false, false);
    for (const auto& intf : gone->session->targetIntf.keys()) intfIs(name, intf, true, false);
  }
  if (session) {
    sessions_[name] = std::make_unique<SessionReactor>(this, session);
    for (const auto& intf : session->srcIntf.keys()) intfIs(name, intf, false, true);
    for (const auto& intf : session->targetIntf.keys()) intfIs(name, intf, true, true);
  }
  // Told once the index has the session whole: what the owner reviews reads all of it.
  tell();
}

void SessionIndex::tell() {
  std::vector<std::string> changed;
  changed.swap(changed_);
  for (const auto& portChannel : changed) {
    if (notify_ && tell_) tell_(portChannel);
  }
}

namespace {
const SessionNames kNoSessions;
}  // namespace

const SessionNames& SessionsByIntf::of(const std::string& intf) const {
  auto it = map_.find(intf);
  return it == map_.end() ? kNoSessions : it->second;
}

bool SessionsByIntf::is(const std::string& intf, const std::string& session, bool held) {
  auto it = map_.find(intf);
  if (held) {
    if (it != map_.end()) {
      changes_ += insertName(it->second, session);
      return false;
    }
    map_.emplace(intf, SessionNames{session});
    ++changes_;
    return true;
  }
  if (it == map_.end() || !eraseName(it->second, session)) return false;
  ++changes_;
  if (!it->second.empty()) return false;
  map_.erase(it);
  return true;
}

namespace {

#ifdef MIRRORING_REFERENCE_WALK
// The reference the differential check compares with: every session walked on every question.
const SessionNames& walk(const platform::Ptr<const Config>& config, const std::string& intf, bool target) {
  static SessionNames found;
  found.clear();
  for (const auto& [name, session] : config->session) {
    if ((target ? session->targetIntf.contains(intf) : session->srcIntf.contains(intf))) found.push_back(name);
  }
  return found;
}
#endif
}  // namespace

const SessionNames& SessionIndex::srcSessionsOf(const std::string& intf) const {
#ifdef MIRRORING_REFERENCE_WALK
  return walk(config_, intf, false);
#endif
  return src_.of(intf);
}

const SessionNames& SessionIndex::targetSessionsOf(const std::string& intf) const {
#ifdef MIRRORING_REFERENCE_WALK
  return walk(config_, intf, true);
#endif
  return target_.of(intf);
}

void SessionIndex::intfIs(const std::string& session, const std::string& intf, bool target, bool present) {
  if ((target ? target_ : src_).is(intf, session, present) && platform::IntfId(intf).isPortChannel()) {
    changed_.push_back(intf);
  }
}

}  // namespace Mirroring
