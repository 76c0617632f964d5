// The parts of the checker around the invariants: generated streams are reproducible, and a
// child that died is named by its fault, the same way wherever the sources were built.
#include <gtest/gtest.h>
#include <signal.h>

#include "consistency/Generator.h"
#include "consistency/Isolated.h"

namespace consistency {
namespace {

TEST(Generator, ASeedNamesOneStream) {
  const Stream a = generateStream(42, 60), b = generateStream(42, 60), c = generateStream(43, 60);
  EXPECT_EQ(a.state, b.state);
  EXPECT_EQ(changesText(a), changesText(b));
  EXPECT_NE(changesText(a), changesText(c));
  EXPECT_EQ(a.lines.size(), 60u);
  // The marks survive the trip through a reproducer's change stream.
  const auto back = parseChanges(changesText(a));
  ASSERT_EQ(back.size(), a.lines.size());
  for (std::size_t i = 0; i < back.size(); ++i) {
    EXPECT_EQ(back[i].text, a.lines[i].text);
    EXPECT_EQ(back[i].mark, a.lines[i].mark);
  }
}

TEST(Isolated, ADeadChildIsNamedByItsFault) {
  struct DeathCase {
    const char* stderrText;
    int signal;
    const char* invariant;
    const char* signature;
  };
  const std::vector<DeathCase> deaths = {
      {"assertion failed: 0 && \"unknown mode\" (/home/a/src/Mirroring/TapAggConfigSm.cpp:145)\n", SIGABRT,
       "agentAbort", "agentAbort: 0 && \"unknown mode\" (TapAggConfigSm.cpp:145)"},
      {"==12==ERROR: AddressSanitizer: heap-use-after-free on address 0x6020 at pc 0x55 bp 0x7f\n"
       "READ of size 8 at 0x6020 thread T0\n"
       "    #0 0x7f12 in Mirroring::SessionSm::handleDest(std::string const&) /x/y/SessionSm.cpp:220\n",
       SIGABRT, "sanitizer", "sanitizer: AddressSanitizer heap-use-after-free in Mirroring::SessionSm::handleDest"},
      {"/build/src/Mirroring/ConfigSm.cpp:90:12: runtime error: load of value 7, which is not a valid value\n", SIGABRT,
       "sanitizer", "sanitizer: ConfigSm.cpp:90:12: runtime error: load of value 7, which is not a valid value"},
      {"", SIGSEGV, "agentCrash", nullptr},
      {"", SIGALRM, "timeout", "timeout"},
  };
  for (const DeathCase& d : deaths) {
    // A wait status as waitpid reports a child killed by the signal.
    const Failure f = crashFailure(d.signal, d.stderrText, "line 3");
    EXPECT_EQ(f.invariant, d.invariant) << d.stderrText;
    if (d.signature) {
      EXPECT_EQ(f.signature, d.signature);
    }
    EXPECT_NE(f.detail.find("line 3"), std::string::npos) << f.detail;
  }
}

}  // namespace
}  // namespace consistency
