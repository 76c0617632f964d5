// A switch around one TapAgg::ConfigSm: the entities tap aggregation reads and writes, filed
// in a database at the agent's mount paths (so that writes can be counted), with helpers that
// read like the domain.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Mirroring/TapAggSm.h"
#include "platform/Database.h"
#include "platform/HardwareTypes.h"
#include "platform/Syslog.h"

namespace tapagg_test {

using platform::IntfId;
using platform::Ptr;
using TapAgg::PortStatus;
using TapAgg::TapAggMode;

inline PortStatus activePort() { return PortStatus{}; }
inline PortStatus inactivePort(const std::string& reason) { return PortStatus{false, reason}; }

struct TapAggFixture : ::testing::Test {
  platform::Database db;
  Ptr<TapAgg::CliConfig> cliConfig = root<TapAgg::CliConfig>("tapagg/cliconfig");
  Ptr<TapAgg::HwConfig> hwConfig = root<TapAgg::HwConfig>("tapagg/hwconfig");
  Ptr<TapAgg::Status> status = root<TapAgg::Status>("tapagg/status");
  Ptr<Bridging::SwitchIntfConfigDir> cliIntfs = root<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig");
  Ptr<Bridging::Config> bridging = root<Bridging::Config>("bridging/config");
  Ptr<Interface::EthIntfStatusDir> eth = root<Interface::EthIntfStatusDir>("interface/status/eth/intf");
  Ptr<Mirroring::Status> mirroring = root<Mirroring::Status>("mirroring/status");
  Ptr<Errdisable::CauseStatus> errdisabled = root<Errdisable::CauseStatus>("interface/errdisable/cause/tapagg");
  Ptr<Interface::VlanIntfStatusDir> vlans = root<Interface::VlanIntfStatusDir>("interface/status/eth/vlan");
  Ptr<Interface::EthLagIntfStatusDir> lags = root<Interface::EthLagIntfStatusDir>("interface/status/eth/lag");
  Ptr<Lag::Config> lagConfig = root<Lag::Config>("lag/config");
  Ptr<EthIntf::PortModeConfig> portModes = root<EthIntf::PortModeConfig>("stp/portMode/tapagg");
  Ptr<Interface::IntfForwardingModelInputDir> lagForwarding =
      root<Interface::IntfForwardingModelInputDir>("interface/input/forwardingmodel/lag");
  Ptr<platform::Dir> slices = root<platform::Dir>("hardware/fcx/slice/status");
  platform::Clock clock{1000.0};
  Ptr<TapAgg::ConfigSm> configSm;
  std::shared_ptr<platform::syslog::CaptureSink> syslog = std::make_shared<platform::syslog::CaptureSink>();

  template <class T>
  Ptr<T> root(const std::string& path) {
    return platform::dynamicPtrCast<T>(db.rootIs<T>(path)->root());
  }

  void SetUp() override {
    platform::syslog::clearSinks();
    platform::syslog::addSink(syslog);
  }
  void TearDown() override {
    configSm = nullptr;
    platform::syslog::clearSinks();
  }

  // Starts (or restarts, as after an agent crash) the configuration manager over the same entities.
  void start(TapAggMode mode) {
    cliConfig->mode.set(mode);
    start();
  }
  void start() {
    configSm = nullptr;
    configSm = platform::make<TapAgg::ConfigSm>(cliConfig, hwConfig, cliIntfs, bridging, &clock, eth, status,
                                                mirroring, errdisabled, vlans, lags, lagConfig, portModes,
                                                lagForwarding, slices);
    configSm->handleInitialized();
  }
  void modeIs(TapAggMode mode) { cliConfig->mode.set(mode); }

