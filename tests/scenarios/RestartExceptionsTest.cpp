// The differences a restart may make, each shown on the real agent where it happens; the
// consistency checker tolerates exactly these (docs/restart.md, "The exceptions").
#include <gtest/gtest.h>

#include "scenarios/MirroringScenario.h"

using namespace hosttest;
using namespace scenario;

namespace {

// The dump after a restart differs from the one without exactly at `differs` (a mount, then a
// place in it), and nowhere else.
TEST_F(MirroringScenario, ARestartDiffersOnlyWhereTheDocumentedExceptionsSay) {
  struct Exception {
    std::string name;
    Json state;
    std::vector<std::string> stream;
    std::vector<std::pair<std::string, std::string>> differs;
  };
  const Json exclusive = Json::parse(R"({
      "bridging/config": {"switchIntfConfig": {"Ethernet9": {"switchportMode": "switchportModeAccess"},
                                               "Ethernet1": {"switchportMode": "switchportModeTapTool"}}},
      "bridging/switchIntfConfig": {"switchIntfConfig": {"Ethernet9": {},
                                                         "Ethernet1": {"tapGroup": ["g"], "toolGroup": ["t"]}}},
      "interface/status/eth/intf": {"intfStatus": {"Ethernet9": {"hwActive": true, "linkStatus": "linkUp"},
                                                   "Ethernet1": {"hwActive": true, "linkStatus": "linkUp"}}},
      "tapagg/cliconfig": {"mode": "tapAggModeExclusive"}})");
  Json mixed = exclusive;
  mixed["tapagg/cliconfig"]["mode"] = "tapAggModeMixed";
  const std::string errdisable = "interface/errdisable/cause/tapagg";
  const std::vector<Exception> exceptions = {
      {"an errdisable entry's time is that of the last judgement", exclusive,
       {R"({"op":"advance","seconds":10})"},
       {{errdisable, "/intfStatus/Ethernet9"}}},
      {"a slice profile takes effect at the next judgement", mixed,
       {setAt("tapagg/cliconfig/sliceProfileConfig/Linecard0", "tap-profile")},
       {{errdisable, "/intfStatus"}}},
      {"a role a mode change left behind goes at a restart", exclusive,
       {setAt("bridging/config/switchIntfConfig/Ethernet1/switchportMode", "switchportModeTap")},
       {{"tapagg/hwconfig", "/toolPort/Ethernet1"}, {"tapagg/status", "/group/t"}}},
  };
  for (const auto& e : exceptions) {
    SCOPED_TRACE(e.name);
    Json without = ScenarioTest::runScenario(e.state, e.stream, kTapAggMounts).last();
    std::vector<std::string> thenRestart = e.stream;
    thenRestart.push_back(kRestart);
    Json with = ScenarioTest::runScenario(e.state, thenRestart, kTapAggMounts).last();
    EXPECT_NE(without, with) << "the difference shows";
    for (const auto& [mount, place] : e.differs) {
      const Json::json_pointer at(place);
      for (Json* dump : {&without, &with}) {
        Json& parent = (*dump)[mount][at.parent_pointer()];
        if (parent.is_object()) parent.erase(at.back());
      }
    }
    EXPECT_EQ(without, with) << "nothing else differs";
  }
}

}  // namespace
