#include "bench/ScaleStream.h"

#include <set>

#include "platform/Codec.h"

namespace bench {

namespace {

using platform::Value;

const std::string kIntfStatus = "interface/status/eth/intf/intfStatus/";
const std::string kSession = "mirroring/config/session/";
const std::string kFloorIntfStatus = "test/dir/entry/intf/intfStatus/";
const std::string kFloorSession = "test/dir/entry/";

std::string line(const char* op, const std::string& path, const Value& value) {
  Value c = Value::object();
  c.set("op", op);
  c.set("path", path);
  c.set("value", value);
  return platform::toJson(c);
}

Value object(std::initializer_list<std::pair<std::string, Value>> members) {
  Value v = Value::object();
  for (const auto& [k, m] : members) v.set(k, m);
  return v;
}

const Value& member(const Value& v, const std::string& key) {
  static const Value none;
  const Value* m = v.find(key);
  return m ? *m : none;
}

// A session's truncation settings as its configuration gives them, defaults filled in.
struct Truncation {
  bool truncate = false;
  std::string size = "truncationSizeDefault";
};

}  // namespace

ScaleStream makeScaleStream(const ScaleSwitch& sw, int pairs) {
  ScaleStream out;
  const Value& intfStatus = member(member(sw.state, "interface/status/eth/intf"), "intfStatus");
  const Value& sessions = member(member(sw.state, "mirroring/config"), "session");
  const Value& modes = member(member(sw.state, "bridging/config"), "switchIntfConfig");

  // The subjects: tap ports, mirrored Port-Channels, sessions, and the GRE sessions among them.
  std::vector<std::string> taps, lags, names, greNames;
  std::vector<Truncation> truncation;
  for (const auto& [intf, mode] : modes.asObject()) {
    if (member(mode, "switchportMode") == Value("switchportModeTap")) taps.push_back(intf);
  }
  std::set<std::string> lagSources;
  for (const auto& [name, cfg] : sessions.asObject()) {
    names.push_back(name);
    if (cfg.find("greTunnelKey")) greNames.push_back(name);
    Truncation t;
    if (const Value* v = cfg.find("truncate")) t.truncate = v->asBool();
    if (const Value* v = cfg.find("truncationSize")) t.size = v->asString();
    truncation.push_back(t);
    for (const auto& [intf, src] : member(cfg, "srcIntf").asObject()) {
      if (intf.starts_with("Port-Channel")) lagSources.insert(intf);
    }
  }
  lags.assign(lagSources.begin(), lagSources.end());

  // The floor's state: the same interface records, and a note per session.
  Value notes = Value::object();
  notes.set("intf", object({{"@type", "Interface::EthIntfStatusDir"}, {"intfStatus", intfStatus}}));
  for (std::size_t i = 0; i < names.size(); ++i) {
    notes.set(names[i], object({{"@type", "Test::Note"}, {"text", truncation[i].size}, {"priority", 0}}));
  }
  out.floorState = object({{"test/dir", object({{"entry", notes}})}});

  // A pair on an interface record, in both streams.
  auto intfPair = [&out](const std::string& intf, const Value& there, const Value& back) {
    out.lines.push_back(line("merge", kIntfStatus + intf, there));
    out.lines.push_back(line("merge", kIntfStatus + intf, back));
    out.floorLines.push_back(line("merge", kFloorIntfStatus + intf, there));
    out.floorLines.push_back(line("merge", kFloorIntfStatus + intf, back));
  };
  auto linkOf = [&intfStatus](const std::string& intf) { return member(member(intfStatus, intf), "linkStatus"); };
  const Value inactive = object({{"hwActive", false}}), active = object({{"hwActive", true}});
  const Value down = object({{"linkStatus", "linkDown"}}), up = object({{"linkStatus", "linkUp"}});

  // Strides prime to the numbers of subjects, so that each kind visits them all. A kind with
  // no subjects (a small state may mirror no Port-Channel) gives its turn to the next.
  constexpr int kKinds = 6;
  for (int k = 0, made = 0; made < pairs; ++k) {
    const int round = k / kKinds;
    const int kind = k % kKinds;
    if ((kind == 2 || kind == 3) && lags.empty()) continue;
    if (kind == 5 && greNames.empty()) continue;
    ++made;
    switch (kind) {
      case 0: {
        const std::string& tap = taps[(std::size_t(round) * 37) % taps.size()];
        intfPair(tap, inactive, active);
        break;
      }
      case 1: {
        const std::string& tap = taps[(std::size_t(round) * 41 + 7) % taps.size()];
        const Value link = linkOf(tap);
        intfPair(tap, link == Value("linkUp") ? down : up, object({{"linkStatus", link}}));
        break;
      }
      case 2: intfPair(lags[(std::size_t(round) * 5) % lags.size()], inactive, active); break;
      case 3: intfPair(lags[(std::size_t(round) * 7 + 3) % lags.size()], down, up); break;
      case 4: {
        const std::size_t i = (std::size_t(round) * 11) % names.size();
        const Truncation& t = truncation[i];
        out.lines.push_back(
            line("merge", kSession + names[i], object({{"truncate", true}, {"truncationSize", "truncationSize192"}})));
        out.lines.push_back(
            line("merge", kSession + names[i], object({{"truncate", t.truncate}, {"truncationSize", t.size}})));
        out.floorLines.push_back(
            line("merge", kFloorSession + names[i], object({{"text", "truncationSize192"}, {"priority", 1}})));
        out.floorLines.push_back(line("merge", kFloorSession + names[i], object({{"text", t.size}, {"priority", 0}})));
        break;
      }
      default: {
        const std::string& name = greNames[(std::size_t(round) * 3) % greNames.size()];
        out.lines.push_back(line("set", kSession + name + "/rxSampleRate", 1000));
        out.lines.push_back(line("set", kSession + name + "/rxSampleRate", 0));
        out.floorLines.push_back(line("set", kFloorSession + name + "/priority", 1000));
        out.floorLines.push_back(line("set", kFloorSession + name + "/priority", 0));
        break;
      }
    }
  }
  return out;
}

}  // namespace bench
