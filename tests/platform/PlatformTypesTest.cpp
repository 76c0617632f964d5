// The platform's entity types: their JSON shape and their operations (what the codec refuses is
// in the catalogue of tests/host/BadInputTest.cpp).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/AclTypes.h"
#include "platform/Agent.h"
#include "platform/BridgingTypes.h"
#include "platform/Codec.h"
#include "platform/Dir.h"
#include "platform/ErrdisableTypes.h"
#include "platform/EthIntfTypes.h"
#include "platform/EventLoop.h"
#include "platform/HardwareTypes.h"
#include "platform/InterfaceTypes.h"
#include "platform/IpTypes.h"
#include "platform/LagTypes.h"
#include "platform/PlatformTypes.h"
#include "platform/Reactor.h"
#include "platform/StageTypes.h"

namespace {

using platform::Database;
using platform::IntfId;
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

TEST(PlatformTypesRegistration, IsIdempotent) {
  platform::registerPlatformTypes();
  const platform::TypeInfo* first = platform::TypeRegistry::find("Acl::Input::Config");
  platform::registerPlatformTypes();
  ASSERT_TRUE(first);
  EXPECT_EQ(platform::TypeRegistry::find("Acl::Input::Config"), first);
  EXPECT_TRUE(first->create());
}

// --- enumerations ---------------------------------------------------------------------------

TEST(PlatformTypesEnums, AcceptNamesAndNumbersAndWriteNames) {
  Database db;
  auto status = platform::dynamicPtrCast<Interface::EthIntfStatusDir>(
      db.rootIs<Interface::EthIntfStatusDir>("interface/status/eth/intf")->root());
  EXPECT_EQ(change(db, R"({"op": "set", "path": "interface/status/eth/intf/intfStatus/Ethernet1",
                          "value": {"linkStatus": 2, "timestampMode": "timestampModeHeader"}})"),
            "");
  auto e1 = status->intfStatus.get(IntfId("Ethernet1"));
  ASSERT_TRUE(e1);
  EXPECT_EQ(e1->linkStatus(), Interface::linkUp);
  EXPECT_EQ(e1->timestampMode(), Interface::timestampModeHeader);
  EXPECT_EQ(platform::toJson(e1->linkStatus.toValue()), R"("linkUp")");

  EXPECT_NE(change(db, R"({"op": "set", "path": "interface/status/eth/intf/intfStatus/Ethernet1/linkStatus",
                          "value": "linkSideways"})"),
            "");
  EXPECT_EQ(e1->linkStatus(), Interface::linkUp);
  // A number must name an enumerator; one beyond the enumeration's byte names none either.
  for (const char* number : {"99", "300", "-1", "2.5", "\"4\""}) {
    const std::string line = R"({"op": "set", "path": "interface/status/eth/intf/intfStatus/Ethernet1/linkStatus",
                                 "value": )";
    EXPECT_NE(change(db, line + number + "}"), "") << number;
  }
  EXPECT_EQ(e1->linkStatus(), Interface::linkUp);
}

TEST(PlatformTypesEnums, UnnamedSwitchportModeIsKeptAsANumber) {
  Database db;
  auto config = platform::dynamicPtrCast<Bridging::Config>(db.rootIs<Bridging::Config>("bridging/config")->root());
  EXPECT_EQ(change(db, R"({"op": "set", "path": "bridging/config/switchIntfConfig/Ethernet1",
                          "value": {"switchportMode": 9}})"),
            "");
  EXPECT_EQ(config->switchIntfConfig.get(IntfId("Ethernet1"))->switchportMode(), Bridging::SwitchportMode(9));
  EXPECT_EQ(change(db, R"({"op": "set", "path": "bridging/config/switchIntfConfig/Ethernet2",
                          "value": {"switchportMode": 6}})"),
            "");
  EXPECT_EQ(platform::toJson(config->switchIntfConfig.get(IntfId("Ethernet2"))->switchportMode.toValue()),
            R"("switchportModeRouted")");
}

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
  // The key restated by number is the same key; a number that names no type is no key.
  EXPECT_EQ(change(db, R"({"op": "merge", "path": "acl/config/cli/config/aclTypeIp", "value": {"type": 2}})"), "");
  EXPECT_NE(change(db, R"({"op": "set", "path": "acl/config/cli/config/9", "value": {}})").find("unknown enumerator"),
            std::string::npos);
  EXPECT_EQ(cli->config.size(), 1u);
}

