#include "host/AgentHost.h"

#include "platform/PlatformTypes.h"

namespace host {

AgentHost::AgentHost(std::string agentName, double clockStart)
    : agentName_(std::move(agentName)), loop_(clockStart) {
  db_.writeListenerIs([this](const platform::Mount& m, const platform::FieldBase& f, platform::WriteKind kind,
                             const void* key) { onWrite(m, f, kind, key); });
}

AgentHost::~AgentHost() {
  stop();
  db_.writeListenerIs(nullptr);
}

bool AgentHost::openPlugin(const std::string& path, std::string& error) {
  // The platform's entity types are registered by name before any plug-in loads, as on a
  // switch, so that generic directories and state files can name them. Repeated calls are no-ops.
  platform::registerPlatformTypes();
  plugin_ = platform::Plugin::open(path, error);
  return bool(plugin_);
}

void AgentHost::onWrite(const platform::Mount& m, const platform::FieldBase& f, platform::WriteKind kind,
                        const void* key) {
  if (loading_ || !listener_ || !m.writableByAgent()) return;
  listener_(m, platform::describeWrite(f, kind, key));
}

bool AgentHost::start(const platform::Value* state, const std::string& stateName, std::string& error) {
  PLATFORM_ASSERT(plugin_ && !agent_);
  agent_ = plugin_->agentIs(agentName_);
  if (!agent_) {
    error = "the plug-in " + plugin_->path() + " made no agent named \"" + agentName_ + "\"";
    return false;
  }
  root_ = plugin_->rootIs(agentName_);
  em_ = std::make_unique<platform::EntityManager>(db_, loop_);
  agent_->entityManagerIs(em_.get());
  agent_->doInit();

  platform::MountGroup& group = *em_->mountGroup();
  if (!group.closed()) {
    error = "agent \"" + agentName_ + "\" did not close its mount group in doInit";
    stop();
    return false;
  }
  if (!group.problems().empty()) {
    error = "agent \"" + agentName_ + "\" could not mount ";
    for (std::size_t i = 0; i < group.problems().size(); ++i) error += (i ? "; " : "") + group.problems()[i];
    stop();
    return false;
  }

  if (state) {
    loading_ = true;
    bool loaded = platform::loadState(db_, *state, error);
    loading_ = false;
    if (!loaded) {
      error = stateName + ": " + error;
      stop();
      return false;
    }
  }

  ++starts_;
  platform::Ptr<platform::Agent> agent = agent_;
  platform::EntityManager* em = em_.get();
  platform::MountStatus status = group.status();
  loop_.post([agent, em, status] { agent->doMountsComplete(status, em); });
  loop_.runPending();
  return true;
}

void AgentHost::stop() {
  // The agent goes first (its tear-down may still use the entity manager), then its root.
  agent_ = nullptr;
  root_ = nullptr;
  em_.reset();
}

bool AgentHost::restart(std::string& error) {
  // Whatever the old agent left pending belongs to it and runs before it goes.
  loop_.runPending();
  stop();
  return start(nullptr, "", error);
}

}  // namespace host
