// The catalogue of bad input: every kind, through the real mirroringd and the real agent
// plug-in, as a change line and, where a state file can hold the same fault, in a state file.
// A bad line is refused with "<file>:<line>: <fault>", the run goes on (exit 0; 1 under
// --strict, stopping there) and nothing changes: the dump and the agent's writes are those of
// a run without the line. A bad state file stops the start-up with "mirroringd: <file>:
// <fault>" and exit code 2.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MirroringdRunner.h"

using namespace hosttest;

namespace {

#ifdef MIRRORING_PLUGIN_PATH

// A small switch with every input the table's paths go through: sessions with a port and a
// GRE destination, tap aggregation in mixed mode, a port-channel, a VRF, an ACL, a slice.
const char* const kBaseState = R"({
  "mirroring/hwcapability": {"maxSupportedSessions": 4, "truncationSupported": true,
    "truncationSizesSupported": ["truncationSize128"], "rxSamplingSupported": true, "lagDestSupported": true},
  "interface/status/eth/intf": {"intfStatus": {
    "Ethernet1": {"hwActive": true, "linkStatus": "linkUp"}, "Ethernet2": {"hwActive": true, "linkStatus": "linkUp"},
    "Ethernet3": {"hwActive": true, "linkStatus": "linkUp"}, "Ethernet4": {"hwActive": true, "linkStatus": "linkUp"},
    "Port-Channel5": {"hwActive": true, "linkStatus": "linkUp"}}},
  "interface/status/eth/lag": {"intfStatus": {"Port-Channel5": {"hwActive": true, "linkStatus": "linkUp"}}},
  "lag/config": {"phyIntf": {"Ethernet4": {"lag": "Port-Channel5"}}},
  "bridging/config": {"switchIntfConfig": {"Ethernet3": {"switchportMode": "switchportModeTap"}}},
  "bridging/switchIntfConfig": {"switchIntfConfig": {
    "Ethernet3": {"switchportMode": "switchportModeTap", "tapGroup": ["g"]}}},
  "tapagg/cliconfig": {"mode": "tapAggModeMixed", "sliceProfileConfig": {"slice0": "p"}},
  "hardware/fcx/slice/status": {"entry": {"slice0": {"@type": "Hardware::SliceStatus", "ready": true}}},
  "ip/vrf/status/global": {"vrf": {"blue": {"state": "vrfStateActive"}}},
  "acl/config/cli": {"config": {"aclTypeIp": {"acl": {"web": {"rule": {"10": "permit ip any any"}}}}}},
  "mirroring/config": {"session": {
    "s1": {"srcIntf": {"Ethernet1": {"direction": "rx", "srcAcl": "web"}}, "targetIntf": ["Ethernet2"]},
    "g1": {"srcIntf": {"Ethernet3": {}}, "targetIntf": ["Gre0"],
           "greTunnelKey": {"srcIpAddr": "10.0.0.1", "dstIpAddr": "10.0.0.2", "vrf": "blue"}}}}
})";

// `state` of a case that holds, as the only content of its mount, the line's value at the
// line's path.
const std::string kFromLine = "<from the line>";

struct Bad {
  std::string what;
  std::string line;        // the change line; "" when only a state file can be this wrong
  std::string fault;       // how the message goes on after "<file>:<line>: " (for parser messages, its start)
  std::string state = "";  // "" for no state file, kFromLine, or the state file's whole text
  std::string stateFault = "";  // when it differs from `fault`
};

std::string change(const std::string& op, const std::string& path, const std::string& value) {
  return R"({"op":")" + op + R"(","path":")" + path + R"(","value":)" + value + "}";
}
std::string set(const std::string& path, const std::string& value) { return change("set", path, value); }
std::string merge(const std::string& path, const std::string& value) { return change("merge", path, value); }
std::string str(const std::string& s) { return "\"" + s + "\""; }

