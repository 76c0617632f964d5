// Switchport configuration of interfaces, as the bridging agents publish it.
//
// `Bridging::Config` is the resolved configuration (one mode per interface); the
// `Bridging::Input` entities are what the CLI writes, including the tap-aggregation settings
// the mirroring agent consumes: the tap and tool groups of an interface, the raw tap
// interfaces, and whether the interface is already taken as a tool interface.
//
// Switchport modes are written by enumerator name ("switchportModeTap"); numbers are accepted,
// and the enumeration is open: a mode without a name (above switchportModeRouted) is kept and
// written as its number, so that configuration from a newer writer survives a round trip.
//
// Precondition a caller could get wrong: an entry's key (`intfId`) is fixed at construction.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "platform/Entity.h"

namespace Bridging {

enum SwitchportMode : uint8_t {
  switchportModeAccess = 0,
  switchportModeTrunk = 1,
  switchportModeDot1qTunnel = 2,
  switchportModeTap = 3,
  switchportModeTool = 4,
  switchportModeTapTool = 5,
  switchportModeRouted = 6,
};
constexpr auto enumEntries(SwitchportMode) {
  using E = platform::EnumEntry<SwitchportMode>;
  return std::array{E{switchportModeAccess, "switchportModeAccess"},
                    E{switchportModeTrunk, "switchportModeTrunk"},
                    E{switchportModeDot1qTunnel, "switchportModeDot1qTunnel"},
                    E{switchportModeTap, "switchportModeTap"},
                    E{switchportModeTool, "switchportModeTool"},
                    E{switchportModeTapTool, "switchportModeTapTool"},
                    E{switchportModeRouted, "switchportModeRouted"}};
}
constexpr bool enumIsOpen(SwitchportMode) { return true; }

struct SwitchIntfConfig : platform::EntityOf<SwitchIntfConfig> {
  static constexpr const char* typeName = "Bridging::SwitchIntfConfig";
  SwitchIntfConfig() = default;
  explicit SwitchIntfConfig(const platform::IntfId& id) { intfId.set(id); }

  platform::Attr<platform::IntfId> intfId{this};
  platform::Attr<SwitchportMode> switchportMode{this};

  template <class D>
  void fields(D& d) {
    d.key("intfId", intfId);
    d("switchportMode", switchportMode);
  }
};

struct Config : platform::EntityOf<Config> {
  static constexpr const char* typeName = "Bridging::Config";
  Config() = default;

  platform::Coll<platform::IntfId, platform::Ptr<SwitchIntfConfig>> switchIntfConfig{this};

  platform::Ptr<SwitchIntfConfig> switchIntfConfigIs(const platform::IntfId& id);
  void switchIntfConfigDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d("switchIntfConfig", switchIntfConfig);
  }
};

namespace Input {

struct SwitchIntfConfig : platform::EntityOf<SwitchIntfConfig> {
  static constexpr const char* typeName = "Bridging::Input::SwitchIntfConfig";
  SwitchIntfConfig() = default;
  explicit SwitchIntfConfig(const platform::IntfId& id) { intfId.set(id); }

  platform::Attr<platform::IntfId> intfId{this};
  platform::Attr<SwitchportMode> switchportMode{this};
  platform::Set<std::string> tapGroup{this};
  platform::Set<std::string> toolGroup{this};
  // Per interface, whether tap aggregation passes its traffic on raw (unmodified).
  platform::Coll<platform::IntfId, bool> tapRawIntf{this};
  // Non-zero while the interface is taken as a tool interface (a count of the users).
  platform::Attr<uint32_t> toolIntfInUse{this};

  void tapGroupIs(const std::string& group);
  void tapGroupDel(const std::string& group);
  void toolGroupIs(const std::string& group);
  void toolGroupDel(const std::string& group);
  void tapRawIntfIs(const platform::IntfId& id, bool raw);
  void tapRawIntfDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d.key("intfId", intfId);
    d("switchportMode", switchportMode);
    d("tapGroup", tapGroup);
    d("toolGroup", toolGroup);
    d("tapRawIntf", tapRawIntf);
    d("toolIntfInUse", toolIntfInUse);
  }
};

}  // namespace Input

struct SwitchIntfConfigDir : platform::EntityOf<SwitchIntfConfigDir> {
  static constexpr const char* typeName = "Bridging::SwitchIntfConfigDir";
  SwitchIntfConfigDir() = default;

  platform::Coll<platform::IntfId, platform::Ptr<Input::SwitchIntfConfig>> switchIntfConfig{this};

  platform::Ptr<Input::SwitchIntfConfig> switchIntfConfigIs(const platform::IntfId& id);
  void switchIntfConfigDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d("switchIntfConfig", switchIntfConfig);
  }
};

}  // namespace Bridging
