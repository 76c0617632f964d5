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

  // Added: every source and the destination active, the hardware session with the next id.
  Json status = added[kStatus]["sessionStatus"]["s1"];
  EXPECT_EQ(status["srcOperStatus"], (Json{{"Ethernet1", kActive}, {"Ethernet2", kActive}}));
  EXPECT_EQ(status["targetOperStatus"], (Json{{"Ethernet5", kActive}}));
  EXPECT_EQ(status["mirrorDeviceName"], "mirror1");
  Json hw = added[kHwConfig]["session"]["s1"];
  EXPECT_EQ(hw["sessionId"], 1);
  EXPECT_EQ(added[kHwConfig]["session"]["s0"]["sessionId"], 0);
  EXPECT_THAT(keys(hw["srcIntf"]), ElementsAre("Ethernet1", "Ethernet2"));
  EXPECT_EQ(hw["srcIntf"]["Ethernet1"]["direction"], "rx");
  EXPECT_EQ(hw["srcIntf"]["Ethernet2"]["direction"], "tx");
  EXPECT_EQ(hw["targetIntf"], Json::array({"Ethernet5"}));
  EXPECT_EQ(added[kForwardingModel]["forwardingModelInput"],
            (Json{{"Ethernet5", kQuietDataLink}, {"Ethernet6", kQuietDataLink}}));

  // Deleted: status, hardware session and forwarding model gone; the other session untouched.
  EXPECT_EQ(o.last(), before);
  EXPECT_FALSE(o.last()[kStatus]["sessionStatus"].contains("s1"));
  EXPECT_EQ(o.last()[kForwardingModel]["forwardingModelInput"], (Json{{"Ethernet6", kQuietDataLink}}));

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
  ASSERT_NE(hwGone, kNever);
  ASSERT_NE(destGone, kNever);
  ASSERT_NE(recordGone, kNever);
  ASSERT_NE(fmGone, kNever);
  EXPECT_GT(hwGone, fmSet);
  EXPECT_LT(hwGone, recordGone);
  EXPECT_LT(destGone, fmGone);
  for (std::size_t i = std::size_t(hwGone); i < o.out.size(); ++i) {
    EXPECT_EQ(o.out[i].value("op", ""), "del") << o.out[i].dump();
  }
  EXPECT_THAT(o.syslog, IsEmpty());
}

