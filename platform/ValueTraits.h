// How plain values turn into `Value`s and back.
//
// `ValueTraits<T>` is the one place that knows the JSON shape of a value type: booleans,
// numbers (range-checked), strings, enumerations (by name out, by name or number in),
// interface identifiers, addresses, VRF names, and structs that describe their members with
// a `fields` template:
//
//   struct OperStatus {
//     OperState state{};
//     std::string reason;
//     template <class D> void fields(D& d) { d("state", state); d("reason", reason); }
//   };
//
// An enumeration gets names by declaring, in its own namespace, a constexpr function
// `enumEntries(E)` that returns an array of `EnumEntry<E>`. On input a number must name one of
// its enumerators, unless the enumeration is open: it declares `constexpr bool enumIsOpen(E)`
// answering true next to its names, and then keeps numbers it has no name for (values a newer
// writer knows), writing them back as numbers.
//
// Strings that hold interface names use `IntfNameTraits` instead of the string traits: they
// stay strings in C++ but are read only in a form `IntfId::parse` accepts.
//
// Keys of collections have a text form when they print as a single word (strings, interface
// names, numbers, enumerators); other keys (structs) are written as values.
#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>

#include "platform/IntfId.h"
#include "platform/IpGenAddr.h"
#include "platform/Ptr.h"
#include "platform/Value.h"
#include "platform/VrfName.h"

namespace platform {

class Entity;

// Resolves the path of an entity to the entity (for references held in collections).
class EntityResolver {
 public:
  virtual Ptr<Entity> resolve(const std::string& path) const = 0;

 protected:
  ~EntityResolver() = default;
};

// Where decoding reports its first problem.
struct DecodeContext {
  std::string error;
  std::string where;  // the path below the place decoding started, e.g. "session/s1/truncate"
  const EntityResolver* resolver = nullptr;

  bool fail(std::string message) {
    if (error.empty()) error = std::move(message);
    return false;
  }
  // Adds one path segment in front of `where` while a failure travels outwards.
  bool nest(const std::string& segment) {
    where = where.empty() ? segment : segment + "/" + where;
    return false;
  }
};

template <class E>
struct EnumEntry {
  E value;
  const char* name;
};

template <class E>
concept NamedEnum = std::is_enum_v<E> && requires(E e) { enumEntries(e); };

// Whether an enumeration keeps numbers that name none of its enumerators (see above).
template <class E>
constexpr bool enumOpen() {
  if constexpr (requires(E e) { enumIsOpen(e); }) return enumIsOpen(E{});
  else return false;
}

template <class E>
const char* enumName(E e) {
  if constexpr (NamedEnum<E>) {
    for (const auto& entry : enumEntries(E{})) {
      if (entry.value == e) return entry.name;
    }
  }
  return nullptr;
}

// Reads the members of a struct into a Value object (used by the struct traits).
struct MemberProbe {
  template <class M>
  void operator()(const char*, M&) {}
};
template <class T>
concept DescribedStruct = !std::is_base_of_v<Entity, T> && requires(T& t, MemberProbe& p) { t.fields(p); };

template <class T, class = void>
struct ValueTraits;

// --- booleans, numbers, strings ------------------------------------------------------------

template <>
struct ValueTraits<bool> {
  static Value encode(bool b) { return Value(b); }
  static bool decode(const Value& v, bool& out, DecodeContext& ctx) {
    if (!v.isBool()) return ctx.fail(std::string("expected a boolean, got ") + v.kindName());
    out = v.asBool();
    return true;
  }
  static std::optional<std::string> keyText(bool b) { return b ? "true" : "false"; }
  static bool decodeKeyText(const std::string& s, bool& out, DecodeContext& ctx) {
    if (s == "true" || s == "false") {
      out = s == "true";
      return true;
    }
    return ctx.fail("expected true or false, got \"" + s + "\"");
  }
};

template <class T>
struct ValueTraits<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
  static Value encode(T v) {
    if constexpr (std::is_signed_v<T>) return Value(int64_t(v));
    else return Value(uint64_t(v));
  }
  static bool decode(const Value& v, T& out, DecodeContext& ctx) {
    if (!v.isNumber()) return ctx.fail(std::string("expected a number, got ") + v.kindName());
    if constexpr (std::is_signed_v<T>) {
      int64_t i;
      if (!v.toInt64(i) || i < int64_t(std::numeric_limits<T>::min()) || i > int64_t(std::numeric_limits<T>::max()))
        return ctx.fail(outOfRange(v));
      out = T(i);
    } else {
      uint64_t u;
      if (!v.toUint64(u) || u > uint64_t(std::numeric_limits<T>::max())) return ctx.fail(outOfRange(v));
      out = T(u);
    }
    return true;
  }
  static std::optional<std::string> keyText(T v) { return std::to_string(v); }
  static bool decodeKeyText(const std::string& s, T& out, DecodeContext& ctx) {
    auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
    if (ec != std::errc() || ptr != s.data() + s.size() || s.empty())
      return ctx.fail("expected a whole number from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
                      std::to_string(std::numeric_limits<T>::max()) + ", got \"" + s + "\"");
    return true;
  }
  static std::string outOfRange(const Value& v) {
    return "expected a whole number from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
           std::to_string(std::numeric_limits<T>::max()) + ", got " + v.brief();
  }
};

