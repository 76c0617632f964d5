// The members of each Port-Channel, as the LAG configuration has them.
//
// Precondition a caller could get wrong: like every index that follows an input, it must be
// built before the handlers that read it subscribe to the same input, so that it is up to date
// when they run.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "platform/IntfId.h"
#include "platform/LagTypes.h"
#include "platform/Reactor.h"

namespace Mirroring {

class LagMemberIndex {
 public:
  explicit LagMemberIndex(platform::Ptr<const Lag::Config> config);
  ~LagMemberIndex();
  LagMemberIndex(const LagMemberIndex&) = delete;
  LagMemberIndex& operator=(const LagMemberIndex&) = delete;

  // The ports whose LAG entry names `lag`, in interface order.
  const std::set<platform::IntfId>& membersOf(const platform::IntfId& lag) const;
  // The Port-Channel the port of that name is a member of, or the empty id.
  platform::IntfId lagOf(const std::string& member) const;
  // How many times a membership changed.
  uint64_t changes() const { return changes_; }

 private:
  struct MemberReactor;
  void memberIs(const platform::IntfId& member);
  void lagIs(MemberReactor& m);

  platform::Ptr<const Lag::Config> config_;
  platform::Reactor reactor_;
  std::map<platform::IntfId, std::set<platform::IntfId>> members_;
  std::unordered_map<std::string, platform::IntfId> lagOf_;  // by name: the rules ask by name, often
  std::map<platform::IntfId, std::unique_ptr<MemberReactor>> entries_;
  uint64_t changes_ = 0;
};

}  // namespace Mirroring
