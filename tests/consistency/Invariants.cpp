#include "consistency/Invariants.h"

#include "consistency/DumpView.h"

namespace consistency {

const std::vector<Invariant>& invariants() {
  static const std::vector<Invariant> all = [] {
    std::vector<Invariant> v = mirroringInvariants();
    for (const auto* part : {&usabilityInvariants(), &tapAggInvariants()})
      v.insert(v.end(), part->begin(), part->end());
    return v;
  }();
  return all;
}

std::vector<Violation> checkInvariants(const nlohmann::json& dump) {
  DumpView view(dump);
  std::vector<Violation> out;
  std::vector<std::string> details;
  for (const Invariant& inv : invariants()) {
    details.clear();
    inv.check(view, details);
    for (auto& d : details) out.push_back(Violation{inv.name, std::move(d)});
  }
  return out;
}

}  // namespace consistency
