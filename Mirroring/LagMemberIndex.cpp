#include "Mirroring/LagMemberIndex.h"

namespace Mirroring {

// Follows one port's LAG entry: the Port-Channel it names, and what the index holds for it.
struct LagMemberIndex::MemberReactor {
  MemberReactor(LagMemberIndex* idx, platform::Ptr<const Lag::EthPhyIntfLagConfig> e) : index(idx), entry(std::move(e)) {
    reactor.on(entry->lag, [this] { index->lagIs(*this); });
  }
  LagMemberIndex* index;
  platform::Ptr<const Lag::EthPhyIntfLagConfig> entry;
  platform::IntfId member, lag;
  platform::Reactor reactor;
};

LagMemberIndex::LagMemberIndex(platform::Ptr<const Lag::Config> config) : config_(std::move(config)) {
  if (!config_) return;
  reactor_.on(config_->phyIntf, [this](const platform::IntfId& member) { memberIs(member); });
  for (const auto& member : config_->phyIntf.keys()) memberIs(member);
}

LagMemberIndex::~LagMemberIndex() = default;

void LagMemberIndex::memberIs(const platform::IntfId& member) {
  platform::Ptr<const Lag::EthPhyIntfLagConfig> entry = config_->phyIntf.get(member);
  auto it = entries_.find(member);
  if (it != entries_.end()) {
    if (it->second->entry == entry) return;
    std::unique_ptr<MemberReactor> gone = std::move(it->second);
    entries_.erase(it);
    if (!gone->lag.empty()) {
      ++changes_;
      auto m = members_.find(gone->lag);
      m->second.erase(member);
      if (m->second.empty()) members_.erase(m);
      lagOf_.erase(member.name());
    }
  }
  if (!entry) return;
  auto& m = *(entries_[member] = std::make_unique<MemberReactor>(this, entry));
  m.member = member;
  lagIs(m);
}

void LagMemberIndex::lagIs(MemberReactor& m) {
  const platform::IntfId lag = m.entry->lag();
  if (lag == m.lag) return;
  ++changes_;
  if (!m.lag.empty()) {
    auto it = members_.find(m.lag);
    it->second.erase(m.member);
    if (it->second.empty()) members_.erase(it);
    lagOf_.erase(m.member.name());
  }
  m.lag = lag;
  if (!lag.empty()) {
    members_[lag].insert(m.member);
    lagOf_[m.member.name()] = lag;
  }
}

namespace {
const std::set<platform::IntfId> kNone;
}

const std::set<platform::IntfId>& LagMemberIndex::membersOf(const platform::IntfId& lag) const {
#ifdef MIRRORING_REFERENCE_WALK
  // The reference the differential check compares with: every entry walked on every question.
  static std::set<platform::IntfId> found;
  found.clear();
  if (config_) {
    for (const auto& [member, entry] : config_->phyIntf) {
      if (!lag.empty() && entry->lag() == lag) found.insert(member);
    }
  }
  return found;
#endif
  auto it = members_.find(lag);
  return it == members_.end() ? kNone : it->second;
}

platform::IntfId LagMemberIndex::lagOf(const std::string& member) const {
#ifdef MIRRORING_REFERENCE_WALK
  if (!config_) return platform::IntfId();
  auto entry = config_->phyIntf.get(platform::IntfId(member));
  return entry ? entry->lag() : platform::IntfId();
#endif
  auto it = lagOf_.find(member);
  return it == lagOf_.end() ? platform::IntfId() : it->second;
}

}  // namespace Mirroring
