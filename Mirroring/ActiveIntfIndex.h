// Which sessions hold an interface as an active source, and which as an active destination, as
// their published statuses say.
//
// The rules read other sessions only through what those sessions published, so the index
// follows the status entity itself, not the state machines that write it: statuses an earlier
// run left behind, companions' statuses and statuses written by anyone count as they stand.
//
// Precondition a caller could get wrong: the index must be built before anything else follows
// the status entity. Handlers of one collection run in the order they subscribed, so an index
// built first is up to date before any other handler of a status change runs and reads it.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "Mirroring/MirroringModel.h"
#include "Mirroring/SessionIndex.h"
#include "platform/Reactor.h"

namespace Mirroring {

class ActiveIntfIndex {
 public:
  // Without `sources`, only destinations are followed (activeSrcHolders answers nothing).
  explicit ActiveIntfIndex(platform::Ptr<const Status> status, bool sources = true);
  ~ActiveIntfIndex();
  ActiveIntfIndex(const ActiveIntfIndex&) = delete;
  ActiveIntfIndex& operator=(const ActiveIntfIndex&) = delete;

  // The names of the session statuses (companions and leftovers included) that publish the
  // interface as an active source (destination), in name order.
  const SessionNames& activeSrcHolders(const std::string& intf) const;
  const SessionNames& activeDestHolders(const std::string& intf) const;
  uint64_t changes() const { return src_.changes() + dest_.changes(); }

 private:
  struct SessionReactor;
  void sessionStatusIs(const std::string& name);
  void intfIs(SessionReactor& s, const std::string& intf, bool dest);
  void holderIs(const std::string& session, const std::string& intf, bool dest, bool active);

  platform::Ptr<const Status> status_;
  bool sources_;
  platform::Reactor reactor_;
  SessionsByIntf src_, dest_;
  std::map<std::string, std::unique_ptr<SessionReactor>> sessions_;
};

}  // namespace Mirroring
