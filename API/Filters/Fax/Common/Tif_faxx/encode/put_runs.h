// Run codes on their way into the bit output.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_output.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/encode_tables.h"

namespace faxx {

// Writes the code of one run (T.4 § 4.1.2), with the bits in front of it, up to 3: as many 2560 make-up codes
// as fit, a make-up code for the rest if it has 64 pixels or more, and always one terminating code.
template <Colour colour>
inline void PutRun(BitOutput& output, uint32_t run, CodeWord front = {0, 0}) {
    while (run >= kLongestCodeRun)
        [[unlikely]] {
            output.PutBits(front);
            output.PutBits(kLongestRunCode);
            front = {0, 0};
            run -= kLongestCodeRun;
        }
    output.PutBits(Joined(Joined(front, MakeupCodes<colour>[run / 64]), TermCodes<colour>[run % 64]));
}

// Writes a run and the one after it. Two short ones go out at once, with the bits in front of them, up to 3.
template <Colour first>
inline void PutRunPair(BitOutput& output, uint32_t run, uint32_t nextRun, CodeWord front = {0, 0}) {
    if ((run | nextRun) < kTerminatingCodes) {
        output.PutBits(Joined(Joined(front, TermCodes<first>[run]), TermCodes<Opposite(first)>[nextRun]));
        return;
    }
    PutRun<first>(output, run, front);
    PutRun<Opposite(first)>(output, nextRun);
}

} // namespace faxx
