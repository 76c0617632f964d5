#include "platform/Entity.h"

#include <map>

#include "platform/Database.h"

namespace platform {

TypeInfo::TypeInfo(std::string name, std::vector<FieldInfo> fields, std::function<Ptr<Entity>()> factory)
    : name_(std::move(name)), fields_(std::move(fields)), factory_(std::move(factory)) {}

const FieldInfo* TypeInfo::find(std::string_view name) const {
  for (const auto& f : fields_) {
    if (f.name == name) return &f;
  }
  return nullptr;
}

const FieldInfo* TypeInfo::infoOf(const Entity& e, const FieldBase& field) const {
  for (const auto& f : fields_) {
    if (&TypeInfo::field(e, f) == &field) return &f;
  }
  return nullptr;
}

namespace {
std::map<std::string, const TypeInfo*, std::less<>>& registry() {
  static std::map<std::string, const TypeInfo*, std::less<>> r;
  return r;
}
}  // namespace

void TypeRegistry::add(const TypeInfo& info) { registry()[info.name()] = &info; }

const TypeInfo* TypeRegistry::find(std::string_view name) {
  auto it = registry().find(name);
  return it == registry().end() ? nullptr : it->second;
}

const std::string& FieldBase::name() const {
  static const std::string unknown = "?";
  const FieldInfo* info = owner_->typeInfo().infoOf(*owner_, *this);
  return info ? info->name : unknown;
}

void FieldBase::recordWrite(WriteKind kind, const void* key) const {
  if (Mount* m = owner_->mount()) m->recordWrite(*this, kind, key);
}

Mount* Entity::mount() const {
  const Entity* e = this;
  while (e->parent_) e = e->parent_;
  return e->mount_;
}

std::string Entity::path() const {
  if (!parent_) return mount_ ? mount_->path() : std::string();
  std::string p = parent_->path();
  p += '/';
  p += parentField_->name();
  if (parentKey_) {
    CollectionField* coll = parentField_->asCollection();
    auto text = coll ? coll->keyText(parentKey_) : std::nullopt;
    p += '/';
    if (text) {
      p += *text;
    } else {
      p += '[';
      p += coll->keyValue(parentKey_).brief();
      p += ']';
    }
  }
  return p;
}

void Entity::attach(Entity* parent, FieldBase* field, const void* key) {
  PLATFORM_ASSERT(!parent_ && !mount_ && "an entity has one owner");
  parent_ = parent;
  parentField_ = field;
  parentKey_ = key;
}

void Entity::detach() {
  parent_ = nullptr;
  parentField_ = nullptr;
  parentKey_ = nullptr;
}

Value entityToValue(const Entity& e) {
  Value out = Value::object();
  for (const auto& f : e.typeInfo().fields()) {
    if (f.key) continue;
    out.asObject().emplace_back(f.name, TypeInfo::field(e, f).toValue());
  }
  return out;
}

bool applyToEntity(Entity& e, const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) {
  if (!v.isObject()) return ctx.fail(std::string("expected an object, got ") + v.kindName());
  const TypeInfo& type = e.typeInfo();
  for (const auto& [name, member] : v.asObject()) {
    const FieldInfo* f = type.find(name);
    if (!f) return ctx.fail("unknown field \"" + name + "\" in " + type.name());
    FieldBase& field = TypeInfo::field(e, *f);
    if (f->key) {
      // The key is the entry's place in its collection; it may be restated, not changed.
      if (!field.holds(member, ctx)) return ctx.nest(name);
      continue;
    }
    if (!field.apply(member, mode, ctx, dryRun)) return ctx.nest(name);
  }
  return true;
}

void assignEntity(Entity& to, const Entity& from) {
  PLATFORM_ASSERT(&to.typeInfo() == &from.typeInfo());
  for (const auto& f : to.typeInfo().fields()) {
    if (f.key) continue;
    TypeInfo::field(to, f).assignFrom(TypeInfo::field(from, f));
  }
}

bool entitiesEqual(const Entity& a, const Entity& b) {
  if (&a.typeInfo() != &b.typeInfo()) return false;
  for (const auto& f : a.typeInfo().fields()) {
    if (!TypeInfo::field(a, f).equals(TypeInfo::field(b, f))) return false;
  }
  return true;
}

}  // namespace platform
