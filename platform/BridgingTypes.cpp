#include "platform/BridgingTypes.h"

namespace Bridging {

using platform::IntfId;
using platform::Ptr;

Ptr<SwitchIntfConfig> Config::switchIntfConfigIs(const IntfId& id) { return switchIntfConfig.is(id); }
void Config::switchIntfConfigDel(const IntfId& id) { switchIntfConfig.del(id); }

Ptr<Input::SwitchIntfConfig> SwitchIntfConfigDir::switchIntfConfigIs(const IntfId& id) {
  return switchIntfConfig.is(id);
}
void SwitchIntfConfigDir::switchIntfConfigDel(const IntfId& id) { switchIntfConfig.del(id); }

namespace Input {

void SwitchIntfConfig::tapGroupIs(const std::string& group) { tapGroup.insert(group); }
void SwitchIntfConfig::tapGroupDel(const std::string& group) { tapGroup.del(group); }
void SwitchIntfConfig::toolGroupIs(const std::string& group) { toolGroup.insert(group); }
void SwitchIntfConfig::toolGroupDel(const std::string& group) { toolGroup.del(group); }
void SwitchIntfConfig::tapRawIntfIs(const IntfId& id, bool raw) { tapRawIntf.set(id, raw); }
void SwitchIntfConfig::tapRawIntfDel(const IntfId& id) { tapRawIntf.del(id); }

}  // namespace Input

}  // namespace Bridging