const std::string S = "mirroring/config/session/s1";
const std::string G = "mirroring/config/session/g1";
const std::string kLongName(1 << 20, 'f');
const std::string kLongVrf(101, 'v');
std::string deepArrays(std::size_t n) { return std::string(n, '[') + std::string(n, ']'); }
std::string deepObjects(std::size_t n) {
  std::string text;
  for (std::size_t i = 0; i < n; ++i) text += R"({"a":)";
  return text + "1" + std::string(n, '}');
}
std::string enumerators(const char* names) { return std::string("; expected one of ") + names + " (or its number)"; }

std::vector<Bad> catalogue() {
  const std::string truncate = S + "/truncate";
  const std::string notObject = "a state file is an object from mount path to content";
  return {
      // --- JSON and the shape of a line ---
      {"malformed JSON", R"({"op":"set","path":")" + truncate + R"(","value":true)",
       "malformed JSON: [json.exception.parse_error.101] parse error at line 1", R"({"mirroring/config": )"},
      {"text after the object", set(truncate, "true") + " x", "malformed JSON: ", R"({"mirroring/config": {}} x)"},
      {"an empty state file", "", "", " ", "malformed JSON: "},
      {"an array", R"(["op", "set"])", "a line is a JSON object, got an array", "[]", notObject},
      {"a string", R"("set")", "a line is a JSON object, got a string", R"("state")", notObject},
      {"null", "null", "a line is a JSON object, got null", "null", notObject},
      {"non-UTF-8 bytes in a string", set(S + "/mirrorRateLimitChip", "\"\xff\xfe\""), "malformed JSON: ",
       R"({"mirroring/config": {"session": {"s1": {"mirrorRateLimitChip": ")" "\xc3\x28" R"("}}}})"},
      {"non-UTF-8 bytes outside strings", "{\"op\":\"set\",\xff\"path\":\"" + truncate + "\"}", "malformed JSON: "},
      {"20,000 nested arrays", set(S, deepArrays(20000)), "at value/0/0/0/0/0/0/0/...: JSON nested deeper than 100",
       R"({"mirroring/config": {"session": )" + deepArrays(20000) + "}}",
       "at mirroring/config/session/0/0/0/0/0/0/...: JSON nested deeper than 100 levels"},
      {"20,000 nested objects", deepObjects(20000), "at a/a/a/a/a/a/a/a/...: JSON nested deeper than 100 levels",
       deepObjects(20000)},
      {"a member twice in the line", R"({"op":"set","op":"del","path":")" + S + "\"}", "duplicate member \"op\"",
       R"({"mirroring/config": {}, "tapagg/cliconfig": {}, "mirroring/config": {}})",
       "duplicate member \"mirroring/config\""},
      {"a member twice in the value", merge(S, R"({"truncate":true,"truncate":false})"),
       "at value: duplicate member \"truncate\"",
       R"({"mirroring/config": {"session": {"s1": {"truncate": true, "truncate": false}}}})",
       "at mirroring/config/session/s1: duplicate member \"truncate\""},
      {"a megabyte of malformed value", set(truncate, std::string(1 << 20, 'x')), "malformed JSON: "},
      {"a megabyte of field name", set(S + "/" + kLongName, "1"), "unknown field \"ffffffffff", kFromLine,
       "at mirroring/config/session/s1: unknown field \"ffffffffff"},

      // --- the change itself ---
      {"unknown op", R"({"op":"replace","path":")" + truncate + R"(","value":true})",
       "unknown op \"replace\"; expected set, merge, del, restart, advance, dump or view"},
      {"no op", R"({"path":")" + truncate + R"(","value":true})", "a change needs \"op\""},
      {"op not a string", R"({"op":5,"path":")" + truncate + R"(","value":true})", "a change needs \"op\""},
      {"no path", R"({"op":"set","value":true})", "a change needs \"path\""},
      {"path not a string", R"({"op":"set","path":5,"value":true})", "a change needs \"path\""},
      {"empty path", set("", "true"), "a change needs \"path\""},
      {"unknown member", R"({"op":"set","path":")" + truncate + R"(","valeu":true})",
       "unknown member \"valeu\" in a change"},
      {"merge without value", R"({"op":"merge","path":")" + S + "\"}", "merge needs \"value\""},
      {"del with value", change("del", S, "{}"), "del takes no \"value\""},
      {"set of an attribute without value", R"({"op":"set","path":")" + truncate + "\"}",
       "at " + truncate + ": set needs \"value\""},
      {"unknown mount", set("mirroring/nowhere/x", "1"), "unknown mount in path \"mirroring/nowhere/x\"",
       R"({"mirroring/nowhere": {}})", "unknown mount \"mirroring/nowhere\""},
      {"unknown field", set(S + "/truncat", "true"), "unknown field \"truncat\" of Mirroring::Session at " + S,
       kFromLine, "at " + S + ": unknown field \"truncat\" in Mirroring::Session"},
      {"trailing /", set(truncate + "/", "true"), "malformed path \"" + truncate + "/\": empty segment",
       R"({"mirroring/config/": {}})", "unknown mount \"mirroring/config/\""},
      {"empty segment", set("mirroring/config/session//s1/truncate", "true"),
       "malformed path \"mirroring/config/session//s1/truncate\": empty segment"},
      {"leading /", set("/" + truncate, "true"), "malformed path \"/" + truncate + "\": empty segment"},
      {"a path through a value", set(truncate + "/x", "true"), truncate + " is a value, not an entity or collection"},
      {"a path through a set member", set(S + "/targetIntf/Ethernet2/x", "true"),
       S + "/targetIntf/Ethernet2 is a value, not an entity"},
      {"a path through a missing entry", set("mirroring/config/session/nothere/truncate", "true"),
       "no entry at mirroring/config/session/nothere"},
      {"\"key\" on an attribute", R"({"op":"set","path":")" + truncate + R"(","key":"x","value":true})",
       "\"key\" given, but " + truncate + " is not a collection"},
      {"\"key\" and an entry in the path", R"({"op":"set","path":")" + S + R"(","key":"s1","value":{}})",
       "\"key\" given, but the path already names an entry"},
      {"\"key\" at an entity", R"({"op":"set","path":"mirroring/config","key":"s1","value":{}})",
       "\"key\" given, but the path names an entity"},
      {"del of a missing entry", R"({"op":"del","path":"mirroring/config/session/nothere"})",
       "at mirroring/config/session/nothere: no entry \"nothere\""},
      {"del of an attribute", R"({"op":"del","path":")" + truncate + "\"}",
       "at " + truncate + ": an attribute cannot be deleted; set it instead"},
      {"del of a collection", R"({"op":"del","path":"mirroring/config/session"})",
       "at mirroring/config/session: name the entry to delete"},
      {"del of a mount", R"({"op":"del","path":"mirroring/config"})",
       "at mirroring/config: only collection entries can be deleted"},
      {"a write to a key field", set(S + "/name", str("s2")),
       "at " + S + "/name: a key field cannot be written; it is the entry's place in its collection"},
      {"a key field unlike the entry's key", merge(S, R"({"name":"s2"})"),
       "at " + S + "/name: the key field must match the entry's key", kFromLine},
      {"a change good only in part", merge(S, R"({"truncate":true,"rxSampleRate":-1})"),
       "at " + S + "/rxSampleRate: expected a whole number from 0 to 4294967295, got -1", kFromLine},

      // --- types ---
      {"a string for a boolean", set(truncate, str("yes")), "at " + truncate + ": expected a boolean, got a string",
       kFromLine},
      {"null for a boolean", set(truncate, "null"), "at " + truncate + ": expected a boolean, got null", kFromLine},
      {"a string for a number", set(S + "/rxSampleRate", str("5")),
       "at " + S + "/rxSampleRate: expected a number, got a string", kFromLine},
      {"null for a number", set(S + "/rxSampleRate", "null"), "at " + S + "/rxSampleRate: expected a number, got null",
       kFromLine},
      {"a negative number for an unsigned one", set(S + "/srcIntf/Ethernet1/aclPriority", "-1"),
       "at " + S + "/srcIntf/Ethernet1/aclPriority: expected a whole number from 0 to 255, got -1", kFromLine},
      {"a number out of range", set("mirroring/hwcapability/maxSupportedSessions", "70000"),
       "at mirroring/hwcapability/maxSupportedSessions: expected a whole number from 0 to 65535, got 70000",
       kFromLine},
      {"a fraction for a whole number", set(S + "/rxSampleRate", "1.5"),
       "at " + S + "/rxSampleRate: expected a whole number from 0 to 4294967295, got 1.5", kFromLine},
      {"a huge number", set(S + "/mirrorRateLimitInBps", "1e300"),
       "at " + S + "/mirrorRateLimitInBps: expected a whole number from 0 to 18446744073709551615, got 1e+300",
       kFromLine},
      {"a number beyond any double", set(S + "/mirrorRateLimitInBps", "1e400"),
       "malformed JSON: [json.exception.out_of_range.406] number overflow parsing '1e400'",
       R"({"mirroring/config": {"session": {"s1": {"mirrorRateLimitInBps": 1e400}}}})"},
      {"2^64", set(S + "/mirrorRateLimitInBps", "18446744073709551616"),
       "at " + S + "/mirrorRateLimitInBps: expected a whole number from 0 to 18446744073709551615, got " +
           "18446744073709551616"},
      {"below a signed range", set(S + "/sessionId", "-2147483649"),
       "at " + S + "/sessionId: expected a whole number from -2147483648 to 2147483647, got -2147483649", kFromLine},
      {"a number for a string", set(S + "/mirrorRateLimitChip", "5"),
       "at " + S + "/mirrorRateLimitChip: expected a string, got a number", kFromLine},
      {"an array for a struct", set(S + "/greTunnelKey", "[]"),
       "at " + S + "/greTunnelKey: expected an object, got an array", kFromLine},
      {"an unknown struct member", merge(S + "/greTunnelKey", R"({"ttl2":1})"),
       "at " + S + "/greTunnelKey: unknown field \"ttl2\"", kFromLine},
      {"a string for a collection", set(S + "/srcIntf", str("Ethernet1")),
       "at " + S + "/srcIntf: expected an object, got a string", kFromLine},
      {"an object for a set", set(S + "/targetIntf", R"({"Ethernet2":true})"),
       "at " + S + "/targetIntf: expected an array, got an object", kFromLine},
      {"a value for a set member", set(S + "/targetIntf/Ethernet2", "5"),
       "at " + S + "/targetIntf/Ethernet2: a set entry takes no value (or true)"},
      {"a number for an entity", set(S + "/srcIntf/Ethernet1", "5"),
       "at " + S + "/srcIntf/Ethernet1: expected an object, got a number", kFromLine},
      {"null for an entity", set(S, "null"), "at " + S + ": expected an object, got null", kFromLine},
      {"null for a mount", set("mirroring/config", "null"), "at mirroring/config: expected an object, got null",
       kFromLine},
      {"a number for an optional entity", set("mirroring/hwcapability/truncationDefault", "5"),
       "at mirroring/hwcapability/truncationDefault: expected an object or null, got a number", kFromLine},
      {"a malformed IPv4 address", merge(G + "/greTunnelKey", R"({"dstIpAddr":"10.0.0.256"})"),
       "at " + G + "/greTunnelKey/dstIpAddr: malformed IP address \"10.0.0.256\"", kFromLine},
      {"a malformed IPv6 address", merge(G + "/greTunnelKey", R"({"srcIpAddr":"2001:db8:::1"})"),
       "at " + G + "/greTunnelKey/srcIpAddr: malformed IP address \"2001:db8:::1\"", kFromLine},
      {"a number for an IP address", merge(G + "/greTunnelKey", R"({"dstIpAddr":167772162})"),
       "at " + G + "/greTunnelKey/dstIpAddr: expected an IP address, got a number", kFromLine},
      {"a VRF name over 100 bytes", merge(G + "/greTunnelKey", R"({"vrf":")" + kLongVrf + "\"}"),
       "at " + G + "/greTunnelKey/vrf: VRF name of 101 bytes is longer than 100 bytes", kFromLine},
      {"a VRF key over 100 bytes", set("ip/vrf/status/global/vrf/" + kLongVrf, "{}"),
       "at ip/vrf/status/global/vrf: VRF name of 101 bytes is longer than 100 bytes", kFromLine},

      // --- interface names ---
      {"a source that is no interface name", set(S + "/srcIntf/eth1", "{}"),
       "at " + S + "/srcIntf: malformed interface name \"eth1\"", kFromLine},
      {"a destination with a leading zero", merge(S + "/targetIntf", R"(["Ethernet01"])"),
       "at " + S + "/targetIntf: malformed interface name \"Ethernet01\"", kFromLine},
      {"an empty source", merge(S + "/srcIntf", R"({"":{}})"), "at " + S + "/srcIntf: malformed interface name \"\"",
       kFromLine},
      {"a destination with a blank", merge(S + "/targetIntf", R"(["Eth 4"])"),
       "at " + S + "/targetIntf: malformed interface name \"Eth 4\"", kFromLine},
      {"a lower-case interface key", set("interface/status/eth/intf/intfStatus/ethernet1", "{}"),
       "at interface/status/eth/intf/intfStatus: malformed interface name \"ethernet1\"", kFromLine},
      {"VLAN 4095", set("interface/status/eth/vlan/intfStatus/Vlan4095", "{}"),
       "at interface/status/eth/vlan/intfStatus: malformed interface name \"Vlan4095\"", kFromLine},
      {"Ethernet0", set("interface/status/eth/intf/intfStatus/Ethernet0", "{}"),
       "at interface/status/eth/intf/intfStatus: malformed interface name \"Ethernet0\"", kFromLine},
      {"an empty interface key", set("interface/status/eth/intf/intfStatus", R"({"":{}})"),
       "at interface/status/eth/intf/intfStatus: malformed interface name \"\"", kFromLine},
      {"a port-channel without number", merge("lag/config/phyIntf/Ethernet4", R"({"lag":"Port-Channel"})"),
       "at lag/config/phyIntf/Ethernet4/lag: malformed interface name \"Port-Channel\"", kFromLine},
      {"a LAG that is no Port-Channel", merge("lag/config/phyIntf/Ethernet4", R"({"lag":"Ethernet2"})"),
       "at lag/config/phyIntf/Ethernet4/lag: \"Ethernet2\" is not a Port-Channel", kFromLine},
      {"a LAG member that is no Ethernet port", set("lag/config/phyIntf/Port-Channel1", R"({"lag":"Port-Channel5"})"),
       "at lag/config/phyIntf: \"Port-Channel1\" is not an Ethernet interface", kFromLine},
      {"a destination twice", merge(S + "/targetIntf", R"(["Ethernet2","Ethernet2"])"),
       "at " + S + "/targetIntf: duplicate member \"Ethernet2\"", kFromLine},
      {"a malformed destIntf", set(S + "/destIntf", str("eth2")),
       "at " + S + "/destIntf: malformed interface name \"eth2\"", kFromLine},
      {"a malformed port-mode key", set("stp/portMode/tapagg/portMode/eth3", str("portModeTapAgg")),
       "at stp/portMode/tapagg/portMode: malformed interface name \"eth3\"", kFromLine},
      {"an empty raw tap interface", merge("bridging/switchIntfConfig/switchIntfConfig/Ethernet3/tapRawIntf",
                                           R"({"":true})"),
       "at bridging/switchIntfConfig/switchIntfConfig/Ethernet3/tapRawIntf: malformed interface name \"\"",
       kFromLine},
      {"a malformed tap-group port", merge("tapagg/status/group/g", R"({"tapPort":{"Ethernet3/x":{}}})"),
       "at tapagg/status/group/g/tapPort: malformed interface name \"Ethernet3/x\"", kFromLine},

      // --- enumerations ---
      {"an unknown enumerator name", set(S + "/srcIntf/Ethernet1/direction", str("sideways")),
       "at " + S + "/srcIntf/Ethernet1/direction: unknown enumerator \"sideways\"" + enumerators("both, rx, tx"),
       kFromLine},
      {"tap-aggregation mode 3", set("tapagg/cliconfig/mode", "3"),
       "at tapagg/cliconfig/mode: unknown enumerator 3" +
           enumerators("tapAggModeOff, tapAggModeExclusive, tapAggModeMixed"),
       kFromLine},
      {"direction 9", set(S + "/srcIntf/Ethernet1/direction", "9"),
       "at " + S + "/srcIntf/Ethernet1/direction: unknown enumerator 9" + enumerators("both, rx, tx"), kFromLine},
      {"ACL type 9", set(S + "/srcIntf/Ethernet1/aclType", "9"),
       "at " + S + "/srcIntf/Ethernet1/aclType: unknown enumerator 9" +
           enumerators("aclTypeMac, aclTypeIpv6, aclTypeIp"),
       kFromLine},
      {"header removal 3", set(S + "/headerRemovalSize", "3"), "at " + S + "/headerRemovalSize: unknown enumerator 3",
       kFromLine},
      {"GRE payload type 9", set(S + "/grePayloadType", "9"), "at " + S + "/grePayloadType: unknown enumerator 9",
       kFromLine},
      {"GRE metadata key 9", set(S + "/greMetadata/9", "true"), "at " + S + "/greMetadata: unknown enumerator \"9\"",
       kFromLine},
      {"link status 99", set("interface/status/eth/intf/intfStatus/Ethernet1/linkStatus", "99"),
       "at interface/status/eth/intf/intfStatus/Ethernet1/linkStatus: unknown enumerator 99", kFromLine},
      {"a truncation size without name", set("mirroring/hwcapability/truncationSizesSupported", "[100]"),
       "at mirroring/hwcapability/truncationSizesSupported: unknown enumerator 100", kFromLine},
      {"an enumerator past its byte", set(S + "/owner", "300"), "at " + S + "/owner: unknown enumerator 300",
       kFromLine},
      {"a boolean for an enumerator", set(S + "/truncationSize", "true"),
       "at " + S + "/truncationSize: expected one of truncationSizeDefault", kFromLine},
      {"ACL type key 9", set("acl/config/cli/config/9", "{}"), "at acl/config/cli/config: unknown enumerator \"9\"",
       kFromLine},
      {"an unknown switchport mode name", set("bridging/config/switchIntfConfig/Ethernet3/switchportMode",
                                              str("switchportModeBogus")),
       "at bridging/config/switchIntfConfig/Ethernet3/switchportMode: unknown enumerator \"switchportModeBogus\"",
       kFromLine},

      // --- names, directories, references, struct keys ---
      {"an empty session name", set("mirroring/config/session", R"({"":{}})"),
       "at mirroring/config/session: a key cannot be empty", kFromLine},
      {"a session name with a '/'", set("mirroring/config/session", R"({"a/b":{}})"),
       "at mirroring/config/session: a key cannot hold a '/' without digits after it: \"a/b\"", kFromLine},
      {"a session name with a control character", set("mirroring/config/session/s\\u0001", "{}"),
       "at mirroring/config/session: a key cannot hold control characters", kFromLine},
      {"an empty directory entry name", merge("acl/config/input/entry", R"({"":{"@type":"Acl::Input::Config"}})"),
       "at acl/config/input/entry: a key cannot be empty", kFromLine},
      {"a directory entry without type", set("acl/config/input/entry/x", "{}"),
       "at acl/config/input/entry/x: a new directory entry needs \"@type\"", kFromLine},
      {"an unknown entity type", set("acl/config/input/entry/x", R"({"@type":"Nope::Type"})"),
       "at acl/config/input/entry/x: unknown entity type \"Nope::Type\"", kFromLine},
      {"a type that is no name", set("acl/config/input/entry/x", R"({"@type":5})"),
       "at acl/config/input/entry/x: \"@type\" must be a type name", kFromLine},
      {"a reference to a missing entity",
       set("tapagg/hwconfig/tapPort/Ethernet3", str("bridging/switchIntfConfig/switchIntfConfig/Ethernet9")),
       "at tapagg/hwconfig/tapPort/Ethernet3: no entity at \"bridging/switchIntfConfig/switchIntfConfig/Ethernet9\"",
       kFromLine},
      {"a reference to an entity of another type",
       set("tapagg/hwconfig/tapPort/Ethernet3", str("bridging/config/switchIntfConfig/Ethernet3")),
       "at tapagg/hwconfig/tapPort/Ethernet3: the entity at \"bridging/config/switchIntfConfig/Ethernet3\" is a "
       "Bridging::SwitchIntfConfig"},
      {"a number for a reference", set("tapagg/hwconfig/tapPort/Ethernet3", "5"),
       "at tapagg/hwconfig/tapPort/Ethernet3: expected the path of an entity, got a number", kFromLine},
      {"a struct-keyed entry without value", set("mirroring/status/greTunnelKeyToIntfId", R"([{"key":{}}])"),
       "at mirroring/status/greTunnelKeyToIntfId: expected entries of the form {\"key\": ..., \"value\": ...}",
       kFromLine},
      {"a struct key out of range",
       R"({"op":"set","path":"mirroring/status/greTunnelKeyToIntfId","key":{"ttl":300},"value":"Gre5"})",
       "at mirroring/status/greTunnelKeyToIntfId/ttl: expected a whole number from 0 to 255, got 300"},
      {"an unknown struct key member",
       R"({"op":"set","path":"mirroring/status/greTunnelKeyToIntfId","key":{"port":1},"value":"Gre5"})",
       "at mirroring/status/greTunnelKeyToIntfId: unknown field \"port\""},

      // --- host commands ---
      {"advance backwards", R"({"op":"advance","seconds":-1})", "advance needs \"seconds\", a number not below 0"},
      {"advance by text", R"({"op":"advance","seconds":"1"})", "advance needs \"seconds\", a number not below 0"},
      {"advance by nothing", R"({"op":"advance"})", "advance needs \"seconds\", a number not below 0"},
      {"dump mounts not a list", R"({"op":"dump","mounts":"mirroring/config"})",
       "\"mounts\" of a dump command is an array of mount paths"},
      {"dump of an unknown mount", R"({"op":"dump","mounts":["nowhere"]})", "unknown mount \"nowhere\""},
      {"dump of a number", R"({"op":"dump","mounts":[5]})", "\"mounts\" of a dump command is an array of mount paths"},
      {"restart with a member", R"({"op":"restart","now":true})", "unknown member \"now\" in a restart command"},
      {"view with a member", R"({"op":"view","x":1})", "unknown member \"x\" in a view command"},
  };
}

