// Two runs from one look-up, and from one 64-bit window where they are longer.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/decode_tables.h"
#include "API/Filters/Fax/Common/Tif_faxx/t4_codes.h"

#include <array>

namespace faxx {

// A run and the one of the other colour after it.
struct RunPair {
    uint32_t first;
    uint32_t second;
    uint32_t bits;
};

inline constexpr unsigned kPairIndexBits = 12;

// An entry is bits << 16 | second run << 8 | first run, 0 where not both runs are terminating codes that fit.
using RunPairTable = std::array<uint32_t, 1 << kPairIndexBits>;
extern const std::array<RunPairTable, 2> kRunPairs; // by the first run's colour

// Bits of a window that was just refilled, less those of a mode code in front of the runs.
inline constexpr unsigned kRunWindowBits = 53;

// Reads one run of a window from *bits on; false where there is no code, or too many for the window.
inline bool ReadWindowRun(uint64_t window, Colour colour, uint32_t* run, uint32_t* bits) {
    const bool white = colour == Colour::White;
    const uint16_t* const table = white ? WhiteDecodeTable.data() : BlackDecodeTable.data();
    const unsigned shift = 64 - (white ? kWhiteIndexBits : kBlackIndexBits);
    *run = 0;
    for (;;) {
        const uint16_t entry = table[window << *bits >> shift];
        if (entry == kNoCode || *bits + kBlackIndexBits > kRunWindowBits) [[unlikely]]
            return false;
        *bits += CodeLength(entry);
        *run += RunLength(entry);
        if (RunLength(entry) < kTerminatingCodes) [[likely]]
            return true;
    }
}

// Reads the two runs that a window of at least kRunWindowBits begins with.
inline bool ReadRunPair(uint64_t window, Colour firstColour, RunPair* pair) {
    const uint32_t entry = kRunPairs[static_cast<size_t>(firstColour)][window >> (64 - kPairIndexBits)];
    if (entry != 0) [[likely]] {
        *pair = {entry & 0xFF, entry >> 8 & 0xFF, entry >> 16};
        return true;
    }
    pair->bits = 0;
    return ReadWindowRun(window, firstColour, &pair->first, &pair->bits) &&
           ReadWindowRun(window, Opposite(firstColour), &pair->second, &pair->bits);
}

} // namespace faxx
