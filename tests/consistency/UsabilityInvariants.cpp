// Invariants that tie a source's or destination's state to the interface it names: an active
// one must be usable, and one that is plainly usable must not be left waiting.
//
// "Plainly usable" is deliberately narrower than the rules: it leaves out every case where who
// came first decides, or where a rule reads something a dump does not show (the IPv6 ACL
// order, numbers outside an enumeration). Only configured sessions are judged; companions
// follow their parents.
#include <algorithm>

#include "consistency/DumpView.h"
#include "consistency/Invariants.h"

namespace consistency {

namespace {

using Details = std::vector<std::string>;
const std::string kStatus = "mirroring/status/sessionStatus/";
const std::string kConfig = "mirroring/config/session/";

const json& member(const json& o, const std::string& k) { return DumpView::member(o, k); }

std::vector<std::string> targetsOf(const json& session) {
  std::vector<std::string> out;
  const json& t = member(session, "targetIntf");
  if (t.is_array()) {
    for (const json& x : t) out.push_back(x.get<std::string>());
  }
  return out;
}

bool isLoopbackName(const std::string& name) { return name.rfind("Loopback", 0) == 0; }

bool greVrfUsable(const DumpView& d, const json& session) {
  const json& vrf = member(member(session, "greTunnelKey"), "vrf");
  const std::string name = vrf.is_string() ? vrf.get<std::string>() : "default";
  return name == "default" || d.vrfExists(name);
}

// Whether `intf` is an active source (or destination) in any status but `except`.
bool activeSourceElsewhere(const DumpView& d, const std::string& intf, const std::string& except) {
  for (const auto& [name, status] : d.statuses().items()) {
    if (name != except && d.activeSource(name, intf)) return true;
  }
  return false;
}
bool activeTargetElsewhere(const DumpView& d, const std::string& intf, const std::string& except) {
  for (const auto& [name, status] : d.statuses().items()) {
    if (name != except && d.activeTarget(name, intf)) return true;
  }
  return false;
}
bool activeTargetOfConfiguredElsewhere(const DumpView& d, const std::string& intf, const std::string& except) {
  for (const auto& name : d.configuredStatuses()) {
    if (name != except && d.activeTarget(name, intf)) return true;
  }
  return false;
}

bool lagMirrored(const DumpView& d, const std::string& intf) {
  const std::string lag = d.lagOf(intf);
  return !lag.empty() && (d.isSourceInConfig(lag) || d.isTargetInConfig(lag));
}

std::string why(const DumpView& d, const std::string& intf) {
  const json* s = d.intfStatus(intf);
  return "interface/status/eth/intf/intfStatus/" + intf + " is " + (s ? s->dump() : "absent") +
         (d.lagOf(intf).empty() ? "" : ", a member of " + d.lagOf(intf));
}

// The rules activate a destination without looking at its interface in two cases: one shared
// with another session that holds it (multiSessionForDestSupported), and one that is an active
// source elsewhere, in rx only (sameIntfSrcAndDestSupported).
bool interfaceCheckSkipped(const DumpView& d, const std::string& session, const std::string& t) {
  if (d.cap("multiSessionForDestSupported") && activeTargetOfConfiguredElsewhere(d, t, session)) return true;
  if (!d.cap("sameIntfSrcAndDestSupported")) return false;
  for (const auto& other : d.configuredStatuses()) {
    if (other != session && d.activeSource(other, t)) return true;
  }
  return false;
}

void activeInterfaceUsable(const DumpView& d, Details& out) {
  for (const auto& name : d.configuredStatuses()) {
    const json& status = member(d.statuses(), name);
    const json& session = d.configOf(name);
    for (const auto& [src, st] : member(status, "srcOperStatus").items()) {
      if (!isPortName(src) || !d.activeSource(name, src) || d.hwActive(src)) continue;
      // An rx source that is another session's destination is taken without the interface
      // check when the hardware allows both.
      if (d.cap("sameIntfSrcAndDestSupported") && d.direction(name, src) == "rx" &&
          activeTargetOfConfiguredElsewhere(d, src, name)) {
        continue;
      }
      out.push_back(kStatus + name + "/srcOperStatus/" + src + " is active but " + why(d, src));
    }
    for (const auto& [t, st] : member(status, "targetOperStatus").items()) {
      if (!d.activeTarget(name, t)) continue;
      std::string fault;
      if (isGreName(t)) {
        const json& key = member(session, "greTunnelKey");
        if (!DumpView::usableKey(key)) fault = "its key has no usable destination: " + key.dump();
        if (!greVrfUsable(d, session)) fault = "the VRF of its key does not exist: " + key.dump();
      } else if (t == "Cpu") {
        if (!d.cap("cpuDestSupported")) fault = "cpuDestSupported is off";
      } else if (isLoopbackName(t)) {
        if (!d.cap("loopbackDestSupported")) fault = "loopbackDestSupported is off";
      } else if (isPortName(t)) {
        if (isPortChannelName(t) && !d.cap("lagDestSupported")) {
          fault = "lagDestSupported is off";
        } else if ((!d.hwActive(t) || !d.lagOf(t).empty()) && !interfaceCheckSkipped(d, name, t)) {
          fault = why(d, t);
        }
      }
      if (!fault.empty()) out.push_back(kStatus + name + "/targetOperStatus/" + t + " is active but " + fault);
    }
  }
}

// A destination that nothing keeps from being active.
bool plainlyUsableTarget(const DumpView& d, const std::string& name, const json& session, const std::string& t) {
  if (isGreName(t)) return DumpView::usableKey(member(session, "greTunnelKey")) && greVrfUsable(d, session);
  if (t == "Cpu") return d.cap("cpuDestSupported");
  if (isLoopbackName(t)) return d.cap("loopbackDestSupported");
  if (!isPortName(t)) return false;
  if (isPortChannelName(t) && !d.cap("lagDestSupported")) return false;
  if (!d.hwActive(t) || !d.lagOf(t).empty()) return false;
  if (activeSourceElsewhere(d, t, "") || d.isSourceInConfig(t)) return false;
  return d.cap("multiSessionForDestSupported") || !activeTargetElsewhere(d, t, name);
}

void usableDestinationIdle(const DumpView& d, Details& out) {
  const bool multi = d.cap("multiDestSupported");
  for (const auto& name : d.configuredStatuses()) {
    const json& session = d.configOf(name);
    bool anyActive = false;
    for (const auto& [t, st] : member(member(d.statuses(), name), "targetOperStatus").items()) {
      anyActive = anyActive || d.activeTarget(name, t);
    }
    // With one destination per session, any active one (a tunnel too) holds the place.
    if (!multi && anyActive) continue;
    for (const auto& t : targetsOf(session)) {
      if (d.activeTarget(name, t) || !plainlyUsableTarget(d, name, session, t)) continue;
      const json& st = member(member(member(d.statuses(), name), "targetOperStatus"), t);
      out.push_back(kConfig + name + "/targetIntf/" + t + " is usable but not active: " + kStatus + name +
                    "/targetOperStatus/" + t + " is " + (st.empty() ? "absent" : st.dump()) +
                    (multi ? "" : ", and the session has no active destination"));
    }
  }
}

void usableSourceIdle(const DumpView& d, Details& out) {
  for (const auto& name : d.configuredStatuses()) {
    const json& session = d.configOf(name);
    const auto targets = targetsOf(session);
    const bool gre = std::any_of(targets.begin(), targets.end(), isGreName);
    for (const auto& [src, entry] : member(session, "srcIntf").items()) {
      if (d.activeSource(name, src) || !isPortName(src) || !d.hwActive(src) || lagMirrored(d, src)) continue;
      const std::string dir = d.direction(name, src);
      if (dir != "rx" && (gre || (dir != "both" && dir != "tx"))) continue;
      if (member(entry, "aclType") == "aclTypeIpv6" && member(entry, "srcAcl") != "") continue;
      if (!d.cap("multiSessionForSourceSupported") && activeSourceElsewhere(d, src, name)) continue;
      if (activeTargetElsewhere(d, src, "")) continue;
      const json& st = member(member(member(d.statuses(), name), "srcOperStatus"), src);
      out.push_back(kConfig + name + "/srcIntf/" + src + " (" + dir + ") is usable but not active: " + kStatus + name +
                    "/srcOperStatus/" + src + " is " + (st.empty() ? "absent" : st.dump()));
    }
  }
}

}  // namespace

const std::vector<Invariant>& usabilityInvariants() {
  static const std::vector<Invariant> list = {
      {"activeInterfaceUsable",
       "an active source or destination is usable: its interface is active in hardware, a destination is no LAG "
       "member, capabilities and VRFs allow it",
       activeInterfaceUsable},
      {"usableDestinationIdle",
       "a destination nothing keeps out is active (without multiDestSupported: when the session has none)",
       usableDestinationIdle},
      {"usableSourceIdle", "a source nothing keeps out is active", usableSourceIdle},
  };
  return list;
}

}  // namespace consistency