template <class T>
struct ValueTraits<T, std::enable_if_t<std::is_floating_point_v<T>>> {
  static Value encode(T v) { return Value(double(v)); }
  static bool decode(const Value& v, T& out, DecodeContext& ctx) {
    if (!v.isNumber()) return ctx.fail(std::string("expected a number, got ") + v.kindName());
    out = T(v.asReal());
    return true;
  }
  static std::optional<std::string> keyText(T) { return std::nullopt; }
};

template <>
struct ValueTraits<std::string> {
  static Value encode(const std::string& s) { return Value(s); }
  static bool decode(const Value& v, std::string& out, DecodeContext& ctx) {
    if (!v.isString()) return ctx.fail(std::string("expected a string, got ") + v.kindName());
    out = v.asString();
    return true;
  }
  static std::optional<std::string> keyText(const std::string& s) { return s; }
  // A key names something and is written in its entry's path: the empty name or a control
  // character could not be written there, and a '/' only with digits after it (Ethernet3/1),
  // which a path reads as part of the key.
  static bool decodeKeyText(const std::string& s, std::string& out, DecodeContext& ctx) {
    if (s.empty()) return ctx.fail("a key cannot be empty");
    for (std::size_t i = 0; i < s.size(); ++i) {
      const auto c = static_cast<unsigned char>(s[i]);
      if (c < 0x20 || c == 0x7f) return ctx.fail("a key cannot hold control characters");
      const bool digitsAfterSlash = i > 0 && i + 1 < s.size() && s[i + 1] >= '0' && s[i + 1] <= '9';
      const bool digitsTillNextSlash = s.find_first_not_of("0123456789", i + 1) == s.find('/', i + 1);
      if (c == '/' && !(digitsAfterSlash && digitsTillNextSlash)) {
        return ctx.fail("a key cannot hold a '/' without digits after it: \"" + s + "\"");
      }
    }
    out = s;
    return true;
  }
};

// --- enumerations ---------------------------------------------------------------------------