TEST_F(MirroringScenario, GreSessionsShareTheirKeysTunnelInterfaceUntilTheLastOneGoes) {
  Json state = switchState(4);
  state["ip/vrf/status/global"]["vrf"]["mgmt"] = {{"state", "vrfStateActive"}};
  const Json sameKey = greSession({"Ethernet2"}, "192.0.2.10", "mgmt");
  Outcome o = runScenario(state, {addSession("g1", greSession({"Ethernet1"}, "192.0.2.10", "mgmt")), kDump,
                                  addSession("g2", sameKey), kDump, addSession("g3", greSession({"Ethernet3"}, "192.0.2.20", "mgmt")),
                                  kDump, delSession("g1"), kDump, delSession("g2"), kDump, delSession("g3")});
  ASSERT_EQ(o.dumps.size(), 6u);
  const Json key = Json::parse(
      R"({"srcIpAddr": "10.0.0.1", "dstIpAddr": "192.0.2.10", "ttl": 128, "tos": 0, "greProto": 35006,
          "greKey": 0, "vrf": "mgmt"})");
  auto tunnels = [](Json dump) { return keys(dump[kStatus]["greTunnelKey"]); };
  auto hwTargets = [](Json dump, const std::string& s) { return dump[kHwConfig]["session"][s]["targetIntf"]; };

  // The first session's key gets the first tunnel interface, in both directions of the map,
  // and the hardware session sends to it.
  EXPECT_THAT(tunnels(o.dumps[0]), ElementsAre("Gre1"));
  EXPECT_EQ(o.dumps[0][kStatus]["greTunnelKey"]["Gre1"], key);
  EXPECT_EQ(o.dumps[0][kStatus]["greTunnelKeyToIntfId"], Json::array({{{"key", key}, {"value", "Gre1"}}}));
  EXPECT_EQ(hwTargets(o.dumps[0], "g1"), Json::array({"Gre1"}));
  EXPECT_EQ(o.dumps[0][kStatus]["sessionStatus"]["g1"]["targetOperStatus"]["Gre1"], kActive);
  EXPECT_EQ(o.dumps[0][kStatus]["sessionStatus"]["g1"]["srcOperStatus"]["Ethernet1"], kActive);
  // The same key: the same interface. Another key: the next one.
  EXPECT_THAT(tunnels(o.dumps[1]), ElementsAre("Gre1"));
  EXPECT_EQ(hwTargets(o.dumps[1], "g2"), Json::array({"Gre1"}));
  EXPECT_THAT(tunnels(o.dumps[2]), ElementsAre("Gre1", "Gre2"));
  EXPECT_EQ(hwTargets(o.dumps[2], "g3"), Json::array({"Gre2"}));
  // The tunnel stays while a session uses it, and goes with the last one.
  EXPECT_THAT(tunnels(o.dumps[3]), ElementsAre("Gre1", "Gre2"));
  EXPECT_EQ(o.dumps[3][kStatus]["greTunnelKey"]["Gre1"], key);
  EXPECT_THAT(tunnels(o.dumps[4]), ElementsAre("Gre2"));
  EXPECT_EQ(o.dumps[4][kStatus]["greTunnelKeyToIntfId"].size(), 1u);
  EXPECT_THAT(tunnels(o.last()), IsEmpty());
  EXPECT_EQ(o.last()[kStatus]["greTunnelKeyToIntfId"], Json::array());
  EXPECT_EQ(o.last()[kHwConfig]["session"], Json::object());
  EXPECT_EQ(o.last()[kStatus]["sessionStatus"], Json::object());
  EXPECT_EQ(o.last()[kForwardingModel]["forwardingModelInput"], Json::object());

  // Gre1 was made once and removed once, though two sessions used it.
  EXPECT_EQ(count(o.out, "set", "mirroring/status/greTunnelKey/Gre1"), 1u);
  EXPECT_EQ(count(o.out, "del", "mirroring/status/greTunnelKey/Gre1"), 1u);
  EXPECT_LT(firstDel(o.out, "mirroring/status/greTunnelKey/Gre1"), firstDel(o.out, "mirroring/status/greTunnelKey/Gre2"));
}

// --- restart ---------------------------------------------------------------------------------

// What an earlier run of the agent left: session "kept" (still configured) programmed with id
// 3 and a source it no longer has, session "gone" (no longer configured) with id 2, a GRE
// tunnel no session uses, the forwarding models of both sessions' destinations, and one of a
// destination no status names any more.
Json leftovers(Json state) {
  state["mirroring/config"]["session"]["kept"] = session({{"Ethernet1", "rx"}}, {"Ethernet5"});
  state["mirroring/config"]["session"]["other"] = session({{"Ethernet2", "rx"}}, {"Ethernet6"});
  const Json notConfigured = inactive("Not Configured");
  Json status;
  status["sessionStatus"]["kept"] = {
      {"srcOperStatus", {{"Ethernet1", kActive}, {"Ethernet9", kActive}}},
      {"targetOperStatus", {{"Ethernet5", kActive}}},
      {"truncateOperStatus", notConfigured},
      {"mirrorDeviceName", "mirror3"}};
  status["sessionStatus"]["gone"] = {{"srcOperStatus", {{"Ethernet3", kActive}}},
                                     {"targetOperStatus", {{"Ethernet7", kActive}}},
                                     {"truncateOperStatus", notConfigured},
                                     {"mirrorDeviceName", "mirror2"}};
  const Json staleKey = {{"srcIpAddr", "10.0.0.1"}, {"dstIpAddr", "192.0.2.99"}};
  status["greTunnelKey"]["Gre5"] = staleKey;
  status["greTunnelKeyToIntfId"] = Json::array({{{"key", staleKey}, {"value", "Gre5"}}});
  state[kStatus] = status;
  Json hw;
  hw["kept"] = {{"srcIntf", {{"Ethernet1", {{"direction", "rx"}}}, {"Ethernet9", {{"direction", "rx"}}}}},
                {"targetIntf", {"Ethernet5"}},
                {"destIntf", "Ethernet5"},
                {"sessionId", 3}};
  hw["gone"] = {{"srcIntf", {{"Ethernet3", {{"direction", "rx"}}}}},
                {"targetIntf", {"Ethernet7"}},
                {"destIntf", "Ethernet7"},
                {"sessionId", 2}};
  state[kHwConfig]["session"] = hw;
  state[kForwardingModel]["forwardingModelInput"] = {
      {"Ethernet5", kQuietDataLink}, {"Ethernet7", kQuietDataLink}, {"Ethernet11", kQuietDataLink}};
  return state;
}

