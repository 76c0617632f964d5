// The JSON codec: round trips of every field shape, set versus merge, the change stream
// replaying to the same state, and the limits of JSON text. Bad input as a whole is refused in
// the catalogue of tests/host/BadInputTest.cpp.
#include <gtest/gtest.h>

#include "TestEntities.h"
#include "platform/Codec.h"
#include "platform/Reactor.h"

using namespace platform;
using namespace testing_entities;

namespace {

constexpr const char* kFullState = R"({
  "test/other": {"reference": {"r": "test/root/leaf/Ethernet3/1"}},
  "test/root": {
    "flag": true,
    "count": 4000000000,
    "point": {"x": -3, "y": 4, "label": "p"},
    "leaf": {"Ethernet3/1": {"color": "blue", "weight": 7}, "Ethernet10": {"color": 1}},
    "number": {"a": 65535, "b": 0},
    "byPoint": [{"key": {"x": 1, "y": 2, "label": ""}, "value": "one-two"}],
    "tag": ["x", "y"],
    "inner": {"text": "hello", "vrf": "red"},
    "optional": {"text": "opt", "vrf": "default"}
  }
})";

struct Codec : ::testing::Test {
  Database db;
  Ptr<Root> root;
  Ptr<Root> other;
  void SetUp() override {
    root = dynamicPtrCast<Root>(db.rootIs<Root>("test/root")->root());
    other = dynamicPtrCast<Root>(db.rootIs<Root>("test/other")->root());
  }

  void load(const char* text) {
    std::string error;
    auto v = parseJson(text, error);
    ASSERT_TRUE(v) << error;
    ASSERT_TRUE(loadState(db, *v, error)) << error;
  }
  // Applies one change line; answers the error ("" when it applied).
  std::string change(const std::string& line) {
    std::string error;
    auto v = parseJson(line, error);
    if (!v) return error;
    Change c;
    if (!parseChange(*v, c, error)) return error;
    applyChange(db, c, error);
    return error;
  }
  std::string dump() { return toJson(dumpState(db)); }
};

}  // namespace

TEST_F(Codec, EveryFieldShapeRoundTrips) {
  load(kFullState);
  EXPECT_EQ(root->count(), 4000000000u);
  EXPECT_EQ(root->leaf.get(IntfId("Ethernet10"))->color(), Color::green);  // by number in
  EXPECT_EQ(root->byPoint.get(Point{1, 2, ""}), "one-two");
  EXPECT_EQ(other->reference.get("r").get(), root->leaf.get(IntfId("Ethernet3/1")));
  EXPECT_EQ(root->inner->vrf().str(), "red");

  Database copy;
  auto copyOther = dynamicPtrCast<Root>(copy.rootIs<Root>("test/other")->root());
  copy.rootIs<Root>("test/root");
  std::string error;
  auto text = toJson(dumpState(db), 2);
  auto v = parseJson(text, error);
  ASSERT_TRUE(v && loadState(copy, *v, error)) << error;
  EXPECT_FALSE(entitiesEqual(*root, *dynamicPtrCast<Root>(make<Root>())));
  // References compare by identity, so compare the rest field by field and the reference by path.
  EXPECT_EQ(toJson(dumpState(copy), 2), text);
  EXPECT_EQ(copyOther->reference.get("r")->path(), "test/root/leaf/Ethernet3/1");
  EXPECT_NE(text.find("\"color\": \"green\""), std::string::npos);  // by name out
}