template <class E>
struct ValueTraits<E, std::enable_if_t<std::is_enum_v<E>>> {
  static_assert(NamedEnum<E>, "an enumeration read from JSON names its enumerators with enumEntries");
  using U = std::underlying_type_t<E>;
  static Value encode(E e) {
    if (const char* name = enumName(e)) return Value(name);
    return ValueTraits<U>::encode(U(e));
  }
  static bool decode(const Value& v, E& out, DecodeContext& ctx) {
    if (v.isString()) return decodeKeyText(v.asString(), out, ctx);
    if (!v.isNumber()) return ctx.fail("expected " + expected() + ", got " + v.kindName());
    U u{};
    DecodeContext inner;
    if (!ValueTraits<U>::decode(v, u, inner) || !known(E(u))) {
      return ctx.fail("unknown enumerator " + v.brief() + "; expected " + expected());
    }
    out = E(u);
    return true;
  }
  static std::optional<std::string> keyText(E e) {
    if (const char* name = enumName(e)) return std::string(name);
    return std::to_string(U(e));
  }
  static bool decodeKeyText(const std::string& s, E& out, DecodeContext& ctx) {
    for (const auto& entry : enumEntries(E{})) {
      if (s == entry.name) {
        out = entry.value;
        return true;
      }
    }
    U u{};
    DecodeContext inner;
    if (!s.empty() && ValueTraits<U>::decodeKeyText(s, u, inner) && known(E(u))) {
      out = E(u);
      return true;
    }
    return ctx.fail("unknown enumerator \"" + s + "\"; expected " + expected());
  }
  static bool known(E e) { return enumOpen<E>() || enumName(e); }
  static std::string expected() {
    std::string names;
    for (const auto& entry : enumEntries(E{})) {
      if (!names.empty()) names += ", ";
      names += entry.name;
    }
    return "one of " + names + (enumOpen<E>() ? " (or any number)" : " (or its number)");
  }
};

// --- platform value types -------------------------------------------------------------------

// As a value, "" is the empty IntfId ("none"); a key always names an interface.
template <>
struct ValueTraits<IntfId> {
  static Value encode(const IntfId& i) { return Value(i.name()); }
  static bool decode(const Value& v, IntfId& out, DecodeContext& ctx) {
    if (!v.isString()) return ctx.fail(std::string("expected an interface name, got ") + v.kindName());
    if (v.asString().empty()) {
      out = IntfId();
      return true;
    }
    return decodeKeyText(v.asString(), out, ctx);
  }
  static std::optional<std::string> keyText(const IntfId& i) { return i.name(); }
  static bool decodeKeyText(const std::string& s, IntfId& out, DecodeContext& ctx) {
    auto parsed = IntfId::parse(s);
    if (!parsed) return ctx.fail("malformed interface name \"" + s + "\"");
    out = *parsed;
    return true;
  }
};

// A std::string that holds an interface name (kept as text where the agent wants string order
// and string operations): read by the rules of ValueTraits<IntfId>, stored as given.
struct IntfNameTraits {
  static Value encode(const std::string& s) { return Value(s); }
  static bool decode(const Value& v, std::string& out, DecodeContext& ctx) {
    IntfId id;
    if (!ValueTraits<IntfId>::decode(v, id, ctx)) return false;
    out = id.name();
    return true;
  }
  static std::optional<std::string> keyText(const std::string& s) { return s; }
  static bool decodeKeyText(const std::string& s, std::string& out, DecodeContext& ctx) {
    IntfId id;
    if (!ValueTraits<IntfId>::decodeKeyText(s, id, ctx)) return false;
    out = s;
    return true;
  }
};

// An interface identifier of one kind only, e.g. a LAG (a Port-Channel) and its members
// (Ethernet ports). As a value, "" stays "none".
template <IntfKind Kind>
struct IntfOfKindTraits {
  static Value encode(const IntfId& i) { return ValueTraits<IntfId>::encode(i); }
  static bool decode(const Value& v, IntfId& out, DecodeContext& ctx) {
    if (!ValueTraits<IntfId>::decode(v, out, ctx)) return false;
    return out.name().empty() || ofKind(out, ctx);
  }
  static std::optional<std::string> keyText(const IntfId& i) { return i.name(); }
  static bool decodeKeyText(const std::string& s, IntfId& out, DecodeContext& ctx) {
    return ValueTraits<IntfId>::decodeKeyText(s, out, ctx) && ofKind(out, ctx);
  }

