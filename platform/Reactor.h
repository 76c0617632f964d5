// Reactors: handlers bound to entities.
//
// A reactor subscribes handlers to attributes and collections of the entity it follows and
// drops every subscription when it is destroyed (or told to detach), so a state machine that
// owns its reactors can never be called after it is gone. While subscribed, the reactor holds
// a reference to each entity it follows, so the entity outlives the subscription.
//
//   class SourceIntfSm {
//     platform::Reactor reactor_;
//     SourceIntfSm(Ptr<const SrcIntf> src) {
//       reactor_.on(src->direction, [this] { handleDirection(); });
//     }
//   };
//
// Collections call a handler with the key that was inserted, changed or erased; `onKey`
// follows one key only. Only the handlers of the changed attribute or key run.
#pragma once

#include <functional>
#include <type_traits>
#include <vector>

#include "platform/Dir.h"
#include "platform/Entity.h"

namespace platform {

class Reactor {
 public:
  Reactor() = default;
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;
  virtual ~Reactor() { detachAll(); }

  template <class T, class Tr>
  void on(const Attr<T, Tr>& attr, std::function<void()> fn) {
    bind(attr.owner(), attr.subscribe(std::move(fn)));
  }
  template <class K, class V, class Tr>
  void on(const Coll<K, V, Tr>& coll, std::type_identity_t<std::function<void(const K&)>> fn) {
    bind(coll.owner(), coll.subscribe(std::move(fn)));
  }
  template <class K, class V, class Tr>
  void onKey(const Coll<K, V, Tr>& coll, const std::type_identity_t<K>& key, std::function<void()> fn) {
    bind(coll.owner(), coll.subscribe(key, std::move(fn)));
  }
  template <class K, class Tr>
  void on(const Set<K, Tr>& set, std::type_identity_t<std::function<void(const K&)>> fn) {
    bind(set.owner(), set.subscribe(std::move(fn)));
  }
  void on(const DirEntries& entries, std::function<void(const std::string&)> fn) {
    bind(entries.owner(), entries.subscribe(std::move(fn)));
  }

  // Drops every subscription; the reactor can be bound again afterwards.
  void detachAll() {
    for (auto& b : bindings_) b.subscription->cancel();
    bindings_.clear();
  }
  bool attached() const { return !bindings_.empty(); }

 private:
  struct Binding {
    Ptr<const Entity> entity;
    Ptr<Subscription> subscription;
  };
  void bind(const Entity* owner, Ptr<Subscription> s) { bindings_.push_back({Ptr<const Entity>(owner), std::move(s)}); }

  std::vector<Binding> bindings_;
};

}  // namespace platform
