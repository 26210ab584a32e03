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
#include "API/Filters/Fax/Common/Tif_faxx/g4_groups.h"
#include "API/Filters/Fax/Common/Tif_faxx/instructions.h"

#include <immintrin.h>

#include <algorithm>

namespace faxx::g4 {
namespace {

constexpr unsigned kHorizontalBits = 3;

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

// Groups and single codes from one refill.
constexpr unsigned kStepsInBlock = 4;
static_assert(kStepsInBlock * (kHorizontalBits + kStepIndexBits) <= FastBits::kRefilled);
static_assert(kGroupIndexBits <= kHorizontalBits + kStepIndexBits);

constexpr unsigned kAllLanes = (1u << kGroupLanes) - 1;

// Negative where a code does not take its course: its change must not be left of the one before, the next b1
// right of it, and so left of the edge, the entry before that of the same colour not.
constexpr uint32_t OffCourse(uint32_t change, uint32_t before, uint32_t nextB1, uint32_t notYet) {
    return (std::min(before, notYet) - change) | ~(nextB1 - change) | nextB1;
}

// The change that was last, for the group that comes next.
template <Form form>
struct LastChange {
    uint32_t a0;

    explicit LastChange(uint32_t change) : a0(change) {}
    uint32_t A0() const { return a0; }
};

template <>
struct LastChange<Form::Faster> {
    __m128i lanes; // the last of them

    FAXX_FASTER_FORM explicit LastChange(uint32_t change) : lanes(_mm_set1_epi32(static_cast<int>(change))) {}
    FAXX_FASTER_FORM explicit LastChange(__m128i changes) : lanes(changes) {}
    FAXX_FASTER_FORM uint32_t A0() const { return static_cast<uint32_t>(_mm_extract_epi32(lanes, 3)); }
};

// Carries out a group: its changes are written at next, where as many places are touched as there are lanes.
// Returns a bit for each lane that takes its course; where these are not all, last stays.
template <Form form>
[[gnu::always_inline]] inline unsigned DoGroup(const Course& course, const uint32_t* b1, uint32_t* next,
                                               LastChange<form>& last) {
    const uint32_t* const window = b1 - kBeforeB1;
    uint32_t changes[kGroupLanes];
    unsigned bad = 0;
    for (unsigned lane = 0; lane < kGroupLanes; ++lane) {
        const uint32_t before = lane == 0 ? last.a0 : changes[lane - 1];
        changes[lane] = window[course.change[lane]] + static_cast<uint32_t>(course.offset[lane]);
        bad |= OffCourse(changes[lane], before, window[course.nextB1[lane]], window[course.notYet[lane]]) >>
               31 << lane;
    }
    for (unsigned lane = 0; lane < kGroupLanes; ++lane)
        next[lane] = changes[course.order[lane]];
    if (bad == 0)
        last.a0 = changes[kGroupLanes - 1];
    return bad ^ kAllLanes;
}

template <>
FAXX_FASTER_FORM inline unsigned DoGroup<Form::Faster>(const Course& course, const uint32_t* b1,
                                                       uint32_t* next, LastChange<Form::Faster>& last) {
    const auto load = [](const void* at) __attribute__((always_inline)) {
        return _mm_load_si128(static_cast<const __m128i*>(at));
    };
    const __m256i window = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b1 - kBeforeB1));
    const __m256i both = _mm256_permutevar8x32_epi32(
        window, _mm256_load_si256(reinterpret_cast<const __m256i*>(course.change)));
    const __m128i notYet = _mm256_castsi256_si128(
        _mm256_permutevar8x32_epi32(window, _mm256_castsi128_si256(load(course.notYet))));
    const __m128i change = _mm_add_epi32(_mm256_castsi256_si128(both), load(course.offset));
    const __m128i nextB1 = _mm256_extracti128_si256(both, 1);
    const __m128i before = _mm_alignr_epi8(change, last.lanes, 12);
    const __m128i left = _mm_or_si128(_mm_sub_epi32(_mm_min_epu32(before, notYet), change), nextB1);
    const __m128i right = _mm_andnot_si128(left, _mm_sub_epi32(nextB1, change));
    _mm_storeu_ps(reinterpret_cast<float*>(next),
                  _mm_permutevar_ps(_mm_castsi128_ps(change), load(course.order)));
    const unsigned good = static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(right)));
    if (good == kAllLanes)
        last.lanes = change;
    return good;
}