TEST_F(MirroringScenario, StartUpKeepsWhatIsStillConfiguredWithItsIdAndSweepsTheRest) {
  Outcome o = runScenario(leftovers(switchState(4)), {});
  Json d = o.last();

  EXPECT_THAT(keys(d[kStatus]["sessionStatus"]), ElementsAre("kept", "other"));
  EXPECT_THAT(keys(d[kHwConfig]["session"]), ElementsAre("kept", "other"));
  // "kept" keeps its id and device; the source it no longer has is swept from status and
  // hardware. "other" takes the lowest id that no hardware session holds.
  EXPECT_EQ(d[kHwConfig]["session"]["kept"]["sessionId"], 3);
  EXPECT_EQ(d[kStatus]["sessionStatus"]["kept"]["mirrorDeviceName"], "mirror3");
  EXPECT_EQ(d[kStatus]["sessionStatus"]["kept"]["srcOperStatus"], (Json{{"Ethernet1", kActive}}));
  EXPECT_THAT(keys(d[kHwConfig]["session"]["kept"]["srcIntf"]), ElementsAre("Ethernet1"));
  EXPECT_EQ(d[kHwConfig]["session"]["kept"]["targetIntf"], Json::array({"Ethernet5"}));
  EXPECT_EQ(d[kHwConfig]["session"]["other"]["sessionId"], 0);
  // The tunnel nobody claimed is gone from both maps; only configured destinations keep
  // their forwarding model.
  EXPECT_EQ(d[kStatus]["greTunnelKey"], Json::object());
  EXPECT_EQ(d[kStatus]["greTunnelKeyToIntfId"], Json::array());
  EXPECT_EQ(d[kForwardingModel]["forwardingModelInput"],
            (Json{{"Ethernet5", kQuietDataLink}, {"Ethernet6", kQuietDataLink}}));

  // "kept" was confirmed in place, not rebuilt: never erased, its id never rewritten, its
  // destination's forwarding model never withdrawn; what was swept was erased once each.
  EXPECT_EQ(firstDel(o.out, "mirroring/status/sessionStatus/kept/targetOperStatus/Ethernet5"), kNever);
  EXPECT_EQ(firstDel(o.out, "mirroring/hwconfig/session/kept/targetIntf/Ethernet5"), kNever);
  EXPECT_EQ(firstSet(o.out, "mirroring/hwconfig/session/kept/sessionId"), kNever);
  EXPECT_EQ(firstDel(o.out, "interface/input/forwardingmodel/mirroring/forwardingModelInput/Ethernet5"), kNever);
  for (const char* p : {"mirroring/status/sessionStatus/gone", "mirroring/hwconfig/session/gone",
                        "mirroring/status/greTunnelKey/Gre5",
                        "interface/input/forwardingmodel/mirroring/forwardingModelInput/Ethernet7",
                        "interface/input/forwardingmodel/mirroring/forwardingModelInput/Ethernet11",
                        "mirroring/status/sessionStatus/kept/srcOperStatus/Ethernet9",
                        "mirroring/hwconfig/session/kept/srcIntf/Ethernet9"}) {
    EXPECT_EQ(count(o.out, "del", p), 1u) << p;
  }
}

