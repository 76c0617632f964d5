// Typed entities.
//
// An entity is a node of the state database: a counted object whose members are fields that
// know their owner. Fields come in four shapes:
//   Attr<T>      a value; writing a different value notifies the attribute's handlers.
//   Coll<K, V>   a keyed collection in ascending key order; V is a value or Ptr<E> for owned
//                child entities. Each insert, change and erase notifies the handlers of the
//                collection and of that one key.
//   Set<K>       a set of keys, notified per key like a collection.
//   Child<E>     one owned child entity, present for the owner's whole life.
// `Attr<Ptr<E>>` holds an optional owned child; `Ref<E>` is a reference to an entity that
// lives elsewhere (written out as that entity's path).
// Attr, Coll and Set take the JSON traits of their value (of their key) as a last template
// argument, ValueTraits<T> by default, for values the C++ type says too little about:
// Attr<std::string, IntfNameTraits> reads only interface names and keeps the string type.
//
// Every entity type derives from `EntityOf<Self>`, names itself with `typeName`, and lists
// its fields once in a `fields` template; that list is the type's reflection description,
// from which the JSON codec, the change stream and equality in tests are derived:
//
//   struct SrcIntf : platform::EntityOf<SrcIntf> {
//     static constexpr const char* typeName = "Mirroring::SrcIntf";
//     explicit SrcIntf(const std::string& key) { name.set(key); }
//     platform::Attr<std::string> name{this};
//     platform::Attr<Direction> direction{this};
//     template <class D> void fields(D& d) { d.key("name", name); d("direction", direction); }
//   };
//
// Writes are counted per mount, and reported to the mount's write listener, before the
// handlers run, so a change stream shows a cause before its effects.
//
// Preconditions a caller could get wrong:
// - An entity has at most one owner: placing a child that is already attached elsewhere is a
//   fatal assertion.
// - Iterating a collection while a handler deletes from it is not allowed; take `keys()` first.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/Assert.h"
#include "platform/Observers.h"
#include "platform/Ptr.h"
#include "platform/Value.h"
#include "platform/ValueTraits.h"

namespace platform {

class Entity;
class FieldBase;
class Mount;

enum class ApplyMode { set, merge };
enum class WriteKind { attribute, entrySet, entryDel };

// --- reflection -----------------------------------------------------------------------------

struct FieldInfo {
  std::string name;
  std::ptrdiff_t offset;  // of the FieldBase within the Entity
  bool key;               // the entity's key inside its collection: not written out on its own
};

class TypeInfo {
 public:
  TypeInfo(std::string name, std::vector<FieldInfo> fields, std::function<Ptr<Entity>()> factory);

  const std::string& name() const { return name_; }
  const std::vector<FieldInfo>& fields() const { return fields_; }
  const FieldInfo* find(std::string_view name) const;
  const FieldInfo* infoOf(const Entity& e, const FieldBase& f) const;
  // A default-constructed instance, or null for types that are built from a key only.
  Ptr<Entity> create() const { return factory_ ? factory_() : Ptr<Entity>(); }

  static FieldBase& field(Entity& e, const FieldInfo& f) {
    return *reinterpret_cast<FieldBase*>(reinterpret_cast<char*>(&e) + f.offset);
  }
  static const FieldBase& field(const Entity& e, const FieldInfo& f) {
    return *reinterpret_cast<const FieldBase*>(reinterpret_cast<const char*>(&e) + f.offset);
  }

 private:
  std::string name_;
  std::vector<FieldInfo> fields_;
  std::function<Ptr<Entity>()> factory_;
};

// Types that can be created by name (mount roots and entries of generic directories).
class TypeRegistry {
 public:
  static void add(const TypeInfo& info);
  static const TypeInfo* find(std::string_view name);
};

// --- fields ---------------------------------------------------------------------------------

// The codec's view of a keyed collection or set.
class CollectionField {
 public:
  virtual bool hasEntry(const Value& key, DecodeContext& ctx) const = 0;
  virtual Entity* entryEntity(const Value& key) const = 0;  // null when absent or not an entity
  // Set or merge one entry (a set's entry takes no value). Dry runs validate only.
  virtual bool applyEntry(const Value& key, const Value* value, ApplyMode mode, DecodeContext& ctx,
                          bool dryRun) = 0;
  virtual bool eraseEntry(const Value& key, DecodeContext& ctx, bool dryRun) = 0;
  // For change streams: the key stored at `key` (a pointer to the stored K) and its entry.
  virtual Value keyValue(const void* key) const = 0;
  virtual std::optional<std::string> keyText(const void* key) const = 0;
  virtual Value entryValue(const void* key) const = 0;
  virtual bool isSet() const = 0;