// The mount whose path is the longest prefix of `path` ending at a '/' or the path's end.
std::string mountOf(const std::string& path, const Json& dump) {
  std::string best;
  for (const auto& [m, content] : dump.items()) {
    if (path.starts_with(m) && (path.size() == m.size() || path[m.size()] == '/') && m.size() > best.size()) best = m;
  }
  return best;
}

// The state file that holds the line's value at the line's path, as its mount's only content
// (the table's paths hold no key with a '/').
std::string stateFromLine(const std::string& line, const Json& dump) {
  Json c = Json::parse(line);
  const std::string path = c.at("path");
  const std::string mount = mountOf(path, dump);
  std::vector<std::string> segments;
  for (std::size_t at = mount.size() + 1; at <= path.size();) {
    std::size_t slash = std::min(path.find('/', at), path.size());
    segments.push_back(path.substr(at, slash - at));
    at = slash + 1;
  }
  Json content = c.at("value");
  for (auto it = segments.rbegin(); it != segments.rend(); ++it) content = Json{{*it, content}};
  return Json{{mount, content}}.dump();
}

class BadInput : public MirroringdTest {
 protected:
  // Runs the real agent over `state`, with `args` before it.
  Result runAgent(std::vector<std::string> args, const std::string& state, const std::string& stdinText = "") {
    args.insert(args.begin(), {"--plugin", MIRRORING_PLUGIN_PATH, "--quiet-syslog"});
    args.push_back(state);
    return run(args, stdinText, {}, false);
  }
  // The dump and the agent's writes a run left.
  std::pair<Json, std::string> outputs() {
    auto dumps = documents(readFile(path("dump.json")));
    return {dumps.empty() ? Json() : dumps.back(), readFile(path("out.jsonl"))};
  }
};

