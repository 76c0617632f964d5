// The entity framework's hard parts: notification only on real change, per-key dispatch,
// re-entrant dispatch that adds, cancels and deletes, handler order, constness of read-only views;
// mounts and lookups through the entity manager an agent is handed.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "TestEntities.h"
#include "platform/Database.h"
#include "platform/EventLoop.h"
#include "platform/Reactor.h"

using namespace platform;
using namespace testing_entities;

namespace {

struct Fixture : ::testing::Test {
  Database db;
  Ptr<Root> root;
  void SetUp() override {
    Mount* m = db.rootIs<Root>("test/root");
    root = dynamicPtrCast<Root>(m->root());
  }
  uint64_t writes() const { return db.find("test/root")->writes(); }
};

using Notification = Fixture;

template <class P>
concept CanWriteFlag = requires(P p) { p->flag.set(true); };
template <class P>
concept CanInsertLeaf = requires(P p) { p->leaf.is(IntfId()); };
using Dispatch = Fixture;

}  // namespace

TEST_F(Notification, OnlyRealChangesNotifyAndCount) {
  int flag = 0, point = 0, number = 0, tag = 0, optional = 0;
  Reactor r;
  r.on(root->flag, [&] { ++flag; });
  r.on(root->point, [&] { ++point; });
  r.on(root->number, [&](const std::string&) { ++number; });
  r.on(root->tag, [&](const std::string&) { ++tag; });
  r.on(root->optional, [&] { ++optional; });

  root->flag.set(false);  // the initial value
  root->point.set(Point{});
  EXPECT_EQ(flag + point, 0);
  EXPECT_EQ(writes(), 0u);

  root->flag.set(true);
  root->flag.set(true);
  root->point.set(Point{1, 2, "a"});
  root->point.set(Point{1, 2, "a"});
  root->number.set("a", 1);
  root->number.set("a", 1);
  root->number.set("a", 2);
  root->tag.insert("x");
  root->tag.insert("x");
  EXPECT_FALSE(root->tag.del("y"));
  EXPECT_FALSE(root->number.del("y"));
  auto inner = make<Inner>();
  root->optional.set(inner);
  root->optional.set(inner);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(point, 1);
  EXPECT_EQ(number, 2);
  EXPECT_EQ(tag, 1);
  EXPECT_EQ(optional, 1);
  EXPECT_EQ(writes(), 6u);

  // Entities that are not under a mount count nowhere.
  auto loose = make<Root>();
  loose->flag.set(true);
  EXPECT_EQ(db.totalWrites(), 6u);
  // A child written through its own attributes counts on its root's mount.
  root->inner->text.set("hello");
  EXPECT_EQ(writes(), 7u);
}

TEST_F(Notification, IsReturnsTheExistingChildAndNotifiesOnce) {
  std::vector<IntfId> keys;
  Reactor r;
  r.on(root->leaf, [&](const IntfId& k) { keys.push_back(k); });
  Ptr<Leaf> a = root->leaf.is(IntfId("Ethernet1"));
  Ptr<Leaf> b = root->leaf.is(IntfId("Ethernet1"));
  EXPECT_EQ(a, b);
  EXPECT_EQ(keys.size(), 1u);
  EXPECT_EQ(a->parent(), root.get());
  EXPECT_EQ(a->path(), "test/root/leaf/Ethernet1");
  EXPECT_TRUE(root->leaf.del(IntfId("Ethernet1")));
  EXPECT_EQ(a->parent(), nullptr);  // detached, but still alive for whoever holds it
  EXPECT_EQ(keys.size(), 2u);
}

