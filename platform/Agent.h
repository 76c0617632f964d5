// The agent framework: the base class of an agent and plug-in loading.
//
// An agent is a plug-in library that exports two C entry points, `agentFactory` and
// `rootFactory`. The host opens the library, makes the agent and its root, hands the agent
// an `EntityManager`, calls `doInit` (where the agent declares its mounts and local entities
// and closes its mount group), and once the mounts are complete calls `doMountsComplete` on
// the event loop. Destroying the agent is its tear-down; the database keeps what it wrote.
//
// Entry points, as a plug-in defines them:
//   extern "C" platform::Agent* agentFactory(const char* name);   // returns one reference
//   extern "C" platform::Entity* rootFactory(const char* name);   // returns one reference
#pragma once

#include <memory>
#include <string>

#include "platform/Database.h"
#include "platform/Ptr.h"

namespace platform {

class Agent : public RefCounted {
 public:
  explicit Agent(std::string name) : name_(std::move(name)) {}
  ~Agent() override = default;

  const std::string& name() const { return name_; }
  EntityManager* entityManager() const { return entityManager_; }
  void entityManagerIs(EntityManager* em) { entityManager_ = em; }

  // Declares mounts and local entities, then closes the mount group.
  virtual void doInit() {}
  // Everything mounted: build the state machines.
  virtual void doMountsComplete(MountStatus status, EntityManager* em) {
    (void)status;
    (void)em;
  }

 private:
  std::string name_;
  EntityManager* entityManager_ = nullptr;
};

using AgentFactoryFn = Agent* (*)(const char* name);
using RootFactoryFn = Entity* (*)(const char* name);

// An opened agent plug-in. The library stays loaded for the life of this object.
class Plugin {
 public:
  // Opens the library at `path`; null with `error` set when it cannot be opened or lacks an
  // entry point.
  static std::unique_ptr<Plugin> open(const std::string& path, std::string& error);
  ~Plugin();

  Ptr<Agent> agentIs(const std::string& name) const;
  Ptr<Entity> rootIs(const std::string& name) const;
  const std::string& path() const { return path_; }

 private:
  Plugin() = default;
  void* handle_ = nullptr;
  std::string path_;
  AgentFactoryFn agentFactory_ = nullptr;
  RootFactoryFn rootFactory_ = nullptr;
};

}  // namespace platform
