#include "host/Options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace host {

namespace {

// Options that take a value; the rest are flags.
bool takesValue(std::string_view name) {
  static constexpr std::string_view withValue[] = {
      "--plugin",   "--agent",       "--changes", "--dump",   "--dump-mount",
      "--changes-out", "--syslog-json", "--trace", "--toggles", "--clock-start",
  };
  for (auto n : withValue) {
    if (n == name) return true;
  }
  return false;
}

bool parseSeconds(const std::string& text, double& out) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  double v = std::strtod(begin, &end);
  if (text.empty() || end != begin + text.size() || errno != 0 || !std::isfinite(v) || v < 0) return false;
  out = v;
  return true;
}

}  // namespace

bool parseOptions(int argc, const char* const* argv, Options& out, std::string& error) {
  bool pluginGiven = false;
  bool positionalOnly = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (positionalOnly || arg == "-" || !arg.starts_with("-")) {
      if (!out.stateFile.empty()) {
        error = "only one state file may be given (got \"" + out.stateFile + "\" and \"" + arg + "\")";
        return false;
      }
      out.stateFile = arg;
      continue;
    }
    if (arg == "--") {
      positionalOnly = true;
      continue;
    }
    std::string name = arg;
    std::optional<std::string> value;
    if (auto eq = arg.find('='); eq != std::string::npos && arg.starts_with("--")) {
      name = arg.substr(0, eq);
      value = arg.substr(eq + 1);
    }
    if (takesValue(name)) {
      if (!value) {
        if (i + 1 >= argc) {
          error = "option " + name + " needs a value";
          return false;
        }
        value = argv[++i];
      }
    } else if (value) {
      error = "option " + name + " takes no value";
      return false;
    }

    if (name == "--plugin") {
      out.plugin = *value;
      pluginGiven = true;
    } else if (name == "--agent") {
      out.agent = *value;
    } else if (name == "--changes") {
      out.changes = *value;
    } else if (name == "--dump") {
      out.dump = *value;
    } else if (name == "--dump-mount") {
      out.dumpMounts.push_back(*value);
    } else if (name == "--changes-out") {
      out.changesOut = *value;
    } else if (name == "--syslog-json") {
      out.syslogJson = *value;
    } else if (name == "--trace") {
      out.trace = *value;
    } else if (name == "--toggles") {
      out.toggles = *value;
    } else if (name == "--clock-start") {
      if (!parseSeconds(*value, out.clockStart)) {
        error = "--clock-start needs a number of seconds not below 0, got \"" + *value + "\"";
        return false;
      }
    } else if (name == "--syslog-system") {
      out.syslogSystem = true;
    } else if (name == "--quiet-syslog") {
      out.quietSyslog = true;
    } else if (name == "--strict") {
      out.strict = true;
    } else if (name == "--view") {
      out.view = true;
    } else if (name == "--list-messages") {
      out.listMessages = true;
    } else if (name == "--help" || name == "-h") {
      out.help = true;
    } else if (name == "--version") {
      out.version = true;
    } else {
      error = "unknown option " + name;
      return false;
    }
  }
  if (out.agent.empty()) {
    error = "--agent needs a name";
    return false;
  }
  if (out.changes == "-" && out.stateFile == "-") {
    error = "the state file and the change stream cannot both be standard input";
    return false;
  }
  if (!pluginGiven) {
    const char* env = std::getenv("MIRRORINGD_PLUGIN");
    out.plugin = env && *env ? env : defaultPluginPath();
  }
  return true;
}

std::string defaultPluginPath() {
  std::error_code ec;
  std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  std::filesystem::path dir = ec ? std::filesystem::current_path(ec) : exe.parent_path();
  return (dir / ".." / "lib" / "libMirroring.so").lexically_normal().string();
}

std::string versionLine() { return std::string("mirroringd ") + MIRRORING_VERSION + "\n"; }

std::string usage() {
  return R"(usage: mirroringd [options] [STATE_FILE]

Runs an agent plug-in over an embedded state database. STATE_FILE is a JSON object from
mount path to content, loaded after the agent declared its mounts.

  --plugin PATH        agent plug-in (default: $MIRRORINGD_PLUGIN, else
                       ../lib/libMirroring.so beside the executable)
  --agent NAME         agent name handed to the factories (default: Mirroring)
  --changes FILE|-     change stream to apply, one JSON object a line
  --dump FILE|-        write the state at the end (and at each "dump" command)
  --dump-mount PATH    restrict dumps to this mount (repeatable)
  --changes-out FILE|- write every change made to the agent's writable mounts
  --syslog-json FILE   append syslog messages as JSON lines
  --syslog-system      also send syslog messages to the system log
  --quiet-syslog       no readable syslog lines and no summary on standard error
  --trace LIST         trace facilities and levels, e.g. "Mirroring/0-4" (default: $TRACE)
  --toggles DIR        feature-toggle directory
  --clock-start SECS   start of the virtual clock (default: 0)
  --strict             stop with exit code 1 at the first rejected line
  --view               print the readable view at the end
  --list-messages      print every syslog message definition and exit
  --help               print this text and exit
  --version            print the version and exit

Exit codes: 0 success, 1 a line was rejected under --strict, 2 a start-up error.
The formats of every input and output are described in docs/formats.md.
)";
}

}  // namespace host
