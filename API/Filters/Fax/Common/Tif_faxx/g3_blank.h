// Blank lines of G3 streams, told by their codes alone.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/g3_line.h"

namespace faxx::g3 {

// What an ordinary encoder writes for a blank one-dimensional line: an EOL and a tag in formats that have
// them, and the white run; or the run and the bits to the next byte. Longer than a window where the width
// takes so many make-up codes that it may not fit one.
struct BlankLineCode {
    uint64_t bits = 0;
    unsigned length = kWindowBits + 1;
    uint32_t width = 0;
};

BlankLineCode BlankLineOf(const CCITTG34* record);

// At the start of a line with no tag pending: consumes the lines of this code that the next bits hold, all
// with the same fill in front, most in all. Returns how many.
uint32_t ReadBlankLines(Line& line, const BlankLineCode& code, uint32_t most);

// A decoder call at the start of a line with no tag pending, in the format that has lines of both kinds:
// decodes the two-dimensional blank line that ends the call, and the one-dimensional one in front of it if
// there is one. Where something else comes, or more than lines, the call is the other decoder's.
unsigned DecodeBlankPair(CCITTG34* record, uint16_t* rows, unsigned lines, LineDecoder* otherwise);

} // namespace faxx::g3
