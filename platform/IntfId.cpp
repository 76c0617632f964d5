#include "platform/IntfId.h"

#include <algorithm>
#include <array>
#include <limits>
#include <ostream>

namespace platform {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads the text left to right; every step either consumes what it expects or fails.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : text_(text) {}

  bool atEnd() const { return pos_ == text_.size(); }

  bool literal(std::string_view word) {
    if (text_.substr(pos_, word.size()) != word) {
      return false;
    }
    pos_ += word.size();
    return true;
  }

  // A decimal number without sign or leading zeros that fits in 32 bits.
  std::optional<uint32_t> number() {
    std::size_t end = pos_;
    uint64_t value = 0;
    while (end < text_.size() && isDigit(text_[end])) {
      value = value * 10 + static_cast<uint64_t>(text_[end] - '0');
      if (value > std::numeric_limits<uint32_t>::max()) {
        return std::nullopt;
      }
      ++end;
    }
    const std::size_t length = end - pos_;
    if (length == 0 || (length > 1 && text_[pos_] == '0')) {
      return std::nullopt;
    }
    pos_ = end;
    return static_cast<uint32_t>(value);
  }

  std::optional<uint32_t> numberAtLeast(uint32_t min) {
    auto n = number();
    return n && *n >= min ? n : std::nullopt;
  }

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
};

struct Parsed {
  IntfKind kind;
  uint32_t n1 = 0;
  uint32_t n2 = 0;  // 0 = absent
  uint32_t n3 = 0;  // 0 = absent
};

// Prefixes in byte-wise order; the index is the rank in the sort key, so the key orders
// kinds exactly as comparing the names' leading text would. None is a prefix of another.
struct Prefix {
  std::string_view text;
  IntfKind kind;
};
constexpr std::array<Prefix, 7> prefixes{{
    {"Cpu", IntfKind::cpu},
    {"Ethernet", IntfKind::ethernet},
    {"Gre", IntfKind::greTunnel},
    {"Loopback", IntfKind::loopback},
    {"Management", IntfKind::management},
    {"Port-Channel", IntfKind::portChannel},
    {"Vlan", IntfKind::vlan},
}};

uint64_t rankOf(IntfKind kind) {
  for (std::size_t i = 0; i < prefixes.size(); ++i) {
    if (prefixes[i].kind == kind) {
      return i;
    }
  }
  return prefixes.size();
}

// Reads the optional "/<n>" part; false only when a '/' is present but not followed by a
// valid number, which makes the whole name malformed.
bool optionalSlashPart(Cursor& c, uint32_t& out) {
  if (!c.literal("/")) {
    return true;
  }
  auto n = c.numberAtLeast(1);
  if (!n) {
    return false;
  }
  out = *n;
  return true;
}

std::optional<Parsed> parseName(std::string_view text) {
  Cursor c(text);
  for (const Prefix& prefix : prefixes) {
    if (!c.literal(prefix.text)) {
      continue;
    }
    Parsed p{prefix.kind};
    std::optional<uint32_t> n;
    switch (prefix.kind) {
      case IntfKind::cpu: break;
      case IntfKind::ethernet:
        if (!(n = c.numberAtLeast(1))) {
          return std::nullopt;
        }
        p.n1 = *n;
        if (!optionalSlashPart(c, p.n2)) {
          return std::nullopt;
        }
        if (p.n2 != 0 && !optionalSlashPart(c, p.n3)) {
          return std::nullopt;
        }
        break;
      case IntfKind::management:
        if (!(n = c.number())) {
          return std::nullopt;
        }
        p.n1 = *n;
        if (!optionalSlashPart(c, p.n2)) {
          return std::nullopt;
        }
        break;
      case IntfKind::greTunnel:
        // Gre0 is valid: configuration uses it to name "the session's own tunnel", and
        // tunnel interfaces the agent allocates are numbered from 1.
        if (!(n = c.number())) {
          return std::nullopt;
        }
        p.n1 = *n;
        break;
      case IntfKind::portChannel:
        if (!(n = c.numberAtLeast(1))) {
          return std::nullopt;
        }
        p.n1 = *n;
        break;
      case IntfKind::loopback:
        if (!(n = c.number())) {
          return std::nullopt;
        }
        p.n1 = *n;
        break;
      case IntfKind::vlan:
        if (!(n = c.numberAtLeast(1)) || *n > 4094) {
          return std::nullopt;
        }
        p.n1 = *n;
        break;
      case IntfKind::none:
      case IntfKind::other: return std::nullopt;
    }
    if (!c.atEnd()) {
      return std::nullopt;
    }
    return p;
  }
  return std::nullopt;
}

