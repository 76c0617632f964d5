// Fatal integrity checks.
//
// An integrity violation is a programming error, never a runtime condition: the process
// stops with the failed expression as its message, so that the text names the broken
// invariant ("initialized()", "!switchIntfConfigSm()"). Runtime conditions are reported
// through statuses, traces or syslog instead.
#pragma once

namespace platform {

[[noreturn]] void assertionFailed(const char* expression, const char* file, int line);

}  // namespace platform

#define PLATFORM_ASSERT(expr) \
  ((expr) ? static_cast<void>(0) : ::platform::assertionFailed(#expr, __FILE__, __LINE__))
