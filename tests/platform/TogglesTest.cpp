#include "platform/Toggles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace toggles = platform::toggles;
namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

class TogglesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "toggles-test-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir = pattern;
    toggles::setDirectory(dir);
    toggles::setWarningHandler([this](std::string_view w) { warnings.emplace_back(w); });
  }
  void TearDown() override {
    toggles::setWarningHandler({});
    toggles::setDirectory("");
    fs::remove_all(dir);
  }

  void writeFile(const std::string& name, const std::string& text) {
    std::ofstream(dir + "/" + name) << text;
  }

  std::string dir;
  std::vector<std::string> warnings;
};

TEST_F(TogglesTest, ReadsBothFormsAndFallsBackForMissingOrWronglyTypedToggles) {
  writeFile("Mirroring.json", R"({
    // Comments are allowed.
    "plainOn": true, "plainOff": false, "objectOn": {"enabled": true, "owner": "someone"},
    "objectOff": {"enabled": false}, "number": 1, "text": "true", "object": {"enabled": "yes"}
  })");
  struct Case {
    const char* toggle;
    bool fallback, expected;
  };
  const Case cases[] = {{"plainOn", false, true},   {"plainOff", true, false}, {"objectOn", false, true},
                        {"objectOff", true, false}, {"absent", true, true},    {"absent", false, false},
                        {"number", true, true},     {"number", false, false},  {"text", false, false},
                        {"object", true, true}};
  for (const auto& c : cases) {
    EXPECT_EQ(toggles::enabled(c.toggle, "Mirroring.json", c.fallback), c.expected) << c.toggle << " " << c.fallback;
  }
  EXPECT_FALSE(toggles::enabled("plainOn", "Other.json", false)) << "toggles belong to a file";
  // A wrongly typed toggle is worth one warning with the default used, however often it is asked.
  ASSERT_EQ(warnings.size(), 4u);
  EXPECT_EQ(warnings[0], "toggle number in " + dir +
                             "/Mirroring.json is neither a bool nor {\"enabled\": bool}; using default true");
  EXPECT_THAT(warnings[1], StartsWith("toggle text in "));
  EXPECT_THAT(warnings[2], StartsWith("toggle object in "));
  EXPECT_EQ(warnings[3], "toggle file " + dir + "/Other.json not found; using defaults");
}

TEST_F(TogglesTest, MissingFileWarnsOncePerFile) {
  // The handler may look toggles up itself: it runs without the lock.
  toggles::setWarningHandler([this](std::string_view w) {
    warnings.emplace_back(w);
    toggles::enabled("x", "Missing.json", false);
  });
  EXPECT_TRUE(toggles::enabled("a", "Missing.json", true));
  EXPECT_FALSE(toggles::enabled("b", "Missing.json", false));
  EXPECT_TRUE(toggles::enabled("a", "Missing.json", true));
  EXPECT_THAT(warnings,
              ElementsAre("toggle file " + dir + "/Missing.json not found; using defaults"));
  toggles::enabled("a", "AlsoMissing.json", true);
  EXPECT_EQ(warnings.size(), 2u);
}

TEST_F(TogglesTest, MalformedFileWarnsOnceWithTheReason) {
  writeFile("Broken.json", R"({"a": true,)");
  writeFile("Array.json", "[true]");
  EXPECT_TRUE(toggles::enabled("a", "Broken.json", true));
  EXPECT_FALSE(toggles::enabled("a", "Broken.json", false)) << "nothing of a broken file is used";
  EXPECT_TRUE(toggles::enabled("a", "Array.json", true));
  EXPECT_TRUE(toggles::enabled("b", "Array.json", true));
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_THAT(warnings[0], StartsWith("toggle file " + dir + "/Broken.json is malformed ("));
  EXPECT_THAT(warnings[0], HasSubstr("parse error"));
  EXPECT_THAT(warnings[0], ::testing::EndsWith("); using defaults"));
  EXPECT_EQ(warnings[1],
            "toggle file " + dir + "/Array.json is malformed (not a JSON object); using defaults");
}

TEST_F(TogglesTest, FilesAreCachedUntilReset) {
  writeFile("Cached.json", R"({"a": true})");
  EXPECT_TRUE(toggles::enabled("a", "Cached.json", false));
  writeFile("Cached.json", R"({"a": false})");
  EXPECT_TRUE(toggles::enabled("a", "Cached.json", false)) << "read once";
  toggles::enabled("a", "Gone.json", false);
  EXPECT_EQ(warnings.size(), 1u);

  toggles::reset();
  EXPECT_FALSE(toggles::enabled("a", "Cached.json", true));
  toggles::enabled("a", "Gone.json", false);
  EXPECT_EQ(warnings.size(), 2u) << "reset forgets the warnings given too";
}

TEST_F(TogglesTest, DirectoryDefaultsToEnvironmentThenFixedPath) {
  writeFile("Dir.json", R"({"a": true})");
  EXPECT_EQ(toggles::directory(), dir);
  EXPECT_TRUE(toggles::enabled("a", "Dir.json", false));

  ::setenv("TOGGLE_DIR", "/nonexistent-toggles", 1);
  toggles::setDirectory("");
  EXPECT_EQ(toggles::directory(), "/nonexistent-toggles");
  EXPECT_FALSE(toggles::enabled("a", "Dir.json", false));
  EXPECT_THAT(warnings.back(), HasSubstr("/nonexistent-toggles/Dir.json not found"));

  ::unsetenv("TOGGLE_DIR");
  EXPECT_EQ(toggles::directory(), "/etc/mirroring/toggles");

  toggles::setDirectory(dir);
  EXPECT_TRUE(toggles::enabled("a", "Dir.json", false)) << "setDirectory drops the cache";
}

}  // namespace
