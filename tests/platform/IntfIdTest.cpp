#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/IntfId.h"

namespace platform {
namespace {

struct Accepted {
  const char* name;
  IntfKind kind;
  uint32_t number;
  uint32_t module;
};

TEST(IntfIdTest, ParseAcceptsWellFormedNamesWithTheirKindAndNumbers) {
  const Accepted cases[] = {
      {"Ethernet1", IntfKind::ethernet, 1, 0},
      {"Ethernet5", IntfKind::ethernet, 5, 0},
      {"Ethernet3/1", IntfKind::ethernet, 3, 3},
      {"Ethernet3/1/2", IntfKind::ethernet, 3, 3},
      {"Ethernet10/48/4", IntfKind::ethernet, 10, 10},
      {"Ethernet4294967295", IntfKind::ethernet, 4294967295u, 0},
      {"Ethernet4294967295/4294967295/4294967295", IntfKind::ethernet, 4294967295u, 4294967295u},
      {"Port-Channel1", IntfKind::portChannel, 1, 0},
      {"Port-Channel2000", IntfKind::portChannel, 2000, 0},
      {"Cpu", IntfKind::cpu, 0, 0},
      {"Gre0", IntfKind::greTunnel, 0, 0},
      {"Gre1", IntfKind::greTunnel, 1, 0},
      {"Gre4094", IntfKind::greTunnel, 4094, 0},
      {"Loopback0", IntfKind::loopback, 0, 0},
      {"Loopback10", IntfKind::loopback, 10, 0},
      {"Vlan1", IntfKind::vlan, 1, 0},
      {"Vlan4094", IntfKind::vlan, 4094, 0},
      {"Management0", IntfKind::management, 0, 0},
      {"Management1/1", IntfKind::management, 1, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto id = IntfId::parse(c.name);
    ASSERT_TRUE(id.has_value());
    EXPECT_EQ(id->name(), c.name);
    EXPECT_EQ(id->kind(), c.kind);
    EXPECT_EQ(id->number(), c.number);
    EXPECT_EQ(id->module(), c.module);
    EXPECT_EQ(id->greTunnelNumber(), c.kind == IntfKind::greTunnel ? c.number : 0u);
    EXPECT_FALSE(id->empty());
    // The name constructor must agree with parse on well-formed names.
    const IntfId constructed(c.name);
    EXPECT_EQ(constructed, *id);
    EXPECT_EQ(constructed.kind(), c.kind);
    // Round trip through text.
    std::ostringstream os;
    os << *id;
    EXPECT_EQ(IntfId::parse(os.str()), id);
  }
}

TEST(IntfIdTest, ParseRejectsMalformedNamesWhichTheConstructorKeepsAsOther) {
  const char* const cases[] = {
      // Missing, zero, signed, padded or oversized numbers.
      "Ethernet", "Ethernet0", "Ethernet01", "Ethernet+1", "Ethernet-1", "Ethernet 1",
      "Ethernet4294967296", "Ethernet99999999999999999999", "Ethernet00000000000000000001",
      // Malformed module/port parts.
      "Ethernet1/", "Ethernet1/0", "Ethernet0/1", "Ethernet1//2", "Ethernet1/01", "Ethernet1/2/",
      "Ethernet1/2/0", "Ethernet1/2/3/4", "Ethernet/1",
      // Trailing or leading junk, wrong case, unknown prefixes.
      " Ethernet1", "Ethernet1 ", "Ethernet1x", "ethernet1", "ETHERNET1", "Eth1", "Foo",
      // Port-channels: no zero, no subinterface.
      "Port-Channel", "Port-Channel0", "Port-Channel01", "Port-Channel5.100", "PortChannel5",
      "Port-Channel1/1",
      // Cpu takes no number.
      "Cpu0", "Cpu1", "cpu", "Cpux",
      // Tunnels, loopbacks, vlans, management.
      "Gre", "Gre01", "Gre1/1", "Loopback", "Loopback00", "Loopback01", "Vlan", "Vlan0",
      "Vlan4095", "Vlan04", "Management", "Management01", "Management1/0", "Management1/1/1"};
  for (const char* name : cases) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(IntfId::parse(name).has_value());
    const IntfId kept(name);
    EXPECT_EQ(kept.name(), name);
    EXPECT_EQ(kept.kind(), IntfKind::other);
    EXPECT_FALSE(kept.empty());
    EXPECT_FALSE(kept.isEthernet() || kept.isPortChannel() || kept.isCpu() || kept.isGreTunnel() ||
                 kept.isLoopback() || kept.isVlan() || kept.isManagement());
    EXPECT_EQ(kept.module(), 0u);
    EXPECT_EQ(kept.greTunnelNumber(), 0u);
  }
}

TEST(IntfIdTest, EmptyIdIsKindNoneAndOnlyEqualToItself) {
  const IntfId empty;
  EXPECT_TRUE(empty.empty());
  EXPECT_EQ(empty.kind(), IntfKind::none);
  EXPECT_EQ(IntfId(""), empty);
  EXPECT_FALSE(IntfId::parse("").has_value());
  EXPECT_NE(empty, IntfId("Cpu"));
}

// Every name in strictly ascending natural order. Well-formed names (compared through their
// precomputed key) are interleaved with kind-other names (compared through the text) so
// that both comparison paths must agree.
const std::vector<std::string> kSorted = {
    "",
    "7",  // a digit run sorts before text
    "Cpu",
    "Cpu1",
    "Ethernet01",  // numerically equal to Ethernet1, then ordered by bytes
    "Ethernet1",
    "Ethernet2",
    "Ethernet3",
    "Ethernet3/1",
    "Ethernet3/1/2",
    "Ethernet3/1/10",
    "Ethernet3/2",
    "Ethernet3/10",
    "Ethernet3/4294967295",
    "Ethernet3x",
    "Ethernet4",
    "Ethernet10",
    "Ethernet10/1",
    "Ethernet4294967295",
    "Ethernet4294967295/4294967295",
    "Ethernet4294967295/4294967295/4294967295",
    "Ethernet99999999999",
    "Gre1",
    "Gre2",
    "Gre10",
    "Loopback0",
    "Loopback1",
    "Management0",
    "Management0/1",
    "Management1",
    "Management1/1",
    "Management1/2",
    "Port-Channel2",
    "Port-Channel10",
    "Port-Channel10.5",
    "Port-Channel11",
    "Vlan5",
    "Vlan100",
    "Vlan4094",
    "Vlan4095",
    "vlan1",  // byte-wise, lower case follows upper case
};

TEST(IntfIdTest, OrderingIsNaturalAcrossKindsAndNumbers) {
  std::vector<std::string> shuffled = kSorted;
  std::mt19937 rng(7);
  std::shuffle(shuffled.begin(), shuffled.end(), rng);
  std::set<IntfId> set;
  for (const auto& name : shuffled) {
    set.emplace(name);
  }
  std::vector<std::string> order;
  for (const auto& id : set) {
    order.push_back(id.name());
  }
  EXPECT_EQ(order, kSorted);

  // Pairwise, so that an inconsistency between two paths cannot hide behind set insertion.
  for (std::size_t i = 0; i < kSorted.size(); ++i) {
    const IntfId a(kSorted[i]);
    EXPECT_EQ(a <=> a, std::strong_ordering::equal) << a;
    for (std::size_t j = i + 1; j < kSorted.size(); ++j) {
      const IntfId b(kSorted[j]);
      EXPECT_TRUE(a < b) << a << " < " << b;
      EXPECT_TRUE(b > a) << b << " > " << a;
      EXPECT_NE(a, b);
    }
  }
}

TEST(IntfIdTest, EqualIdsHashEqualAndFindEachOther) {
  std::unordered_set<IntfId> set;
  for (const auto& name : kSorted) set.emplace(name);
  EXPECT_EQ(set.size(), kSorted.size());
  for (const auto& name : kSorted) EXPECT_EQ(set.count(IntfId(name)), 1u) << name;
  // Ids built by every route to the same name are one key.
  EXPECT_EQ(std::hash<IntfId>{}(*IntfId::parse("Gre3")), std::hash<IntfId>{}(IntfId::greTunnel(3)));
  EXPECT_EQ(set.count(IntfId::greTunnel(10)), 1u);
}

}  // namespace
}  // namespace platform
