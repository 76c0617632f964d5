// The readable view against a database of hand-made entities shaped like the mirroring and
// tap-aggregation models (the view reads field names, not C++ types).
#include <gtest/gtest.h>

#include <sstream>

#include "host/View.h"
#include "platform/Database.h"
#include "platform/IntfId.h"
#include "platform/IpGenAddr.h"
#include "platform/VrfName.h"

namespace {

using platform::Attr;
using platform::Coll;
using platform::Ptr;
using platform::Set;

enum class OperState : uint8_t { unknown = 0, active = 1, inactive = 2 };
constexpr auto enumEntries(OperState) {
  return std::array{platform::EnumEntry<OperState>{OperState::unknown, "unknown"},
                    platform::EnumEntry<OperState>{OperState::active, "active"},
                    platform::EnumEntry<OperState>{OperState::inactive, "inactive"}};
}
enum class Direction : uint8_t { rx = 1, tx = 2, both = 3 };
constexpr auto enumEntries(Direction) {
  return std::array{platform::EnumEntry<Direction>{Direction::rx, "rx"},
                    platform::EnumEntry<Direction>{Direction::tx, "tx"},
                    platform::EnumEntry<Direction>{Direction::both, "both"}};
}

struct OperStatus {
  OperState state{};
  std::string reason;
  bool operator==(const OperStatus&) const = default;
  template <class D>
  void fields(D& d) {
    d("state", state);
    d("reason", reason);
  }
};

struct SrcIntf : platform::EntityOf<SrcIntf> {
  static constexpr const char* typeName = "ViewTest::SrcIntf";
  explicit SrcIntf(const std::string& k) { name.set(k); }
  Attr<std::string> name{this};
  Attr<Direction> direction{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("direction", direction);
  }
};

struct Session : platform::EntityOf<Session> {
  static constexpr const char* typeName = "ViewTest::Session";
  explicit Session(const std::string& k) { name.set(k); }
  Attr<std::string> name{this};
  Coll<std::string, Ptr<SrcIntf>> srcIntf{this};
  Set<std::string> targetIntf{this};
  Attr<int32_t> sessionId{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("srcIntf", srcIntf);
    d("targetIntf", targetIntf);
    d("sessionId", sessionId);
  }
};

struct Config : platform::EntityOf<Config> {
  static constexpr const char* typeName = "ViewTest::Config";
  Coll<std::string, Ptr<Session>> session{this};
  template <class D>
  void fields(D& d) {
    d("session", session);
  }
};

struct SessionStatus : platform::EntityOf<SessionStatus> {
  static constexpr const char* typeName = "ViewTest::SessionStatus";
  explicit SessionStatus(const std::string& k) { name.set(k); }
  Attr<std::string> name{this};
  Coll<std::string, OperStatus> srcOperStatus{this};
  Coll<std::string, OperStatus> targetOperStatus{this};
  Attr<OperStatus> truncateOperStatus{this};
  Attr<std::string> mirrorDeviceName{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("srcOperStatus", srcOperStatus);
    d("targetOperStatus", targetOperStatus);
    d("truncateOperStatus", truncateOperStatus);
    d("mirrorDeviceName", mirrorDeviceName);
  }
};

struct TunnelKey {
  platform::IpGenAddr srcIpAddr;
  platform::IpGenAddr dstIpAddr;
  uint8_t ttl = 128;
  uint8_t tos = 0;
  uint16_t greProto = 0x88BE;
  uint32_t greKey = 0;
  platform::VrfName vrf;
  bool operator==(const TunnelKey&) const = default;
  template <class D>
  void fields(D& d) {
    d("srcIpAddr", srcIpAddr);
    d("dstIpAddr", dstIpAddr);
    d("ttl", ttl);
    d("tos", tos);
    d("greProto", greProto);
    d("greKey", greKey);
    d("vrf", vrf);
  }
};

struct Status : platform::EntityOf<Status> {
  static constexpr const char* typeName = "ViewTest::Status";
  Coll<std::string, Ptr<SessionStatus>> sessionStatus{this};
  Coll<platform::IntfId, TunnelKey> greTunnelKey{this};
  template <class D>
  void fields(D& d) {
    d("sessionStatus", sessionStatus);
    d("greTunnelKey", greTunnelKey);
  }
};

enum class TapAggMode : uint8_t { off = 0, exclusive = 1, mixed = 2 };
constexpr auto enumEntries(TapAggMode) {
  return std::array{platform::EnumEntry<TapAggMode>{TapAggMode::off, "tapAggModeOff"},
                    platform::EnumEntry<TapAggMode>{TapAggMode::exclusive, "tapAggModeExclusive"},
                    platform::EnumEntry<TapAggMode>{TapAggMode::mixed, "tapAggModeMixed"}};
}

struct CliConfig : platform::EntityOf<CliConfig> {
  static constexpr const char* typeName = "ViewTest::CliConfig";
  Attr<TapAggMode> mode{this};
  template <class D>
  void fields(D& d) {
    d("mode", mode);
  }
};

struct PortStatus {
  bool active = false;
  std::string reason;
  bool operator==(const PortStatus&) const = default;
  template <class D>
  void fields(D& d) {
    d("active", active);
    d("reason", reason);
  }
};

struct GroupStatus : platform::EntityOf<GroupStatus> {
  static constexpr const char* typeName = "ViewTest::GroupStatus";
  explicit GroupStatus(const std::string& k) { name.set(k); }
  Attr<std::string> name{this};
  Coll<std::string, PortStatus> tapPort{this};
  Coll<std::string, PortStatus> toolPort{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("tapPort", tapPort);
    d("toolPort", toolPort);
  }
};

struct TapAggStatus : platform::EntityOf<TapAggStatus> {
  static constexpr const char* typeName = "ViewTest::TapAggStatus";
  Coll<std::string, Ptr<GroupStatus>> group{this};
  template <class D>
  void fields(D& d) {
    d("group", group);
  }
};

// The hardware side: which ports are handed over (by name; the view reads only the keys) and
// which slices run tap aggregation.
struct TapAggHwConfig : platform::EntityOf<TapAggHwConfig> {
  static constexpr const char* typeName = "ViewTest::TapAggHwConfig";
  Coll<std::string, bool> tapPort{this};
  Coll<std::string, bool> toolPort{this};
  Coll<std::string, bool> slice{this};
  template <class D>
  void fields(D& d) {
    d("tapPort", tapPort);
    d("toolPort", toolPort);
    d("slice", slice);
  }
};

template <class T>
Ptr<T> mount(platform::Database& db, const std::string& path) {
  return platform::dynamicPtrCast<T>(db.rootIs<T>(path)->root());
}

// Adds a configured session with its sources (name, direction) and destinations.
void addSession(Config& config, const std::string& name, std::vector<std::pair<std::string, Direction>> sources,
                std::vector<std::string> targets) {
  Ptr<Session> s = config.session.is(name);
  for (const auto& [intf, dir] : sources) s->srcIntf.is(intf)->direction.set(dir);
  for (const auto& t : targets) s->targetIntf.insert(t);
}

OperStatus active() { return {OperState::active, ""}; }
OperStatus inactive(const std::string& reason) { return {OperState::inactive, reason}; }

TEST(View, MonitorSessionsJoinConfigurationStatusAndHardwareBySession) {
  platform::Database db;
  auto config = mount<Config>(db, "mirroring/config");
  auto status = mount<Status>(db, "mirroring/status");
  auto hw = mount<Config>(db, "mirroring/hwconfig");

  addSession(*config, "s1", {{"Ethernet10", Direction::rx}, {"Ethernet2", Direction::both}}, {"Ethernet5"});
  addSession(*config, "s2", {{"Ethernet7", Direction::tx}}, {"Cpu"});
  addSession(*config, "s3", {{"Ethernet8", Direction::rx}}, {"Ethernet9"});
  Ptr<SessionStatus> s1 = status->sessionStatus.is("s1");
  s1->srcOperStatus.set("Ethernet2", active());
  s1->srcOperStatus.set("Ethernet10", inactive("Source Conflict"));
  s1->srcOperStatus.set("Ethernet1", inactive("Interface Mode Conflict"));  // left by an earlier run
  s1->targetOperStatus.set("Ethernet5", active());
  s1->truncateOperStatus.set(inactive("Not Configured"));
  s1->mirrorDeviceName.set("mirror1");
  addSession(*hw, "s1", {{"Ethernet2", Direction::both}}, {"Ethernet5"});
  hw->session.get("s1")->sessionId.set(1);
  // s2 has no status: the agent refused it. s3 has one but no active destination.
  Ptr<SessionStatus> s3 = status->sessionStatus.is("s3");
  s3->srcOperStatus.set("Ethernet8", active());
  s3->targetOperStatus.set("Ethernet9", inactive("Interface Mode Conflict"));
  s3->mirrorDeviceName.set("mirror2");
  // Sessions the configuration does not have: a companion and a leftover.
  status->sessionStatus.is("__fwdingDrop_s1")->targetOperStatus.set("Gre1", active());
  addSession(*hw, "__fwdingDrop_s1", {}, {"Gre1"});
  hw->session.get("__fwdingDrop_s1")->sessionId.set(4);
  status->sessionStatus.is("old");

  EXPECT_EQ(host::renderView(db),
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

// A source with its filter, as the hardware copy holds it.
struct FilteredSrcIntf : platform::EntityOf<FilteredSrcIntf> {
  static constexpr const char* typeName = "ViewTest::FilteredSrcIntf";
  explicit FilteredSrcIntf(const std::string& k) { name.set(k); }
  Attr<std::string> name{this};
  Attr<std::string> direction{this, "rx"};
  Attr<std::string> srcAcl{this};
  Attr<std::string> aclType{this, "aclTypeIp"};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("direction", direction);
    d("srcAcl", srcAcl);
    d("aclType", aclType);
  }
};

// A session with its options, the fields the view reads; enumerators are their names.
struct OptionSession : platform::EntityOf<OptionSession> {
  static constexpr const char* typeName = "ViewTest::OptionSession";
  explicit OptionSession(const std::string& k) { name.set(k); }
  Attr<std::string> name{this};
  Coll<std::string, Ptr<FilteredSrcIntf>> srcIntf{this};
  Set<std::string> targetIntf{this};
  Attr<int32_t> sessionId{this};
  Attr<std::string> truncationSize{this, "truncationSizeDefault"};
  Attr<std::string> headerRemovalSize{this, "headerRemovalNone"};
  Attr<uint32_t> rxSampleRate{this};
  Attr<uint64_t> mirrorRateLimitInBps{this};
  Attr<std::string> mirrorRateLimitChip{this};
  Coll<std::string, bool> greMetadata{this};
  Attr<std::string> grePayloadType{this, "payloadTypeUnset"};
  Attr<bool> greTimestampingEnabled{this};
  Attr<bool> txGreMetadataEnabled{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("srcIntf", srcIntf);
    d("targetIntf", targetIntf);
    d("sessionId", sessionId);
    d("truncationSize", truncationSize);
    d("headerRemovalSize", headerRemovalSize);
    d("rxSampleRate", rxSampleRate);
    d("mirrorRateLimitInBps", mirrorRateLimitInBps);
    d("mirrorRateLimitChip", mirrorRateLimitChip);
    d("greMetadata", greMetadata);
    d("grePayloadType", grePayloadType);
    d("greTimestampingEnabled", greTimestampingEnabled);
    d("txGreMetadataEnabled", txGreMetadataEnabled);
  }
};

struct OptionConfig : platform::EntityOf<OptionConfig> {
  static constexpr const char* typeName = "ViewTest::OptionConfig";
  Coll<std::string, Ptr<OptionSession>> session{this};
  template <class D>
  void fields(D& d) {
    d("session", session);
  }
};

struct OptionStatus : platform::EntityOf<OptionStatus> {
  static constexpr const char* typeName = "ViewTest::OptionStatus";
  Coll<std::string, Ptr<SessionStatus>> sessionStatus{this};
  Attr<std::string> grePayloadType{this, "payloadTypeUnset"};
  template <class D>
  void fields(D& d) {
    d("sessionStatus", sessionStatus);
    d("grePayloadType", grePayloadType);
  }
};

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
  platform::Database db;
  auto config = mount<OptionConfig>(db, "mirroring/config");
  auto status = mount<OptionStatus>(db, "mirroring/status");
  auto hw = mount<OptionConfig>(db, "mirroring/hwconfig");
  status->grePayloadType.set("payloadTypeFullPacket");

  // A GRE session that asked for more than the hardware does.
  auto g = config->session.is("g");
  g->targetIntf.insert("Gre0");
  g->truncationSize.set("truncationSize160");
  g->headerRemovalSize.set("headerRemoval8");
  g->rxSampleRate.set(1000);
  g->mirrorRateLimitInBps.set(2'000'000'000);
  g->mirrorRateLimitChip.set("chip1");
  g->greMetadata.set("switchId", true);
  g->greMetadata.set("vlan", true);
  g->greTimestampingEnabled.set(true);
  auto gs = status->sessionStatus.is("g");
  gs->truncateOperStatus.set(active());
  gs->targetOperStatus.set("Gre1", active());
  gs->mirrorDeviceName.set("mirror3");
  auto ghw = hw->session.is("g");
  ghw->targetIntf.insert("Gre1");
  ghw->sessionId.set(3);
  ghw->truncationSize.set("truncationSize192");
  ghw->rxSampleRate.set(1);
  ghw->mirrorRateLimitInBps.set(2'000'000'000);
  ghw->grePayloadType.set("payloadTypeInnerPacket");
  ghw->srcIntf.is("Ethernet1");
  auto filtered = ghw->srcIntf.is("Ethernet2");
  filtered->srcAcl.set("v6-a");
  filtered->aclType.set("aclTypeIpv6");
  // A GRE session not programmed: the default payload is the status's.
  auto q = config->session.is("q");
  q->targetIntf.insert("Gre0");
  q->mirrorRateLimitInBps.set(1'500'000);
  status->sessionStatus.is("q")->truncateOperStatus.set(inactive("Not Supported"));
  // A port session: no GRE line, no header removal line.
  auto p = config->session.is("p");
  p->targetIntf.insert("Ethernet5");
  p->rxSampleRate.set(64);
  status->sessionStatus.is("p")->truncateOperStatus.set(inactive("Not Configured"));

  const std::string view = host::renderView(db);
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
  platform::Database db;
  auto status = mount<Status>(db, "mirroring/status");
  status->sessionStatus.is("up")->targetOperStatus.set("Ethernet1", active());
  status->sessionStatus.is("down")->targetOperStatus.set("Ethernet2", inactive("Destination Conflict"));
  std::ostringstream out;
  ASSERT_TRUE(host::renderMonitorSessions(host::viewContents(db), out));
  EXPECT_NE(out.str().find("Session down\n  Status:            not programmed: no active destination\n"),
            std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("Session up\n  Status:            programmed\n"), std::string::npos) << out.str();
}

TEST(View, GreTunnelsListEachTunnelWithItsKeyAndTheSessionsThatUseIt) {
  platform::Database db;
  auto status = mount<Status>(db, "mirroring/status");
  TunnelKey collector;
  collector.srcIpAddr = *platform::IpGenAddr::parse("10.0.0.1");
  collector.dstIpAddr = *platform::IpGenAddr::parse("192.0.2.10");
  collector.ttl = 64;
  collector.vrf = platform::VrfName("mgmt");
  TunnelKey lab;
  lab.dstIpAddr = *platform::IpGenAddr::parse("2001:db8::7");
  lab.greProto = 0x6558;
  lab.greKey = 42;
  status->greTunnelKey.set(platform::IntfId("Gre10"), lab);
  status->greTunnelKey.set(platform::IntfId("Gre2"), collector);
  status->sessionStatus.is("a")->targetOperStatus.set("Gre2", active());
  status->sessionStatus.is("b")->targetOperStatus.set("Gre2", inactive("VRF mgmt is not configured."));
  status->sessionStatus.is("c")->targetOperStatus.set("Ethernet2", active());

  std::ostringstream out;
  ASSERT_TRUE(host::renderMonitorSessions(host::viewContents(db), out));
  const std::string text = out.str();
  const std::string tunnels = text.substr(text.find("GRE tunnels\n"));
  EXPECT_EQ(tunnels,
            "GRE tunnels\n"
            "  Interface  Source    Destination  VRF      TTL  TOS  Protocol  Key  Sessions\n"
            "  Gre2       10.0.0.1  192.0.2.10   mgmt     64   0    0x88be    0    a, b\n"
            "  Gre10                2001:db8::7  default  128  0    0x6558    42   none\n");

  // No tunnels, no subsection.
  platform::Database none;
  mount<Status>(none, "mirroring/status")->sessionStatus.is("a");
  std::ostringstream quiet;
  host::renderMonitorSessions(host::viewContents(none), quiet);
  EXPECT_EQ(quiet.str().find("GRE tunnels"), std::string::npos);
}

TEST(View, SectionsAppearOnlyForMountsThatArePresent) {
  platform::Database empty;
  EXPECT_EQ(host::renderView(empty), "Nothing to show: none of the mounts the view reads is present.\n");

  platform::Database statusOnly;
  mount<Status>(statusOnly, "mirroring/status");
  EXPECT_EQ(host::renderView(statusOnly), "Monitor sessions\n----------------\nNo sessions.\n");

  platform::Database tapOnly;
  mount<CliConfig>(tapOnly, "tapagg/cliconfig")->mode.set(TapAggMode::mixed);
  std::ostringstream sessions;
  EXPECT_FALSE(host::renderMonitorSessions(host::viewContents(tapOnly), sessions));
  EXPECT_EQ(sessions.str(), "");
  EXPECT_EQ(host::renderView(tapOnly), "Tap aggregation\n---------------\nMode: mixed\n");
}

TEST(View, TapAggregationListsEachGroupsTapAndToolPorts) {
  platform::Database db;
  mount<CliConfig>(db, "tapagg/cliconfig")->mode.set(TapAggMode::exclusive);
  auto status = mount<TapAggStatus>(db, "tapagg/status");
  Ptr<GroupStatus> g1 = status->group.is("g1");
  g1->tapPort.set("Ethernet10", {true, ""});
  g1->tapPort.set("Ethernet9", {false, "Link down,"});
  g1->toolPort.set("Ethernet1", {false, "Mirror destination,"});
  status->group.is("g2")->toolPort.set("Port-Channel3", {true, ""});
  mount<Status>(db, "mirroring/status");
  // A port down for its link alone stays in hardware; a mirror destination does not.
  auto hw = mount<TapAggHwConfig>(db, "tapagg/hwconfig");
  for (const char* intf : {"Ethernet9", "Ethernet10"}) hw->tapPort.set(intf, true);
  hw->toolPort.set("Port-Channel3", true);
  hw->slice.set("Linecard4", false);
  hw->slice.set("Linecard3", true);

  EXPECT_EQ(host::renderView(db),
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

}  // namespace
