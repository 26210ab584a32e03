// What the loaders take from a stream's description.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"

namespace faxx {

inline constexpr unsigned kBatchLines = 100;
inline constexpr unsigned kAllLines = 2147483647;

inline unsigned ReversedBits(uint32_t loadInfoFlags) {
    return loadInfoFlags & LOADINFO_REVERSED_BITS ? FAX_REVERSE_BITS : 0;
}

// The orientation that the Flags of a _LOADINFO stand for.
int OrientationFromFlags(uint32_t flags);

// Gives the bitmap the resolution, where it is given, and the orientation of the description.
void ApplyDescription(const _LOADINFO* loadInfo, _BITMAPHANDLE* bitmap);

} // namespace faxx
