// The port mode of Ethernet interfaces: whether an interface is given to tap aggregation.
//
// Keyed by interface name as text (not IntfId), because the port-mode configuration may name
// interfaces before they exist; the codec still reads only well-formed interface names. Modes
// are written in JSON by enumerator name ("portModeTapAgg").
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "platform/Entity.h"

namespace EthIntf {

enum PortMode : uint8_t { portModeNone = 0, portModeTapAgg = 1 };
constexpr auto enumEntries(PortMode) {
  using E = platform::EnumEntry<PortMode>;
  return std::array{E{portModeNone, "portModeNone"}, E{portModeTapAgg, "portModeTapAgg"}};
}

struct PortModeConfig : platform::EntityOf<PortModeConfig> {
  static constexpr const char* typeName = "EthIntf::PortModeConfig";
  PortModeConfig() = default;

  platform::Coll<std::string, PortMode, platform::IntfNameTraits> portMode{this};

  void portModeIs(const std::string& intfName, PortMode mode);
  void portModeDel(const std::string& intfName);

  template <class D>
  void fields(D& d) {
    d("portMode", portMode);
  }
};

}  // namespace EthIntf
