#include "platform/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace trace = platform::trace;
using ::testing::HasSubstr;
using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

struct Line {
  std::string facility;
  int level;
  std::string text;
};

// A type that counts how often it is streamed, to prove disabled traces skip formatting.
struct Counted {
  int* calls;
};
std::ostream& operator<<(std::ostream& out, const Counted& c) {
  ++*c.calls;
  return out << "counted";
}

class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    trace::setSink([this](std::string_view facility, int level, std::string_view text) {
      lines.push_back({std::string(facility), level, std::string(text)});
    });
  }
  void TearDown() override {
    trace::configure("");
    trace::setSink({});
  }

  static std::vector<int> enabledLevels(const trace::Facility& f) {
    std::vector<int> levels;
    for (int l = -2; l <= 12; ++l) {
      if (f.enabled(l)) levels.push_back(l);
    }
    return levels;
  }

  std::vector<Line> lines;
};

TEST_F(TraceTest, ConfigureGrammar) {
  trace::Facility a("TraceTest.A");
  trace::Facility b("TraceTest.B");
  EXPECT_THAT(enabledLevels(a), IsEmpty()) << "tracing starts off";

  EXPECT_EQ(trace::configure("TraceTest.A/2-4"), "");
  EXPECT_EQ(enabledLevels(a), (std::vector<int>{2, 3, 4}));
  EXPECT_THAT(enabledLevels(b), IsEmpty());

  EXPECT_EQ(trace::configure("TraceTest.A/7"), "");
  EXPECT_EQ(enabledLevels(a), (std::vector<int>{7})) << "configure replaces, not adds";

  EXPECT_EQ(trace::configure("TraceTest.A"), "");
  EXPECT_EQ(enabledLevels(a), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));

  EXPECT_EQ(trace::configure(" TraceTest.A / 1 ,TraceTest.A/8-9, TraceTest.B/0-0,"), "");
  EXPECT_EQ(enabledLevels(a), (std::vector<int>{1, 8, 9}));
  EXPECT_EQ(enabledLevels(b), (std::vector<int>{0}));

  EXPECT_EQ(trace::configure("*/5,TraceTest.B/6"), "");
  EXPECT_EQ(enabledLevels(a), (std::vector<int>{5}));
  EXPECT_EQ(enabledLevels(b), (std::vector<int>{5, 6}));

  EXPECT_EQ(trace::configure("traceTest.a"), "");
  EXPECT_THAT(enabledLevels(a), IsEmpty()) << "names are case-sensitive";

  trace::configure("*");
  EXPECT_EQ(trace::configure(""), "");
  EXPECT_THAT(enabledLevels(a), IsEmpty());
  EXPECT_THAT(enabledLevels(b), IsEmpty());
}

TEST_F(TraceTest, MalformedItemsAreReportedAndTheRestApplied) {
  trace::Facility a("TraceTest.A");
  auto error = trace::configure("TraceTest.A/1,/3,TraceTest.A/x,TraceTest.A/5-2,TraceTest.A/10,"
                                "TraceTest.A/3-,TraceTest.A/-1,TraceTest.A/");
  EXPECT_EQ(enabledLevels(a), (std::vector<int>{1}));
  for (const char* bad : {"'/3'", "'TraceTest.A/x'", "'TraceTest.A/5-2'", "'TraceTest.A/10'",
                          "'TraceTest.A/3-'", "'TraceTest.A/-1'", "'TraceTest.A/'"}) {
    EXPECT_THAT(error, HasSubstr(bad));
  }
  EXPECT_THAT(error, Not(HasSubstr("'TraceTest.A/1'")));
  EXPECT_THAT(error, HasSubstr("reversed"));
}

TEST_F(TraceTest, RegistrationFollowsFacilityLifetime) {
  trace::configure("TraceTest.Late/3");
  {
    // Constructed after configure, as a facility in a plug-in loaded later would be.
    trace::Facility late("TraceTest.Late");
    EXPECT_EQ(enabledLevels(late), (std::vector<int>{3}));
    EXPECT_THAT(trace::facilityNames(), Contains("TraceTest.Late"));

    trace::configure("TraceTest.Late/4");
    EXPECT_EQ(enabledLevels(late), (std::vector<int>{4})) << "reconfiguration reaches it";

    // Two facilities of one name (e.g. one per translation unit) share the configuration.
    auto twin = std::make_unique<trace::Facility>("TraceTest.Late");
    EXPECT_TRUE(twin->enabled(4));
    twin.reset();
    EXPECT_THAT(trace::facilityNames(), Contains("TraceTest.Late"));
  }
  EXPECT_THAT(trace::facilityNames(), Not(Contains("TraceTest.Late")));
  // Reconfiguring after the facility is gone must not touch it.
  trace::configure("*");
}

TEST_F(TraceTest, DisabledTraceDoesNotFormatItsArguments) {
  trace::Facility f("TraceTest.Lazy");
  int calls = 0;
  trace::configure("TraceTest.Lazy/2");
  f(3, "value ", Counted{&calls});
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(lines, IsEmpty());

  f(2, "value ", Counted{&calls}, ' ', 42, ' ', true);
  EXPECT_EQ(calls, 1);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].facility, "TraceTest.Lazy");
  EXPECT_EQ(lines[0].level, 2);
  EXPECT_EQ(lines[0].text, "value counted 42 true");
}

TEST_F(TraceTest, ConfigureFromEnvironment) {
  trace::Facility f("TraceTest.Env");
  ::setenv("TRACE", "TraceTest.Env/1-2", 1);
  EXPECT_EQ(trace::configureFromEnvironment(), "");
  EXPECT_EQ(enabledLevels(f), (std::vector<int>{1, 2}));
  EXPECT_EQ(trace::configuration(), "TraceTest.Env/1-2");

  ::unsetenv("TRACE");
  EXPECT_EQ(trace::configureFromEnvironment(), "");
  EXPECT_EQ(enabledLevels(f), (std::vector<int>{1, 2})) << "an unset variable changes nothing";

  ::setenv("TRACE", "TraceTest.Env/z", 1);
  ::testing::internal::CaptureStderr();
  EXPECT_THAT(trace::configureFromEnvironment(), HasSubstr("TraceTest.Env/z"));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("TraceTest.Env/z"));
  ::unsetenv("TRACE");
}

}  // namespace
