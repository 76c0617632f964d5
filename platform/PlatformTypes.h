// Registration of the platform's entity types by name.
//
// Mount roots and entries of generic directories are created from their type names (state
// files, changes, plug-in mounts), so their types must be in the type registry before any of
// that happens. The host calls `registerPlatformTypes` once at start-up; later calls do nothing.
#pragma once

namespace platform {

void registerPlatformTypes();

}  // namespace platform
