#include "platform/Observers.h"

#include <algorithm>

namespace platform {

void Subscription::cancel() {
  if (list_) list_->remove(this);
}

ObserverListBase::~ObserverListBase() {
  for (auto& s : subs_) s->list_ = nullptr;
}

void ObserverListBase::add(Ptr<Subscription> s) {
  s->list_ = this;
  subs_.push_back(std::move(s));
  ++liveCount_;
}

void ObserverListBase::remove(Subscription* s) {
  s->list_ = nullptr;
  --liveCount_;
  if (depth_ != 0) {
    dirty_ = true;  // the walk in progress holds indices into subs_
    return;
  }
  auto it = std::find_if(subs_.begin(), subs_.end(), [s](const Ptr<Subscription>& p) { return p.get() == s; });
  if (it != subs_.end()) subs_.erase(it);
}

void ObserverListBase::leave() {
  if (--depth_ != 0 || !dirty_) return;
  dirty_ = false;
  std::erase_if(subs_, [](const Ptr<Subscription>& p) { return !p->live(); });
}

}  // namespace platform
