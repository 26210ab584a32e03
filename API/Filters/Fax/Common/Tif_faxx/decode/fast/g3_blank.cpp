// Blank lines of G3 streams, recognised by the codes that ordinary encoders write for them, without decoding
// them. What looks different is left to the decoders of lines.
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g3_blank.h"

#include "API/Filters/Fax/Common/Tif_faxx/bits/fast_bits.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/encode_tables.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>

namespace faxx::g3 {
namespace {

// An EOL and the tag of a one-dimensional line.
constexpr CodeWord kTaggedEol{kEol.bits << 1 | 1, kEol.length + 1};
// An EOL, the tag of a two-dimensional line and V0: a blank line below a blank one.
constexpr CodeWord kBlankTwoDimensional{kEol.bits << 2 | 0b01, kEol.length + 2};

[[gnu::always_inline]] constexpr BlankLineCode BlankLineOf(uint32_t width, uint32_t format) {
    BlankLineCode code{.width = width};
    constexpr CodeWord kLongest = kLongestRunCode;
    if (width >= kWindowBits / kLongest.length * kLongestCodeRun)
        return code; // make-up codes alone would fill a window
    code.length = 0;
    const auto append = [&](CodeWord word) {
        code.bits = code.bits << word.length | word.bits;
        code.length += word.length;
    };
    const bool alignedRows = RowsBeginOnBytes(format);
    if (!alignedRows)
        append(HasTagBits(format) ? kTaggedEol : kEol);
    uint32_t run = width;
    for (; run >= kLongestCodeRun; run -= kLongestCodeRun)
        [[unlikely]] append(kLongest);
    append(kWhiteRunCodes[run]);
    if (alignedRows)
        append({0, (0 - code.length) % 8});
    return code;
}

// The zero bits in front of an EOL that a window begins with. As numbers, codes are the same with them.
unsigned FillOf(uint64_t window) {
    window |= 1; // behind kWindowBits; zeros are counted in fewer steps where there is an end to them
    const unsigned zeros = static_cast<unsigned>(std::countl_zero(window));
    if (zeros < kEol.length) [[likely]]
        return 0;
    return zeros + 1 - kEol.length;
}

bool BeginsWith(uint64_t window, uint64_t bits, unsigned length) {
    return length <= kWindowBits && window >> (64 - length) == bits;
}

// Moves position behind a code of so many bits and the fill in front of it, if that is what comes.
[[gnu::always_inline]] inline bool Skip(const uint8_t* buffer, uint64_t& position, uint64_t bits,
                                        unsigned length) {
    const uint64_t window = WindowAt(buffer, position);
    const unsigned whole = FillOf(window) + length;
    if (!BeginsWith(window, bits, whole))
        return false;
    position += whole;
    return true;
}

} // namespace

BlankLineCode BlankLineOf(const CCITTG34* record) {
    return BlankLineOf(record->Width, record->Format);
}

constinit const std::array<uint64_t, kLongestCodeRun> kNarrowPairs = [] {
    std::array<uint64_t, kLongestCodeRun> pairs{};
    for (uint32_t width = 0; width < pairs.size(); ++width) {
        const BlankLineCode line = BlankLineOf(width, FORMAT_FAX_G3_2D);
        const unsigned rest = 64 - line.length - kBlankTwoDimensional.length;
        pairs[width] = (line.bits << kBlankTwoDimensional.length | kBlankTwoDimensional.bits) << rest | rest;
    }
    return pairs;
}();

unsigned DecodeOtherPair(CCITTG34* record, uint16_t* rows, unsigned lines, LineDecoder* otherwise) {
    BitInput input(record);
    const int64_t start = input.Position();
    if (start < 0) [[unlikely]]
        return otherwise(record, rows, lines);
    const uint8_t* const buffer = record->Buffer;
    uint64_t position = static_cast<uint64_t>(start);
    if (Skip(buffer, position, kBlankTwoDimensional.bits, kBlankTwoDimensional.length)) {
        if (record->ReferenceLine[0] == 0 && EndBlankPair(record, rows, input, position, 1))
            return 1;
    } else if (lines >= 2) {
        const BlankLineCode code = BlankLineOf(record->Width, FORMAT_FAX_G3_2D);
        if (Skip(buffer, position, code.bits, code.length) &&
            Skip(buffer, position, kBlankTwoDimensional.bits, kBlankTwoDimensional.length) &&
            EndBlankPair(record, rows, input, position, 2))
            return 2;
    }
    return otherwise(record, rows, lines);
}

namespace {

// So many codes end on the bit of a byte that they began on: from there on, further ones repeat the bytes
// that stand a code's length in bytes in front of them.
constexpr uint32_t kLinesToWholeBytes = 8;

// How far from position, and no further than end, the bits are those that stand distance bytes in front.
uint64_t RepeatedUpTo(const uint8_t* buffer, uint64_t position, uint64_t end, unsigned distance) {
    const uint64_t other = WindowAt(buffer, position) ^ WindowAt(buffer, position - uint64_t{distance} * 8);
    uint64_t repeated = position + static_cast<unsigned>(std::countl_zero(other));
    if (other >> (64 - kWindowBits) == 0) {
        const auto equalBytes = [&](const uint8_t* at) {
            const auto load = [](const uint8_t* bytes) {
                return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
            };
            return static_cast<uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(load(at), load(at - distance))));
        };
        const uint8_t* at = buffer + position / 8 + 1;
        const uint8_t* const last = buffer + end / 8;
        uint16_t equal = equalBytes(at);
        while (equal == 0xFFFF && at < last)
            equal = equalBytes(at += sizeof(__m128i));
        repeated = static_cast<uint64_t>(at - buffer + std::countr_one(equal)) * 8;
    }
    return std::min(repeated, end);
}

} // namespace

uint32_t ReadBlankLines(Line& line, const BlankLineCode& code, uint32_t most) {
    CCITTG34* const record = line.record;
    const uint8_t* const buffer = record->Buffer;
    const bool alignedRows = RowsBeginOnBytes(record->Format);
    const int64_t start = line.input.Position();
    if (start < 0)
        return 0;
    uint64_t position = static_cast<uint64_t>(start);
    // EOLs that end on byte boundaries all have the same fill between blank lines.
    const unsigned length = code.length + (alignedRows ? 0 : FillOf(WindowAt(buffer, position)));
    // The bits to the next byte may lead past the data further than a code does.
    const int64_t limit = std::min(FastEnd(line.input, record), line.input.PositionLimit() - length);
    if (start >= limit)
        return 0;
    const uint64_t end = static_cast<uint64_t>(limit);
    uint32_t count = 0;
    while (count < most && position < end && BeginsWith(WindowAt(buffer, position), code.bits, length)) {
        position += length;
        ++count;
        if (count == kLinesToWholeBytes && count < most && position < end) {
            const uint64_t repeated = RepeatedUpTo(buffer, position, end, length) - position;
            const uint32_t more = std::min(static_cast<uint32_t>(repeated) / length, most - count);
            count += more;
            position += uint64_t{more} * length;
        }
    }
    if (count == 0)
        return 0;
    if (!alignedRows && WindowAt(buffer, position) >> (64 - kEmptyBlackRun.length) == kEmptyBlackRun.bits)
        [[unlikely]] {
        // It belongs to the last line, which is the plain decoder's then.
        position -= length;
        if (--count == 0)
            return 0;
    }
    if (HasTagBits(record->Format))
        record->NextLineTag =
            static_cast<int32_t>(AccumulatorAt(buffer, position - code.length + kEol.length));
    line.input.MoveTo(position);
    return count;
}

} // namespace faxx::g3
