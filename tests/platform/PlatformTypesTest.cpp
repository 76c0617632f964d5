// The platform's entity types: their JSON shape, enumerator keys, and the helpers that carry logic
// (what the codec refuses is in the catalogue of tests/host/BadInputTest.cpp).
#include <gtest/gtest.h>

#include <string>

#include "platform/AclTypes.h"
#include "platform/Agent.h"
#include "platform/Codec.h"
#include "platform/ErrdisableTypes.h"
#include "platform/EventLoop.h"
#include "platform/LagTypes.h"
#include "platform/PlatformTypes.h"
#include "platform/StageTypes.h"

namespace {

using platform::Database;
using platform::Mount;
using platform::Ptr;
using platform::Value;

Value json(const std::string& text) {
  std::string error;
  auto v = platform::parseJson(text, error);
  EXPECT_TRUE(v) << error;
  return v ? *v : Value();
}

// Applies one change given as JSON text; returns the error ("" on success).
std::string change(Database& db, const std::string& changeText) {
  std::string error;
  platform::Change c;
  if (!platform::parseChange(json(changeText), c, error)) return error;
  if (!platform::applyChange(db, c, error)) return error.empty() ? "failed" : error;
  return "";
}

// The root at `path`, created from the type registry by name, as the host creates mounts.
Mount* rootByName(Database& db, const std::string& path, const std::string& typeName) {
  const platform::TypeInfo* type = platform::TypeRegistry::find(typeName);
  if (!type) return nullptr;
  return db.rootIs(path, *type, [&] { return type->create(); });
}

// --- codec round trip of every type ---------------------------------------------------------

struct RoundTripCase {
  const char* mountPath;
  const char* typeName;
  // Written in the codec's own order (fields as declared, keys ascending), every field set to
  // something other than its default, so the dump must reproduce it exactly.
  const char* content;
};

void PrintTo(const RoundTripCase& c, std::ostream* os) { *os << c.typeName; }

const RoundTripCase kRoundTripCases[] = {
    {"interface/status/eth/intf", "Interface::EthIntfStatusDir",
     R"({"intfStatus": {
          "Ethernet2": {"hwActive": true, "linkStatus": "linkUp", "timestampMode": "timestampModeReplaceFcs"},
          "Ethernet3/1": {"hwActive": false, "linkStatus": "linkNotPresent",
                          "timestampMode": "timestampModeHeader"}}})"},
    {"interface/status/eth/phy/all", "Interface::AllEthPhyIntfStatusDir",
     R"({"intfStatus": {"Ethernet10": {"linkStatus": "linkDown", "timestampMode": "timestampModeBeforeFcs"}}})"},
    {"interface/status/eth/lag", "Interface::EthLagIntfStatusDir",
     R"({"intfStatus": {"Port-Channel5": {"hwActive": true, "linkStatus": "linkUp"}}})"},
    {"interface/status/eth/vlan", "Interface::VlanIntfStatusDir",
     R"({"intfStatus": {"Vlan10": {"linkStatus": "linkDown"}}})"},
    {"interface/config/eth/lag", "Interface::EthLagIntfConfigDir",
     R"({"intfConfig": {"Port-Channel7": {"minLinks": 2}}})"},
    {"interface/input/forwardingModel/mirroring", "Interface::IntfForwardingModelInputDir",
     R"({"forwardingModelInput": {"Ethernet1": "intfForwardingModelQuietDataLink",
                                  "Ethernet4": "intfForwardingModelLagMember"}})"},
    {"lag/config", "Lag::Config",
     R"({"phyIntf": {"Ethernet1": {"lag": "Port-Channel5", "priority": 32768},
                     "Ethernet2": {"lag": "", "priority": 7}}})"},
    {"bridging/config", "Bridging::Config",
     R"({"switchIntfConfig": {"Ethernet1": {"switchportMode": "switchportModeTap"},
                              "Ethernet2": {"switchportMode": 9}}})"},
    {"bridging/input/config/cli", "Bridging::SwitchIntfConfigDir",
     R"({"switchIntfConfig": {"Ethernet5": {"switchportMode": "switchportModeTool", "tapGroup": ["g1", "g2"],
                                            "toolGroup": ["t1"], "tapRawIntf": {"Ethernet1": true, "Ethernet9": false},
                                            "toolIntfInUse": 2}}})"},
    {"acl/config/all", "Acl::Config",
     R"({"config": {"aclTypeMac": {"acl": {}},
                    "aclTypeIpv6": {"acl": {"v6": {"rule": {"10": "permit ipv6 any any"}, "remark": ""}}},
                    "aclTypeIp": {"acl": {"web": {"rule": {"10": "permit tcp any any eq 80", "20": "deny ip any any"},
                                                  "remark": "web only"}}}}})"},
    {"acl/config/cli", "Acl::Input::Config",
     R"({"config": {"aclTypeIp": {"acl": {"a": {"rule": {"5": "permit ip any any"}, "remark": "r"}}}}})"},
    {"acl/config/input", "Platform::Dir",
     R"({"entry": {"agentA": {"@type": "Acl::Input::Config",
                              "config": {"aclTypeMac": {"acl": {"m": {"rule": {"1": "permit any any"},
                                                                       "remark": ""}}}}}}})"},
    {"ip/vrf/status/global", "Ip::AllVrfStatusGlobal",
     R"({"vrf": {"blue": {"state": "vrfStateActive"}, "default": {"state": "vrfStateInactive"}}})"},
    {"interface/errdisable/cause/tapagg", "Errdisable::CauseStatus",
     R"({"intfStatus": {"Ethernet1": 12.5, "Ethernet3/2": 1000.25}})"},
    {"interface/errdisable/causegroup/tapagg", "Errdisable::CauseGroup",
     R"({"groupName": "tapagg", "causeDescription": "tap aggregation conflict", "stateText": "tapagg",
         "groupType": "causeGroupTypeSystem", "priority": 30, "recoveryByDefault": true, "shutdownLink": true,
         "logEvents": true, "perInterface": true, "showInStatus": true})"},
    {"stage/config/mirroring", "Stage::AgentConfig",
     R"({"dependency": {"mountsComplete": true, "platformReady": false}})"},
    {"stage/status/mirroring", "Stage::AgentStatus", R"({"complete": {"mountsComplete": true}})"},
    {"interface/config/eth/portMode", "EthIntf::PortModeConfig",
     R"({"portMode": {"Ethernet1": "portModeTapAgg", "Ethernet2": "portModeNone"}})"},
    {"hardware/fcx/slice/status/one", "Hardware::SliceStatus", R"({"ready": true, "linecard": 3})"},
    {"hardware/fcx/slice/status", "Platform::Dir",
     R"({"entry": {"FixedSystem": {"@type": "Hardware::SliceStatus", "ready": true, "linecard": 1}}})"},
};

