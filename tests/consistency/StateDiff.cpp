#include "consistency/StateDiff.h"

#include <cctype>

namespace consistency {

namespace {

void diff(const std::string& path, const json* a, const json* b, std::vector<Difference>& out) {
  if (a && b && *a == *b) return;
  if (a && b && a->is_object() && b->is_object()) {
    for (const auto& [k, v] : a->items()) {
      auto it = b->find(k);
      diff(path.empty() ? k : path + "/" + k, &v, it == b->end() ? nullptr : &*it, out);
    }
    for (const auto& [k, v] : b->items()) {
      if (!a->contains(k)) diff(path.empty() ? k : path + "/" + k, nullptr, &v, out);
    }
    return;
  }
  // Scalars, and arrays (sets, struct-keyed collections) whole.
  out.push_back(
      Difference{path, a ? std::optional<json>(*a) : std::nullopt, b ? std::optional<json>(*b) : std::nullopt});
}

std::string text(const std::optional<json>& v) {
  if (!v) return "absent";
  std::string s = v->dump();
  return s.size() > 300 ? s.substr(0, 300) + "..." : s;
}

}  // namespace

std::vector<Difference> diffStates(const json& before, const json& after) {
  std::vector<Difference> out;
  diff("", &before, &after, out);
  return out;
}

std::string describe(const Difference& d) {
  if (!d.before && !d.after) return d.path;
  return d.path + ": " + text(d.before) + " -> " + text(d.after);
}

std::string describe(const std::vector<Difference>& ds, std::size_t max) {
  std::string out;
  for (std::size_t i = 0; i < ds.size() && i < max; ++i) out += (i ? "; " : "") + describe(ds[i]);
  if (ds.size() > max) out += "; and " + std::to_string(ds.size() - max) + " more";
  return out;
}

// The mount and the field below it of a path: a coarse name for where two states differ.
std::string area(const std::string& path, const json& dump) {
  std::string mount;
  for (const auto& [m, content] : dump.items()) {
    if ((path == m || path.rfind(m + "/", 0) == 0) && m.size() > mount.size()) mount = m;
  }
  if (mount.empty() || path.size() <= mount.size()) return path;
  const std::size_t next = path.find('/', mount.size() + 1);
  return path.substr(0, next);
}

const json* valueAt(const json& dump, const std::string& path) {
  std::string mount;
  for (const auto& [m, content] : dump.items()) {
    if ((path == m || path.rfind(m + "/", 0) == 0) && m.size() > mount.size()) mount = m;
  }
  if (mount.empty()) return nullptr;
  const json* at = &dump[mount];
  std::size_t pos = mount.size();
  while (pos < path.size()) {
    const std::size_t next = path.find('/', pos + 1);
    std::string segment = path.substr(pos + 1, next == std::string::npos ? std::string::npos : next - pos - 1);
    pos = next == std::string::npos ? path.size() : next;
    // Keys such as Ethernet3/1 hold a '/' followed by digits.
    while (pos < path.size() && std::isdigit(static_cast<unsigned char>(path[pos + 1])) && at->is_object() &&
           !at->contains(segment)) {
      const std::size_t more = path.find('/', pos + 1);
      segment += path.substr(pos, more == std::string::npos ? std::string::npos : more - pos);
      pos = more == std::string::npos ? path.size() : more;
    }
    if (!at->is_object() || !at->contains(segment)) return nullptr;
    at = &(*at)[segment];
  }
  return at;
}

namespace {

// A mode change from tap-and-tool (or tool) to tap keeps the port's tool role, and the reverse
// its tap role, on purpose; a restart confirms only what the modes ask for and sweeps the rest
// (docs/tapagg.md, "Port status"; docs/restart.md, "The exceptions").
bool tapAggLeftoverRole(const Difference& d, const json& before, const json&) {
  static const std::string hw = "tapagg/hwconfig/", groups = "tapagg/status/group/";
  if (!d.before || d.after) return false;  // only a sweep
  auto leftover = [&before](const std::string& intf, bool tap) {
    const json* mode = valueAt(before, "bridging/config/switchIntfConfig/" + intf + "/switchportMode");
    if (!mode) return false;
    const std::string m = mode->is_string() ? mode->get<std::string>() : "";
    const int n = mode->is_number() ? mode->get<int>() : -1;
    return n > 6 || m == (tap ? "switchportModeTool" : "switchportModeTap") || n == (tap ? 4 : 3);
  };
  auto allLeftovers = [&](const json& group) {
    for (const char* role : {"tapPort", "toolPort"}) {
      if (!group.contains(role)) continue;
      for (const auto& [intf, status] : group[role].items()) {
        if (!leftover(intf, std::string(role) == "tapPort")) return false;
      }
    }
    return true;
  };
  for (const char* role : {"tapPort", "toolPort"}) {
    const std::string prefix = hw + role + "/";
    if (d.path.rfind(prefix, 0) == 0) return leftover(d.path.substr(prefix.size()), std::string(role) == "tapPort");
  }
  if (d.path.rfind(groups, 0) != 0) return false;
  const std::string rest = d.path.substr(groups.size());
  const std::size_t slash = rest.find('/');
  if (slash == std::string::npos) return d.before->is_object() && allLeftovers(*d.before);
  const std::string inGroup = rest.substr(slash + 1);
  for (const char* role : {"tapPort", "toolPort"}) {
    const std::string prefix = std::string(role) + "/";
    if (inGroup.rfind(prefix, 0) == 0) return leftover(inGroup.substr(prefix.size()), std::string(role) == "tapPort");
  }
  return inGroup == "tapPort" || inGroup == "toolPort" ? allLeftovers(json{{inGroup, *d.before}}) : false;
}

const std::string kErrdisable = "interface/errdisable/cause/tapagg/intfStatus/";

// An errdisable entry carries the clock time of the last judgement that found the conflict; a
// restart judges again and rewrites it (docs/restart.md, "The exceptions").
bool errdisableTime(const Difference& d, const json&, const json&) {
  return d.path.rfind(kErrdisable, 0) == 0 && d.before && d.after && d.before->is_number() && d.after->is_number();
}

// Errdisable reads the slice profiles and the Port-Channels' statuses, but a change of either
// judges nothing: it takes effect at each interface's next judgement, and a start-up judges all
// (docs/restart.md, "The exceptions"). Only mixed mode reads them, and only for Ethernet
// interfaces; the difference is an entry that comes or goes, not a time.
bool errdisableNotJudged(const Difference& d, const json& before, const json&) {
  if (d.path.rfind(kErrdisable, 0) != 0 || (d.before && d.after)) return false;
  const json* mode = valueAt(before, "tapagg/cliconfig/mode");
  const bool mixed = mode && (*mode == "tapAggModeMixed" || *mode == 2);
  return mixed && d.path.compare(kErrdisable.size(), 8, "Ethernet") == 0;
}

// Without ACL-filtered sources in the hardware, a change of a source's filter reaches the
// session's hardware copy with its next rewrite, and a start-up writes the copy whole
// (docs/restart.md, "The exceptions"): the filter of a programmed source may lag its entry.
bool srcAclNotApplied(const Difference& d, const json& before, const json&) {
  static const std::string hw = "mirroring/hwconfig/session/";
  if (d.path.rfind(hw, 0) != 0 || !d.before || !d.after) return false;
  const json* supported = valueAt(before, "mirroring/hwcapability/srcAclSupported");
  if (supported && *supported == true) return false;
  const std::size_t at = d.path.find("/srcIntf/", hw.size());
  if (at == std::string::npos) return false;
  const std::size_t attr = d.path.rfind('/');
  const std::string name = d.path.substr(attr + 1);
  if (name != "srcAcl" && name != "aclType") return false;
  // The configured entry of that session and interface holds what the start-up wrote.
  const json* configured = valueAt(before, "mirroring/config/session/" + d.path.substr(hw.size()));
  return configured && *configured == *d.after;
}

}  // namespace

// Exactly the differences docs/restart.md lists, and nothing next to them.
const std::vector<ExceptionFilter>& restartExceptions() {
  static const std::vector<ExceptionFilter> list = {
      {"errdisableTime", "docs/restart.md: an errdisable entry's time is rewritten at each judgement", errdisableTime},
      {"errdisableNotJudged",
       "docs/restart.md: a slice-profile or Port-Channel status change takes effect at the next judgement",
       errdisableNotJudged},
      {"tapAggLeftoverRole", "docs/restart.md: a role a switchport-mode change left behind is swept at start-up",
       tapAggLeftoverRole},
      {"srcAclNotApplied",
       "docs/restart.md: without ACL-filtered sources a filter change reaches the hardware copy with its next rewrite",
       srcAclNotApplied},
  };
  return list;
}

std::vector<Difference> untolerated(const std::vector<Difference>& ds, const json& before, const json& after) {
  std::vector<Difference> out;
  for (const Difference& d : ds) {
    bool tolerated = false;
    for (const ExceptionFilter& f : restartExceptions()) tolerated = tolerated || f.tolerates(d, before, after);
    if (!tolerated) out.push_back(d);
  }
  return out;
}

}  // namespace consistency
