// The readable view against mount contents written as JSON, in the shape a dump of the
// mirroring and tap-aggregation models has (the view reads field names, not C++ types). The
// database entry point is run by the --view example of docs/formats.md.
#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "host/View.h"
#include "platform/Codec.h"

namespace {

// Mount contents from a JSON object keyed by mount path.
host::MountContents contents(std::string_view json) {
  std::string error;
  std::optional<platform::Value> v = platform::parseJson(json, error);
  host::MountContents out;
  if (!v || !v->isObject()) {
    ADD_FAILURE() << "not a JSON object: " << error << "\n" << json;
    return out;
  }
  for (const auto& [path, content] : v->asObject()) out.emplace(path, content);
  return out;
}

TEST(View, MonitorSessionsJoinConfigurationStatusAndHardwareBySession) {
  // s2 has no status: the agent refused it. s3 has one but no active destination. s1 has a
  // source status left by an earlier run (Ethernet1). The status and the hardware copy have
  // sessions the configuration does not: a companion and a leftover.
  const host::MountContents mounts = contents(R"({
    "mirroring/config": {"session": {
      "s1": {"srcIntf": {"Ethernet10": {"direction": "rx"}, "Ethernet2": {"direction": "both"}},
             "targetIntf": ["Ethernet5"]},
      "s2": {"srcIntf": {"Ethernet7": {"direction": "tx"}}, "targetIntf": ["Cpu"]},
      "s3": {"srcIntf": {"Ethernet8": {"direction": "rx"}}, "targetIntf": ["Ethernet9"]}}},
    "mirroring/status": {"sessionStatus": {
      "s1": {"srcOperStatus": {"Ethernet2": {"state": "active", "reason": ""},
                               "Ethernet10": {"state": "inactive", "reason": "Source Conflict"},
                               "Ethernet1": {"state": "inactive", "reason": "Interface Mode Conflict"}},
             "targetOperStatus": {"Ethernet5": {"state": "active", "reason": ""}},
             "truncateOperStatus": {"state": "inactive", "reason": "Not Configured"},
             "mirrorDeviceName": "mirror1"},
      "s3": {"srcOperStatus": {"Ethernet8": {"state": "active", "reason": ""}},
             "targetOperStatus": {"Ethernet9": {"state": "inactive", "reason": "Interface Mode Conflict"}},
             "truncateOperStatus": {"state": "unknown", "reason": ""},
             "mirrorDeviceName": "mirror2"},
      "__fwdingDrop_s1": {"srcOperStatus": {}, "targetOperStatus": {"Gre1": {"state": "active", "reason": ""}},
                          "truncateOperStatus": {"state": "unknown", "reason": ""}, "mirrorDeviceName": ""},
      "old": {"srcOperStatus": {}, "targetOperStatus": {},
              "truncateOperStatus": {"state": "unknown", "reason": ""}, "mirrorDeviceName": ""}},
      "greTunnelKey": {}},
    "mirroring/hwconfig": {"session": {
      "s1": {"srcIntf": {"Ethernet2": {"direction": "both"}}, "targetIntf": ["Ethernet5"], "sessionId": 1},
      "__fwdingDrop_s1": {"srcIntf": {}, "targetIntf": ["Gre1"], "sessionId": 4}}}
  })");