class PlatformTypesRoundTrip : public testing::TestWithParam<RoundTripCase> {
 protected:
  void SetUp() override { platform::registerPlatformTypes(); }
};

TEST_P(PlatformTypesRoundTrip, DumpReproducesTheInputAndLoadsIntoAnEqualEntity) {
  const RoundTripCase& c = GetParam();
  Database first;
  Mount* m = rootByName(first, c.mountPath, c.typeName);
  ASSERT_TRUE(m) << c.typeName << " is not registered";
  EXPECT_EQ(m->root()->typeInfo().name(), c.typeName);
  const Ptr<platform::Entity> empty = platform::TypeRegistry::find(c.typeName)->create();

  Value state = Value::object();
  state.set(c.mountPath, json(c.content));
  std::string error;
  ASSERT_TRUE(platform::loadState(first, state, error)) << error;
  // Every field was set, so a type whose fields the codec drops or renames shows here.
  EXPECT_FALSE(platform::entitiesEqual(*m->root(), *empty));

  const std::string dumped = platform::toJson(platform::dumpState(first));
  EXPECT_EQ(dumped, platform::toJson(state));

  Database second;
  Mount* copy = rootByName(second, c.mountPath, c.typeName);
  ASSERT_TRUE(copy);
  ASSERT_TRUE(platform::loadState(second, json(dumped), error)) << error;
  EXPECT_TRUE(platform::entitiesEqual(*m->root(), *copy->root()));
}

INSTANTIATE_TEST_SUITE_P(EveryType, PlatformTypesRoundTrip, testing::ValuesIn(kRoundTripCases));

// --- enumerator keys in paths ----------------------------------------------------------------

