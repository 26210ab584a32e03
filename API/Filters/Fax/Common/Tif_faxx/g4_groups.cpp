#include "API/Filters/Fax/Common/Tif_faxx/g4_groups.h"

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

// How many entries a code moves b1 on.
constexpr int MoveOf(ModeCode code, Spacing spacing) {
    if (code.mode == Mode::Pass)
        return 2;
    if (code.offset < 0 && (spacing == Spacing::DotAfter || spacing == Spacing::Narrow))
        return 3;
    return code.offset > 1 && (spacing == Spacing::DotBefore || spacing == Spacing::Narrow) ? -1 : 1;
}

constexpr Spacing SpacingAfter(Spacing spacing, int move) {
    if (move % 2 == 0 || spacing == Spacing::Wide || spacing == Spacing::Narrow)
        return spacing;
    return spacing == Spacing::DotAfter ? Spacing::DotBefore : Spacing::DotAfter;
}

// The codes read so far.
struct Read {
    Spacing spacing;
    unsigned codes;
    unsigned bits;
    unsigned length;
    Course course;

    constexpr bool Append(const Code& next) {
        const int move = MoveOf(next.code, spacing);
        const int b1 = static_cast<int>(kBeforeB1 + course.move);
        if (codes == kGroupLanes || length + next.code.length > kGroupIndexBits || b1 + move < 1 ||
            b1 + move >= static_cast<int>(kWindowEntries))
            return false;
        const bool pass = next.code.mode == Mode::Pass;
        for (unsigned lane = codes; lane < kGroupLanes; ++lane) {
            course.change[lane] = static_cast<uint32_t>(b1 + pass);
            course.nextB1[lane] = static_cast<uint32_t>(b1 + move);
            // Back from the first b1 there is nothing to be tested.
            course.notYet[lane] = static_cast<uint32_t>(std::max(b1 + move - 2, 0));
            course.offset[lane] = next.code.offset;
        }
        course.order[course.entries] = codes;
        course.order[kGroupLanes - 1] = codes;
        course.entries += pass ? 0 : 1;
        course.move += move;
        ++codes;
        bits = bits << next.code.length | next.bits;
        length += next.code.length;
        spacing = SpacingAfter(spacing, move);
        return true;
    }
};

constexpr CodeGroup Group(unsigned course, unsigned length, Spacing after) {
    const size_t bytes = (static_cast<size_t>(after) << kGroupIndexBits) * sizeof(CodeGroup);
    return {static_cast<uint16_t>(course), static_cast<uint16_t>(bytes | length)};
}

struct Tables {
    std::array<CodeGroup, kSpacings << kGroupIndexBits> groups;
    std::array<Course, kCourseCount> courses;
    unsigned courseCount;

    // Enters the codes at every index that begins with them, and over that all codes that may follow.
    // NOLINTNEXTLINE(misc-no-recursion)
    constexpr void Enter(Spacing start, const Read& read) {
        if (read.codes != 0) {
            const unsigned spare = kGroupIndexBits - read.length;
            std::fill_n(groups.begin() + (static_cast<size_t>(start) << kGroupIndexBits) +
                            (read.bits << spare),
                        1u << spare, Group(courseCount * kCourseUnits, read.length, read.spacing));
            courses[courseCount++] = read.course;
        }
        for (const Code& code : kGroupedCodes) {
            Read longer = read;
            if (longer.Append(code))
                Enter(start, longer);
        }
    }
};

constexpr Tables BuildTables() {
    Tables tables{};
    tables.courseCount = kNoCourse + 1;
    for (unsigned i = 0; i < kSpacings; ++i) {
        const Spacing spacing = static_cast<Spacing>(i);
        for (unsigned index = 0; index < 1u << kGroupIndexBits; ++index) {
            const ModeCode code = kModeCodes[index >> (kGroupIndexBits - kModeIndexBits)];
            if (code.mode == Mode::Horizontal)
                tables.groups[(i << kGroupIndexBits) + index] = Group(kNoCourse, code.length, spacing);
        }
        tables.Enter(spacing, {spacing, 0, 0, 0, {}});
    }
    return tables;
}

constexpr Tables kTables = BuildTables();
static_assert(kTables.courseCount == kCourseCount);

} // namespace

constexpr std::array<CodeGroup, kSpacings << kGroupIndexBits> kCodeGroups = kTables.groups;
constexpr std::array<Course, kCourseCount> kCourses = kTables.courses;

} // namespace faxx::g4
