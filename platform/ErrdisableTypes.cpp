#include "platform/ErrdisableTypes.h"

#include <cstdio>

#include "platform/Database.h"

namespace Errdisable {

void CauseStatus::intfStatusIs(const platform::IntfId& intf, double time) { intfStatus.set(intf, time); }
void CauseStatus::intfStatusDel(const platform::IntfId& intf) { intfStatus.del(intf); }

std::string causeGroupPath(const std::string& groupName) { return "interface/errdisable/causegroup/" + groupName; }

void ErrdisableCauseGroupInit(platform::EntityManager* em, const std::string& groupName, bool recoveryByDefault,
                              const std::string& causeDescription, bool shutdownLink, bool logEvents,
                              bool perInterface, bool showInStatus, CauseGroupType groupType, uint32_t priority,
                              const std::string& stateText) {
  PLATFORM_ASSERT(em && "ErrdisableCauseGroupInit needs an entity manager");
  const std::string path = causeGroupPath(groupName);
  platform::Ptr<CauseGroup> group = em->lookup<CauseGroup>(path);
  // The assertion text is fixed, so name the group that is missing first.
  if (!group) {
    std::fprintf(stderr, "errdisable cause group \"%s\": no CauseGroup mounted writable at %s\n", groupName.c_str(),
                 path.c_str());
  }
  PLATFORM_ASSERT(group && "no errdisable cause group mounted at interface/errdisable/causegroup/<groupName>");
  group->groupName.set(groupName);
  group->causeDescription.set(causeDescription);
  group->stateText.set(stateText);
  group->groupType.set(groupType);
  group->priority.set(priority);
  group->recoveryByDefault.set(recoveryByDefault);
  group->shutdownLink.set(shutdownLink);
  group->logEvents.set(logEvents);
  group->perInterface.set(perInterface);
  group->showInStatus.set(showInStatus);
}

}  // namespace Errdisable
