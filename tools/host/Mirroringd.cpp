#include "host/Mirroringd.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "host/AgentHost.h"
#include "host/ChangeStream.h"
#include "host/Options.h"
#include "platform/Codec.h"
#include "platform/Syslog.h"
#include "platform/Toggles.h"
#include "platform/Trace.h"

namespace host {

namespace {

constexpr int exitRejected = 1;
constexpr int exitStartup = 2;

int startupError(const std::string& message) {
  std::cerr << "mirroringd: " << shortened(message) << std::endl;
  return exitStartup;
}

std::string plural(uint64_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

// Opens FILE for writing, or hands out standard output for "-"; null for an empty name.
bool openOutput(const std::string& name, std::unique_ptr<std::ofstream>& file, std::ostream*& out,
                std::string& error) {
  out = nullptr;
  if (name.empty()) return true;
  if (name == "-") {
    out = &std::cout;
    return true;
  }
  file = std::make_unique<std::ofstream>(name, std::ios::out | std::ios::trunc);
  if (!*file) {
    error = "cannot open " + name + " for writing: " + std::strerror(errno);
    return false;
  }
  out = file.get();
  return true;
}

bool readState(const std::string& name, platform::Value& state, std::string& error) {
  std::ostringstream text;
  if (name == "-") {
    text << std::cin.rdbuf();
  } else {
    std::ifstream in(name);
    if (!in) {
      error = name + ": cannot open: " + std::strerror(errno);
      return false;
    }
    text << in.rdbuf();
  }
  std::optional<platform::Value> parsed = platform::parseJson(text.str(), error);
  if (!parsed) {
    error = name + ": " + error;
    return false;
  }
  state = std::move(*parsed);
  return true;
}

void listMessages(std::ostream& out) {
  bool first = true;
  for (const platform::syslog::Message* m : platform::syslog::definitions()) {
    if (!first) out << '\n';
    first = false;
    out << m->key() << '\n'
        << "  Severity:           " << platform::syslog::severityName(m->severity()) << '\n'
        << "  Format:             " << m->format() << '\n'
        << "  Explanation:        " << m->explanation() << '\n'
        << "  Recommended action: " << m->recommendedAction() << '\n';
  }
}

std::string summary(const ChangeStream::Counts& counts, const platform::Database& db) {
  std::string line = "mirroringd: " + plural(counts.lines, "line", "lines") + " read, " +
                     plural(counts.changes, "change", "changes") + " applied, " +
                     plural(counts.commands, "command", "commands") + " run, " +
                     plural(counts.rejected, "line", "lines") + " rejected; writes:";
  for (const platform::Mount* m : db.mounts()) {
    if (m->writes()) line += " " + m->path() + " " + std::to_string(m->writes()) + ",";
  }
  return line + " total " + std::to_string(db.totalWrites());
}

}  // namespace

int runMirroringd(int argc, const char* const* argv) {
  Options opts;
  std::string error;
  if (!parseOptions(argc, argv, opts, error)) return startupError(error + " (see --help)");
  if (opts.help) {
    std::cout << usage();
    return 0;
  }
  if (opts.version) {
    std::cout << versionLine();
    return 0;
  }

  // Syslog: the readable form on standard error unless told to be quiet, plus what was asked.
  namespace syslog = platform::syslog;
  syslog::clearSinks();
  if (!opts.quietSyslog) syslog::addSink(std::make_shared<syslog::StreamSink>(stderr));
  if (!opts.syslogJson.empty()) {
    try {
      syslog::addSink(std::make_shared<syslog::JsonLinesSink>(opts.syslogJson));
    } catch (const std::exception& e) {
      return startupError(e.what());
    }
  }
  if (opts.syslogSystem) syslog::addSink(std::make_shared<syslog::SystemLogSink>("mirroringd"));

  if (opts.trace) {
    std::string bad = platform::trace::configure(*opts.trace);
    if (!bad.empty()) return startupError("--trace: " + bad);
  } else {
    platform::trace::configureFromEnvironment();
  }
  if (!opts.toggles.empty()) platform::toggles::setDirectory(opts.toggles);
  // Warnings about toggle files are diagnostics like the readable syslog lines: quiet together.
  if (opts.quietSyslog) platform::toggles::setWarningHandler([](std::string_view) {});

  // The files outlive the host, so that whatever the agent's tear-down writes still has a place.
  std::unique_ptr<std::ofstream> dumpFile, changesOutFile;
  std::ifstream changesFile;
  AgentHost host(opts.agent, opts.clockStart);
  if (!host.openPlugin(opts.plugin, error)) return startupError(error);
  if (opts.listMessages) {
    listMessages(std::cout);
    return 0;
  }

  // Every file is opened before the agent starts, so a typo costs nothing.
  std::ostream* dumpOut = nullptr;
  std::ostream* changesOut = nullptr;
  if (!openOutput(opts.dump, dumpFile, dumpOut, error)) return startupError(error);
  if (!openOutput(opts.changesOut, changesOutFile, changesOut, error)) return startupError(error);
  std::istream* changesIn = nullptr;
  if (opts.changes == "-") {
    changesIn = &std::cin;
  } else if (!opts.changes.empty()) {
    changesFile.open(opts.changes);
    if (!changesFile) return startupError("cannot open " + opts.changes + ": " + std::strerror(errno));
    changesIn = &changesFile;
  }
  std::optional<platform::Value> state;
  if (!opts.stateFile.empty()) {
    state.emplace();
    if (!readState(opts.stateFile, *state, error)) return startupError(error);
  }

  if (changesOut) {
    host.writeListenerIs([changesOut](const platform::Mount&, const platform::Change& change) {
      *changesOut << platform::toJson(platform::changeToValue(change)) << '\n';
    });
  }
  std::string stateName = opts.stateFile == "-" ? "<stdin>" : opts.stateFile;
  if (!host.start(state ? &*state : nullptr, stateName, error)) return startupError(error);
  for (const auto& m : opts.dumpMounts) {
    if (!host.database().find(m)) return startupError("--dump-mount: unknown mount \"" + m + "\"");
  }

  ChangeStream::Outputs outputs;
  outputs.dump = dumpOut;
  outputs.view = &std::cout;
  outputs.errors = &std::cerr;
  outputs.changesOut = changesOut;
  ChangeStream stream(host, outputs, opts.dumpMounts);
  ChangeStream::Outcome outcome = ChangeStream::Outcome::applied;
  if (changesIn) outcome = stream.runStream(*changesIn, opts.changes == "-" ? "<stdin>" : opts.changes, opts.strict);
  if (outcome == ChangeStream::Outcome::failed) return exitStartup;

  if (dumpOut) stream.dump();
  if (opts.view) stream.view();
  // The agent's tear-down, while its logs and its change stream still go somewhere.
  host.stop();
  if (changesOut) changesOut->flush();
  if (!opts.quietSyslog) std::cerr << summary(stream.counts(), host.database()) << std::endl;
  std::cout.flush();
  syslog::clearSinks();
  return outcome == ChangeStream::Outcome::rejected ? exitRejected : 0;
}

}  // namespace host
