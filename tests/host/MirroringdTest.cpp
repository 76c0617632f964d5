// End-to-end tests of mirroringd beyond the examples of docs/formats.md (FormatsDocTest runs
// those): the real executable, the test agent plug-in, temporary state files and change
// streams. What the host does on restart is checked by the consistency checker, which runs the
// same host library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "MirroringdRunner.h"

using namespace hosttest;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

const char* const baseState = R"({
  "test/config": {"value": "hello", "item": {"a": true, "b": false}},
  "test/status": {"item": {"a": true, "leftover": true}}
})";

TEST_F(MirroringdTest, TheChangeStreamOutReplaysToWhatTheAgentLeft) {
  // Over the same starting state, into a database no agent writes, every line of the change
  // stream out is accepted and the result is what the agent left: also across a restart, and
  // with a host write to a writable mount (a planted entry the new agent sweeps).
  const std::string changes =
      R"({"op":"set","path":"test/config/value","value":"bye"})" "\n"
      R"({"op":"merge","path":"test/config/item","value":{"c":true,"a":true}})" "\n"
      R"({"op":"del","path":"test/config/item/b"})" "\n"
      R"({"op":"set","path":"test/config/shutdown/Ethernet3/1"})" "\n"
      R"({"op":"set","path":"test/config/tunnel","key":{"src":"1.1.1.1","dst":"2.2.2.2"},"value":"t"})" "\n"
      R"({"op":"set","path":"test/status/item/stale","value":true})" "\n"
      R"({"op":"restart"})" "\n"
      R"({"op":"set","path":"test/config/item/Ethernet3/1","value":false})" "\n";
  Json dump = dumpAfter(baseState, changes, {"--changes-out", path("out.jsonl")});
  EXPECT_EQ(dump["test/status"]["item"], Json::parse(R"({"Ethernet3/1": false, "a": true, "c": true})"));
  Json replayed = dumpAfter(baseState, readFile(path("out.jsonl")), {"--strict", "--agent", "Passive"});
  for (const char* m : {"test/status", "test/local", "interface/errdisable/cause/tapagg"}) {
    EXPECT_EQ(replayed[m], dump[m]) << m;
  }
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
      // Every refusal of the command line is one (OptionsTest.cpp has them all).
      {"unknown option", {"--frobnicate"}, {"unknown option --frobnicate"}},
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

TEST_F(MirroringdTest, QuietSyslogStillWritesJsonLinesAndTraceFallsBackOnTheEnvironment) {
  std::string stream = file("changes.jsonl", R"({"op":"set","path":"test/config/value","value":"alarm"})" "\n");
  // Quiet: neither the readable line nor the summary nor warnings about missing toggle files.
  Result r = run({"--quiet-syslog", "--syslog-json", path("syslog.jsonl"), "--changes", stream});
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(lines(readFile(path("syslog.jsonl"))).size(), 1u);
  // TRACE applies when --trace is not given, and only then.
  r = run({"--quiet-syslog", "--changes", stream}, "", {{"TRACE", "TestAgent/1"}});
  EXPECT_THAT(r.err, HasSubstr("TestAgent/1 ConfigSm::handleValue alarm"));
  EXPECT_THAT(r.err, Not(HasSubstr("TestAgent/0 ")));
  r = run({"--quiet-syslog", "--trace", "TestAgent/0", "--changes", stream}, "", {{"TRACE", "TestAgent/1"}});
  EXPECT_THAT(r.err, HasSubstr("TestAgent/0 TestAgent::doInit"));
  EXPECT_THAT(r.err, Not(HasSubstr("TestAgent/1 ")));
}

TEST_F(MirroringdTest, TheViewCommandShowsTheStateAtItsLine) {
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
}

TEST_F(MirroringdTest, EveryProgramAnswersHelpWithItsUsageAndWritesNothing) {
  std::vector<std::pair<std::string, std::string>> programs = {{MIRRORINGD_PATH, "usage: mirroringd"}};
#ifdef SCALE_SWITCH_STATE_PATH
  programs.push_back({SCALE_SWITCH_STATE_PATH, "STATE_FILE"});
#endif
  for (const char* script : {"scripts/install-deps.sh", "scripts/run-example.sh", "scripts/test.sh", "bench/run.sh",
                             "bench/agent.sh", "bench/callgrind.sh", ".ci/run"}) {
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
