#include "platform/PlatformTypes.h"

#include <mutex>

#include "platform/AclTypes.h"
#include "platform/BridgingTypes.h"
#include "platform/Dir.h"
#include "platform/ErrdisableTypes.h"
#include "platform/EthIntfTypes.h"
#include "platform/HardwareTypes.h"
#include "platform/InterfaceTypes.h"
#include "platform/IpTypes.h"
#include "platform/LagTypes.h"
#include "platform/StageTypes.h"

namespace platform {

void registerPlatformTypes() {
  static std::once_flag once;
  std::call_once(once, [] {
    registerType<Dir>();
    // Roots.
    registerType<Interface::EthIntfStatusDir>();
    registerType<Interface::AllEthPhyIntfStatusDir>();
    registerType<Interface::EthLagIntfStatusDir>();
    registerType<Interface::VlanIntfStatusDir>();
    registerType<Interface::EthLagIntfConfigDir>();
    registerType<Interface::IntfForwardingModelInputDir>();
    registerType<Lag::Config>();
    registerType<Bridging::Config>();
    registerType<Bridging::SwitchIntfConfigDir>();
    registerType<Acl::Config>();
    registerType<Acl::Input::Config>();  // also the entries of acl/config/input
    registerType<Ip::AllVrfStatusGlobal>();
    registerType<Errdisable::CauseStatus>();
    registerType<Errdisable::CauseGroup>();
    registerType<Stage::AgentConfig>();
    registerType<Stage::AgentStatus>();
    registerType<EthIntf::PortModeConfig>();
    // Entries of generic directories.
    registerType<Hardware::SliceStatus>();
  });
}

}  // namespace platform