  EXPECT_EQ(host::renderView(mounts),
            "Monitor sessions\n"
            "----------------\n"
            "Session __fwdingDrop_s1\n"
            "  Status:            programmed (forwarding drops of session s1)\n"
            "  Mirror device:     -\n"
            "  Truncation:        unknown\n"
            "  Hardware session:  4\n"
            "  Hardware sources:  none\n"
            "  Hardware targets:  Gre1\n"
            "  Destination  State   Reason\n"
            "  Gre1         active\n"
            "Session old\n"
            "  Status:            not programmed: no active destination; not configured\n"
            "  Mirror device:     -\n"
            "  Truncation:        unknown\n"
            "Session s1\n"
            "  Status:            programmed\n"
            "  Mirror device:     mirror1\n"
            "  Truncation:        inactive (Not Configured)\n"
            "  Hardware session:  1\n"
            "  Hardware sources:  Ethernet2 (both)\n"
            "  Hardware targets:  Ethernet5\n"
            "  Source      Direction  State     Reason\n"
            "  Ethernet1   -          inactive  Interface Mode Conflict\n"
            "  Ethernet2   both       active\n"
            "  Ethernet10  rx         inactive  Source Conflict\n"
            "  Destination  State   Reason\n"
            "  Ethernet5    active\n"
            "Session s2\n"
            "  Status:            not programmed: no room\n"
            "  Source     Direction  State  Reason\n"
            "  Ethernet7  tx         -\n"
            "  Destination  State  Reason\n"
            "  Cpu          -\n"
            "Session s3\n"
            "  Status:            not programmed: no active destination\n"
            "  Mirror device:     mirror2\n"
            "  Truncation:        unknown\n"
            "  Source     Direction  State   Reason\n"
            "  Ethernet8  rx         active\n"
            "  Destination  State     Reason\n"
            "  Ethernet9    inactive  Interface Mode Conflict\n");
}

// The label/value lines of one session's block.
std::string sessionFields(const std::string& view, const std::string& session) {
  std::istringstream in(view.substr(view.find("Session " + session + "\n")));
  std::string line, out;
  std::getline(in, line);
  while (std::getline(in, line) && line.find(':') != std::string::npos && !line.starts_with("Session ")) {
    out += line + "\n";
  }
  return out;
}

TEST(View, SessionOptionsShowWhatIsConfiguredAndWhereTheHardwareDiffers) {
  // g: a GRE session that asked for more than the hardware does. q: a GRE session not
  // programmed, whose default payload is the status's. p: a port session, so no GRE line, and
  // no header removal line.
  const host::MountContents mounts = contents(R"({
    "mirroring/config": {"session": {
      "g": {"srcIntf": {}, "targetIntf": ["Gre0"], "truncationSize": "truncationSize160",
            "headerRemovalSize": "headerRemoval8", "rxSampleRate": 1000, "mirrorRateLimitInBps": 2000000000,
            "mirrorRateLimitChip": "chip1", "greMetadata": {"switchId": true, "vlan": true},
            "grePayloadType": "payloadTypeUnset", "greTimestampingEnabled": true, "txGreMetadataEnabled": false},
      "q": {"srcIntf": {}, "targetIntf": ["Gre0"], "truncationSize": "truncationSizeDefault",
            "headerRemovalSize": "headerRemovalNone", "rxSampleRate": 0, "mirrorRateLimitInBps": 1500000,
            "mirrorRateLimitChip": "", "greMetadata": {}, "grePayloadType": "payloadTypeUnset",
            "greTimestampingEnabled": false, "txGreMetadataEnabled": false},
      "p": {"srcIntf": {}, "targetIntf": ["Ethernet5"], "truncationSize": "truncationSizeDefault",
            "headerRemovalSize": "headerRemovalNone", "rxSampleRate": 64, "mirrorRateLimitInBps": 0,
            "mirrorRateLimitChip": "", "greMetadata": {}, "grePayloadType": "payloadTypeUnset",
            "greTimestampingEnabled": false, "txGreMetadataEnabled": false}}},
    "mirroring/status": {
      "sessionStatus": {
        "g": {"targetOperStatus": {"Gre1": {"state": "active", "reason": ""}},
              "truncateOperStatus": {"state": "active", "reason": ""}, "mirrorDeviceName": "mirror3"},
        "q": {"targetOperStatus": {}, "truncateOperStatus": {"state": "inactive", "reason": "Not Supported"},
              "mirrorDeviceName": ""},
        "p": {"targetOperStatus": {}, "truncateOperStatus": {"state": "inactive", "reason": "Not Configured"},
              "mirrorDeviceName": ""}},
      "grePayloadType": "payloadTypeFullPacket"},
    "mirroring/hwconfig": {"session": {
      "g": {"srcIntf": {"Ethernet1": {"direction": "rx", "srcAcl": "", "aclType": "aclTypeIp"},
                        "Ethernet2": {"direction": "rx", "srcAcl": "v6-a", "aclType": "aclTypeIpv6"}},
            "targetIntf": ["Gre1"], "sessionId": 3, "truncationSize": "truncationSize192",
            "headerRemovalSize": "headerRemovalNone", "rxSampleRate": 1, "mirrorRateLimitInBps": 2000000000,
            "mirrorRateLimitChip": "", "greMetadata": {}, "grePayloadType": "payloadTypeInnerPacket",
            "greTimestampingEnabled": false, "txGreMetadataEnabled": false}}}
  })");

  const std::string view = host::renderView(mounts);
  EXPECT_EQ(sessionFields(view, "g"),
            "  Status:            programmed\n"
            "  Mirror device:     mirror3\n"
            "  Truncation:        active, 192 bytes (configured 160 bytes)\n"
            "  Sampling:          1 in 1000 (programmed: off)\n"
            "  Rate limit:        2 Gbps on chip1\n"
            "  Header removal:    8 bytes (programmed: none)\n"
            "  GRE options:       payload default (inner packet); metadata switchId, vlan; timestamping on; tx "
            "metadata off\n"
            "  Hardware session:  3\n"
            "  Hardware sources:  Ethernet1 (rx), Ethernet2 (rx, ipv6 ACL v6-a)\n"
            "  Hardware targets:  Gre1\n")
      << view;
  EXPECT_EQ(sessionFields(view, "q"),
            "  Status:            not programmed: no active destination\n"
            "  Mirror device:     -\n"
            "  Truncation:        inactive (Not Supported)\n"
            "  Sampling:          off\n"
            "  Rate limit:        1500 kbps\n"
            "  GRE options:       payload default (full packet); metadata none; timestamping off; tx metadata off\n")
      << view;
  EXPECT_EQ(sessionFields(view, "p"),
            "  Status:            not programmed: no active destination\n"
            "  Mirror device:     -\n"
            "  Truncation:        inactive (Not Configured)\n"
            "  Sampling:          1 in 64\n"
            "  Rate limit:        none\n")
      << view;
}

