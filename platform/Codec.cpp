#include "platform/Codec.h"

#include <algorithm>

namespace platform {

namespace {

// The segments of a path, read in turn: views into the path, so that the part walked so far,
// which error messages name, is a prefix of the path and costs nothing until it is named.
class Segments {
 public:
  explicit Segments(std::string_view rest) : rest_(rest) {}
  bool done() const { return rest_.empty(); }
  std::string_view next() {
    auto slash = rest_.find('/');
    std::string_view seg = rest_.substr(0, slash);
    rest_ = slash == std::string_view::npos ? std::string_view() : rest_.substr(slash + 1);
    return seg;
  }
  // Whether the next segment is all digits (no field name is).
  bool digitsNext() const {
    std::string_view seg = rest_.substr(0, rest_.find('/'));
    return !seg.empty() && seg.find_first_not_of("0123456789") == std::string_view::npos;
  }

 private:
  std::string_view rest_;
};

}  // namespace

Target resolvePath(const Database& db, std::string_view path, std::optional<Value> key, std::string& error) {
  Target t;
  if (path.empty() || path.front() == '/' || path.back() == '/' || path.find("//") != std::string_view::npos) {
    error = "malformed path \"" + std::string(path) + "\": empty segment";
    return t;
  }
  std::string_view rest;
  t.mount = db.findPrefix(path, rest);
  if (!t.mount) {
    error = "unknown mount in path \"" + std::string(path) + "\"";
    return t;
  }
  t.entity = t.mount->root().get();
  // The path up to the end of `seg`, for messages.
  auto upTo = [&](std::string_view seg) { return std::string(path.substr(0, seg.data() + seg.size() - path.data())); };
  std::string_view walked = path.substr(0, t.mount->path().size());
  Segments segs(rest);
  while (!segs.done()) {
    std::string_view name = segs.next();
    const FieldInfo* info = t.entity->typeInfo().find(name);
    if (!info) {
      error = "unknown field \"" + std::string(name) + "\" of " + t.entity->typeInfo().name() + " at " + upTo(walked);
      return t;
    }
    FieldBase& field = TypeInfo::field(*t.entity, *info);
    walked = name;
    if (segs.done()) {
      t.field = &field;
      t.keyField = info->key;
      t.key = std::move(key);
      if (t.key && !field.asCollection()) error = "\"key\" given, but " + upTo(walked) + " is not a collection";
      return t;
    }
    if (Entity* child = field.childEntity()) {
      t.entity = child;
      continue;
    }
    CollectionField* coll = field.asCollection();
    if (!coll) {
      error = upTo(walked) + " is a value, not an entity or collection";
      return t;
    }
    // Digit segments after a key belong to it (no field name is all digits): interface names
    // such as Ethernet3/1 are keys of string-keyed collections too (sources, destinations).
    std::string_view keyText = segs.next();
    while (segs.digitsNext()) {
      std::string_view digits = segs.next();
      keyText = std::string_view(keyText.data(), digits.data() + digits.size() - keyText.data());
    }
    Value k(keyText);
    if (segs.done()) {
      DecodeContext ctx;
      coll->hasEntry(k, ctx);  // validates the key
      if (!ctx.error.empty()) {
        error = "at " + upTo(walked) + ": " + ctx.error;
      } else if (key) {
        error = "\"key\" given, but the path already names an entry";
      }
      t.field = &field;
      t.key = std::move(k);
      return t;
    }
    Entity* child = coll->entryEntity(k);
    if (!child) {
      DecodeContext ctx;
      bool present = coll->hasEntry(k, ctx);
      if (!ctx.error.empty()) error = "at " + upTo(walked) + ": " + ctx.error;
      else error = present ? upTo(keyText) + " is a value, not an entity" : "no entry at " + upTo(keyText);
      return t;
    }
    walked = keyText;
    t.entity = child;
  }
  if (key) error = "\"key\" given, but the path names an entity";
  return t;
}

const char* opName(Change::Op op) {
  switch (op) {
    case Change::Op::set: return "set";
    case Change::Op::merge: return "merge";
    case Change::Op::del: return "del";
  }
  return "?";
}

bool parseChange(Value v, Change& out, std::string& error) {
  if (!v.isObject()) {
    error = std::string("a change is an object, got ") + v.kindName();
    return false;
  }
  const Value* op = v.find("op");
  const Value* path = v.find("path");
  if (!op || !op->isString()) {
    error = "a change needs \"op\"";
    return false;
  }
  if (op->asString() == "set") out.op = Change::Op::set;
  else if (op->asString() == "merge") out.op = Change::Op::merge;
  else if (op->asString() == "del") out.op = Change::Op::del;
  else {
    error = "unknown op \"" + op->asString() + "\"";
    return false;
  }
  if (!path || !path->isString() || path->asString().empty()) {
    error = "a change needs \"path\"";
    return false;
  }
  out.key.reset();
  out.value.reset();
  for (auto& [name, member] : v.asObject()) {
    if (name == "op") continue;
    if (name == "path") out.path = std::move(member.asString());
    else if (name == "key") out.key = std::move(member);
    else if (name == "value") out.value = std::move(member);
    else {
      error = "unknown member \"" + name + "\" in a change";
      return false;
    }
  }
  if (out.op == Change::Op::merge && !out.value) {
    error = "merge needs \"value\"";
    return false;
  }
  if (out.op == Change::Op::del && out.value) {
    error = "del takes no \"value\"";
    return false;
  }
  return true;
}

Value changeToValue(const Change& c) {
  Value out = Value::object();
  out.set("op", opName(c.op));
  out.set("path", c.path);
  if (c.key) out.set("key", *c.key);
  if (c.value) out.set("value", *c.value);
  return out;
}

namespace {

bool applyTo(Target& t, const Change& c, DecodeContext& ctx, bool dryRun) {
  ApplyMode mode = c.op == Change::Op::merge ? ApplyMode::merge : ApplyMode::set;
  if (!t.field) {
    if (c.op == Change::Op::del) return ctx.fail("only collection entries can be deleted");
    if (!c.value) return ctx.fail("set needs \"value\"");
    if (mode == ApplyMode::set && !dryRun) {
      // Set replaces the whole entity: fields it does not name go back to their defaults, and
      // assigning from a fresh copy notifies only what really differs.
      if (Ptr<Entity> fresh = t.entity->typeInfo().create()) {
        applyToEntity(*fresh, *c.value, ApplyMode::set, ctx, false);
        assignEntity(*t.entity, *fresh);
        return true;
      }
    }
    return applyToEntity(*t.entity, *c.value, mode, ctx, dryRun);
  }
  CollectionField* coll = t.field->asCollection();
  if (t.key) {
    if (c.op == Change::Op::del) return coll->eraseEntry(*t.key, ctx, dryRun);
    const Value* v = c.value ? &*c.value : nullptr;
    if (!v && !coll->isSet()) return ctx.fail("set needs \"value\"");
    return coll->applyEntry(*t.key, v, mode, ctx, dryRun);
  }
  if (c.op == Change::Op::del) {
    return ctx.fail(coll ? "name the entry to delete" : "an attribute cannot be deleted; set it instead");
  }
  if (!c.value) return ctx.fail("set needs \"value\"");
  return t.field->apply(*c.value, mode, ctx, dryRun);
}

}  // namespace

bool applyChange(Database& db, const Change& c, std::string& error) {
  std::string where;
  Target t = resolvePath(db, c.path, c.key, where);
  if (!where.empty()) {
    error = where;
    return false;
  }
  if (t.keyField) {
    error = "at " + c.path + ": a key field cannot be written; it is the entry's place in its collection";
    return false;
  }
  DecodeContext ctx;
  ctx.resolver = &db;
  if (!applyTo(t, c, ctx, true)) {
    error = "at " + c.path + (ctx.where.empty() ? "" : "/" + ctx.where) + ": " + ctx.error;
    return false;
  }
  DecodeContext run;
  run.resolver = &db;
  applyTo(t, c, run, false);
  return true;
}

Value dumpState(const Database& db, const std::vector<std::string>& only) {
  Value out = Value::object();
  for (Mount* m : db.mounts()) {
    if (!only.empty() && std::find(only.begin(), only.end(), m->path()) == only.end()) continue;
    out.set(m->path(), entityToValue(*m->root()));
  }
  return out;
}

bool loadState(Database& db, const Value& state, std::string& error) {
  if (!state.isObject()) {
    error = "a state file is an object from mount path to content";
    return false;
  }
  std::vector<const std::pair<std::string, Value>*> pending;
  for (const auto& member : state.asObject()) {
    if (!db.find(member.first)) {
      error = "unknown mount \"" + member.first + "\"";
      return false;
    }
    pending.push_back(&member);
  }
  // A mount may refer to entities of a mount named later in the file: retry what failed for
  // as long as another mount could be loaded.
  while (!pending.empty()) {
    std::vector<const std::pair<std::string, Value>*> failed;
    std::string firstError;
    for (const auto* member : pending) {
      Change c;
      c.path = member->first;
      c.value = member->second;
      std::string e;
      if (!applyChange(db, c, e)) {
        if (firstError.empty()) firstError = e;
        failed.push_back(member);
      }
    }
    if (failed.size() == pending.size()) {
      error = firstError;
      return false;
    }
    pending = std::move(failed);
  }
  return true;
}

Change describeWrite(const FieldBase& field, WriteKind kind, const void* key) {
  Change c;
  c.path = field.owner()->path() + "/" + field.name();
  if (kind == WriteKind::attribute) {
    c.value = field.toValue();
    return c;
  }
  // Collections and sets are the only fields that report keys.
  auto* coll = const_cast<FieldBase&>(field).asCollection();
  if (auto text = coll->keyText(key)) c.path += "/" + *text;
  else c.key = coll->keyValue(key);
  if (kind == WriteKind::entryDel) {
    c.op = Change::Op::del;
  } else if (!coll->isSet()) {
    c.value = coll->entryValue(key);
  }
  return c;
}

}  // namespace platform
