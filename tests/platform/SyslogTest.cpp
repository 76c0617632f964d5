#include "platform/Syslog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace sl = platform::syslog;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using sl::formatMessage;
using sl::Record;
using sl::Severity;

namespace {

// Defined the way an agent defines its messages.
const sl::Message SYSLOG_TEST_SESSION_DOWN("SYSLOG_TEST_SESSION_DOWN", Severity::warning,
                                           "Session %s went down after %d seconds (%d%% loss)",
                                           "A mirroring session stopped forwarding.",
                                           sl::noActionRequired, 60.0, 3.0, 7);

struct Port {
  int number;
};
std::ostream& operator<<(std::ostream& out, const Port& p) { return out << "Port" << p.number; }

class SyslogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved = sl::sinks();
    sl::clearSinks();
    sl::addSink(capture);
  }
  void TearDown() override {
    sl::clearSinks();
    for (auto& sink : saved) sl::addSink(sink);
  }

  std::vector<std::shared_ptr<sl::Sink>> saved;
  std::shared_ptr<sl::CaptureSink> capture = std::make_shared<sl::CaptureSink>();
};

TEST(FormatMessage, Conversions) {
  EXPECT_EQ(formatMessage("%s is %d%%", {"load", "50"}), "load is 50%");
  EXPECT_EQ(formatMessage("%i %u %ld %lu %lld %zu", {"-1", "2", "3", "4", "5", "6"}),
            "-1 2 3 4 5 6");
  EXPECT_EQ(formatMessage("%d", {"Ethernet1"}), "Ethernet1") << "text goes in as it is";
  EXPECT_EQ(formatMessage("%x %X %#x %o", {"255", "255", "255", "8"}), "ff FF 0xff 10");
  EXPECT_EQ(formatMessage("%x %hhx %lx", {"-1", "-1", "-1"}), "ffffffff ff ffffffffffffffff");
  EXPECT_EQ(formatMessage("%x", {"18446744073709551615"}), "ffffffffffffffff");
  EXPECT_EQ(formatMessage("%x", {"vlan"}), "vlan");
  EXPECT_EQ(formatMessage("[%5d|%-5s|%05d|%05d|%+d]", {"42", "ab", "-42", "x", "7"}),
            "[   42|ab   |-0042|    x|+7]");
  EXPECT_EQ(formatMessage("%.3s %.2f %.1e", {"abcdef", "3.14159", "1234"}), "abc 3.14 1.2e+03");
  EXPECT_EQ(formatMessage("%f", {"0.5"}), "0.5") << "no precision: the streamed text is kept";
}

TEST(FormatMessage, OddInputsNeverFail) {
  EXPECT_EQ(formatMessage("%s and %s, %d", {"one"}), "one and , ");
  EXPECT_EQ(formatMessage("%s", {"one", "two", "three"}), "one");
  EXPECT_EQ(formatMessage("no conversions", {"x"}), "no conversions");
  EXPECT_EQ(formatMessage("ends with %", {"x"}), "ends with %");
  EXPECT_EQ(formatMessage("ends with %-0", {"x"}), "ends with %-0");
  // Not a conversion: kept literally and consumes no argument.
  EXPECT_EQ(formatMessage("%q %s %n", {"x"}), "%q x %n");
  EXPECT_EQ(formatMessage("%%s %s", {"x"}), "%s x");
  // An absurd width is bounded instead of exhausting memory.
  EXPECT_LE(formatMessage("%999999999999999999999d", {"1"}).size(), 4096u);
  EXPECT_EQ(formatMessage("", {}), "");
}

TEST_F(SyslogTest, RaisingFormatsArgumentsAndReachesEverySink) {
  auto second = std::make_shared<sl::CaptureSink>();
  sl::addSink(second);
  SYSLOG_TEST_SESSION_DOWN(Port{7}, 30, 12.5);
  Record expected{"SYSLOG_TEST_SESSION_DOWN", Severity::warning,
                  "Session Port7 went down after 30 seconds (12.5% loss)"};
  EXPECT_THAT(capture->records(), ElementsAre(expected));
  EXPECT_THAT(second->records(), ElementsAre(expected));

  sl::removeSink(second);
  capture->clear();
  SYSLOG_TEST_SESSION_DOWN(std::string("s1"));
  EXPECT_THAT(capture->records(),
              ElementsAre(Record{"SYSLOG_TEST_SESSION_DOWN", Severity::warning,
                                 "Session s1 went down after  seconds (% loss)"}));
  EXPECT_EQ(second->records().size(), 1u) << "a removed sink gets nothing more";
}

