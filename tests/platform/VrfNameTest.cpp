#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <unordered_set>

#include "platform/VrfName.h"

namespace platform {
namespace {

TEST(VrfNameTest, DefaultConstructedNamesTheDefaultVrf) {
  const VrfName vrf;
  EXPECT_EQ(vrf.str(), "default");
  EXPECT_EQ(vrf.str(), VrfName::defaultName);
  EXPECT_TRUE(vrf.isDefault());
  EXPECT_EQ(vrf, VrfName("default"));
  EXPECT_FALSE(VrfName("red").isDefault());
}

TEST(VrfNameTest, LengthLimitIsOneHundredBytes) {
  const std::string longest(VrfName::maxLength, 'v');
  const std::string tooLong(VrfName::maxLength + 1, 'v');
  EXPECT_EQ(longest.size(), 100u);
  EXPECT_TRUE(VrfName::valid(longest));
  EXPECT_FALSE(VrfName::valid(tooLong));
  EXPECT_TRUE(VrfName::valid(""));
  EXPECT_EQ(VrfName(longest).str(), longest);
}

TEST(VrfNameDeathTest, ConstructingFromTooLongTextIsFatal) {
  const std::string tooLong(VrfName::maxLength + 1, 'v');
  EXPECT_DEATH(VrfName{tooLong}, "VRF name longer than VrfName::maxLength");
}

TEST(VrfNameTest, ComparesHashesAndPrintsByName) {
  EXPECT_EQ(VrfName("red"), VrfName(std::string("red")));
  EXPECT_NE(VrfName("red"), VrfName("blue"));
  const std::set<VrfName> sorted = {VrfName("red"), VrfName("blue"), VrfName("default")};
  EXPECT_EQ(sorted.begin()->str(), "blue");
  EXPECT_EQ(sorted.rbegin()->str(), "red");
  const std::unordered_set<VrfName> set = {VrfName("red")};
  EXPECT_EQ(set.count(VrfName("red")), 1u);
  EXPECT_EQ(set.count(VrfName("blue")), 0u);
  std::ostringstream os;
  os << VrfName("mgmt");
  EXPECT_EQ(os.str(), "mgmt");
}

}  // namespace
}  // namespace platform
