// The plain decoder (g4_decode.cpp) defines what happens; this one does the same with less per code, and
// leaves to it everything that is not a vertical, horizontal or pass mode code taking its ordinary course.
//
// - Bits come from a 64-bit window (fast_bits.h).
// - One table look-up recognises up to four vertical mode codes in a row. They are carried out at once: with
//   the changing elements of the reference line in the lanes of a vector, a1 is b1 plus an offset, and b1
//   moves on by one entry a code. The lanes also show where that is not so: the edge is reached, or b1 must
//   be sought.
// - Such a code is done singly, and so are the next ones: in dithered pictures they come together. A single
//   step has no branch that depends on the kind of vertical code, or on whether it is a pass.
// - Two short runs of a horizontal mode come from one look-up.
#include "API/Filters/Fax/Common/Tif_faxx/g4_fast.h"

#include "API/Filters/Fax/Common/Tif_faxx/b1_search.h"
#include "API/Filters/Fax/Common/Tif_faxx/fast_bits.h"
#include "API/Filters/Fax/Common/Tif_faxx/fast_runs.h"
#include "API/Filters/Fax/Common/Tif_faxx/instructions.h"

#include <emmintrin.h>

#include <algorithm>

namespace faxx::g4 {
namespace {

constexpr unsigned kLanes = 4;
constexpr unsigned kGroupIndexBits = 10;
constexpr unsigned kHorizontalBits = 3;

// The vertical mode codes that begin an index, up to four; none where the first is another.
struct alignas(16) CodeGroup {
    int16_t offset[kLanes]; // of a1 from b1
    uint8_t count;
    uint8_t bits;  // of all of them
    uint8_t lanes; // a bit for each
};

constexpr auto kCodeGroups = [] {
    std::array<CodeGroup, 1 << kGroupIndexBits> table{};
    for (unsigned index = 0; index < table.size(); ++index) {
        CodeGroup& group = table[index];
        while (group.count < kLanes) {
            const unsigned rest = index << group.bits & ((1u << kGroupIndexBits) - 1);
            const ModeCode code = kModeCodes[rest >> (kGroupIndexBits - kModeIndexBits)];
            if (code.mode != Mode::Vertical || group.bits + code.length > kGroupIndexBits)
                break;
            group.offset[group.count++] = code.offset;
            group.bits = static_cast<uint8_t>(group.bits + code.length);
            group.lanes = static_cast<uint8_t>(group.lanes << 1 | 1);
        }
    }
    return table;
}();

// One mode code. What it says of a change, a1 or b2, and of the next b1 is the same arithmetic for vertical
// codes and passes.
struct alignas(8) SingleCode {
    Mode mode;
    uint8_t bits;
    uint8_t fromB1;  // entries from b1 to the one that the change is counted from
    int8_t offset;   // of the change from that
    int8_t notRight; // entries at or above this far from it are not right of the change
    int8_t step;     // of b1, to where it is sought from
    uint8_t entries; // written
};

constexpr auto kSingleCodes = [] {
    std::array<SingleCode, 1 << kModeIndexBits> table{};
    for (unsigned index = 0; index < table.size(); ++index) {
        const ModeCode code = kModeCodes[index];
        SingleCode& single = table[index];
        const bool pass = code.mode == Mode::Pass;
        single.mode = code.mode;
        single.bits = code.length;
        single.fromB1 = pass;
        single.offset = code.offset;
        single.notRight = static_cast<int8_t>(code.offset == 0 ? 1 : code.offset);
        single.step = static_cast<int8_t>(pass ? 2 : code.offset > 0 ? -1 : 1);
        single.entries = !pass;
    }
    return table;
}();

// Entries that a step may touch beyond the end of the reference line, and the three that close it.
constexpr uint32_t kStepEntries = 16;

// Codes done singly from one refill: vertical codes, passes, or horizontal codes with runs from the table.
constexpr unsigned kSinglesInBlock = 4;
static_assert(kSinglesInBlock * (kHorizontalBits + kStepIndexBits) <= FastBits::kRefilled);

// After a group that failed so many blocks are done singly, up to twice as many each time. A group that was
// done takes a part of that off again.
constexpr unsigned kFirstPenalty = 2;
constexpr unsigned kMostPenalty = 64;
constexpr unsigned kForgiven = 4;

__m128i LoadEntries(const uint32_t* entries) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(entries));
}

