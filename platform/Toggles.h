// Feature toggles read from small JSON files, so that behaviour can be switched without a
// rebuild. A toggle file (e.g. "Mirroring.json" in the toggle directory) is an object from
// toggle name to either a bool or an object {"enabled": bool}; comments are allowed.
//
// Lookups never fail: a missing or malformed file, a missing toggle or a toggle of the wrong
// type gives the caller's default. Each such problem is warned about once (once per file, or
// once per toggle for a wrongly typed one), not at every lookup. Files are read on first use and
// cached until reset().
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace platform::toggles {

// The directory toggle files are read from. An empty string restores the default: the
// environment variable TOGGLE_DIR when set, else "/etc/mirroring/toggles". Also drops the cache.
void setDirectory(std::string dir);
std::string directory();

bool enabled(std::string_view toggle, std::string_view file, bool defaultValue);

// Forgets every file read and every warning given, so that files are read (and warned about)
// again on the next lookup.
void reset();

// Where warnings go; the default (also restored by an empty function) writes a line on
// standard error. Called without any lock held, so it may look up toggles itself.
void setWarningHandler(std::function<void(std::string_view message)> handler);

}  // namespace platform::toggles
