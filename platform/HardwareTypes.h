// Forwarding-chip state that hardware agents publish.
//
// Each slice of a forwarding chip publishes a `SliceStatus` as an entry of the generic
// directory hardware/fcx/slice/status (entry name: the slice's name); agents that program the
// chip wait until the slices of a linecard are ready.
#pragma once

#include <cstdint>

#include "platform/Entity.h"

namespace Hardware {

struct SliceStatus : platform::EntityOf<SliceStatus> {
  static constexpr const char* typeName = "Hardware::SliceStatus";
  SliceStatus() = default;

  platform::Attr<bool> ready{this};
  platform::Attr<uint32_t> linecard{this};  // 0 on a fixed system

  template <class D>
  void fields(D& d) {
    d("ready", ready);
    d("linecard", linecard);
  }
};

}  // namespace Hardware
