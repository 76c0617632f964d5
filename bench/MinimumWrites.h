// The least number of writes that turns one content of a mount into another, counted in the
// units the state database counts writes in: one per attribute whose value differs, one per
// collection entry or set member that appears, changes value or disappears. An entity entry
// that appears or disappears counts one, whatever it holds: a writer can build it whole before
// placing it (`Coll::insert`), as the codec does. Of an entity entry present before and after,
// each field that differs counts, recursively.
//
// Writes made against this minimum are the write amplification of whatever made the change.
#pragma once

#include <cstdint>

#include "platform/Database.h"
#include "platform/Value.h"

namespace bench {

// Minimum writes from `before` (the content of `mount` as `platform::dumpState` gave it, or
// null for a mount holding nothing yet: the root type's defaults) to what `mount` holds now.
uint64_t minimumWrites(const platform::Value* before, const platform::Mount& mount);

}  // namespace bench
