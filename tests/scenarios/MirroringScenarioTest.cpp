// Scenarios of the mirroring agent, end to end: the real mirroringd loads the real plug-in,
// a state file stands for what the other agents of a switch publish, a change stream for what
// happens next, and the tests read back the dumps, the change stream out (every write of the
// agent, causes before effects) and the syslog JSON lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "scenarios/MirroringScenario.h"

using namespace hosttest;
using namespace scenario;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// --- the typical event -----------------------------------------------------------------------

TEST_F(MirroringScenario, AddingASessionProgramsItAndDeletingItReversesEverythingCauseBeforeEffect) {
  Json state = switchState(4);
  // A session that was there before, so that the new one does not get id 0 by chance.
  state["mirroring/config"]["session"]["s0"] = session({{"Ethernet3", "rx"}}, {"Ethernet6"});
  Outcome o = runScenario(state, {kDump,
                                  addSession("s1", session({{"Ethernet1", "rx"}, {"Ethernet2", "tx"}}, {"Ethernet5"})),
                                  kDump, delSession("s1")});
  ASSERT_EQ(o.dumps.size(), 3u);
  Json before = o.dumps[0];
  Json added = o.dumps[1];

  // Added: the hardware session with the next id, and the device named after it; what the
  // statuses, hardware copy and forwarding model hold the consistency checker sees.
  EXPECT_EQ(added[kStatus]["sessionStatus"]["s1"]["mirrorDeviceName"], "mirror1");
  EXPECT_EQ(added[kHwConfig]["session"]["s1"]["sessionId"], 1);
  EXPECT_EQ(added[kHwConfig]["session"]["s0"]["sessionId"], 0);
  // Deleted: everything as before.
  EXPECT_EQ(o.last(), before);

  // The writes, in the order the agent made them. Adding: the status record, then the
  // destination becoming active, which is what puts the session into hardware and gives its
  // destination the forwarding model; each source is active before the hardware has it.
  const std::string st = "mirroring/status/sessionStatus/s1";
  const std::string hwPath = "mirroring/hwconfig/session/s1";
  const std::string fm = "interface/input/forwardingmodel/mirroring/forwardingModelInput/Ethernet5";
  auto record = firstSet(o.out, st);
  auto destActive = firstSet(o.out, st + "/targetOperStatus/Ethernet5", kActive);
  auto hwSession = firstSet(o.out, hwPath);
  auto fmSet = firstSet(o.out, fm, Json(kQuietDataLink));
  ASSERT_NE(record, kNever);
  ASSERT_NE(destActive, kNever);
  EXPECT_LE(record, destActive);
  EXPECT_LT(destActive, hwSession);
  EXPECT_LT(destActive, fmSet);
  for (const char* src : {"Ethernet1", "Ethernet2"}) {
    auto srcActive = firstSet(o.out, st + "/srcOperStatus/" + src, kActive);
    auto hwSrc = firstSet(o.out, hwPath + "/srcIntf/" + src);
    ASSERT_NE(srcActive, kNever) << src;
    EXPECT_LT(srcActive, hwSrc) << src;
  }
  EXPECT_NE(firstSet(o.out, hwPath + "/sessionId", Json(1)), kNever);
  EXPECT_NE(firstSet(o.out, hwPath + "/targetIntf/Ethernet5"), kNever);
  EXPECT_EQ(count(o.out, "set", fm), 1u) << "the forwarding model is written once";

  // Deleting: the hardware copy goes, then the status record; the forwarding model goes after
  // the destination's active status did, and nothing is set anew.
  auto hwGone = firstDel(o.out, hwPath);
  auto destGone = firstDel(o.out, st + "/targetOperStatus/Ethernet5");
  auto recordGone = firstDel(o.out, st);
  auto fmGone = firstDel(o.out, fm);
  for (auto at : {hwGone, destGone, recordGone, fmGone}) ASSERT_NE(at, kNever);
  EXPECT_GT(hwGone, fmSet);
  EXPECT_LT(hwGone, recordGone);
  EXPECT_LT(destGone, fmGone);
  for (std::size_t i = std::size_t(hwGone); i < o.out.size(); ++i) {
    EXPECT_EQ(o.out[i].value("op", ""), "del") << o.out[i].dump();
  }
  EXPECT_THAT(o.syslog, IsEmpty());
}