TEST_F(BadInput, EveryKindIsRefusedWithWhereAndWhatAndChangesNothing) {
  const std::vector<Bad> bad = catalogue();
  ASSERT_GE(bad.size(), 60u);
  const std::string state = file("base.json", kBaseState);
  const std::vector<std::string> outputArgs = {"--dump", path("dump.json"), "--changes-out", path("out.jsonl")};
  auto runStream = [&](const std::string& name, const std::string& text, bool strict) {
    std::vector<std::string> args = outputArgs;
    if (strict) args.push_back("--strict");
    args.insert(args.end(), {"--changes", file(name, text)});
    return runAgent(args, state);
  };

  // What runs without the bad lines leave: none at all, and one good line.
  Result r = runStream("none.jsonl", "", false);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto [baseDump, baseOut] = outputs();
  ASSERT_NE(baseOut.find("mirroring/hwconfig/session/s1"), std::string::npos) << "the agent ran";
  const std::string good = set(S + "/truncate", "true") + "\n";
  r = runStream("good.jsonl", good, false);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto [goodDump, goodOut] = outputs();
  ASSERT_NE(goodDump, baseDump);

  // All the lines in one stream, then the good line: each refused with its line number, the run
  // goes on, and it ends as the good line alone leaves it.
  std::string stream;
  std::vector<const Bad*> lines;
  for (const auto& b : bad) {
    if (b.line.empty()) continue;
    stream += b.line + "\n";
    lines.push_back(&b);
  }
  r = runStream("bad.jsonl", stream + good, false);
  EXPECT_EQ(r.exitCode, 0) << r.err.substr(0, 2000);
  auto errors = hosttest::lines(r.err);
  ASSERT_EQ(errors.size(), lines.size()) << r.err.substr(0, 4000);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string expected = path("bad.jsonl") + ":" + std::to_string(i + 1) + ": " + lines[i]->fault;
    EXPECT_EQ(errors[i].substr(0, expected.size()), expected) << lines[i]->what;
    EXPECT_LE(errors[i].size(), 1000u) << lines[i]->what << ": a long line gives a short message";
  }
  EXPECT_EQ(outputs(), std::make_pair(goodDump, goodOut));

  // Under --strict the run stops at the first bad line with exit code 1: what ran before it
  // stays, nothing after it runs.
  r = runStream("strict.jsonl", good + stream + good, true);
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(hosttest::lines(r.err).size(), 1u) << r.err;
  EXPECT_EQ(outputs(), std::make_pair(goodDump, goodOut));

  // Each line alone, from standard input, under --strict: refused, exit code 1, nothing changed.
  for (const Bad* b : lines) {
    std::vector<std::string> args = outputArgs;
    args.insert(args.end(), {"--strict", "--changes", "-"});
    r = runAgent(args, state, b->line + "\n");
    EXPECT_EQ(r.exitCode, 1) << b->what << ": " << r.err.substr(0, 500);
    EXPECT_EQ(r.err.rfind("<stdin>:1: " + b->fault, 0), 0u) << b->what << ": " << r.err.substr(0, 500);
    const auto [d, o] = outputs();
    EXPECT_EQ(d, baseDump) << b->what;
    EXPECT_EQ(o, baseOut) << b->what;
  }

  // In a state file: the start-up stops before the agent completes it, with exit code 2.
  for (const auto& b : bad) {
    if (b.state.empty()) continue;
    const std::string text = b.state == kFromLine ? stateFromLine(b.line, baseDump) : b.state;
    const std::string stateFile = file("bad-state.json", text);
    r = runAgent({"--dump", path("dump.json")}, stateFile);
    EXPECT_EQ(r.exitCode, 2) << b.what << ": " << r.err.substr(0, 500);
    const std::string expected = "mirroringd: " + stateFile + ": " + (b.stateFault.empty() ? b.fault : b.stateFault);
    EXPECT_EQ(r.err.substr(0, expected.size()), expected) << b.what << "\n  state: " << text.substr(0, 200);
    EXPECT_EQ(hosttest::lines(r.err).size(), 1u) << b.what;
    EXPECT_EQ(readFile(path("dump.json")), "") << b.what;
  }
}

#endif  // MIRRORING_PLUGIN_PATH

}  // namespace
