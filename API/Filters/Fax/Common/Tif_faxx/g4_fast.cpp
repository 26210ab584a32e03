// The plain decoder (g4_decode.cpp) defines what happens; this one does the same with less per code, and
// leaves to it everything that is not a vertical, horizontal or pass mode code taking its ordinary course.
//
// - Bits come from a 64-bit window loaded at a bit position: no pairs, no refill, no test for the end of the
//   input. That holds while the position stays below the point where the plain decoder would refill, less the
//   most that one step consumes (kStepBits).
// - One table look-up recognises up to four vertical mode codes in a row. They are carried out at once: with
//   the changing elements of the reference line in the lanes of a vector, a1 is b1 plus an offset, and b1
//   moves on by one entry a code. The lanes also show where that is not so: the edge is reached, or b1 must
//   be sought.
// - Such a code is done singly, and so are the next few: in dithered pictures they come together. A single
//   step has no branch that depends on the kind of vertical code, or on whether it is a pass.
// - Two short runs of a horizontal mode come from one look-up.
#include "API/Filters/Fax/Common/Tif_faxx/g4_fast.h"

#include "API/Filters/Fax/Common/Tif_faxx/fast_runs.h"

#include <emmintrin.h>

#include <algorithm>

namespace faxx::g4 {
namespace {

constexpr unsigned kLanes = 4;
constexpr unsigned kGroupIndexBits = 10;
constexpr unsigned kHorizontalBits = 3;

// The vertical mode codes that begin an index, up to four; or none, and the mode of another code. What a
// single step does with the first code, vertical or pass, stands in words of its own.
struct alignas(32) CodeGroup {
    int16_t offset[kLanes]; // of a1 from b1
    uint8_t count;
    uint8_t bits;  // of all of them
    uint8_t lanes; // a bit for each
    Mode mode;     // of the first code
    uint8_t firstBits;
    int8_t firstOffset; // of the change from b1, or from b2
    uint8_t isPass;
    int8_t step;       // of b1, to where it is sought from
    uint32_t leftover; // added to the change: entries at or above the sum are not right of it
};

constexpr uint32_t kNothingLeft = 1u << 31; // more than any distance: b1 is not sought

constexpr auto kCodeGroups = [] {
    std::array<CodeGroup, 1 << kGroupIndexBits> table{};
    for (unsigned index = 0; index < table.size(); ++index) {
        CodeGroup& group = table[index];
        const ModeCode first = kModeCodes[index >> (kGroupIndexBits - kModeIndexBits)];
        group.mode = first.mode;
        group.firstBits = first.length;
        group.firstOffset = first.offset;
        group.isPass = first.mode == Mode::Pass;
        group.step = static_cast<int8_t>(group.isPass ? 2 : first.offset > 0 ? -1 : 1);
        group.leftover = group.isPass ? kNothingLeft : first.offset == 0 ? 1 : 0;
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

constexpr unsigned kWindowBits = 57;

// How many codes are done singly after one that had to be.
constexpr unsigned kSingleSteps = 8;

// More than is consumed between two looks at the position: a window, and a horizontal mode code with the runs
// that fit another. It is also more than the entries that a step may touch beyond the coding line's end.
constexpr int64_t kStepBits = 128;

// Entries that a step may touch beyond the end of the reference line, and the three that close it.
constexpr uint32_t kStepEntries = 16;

__m128i LoadEntries(const uint32_t* entries) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(entries));
}

// The vector one lane further to the right, with first in the lane that becomes free.
__m128i ShiftIn(uint32_t first, __m128i vector) {
    return _mm_or_si128(_mm_slli_si128(vector, 4), _mm_cvtsi32_si128(static_cast<int>(first)));
}

// A choice that compilers do not turn into a branch: which way it goes is as good as random.
int64_t AllOnesIfNegative(int64_t value) {
    return value >> 63;
}

// The entry before b1, which a search to the left would try; before the first there is none.
uint32_t EntryBefore(const uint32_t* b1, const uint32_t* reference) {
    static constexpr uint32_t kNone = INT32_MAX;
    return *(b1 == reference ? &kNone : b1 - 1);
}

// Writes the changes of a group's codes at next. False where not all of them take their ordinary course.
bool DoGroup(const CodeGroup& group, const uint32_t* b1, const uint32_t* reference, uint32_t a0,
             uint32_t* next) {
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

} // namespace

After DecodeFast(Line& line) {
    // Every entry written has cost a bit: the line cannot reach its limit before this position.
    const int64_t start = line.input.Position();
    const int64_t roomBits = int64_t{line.limit} - line.written;
    const int64_t end = std::min(line.input.PositionLimit(), start + roomBits) - kStepBits;
    if (start < 0 || start >= end || line.referenceEntries > kListEntries - kStepEntries)
        return After::NextCode;

    const uint8_t* const buffer = line.record->Buffer;
    const uint32_t* const reference = line.reference;
    const uint32_t* b1 = reference + line.b1;
    uint32_t* next = line.coding + line.written;
    uint32_t a0 = line.a0;
    uint64_t base = static_cast<uint64_t>(start); // position of the window
    uint64_t window = WindowAt(buffer, base);
    unsigned used = 0; // bits of the window
    unsigned singleSteps = 0;
    After after = After::NextCode;

    for (;;) {
        if (used > kWindowBits - kGroupIndexBits) {
            base += used;
            if (static_cast<int64_t>(base) >= end) [[unlikely]] {
                used = 0;
                break;
            }
            window = WindowAt(buffer, base);
            used = 0;
        }
        const CodeGroup& group = kCodeGroups[window >> (64 - kGroupIndexBits)];
        if (group.mode == Mode::Horizontal) {
            const Colour colour = static_cast<Colour>((b1 - reference) & 1);
            base += used;
            used = 0;
            RunPair runs{};
            if (static_cast<int64_t>(base) >= end ||
                !ReadRunPair(WindowAt(buffer, base) << kHorizontalBits, colour, &runs))
                break;
            const uint32_t a1 = a0 - runs.first;
            const uint32_t a2 = a1 - runs.second;
            if (!LeftOfEdge(a2)) [[unlikely]] {
                if (a2 == 0) {
                    *next++ = a1;
                    used = kHorizontalBits + runs.bits;
                    after = After::LineEnd;
                }
                break;
            }
            base += kHorizontalBits + runs.bits;
            window = WindowAt(buffer, base);
            next[0] = a1;
            next[1] = a2;
            next += 2;
            a0 = a2;
            while (*b1 >= a0)
                b1 += 2;
            continue;
        }
        if (group.mode == Mode::Vertical) {
            if (singleSteps == 0) {
                if (DoGroup(group, b1, reference, a0, next)) [[likely]] {
                    next += group.count;
                    b1 += group.count;
                    used += group.bits;
                    window <<= group.bits;
                    a0 = next[-1];
                    continue;
                }
                singleSteps = kSingleSteps;
            }
            --singleSteps;
        } else if (group.mode != Mode::Pass) {
            break;
        }

        const uint32_t change = b1[group.isPass] + static_cast<uint32_t>(int32_t{group.firstOffset});
        if (change - 1 >= a0) [[unlikely]] {
            if (change == 0) {
                used += group.firstBits;
                after = After::LineEnd;
            }
            break;
        }
        used += group.firstBits;
        window <<= group.firstBits;
        a0 = change;
        *next = change;
        next += 1 - group.isPass;
        // Before the first entry of the list there is none to try.
        const ptrdiff_t step = group.step;
        b1 += step + (AllOnesIfNegative(b1 - reference + step) & 2);
        const int64_t notRight = int64_t{change} + group.leftover;
        b1 += AllOnesIfNegative(notRight - 1 - *b1) & 2;
        while (*b1 >= notRight)
            b1 += 2;
    }

    line.written = static_cast<uint32_t>(next - line.coding);
    line.a0 = a0;
    line.b1 = static_cast<uint32_t>(b1 - reference);
    line.input.MoveTo(base + used);
    return after;
}

uint32_t ReadBlankLines(Line& line, uint32_t most) {
    const int64_t start = line.input.Position();
    const int64_t end = line.input.PositionLimit() - kStepBits;
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
