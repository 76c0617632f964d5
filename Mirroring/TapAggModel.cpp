#include "Mirroring/TapAggModel.h"

#include "platform/ValueTraits.h"

namespace TapAgg {

std::ostream& operator<<(std::ostream& os, TapAggMode m) {
  if (const char* name = platform::enumName(m)) return os << name;
  return os << unsigned(m);
}

std::ostream& operator<<(std::ostream& os, const PortStatus& s) {
  return os << "PortStatus(active=" << (s.active ? "true" : "false") << " reason=\"" << s.reason << "\")";
}

void registerTapAggTypes() {
  platform::registerType<CliConfig>();
  platform::registerType<HwConfig>();
  platform::registerType<HwStatus>();
  platform::registerType<Status>();
}

}  // namespace TapAgg
