// Invariants of monitor sessions: statuses, hardware copies, GRE tunnels, the forwarding
// model and the conflict rules.
//
// The conflict rules speak of sessions: a forwarding-drop companion mirrors what its parent
// already owns and never conflicts with it, so the conflict and idleness rules look at the
// statuses of configured sessions only; the rules about hardware copies, tunnels and the
// forwarding model look at every status.
#include <algorithm>
#include <map>
#include <set>

#include "consistency/DumpView.h"
#include "consistency/Invariants.h"

namespace consistency {

namespace {

using Details = std::vector<std::string>;
const std::string kStatus = "mirroring/status/sessionStatus/";
const std::string kHw = "mirroring/hwconfig/session/";
const std::string kConfig = "mirroring/config/session/";

const json& member(const json& o, const std::string& k) { return DumpView::member(o, k); }

std::string stateOf(const json& statuses, const std::string& status, const char* coll, const std::string& intf) {
  const json& s = member(member(member(statuses, status), coll), intf);
  return s.empty() ? "absent" : s.dump();
}

std::vector<std::string> keysOf(const json& o) {
  std::vector<std::string> out;
  for (const auto& [k, v] : o.items()) out.push_back(k);
  return out;
}

std::vector<std::string> targetsOf(const json& session) {
  std::vector<std::string> out;
  const json& t = member(session, "targetIntf");
  if (t.is_array()) {
    for (const json& x : t) out.push_back(x.get<std::string>());
  }
  return out;
}

bool hasGreTarget(const json& session) {
  auto t = targetsOf(session);
  return std::any_of(t.begin(), t.end(), isGreName);
}

uint64_t statusLimit(const DumpView& d) { return std::min<uint64_t>(d.maxSessions(), 256); }

// --- hardware copies ---------------------------------------------------------------------

void hwSessionHasActiveDestination(const DumpView& d, Details& out) {
  for (const auto& [name, hw] : d.hwSessions().items()) {
    if (!d.statuses().contains(name)) {
      out.push_back(kHw + name + " exists without " + kStatus + name);
      continue;
    }
    bool any = false;
    for (const auto& [t, st] : member(member(d.statuses(), name), "targetOperStatus").items()) {
      any = any || member(st, "state") == "active";
    }
    if (!any) {
      out.push_back(kHw + name + " exists but " + kStatus + name + "/targetOperStatus has no active entry: " +
                    member(member(d.statuses(), name), "targetOperStatus").dump());
    }
    if (targetsOf(hw).empty()) out.push_back(kHw + name + "/targetIntf is empty");
  }
}

void activeSessionProgrammed(const DumpView& d, Details& out) {
  for (const auto& [name, status] : d.statuses().items()) {
    if (d.hwSessions().contains(name)) continue;
    for (const auto& [t, st] : member(status, "targetOperStatus").items()) {
      if (member(st, "state") != "active") continue;
      out.push_back(kStatus + name + "/targetOperStatus/" + t + " is active but " + kHw + name + " does not exist");
      break;
    }
  }
}

void hwSourcesActive(const DumpView& d, Details& out) {
  for (const auto& [name, hw] : d.hwSessions().items()) {
    for (const auto& src : keysOf(member(hw, "srcIntf"))) {
      if (!d.activeSource(name, src)) {
        out.push_back(kHw + name + "/srcIntf/" + src + " is programmed but " + kStatus + name + "/srcOperStatus/" +
                      src + " is " + stateOf(d.statuses(), name, "srcOperStatus", src));
      }
    }
  }
}

void hwTargetsActive(const DumpView& d, Details& out) {
  for (const auto& [name, hw] : d.hwSessions().items()) {
    const auto parent = DumpView::companionParent(name);
    for (const auto& t : targetsOf(hw)) {
      const std::string at = kHw + name + "/targetIntf/" + t;
      if (isGreName(t)) {
        // A companion programs its parent's drop tunnel; the parent's status carries that
        // tunnel's state, judged by the parent's own key, so only the tunnel is checked here.
        const json& key = member(d.configOf(name), parent ? "dropGreTunnelKey" : "greTunnelKey");
        const std::string expected = DumpView::usableKey(key) ? d.tunnelOf(key) : "";
        if (t != expected) {
          out.push_back(at + " is not the tunnel of the session's " + (parent ? "drop " : "") + "key " + key.dump() +
                        " (" + (expected.empty() ? "none" : expected) + ")");
        } else if (!parent && !d.activeTarget(name, t)) {
          out.push_back(at + " is programmed but " + kStatus + name + "/targetOperStatus/" + t + " is " +
                        stateOf(d.statuses(), name, "targetOperStatus", t));
        }
        continue;
      }
      if (!d.activeTarget(name, t)) {
        out.push_back(at + " is programmed but " + kStatus + name + "/targetOperStatus/" + t + " is " +
                      stateOf(d.statuses(), name, "targetOperStatus", t));
      }
    }
  }
}

void hwSessionIds(const DumpView& d, Details& out) {
  std::map<int64_t, std::string> owner;
  for (const auto& [name, hw] : d.hwSessions().items()) {
    const json& id = member(hw, "sessionId");
    if (!id.is_number_integer() || id.get<int64_t>() < 0 || id.get<int64_t>() > 255) {
      out.push_back(kHw + name + "/sessionId is " + id.dump() + ", not a hardware session id (0 to 255)");
      continue;
    }
    auto [it, fresh] = owner.emplace(id.get<int64_t>(), name);
    if (!fresh) out.push_back(kHw + it->second + " and " + kHw + name + " both have sessionId " + id.dump());
    // A status that carries the session's id carries the one its hardware copy has.
    const json& statusId = member(member(d.statuses(), name), "sessionId");
    if (statusId.is_number_integer() && statusId.get<int64_t>() >= 0 && statusId != id) {
      out.push_back(kHw + name + "/sessionId is " + id.dump() + " but " + kStatus + name + "/sessionId is " +
                    statusId.dump());
    }
  }
  std::map<int64_t, std::string> statusOwner;
  for (const auto& [name, status] : d.statuses().items()) {
    const json& id = member(status, "sessionId");
    if (!id.is_number_integer() || id.get<int64_t>() < 0) continue;
    auto [it, fresh] = statusOwner.emplace(id.get<int64_t>(), name);
    if (!fresh) out.push_back(kStatus + it->second + " and " + kStatus + name + " both have sessionId " + id.dump());
  }
}

// --- statuses and room -------------------------------------------------------------------

void statusesForConfiguredSessions(const DumpView& d, Details& out) {
  for (const auto& [name, status] : d.statuses().items()) {
    if (d.configured(name)) continue;
    const auto parent = DumpView::companionParent(name);
    if (!parent) {
      out.push_back(kStatus + name + " exists but the session is not configured");
    } else if (!d.configured(*parent) || !d.statuses().contains(*parent)) {
      out.push_back(kStatus + name + " exists but its session " + *parent + " is not configured or has no status");
    } else if (!DumpView::usableKey(member(d.configOf(name), "dropGreTunnelKey"))) {
      out.push_back(
          kStatus + name + " exists but " + kConfig + *parent +
          "/dropGreTunnelKey has no usable destination: " + member(d.configOf(name), "dropGreTunnelKey").dump());
    }
  }
}

void sessionLimit(const DumpView& d, Details& out) {
  if (d.statuses().size() > statusLimit(d)) {
    out.push_back(std::to_string(d.statuses().size()) + " session statuses, over the limit of " +
                  std::to_string(statusLimit(d)) + " (maxSupportedSessions " + std::to_string(d.maxSessions()) +
                  ", ids are 8 bits wide)");
  }
}

void noIdleRoom(const DumpView& d, Details& out) {
  if (d.statuses().size() >= statusLimit(d)) return;
  const std::string room =
      std::to_string(d.statuses().size()) + " of " + std::to_string(statusLimit(d)) + " session statuses in use";
  for (const auto& [name, session] : d.configSessions().items()) {
    if (!d.statuses().contains(name)) {
      out.push_back(kConfig + name + " has no status although " + room);
    } else if (DumpView::usableKey(member(session, "dropGreTunnelKey")) &&
               !d.statuses().contains("__fwdingDrop_" + name)) {
      out.push_back(kConfig + name + " has a usable dropGreTunnelKey but no companion status although " + room);
    }
  }
}

// --- GRE tunnels ------------------------------------------------------------------------------

void greMapsMirror(const DumpView& d, Details& out) {
  const json& forward = d.field("mirroring/status", "greTunnelKey");
  const json& reverse = d.field("mirroring/status", "greTunnelKeyToIntfId");
  std::map<std::string, int> tunnelUses;
  if (reverse.is_array()) {
    for (const json& entry : reverse) {
      const std::string tunnel = member(entry, "value").is_string() ? entry["value"].get<std::string>() : "";
      ++tunnelUses[tunnel];
      const json& back = member(forward, tunnel);
      if (back != member(entry, "key")) {
        out.push_back("mirroring/status/greTunnelKeyToIntfId maps " + member(entry, "key").dump() + " to " + tunnel +
                      " but mirroring/status/greTunnelKey/" + tunnel + " is " +
                      (back.empty() ? "absent" : back.dump()));
      }
    }
  }
  for (const auto& [tunnel, n] : tunnelUses) {
    if (n > 1)
      out.push_back(std::to_string(n) + " keys map to " + tunnel + " in mirroring/status/greTunnelKeyToIntfId");
  }
  for (const auto& [tunnel, key] : forward.items()) {
    const int number = greTunnelNumber(tunnel);
    if (number < 1 || number > 64)
      out.push_back("mirroring/status/greTunnelKey/" + tunnel + " is not a tunnel Gre1 to Gre64");
    if (d.tunnelOf(key) != tunnel) {
      out.push_back("mirroring/status/greTunnelKey/" + tunnel + " is " + key.dump() +
                    " but greTunnelKeyToIntfId maps that key to " +
                    (d.tunnelOf(key).empty() ? "nothing" : d.tunnelOf(key)));
    }
  }
}

void greTunnelsForKeys(const DumpView& d, Details& out) {
  std::map<json, std::string> wanted;  // key -> a session that wants it
  for (const auto& name : d.configuredStatuses()) {
    for (const char* which : {"greTunnelKey", "dropGreTunnelKey"}) {
      const json& key = member(d.configOf(name), which);
      if (DumpView::usableKey(key)) wanted.emplace(key, kConfig + name + "/" + which);
    }
  }
  std::set<json> present;
  for (const auto& [tunnel, key] : d.field("mirroring/status", "greTunnelKey").items()) {
    present.insert(key);
    if (!wanted.count(key)) {
      out.push_back("mirroring/status/greTunnelKey/" + tunnel + " is " + key.dump() +
                    ", a key no session with a status uses (leaked tunnel)");
    }
  }
  for (const auto& [key, who] : wanted) {
    if (!present.count(key)) out.push_back(who + " " + key.dump() + " has no tunnel in mirroring/status/greTunnelKey");
  }
}

// --- the forwarding model ---------------------------------------------------------------------

void forwardingModel(const DumpView& d, Details& out) {
  std::map<std::string, std::string> wanted;  // interface -> a status that has it active
  for (const auto& [name, status] : d.statuses().items()) {
    for (const auto& [t, st] : member(status, "targetOperStatus").items()) {
      if (member(st, "state") == "active" && t != "Cpu") wanted.emplace(t, kStatus + name + "/targetOperStatus/" + t);
    }
  }
  const json& model = d.field("interface/input/forwardingmodel/mirroring", "forwardingModelInput");
  for (const auto& [intf, value] : model.items()) {
    const std::string at = "interface/input/forwardingmodel/mirroring/forwardingModelInput/" + intf;
    if (!wanted.count(intf))
      out.push_back(at + " is " + value.dump() + " but no session has " + intf + " as an active destination");
    if (value != "intfForwardingModelQuietDataLink") out.push_back(at + " is " + value.dump());
  }
  for (const auto& [intf, who] : wanted) {
    if (!model.contains(intf)) out.push_back(who + " is active but the forwarding model has no entry for " + intf);
  }
}

// --- conflicts -------------------------------------------------------------------------------

void sourceConflict(const DumpView& d, Details& out) {
  if (d.cap("multiSessionForSourceSupported")) return;
  const auto names = d.configuredStatuses();
  for (std::size_t i = 0; i < names.size(); ++i) {
    for (const auto& src : keysOf(member(member(d.statuses(), names[i]), "srcOperStatus"))) {
      if (!d.activeSource(names[i], src)) continue;
      for (std::size_t j = i + 1; j < names.size(); ++j) {
        if (!d.activeSource(names[j], src)) continue;
        const std::string a = d.direction(names[i], src), b = d.direction(names[j], src);
        if (DumpView::overlap(a, b)) {
          out.push_back(src + " is an active source of " + names[i] + " (" + a + ") and of " + names[j] + " (" + b +
                        ") without multiSessionForSourceSupported");
        }
      }
    }
  }
}

void destinationConflict(const DumpView& d, Details& out) {
  if (d.cap("multiSessionForDestSupported")) return;
  std::map<std::string, std::string> holder;
  for (const auto& name : d.configuredStatuses()) {
    for (const auto& t : keysOf(member(member(d.statuses(), name), "targetOperStatus"))) {
      if (!isPortName(t) || !d.activeTarget(name, t)) continue;
      auto [it, fresh] = holder.emplace(t, name);
      if (!fresh) {
        out.push_back(t + " is an active destination of " + it->second + " and of " + name +
                      " without multiSessionForDestSupported");
      }
    }
  }
}

void sourceIsDestination(const DumpView& d, Details& out) {
  const bool shared = d.cap("sameIntfSrcAndDestSupported");
  const auto names = d.configuredStatuses();
  for (const auto& s : names) {
    for (const auto& src : keysOf(member(member(d.statuses(), s), "srcOperStatus"))) {
      if (!isPortName(src) || !d.activeSource(s, src)) continue;
      for (const auto& t : names) {
        if (!d.activeTarget(t, src)) continue;
        // With sameIntfSrcAndDestSupported only received traffic of another session's
        // destination may be mirrored.
        if (shared && s != t && d.direction(s, src) == "rx") continue;
        out.push_back(src + " is an active source of " + s + " (" + d.direction(s, src) +
                      ") and an active destination of " + t + (shared ? "" : " without sameIntfSrcAndDestSupported"));
      }
    }
  }
}

void greSourcesRxOnly(const DumpView& d, Details& out) {
  for (const auto& [name, status] : d.statuses().items()) {
    if (!hasGreTarget(d.configOf(name))) continue;
    for (const auto& src : keysOf(member(status, "srcOperStatus"))) {
      if (d.activeSource(name, src) && d.direction(name, src) != "rx") {
        out.push_back(kStatus + name + "/srcOperStatus/" + src + " is active with direction " + d.direction(name, src) +
                      " in a session with a GRE destination");
      }
    }
  }
}

void lagMemberSource(const DumpView& d, Details& out) {
  for (const auto& [name, status] : d.statuses().items()) {
    for (const auto& src : keysOf(member(status, "srcOperStatus"))) {
      const std::string lag = d.lagOf(src);
      if (lag.empty() || !d.activeSource(name, src)) continue;
      if (d.isSourceInConfig(lag) || d.isTargetInConfig(lag)) {
        out.push_back(kStatus + name + "/srcOperStatus/" + src + " is active but " + src + " is a member of " + lag +
                      ", a configured mirroring " + (d.isSourceInConfig(lag) ? "source" : "destination"));
      }
    }
  }
}

void singleDestination(const DumpView& d, Details& out) {
  if (d.cap("multiDestSupported")) return;
  for (const auto& name : d.configuredStatuses()) {
    std::vector<std::string> active;
    for (const auto& t : keysOf(member(member(d.statuses(), name), "targetOperStatus"))) {
      if (!isGreName(t) && d.activeTarget(name, t)) active.push_back(t);
    }
    if (active.size() > 1) {
      std::string list;
      for (const auto& t : active) list += (list.empty() ? "" : ", ") + t;
      out.push_back(kStatus + name + " has " + std::to_string(active.size()) + " active destinations (" + list +
                    ") without multiDestSupported");
    }
  }
}

}  // namespace

const std::vector<Invariant>& mirroringInvariants() {
  static const std::vector<Invariant> list = {
      {"hwSessionHasActiveDestination",
       "a hardware session has a status with an active destination, and a non-empty targetIntf",
       hwSessionHasActiveDestination},
      {"activeSessionProgrammed", "a session (or companion) with an active destination has a hardware session",
       activeSessionProgrammed},
      {"hwSourcesActive", "every source of a hardware session is an active source in its status", hwSourcesActive},
      {"hwTargetsActive",
       "every target of a hardware session is an active destination in its status (a tunnel: the one of its key)",
       hwTargetsActive},
      {"hwSessionIds", "session ids are distinct, hardware ones between 0 and 255 and the same as the status's",
       hwSessionIds},
      {"statusesForConfiguredSessions",
       "statuses exist only for configured sessions and for companions of sessions with a usable drop key",
       statusesForConfiguredSessions},
      {"sessionLimit", "no more statuses than maxSupportedSessions, and never more than 256", sessionLimit},
      {"noIdleRoom", "while statuses are fewer than the limit, every configured session (and companion) has one",
       noIdleRoom},
      {"greMapsMirror", "the two GRE maps mirror each other, one key per tunnel, tunnels Gre1 to Gre64", greMapsMirror},
      {"greTunnelsForKeys", "tunnels exist exactly for the usable keys of sessions that have a status",
       greTunnelsForKeys},
      {"forwardingModel", "the forwarding model holds exactly the active destinations but Cpu", forwardingModel},
      {"sourceConflict",
       "without multiSessionForSourceSupported no interface is an active source of two sessions "
       "in overlapping directions",
       sourceConflict},
      {"destinationConflict", "without multiSessionForDestSupported no port is an active destination of two sessions",
       destinationConflict},
      {"sourceIsDestination",
       "no port is at once an active source and an active destination (with "
       "sameIntfSrcAndDestSupported: only an rx source of another session's destination)",
       sourceIsDestination},
      {"greSourcesRxOnly", "a session with a GRE destination has only rx sources active", greSourcesRxOnly},
      {"lagMemberSource", "a member of a Port-Channel that a session mirrors or sends to is no active source",
       lagMemberSource},
      {"singleDestination", "without multiDestSupported a session has at most one active non-GRE destination",
       singleDestination},
  };
  return list;
}

}  // namespace consistency
