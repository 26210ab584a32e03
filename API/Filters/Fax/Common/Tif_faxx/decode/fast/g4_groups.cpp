#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g4_groups.h"

#include <algorithm>

namespace faxx::g4 {
namespace {

struct Code {
    unsigned bits;
    ModeCode code;
};

// The vertical mode codes and the pass.
constexpr auto kGroupedCodes = [] {
    std::array<Code, 8> codes{};
    size_t next = 0;
    for (unsigned index = 0; index < kModeCodes.size(); ++index) {
        const ModeCode code = kModeCodes[index];
        const unsigned spare = kModeIndexBits - code.length;
        if (code.mode <= Mode::Pass && (index & ((1u << spare) - 1)) == 0)
            codes[next++] = {index >> spare, code};
    }
    return codes;
}();

// What a code does, but for its offset.
enum class Move : uint8_t {
    None,
    Right, // of b1, or at it: b1 moves on by one
    Left,
    PastDot, // right, by a whole dot and one
    Back,    // left, and b1 with it
    Pass,
};

constexpr unsigned kMoves = 6;

struct MoveEntries {
    int change; // entries from b1 to the one that the change is counted from
    int nextB1;
    int previousB1; // where it needs no test: an entry that is never right of the change
};

constexpr MoveEntries EntriesOf(Move move) {
    switch (move) {
    case Move::Left:
        return {0, 1, -1};
    case Move::PastDot:
        return {0, 3, 1};
    case Move::Back:
        return {0, -1, -2};
    case Move::Pass:
        return {1, 2, 1};
    case Move::None:
    case Move::Right:
        break;
    }
    return {0, 1, 0};
}

constexpr Move MoveOf(ModeCode code, Spacing spacing) {
    if (code.mode == Mode::Pass)
        return Move::Pass;
    const bool after = spacing == Spacing::DotAfter || spacing == Spacing::Narrow;
    const bool before = spacing == Spacing::DotBefore || spacing == Spacing::Narrow;
    if (code.offset <= 0)
        return code.offset < 0 && after ? Move::PastDot : Move::Right;
    return code.offset > 1 && before ? Move::Back : Move::Left;
}

constexpr Spacing SpacingAfter(Spacing spacing, Move move) {
    if (move == Move::Pass || spacing == Spacing::Wide || spacing == Spacing::Narrow)
        return spacing;
    return spacing == Spacing::DotAfter ? Spacing::DotBefore : Spacing::DotAfter;
}

// The moves taken so far.
struct Moves {
    std::array<Move, kGroupLanes> move;
    unsigned count;
    int b1;    // entries from the first b1
    int first; // of all entries looked at
    int last;

    constexpr bool Append(Move next) {
        const MoveEntries entries = EntriesOf(next);
        const int from = std::min(first, b1 + std::min(entries.previousB1, entries.nextB1));
        const int to = std::max(last, b1 + std::max(entries.change, entries.nextB1));
        if (count == kGroupLanes || to - from >= static_cast<int>(kWindowEntries))
            return false;
        move[count++] = next;
        b1 += entries.nextB1;
        first = from;
        last = to;
        return true;
    }

    constexpr GroupPlan MakePlan() const {
        constexpr int64_t kEntryBytes = sizeof(uint32_t);
        GroupPlan plan{};
        int at = -first;
        unsigned entries = 0;
        for (unsigned i = 0; i < count; ++i) {
            const MoveEntries of = EntriesOf(move[i]);
            for (unsigned lane = i; lane < kGroupLanes; ++lane) {
                plan.change[lane] = static_cast<uint32_t>(at + of.change);
                plan.nextB1[lane] = static_cast<uint32_t>(at + of.nextB1);
                plan.previousB1[lane] = static_cast<uint32_t>(at + of.previousB1);
            }
            plan.order[entries] = i;
            entries += move[i] == Move::Pass ? 0U : 1U;
            at += of.nextB1;
        }
        plan.window = first * kEntryBytes;
        plan.written = entries * kEntryBytes;
        plan.move = b1 * kEntryBytes;
        return plan;
    }
};

constexpr unsigned kOffsetBits = 32 / kGroupLanes;
constexpr uint32_t kOffsetMask = (1u << kOffsetBits) - 1;

// The codes read so far.
struct Read {
    Spacing spacing;
    unsigned bits;
    unsigned length;
    uint32_t offsets;
    unsigned plan;
    Moves moves;

    constexpr bool Append(const Code& next) {
        const Move move = MoveOf(next.code, spacing);
        if (!moves.Append(move))
            return false;
        const unsigned shift = (moves.count - 1) * kOffsetBits;
        const uint32_t offset = static_cast<uint32_t>(next.code.offset) & kOffsetMask;
        offsets = (offsets & ((1u << shift) - 1)) | offset * (UINT32_MAX / kOffsetMask) << shift;
        bits = bits << next.code.length | next.bits;
        length += next.code.length;
        spacing = SpacingAfter(spacing, move);
        return true;
    }
};

struct Tables {
    std::array<CodeGroup, kSpacings << kGroupIndexBits> groups;
    std::array<GroupPlan, kPlanCount> plans;
    std::array<std::array<unsigned, kMoves>, kPlanCount> longer; // the plans with a move more
    unsigned planCount;

    constexpr unsigned PlanFor(unsigned shorter, const Moves& moves) {
        unsigned& plan = longer[shorter][static_cast<unsigned>(moves.move[moves.count - 1])];
        if (plan == 0) {
            plan = planCount++;
            plans[plan] = moves.MakePlan();
        }
        return plan;
    }

    // Enters the codes at every index that begins with them, and over that all codes that may follow.
    // NOLINTNEXTLINE(misc-no-recursion)
    constexpr void Enter(Spacing start, const Read& read) {
        if (read.length != 0) {
            const unsigned spare = kGroupIndexBits - read.length;
            const size_t plan = read.plan * (sizeof(GroupPlan) / kPlanUnit);
            std::fill_n(groups.begin() + (static_cast<size_t>(start) << kGroupIndexBits) +
                            (read.bits << spare),
                        1u << spare,
                        CodeGroup{static_cast<uint16_t>(plan), static_cast<uint8_t>(read.length),
                                  read.spacing, read.offsets});
        }
        for (const Code& code : kGroupedCodes) {
            if (read.length + code.code.length > kGroupIndexBits)
                continue;
            Read more = read;
            if (more.Append(code)) {
                more.plan = PlanFor(read.plan, more.moves);
                Enter(start, more);
            }
        }
    }
};

constexpr Tables BuildTables() {
    Tables tables{};
    tables.planCount = 1;
    for (unsigned i = 0; i < kSpacings; ++i) {
        const Spacing spacing = static_cast<Spacing>(i);
        std::fill_n(tables.groups.begin() + (i << kGroupIndexBits) +
                        (1u << (kGroupIndexBits - kHorizontalBits)),
                    1u << (kGroupIndexBits - kHorizontalBits),
                    CodeGroup{kHorizontalPlan, kHorizontalBits, spacing, 0});
        tables.Enter(spacing, {spacing, 0, 0, 0, 0, {}});
    }
    return tables;
}

constexpr Tables kTables = BuildTables();
static_assert(kTables.planCount == kPlanCount);

} // namespace

constexpr std::array<CodeGroup, kSpacings << kGroupIndexBits> kCodeGroups = kTables.groups;
constexpr std::array<GroupPlan, kPlanCount> kGroupPlans = kTables.plans;

} // namespace faxx::g4