TEST_F(Dispatch, OnlyTheChangedKeysHandlersRun) {
  int all = 0, onA = 0, onB = 0;
  Reactor r;
  r.on(root->number, [&](const std::string&) { ++all; });
  r.onKey(root->number, std::string("a"), [&] { ++onA; });
  r.onKey(root->number, std::string("b"), [&] { ++onB; });
  root->number.set("a", 1);
  root->number.set("c", 1);
  root->number.del("a");
  EXPECT_EQ(all, 3);
  EXPECT_EQ(onA, 2);
  EXPECT_EQ(onB, 0);

  // Handlers of other attributes do not run, however many there are.
  int other = 0;
  std::vector<std::unique_ptr<Reactor>> many;
  for (int i = 0; i < 50; ++i) {
    many.push_back(std::make_unique<Reactor>());
    many.back()->on(root->count, [&] { ++other; });
  }
  root->flag.set(true);
  EXPECT_EQ(other, 0);
}

TEST_F(Dispatch, HandlersRunInSubscriptionOrderAndNestedWritesCompleteFirst) {
  std::vector<std::string> log;
  Reactor r;
  r.on(root->flag, [&] {
    log.push_back("flag1");
    root->count.set(root->count() + 1);  // nested dispatch runs to completion here
    log.push_back("flag1-after");
  });
  r.on(root->flag, [&] { log.push_back("flag2 count=" + std::to_string(root->count())); });
  r.on(root->count, [&] { log.push_back("count"); });
  root->flag.set(true);
  EXPECT_EQ(log, (std::vector<std::string>{"flag1", "count", "flag1-after", "flag2 count=1"}));
}

TEST_F(Dispatch, AHandlerMayDestroyItsOwnReactorAndDeleteTheEntity) {
  // A per-entry follower that deletes its own entry, and itself, when the entry changes:
  // the dispatch holds what it needs until it is over (the sanitizer build checks this).
  Ptr<Leaf> leaf = root->leaf.is(IntfId("Ethernet7"));
  auto follower = std::make_unique<Reactor>();
  int calls = 0, afterDelete = 0;
  follower->on(leaf->color, [&] {
    ++calls;
    root->leaf.del(IntfId("Ethernet7"));
    follower.reset();
  });
  Reactor watcher;
  watcher.on(root->leaf, [&](const IntfId&) { ++afterDelete; });
  Leaf* raw = leaf.get();
  leaf = nullptr;  // the collection and the follower hold the only references
  raw->color.set(Color::green);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(afterDelete, 1);
  EXPECT_FALSE(follower);
  EXPECT_TRUE(root->leaf.empty());
}

