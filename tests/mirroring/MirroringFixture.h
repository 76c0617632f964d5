// A switch around one Mirroring::ConfigSm: the entities it follows and writes, in a database,
// with helpers that read like the domain.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Mirroring/MirroringSm.h"
#include "platform/Database.h"
#include "platform/Syslog.h"

namespace mirroring_test {

using namespace Mirroring;
using platform::IntfId;
using platform::Ptr;

inline OperStatus active() { return OperStatus::active(); }
inline OperStatus inactive(const std::string& reason) { return OperStatus::inactive(reason); }

// The entities and the manager, without the test around them (a table of cases builds one per row).
struct Switch {
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

  Switch() {
    for (auto t : Acl::allAclTypes) aclConfig->config.is(t);
  }
  Switch(const Switch&) = delete;
  Switch& operator=(const Switch&) = delete;

  template <class T>
  Ptr<T> root(const std::string& path) {
    return platform::dynamicPtrCast<T>(db.rootIs<T>(path)->root());
  }

  // Starts (or restarts) the configuration manager over the same entities.
  void start(bool withPhyDir = true) {
    configSm = nullptr;
    configSm = platform::make<ConfigSm>(config, status, hwConfig, hwStatus, capability, ethIntfStatus, lagConfig,
                                        aclConfig, fwdModel, vrfStatus, lagIntfStatus,
                                        withPhyDir ? phyIntfStatus : Ptr<Interface::AllEthPhyIntfStatusDir>());
  }

  // An Ethernet (or Port-Channel) interface that is up and active in hardware.
  Ptr<Interface::EthIntfStatus> intfUp(const std::string& name, bool active = true) {
    auto s = ethIntfStatus->intfStatus.is(IntfId(name));
    s->hwActive.set(active);
    s->linkStatus.set(Interface::linkUp);
    return s;
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

  // What a session published (by hand, for sessions without a state machine).
  void publishSrc(const std::string& session, const std::string& intf, const OperStatus& s) {
    status->sessionStatusIs(session)->srcOperStatus.set(intf, s);
  }
  void publishDest(const std::string& session, const std::string& intf, const OperStatus& s) {
    status->sessionStatusIs(session)->targetOperStatus.set(intf, s);
  }
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

struct MirroringFixture : ::testing::Test, Switch {
  std::shared_ptr<platform::syslog::CaptureSink> syslog = std::make_shared<platform::syslog::CaptureSink>();

  void SetUp() override {
    platform::syslog::clearSinks();
    platform::syslog::addSink(syslog);
    capability->maxSupportedSessions.set(4);
  }
  void TearDown() override {
    configSm = nullptr;
    platform::syslog::clearSinks();
  }
  std::vector<std::string> syslogTexts(const std::string& key) const {
    std::vector<std::string> out;
    for (const auto& r : syslog->records()) {
      if (r.key == key) out.push_back(r.text);
    }
    return out;
  }
};

}  // namespace mirroring_test