 protected:
  ~CollectionField() = default;
};

class FieldBase {
 public:
  FieldBase(const FieldBase&) = delete;
  FieldBase& operator=(const FieldBase&) = delete;

  Entity* owner() const { return owner_; }
  // The field's name, from the owner's type description.
  const std::string& name() const;

  virtual Value toValue() const = 0;
  // Validates (dry run) or assigns a value in JSON form. After a dry run succeeded, the real
  // run cannot fail.
  virtual bool apply(const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) = 0;
  // Makes this field equal to `other` (a field of the same type), notifying what changes.
  virtual void assignFrom(const FieldBase& other) = 0;
  virtual bool equals(const FieldBase& other) const = 0;
  // Whether `v` reads as the value the field holds (a key field restated in an entry).
  virtual bool holds(const Value& v, DecodeContext& ctx) const {
    if (toValue() == v) return true;
    return ctx.fail("the key field must match the entry's key");
  }
  virtual CollectionField* asCollection() { return nullptr; }
  virtual Entity* childEntity() const { return nullptr; }

 protected:
  explicit FieldBase(Entity* owner) : owner_(owner) {}
  ~FieldBase() = default;

  // Counts the write against the owner's mount and tells its write listener.
  void recordWrite(WriteKind kind, const void* key) const;

  Entity* owner_;
};

// --- entities -------------------------------------------------------------------------------

class Entity : public RefCounted {
 public:
  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;

  virtual const TypeInfo& typeInfo() const = 0;

  Entity* parent() const { return parent_; }
  FieldBase* parentField() const { return parentField_; }
  const void* parentKey() const { return parentKey_; }
  // The mount this entity lives under (through its root), or null when detached.
  Mount* mount() const;
  // "mount/path/field/key/..."; a key that has no text form is written as "[...]".
  std::string path() const;

  // Placement, done by the fields that own children and by the database for roots.
  void attach(Entity* parent, FieldBase* field, const void* key);
  void detach();
  void mountIs(Mount* m) { mount_ = m; }

 protected:
  Entity() = default;
  ~Entity() override = default;

 private:
  Entity* parent_ = nullptr;
  FieldBase* parentField_ = nullptr;
  const void* parentKey_ = nullptr;
  Mount* mount_ = nullptr;
};

// Generic whole-entity operations, driven by the type description.
Value entityToValue(const Entity& e);
bool applyToEntity(Entity& e, const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun);
// Field by field assignment of `from` (same type) to `to`, notifying only what differs.
void assignEntity(Entity& to, const Entity& from);
bool entitiesEqual(const Entity& a, const Entity& b);

namespace detail {

struct FieldRecorder {
  const Entity* base;
  std::vector<FieldInfo> fields;
  void operator()(const char* name, const FieldBase& f) { add(name, f, false); }
  void key(const char* name, const FieldBase& f) { add(name, f, true); }
  void add(const char* name, const FieldBase& f, bool key) {
    fields.push_back({name, reinterpret_cast<const char*>(&f) - reinterpret_cast<const char*>(base), key});
  }
};

}  // namespace detail

template <class Self>
class EntityOf : public Entity {
 public:
  const TypeInfo& typeInfo() const override { return describe(static_cast<const Self&>(*this)); }

  // The description is recorded from the first instance that asks.
  static const TypeInfo& describe(const Self& probe) {
    static const TypeInfo info = [&] {
      detail::FieldRecorder r{&probe, {}};
      const_cast<Self&>(probe).fields(r);
      std::function<Ptr<Entity>()> factory;
      if constexpr (std::is_default_constructible_v<Self>) factory = [] { return Ptr<Entity>(make<Self>()); };
      return TypeInfo(Self::typeName, std::move(r.fields), std::move(factory));
    }();
    return info;
  }

