// A long mixed change stream over the switch-scale state (bench/ScaleSwitch.h), for the
// throughput of mirroringd, and its floor: the same changes for the test plug-in.
//
// The stream cycles through six kinds of change, each a pair of lines that goes there and
// back, so that the state returns after every pair and the stream can be as long as wanted:
//   tapActive    a tap port (a mirroring source) leaves the hardware (hwActive false), returns
//   tapLink      a tap port's link goes down (up, for a port that was not up), then back
//   lagActive    a mirrored Port-Channel leaves the hardware, returns
//   lagLink      a mirrored Port-Channel's link goes down, then up
//   truncation   a session truncates at 192 bytes, then back to its own truncation settings
//   rxSampling   a session with a GRE destination (receive-only sources, so sampling applies)
//                samples one packet in 1000, then every packet again (0)
// Each kind walks its subjects with a stride, so consecutive pairs touch different ports and
// sessions and every subject comes round.
//
// The floor is for the test plug-in run as the agent "Passive" (tests/host/TestAgent.cpp),
// which mounts its paths and builds nothing: what is left is the host reading, parsing,
// validating and applying each line. Its state holds the same interface status records in a
// generic directory entry of the same type (test/dir/entry/intf) and one small entry per
// session (Test::Note: a text and a number); each line of the floor stream is the line of
// the stream on the same record, with values of the same kinds (an interface record merged
// with the same value; a session's truncation merged as its text and number, its sample rate
// set as its number).
#pragma once

#include <string>
#include <vector>

#include "bench/ScaleSwitch.h"
#include "platform/Value.h"

namespace bench {

struct ScaleStream {
  std::vector<std::string> lines;       // for the Mirroring plug-in over ScaleSwitch::state
  platform::Value floorState;           // for the test plug-in's "Passive" agent
  std::vector<std::string> floorLines;  // the same changes on the test plug-in's mounts
};

// `pairs` pairs of lines (twice as many lines) over `sw`.
ScaleStream makeScaleStream(const ScaleSwitch& sw, int pairs);

}  // namespace bench
