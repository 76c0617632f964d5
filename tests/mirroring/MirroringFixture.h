// A switch around one Mirroring::ConfigSm: the entities it follows and writes, in a database,
// with helpers that read like the domain.
#pragma once

#include <gtest/gtest.h>

#include "Mirroring/MirroringSm.h"
#include "platform/Database.h"
#include "platform/Syslog.h"

namespace mirroring_test {

using namespace Mirroring;
using platform::IntfId;
using platform::Ptr;

struct MirroringFixture : ::testing::Test {
  platform::Database db;
  Ptr<Config> config = root<Config>("mirroring/config");
  Ptr<Status> status = root<Status>("mirroring/status");
  Ptr<Config> hwConfig = root<Config>("mirroring/hwconfig");
  Ptr<HwStatus> hwStatus = root<HwStatus>("mirroring/hwstatus");
  Ptr<HwCapability> capability = root<HwCapability>("mirroring/hwcapability");
  Ptr<Interface::EthIntfStatusDir> ethIntfStatus = root<Interface::EthIntfStatusDir>("interface/status/eth/intf");
  Ptr<Interface::AllEthPhyIntfStatusDir> phyIntfStatus =
      root<Interface::AllEthPhyIntfStatusDir>("interface/status/eth/phy/all");
  Ptr<Interface::EthLagIntfStatusDir> lagIntfStatus = root<Interface::EthLagIntfStatusDir>("interface/status/eth/lag");
  Ptr<Lag::Config> lagConfig = root<Lag::Config>("lag/config");
  Ptr<Acl::Config> aclConfig = root<Acl::Config>("acl/config");
  Ptr<Interface::IntfForwardingModelInputDir> fwdModel =
      root<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/mirroring");
  Ptr<Ip::AllVrfStatusGlobal> vrfStatus = root<Ip::AllVrfStatusGlobal>("ip/vrf/status/global");
  Ptr<ConfigSm> configSm;
  std::shared_ptr<platform::syslog::CaptureSink> syslog = std::make_shared<platform::syslog::CaptureSink>();

  template <class T>
  Ptr<T> root(const std::string& path) {
    return platform::dynamicPtrCast<T>(db.rootIs<T>(path)->root());
  }

  void SetUp() override {
    platform::syslog::clearSinks();
    platform::syslog::addSink(syslog);
    for (auto t : Acl::allAclTypes) aclConfig->config.is(t);
    capability->maxSupportedSessions.set(4);
  }
  void TearDown() override { platform::syslog::clearSinks(); }

  // Starts (or restarts) the configuration manager over the same entities.
  void start() {
    configSm = nullptr;
    configSm = platform::make<ConfigSm>(config, status, hwConfig, hwStatus, capability, ethIntfStatus, lagConfig,
                                        aclConfig, fwdModel, vrfStatus, lagIntfStatus, phyIntfStatus);
  }

  // An Ethernet (or Port-Channel) interface that is up and active in hardware.
  void intfUp(const std::string& name, bool active = true) {
    auto s = ethIntfStatus->intfStatus.is(IntfId(name));
    s->hwActive.set(active);
    s->linkStatus.set(Interface::linkUp);
  }
  void intfGone(const std::string& name) { ethIntfStatus->intfStatus.del(IntfId(name)); }
  void lagMember(const std::string& member, const std::string& lag) {
    lagConfig->phyIntf.is(IntfId(member))->lag.set(IntfId(lag));
    lagIntfStatus->intfStatus.is(IntfId(lag));
  }

  Ptr<Session> addSession(const std::string& name, const std::vector<std::string>& sources,
                          const std::vector<std::string>& dests, Direction dir = Direction::both) {
    // Built whole before it is inserted, as the configuration would publish it.
    auto s = platform::make<Session>(name);
    for (const auto& src : sources) s->srcIntfIs(src, dir);
    for (const auto& d : dests) s->targetIntfIs(d);
    config->session.insert(name, s);
    return s;
  }
  void deleteSession(const std::string& name) { config->sessionDel(name); }

  OperStatus source(const std::string& session, const std::string& intf) {
    auto s = status->sessionStatus.get(session);
    return s ? s->srcOperStatus.get(intf) : OperStatus();
  }
  OperStatus dest(const std::string& session, const std::string& intf) {
    auto s = status->sessionStatus.get(session);
    return s ? s->targetOperStatus.get(intf) : OperStatus();
  }
  Ptr<const Session> hwSession(const std::string& name) { return Ptr<const Session>(hwConfig->session.get(name)); }
  uint64_t writes() const { return db.totalWrites(); }
};

inline OperStatus active() { return OperStatus::active(); }
inline OperStatus inactive(const std::string& reason) { return OperStatus::inactive(reason); }

}  // namespace mirroring_test
