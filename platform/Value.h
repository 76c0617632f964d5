// A JSON-shaped value.
//
// Reflection speaks in `Value`s: every attribute, collection and entity turns into one and
// can be read back from one. Keeping this small type between the entities and the JSON text
// lets entity headers stay free of any JSON library; only the codec converts to and from text.
// Objects keep their members in insertion order, so dumps follow the order of the fields.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace platform {

class Value {
 public:
  enum class Kind : uint8_t { null, boolean, integer, unsignedInteger, real, string, array, object };
  using Array = std::vector<Value>;
  using Object = std::vector<std::pair<std::string, Value>>;

  Value() = default;
  Value(std::nullptr_t) {}                     // NOLINT
  Value(bool b) : v_(b) {}                     // NOLINT
  Value(int v) : v_(int64_t(v)) {}             // NOLINT
  Value(long v) : v_(int64_t(v)) {}            // NOLINT
  Value(long long v) : v_(int64_t(v)) {}       // NOLINT
  Value(unsigned v) : v_(uint64_t(v)) {}       // NOLINT
  Value(unsigned long v) : v_(uint64_t(v)) {}  // NOLINT
  Value(unsigned long long v) : v_(uint64_t(v)) {}  // NOLINT
  Value(double d) : v_(d) {}                   // NOLINT
  Value(std::string s) : v_(std::move(s)) {}   // NOLINT
  Value(std::string_view s) : v_(std::string(s)) {}  // NOLINT
  Value(const char* s) : v_(std::string(s)) {}  // NOLINT
  Value(Array a) : v_(std::move(a)) {}          // NOLINT
  Value(Object o) : v_(std::move(o)) {}         // NOLINT

  static Value array() { return Value(Array{}); }
  static Value object() { return Value(Object{}); }

  Kind kind() const { return Kind(v_.index()); }
  const char* kindName() const;
  bool isNull() const { return kind() == Kind::null; }
  bool isBool() const { return kind() == Kind::boolean; }
  bool isNumber() const { return kind() == Kind::integer || kind() == Kind::unsignedInteger || kind() == Kind::real; }
  bool isIntegral() const;  // an integer, or a real without a fraction
  bool isString() const { return kind() == Kind::string; }
  bool isArray() const { return kind() == Kind::array; }
  bool isObject() const { return kind() == Kind::object; }

  bool asBool() const { return std::get<bool>(v_); }
  double asReal() const;
  const std::string& asString() const { return std::get<std::string>(v_); }
  const Array& asArray() const { return std::get<Array>(v_); }
  const Object& asObject() const { return std::get<Object>(v_); }
  std::string& asString() { return std::get<std::string>(v_); }
  Array& asArray() { return std::get<Array>(v_); }
  Object& asObject() { return std::get<Object>(v_); }

  // Integral reads with range checks: false when the value is not a whole number in range.
  bool toInt64(int64_t& out) const;
  bool toUint64(uint64_t& out) const;

  // Object access. `find` answers null when absent or when this is not an object.
  const Value* find(std::string_view key) const;
  // Inserts (at the end) or replaces a member; this must be an object.
  Value& set(std::string key, Value v);
  // Appends to an array.
  void push(Value v) { asArray().push_back(std::move(v)); }

  bool operator==(const Value& o) const { return v_ == o.v_; }

  // A short single-line rendering for messages (not a full JSON serializer).
  std::string brief() const;

 private:
  std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Array, Object> v_;
};

}  // namespace platform
