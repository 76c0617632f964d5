#include "platform/Trace.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

namespace platform::trace {

namespace {

constexpr std::uint32_t allLevels = (1u << (maxLevel + 1)) - 1;

struct Rule {
  std::string name;  // "*" matches every facility
  std::uint32_t mask;
};

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

bool parseLevel(std::string_view text, int& level) {
  text = trim(text);
  if (text.empty()) return false;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), level);
  return ec == std::errc() && end == text.data() + text.size() && level >= minLevel &&
         level <= maxLevel;
}

// Parses one item; on failure returns false with the reason in `why`.
bool parseItem(std::string_view item, Rule& rule, std::string& why) {
  auto slash = item.find('/');
  auto name = trim(item.substr(0, slash));
  if (name.empty()) {
    why = "missing facility name";
    return false;
  }
  rule.name = std::string(name);
  if (slash == std::string_view::npos) {
    rule.mask = allLevels;
    return true;
  }
  auto levels = item.substr(slash + 1);
  auto dash = levels.find('-');
  int low = 0;
  int high = 0;
  if (dash == std::string_view::npos) {
    if (!parseLevel(levels, low)) {
      why = "level must be a number from 0 to 9";
      return false;
    }
    high = low;
  } else {
    if (!parseLevel(levels.substr(0, dash), low) || !parseLevel(levels.substr(dash + 1), high)) {
      why = "levels must be numbers from 0 to 9";
      return false;
    }
    if (low > high) {
      why = "level range is reversed";
      return false;
    }
  }
  rule.mask = 0;
  for (int l = low; l <= high; ++l) rule.mask |= 1u << l;
  return true;
}

void defaultSink(std::string_view facility, int level, std::string_view text) {
  // One write per line so that lines from several threads do not interleave.
  std::string line;
  line.reserve(facility.size() + text.size() + 4);
  line.append(facility).append("/").append(std::to_string(level)).append(" ").append(text);
  line.push_back('\n');
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

class Registry {
 public:
  // Never destroyed: facilities in plug-ins or other statics may unregister during exit after
  // this file's statics would have gone.
  static Registry& instance() {
    static Registry* registry = new Registry;
    return *registry;
  }

  void add(Facility* facility) {
    std::lock_guard lock(mutex_);
    facilities_.push_back(facility);
    facility->mask_.store(maskFor(facility->name()), std::memory_order_relaxed);
  }

  void remove(Facility* facility) {
    std::lock_guard lock(mutex_);
    std::erase(facilities_, facility);
  }

  void apply(std::string config, std::vector<Rule> rules) {
    std::lock_guard lock(mutex_);
    spec_ = std::move(config);
    rules_ = std::move(rules);
    for (auto* facility : facilities_) {
      facility->mask_.store(maskFor(facility->name()), std::memory_order_relaxed);
    }
  }

  std::string config() {
    std::lock_guard lock(mutex_);
    return spec_;
  }

  std::vector<std::string> names() {
    std::lock_guard lock(mutex_);
    std::vector<std::string> result;
    for (auto* facility : facilities_) result.push_back(facility->name());
    std::sort(result.begin(), result.end());
    result.erase(std::unique(result.begin(), result.end()), result.end());
    return result;
  }

  void sinkIs(Sink sink) {
    auto shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
    std::lock_guard lock(mutex_);
    sink_ = std::move(shared);
  }

  // The sink is called outside the lock so that a sink may itself trace or reconfigure.
  void deliver(std::string_view facility, int level, std::string_view text) {
    std::shared_ptr<const Sink> sink;
    {
      std::lock_guard lock(mutex_);
      sink = sink_;
    }
    if (sink) {
      (*sink)(facility, level, text);
    } else {
      defaultSink(facility, level, text);
    }
  }

 private:
  std::uint32_t maskFor(const std::string& name) const {
    std::uint32_t mask = 0;
    for (const auto& rule : rules_) {
      if (rule.name == "*" || rule.name == name) mask |= rule.mask;
    }
    return mask;
  }

  std::mutex mutex_;
  std::vector<Facility*> facilities_;
  std::vector<Rule> rules_;
  std::string spec_;
  std::shared_ptr<const Sink> sink_;
};

Facility::Facility(std::string name) : name_(std::move(name)) {
  Registry::instance().add(this);
}

Facility::~Facility() { Registry::instance().remove(this); }

void Facility::write(int level, std::string_view text) const {
  Registry::instance().deliver(name_, level, text);
}

std::string configure(std::string_view config) {
  std::vector<Rule> rules;
  std::string errors;
  std::string_view rest = config;
  while (true) {
    auto comma = rest.find(',');
    auto item = trim(rest.substr(0, comma));
    // Blank items (a trailing comma, say) are skipped rather than reported.
    if (!item.empty()) {
      Rule rule;
      std::string why;
      if (parseItem(item, rule, why)) {
        rules.push_back(std::move(rule));
      } else {
        if (!errors.empty()) errors += "; ";
        errors += "malformed trace item '" + std::string(item) + "': " + why;
      }
    }
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  Registry::instance().apply(std::string(config), std::move(rules));
  return errors;
}

std::string configureFromEnvironment() {
  const char* value = std::getenv("TRACE");
  if (value == nullptr) return {};
  auto errors = configure(value);
  if (!errors.empty()) std::fprintf(stderr, "TRACE: %s\n", errors.c_str());
  return errors;
}

std::string configuration() { return Registry::instance().config(); }

void setSink(Sink sink) { Registry::instance().sinkIs(std::move(sink)); }

std::vector<std::string> facilityNames() { return Registry::instance().names(); }

}  // namespace platform::trace
