// The lines of a generated stream, drawn by weight so that conflicts are common.
#include "consistency/Generator.h"

#include <algorithm>

#include "consistency/GeneratorModel.h"

namespace consistency {

namespace {

const char* const kCapabilities[] = {"truncationSupported",
                                     "headerRemovalSupported",
                                     "cpuDestSupported",
                                     "lagDestSupported",
                                     "multiDestSupported",
                                     "multiSessionForDestSupported",
                                     "multiSessionForSourceSupported",
                                     "rxSamplingSupported",
                                     "loopbackDestSupported",
                                     "sameIntfSrcAndDestSupported",
                                     "timestampWithTruncationSupported",
                                     "srcAclSupported"};

std::string sessionPath(const std::string& s) { return "mirroring/config/session/" + s; }

class LineMaker {
 public:
  LineMaker(GeneratorModel& m, std::vector<Line>& out) : m_(m), rng_(m.rng), out_(out) {}

  // `room`: how many lines the stream still takes; a planted block needs its restart inside.
  void next(int room) {
    switch (rng_.weighted({10, 4, 5, 6, 3, 3, 5, 3, 5, 3, 4, 6, 3, 8, 5, 3, 3, 5, 4, 1, 2, 2, 4, 2, 3, 4})) {
      case 0:
        sessionSet();
        break;
      case 1:
        sessionMerge();
        break;
      case 2:
        sessionDel();
        break;
      case 3:
        srcSet();
        break;
      case 4:
        srcDel();
        break;
      case 5:
        srcDirection();
        break;
      case 6:
        targetSet();
        break;
      case 7:
        targetDel();
        break;
      case 8:
        greKey("greTunnelKey");
        break;
      case 9:
        greKey("dropGreTunnelKey");
        break;
      case 10:
        sessionOption();
        break;
      case 11:
        capability();
        break;
      case 12:
        maxSessions();
        break;
      case 13:
        interfaceStatus();
        break;
      case 14:
        lagMember();
        break;
      case 15:
        lagStatus();
        break;
      case 16:
        vrf();
        break;
      case 17:
        switchport();
        break;
      case 18:
        switchIntfRecord();
        break;
      case 19:
        sliceProfile();
        break;
      case 20:
        tapAggMode();
        break;
      case 21:
        advance();
        break;
      case 22:
        good(R"({"op":"restart"})");
        break;
      case 23:
        if (room >= 4) plantBlock();
        break;
      case 24:
        bad();
        break;
      default:
        surroundings();
        break;
    }
  }

 private:
  void good(std::string text) { out_.push_back(Line{std::move(text), Line::Mark::none, ""}); }
  void change(const char* op, const std::string& path, const json* value = nullptr) {
    good(changeLine(op, path, value));
  }
  std::string existingSession() { return m_.existingKey(m_.sessions()); }

