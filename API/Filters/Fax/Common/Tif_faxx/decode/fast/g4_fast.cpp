// The fast reader of two-dimensional lines.
//
// The plain decoder (g4_decode.cpp) defines what happens for every input. This reader does the same for
// vertical, horizontal and pass modes whose changes lie where a well-formed line has them, in fewer
// instructions, and stops in front of everything else.
//
// - Bits come from a 64-bit window (fast_bits.h).
// - A single code is carried out by arithmetic that is the same for all vertical codes and the pass: there is
//   no branch on the kind of code, which no processor could predict.
// - With AVX2, one table entry holds up to seven vertical and pass codes (g4_groups.h). All of them are
// carried
//   out at once, one in each lane of a vector, and tested at once. If one fails its test, those in front of
//   it are kept and it is read as a single code.
// - The two short runs of a horizontal mode come from one table entry (fast_runs.h).
//
// The state of the loop, in ModeReader:
//   bits    the window and the position. Refill leaves 56 bits or more in it; four codes or groups take no
//           more than that, so there is one refill for four of them. Every position up to bits.endByte can be
//           read without a refill of the record's buffer.
//   b1      points into the reference list; the parity of its index is the colour of a0. The list ends in
//   three
//           zeros and the closing zeros are right of every a0, so that searches for b1 need no bounds test.
//           Codes look at up to kEntriesBehind entries behind the list's end, which the buffer has.
//   next    where the next change is written. A line has room for as many changes as the positions up to
//           bits.endByte have bits, so that there is no test for room either.
//   a0      the last change. With AVX2 it lives in a vector register, where the next group needs it.
//   groups  the table of groups for the spacing of the reference line's changes at b1. A wrong guess costs
//           time, but changes nothing: each lane is tested against the list.
//   after   NextCode until the line is complete.
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g4_fast.h"

#include "API/Filters/Fax/Common/Tif_faxx/base/instruction_sets.h"
#include "API/Filters/Fax/Common/Tif_faxx/bits/fast_bits.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/mode_codes.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/b1_search.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/fast_runs.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g4_groups.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
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
    int8_t b1Move;   // to where the next b1 is sought from
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
        single.b1Move = static_cast<int8_t>(pass ? 2 : code.offset > 0 ? -1 : 1);
        single.entries = !pass;
    }
    return table;
}();

// Entries behind the end of the reference line that a code or group may look at, the three zeros included.
constexpr uint32_t kEntriesBehind = 16;

// Groups and single codes from one refill.
constexpr unsigned kCodesPerRefill = 4;
static_assert(kCodesPerRefill * (kHorizontalBits + kRunIndexBits) <= FastBits::kRefilled);
static_assert(kGroupIndexBits <= kHorizontalBits + kRunIndexBits);
static_assert(int64_t{kCodesPerRefill} * (kHorizontalBits + 2 * kRunIndexBits) <= kFastMargin);

constexpr unsigned kAllLanes = (1u << kGroupLanes) - 1;

// The tables give distances in bytes: there is no scaling between a table entry and the address.
template <typename Entry>
Entry* AdvanceBytes(Entry* entry, int64_t bytes) {
    using Byte = std::conditional_t<std::is_const_v<Entry>, const char, char>;
    return reinterpret_cast<Entry*>(reinterpret_cast<Byte*>(entry) + bytes);
}

inline int64_t BytesBetween(const uint32_t* from, const uint32_t* to) {
    return reinterpret_cast<const char*>(to) - reinterpret_cast<const char*>(from);
}

// The change that was last, a0.
template <InstructionSet set>
struct LastChange {
    uint32_t at;

    explicit LastChange(uint32_t change) : at(change) {}
    uint32_t At() const { return at; }
};

// In the first of eight lanes, where the next group takes it from.
template <>
struct LastChange<InstructionSet::Avx2> {
    __m256i lanes;

    FAXX_AVX2 explicit LastChange(uint32_t change)
        : lanes(_mm256_castsi128_si256(_mm_cvtsi32_si128(static_cast<int>(change)))) {}
    FAXX_AVX2 explicit LastChange(__m256i changes) : lanes(changes) {}
    FAXX_AVX2 uint32_t At() const {
        return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm256_castsi256_si128(lanes)));
    }
};

using LastOfLanes = LastChange<InstructionSet::Avx2>;

// What the codes of a group came to, lane by lane.
struct GroupChanges {
    __m256i before;    // lane by lane, a0 in front of the code
    LastOfLanes after; // a0 behind all codes
    unsigned good;     // a bit for each lane that passed its test