 protected:
  EntityOf() = default;
};

// Registers a default-constructible entity type by name, for mounts and generic directories.
template <class T>
void registerType() {
  Ptr<T> probe = make<T>();
  TypeRegistry::add(probe->typeInfo());
}

template <class T>
concept EntityType = std::is_base_of_v<Entity, T>;

// --- references -----------------------------------------------------------------------------

// A reference to an entity owned elsewhere, compared by identity.
template <class E>
class Ref {
 public:
  Ref() = default;
  Ref(Ptr<E> p) : p_(std::move(p)) {}  // NOLINT
  E* operator->() const { return p_.get(); }
  const Ptr<E>& get() const { return p_; }
  explicit operator bool() const { return bool(p_); }
  bool operator==(const Ref& o) const { return p_ == o.p_; }

 private:
  Ptr<E> p_;
};

template <class E>
struct ValueTraits<Ref<E>> {
  static Value encode(const Ref<E>& r) { return r ? Value(r->path()) : Value(); }
  static bool decode(const Value& v, Ref<E>& out, DecodeContext& ctx) {
    if (v.isNull()) {
      out = Ref<E>();
      return true;
    }
    if (!v.isString()) return ctx.fail(std::string("expected the path of an entity, got ") + v.kindName());
    if (!ctx.resolver) return ctx.fail("references cannot be resolved here");
    Ptr<Entity> target = ctx.resolver->resolve(v.asString());
    if (!target) return ctx.fail("no entity at \"" + v.asString() + "\"");
    auto* typed = dynamic_cast<E*>(const_cast<Entity*>(target.get()));
    if (!typed) return ctx.fail("the entity at \"" + v.asString() + "\" is a " + target->typeInfo().name());
    out = Ref<E>(Ptr<E>(typed));
    return true;
  }
  static std::optional<std::string> keyText(const Ref<E>&) { return std::nullopt; }
};

// --- attributes -----------------------------------------------------------------------------

template <class T, class Traits = ValueTraits<T>>
class Attr final : public FieldBase {
 public:
  explicit Attr(Entity* owner, T initial = T()) : FieldBase(owner), value_(std::move(initial)) {}

  const T& operator()() const { return value_; }
  const T& get() const { return value_; }

  // Writes the value; an equal value is no change and notifies nobody.
  void set(const T& v) {
    if (value_ == v) return;
    value_ = v;
    changed();
  }

  Ptr<Subscription> subscribe(std::function<void()> fn) const {
    if (!observers_) observers_ = std::make_unique<ObserverList<>>();
    return observers_->add(std::move(fn));
  }

  Value toValue() const override { return Traits::encode(value_); }
  bool apply(const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) override {
    // A struct merges member by member; set replaces it, so unnamed members take defaults.
    T decoded = mode == ApplyMode::merge ? value_ : T();
    if (!Traits::decode(v, decoded, ctx)) return false;
    if (!dryRun) set(decoded);
    return true;
  }
  void assignFrom(const FieldBase& other) override { set(static_cast<const Attr&>(other).value_); }
  bool equals(const FieldBase& other) const override { return value_ == static_cast<const Attr&>(other).value_; }
  // Compares what `v` reads as, so that an enumerator restated by number matches its name.
  bool holds(const Value& v, DecodeContext& ctx) const override {
    T decoded{};
    if (!Traits::decode(v, decoded, ctx)) return false;
    if (decoded == value_) return true;
    return ctx.fail("the key field must match the entry's key");
  }

 private:
  void changed() {
    recordWrite(WriteKind::attribute, nullptr);
    if (!observers_ || observers_->empty()) return;
    Ptr<Entity> keep(owner_);  // a handler may drop the last other reference to the owner
    observers_->dispatch();
  }

  T value_;
  mutable std::unique_ptr<ObserverList<>> observers_;
};

// An optional owned child entity.
template <EntityType E>
class Attr<Ptr<E>> final : public FieldBase {
 public:
  explicit Attr(Entity* owner) : FieldBase(owner) {}
  ~Attr() {
    if (child_) child_->detach();
  }

  Ptr<E> operator()() { return child_; }
  Ptr<const E> operator()() const { return child_; }

