// Where a group's plan is drawn wrong, its codes are done singly and no picture changes: only here does it
// show. Each group is followed code by code over a reference line of the spacing that it is for.
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g4_groups.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace faxx;
using namespace faxx::g4;

constexpr size_t kFirstB1 = 10;

// Change lists about entry 10: dots of one pixel 20 pixels apart that begin or end there, or changes at every
// 20th pixel, or every pixel.
std::vector<uint32_t> ListOf(Spacing spacing) {
    std::vector<uint32_t> list;
    for (uint32_t i = 0; i < 30; ++i) {
        const uint32_t pair = i + (spacing == Spacing::DotBefore ? 1 : 0);
        const bool dots = spacing == Spacing::DotAfter || spacing == Spacing::DotBefore;
        list.push_back(dots ? 1000 - pair / 2 * 20 - pair % 2
                            : 1000 - i * (spacing == Spacing::Wide ? 20 : 1));
    }
    return list;
}

Spacing SpacingAt(const std::vector<uint32_t>& list, size_t b1) {
    return static_cast<Spacing>((list[b1] - list[b1 + 1] == 1) + 2 * (list[b1 - 1] - list[b1] == 1));
}

// The next b1 after a vertical code, the nearest of its colour right of a1 (T.6 § 2.2.1).
size_t SoughtB1(const std::vector<uint32_t>& list, size_t b1, uint32_t a1) {
    size_t next = (b1 + 1) % 2;
    while (list[next] >= a1)
        next += 2;
    return next;
}

class Groups : public testing::TestWithParam<Spacing> {};

TEST_P(Groups, TakeTheCourseThatTheirCodesTake) {
    const std::vector<uint32_t> list = ListOf(GetParam());
    unsigned followed = 0;
    for (unsigned index = 0; index < 1u << kGroupIndexBits; ++index) {
        const CodeGroup& group = GroupsFor(GetParam())[index];
        const ModeCode firstCode = kModeCodes[index >> (kGroupIndexBits - kModeIndexBits)];
        ASSERT_EQ(group.plan == kHorizontalPlan, firstCode.mode == Mode::Horizontal) << index;
        ASSERT_EQ(group.plan == kFailingPlan, firstCode.mode > Mode::Horizontal) << index;
        if (firstCode.mode > Mode::Pass)
            continue;

        const GroupPlan& plan = PlanOf(group);
        const size_t window = kFirstB1 + static_cast<size_t>(plan.window / 4);
        size_t b1 = kFirstB1;
        uint32_t a0 = UINT32_MAX;
        unsigned bits = 0;
        size_t lane = 0;
        std::vector<size_t> written;
        bool ordinary = true;
        for (; bits < group.length; ++lane) {
            const unsigned rest = index << bits & ((1u << kGroupIndexBits) - 1);
            const ModeCode code = kModeCodes[rest >> (kGroupIndexBits - kModeIndexBits)];
            bits += code.length;
            const bool pass = code.mode == Mode::Pass;
            const size_t from = b1 + pass;
            const uint32_t change = list[from] + static_cast<uint32_t>(int32_t{code.offset});
            // Codes that go back, or further than dots reach, are not foreseen.
            if (change > a0 || (GetParam() == Spacing::Narrow && std::abs(code.offset) == 3)) {
                ordinary = false;
                break;
            }
            b1 = pass ? b1 + 2 : SoughtB1(list, b1, change);
            ASSERT_EQ(window + plan.change[lane], from) << index << " lane " << lane;
            ASSERT_EQ(window + plan.nextB1[lane], b1) << index << " lane " << lane;
            ASSERT_GE(list[window + plan.previousB1[lane]], change) << index << " lane " << lane;
            ASSERT_EQ(static_cast<int32_t>(group.offsets << (28 - 4 * lane)) >> 28, code.offset) << index;
            if (!pass)
                written.push_back(lane);
            a0 = change;
        }
        if (!ordinary)
            continue;
        ++followed;
        ASSERT_EQ(bits, group.length) << index;
        ASSERT_EQ(plan.written, static_cast<int64_t>(written.size() * 4)) << index;
        ASSERT_TRUE(std::equal(written.begin(), written.end(), plan.order)) << index;
        ASSERT_EQ(kFirstB1 + static_cast<size_t>(plan.move / 4), b1) << index;
        ASSERT_EQ(group.after, SpacingAt(list, b1)) << index;
        for (; lane < kGroupLanes; ++lane) {
            ASSERT_EQ(plan.change[lane], plan.change[lane - 1]);
            ASSERT_EQ(group.offsets >> 4 * lane & 0xF, group.offsets >> 4 * (lane - 1) & 0xF);
        }
    }
    EXPECT_GT(followed, 2000u);
}

INSTANTIATE_TEST_SUITE_P(OfEverySpacing, Groups,
                         testing::Values(Spacing::Wide, Spacing::DotAfter, Spacing::DotBefore,
                                         Spacing::Narrow));

} // namespace
