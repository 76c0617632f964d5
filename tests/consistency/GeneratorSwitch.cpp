// The generated switch: its interfaces, capabilities, LAGs, VRFs, switchport records, tap
// aggregation and starting sessions, as a state file; and the sessions, keys and options that
// lines draw from.
#include <algorithm>

#include "consistency/GeneratorModel.h"

namespace consistency {

namespace {

const std::vector<std::string> kLinkStatus = {"linkUp", "linkDown", "linkUnknown", "linkNotPresent"};
const std::vector<std::string> kTruncationSizes = {"truncationSizeDefault", "truncationSize128", "truncationSize160",
                                                   "truncationSize192", "truncationSize256"};
const std::vector<std::string> kHeaderRemoval = {"headerRemovalNone", "headerRemoval4", "headerRemoval8",
                                                 "headerRemoval12", "headerRemoval16"};
const std::vector<std::string> kPayload = {"payloadTypeUnset", "payloadTypeFullPacket", "payloadTypeInnerPacket"};
const std::vector<std::string> kOwner = {"ownerOperator", "ownerPolicy", "ownerDiagnostics"};
const std::vector<std::string> kMetadata = {"ingressInterface", "egressInterface", "switchId", "timestamp", "vlan"};
const std::vector<std::string> kTapAggModes = {"tapAggModeOff", "tapAggModeExclusive", "tapAggModeMixed"};
const std::vector<std::string> kSwitchportModes = {
    "switchportModeAccess", "switchportModeTrunk",   "switchportModeDot1qTunnel", "switchportModeTap",
    "switchportModeTool",   "switchportModeTapTool", "switchportModeRouted"};

// Tunnel keys: some share a destination and differ in one member, one is IPv6, two name no
// usable destination.
json keyTemplate(int i) {
  switch (i) {
    case 0:
      return {{"srcIpAddr", "10.0.0.1"}, {"dstIpAddr", "192.0.2.1"}};
    case 1:
      return {{"srcIpAddr", "10.0.0.1"}, {"dstIpAddr", "192.0.2.2"}, {"vrf", "blue"}};
    case 2:
      return {{"srcIpAddr", "2001:db8::1"}, {"dstIpAddr", "2001:db8::99"}, {"vrf", "red"}};
    case 3:
      return {{"srcIpAddr", "10.0.0.1"}, {"dstIpAddr", "192.0.2.1"}, {"ttl", 64}};
    case 4:
      return {{"srcIpAddr", "10.0.0.2"}, {"dstIpAddr", "198.51.100.7"}, {"greKey", 42}, {"vrf", "default"}};
    case 5:
      return {{"dstIpAddr", "0.0.0.0"}};
    case 6:
      return {{"dstIpAddr", "::"}};
    default:
      return json::object();
  }
}

json modeValue(Rng& rng, int mode) {
  // Known modes mostly by name, sometimes by number; a mode without a name only by number.
  if (mode < int(kSwitchportModes.size()) && rng.chance(80)) return kSwitchportModes[std::size_t(mode)];
  return mode;
}

}  // namespace

std::string changeLine(const char* op, const std::string& path, const json* value) {
  json line = {{"op", op}, {"path", path}};
  if (value) line["value"] = *value;
  return line.dump();
}

std::string GeneratorModel::existingKey(const json& object) {
  if (!object.is_object() || object.empty()) return "";
  auto it = object.begin();
  std::advance(it, long(rng.below(object.size())));
  return it.key();
}

std::string GeneratorModel::srcIntf() {
  switch (rng.weighted({50, 25, 25})) {
    case 0:
      return hotEth();
    case 1:
      return anyEth();
    default:
      return rng.pick(pcs);
  }
}

std::string GeneratorModel::targetIntf() {
  switch (rng.weighted({30, 15, 12, 12, 22, 5})) {
    case 0:
      return hotEth();
    case 1:
      return anyEth();
    case 2:
      return rng.pick(pcs);
    case 3:
      return "Cpu";
    case 4:
      return "Gre0";
    default:
      return "Loopback0";
  }
}

json GeneratorModel::greKey() { return rng.pick(keyPool); }

json GeneratorModel::makeSrcEntry() {
  json entry = {{"direction", direction()}};
  if (rng.chance(15)) {
    static const std::vector<std::pair<std::string, std::string>> acls = {
        {"a1", "aclTypeIp"}, {"v6a", "aclTypeIpv6"}, {"v6b", "aclTypeIpv6"}, {"m1", "aclTypeMac"}};
    const auto& [name, type] = rng.pick(acls);
    entry["srcAcl"] = name;
    entry["aclType"] = type;
    entry["aclPriority"] = rng.range(0, 20);
  }
  return entry;
}

json GeneratorModel::option(std::string& name) {
  switch (rng.below(15)) {
    case 0:
      name = "truncate";
      return rng.chance(60);
    case 1:
      name = "truncationSize";
      return rng.pick(kTruncationSizes);
    case 2:
      name = "headerRemovalSize";
      return rng.pick(kHeaderRemoval);
    case 3:
      name = "rxSampleRate";
      return std::vector<int>{0, 1, 100, 1000}[rng.below(4)];
    case 4:
      name = "mirrorRateLimitInBps";
      return std::vector<uint64_t>{0, 1000000, 2000000000}[rng.below(3)];
    case 5:
      name = "mirrorRateLimitChip";
      return rng.chance(50) ? "chip0" : "";
    case 6: {
      name = "greMetadata";
      json elements = json::object();
      for (const auto& e : kMetadata) {
        if (rng.chance(35)) elements[e] = true;
      }
      return elements;
    }
    case 7:
      name = "grePayloadType";
      return rng.pick(kPayload);
    case 8:
      name = "greTimestampingEnabled";
      return rng.chance(50);
    case 9:
      name = "txGreMetadataEnabled";
      return rng.chance(50);
    case 10:
      name = "secureMonitor";
      return rng.chance(50);
    case 11:
      name = "portMirroringDisabled";
      return rng.chance(30);
    case 12:
      name = "isInternal";
      return rng.chance(30);
    case 13:
      name = "owner";
      return rng.pick(kOwner);
    default:
      name = "rxSampleRate";
      return 1;
  }
}

json GeneratorModel::makeSession() {
  json s = json::object();
  const int sources = int(rng.weighted({1, 4, 4, 2}));
  for (int i = 0; i < sources; ++i) s["srcIntf"][srcIntf()] = makeSrcEntry();
  const int targets = int(rng.weighted({1, 6, 3}));
  std::vector<std::string> tg;
  for (int i = 0; i < targets; ++i) {
    std::string t = targetIntf();
    if (std::find(tg.begin(), tg.end(), t) == tg.end()) tg.push_back(t);
  }
  s["targetIntf"] = tg;
  const bool gre = std::find(tg.begin(), tg.end(), "Gre0") != tg.end();
  if ((gre && rng.chance(85)) || rng.chance(10)) s["greTunnelKey"] = greKey();
  if (rng.chance(25)) s["dropGreTunnelKey"] = greKey();
  for (int i = 0; i < 4; ++i) {
    if (!rng.chance(25)) continue;
    std::string name;
    json v = option(name);
    s[name] = v;
  }
  return s;
}

json GeneratorModel::switchIntfRecord(int mode) {
  json r = {{"switchportMode", modeValue(rng, mode)}};
  json tap = json::array(), tool = json::array();
  for (const auto& g : groups) {
    if (rng.chance(40)) tap.push_back(g);
    if (rng.chance(40)) tool.push_back(g);
  }
  r["tapGroup"] = tap;
  r["toolGroup"] = tool;
  if (rng.chance(20)) r["tapRawIntf"] = {{anyIntf(), true}};
  if (rng.chance(10)) r["toolIntfInUse"] = 1;
  return r;
}

void GeneratorModel::makeSwitch() {
  const int nEth = rng.range(4, 8);
  for (int i = 1; i <= nEth; ++i) eths.push_back("Ethernet" + std::to_string(i));
  const int nPc = rng.range(2, 3);
  for (int i = 1; i <= nPc; ++i) pcs.push_back("Port-Channel" + std::to_string(i));
  sessionNames = {"s1", "s2", "s3", "s4", "s5"};
  sessionNames.resize(std::size_t(rng.range(3, 5)));
  groups = {"g1", "g2", "g3"};
  std::vector<int> keys;
  while (keys.size() < 4) {
    int k = int(rng.below(8));
    if (std::find(keys.begin(), keys.end(), k) == keys.end()) keys.push_back(k);
  }
  if (std::none_of(keys.begin(), keys.end(), [](int k) { return k < 5; })) keys[0] = 0;
  for (int k : keys) keyPool.push_back(keyTemplate(k));

  json& caps = mount("mirroring/hwcapability");
  caps["maxSupportedSessions"] =
      std::vector<int>{0, 1, 2, 3, 4, 6, 8, 255, 256, 257}[rng.weighted({3, 10, 18, 18, 12, 6, 5, 4, 2, 4})];
  for (const char* flag : {"multiDestSupported", "multiSessionForDestSupported", "multiSessionForSourceSupported",
                           "sameIntfSrcAndDestSupported", "loopbackDestSupported"}) {
    caps[flag] = rng.chance(35);
  }
  for (const char* flag : {"truncationSupported", "headerRemovalSupported", "cpuDestSupported", "lagDestSupported",
                           "rxSamplingSupported", "timestampWithTruncationSupported", "srcAclSupported"}) {
    caps[flag] = rng.chance(70);
  }
  json sizes = json::array();
  for (std::size_t i = 1; i < kTruncationSizes.size(); ++i) {
    if (rng.chance(40)) sizes.push_back(kTruncationSizes[i]);
  }
  caps["truncationSizesSupported"] = sizes;

  auto status = [this] {
    return json{{"hwActive", rng.chance(88)}, {"linkStatus", kLinkStatus[rng.weighted({80, 12, 4, 4})]}};
  };
  intfStatus() = json::object();
  for (const auto& e : eths) {
    if (rng.chance(92)) intfStatus()[e] = status();
  }
  lagStatus() = json::object();
  for (const auto& p : pcs) {
    if (rng.chance(85)) intfStatus()[p] = status();
    if (rng.chance(80)) lagStatus()[p] = {{"hwActive", true}, {"linkStatus", "linkUp"}};
  }
  lagMembers() = json::object();
  lagForwarding() = json::object();
  for (const auto& p : pcs) {
    for (int m = rng.range(1, 2); m > 0; --m) {
      // Members come from the busy ports now and then, so that sources hide behind their LAG.
      const std::string& e = rng.chance(30) ? hotEth() : anyEth();
      if (lagMembers().contains(e)) continue;
      lagMembers()[e] = {{"lag", p}};
      if (rng.chance(85)) lagForwarding()[e] = "intfForwardingModelLagMember";
    }
  }
  vrfs() = json::object();
  for (const auto& [vrf, p] :
       std::vector<std::pair<std::string, unsigned>>{{"default", 80}, {"blue", 60}, {"red", 40}}) {
    if (rng.chance(p)) vrfs()[vrf] = {{"state", "vrfStateActive"}};
  }

  bridging() = json::object();
  switchIntf() = json::object();
  std::vector<std::string> ports = eths;
  ports.insert(ports.end(), pcs.begin(), pcs.end());
  for (const auto& x : ports) {
    if (!rng.chance(45)) continue;
    const int mode = switchportMode();
    // Now and then only one half of an interface's configuration.
    const std::size_t halves = rng.weighted({85, 8, 7});
    if (halves != 2) bridging()[x] = {{"switchportMode", modeValue(rng, mode)}};
    if (halves != 1) switchIntf()[x] = switchIntfRecord(mode);
  }
  json& cli = tapAgg();
  cli["mode"] = kTapAggModes[rng.weighted({3, 4, 3})];
  cli["noerrdisableIntf"] = json::object();
  if (rng.chance(30)) cli["noerrdisableIntf"][anyIntf()] = true;
  cli["sliceProfileConfig"] = json::object();
  if (rng.chance(40)) cli["sliceProfileConfig"]["Linecard1"] = "tapagg";
  if (rng.chance(60)) {
    mount("hardware/fcx/slice/status")["entry"]["Linecard1"] = {
        {"@type", "Hardware::SliceStatus"}, {"ready", true}, {"linecard", 1}};
  }
  if (rng.chance(40)) {
    mount("acl/config/cli")["config"] = {
        {"aclTypeIp", {{"acl", {{"a1", {{"rule", {{"10", "permit ip any any"}}}}}}}}},
        {"aclTypeIpv6", {{"acl", {{"v6a", {{"rule", {{"10", "permit ipv6 any any"}}}}}}}}}};
  }

  sessions() = json::object();
  for (int n = int(rng.weighted({3, 4, 3, 2})); n > 0; --n) sessions()[rng.pick(sessionNames)] = makeSession();
  if (rng.chance(15)) {
    mount("mirroring/config")["defaultSessionConfig"] = {{"grePayloadType", rng.pick(kPayload)},
                                                         {"truncationSize", rng.pick(kTruncationSizes)}};
  }
  if (rng.chance(3)) {
    // Many sessions against a limit near the width of the hardware session ids.
    caps["maxSupportedSessions"] = std::vector<int>{255, 256, 257}[rng.weighted({1, 1, 2})];
    const int many = rng.range(253, 260);
    const bool cpu = rng.chance(50);
    for (int i = 1; i <= many; ++i) {
      sessions()["b" + std::to_string(i)] = {{"targetIntf", cpu ? json::array({"Cpu"}) : json::array()}};
    }
    caps["cpuDestSupported"] = true;
  }
}

// What an earlier run of the agent, or a crash in the middle of its work, could have left in
// the agent's own mounts.
json GeneratorModel::leftovers() {
  json out = json::object();
  json& status = out["mirroring/status"];
  json& hw = out["mirroring/hwconfig"];
  for (int n = rng.range(1, 3); n > 0; --n) {
    const std::string s = rng.pick(sessionNames);
    status["sessionStatus"][s]["targetOperStatus"][targetIntf()] = {{"state", "active"}};
    if (rng.chance(50)) status["sessionStatus"][s]["srcOperStatus"][srcIntf()] = {{"state", "active"}};
    if (rng.chance(60)) {
      hw["session"][s] = {
          {"sessionId", std::vector<int>{0, 1, 2, 3, 7, 255, 300, -1}[rng.weighted({6, 6, 4, 3, 2, 1, 1, 1})]},
          {"targetIntf", {targetIntf()}}};
    }
  }
  for (int n = int(rng.below(3)); n > 0; --n) {
    const std::string tunnel = "Gre" + std::to_string(rng.range(1, 4));
    const json key = greKey();
    if (rng.chance(80)) status["greTunnelKey"][tunnel] = key;
    if (rng.chance(80)) {
      const std::string other = rng.chance(75) ? tunnel : "Gre" + std::to_string(rng.range(1, 4));
      status["greTunnelKeyToIntfId"].push_back({{"key", key}, {"value", other}});
    }
  }
  if (rng.chance(50)) {
    out["interface/input/forwardingmodel/mirroring"]["forwardingModelInput"][anyIntf()] =
        "intfForwardingModelQuietDataLink";
  }
  if (rng.chance(40)) {
    out["tapagg/status"]["group"][rng.pick(groups)]["tapPort"][anyIntf()] = {{"active", true}, {"reason", ""}};
  }
  if (rng.chance(30)) out["stp/portMode/tapagg"]["portMode"][anyIntf()] = "portModeTapAgg";
  // A tap or tool port's hardware entry refers to the port's own record, so only a port with one
  // can have been left so.
  const std::string intf = state.contains("bridging/switchIntfConfig") ? existingKey(switchIntf()) : "";
  if (!intf.empty() && rng.chance(40)) {
    out["tapagg/hwconfig"][rng.chance(50) ? "tapPort" : "toolPort"][intf] =
        "bridging/switchIntfConfig/switchIntfConfig/" + intf;
  }
  if (hw.is_null()) out.erase("mirroring/hwconfig");
  return out;
}

// One write into the agent's own mounts, as a crashed run might have left it.
json GeneratorModel::plantLine() {
  const std::string s = rng.pick(sessionNames);
  switch (rng.below(7)) {
    case 0:
      return {{"op", "set"},
              {"path", "mirroring/status/greTunnelKey/Gre" + std::to_string(rng.range(1, 4))},
              {"value", greKey()}};
    case 1:
      return {{"op", "set"},
              {"path", "mirroring/status/greTunnelKeyToIntfId"},
              {"key", greKey()},
              {"value", "Gre" + std::to_string(rng.range(1, 4))}};
    case 2:
      return {{"op", "set"},
              {"path", "mirroring/hwconfig/session/" + s},
              {"value",
               {{"sessionId", std::vector<int>{0, 1, 2, 3, 300, -1}[rng.weighted({5, 5, 3, 2, 1, 1})]},
                {"targetIntf", {targetIntf()}},
                {"srcIntf", {{srcIntf(), {{"direction", "rx"}}}}}}}};
    case 3:
      return {{"op", "set"},
              {"path", "mirroring/status/sessionStatus/" + s},
              {"value",
               {{"targetOperStatus", {{targetIntf(), {{"state", "active"}}}}},
                {"srcOperStatus", {{srcIntf(), {{"state", "active"}}}}}}}};
    case 4:
      return {{"op", "set"},
              {"path", "interface/input/forwardingmodel/mirroring/forwardingModelInput/" + anyIntf()},
              {"value", "intfForwardingModelQuietDataLink"}};
    case 5:
      return {{"op", "set"},
              {"path", "tapagg/status/group/" + rng.pick(groups)},
              {"value", {{"tapPort", {{anyIntf(), {{"active", true}, {"reason", ""}}}}}}}};
    default:
      return {{"op", "set"}, {"path", "stp/portMode/tapagg/portMode/" + anyIntf()}, {"value", "portModeTapAgg"}};
  }
}

}  // namespace consistency
