#include <gtest/gtest.h>

#include <string>

#include "platform/VrfName.h"

namespace platform {
namespace {

TEST(VrfNameTest, LengthLimitIsOneHundredBytes) {
  const std::string longest(VrfName::maxLength, 'v');
  const std::string tooLong(VrfName::maxLength + 1, 'v');
  EXPECT_EQ(longest.size(), 100u);
  EXPECT_TRUE(VrfName::valid(longest));
  EXPECT_FALSE(VrfName::valid(tooLong));
  EXPECT_TRUE(VrfName::valid(""));
  EXPECT_EQ(VrfName(longest).str(), longest);
  EXPECT_TRUE(VrfName().isDefault());
  EXPECT_FALSE(VrfName("red").isDefault());
}

TEST(VrfNameDeathTest, ConstructingFromTooLongTextIsFatal) {
  const std::string tooLong(VrfName::maxLength + 1, 'v');
  EXPECT_DEATH(VrfName{tooLong}, "VRF name longer than VrfName::maxLength");
}

}  // namespace
}  // namespace platform
