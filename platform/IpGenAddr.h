// IpGenAddr holds an IPv4 address, an IPv6 address, or no address at all (family none).
// It is the address type of configuration and of mirroring destinations, where a field may
// carry either family or be unset; an unset address prints and parses as "".
//
// Bytes are kept in network order. A v4 address uses the first 4 of the 16 byte slots and
// the rest stay zero, so == and ordering compare whole values. Ordering is by family first
// (none < IPv4 < IPv6), then by bytes, which for one family is numeric order.
// An IPv4-mapped IPv6 address ("::ffff:1.2.3.4") is an IPv6 address, unequal to 1.2.3.4.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace platform {

enum class AddrFamily : uint8_t { none, ipv4, ipv6 };

class IpGenAddr {
 public:
  // The no-family value: all bytes zero, prints as "".
  IpGenAddr() = default;

  // Dotted-quad IPv4 or IPv6 text as inet_pton takes it (no zone suffix, no surrounding
  // blanks, no prefix length); "" gives the no-family value. nullopt for anything else.
  static std::optional<IpGenAddr> parse(std::string_view text);
  // `hostOrder` is the address as a number: 0x0a000001 is 10.0.0.1.
  static IpGenAddr v4(uint32_t hostOrder);
  static IpGenAddr v4(const std::array<uint8_t, 4>& networkOrder);
  static IpGenAddr v6(const std::array<uint8_t, 16>& networkOrder);

  AddrFamily af() const { return af_; }
  bool isV4() const { return af_ == AddrFamily::ipv4; }
  bool isV6() const { return af_ == AddrFamily::ipv6; }
  // All bytes zero, whatever the family (the no-family value included).
  bool isZero() const;
  bool isV4Any() const { return isV4() && isZero(); }
  bool isV6Unspecified() const { return isV6() && isZero(); }

  // The address as a number; 0 unless the family is IPv4.
  uint32_t v4Addr() const;
  // The address bytes in network order: 4 for IPv4, 16 for IPv6, none without family.
  std::span<const uint8_t> bytes() const;

  // Canonical text from inet_ntop ("" without family).
  std::string str() const;
  // Over the family and the bytes; equal values hash equal.
  uint32_t hash() const;

  friend bool operator==(const IpGenAddr&, const IpGenAddr&) = default;
  friend std::strong_ordering operator<=>(const IpGenAddr&, const IpGenAddr&) = default;

 private:
  // Member order is the ordering: family, then bytes.
  AddrFamily af_ = AddrFamily::none;
  std::array<uint8_t, 16> bytes_{};
};

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr);

}  // namespace platform

template <>
struct std::hash<platform::IpGenAddr> {
  std::size_t operator()(const platform::IpGenAddr& addr) const noexcept { return addr.hash(); }
};
