#include "platform/EthIntfTypes.h"

namespace EthIntf {

void PortModeConfig::portModeIs(const std::string& intfName, PortMode mode) { portMode.set(intfName, mode); }
void PortModeConfig::portModeDel(const std::string& intfName) { portMode.del(intfName); }

}  // namespace EthIntf