    // The change that was last when the code of a lane came.
    FAXX_AVX2 LastOfLanes Before(unsigned lane) const {
        const __m256i at = _mm256_castsi128_si256(_mm_cvtsi32_si128(static_cast<int>(lane)));
        return LastOfLanes(_mm256_permutevar8x32_epi32(before, at));
    }
};

FAXX_AVX2 inline __m256i LoadLanes(const uint32_t* lanes) {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(lanes));
}

// Carries out a group on the entries that its plan names. A lane passes its test where the change is not left
// of the change before it, the next b1 is right of the change (so the change is left of the edge), and the
// previous entry of that colour is not. Behind a list's zeros there may be anything: a negative next b1 fails
// the test. Writes all lanes at next, also those without a change.
FAXX_AVX2 inline GroupChanges DoGroup(const CodeGroup& group, const GroupPlan& plan, const uint32_t* entries,
                                      LastOfLanes a0, uint32_t* next) {
    __m256i window = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(entries));
    asm("" : "+x"(window)); // loaded once: every other time it lies in two cache lines
    const __m256i offsets =
        _mm256_srai_epi32(_mm256_sllv_epi32(_mm256_set1_epi32(static_cast<int>(group.offsets)),
                                            _mm256_setr_epi32(28, 24, 20, 16, 12, 8, 4, 0)),
                          28);
    const __m256i change =
        _mm256_add_epi32(_mm256_permutevar8x32_epi32(window, LoadLanes(plan.change)), offsets);
    const __m256i nextB1 = _mm256_permutevar8x32_epi32(window, LoadLanes(plan.nextB1));
    const __m256i previousB1 = _mm256_permutevar8x32_epi32(window, LoadLanes(plan.previousB1));
    const __m256i after = _mm256_permutevar8x32_epi32(change, _mm256_setr_epi32(7, 0, 1, 2, 3, 4, 5, 6));
    const __m256i before = _mm256_blend_epi32(after, a0.lanes, 1);
    const __m256i bad =
        _mm256_or_si256(_mm256_sub_epi32(_mm256_min_epu32(before, previousB1), change), nextB1);
    const __m256i good = _mm256_andnot_si256(bad, _mm256_cmpgt_epi32(change, nextB1));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(next),
                        _mm256_permutevar8x32_epi32(change, LoadLanes(plan.order)));
    return {before, LastOfLanes(after), static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(good)))};
}

// The spacing of the changes at b1, which is not the first entry.
inline Spacing SpacingAt(const uint32_t* b1) {
    const bool after = b1[0] - b1[1] == 1;
    const bool before = b1[-1] - b1[0] == 1;
    return static_cast<Spacing>((after ? 1 : 0) + (before ? 2 : 0));
}

// A line in progress, in registers. The functions that read a code return false where the line ends with it,
// or where it is for the plain decoder and was not consumed.
template <InstructionSet set>
struct ModeReader {
    const uint32_t* const reference;
    const uint32_t* b1;
    uint32_t* next;
    LastChange<set> a0;
    FastBits bits;
    const CodeGroup* groups = GroupsFor(Spacing::Wide);
    After after = After::NextCode;

    [[gnu::always_inline]] ModeReader(const Line& line, uint64_t start, uint64_t end)
        : reference(line.reference), b1(line.reference + line.b1), next(line.coding + line.written),
          a0(line.a0), bits(line.record->Buffer, start, end) {}

    // Two runs that one table entry does not hold; the window has 53 bits behind the mode code, refilled.
    [[gnu::always_inline]] bool LongRunPair(const RunLookup& found, uint32_t* a1, uint32_t* a2,
                                            uint32_t* used) {
        const uint32_t from = a0.At();
        const Colour colour = static_cast<Colour>((b1 - reference) & 1);
        bits.Refill();
        const RunLookup& rest = RunLookupsFor(colour)[bits.window << *used >> (64 - kRunIndexBits)];
        if (found.runs == 0 && rest.runs == 2) { // a make-up code, then two short runs: a distant speck
            *a1 = *a2 - rest.first;
            *a2 -= rest.both;
            *used += rest.bits;
            return true;
        }
        *used = kHorizontalBits;
        uint32_t first;
        uint32_t second;
        if (!bits.Inside() || !ReadWindowRun(bits.window, colour, &first, used) ||
            !ReadWindowRun(bits.window, Opposite(colour), &second, used))
            return false;
        *a1 = from - first;
        *a2 = *a1 - second;
        return true;
    }