// --- operations -----------------------------------------------------------------------------

TEST(PlatformTypesOperations, ForwardingModelInput) {
  Database db;
  Mount* m = db.rootIs<Interface::IntfForwardingModelInputDir>("interface/input/forwardingModel/mirroring");
  auto dir = platform::dynamicPtrCast<Interface::IntfForwardingModelInputDir>(m->root());
  std::vector<IntfId> seen;
  platform::Reactor r;
  r.on(dir->forwardingModelInput, [&](const IntfId& id) { seen.push_back(id); });

  dir->forwardingModelInputIs(IntfId("Ethernet1"), Interface::intfForwardingModelQuietDataLink);
  dir->forwardingModelInputIs(IntfId("Ethernet1"), Interface::intfForwardingModelQuietDataLink);
  EXPECT_EQ(m->writes(), 1u);
  dir->forwardingModelInputIs(IntfId("Ethernet1"), Interface::intfForwardingModelLagMember);
  EXPECT_EQ(dir->forwardingModelInput.get(IntfId("Ethernet1")), Interface::intfForwardingModelLagMember);
  dir->forwardingModelInputDel(IntfId("Ethernet1"));
  dir->forwardingModelInputDel(IntfId("Ethernet1"));
  EXPECT_FALSE(dir->forwardingModelInput.contains(IntfId("Ethernet1")));
  EXPECT_EQ(seen.size(), 3u);
  EXPECT_EQ(m->writes(), 3u);
}

TEST(PlatformTypesOperations, PortModeAndCauseStatus) {
  Database db;
  Mount* pm = db.rootIs<EthIntf::PortModeConfig>("interface/config/eth/portMode");
  auto modes = platform::dynamicPtrCast<EthIntf::PortModeConfig>(pm->root());
  modes->portModeIs("Ethernet1", EthIntf::portModeTapAgg);
  modes->portModeIs("Ethernet2", EthIntf::portModeNone);
  EXPECT_EQ(modes->portMode.get("Ethernet1"), EthIntf::portModeTapAgg);
  modes->portModeDel("Ethernet1");
  EXPECT_EQ(modes->portMode.keys(), std::vector<std::string>{"Ethernet2"});

  Mount* cm = db.rootIs<Errdisable::CauseStatus>("interface/errdisable/cause/tapagg");
  auto cause = platform::dynamicPtrCast<Errdisable::CauseStatus>(cm->root());
  cause->intfStatusIs(IntfId("Ethernet3/1"), 17.25);
  cause->intfStatusIs(IntfId("Ethernet3/1"), 17.25);
  EXPECT_EQ(cm->writes(), 1u);
  EXPECT_DOUBLE_EQ(cause->intfStatus.get(IntfId("Ethernet3/1")), 17.25);
  cause->intfStatusDel(IntfId("Ethernet3/1"));
  EXPECT_TRUE(cause->intfStatus.empty());
  EXPECT_EQ(platform::toJson(platform::dumpState(db, {"interface/errdisable/cause/tapagg"})),
            R"({"interface/errdisable/cause/tapagg":{"intfStatus":{}}})");
}

TEST(PlatformTypesOperations, KeyedEntriesCarryTheirKey) {
  Lag::Config lag;
  auto member = lag.phyIntfIs(IntfId("Ethernet4"));
  EXPECT_EQ(member->intfId(), IntfId("Ethernet4"));
  EXPECT_TRUE(member->lag().empty());
  EXPECT_EQ(lag.phyIntfIs(IntfId("Ethernet4")), member);

  Bridging::SwitchIntfConfigDir dir;
  auto input = dir.switchIntfConfigIs(IntfId("Ethernet5"));
  input->tapGroupIs("g1");
  input->toolGroupIs("t1");
  input->tapRawIntfIs(IntfId("Ethernet1"), true);
  input->tapGroupDel("g1");
  EXPECT_TRUE(input->tapGroup.empty());
  EXPECT_TRUE(input->toolGroup.contains("t1"));
  EXPECT_TRUE(input->tapRawIntf.get(IntfId("Ethernet1")));

  Ip::AllVrfStatusGlobal vrfs;
  EXPECT_EQ(vrfs.vrfIs(platform::VrfName("blue"))->name(), platform::VrfName("blue"));
}

// --- errdisable cause groups ----------------------------------------------------------------

class ErrdisableCauseGroupInitTest : public testing::Test {
 protected:
  Database db;
  platform::EventLoop loop;
  platform::EntityManager em{db, loop};
};

