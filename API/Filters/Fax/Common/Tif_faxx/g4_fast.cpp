// The plain decoder (g4_decode.cpp) defines what happens; this one does the same with less per code, and
// leaves to it everything that is not a vertical, horizontal or pass mode code taking its ordinary course.
//
// - Bits come from a 64-bit window loaded at a bit position: no pairs, no refill, no test for the end of the
//   input. That holds while the position stays below the point where the plain decoder would refill, less the
//   most that one step consumes (kStepBits).
// - One table look-up recognises up to four vertical mode codes in a row. They are carried out at once: with
//   the changing elements of the reference line in the lanes of a vector, a1 is b1 plus an offset, and b1
//   moves on by one entry a code. The lanes also show where that is not so (the edge is reached, b1 must be
//   sought further or before): the codes up to there count, the one there is done singly.
// - Two short runs of a horizontal mode come from one look-up.
#include "API/Filters/Fax/Common/Tif_faxx/g4_fast.h"

#include "API/Filters/Fax/Common/Tif_faxx/fast_runs.h"

#include <emmintrin.h>

#include <bit>

namespace faxx::g4 {
namespace {

constexpr unsigned kLanes = 4;
constexpr unsigned kGroupIndexBits = 10;

// The vertical mode codes that begin an index, up to four, or the mode of another code.
struct alignas(16) CodeGroup {
    int16_t offset[kLanes];      // of a1 from b1
    uint8_t bitsThrough[kLanes]; // of the first 1, 2, 3, 4 codes
    uint8_t count;
    uint8_t bits;  // of all of them, or of the other code
    uint8_t lanes; // a bit for each code
    Mode mode;     // of the first code
};

constexpr auto kCodeGroups = [] {
    std::array<CodeGroup, 1 << kGroupIndexBits> table{};
    for (unsigned index = 0; index < table.size(); ++index) {
        CodeGroup& group = table[index];
        const auto codeAt = [&](unsigned position) {
            const unsigned window = index << position & ((1u << kGroupIndexBits) - 1);
            return kModeCodes[window >> (kGroupIndexBits - kModeIndexBits)];
        };
        group.mode = codeAt(0).mode;
        if (group.mode != Mode::Vertical) {
            group.bits = codeAt(0).length;
            continue;
        }
        while (group.count < kLanes) {
            const ModeCode code = codeAt(group.bits);
            if (code.mode != Mode::Vertical || group.bits + code.length > kGroupIndexBits)
                break;
            group.offset[group.count] = code.offset;
            group.bits = static_cast<uint8_t>(group.bits + code.length);
            group.bitsThrough[group.count] = group.bits;
            group.lanes = static_cast<uint8_t>(group.lanes << 1 | 1);
            ++group.count;
        }
    }
    return table;
}();

// More than one step consumes: a horizontal mode code and the runs that fit a window.
constexpr int64_t kStepBits = 64;

// Entries of a list that a step may touch beyond its position.
constexpr uint32_t kStepEntries = 8;

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

} // namespace

After DecodeFast(Line& line) {
    const int64_t start = line.input.Position();
    const int64_t end = line.input.PositionLimit() - kStepBits;
    if (start < 0 || start >= end || line.limit < kStepEntries)
        return After::NextCode;

    const uint8_t* const buffer = line.record->Buffer;
    const uint32_t* const reference = line.reference;
    const uint32_t* const lastB1 = reference + kListEntries - kStepEntries;
    uint32_t* const lastEntry = line.coding + line.limit - kStepEntries;
    uint64_t position = static_cast<uint64_t>(start);
    const uint32_t* b1 = reference + line.b1;
    uint32_t* next = line.coding + line.written;
    uint32_t a0 = line.a0;
    After after = After::NextCode;

    while (static_cast<int64_t>(position) < end && b1 <= lastB1 && next <= lastEntry) {
        const uint64_t window = WindowAt(buffer, position);
        const CodeGroup& group = kCodeGroups[window >> (64 - kGroupIndexBits)];
        if (group.mode == Mode::Vertical) {
            const __m128i packed = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(group.offset));
            const __m128i offset = _mm_srai_epi32(_mm_unpacklo_epi16(packed, packed), 16);
            const __m128i entries = LoadEntries(b1);
            const __m128i a1 = _mm_add_epi32(entries, offset);
            // The next entry must lie right of a1; after V0 it becomes b1 in any case.
            const __m128i isV0 = _mm_cmpeq_epi32(offset, _mm_setzero_si128());
            const __m128i notLeft =
                _mm_add_epi32(_mm_add_epi32(a1, _mm_set1_epi32(-1)), _mm_srli_epi32(isV0, 31));
            __m128i bad = _mm_cmpgt_epi32(LoadEntries(b1 + 1), notLeft);
            // a1 must not reach the edge, nor lie left of a0 or of the entry before b1.
            bad = _mm_or_si128(bad, _mm_cmplt_epi32(a1, _mm_set1_epi32(1)));
            bad = _mm_or_si128(bad, _mm_cmpgt_epi32(a1, ShiftIn(a0, a1)));
            bad = _mm_or_si128(bad, _mm_cmpgt_epi32(a1, ShiftIn(EntryBefore(b1, reference), entries)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(next), a1);
            const unsigned badLanes =
                static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(bad))) & group.lanes;
            if (badLanes == 0) [[likely]] {
                next += group.count;
                b1 += group.count;
                position += group.bits;
                a0 = next[-1];
                continue;
            }
            const unsigned good = static_cast<unsigned>(std::countr_zero(badLanes));
            unsigned bitsBefore = 0;
            if (good != 0) {
                next += good;
                b1 += good;
                a0 = next[-1];
                bitsBefore = group.bitsThrough[good - 1];
            }
            const int single = group.offset[good];
            const uint32_t change = *b1 + static_cast<uint32_t>(single);
            if (!LeftOfEdge(change)) {
                position += bitsBefore;
                if (change == 0) {
                    position += group.bitsThrough[good] - bitsBefore;
                    after = After::LineEnd;
                }
                break;
            }
            if (change > a0) {
                position += bitsBefore;
                break;
            }
            *next++ = change;
            a0 = change;
            position += group.bitsThrough[good];
            if (single > 0) {
                const uint32_t* const tried = b1 == reference ? b1 + 1 : b1 - 1;
                b1 = *tried < a0 ? tried : tried + 2;
            } else {
                ++b1;
                if (single < 0)
                    while (*b1 >= a0)
                        b1 += 2;
            }
        } else if (group.mode == Mode::Horizontal) {
            const Colour colour = static_cast<Colour>((b1 - reference) & 1);
            RunPair runs;
            if (!ReadRunPair(window << group.bits, colour, &runs))
                break;
            const uint32_t a1 = a0 - runs.first;
            const uint32_t a2 = a1 - runs.second;
            if (!LeftOfEdge(a2)) {
                if (a2 != 0)
                    break;
                *next++ = a1;
                position += group.bits + runs.bits;
                after = After::LineEnd;
                break;
            }
            next[0] = a1;
            next[1] = a2;
            next += 2;
            a0 = a2;
            position += group.bits + runs.bits;
            while (*b1 >= a0)
                b1 += 2;
        } else if (group.mode == Mode::Pass) {
            a0 = b1[1];
            b1 += 2;
            position += group.bits;
            if (a0 == 0) {
                after = After::LineEnd;
                break;
            }
        } else {
            break;
        }
    }

    line.written = static_cast<uint32_t>(next - line.coding);
    line.a0 = a0;
    line.b1 = static_cast<uint32_t>(b1 - reference);
    line.input.MoveTo(position);
    return after;
}

} // namespace faxx::g4
