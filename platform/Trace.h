// Developer tracing: named facilities with ten levels (0..9) each, switched on and off at run
// time by a small text configuration such as "Mirroring/0-4,TapAgg/8". A facility is usually a
// namespace-scope static in the code that traces; checking whether a level is on is a single
// relaxed load of the facility's bit mask, so disabled trace statements cost almost nothing and
// never evaluate their arguments.
//
// Facilities register themselves in one process-wide registry when constructed (also from a
// plug-in loaded later) and pick up the configuration in force at that moment; they unregister
// when destroyed (plug-ins may be unloaded).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace platform::trace {

class Registry;

inline constexpr int minLevel = 0;
inline constexpr int maxLevel = 9;

class Facility {
 public:
  explicit Facility(std::string name);
  ~Facility();
  Facility(const Facility&) = delete;
  Facility& operator=(const Facility&) = delete;

  bool enabled(int level) const {
    return static_cast<unsigned>(level) <= static_cast<unsigned>(maxLevel) &&
           (mask_.load(std::memory_order_relaxed) & (1u << level)) != 0;
  }

  // Streams the arguments with operator<< only when the level is on.
  template <class... A>
  void operator()(int level, const A&... args) const {
    if (!enabled(level)) return;
    std::ostringstream out;
    out << std::boolalpha;
    (out << ... << args);
    write(level, out.str());
  }

  // Delivers the text to the sink whatever the level's state; callers check enabled() first.
  void write(int level, std::string_view text) const;

  const std::string& name() const { return name_; }

 private:
  friend class Registry;
  std::string name_;
  // Bit n set means level n is on; written by the registry under its lock.
  std::atomic<std::uint32_t> mask_{0};
};

// Replaces the whole configuration. Items are separated by commas; each is `Name` (all levels),
// `Name/L` or `Name/L1-L2`, with `*` as the name meaning every facility. Levels of several items
// naming the same facility add up. Blanks around items are ignored; an empty config turns every
// facility off. Well-formed items are applied even when others are malformed; the result names
// every malformed item and is empty when all were fine.
std::string configure(std::string_view config);

// Applies the environment variable TRACE when it is set (an unset variable leaves the
// configuration as it is). Malformed items are also reported on standard error, since nobody
// else would see them; the result is the same as configure's.
std::string configureFromEnvironment();

// The configuration last applied, as given (for diagnostics).
std::string configuration();

using Sink = std::function<void(std::string_view facility, int level, std::string_view text)>;

// Where trace lines go. The default (also restored by an empty function) writes
// "<facility>/<level> <text>" as one line on standard error. The sink may be called from
// several threads at once.
void setSink(Sink sink);

// Names of the facilities currently registered, sorted, without duplicates.
std::vector<std::string> facilityNames();

}  // namespace platform::trace