    [[gnu::always_inline]] bool ReadHorizontal() {
        // The parity of b1's index, from its distance in bytes: one instruction less.
        const size_t odd = static_cast<size_t>(BytesBetween(reference, b1)) / sizeof *b1 % 2;
        const RunLookup& found =
            RunLookupsFor(static_cast<Colour>(odd))[bits.window << kHorizontalBits >> (64 - kRunIndexBits)];
        const uint32_t from = a0.At();
        uint32_t a1 = from - found.first;
        uint32_t a2 = from - found.both;
        uint32_t used = kHorizontalBits + found.bits;
        const bool isLong = found.runs != 2;
        if (isLong && !LongRunPair(found, &a1, &a2, &used)) [[unlikely]]
            return false;
        if (!LeftOfEdge(a2)) [[unlikely]] {
            if (a2 == 0) {
                *next++ = a1;
                bits.Consume(used);
                after = After::LineEnd;
            }
            return false;
        }
        bits.Consume(used);
        if (isLong)
            bits.Refill();
        next[0] = a1;
        next[1] = a2;
        next += 2;
        a0 = LastChange<set>(a2);
        b1 = SeekB1(b1, a2);
        return true;
    }

    // A vertical mode or a pass.
    [[gnu::always_inline]] bool ReadSingle() {
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
        a0 = LastChange<set>(change);
        *next = change;
        next += code.entries;
        if (b1 == reference) [[unlikely]]
            b1 += code.b1Move < 0 ? 2 : 0; // there is no entry before the first
        b1 = SeekB1(b1 + code.b1Move, notRight);
        return true;
    }

    // Keeps the codes of a group in front of the first one that failed its test.
    [[gnu::always_inline]] void KeepPassed(const GroupChanges& changes, const GroupPlan& plan,
                                           const uint32_t* entries) {
        const unsigned passed = static_cast<unsigned>(std::countr_one(changes.good));
        if (passed != 0)
            b1 = entries + plan.nextB1[passed - 1];
        for (unsigned lane = 0; lane < passed; ++lane) {
            const SingleCode& code = kSingleCodes[bits.Top(kModeIndexBits)];
            bits.Consume(code.bits);
            next += code.entries;
        }
        a0 = changes.Before(passed);
    }

    // A group of codes, or the code that it begins with.
    [[gnu::always_inline]] bool ReadGroup() {
        const uint64_t index = bits.Top(kGroupIndexBits);
        const CodeGroup& group = groups[index];
        const unsigned length = groups[SeparateAddress(index)].length;
        const Spacing spacing = groups[SeparateAddress(index)].after;
        if (group.plan == kHorizontalPlan)
            return ReadHorizontal();
        const GroupPlan& plan = PlanOf(group);
        const uint32_t* const entries = AdvanceBytes(b1, plan.window);
        if (entries >= reference) [[likely]] {
            const GroupChanges changes = DoGroup(group, plan, entries, a0, next);
            if (changes.good == kAllLanes) [[likely]] {
                a0 = changes.after;
                next = AdvanceBytes(next, plan.written);
                b1 = AdvanceBytes(b1, plan.move);
                bits.Consume(length);
                groups = GroupsFor(spacing);
                return true;
            }
            KeepPassed(changes, plan, entries);
        }
        if (!ReadSingle())
            return false;
        if (b1 != reference)
            groups = GroupsFor(SpacingAt(b1));
        return true;
    }

    [[gnu::always_inline]] bool ReadNext() {
        if constexpr (set == InstructionSet::Avx2)
            return ReadGroup();
        return kSingleCodes[bits.Top(kModeIndexBits)].mode == Mode::Horizontal ? ReadHorizontal()
                                                                               : ReadSingle();
    }

    [[gnu::always_inline]] void ReadAll() {
        while (bits.Inside()) {
            bits.Refill();
            for (unsigned left = kCodesPerRefill; left != 0; --left)
                if (!ReadNext())
                    return;
        }
    }
};

template <InstructionSet set>
[[gnu::always_inline]] inline After ReadModes(Line& line) {
    const int64_t start = line.input.Position();
    const int64_t end = FastEnd(line.input, line.record, line.limit - line.written);
    if (start < 0 || start >= end || line.referenceEntries > kListEntries - kEntriesBehind)
        return After::NextCode;
    ModeReader<set> reader(line, static_cast<uint64_t>(start), static_cast<uint64_t>(end));
    reader.ReadAll();
    line.written = static_cast<uint32_t>(reader.next - line.coding);
    line.a0 = reader.a0.At();
    line.b1 = static_cast<uint32_t>(reader.b1 - line.reference);
    line.input.MoveTo(reader.bits.Position());
    return reader.after;
}

} // namespace

After ReadModesBaseline(Line& line) {
    return ReadModes<InstructionSet::Baseline>(line);
}

FAXX_AVX2 After ReadModesAvx2(Line& line) {
    return ReadModes<InstructionSet::Avx2>(line);
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
