// The tap-aggregation state model: the operator's configuration, the configuration handed to
// the hardware layer, and the published status of tap and tool ports in their groups.
//
// Numeric values matter to the rules: mode 0 off, 1 exclusive, anything else mixed.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string>

#include "platform/BridgingTypes.h"
#include "platform/Entity.h"
#include "platform/IntfId.h"

namespace TapAgg {

using platform::EnumEntry;
using platform::IntfId;

enum class TapAggMode : uint8_t { tapAggModeOff = 0, tapAggModeExclusive = 1, tapAggModeMixed = 2 };
constexpr auto enumEntries(TapAggMode) {
  using E = EnumEntry<TapAggMode>;
  return std::array{E{TapAggMode::tapAggModeOff, "tapAggModeOff"},
                    E{TapAggMode::tapAggModeExclusive, "tapAggModeExclusive"},
                    E{TapAggMode::tapAggModeMixed, "tapAggModeMixed"}};
}
std::ostream& operator<<(std::ostream& os, TapAggMode m);

// Whether a tap or tool port is active, and why not: the reasons of the failed checks, in
// the order the checks run, each ending in a comma.
struct PortStatus {
  bool active = true;
  std::string reason;

  bool operator==(const PortStatus&) const = default;
  template <class D>
  void fields(D& d) {
    d("active", active);
    d("reason", reason);
  }
};
std::ostream& operator<<(std::ostream& os, const PortStatus& s);

namespace reason {
inline constexpr const char* intfStatusNotFound = "Interface status not found,";
inline constexpr const char* linkDown = "Link down,";
inline constexpr const char* linkUnknown = "Link unknown,";
inline constexpr const char* lagMember = "Lag member,";
inline constexpr const char* mirrorDestination = "Mirror destination,";
}  // namespace reason

struct CliConfig : platform::EntityOf<CliConfig> {
  static constexpr const char* typeName = "TapAgg::CliConfig";
  CliConfig() = default;

  platform::Attr<TapAggMode> mode{this};
  platform::Attr<bool> trafficSteeringMacAclMatchIp{this};
  platform::Coll<IntfId, bool> noerrdisableIntf{this};
  platform::Coll<std::string, std::string> sliceProfileConfig{this};

  // The feature is on in every mode but off.
  bool enabled() const { return mode() != TapAggMode::tapAggModeOff; }

  template <class D>
  void fields(D& d) {
    d("mode", mode);
    d("trafficSteeringMacAclMatchIp", trafficSteeringMacAclMatchIp);
    d("noerrdisableIntf", noerrdisableIntf);
    d("sliceProfileConfig", sliceProfileConfig);
  }
};

using SwitchIntfConfigRef = platform::Ref<const Bridging::Input::SwitchIntfConfig>;

struct HwConfig : platform::EntityOf<HwConfig> {
  static constexpr const char* typeName = "TapAgg::HwConfig";
  HwConfig() = default;

  platform::Attr<bool> mirroringRunnability{this};
  platform::Attr<bool> trafficSteeringMacAclMatchIp{this};
  platform::Coll<IntfId, SwitchIntfConfigRef> tapPort{this};
  platform::Coll<IntfId, SwitchIntfConfigRef> toolPort{this};
  platform::Coll<std::string, bool> slice{this};

  void mirroringRunnabilityIs(bool v) { mirroringRunnability.set(v); }
  void trafficSteeringMacAclMatchIpIs(bool v) { trafficSteeringMacAclMatchIp.set(v); }
  void tapPortIs(const platform::Ptr<const Bridging::Input::SwitchIntfConfig>& c) {
    tapPort.set(c->intfId(), SwitchIntfConfigRef(c));
  }
  void tapPortDel(const IntfId& i) { tapPort.del(i); }
  void toolPortIs(const platform::Ptr<const Bridging::Input::SwitchIntfConfig>& c) {
    toolPort.set(c->intfId(), SwitchIntfConfigRef(c));
  }
  void toolPortDel(const IntfId& i) { toolPort.del(i); }
  void sliceIs(const std::string& name, bool v) { slice.set(name, v); }
  void sliceDel(const std::string& name) { slice.del(name); }

  template <class D>
  void fields(D& d) {
    d("mirroringRunnability", mirroringRunnability);
    d("trafficSteeringMacAclMatchIp", trafficSteeringMacAclMatchIp);
    d("tapPort", tapPort);
    d("toolPort", toolPort);
    d("slice", slice);
  }
};

// What the hardware layer reports back; mounted by the agent, not read by its logic.
struct HwStatus : platform::EntityOf<HwStatus> {
  static constexpr const char* typeName = "TapAgg::HwStatus";
  HwStatus() = default;
  platform::Attr<bool> ready{this};
  template <class D>
  void fields(D& d) {
    d("ready", ready);
  }
};

struct GroupStatus : platform::EntityOf<GroupStatus> {
  static constexpr const char* typeName = "TapAgg::GroupStatus";
  explicit GroupStatus(const std::string& groupName) { name.set(groupName); }

  platform::Attr<std::string> name{this};
  platform::Coll<std::string, PortStatus, platform::IntfNameTraits> tapPort{this};  // by interface name
  platform::Coll<std::string, PortStatus, platform::IntfNameTraits> toolPort{this};

  void tapPortIs(const std::string& intf, const PortStatus& s) { tapPort.set(intf, s); }
  void tapPortDel(const std::string& intf) { tapPort.del(intf); }
  void toolPortIs(const std::string& intf, const PortStatus& s) { toolPort.set(intf, s); }
  void toolPortDel(const std::string& intf) { toolPort.del(intf); }

  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("tapPort", tapPort);
    d("toolPort", toolPort);
  }
};

struct Status : platform::EntityOf<Status> {
  static constexpr const char* typeName = "TapAgg::Status";
  Status() = default;

  platform::Coll<std::string, platform::Ptr<GroupStatus>> group{this};

  platform::Ptr<GroupStatus> groupIs(const std::string& n) { return group.is(n); }
  void groupDel(const std::string& n) { group.del(n); }

  template <class D>
  void fields(D& d) {
    d("group", group);
  }
};

void registerTapAggTypes();

}  // namespace TapAgg
