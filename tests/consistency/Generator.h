// Seeded generation of well-formed change streams over a small switch.
//
// The switch has a handful of Ethernet ports, two or three Port-Channels and a handful of
// session names, so that sessions keep wanting the same interfaces, share GRE tunnels and run
// out of hardware sessions. The stream changes sessions (whole and entry by entry), GRE keys,
// options, capabilities, interfaces, LAG membership, VRFs and tap aggregation, advances the
// clock, restarts the agent, plants what a crashed run could have left in the agent's own
// mounts (always followed by a restart), and now and then holds a deliberately bad line.
//
// The same seed and length give the same stream, byte for byte.
#pragma once

#include <cstdint>

#include "consistency/Stream.h"

namespace consistency {

Stream generateStream(uint64_t seed, int lines);

}  // namespace consistency
