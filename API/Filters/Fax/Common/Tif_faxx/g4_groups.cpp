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

// What a code does, but for its offset.
enum class Step : uint8_t {
    None,
    Right, // of b1, or at it: b1 moves on by one
    Left,
    PastDot, // right, by a whole dot and one
    Back,    // left, and b1 with it
    Pass,
};

constexpr unsigned kSteps = 6;

struct StepEntries {
    int change; // entries from b1 to the one that the change is counted from
    int nextB1;
    int notYet; // one that is known not to lie right of the change, where it must not be tested
};

constexpr StepEntries EntriesOf(Step step) {
    switch (step) {
    case Step::Left:
        return {0, 1, -1};
    case Step::PastDot:
        return {0, 3, 1};
    case Step::Back:
        return {0, -1, -2};
    case Step::Pass:
        return {1, 2, 1};
    case Step::None:
    case Step::Right:
        break;
    }
    return {0, 1, 0};
}

constexpr Step StepOf(ModeCode code, Spacing spacing) {
    if (code.mode == Mode::Pass)
        return Step::Pass;
    const bool after = spacing == Spacing::DotAfter || spacing == Spacing::Narrow;
    const bool before = spacing == Spacing::DotBefore || spacing == Spacing::Narrow;
    if (code.offset <= 0)
        return code.offset < 0 && after ? Step::PastDot : Step::Right;
    return code.offset > 1 && before ? Step::Back : Step::Left;
}

constexpr Spacing SpacingAfter(Spacing spacing, Step step) {
    if (step == Step::Pass || spacing == Spacing::Wide || spacing == Spacing::Narrow)
        return spacing;
    return spacing == Spacing::DotAfter ? Spacing::DotBefore : Spacing::DotAfter;
}

// The steps taken so far.
struct Steps {
    std::array<Step, kGroupLanes> step;
    unsigned count;
    int b1;    // entries from the first b1
    int first; // of all entries looked at
    int last;

    constexpr bool Append(Step next) {
        const StepEntries entries = EntriesOf(next);
        const int from = std::min(first, b1 + std::min(entries.notYet, entries.nextB1));
        const int to = std::max(last, b1 + std::max(entries.change, entries.nextB1));
        if (count == kGroupLanes || to - from >= static_cast<int>(kWindowEntries))
            return false;
        step[count++] = next;
        b1 += entries.nextB1;
        first = from;
        last = to;
        return true;
    }

    constexpr Course Draw() const {
        constexpr int64_t kEntryBytes = sizeof(uint32_t);
        Course course{};
        int at = -first;
        unsigned entries = 0;
        for (unsigned i = 0; i < count; ++i) {
            const StepEntries of = EntriesOf(step[i]);
            for (unsigned lane = i; lane < kGroupLanes; ++lane) {
                course.change[lane] = static_cast<uint32_t>(at + of.change);
                course.nextB1[lane] = static_cast<uint32_t>(at + of.nextB1);
                course.notYet[lane] = static_cast<uint32_t>(at + of.notYet);
            }
            course.order[entries] = i;
            entries += step[i] == Step::Pass ? 0U : 1U;
            at += of.nextB1;
        }
        course.window = first * kEntryBytes;
        course.written = entries * kEntryBytes;
        course.move = b1 * kEntryBytes;
        return course;
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
    unsigned course;
    Steps steps;

    constexpr bool Append(const Code& next) {
        const Step step = StepOf(next.code, spacing);
        if (!steps.Append(step))
            return false;
        const unsigned shift = (steps.count - 1) * kOffsetBits;
        const uint32_t offset = static_cast<uint32_t>(next.code.offset) & kOffsetMask;
        offsets = (offsets & ((1u << shift) - 1)) | offset * (UINT32_MAX / kOffsetMask) << shift;
        bits = bits << next.code.length | next.bits;
        length += next.code.length;
        spacing = SpacingAfter(spacing, step);
        return true;
    }
};

struct Tables {
    std::array<CodeGroup, kSpacings << kGroupIndexBits> groups;
    std::array<Course, kCourseCount> courses;
    std::array<std::array<unsigned, kSteps>, kCourseCount> longer; // the courses with a step more
    unsigned courseCount;

    constexpr unsigned CourseFor(unsigned shorter, const Steps& steps) {
        unsigned& course = longer[shorter][static_cast<unsigned>(steps.step[steps.count - 1])];
        if (course == 0) {
            course = courseCount++;
            courses[course] = steps.Draw();
        }
        return course;
    }

    // Enters the codes at every index that begins with them, and over that all codes that may follow.
    // NOLINTNEXTLINE(misc-no-recursion)
    constexpr void Enter(Spacing start, const Read& read) {
        if (read.length != 0) {
            const unsigned spare = kGroupIndexBits - read.length;
            const size_t course = read.course * (sizeof(Course) / kCourseUnit);
            std::fill_n(groups.begin() + (static_cast<size_t>(start) << kGroupIndexBits) +
                            (read.bits << spare),
                        1u << spare,
                        CodeGroup{static_cast<uint16_t>(course), static_cast<uint8_t>(read.length),
                                  read.spacing, read.offsets});
        }
        for (const Code& code : kGroupedCodes) {
            if (read.length + code.code.length > kGroupIndexBits)
                continue;
            Read more = read;
            if (more.Append(code)) {
                more.course = CourseFor(read.course, more.steps);
                Enter(start, more);
            }
        }
    }
};

constexpr Tables BuildTables() {
    Tables tables{};
    tables.courseCount = 1;
    for (unsigned i = 0; i < kSpacings; ++i) {
        const Spacing spacing = static_cast<Spacing>(i);
        std::fill_n(tables.groups.begin() + (i << kGroupIndexBits) +
                        (1u << (kGroupIndexBits - kHorizontalBits)),
                    1u << (kGroupIndexBits - kHorizontalBits),
                    CodeGroup{kHorizontalCourse, kHorizontalBits, spacing, 0});
        tables.Enter(spacing, {spacing, 0, 0, 0, 0, {}});
    }
    return tables;
}

constexpr Tables kTables = BuildTables();
static_assert(kTables.courseCount == kCourseCount);

} // namespace

constexpr std::array<CodeGroup, kSpacings << kGroupIndexBits> kCodeGroups = kTables.groups;
constexpr std::array<Course, kCourseCount> kCourses = kTables.courses;

} // namespace faxx::g4