TEST_F(Codec, SetReplacesAndMergeKeeps) {
  load(kFullState);
  EXPECT_EQ(change(R"({"op":"merge","path":"test/root","value":{"count":1,"tag":["z"]}})"), "");
  EXPECT_TRUE(root->flag());
  EXPECT_EQ(root->tag.size(), 3u);  // merged into the set
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/leaf/Ethernet3/1","value":{"weight":9}})"), "");
  auto leaf = root->leaf.get(IntfId("Ethernet3/1"));
  EXPECT_EQ(leaf->color(), Color::red);  // set resets what it does not name
  EXPECT_EQ(leaf->weight(), 9);
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/number","value":{"c":3}})"), "");
  EXPECT_EQ(root->number.keys(), std::vector<std::string>{"c"});
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/tag/w"})"), "");
  EXPECT_TRUE(root->tag.contains("w"));
  EXPECT_EQ(change(R"({"op":"del","path":"test/root/tag/w"})"), "");
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/byPoint","key":{"x":5},"value":"five"})"), "");
  EXPECT_EQ(root->byPoint.get(Point{5, 7, ""}), "five");  // struct members default where not named
  EXPECT_EQ(change(R"({"op":"del","path":"test/root/byPoint","key":{"x":5}})"), "");
  EXPECT_FALSE(root->byPoint.contains(Point{5, 7, ""}));
  // An entry updated in place keeps its identity, so followers of the entity keep working.
  EXPECT_EQ(change(R"({"op":"merge","path":"test/root/leaf/Ethernet3/1","value":{"color":"blue"}})"), "");
  EXPECT_EQ(root->leaf.get(IntfId("Ethernet3/1")), leaf);
  // A struct attribute: merge writes the members named, set takes defaults for the others.
  EXPECT_EQ(change(R"({"op":"merge","path":"test/root/point","value":{"y":9}})"), "");
  EXPECT_EQ(root->point(), (Point{-3, 9, "p"}));
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/point","value":{"x":1}})"), "");
  EXPECT_EQ(root->point(), (Point{1, 7, ""}));
  // A whole mount that is set keeps only what the value names.
  EXPECT_EQ(change(R"({"op":"set","path":"test/root","value":{"count":2}})"), "");
  EXPECT_EQ(root->count(), 2u);
  EXPECT_FALSE(root->flag());
  EXPECT_EQ(root->point(), Point{});
  EXPECT_TRUE(root->leaf.empty() && root->tag.empty() && root->number.empty());
  EXPECT_EQ(root->inner->text(), "");
}

TEST_F(Codec, InterfaceNamesKeptAsStringsKeepStringOrderAndAnEmptyValueMeansNone) {
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/member","value":["Ethernet2","Ethernet10"]})"), "");
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/member/Ethernet3/1"})"), "");
  EXPECT_EQ(root->member.keys(), (std::vector<std::string>{"Ethernet10", "Ethernet2", "Ethernet3/1"}));
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/uplink","value":"Port-Channel5"})"), "");
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/uplink","value":""})"), "");
  EXPECT_EQ(root->uplink(), "");
  // A key restated inside its entry matches by what it reads as.
  EXPECT_EQ(change(R"({"op":"set","path":"test/root/leaf/Ethernet3/1","value":{"name":"Ethernet3/1"}})"), "");
}

TEST_F(Codec, TheChangeStreamReplaysToTheSameState) {
  // Every write, as the write listener reports it, becomes a change; replaying the changes
  // on an empty database must give the same content.
  std::vector<Change> stream;
  db.writeListenerIs([&](const Mount&, const FieldBase& f, WriteKind kind, const void* key) {
    stream.push_back(describeWrite(f, kind, key));
  });
  load(kFullState);
  root->leaf.del(IntfId("Ethernet10"));
  root->byPoint.set(Point{9, 9, "nine"}, "n");
  root->tag.del("x");
  root->optional.set(nullptr);
  root->inner->text.set("changed");

  Database replay;
  replay.rootIs<Root>("test/root");
  replay.rootIs<Root>("test/other");
  for (const Change& c : stream) {
    std::string error;
    ASSERT_TRUE(applyChange(replay, c, error)) << toJson(changeToValue(c)) << ": " << error;
  }
  EXPECT_EQ(toJson(dumpState(replay)), dump());
}

