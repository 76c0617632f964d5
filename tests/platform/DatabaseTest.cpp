// Mounts and lookups through the entity manager an agent is handed.
#include <gtest/gtest.h>

#include "TestEntities.h"
#include "platform/Database.h"
#include "platform/EventLoop.h"

using namespace platform;
using namespace testing_entities;

TEST(EntityManager, LookupsHonourPathTypeAndMode) {
  Database db;
  EventLoop loop;
  EntityManager em(db, loop);
  em.mountGroup()->doMount<Root>("test/ro", "r");
  em.mountGroup()->doMount<Root>("test/rw", "w");
  em.mountGroup()->close(false, "", 0);

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
}

TEST(EntityManagerDeathTest, WritableLookupOfAReadOnlyMountIsFatal) {
  Database db;
  EventLoop loop;
  EntityManager em(db, loop);
  em.mountGroup()->doMount<Root>("test/ro", "r");
  EXPECT_DEATH(em.lookup<Root>("test/ro"), "writable lookup of a read-only mount");
}
