// Working memory: taken from the kernel and given back to it, each call naming its own source line.
#pragma once

#include "host/kernel.h"

#include <utility>

namespace faxx {

inline constexpr char kTrackingPath[] = "API/Filters/Fax/Common/Tif_faxx";

template <typename T>
T* Allocate(size_t count, int line = __builtin_LINE()) {
    return static_cast<T*>(K_LocalAlloc(count, sizeof(T), line, kTrackingPath));
}

// Frees a block, which is forgotten first: a release that throws is not tried again. Nothing happens when
// there is none.
template <typename T>
void Free(T*& block, int line = __builtin_LINE()) {
    if (T* const held = std::exchange(block, nullptr))
        K_LocalFree(held, line, kTrackingPath);
}

} // namespace faxx