TEST_F(MirroringScenario, ARestartOverUnchangedInputsWritesNothing) {
  Json state = leftovers(switchState(4));
  state["ip/vrf/status/global"]["vrf"]["mgmt"] = {{"state", "vrfStateActive"}};
  state["mirroring/config"]["session"]["gre"] = greSession({"Ethernet4"}, "192.0.2.10", "mgmt");
  // A fourth session that loses Ethernet1 to "kept", a fifth that finds no room, and a
  // destination that goes down.
  const std::vector<std::string> work = {
      addSession("conflict", session({{"Ethernet1", "both"}}, {"Ethernet8"})),
      addSession("waiting", session({{"Ethernet10", "rx"}}, {"Ethernet11"})),
      setHwActive("Ethernet6", false),
  };
  Outcome plain = runScenario(state, work);
  Json statuses = plain.last()[kStatus]["sessionStatus"];
  ASSERT_THAT(keys(statuses), ElementsAre("conflict", "gre", "kept", "other"));
  EXPECT_EQ(statuses["conflict"]["srcOperStatus"]["Ethernet1"], inactive("Source Conflict"));
  EXPECT_EQ(statuses["other"]["targetOperStatus"]["Ethernet6"], inactive("Interface Mode Conflict"));
  EXPECT_EQ(statuses["gre"]["targetOperStatus"]["Gre1"], kActive);

  std::vector<std::string> withRestarts = work;
  withRestarts.insert(withRestarts.end(), {kRestart, kRestart});
  Outcome restarted = runScenario(state, withRestarts);
  EXPECT_TRUE(restarted.out == plain.out) << "the restarts wrote: " << firstDifference(plain.out, restarted.out);
  EXPECT_EQ(restarted.last(), plain.last());
  // Each new agent refuses "waiting" again, and raises nothing else.
  ASSERT_EQ(plain.syslog.size(), 1u);
  EXPECT_EQ(restarted.syslog, std::vector<Json>(3, plain.syslog[0]));
}

// --- refused for lack of room ----------------------------------------------------------------

TEST_F(MirroringScenario, SessionsBeyondTheLimitAreRefusedWithSyslogAndAdmittedWhenRoomIsFreed) {
  Json state = switchState(2);
  state["mirroring/config"]["session"]["s1"] = session({{"Ethernet1", "rx"}}, {"Ethernet5"});
  state["mirroring/config"]["session"]["s2"] = session({{"Ethernet2", "rx"}}, {"Ethernet6"});
  state["mirroring/config"]["session"]["s3"] = session({{"Ethernet3", "rx"}}, {"Ethernet7"});
  Outcome o = runScenario(state, {kDump, delSession("s2"), kDump,
                                  addSession("s4", session({{"Ethernet4", "rx"}}, {"Ethernet8"}))});
  ASSERT_EQ(o.dumps.size(), 3u);

  // The third session has neither status nor hardware session nor forwarding model.
  Json refused = o.dumps[0];
  EXPECT_THAT(keys(refused[kStatus]["sessionStatus"]), ElementsAre("s1", "s2"));
  EXPECT_THAT(keys(refused[kHwConfig]["session"]), ElementsAre("s1", "s2"));
  EXPECT_EQ(refused[kHwConfig]["session"]["s1"]["sessionId"], 0);
  EXPECT_EQ(refused[kHwConfig]["session"]["s2"]["sessionId"], 1);
  EXPECT_FALSE(refused[kForwardingModel]["forwardingModelInput"].contains("Ethernet7"));

  // Deleting s2 admits s3 with the id s2 freed (1, not the unused 2), fully programmed.
  Json admitted = o.dumps[1];
  EXPECT_THAT(keys(admitted[kStatus]["sessionStatus"]), ElementsAre("s1", "s3"));
  EXPECT_EQ(admitted[kHwConfig]["session"]["s3"]["sessionId"], 1);
  EXPECT_EQ(admitted[kStatus]["sessionStatus"]["s3"]["mirrorDeviceName"], "mirror1");
  EXPECT_EQ(admitted[kStatus]["sessionStatus"]["s3"]["srcOperStatus"], (Json{{"Ethernet3", kActive}}));
  EXPECT_EQ(admitted[kHwConfig]["session"]["s3"]["targetIntf"], Json::array({"Ethernet7"}));
  EXPECT_EQ(admitted[kForwardingModel]["forwardingModelInput"],
            (Json{{"Ethernet5", kQuietDataLink}, {"Ethernet7", kQuietDataLink}}));
  // s3's status is made only once s2's is gone.
  auto s2Gone = firstDel(o.out, "mirroring/status/sessionStatus/s2");
  ASSERT_NE(s2Gone, kNever);
  EXPECT_LT(s2Gone, firstSet(o.out, "mirroring/status/sessionStatus/s3"));

  // A session added while the room is taken is refused in turn.
  EXPECT_THAT(keys(o.last()[kStatus]["sessionStatus"]), ElementsAre("s1", "s3"));
  EXPECT_THAT(o.syslog,
              ElementsAre(Json{{"key", "MIRRORING_NOSESSIONGROUPS"},
                               {"severity", "warning"},
                               {"text", "Insufficient hardware resources to allocate mirror session s3. The current "
                                        "limit on the number of mirror sessions is 2."}},
                          Json{{"key", "MIRRORING_NOSESSIONGROUPS"},
                               {"severity", "warning"},
                               {"text", "Insufficient hardware resources to allocate mirror session s4. The current "
                                        "limit on the number of mirror sessions is 2."}}));
}