TEST(View, WithoutTheHardwareCopyAnActiveDestinationMeansProgrammed) {
  const host::MountContents mounts = contents(R"({"mirroring/status": {"sessionStatus": {
    "up": {"targetOperStatus": {"Ethernet1": {"state": "active", "reason": ""}},
           "truncateOperStatus": {"state": "unknown", "reason": ""}},
    "down": {"targetOperStatus": {"Ethernet2": {"state": "inactive", "reason": "Destination Conflict"}},
             "truncateOperStatus": {"state": "unknown", "reason": ""}}}}})");
  std::ostringstream out;
  ASSERT_TRUE(host::renderMonitorSessions(mounts, out));
  EXPECT_NE(out.str().find("Session down\n  Status:            not programmed: no active destination\n"),
            std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("Session up\n  Status:            programmed\n"), std::string::npos) << out.str();
}

TEST(View, GreTunnelsListEachTunnelWithItsKeyAndTheSessionsThatUseIt) {
  // Protocols are numbers in the content: 35006 is 0x88be, 25944 is 0x6558. Gre10 has no
  // source address.
  const host::MountContents mounts = contents(R"({"mirroring/status": {
    "sessionStatus": {
      "a": {"targetOperStatus": {"Gre2": {"state": "active", "reason": ""}}},
      "b": {"targetOperStatus": {"Gre2": {"state": "inactive", "reason": "VRF mgmt is not configured."}}},
      "c": {"targetOperStatus": {"Ethernet2": {"state": "active", "reason": ""}}}},
    "greTunnelKey": {
      "Gre10": {"srcIpAddr": "", "dstIpAddr": "2001:db8::7", "ttl": 128, "tos": 0, "greProto": 25944,
                "greKey": 42, "vrf": "default"},
      "Gre2": {"srcIpAddr": "10.0.0.1", "dstIpAddr": "192.0.2.10", "ttl": 64, "tos": 0, "greProto": 35006,
               "greKey": 0, "vrf": "mgmt"}}}})");
  std::ostringstream out;
  ASSERT_TRUE(host::renderMonitorSessions(mounts, out));
  const std::string text = out.str();
  const std::string tunnels = text.substr(text.find("GRE tunnels\n"));
  EXPECT_EQ(tunnels,
            "GRE tunnels\n"
            "  Interface  Source    Destination  VRF      TTL  TOS  Protocol  Key  Sessions\n"
            "  Gre2       10.0.0.1  192.0.2.10   mgmt     64   0    0x88be    0    a, b\n"
            "  Gre10                2001:db8::7  default  128  0    0x6558    42   none\n");

}

