// VrfName is the name of a VRF, the routing table a mirroring destination is reached through.
// It is a plain string bounded to maxLength bytes, the size the rest of the system reserves
// for it; a value that exists is therefore always valid. Default-constructed, it names the
// default VRF.
//
// Precondition: constructing from text longer than maxLength is a programming error and
// stops the process (in every build type, never truncated, nothing thrown). Text from
// configuration or from a peer must be checked with valid() first.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/Assert.h"

namespace platform {

class VrfName {
 public:
  static constexpr std::size_t maxLength = 100;
  static constexpr const char* defaultName = "default";

  VrfName() : name_(defaultName) {}
  explicit VrfName(std::string_view name) : name_(name) {
    PLATFORM_ASSERT(valid(name_) && "VRF name longer than VrfName::maxLength (100) bytes");
  }

  // Whether `name` may become a VrfName: at most maxLength bytes (the empty name included).
  static bool valid(std::string_view name) { return name.size() <= maxLength; }

  const std::string& str() const { return name_; }
  bool isDefault() const { return name_ == defaultName; }

  friend bool operator==(const VrfName&, const VrfName&) = default;
  friend std::strong_ordering operator<=>(const VrfName&, const VrfName&) = default;

 private:
  std::string name_;
};

inline std::ostream& operator<<(std::ostream& os, const VrfName& vrf) { return os << vrf.str(); }

}  // namespace platform

template <>
struct std::hash<platform::VrfName> {
  std::size_t operator()(const platform::VrfName& vrf) const noexcept {
    return std::hash<std::string>{}(vrf.str());
  }
};
