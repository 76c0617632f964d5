// mirroringd: runs an agent plug-in over an embedded state database fed from JSON.
// See tools/host/Mirroringd.h for the run and docs/formats.md for the formats.
#include "host/Mirroringd.h"

int main(int argc, char** argv) { return host::runMirroringd(argc, argv); }