// The vector one lane further to the right, with first in the lane that becomes free.
__m128i ShiftIn(uint32_t first, __m128i vector) {
    return _mm_or_si128(_mm_slli_si128(vector, 4), _mm_cvtsi32_si128(static_cast<int>(first)));
}

// The entry before b1, which a search to the left would try; before the first there is none.
uint32_t EntryBefore(const uint32_t* b1, const uint32_t* reference) {
    static constexpr uint32_t kNone = INT32_MAX;
    return *(b1 == reference ? &kNone : b1 - 1);
}

// Writes the changes of a group's codes at next. False where not all of them take their ordinary course.
[[gnu::always_inline]] inline bool DoGroup(const CodeGroup& group, const uint32_t* b1,
                                           const uint32_t* reference, uint32_t a0, uint32_t* next) {
    const __m128i packed = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(group.offset));
    const __m128i offset = _mm_srai_epi32(_mm_unpacklo_epi16(packed, packed), 16);
    const __m128i entries = LoadEntries(b1);
    const __m128i a1 = _mm_add_epi32(entries, offset);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(next), a1);
    // The next entry must lie right of a1; after V0 it becomes b1 in any case.
    const __m128i isV0 = _mm_cmpeq_epi32(offset, _mm_setzero_si128());
    const __m128i notLeft = _mm_sub_epi32(_mm_add_epi32(a1, _mm_set1_epi32(-1)), isV0);
    __m128i bad = _mm_cmpgt_epi32(LoadEntries(b1 + 1), notLeft);
    // a1 must not reach the edge, nor lie left of a0 or of the entry before b1.
    bad = _mm_or_si128(bad, _mm_cmplt_epi32(a1, _mm_set1_epi32(1)));
    bad = _mm_or_si128(bad, _mm_cmpgt_epi32(a1, ShiftIn(a0, a1)));
    bad = _mm_or_si128(bad, _mm_cmpgt_epi32(a1, ShiftIn(EntryBefore(b1, reference), entries)));
    return (_mm_movemask_ps(_mm_castsi128_ps(bad)) & group.lanes) == 0;
}

