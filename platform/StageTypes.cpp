#include "platform/StageTypes.h"

namespace Stage {

void AgentConfig::dependencyIs(const std::string& stage, bool waitedFor) { dependency.set(stage, waitedFor); }
void AgentConfig::dependencyDel(const std::string& stage) { dependency.del(stage); }

void AgentStatus::completeIs(const std::string& stage, bool done) { complete.set(stage, done); }
void AgentStatus::completeDel(const std::string& stage) { complete.del(stage); }

std::string cellPath(const std::string& path, uint32_t cell) { return "cell/" + std::to_string(cell) + "/" + path; }

BootStagesHelper::BootStagesHelper(std::string stageClass, platform::Ptr<const AgentConfig> stageConfig,
                                   platform::Ptr<AgentStatus> stageStatus,
                                   platform::Ptr<const platform::Dir> progressDir,
                                   platform::Ptr<const AgentConfig> agentConfig, platform::Agent* agent)
    : stageClass_(std::move(stageClass)),
      stageConfig_(std::move(stageConfig)),
      stageStatus_(std::move(stageStatus)),
      progressDir_(std::move(progressDir)),
      agentConfig_(std::move(agentConfig)),
      agent_(agent) {}

void BootStagesHelper::stageCompleteIs(const std::string& stage) {
  completed_.insert(stage);
  if (stageStatus_) stageStatus_->completeIs(stage, true);
}

bool BootStagesHelper::stageComplete(const std::string& stage) const {
  if (completed_.count(stage)) return true;
  return stageStatus_ && stageStatus_->complete.get(stage, false);
}

}  // namespace Stage
