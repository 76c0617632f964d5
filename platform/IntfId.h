// IntfId names one interface of the switch ("Ethernet3/1", "Port-Channel7", "Gre12", ...).
// It is the key the agent files its per-interface state under, so besides the name it
// carries what the name says (the kind and its numbers) and it sorts the way an operator
// expects to read a list of interfaces: Ethernet2 before Ethernet10.
//
// Accepted names (case-sensitive, no leading zeros, no sign, numbers below 2^32):
//   Ethernet<n>, Ethernet<m>/<p>, Ethernet<m>/<p>/<l>   every part >= 1
//   Port-Channel<n>                                      n >= 1; subinterfaces such as
//                                                        "Port-Channel5.100" are NOT
//                                                        port-channels: they get kind other
//   Cpu                                                  exactly
//   Gre<n>                                               n >= 0, the GRE tunnel number (0: the session's own tunnel in configuration)
//   Loopback<n>                                          n >= 0
//   Vlan<n>                                              1 <= n <= 4094
//   Management<n>, Management<n>/<p>                     n >= 0, p >= 1
//
// parse() accepts only those forms. The name constructor accepts any text: a name that is
// not one of those forms is kept verbatim with kind `other`, so that whatever configuration
// supplied can still be used as a key. Only the empty name has kind `none`.
//
// Order is natural order on the names: the name is cut into runs of digits and runs of
// anything else; runs compare in turn, digit runs by numeric value and other runs byte-wise,
// a digit run before a text run at the same position, and a name that is a prefix of
// another first. Names equal in that order but spelled differently ("x01" and "x1", only
// possible for kind `other`) are then ordered byte-wise, so the order is total and agrees
// with ==.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace platform {

enum class IntfKind : uint8_t {
  none,
  ethernet,
  portChannel,
  cpu,
  greTunnel,
  loopback,
  vlan,
  management,
  other,
};

const char* intfKindName(IntfKind kind);

class IntfId {
 public:
  IntfId() = default;
  // Never fails: see the header comment for how an unknown name is kept.
  explicit IntfId(std::string_view name);

  // nullopt unless `text` is one of the accepted forms; "" is not one of them.
  static std::optional<IntfId> parse(std::string_view text);
  // "Gre<number>". Allocated tunnels are numbered from 1; "Gre0" names "the session's own tunnel".
  static IntfId greTunnel(uint32_t number);

  const std::string& name() const { return name_; }
  IntfKind kind() const { return kind_; }
  bool empty() const { return name_.empty(); }
  bool isEthernet() const { return kind_ == IntfKind::ethernet; }
  bool isPortChannel() const { return kind_ == IntfKind::portChannel; }
  bool isCpu() const { return kind_ == IntfKind::cpu; }
  bool isGreTunnel() const { return kind_ == IntfKind::greTunnel; }
  bool isLoopback() const { return kind_ == IntfKind::loopback; }
  bool isVlan() const { return kind_ == IntfKind::vlan; }
  bool isManagement() const { return kind_ == IntfKind::management; }

  // The tunnel number of a Gre name; 0 otherwise.
  uint32_t greTunnelNumber() const;
  // The linecard of a modular Ethernet name (3 for Ethernet3/1 and Ethernet3/1/2);
  // 0 for Ethernet5 and for every other kind.
  uint32_t module() const;
  // The first number in the name (5 for Port-Channel5, 3 for Ethernet3/1). 0 when the
  // name has no digits, and for a kind-other name whose first digit run exceeds 32 bits.
  uint32_t number() const;

  friend bool operator==(const IntfId& a, const IntfId& b) { return a.name_ == b.name_; }
  // Inline so that the common case, two well-formed names, is two integer compares.
  friend std::strong_ordering operator<=>(const IntfId& a, const IntfId& b) {
    if (a.hasSortKey() && b.hasSortKey()) {
      return a.key_ <=> b.key_;
    }
    return compareNames(a.name_, b.name_);
  }

 private:
  // The numbers of a well-formed name packed so that comparing (hi, lo) as unsigned pairs
  // gives the natural order among well-formed names: hi = prefix rank << 32 | first number,
  // lo = second number << 32 | third number, with absent trailing parts 0 (they are >= 1
  // when present). Meaningless for kinds none and other.
  struct SortKey {
    uint64_t hi = 0;
    uint64_t lo = 0;
    friend auto operator<=>(const SortKey&, const SortKey&) = default;
  };

  IntfId(std::string name, IntfKind kind, SortKey key)
      : name_(std::move(name)), kind_(kind), key_(key) {}
  static std::strong_ordering compareNames(std::string_view a, std::string_view b);
  bool hasSortKey() const { return kind_ != IntfKind::none && kind_ != IntfKind::other; }

  std::string name_;
  IntfKind kind_ = IntfKind::none;
  SortKey key_;
};

std::ostream& operator<<(std::ostream& os, const IntfId& id);
std::ostream& operator<<(std::ostream& os, IntfKind kind);

}  // namespace platform

template <>
struct std::hash<platform::IntfId> {
  std::size_t operator()(const platform::IntfId& id) const noexcept {
    return std::hash<std::string>{}(id.name());
  }
};
