// A single-threaded event loop on a virtual clock. Work is either posted (run at the next turn of
// the loop) or attached to a Timer that fires once when the clock reaches its time. Nothing reads
// the wall clock: the host or a test moves the clock, which keeps every agent deterministic and
// lets tests cover hours of timer behaviour instantly.
//
// The loop is passed explicitly to whatever needs it; there is no process-wide current loop.
// It is not thread-safe: every call, including post(), must come from the loop's thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <unordered_set>
#include <utility>

namespace platform {

// Virtual time in seconds. It only moves forward.
class Clock {
 public:
  explicit Clock(double start = 0.0) : now_(start) {}
  double now() const { return now_; }
  // Negative or NaN amounts are ignored.
  void advance(double seconds) {
    if (seconds > 0) now_ += seconds;
  }
  // Moves to `t` when that is later than now.
  void advanceTo(double t) {
    if (t > now_) now_ = t;
  }

 private:
  double now_;
};

class EventLoop;

// Fires its handler once per arming. timeMinIs(t) arms it for clock time t: any time not later
// than now (0, say) means at the next run of the loop, infinity (or NaN) means never. Re-arming
// replaces the previous time. After firing, timeMin() is infinity until the timer is re-armed.
// A handler may destroy or re-arm any timer, including its own. A timer may outlive its loop;
// it is inert from then on.
class Timer {
 public:
  static constexpr double never = std::numeric_limits<double>::infinity();

  Timer(EventLoop& loop, std::function<void()> handler);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  void timeMinIs(double t);
  double timeMin() const { return timeMin_; }

 private:
  friend class EventLoop;
  using Key = std::pair<double, std::uint64_t>;  // due time, arming order

  void unschedule();

  EventLoop* loop_;
  // Shared so that a handler that destroys its own timer keeps running on a live function.
  std::shared_ptr<std::function<void()>> handler_;
  double timeMin_ = never;
  bool scheduled_ = false;
  Key key_{};
};

class EventLoop {
 public:
  // Bound on the callbacks run at one clock time: reaching it means work keeps re-creating
  // itself without time passing (a livelock), so the loop reports that on standard error and
  // returns without going further.
  static constexpr std::size_t dispatchLimit = 1'000'000;

  explicit EventLoop(double startTime = 0.0) : clock_(startTime) {}
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  Clock& clock() { return clock_; }
  double now() const { return clock_.now(); }

  void post(std::function<void()> task);

  // Runs posted tasks and due timers, including whatever they post or arm that is due, until
  // nothing is due at the current time. Posted tasks go before timers; timers go in order of
  // due time, ties in arming order. The clock does not move. Returns the callbacks run.
  std::size_t runPending();

  // Moves the clock forward by `seconds`, stopping at each due time on the way (so a handler
  // sees now() equal to its timer's time) and running pending work there; ends at the target.
  std::size_t advance(double seconds);

  // Runs pending work until stop() is called or nothing is due. With advanceClock the clock
  // then jumps to the next armed timer and the loop goes on, so it only ends by stop() or when
  // no timer is armed. stop() made before run() is forgotten when run() starts.
  std::size_t run(bool advanceClock = false);
  void stop() { stopRequested_ = true; }

  // Earliest armed timer time, infinity when none.
  double nextTimerTime() const;
  // Whether runPending would do anything now.
  bool hasPendingWork() const;

 private:
  friend class Timer;

  // Runs due work at the current time until none is left, dispatchLimit is reached, or a stop
  // was requested in run(). Adds to `count`; returns false when the limit was reached.
  bool drain(std::size_t& count);
  void reportLivelock() const;

  Clock clock_;
  std::deque<std::function<void()>> posted_;
  std::map<Timer::Key, Timer*> schedule_;
  std::unordered_set<Timer*> timers_;  // every live timer, detached when the loop goes
  std::uint64_t armings_ = 0;
  bool running_ = false;
  bool stopRequested_ = false;
};

}  // namespace platform
