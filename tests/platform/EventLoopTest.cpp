#include "platform/EventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

using platform::Clock;
using platform::EventLoop;
using platform::Timer;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr double never = Timer::never;

TEST(Clock, NeverMovesBackwards) {
  Clock clock(10.0);
  clock.advance(2.5);
  EXPECT_EQ(clock.now(), 12.5);
  clock.advance(-5.0);
  clock.advance(std::nan(""));
  clock.advanceTo(3.0);
  EXPECT_EQ(clock.now(), 12.5);
  clock.advanceTo(20.0);
  EXPECT_EQ(clock.now(), 20.0);
}

TEST(EventLoop, TimerAtZeroFiresOnceAtTheNextRun) {
  EventLoop loop(100.0);
  int fired = 0;
  Timer timer(loop, [&] { ++fired; });
  EXPECT_EQ(timer.timeMin(), never) << "a new timer is not armed";
  timer.timeMinIs(0);
  EXPECT_EQ(fired, 0) << "arming does not fire synchronously";
  EXPECT_TRUE(loop.hasPendingWork());
  EXPECT_EQ(loop.runPending(), 1u);
  EXPECT_EQ(fired, 1);
  EXPECT_EQ(timer.timeMin(), never);
  EXPECT_EQ(loop.runPending(), 0u);
  loop.advance(1000);
  EXPECT_EQ(fired, 1) << "fires once per arming";
  EXPECT_EQ(loop.now(), 1100.0) << "runPending never moves the clock; advance does";
}

TEST(EventLoop, TimerFiresWhenTheClockReachesItsTime) {
  EventLoop loop;
  std::vector<double> seen;
  Timer a(loop, [&] { seen.push_back(loop.now()); });
  Timer b(loop, [&] { seen.push_back(loop.now()); });
  a.timeMinIs(5.0);
  b.timeMinIs(3.0);
  EXPECT_EQ(loop.nextTimerTime(), 3.0);
  loop.advance(2.9);
  EXPECT_THAT(seen, IsEmpty());
  loop.advance(10.0);
  EXPECT_THAT(seen, ElementsAre(3.0, 5.0)) << "each handler sees its own due time";
  EXPECT_DOUBLE_EQ(loop.now(), 12.9);

  // A timer armed in the past fires at once, at the current time.
  a.timeMinIs(1.0);
  loop.runPending();
  EXPECT_DOUBLE_EQ(seen.back(), 12.9);
}

TEST(EventLoop, InfinityOrRearmingReplacesTheTime) {
  EventLoop loop;
  int fired = 0;
  Timer timer(loop, [&] { ++fired; });
  timer.timeMinIs(never);
  loop.advance(1e12);
  EXPECT_EQ(fired, 0);
  EXPECT_EQ(loop.nextTimerTime(), never);

  double start = loop.now();
  timer.timeMinIs(start + 5);
  timer.timeMinIs(start + 10);
  EXPECT_EQ(timer.timeMin(), start + 10);
  loop.advance(6);
  EXPECT_EQ(fired, 0) << "the earlier arming was replaced";
  loop.advance(5);
  EXPECT_EQ(fired, 1);

  timer.timeMinIs(loop.now() + 1);
  timer.timeMinIs(never);
  timer.timeMinIs(std::nan(""));
  EXPECT_EQ(timer.timeMin(), never);
  loop.advance(5);
  EXPECT_EQ(fired, 1) << "disarmed";
}

TEST(EventLoop, DispatchOrder) {
  EventLoop loop;
  std::vector<std::string> order;
  Timer late(loop, [&] { order.push_back("late"); });
  Timer tieA(loop, [&] { order.push_back("tieA"); });
  Timer tieB(loop, [&] { order.push_back("tieB"); });
  Timer early(loop, [&] { order.push_back("early"); });
  late.timeMinIs(3);
  tieB.timeMinIs(2);
  tieA.timeMinIs(2);
  early.timeMinIs(1);
  tieB.timeMinIs(2);  // re-arming at the same time moves it behind tieA
  loop.post([&] { order.push_back("posted"); });
  loop.advance(5);
  EXPECT_THAT(order, ElementsAre("posted", "early", "tieA", "tieB", "late"));

  // Several due timers in one runPending still go by due time, and posts go first.
  order.clear();
  double now = loop.now();
  late.timeMinIs(now - 1);
  early.timeMinIs(now - 3);
  tieA.timeMinIs(0);
  loop.post([&] { order.push_back("posted"); });
  loop.runPending();
  EXPECT_THAT(order, ElementsAre("posted", "tieA", "early", "late"));
}