TEST(PlatformTypesEnums, AclTypeKeysResolveByNameOrNumberInPaths) {
  Database db;
  auto cli = platform::dynamicPtrCast<Acl::Input::Config>(db.rootIs<Acl::Input::Config>("acl/config/cli")->root());
  EXPECT_EQ(change(db, R"({"op": "set", "path": "acl/config/cli/config/2", "value": {"acl": {"web": {}}}})"), "");
  EXPECT_EQ(change(db, R"({"op": "set", "path": "acl/config/cli/config/aclTypeIp/acl/web/rule/10",
                          "value": "permit ip any any"})"),
            "");
  auto ip = cli->config.get(Acl::aclTypeIp);
  ASSERT_TRUE(ip);
  EXPECT_EQ(ip->type(), Acl::aclTypeIp);
  EXPECT_EQ(ip->acl.get("web")->rule.get(10), "permit ip any any");
  EXPECT_EQ(ip->acl.get("web")->path(), "acl/config/cli/config/aclTypeIp/acl/web");
  // The key restated by number is the same key.
  EXPECT_EQ(change(db, R"({"op": "merge", "path": "acl/config/cli/config/aclTypeIp", "value": {"type": 2}})"), "");
  EXPECT_EQ(cli->config.size(), 1u);
}

TEST(PlatformTypesOperations, AnEntryIsMadeOnceAndCarriesItsKey) {
  Lag::Config lag;
  auto member = lag.phyIntfIs(platform::IntfId("Ethernet4"));
  member->lag.set(platform::IntfId("Port-Channel1"));
  EXPECT_EQ(lag.phyIntfIs(platform::IntfId("Ethernet4")), member);
  EXPECT_EQ(member->intfId(), platform::IntfId("Ethernet4"));
}

// --- errdisable cause groups ----------------------------------------------------------------

class ErrdisableCauseGroupInitTest : public testing::Test {
 protected:
  Database db;
  platform::EventLoop loop;
  platform::EntityManager em{db, loop};
};

TEST_F(ErrdisableCauseGroupInitTest, EachArgumentLandsInItsOwnField) {
  em.mountGroup()->doMount<Errdisable::CauseGroup>("interface/errdisable/causegroup/g", "w");
  auto group = em.lookup<const Errdisable::CauseGroup>("interface/errdisable/causegroup/g");
  const char* names[] = {"recoveryByDefault", "shutdownLink", "logEvents", "perInterface", "showInStatus"};
  for (int on = 0; on < 5; ++on) {
    Errdisable::ErrdisableCauseGroupInit(&em, "g", on == 0, "d", on == 1, on == 2, on == 3, on == 4,
                                         Errdisable::causeGroupTypeSystem, 42, "s");
    const bool flags[] = {group->recoveryByDefault(), group->shutdownLink(), group->logEvents(),
                          group->perInterface(), group->showInStatus()};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(flags[i], i == on) << "argument " << names[on] << ", field " << names[i];
  }
  EXPECT_EQ(group->groupName(), "g");
  EXPECT_EQ(group->causeDescription(), "d");
  EXPECT_EQ(group->stateText(), "s");
  EXPECT_EQ(group->groupType(), Errdisable::causeGroupTypeSystem);
  EXPECT_EQ(group->priority(), 42u);
}

TEST_F(ErrdisableCauseGroupInitTest, MissingMountIsFatal) {
  EXPECT_DEATH(Errdisable::ErrdisableCauseGroupInit(&em, "nothere", true, "d", true, true, true, true,
                                                    Errdisable::causeGroupTypeInterface, 1, "s"),
               "no errdisable cause group mounted");
}

// --- boot stages ----------------------------------------------------------------------------

TEST(BootStagesHelperTest, AStageIsCompleteWhenThisRunOrAnEarlierOneCompletedIt) {
  auto status = platform::make<Stage::AgentStatus>();
  auto helper = platform::make<Stage::BootStagesHelper>("boot", nullptr, status, nullptr, nullptr, nullptr);
  EXPECT_FALSE(helper->stageComplete("mountsComplete"));
  helper->stageCompleteIs("mountsComplete");
  EXPECT_TRUE(helper->stageComplete("mountsComplete"));
  EXPECT_TRUE(status->complete.get("mountsComplete"));
  EXPECT_FALSE(helper->stageComplete("platformReady"));
  status->completeIs("platformReady", true);
  EXPECT_TRUE(helper->stageComplete("platformReady"));
  // Without a status the helper still remembers its own run.
  auto bare = platform::make<Stage::BootStagesHelper>("boot", nullptr, nullptr, nullptr, nullptr, nullptr);
  bare->stageCompleteIs("mountsComplete");
  EXPECT_TRUE(bare->stageComplete("mountsComplete"));
  EXPECT_FALSE(bare->stageComplete("other"));
}

}  // namespace
