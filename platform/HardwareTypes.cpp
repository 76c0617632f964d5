// SliceStatus has no behaviour of its own; this unit checks that its header stands alone.
#include "platform/HardwareTypes.h"
