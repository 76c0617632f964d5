#include "platform/Agent.h"

#include <dlfcn.h>

namespace platform {

std::unique_ptr<Plugin> Plugin::open(const std::string& path, std::string& error) {
  // RTLD_GLOBAL: the plug-in's entity types must be the same types the host sees.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
  if (!handle) {
    const char* why = dlerror();
    error = "cannot load agent plug-in " + path + ": " + (why ? why : "unknown error");
    return nullptr;
  }
  std::unique_ptr<Plugin> p(new Plugin());
  p->handle_ = handle;
  p->path_ = path;
  p->agentFactory_ = reinterpret_cast<AgentFactoryFn>(dlsym(handle, "agentFactory"));
  p->rootFactory_ = reinterpret_cast<RootFactoryFn>(dlsym(handle, "rootFactory"));
  if (!p->agentFactory_ || !p->rootFactory_) {
    error = "agent plug-in " + path + " does not export agentFactory and rootFactory";
    return nullptr;
  }
  return p;
}

Plugin::~Plugin() {
  // The library stays mapped: entity types and trace facilities it registered may still be
  // referenced by the host's database until the process ends.
}

Ptr<Agent> Plugin::agentIs(const std::string& name) const {
  Ptr<Agent> a;
  Agent* raw = agentFactory_(name.c_str());
  a = Ptr<Agent>(raw);
  if (raw) raw->decRef();  // adopt the reference the factory handed over
  return a;
}

Ptr<Entity> Plugin::rootIs(const std::string& name) const {
  Entity* raw = rootFactory_(name.c_str());
  Ptr<Entity> r(raw);
  if (raw) raw->decRef();
  return r;
}

}  // namespace platform
