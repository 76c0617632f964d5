// JSON for the state database: text, dumps, loads, changes and change streams.
//
// A path names a place in the database: a mount path, then field names and collection keys
// ("mirroring/config/session/s1/srcIntf/Ethernet1/direction"). A key may hold '/' followed by
// digits (Ethernet3/1): the segments of digits after a key belong to it, whatever the key's
// type, since no field name is all digits. A key that has no text form (a struct) is given
// beside the path as "key".
//
// A change is {"op": "set" | "merge" | "del", "path": ..., "key"?: ..., "value"?: ...}:
//   set    replaces the value at the path (an entity: every field not named goes back to its
//          default; a collection: entries not named are erased);
//   merge  writes only what the value names;
//   del    erases a collection entry or set member.
// A change is validated in full before anything is written, so a bad change writes nothing.
//
// JSON text is read with limits: at most maxJsonDepth arrays and objects open at once, and no
// object that names a member twice.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Database.h"
#include "platform/Value.h"

namespace platform {

// JSON text to a Value and back. `indent` < 0 writes one line.
inline constexpr std::size_t maxJsonDepth = 100;
std::optional<Value> parseJson(std::string_view text, std::string& error);
std::string toJson(const Value& v, int indent = -1);

// What a path names.
struct Target {
  Mount* mount = nullptr;
  Entity* entity = nullptr;     // the entity named, or the owner of `field`
  FieldBase* field = nullptr;   // null when the path names an entity
  std::optional<Value> key;     // set when the path names an entry of `field`
  bool keyField = false;        // `field` is its entity's key field
};
Target resolvePath(const Database& db, std::string_view path, std::optional<Value> key, std::string& error);

struct Change {
  enum class Op { set, merge, del };
  Op op = Op::set;
  std::string path;
  std::optional<Value> key;
  std::optional<Value> value;
};
const char* opName(Change::Op op);
// Reads a change object, taking its key and value over; false (with `error`) for anything
// malformed.
bool parseChange(Value v, Change& out, std::string& error);
Value changeToValue(const Change& c);
// Applies a change, or writes nothing and explains why.
bool applyChange(Database& db, const Change& c, std::string& error);

// The content of the named mounts (all when `only` is empty), keyed by mount path.
Value dumpState(const Database& db, const std::vector<std::string>& only = {});
// Sets each mount named in `state` to its content. Unknown mounts and bad content are errors;
// each mount is validated before it is written. A reference must name an entity that exists
// before the change that holds it; in a state file it may name an entity of a mount that
// comes later in the file.
bool loadState(Database& db, const Value& state, std::string& error);

// One write (as the database reports it to its write listener) as a change.
Change describeWrite(const FieldBase& field, WriteKind kind, const void* key);

}  // namespace platform