[[gnu::always_inline]] inline After Decode(Line& line) {
    const int64_t start = line.input.Position();
    const int64_t end = FastEnd(line.input, line.record, line.limit - line.written);
    if (start < 0 || start >= end || line.referenceEntries > kListEntries - kStepEntries)
        return After::NextCode;

    const uint32_t* const reference = line.reference;
    const uint32_t* b1 = reference + line.b1;
    uint32_t* next = line.coding + line.written;
    uint32_t a0 = line.a0;
    FastBits bits(line.record->Buffer, static_cast<uint64_t>(start), static_cast<uint64_t>(end));
    unsigned singleBlocks = 0; // to come before a group is tried again
    unsigned penalty = 0;      // grows with groups that failed
    After after = After::NextCode;

    // Carries out one code; false where the line ends with it, or it is for the plain decoder.
    const auto doSingle = [&]() __attribute__((always_inline)) {
        const SingleCode& code = kSingleCodes[bits.Top(kModeIndexBits)];
        if (code.mode > Mode::Pass) {
            if (code.mode != Mode::Horizontal)
                return false;
            const Colour colour = static_cast<Colour>((b1 - reference) & 1);
            const RunStep& step = StepsFor(colour)[bits.window << kHorizontalBits >> (64 - kStepIndexBits)];
            uint32_t a1 = a0 - step.first;
            uint32_t a2 = a0 - step.both;
            uint32_t used = kHorizontalBits + step.bits;
            const bool longer = step.runs != 2;
            if (longer) [[unlikely]] {
                bits.Refill();
                used = kHorizontalBits;
                uint32_t first;
                uint32_t second;
                if (!bits.Inside() || !ReadWindowRun(bits.window, colour, &first, &used) ||
                    !ReadWindowRun(bits.window, Opposite(colour), &second, &used))
                    return false;
                a1 = a0 - first;
                a2 = a1 - second;
            }
            if (!LeftOfEdge(a2)) [[unlikely]] {
                if (a2 == 0) {
                    *next++ = a1;
                    bits.Consume(used);
                    after = After::LineEnd;
                }
                return false;
            }
            bits.Consume(used);
            if (longer)
                bits.Refill();
            next[0] = a1;
            next[1] = a2;
            next += 2;
            a0 = a2;
            b1 = SeekB1(b1, a0);
            return true;
        }
        const uint32_t from = b1[code.fromB1];
        const uint32_t change = from + static_cast<uint32_t>(int32_t{code.offset});
        const uint32_t notRight = from + static_cast<uint32_t>(int32_t{code.notRight});
        if (change - 1 >= a0) [[unlikely]] {
            if (change == 0) {
                bits.Consume(code.bits);
                after = After::LineEnd;
            }
            return false;
        }
        bits.Consume(code.bits);
        a0 = change;
        *next = change;
        next += code.entries;
        if (b1 == reference) [[unlikely]]
            b1 += code.step < 0 ? 2 : 0; // there is no entry before the first
        b1 = SeekB1(b1 + code.step, notRight);
        return true;
    };

    for (bool goesOn = true; goesOn && bits.Inside();) {
        bits.Refill();
        unsigned singles = kSinglesInBlock;
        if (singleBlocks == 0) {
            const CodeGroup& group = kCodeGroups[bits.Top(kGroupIndexBits)];
            if (group.count != 0) {
                if (DoGroup(group, b1, reference, a0, next)) [[likely]] {
                    next += group.count;
                    b1 += group.count;
                    bits.Consume(group.bits);
                    a0 = next[-1];
                    penalty -= penalty / kForgiven;
                    continue;
                }
                penalty = std::min(penalty * 2 + kFirstPenalty, kMostPenalty);
                singleBlocks = penalty;
            } else {
                singles = 1;
            }
        } else {
            --singleBlocks;
        }
        for (; goesOn && singles != 0; --singles)
            goesOn = doSingle();
    }

    line.written = static_cast<uint32_t>(next - line.coding);
    line.a0 = a0;
    line.b1 = static_cast<uint32_t>(b1 - reference);
    line.input.MoveTo(bits.Position());
    return after;
}

} // namespace

After DecodeFastAnywhere(Line& line) {
    return Decode(line);
}

FAXX_FASTER_FORM After DecodeFastFaster(Line& line) {
    return Decode(line);
}

After DecodeFast(Line& line) {
    static const auto kForm = ChooseForm(DecodeFastAnywhere, DecodeFastFaster);
    return kForm(line);
}

uint32_t ReadBlankLines(Line& line, uint32_t most) {
    const int64_t start = line.input.Position();
    const int64_t end = FastEnd(line.input, line.record);
    if (start < 0)
        return 0;
    // A blank line below a blank one is a single V0, a 1 bit.
    uint32_t lines = 0;
    while (lines < most && start + lines < end) {
        const uint64_t position = static_cast<uint64_t>(start) + lines;
        const uint32_t ones = static_cast<uint32_t>(std::countl_one(WindowAt(line.record->Buffer, position)));
        lines += std::min(ones, most - lines);
        if (ones < kWindowBits)
            break;
    }
    if (lines != 0)
        line.input.MoveTo(static_cast<uint64_t>(start) + lines);
    return lines;
}

} // namespace faxx::g4
