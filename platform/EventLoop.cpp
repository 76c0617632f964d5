#include "platform/EventLoop.h"

#include <cmath>
#include <cstdio>

namespace platform {

Timer::Timer(EventLoop& loop, std::function<void()> handler)
    : loop_(&loop), handler_(std::make_shared<std::function<void()>>(std::move(handler))) {
  loop_->timers_.insert(this);
}

Timer::~Timer() {
  if (loop_ == nullptr) return;
  unschedule();
  loop_->timers_.erase(this);
}

void Timer::unschedule() {
  if (scheduled_) {
    loop_->schedule_.erase(key_);
    scheduled_ = false;
  }
}

void Timer::timeMinIs(double t) {
  if (std::isnan(t)) t = never;
  timeMin_ = t;
  if (loop_ == nullptr) return;
  unschedule();
  if (t == never) return;
  key_ = Key{t, loop_->armings_++};
  loop_->schedule_.emplace(key_, this);
  scheduled_ = true;
}

EventLoop::~EventLoop() {
  for (auto* timer : timers_) {
    timer->loop_ = nullptr;
    timer->scheduled_ = false;
  }
}

void EventLoop::post(std::function<void()> task) { posted_.push_back(std::move(task)); }

double EventLoop::nextTimerTime() const {
  return schedule_.empty() ? Timer::never : schedule_.begin()->first.first;
}

bool EventLoop::hasPendingWork() const {
  return !posted_.empty() || nextTimerTime() <= clock_.now();
}

bool EventLoop::drain(std::size_t& count) {
  std::size_t budget = dispatchLimit;
  while (!(running_ && stopRequested_)) {
    if (budget == 0) {
      reportLivelock();
      return false;
    }
    if (!posted_.empty()) {
      auto task = std::move(posted_.front());
      posted_.pop_front();
      --budget;
      ++count;
      task();
      continue;
    }
    if (schedule_.empty() || schedule_.begin()->first.first > clock_.now()) break;
    Timer* timer = schedule_.begin()->second;
    schedule_.erase(schedule_.begin());
    timer->scheduled_ = false;
    timer->timeMin_ = Timer::never;
    // The handler may destroy the timer: hold the function, and touch the timer no more.
    auto handler = timer->handler_;
    --budget;
    ++count;
    if (*handler) (*handler)();
  }
  return true;
}

std::size_t EventLoop::runPending() {
  std::size_t count = 0;
  drain(count);
  return count;
}

std::size_t EventLoop::advance(double seconds) {
  double target = clock_.now() + (seconds > 0 ? seconds : 0.0);
  std::size_t count = 0;
  if (!drain(count)) return count;
  while (nextTimerTime() <= target) {
    clock_.advanceTo(nextTimerTime());
    if (!drain(count)) return count;
  }
  clock_.advanceTo(target);
  drain(count);
  return count;
}

std::size_t EventLoop::run(bool advanceClock) {
  running_ = true;
  stopRequested_ = false;
  std::size_t count = 0;
  while (drain(count) && !stopRequested_ && advanceClock && !schedule_.empty()) {
    clock_.advanceTo(nextTimerTime());
  }
  running_ = false;
  stopRequested_ = false;
  return count;
}

void EventLoop::reportLivelock() const {
  std::fprintf(stderr,
               "event loop: stopped after %zu callbacks at time %g without running out of due "
               "work; some handler keeps re-posting or re-arming at once\n",
               dispatchLimit, clock_.now());
}

}  // namespace platform
