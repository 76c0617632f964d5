#include "platform/LagTypes.h"

namespace Lag {

platform::Ptr<EthPhyIntfLagConfig> Config::phyIntfIs(const platform::IntfId& id) { return phyIntf.is(id); }
void Config::phyIntfDel(const platform::IntfId& id) { phyIntf.del(id); }

}  // namespace Lag
