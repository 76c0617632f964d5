// The GRE tunnel interfaces of the mirroring status.
//
// The status maps each distinct tunnel key to one tunnel interface, Gre1 to Gre64, in two maps
// that mirror each other (`greTunnelKey`: tunnel to key; `greTunnelKeyToIntfId`: key to
// tunnel). The pool keeps what goes with them: which tunnel numbers are taken, how many
// sessions hold each tunnel, and which tunnels an earlier run left that no key has claimed
// again yet. Deciding which tunnel a session's key resolves to is the session's business; the
// pool answers, counts and releases.
//
// Preconditions a caller could get wrong: a tunnel is released (`dec`) only by a holder that
// counted it (`inc`); `mark` runs before any key is resolved, `sweep` after every session that
// is configured resolved its keys.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "Mirroring/MirroringModel.h"
#include "platform/IntfId.h"

namespace Mirroring {

class GreTunnelPool {
 public:
  static constexpr uint16_t kTunnelNumMax = 64;

  explicit GreTunnelPool(platform::Ptr<Status> status);

  // The tunnels an earlier run left (in either map) are stale, and their numbers taken, until
  // a key claims them or the sweep lets them go: no new key is given one an old key still has.
  void mark();
  // Removes the unclaimed tunnels, frees their numbers, and drops every key whose tunnel does
  // not name it back.
  void sweep();

  // The tunnel the status maps `key` to, when the two maps agree on it; else the empty id.
  platform::IntfId tunnelOf(const GreTunnelKey& key) const;
  // Takes the lowest free number and answers its interface ("Gre<n>"); empty when none is left.
  platform::IntfId alloc();
  // Marks the number of a tunnel restored from the status as taken.
  void take(const platform::IntfId& intf);
  bool taken(uint32_t number) const;
  // The tunnel is claimed by a key again: it is no leftover.
  void claim(const platform::IntfId& intf) { stale_.erase(intf); }

  // One session more holds the tunnel.
  void inc(const platform::IntfId& intf);
  // One session fewer; the last one takes the tunnel's two map entries and its number with it.
  void dec(const platform::IntfId& intf);
  uint16_t userCount(const platform::IntfId& intf) const;

 private:
  bool inRange(uint32_t number) const { return number >= 1 && number <= bitMap_.size(); }

  platform::Ptr<Status> status_;
  std::vector<bool> bitMap_;  // bit n-1 stands for Gre<n>
  std::map<platform::IntfId, uint16_t> userCnt_;
  std::set<platform::IntfId> stale_;
};

}  // namespace Mirroring
