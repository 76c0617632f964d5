// VRF status: which VRFs exist and whether each is active, as the routing agents publish it.
//
// The mirroring agent reads it to know whether the VRF a GRE destination is reached through
// can carry traffic. VRF names are `platform::VrfName`s: the codec rejects a name longer than
// VrfName::maxLength (100) bytes, so such a name never reaches an entity.
#pragma once

#include <array>
#include <cstdint>

#include "platform/Entity.h"

namespace Ip {

enum VrfState : uint8_t { vrfStateInactive = 0, vrfStateActive = 1 };
constexpr auto enumEntries(VrfState) {
  using E = platform::EnumEntry<VrfState>;
  return std::array{E{vrfStateInactive, "vrfStateInactive"}, E{vrfStateActive, "vrfStateActive"}};
}

struct VrfStatus : platform::EntityOf<VrfStatus> {
  static constexpr const char* typeName = "Ip::VrfStatus";
  VrfStatus() = default;
  explicit VrfStatus(const platform::VrfName& vrf) { name.set(vrf); }

  platform::Attr<platform::VrfName> name{this};
  platform::Attr<VrfState> state{this};

  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("state", state);
  }
};

struct AllVrfStatusGlobal : platform::EntityOf<AllVrfStatusGlobal> {
  static constexpr const char* typeName = "Ip::AllVrfStatusGlobal";
  AllVrfStatusGlobal() = default;

  platform::Coll<platform::VrfName, platform::Ptr<VrfStatus>> vrf{this};

  platform::Ptr<VrfStatus> vrfIs(const platform::VrfName& name);
  void vrfDel(const platform::VrfName& name);

  template <class D>
  void fields(D& d) {
    d("vrf", vrf);
  }
};

}  // namespace Ip
