// One run, or one EOL, from the bit input: what all plain decoders read.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/base/format.h"
#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_input.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/decode_tables.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/t4_codes.h"

namespace faxx {

enum class RunRead { Complete, NoCode, NoData };

// Reads one run: make-up codes and the terminating code, each taken off remaining as it is read. NoCode:
// the next eight bits are zero, and not consumed.
template <Colour colour>
inline RunRead ReadRun(BitInput& input, uint32_t& remaining) {
    for (;;) {
        const uint16_t entry = colour == Colour::White ? WhiteDecodeTable[input.Top(kWhiteIndexBits)]
                                                       : BlackDecodeTable[input.Top(kBlackIndexBits)];
        if (entry == kNoCode) [[unlikely]]
            return RunRead::NoCode;
        if (!input.Consume(CodeLength(entry))) [[unlikely]]
            return RunRead::NoData;
        remaining -= RunLength(entry);
        if (RunLength(entry) < kTerminatingCodes) [[likely]]
            return RunRead::Complete;
    }
}

inline RunRead ReadRun(BitInput& input, Colour colour, uint32_t& remaining) {
    return colour == Colour::White ? ReadRun<Colour::White>(input, remaining)
                                   : ReadRun<Colour::Black>(input, remaining);
}

// Consumes an EOL with its fill, several of them alike, and the tag bit where the format has one.
inline bool ReadEol(BitInput& input, CCITTG34* record) {
    if (!input.SkipZerosAndOne())
        return false;
    if (!HasTagBits(record->Format))
        return true;
    record->NextLineTag = static_cast<int32_t>(input.Window());
    return input.Consume(1);
}

} // namespace faxx
