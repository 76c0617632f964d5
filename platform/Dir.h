// A generic directory: named child entities of any registered type.
//
// Some parts of the database are plain folders whose entries are published by other agents,
// each entry an entity of its own type (ACL input sources, forwarding-chip slice statuses).
// In JSON an entry names its type with "@type"; the type must be registered by name.
#pragma once

#include <map>
#include <string>

#include "platform/Entity.h"

namespace platform {

class DirEntries final : public FieldBase, public CollectionField {
 public:
  explicit DirEntries(Entity* owner) : FieldBase(owner) {}
  ~DirEntries();

  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  bool contains(const std::string& k) const { return map_.count(k) != 0; }
  std::vector<std::string> keys() const;
  Ptr<Entity> get(const std::string& k);
  Ptr<const Entity> get(const std::string& k) const;
  template <class E>
  Ptr<const E> get(const std::string& k) const {
    return Ptr<const E>(dynamic_cast<const E*>(get(k).get()));
  }
  // Places `child` under `k`, replacing a different entry.
  void insert(const std::string& k, Ptr<Entity> child);
  bool del(const std::string& k);

  Ptr<Subscription> subscribe(std::function<void(const std::string&)> fn) const;

  Value toValue() const override;
  bool apply(const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun) override;
  void assignFrom(const FieldBase& other) override;
  bool equals(const FieldBase& other) const override;
  CollectionField* asCollection() override { return this; }

  bool hasEntry(const Value& key, DecodeContext& ctx) const override;
  Entity* entryEntity(const Value& key) const override;
  bool applyEntry(const Value& key, const Value* value, ApplyMode mode, DecodeContext& ctx, bool dryRun) override;
  bool eraseEntry(const Value& key, DecodeContext& ctx, bool dryRun) override;
  Value keyValue(const void* key) const override { return Value(*static_cast<const std::string*>(key)); }
  std::optional<std::string> keyText(const void* key) const override { return *static_cast<const std::string*>(key); }
  Value entryValue(const void* key) const override;
  bool isSet() const override { return false; }

  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

 private:
  bool applyOne(const std::string& k, const Value& v, ApplyMode mode, DecodeContext& ctx, bool dryRun);
  void changed(const std::string& k, WriteKind kind);

  std::map<std::string, Ptr<Entity>> map_;
  mutable std::unique_ptr<detail::KeyedObservers<std::string>> observers_;
};

class Dir : public EntityOf<Dir> {
 public:
  static constexpr const char* typeName = "Platform::Dir";
  Dir() = default;
  explicit Dir(const std::string&) {}

  DirEntries entry{this};

  template <class D>
  void fields(D& d) {
    d("entry", entry);
  }
};

// Writes an entity with its type, as directory entries are written.
Value typedEntityToValue(const Entity& e);

}  // namespace platform
