// One reactor per entry of a followed collection of entities.
//
// A state machine that follows every entry of a collection (every interface's status, every
// session's status) keeps a reactor per entry. `ReactorMap` keeps them by key: `is` builds the
// reactor for an entry unless one already follows that very entry, `del` tells the reactor
// `prepareToDie()` and drops it, and `follow` keeps the map in step with a collection.
//
//   platform::ReactorMap<IntfId, LinkReactor> links_;
//   links_.follow(reactor_, dir->intfStatus, [this](LinkReactor& r) { r.handleInitialized(); },
//                 this);   // the remaining arguments go to each reactor's constructor
//
// R is constructed as R(Ptr<const E> entry, args...) and offers `entry()` (the entity it
// follows) and `prepareToDie()`. Handlers may add or delete entries while the map is walked
// with `forEach` and while a reactor prepares to die.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/Entity.h"
#include "platform/Reactor.h"

namespace platform {

template <class K, class R>
class ReactorMap {
 public:
  R* find(const K& k) const {
    auto it = map_.find(k);
    return it == map_.end() ? nullptr : it->second.get();
  }
  bool empty() const { return map_.empty(); }
  std::size_t size() const { return map_.size(); }
  std::vector<K> keys() const {
    std::vector<K> out;
    out.reserve(map_.size());
    for (const auto& entry : map_) out.push_back(entry.first);
    return out;
  }

  // The reactor for `entry`, built unless one follows that very entry already; null then.
  template <class E, class... A>
  R* is(const K& k, Ptr<const E> entry, A&&... args) {
    if (R* existing = find(k); existing && existing->entry() == entry) return nullptr;
    del(k);
    auto& slot = map_[k];
    slot = std::make_unique<R>(std::move(entry), std::forward<A>(args)...);
    return slot.get();
  }
  // Tells the reactor of `k` to prepare to die, then drops it; false when there was none.
  bool del(const K& k) {
    auto it = map_.find(k);
    if (it == map_.end()) return false;
    // The reactor stays findable while it prepares to die (its clean-up may look itself up);
    // what its handlers did to the map meanwhile is respected.
    R* dying = it->second.get();
    dying->prepareToDie();
    if (auto now = map_.find(k); now != map_.end() && now->second.get() == dying) map_.erase(now);
    return true;
  }
  void delAll() {
    for (const auto& k : keys()) del(k);
  }
  // Calls `fn` for each reactor, in key order, skipping those that go while the walk runs.
  template <class F>
  void forEach(F&& fn) {
    for (const auto& k : keys()) {
      if (R* r = find(k)) fn(*r);
    }
  }

  // Builds a reactor (not yet told anything) for every entry of `coll`, and from now on one for
  // every entry that appears or is replaced, handed to `added`; an entry that goes takes its
  // reactor with it. `args` go to every reactor's constructor.
  template <class E, class Tr, class... A>
  void follow(Reactor& reactor, const Coll<K, Ptr<E>, Tr>& coll, std::function<void(R&)> added, A... args) {
    for (const auto& [k, entry] : coll) is(k, entry, args...);
    reactor.on(coll, [this, &coll, added = std::move(added), args...](const K& k) {
      if (auto entry = coll.get(k)) {
        if (R* r = is(k, entry, args...)) added(*r);
      } else {
        del(k);
      }
    });
  }

 private:
  std::map<K, std::unique_ptr<R>> map_;
};

}  // namespace platform
