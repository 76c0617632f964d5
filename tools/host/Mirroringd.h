// The whole of mirroringd: options, logging and trace set-up, the agent host, the change
// stream, and what is written at the end. Kept out of main() so that it reads top to bottom
// as the program's run, in one place.
//
// Exit codes: 0 success; 1 a line was rejected under --strict; 2 a start-up error (bad
// options, an unusable plug-in, a bad state file, a file that cannot be opened) or an agent
// that could not be restarted.
#pragma once

namespace host {

int runMirroringd(int argc, const char* const* argv);

}  // namespace host