// --- start-up over what an earlier run left -----------------------------------------------

// What an earlier run left: session "kept", still configured, programmed with id 3 and a
// source it no longer has. (Leftovers of sessions no longer configured, and whether a start
// rewrites what it confirms, are the consistency checker's.)
TEST_F(MirroringScenario, StartUpKeepsWhatIsStillConfiguredWithItsIdAndSweepsTheRest) {
  Json state = switchState(4);
  state["mirroring/config"]["session"]["kept"] = session({{"Ethernet1", "rx"}}, {"Ethernet5"});
  state["mirroring/config"]["session"]["other"] = session({{"Ethernet2", "rx"}}, {"Ethernet6"});
  state[kStatus]["sessionStatus"]["kept"] = {{"srcOperStatus", {{"Ethernet1", kActive}, {"Ethernet9", kActive}}},
                                             {"targetOperStatus", {{"Ethernet5", kActive}}},
                                             {"truncateOperStatus", inactive("Not Configured")},
                                             {"mirrorDeviceName", "mirror3"}};
  state[kHwConfig]["session"]["kept"] = {
      {"srcIntf", {{"Ethernet1", {{"direction", "rx"}}}, {"Ethernet9", {{"direction", "rx"}}}}},
      {"targetIntf", {"Ethernet5"}},
      {"destIntf", "Ethernet5"},
      {"sessionId", 3}};
  state[kForwardingModel]["forwardingModelInput"] = {{"Ethernet5", kQuietDataLink}};
  Outcome o = runScenario(state, {});
  Json d = o.last();

  // "kept" keeps its id and device; the source it no longer has is swept from status and
  // hardware. "other" takes the lowest id that no hardware session holds.
  EXPECT_EQ(d[kHwConfig]["session"]["kept"]["sessionId"], 3);
  EXPECT_EQ(d[kStatus]["sessionStatus"]["kept"]["mirrorDeviceName"], "mirror3");
  EXPECT_EQ(d[kStatus]["sessionStatus"]["kept"]["srcOperStatus"], (Json{{"Ethernet1", kActive}}));
  EXPECT_THAT(keys(d[kHwConfig]["session"]["kept"]["srcIntf"]), ElementsAre("Ethernet1"));
  EXPECT_EQ(d[kHwConfig]["session"]["other"]["sessionId"], 0);

}

// --- the examples --------------------------------------------------------------------------

const fs::path kExample = fs::path(SOURCE_DIR) / "examples" / "switch";

// The lines of one of the example's change streams, without comments, blank lines and views
// (the view is for people).
std::vector<std::string> exampleStream(const std::string& file) { return streamOf(kExample / file); }

// examples/switch, as its README tells it: every line accepted, the refusals, a restart that
// writes nothing, and nothing left at the end.
TEST_F(MirroringScenario, TheExampleSwitchRunsAsItsReadmeTells) {
  const Json state = Json::parse(readFile(kExample / "state.json"));
  const std::vector<std::string> stream = exampleStream("changes.jsonl");
  Outcome o = runScenario(state, stream);
  std::vector<std::string> refused;
  for (const auto& line : o.syslog) refused.push_back(line.value("text", ""));
  auto message = [](const std::string& s) {
    return "Insufficient hardware resources to allocate mirror session " + s +
           ". The current limit on the number of mirror sessions is 4.";
  };
  EXPECT_THAT(refused, ElementsAre(message("e-backup"), message("e-backup"), message("f-cpu")));
  EXPECT_EQ(o.last()[kStatus]["sessionStatus"], Json::object());
  EXPECT_EQ(o.last()[kStatus]["greTunnelKey"], Json::object());
  EXPECT_EQ(o.last()[kHwConfig]["session"], Json::object());
  EXPECT_EQ(o.last()[kForwardingModel]["forwardingModelInput"], Json::object());

  auto restart = std::find(stream.begin(), stream.end(), kRestart);
  ASSERT_NE(restart, stream.end());
  Outcome upTo = runScenario(state, std::vector<std::string>(stream.begin(), restart + 1));
  Outcome before = runScenario(state, std::vector<std::string>(stream.begin(), restart));
  EXPECT_FALSE(before.out.empty());
  EXPECT_TRUE(upTo.out == before.out) << firstDifference(before.out, upTo.out);
}