  void set(Ptr<E> c) {
    if (child_ == c) return;
    if (child_) child_->detach();
    child_ = std::move(c);
    if (child_) child_->attach(owner_, this, nullptr);
    recordWrite(WriteKind::attribute, nullptr);
    if (!observers_ || observers_->empty()) return;
    Ptr<Entity> keep(owner_);
    observers_->dispatch();
  }

  Ptr<Subscription> subscribe(std::function<void()> fn) const {
    if (!observers_) observers_ = std::make_unique<ObserverList<>>();
    return observers_->add(std::move(fn));
  }

  Value toValue() const override { return child_ ? entityToValue(*child_) : Value(); }
  bool apply(const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) override {
    if (v.isNull()) {
      if (!dryRun) set(nullptr);
      return true;
    }
    if (!v.isObject()) return ctx.fail(std::string("expected an object or null, got ") + v.kindName());
    if (dryRun || !child_) {
      Ptr<E> fresh = make<E>();
      if (!applyToEntity(*fresh, v, ApplyMode::set, ctx, false)) return false;
      if (!dryRun) set(fresh);
      return true;
    }
    if (mode == ApplyMode::merge) return applyToEntity(*child_, v, mode, ctx, false);
    Ptr<E> fresh = make<E>();
    applyToEntity(*fresh, v, ApplyMode::set, ctx, false);
    assignEntity(*child_, *fresh);
    return true;
  }
  void assignFrom(const FieldBase& other) override {
    const auto& o = static_cast<const Attr&>(other);
    if (!o.child_) {
      set(nullptr);
    } else if (child_) {
      assignEntity(*child_, *o.child_);
    } else {
      Ptr<E> fresh = make<E>();
      assignEntity(*fresh, *o.child_);
      set(fresh);
    }
  }
  bool equals(const FieldBase& other) const override {
    const auto& o = static_cast<const Attr&>(other);
    if (!child_ || !o.child_) return !child_ && !o.child_;
    return entitiesEqual(*child_, *o.child_);
  }
  Entity* childEntity() const override { return child_.get(); }

 private:
  Ptr<E> child_;
  mutable std::unique_ptr<ObserverList<>> observers_;
};

// One owned child entity, built with the owner and kept for its life.
template <EntityType E>
class Child final : public FieldBase {
 public:
  template <class... A>
  explicit Child(Entity* owner, A&&... args) : FieldBase(owner), child_(make<E>(std::forward<A>(args)...)) {
    child_->attach(owner, this, nullptr);
  }
  ~Child() { child_->detach(); }

  E* operator->() { return child_.get(); }
  const E* operator->() const { return child_.get(); }
  Ptr<E> operator()() { return child_; }
  Ptr<const E> operator()() const { return child_; }

  Value toValue() const override { return entityToValue(*child_); }
  bool apply(const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) override {
    if (!v.isObject()) return ctx.fail(std::string("expected an object, got ") + v.kindName());
    if (dryRun) {
      Ptr<E> scratch = make<E>();
      return applyToEntity(*scratch, v, ApplyMode::set, ctx, false);
    }
    if (mode == ApplyMode::merge) return applyToEntity(*child_, v, mode, ctx, false);
    Ptr<E> fresh = make<E>();
    applyToEntity(*fresh, v, ApplyMode::set, ctx, false);
    assignEntity(*child_, *fresh);
    return true;
  }
  void assignFrom(const FieldBase& other) override {
    assignEntity(*child_, *static_cast<const Child&>(other).child_);
  }
  bool equals(const FieldBase& other) const override {
    return entitiesEqual(*child_, *static_cast<const Child&>(other).child_);
  }
  Entity* childEntity() const override { return child_.get(); }

