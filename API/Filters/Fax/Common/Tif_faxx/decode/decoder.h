// A decoding record's set-up, and the choice of its line decoder.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/base/format.h"

namespace faxx {

// A decoder call: rows for so many lines, or fewer. Returns how many.
using LineDecoder = unsigned(CCITTG34* record, unsigned short* rows, unsigned lines);

inline LineDecoder* LineDecoderFor(uint32_t format) {
    return IsG3(format) ? DecodeG3 : DecodeG4;
}

// InitDecodeG34 for a record that its caller keeps to itself: only the bytes right behind the data are
// cleared, not the rest of the input buffer, whose clearing would take longer than decoding a small strip.
// oldEnd: clear up to there at least.
int SetUpDecoder(_LOADDISPATCH* dispatch, CCITTG34* record, unsigned format, unsigned width, unsigned flags,
                 tagHANDLE* handle, unsigned smallBuffer, unsigned byteLimit, uint32_t oldEnd = 0);

} // namespace faxx
