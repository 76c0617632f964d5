// End-to-end tests of mirroringd: the real executable, the test agent plug-in, temporary
// state files and change streams, and assertions on the dump, the change stream out, the
// syslog lines, the exit code and the messages on standard error.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "MirroringdRunner.h"

using namespace hosttest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

const char* const baseState = R"({
  "test/config": {"value": "hello", "item": {"a": true, "b": false}},
  "test/status": {"item": {"a": true, "leftover": true}}
})";

TEST_F(MirroringdTest, LoadsTheStateStartsTheAgentAndDumpsAllOrNamedMounts) {
  const std::string state = R"({
    "test/config": {"value": "hello", "color": 2, "vrf": "red", "item": {"a": true, "b": false},
                    "port": {"Ethernet3/1": {"enabled": true}}, "tag": ["x", "y"],
                    "tunnel": [{"key": {"src": "10.0.0.1", "dst": "10.0.0.2"}, "value": "t1"}]},
    "test/status": {"item": {"a": true, "leftover": true}},
    "test/dir": {"entry": {"n1": {"@type": "Test::Note", "text": "hi"},
                           "slice0": {"@type": "Hardware::SliceStatus", "ready": true}}}
  })";
  Json dump = dumpAfter(state, "");
  EXPECT_EQ(dump["test/config"]["color"], "blue") << "enumerations are written by name";
  EXPECT_EQ(dump["test/config"]["vrf"], "red");
  EXPECT_EQ(dump["test/config"]["port"]["Ethernet3/1"]["enabled"], true);
  EXPECT_EQ(dump["test/config"]["tag"], Json::parse(R"(["x", "y"])"));
  EXPECT_EQ(dump["test/config"]["tunnel"][0]["key"]["ttl"], 64) << "unnamed key members keep their defaults";
  EXPECT_EQ(dump["test/dir"]["entry"]["n1"]["@type"], "Test::Note");
  EXPECT_EQ(dump["test/dir"]["entry"]["slice0"]["ready"], true) << "the host registered the platform's types";
  // The agent started: it reconciled what an earlier run left in its status.
  EXPECT_EQ(dump["test/status"]["mirror"], "hello");
  EXPECT_EQ(dump["test/status"]["mirrorLength"], 5);
  EXPECT_EQ(dump["test/status"]["item"], Json::parse(R"({"a": true, "b": false})"));
  EXPECT_EQ(dump["test/local"]["starts"], 1);
  EXPECT_EQ(dump["test/status"]["tunnel"], dump["test/config"]["tunnel"]);

  // Named mounts only, to standard output.
  Result r = run({"--quiet-syslog", "--dump", "-", "--dump-mount", "test/local", "--dump-mount", "test/status",
                  file("state.json", state)});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  auto docs = documents(r.out);
  ASSERT_EQ(docs.size(), 1u);
  std::vector<std::string> mounts;
  for (const auto& [k, v] : docs[0].items()) mounts.push_back(k);
  EXPECT_THAT(mounts, ElementsAre("test/local", "test/status"));

  // Without a state file the mounts start empty.
  r = run({"--quiet-syslog", "--dump", "-", "--dump-mount", "test/status"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(documents(r.out).at(0)["test/status"]["item"], Json::object());
}

TEST_F(MirroringdTest, ChangeStreamOutHoldsExactlyTheAgentsWritesCauseBeforeEffect) {
  const std::string changes =
      "# a comment, then a blank line\n"
      "\n"
      R"({"op":"set","path":"test/config/value","value":"bye"})" "\n"
      R"({"op":"merge","path":"test/config/item","value":{"c":true,"a":true}})" "\n"
      R"({"op":"del","path":"test/config/item/b"})" "\n"
      R"({"op":"set","path":"test/config/shutdown/Ethernet3/1"})" "\n"
      R"({"op":"set","path":"test/config/tunnel","key":{"src":"1.1.1.1","dst":"2.2.2.2"},"value":"t"})" "\n"
      R"({"op":"set","path":"test/config/tag","value":["only","config"]})" "\n"
      R"({"op":"set","path":"test/config/item/a","value":true})" "\n"
      // A string key may hold an interface name with '/', in the path as it is.
      R"({"op":"set","path":"test/config/item/Ethernet3/1","value":false})" "\n";
  Result r;
  Json dump = dumpAfter(baseState, changes, {"--changes-out", path("out.jsonl")}, &r);
  // Start-up first (local entity, sweep of the leftover), then each line's effects in order.
  // Nothing for test/config, which the agent only reads; nothing for lines that change nothing.
  EXPECT_THAT(lines(readFile(path("out.jsonl"))),
              ElementsAre(R"({"op":"set","path":"test/local/starts","value":1})",
                          R"({"op":"set","path":"test/status/item/b","value":false})",
                          R"({"op":"del","path":"test/status/item/leftover"})",
                          R"({"op":"set","path":"test/status/mirror","value":"hello"})",
                          R"({"op":"set","path":"test/status/mirrorLength","value":5})",
                          R"({"op":"set","path":"test/status/mirror","value":"bye"})",
                          R"({"op":"set","path":"test/status/mirrorLength","value":3})",
                          R"({"op":"set","path":"test/status/item/c","value":true})",
                          R"({"op":"del","path":"test/status/item/b"})",
                          R"({"op":"set","path":"interface/errdisable/cause/tapagg/intfStatus/Ethernet3/1","value":0.0})",
                          R"({"op":"set","path":"test/status/tunnel","key":{"src":"1.1.1.1","dst":"2.2.2.2","ttl":64},"value":"t"})",
                          R"({"op":"set","path":"test/status/item/Ethernet3/1","value":false})"));
  EXPECT_EQ(dump["test/status"]["item"], Json::parse(R"({"Ethernet3/1": false, "a": true, "c": true})"));
  EXPECT_EQ(dump["test/config"]["tag"], Json::parse(R"(["config", "only"])"));

  // The change stream out is a change stream in the input's format: replayed over the same
  // starting state into a database no agent writes, every line is accepted and the result is
  // what the agent left.
  Json replayed = dumpAfter(baseState, readFile(path("out.jsonl")), {"--strict", "--agent", "Passive"});
  for (const char* m : {"test/status", "test/local", "interface/errdisable/cause/tapagg"}) {
    EXPECT_EQ(replayed[m], dump[m]) << m;
  }
}

TEST_F(MirroringdTest, SetReplacesWhatThePathNamesAndMergeWritesOnlyWhatTheValueNames) {
  const std::string state = R"({"test/config": {
    "value": "v", "color": "green", "item": {"a": true, "b": true}, "tag": ["x"],
    "port": {"Ethernet1": {"enabled": true, "description": "up"}},
    "defaultTunnel": {"src": "1.1.1.1", "dst": "2.2.2.2", "ttl": 5}}})";
  const std::string changes =
      R"({"op":"merge","path":"test/config","value":{"color":"blue","item":{"c":false},"tag":["y"]}})" "\n"
      R"({"op":"dump","mounts":["test/config"]})" "\n"
      R"({"op":"set","path":"test/config/item","value":{"d":true}})" "\n"
      R"({"op":"set","path":"test/config/port/Ethernet1","value":{"description":"down"}})" "\n"
      R"({"op":"merge","path":"test/config/defaultTunnel","value":{"ttl":9}})" "\n"
      R"({"op":"dump","mounts":["test/config"]})" "\n"
      R"({"op":"set","path":"test/config/defaultTunnel","value":{"dst":"3.3.3.3"}})" "\n"
      R"({"op":"dump","mounts":["test/config"]})" "\n"
      R"({"op":"set","path":"test/config","value":{"value":"w"}})" "\n";
  Json last = dumpAfter(state, changes);
  auto dumps = documents(readFile(path("dump.json")));
  ASSERT_EQ(dumps.size(), 4u);
  const Json& merged = dumps[0]["test/config"];
  EXPECT_EQ(merged["value"], "v");
  EXPECT_EQ(merged["color"], "blue");
  EXPECT_EQ(merged["item"], Json::parse(R"({"a": true, "b": true, "c": false})"));
  EXPECT_EQ(merged["tag"], Json::parse(R"(["x", "y"])"));
  const Json& set = dumps[1]["test/config"];
  EXPECT_EQ(set["item"], Json::parse(R"({"d": true})")) << "entries a set does not name are erased";
  EXPECT_EQ(set["port"]["Ethernet1"], Json::parse(R"({"enabled": false, "description": "down"})"))
      << "fields a set does not name go back to their defaults";
  EXPECT_EQ(set["defaultTunnel"], Json::parse(R"({"src": "1.1.1.1", "dst": "2.2.2.2", "ttl": 9})"));
  EXPECT_EQ(dumps[2]["test/config"]["defaultTunnel"], Json::parse(R"({"src": "", "dst": "3.3.3.3", "ttl": 64})"))
      << "a struct that is set takes defaults for what it does not name";
  // A whole mount that is set keeps only what the value names.
  const Json& root = last["test/config"];
  EXPECT_EQ(root["value"], "w");
  EXPECT_EQ(root["item"], Json::object());
  EXPECT_EQ(root["port"], Json::object());
  EXPECT_EQ(root["color"], "red");
  EXPECT_EQ(root["defaultTunnel"]["ttl"], 64);
  EXPECT_EQ(last["test/status"]["mirror"], "w");
  EXPECT_EQ(last["test/status"]["item"], Json::object()) << "the agent followed the erased entries";
}

