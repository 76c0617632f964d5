#include "bench/ScaleSwitch.h"

#include "platform/Codec.h"

#include <map>
#include <string>
#include <vector>

namespace bench {

namespace {

using platform::Value;

constexpr int kLinecards = 16;
constexpr int kPortsPerLinecard = 32;
constexpr int kTapLinecards = 8;    // linecards 1-8
constexpr int kToolLinecards = 4;   // linecards 9-12
constexpr int kLags = 64;           // members on linecards 13-16, two each
constexpr int kMirroredLags = 32;   // Port-Channel1-32; 33-64 are destinations
constexpr int kGroups = 64;
constexpr int kGreKeys = 16;
constexpr int kVlans = 8;

std::string ethernet(int linecard, int port) {
  return "Ethernet" + std::to_string(linecard) + "/" + std::to_string(port);
}
std::string portChannel(int n) { return "Port-Channel" + std::to_string(n); }
// `n` written with at least `width` digits.
std::string padded(int n, std::size_t width) {
  std::string digits = std::to_string(n);
  return std::string(digits.size() < width ? width - digits.size() : 0, '0') + digits;
}
std::string group(int g) { return "grp" + padded(g + 1, 2); }
std::string sessionName(int i) { return "mon" + padded(i + 1, 3); }

// Ports by role, in interface order.
std::vector<std::string> tapPorts() {
  std::vector<std::string> out;
  for (int lc = 1; lc <= kTapLinecards; ++lc)
    for (int p = 1; p <= kPortsPerLinecard; ++p) out.push_back(ethernet(lc, p));
  return out;
}
std::vector<std::string> toolPorts() {
  std::vector<std::string> out;
  for (int lc = kTapLinecards + 1; lc <= kTapLinecards + kToolLinecards; ++lc)
    for (int p = 1; p <= kPortsPerLinecard; ++p) out.push_back(ethernet(lc, p));
  return out;
}
// The two members of Port-Channel n (1-based): consecutive ports from Ethernet13/1 on.
std::vector<std::string> lagMembers(int n) {
  const int first = (n - 1) * 2;
  const int lc = kTapLinecards + kToolLinecards + 1 + first / kPortsPerLinecard;
  const int p = first % kPortsPerLinecard + 1;
  return {ethernet(lc, p), ethernet(lc, p + 1)};
}

Value object(std::initializer_list<std::pair<std::string, Value>> members) {
  Value v = Value::object();
  for (const auto& [k, m] : members) v.set(k, m);
  return v;
}
Value array(const std::vector<std::string>& items) {
  Value v = Value::array();
  for (const auto& i : items) v.push(Value(i));
  return v;
}

// Links that are not up, for a little realism: a tap port down, one unknown, a tool port down.
const char* linkOf(const std::string& intf) {
  if (intf == "Ethernet8/31" || intf == "Ethernet11/32") return "linkDown";
  if (intf == "Ethernet8/32") return "linkUnknown";
  return "linkUp";
}

Value capability() {
  Value sizes = Value::array();
  sizes.push("truncationSize128");
  sizes.push("truncationSize192");
  return object({{"maxSupportedSessions", kMaxScaleSessions},
                 {"truncationSupported", true},
                 {"truncationSizesSupported", sizes},
                 {"headerRemovalSupported", true},
                 {"cpuDestSupported", true},
                 {"lagDestSupported", true},
                 {"multiDestSupported", true},
                 {"multiSessionForDestSupported", true},
                 {"multiSessionForSourceSupported", true},
                 {"rxSamplingSupported", true},
                 {"loopbackDestSupported", false},
                 {"sameIntfSrcAndDestSupported", false},
                 {"timestampWithTruncationSupported", true},
                 {"srcAclSupported", true}});
}

Value greKey(int k) {
  // Keys 15 and 16 name a VRF nobody configured.
  const char* vrf = k < 12 ? "default" : k < 14 ? "mgmt" : "collectors";
  return object({{"srcIpAddr", "10.255.0.1"},
                 {"dstIpAddr", "192.0.2." + std::to_string(k + 1)},
                 {"ttl", 64},
                 {"vrf", vrf}});
}

// The configuration of session i (0-based); `plain` counts the sessions before it that send to
// Port-Channels, so that those spread evenly over the destination Port-Channels.
Value session(int i, int sessions, int sources, int& plain, const std::vector<std::string>& sourcePool,
              const std::vector<std::string>& tools) {
  const bool gre = i % 4 == 3;
  Value src = Value::object();
  for (int j = 0; j < sources; ++j) {
    std::string intf = sourcePool[(i * sources + j) % sourcePool.size()];
    if (j == sources - 1 && i % 10 == 0) intf = lagMembers(1 + i % kMirroredLags)[0];
    const char* direction = gre ? "rx" : (j % 3 == 0 ? "both" : j % 3 == 1 ? "rx" : "tx");
    src.set(intf, object({{"direction", direction}}));
  }
  std::vector<std::string> targets;
  Value s = object({{"srcIntf", src}});
  if (gre) {
    targets.push_back("Gre0");
    s.set("greTunnelKey", greKey((i / 4) % kGreKeys));
  } else if (i == sessions - 1) {
    targets.push_back(tools.back());
  } else if (i % 32 == 5) {
    targets.push_back("Cpu");
  } else {
    constexpr int kDestLags = kLags - kMirroredLags;
    targets.push_back(portChannel(kMirroredLags + 1 + plain % kDestLags));
    if (plain % 16 == 0) targets.push_back(portChannel(kMirroredLags + 1 + (plain + kDestLags / 2) % kDestLags));
    ++plain;
  }
  s.set("targetIntf", array(targets));
  if (i % 8 == 1) {
    s.set("truncate", true);
    s.set("truncationSize", "truncationSize128");
  }
  return s;
}

}  // namespace

ScaleSwitch makeScaleSwitch(int sessions, int sourcesPerSession) {
  ScaleSwitch out;
  const std::vector<std::string> taps = tapPorts();
  const std::vector<std::string> tools = toolPorts();
  std::vector<std::string> ethernets;
  for (int lc = 1; lc <= kLinecards; ++lc)
    for (int p = 1; p <= kPortsPerLinecard; ++p) ethernets.push_back(ethernet(lc, p));

  Value& s = out.state = Value::object();
  s.set("mirroring/hwcapability", capability());

  // Interface statuses: every port, Port-Channel and VLAN interface exists in hardware.
  Value intf = Value::object(), phy = Value::object(), lag = Value::object(), vlan = Value::object();
  for (const auto& e : ethernets) {
    intf.set(e, object({{"hwActive", true}, {"linkStatus", linkOf(e)}}));
    phy.set(e, object({{"linkStatus", linkOf(e)}}));
  }
  for (int n = 1; n <= kLags; ++n) {
    intf.set(portChannel(n), object({{"hwActive", true}, {"linkStatus", "linkUp"}}));
    lag.set(portChannel(n), object({{"hwActive", true}, {"linkStatus", "linkUp"}}));
  }
  for (int v = 10; v < 10 + kVlans; ++v) {
    const std::string name = "Vlan" + std::to_string(v);
    intf.set(name, object({{"hwActive", true}, {"linkStatus", "linkUp"}}));
    vlan.set(name, object({{"linkStatus", "linkUp"}}));
  }
  s.set("interface/status/eth/intf", object({{"intfStatus", intf}}));
  s.set("interface/status/eth/phy/all", object({{"intfStatus", phy}}));
  s.set("interface/status/eth/lag", object({{"intfStatus", lag}}));
  s.set("interface/status/eth/vlan", object({{"intfStatus", vlan}}));

  // LAGs: configuration, membership and the members' forwarding model.
  Value lagConfig = Value::object(), members = Value::object(), memberModel = Value::object();
  for (int n = 1; n <= kLags; ++n) {
    lagConfig.set(portChannel(n), object({{"minLinks", 1}}));
    for (const auto& m : lagMembers(n)) {
      members.set(m, object({{"lag", portChannel(n)}}));
      memberModel.set(m, "intfForwardingModelLagMember");
    }
  }
  s.set("interface/config/eth/lag", object({{"intfConfig", lagConfig}}));
  s.set("lag/config", object({{"phyIntf", members}}));
  s.set("interface/input/forwardingmodel/lag", object({{"forwardingModelInput", memberModel}}));

  s.set("ip/vrf/status/global",
        object({{"vrf", object({{"default", object({{"state", "vrfStateActive"}})},
                                {"mgmt", object({{"state", "vrfStateActive"}})}})}}));

  // Switchport modes (resolved) and the CLI records with the groups.
  Value modes = Value::object(), cli = Value::object();
  for (std::size_t i = 0; i < taps.size(); ++i) {
    modes.set(taps[i], object({{"switchportMode", "switchportModeTap"}}));
    cli.set(taps[i], object({{"switchportMode", "switchportModeTap"}, {"tapGroup", array({group(int(i) / 4)})}}));
  }
  for (std::size_t i = 0; i < tools.size(); ++i) {
    modes.set(tools[i], object({{"switchportMode", "switchportModeTool"}}));
    cli.set(tools[i], object({{"switchportMode", "switchportModeTool"}, {"toolGroup", array({group(int(i) / 2)})}}));
  }
  for (int n = 1; n <= kLags; ++n) {
    modes.set(portChannel(n), object({{"switchportMode", "switchportModeTrunk"}}));
    cli.set(portChannel(n), object({{"switchportMode", "switchportModeTrunk"}}));
  }
  s.set("bridging/config", object({{"switchIntfConfig", modes}}));
  s.set("bridging/switchIntfConfig", object({{"switchIntfConfig", cli}}));

  Value slices = Value::object();
  for (int lc = 1; lc <= kLinecards; ++lc) {
    slices.set("Linecard" + std::to_string(lc),
               object({{"@type", "Hardware::SliceStatus"}, {"ready", true}, {"linecard", lc}}));
  }
  s.set("hardware/fcx/slice/status", object({{"entry", slices}}));

  Value exempt = Value::object(), profiles = Value::object();
  for (int n = 1; n <= kLags; ++n) {
    if (n <= 16 || n > kMirroredLags) exempt.set(portChannel(n), true);
  }
  for (int lc = 1; lc <= kTapLinecards + kToolLinecards; ++lc) profiles.set("Linecard" + std::to_string(lc), "tapagg");
  s.set("tapagg/cliconfig", object({{"mode", "tapAggModeExclusive"},
                                    {"noerrdisableIntf", exempt},
                                    {"sliceProfileConfig", profiles}}));

  // Sessions.
  std::vector<std::string> sourcePool = taps;
  for (int n = 1; n <= kMirroredLags; ++n) sourcePool.push_back(portChannel(n));
  Value configured = Value::object();
  int plain = 0;
  for (int i = 0; i < sessions; ++i) {
    Value cfg = session(i, sessions, sourcesPerSession, plain, sourcePool, tools);
    out.sources += int(cfg.find("srcIntf")->asObject().size());
    configured.set(sessionName(i), std::move(cfg));
  }
  s.set("mirroring/config", object({{"session", configured}}));

  out.ports = int(ethernets.size());
  out.lags = kLags;
  out.sessions = sessions;
  out.tapPorts = int(taps.size());
  out.toolPorts = int(tools.size());
  out.groups = kGroups;

  // The events. Each subject is picked so that the event does something: the tap port is up
  // and in a group; the session has room for the source (it is not among its sources); the
  // destination is shared by several sessions.
  auto change = [](const char* op, const std::string& path, const Value* value) {
    Value c = object({{"op", op}, {"path", path}});
    if (value) c.set("value", *value);
    return platform::toJson(c);
  };
  const std::string tapPort = taps[4 * 8 + 4];  // Ethernet2/5
  const Value down = object({{"linkStatus", "linkDown"}}), up = object({{"linkStatus", "linkUp"}});
  const std::string tapPath = "interface/status/eth/intf/intfStatus/" + tapPort;
  out.events.push_back({"tapLink", "the link of tap port " + tapPort + " goes down, then up",
                        {change("merge", tapPath, &down)},
                        {change("merge", tapPath, &up)}});

  const std::string sourceSession = sessionName(1);  // mon002, sources from Ethernet1/17 on
  const std::string newSource = taps.back();         // Ethernet8/32, not among them
  const Value rx = object({{"direction", "rx"}});
  const std::string srcPath = "mirroring/config/session/" + sourceSession + "/srcIntf/" + newSource;
  out.events.push_back({"source", "source " + newSource + " is added to session " + sourceSession + ", then removed",
                        {change("set", srcPath, &rx)},
                        {change("del", srcPath, nullptr)}});

  // A destination only one session uses, and one several sessions share (of those, each
  // vouches for the others, so the shared one stays active: the event costs evaluation only).
  const Value inactive = object({{"hwActive", false}}), active = object({{"hwActive", true}});
  const std::string dest = tools.back();  // Ethernet12/32, a tool port, destination of the last session
  const std::string destPath = "interface/status/eth/intf/intfStatus/" + dest;
  out.events.push_back({"destination",
                        "destination " + dest + " (of one session; a tool port) leaves the hardware, then comes back",
                        {change("merge", destPath, &inactive)},
                        {change("merge", destPath, &active)}});
  const std::string shared = portChannel(kMirroredLags + 8);  // Port-Channel40
  const std::string sharedPath = "interface/status/eth/intf/intfStatus/" + shared;
  out.events.push_back({"sharedDestination",
                        "destination " + shared + " (shared by several sessions) leaves the hardware, then comes back",
                        {change("merge", sharedPath, &inactive)},
                        {change("merge", sharedPath, &active)}});

  const Value mixed = Value("tapAggModeMixed"), exclusive = Value("tapAggModeExclusive");
  out.events.push_back({"tapAggMode", "tap aggregation goes from exclusive to mixed mode, then back",
                        {change("set", "tapagg/cliconfig/mode", &mixed)},
                        {change("set", "tapagg/cliconfig/mode", &exclusive)}});

  // mon100: a GRE session, its tunnel shared with three others.
  const std::string again = sessionName(sessions > 99 ? 99 : sessions - 1);
  const Value* againCfg = configured.find(again);
  out.events.push_back({"session", "session " + again + " is deleted, then configured again",
                        {change("del", "mirroring/config/session/" + again, nullptr)},
                        {change("set", "mirroring/config/session/" + again, againCfg)}});

  // The busiest sources: the first tap port and the first mirrored Port-Channel that are
  // sources of the most sessions.
  std::map<std::string, int> uses;
  for (const auto& [name, cfg] : configured.asObject()) {
    for (const auto& [intf, direction] : cfg.find("srcIntf")->asObject()) ++uses[intf];
  }
  auto busiest = [&uses](const std::vector<std::string>& among) {
    std::string best = among.front();
    for (const auto& intf : among) {
      if (uses[intf] > uses[best]) best = intf;
    }
    return best;
  };
  const std::string sourcePort = busiest(taps);
  const std::string sourcePortPath = "interface/status/eth/intf/intfStatus/" + sourcePort;
  out.events.push_back({"sourcePortFlap",
                        "tap port " + sourcePort + ", a source of " + std::to_string(uses[sourcePort]) +
                            " sessions, leaves the hardware, then comes back",
                        {change("merge", sourcePortPath, &inactive)},
                        {change("merge", sourcePortPath, &active)}});

  // A Port-Channel's state is its two status records: the interface's and the LAG's.
  std::vector<std::string> mirroredLags;
  for (int n = 1; n <= kMirroredLags; ++n) mirroredLags.push_back(portChannel(n));
  const std::string sourceLag = busiest(mirroredLags);
  const Value lagDown = object({{"hwActive", false}, {"linkStatus", "linkDown"}});
  const Value lagUp = object({{"hwActive", true}, {"linkStatus", "linkUp"}});
  const std::string lagIntfPath = "interface/status/eth/intf/intfStatus/" + sourceLag;
  const std::string lagStatusPath = "interface/status/eth/lag/intfStatus/" + sourceLag;
  out.events.push_back({"portChannelFlap",
                        sourceLag + ", a source of " + std::to_string(uses[sourceLag]) +
                            " sessions, goes down and leaves the hardware, then comes back up",
                        {change("merge", lagIntfPath, &lagDown), change("merge", lagStatusPath, &lagDown)},
                        {change("merge", lagIntfPath, &lagUp), change("merge", lagStatusPath, &lagUp)}});

  const Value no = Value(false), yes = Value(true);
  const std::string capPath = "mirroring/hwcapability/multiSessionForSourceSupported";
  out.events.push_back({"capabilityFlip",
                        "the hardware stops allowing a source in several sessions, then allows it again",
                        {change("set", capPath, &no)},
                        {change("set", capPath, &yes)}});

  // The first member of Port-Channel1, itself listed as a source by mon001 (and mon161).
  const std::string member = lagMembers(1)[0];
  const Value membership = object({{"lag", portChannel(1)}}), model = Value("intfForwardingModelLagMember");
  const std::string memberPath = "lag/config/phyIntf/" + member;
  const std::string modelPath = "interface/input/forwardingmodel/lag/forwardingModelInput/" + member;
  out.events.push_back({"lagMember", member + " leaves " + portChannel(1) + " (a mirrored Port-Channel), then rejoins",
                        {change("del", memberPath, nullptr), change("del", modelPath, nullptr)},
                        {change("set", memberPath, &membership), change("set", modelPath, &model)}});
  return out;
}

}  // namespace bench
