// Change lists (Tif_faxx.h).
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/base/limits.h"

#include <emmintrin.h>

#include <bit>

namespace faxx {

inline void CloseList(uint32_t* list, uint32_t entries) {
    for (uint32_t i = 0; i < kClosingZeros; ++i)
        list[entries + i] = 0;
}

// How many changing elements a closed change list has.
inline uint32_t ListLength(const uint32_t* list) {
    const __m128i zero = _mm_setzero_si128();
    for (uint32_t i = 0;; i += 4) {
        const __m128i group = _mm_loadu_si128(reinterpret_cast<const __m128i*>(list + i));
        const int zeros = _mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(group, zero)));
        if (zeros != 0)
            return i + static_cast<uint32_t>(std::countr_zero(static_cast<unsigned>(zeros)));
    }
}

} // namespace faxx
