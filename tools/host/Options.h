// The command line of mirroringd.
//
// Parsing is kept apart from running so that the rules (defaults, environment variables,
// repeatable options, "--name=value" and "--name value" forms) can be read and tested in one
// place. Parsing never exits: it answers an error text that the caller prints with the usage.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host {

struct Options {
  std::string stateFile;              // empty: start from empty mounts
  std::string plugin;                 // empty: resolved by defaultPluginPath
  std::string agent = "Mirroring";
  std::string changes;                // empty: none; "-": standard input
  std::string dump;                   // empty: no dump at the end; "-": standard output
  std::vector<std::string> dumpMounts;
  std::string changesOut;             // empty: none; "-": standard output
  std::string syslogJson;
  bool syslogSystem = false;
  bool quietSyslog = false;
  std::optional<std::string> trace;   // unset: the environment variable TRACE
  std::string toggles;
  double clockStart = 0;
  bool strict = false;
  bool view = false;
  bool listMessages = false;
  bool help = false;
  bool version = false;
};

// Reads argv[1..argc); false with `error` set for anything it cannot accept. The plug-in
// path falls back to the environment variable MIRRORINGD_PLUGIN when --plugin is absent.
bool parseOptions(int argc, const char* const* argv, Options& out, std::string& error);

// The text printed by --help.
std::string usage();
// The line printed by --version: the program and the project's version.
std::string versionLine();

// Where the agent plug-in is looked for by default: libMirroring.so in ../lib relative to the
// directory of the running executable.
std::string defaultPluginPath();

}  // namespace host
