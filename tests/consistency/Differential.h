// The differential check: one stream through two builds of the agent, the plug-in under test
// and a reference (the agent built to answer its queries by walking all sessions instead of
// asking its indexes). At start-up, after every line and at tear-down both must make the same
// writes (as mirroringd's --changes-out shows them) and raise the same syslog messages, and
// at the end every mount must hold the same.
//
// Each plug-in runs in a forked child of its own and neither is ever loaded in the checker's
// own process. Two builds of one agent export the same symbols and the platform opens plug-ins
// RTLD_GLOBAL, so in one process the second library's calls into its own exported functions
// would bind to the first library's definitions: the reference would silently run the code
// under test. The platform's entity types, syslog definitions and trace facilities, registered
// by name, would also be registered twice.
#pragma once

#include <optional>

#include "consistency/Isolated.h"

namespace consistency {

// The invariant name of a difference, and the start of its signatures.
inline constexpr const char* sameAsReference = "sameAsReference";

// What one plug-in did with a stream: {"steps": [{"writes": [...], "syslog": [...]}, ...],
// "dump": {...}}, the steps being start-up, each line and tear-down; "error" when it could
// not start or restart.
json traceStream(const Stream& s, const std::string& plugin, const Progress& progress);

// The first difference between the runs of `o.plugin` and `o.reference`, each in a child.
std::optional<Failure> compareWithReference(const Stream& s, const CheckOptions& o, const IsolationOptions& io,
                                            Counters& counters);

// Opens the plug-in in a short-lived child: the loader's message when it cannot be used.
std::optional<std::string> probePlugin(const std::string& path, const IsolationOptions& io);

}  // namespace consistency
