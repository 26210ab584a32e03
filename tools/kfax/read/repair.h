// Damaged lines made good, as fax receivers do.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/read/tiff_input.h"

#include <vector>

namespace kfax {

// Replaces each line of a loaded bitmap that was decoded wrong by the line above it, the first one by a white
// line. Lines that are missing stay as they are. Returns how many lines were replaced, in tiles those of each
// tile.
unsigned RepairLines(_BITMAPHANDLE& bitmap, const std::vector<BlockFaults>& faults);

} // namespace kfax
