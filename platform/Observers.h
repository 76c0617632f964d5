// Handler lists behind change notification.
//
// Every attribute, and every key of a collection that someone follows, has a list of
// subscribed handlers. Dispatch is synchronous and re-entrant: a handler may subscribe or
// cancel handlers (its own included), write other attributes, or delete entities while the
// list is being walked. Cancelled handlers are skipped and swept out once the outermost
// dispatch of the list is over; handlers added during a dispatch see the next change only.
// A handler object is kept alive by the dispatch itself while it runs.
//
// A subscription knows its slot in the list, so cancelling costs the same whatever the size
// of the list: outside a dispatch the slot is emptied at once (the handler is released as it
// is cancelled), and the list closes its gaps when they are half of it.
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
  std::size_t slot_ = 0;  // index in the list's subs_
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

  // Live handlers and cancelled ones not swept yet, in subscription order; null: an emptied slot.
  std::vector<Ptr<Subscription>> subs_;
  uint32_t depth_ = 0;
  uint32_t liveCount_ = 0;
  bool dirty_ = false;  // handlers were cancelled during a dispatch

 private:
  void compact();

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
    // Handlers added during this dispatch are not called for this change. Slots keep their
    // places while the list is walked: emptying and compacting wait until the walk is over.
    const std::size_t n = subs_.size();
    for (std::size_t i = 0; i < n; ++i) {
      if (!subs_[i] || !subs_[i]->live()) continue;
      Ptr<Subscription> keep = subs_[i];
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