 private:
  static bool ofKind(const IntfId& i, DecodeContext& ctx) {
    if (i.kind() == Kind) return true;
    const char* wanted = Kind == IntfKind::ethernet      ? "an Ethernet interface"
                         : Kind == IntfKind::portChannel ? "a Port-Channel"
                                                         : intfKindName(Kind);
    return ctx.fail("\"" + i.name() + "\" is not " + wanted);
  }
};

template <>
struct ValueTraits<IpGenAddr> {
  static Value encode(const IpGenAddr& a) { return Value(a.str()); }
  static bool decode(const Value& v, IpGenAddr& out, DecodeContext& ctx) {
    if (!v.isString()) return ctx.fail(std::string("expected an IP address, got ") + v.kindName());
    auto parsed = IpGenAddr::parse(v.asString());
    if (!parsed) return ctx.fail("malformed IP address \"" + v.asString() + "\"");
    out = *parsed;
    return true;
  }
  static std::optional<std::string> keyText(const IpGenAddr& a) { return a.str(); }
  static bool decodeKeyText(const std::string& s, IpGenAddr& out, DecodeContext& ctx) {
    return decode(Value(s), out, ctx);
  }
};

template <>
struct ValueTraits<VrfName> {
  static Value encode(const VrfName& n) { return Value(n.str()); }
  static bool decode(const Value& v, VrfName& out, DecodeContext& ctx) {
    if (!v.isString()) return ctx.fail(std::string("expected a VRF name, got ") + v.kindName());
    const std::string& s = v.asString();
    if (!VrfName::valid(s))
      return ctx.fail("VRF name of " + std::to_string(s.size()) + " bytes is longer than " +
                      std::to_string(VrfName::maxLength) + " bytes");
    out = VrfName(s);
    return true;
  }
  static std::optional<std::string> keyText(const VrfName& n) { return n.str(); }
  static bool decodeKeyText(const std::string& s, VrfName& out, DecodeContext& ctx) {
    if (s.empty()) return ctx.fail("a key cannot be empty");
    return decode(Value(s), out, ctx);
  }
};

// --- described structs ----------------------------------------------------------------------

template <class T>
struct ValueTraits<T, std::enable_if_t<DescribedStruct<T>>> {
  struct Encoder {
    Value out = Value::object();
    template <class M>
    void operator()(const char* name, M& m) {
      out.set(name, ValueTraits<std::remove_const_t<M>>::encode(m));
    }
  };
  struct Finder {
    std::string_view name;
    const Value* value;
    DecodeContext* ctx;
    bool found = false;
    bool ok = true;
    template <class M>
    void operator()(const char* member, M& m) {
      if (found || name != member) return;
      found = true;
      ok = ValueTraits<M>::decode(*value, m, *ctx);
      if (!ok) ctx->nest(member);
    }
  };
  static Value encode(const T& t) {
    Encoder e;
    const_cast<T&>(t).fields(e);
    return std::move(e.out);
  }
  // Members that the value does not name keep what `out` holds.
  static bool decode(const Value& v, T& out, DecodeContext& ctx) {
    if (!v.isObject()) return ctx.fail(std::string("expected an object, got ") + v.kindName());
    for (const auto& [name, member] : v.asObject()) {
      Finder f{name, &member, &ctx};
      out.fields(f);
      if (!f.found) return ctx.fail("unknown field \"" + name + "\"");
      if (!f.ok) return false;
    }
    return true;
  }
  static std::optional<std::string> keyText(const T&) { return std::nullopt; }
};

// Traits that read keys from their text form (object member names and path segments).
template <class Traits, class T>
concept TextKeyTraits = requires(const std::string& s, T& out, DecodeContext& ctx) {
  Traits::decodeKeyText(s, out, ctx);
};
template <class T>
concept HasKeyText = TextKeyTraits<ValueTraits<T>, T>;

}  // namespace platform