 private:
  Ptr<E> child_;
};

// --- keyed collections ----------------------------------------------------------------------

namespace detail {

template <class V>
struct EntityValue : std::false_type {};
template <EntityType E>
struct EntityValue<Ptr<E>> : std::true_type {
  using type = E;
};

// Handlers for every key of a collection, and for single keys.
template <class K>
class KeyedObservers {
 public:
  Ptr<Subscription> subscribe(std::function<void(const K&)> fn) {
    if (!all_) all_ = std::make_unique<ObserverList<K>>();
    return all_->add(std::move(fn));
  }
  Ptr<Subscription> subscribe(const K& key, std::function<void()> fn) {
    // Lists emptied by cancellation are dropped now and then, not on every write.
    if (depth_ == 0 && perKey_.size() >= 2 * sweptSize_ + 16) sweep();
    auto& list = perKey_[key];
    if (!list) list = std::make_unique<ObserverList<>>();
    return list->add(std::move(fn));
  }
  bool empty() const { return (!all_ || all_->empty()) && perKey_.empty(); }
  void dispatch(const K& key) {
    ++depth_;
    if (all_ && !all_->empty()) all_->dispatch(key);
    auto it = perKey_.find(key);
    if (it != perKey_.end()) it->second->dispatch();
    if (--depth_ == 0) {
      // Only this key's list can have been walked; drop it if its handlers are all gone.
      it = perKey_.find(key);
      if (it != perKey_.end() && it->second->empty() && !it->second->dispatching()) perKey_.erase(it);
    }
  }

 private:
  void sweep() {
    for (auto it = perKey_.begin(); it != perKey_.end();) {
      it = it->second->empty() && !it->second->dispatching() ? perKey_.erase(it) : std::next(it);
    }
    sweptSize_ = perKey_.size();
  }
  std::unique_ptr<ObserverList<K>> all_;
  std::map<K, std::unique_ptr<ObserverList<>>> perKey_;
  std::size_t sweptSize_ = 0;
  uint32_t depth_ = 0;
};

template <class K, class Traits>
bool decodeKey(const Value& key, K& out, DecodeContext& ctx) {
  if (key.isString()) {
    if constexpr (TextKeyTraits<Traits, K>) return Traits::decodeKeyText(key.asString(), out, ctx);
  }
  return Traits::decode(key, out, ctx);
}

template <class K, class Traits>
Value keyToValue(const K& k) {
  if (auto text = Traits::keyText(k)) return Value(*text);
  return Traits::encode(k);
}

}  // namespace detail

template <class K, class V, class KeyTraits = ValueTraits<K>>
class Coll final : public FieldBase, public CollectionField {
  static constexpr bool kEntities = detail::EntityValue<V>::value;

 public:
  using Map = std::map<K, V>;
  using key_type = K;

  explicit Coll(Entity* owner) : FieldBase(owner) {}
  ~Coll() {
    if constexpr (kEntities) {
      for (auto& [k, child] : map_) child->detach();
    }
  }

  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  bool contains(const K& k) const { return map_.count(k) != 0; }
  std::vector<K> keys() const {
    std::vector<K> out;
    out.reserve(map_.size());
    for (const auto& entry : map_) out.push_back(entry.first);
    return out;
  }

  // Read access to values (value collections): null when absent.
  const V* find(const K& k) const
    requires(!kEntities)
  {
    auto it = map_.find(k);
    return it == map_.end() ? nullptr : &it->second;
  }
  V get(const K& k, V fallback = V()) const
    requires(!kEntities)
  {
    auto it = map_.find(k);
    return it == map_.end() ? fallback : it->second;
  }
  // Writes a value; an equal value is no change.
  void set(const K& k, const V& v)
    requires(!kEntities)
  {
    auto [it, inserted] = map_.try_emplace(k, v);
    if (!inserted) {
      if (it->second == v) return;
      it->second = v;
    }
    changed(it->first, WriteKind::entrySet);
  }

  // Child entities: lookup, insert-or-get, placement of a prepared child.
  V get(const K& k)
    requires kEntities
  {
    auto it = map_.find(k);
    return it == map_.end() ? V() : it->second;
  }
  auto get(const K& k) const
    requires kEntities
  {
    using E = typename detail::EntityValue<V>::type;
    auto it = map_.find(k);
    return it == map_.end() ? Ptr<const E>() : Ptr<const E>(it->second);
  }
  // Returns the existing child of that key, or builds one from the key and `args`.
  template <class... A>
  V is(const K& k, A&&... args)
    requires kEntities
  {
    using E = typename detail::EntityValue<V>::type;
    auto it = map_.lower_bound(k);
    if (it != map_.end() && !(k < it->first)) return it->second;
    V child = make<E>(k, std::forward<A>(args)...);
    it = map_.emplace_hint(it, k, child);
    child->attach(owner_, this, &it->first);
    changed(it->first, WriteKind::entrySet);
    return child;
  }
  // Places `child` under `k`, replacing a different child there.
  V insert(const K& k, V child)
    requires kEntities
  {
    auto [it, inserted] = map_.try_emplace(k, child);
    if (!inserted) {
      if (it->second == child) return child;
      it->second->detach();
      it->second = child;
    }
    child->attach(owner_, this, &it->first);
    changed(it->first, WriteKind::entrySet);
    return child;
  }

