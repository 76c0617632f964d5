#include "platform/Dir.h"

namespace platform {

DirEntries::~DirEntries() {
  for (auto& [k, child] : map_) child->detach();
}

std::vector<std::string> DirEntries::keys() const {
  std::vector<std::string> out;
  for (const auto& [k, v] : map_) out.push_back(k);
  return out;
}

Ptr<Entity> DirEntries::get(const std::string& k) {
  auto it = map_.find(k);
  return it == map_.end() ? Ptr<Entity>() : it->second;
}

Ptr<const Entity> DirEntries::get(const std::string& k) const {
  auto it = map_.find(k);
  return it == map_.end() ? Ptr<const Entity>() : Ptr<const Entity>(it->second);
}

void DirEntries::insert(const std::string& k, Ptr<Entity> child) {
  auto [it, inserted] = map_.try_emplace(k, child);
  if (!inserted) {
    if (it->second == child) return;
    it->second->detach();
    it->second = child;
  }
  child->attach(owner_, this, &it->first);
  changed(it->first, WriteKind::entrySet);
}

bool DirEntries::del(const std::string& k) {
  auto it = map_.find(k);
  if (it == map_.end()) return false;
  std::string key = it->first;
  Ptr<Entity> old = std::move(it->second);
  old->detach();
  map_.erase(it);
  changed(key, WriteKind::entryDel);
  return true;
}

Ptr<Subscription> DirEntries::subscribe(std::function<void(const std::string&)> fn) const {
  if (!observers_) observers_ = std::make_unique<detail::KeyedObservers<std::string>>();
  return observers_->subscribe(std::move(fn));
}

void DirEntries::changed(const std::string& k, WriteKind kind) {
  recordWrite(kind, &k);
  if (!observers_ || observers_->empty()) return;
  Ptr<Entity> keep(owner_);
  observers_->dispatch(k);
}

Value typedEntityToValue(const Entity& e) {
  Value out = Value::object();
  out.set("@type", e.typeInfo().name());
  // Named, so the members outlive the loop (a temporary's member would dangle).
  Value fields = entityToValue(e);
  for (auto& member : fields.asObject()) out.asObject().push_back(std::move(member));
  return out;
}

Value DirEntries::toValue() const {
  Value out = Value::object();
  for (const auto& [k, v] : map_) out.asObject().emplace_back(k, typedEntityToValue(*v));
  return out;
}

namespace {
// The entry's content without its "@type" member.
Value withoutType(const Value& v) {
  Value out = Value::object();
  for (const auto& [k, member] : v.asObject()) {
    if (k != "@type") out.asObject().emplace_back(k, member);
  }
  return out;
}
}  // namespace

bool DirEntries::applyOne(const std::string& k, const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) {
  if (k.empty()) return ctx.fail("a key cannot be empty");
  if (!v.isObject()) return ctx.fail(std::string("expected an object, got ") + v.kindName());
  auto it = map_.find(k);
  const Value* typeName = v.find("@type");
  const TypeInfo* type = nullptr;
  if (typeName) {
    if (!typeName->isString()) return ctx.fail("\"@type\" must be a type name");
    type = TypeRegistry::find(typeName->asString());
    if (!type) return ctx.fail("unknown entity type \"" + typeName->asString() + "\"");
  } else if (it != map_.end()) {
    type = &it->second->typeInfo();
  } else {
    return ctx.fail("a new directory entry needs \"@type\"");
  }
  Value content = withoutType(v);
  bool sameType = it != map_.end() && &it->second->typeInfo() == type;
  if (dryRun || !sameType) {
    Ptr<Entity> fresh = type->create();
    if (!fresh) return ctx.fail("entity type \"" + type->name() + "\" cannot be created by name");
    if (!applyToEntity(*fresh, content, ApplyMode::set, ctx, false)) return false;
    if (!dryRun) insert(k, fresh);
    return true;
  }
  if (mode == ApplyMode::merge) return applyToEntity(*it->second, content, mode, ctx, false);
  Ptr<Entity> fresh = type->create();
  applyToEntity(*fresh, content, ApplyMode::set, ctx, false);
  assignEntity(*it->second, *fresh);
  return true;
}

bool DirEntries::apply(const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) {
  if (!v.isObject()) return ctx.fail(std::string("expected an object, got ") + v.kindName());
  for (const auto& [k, entry] : v.asObject()) {
    if (!applyOne(k, entry, mode, ctx, dryRun)) return ctx.nest(k);
  }
  if (mode == ApplyMode::set && !dryRun) {
    for (const auto& k : keys()) {
      if (!v.find(k)) del(k);
    }
  }
  return true;
}

void DirEntries::assignFrom(const FieldBase& other) {
  const auto& o = static_cast<const DirEntries&>(other);
  for (const auto& k : keys()) {
    if (!o.contains(k)) del(k);
  }
  for (const auto& [k, v] : o.map_) {
    auto it = map_.find(k);
    if (it != map_.end() && &it->second->typeInfo() == &v->typeInfo()) {
      assignEntity(*it->second, *v);
    } else {
      Ptr<Entity> fresh = v->typeInfo().create();
      PLATFORM_ASSERT(fresh);
      assignEntity(*fresh, *v);
      insert(k, fresh);
    }
  }
}

bool DirEntries::equals(const FieldBase& other) const {
  const auto& o = static_cast<const DirEntries&>(other);
  if (map_.size() != o.map_.size()) return false;
  for (auto a = map_.begin(), b = o.map_.begin(); a != map_.end(); ++a, ++b) {
    if (a->first != b->first || !entitiesEqual(*a->second, *b->second)) return false;
  }
  return true;
}

bool DirEntries::hasEntry(const Value& key, DecodeContext& ctx) const {
  if (!key.isString()) return ctx.fail("directory keys are names");
  return contains(key.asString());
}

Entity* DirEntries::entryEntity(const Value& key) const {
  if (!key.isString()) return nullptr;
  auto it = map_.find(key.asString());
  return it == map_.end() ? nullptr : it->second.get();
}

bool DirEntries::applyEntry(const Value& key, const Value* value, ApplyMode mode, DecodeContext& ctx, bool dryRun) {
  if (!key.isString()) return ctx.fail("directory keys are names");
  if (!value) return ctx.fail("a value is needed");
  return applyOne(key.asString(), *value, mode, ctx, dryRun);
}

bool DirEntries::eraseEntry(const Value& key, DecodeContext& ctx, bool dryRun) {
  if (!key.isString()) return ctx.fail("directory keys are names");
  if (!contains(key.asString())) return ctx.fail("no entry " + key.brief());
  if (!dryRun) del(key.asString());
  return true;
}

Value DirEntries::entryValue(const void* key) const {
  auto it = map_.find(*static_cast<const std::string*>(key));
  return it == map_.end() ? Value() : typedEntityToValue(*it->second);
}

}  // namespace platform
