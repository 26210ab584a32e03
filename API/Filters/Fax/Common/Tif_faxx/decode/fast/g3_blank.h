// Blank lines of G3 streams, recognised by their codes alone.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/decode/decoder.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/g3_line.h"

#include <array>

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

// The bits of a one-dimensional blank line and a two-dimensional one below it, without fill, left-aligned,
// and in the low bits how many they leave of 64. They are 47 at most while the width takes no make-up code
// 2560.
extern const std::array<uint64_t, kLongestCodeRun> kNarrowPairs;

// Ends a call of so many blank lines, the last of them two-dimensional and ending at position. False where a
// refill comes before that.
[[gnu::always_inline]] inline bool EndBlankPair(CCITTG34* record, uint16_t* rows, BitInput& input,
                                                uint64_t position, unsigned count) {
    if (static_cast<int64_t>(position) >= input.PositionLimit()) [[unlikely]]
        return false;
    input.MoveTo(position);
    input.Store();
    record->NextLineTag = kNextLineOneDimensional;
    RowOutput output{rows, kRowBudget, 0, count};
    FinishBlankLines(record, output, count);
    return true;
}

// DecodeBlankPair where the pair is wide, has fill, or is the second line alone, and for everything else.
unsigned DecodeOtherPair(CCITTG34* record, uint16_t* rows, unsigned lines, LineDecoder* otherwise);

// A decoder call at the start of a line with no tag pending, in the format that has lines of both kinds:
// decodes the two-dimensional blank line that ends the call, and the one-dimensional one in front of it if
// there is one. Where something else comes, or more than lines, the call is the other decoder's. In line: in
// a blank page there is a call for every other line.
[[gnu::always_inline]] inline unsigned DecodeBlankPair(CCITTG34* record, uint16_t* rows, unsigned lines,
                                                       LineDecoder* otherwise) {
    const uint32_t width = record->Width;
    BitInput input(record);
    const int64_t start = input.Position();
    if (lines < 2 || width >= kNarrowPairs.size()) [[unlikely]]
        return DecodeOtherPair(record, rows, lines, otherwise);
    if (start < 0) [[unlikely]]
        return otherwise(record, rows, lines);
    const uint64_t pair = kNarrowPairs[width];
    const unsigned rest = pair % 64;
    const uint64_t position = static_cast<uint64_t>(start);
    if ((WindowAt(record->Buffer, position) ^ pair) >> rest == 0 &&
        EndBlankPair(record, rows, input, position + 64 - rest, 2)) [[likely]]
        return 2;
    return DecodeOtherPair(record, rows, lines, otherwise);
}

} // namespace faxx::g3