  // Erases one entry; false when there was none.
  bool del(const K& k) {
    auto it = map_.find(k);
    if (it == map_.end()) return false;
    K key = it->first;
    V old = std::move(it->second);  // an erased child lives until its handlers ran
    if constexpr (kEntities) old->detach();
    map_.erase(it);
    changed(key, WriteKind::entryDel);
    return true;
  }
  void clear() {
    while (!map_.empty()) del(map_.begin()->first);
  }

  // Iteration in ascending key order. Const iteration hands out const children.
  class const_iterator {
   public:
    using Inner = typename Map::const_iterator;
    explicit const_iterator(Inner i) : i_(i) {}
    auto operator*() const {
      if constexpr (kEntities) {
        using E = typename detail::EntityValue<V>::type;
        return std::pair<const K&, Ptr<const E>>(i_->first, i_->second);
      } else {
        return std::pair<const K&, const V&>(i_->first, i_->second);
      }
    }
    const_iterator& operator++() {
      ++i_;
      return *this;
    }
    bool operator==(const const_iterator& o) const { return i_ == o.i_; }

   private:
    Inner i_;
  };
  const_iterator begin() const { return const_iterator(map_.begin()); }
  const_iterator end() const { return const_iterator(map_.end()); }
  // Mutable access for the owner of a writable entity.
  const Map& entries() { return map_; }

  Ptr<Subscription> subscribe(std::function<void(const K&)> fn) const { return observers().subscribe(std::move(fn)); }
  Ptr<Subscription> subscribe(const K& k, std::function<void()> fn) const {
    return observers().subscribe(k, std::move(fn));
  }

  // --- reflection ---
  Value toValue() const override {
    if constexpr (TextKeyTraits<KeyTraits, K>) {
      Value out = Value::object();
      for (const auto& [k, v] : map_) out.asObject().emplace_back(*KeyTraits::keyText(k), entryToValue(v));
      return out;
    } else {
      Value out = Value::array();
      for (const auto& [k, v] : map_) {
        Value pair = Value::object();
        pair.set("key", KeyTraits::encode(k));
        pair.set("value", entryToValue(v));
        out.push(std::move(pair));
      }
      return out;
    }
  }
  bool apply(const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) override {
    std::vector<std::pair<Value, const Value*>> entries;
    if (v.isObject()) {
      for (const auto& [k, entry] : v.asObject()) entries.emplace_back(Value(k), &entry);
    } else if (v.isArray()) {
      for (const auto& pair : v.asArray()) {
        const Value* k = pair.find("key");
        const Value* val = pair.find("value");
        if (!k || !val) return ctx.fail("expected entries of the form {\"key\": ..., \"value\": ...}");
        entries.emplace_back(*k, val);
      }
    } else {
      return ctx.fail(std::string("expected an object, got ") + v.kindName());
    }
    std::set<K> wanted;
    for (const auto& [k, entry] : entries) {
      K key{};
      if (!detail::decodeKey<K, KeyTraits>(k, key, ctx)) return false;
      wanted.insert(key);
      if (!applyOne(key, *entry, mode, ctx, dryRun)) return ctx.nest(k.isString() ? k.asString() : k.brief());
    }
    if (mode == ApplyMode::set && !dryRun) {
      for (const K& k : keys()) {
        if (!wanted.count(k)) del(k);
      }
    }
    return true;
  }
  void assignFrom(const FieldBase& other) override {
    const auto& o = static_cast<const Coll&>(other);
    for (const K& k : keys()) {
      if (!o.contains(k)) del(k);
    }
    for (const auto& [k, v] : o.map_) {
      if constexpr (kEntities) {
        auto it = map_.find(k);
        if (it != map_.end()) {
          assignEntity(*it->second, *v);
        } else {
          using E = typename detail::EntityValue<V>::type;
          Ptr<E> fresh = make<E>(k);
          assignEntity(*fresh, *v);
          insert(k, fresh);
        }
      } else {
        set(k, v);
      }
    }
  }
  bool equals(const FieldBase& other) const override {
    const auto& o = static_cast<const Coll&>(other);
    if (map_.size() != o.map_.size()) return false;
    for (auto a = map_.begin(), b = o.map_.begin(); a != map_.end(); ++a, ++b) {
      if (!(a->first == b->first)) return false;
      if constexpr (kEntities) {
        if (!entitiesEqual(*a->second, *b->second)) return false;
      } else {
        if (!(a->second == b->second)) return false;
      }
    }
    return true;
  }
  CollectionField* asCollection() override { return this; }

