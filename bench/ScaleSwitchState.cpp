// Writes the switch-scale state (bench/ScaleSwitch.h) as a state file for mirroringd and,
// optionally, a change stream that plays each benchmark event there and back, then restarts
// the agent over the unchanged inputs.
//
//   scaleSwitchState STATE_FILE [CHANGES_FILE]
#include <fstream>
#include <iostream>

#include "bench/ScaleSwitch.h"
#include "platform/Codec.h"

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::cerr << "usage: scaleSwitchState STATE_FILE [CHANGES_FILE]\n";
    return 2;
  }
  const bench::ScaleSwitch sw = bench::makeScaleSwitch();
  std::ofstream state(argv[1]);
  state << platform::toJson(sw.state, 2) << '\n';
  if (!state.flush()) {
    std::cerr << "scaleSwitchState: cannot write " << argv[1] << '\n';
    return 2;
  }
  if (argc == 3) {
    std::ofstream changes(argv[2]);
    for (const auto& event : sw.events) {
      changes << "# " << event.name << ": " << event.what << '\n';
      for (const auto& line : event.there) changes << line << '\n';
      for (const auto& line : event.back) changes << line << '\n';
    }
    changes << "# the agent restarts over unchanged inputs\n{\"op\":\"restart\"}\n";
    if (!changes.flush()) {
      std::cerr << "scaleSwitchState: cannot write " << argv[2] << '\n';
      return 2;
    }
  }
  std::cerr << "scaleSwitchState: " << sw.ports << " ports, " << sw.lags << " Port-Channels, " << sw.sessions
            << " sessions with " << sw.sources << " sources, " << sw.tapPorts << " tap and " << sw.toolPorts
            << " tool ports in " << sw.groups << " groups\n";
  return 0;
}
