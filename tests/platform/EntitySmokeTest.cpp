#include <gtest/gtest.h>

#include "platform/Codec.h"
#include "platform/Reactor.h"
#include "TestEntities.h"

using namespace platform;
using namespace testing_entities;

TEST(EntitySmoke, Basics) {
  Database db;
  Mount* m = db.rootIs<Root>("test/root");
  ASSERT_TRUE(m);
  auto root = dynamicPtrCast<Root>(m->root());
  int flagCalls = 0;
  std::vector<IntfId> leafKeys;
  Reactor r;
  r.on(root->flag, [&] { ++flagCalls; });
  r.on(root->leaf, [&](const IntfId& k) { leafKeys.push_back(k); });
  root->flag.set(true);
  root->flag.set(true);
  EXPECT_EQ(flagCalls, 1);
  root->leaf.is(IntfId("Ethernet3/1"));
  root->leaf.is(IntfId("Ethernet3/1"));
  EXPECT_EQ(leafKeys.size(), 1u);
  std::string err;
  Change c;
  auto v = parseJson(R"({"op":"set","path":"test/root/leaf/Ethernet3/1/color","value":"blue"})", err);
  ASSERT_TRUE(v) << err;
  ASSERT_TRUE(parseChange(*v, c, err)) << err;
  ASSERT_TRUE(applyChange(db, c, err)) << err;
  EXPECT_EQ(root->leaf.get(IntfId("Ethernet3/1"))->color(), Color::blue);
  std::cout << toJson(dumpState(db), 2) << "\n";
}
