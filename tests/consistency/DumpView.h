// Read access to a dump for the invariants: absent mounts and fields read as empty, and the
// questions the rules keep asking (is X an active source of S, which LAG is X in, what does a
// capability say) have one answer each.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace consistency {

using nlohmann::json;

class DumpView {
 public:
  explicit DumpView(const json& dump) : dump_(dump) {}

  const json& mount(const std::string& path) const;
  // A field of a mount's root; an empty object when either is absent.
  const json& field(const std::string& mount, const std::string& name) const;
  static const json& member(const json& object, const std::string& key);

  // mirroring
  bool cap(const char* flag) const;
  uint64_t maxSessions() const;
  const json& configSessions() const { return field("mirroring/config", "session"); }
  const json& statuses() const { return field("mirroring/status", "sessionStatus"); }
  const json& hwSessions() const { return field("mirroring/hwconfig", "session"); }
  bool configured(const std::string& session) const { return configSessions().contains(session); }
  // The parent of a forwarding-drop companion's name, or nothing.
  static std::optional<std::string> companionParent(const std::string& name);
  // The configuration a status follows: the session's own, or a companion's parent's.
  const json& configOf(const std::string& statusName) const;
  // Names of the statuses of configured sessions (companions left out).
  std::vector<std::string> configuredStatuses() const;

  bool activeSource(const std::string& status, const std::string& intf) const;
  bool activeTarget(const std::string& status, const std::string& intf) const;
  // The direction of a configured source ("both", "rx", "tx", or a number as written); "" when absent.
  std::string direction(const std::string& session, const std::string& intf) const;
  static bool overlap(const std::string& a, const std::string& b) { return a == "both" || b == "both" || a == b; }

  // interfaces
  const json* intfStatus(const std::string& intf) const;
  bool hwActive(const std::string& intf) const;
  std::string lagOf(const std::string& intf) const;      // "" when not a member
  bool isSourceInConfig(const std::string& intf) const;  // a source of any configured session
  bool isTargetInConfig(const std::string& intf) const;
  bool vrfExists(const std::string& vrf) const;

  // GRE
  static bool usableKey(const json& key);
  // The tunnel a key maps to in mirroring/status greTunnelKeyToIntfId, or "".
  std::string tunnelOf(const json& key) const;

  // tap aggregation: switchport mode as a number, -1 without a record
  int switchportMode(const std::string& intf) const;
  int tapAggMode() const;

 private:
  const json& dump_;
};

// Kinds of interface names (a malformed name is none of them).
bool isGreName(const std::string& name);
bool isPortName(const std::string& name);  // Ethernet or Port-Channel
bool isPortChannelName(const std::string& name);
// The number of a GRE tunnel name, -1 for any other name.
int greTunnelNumber(const std::string& name);

}  // namespace consistency
