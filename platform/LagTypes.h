// Port-channel membership of physical ports, as the LAG configuration publishes it.
//
// The mirroring agent reads it to learn which Port-Channel a port belongs to: a port that is
// a member cannot also be a mirror destination on its own.
//
// Precondition a caller could get wrong: `lag` is empty (the default IntfId) for a port that
// belongs to no port-channel; it is never the port's own name.
#pragma once

#include <cstdint>

#include "platform/Entity.h"

namespace Lag {

struct EthPhyIntfLagConfig : platform::EntityOf<EthPhyIntfLagConfig> {
  static constexpr const char* typeName = "Lag::EthPhyIntfLagConfig";
  EthPhyIntfLagConfig() = default;
  explicit EthPhyIntfLagConfig(const platform::IntfId& id) { intfId.set(id); }

  platform::Attr<platform::IntfId> intfId{this};
  platform::Attr<platform::IntfId, platform::IntfOfKindTraits<platform::IntfKind::portChannel>> lag{
      this};  // the Port-Channel, empty when none
  platform::Attr<uint16_t> priority{this};     // the port's LACP priority

  template <class D>
  void fields(D& d) {
    d.key("intfId", intfId);
    d("lag", lag);
    d("priority", priority);
  }
};

struct Config : platform::EntityOf<Config> {
  static constexpr const char* typeName = "Lag::Config";
  Config() = default;

  // Members are Ethernet ports.
  platform::Coll<platform::IntfId, platform::Ptr<EthPhyIntfLagConfig>,
                 platform::IntfOfKindTraits<platform::IntfKind::ethernet>>
      phyIntf{this};

  platform::Ptr<EthPhyIntfLagConfig> phyIntfIs(const platform::IntfId& id);
  void phyIntfDel(const platform::IntfId& id);

  template <class D>
  void fields(D& d) {
    d("phyIntf", phyIntf);
  }
};

}  // namespace Lag
