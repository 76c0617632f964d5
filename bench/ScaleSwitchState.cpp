// Writes the switch-scale state (bench/ScaleSwitch.h) as a state file for mirroringd and,
// optionally, a change stream that plays each benchmark event there and back, then restarts
// the agent over the unchanged inputs.
//
//   scaleSwitchState STATE_FILE [CHANGES_FILE]
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "bench/ScaleSwitch.h"
#include "platform/Codec.h"

int main(int argc, char** argv) {
  CLI::App app("Writes the switch-scale state as a state file for mirroringd and, optionally, a change stream that "
               "plays each benchmark event there and back, then restarts the agent.",
               "scaleSwitchState");
  std::string stateFile, changesFile;
  app.add_option("STATE_FILE", stateFile, "the state file to write")->required();
  app.add_option("CHANGES_FILE", changesFile, "the change stream to write");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help answers with the usage and exit code 0; anything else is a usage error.
    int code = app.exit(e);
    return code == 0 ? 0 : 2;
  }

  const bench::ScaleSwitch sw = bench::makeScaleSwitch();
  std::ofstream state(stateFile);
  state << platform::toJson(sw.state, 2) << '\n';
  if (!state.flush()) {
    std::cerr << "scaleSwitchState: cannot write " << stateFile << '\n';
    return 2;
  }
  if (!changesFile.empty()) {
    std::ofstream changes(changesFile);
    for (const auto& event : sw.events) {
      changes << "# " << event.name << ": " << event.what << '\n';
      for (const auto& line : event.there) changes << line << '\n';
      for (const auto& line : event.back) changes << line << '\n';
    }
    changes << "# the agent restarts over unchanged inputs\n{\"op\":\"restart\"}\n";
    if (!changes.flush()) {
      std::cerr << "scaleSwitchState: cannot write " << changesFile << '\n';
      return 2;
    }
  }
  std::cerr << "scaleSwitchState: " << sw.ports << " ports, " << sw.lags << " Port-Channels, " << sw.sessions
            << " sessions with " << sw.sources << " sources, " << sw.tapPorts << " tap and " << sw.toolPorts
            << " tool ports in " << sw.groups << " groups\n";
  return 0;
}
