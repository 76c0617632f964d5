// Which configured sessions name an interface as a source, and which as a target.
//
// The index follows every session of the configuration, whether it found room in the hardware
// or not: a Port-Channel that a waiting session names is a mirroring source all the same, and
// the rules about its members read exactly that. When the first session names a Port-Channel
// (as a source or a target), or the last one stops, the index tells its owner, whose rules
// about the members changed.
//
// Precondition a caller could get wrong: `sessionIs(name)` runs for a session of the
// configuration whenever the session entry appears, goes or is replaced, before anything reads
// the index about it (the owner's handler of the configuration's session collection does so
// first); entries added to or removed from a followed session are picked up by the index
// itself.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "Mirroring/MirroringModel.h"
#include "platform/Reactor.h"

namespace Mirroring {

// What an index answers: a few session names in name order (the configuration's order). A
// sorted vector: an interface has a handful, and there are thousands of interface entries.
using SessionNames = std::vector<std::string>;
inline bool containsName(const SessionNames& names, const std::string& name) {
  return std::binary_search(names.begin(), names.end(), name);
}
// Both answer whether `names` changed.
inline bool insertName(SessionNames& names, const std::string& name) {
  auto at = std::lower_bound(names.begin(), names.end(), name);
  if (at != names.end() && *at == name) return false;
  names.insert(at, name);
  return true;
}
inline bool eraseName(SessionNames& names, const std::string& name) {
  auto at = std::lower_bound(names.begin(), names.end(), name);
  if (at == names.end() || *at != name) return false;
  names.erase(at);
  return true;
}

// Interface name -> the sessions that hold it in some way; an interface no session holds has no
// entry.
class SessionsByIntf {
 public:
  const SessionNames& of(const std::string& intf) const;
  // Adds `session` to the interface's sessions or removes it; true when the interface gained its
  // first session or lost its last.
  bool is(const std::string& intf, const std::string& session, bool held);
  // How many times an answer changed: a reader that saw the same count saw the same answers.
  uint64_t changes() const { return changes_; }

 private:
  std::unordered_map<std::string, SessionNames> map_;
  uint64_t changes_ = 0;
};

class SessionIndex {
 public:
  using PortChannelNamed = std::function<void(const std::string& portChannel)>;
  // A source entry of a followed session came or went; told before anyone else hears of it.
  using SourceChanged = std::function<void(const std::string& session, const std::string& intf)>;

  SessionIndex(platform::Ptr<const Config> config, PortChannelNamed changed, SourceChanged sourceChanged = nullptr);
  ~SessionIndex();

  // Follows (again, or no more) the session of that name as the configuration has it now.
  void sessionIs(const std::string& name);
  // Whether changes of Port-Channels are told (not while the owner starts up).
  void notifyIs(bool notify) { notify_ = notify; }

  const SessionNames& srcSessionsOf(const std::string& intf) const;
  const SessionNames& targetSessionsOf(const std::string& intf) const;
  uint64_t changes() const { return src_.changes() + target_.changes(); }

 private:
  struct SessionReactor;
  void intfIs(const std::string& session, const std::string& intf, bool target, bool present);
  // Tells the owner of the Port-Channels whose naming changed since the last time.
  void tell();

  platform::Ptr<const Config> config_;
  PortChannelNamed tell_;
  SourceChanged sourceChanged_;
  std::vector<std::string> changed_;
  bool notify_ = false;
  SessionsByIntf src_, target_;
  std::map<std::string, std::unique_ptr<SessionReactor>> sessions_;
};

}  // namespace Mirroring