TEST_F(MirroringdTest, RestartKeepsTheDatabaseAndTheNewAgentSweepsOnlyWhatIsNoLongerConfigured) {
  const std::string changes =
      R"({"op":"set","path":"test/config/value","value":"changed"})" "\n"
      R"({"op":"set","path":"test/config/item/c","value":true})" "\n"
      // Plant a status entry no configuration backs, as a crashed agent might have left it.
      R"({"op":"set","path":"test/status/item/stale","value":true})" "\n"
      R"({"op":"dump","mounts":["test/status","test/local"]})" "\n"
      R"({"op":"restart"})" "\n"
      R"({"op":"dump","mounts":["test/status","test/local"]})" "\n"
      R"({"op":"set","path":"test/config/item/d","value":false})" "\n";
  Result r;
  Json last = dumpAfter(baseState, changes, {"--changes-out", path("out.jsonl")}, &r);
  auto dumps = documents(readFile(path("dump.json")));
  ASSERT_EQ(dumps.size(), 3u) << "two dump commands and the final dump";
  EXPECT_EQ(dumps[0]["test/status"]["item"], Json::parse(R"({"a": true, "b": false, "c": true, "stale": true})"));
  EXPECT_EQ(dumps[0]["test/local"]["starts"], 1);
  // The new agent found everything (the state file was not loaded again: value stays
  // "changed") and removed only the entry that nothing configures.
  EXPECT_EQ(dumps[1]["test/status"]["item"], Json::parse(R"({"a": true, "b": false, "c": true})"));
  EXPECT_EQ(dumps[1]["test/status"]["mirror"], "changed");
  EXPECT_EQ(dumps[1]["test/local"]["starts"], 2);
  EXPECT_EQ(last["test/status"]["item"], Json::parse(R"({"a": true, "b": false, "c": true, "d": false})"));
  EXPECT_EQ(last["test/config"]["value"], "changed");

  // Restarting over unchanged inputs rewrites nothing: after the planted entry, the only
  // writes are the start count, the sweep of the planted entry and the last line's effect.
  auto out = lines(readFile(path("out.jsonl")));
  auto planted = std::find(out.begin(), out.end(), R"({"op":"set","path":"test/status/item/stale","value":true})");
  ASSERT_NE(planted, out.end()) << "a host write to a writable mount is in the stream too";
  EXPECT_THAT(std::vector<std::string>(planted + 1, out.end()),
              ElementsAre(R"({"op":"set","path":"test/local/starts","value":2})",
                          R"({"op":"del","path":"test/status/item/stale"})",
                          R"({"op":"set","path":"test/status/item/d","value":false})"));
}