  // --- CollectionField ---
  bool hasEntry(const Value& key, DecodeContext& ctx) const override {
    K k{};
    if (!detail::decodeKey<K, KeyTraits>(key, k, ctx)) return false;
    return contains(k);
  }
  Entity* entryEntity(const Value& key) const override {
    if constexpr (kEntities) {
      K k{};
      DecodeContext ctx;
      if (!detail::decodeKey<K, KeyTraits>(key, k, ctx)) return nullptr;
      auto it = map_.find(k);
      return it == map_.end() ? nullptr : it->second.get();
    } else {
      return nullptr;
    }
  }
  bool applyEntry(const Value& key, const Value* value, ApplyMode mode, DecodeContext& ctx, bool dryRun) override {
    K k{};
    if (!detail::decodeKey<K, KeyTraits>(key, k, ctx)) return false;
    if (!value) return ctx.fail("a value is needed");
    return applyOne(k, *value, mode, ctx, dryRun);
  }
  bool eraseEntry(const Value& key, DecodeContext& ctx, bool dryRun) override {
    K k{};
    if (!detail::decodeKey<K, KeyTraits>(key, k, ctx)) return false;
    if (!contains(k)) return ctx.fail("no entry " + key.brief());
    if (!dryRun) del(k);
    return true;
  }
  Value keyValue(const void* key) const override { return KeyTraits::encode(*static_cast<const K*>(key)); }
  std::optional<std::string> keyText(const void* key) const override {
    return KeyTraits::keyText(*static_cast<const K*>(key));
  }
  Value entryValue(const void* key) const override {
    auto it = map_.find(*static_cast<const K*>(key));
    return it == map_.end() ? Value() : entryToValue(it->second);
  }
  bool isSet() const override { return false; }

 private:
  static Value entryToValue(const V& v) {
    if constexpr (kEntities) return entityToValue(*v);
    else return ValueTraits<V>::encode(v);
  }

  bool applyOne(const K& k, const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) {
    if constexpr (kEntities) {
      using E = typename detail::EntityValue<V>::type;
      if (!v.isObject()) return ctx.fail(std::string("expected an object, got ") + v.kindName());
      auto it = map_.find(k);
      if (dryRun || it == map_.end()) {
        Ptr<E> fresh = make<E>(k);
        if (!applyToEntity(*fresh, v, ApplyMode::set, ctx, false)) return false;
        if (!dryRun) insert(k, fresh);
        return true;
      }
      if (mode == ApplyMode::merge) return applyToEntity(*it->second, v, mode, ctx, false);
      Ptr<E> fresh = make<E>(k);
      applyToEntity(*fresh, v, ApplyMode::set, ctx, false);
      assignEntity(*it->second, *fresh);
      return true;
    } else {
      V decoded{};
      if (const V* existing = find(k); existing && mode == ApplyMode::merge) decoded = *existing;
      if (!ValueTraits<V>::decode(v, decoded, ctx)) return false;
      if (!dryRun) set(k, decoded);
      return true;
    }
  }

  detail::KeyedObservers<K>& observers() const {
    if (!observers_) observers_ = std::make_unique<detail::KeyedObservers<K>>();
    return *observers_;
  }

  void changed(const K& k, WriteKind kind) {
    recordWrite(kind, &k);
    if (!observers_ || observers_->empty()) return;
    Ptr<Entity> keep(owner_);
    observers_->dispatch(k);
  }

  Map map_;
  mutable std::unique_ptr<detail::KeyedObservers<K>> observers_;
};

// A set of keys, notified per key like a collection; written as a JSON array.
template <class K, class KeyTraits = ValueTraits<K>>
class Set final : public FieldBase, public CollectionField {
 public:
  using key_type = K;
  explicit Set(Entity* owner) : FieldBase(owner) {}

