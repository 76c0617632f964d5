// The ACL aggregator: merge precedence, erasure, replacement on change, and quiet no-ops.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/AclConfigAggregatorSm.h"
#include "platform/Codec.h"
#include "platform/Database.h"
#include "platform/HardwareTypes.h"
#include "platform/PlatformTypes.h"

namespace {

using Acl::aclTypeIp;
using Acl::aclTypeMac;
using platform::Ptr;

class AclConfigAggregatorSmTest : public testing::Test {
 protected:
  void SetUp() override {
    platform::registerPlatformTypes();
    cli = root<Acl::Input::Config>("acl/config/cli");
    inputDir = root<platform::Dir>("acl/config/input");
    aggregateMount = db.rootIs<Acl::Config>("acl/config/all");
    aggregate = platform::dynamicPtrCast<Acl::Config>(aggregateMount->root());
  }

  template <class T>
  Ptr<T> root(const std::string& path) {
    return platform::dynamicPtrCast<T>(db.rootIs<T>(path)->root());
  }

  void start(bool withCli = true) {
    sm = platform::make<Acl::AclConfigAggregatorSm>(inputDir, withCli ? cli : nullptr, aggregate);
  }

  // A directory entry (an input source), created when absent.
  Ptr<Acl::Input::Config> input(const std::string& name) {
    if (auto existing = platform::dynamicPtrCast<Acl::Input::Config>(inputDir->entry.get(name))) return existing;
    auto fresh = platform::make<Acl::Input::Config>();
    inputDir->entry.insert(name, fresh);
    return fresh;
  }

  static Ptr<Acl::AclConfig> acl(const Ptr<Acl::Input::Config>& source, Acl::AclType type, const std::string& name,
                                 std::map<uint32_t, std::string> rules, const std::string& remark = "") {
    auto a = source->configIs(type)->aclIs(name);
    for (const auto& [seq, text] : rules) a->ruleIs(seq, text);
    a->remark.set(remark);
    return a;
  }

  // The aggregate's ACL, or null.
  Ptr<Acl::AclConfig> merged(Acl::AclType type, const std::string& name) {
    auto t = aggregate->config.get(type);
    return t ? t->acl.get(name) : nullptr;
  }
  std::string mergedRule(Acl::AclType type, const std::string& name, uint32_t seq) {
    auto a = merged(type, name);
    return a ? a->rule.get(seq) : "<absent>";
  }

  std::string change(const std::string& changeText) {
    std::string error;
    platform::Change c;
    auto v = platform::parseJson(changeText, error);
    if (!v || !platform::parseChange(*v, c, error) || !platform::applyChange(db, c, error)) return error;
    return "";
  }

