#include "platform/HardwareTypes.h"

// SliceStatus is all fields; this unit keeps the type's description in the platform library.
namespace Hardware {}  // namespace Hardware