TEST_F(MirroringdTest, ARestartAnywhereInTheStreamEndsInTheSameState) {
  const std::vector<std::string> stream = {
      R"({"op":"set","path":"test/config/value","value":"one"})",
      R"({"op":"merge","path":"test/config/item","value":{"c":true,"d":false}})",
      R"({"op":"set","path":"test/config/shutdown","value":["Ethernet1","Ethernet2/1"]})",
      R"({"op":"del","path":"test/config/item/a"})",
      R"({"op":"set","path":"test/config/tunnel","key":{"src":"1.1.1.1","dst":"2.2.2.2"},"value":"t"})",
      R"({"op":"del","path":"test/config/shutdown/Ethernet1"})",
      R"({"op":"set","path":"test/config/value","value":"two"})",
  };
  auto agentMounts = [](const Json& dump) {
    Json out = dump;
    out.erase("test/local");  // counts the starts, so it differs by design
    return out;
  };
  std::string plain;
  for (const auto& line : stream) plain += line + "\n";
  const Json expected = agentMounts(dumpAfter(baseState, plain));
  for (std::size_t at = 0; at <= stream.size(); ++at) {
    std::string withRestart;
    for (std::size_t i = 0; i < stream.size(); ++i) {
      if (i == at) withRestart += "{\"op\":\"restart\"}\n";
      withRestart += stream[i] + "\n";
    }
    if (at == stream.size()) withRestart += "{\"op\":\"restart\"}\n";
    EXPECT_EQ(agentMounts(dumpAfter(baseState, withRestart)), expected) << "restart before line " << at + 1;
  }
}

