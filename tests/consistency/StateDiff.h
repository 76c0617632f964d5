// Differences between two dumps, as the JSON paths that differ with both values, and the
// explicit list of differences a restart may legitimately make.
//
// An exception is tolerated only when it is in `restartExceptions()`, each entry named and
// saying where the behaviour is documented. Anything else that differs is a failure.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace consistency {

using nlohmann::json;

struct Difference {
  std::string path;
  std::optional<json> before;  // nothing: absent
  std::optional<json> after;
};

std::vector<Difference> diffStates(const json& before, const json& after);
std::string describe(const Difference& d);
std::string describe(const std::vector<Difference>& ds, std::size_t max = 8);

struct ExceptionFilter {
  const char* name;
  const char* why;
  // Whether the difference (a path with both values; for a write, the values are absent) is
  // the documented one. `before` and `after` are the whole dumps around it.
  bool (*tolerates)(const Difference& d, const json& before, const json& after);
};

const std::vector<ExceptionFilter>& restartExceptions();

// The value at a path of a dump (a mount path, then fields and keys), or null.
const json* valueAt(const json& dump, const std::string& path);

// The mount and the field below it of a path: a coarse name for where two states differ.
std::string area(const std::string& path, const json& dump);

// The differences no exception tolerates.
std::vector<Difference> untolerated(const std::vector<Difference>& ds, const json& before, const json& after);

}  // namespace consistency
