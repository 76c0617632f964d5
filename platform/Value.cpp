#include "platform/Value.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace platform {

const char* Value::kindName() const {
  switch (kind()) {
    case Kind::null: return "null";
    case Kind::boolean: return "a boolean";
    case Kind::integer:
    case Kind::unsignedInteger:
    case Kind::real: return "a number";
    case Kind::string: return "a string";
    case Kind::array: return "an array";
    case Kind::object: return "an object";
  }
  return "?";
}

bool Value::isIntegral() const {
  if (kind() == Kind::integer || kind() == Kind::unsignedInteger) return true;
  if (kind() != Kind::real) return false;
  double d = std::get<double>(v_);
  return std::isfinite(d) && std::trunc(d) == d;
}

double Value::asReal() const {
  switch (kind()) {
    case Kind::integer: return double(std::get<int64_t>(v_));
    case Kind::unsignedInteger: return double(std::get<uint64_t>(v_));
    case Kind::real: return std::get<double>(v_);
    default: return 0.0;
  }
}

bool Value::toInt64(int64_t& out) const {
  switch (kind()) {
    case Kind::integer: out = std::get<int64_t>(v_); return true;
    case Kind::unsignedInteger: {
      uint64_t u = std::get<uint64_t>(v_);
      if (u > uint64_t(std::numeric_limits<int64_t>::max())) return false;
      out = int64_t(u);
      return true;
    }
    case Kind::real: {
      double d = std::get<double>(v_);
      if (!isIntegral() || d < -9.2e18 || d > 9.2e18) return false;
      out = int64_t(d);
      return true;
    }
    default: return false;
  }
}

bool Value::toUint64(uint64_t& out) const {
  switch (kind()) {
    case Kind::integer: {
      int64_t i = std::get<int64_t>(v_);
      if (i < 0) return false;
      out = uint64_t(i);
      return true;
    }
    case Kind::unsignedInteger: out = std::get<uint64_t>(v_); return true;
    case Kind::real: {
      double d = std::get<double>(v_);
      if (!isIntegral() || d < 0 || d > 1.8e19) return false;
      out = uint64_t(d);
      return true;
    }
    default: return false;
  }
}

const Value* Value::find(std::string_view key) const {
  if (!isObject()) return nullptr;
  for (const auto& [k, v] : asObject()) {
    if (k == key) return &v;
  }
  return nullptr;
}

Value& Value::set(std::string key, Value v) {
  auto& obj = asObject();
  for (auto& [k, existing] : obj) {
    if (k == key) {
      existing = std::move(v);
      return existing;
    }
  }
  obj.emplace_back(std::move(key), std::move(v));
  return obj.back().second;
}

namespace {
void quote(std::string& out, const std::string& s) {
  out += '"';
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  out += '"';
}
}  // namespace

std::string Value::brief() const {
  std::string out;
  switch (kind()) {
    case Kind::null: return "null";
    case Kind::boolean: return asBool() ? "true" : "false";
    case Kind::integer: return std::to_string(std::get<int64_t>(v_));
    case Kind::unsignedInteger: return std::to_string(std::get<uint64_t>(v_));
    case Kind::real: {
      // The shortest text that reads back as the same number (1.5, 1e+300).
      char text[32];
      auto [end, ec] = std::to_chars(text, text + sizeof text, std::get<double>(v_));
      return std::string(text, ec == std::errc() ? end : text);
    }
    case Kind::string: quote(out, asString()); return out;
    case Kind::array: {
      out = "[";
      bool first = true;
      for (const auto& v : asArray()) {
        if (!first) out += ",";
        first = false;
        out += v.brief();
      }
      out += ']';
      return out;
    }
    case Kind::object: {
      out = "{";
      bool first = true;
      for (const auto& [k, v] : asObject()) {
        if (!first) out += ",";
        first = false;
        quote(out, k);
        out += ':';
        out += v.brief();
      }
      out += '}';
      return out;
    }
  }
  return out;
}

}  // namespace platform
