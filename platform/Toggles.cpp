#include "platform/Toggles.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>
#include <vector>

namespace platform::toggles {

namespace {

constexpr const char* defaultDirectory = "/etc/mirroring/toggles";

using WarningHandler = std::function<void(std::string_view)>;

struct File {
  // Toggle name to its value; nullopt when the entry has the wrong type.
  std::map<std::string, std::optional<bool>, std::less<>> toggles;
  std::set<std::string, std::less<>> warned;  // wrongly typed toggles already reported
};

struct State {
  std::mutex mutex;
  std::string directory;  // empty: the default
  std::map<std::string, File, std::less<>> files;  // by full path
  std::shared_ptr<const WarningHandler> handler;
};

// Never destroyed, so that lookups from other statics during exit stay safe.
State& state() {
  static State* s = new State;
  return *s;
}

std::string currentDirectory(const State& s) {
  if (!s.directory.empty()) return s.directory;
  const char* env = std::getenv("TOGGLE_DIR");
  return env != nullptr && *env != '\0' ? env : defaultDirectory;
}

std::optional<bool> toggleValue(const nlohmann::json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_object()) {
    auto it = value.find("enabled");
    if (it != value.end() && it->is_boolean()) return it->get<bool>();
  }
  return std::nullopt;
}

// Reads one file; a problem leaves the file empty and says why in `warning`.
File load(const std::string& path, std::string& warning) {
  File file;
  std::ifstream in(path);
  if (!in) {
    int error = errno;
    if (error == ENOENT) {
      warning = "toggle file " + path + " not found; using defaults";
    } else {
      warning = "toggle file " + path + " could not be read (" + std::strerror(error) +
                "); using defaults";
    }
    return file;
  }
  std::stringstream buffer;
  buffer << in.rdbuf();
  if (in.bad()) {
    warning = "toggle file " + path + " could not be read; using defaults";
    return file;
  }
  nlohmann::json document;
  try {
    document = nlohmann::json::parse(buffer.str(), nullptr, true, true);
  } catch (const nlohmann::json::exception& e) {
    warning = "toggle file " + path + " is malformed (" + e.what() + "); using defaults";
    return file;
  }
  if (!document.is_object()) {
    warning = "toggle file " + path + " is malformed (not a JSON object); using defaults";
    return file;
  }
  for (const auto& [name, value] : document.items()) file.toggles[name] = toggleValue(value);
  return file;
}

void warn(const std::shared_ptr<const WarningHandler>& handler, const std::string& message) {
  if (handler) {
    (*handler)(message);
  } else {
    std::fprintf(stderr, "%s\n", message.c_str());
  }
}

}  // namespace

void setDirectory(std::string dir) {
  auto& s = state();
  std::lock_guard lock(s.mutex);
  s.directory = std::move(dir);
  s.files.clear();
}

std::string directory() {
  auto& s = state();
  std::lock_guard lock(s.mutex);
  return currentDirectory(s);
}

bool enabled(std::string_view toggle, std::string_view file, bool defaultValue) {
  auto& s = state();
  std::string warning;
  std::shared_ptr<const WarningHandler> handler;
  bool result = defaultValue;
  {
    std::lock_guard lock(s.mutex);
    std::string path = currentDirectory(s) + "/" + std::string(file);
    auto it = s.files.find(path);
    if (it == s.files.end()) it = s.files.emplace(path, load(path, warning)).first;
    auto& entry = it->second;
    if (auto t = entry.toggles.find(toggle); t != entry.toggles.end()) {
      if (t->second) {
        result = *t->second;
      } else if (entry.warned.insert(std::string(toggle)).second) {
        warning = "toggle " + std::string(toggle) + " in " + path +
                  " is neither a bool nor {\"enabled\": bool}; using default " +
                  (defaultValue ? "true" : "false");
      }
    }
    if (!warning.empty()) handler = s.handler;
  }
  if (!warning.empty()) warn(handler, warning);
  return result;
}

void reset() {
  auto& s = state();
  std::lock_guard lock(s.mutex);
  s.files.clear();
}

void setWarningHandler(std::function<void(std::string_view message)> handler) {
  auto shared = handler ? std::make_shared<const WarningHandler>(std::move(handler)) : nullptr;
  auto& s = state();
  std::lock_guard lock(s.mutex);
  s.handler = std::move(shared);
}

}  // namespace platform::toggles
