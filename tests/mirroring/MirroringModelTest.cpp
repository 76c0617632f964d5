// The value types of the mirroring model: what equality, hashing and JSON make of them.
#include <gtest/gtest.h>

#include "Mirroring/MirroringModel.h"
#include "platform/ValueTraits.h"

using namespace Mirroring;

TEST(GreTunnelKey, DefaultsEqualityHashAndUsableDestination) {
  GreTunnelKey a, b;
  EXPECT_EQ(a.ttl, 128);
  EXPECT_EQ(a.tos, 0);
  EXPECT_EQ(a.greProto, 0x88BE);
  EXPECT_EQ(a.greKey, 0u);
  EXPECT_EQ(a.vrf.str(), "default");
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  b.vrf = platform::VrfName("red");
  EXPECT_NE(a, b);
  EXPECT_NE(a.hash(), b.hash());

  EXPECT_FALSE(a.hasUsableDestination());  // no address at all
  a.dstIpAddr = *platform::IpGenAddr::parse("0.0.0.0");
  EXPECT_FALSE(a.hasUsableDestination());
  a.dstIpAddr = *platform::IpGenAddr::parse("::");
  EXPECT_FALSE(a.hasUsableDestination());
  a.dstIpAddr = *platform::IpGenAddr::parse("2001:db8::1");
  EXPECT_TRUE(a.hasUsableDestination());
}

TEST(GreTunnelKey, RoundTripsThroughJsonWithRangeChecks) {
  GreTunnelKey k;
  k.dstIpAddr = *platform::IpGenAddr::parse("10.0.0.1");
  k.ttl = 64;
  k.vrf = platform::VrfName("blue");
  platform::Value v = platform::ValueTraits<GreTunnelKey>::encode(k);
  GreTunnelKey back;
  platform::DecodeContext ctx;
  ASSERT_TRUE(platform::ValueTraits<GreTunnelKey>::decode(v, back, ctx)) << ctx.error;
  EXPECT_EQ(back, k);

  platform::Value tooLong = v;
  tooLong.set("vrf", std::string(101, 'x'));
  EXPECT_FALSE(platform::ValueTraits<GreTunnelKey>::decode(tooLong, back, ctx));
  platform::Value badTtl = v;
  badTtl.set("ttl", 256);
  platform::DecodeContext ctx2;
  EXPECT_FALSE(platform::ValueTraits<GreTunnelKey>::decode(badTtl, back, ctx2));
}

TEST(OperStatus, StateAndReasonBothCount) {
  EXPECT_NE(OperStatus(OperState::active), OperStatus(OperState::unknown));
  EXPECT_EQ(OperStatus::inactive("Source Conflict"), OperStatus(OperState::inactive, "Source Conflict"));
  EXPECT_NE(OperStatus::inactive("Source Conflict"), OperStatus::inactive("Destination Conflict"));
  platform::Value v = platform::ValueTraits<OperStatus>::encode(OperStatus::inactive("x"));
  EXPECT_EQ(v.find("state")->asString(), "inactive");
}