// Digit runs compare by value: strip leading zeros, then the longer run is larger, and
// runs of equal length compare digit by digit. No overflow whatever the length.
int compareDigitRuns(std::string_view a, std::string_view b) {
  a.remove_prefix(std::min(a.find_first_not_of('0'), a.size()));
  b.remove_prefix(std::min(b.find_first_not_of('0'), b.size()));
  if (a.size() != b.size()) {
    return a.size() < b.size() ? -1 : 1;
  }
  return a.compare(b);
}

std::string_view takeRun(std::string_view s, std::size_t& pos, bool digits) {
  const std::size_t start = pos;
  while (pos < s.size() && isDigit(s[pos]) == digits) {
    ++pos;
  }
  return s.substr(start, pos - start);
}

// The natural order described in IntfId.h, for names without a precomputed key.
int naturalCompare(std::string_view a, std::string_view b) {
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() && j < b.size()) {
    const bool digitA = isDigit(a[i]);
    const bool digitB = isDigit(b[j]);
    if (digitA != digitB) {
      return digitA ? -1 : 1;
    }
    const std::string_view runA = takeRun(a, i, digitA);
    const std::string_view runB = takeRun(b, j, digitB);
    const int c = digitA ? compareDigitRuns(runA, runB) : runA.compare(runB);
    if (c != 0) {
      return c;
    }
  }
  if (i < a.size() || j < b.size()) {
    return i < a.size() ? 1 : -1;
  }
  // Equal up to leading zeros: fall back to bytes so that only equal names compare equal.
  return a.compare(b);
}

}  // namespace

const char* intfKindName(IntfKind kind) {
  switch (kind) {
    case IntfKind::none: return "none";
    case IntfKind::ethernet: return "ethernet";
    case IntfKind::portChannel: return "portChannel";
    case IntfKind::cpu: return "cpu";
    case IntfKind::greTunnel: return "greTunnel";
    case IntfKind::loopback: return "loopback";
    case IntfKind::vlan: return "vlan";
    case IntfKind::management: return "management";
    case IntfKind::other: return "other";
  }
  return "?";
}

std::optional<IntfId> IntfId::parse(std::string_view text) {
  const auto p = parseName(text);
  if (!p) {
    return std::nullopt;
  }
  const SortKey key{rankOf(p->kind) << 32 | p->n1, uint64_t{p->n2} << 32 | p->n3};
  return IntfId(std::string(text), p->kind, key);
}

IntfId::IntfId(std::string_view name) {
  if (auto parsed = parse(name)) {
    *this = std::move(*parsed);
  } else {
    name_ = name;
    kind_ = name.empty() ? IntfKind::none : IntfKind::other;
  }
}

IntfId IntfId::greTunnel(uint32_t number) { return IntfId("Gre" + std::to_string(number)); }

uint32_t IntfId::greTunnelNumber() const { return isGreTunnel() ? number() : 0; }

uint32_t IntfId::module() const { return isEthernet() && (key_.lo >> 32) != 0 ? number() : 0; }

uint32_t IntfId::number() const {
  if (hasSortKey()) {
    return static_cast<uint32_t>(key_.hi);
  }
  std::size_t pos = name_.find_first_of("0123456789");
  if (pos == std::string::npos) {
    return 0;
  }
  uint64_t value = 0;
  for (; pos < name_.size() && isDigit(name_[pos]); ++pos) {
    value = value * 10 + static_cast<uint64_t>(name_[pos] - '0');
    if (value > std::numeric_limits<uint32_t>::max()) {
      return 0;
    }
  }
  return static_cast<uint32_t>(value);
}

std::strong_ordering IntfId::compareNames(std::string_view a, std::string_view b) {
  return naturalCompare(a, b) <=> 0;
}

std::ostream& operator<<(std::ostream& os, const IntfId& id) { return os << id.name(); }

std::ostream& operator<<(std::ostream& os, IntfKind kind) { return os << intfKindName(kind); }

}  // namespace platform