TEST_F(MirroringdTest, AdvanceMovesTheVirtualClockAndFiresTimersAtTheirTimes) {
  const std::string changes =
      R"({"op":"set","path":"test/config/interval","value":4})" "\n"
      R"({"op":"advance","seconds":3})" "\n"
      R"({"op":"dump","mounts":["test/status"]})" "\n"
      R"({"op":"advance","seconds":7.5})" "\n"
      R"({"op":"dump","mounts":["test/status"]})" "\n"
      R"({"op":"set","path":"test/config/interval","value":0})" "\n"
      R"({"op":"advance","seconds":100})" "\n";
  Json last = dumpAfter("{}", changes, {"--clock-start", "100"});
  auto dumps = documents(readFile(path("dump.json")));
  ASSERT_EQ(dumps.size(), 3u);
  EXPECT_EQ(dumps[0]["test/status"]["tick"], 0) << "nothing is due before 104";
  EXPECT_EQ(dumps[1]["test/status"]["tick"], 2);
  EXPECT_EQ(dumps[1]["test/status"]["lastTickAt"], 108.0) << "each timer fires at its own time";
  EXPECT_EQ(last["test/status"]["tick"], 2) << "a disarmed timer stays quiet";
}

TEST_F(MirroringdTest, StartUpErrorsExitWithTwoAndSayWhatIsWrong) {
  struct Case {
    std::string name;
    std::vector<std::string> args;
    std::vector<std::string> says;
  };
  // Bad state files are in the catalogue of bad input (BadInputTest.cpp).
  const std::vector<Case> cases = {
      {"missing state file", {path("absent.json")}, {path("absent.json") + ": cannot open"}},
      {"missing change stream", {"--changes", path("absent.jsonl")}, {"cannot open " + path("absent.jsonl")}},
      {"unknown option", {"--frobnicate"}, {"unknown option --frobnicate"}},
      {"missing value", {"--changes"}, {"option --changes needs a value"}},
      {"bad clock", {"--clock-start", "soon"}, {"--clock-start needs a number"}},
      {"bad trace", {"--trace", "TestAgent/12"}, {"--trace: "}},
      {"unknown dump mount", {"--dump-mount", "nowhere"}, {"--dump-mount: unknown mount \"nowhere\""}},
      {"mount group left open", {"--agent", "Unclosed"}, {"agent \"Unclosed\" did not close its mount group"}},
  };
  for (const auto& c : cases) {
    Result r = run(c.args);
    EXPECT_EQ(r.exitCode, 2) << c.name << ": " << r.err;
    for (const auto& s : c.says) EXPECT_THAT(r.err, HasSubstr(s)) << c.name;
  }

  Result r = run({"--plugin", path("libNothing.so")}, "", {}, false);
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_THAT(r.err, HasSubstr("cannot load agent plug-in " + path("libNothing.so")));
  // The environment names the plug-in when --plugin does not.
  r = run({"--dump", "-", "--dump-mount", "test/local"}, "", {{"MIRRORINGD_PLUGIN", TEST_AGENT_PATH}}, false);
  EXPECT_EQ(r.exitCode, 0) << r.err;
}