// --- restart anywhere ------------------------------------------------------------------------

// A session keeps its hardware id across a restart through its hardware copy; a session that
// has none (no active destination) is numbered afresh by the new agent, in configuration
// order, and its device name ("mirror<id>") follows. Those names are left out of comparisons.
Json withoutUnprogrammedIds(Json dump) {
  const Json programmed = dump[kHwConfig]["session"];
  for (auto& [name, status] : dump[kStatus]["sessionStatus"].items()) {
    if (!programmed.contains(name)) status.erase("mirrorDeviceName");
  }
  return dump;
}

TEST_F(MirroringScenario, ARestartAnywhereInTheStreamEndsInTheSameStates) {
  Json state = switchState(4);
  state["lag/config"]["phyIntf"]["Ethernet9"] = {{"lag", "Port-Channel1"}};
  state["lag/config"]["phyIntf"]["Ethernet12"] = {{"lag", ""}};
  const std::vector<std::string> stream = {
      addSession("s1", session({{"Ethernet1", "both"}}, {"Ethernet5"})),
      // Ethernet1 is s1's in both directions: a conflict for s2.
      addSession("s2", session({{"Ethernet1", "rx"}, {"Ethernet2", "rx"}, {"Ethernet12", "rx"}}, {"Ethernet6"})),
      // A GRE session whose VRF does not exist yet, and then does.
      addSession("g1", greSession({"Ethernet3"}, "192.0.2.1", "red")),
      R"({"op":"set","path":"ip/vrf/status/global/vrf/red","value":{"state":"vrfStateActive"}})",
      setHwActive("Ethernet5", false),
      // A port-channel source with one of its members, into a port-channel.
      addSession("s3", session({{"Port-Channel1", "rx"}, {"Ethernet9", "rx"}}, {"Port-Channel2"})),
      // One of s2's sources joins that port-channel.
      R"({"op":"set","path":"lag/config/phyIntf/Ethernet12/lag","value":"Port-Channel1"})",
      // No room: s4 waits until s1 goes, and then finds s2 on its destination.
      addSession("s4", session({{"Ethernet10", "rx"}}, {"Ethernet6"})),
      setHwActive("Ethernet5", true),
      delSession("s1"),
      R"({"op":"del","path":"lag/config/phyIntf/Ethernet9"})",
      R"({"op":"set","path":"mirroring/config/session/s3/targetIntf/Ethernet8"})",
      R"({"op":"del","path":"mirroring/config/session/s2/targetIntf/Ethernet6"})",
      R"({"op":"del","path":"ip/vrf/status/global/vrf/red"})",
  };
  // A dump after every line, so that every state on the way is compared, not only the last.
  auto withDumps = [&](std::optional<std::size_t> restartAt) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < stream.size(); ++i) {
      if (restartAt == i) lines.push_back(kRestart);
      lines.push_back(stream[i]);
      lines.push_back(kDump);
    }
    if (restartAt == stream.size()) lines.push_back(kRestart);
    return lines;
  };
  Outcome plain = runScenario(state, withDumps(std::nullopt));
  ASSERT_EQ(plain.dumps.size(), stream.size() + 1);

  // The stream does what it says, so that the comparisons below compare something.
  auto statusAfter = [&](std::size_t line, const std::string& session, const std::string& field,
                         const std::string& intf) {
    return plain.dumps[line - 1][kStatus]["sessionStatus"][session][field][intf];
  };
  EXPECT_EQ(statusAfter(2, "s2", "srcOperStatus", "Ethernet1"), inactive("Source Conflict"));
  EXPECT_EQ(statusAfter(3, "g1", "targetOperStatus", "Gre1"), inactive("VRF red is not configured."));
  EXPECT_EQ(statusAfter(4, "g1", "targetOperStatus", "Gre1"), kActive);
  EXPECT_EQ(statusAfter(5, "s1", "targetOperStatus", "Ethernet5"), inactive("Interface Mode Conflict"));
  EXPECT_EQ(statusAfter(6, "s3", "srcOperStatus", "Ethernet9"), inactive("Member of a source LAG"));
  EXPECT_EQ(statusAfter(7, "s2", "srcOperStatus", "Ethernet12"), inactive("Member of a source LAG"));
  EXPECT_FALSE(plain.dumps[7][kStatus]["sessionStatus"].contains("s4")) << "no room for s4";
  EXPECT_EQ(statusAfter(9, "s1", "targetOperStatus", "Ethernet5"), kActive);
  EXPECT_EQ(statusAfter(10, "s2", "srcOperStatus", "Ethernet1"), kActive);
  EXPECT_EQ(statusAfter(10, "s4", "targetOperStatus", "Ethernet6"), inactive("Destination Conflict"));
  EXPECT_EQ(statusAfter(11, "s3", "srcOperStatus", "Ethernet9"), kActive);
  EXPECT_EQ(statusAfter(12, "s3", "targetOperStatus", "Ethernet8"), inactive("Multiple ports are not supported"));
  EXPECT_EQ(statusAfter(13, "s4", "targetOperStatus", "Ethernet6"), kActive);
  EXPECT_EQ(statusAfter(14, "g1", "targetOperStatus", "Gre1"), inactive("VRF red is not configured."));
  Json end = plain.last();
  EXPECT_THAT(keys(end[kStatus]["sessionStatus"]), ElementsAre("g1", "s2", "s3", "s4"));
  EXPECT_THAT(keys(end[kHwConfig]["session"]), ElementsAre("s3", "s4"));
  EXPECT_EQ(end[kHwConfig]["session"]["s4"]["sessionId"], 0) << "the id s1 freed";
  EXPECT_EQ(end[kForwardingModel]["forwardingModelInput"],
            (Json{{"Ethernet6", kQuietDataLink}, {"Port-Channel2", kQuietDataLink}}));

  for (std::size_t at = 0; at <= stream.size(); ++at) {
    Outcome restarted = runScenario(state, withDumps(at));
    ASSERT_EQ(restarted.dumps.size(), plain.dumps.size()) << "restart before line " << at + 1;
    for (std::size_t d = 0; d < plain.dumps.size(); ++d) {
      Json expected = withoutUnprogrammedIds(plain.dumps[d]);
      Json actual = withoutUnprogrammedIds(restarted.dumps[d]);
      EXPECT_TRUE(actual == expected) << "restart before line " << at + 1 << ", dump " << d + 1 << " differs by "
                                      << Json::diff(expected, actual).dump();
    }
  }
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
// line; then the same stream with a restart before any one line ends in the same states.
TEST_F(MirroringScenario, TheOptionsWalkthroughRunsAsItsReadmeTells) {
  const Json state = Json::parse(readFile(kExample / "state.json"));
  const std::vector<std::string> stream = exampleStream("options.jsonl");
  ASSERT_EQ(stream.back(), kRestart);
  auto withDumps = [&](std::optional<std::size_t> restartAt) {
    std::vector<std::string> out;
    for (std::size_t i = 0; i < stream.size(); ++i) {
      if (restartAt == i) out.push_back(kRestart);
      out.push_back(stream[i]);
      out.push_back(kDump);
    }
    return out;
  };
  Outcome o = runScenario(state, withDumps(std::nullopt));
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

  // The restart at the end writes nothing; one anywhere else ends in the same states.
  Outcome whole = runScenario(state, stream);
  EXPECT_TRUE(whole.out == noRestart.out) << firstDifference(noRestart.out, whole.out);
  for (std::size_t at = 0; at + 1 < stream.size(); ++at) {
    Outcome restarted = runScenario(state, withDumps(at));
    ASSERT_EQ(restarted.dumps.size(), o.dumps.size()) << "restart before line " << at + 1;
    for (std::size_t d = 0; d < o.dumps.size(); ++d) {
      Json expected = withoutUnprogrammedIds(o.dumps[d]);
      Json actual = withoutUnprogrammedIds(restarted.dumps[d]);
      EXPECT_TRUE(actual == expected) << "restart before line " << at + 1 << ", dump " << d + 1 << " differs by "
                                      << Json::diff(expected, actual).dump();
    }
  }
}