  platform::Database db;
  Ptr<Acl::Input::Config> cli;
  Ptr<platform::Dir> inputDir;
  platform::Mount* aggregateMount = nullptr;
  Ptr<Acl::Config> aggregate;
  Ptr<Acl::AclConfigAggregatorSm> sm;
};

TEST_F(AclConfigAggregatorSmTest, CreatesEveryTypeEntryAndDropsStaleAcls) {
  // Left by an earlier run, and no source has it any more.
  aggregate->configIs(aclTypeIp)->aclIs("stale");
  start();
  ASSERT_EQ(aggregate->config.size(), 3u);
  for (Acl::AclType type : Acl::allAclTypes) EXPECT_TRUE(aggregate->config.contains(type));
  EXPECT_FALSE(merged(aclTypeIp, "stale"));
}

TEST_F(AclConfigAggregatorSmTest, CliWinsThenDirectoryEntriesInNameOrder) {
  acl(input("b"), aclTypeIp, "web", {{10, "from b"}});
  acl(input("a"), aclTypeIp, "web", {{10, "from a"}});
  acl(input("b"), aclTypeIp, "onlyB", {{10, "b only"}});
  start();
  EXPECT_EQ(mergedRule(aclTypeIp, "web", 10), "from a");
  EXPECT_EQ(mergedRule(aclTypeIp, "onlyB", 10), "b only");

  acl(cli, aclTypeIp, "web", {{10, "from cli"}});
  EXPECT_EQ(mergedRule(aclTypeIp, "web", 10), "from cli");
  // The same name under another type is another ACL.
  EXPECT_FALSE(merged(aclTypeMac, "web"));

  cli->config.get(aclTypeIp)->aclDel("web");
  EXPECT_EQ(mergedRule(aclTypeIp, "web", 10), "from a");
  inputDir->entry.del("a");
  EXPECT_EQ(mergedRule(aclTypeIp, "web", 10), "from b");
}

TEST_F(AclConfigAggregatorSmTest, ErasesWhenTheLastSourceGoes) {
  acl(cli, aclTypeIp, "web", {{10, "cli"}});
  acl(input("a"), aclTypeIp, "web", {{10, "a"}});
  acl(input("a"), aclTypeMac, "mac1", {{10, "a"}});
  start();
  cli->configDel(aclTypeIp);
  EXPECT_EQ(mergedRule(aclTypeIp, "web", 10), "a");
  inputDir->entry.del("a");
  EXPECT_FALSE(merged(aclTypeIp, "web"));
  EXPECT_FALSE(merged(aclTypeMac, "mac1"));
  // The per-type entries stay.
  EXPECT_EQ(aggregate->config.size(), 3u);
}

TEST_F(AclConfigAggregatorSmTest, ContentChangeReplacesTheEntryAndNoOpWritesNothing) {
  acl(cli, aclTypeIp, "web", {{10, "permit"}});
  acl(input("a"), aclTypeIp, "web", {{10, "shadowed"}});
  start();
  std::vector<std::string> seen;
  platform::Reactor r;
  r.on(aggregate->config.get(aclTypeIp)->acl, [&](const std::string& name) { seen.push_back(name); });
  const Ptr<Acl::AclConfig> before = merged(aclTypeIp, "web");

  cli->config.get(aclTypeIp)->acl.get("web")->ruleIs(20, "deny");
  EXPECT_EQ(seen, std::vector<std::string>{"web"});
  const Ptr<Acl::AclConfig> after = merged(aclTypeIp, "web");
  EXPECT_NE(after, before);
  EXPECT_EQ(after->rule.get(20), "deny");
  EXPECT_EQ(after->name(), "web");

  cli->config.get(aclTypeIp)->acl.get("web")->remark.set("note");
  EXPECT_EQ(seen.size(), 2u);
  EXPECT_EQ(merged(aclTypeIp, "web")->remark(), "note");

  // A shadowed source changes: the winner is the same, nothing is written.
  const uint64_t writes = aggregateMount->writes();
  input("a")->config.get(aclTypeIp)->acl.get("web")->ruleIs(30, "still shadowed");
  // A new winner with the same content: nothing is written either.
  auto twin = platform::make<Acl::AclConfig>("web");
  platform::assignEntity(*twin, *merged(aclTypeIp, "web"));
  cli->config.get(aclTypeIp)->acl.insert("web", twin);
  EXPECT_EQ(aggregateMount->writes(), writes);
  EXPECT_EQ(seen.size(), 2u);
}

TEST_F(AclConfigAggregatorSmTest, FollowsSourcesAddedAfterConstruction) {
  start();
  // A new directory entry, written through the codec as another agent would.
  EXPECT_EQ(change(R"({"op": "set", "path": "acl/config/input/entry/late", "value": {"@type": "Acl::Input::Config",
                      "config": {"aclTypeIp": {"acl": {"web": {"rule": {"10": "late"}, "remark": ""}}}}}})"),
            "");
  EXPECT_EQ(mergedRule(aclTypeIp, "web", 10), "late");
  // A new type, then a new ACL inside it, in the entry added above.
  auto late = platform::dynamicPtrCast<Acl::Input::Config>(inputDir->entry.get("late"));
  acl(late, aclTypeMac, "m", {{1, "permit any any"}});
  EXPECT_EQ(mergedRule(aclTypeMac, "m", 1), "permit any any");
  // The entry's content set as a whole (assigned in place by the codec).
  EXPECT_EQ(change(R"({"op": "set", "path": "acl/config/input/entry/late/config/aclTypeIp/acl/web",
                      "value": {"rule": {"10": "edited"}}})"),
            "");
  EXPECT_EQ(mergedRule(aclTypeIp, "web", 10), "edited");
  // The entry emptied by a set of the whole entry.
  EXPECT_EQ(change(R"({"op": "set", "path": "acl/config/input/entry/late", "value": {"@type": "Acl::Input::Config"}})"),
            "");
  EXPECT_FALSE(merged(aclTypeIp, "web"));
  EXPECT_FALSE(merged(aclTypeMac, "m"));
  // Filled again, then deleted.
  acl(late, aclTypeIp, "web", {{10, "again"}});
  EXPECT_EQ(mergedRule(aclTypeIp, "web", 10), "again");
  EXPECT_EQ(change(R"({"op": "del", "path": "acl/config/input/entry/late"})"), "");
  EXPECT_FALSE(merged(aclTypeIp, "web"));
}

TEST_F(AclConfigAggregatorSmTest, WorksWithoutACliInputAndIgnoresForeignEntries) {
  acl(cli, aclTypeIp, "cliOnly", {{10, "ignored"}});
  acl(input("a"), aclTypeIp, "web", {{10, "a"}});
  start(false);
  EXPECT_FALSE(merged(aclTypeIp, "cliOnly"));
  EXPECT_EQ(mergedRule(aclTypeIp, "web", 10), "a");
  // An entry of another type in the directory is no source, and replacing a source by one
  // drops what that source gave.
  inputDir->entry.insert("b", platform::make<Hardware::SliceStatus>());
  inputDir->entry.insert("a", platform::make<Hardware::SliceStatus>());
  EXPECT_FALSE(merged(aclTypeIp, "web"));
}

TEST_F(AclConfigAggregatorSmTest, ReaderThatRewritesASourceFromItsHandler) {
  acl(input("a"), aclTypeIp, "keep", {{10, "a"}});
  acl(input("b"), aclTypeIp, "keep", {{10, "b"}});
  start();
  platform::Reactor reader;
  // When "trigger" shows up, the reader removes the source that brought it, from inside the
  // aggregator's own write.
  reader.on(aggregate->config.get(aclTypeIp)->acl, [&](const std::string& name) {
    if (name == "trigger" && merged(aclTypeIp, "trigger")) inputDir->entry.del("a");
  });
  acl(input("a"), aclTypeIp, "trigger", {{10, "x"}});
  EXPECT_FALSE(inputDir->entry.contains("a"));
  EXPECT_FALSE(merged(aclTypeIp, "trigger"));
  EXPECT_EQ(mergedRule(aclTypeIp, "keep", 10), "b");
  // Still following what is left.
  input("b")->config.get(aclTypeIp)->acl.get("keep")->ruleIs(10, "b2");
  EXPECT_EQ(mergedRule(aclTypeIp, "keep", 10), "b2");
}

}  // namespace
