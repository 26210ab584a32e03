// The plain decoder (g3_decode.cpp) defines what happens; this one reads up to two runs from one look-up of
// a 64-bit window (fast_bits.h), and leaves everything out of the ordinary to it.
#include "API/Filters/Fax/Common/Tif_faxx/encode_tables.h"
#include "API/Filters/Fax/Common/Tif_faxx/fast_bits.h"
#include "API/Filters/Fax/Common/Tif_faxx/fast_runs.h"
#include "API/Filters/Fax/Common/Tif_faxx/g3_line.h"
#include "API/Filters/Fax/Common/Tif_faxx/instructions.h"

#include <immintrin.h>

namespace faxx::g3 {
namespace {

constexpr unsigned kStepsInBlock = FastBits::kRefilled / kStepIndexBits;

constexpr int kEolZeros = 8; // no run code begins with so many
// An EOL and the tag of a one-dimensional line.
constexpr CodeWord kTaggedEol{kEol.bits << 1 | 1, kEol.length + 1};
// An EOL, the tag of a two-dimensional line and V0: a blank line below a blank one.
constexpr CodeWord kBlankTwoDimensional{kEol.bits << 2 | 0b01, kEol.length + 2};

constexpr int kLongestZeros = 40; // of an EOL with fill that are read from one window

[[gnu::always_inline]] inline bool Read(Line& line, Edge edge) {
    int64_t start = line.input.Position();
    const int64_t end = FastEnd(line.input, line.record, line.limit - line.written);
    if (start < 0 || start >= end || line.remaining > kNoStep)
        return false;

    CCITTG34* const record = line.record;
    const uint64_t window = WindowAt(record->Buffer, static_cast<uint64_t>(start));
    const int zeros = std::countl_zero(window);
    if (zeros >= kEolZeros && zeros <= kLongestZeros && line.written == 0) {
        // An EOL in front of the line.
        start += zeros + 1;
        if (HasTagBits(record)) {
            record->NextLineTag =
                static_cast<int32_t>(AccumulatorAt(record->Buffer, static_cast<uint64_t>(start)));
            ++start;
            if (record->NextLineTag >= 0) {
                line.input.MoveTo(static_cast<uint64_t>(start));
                return false;
            }
        }
    }

    const bool alignedRows = record->Format == FORMAT_FAX_G3_1D_NOEOL;
    uint32_t* const first = record->CodingLine;
    uint32_t* next = first + line.written;
    uint32_t remaining = line.remaining;
    const RunStep* steps = StepsFor(Colour::White);
    FastBits bits(record->Buffer, static_cast<uint64_t>(start), static_cast<uint64_t>(end));
    bool complete = false;

    while (bits.Inside()) {
        bits.Refill();
        unsigned stepsLeft = kStepsInBlock;
        do {
            const uint64_t index = bits.Top(kStepIndexBits);
            const RunStep& step = steps[index];
            const uint32_t stepBits = BitsOfStep(steps, index);
            if (remaining <= step.both) [[unlikely]]
                break;
            next[0] = remaining - step.first;
            remaining -= step.both;
            next[1] = remaining;
            next += step.runs;
            steps = kRunSteps.data() + step.after;
            bits.Consume(stepBits);
        } while (--stepsLeft != 0);
        if (stepsLeft == 0)
            continue;

        // The end of the line, or a code longer than the tables'. One run, then.
        bits.Refill();
        const Colour colour = steps == StepsFor(Colour::White) ? Colour::White : Colour::Black;
        uint32_t run = 0;
        uint32_t used = 0;
        if (!ReadWindowRun(bits.window, colour, &run, &used))
            break;
        const uint32_t afterRun = remaining - run;
        if (static_cast<int32_t>(afterRun) <= 0) {
            complete = edge == Edge::EndsLine && afterRun == 0 &&
                       (colour == Colour::Black || alignedRows ||
                        bits.window << used >> (64 - kEmptyBlackRunBits) != kEmptyBlackRun);
            if (complete) {
                remaining = 0;
                bits.Consume(used);
            }
            break;
        }
        *next++ = remaining = afterRun;
        steps = StepsFor(Opposite(colour));
        bits.Consume(used);
    }

    line.written = static_cast<uint32_t>(next - first);
    line.remaining = remaining;
    line.input.MoveTo(bits.Position());
    return complete;
}

} // namespace

bool ReadFastAnywhere(Line& line, Edge edge) {
    return Read(line, edge);
}

FAXX_FASTER_FORM bool ReadFastFaster(Line& line, Edge edge) {
    return Read(line, edge);
}

static const auto kReadFast = ChooseForm(ReadFastAnywhere, ReadFastFaster);

bool ReadFast(Line& line, Edge edge) {
    return kReadFast(line, edge);
}

namespace {

[[gnu::always_inline]] inline BlankLineCode BlankLineOf(uint32_t width, uint32_t format) {
    BlankLineCode code{.width = width};
    constexpr CodeWord kLongest = UnpackCode(kLongestRunCode);
    if (width >= kWindowBits / kLongest.length * kLongestCodeRun)
        return code; // make-up codes alone would fill a window
    const auto append = [&](CodeWord word) {
        code.bits = code.bits << word.length | word.bits;
        code.length += word.length;
    };
    const bool alignedRows = format == FORMAT_FAX_G3_1D_NOEOL;
    if (!alignedRows)
        append(HasTagBits(format) ? kTaggedEol : kEol);
    uint32_t run = width;
    for (; run >= kLongestCodeRun; run -= kLongestCodeRun)
        [[unlikely]] append(kLongest);
    append(kWhiteRunWords[run]);
    if (alignedRows)
        append({0, (0 - code.length) % 8});
    if (code.length > kWindowBits)
        code.length = 0;
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

} // namespace

BlankLineCode BlankLineOf(const CCITTG34* record) {
    return BlankLineOf(record->Width, record->Format);
}

namespace {

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

// Decodes the two-dimensional blank line of a pair, and ends the call with so many lines. 0 where something
// else comes.
[[gnu::always_inline]] inline unsigned EndBlankPair(CCITTG34* record, uint16_t* rows, BitInput& input,
                                                    uint64_t position, unsigned count) {
    if (!Skip(record->Buffer, position, kBlankTwoDimensional.bits, kBlankTwoDimensional.length) ||
        static_cast<int64_t>(position) >= input.PositionLimit())
        return 0;
    input.MoveTo(position);
    input.Store();
    record->NextLineTag = kNextLineOneDimensional;
    RowOutput output{rows, kRowBudget, 0, count};
    FinishBlankLines(record, output, count);
    return count;
}

} // namespace

unsigned DecodeBlankPair(CCITTG34* record, uint16_t* rows, unsigned lines) {
    if (record->Format != FORMAT_FAX_G3_2D || record->NextLineTag >= 0)
        return 0;
    const BlankLineCode code = BlankLineOf(record->Width, FORMAT_FAX_G3_2D);
    BitInput input(record);
    const int64_t start = input.Position();
    if (code.length == 0 || start < 0)
        return 0;
    uint64_t position = static_cast<uint64_t>(start);
    if (lines >= 2 && Skip(record->Buffer, position, code.bits, code.length)) [[likely]]
        return EndBlankPair(record, rows, input, position, 2);
    return record->ReferenceLine[0] == 0 ? EndBlankPair(record, rows, input, position, 1) : 0;
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
    const bool alignedRows = record->Format == FORMAT_FAX_G3_1D_NOEOL;
    const int64_t start = line.input.Position();
    if (code.length == 0 || start < 0)
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
    if (!alignedRows && WindowAt(buffer, position) >> (64 - kEmptyBlackRunBits) == kEmptyBlackRun)
        [[unlikely]] {
        // It belongs to the last line, which is the plain decoder's then.
        position -= length;
        if (--count == 0)
            return 0;
    }
    if (HasTagBits(record))
        record->NextLineTag =
            static_cast<int32_t>(AccumulatorAt(buffer, position - code.length + kEol.length));
    line.input.MoveTo(position);
    return count;
}

} // namespace faxx::g3
