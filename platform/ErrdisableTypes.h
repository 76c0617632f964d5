// Error-disable: interfaces shut down by an agent because of a fault, grouped by cause.
//
// An agent that can error-disable interfaces describes its cause group once at start-up
// (`ErrdisableCauseGroupInit` fills the `CauseGroup` mounted at
// interface/errdisable/causegroup/<group name>) and files each interface it disables in its
// `CauseStatus` with the time it did so.
//
// Preconditions a caller could get wrong:
// - `ErrdisableCauseGroupInit` needs the cause group mounted writable by the calling agent at
//   that path; a missing mount is a fatal assertion.
// - Time stamps are in seconds on the writing agent's clock (`EntityManager::clock()`).
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "platform/Entity.h"

namespace platform {
class EntityManager;
}

namespace Errdisable {

enum CauseGroupType : uint8_t { causeGroupTypeInterface = 0, causeGroupTypeSystem = 1 };
constexpr auto enumEntries(CauseGroupType) {
  using E = platform::EnumEntry<CauseGroupType>;
  return std::array{E{causeGroupTypeInterface, "causeGroupTypeInterface"},
                    E{causeGroupTypeSystem, "causeGroupTypeSystem"}};
}

// The interfaces one cause has error-disabled, with when.
struct CauseStatus : platform::EntityOf<CauseStatus> {
  static constexpr const char* typeName = "Errdisable::CauseStatus";
  CauseStatus() = default;

  platform::Coll<platform::IntfId, double> intfStatus{this};  // seconds

  void intfStatusIs(const platform::IntfId& intf, double time);
  void intfStatusDel(const platform::IntfId& intf);

  template <class D>
  void fields(D& d) {
    d("intfStatus", intfStatus);
  }
};

// What a cause group is and how the system treats interfaces it disables.
struct CauseGroup : platform::EntityOf<CauseGroup> {
  static constexpr const char* typeName = "Errdisable::CauseGroup";
  CauseGroup() = default;

  platform::Attr<std::string> groupName{this};
  platform::Attr<std::string> causeDescription{this};  // shown to the operator
  platform::Attr<std::string> stateText{this};         // the interface state shown while disabled
  platform::Attr<CauseGroupType> groupType{this};
  platform::Attr<uint32_t> priority{this};             // which group is shown when several apply
  platform::Attr<bool> recoveryByDefault{this};        // recovered by timer unless configured not to
  platform::Attr<bool> shutdownLink{this};             // the link is brought down, not just blocked
  platform::Attr<bool> logEvents{this};                // disabling and recovery are logged
  platform::Attr<bool> perInterface{this};             // the cause is tracked per interface
  platform::Attr<bool> showInStatus{this};             // listed in the error-disable status

  template <class D>
  void fields(D& d) {
    d("groupName", groupName);
    d("causeDescription", causeDescription);
    d("stateText", stateText);
    d("groupType", groupType);
    d("priority", priority);
    d("recoveryByDefault", recoveryByDefault);
    d("shutdownLink", shutdownLink);
    d("logEvents", logEvents);
    d("perInterface", perInterface);
    d("showInStatus", showInStatus);
  }
};

// The mount path of a cause group.
std::string causeGroupPath(const std::string& groupName);

// Fills every field of the cause group mounted (writable) at causeGroupPath(groupName).
void ErrdisableCauseGroupInit(platform::EntityManager* em, const std::string& groupName, bool recoveryByDefault,
                              const std::string& causeDescription, bool shutdownLink, bool logEvents,
                              bool perInterface, bool showInStatus, CauseGroupType groupType, uint32_t priority,
                              const std::string& stateText);

}  // namespace Errdisable