// The spacing about b1, which is not the first entry.
inline Spacing SpacingAt(const uint32_t* b1) {
    const bool after = b1[0] - b1[1] == 1;
    const bool before = b1[-1] - b1[0] == 1;
    return static_cast<Spacing>((after ? 1 : 0) + (before ? 2 : 0));
}

template <Form form>
[[gnu::always_inline]] inline After Decode(Line& line) {
    const int64_t start = line.input.Position();
    const int64_t end = FastEnd(line.input, line.record, line.limit - line.written);
    if (start < 0 || start >= end || line.referenceEntries > kListEntries - kStepEntries)
        return After::NextCode;

    const uint32_t* const reference = line.reference;
    const uint32_t* const firstB1 = reference + kBeforeB1;
    const uint32_t* b1 = reference + line.b1;
    uint32_t* next = line.coding + line.written;
    LastChange<form> last(line.a0);
    FastBits bits(line.record->Buffer, static_cast<uint64_t>(start), static_cast<uint64_t>(end));
    const CodeGroup* groups = GroupsFor(Spacing::Wide);
    After after = After::NextCode;

    // Carry out one code; false where the line ends with it, or it is for the plain decoder.
    const auto doHorizontal = [&]() __attribute__((always_inline)) {
        const uint32_t a0 = last.A0();
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
        last = LastChange<form>(a2);
        b1 = SeekB1(b1, a2);
        return true;
    };
    const auto doSingle = [&]() __attribute__((always_inline)) {
        const SingleCode& code = kSingleCodes[bits.Top(kModeIndexBits)];
        const uint32_t from = b1[code.fromB1];
        const uint32_t change = from + static_cast<uint32_t>(int32_t{code.offset});
        const uint32_t notRight = from + static_cast<uint32_t>(int32_t{code.notRight});
        if (change - 1 >= last.A0()) [[unlikely]] {
            if (change == 0) {
                bits.Consume(code.bits);
                after = After::LineEnd;
            }
            return false;
        }
        bits.Consume(code.bits);
        last = LastChange<form>(change);
        *next = change;
        next += code.entries;
        if (b1 == reference) [[unlikely]]
            b1 += code.step < 0 ? 2 : 0; // there is no entry before the first
        b1 = SeekB1(b1 + code.step, notRight);
        return true;
    };

    while (bits.Inside()) {
        bits.Refill();
        unsigned steps = kStepsInBlock;
        do {
            const CodeGroup group = groups[bits.Top(kGroupIndexBits)];
            if (group.course == kNoCourse) {
                if (LengthOf(group) != kHorizontalBits || !doHorizontal())
                    goto done;
                continue;
            }
            unsigned singles = 1;
            if (b1 >= firstB1) [[likely]] {
                const Course& course = CourseOf(group);
                const unsigned good = DoGroup<form>(course, b1, next, last);
                if (good == kAllLanes) [[likely]] {
                    next += course.entries;
                    b1 += course.move;
                    bits.Consume(LengthOf(group));
                    groups = GroupsAfter(group);
                    continue;
                }
                singles += static_cast<unsigned>(std::countr_one(good));
            }
            for (; singles != 0; --singles)
                if (!doSingle())
                    goto done;
            if (b1 != reference)
                groups = GroupsFor(SpacingAt(b1));
        } while (--steps != 0);
    }

done:
    line.written = static_cast<uint32_t>(next - line.coding);
    line.a0 = last.A0();
    line.b1 = static_cast<uint32_t>(b1 - reference);
    line.input.MoveTo(bits.Position());
    return after;
}

} // namespace

After DecodeFastAnywhere(Line& line) {
    return Decode<Form::Anywhere>(line);
}

FAXX_FASTER_FORM After DecodeFastFaster(Line& line) {
    return Decode<Form::Faster>(line);
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
