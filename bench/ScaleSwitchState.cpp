// Writes the switch-scale state (bench/ScaleSwitch.h) as a state file for mirroringd and,
// optionally, a change stream that plays each benchmark event there and back, then restarts
// the agent over the unchanged inputs; and on request the long mixed stream of
// bench/ScaleStream.h with its floor for the test plug-in.
//
//   scaleSwitchState STATE_FILE [CHANGES_FILE] [--sessions N] [--sources S]
//                    [--stream FILE [--stream-lines N]] [--floor-state FILE] [--floor-stream FILE]
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "bench/ScaleStream.h"
#include "bench/ScaleSwitch.h"
#include "platform/Codec.h"

namespace {

bool writeLines(const std::string& file, const std::vector<std::string>& lines) {
  std::ofstream out(file);
  for (const auto& line : lines) out << line << '\n';
  if (out.flush()) return true;
  std::cerr << "scaleSwitchState: cannot write " << file << '\n';
  return false;
}

bool writeJson(const std::string& file, const platform::Value& value) {
  std::ofstream out(file);
  out << platform::toJson(value, 2) << '\n';
  if (out.flush()) return true;
  std::cerr << "scaleSwitchState: cannot write " << file << '\n';
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Writes the switch-scale state as a state file for mirroringd and, optionally, a change stream that "
               "plays each benchmark event there and back, then restarts the agent; and on request a long mixed "
               "change stream for measuring throughput, with its floor for the test plug-in (agent \"Passive\").",
               "scaleSwitchState");
  std::string stateFile, changesFile, streamFile, floorStateFile, floorStreamFile;
  int sessions = bench::kMaxScaleSessions, sources = 16, streamLines = 200000;
  app.add_option("STATE_FILE", stateFile, "the state file to write")->required();
  app.add_option("CHANGES_FILE", changesFile, "the change stream of the benchmark events to write");
  app.add_option("--sessions", sessions, "sessions configured")
      ->check(CLI::Range(1, bench::kMaxScaleSessions))
      ->capture_default_str();
  app.add_option("--sources", sources, "sources per session")
      ->check(CLI::Range(1, bench::kMaxScaleSources))
      ->capture_default_str();
  app.add_option("--stream", streamFile, "the mixed change stream to write, for the Mirroring plug-in");
  app.add_option("--stream-lines", streamLines, "lines of the mixed stream and its floor (even: pairs)")
      ->check(CLI::Range(2, 100000000))
      ->capture_default_str();
  app.add_option("--floor-state", floorStateFile, "the state file of the stream's floor, for the test plug-in");
  app.add_option("--floor-stream", floorStreamFile, "the stream's floor, for the test plug-in");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help answers with the usage and exit code 0; anything else is a usage error.
    int code = app.exit(e);
    return code == 0 ? 0 : 2;
  }

  const bench::ScaleSwitch sw = bench::makeScaleSwitch(sessions, sources);
  if (!writeJson(stateFile, sw.state)) return 2;
  if (!changesFile.empty()) {
    std::vector<std::string> lines;
    for (const auto& event : sw.events) {
      lines.push_back("# " + event.name + ": " + event.what);
      lines.insert(lines.end(), event.there.begin(), event.there.end());
      lines.insert(lines.end(), event.back.begin(), event.back.end());
    }
    lines.push_back("# the agent restarts over unchanged inputs");
    lines.push_back("{\"op\":\"restart\"}");
    if (!writeLines(changesFile, lines)) return 2;
  }
  if (!streamFile.empty() || !floorStateFile.empty() || !floorStreamFile.empty()) {
    const bench::ScaleStream stream = bench::makeScaleStream(sw, streamLines / 2);
    if (!streamFile.empty() && !writeLines(streamFile, stream.lines)) return 2;
    if (!floorStateFile.empty() && !writeJson(floorStateFile, stream.floorState)) return 2;
    if (!floorStreamFile.empty() && !writeLines(floorStreamFile, stream.floorLines)) return 2;
  }
  std::cerr << "scaleSwitchState: " << sw.ports << " ports, " << sw.lags << " Port-Channels, " << sw.sessions
            << " sessions with " << sw.sources << " sources, " << sw.tapPorts << " tap and " << sw.toolPorts
            << " tool ports in " << sw.groups << " groups\n";
  return 0;
}