// --- LAG members and restarts ----------------------------------------------------------------

TEST_F(MirroringScenario, MembersFollowTheirPortChannelBeingUsedAsASourceElsewhere) {
  Json state = switchState(8);
  state["lag/config"]["phyIntf"]["Ethernet3"] = {{"lag", "Port-Channel2"}};
  state["lag/config"]["phyIntf"]["Ethernet4"] = {{"lag", "Port-Channel1"}};
  state["mirroring/config"]["session"]["a"] = session({{"Port-Channel1", "rx"}}, {"Ethernet5"});
  state["mirroring/config"]["session"]["b1"] = session({{"Ethernet2", "rx"}}, {"Ethernet6"});
  state["mirroring/config"]["session"]["b2"] = session({{"Ethernet3", "rx"}}, {"Ethernet7"});
  state["mirroring/config"]["session"]["b3"] = session({{"Ethernet4", "rx"}}, {"Ethernet9"});
  Outcome o = runScenario(
      state, {// Ethernet2 joins Port-Channel1, a source of a, by a new membership entry.
              R"({"op":"set","path":"lag/config/phyIntf/Ethernet2","value":{"lag":"Port-Channel1"}})", kDump,
              // Port-Channel2, which Ethernet3 is a member of, becomes a source.
              addSession("c", session({{"Port-Channel2", "rx"}}, {"Ethernet8"})), kDump,
              // Port-Channel1 stops being a source.
              delSession("a")});
  ASSERT_EQ(o.dumps.size(), 3u);
  ASSERT_EQ(o.dumps[0][kStatus]["sessionStatus"]["b3"]["srcOperStatus"]["Ethernet4"], inactive("Member of a source LAG"));
  EXPECT_EQ(o.dumps[0][kStatus]["sessionStatus"]["b1"]["srcOperStatus"]["Ethernet2"], inactive("Member of a source LAG"));
  EXPECT_EQ(o.dumps[1][kStatus]["sessionStatus"]["b2"]["srcOperStatus"]["Ethernet3"], inactive("Member of a source LAG"));
  EXPECT_EQ(o.dumps[2][kStatus]["sessionStatus"]["b3"]["srcOperStatus"]["Ethernet4"], kActive);
}

TEST_F(MirroringScenario, ARestartKeepsTheOneDestinationThatWonWithoutTouchingTheOther) {
  // Hardware with one destination per session; Ethernet5 sorts before the destination that
  // won, Ethernet7.
  Json state = switchState(4);
  state["mirroring/config"]["session"]["s"] = session({{"Ethernet1", "rx"}}, {"Ethernet7"});
  const std::string second = R"({"op":"set","path":"mirroring/config/session/s/targetIntf/Ethernet5"})";
  Outcome plain = runScenario(state, {second});
  ASSERT_EQ(plain.last()[kStatus]["sessionStatus"]["s"]["targetOperStatus"]["Ethernet5"],
            inactive("Multiple ports are not supported"));
  Outcome restarted = runScenario(state, {second, kRestart});
  EXPECT_TRUE(restarted.out == plain.out) << firstDifference(plain.out, restarted.out);
}

}  // namespace
