// The search for b1 (T.6 § 2.2.1) where its outcome is as good as random.
#pragma once

#include <cstdint>

namespace faxx {

// From an entry of a closed change list on, the first of the same colour that is below limit, which is above
// 0: for the limit a0, the first right of it. Nearly always that is the entry itself or the next: which of
// the two is chosen without a branch, which a compiler left to itself would make of it.
inline const uint32_t* SeekB1(const uint32_t* b1, uint32_t limit) {
    asm("cmpl %[limit], %[entry]\n\tcmovae %[beyond], %[b1]"
        : [b1] "+r"(b1)
        : [entry] "m"(*b1), [limit] "r"(limit), [beyond] "r"(b1 + 2)
        : "cc");
    while (*b1 >= limit)
        b1 += 2;
    return b1;
}

} // namespace faxx
