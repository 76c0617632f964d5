#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/IpGenAddr.h"

namespace platform {
namespace {

IpGenAddr addr(std::string_view text) {
  const auto a = IpGenAddr::parse(text);
  EXPECT_TRUE(a.has_value()) << text;
  return a.value_or(IpGenAddr());
}

TEST(IpGenAddrTest, ParsePrintsCanonicalTextThatParsesBack) {
  struct Case {
    const char* text;
    AddrFamily af;
    const char* canonical;
  };
  const Case cases[] = {
      {"10.0.0.1", AddrFamily::ipv4, "10.0.0.1"},
      {"0.0.0.0", AddrFamily::ipv4, "0.0.0.0"},
      {"255.255.255.255", AddrFamily::ipv4, "255.255.255.255"},
      {"::", AddrFamily::ipv6, "::"},
      {"0:0:0:0:0:0:0:0", AddrFamily::ipv6, "::"},
      {"::1", AddrFamily::ipv6, "::1"},
      {"2001:db8::1", AddrFamily::ipv6, "2001:db8::1"},
      {"2001:0DB8:0000:0000:0000:0000:0000:000A", AddrFamily::ipv6, "2001:db8::a"},
      {"fe80::1:0:0:2", AddrFamily::ipv6, "fe80::1:0:0:2"},
      {"::ffff:1.2.3.4", AddrFamily::ipv6, "::ffff:1.2.3.4"},
      {"ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255", AddrFamily::ipv6,
       "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const auto a = IpGenAddr::parse(c.text);
    ASSERT_TRUE(a.has_value());
    EXPECT_EQ(a->af(), c.af);
    EXPECT_EQ(a->bytes().size(), c.af == AddrFamily::ipv4 ? 4u : 16u);
    EXPECT_EQ(a->str(), c.canonical);
    std::ostringstream os;
    os << *a;
    EXPECT_EQ(os.str(), c.canonical);
    EXPECT_EQ(IpGenAddr::parse(a->str()), a);
  }
}

TEST(IpGenAddrTest, ParseRejectsMalformedText) {
  using namespace std::string_view_literals;
  const std::string_view cases[] = {
      "1.2.3",
      "1.2.3.4.5",
      "256.1.1.1",
      "1.2.3.-4",
      "01.2.3.4",
      " 1.2.3.4",
      "1.2.3.4 ",
      "1.2.3.4/24",
      "a.b.c.d",
      "localhost",
      ":::",
      "1::2::3",
      "1:2:3:4:5:6:7:8:9",
      "12345::",
      "fe80::1%eth0",
      "::ffff:1.2.3.256",
      "[::1]",
      "1.2.3.4\0junk"sv,  // an embedded NUL must not end the text early
      "1111:2222:3333:4444:5555:6666:7777:8888:9999:aaaa:bbbb",  // longer than any address
  };
  for (const auto text : cases) {
    SCOPED_TRACE(std::string(text));
    EXPECT_FALSE(IpGenAddr::parse(text).has_value());
  }
}

TEST(IpGenAddrTest, ZeroPredicatesDependOnFamilyAndEveryByte) {
  struct Case {
    IpGenAddr a;
    bool zero, v4Any, v6Unspecified;
  };
  // No address at all ("" in JSON) is zero, but neither family's any-address.
  const Case cases[] = {{IpGenAddr(), true, false, false},        {addr(""), true, false, false},
                        {addr("0.0.0.0"), true, true, false},     {addr("::"), true, false, true},
                        {addr("0.0.0.1"), false, false, false},   {addr("128.0.0.0"), false, false, false},
                        {addr("::1"), false, false, false},       {addr("8000::"), false, false, false},
                        {addr("::ffff:0.0.0.0"), false, false, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.a.str());
    EXPECT_EQ(c.a.isZero(), c.zero);
    EXPECT_EQ(c.a.isV4Any(), c.v4Any);
    EXPECT_EQ(c.a.isV6Unspecified(), c.v6Unspecified);
  }
  EXPECT_EQ(IpGenAddr().str(), "");
}

TEST(IpGenAddrTest, FamiliesNeverCompareEqualAndOrderByFamilyThenValue) {
  // Zero in each family, and the v4-mapped form, are distinct values with distinct hashes.
  const std::vector<IpGenAddr> distinct = {IpGenAddr(), addr("0.0.0.0"), addr("::"),
                                           addr("1.2.3.4"), addr("::ffff:1.2.3.4")};
  for (std::size_t i = 0; i < distinct.size(); ++i) {
    for (std::size_t j = 0; j < distinct.size(); ++j) {
      EXPECT_EQ(distinct[i] == distinct[j], i == j) << distinct[i] << " vs " << distinct[j];
      if (i != j) {
        EXPECT_NE(distinct[i].hash(), distinct[j].hash()) << distinct[i] << " vs " << distinct[j];
      }
    }
  }

  // Ascending: bytes compare in network order, so the first octet weighs most.
  const std::vector<IpGenAddr> sorted = {IpGenAddr(),
                                         addr("0.0.0.0"),
                                         addr("0.0.0.255"),
                                         addr("0.0.1.0"),
                                         addr("9.255.255.255"),
                                         addr("10.0.0.1"),
                                         addr("10.0.0.2"),
                                         addr("192.168.0.1"),
                                         addr("255.255.255.255"),
                                         addr("::"),
                                         addr("::1"),
                                         addr("::ffff:0.0.0.1"),
                                         addr("2001:db8::1"),
                                         addr("2001:db8:0:1::"),
                                         addr("fe80::1"),
                                         addr("ffff::")};
  for (std::size_t i = 0; i + 1 < sorted.size(); ++i) {
    EXPECT_LT(sorted[i], sorted[i + 1]) << sorted[i] << " < " << sorted[i + 1];
    EXPECT_GT(sorted[i + 1], sorted[i]);
  }
}

TEST(IpGenAddrTest, EqualValuesHashEqualWhateverTheirText) {
  EXPECT_EQ(addr("2001:db8::1").hash(), addr("2001:0db8:0:0:0:0:0:0001").hash());
  EXPECT_EQ(addr("10.0.0.1").hash(), IpGenAddr::v4(0x0a000001).hash());
  std::unordered_set<IpGenAddr> set = {addr("2001:db8::1"), addr("10.0.0.1")};
  EXPECT_EQ(set.count(addr("2001:DB8:0::1")), 1u);
  EXPECT_EQ(set.count(addr("10.0.0.2")), 0u);
}

}  // namespace
}  // namespace platform