  void sessionSet() {
    const std::string s = rng_.pick(m_.sessionNames);
    json v = m_.makeSession();
    change("set", sessionPath(s), &v);
    m_.sessions()[s] = v;
  }
  void sessionMerge() {
    // Attributes only: the sources and destinations are edited entry by entry.
    const std::string s = rng_.pick(m_.sessionNames);
    json v = json::object();
    for (int i = rng_.range(1, 3); i > 0; --i) {
      std::string name;
      json o = m_.option(name);
      v[name] = o;
    }
    if (rng_.chance(40)) v["greTunnelKey"] = m_.greKey();
    change("merge", sessionPath(s), &v);
    if (!m_.sessions().contains(s)) m_.sessions()[s] = json::object();
  }
  void sessionDel() {
    const std::string s = existingSession();
    if (s.empty()) return sessionSet();
    change("del", sessionPath(s));
    m_.sessions().erase(s);
  }
  void srcSet() {
    const std::string s = existingSession();
    if (s.empty()) return sessionSet();
    const std::string x = m_.srcIntf();
    json v = m_.makeSrcEntry();
    change("set", sessionPath(s) + "/srcIntf/" + x, &v);
    m_.sessions()[s]["srcIntf"][x] = v;
  }
  void srcDel() {
    const std::string s = existingSession();
    if (s.empty()) return sessionSet();
    const std::string x = m_.existingKey(m_.sessions()[s]["srcIntf"]);
    if (x.empty()) return srcSet();
    change("del", sessionPath(s) + "/srcIntf/" + x);
    m_.sessions()[s]["srcIntf"].erase(x);
  }
  void srcDirection() {
    const std::string s = existingSession();
    if (s.empty()) return sessionSet();
    const std::string x = m_.existingKey(m_.sessions()[s]["srcIntf"]);
    if (x.empty()) return srcSet();
    json d = m_.direction();
    change("set", sessionPath(s) + "/srcIntf/" + x + "/direction", &d);
  }
  void targetSet() {
    const std::string s = existingSession();
    if (s.empty()) return sessionSet();
    const std::string t = m_.targetIntf();
    change("set", sessionPath(s) + "/targetIntf/" + t);
    json& targets = m_.sessions()[s]["targetIntf"];
    if (!targets.is_array()) targets = json::array();
    if (std::find(targets.begin(), targets.end(), t) == targets.end()) targets.push_back(t);
  }
  void targetDel() {
    const std::string s = existingSession();
    if (s.empty()) return sessionSet();
    json& targets = m_.sessions()[s]["targetIntf"];
    if (!targets.is_array() || targets.empty()) return targetSet();
    const std::size_t i = rng_.below(targets.size());
    change("del", sessionPath(s) + "/targetIntf/" + targets[i].get<std::string>());
    targets.erase(targets.begin() + long(i));
  }
  void greKey(const char* which) {
    const std::string s = existingSession();
    if (s.empty()) return sessionSet();
    const std::string path = sessionPath(s) + "/" + which;
    if (rng_.chance(75)) {
      json k = m_.greKey();
      return change("set", path, &k);
    }
    // One member of the key changes.
    json part = rng_.chance(50) ? json{{"vrf", std::vector<std::string>{"default", "blue", "red"}[rng_.below(3)]}}
                                : json{{"dstIpAddr", m_.greKey().value("dstIpAddr", "192.0.2.1")}};
    change("merge", path, &part);
  }
  void sessionOption() {
    const std::string s = existingSession();
    if (s.empty()) return sessionSet();
    std::string name;
    json v = m_.option(name);
    change("set", sessionPath(s) + "/" + name, &v);
  }
  void capability() {
    if (rng_.chance(15)) {
      json sizes = json::array();
      for (const char* size : {"truncationSize128", "truncationSize192", "truncationSize256"}) {
        if (rng_.chance(50)) sizes.push_back(size);
      }
      return change("set", "mirroring/hwcapability/truncationSizesSupported", &sizes);
    }
    json on = rng_.chance(50);
    change("set", std::string("mirroring/hwcapability/") + kCapabilities[rng_.below(std::size(kCapabilities))], &on);
  }
  void maxSessions() {
    json n = std::vector<int>{0, 1, 2, 3, 4, 8, 255, 256, 257}[rng_.weighted({3, 10, 14, 12, 8, 4, 3, 1, 3})];
    change("set", "mirroring/hwcapability/maxSupportedSessions", &n);
  }
  void interfaceStatus() {
    const std::string x = m_.anyIntf();
    const std::string path = "interface/status/eth/intf/intfStatus/" + x;
    if (!m_.intfStatus().contains(x)) {
      json v = {{"hwActive", rng_.chance(85)}, {"linkStatus", "linkUp"}};
      change("set", path, &v);
      m_.intfStatus()[x] = v;
      return;
    }
    switch (rng_.weighted({5, 3, 2})) {
      case 0: {
        json v = {{"hwActive", !m_.intfStatus()[x].value("hwActive", false)}};
        change("merge", path, &v);
        m_.intfStatus()[x]["hwActive"] = v["hwActive"];
        break;
      }
      case 1: {
        json v = {{"linkStatus", std::vector<std::string>{"linkUp", "linkDown", "linkUnknown"}[rng_.below(3)]}};
        change("merge", path, &v);
        break;
      }
      default:
        change("del", path);
        m_.intfStatus().erase(x);
    }
  }
  void lagMember() {
    const std::string x = m_.anyEth();
    const std::string path = "lag/config/phyIntf/" + x;
    const std::string fwd = "interface/input/forwardingmodel/lag/forwardingModelInput/" + x;
    if (m_.lagMembers().contains(x) && rng_.chance(60)) {
      change("del", path);
      m_.lagMembers().erase(x);
      if (m_.lagForwarding().contains(x) && rng_.chance(80)) {
        change("del", fwd);
        m_.lagForwarding().erase(x);
      }
      return;
    }
    json v = {{"lag", rng_.pick(m_.pcs)}};
    change("set", path, &v);
    m_.lagMembers()[x] = v;
    if (rng_.chance(80)) {
      json model = "intfForwardingModelLagMember";
      change("set", fwd, &model);
      m_.lagForwarding()[x] = model;
    }
  }
  void lagStatus() {
    const std::string p = rng_.pick(m_.pcs);
    const std::string path = "interface/status/eth/lag/intfStatus/" + p;
    if (m_.lagStatus().contains(p)) {
      change("del", path);
      m_.lagStatus().erase(p);
    } else {
      json v = {{"hwActive", true}, {"linkStatus", "linkUp"}};
      change("set", path, &v);
      m_.lagStatus()[p] = v;
    }
  }
  void vrf() {
    const std::string v = std::vector<std::string>{"default", "blue", "red"}[rng_.weighted({1, 3, 3})];
    const std::string path = "ip/vrf/status/global/vrf/" + v;
    if (m_.vrfs().contains(v)) {
      change("del", path);
      m_.vrfs().erase(v);
    } else {
      json status = {{"state", "vrfStateActive"}};
      change("set", path, &status);
      m_.vrfs()[v] = status;
    }
  }
  void switchport() {
    const std::string x = m_.anyIntf();
    const std::string path = "bridging/config/switchIntfConfig/" + x;
    if (m_.bridging().contains(x) && rng_.chance(25)) {
      change("del", path);
      m_.bridging().erase(x);
      return;
    }
    const int mode = m_.switchportMode();
    json v = {{"switchportMode", mode}};
    change("set", path, &v);
    m_.bridging()[x] = v;
  }
  void switchIntfRecord() {
    const std::string x = m_.anyIntf();
    const std::string path = "bridging/switchIntfConfig/switchIntfConfig/" + x;
    if (m_.switchIntf().contains(x)) {
      switch (rng_.weighted({3, 3, 2, 2})) {
        case 0: {
          json groups = json::array();
          for (const auto& g : m_.groups) {
            if (rng_.chance(40)) groups.push_back(g);
          }
          return change("set", path + (rng_.chance(50) ? "/tapGroup" : "/toolGroup"), &groups);
        }
        case 1: {
          json n = rng_.chance(50) ? 0 : 1;
          return change("set", path + "/toolIntfInUse", &n);
        }
        case 2:
          change("del", path);
          m_.switchIntf().erase(x);
          return;
        default:
          break;
      }
    }
    json v = m_.switchIntfRecord(m_.switchportMode());
    change("set", path, &v);
    m_.switchIntf()[x] = v;
  }
  void sliceProfile() {
    const std::string path = "tapagg/cliconfig/sliceProfileConfig/Linecard1";
    json& profiles = m_.tapAgg()["sliceProfileConfig"];
    if (profiles.contains("Linecard1")) {
      change("del", path);
      profiles.erase("Linecard1");
    } else {
      json p = "tapagg";
      change("set", path, &p);
      profiles["Linecard1"] = p;
    }
  }
  void tapAggMode() {
    const std::size_t mode = rng_.weighted({3, 4, 3});
    json v = rng_.chance(80)
                 ? json(std::vector<std::string>{"tapAggModeOff", "tapAggModeExclusive", "tapAggModeMixed"}[mode])
                 : json(mode);
    change("set", "tapagg/cliconfig/mode", &v);
  }
  void advance() {
    json line = {{"op", "advance"}, {"seconds", std::vector<double>{0, 1, 5, 30.5}[rng_.below(4)]}};
    good(line.dump());
  }
  void plantBlock() {
    for (int n = rng_.range(1, 3); n > 0; --n) good(m_.plantLine().dump());
    good(R"({"op":"restart"})");
  }
  // What sessions and ports read besides their own configuration: device names the hardware
  // publishes, the default session configuration, ACL rules, timestamp modes, exemptions from
  // errdisable.
  void surroundings() {
    switch (rng_.below(5)) {
      case 0: {
        const std::string session = rng_.pick(m_.sessionNames);
        const std::string path = "mirroring/hwstatus/mirrorDeviceName/" + session;
        json& names = m_.mount("mirroring/hwstatus")["mirrorDeviceName"];
        if (names.is_object() && names.contains(session)) {
          change("del", path);
          names.erase(session);
        } else {
          json name = "mon" + std::to_string(rng_.below(4));
          change("set", path, &name);
          names[session] = name;
        }
        return;
      }
      case 1: {
        std::string name;
        json v = m_.option(name);
        if (name != "grePayloadType" && name != "truncationSize" && name != "greTimestampingEnabled" &&
            name != "greMetadata" && name != "portMirroringDisabled") {
          name = "grePayloadType";
          v = "payloadTypeInnerPacket";
        }
        return change("set", "mirroring/config/defaultSessionConfig/" + name, &v);
      }
      case 2: {
        const bool v6 = rng_.chance(40);
        json acl = {
            {v6 ? "aclTypeIpv6" : "aclTypeIp",
             {{"acl",
               {{v6 ? (rng_.chance(50) ? "v6a" : "v6b") : "a1",
                 {{"rule",
                   {{std::to_string(10 * rng_.range(1, 4)), v6 ? "permit ipv6 any any" : "permit ip any any"}}}}}}}}}};
        return change("merge", "acl/config/cli/config", &acl);
      }
      case 3: {
        const std::string x = m_.existingKey(m_.intfStatus());
        if (x.empty()) return interfaceStatus();
        json v = {{"timestampMode", std::vector<std::string>{"timestampModeDisabled", "timestampModeBeforeFcs",
                                                             "timestampModeHeader"}[rng_.below(3)]}};
        return change("merge", "interface/status/eth/intf/intfStatus/" + x, &v);
      }
      default: {
        const std::string x = m_.anyIntf();
        json& exempt = m_.tapAgg()["noerrdisableIntf"];
        const std::string path = "tapagg/cliconfig/noerrdisableIntf/" + x;
        if (exempt.is_object() && exempt.contains(x)) {
          change("del", path);
          exempt.erase(x);
        } else {
          json on = true;
          change("set", path, &on);
          exempt[x] = on;
        }
      }
    }
  }
  void bad();

