// Invariants of tap aggregation: what is handed to the hardware and published in the groups,
// port modes and slices, against the configuration and the port status rules (docs/tapagg.md).
//
// A tap-aggregation port is an interface with both halves of its configuration (a
// bridging/config record and a bridging/switchIntfConfig record) in mode tap (3), tool (4) or
// tap-and-tool (5), while the mode is not off. The toggle "MirrorDestinationOnTapToolPort" is
// taken at its default (on).
#include <algorithm>

#include "consistency/DumpView.h"
#include "consistency/Invariants.h"

namespace consistency {

namespace {

using Details = std::vector<std::string>;
const json& member(const json& o, const std::string& k) { return DumpView::member(o, k); }

const json& records(const DumpView& d) { return d.field("bridging/switchIntfConfig", "switchIntfConfig"); }
const json& groups(const DumpView& d) { return d.field("tapagg/status", "group"); }

bool hasTapRole(int mode) { return mode == 3 || mode == 5; }
bool hasToolRole(int mode) { return mode == 4 || mode == 5; }
bool inList(const json& list, const std::string& s) {
  return list.is_array() && std::find(list.begin(), list.end(), s) != list.end();
}

bool tapAggOn(const DumpView& d) { return d.tapAggMode() != 0; }

bool tapAggPort(const DumpView& d, const std::string& intf) {
  const int mode = d.switchportMode(intf);
  return tapAggOn(d) && records(d).contains(intf) && (hasTapRole(mode) || hasToolRole(mode));
}

bool toolInterfaceInUse(const DumpView& d, const std::string& intf) {
  if (!hasToolRole(d.switchportMode(intf))) return false;
  const json& own = member(records(d), intf);
  if (member(own, "toolIntfInUse").is_number() && member(own, "toolIntfInUse") != 0) return true;
  for (const auto& [other, record] : records(d).items()) {
    if (other != intf && hasTapRole(d.switchportMode(other)) && member(record, "tapRawIntf").contains(intf))
      return true;
  }
  return false;
}

// The status of a tap or tool port as the rules compute it from the current inputs.
json portStatus(const DumpView& d, const std::string& intf) {
  std::string reason;
  if (const json* eth = d.intfStatus(intf)) {
    const json& link = member(*eth, "linkStatus");
    if (link != "linkUp") reason += link == "linkDown" ? "Link down," : "Link unknown,";
    const json& fwd = member(d.field("interface/input/forwardingmodel/lag", "forwardingModelInput"), intf);
    if (fwd == "intfForwardingModelLagMember") reason += "Lag member,";
  } else {
    reason += "Interface status not found,";
  }
  for (const auto& [name, status] : d.statuses().items()) {
    if (!d.activeTarget(name, intf)) continue;
    // A tap-and-tool port no tap port uses as its tool interface may stay a destination.
    if (d.switchportMode(intf) == 5 && !toolInterfaceInUse(d, intf)) continue;
    reason += "Mirror destination,";
    break;
  }
  return json{{"active", reason.empty()}, {"reason", reason}};
}

bool keptInHardware(const json& status) {
  const json& reason = member(status, "reason");
  return member(status, "active") == true || reason == "Link down," || reason == "Link unknown,";
}

void tapAggGroupsHavePorts(const DumpView& d, Details& out) {
  for (const auto& [group, status] : groups(d).items()) {
    if (member(status, "tapPort").empty() && member(status, "toolPort").empty()) {
      out.push_back("tapagg/status/group/" + group + " has no tap or tool port");
    }
  }
}

void tapAggOff(const DumpView& d, Details& out) {
  const json& hw = d.mount("tapagg/hwconfig");
  const int mode = d.tapAggMode();
  if (mode >= 0 && mode <= 2 && member(hw, "mirroringRunnability") != (mode != 0)) {
    out.push_back("tapagg/hwconfig/mirroringRunnability is " + member(hw, "mirroringRunnability").dump() +
                  " with tapagg/cliconfig/mode " + member(d.mount("tapagg/cliconfig"), "mode").dump());
  }
  const json& steering = member(d.mount("tapagg/cliconfig"), "trafficSteeringMacAclMatchIp");
  if (member(hw, "trafficSteeringMacAclMatchIp") != (steering == true)) {
    out.push_back("tapagg/hwconfig/trafficSteeringMacAclMatchIp differs from tapagg/cliconfig's");
  }
  if (mode != 0) return;
  for (const char* role : {"tapPort", "toolPort"}) {
    for (const auto& [intf, ref] : member(hw, role).items()) {
      out.push_back(std::string("tapagg/hwconfig/") + role + "/" + intf + " exists with tap aggregation off");
    }
  }
  for (const auto& [group, status] : groups(d).items()) {
    out.push_back("tapagg/status/group/" + group + " exists with tap aggregation off");
  }
}

void tapAggSlices(const DumpView& d, Details& out) {
  const json& slices = member(d.mount("tapagg/hwconfig"), "slice");
  const json& present = d.field("hardware/fcx/slice/status", "entry");
  const json& profiles = member(d.mount("tapagg/cliconfig"), "sliceProfileConfig");
  const int mode = d.tapAggMode();
  for (const auto& [name, entry] : present.items()) {
    if (mode < 0 || mode > 2) continue;
    const bool expected = mode == 1 || (mode == 2 && profiles.contains(name));
    if (member(slices, name) != expected) {
      out.push_back("tapagg/hwconfig/slice/" + name + " is " +
                    (slices.contains(name) ? slices[name].dump() : "absent") + ", expected " +
                    (expected ? "true" : "false"));
    }
  }
  for (const auto& [name, value] : slices.items()) {
    if (!present.contains(name)) out.push_back("tapagg/hwconfig/slice/" + name + " exists but the slice does not");
  }
}

// A role's entries exist only for ports that have the role. Two kinds of leftovers are kept
// on purpose (docs/tapagg.md): a mode change from tap-and-tool (or tool) to tap leaves the tool
// role, and the reverse leaves the tap role; a mode without a name cleans nothing up.
void tapAggPortRoles(const DumpView& d, Details& out) {
  const json& hw = d.mount("tapagg/hwconfig");
  auto allowed = [&](const std::string& intf, bool tap, std::string& why) {
    const int mode = d.switchportMode(intf);
    if (!tapAggOn(d)) {
      why = "tap aggregation is off";
    } else if (!records(d).contains(intf) || mode < 0) {
      why = "the interface lacks half of its configuration";
    } else if (tap ? hasTapRole(mode) : hasToolRole(mode)) {
      return true;
    } else if (mode > 6 || mode == (tap ? 4 : 3)) {
      return true;  // a documented leftover
    } else {
      why = "its switchport mode is " + std::to_string(mode);
    }
    return false;
  };
  for (const char* role : {"tapPort", "toolPort"}) {
    const bool tap = std::string(role) == "tapPort";
    for (const auto& [intf, ref] : member(hw, role).items()) {
      std::string why;
      if (!allowed(intf, tap, why))
        out.push_back(std::string("tapagg/hwconfig/") + role + "/" + intf + " exists but " + why);
      if (ref != "bridging/switchIntfConfig/switchIntfConfig/" + intf) {
        out.push_back(std::string("tapagg/hwconfig/") + role + "/" + intf + " refers to " + ref.dump());
      }
    }
    for (const auto& [group, status] : groups(d).items()) {
      for (const auto& [intf, port] : member(status, role).items()) {
        std::string why;
        const std::string at = "tapagg/status/group/" + group + "/" + role + "/" + intf;
        if (!allowed(intf, tap, why)) {
          out.push_back(at + " exists but " + why);
        } else if ((tap ? hasTapRole : hasToolRole)(d.switchportMode(intf)) &&
                   !inList(member(member(records(d), intf), tap ? "tapGroup" : "toolGroup"), group)) {
          out.push_back(at + " exists but the port's " + (tap ? "tapGroup" : "toolGroup") + " does not name " + group);
        }
      }
    }
  }
}

void tapAggPortStatus(const DumpView& d, Details& out) {
  const json& hw = d.mount("tapagg/hwconfig");
  for (const auto& [intf, record] : records(d).items()) {
    if (!tapAggPort(d, intf)) continue;
    const json expected = portStatus(d, intf);
    const int mode = d.switchportMode(intf);
    for (const char* role : {"tapPort", "toolPort"}) {
      const bool tap = std::string(role) == "tapPort";
      if (!(tap ? hasTapRole(mode) : hasToolRole(mode))) continue;
      const json& list = member(record, tap ? "tapGroup" : "toolGroup");
      for (const json& group : list.is_array() ? list : json::array()) {
        const json& published = member(member(member(groups(d), group.get<std::string>()), role), intf);
        // A port whose interface status went away is taken out of its groups, while one that
        // never had a status shows why: without a status either is what the rules leave.
        if (published.empty() && !d.intfStatus(intf)) continue;
        // A port already out of the hardware is left alone when it becomes a mirror
        // destination, so its reason may lag; whether it is active and kept may not.
        const bool same = published.is_object() && member(published, "active") == expected["active"] &&
                          (keptInHardware(published) == keptInHardware(expected)) &&
                          (keptInHardware(expected) ? published == expected : true);
        if (!same) {
          out.push_back("tapagg/status/group/" + group.get<std::string>() + "/" + role + "/" + intf + " is " +
                        (published.empty() ? "absent" : published.dump()) + ", the rules give " + expected.dump());
        }
      }
      if (member(hw, role).contains(intf) != keptInHardware(expected)) {
        out.push_back(std::string("tapagg/hwconfig/") + role + "/" + intf +
                      (member(hw, role).contains(intf) ? " exists" : " is absent") + " but the port's status is " +
                      expected.dump());
      }
    }
  }
}

void tapAggPortModes(const DumpView& d, Details& out) {
  const json& modes = d.field("stp/portMode/tapagg", "portMode");
  for (const auto& [intf, record] : records(d).items()) {
    if (tapAggPort(d, intf) && member(modes, intf) != "portModeTapAgg") {
      out.push_back("stp/portMode/tapagg/portMode/" + intf + " is " +
                    (modes.contains(intf) ? modes[intf].dump() : "absent") + " for a tap-aggregation port");
    }
  }
  for (const auto& [intf, mode] : modes.items()) {
    if (!tapAggPort(d, intf))
      out.push_back("stp/portMode/tapagg/portMode/" + intf + " exists for no tap-aggregation port");
  }
}

}  // namespace

const std::vector<Invariant>& tapAggInvariants() {
  static const std::vector<Invariant> list = {
      {"tapAggGroupsHavePorts", "no group status without ports", tapAggGroupsHavePorts},
      {"tapAggOff", "runnability and steering follow the configuration; with the mode off nothing is published",
       tapAggOff},
      {"tapAggSlices", "each slice runs tap aggregation as the mode and the slice profiles say", tapAggSlices},
      {"tapAggPortRoles", "tap and tool entries (hardware and groups) only for ports with that role, in their groups",
       tapAggPortRoles},
      {"tapAggPortStatus",
       "each port's group entries hold the status the rules compute now; it is in the hardware exactly when kept",
       tapAggPortStatus},
      {"tapAggPortModes", "a port mode entry exactly for every tap-aggregation port", tapAggPortModes},
  };
  return list;
}

}  // namespace consistency
