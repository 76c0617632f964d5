#include "consistency/DumpView.h"

#include <algorithm>

#include "platform/IntfId.h"
#include "platform/IpGenAddr.h"

namespace consistency {

namespace {

const json& empty() {
  static const json e = json::object();
  return e;
}

constexpr const char* kCompanionPrefix = "__fwdingDrop_";

// An enumerator as the dump writes it: its name, or its number when it has none.
int enumerator(const json& v, const std::vector<std::string>& names) {
  if (v.is_number_integer()) return v.get<int>();
  if (!v.is_string()) return -1;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] == v.get<std::string>()) return int(i);
  }
  return -1;
}

}  // namespace

bool isGreName(const std::string& name) {
  auto id = platform::IntfId::parse(name);
  return id && id->isGreTunnel();
}

bool isPortChannelName(const std::string& name) {
  auto id = platform::IntfId::parse(name);
  return id && id->isPortChannel();
}

int greTunnelNumber(const std::string& name) {
  auto id = platform::IntfId::parse(name);
  return id && id->isGreTunnel() ? int(id->greTunnelNumber()) : -1;
}

bool isPortName(const std::string& name) {
  auto id = platform::IntfId::parse(name);
  return id && (id->isEthernet() || id->isPortChannel());
}

const json& DumpView::mount(const std::string& path) const { return member(dump_, path); }

const json& DumpView::member(const json& object, const std::string& key) {
  if (!object.is_object()) return empty();
  auto it = object.find(key);
  return it == object.end() || it->is_null() ? empty() : *it;
}

const json& DumpView::field(const std::string& mountPath, const std::string& name) const {
  return member(mount(mountPath), name);
}

bool DumpView::cap(const char* flag) const {
  const json& v = member(mount("mirroring/hwcapability"), flag);
  return v.is_boolean() && v.get<bool>();
}

uint64_t DumpView::maxSessions() const {
  const json& v = member(mount("mirroring/hwcapability"), "maxSupportedSessions");
  return v.is_number_integer() && v.get<int64_t>() > 0 ? v.get<uint64_t>() : 0;
}

std::optional<std::string> DumpView::companionParent(const std::string& name) {
  const std::string prefix = kCompanionPrefix;
  if (name.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
  return name.substr(prefix.size());
}

const json& DumpView::configOf(const std::string& statusName) const {
  auto parent = companionParent(statusName);
  return member(configSessions(), parent ? *parent : statusName);
}

std::vector<std::string> DumpView::configuredStatuses() const {
  std::vector<std::string> out;
  for (const auto& [name, status] : statuses().items()) {
    if (configured(name)) out.push_back(name);
  }
  return out;
}

bool DumpView::activeSource(const std::string& status, const std::string& intf) const {
  const json& s = member(member(member(statuses(), status), "srcOperStatus"), intf);
  return member(s, "state") == "active";
}

bool DumpView::activeTarget(const std::string& status, const std::string& intf) const {
  const json& s = member(member(member(statuses(), status), "targetOperStatus"), intf);
  return member(s, "state") == "active";
}

std::string DumpView::direction(const std::string& session, const std::string& intf) const {
  const json& d = member(member(member(configOf(session), "srcIntf"), intf), "direction");
  if (d.is_string()) return d.get<std::string>();
  if (d.is_number()) return d.dump();
  return "";
}

const json* DumpView::intfStatus(const std::string& intf) const {
  const json& all = field("interface/status/eth/intf", "intfStatus");
  auto it = all.find(intf);
  return it == all.end() ? nullptr : &*it;
}

bool DumpView::hwActive(const std::string& intf) const {
  const json* s = intfStatus(intf);
  return s && member(*s, "hwActive") == true;
}

std::string DumpView::lagOf(const std::string& intf) const {
  const json& lag = member(member(field("lag/config", "phyIntf"), intf), "lag");
  return lag.is_string() ? lag.get<std::string>() : "";
}

bool DumpView::isSourceInConfig(const std::string& intf) const {
  for (const auto& [name, session] : configSessions().items()) {
    if (member(session, "srcIntf").contains(intf)) return true;
  }
  return false;
}

bool DumpView::isTargetInConfig(const std::string& intf) const {
  for (const auto& [name, session] : configSessions().items()) {
    const json& targets = member(session, "targetIntf");
    if (targets.is_array() && std::find(targets.begin(), targets.end(), intf) != targets.end()) return true;
  }
  return false;
}

bool DumpView::vrfExists(const std::string& vrf) const { return field("ip/vrf/status/global", "vrf").contains(vrf); }

bool DumpView::usableKey(const json& key) {
  const json& dst = member(key, "dstIpAddr");
  if (!dst.is_string()) return false;
  auto addr = platform::IpGenAddr::parse(dst.get<std::string>());
  return addr && (addr->isV4() || addr->isV6()) && !addr->isZero();
}

std::string DumpView::tunnelOf(const json& key) const {
  const json& map = field("mirroring/status", "greTunnelKeyToIntfId");
  if (!map.is_array()) return "";
  for (const json& entry : map) {
    if (member(entry, "key") == key && member(entry, "value").is_string()) return entry["value"].get<std::string>();
  }
  return "";
}

int DumpView::switchportMode(const std::string& intf) const {
  static const std::vector<std::string> names = {
      "switchportModeAccess", "switchportModeTrunk",   "switchportModeDot1qTunnel", "switchportModeTap",
      "switchportModeTool",   "switchportModeTapTool", "switchportModeRouted"};
  const json& record = member(field("bridging/config", "switchIntfConfig"), intf);
  if (!record.is_object() || record.empty()) return -1;
  const json& mode = member(record, "switchportMode");
  // A record that leaves the mode out has the default, access.
  return mode.is_object() ? 0 : enumerator(mode, names);
}

int DumpView::tapAggMode() const {
  return enumerator(member(mount("tapagg/cliconfig"), "mode"),
                    {"tapAggModeOff", "tapAggModeExclusive", "tapAggModeMixed"});
}

}  // namespace consistency