  // An interface's switchport configuration: the CLI record with its groups (built whole, as the
  // CLI publishes it) and its resolved mode.
  Ptr<Bridging::Input::SwitchIntfConfig> port(const std::string& name, Bridging::SwitchportMode mode,
                                              const std::vector<std::string>& tapGroups = {},
                                              const std::vector<std::string>& toolGroups = {}) {
    auto cli = platform::make<Bridging::Input::SwitchIntfConfig>(IntfId(name));
    cli->switchportMode.set(mode);
    for (const auto& g : tapGroups) cli->tapGroupIs(g);
    for (const auto& g : toolGroups) cli->toolGroupIs(g);
    cliIntfs->switchIntfConfig.insert(IntfId(name), cli);
    switchportModeIs(name, mode);
    return cli;
  }
  void switchportModeIs(const std::string& name, Bridging::SwitchportMode mode) {
    bridging->switchIntfConfigIs(IntfId(name))->switchportMode.set(mode);
  }
  Ptr<Bridging::Input::SwitchIntfConfig> cli(const std::string& name) {
    return cliIntfs->switchIntfConfig.get(IntfId(name));
  }

  void link(const std::string& name, Interface::LinkStatus s) { eth->intfStatusIs(IntfId(name))->linkStatus.set(s); }
  void up(const std::string& name) { link(name, Interface::linkUp); }
  void lagMember(const std::string& member, const std::string& lag) {
    lagConfig->phyIntfIs(IntfId(member))->lag.set(IntfId(lag));
    lags->intfStatusIs(IntfId(lag));
  }
  // The mirroring side publishing a session's target with a state.
  void target(const std::string& session, const std::string& intf, Mirroring::OperState state) {
    mirroring->sessionStatusIs(session)->targetOperStatus.set(intf, Mirroring::OperStatus(state));
  }

  // --- what was written ---
  std::optional<PortStatus> tapStatus(const std::string& group, const std::string& intf) const {
    return portStatus(group, intf, true);
  }
  std::optional<PortStatus> toolStatus(const std::string& group, const std::string& intf) const {
    return portStatus(group, intf, false);
  }
  std::optional<PortStatus> portStatus(const std::string& group, const std::string& intf, bool tap) const {
    auto g = Ptr<const TapAgg::Status>(status)->group.get(group);
    if (!g) return std::nullopt;
    const PortStatus* s = (tap ? g->tapPort : g->toolPort).find(intf);
    return s ? std::optional<PortStatus>(*s) : std::nullopt;
  }
  std::vector<std::string> groups() const { return status->group.keys(); }
  static std::vector<std::string> names(const std::vector<IntfId>& ids) {
    std::vector<std::string> out;
    for (const auto& id : ids) out.push_back(id.name());
    return out;
  }
  std::vector<std::string> hwTapPorts() const { return names(hwConfig->tapPort.keys()); }
  std::vector<std::string> hwToolPorts() const { return names(hwConfig->toolPort.keys()); }
  std::vector<std::string> errdisabledIntfs() const { return names(errdisabled->intfStatus.keys()); }
  std::optional<double> errdisabledSince(const std::string& intf) const {
    const double* t = errdisabled->intfStatus.find(IntfId(intf));
    return t ? std::optional<double>(*t) : std::nullopt;
  }
  std::optional<EthIntf::PortMode> portMode(const std::string& intf) const {
    const EthIntf::PortMode* m = portModes->portMode.find(intf);
    return m ? std::optional<EthIntf::PortMode>(*m) : std::nullopt;
  }
  std::vector<std::string> operationalModeTexts() const {
    std::vector<std::string> out;
    for (const auto& r : syslog->records()) {
      if (r.key == "TAPAGG_OPERATIONAL_MODE") out.push_back(r.text);
    }
    return out;
  }
  PortStatus portStatusOf(const std::string& intf) const { return TapAgg::getPortStatus(*configSm, IntfId(intf)); }
  // Writes to what tap aggregation publishes (its inputs written by a test do not count).
  uint64_t outputWrites() const {
    uint64_t n = 0;
    for (const char* path : {"tapagg/hwconfig", "tapagg/status", "stp/portMode/tapagg",
                             "interface/errdisable/cause/tapagg"}) {
      n += db.find(path)->writes();
    }
    return n;
  }
};

}  // namespace tapagg_test
