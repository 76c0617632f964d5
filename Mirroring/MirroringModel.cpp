#include "Mirroring/MirroringModel.h"

#include <ostream>

#include "platform/ValueTraits.h"

namespace Mirroring {

std::ostream& operator<<(std::ostream& os, const OperStatus& s) {
  os << platform::enumName(s.state);
  if (!s.reason.empty()) os << " (" << s.reason << ")";
  return os;
}

namespace {
// FNV-1a, folded over each field in order.
uint32_t mix(uint32_t h, const void* data, std::size_t n) {
  const auto* p = static_cast<const uint8_t*>(data);
  for (std::size_t i = 0; i < n; ++i) {
    h ^= p[i];
    h *= 16777619u;
  }
  return h;
}
}  // namespace

uint32_t GreTunnelKey::hash() const {
  uint32_t h = 2166136261u;
  h ^= srcIpAddr.hash();
  h *= 16777619u;
  h ^= dstIpAddr.hash();
  h *= 16777619u;
  h = mix(h, &ttl, sizeof ttl);
  h = mix(h, &tos, sizeof tos);
  h = mix(h, &greProto, sizeof greProto);
  h = mix(h, &greKey, sizeof greKey);
  h = mix(h, vrf.str().data(), vrf.str().size());
  return h;
}

bool GreTunnelKey::hasUsableDestination() const {
  if (dstIpAddr.isV4()) return !dstIpAddr.isV4Any();
  if (dstIpAddr.isV6()) return !dstIpAddr.isV6Unspecified();
  return false;
}

std::ostream& operator<<(std::ostream& os, const GreTunnelKey& k) {
  return os << "GreTunnelKey(src=" << k.srcIpAddr << " dst=" << k.dstIpAddr << " ttl=" << unsigned(k.ttl)
            << " tos=" << unsigned(k.tos) << " proto=0x" << std::hex << k.greProto << std::dec
            << " key=" << k.greKey << " vrf=" << k.vrf << ")";
}

void registerMirroringTypes() {
  platform::registerType<Config>();
  platform::registerType<HwCapability>();
  platform::registerType<HwStatus>();
  platform::registerType<Status>();
}

}  // namespace Mirroring
