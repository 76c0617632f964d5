// JSON text to Value and back.
//
// Reading is one pass of the parser's event interface straight into a Value: no intermediate
// tree, and the place where the limits of input are kept (nesting depth, members named once).
// Nothing that later walks a Value recursively (the codec, brief(), toJson, destructors) can
// then meet a value deeper than maxJsonDepth.
//
// Change lines are short and plain, and the general parser spends most of its time on them
// reading one character at a time. A line is first tried by a small reader that knows only
// the plainest JSON (strings of printable ASCII without escapes, whole numbers of up to 18
// digits, few members an object); it gives up on anything else, and the general parser then
// reads the text from the start. So every text it does not take, bad text above all, reads
// exactly as before, with the same messages.
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "platform/Codec.h"

namespace platform {

namespace {

using Json = nlohmann::json;

// Builds a Value from the parser's events. Each open array or object is a frame; a new value
// goes into the innermost frame, whose Value stays in place until it closes (values are only
// ever added to the innermost container).
class ValueBuilder {
 public:
  explicit ValueBuilder(std::string& error) : error_(error) {}

  Value& result() { return *root_; }

  bool null() { return put(Value()); }
  bool boolean(bool b) { return put(Value(b)); }
  bool number_integer(Json::number_integer_t i) { return put(Value(int64_t(i))); }
  bool number_unsigned(Json::number_unsigned_t u) { return put(Value(uint64_t(u))); }
  bool number_float(Json::number_float_t d, const std::string&) { return put(Value(double(d))); }
  bool string(std::string& s) { return put(Value(std::move(s))); }
  bool binary(Json::binary_t&) { return fail("", "binary values are not JSON text"); }
  bool start_object(std::size_t) { return open(Value::object()); }
  bool start_array(std::size_t) { return open(Value::array()); }
  bool end_object() { return close(); }
  bool end_array() { return close(); }

  // The member goes in with its value (the next event); until then its name waits here.
  bool key(std::string& k) {
    pendingKey_ = std::move(k);
    if (isDuplicate(frames_.back())) return fail(where(), "duplicate member \"" + pendingKey_ + "\"");
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& e) {
    error_ = std::string("malformed JSON: ") + e.what();
    return false;
  }

 private:
  // Objects up to this size are searched for a repeated member; larger ones keep an index.
  static constexpr std::size_t kLinearMembers = 16;

  // An index of an object's members by position; the position kPending is the member whose
  // name was read and whose value was not yet.
  static constexpr std::size_t kPending = std::size_t(-1);
  struct MemberName {
    const Value::Object* members;
    const std::string* pending;
    const std::string& operator()(std::size_t i) const { return i == kPending ? *pending : (*members)[i].first; }
  };
  struct MemberHash {
    MemberName name;
    std::size_t operator()(std::size_t i) const { return std::hash<std::string>{}(name(i)); }
  };
  struct MemberEqual {
    MemberName name;
    bool operator()(std::size_t a, std::size_t b) const { return name(a) == name(b); }
  };
  using MemberIndex = std::unordered_set<std::size_t, MemberHash, MemberEqual>;

  struct Frame {
    Value* value;
    std::unique_ptr<MemberIndex> index;  // objects past kLinearMembers only
  };

  bool isDuplicate(Frame& f) {
    const Value::Object& members = f.value->asObject();
    if (f.index) return f.index->count(kPending) != 0;
    for (const auto& member : members) {
      if (member.first == pendingKey_) return true;
    }
    if (members.size() == kLinearMembers) {
      MemberName name{&members, &pendingKey_};
      f.index = std::make_unique<MemberIndex>(4 * kLinearMembers, MemberHash{name}, MemberEqual{name});
      for (std::size_t i = 0; i < members.size(); ++i) f.index->insert(i);
    }
    return false;
  }

  Value* put(Value v) {
    if (frames_.empty()) return &root_.emplace(std::move(v));
    Frame& top = frames_.back();
    if (top.value->isArray()) return &top.value->asArray().emplace_back(std::move(v));
    Value::Object& members = top.value->asObject();
    members.emplace_back(std::move(pendingKey_), std::move(v));
    if (top.index) top.index->insert(members.size() - 1);
    return &members.back().second;
  }

  bool open(Value container) {
    if (frames_.size() == maxJsonDepth) {
      return fail(where(), "JSON nested deeper than " + std::to_string(maxJsonDepth) + " levels");
    }
    Value* v = put(std::move(container));
    frames_.push_back({v, nullptr});
    return true;
  }
  bool close() {
    frames_.pop_back();
    return true;
  }

  // Where the innermost open container is: the member names and array positions that lead to
  // it from the top, the first kShownSegments of them.
  static constexpr std::size_t kShownSegments = 8;
  std::string where() const {
    std::string path;
    for (std::size_t i = 0; i + 1 < frames_.size(); ++i) {
      if (i == kShownSegments) return path + "/...";
      const Value& v = *frames_[i].value;
      if (!path.empty()) path += '/';
      path += v.isArray() ? std::to_string(v.asArray().size() - 1) : v.asObject().back().first;
    }
    return path;
  }

  bool fail(const std::string& path, const std::string& fault) {
    error_ = path.empty() ? fault : "at " + path + ": " + fault;
    return false;
  }

  std::string& error_;
  std::optional<Value> root_;
  std::string pendingKey_;
  std::vector<Frame> frames_;
};

// The plain subset described at the top. Each read answers false, with nothing to say, where
// the text leaves the subset (or is not JSON at all).
class PlainReader {
 public:
  explicit PlainReader(std::string_view text) : p_(text.data()), end_(text.data() + text.size()) {}

