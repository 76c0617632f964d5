#include "bench/MinimumWrites.h"

#include <map>
#include <set>
#include <string>
#include <utility>

#include "platform/Codec.h"
#include "platform/Entity.h"

namespace bench {

namespace {

using platform::CollectionField;
using platform::Entity;
using platform::FieldBase;
using platform::FieldInfo;
using platform::TypeInfo;
using platform::Value;

uint64_t diffEntity(const Value& before, const Entity& after);

// A collection's entries as they appear in JSON: an object from key text to entry, or an
// array of {"key", "value"} pairs; keyed here by the key's JSON text.
std::map<std::string, std::pair<Value, const Value*>> entriesOf(const Value* v) {
  std::map<std::string, std::pair<Value, const Value*>> out;
  if (!v) return out;
  if (v->isObject()) {
    for (const auto& [k, entry] : v->asObject()) out.emplace(platform::toJson(Value(k)), std::pair(Value(k), &entry));
  } else if (v->isArray()) {
    for (const auto& pair : v->asArray()) {
      const Value* k = pair.find("key");
      const Value* entry = pair.find("value");
      if (k && entry) out.emplace(platform::toJson(*k), std::pair(*k, entry));
    }
  }
  return out;
}

std::set<std::string> membersOf(const Value* v) {
  std::set<std::string> out;
  if (v && v->isArray()) {
    for (const auto& item : v->asArray()) out.insert(platform::toJson(item));
  }
  return out;
}

uint64_t diffCollection(const Value* before, const FieldBase& field, CollectionField& coll) {
  const Value now = field.toValue();
  uint64_t n = 0;
  if (coll.isSet()) {
    const std::set<std::string> was = membersOf(before), is = membersOf(&now);
    for (const auto& m : was) n += is.count(m) ? 0 : 1;
    for (const auto& m : is) n += was.count(m) ? 0 : 1;
    return n;
  }
  const auto was = entriesOf(before), is = entriesOf(&now);
  for (const auto& [text, entry] : was) n += is.count(text) ? 0 : 1;
  for (const auto& [text, entry] : is) {
    const auto it = was.find(text);
    if (it == was.end()) {
      ++n;
    } else if (const Entity* child = coll.entryEntity(entry.first)) {
      n += diffEntity(*it->second.second, *child);
    } else if (!(*it->second.second == *entry.second)) {
      ++n;
    }
  }
  return n;
}

uint64_t diffEntity(const Value& before, const Entity& after) {
  Entity& e = const_cast<Entity&>(after);  // the field API hands out collections non-const only
  uint64_t n = 0;
  for (const FieldInfo& info : e.typeInfo().fields()) {
    if (info.key) continue;  // set with the entry, never written on its own
    FieldBase& field = TypeInfo::field(e, info);
    const Value* was = before.find(info.name);
    if (CollectionField* coll = field.asCollection()) {
      n += diffCollection(was, field, *coll);
    } else if (const Entity* child = field.childEntity()) {
      n += was && was->isObject() ? diffEntity(*was, *child) : 1;
    } else if (!was || !(*was == field.toValue())) {
      ++n;
    }
  }
  return n;
}

}  // namespace

uint64_t minimumWrites(const platform::Value* before, const platform::Mount& mount) {
  const Entity& root = *mount.root();
  if (before) return diffEntity(*before, root);
  platform::Ptr<Entity> fresh = root.typeInfo().create();
  return fresh ? diffEntity(platform::entityToValue(*fresh), root) : 0;
}

}  // namespace bench