TEST(View, SectionsAppearOnlyForMountsThatArePresent) {
  EXPECT_EQ(host::renderView(host::MountContents{}),
            "Nothing to show: none of the mounts the view reads is present.\n");
  EXPECT_EQ(host::renderView(contents(R"({"other/mount": {"mode": "tapAggModeMixed"}})")),
            "Nothing to show: none of the mounts the view reads is present.\n");

  EXPECT_EQ(host::renderView(contents(R"({"mirroring/status": {"sessionStatus": {}, "greTunnelKey": {}}})")),
            "Monitor sessions\n----------------\nNo sessions.\n");

  const host::MountContents tapOnly = contents(R"({"tapagg/cliconfig": {"mode": "tapAggModeMixed"}})");
  std::ostringstream sessions;
  EXPECT_FALSE(host::renderMonitorSessions(tapOnly, sessions));
  EXPECT_EQ(sessions.str(), "");
  EXPECT_EQ(host::renderView(tapOnly), "Tap aggregation\n---------------\nMode: mixed\n");
}

TEST(View, TapAggregationListsEachGroupsTapAndToolPorts) {
  // A port down for its link alone stays in hardware; a mirror destination does not.
  const host::MountContents mounts = contents(R"({
    "tapagg/cliconfig": {"mode": "tapAggModeExclusive"},
    "tapagg/status": {"group": {
      "g1": {"tapPort": {"Ethernet10": {"active": true, "reason": ""},
                         "Ethernet9": {"active": false, "reason": "Link down,"}},
             "toolPort": {"Ethernet1": {"active": false, "reason": "Mirror destination,"}}},
      "g2": {"tapPort": {}, "toolPort": {"Port-Channel3": {"active": true, "reason": ""}}}}},
    "tapagg/hwconfig": {"tapPort": {"Ethernet9": true, "Ethernet10": true}, "toolPort": {"Port-Channel3": true},
                        "slice": {"Linecard3": true, "Linecard4": false}},
    "mirroring/status": {"sessionStatus": {}, "greTunnelKey": {}}
  })");

  EXPECT_EQ(host::renderView(mounts),
            "Monitor sessions\n"
            "----------------\n"
            "No sessions.\n"
            "\n"
            "Tap aggregation\n"
            "---------------\n"
            "Mode: exclusive\n"
            "Slices: Linecard3 on, Linecard4 off\n"
            "Group  Port           Role  Active  Hardware  Reason\n"
            "g1     Ethernet9      tap   no      yes       Link down,\n"
            "g1     Ethernet10     tap   yes     yes\n"
            "g1     Ethernet1      tool  no      no        Mirror destination,\n"
            "g2     Port-Channel3  tool  yes     yes\n");
}

TEST(View, ErrdisabledInterfacesListEachCausesInterfacesWithTheirTime) {
  const host::MountContents mounts = contents(R"({
    "interface/errdisable/cause/tapagg": {"intfStatus": {"Ethernet10": 12.5, "Ethernet4": 0.0}},
    "interface/errdisable/cause/bpduguard": {"intfStatus": {"Ethernet7": 3.0}},
    "interface/errdisable/cause/linkflap": {"intfStatus": {}}
  })");
  EXPECT_EQ(host::renderView(mounts),
            "Errdisabled interfaces\n"
            "----------------------\n"
            "Interface   Cause      Since\n"
            "Ethernet7   bpduguard  3.0\n"
            "Ethernet4   tapagg     0.0\n"
            "Ethernet10  tapagg     12.5\n");
  EXPECT_EQ(host::renderView(contents(R"({"interface/errdisable/cause/linkflap": {"intfStatus": {}}})")),
            "Errdisabled interfaces\n----------------------\nNo interfaces errdisabled.\n");
}

}  // namespace