TEST_F(Dispatch, ManyHandlersCancelledInAnyOrderLeaveTheRestInOrder) {
  struct Case {
    const char* name;
    std::function<void(Reactor&, std::function<void()>)> follow;
    std::function<void(uint32_t)> write;
  };
  const Case cases[] = {
      {"attribute", [&](Reactor& r, std::function<void()> fn) { r.on(root->count, std::move(fn)); },
       [&](uint32_t n) { root->count.set(n); }},
      {"key", [&](Reactor& r, std::function<void()> fn) { r.onKey(root->number, std::string("k"), std::move(fn)); },
       [&](uint32_t n) { root->number.set("k", n); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    constexpr int kHandlers = 64, kAdded = 1000;
    std::vector<int> order(kHandlers);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    const auto cancelledBefore = order.begin() + 40, cancelledDuring = order.begin() + 52;

    // Handler `trigger`, when it runs, cancels order[40..52) (before and after it in the list)
    // and itself, and adds a handler.
    std::vector<int> log;
    std::vector<std::unique_ptr<Reactor>> reactors(kHandlers);
    Reactor added;
    int trigger = -1;
    for (int i = 0; i < kHandlers; ++i) {
      reactors[i] = std::make_unique<Reactor>();
      c.follow(*reactors[i], [&, i] {
        log.push_back(i);
        if (i != trigger) return;
        for (auto k = cancelledBefore; k != cancelledDuring; ++k) reactors[*k].reset();
        reactors[i].reset();
        c.follow(added, [&] { log.push_back(kAdded); });
      });
    }
    auto survivors = [&] {
      std::vector<int> out;
      for (int i = 0; i < kHandlers; ++i) {
        if (reactors[i]) out.push_back(i);
      }
      return out;
    };
    uint32_t written = 0;
    auto run = [&] {
      log.clear();
      c.write(++written);
      return log;
    };
    // Cancels one at a time, checking who runs after each (the list closes its gaps on the way).
    auto cancelEach = [&](auto from, auto to) {
      for (auto k = from; k != to; ++k) {
        reactors[*k].reset();
        EXPECT_EQ(run(), survivors()) << "after cancelling " << *k;
      }
    };

    cancelEach(order.begin(), cancelledBefore);

    // During a dispatch: handlers cancelled before their turn do not run, the added one waits.
    std::vector<int> before = survivors();
    trigger = before[before.size() / 2];
    std::vector<int> expected;
    for (int i : before) {
      if (i <= trigger || std::find(cancelledBefore, cancelledDuring, i) == cancelledDuring) expected.push_back(i);
    }
    EXPECT_EQ(run(), expected);
    trigger = -1;
    expected = survivors();
    expected.push_back(kAdded);
    EXPECT_EQ(run(), expected);

    added.detachAll();
    cancelEach(cancelledDuring, order.end());
    EXPECT_EQ(run(), std::vector<int>());
  }
}

TEST_F(Dispatch, ReadOnlyViewsAreConst) {
  Ptr<const Root> view = root;
  static_assert(!CanWriteFlag<Ptr<const Root>>);
  static_assert(CanWriteFlag<Ptr<Root>>);
  static_assert(!CanInsertLeaf<Ptr<const Root>>);
  static_assert(std::is_same_v<decltype(view->leaf.get(IntfId())), Ptr<const Leaf>>);
  static_assert(std::is_same_v<decltype((*view->leaf.begin()).second), Ptr<const Leaf>>);
  static_assert(std::is_same_v<decltype(view->inner()), Ptr<const Inner>>);
  // Following a const entity is allowed.
  int calls = 0;
  Reactor r;
  r.on(view->flag, [&] { ++calls; });
  root->flag.set(true);
  EXPECT_EQ(calls, 1);
}

TEST(Mounts, LookupsAnswerByPathTypeAndMode) {
  Database db;
  EventLoop loop;
  EntityManager em(db, loop);
  em.mountGroup()->doMount<Root>("test/ro", "r");
  em.mountGroup()->doMount<Root>("test/rw", "wc");
  em.mountGroup()->close(false, "", 0);
  EXPECT_EQ(em.mountGroup()->status(), MountStatus::success);
  EXPECT_TRUE(db.find("test/rw")->writableByAgent());
  EXPECT_FALSE(db.find("test/ro")->writableByAgent());
  EXPECT_TRUE(em.lookup<const Root>("test/ro"));
  EXPECT_TRUE(em.lookup<Root>("test/rw"));
  EXPECT_FALSE(em.lookup<const Root>("test/missing"));
  EXPECT_FALSE(em.lookup<const Inner>("test/ro"));  // another type answers null

  // The same root is found again after a restart of the agent: the database keeps it.
  em.lookup<Root>("test/rw")->count.set(5);
  EntityManager again(db, loop);
  again.mountGroup()->doMount<Root>("test/rw", "w");
  EXPECT_EQ(again.lookup<Root>("test/rw")->count(), 5u);

  Ptr<Inner> local = em.localEntityIs<Inner>("Inner", "test/local");
  EXPECT_TRUE(local);
  EXPECT_EQ(em.localEntityIs<Inner>("Inner", "test/local"), local);
  EXPECT_TRUE(db.find("test/local")->writableByAgent());

  // A second declaration of the same path with another type fails the group.
  MountGroup other(db);
  other.doMount<Inner>("test/ro", "r");
  EXPECT_EQ(other.status(), MountStatus::failure);
  ASSERT_EQ(other.problems().size(), 1u);
}

TEST(MountsDeathTest, WritableLookupOfAReadOnlyMountIsFatal) {
  Database db;
  EventLoop loop;
  EntityManager em(db, loop);
  em.mountGroup()->doMount<Root>("test/ro", "r");
  EXPECT_DEATH(em.lookup<Root>("test/ro"), "writable lookup of a read-only mount");
}
