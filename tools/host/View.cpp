#include "host/View.h"

#include <algorithm>
#include <cctype>
#include <ostream>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include "platform/Codec.h"
#include "platform/IntfId.h"

namespace host {

using platform::Value;

void Table::print(std::ostream& out, const std::string& indent) const {
  std::vector<std::size_t> widths(headers_.size(), 0);
  auto measure = [&](const std::vector<std::string>& cells) {
    for (std::size_t i = 0; i < cells.size() && i < widths.size(); ++i) widths[i] = std::max(widths[i], cells[i].size());
  };
  measure(headers_);
  for (const auto& row : rows_) measure(row);
  auto line = [&](const std::vector<std::string>& cells) {
    std::string text = indent;
    for (std::size_t i = 0; i < widths.size(); ++i) {
      std::string cell = i < cells.size() ? cells[i] : "";
      text += cell;
      if (i + 1 < widths.size()) text += std::string(widths[i] - cell.size() + 2, ' ');
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out << text << '\n';
  };
  line(headers_);
  for (const auto& row : rows_) line(row);
}

namespace {

// --- reading Values by field name ---------------------------------------------------------

const Value* member(const Value* v, std::string_view name) { return v ? v->find(name) : nullptr; }

// A value as one cell: scalars as they are, structs as "name=value" pairs, lists joined.
std::string text(const Value* v) {
  if (!v) return "-";
  switch (v->kind()) {
    case Value::Kind::null: return "-";
    case Value::Kind::string: return v->asString();
    case Value::Kind::boolean: return v->asBool() ? "true" : "false";
    case Value::Kind::array: {
      std::string out;
      for (const auto& item : v->asArray()) out += (out.empty() ? "" : ", ") + text(&item);
      return out;
    }
    case Value::Kind::object: {
      std::string out;
      for (const auto& [k, item] : v->asObject()) out += (out.empty() ? "" : ", ") + k + "=" + text(&item);
      return out;
    }
    default: return platform::toJson(*v);  // numbers as JSON writes them: 1.5, 108.0, 7
  }
}

// The entries of a collection, whatever its JSON shape: an object (text keys), an array of
// {key, value} pairs (struct keys) or an array of keys (a set, whose entries have no value).
std::vector<std::pair<std::string, const Value*>> entries(const Value* v) {
  std::vector<std::pair<std::string, const Value*>> out;
  if (!v) return out;
  if (v->isObject()) {
    for (const auto& [k, item] : v->asObject()) out.emplace_back(k, &item);
  } else if (v->isArray()) {
    for (const auto& item : v->asArray()) {
      const Value* k = item.find("key");
      if (k && item.find("value")) out.emplace_back(text(k), item.find("value"));
      else out.emplace_back(text(&item), nullptr);
    }
  }
  return out;
}

const Value* entry(const Value* collection, const std::string& key) {
  for (const auto& [k, v] : entries(collection)) {
    if (k == key) return v;
  }
  return nullptr;
}

// Interface names in the order an operator reads them (Ethernet2 before Ethernet10).
struct IntfOrder {
  bool operator()(const std::string& a, const std::string& b) const {
    return platform::IntfId(a) < platform::IntfId(b);
  }
};
using IntfNames = std::set<std::string, IntfOrder>;

void addKeys(IntfNames& names, const Value* collection) {
  for (const auto& [k, v] : entries(collection)) names.insert(k);
}

// {state, reason} of an OperStatus-shaped value; "-" when there is none.
std::pair<std::string, std::string> operStatus(const Value* v) {
  if (!v) return {"-", ""};
  if (!v->isObject()) return {text(v), ""};
  const Value* reason = member(v, "reason");
  return {text(member(v, "state")), reason ? text(reason) : ""};
}

std::string withReason(const std::pair<std::string, std::string>& status) {
  return status.second.empty() ? status.first : status.first + " (" + status.second + ")";
}

// The content of a mount, or null when there is no such mount.
const Value* mountContent(const MountContents& mounts, const std::string& path) {
  auto it = mounts.find(path);
  return it == mounts.end() ? nullptr : &it->second;
}

void heading(std::ostream& out, const std::string& title) {
  out << title << '\n' << std::string(title.size(), '-') << '\n';
}

// --- monitor sessions ---------------------------------------------------------------------

// Label/value lines with the values aligned after the longest label, or at `minWidth`, so
// that blocks with fewer labels line up with the others.
class Fields {
 public:
  explicit Fields(std::size_t minWidth = 0) : minWidth_(minWidth) {}
  void add(std::string label, std::string value) { rows_.emplace_back(std::move(label) + ":", std::move(value)); }
  void print(std::ostream& out, const std::string& indent) const {
    std::size_t width = minWidth_;
    for (const auto& [label, value] : rows_) width = std::max(width, label.size());
    for (const auto& [label, value] : rows_) {
      out << indent << label << std::string(width - label.size() + 2, ' ') << value << '\n';
    }
  }

 private:
  std::size_t minWidth_;
  std::vector<std::pair<std::string, std::string>> rows_;
};

std::string joined(const std::vector<std::string>& items) {
  std::string out;
  for (const auto& item : items) out += (out.empty() ? "" : ", ") + item;
  return out.empty() ? "none" : out;
}

// The companion session that mirrors a GRE session's forwarding drops has no configuration of
// its own; it is named after its session.
constexpr std::string_view kFwdingDropPrefix = "__fwdingDrop_";

// What a session amounts to: programmed in hardware, waiting for an active destination, or
// refused for lack of hardware sessions (configured, but the agent gave it no status).
std::string sessionState(bool configured, const Value* status, const Value* hw, bool hwMounted) {
  if (!status) return configured ? "not programmed: no room" : "not configured";
  bool programmed = hw != nullptr;
  if (!hwMounted) {
    programmed = false;
    for (const auto& [intf, target] : entries(member(status, "targetOperStatus"))) {
      programmed = programmed || operStatus(target).first == "active";
    }
  }
  return programmed ? "programmed" : "not programmed: no active destination";
}

// --- session options -----------------------------------------------------------------------

// An enumerator as an operator reads it: the type's prefix dropped and the words split
// ("payloadTypeInnerPacket" with prefix "payloadType" reads "inner packet").
std::string words(const std::string& enumerator, std::string_view prefix) {
  std::string name = enumerator.starts_with(prefix) ? enumerator.substr(prefix.size()) : enumerator;
  std::string out;
  for (char c : name) {
    if (std::isupper(static_cast<unsigned char>(c))) {
      if (!out.empty()) out += ' ';
      out += char(std::tolower(static_cast<unsigned char>(c)));
    } else {
      out += c;
    }
  }
  return out.empty() ? enumerator : out;
}

uint64_t number(const Value* v) {
  uint64_t n = 0;
  if (v) v->toUint64(n);
  return n;
}

// "truncationSize192" reads "192 bytes"; the default is the hardware's.
std::string truncationSize(const Value* v) {
  const std::string size = text(v);
  if (size == "truncationSizeDefault") return "default size";
  return words(size, "truncationSize") + " bytes";
}

// A rate of 0 or 1 mirrors every packet.
std::string sampling(uint64_t rate) { return rate <= 1 ? "off" : "1 in " + std::to_string(rate); }

// Bits per second in the largest unit that divides them.
std::string bitRate(uint64_t bps) {
  static constexpr std::pair<uint64_t, const char*> units[] = {
      {1'000'000'000'000, "Tbps"}, {1'000'000'000, "Gbps"}, {1'000'000, "Mbps"}, {1'000, "kbps"}};
  for (const auto& [size, unit] : units) {
    if (bps % size == 0) return std::to_string(bps / size) + " " + unit;
  }
  return std::to_string(bps) + " bps";
}

std::string onOff(const Value* v) { return v && v->isBool() && v->asBool() ? "on" : "off"; }

bool sendsToGre(const Value* session) {
  for (const auto& [intf, v] : entries(member(session, "targetIntf"))) {
    if (intf.starts_with("Gre")) return true;
  }
  return false;
}

// The options of a session: what was configured, and what was programmed where the hardware
// copy differs. A line appears only for options the session's entities carry; a session with
// no configuration (a companion) shows what is programmed.
void addOptions(Fields& fields, const Value* config, const Value* status, const Value* hw,
                const Value* defaultPayload) {
  const Value* options = config ? config : hw;
  if (status) {
    auto truncation = operStatus(member(status, "truncateOperStatus"));
    std::string line = withReason(truncation);
    const Value* size = member(options, "truncationSize");
    if (truncation.first == "active" && size) {
      const Value* programmed = member(hw, "truncationSize");
      line += ", " + truncationSize(programmed ? programmed : size);
      if (programmed && text(programmed) != text(size)) line += " (configured " + truncationSize(size) + ")";
    }
    fields.add("Truncation", line);
  }
  if (!options) return;
  if (const Value* rate = member(options, "rxSampleRate")) {
    std::string line = sampling(number(rate));
    const Value* programmed = member(hw, "rxSampleRate");
    if (programmed && sampling(number(programmed)) != sampling(number(rate))) {
      line += " (programmed: " + sampling(number(programmed)) + ")";
    }
    fields.add("Sampling", line);
  }
  if (const Value* limit = member(options, "mirrorRateLimitInBps")) {
    std::string line = number(limit) == 0 ? "none" : bitRate(number(limit));
    const std::string chip = text(member(options, "mirrorRateLimitChip"));
    if (number(limit) != 0 && !chip.empty() && chip != "-") line += " on " + chip;
    fields.add("Rate limit", line);
  }
  if (const Value* removal = member(options, "headerRemovalSize"); removal && text(removal) != "headerRemovalNone") {
    std::string line = words(text(removal), "headerRemoval") + " bytes";
    const Value* programmed = member(hw, "headerRemovalSize");
    if (programmed && text(programmed) != text(removal)) line += " (programmed: none)";
    fields.add("Header removal", line);
  }
  if (sendsToGre(options) && member(options, "grePayloadType")) {
    std::string payload = text(member(options, "grePayloadType"));
    std::string line = "payload ";
    if (payload == "payloadTypeUnset") {
      // The default in force: what the hardware copy got, else what the status publishes.
      const Value* resolved = member(hw, "grePayloadType");
      if (!resolved) resolved = defaultPayload;
      line += "default";
      if (resolved && text(resolved) != "payloadTypeUnset") line += " (" + words(text(resolved), "payloadType") + ")";
    } else {
      line += words(payload, "payloadType");
    }
    std::vector<std::string> elements;
    for (const auto& [element, v] : entries(member(options, "greMetadata"))) elements.push_back(element);
    line += "; metadata " + joined(elements);
    line += "; timestamping " + onOff(member(options, "greTimestampingEnabled"));
    line += "; tx metadata " + onOff(member(options, "txGreMetadataEnabled"));
    fields.add("GRE options", line);
  }
}

void renderSession(std::ostream& out, const std::string& name, const Value* config, const Value* status,
                   const Value* hw, bool hwMounted, bool configMounted, const Value* defaultPayload) {
  out << "Session " << name << '\n';
  Fields fields(std::string_view("Hardware session:").size());
  // Without the configuration mount every session counts as configured.
  const bool configured = config || !configMounted;
  std::string state = sessionState(configured, status, hw, hwMounted);
  if (!configured && status) {
    state += name.starts_with(kFwdingDropPrefix)
                 ? " (forwarding drops of session " + name.substr(kFwdingDropPrefix.size()) + ")"
                 : "; not configured";
  }
  fields.add("Status", state);
  if (status) {
    std::string device = text(member(status, "mirrorDeviceName"));
    fields.add("Mirror device", device.empty() ? "-" : device);
  }
  addOptions(fields, config, status, hw, defaultPayload);
  if (hw) {
    std::vector<std::string> sources;
    for (const auto& [intf, src] : entries(member(hw, "srcIntf"))) {
      std::string detail = text(member(src, "direction"));
      // The filter, where there is one: "Ethernet10 (rx, ipv6 ACL v6-a)".
      const Value* acl = member(src, "srcAcl");
      if (acl && acl->isString() && !acl->asString().empty()) {
        const Value* type = member(src, "aclType");
        detail += ", " + (type ? words(text(type), "aclType") + " " : "") + "ACL " + acl->asString();
      }
      sources.push_back(intf + " (" + detail + ")");
    }
    std::vector<std::string> targets;
    for (const auto& [intf, v] : entries(member(hw, "targetIntf"))) targets.push_back(intf);
    fields.add("Hardware session", text(member(hw, "sessionId")));
    fields.add("Hardware sources", joined(sources));
    fields.add("Hardware targets", joined(targets));
  }
  fields.print(out, "  ");

  IntfNames sources;
  addKeys(sources, member(config, "srcIntf"));
  addKeys(sources, member(status, "srcOperStatus"));
  Table srcTable({"Source", "Direction", "State", "Reason"});
  for (const auto& intf : sources) {
    const Value* src = entry(member(config, "srcIntf"), intf);
    auto [srcState, reason] = operStatus(entry(member(status, "srcOperStatus"), intf));
    srcTable.addRow({intf, src ? text(member(src, "direction")) : "-", srcState, reason});
  }
  if (!srcTable.empty()) srcTable.print(out, "  ");

  IntfNames targets;
  addKeys(targets, member(config, "targetIntf"));
  addKeys(targets, member(status, "targetOperStatus"));
  Table destTable({"Destination", "State", "Reason"});
  for (const auto& intf : targets) {
    auto [destState, reason] = operStatus(entry(member(status, "targetOperStatus"), intf));
    destTable.addRow({intf, destState, reason});
  }
  if (!destTable.empty()) destTable.print(out, "  ");
}

// A GRE protocol number as operators write it (0x88be).
std::string protocol(const Value* v) {
  uint64_t n = 0;
  if (!v || !v->toUint64(n)) return text(v);
  std::ostringstream hex;
  hex << "0x" << std::hex << n;
  return hex.str();
}

// The GRE tunnel interfaces the agent made for the sessions' tunnel keys, with the sessions
// whose status names each one.
void renderGreTunnels(std::ostream& out, const Value* tunnels, const Value* published) {
  Table table({"Interface", "Source", "Destination", "VRF", "TTL", "TOS", "Protocol", "Key", "Sessions"});
  IntfNames names;
  addKeys(names, tunnels);
  for (const auto& intf : names) {
    const Value* key = entry(tunnels, intf);
    std::vector<std::string> users;
    for (const auto& [session, status] : entries(published)) {
      if (entry(member(status, "targetOperStatus"), intf)) users.push_back(session);
    }
    table.addRow({intf, text(member(key, "srcIpAddr")), text(member(key, "dstIpAddr")), text(member(key, "vrf")),
                  text(member(key, "ttl")), text(member(key, "tos")), protocol(member(key, "greProto")),
                  text(member(key, "greKey")), joined(users)});
  }
  if (table.empty()) return;
  out << "GRE tunnels\n";
  table.print(out, "  ");
}

}  // namespace

MountContents viewContents(const platform::Database& db) {
  MountContents out;
  for (platform::Mount* m : db.mounts()) out.emplace(m->path(), platform::entityToValue(*m->root()));
  return out;
}

bool renderMonitorSessions(const MountContents& mounts, std::ostream& out) {
  const Value* config = mountContent(mounts, "mirroring/config");
  const Value* status = mountContent(mounts, "mirroring/status");
  const Value* hwconfig = mountContent(mounts, "mirroring/hwconfig");
  if (!config && !status && !hwconfig) return false;
  const Value* configured = member(config, "session");
  const Value* published = member(status, "sessionStatus");
  const Value* programmed = member(hwconfig, "session");

  heading(out, "Monitor sessions");
  std::set<std::string> names;
  for (const Value* coll : {configured, published, programmed}) {
    for (const auto& [k, v] : entries(coll)) names.insert(k);
  }
  if (names.empty()) out << "No sessions.\n";
  for (const auto& name : names) {
    renderSession(out, name, entry(configured, name), entry(published, name), entry(programmed, name),
                  hwconfig != nullptr, config != nullptr, member(status, "grePayloadType"));
  }
  if (status) renderGreTunnels(out, member(status, "greTunnelKey"), published);
  return true;
}

bool renderTapAggregation(const MountContents& mounts, std::ostream& out) {
  const Value* cli = mountContent(mounts, "tapagg/cliconfig");
  const Value* status = mountContent(mounts, "tapagg/status");
  const Value* hwconfig = mountContent(mounts, "tapagg/hwconfig");
  if (!cli && !status) return false;
  heading(out, "Tap aggregation");
  if (cli) {
    // The enumerators read "tapAggModeExclusive"; an operator reads "exclusive".
    std::string mode = text(member(cli, "mode"));
    static constexpr std::string_view modePrefix = "tapAggMode";
    if (mode.size() > modePrefix.size() && mode.starts_with(modePrefix)) {
      mode = mode.substr(modePrefix.size());
      mode[0] = char(std::tolower(static_cast<unsigned char>(mode[0])));
    }
    out << "Mode: " << mode << '\n';
  }
  const Value* slices = member(hwconfig, "slice");
  if (!entries(slices).empty()) {
    std::string line;
    for (const auto& [slice, on] : entries(slices)) {
      line += (line.empty() ? "" : ", ") + slice + (on && on->isBool() && on->asBool() ? " on" : " off");
    }
    out << "Slices: " << line << '\n';
  }
  if (!status) return true;
  // "Hardware" says whether the port is handed to the hardware: a port down only for its link
  // stays there while inactive.
  Table ports({"Group", "Port", "Role", "Active", "Hardware", "Reason"});
  for (const auto& [group, groupStatus] : entries(member(status, "group"))) {
    for (const char* role : {"tap", "tool"}) {
      std::string field = std::string(role) + "Port";
      IntfNames names;
      addKeys(names, member(groupStatus, field));
      for (const auto& intf : names) {
        const Value* port = entry(member(groupStatus, field), intf);
        const Value* active = member(port, "active");
        std::string activeText = active && active->isBool() ? (active->asBool() ? "yes" : "no") : text(active);
        std::string inHw = "-";
        if (hwconfig) inHw = entry(member(hwconfig, field), intf) ? "yes" : "no";
        const Value* reason = member(port, "reason");
        ports.addRow({group, intf, role, activeText, inHw, reason ? text(reason) : ""});
      }
    }
  }
  if (ports.empty()) out << "No tap or tool ports.\n";
  else ports.print(out);
  return true;
}

bool renderErrdisabledInterfaces(const MountContents& mounts, std::ostream& out) {
  static constexpr std::string_view prefix = "interface/errdisable/cause/";
  // An entry's value is when the interface was disabled (clock seconds).
  Table table({"Interface", "Cause", "Since"});
  bool any = false;
  for (const auto& [path, content] : mounts) {
    if (!path.starts_with(prefix)) continue;
    any = true;
    std::string cause = path.substr(prefix.size());
    IntfNames names;
    addKeys(names, member(&content, "intfStatus"));
    for (const auto& intf : names) table.addRow({intf, cause, text(entry(member(&content, "intfStatus"), intf))});
  }
  if (!any) return false;
  heading(out, "Errdisabled interfaces");
  if (table.empty()) out << "No interfaces errdisabled.\n";
  else table.print(out);
  return true;
}

std::string renderView(const MountContents& mounts) {
  std::ostringstream out;
  bool first = true;
  for (auto render : {renderMonitorSessions, renderTapAggregation, renderErrdisabledInterfaces}) {
    std::ostringstream section;
    if (!render(mounts, section)) continue;
    if (!first) out << '\n';
    out << section.str();
    first = false;
  }
  if (first) out << "Nothing to show: none of the mounts the view reads is present.\n";
  return out.str();
}

std::string renderView(const platform::Database& db) { return renderView(viewContents(db)); }

}  // namespace host