  std::size_t size() const { return set_.size(); }
  bool empty() const { return set_.empty(); }
  bool contains(const K& k) const { return set_.count(k) != 0; }
  std::vector<K> keys() const { return std::vector<K>(set_.begin(), set_.end()); }
  auto begin() const { return set_.begin(); }
  auto end() const { return set_.end(); }

  void insert(const K& k) {
    auto [it, inserted] = set_.insert(k);
    if (inserted) changed(*it, WriteKind::entrySet);
  }
  bool del(const K& k) {
    auto it = set_.find(k);
    if (it == set_.end()) return false;
    K key = *it;
    set_.erase(it);
    changed(key, WriteKind::entryDel);
    return true;
  }
  void clear() {
    while (!set_.empty()) del(*set_.begin());
  }

  Ptr<Subscription> subscribe(std::function<void(const K&)> fn) const { return observers().subscribe(std::move(fn)); }
  Ptr<Subscription> subscribe(const K& k, std::function<void()> fn) const {
    return observers().subscribe(k, std::move(fn));
  }

  Value toValue() const override {
    Value out = Value::array();
    for (const K& k : set_) out.push(detail::keyToValue<K, KeyTraits>(k));
    return out;
  }
  bool apply(const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) override {
    if (!v.isArray()) return ctx.fail(std::string("expected an array, got ") + v.kindName());
    std::set<K> wanted;
    for (const auto& item : v.asArray()) {
      K k{};
      if (!detail::decodeKey<K, KeyTraits>(item, k, ctx)) return false;
      if (!wanted.insert(k).second) return ctx.fail("duplicate member " + item.brief());
    }
    if (dryRun) return true;
    if (mode == ApplyMode::set) {
      for (const K& k : keys()) {
        if (!wanted.count(k)) del(k);
      }
    }
    for (const K& k : wanted) insert(k);
    return true;
  }
  void assignFrom(const FieldBase& other) override {
    const auto& o = static_cast<const Set&>(other);
    for (const K& k : keys()) {
      if (!o.contains(k)) del(k);
    }
    for (const K& k : o.set_) insert(k);
  }
  bool equals(const FieldBase& other) const override { return set_ == static_cast<const Set&>(other).set_; }
  CollectionField* asCollection() override { return this; }

  bool hasEntry(const Value& key, DecodeContext& ctx) const override {
    K k{};
    if (!detail::decodeKey<K, KeyTraits>(key, k, ctx)) return false;
    return contains(k);
  }
  Entity* entryEntity(const Value&) const override { return nullptr; }
  bool applyEntry(const Value& key, const Value* value, ApplyMode, DecodeContext& ctx, bool dryRun) override {
    K k{};
    if (!detail::decodeKey<K, KeyTraits>(key, k, ctx)) return false;
    if (value && !value->isNull() && !(value->isBool() && value->asBool()))
      return ctx.fail("a set entry takes no value (or true)");
    if (!dryRun) insert(k);
    return true;
  }
  bool eraseEntry(const Value& key, DecodeContext& ctx, bool dryRun) override {
    K k{};
    if (!detail::decodeKey<K, KeyTraits>(key, k, ctx)) return false;
    if (!contains(k)) return ctx.fail("no entry " + key.brief());
    if (!dryRun) del(k);
    return true;
  }
  Value keyValue(const void* key) const override { return KeyTraits::encode(*static_cast<const K*>(key)); }
  std::optional<std::string> keyText(const void* key) const override {
    return KeyTraits::keyText(*static_cast<const K*>(key));
  }
  Value entryValue(const void*) const override { return Value(); }
  bool isSet() const override { return true; }

 private:
  detail::KeyedObservers<K>& observers() const {
    if (!observers_) observers_ = std::make_unique<detail::KeyedObservers<K>>();
    return *observers_;
  }
  void changed(const K& k, WriteKind kind) {
    recordWrite(kind, &k);
    if (!observers_ || observers_->empty()) return;
    Ptr<Entity> keep(owner_);
    observers_->dispatch(k);
  }

  std::set<K> set_;
  mutable std::unique_ptr<detail::KeyedObservers<K>> observers_;
};

}  // namespace platform
