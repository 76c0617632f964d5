// A switch-scale state for the mirroring agent, and the single events the agent benchmarks
// play over it.
//
// The switch has 16 linecards of 32 ports (Ethernet1/1 ... Ethernet16/32):
//   linecards 1-8    256 tap ports, four to a tap-aggregation group
//   linecards 9-12   128 tool ports, two to a group (64 groups, "grp01" ... "grp64")
//   linecards 13-16  the members of 64 Port-Channels, two each: Port-Channel1-32 carry
//                    ordinary traffic and are mirrored; Port-Channel33-64 lead to analysers and
//                    are mirror destinations
// plus eight VLAN interfaces (Vlan10-17), two VRFs ("default", "mgmt") and one chip slice per
// linecard. Tap aggregation runs in exclusive mode with a slice profile on linecards 1-12, so
// that mixed mode keeps the tap and tool linecards and frees the others; Port-Channel1-16 and
// 33-64 are exempt from errdisable, Port-Channel17-32 (and their members) and the VLAN
// interfaces are not.
//
// The hardware allows 255 monitor sessions, several sessions per source and per destination,
// and several destinations per session; all 255 are configured ("mon001" ... "mon255"), with 16
// sources each taken in turn from the tap ports and Port-Channel1-32 (so each of those is a
// source of about 14 sessions). Both numbers can be made smaller or larger, for measuring how
// costs grow; the rest of the switch stays as it is. Every fourth session mirrors into a GRE tunnel: 64 sessions on
// 16 tunnel keys, four sessions to a key; the last two keys name a VRF that does not exist, so
// their seven sessions (the eighth would be mon256) have no active destination. The other sessions send to one of the
// destination Port-Channels (every sixteenth to two of them), a few to the CPU, and the last one
// to a tool port, which takes that port out of tap aggregation. Every tenth session also lists
// a member of a mirrored Port-Channel as a source (inactive: "Member of a source LAG"), every
// eighth truncates. A few ports are down.
#pragma once

#include <string>
#include <vector>

#include "platform/Value.h"

namespace bench {

// A change that happens and the change that undoes it, as lines of a change stream.
struct ScaleEvent {
  std::string name;                 // the benchmark's name for it
  std::string what;                 // one line for people
  std::vector<std::string> there;   // the change
  std::vector<std::string> back;    // and back to where it started
};

struct ScaleSwitch {
  platform::Value state;            // mount path -> content, as mirroringd reads a state file
  std::vector<ScaleEvent> events;

  // Sizes, for checks and reports.
  int ports = 0;
  int lags = 0;
  int sessions = 0;
  int sources = 0;
  int tapPorts = 0;
  int toolPorts = 0;
  int groups = 0;
};

constexpr int kMaxScaleSessions = 255;  // what the hardware allows
constexpr int kMaxScaleSources = 288;   // the tap ports and the mirrored Port-Channels

// `sessions` (1 to 255) sessions are configured with `sourcesPerSession` (1 to 288) sources
// each; the hardware allows 255 sessions whatever the number. The events are chosen for the
// full size.
ScaleSwitch makeScaleSwitch(int sessions = kMaxScaleSessions, int sourcesPerSession = 16);

}  // namespace bench
