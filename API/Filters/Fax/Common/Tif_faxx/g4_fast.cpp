// The plain decoder (g4_decode.cpp) defines what happens; this one does the same with less per code, and
// leaves to it everything that is not a vertical, horizontal or pass mode code taking its ordinary course.
//
// - Bits come from a 64-bit window (fast_bits.h).
// - A single code is done without a branch that depends on the kind of vertical code, or on whether it is a
//   pass.
// - Where there are vectors of eight lanes, one look-up gives up to seven vertical codes and passes
//   (g4_groups.h). They are done at once, a lane each, and tested at once. Those in front of one that fails
//   are kept; that one is done singly, and tells what to expect from there on.
// - Two short runs of a horizontal mode come from one look-up.
#include "API/Filters/Fax/Common/Tif_faxx/g4_fast.h"

#include "API/Filters/Fax/Common/Tif_faxx/b1_search.h"
#include "API/Filters/Fax/Common/Tif_faxx/fast_bits.h"
#include "API/Filters/Fax/Common/Tif_faxx/fast_runs.h"
#include "API/Filters/Fax/Common/Tif_faxx/g4_groups.h"
#include "API/Filters/Fax/Common/Tif_faxx/instructions.h"

#include <immintrin.h>

#include <algorithm>
#include <type_traits>

namespace faxx::g4 {
namespace {

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
static_assert(int64_t{kStepsInBlock} * (kHorizontalBits + 2 * kStepIndexBits) <= kFastMargin);

constexpr unsigned kAllLanes = (1u << kGroupLanes) - 1;

// So many bytes further on.
template <typename Entry>
Entry* Bytes(Entry* entry, int64_t bytes) {
    using Byte = std::conditional_t<std::is_const_v<Entry>, const char, char>;
    return reinterpret_cast<Entry*>(reinterpret_cast<Byte*>(entry) + bytes);
}

inline int64_t BytesBetween(const uint32_t* from, const uint32_t* to) {
    return reinterpret_cast<const char*>(to) - reinterpret_cast<const char*>(from);
}

// The change that was last, a0.
template <Form form>
struct LastChange {
    uint32_t at;

    explicit LastChange(uint32_t change) : at(change) {}
    uint32_t At() const { return at; }
};

// In the first of eight lanes, where the next group takes it from.
template <>
struct LastChange<Form::Faster> {
    __m256i lanes;

    FAXX_FASTER_FORM explicit LastChange(uint32_t change)
        : lanes(_mm256_castsi128_si256(_mm_cvtsi32_si128(static_cast<int>(change)))) {}
    FAXX_FASTER_FORM explicit LastChange(__m256i changes) : lanes(changes) {}
    FAXX_FASTER_FORM uint32_t At() const {
        return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm256_castsi256_si128(lanes)));
    }
};

using LastOfLanes = LastChange<Form::Faster>;

// What the codes of a group came to, lane by lane.
struct GroupChanges {
    __m256i before;    // the change that was last when a code came
    LastOfLanes after; // all of them
    unsigned good;     // a bit for each lane that took its course

    // The change that was last when the code of a lane came.
    FAXX_FASTER_FORM LastOfLanes Before(unsigned lane) const {
        const __m256i at = _mm256_castsi128_si256(_mm_cvtsi32_si128(static_cast<int>(lane)));
        return LastOfLanes(_mm256_permutevar8x32_epi32(before, at));
    }
};

FAXX_FASTER_FORM inline __m256i LoadLanes(const uint32_t* lanes) {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(lanes));
}

