// Runs one agent plug-in over an embedded state database, the way a switch starts an agent.
//
// The host owns the database and the event loop; the agent comes and goes. Start-up is the
// switch's order: the two factories, an EntityManager, doInit (which must close the mount
// group), the initial state loaded into the declared mounts (first start only), then
// doMountsComplete on the event loop and whatever work that leaves pending. A restart drops
// the agent (releasing the last reference is its tear-down) and starts a new one from the
// factories over the same database, which keeps everything, as after an agent crash.
//
// Every write to a mount the agent may write (mounted "w" or a local entity) is handed to the
// write listener, except the writes of loading the initial state: those are the starting
// point, not something the agent did.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/Agent.h"
#include "platform/Codec.h"
#include "platform/Database.h"
#include "platform/EventLoop.h"

namespace host {

class AgentHost {
 public:
  using WriteListener = std::function<void(const platform::Mount&, const platform::Change&)>;

  AgentHost(std::string agentName, double clockStart);
  ~AgentHost();
  AgentHost(const AgentHost&) = delete;
  AgentHost& operator=(const AgentHost&) = delete;

  // Opens the plug-in library; false with `error` when it cannot be used.
  bool openPlugin(const std::string& path, std::string& error);

  // Creates and starts the agent. `state` (a JSON object from mount path to content, may be
  // null) is loaded after doInit; a state that cannot be loaded fails the start with an error
  // that begins with `stateName`. Precondition: openPlugin succeeded and no agent is running.
  bool start(const platform::Value* state, const std::string& stateName, std::string& error);
  // Tears the running agent down and starts a new one over the same database.
  bool restart(std::string& error);
  // Drops the agent (its tear-down); the database stays.
  void stop();

  void writeListenerIs(WriteListener l) { listener_ = std::move(l); }

  platform::Database& database() { return db_; }
  platform::EventLoop& loop() { return loop_; }
  bool running() const { return bool(agent_); }
  int starts() const { return starts_; }

 private:
  void onWrite(const platform::Mount& m, const platform::FieldBase& f, platform::WriteKind kind, const void* key);

  std::string agentName_;
  platform::Database db_;
  platform::EventLoop loop_;
  std::unique_ptr<platform::Plugin> plugin_;
  std::unique_ptr<platform::EntityManager> em_;
  platform::Ptr<platform::Agent> agent_;
  // The agent's root as the switch would register it; lives as long as the agent.
  platform::Ptr<platform::Entity> root_;
  WriteListener listener_;
  bool loading_ = false;
  int starts_ = 0;
};

}  // namespace host