TEST_F(ErrdisableCauseGroupInitTest, WritesEveryField) {
  em.mountGroup()->doMount<Errdisable::CauseGroup>("interface/errdisable/causegroup/tapagg", "w");
  Errdisable::ErrdisableCauseGroupInit(&em, "tapagg", true, "tap aggregation conflict", true, true, true, true,
                                       Errdisable::causeGroupTypeSystem, 42, "errdisabled (tapagg)");
  auto group = em.lookup<const Errdisable::CauseGroup>("interface/errdisable/causegroup/tapagg");
  ASSERT_TRUE(group);
  EXPECT_EQ(group->groupName(), "tapagg");
  EXPECT_EQ(group->causeDescription(), "tap aggregation conflict");
  EXPECT_EQ(group->stateText(), "errdisabled (tapagg)");
  EXPECT_EQ(group->groupType(), Errdisable::causeGroupTypeSystem);
  EXPECT_EQ(group->priority(), 42u);
  // Every field left its default: a field added later without being initialised shows here.
  auto blank = platform::make<Errdisable::CauseGroup>();
  for (const auto& f : group->typeInfo().fields()) {
    EXPECT_FALSE(platform::TypeInfo::field(*group, f).equals(platform::TypeInfo::field(*blank, f))) << f.name;
  }
}

TEST_F(ErrdisableCauseGroupInitTest, EachFlagLandsInItsOwnField) {
  em.mountGroup()->doMount<Errdisable::CauseGroup>("interface/errdisable/causegroup/g", "w");
  auto group = em.lookup<const Errdisable::CauseGroup>("interface/errdisable/causegroup/g");
  const char* names[] = {"recoveryByDefault", "shutdownLink", "logEvents", "perInterface", "showInStatus"};
  for (int on = 0; on < 5; ++on) {
    Errdisable::ErrdisableCauseGroupInit(&em, "g", on == 0, "d", on == 1, on == 2, on == 3, on == 4,
                                         Errdisable::causeGroupTypeInterface, 1, "s");
    const bool flags[] = {group->recoveryByDefault(), group->shutdownLink(), group->logEvents(),
                          group->perInterface(), group->showInStatus()};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(flags[i], i == on) << "argument " << names[on] << ", field " << names[i];
  }
}

TEST_F(ErrdisableCauseGroupInitTest, MissingMountIsFatal) {
  EXPECT_DEATH(Errdisable::ErrdisableCauseGroupInit(&em, "nothere", true, "d", true, true, true, true,
                                                    Errdisable::causeGroupTypeInterface, 1, "s"),
               "no errdisable cause group mounted");
}

// --- boot stages ----------------------------------------------------------------------------

TEST(BootStagesHelperTest, RecordsCompletionInTheStatus) {
  auto config = platform::make<Stage::AgentConfig>();
  auto status = platform::make<Stage::AgentStatus>();
  auto progress = platform::make<platform::Dir>();
  auto agent = platform::make<platform::Agent>("Mirroring");
  auto helper = platform::make<Stage::BootStagesHelper>("boot", config, status, progress, config, agent.get());
  EXPECT_EQ(helper->stageClass(), "boot");
  EXPECT_EQ(helper->stageStatus(), status);
  EXPECT_EQ(helper->progressDir(), progress);
  EXPECT_EQ(helper->agent(), agent.get());

  EXPECT_FALSE(helper->stageComplete("mountsComplete"));
  helper->stageCompleteIs("mountsComplete");
  EXPECT_TRUE(helper->stageComplete("mountsComplete"));
  EXPECT_TRUE(status->complete.get("mountsComplete"));
  EXPECT_FALSE(helper->stageComplete("platformReady"));

  // What an earlier run completed is still complete.
  status->completeIs("platformReady", true);
  EXPECT_TRUE(helper->stageComplete("platformReady"));
}

TEST(BootStagesHelperTest, ToleratesANullStatus) {
  auto helper = platform::make<Stage::BootStagesHelper>("boot", nullptr, nullptr, nullptr, nullptr, nullptr);
  helper->stageCompleteIs("mountsComplete");
  EXPECT_TRUE(helper->stageComplete("mountsComplete"));
  EXPECT_FALSE(helper->stageComplete("other"));
}

TEST(BootStagesHelperTest, CellPathQualifiesAStagePath) {
  EXPECT_EQ(Stage::cellPath("stage/status/mirroring", 1), "cell/1/stage/status/mirroring");
}

}  // namespace
