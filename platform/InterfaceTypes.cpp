#include "platform/InterfaceTypes.h"

namespace Interface {

using platform::IntfId;
using platform::Ptr;

Ptr<EthIntfStatus> EthIntfStatusDir::intfStatusIs(const IntfId& id) { return intfStatus.is(id); }
void EthIntfStatusDir::intfStatusDel(const IntfId& id) { intfStatus.del(id); }

Ptr<EthPhyIntfStatus> AllEthPhyIntfStatusDir::intfStatusIs(const IntfId& id) { return intfStatus.is(id); }
void AllEthPhyIntfStatusDir::intfStatusDel(const IntfId& id) { intfStatus.del(id); }

Ptr<EthLagIntfStatus> EthLagIntfStatusDir::intfStatusIs(const IntfId& id) { return intfStatus.is(id); }
void EthLagIntfStatusDir::intfStatusDel(const IntfId& id) { intfStatus.del(id); }

Ptr<EthLagIntfConfig> EthLagIntfConfigDir::intfConfigIs(const IntfId& id) { return intfConfig.is(id); }
void EthLagIntfConfigDir::intfConfigDel(const IntfId& id) { intfConfig.del(id); }

Ptr<VlanIntfStatus> VlanIntfStatusDir::intfStatusIs(const IntfId& id) { return intfStatus.is(id); }
void VlanIntfStatusDir::intfStatusDel(const IntfId& id) { intfStatus.del(id); }

void IntfForwardingModelInputDir::forwardingModelInputIs(const IntfId& id, IntfForwardingModel model) {
  forwardingModelInput.set(id, model);
}
void IntfForwardingModelInputDir::forwardingModelInputDel(const IntfId& id) { forwardingModelInput.del(id); }

}  // namespace Interface
