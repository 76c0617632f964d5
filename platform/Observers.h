// Handler lists behind change notification.
//
// Every attribute, and every key of a collection that someone follows, has a list of
// subscribed handlers. Dispatch is synchronous and re-entrant: a handler may subscribe or
// cancel handlers (its own included), write other attributes, or delete entities while the
// list is being walked. Cancelled handlers are skipped and swept out once the outermost
// dispatch of the list is over; handlers added during a dispatch see the next change only.
// A handler object is kept alive by the dispatch itself while it runs.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/Ptr.h"

namespace platform {

class ObserverListBase;

// One subscription: a handler in one list. `cancel` is idempotent.
class Subscription : public RefCounted {
 public:
  bool live() const { return list_ != nullptr; }
  void cancel();

 private:
  friend class ObserverListBase;
  ObserverListBase* list_ = nullptr;
};

class ObserverListBase {
 public:
  ObserverListBase() = default;
  ObserverListBase(const ObserverListBase&) = delete;
  ObserverListBase& operator=(const ObserverListBase&) = delete;
  ~ObserverListBase();

  bool empty() const { return liveCount_ == 0; }
  bool dispatching() const { return depth_ != 0; }

 protected:
  void add(Ptr<Subscription> s);
  void remove(Subscription* s);
  void enter() { ++depth_; }
  void leave();

  std::vector<Ptr<Subscription>> subs_;
  uint32_t depth_ = 0;
  uint32_t liveCount_ = 0;
  bool dirty_ = false;

  friend class Subscription;
};

template <class... Args>
class ObserverList : public ObserverListBase {
 public:
  using Fn = std::function<void(const Args&...)>;

  Ptr<Subscription> add(Fn fn) {
    Ptr<Handler> h = make<Handler>(std::move(fn));
    ObserverListBase::add(h);
    return h;
  }

  void dispatch(const Args&... args) {
    enter();
    // Handlers added during this dispatch are not called for this change.
    const std::size_t n = subs_.size();
    for (std::size_t i = 0; i < n; ++i) {
      Ptr<Subscription> keep = subs_[i];
      if (!keep->live()) continue;
      static_cast<Handler*>(keep.get())->fn(args...);
    }
    leave();
  }

 private:
  struct Handler : Subscription {
    explicit Handler(Fn f) : fn(std::move(f)) {}
    Fn fn;
  };
};

}  // namespace platform