TEST_F(SyslogTest, FailingSinkDoesNotStopTheOthers) {
  struct Throwing : sl::Sink {
    void write(const Record&) override { throw std::runtime_error("disk full"); }
  };
  sl::clearSinks();
  sl::addSink(std::make_shared<Throwing>());
  sl::addSink(capture);
  ::testing::internal::CaptureStderr();
  EXPECT_NO_THROW(SYSLOG_TEST_SESSION_DOWN("a", 1, 2));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), ::testing::HasSubstr("disk full"));
  EXPECT_EQ(capture->records().size(), 1u);
}

TEST(SyslogDefinitions, AreListedWhileAlive) {
  EXPECT_EQ(sl::findDefinition("SYSLOG_TEST_SESSION_DOWN"), &SYSLOG_TEST_SESSION_DOWN);
  {
    sl::Message transient("SYSLOG_TEST_TRANSIENT", Severity::debug, "x", "", "");
    EXPECT_THAT(sl::definitions(), Contains(&transient));
    EXPECT_THAT(sl::definitions(), Contains(&SYSLOG_TEST_SESSION_DOWN));
  }
  // A definition that goes (a plug-in unloaded) is no longer listed.
  EXPECT_EQ(sl::findDefinition("SYSLOG_TEST_TRANSIENT"), nullptr);
  EXPECT_EQ(sl::findDefinition("NO_SUCH_KEY"), nullptr);
}

TEST(SyslogSinks, TheSystemPriorityIsTheSeverityLevel) {
  // Severities count from emergency (0) to debug (7), as the system log's priorities do.
  for (int level = 0; level <= 7; ++level) EXPECT_EQ(sl::SystemLogSink::priority(Severity(level)), level);
  EXPECT_EQ(LOG_EMERG, 0);
  EXPECT_EQ(LOG_DEBUG, 7);
}

TEST(SyslogSinks, JsonLinesSinkRoundTrips) {
  std::string path = ::testing::TempDir() + "syslog-test-" + std::to_string(::getpid()) + ".jsonl";
  std::remove(path.c_str());
  {
    sl::JsonLinesSink sink(path);
    sink.write({"MIRROR_A", Severity::notice, "quote \" backslash \\ newline \n tab \t"});
    sink.write({"MIRROR_B", Severity::critical, "bad utf-8: \xff\xfe"});
    // Flushed per line: readable before the sink goes away.
    std::ifstream early(path);
    std::string firstLine;
    ASSERT_TRUE(std::getline(early, firstLine));
    EXPECT_EQ(nlohmann::json::parse(firstLine)["key"], "MIRROR_A");
  }
  {
    sl::JsonLinesSink reopened(path);  // appends
    reopened.write({"MIRROR_C", Severity::debug, ""});
  }
  std::ifstream in(path);
  std::vector<nlohmann::json> objects;
  for (std::string line; std::getline(in, line);) objects.push_back(nlohmann::json::parse(line));
  ASSERT_EQ(objects.size(), 3u);
  EXPECT_EQ(objects[0], (nlohmann::json{{"key", "MIRROR_A"},
                                        {"severity", "notice"},
                                        {"text", "quote \" backslash \\ newline \n tab \t"}}));
  EXPECT_EQ(objects[1]["severity"], "critical");
  EXPECT_THAT(objects[1]["text"].get<std::string>(), ::testing::StartsWith("bad utf-8: "));
  EXPECT_EQ(objects[2]["key"], "MIRROR_C");
  std::remove(path.c_str());

  EXPECT_THROW(sl::JsonLinesSink("/nonexistent-dir/x.jsonl"), std::system_error);
}

}  // namespace
