#include "platform/Database.h"

#include "platform/Codec.h"
#include "platform/EventLoop.h"

namespace platform {

Database::Database() = default;

Database::~Database() {
  // Roots go before the listener and the mount records they point at.
  listener_ = nullptr;
  for (auto& [path, m] : mounts_) m->root_->mountIs(nullptr);
}

Mount* Database::rootIs(const std::string& path, const TypeInfo& type, const std::function<Ptr<Entity>()>& create) {
  auto it = mounts_.find(path);
  if (it != mounts_.end()) {
    return it->second->root_->typeInfo().name() == type.name() ? it->second.get() : nullptr;
  }
  Ptr<Entity> root = create();
  auto* m = new Mount(this, path, root);
  mounts_.emplace(path, std::unique_ptr<Mount>(m));
  root->mountIs(m);
  return m;
}

Mount* Database::find(std::string_view path) const {
  auto it = mounts_.find(path);
  return it == mounts_.end() ? nullptr : it->second.get();
}

Mount* Database::findPrefix(std::string_view path, std::string_view& rest) const {
  Mount* best = nullptr;
  for (const auto& [p, m] : mounts_) {
    // Whether the path has a segment boundary where this mount's path ends is one compare of
    // bytes, and rules out most mounts before their paths are compared.
    if (p.size() > path.size() || (path.size() != p.size() && path[p.size()] != '/')) continue;
    if (!path.starts_with(p)) continue;
    if (!best || p.size() > best->path().size()) best = m.get();
  }
  if (best) {
    rest = path.substr(best->path().size());
    if (!rest.empty()) rest.remove_prefix(1);
  }
  return best;
}

std::vector<Mount*> Database::mounts() const {
  std::vector<Mount*> out;
  for (const auto& [p, m] : mounts_) out.push_back(m.get());
  return out;
}

Ptr<Entity> Database::resolve(const std::string& path) const {
  std::string error;
  Target t = resolvePath(*this, path, std::nullopt, error);
  if (!error.empty()) return Ptr<Entity>();
  if (!t.field) return Ptr<Entity>(t.entity);
  // A path that ends at a collection entry names the child entity stored there, if any.
  CollectionField* coll = t.field->asCollection();
  if (coll && t.key) return Ptr<Entity>(coll->entryEntity(*t.key));
  return Ptr<Entity>(t.field->childEntity());
}

void MountGroup::doMount(const std::string& path, const TypeInfo& type, const std::string& mode,
                         const std::function<Ptr<Entity>()>& create) {
  declared_.push_back({path, type.name(), mode});
  Mount* m = db_.rootIs(path, type, create);
  if (!m) {
    problems_.push_back(path + ": the database holds another type there than " + type.name());
    status_ = MountStatus::failure;
    return;
  }
  db_.modeIs(*m, mode);
}

void MountGroup::close(bool, const std::string&, double) { closed_ = true; }

Clock& EntityManager::clock() { return loop_.clock(); }

}  // namespace platform
