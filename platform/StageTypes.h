// Boot stages: how an agent tells the rest of the system which of its start-up stages are done.
//
// An agent's stages belong to a stage class; the stage configuration (`AgentConfig`) names the
// stages an agent's boot waits for, and the agent marks each stage it finishes in its
// `AgentStatus`. `BootStagesHelper` bundles what an agent needs for that, so the agent's own
// operation that installs it can compare the arguments with what it already holds.
//
// Stage paths may be qualified by the cell they belong to: `cellPath` gives
// "cell/<cell>/<path>".
//
// Precondition a caller could get wrong: the helper holds a plain pointer to its agent; the
// agent must outlive it (the agent owns it).
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "platform/Dir.h"
#include "platform/Entity.h"

namespace platform {
class Agent;
}

namespace Stage {

// The stages an agent's boot waits for (stage name -> waited for).
struct AgentConfig : platform::EntityOf<AgentConfig> {
  static constexpr const char* typeName = "Stage::AgentConfig";
  AgentConfig() = default;

  platform::Coll<std::string, bool> dependency{this};

  void dependencyIs(const std::string& stage, bool waitedFor);
  void dependencyDel(const std::string& stage);

  template <class D>
  void fields(D& d) {
    d("dependency", dependency);
  }
};

// The stages an agent has completed (stage name -> complete).
struct AgentStatus : platform::EntityOf<AgentStatus> {
  static constexpr const char* typeName = "Stage::AgentStatus";
  AgentStatus() = default;

  platform::Coll<std::string, bool> complete{this};

  void completeIs(const std::string& stage, bool done);
  void completeDel(const std::string& stage);

  template <class D>
  void fields(D& d) {
    d("complete", complete);
  }
};

// "cell/<cell>/<path>".
std::string cellPath(const std::string& path, uint32_t cell);

class BootStagesHelper : public platform::RefCounted {
 public:
  // Only `stageStatus` is written; `progressDir` may be null, and a null `stageStatus` makes
  // completion local to this helper.
  BootStagesHelper(std::string stageClass, platform::Ptr<const AgentConfig> stageConfig,
                   platform::Ptr<AgentStatus> stageStatus, platform::Ptr<const platform::Dir> progressDir,
                   platform::Ptr<const AgentConfig> agentConfig, platform::Agent* agent);

  // Records the stage as complete here and, when there is a status, as complete[stage] = true.
  void stageCompleteIs(const std::string& stage);
  // True once this helper was told so, or when the status says so (a stage an earlier run of
  // the agent completed stays complete).
  bool stageComplete(const std::string& stage) const;

  const std::string& stageClass() const { return stageClass_; }
  const platform::Ptr<const AgentConfig>& stageConfig() const { return stageConfig_; }
  const platform::Ptr<AgentStatus>& stageStatus() const { return stageStatus_; }
  const platform::Ptr<const platform::Dir>& progressDir() const { return progressDir_; }
  const platform::Ptr<const AgentConfig>& agentConfig() const { return agentConfig_; }
  platform::Agent* agent() const { return agent_; }

 private:
  std::string stageClass_;
  platform::Ptr<const AgentConfig> stageConfig_;
  platform::Ptr<AgentStatus> stageStatus_;
  platform::Ptr<const platform::Dir> progressDir_;
  platform::Ptr<const AgentConfig> agentConfig_;
  platform::Agent* agent_;
  std::set<std::string> completed_;
};

}  // namespace Stage