  bool read(Value& out) {
    if (!value(out, 0)) return false;
    space();
    return p_ == end_;
  }

 private:
  // Objects with more members take the general parser's index of names.
  static constexpr std::size_t kMaxMembers = 16;
  static constexpr int kMaxDigits = 18;  // any 18 digits fit in an int64_t

  void space() {
    while (p_ != end_ && (*p_ == ' ' || *p_ == '\t' || *p_ == '\n' || *p_ == '\r')) ++p_;
  }
  bool take(char c) {
    space();
    if (p_ == end_ || *p_ != c) return false;
    ++p_;
    return true;
  }

  bool value(Value& out, std::size_t depth) {
    space();
    if (p_ == end_) return false;
    switch (*p_) {
      case '{': return depth < maxJsonDepth && object(out, depth + 1);
      case '[': return depth < maxJsonDepth && array(out, depth + 1);
      case '"': {
        std::string_view s;
        if (!string(s)) return false;
        out = Value(std::string(s));
        return true;
      }
      case 't': return word("true", Value(true), out);
      case 'f': return word("false", Value(false), out);
      case 'n': return word("null", Value(), out);
      default: return number(out);
    }
  }

  bool object(Value& out, std::size_t depth) {
    ++p_;
    out = Value::object();
    Value::Object& members = out.asObject();
    if (take('}')) return true;
    members.reserve(4);  // a change line's object has up to four
    do {
      std::string_view name;
      space();
      if (members.size() == kMaxMembers || !string(name) || !take(':')) return false;
      for (const auto& m : members) {
        if (m.first == name) return false;
      }
      members.emplace_back(std::string(name), Value());
      if (!value(members.back().second, depth)) return false;
    } while (take(','));
    return take('}');
  }

  bool array(Value& out, std::size_t depth) {
    ++p_;
    out = Value::array();
    Value::Array& items = out.asArray();
    if (take(']')) return true;
    do {
      if (!value(items.emplace_back(), depth)) return false;
    } while (take(','));
    return take(']');
  }

  bool string(std::string_view& out) {
    if (p_ == end_ || *p_ != '"') return false;
    const char* start = ++p_;
    while (p_ != end_ && plainInString(*p_)) ++p_;
    if (p_ == end_ || *p_ != '"') return false;
    out = std::string_view(start, std::size_t(p_++ - start));
    return true;
  }
  // Printable ASCII but the quote and the backslash.
  static bool plainInString(char c) {
    auto u = static_cast<unsigned char>(c);
    return u >= 0x20 && u <= 0x7f && c != '"' && c != '\\';
  }

  bool word(std::string_view w, Value v, Value& out) {
    if (std::size_t(end_ - p_) < w.size() || std::string_view(p_, w.size()) != w) return false;
    p_ += w.size();
    out = std::move(v);
    return true;
  }

  // Whole numbers only: a fraction, an exponent, a leading zero or a 19th digit is left to the
  // general parser. Like it, a number with a minus sign is signed, one without is unsigned.
  bool number(Value& out) {
    bool negative = p_ != end_ && *p_ == '-';
    if (negative) ++p_;
    const char* start = p_;
    uint64_t n = 0;
    while (p_ != end_ && *p_ >= '0' && *p_ <= '9') n = n * 10 + uint64_t(*p_++ - '0');
    std::ptrdiff_t digits = p_ - start;
    if (digits == 0 || digits > kMaxDigits || (*start == '0' && digits > 1)) return false;
    if (p_ != end_ && (*p_ == '.' || *p_ == 'e' || *p_ == 'E')) return false;
    out = negative ? Value(-int64_t(n)) : Value(n);
    return true;
  }

  const char* p_;
  const char* end_;
};

// Output keeps the order of object members, so it goes through the order-keeping variant.
using OrderedJson = nlohmann::ordered_json;

OrderedJson toJsonValue(const Value& v) {
  switch (v.kind()) {
    case Value::Kind::null: return nullptr;
    case Value::Kind::boolean: return v.asBool();
    case Value::Kind::integer: {
      int64_t i = 0;
      v.toInt64(i);
      return i;
    }
    case Value::Kind::unsignedInteger: {
      uint64_t u = 0;
      v.toUint64(u);
      return u;
    }
    case Value::Kind::real: return v.asReal();
    case Value::Kind::string: return v.asString();
    case Value::Kind::array: {
      OrderedJson out = OrderedJson::array();
      for (const auto& item : v.asArray()) out.push_back(toJsonValue(item));
      return out;
    }
    case Value::Kind::object: {
      OrderedJson out = OrderedJson::object();
      // Appended as they come: a Value object holds each name once, and looking each name up
      // first (as operator[] does) would make large objects quadratic.
      auto& members = out.get_ref<OrderedJson::object_t&>();
      using Members = OrderedJson::object_t::Container;
      for (const auto& [k, item] : v.asObject()) static_cast<Members&>(members).emplace_back(k, toJsonValue(item));
      return out;
    }
  }
  return nullptr;
}

}  // namespace

std::optional<Value> parseJson(std::string_view text, std::string& error) {
  if (Value plain; PlainReader(text).read(plain)) return plain;
  ValueBuilder builder(error);
  if (!Json::sax_parse(text.data(), text.data() + text.size(), &builder)) return std::nullopt;
  return std::move(builder.result());
}

std::string toJson(const Value& v, int indent) { return toJsonValue(v).dump(indent); }

}  // namespace platform