  GeneratorModel& m_;
  Rng& rng_;
  std::vector<Line>& out_;
};

// A line that must be refused, with what is wrong with it.
void LineMaker::bad() {
  const std::string s = rng_.pick(m_.sessionNames);
  std::string text, note;
  switch (rng_.below(16)) {
    case 0:
      text = changeLine("set", sessionPath(s) + "/truncate", nullptr);
      text.pop_back();
      note = "malformed JSON";
      break;
    case 1:
      text = R"({"op":"merge","path":")" + sessionPath(s) + R"(","value":{"truncate":true,"mirrorAll":true}})";
      note = "unknown field";
      break;
    case 2:
      text = R"({"op":"merge","path":"mirroring/hwcapability","value":{"multiDestSupported":"yes"}})";
      note = "wrong type";
      break;
    case 3:
      text = R"({"op":"merge","path":")" + sessionPath(s) +
             R"(","value":{"srcIntf":{"Ethernet1":{"direction":"sideways"}}}})";
      note = "unknown enumerator";
      break;
    case 4: {
      // Merges and single attributes: should the database take such a line after all, it
      // removes nothing that later lines rely on.
      const std::vector<std::pair<std::string, std::string>> fields = {
          {sessionPath(s), R"({"srcIntf":{"Ethernet1":{"direction":7}}})"},
          {"tapagg/cliconfig", R"({"mode":3})"},
          {"interface/status/eth/intf/intfStatus/Ethernet1", R"({"linkStatus":9})"},
          {sessionPath(s), R"({"owner":5})"},
          {sessionPath(s), R"({"truncationSize":100})"}};
      const auto& [path, value] = rng_.pick(fields);
      text = R"({"op":"merge","path":")" + path + R"(","value":)" + value + "}";
      note = "enumerator number outside the enumeration";
      break;
    }
    case 5:
      text = changeLine("set",
                        sessionPath(s) + "/srcIntf/" +
                            std::vector<std::string>{"Eth1", "Ethernet01", "ethernet1", "Ethernet0"}[rng_.below(4)],
                        nullptr);
      text.insert(text.size() - 1, R"(,"value":{"direction":"rx"})");
      note = "malformed interface name (session source)";
      break;
    case 6:
      text = changeLine("set", sessionPath(s) + "/targetIntf/" +
                                   std::vector<std::string>{"Eth2", "Port-Channel01", "Cpu0", "Gre-1"}[rng_.below(4)]);
      note = "malformed interface name (session destination)";
      break;
    case 7:
      text = R"({"op":"set","path":"interface/status/eth/intf/intfStatus/Ethernet01","value":{"hwActive":true}})";
      note = "malformed interface name (status key)";
      break;
    case 8:
      text = std::vector<std::string>{
          R"({"op":"set","path":"mirroring/hwcapability/maxSupportedSessions","value":70000})",
          R"({"op":"merge","path":")" + sessionPath(s) +
              R"(","value":{"greTunnelKey":{"dstIpAddr":"192.0.2.1","ttl":300}}})",
          R"({"op":"merge","path":")" + sessionPath(s) + R"(","value":{"rxSampleRate":-1}})"}[rng_.below(3)];
      note = "number out of range";
      break;
    case 9:
      text = R"({"op":"merge","path":")" + sessionPath(s) +
             R"(","value":{"greTunnelKey":{"dstIpAddr":"192.0.2.1","vrf":")" + std::string(101, 'v') + R"("}}})";
      note = "VRF name over 100 bytes";
      break;
    case 10:
      text = R"({"op":"merge","path":")" + sessionPath(s) + R"(","value":{"greTunnelKey":{"dstIpAddr":"300.1.2.3"}}})";
      note = "malformed address";
      break;
    case 11:
      text = changeLine("del", sessionPath("nosuch"));
      note = "deletion of a missing entry";
      break;
    case 12:
      text = R"({"op":"merge","path":"mirroring/config/session/nosuch/srcIntf/Ethernet1","value":{"direction":"rx"}})";
      note = "change inside a missing entry";
      break;
    case 13:
      text = R"({"op":"set","path":"mirroring/conf/session/s1/truncate","value":true})";
      note = "unknown mount";
      break;
    case 14:
      text = std::vector<std::string>{
          R"({"op":"advance","seconds":-1})", R"({"op":"restart","now":true})",
          R"({"op":"replace","path":"mirroring/hwcapability/maxSupportedSessions","value":1})"}[rng_.below(3)];
      note = "bad command";
      break;
    default:
      text = R"({"op":"set","path":"lag/config/phyIntf/Ethernet1","value":{"lag":"Port-Channel0"}})";
      note = "malformed interface name (LAG)";
      break;
  }
  out_.push_back(Line{text, Line::Mark::bad, note});
}

}  // namespace

Stream generateStream(uint64_t seed, int lines) {
  GeneratorModel model(seed);
  model.makeSwitch();
  Stream stream;
  stream.seed = seed;
  stream.state = model.state;
  if (model.rng.chance(12)) {
    const json leftovers = model.leftovers();
    for (const auto& [mount, content] : leftovers.items()) stream.state[mount] = content;
  }
  LineMaker maker(model, stream.lines);
  while (int(stream.lines.size()) < lines) maker.next(lines - int(stream.lines.size()));
  stream.lines.resize(std::size_t(lines));
  return stream;
}

}  // namespace consistency