// examples/switch/options.jsonl, step by step as its README tells it, with a dump after every
// line.
TEST_F(MirroringScenario, TheOptionsWalkthroughRunsAsItsReadmeTells) {
  const Json state = Json::parse(readFile(kExample / "state.json"));
  const std::vector<std::string> stream = exampleStream("options.jsonl");
  ASSERT_EQ(stream.back(), kRestart);
  std::vector<std::string> withDumps;
  for (const auto& line : stream) withDumps.insert(withDumps.end(), {line, kDump});
  Outcome o = runScenario(state, withDumps);
  ASSERT_EQ(o.dumps.size(), stream.size() + 1);
  // The dump after the first line that holds `text` (and the one before it).
  auto lineOf = [&](const std::string& text) {
    auto it = std::find_if(stream.begin(), stream.end(), [&](const std::string& l) { return l.find(text) != l.npos; });
    EXPECT_NE(it, stream.end()) << text;
    return std::size_t(it - stream.begin());
  };
  auto after = [&](const std::string& text) { return o.dumps[lineOf(text)]; };
  auto before = [&](const std::string& text) { return o.dumps[lineOf(text) - 1]; };
  auto session = [](Json dump, const char* mount, const std::string& name) {
    return dump[mount][mount == std::string(kStatus) ? "sessionStatus" : "session"][name];
  };

  // Truncation to a size the hardware does not list: the next listed one; then hardware
  // without truncation.
  Json truncating = after("truncationSize160");
  EXPECT_EQ(session(truncating, kStatus, "a-web")["truncateOperStatus"], kActive);
  EXPECT_EQ(session(truncating, kHwConfig, "a-web")["truncate"], true);
  EXPECT_EQ(session(truncating, kHwConfig, "a-web")["truncationSize"], "truncationSize192");
  Json unsupported = after(R"(truncationSupported","value":false)");
  EXPECT_EQ(session(unsupported, kStatus, "a-web")["truncateOperStatus"], inactive("Not Supported"));
  EXPECT_EQ(session(unsupported, kHwConfig, "a-web")["truncate"], false);

  // Sampling holds while every source receives only; the rate limit is copied.
  Json withTx = after("srcIntf/Ethernet11");
  EXPECT_EQ(session(withTx, kHwConfig, "c-db")["rxSampleRate"], 1);
  EXPECT_EQ(session(withTx, kHwConfig, "c-db")["mirrorRateLimitInBps"], 2000000000);
  EXPECT_EQ(session(withTx, kHwConfig, "c-db")["mirrorRateLimitChip"], "chip0");
  EXPECT_EQ(session(before("srcIntf/Ethernet11"), kHwConfig, "c-db")["rxSampleRate"], 1000);
  EXPECT_EQ(session(o.last(), kHwConfig, "c-db")["rxSampleRate"], 1000);

  // GRE options, with the default payload type for a session that leaves it unset.
  Json gre = session(after("greMetadata"), kHwConfig, "b-erspan");
  EXPECT_EQ(gre["grePayloadType"], "payloadTypeInnerPacket");
  EXPECT_EQ(gre["greMetadata"], (Json{{"ingressInterface", true}, {"switchId", true}}));
  EXPECT_EQ(gre["greTimestampingEnabled"], true);
  EXPECT_EQ(session(after("headerRemoval8"), kHwConfig, "a-web")["headerRemovalSize"], "headerRemoval8");
  EXPECT_EQ(session(after("headerRemovalSupported"), kHwConfig, "a-web")["headerRemovalSize"], "headerRemovalNone");

  // One IPv6 mirroring ACL per session, and the next source gets it when the first lets go.
  Json twoV6 = after("srcIntf/Ethernet12");
  EXPECT_EQ(session(twoV6, kStatus, "c-db")["srcOperStatus"]["Ethernet12"], inactive("Multiple IPv6 mirroring ACLs"));
  EXPECT_FALSE(session(twoV6, kHwConfig, "c-db")["srcIntf"].contains("Ethernet12"));
  EXPECT_EQ(session(twoV6, kHwConfig, "c-db")["srcIntf"]["Ethernet10"]["srcAcl"], "v6-a");
  Json oneV6 = after(R"("aclType":"aclTypeIp","srcAcl":"")");
  EXPECT_EQ(session(oneV6, kStatus, "c-db")["srcOperStatus"]["Ethernet12"], kActive);
  EXPECT_EQ(session(oneV6, kHwConfig, "c-db")["srcIntf"]["Ethernet12"]["srcAcl"], "v6-b");

  // Narrowing a-web's Ethernet1 to transmit releases it to c-db, which receives on it.
  Json narrowed = after("srcIntf/Ethernet1/direction");
  EXPECT_EQ(session(before("srcIntf/Ethernet1/direction"), kStatus, "c-db")["srcOperStatus"]["Ethernet1"],
            inactive("Source Conflict"));
  EXPECT_EQ(session(narrowed, kStatus, "c-db")["srcOperStatus"]["Ethernet1"], kActive);
  EXPECT_EQ(session(narrowed, kHwConfig, "c-db")["srcIntf"]["Ethernet1"]["direction"], "rx");
  EXPECT_EQ(session(narrowed, kHwConfig, "a-web")["srcIntf"]["Ethernet1"]["direction"], "tx");

  // Losing Port-Channel destinations touches d-uplink only.
  Json noLag = after(R"(lagDestSupported","value":false)");
  Json withLag = before(R"(lagDestSupported","value":false)");
  EXPECT_EQ(session(noLag, kStatus, "d-uplink")["targetOperStatus"]["Port-Channel20"],
            inactive("Port-channel is not supported"));
  EXPECT_FALSE(noLag[kHwConfig]["session"].contains("d-uplink"));
  for (const char* other : {"a-web", "b-erspan", "c-db"}) {
    EXPECT_EQ(session(noLag, kStatus, other), session(withLag, kStatus, other)) << other;
    EXPECT_EQ(session(noLag, kHwConfig, other), session(withLag, kHwConfig, other)) << other;
  }
  EXPECT_EQ(session(o.last(), kStatus, "a-web")["mirrorDeviceName"], "mon0");

  // The timestamp reports up to the restart: Ethernet48 when the hardware stops keeping
  // timestamps, each member of Port-Channel20 when d-uplink truncates and again when its
  // destination becomes active once more.
  Outcome noRestart = runScenario(state, std::vector<std::string>(stream.begin(), stream.end() - 1));
  std::vector<std::string> reports;
  for (const auto& line : noRestart.syslog) {
    if (line["key"] == "MIRRORING_TIMESTAMP_WITH_TRUNCATE_NOTSUPPORTED") reports.push_back(line["text"]);
  }
  auto report = [](const std::string& intf, const std::string& role, const std::string& s) {
    return "Timestamping on interface " + intf + " (" + role + ") does not work with truncation configured on "
           "mirror session " + s + ".";
  };
  const std::string member = "member of mirror destination Port-Channel20";
  EXPECT_THAT(reports, ElementsAre(report("Ethernet48", "mirror destination", "a-web"),
                                   report("Ethernet41", member, "d-uplink"), report("Ethernet42", member, "d-uplink"),
                                   report("Ethernet41", member, "d-uplink"), report("Ethernet42", member, "d-uplink")));

  // An edit of the ACL that Ethernet10 filters with rewrites exactly its hardware entry.
  const std::size_t edit = lineOf("db-traffic/rule/20");
  Outcome upToEdit = runScenario(state, std::vector<std::string>(stream.begin(), stream.begin() + edit));
  Outcome withEdit = runScenario(state, std::vector<std::string>(stream.begin(), stream.begin() + edit + 1));
  ASSERT_EQ(withEdit.out.size(), upToEdit.out.size() + 1) << "one write, and no other";
  EXPECT_EQ(withEdit.out.back(),
            (Json{{"op", "set"},
                  {"path", "mirroring/hwconfig/session/c-db/srcIntf/Ethernet10"},
                  {"value", {{"direction", "rx"}, {"srcAcl", "db-traffic"}, {"aclType", "aclTypeIp"}, {"aclPriority", 10}}}}));

  // The restart at the end writes nothing.
  Outcome whole = runScenario(state, stream);
  EXPECT_TRUE(whole.out == noRestart.out) << firstDifference(noRestart.out, whole.out);
}

}  // namespace