TEST(EventLoop, HandlersMayPostAndArmDuringDispatch) {
  EventLoop loop;
  std::vector<std::string> order;
  Timer follower(loop, [&] { order.push_back("follower"); });
  Timer first(loop, [&] {
    order.push_back("first");
    loop.post([&] { order.push_back("posted by first"); });
    follower.timeMinIs(0);
  });
  first.timeMinIs(0);
  EXPECT_EQ(loop.runPending(), 3u);
  EXPECT_THAT(order, ElementsAre("first", "posted by first", "follower"));

  // A periodic timer re-arms itself; advance fires it at every period on the way.
  std::vector<double> ticks;
  std::unique_ptr<Timer> periodic;
  periodic = std::make_unique<Timer>(loop, [&] {
    ticks.push_back(loop.now());
    periodic->timeMinIs(loop.now() + 2);
  });
  periodic->timeMinIs(2);
  loop.advance(7);
  EXPECT_THAT(ticks, ElementsAre(2.0, 4.0, 6.0));
  EXPECT_EQ(periodic->timeMin(), 8.0);
}

TEST(EventLoop, TimersMayBeDestroyedDuringDispatch) {
  EventLoop loop;
  std::vector<std::string> order;
  std::unique_ptr<Timer> victim;
  std::unique_ptr<Timer> self;
  Timer killer(loop, [&] {
    order.push_back("killer");
    victim.reset();
  });
  self = std::make_unique<Timer>(loop, [&, name = std::string("self")] {
    self.reset();
    order.push_back(name);  // the handler's captures must survive its timer
  });
  killer.timeMinIs(1);
  victim = std::make_unique<Timer>(loop, [&] { order.push_back("victim"); });
  victim->timeMinIs(1);
  self->timeMinIs(1);
  loop.advance(1);
  EXPECT_THAT(order, ElementsAre("killer", "self"));
  EXPECT_EQ(self, nullptr);
  EXPECT_EQ(loop.nextTimerTime(), never);

  // A timer that goes away while armed leaves nothing behind.
  {
    Timer dropped(loop, [&] { order.push_back("dropped"); });
    dropped.timeMinIs(0);
  }
  EXPECT_EQ(loop.runPending(), 0u);
}

TEST(EventLoop, TimerOutlivingItsLoopIsInert) {
  auto loop = std::make_unique<EventLoop>();
  int fired = 0;
  Timer timer(*loop, [&] { ++fired; });
  timer.timeMinIs(1);
  loop.reset();
  timer.timeMinIs(2);
  EXPECT_EQ(timer.timeMin(), 2.0);
  EXPECT_EQ(fired, 0);
}

TEST(EventLoop, RunStopsOnRequestOrWhenIdle) {
  EventLoop loop;
  int fired = 0;
  Timer later(loop, [&] { ++fired; });
  later.timeMinIs(50);
  loop.post([] {});
  EXPECT_EQ(loop.run(), 1u) << "without advanceClock, a future timer does not keep it going";
  EXPECT_EQ(loop.now(), 0.0);

  EXPECT_EQ(loop.run(true), 1u) << "with advanceClock, it jumps to the timer";
  EXPECT_EQ(fired, 1);
  EXPECT_EQ(loop.now(), 50.0);

  std::unique_ptr<Timer> periodic;
  int ticks = 0;
  periodic = std::make_unique<Timer>(loop, [&] {
    if (++ticks == 5) loop.stop();
    periodic->timeMinIs(loop.now() + 1);
  });
  periodic->timeMinIs(loop.now() + 1);
  loop.run(true);
  EXPECT_EQ(ticks, 5);
  EXPECT_EQ(loop.now(), 55.0);

  // A stop made outside run() does not cancel the next run.
  loop.stop();
  periodic->timeMinIs(never);
  int ran = 0;
  loop.post([&] { ++ran; });
  loop.run();
  EXPECT_EQ(ran, 1);
}

TEST(EventLoop, LivelockIsReportedAndStopped) {
  EventLoop loop;
  std::function<void()> again = [&] { loop.post(again); };
  loop.post(again);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(loop.runPending(), EventLoop::dispatchLimit);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("event loop: stopped after"));
  EXPECT_TRUE(loop.hasPendingWork());
}

}  // namespace
