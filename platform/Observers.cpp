#include "platform/Observers.h"

namespace platform {

void Subscription::cancel() {
  if (list_) list_->remove(this);
}

ObserverListBase::~ObserverListBase() {
  for (auto& s : subs_) {
    if (s) s->list_ = nullptr;
  }
}

void ObserverListBase::add(Ptr<Subscription> s) {
  s->list_ = this;
  s->slot_ = subs_.size();
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
  // Released after the list is consistent again: the handler's destruction may cancel others.
  Ptr<Subscription> released = std::move(subs_[s->slot_]);
  if (2 * liveCount_ < subs_.size()) compact();
}

void ObserverListBase::leave() {
  if (--depth_ != 0 || !dirty_) return;
  dirty_ = false;
  compact();
}

void ObserverListBase::compact() {
  std::vector<Ptr<Subscription>> released;
  std::size_t kept = 0;
  for (auto& s : subs_) {
    if (!s) continue;
    if (!s->live()) {
      released.push_back(std::move(s));
      continue;
    }
    s->slot_ = kept;
    subs_[kept++] = std::move(s);
  }
  subs_.resize(kept);
}

}  // namespace platform
