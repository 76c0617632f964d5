// ReactorMap: one reactor per entry, kept in step with the followed collection, each told to
// prepare to die before it goes, also when a handler changes the map while it is walked.
#include "platform/ReactorMap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestEntities.h"

namespace {

using platform::IntfId;
using platform::Ptr;
using testing_entities::Leaf;
using ::testing::ElementsAre;

struct Log {
  std::vector<std::string> lines;
};

// Follows one leaf's colour; records what happens to it.
struct LeafReactor {
  LeafReactor(Ptr<const Leaf> l, Log* log) : leaf(std::move(l)), log(log) {
    reactor.on(leaf->color, [this] { this->log->lines.push_back("color " + leaf->name().name()); });
  }
  const Ptr<const Leaf>& entry() const { return leaf; }
  void prepareToDie() { log->lines.push_back("dies " + leaf->name().name()); }

  Ptr<const Leaf> leaf;
  Log* log;
  platform::Reactor reactor;
};

TEST(ReactorMap, FollowsACollectionEntryByEntry) {
  auto root = platform::make<testing_entities::Root>();
  root->leaf.is(IntfId("Ethernet1"));
  Log log;
  platform::Reactor reactor;
  platform::ReactorMap<IntfId, LeafReactor> map;
  map.follow(reactor, root->leaf, [&log](LeafReactor& r) { log.lines.push_back("added " + r.leaf->name().name()); },
             &log);
  // Existing entries get a reactor at once, but nothing is announced for them.
  EXPECT_THAT(map.keys(), ElementsAre(IntfId("Ethernet1")));
  EXPECT_TRUE(log.lines.empty());

  root->leaf.is(IntfId("Ethernet2"));
  root->leaf.get(IntfId("Ethernet2"))->color.set(testing_entities::Color::green);
  // A replaced entry gets a new reactor; the old one is told first.
  root->leaf.insert(IntfId("Ethernet1"), platform::make<Leaf>(IntfId("Ethernet1")));
  root->leaf.del(IntfId("Ethernet2"));
  EXPECT_THAT(log.lines, ElementsAre("added Ethernet2", "color Ethernet2", "dies Ethernet1", "added Ethernet1",
                                     "dies Ethernet2"));
  EXPECT_THAT(map.keys(), ElementsAre(IntfId("Ethernet1")));
  EXPECT_EQ(map.find(IntfId("Ethernet1"))->entry(), root->leaf.get(IntfId("Ethernet1")));

  // The same entry again builds nothing.
  EXPECT_EQ(map.is(IntfId("Ethernet1"), Ptr<const Leaf>(root->leaf.get(IntfId("Ethernet1"))), &log), nullptr);
}

TEST(ReactorMap, AWalkSkipsReactorsThatGoMeanwhile) {
  auto root = platform::make<testing_entities::Root>();
  for (const char* name : {"Ethernet1", "Ethernet2", "Ethernet3"}) root->leaf.is(IntfId(name));
  Log log;
  platform::ReactorMap<IntfId, LeafReactor> map;
  for (const auto& k : root->leaf.keys()) map.is(k, Ptr<const Leaf>(root->leaf.get(k)), &log);
  std::vector<std::string> visited;
  map.forEach([&](LeafReactor& r) {
    visited.push_back(r.leaf->name().name());
    map.del(IntfId("Ethernet2"));
  });
  EXPECT_THAT(visited, ElementsAre("Ethernet1", "Ethernet3"));
  map.delAll();
  EXPECT_TRUE(map.empty());
  EXPECT_THAT(log.lines, ElementsAre("dies Ethernet2", "dies Ethernet1", "dies Ethernet3"));
}

}  // namespace