TEST_F(MirroringdTest, SyslogGoesToStandardErrorAndJsonLinesAndTogglesAndTraceAreHonoured) {
  std::string changes = R"({"op":"set","path":"test/config/value","value":"alarm"})" "\n";
  std::string stream = file("changes.jsonl", changes);
  fs::create_directory(dir_ / "toggles");
  file("toggles/TestAgent.json", R"({"AlarmOnAlarm": true})");
  Result r = run({"--toggles", path("toggles"), "--syslog-json", path("syslog.jsonl"), "--changes", stream});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_THAT(lines(r.err), ElementsAre("TEST-4-VALUE_ALARM (warning): Value of test/config/value set to alarm",
                                        "mirroringd: 1 line read, 1 change applied, 0 commands run, 0 lines "
                                        "rejected; writes: test/config 1, test/local 1, test/status 2, total 4"));
  EXPECT_THAT(lines(readFile(path("syslog.jsonl"))),
              ElementsAre(R"({"key":"TEST-4-VALUE_ALARM","severity":"warning","text":"Value of test/config/value set to alarm"})"));

  // Quiet: neither the readable line nor the summary nor warnings about missing toggle files;
  // the JSON lines are still written.
  fs::remove(path("syslog.jsonl"));
  r = run({"--quiet-syslog", "--syslog-json", path("syslog.jsonl"), "--changes", stream});
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(lines(readFile(path("syslog.jsonl"))).size(), 1u);

  // A toggle file switches the message off.
  file("toggles/TestAgent.json", R"({"AlarmOnAlarm": false})");
  r = run({"--toggles", path("toggles"), "--changes", stream});
  EXPECT_THAT(r.err, Not(HasSubstr("TEST-4-VALUE_ALARM")));

  // Trace by facility and level, from the option or else from TRACE.
  r = run({"--quiet-syslog", "--trace", "TestAgent/0", "--changes", stream});
  EXPECT_THAT(r.err, HasSubstr("TestAgent/0 TestAgent::doInit"));
  EXPECT_THAT(r.err, Not(HasSubstr("TestAgent/1 ")));
  r = run({"--quiet-syslog", "--changes", stream}, "", {{"TRACE", "TestAgent/1"}});
  EXPECT_THAT(r.err, HasSubstr("TestAgent/1 ConfigSm::handleValue alarm"));
  EXPECT_THAT(r.err, Not(HasSubstr("TestAgent/0 ")));
}

TEST_F(MirroringdTest, ViewAndListMessagesShowWhatAnOperatorNeeds) {
  std::string changes = R"({"op":"set","path":"test/config/shutdown","value":["Ethernet10","Ethernet4"]})" "\n"
                        R"({"op":"view"})" "\n"
                        R"({"op":"advance","seconds":2.5})" "\n"
                        R"({"op":"set","path":"test/config/shutdown/Ethernet3/1"})" "\n";
  Result r = run({"--quiet-syslog", "--clock-start", "50", "--view", "--changes", file("changes.jsonl", changes)});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out,
            "Errdisabled interfaces\n"
            "----------------------\n"
            "Interface   Cause   Since\n"
            "Ethernet4   tapagg  50.0\n"
            "Ethernet10  tapagg  50.0\n"
            "Errdisabled interfaces\n"
            "----------------------\n"
            "Interface    Cause   Since\n"
            "Ethernet3/1  tapagg  52.5\n"
            "Ethernet4    tapagg  50.0\n"
            "Ethernet10   tapagg  50.0\n");

  r = run({"--list-messages"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_THAT(r.out, HasSubstr("TEST-4-VALUE_ALARM\n"
                               "  Severity:           warning\n"
                               "  Format:             Value of %s set to %s\n"
                               "  Explanation:        The test configuration's value was set to the word that "
                               "raises this message.\n"
                               "  Recommended action: Set the value to anything else.\n"));
}

TEST_F(MirroringdTest, EveryProgramAnswersHelpWithItsUsageAndWritesNothing) {
  std::vector<std::pair<std::string, std::string>> programs = {{MIRRORINGD_PATH, "usage: mirroringd"}};
#ifdef SCALE_SWITCH_STATE_PATH
  programs.push_back({SCALE_SWITCH_STATE_PATH, "STATE_FILE"});
#endif
  for (const char* script : {"scripts/install-deps.sh", "scripts/run-example.sh", "scripts/test.sh", "bench/run.sh",
                             "bench/agent.sh", ".ci/run"}) {
    programs.push_back({std::string(SOURCE_DIR) + "/" + script, script});
  }
  const std::set<fs::path> before{fs::directory_iterator(dir_), fs::directory_iterator()};
  for (const auto& [program, usage] : programs) {
    Result r = runProgram(program, {"--help"});
    EXPECT_EQ(r.exitCode, 0) << program << ": " << r.err;
    EXPECT_THAT(r.out, HasSubstr(usage)) << program;
    std::set<fs::path> now{fs::directory_iterator(dir_), fs::directory_iterator()};
    for (const char* own : {"stdin.txt", "stdout.txt", "stderr.txt"}) now.erase(dir_ / own);
    EXPECT_EQ(now, before) << program << " wrote into its working directory";
  }

  Result r = run({"--version"}, "", {}, false);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_THAT(r.out, ::testing::MatchesRegex("mirroringd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
