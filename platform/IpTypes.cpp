#include "platform/IpTypes.h"

namespace Ip {

platform::Ptr<VrfStatus> AllVrfStatusGlobal::vrfIs(const platform::VrfName& name) { return vrf.is(name); }
void AllVrfStatusGlobal::vrfDel(const platform::VrfName& name) { vrf.del(name); }

}  // namespace Ip