TEST_F(Codec, AnExistingDirectoryEntryMayLeaveOutItsType) {
  registerType<Inner>();
  auto dir = dynamicPtrCast<Dir>(db.rootIs<Dir>("test/dir")->root());
  EXPECT_EQ(change(R"({"op":"set","path":"test/dir/entry/one","value":{"@type":"Test::Inner","text":"t"}})"), "");
  EXPECT_EQ(change(R"({"op":"merge","path":"test/dir/entry","value":{"one":{"vrf":"blue"}}})"), "");
  EXPECT_EQ(change(R"({"op":"set","path":"test/dir/entry/one","value":{"text":"u"}})"), "");
  ASSERT_TRUE(dir->entry.get<Inner>("one"));
  EXPECT_EQ(dir->entry.get<Inner>("one")->text(), "u");
  EXPECT_EQ(dir->entry.get<Inner>("one")->vrf().str(), "default");
}

// --- JSON text ------------------------------------------------------------------------------

namespace {

std::string nested(std::size_t depth, char open, char close) {
  return std::string(depth, open) + std::string(depth, close);
}
std::string nestedObjects(std::size_t depth) {
  std::string text;
  for (std::size_t i = 0; i < depth; ++i) text += R"({"a":)";
  return text + "1" + std::string(depth, '}');
}

}  // namespace

TEST(JsonText, NestingIsBoundedAtMaxJsonDepthWhateverTheInput) {
  struct Case {
    std::string text;
    std::string error;  // "" when accepted
  };
  const std::vector<Case> cases = {
      {nested(maxJsonDepth, '[', ']'), ""},
      {nestedObjects(maxJsonDepth), ""},
      {nested(maxJsonDepth + 1, '[', ']'), "at 0/0/0/0/0/0/0/0/...: JSON nested deeper than 100 levels"},
      {nestedObjects(maxJsonDepth + 1), "at a/a/a/a/a/a/a/a/...: JSON nested deeper than 100 levels"},
      {R"({"x": [1, {"y": )" + nested(99, '[', ']') + "}]}", "at x/1/y/0/0/0/0/0/...: JSON nested deeper"},
  };
  for (const auto& c : cases) {
    std::string error;
    auto v = parseJson(c.text, error);
    if (c.error.empty()) {
      ASSERT_TRUE(v) << error;
      EXPECT_EQ(toJson(*v), c.text);  // and it goes back out the same way
    } else {
      EXPECT_FALSE(v);
      EXPECT_NE(error.find(c.error), std::string::npos) << c.text.substr(0, 40) << "\n  gave: " << error;
    }
  }
}

TEST(JsonText, AnObjectNamesEachMemberOnce) {
  std::string wide = "{";  // past the size where members are indexed
  for (int i = 0; i < 40; ++i) wide += "\"m" + std::to_string(i) + "\":" + std::to_string(i) + ",";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {wide + R"("m39":0})", "duplicate member \"m39\""},
      {wide + R"("m0":0})", "duplicate member \"m0\""},
      {R"({"a":1,"b":{"a":2}})", ""},
      {wide + R"("m40":40})", ""},
  };
  for (const auto& [text, expected] : cases) {
    std::string error;
    auto v = parseJson(text, error);
    if (expected.empty()) {
      ASSERT_TRUE(v) << error;
      EXPECT_EQ(toJson(*v), text) << "members keep their order";
    } else {
      EXPECT_FALSE(v) << text;
      EXPECT_EQ(error, expected) << text;
    }
  }
}

TEST(JsonText, NumbersAndStringsKeepTheirKind) {
  std::string error;
  auto v = parseJson(R"([-5, 5, 18446744073709551615, 2.5, 1e3, "\u00e9", null, true])", error);
  ASSERT_TRUE(v) << error;
  const auto& a = v->asArray();
  EXPECT_EQ(a[0].kind(), Value::Kind::integer);
  EXPECT_EQ(a[1].kind(), Value::Kind::unsignedInteger);
  uint64_t big = 0;
  EXPECT_TRUE(a[2].toUint64(big));
  EXPECT_EQ(big, 18446744073709551615u);
  EXPECT_EQ(a[3].kind(), Value::Kind::real);
  EXPECT_TRUE(a[4].isIntegral());
  EXPECT_EQ(a[5].asString(), "\xc3\xa9");
}
