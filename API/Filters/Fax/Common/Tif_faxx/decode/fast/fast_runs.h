// Two runs from one look-up, and runs of any length from one 64-bit window.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/codes/decode_tables.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/t4_codes.h"

#include <array>

namespace faxx {

inline constexpr unsigned kRunIndexBits = 11;

// What the next bits say where a run of one colour is due: up to two whole runs, or the make-up codes of one
// whose terminating code does not fit. Where not even a code fits, or there is none, both is kNoRun.
struct alignas(8) RunLookup {
    uint16_t first; // run, or its make-up part
    uint16_t both;  // runs together
    uint16_t after; // index of the entries for the colour due next
    uint8_t bits;
    uint8_t runs; // that end here
};

inline constexpr uint16_t kNoRun = UINT16_MAX;

// The entries for a white run, then those for a black one.
extern const std::array<RunLookup, 2 << kRunIndexBits> kRunLookups;

inline const RunLookup* RunLookupsFor(Colour colour) {
    return kRunLookups.data() + (static_cast<size_t>(colour) << kRunIndexBits);
}

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

} // namespace faxx