// Carries out a group, on the entries that its course looks at. A code takes its course where its change is
// not left of the one before, the next b1 right of it, and so left of the edge, and the entry before that of
// the same colour not. What lies behind the zeros of a list may be anything: a negative next b1 is none.
// Changes are written at next, where as many places are touched as there are lanes.
FAXX_FASTER_FORM inline GroupChanges DoGroup(const CodeGroup& group, const Course& course,
                                             const uint32_t* entries, LastOfLanes a0, uint32_t* next) {
    __m256i window = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(entries));
    asm("" : "+x"(window)); // loaded once: every other time it lies in two cache lines
    const __m256i offsets =
        _mm256_srai_epi32(_mm256_sllv_epi32(_mm256_set1_epi32(static_cast<int>(group.offsets)),
                                            _mm256_setr_epi32(28, 24, 20, 16, 12, 8, 4, 0)),
                          28);
    const __m256i change =
        _mm256_add_epi32(_mm256_permutevar8x32_epi32(window, LoadLanes(course.change)), offsets);
    const __m256i nextB1 = _mm256_permutevar8x32_epi32(window, LoadLanes(course.nextB1));
    const __m256i notYet = _mm256_permutevar8x32_epi32(window, LoadLanes(course.notYet));
    const __m256i after = _mm256_permutevar8x32_epi32(change, _mm256_setr_epi32(7, 0, 1, 2, 3, 4, 5, 6));
    const __m256i before = _mm256_blend_epi32(after, a0.lanes, 1);
    const __m256i bad = _mm256_or_si256(_mm256_sub_epi32(_mm256_min_epu32(before, notYet), change), nextB1);
    const __m256i good = _mm256_andnot_si256(bad, _mm256_cmpgt_epi32(change, nextB1));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(next),
                        _mm256_permutevar8x32_epi32(change, LoadLanes(course.order)));
    return {before, LastOfLanes(after), static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(good)))};
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
    const uint32_t* b1 = reference + line.b1;
    uint32_t* next = line.coding + line.written;
    LastChange<form> a0(line.a0);
    FastBits bits(line.record->Buffer, static_cast<uint64_t>(start), static_cast<uint64_t>(end));
    const CodeGroup* groups = GroupsFor(Spacing::Wide);
    After after = After::NextCode;

    // Carry out one code, a step one or a group; false where the line ends with it, or it is for the plain
    // decoder.
    const auto doHorizontal = [&]() __attribute__((always_inline)) {
        // The parity of b1, taken from its distance in bytes: less to do than with entries.
        const size_t odd = static_cast<size_t>(BytesBetween(reference, b1)) / sizeof *b1 % 2;
        const RunStep& step =
            StepsFor(static_cast<Colour>(odd))[bits.window << kHorizontalBits >> (64 - kStepIndexBits)];
        const uint32_t from = a0.At();
        uint32_t a1 = from - step.first;
        uint32_t a2 = from - step.both;
        uint32_t used = kHorizontalBits + step.bits;
        const bool longer = step.runs != 2;
        if (longer) [[unlikely]] {
            const Colour colour = static_cast<Colour>((b1 - reference) & 1);
            bits.Refill();
            const RunStep& rest = StepsFor(colour)[bits.window << used >> (64 - kStepIndexBits)];
            if (step.runs == 0 && rest.runs == 2) { // a make-up code, as it comes with a far speck
                a1 = a2 - rest.first;
                a2 -= rest.both;
                used += rest.bits;
            } else {
                used = kHorizontalBits;
                uint32_t first;
                uint32_t second;
                if (!bits.Inside() || !ReadWindowRun(bits.window, colour, &first, &used) ||
                    !ReadWindowRun(bits.window, Opposite(colour), &second, &used))
                    return false;
                a1 = from - first;
                a2 = a1 - second;
            }
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
        a0 = LastChange<form>(a2);
        b1 = SeekB1(b1, a2);
        return true;
    };
    const auto doSingle = [&]() __attribute__((always_inline)) {
        const SingleCode& code = kSingleCodes[bits.Top(kModeIndexBits)];
        if (code.mode > Mode::Pass) [[unlikely]]
            return false;
        const uint32_t from = b1[code.fromB1];
        const uint32_t change = from + static_cast<uint32_t>(int32_t{code.offset});
        const uint32_t notRight = from + static_cast<uint32_t>(int32_t{code.notRight});
        if (change - 1 >= a0.At()) [[unlikely]] {
            if (change == 0) {
                bits.Consume(code.bits);
                after = After::LineEnd;
            }
            return false;
        }
        bits.Consume(code.bits);
        a0 = LastChange<form>(change);
        *next = change;
        next += code.entries;
        if (b1 == reference) [[unlikely]]
            b1 += code.step < 0 ? 2 : 0; // there is no entry before the first
        b1 = SeekB1(b1 + code.step, notRight);
        return true;
    };

    // Keeps what is in front of the first code of a group that did not take its course.
    const auto keepGood = [&](const auto& changes, const Course& course, const uint32_t* entries)
        __attribute__((always_inline)) {
        const unsigned done = static_cast<unsigned>(std::countr_one(changes.good));
        if (done != 0)
            b1 = entries + course.nextB1[done - 1];
        for (unsigned lane = 0; lane < done; ++lane) {
            const SingleCode& code = kSingleCodes[bits.Top(kModeIndexBits)];
            bits.Consume(code.bits);
            next += code.entries;
        }
        a0 = changes.Before(done);
    };

    const auto doCodes = [&]() __attribute__((always_inline)) {
        while (bits.Inside()) {
            bits.Refill();
            unsigned steps = kStepsInBlock;
            do {
                if constexpr (form == Form::Anywhere) {
                    const Mode mode = kSingleCodes[bits.Top(kModeIndexBits)].mode;
                    if (mode == Mode::Horizontal ? !doHorizontal() : !doSingle())
                        return;
                } else {
                    const uint64_t index = bits.Top(kGroupIndexBits);
                    const CodeGroup& group = groups[index];
                    const unsigned length = groups[Again(index)].length;
                    const Spacing spacing = groups[Again(index)].after;
                    if (group.course == kHorizontalCourse) {
                        if (!doHorizontal())
                            return;
                        continue;
                    }
                    const Course& course = CourseOf(group);
                    const uint32_t* const entries = Bytes(b1, course.window);
                    if (entries >= reference) [[likely]] {
                        const GroupChanges changes = DoGroup(group, course, entries, a0, next);
                        if (changes.good == kAllLanes) [[likely]] {
                            a0 = changes.after;
                            next = Bytes(next, course.written);
                            b1 = Bytes(b1, course.move);
                            bits.Consume(length);
                            groups = GroupsFor(spacing);
                            continue;
                        }
                        keepGood(changes, course, entries);
                    }
                    if (!doSingle())
                        return;
                    if (b1 != reference)
                        groups = GroupsFor(SpacingAt(b1));
                }
            } while (--steps != 0);
        }
    };
    doCodes();

    line.written = static_cast<uint32_t>(next - line.coding);
    line.a0 = a0.At();
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

static const auto kDecodeFast = ChooseForm(DecodeFastAnywhere, DecodeFastFaster);

After DecodeFast(Line& line) {
    return kDecodeFast(line);
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
