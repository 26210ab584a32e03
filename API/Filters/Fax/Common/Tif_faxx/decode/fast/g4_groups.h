// Several vertical and pass mode codes in one table entry, with the entries of the reference line that they
// look at.
//
// Which entry is the next b1 depends on how close together the changing elements of the reference line are.
// As long as they are far apart, b1 advances by one entry for each vertical code. In dithered pictures they
// are close, but nearly all of them belong to dots one pixel wide, and then the moves of b1 follow from the
// codes as well: with b1 at the left edge of a dot, VR1 moves b1 past the whole dot, and with b1 at its right
// edge, VL2 moves b1 back to the left edge. So there are groups for each such spacing. They are predictions:
// their user tests every code against the reference line.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/codes/mode_codes.h"

#include <array>

namespace faxx::g4 {

// How close the changing elements next to b1 are.
enum class Spacing : uint8_t {
    Wide,      // no other changing element near
    DotAfter,  // one a pixel after it, none near before it
    DotBefore, // the other way round
    Narrow,    // one a pixel before it and one a pixel after it, and so on
};

inline constexpr unsigned kHorizontalBits = 3; // of the mode code, 001
inline constexpr unsigned kSpacings = 4;
inline constexpr unsigned kGroupLanes = 8;
inline constexpr unsigned kGroupIndexBits = 12;

// Groups look at so many entries of the reference line.
inline constexpr unsigned kWindowEntries = 8;

// The codes that an index begins with, as many as one plan holds. Where a horizontal mode code comes first
// the plan is kHorizontalPlan, which has nothing to carry out; where any other code does, kFailingPlan.
struct alignas(8) CodeGroup {
    uint16_t plan;  // its place in kGroupPlans, in units of kPlanUnit bytes
    uint8_t length; // of all codes, in bits
    Spacing after;  // at the next b1
    uint32_t
        offsets; // of the changes from their entries, as distances: four bits a lane, the last lane on top
};

// What the codes of a group do, but for the offsets. Entries are counted from the first of those looked at.
// Lanes without a code repeat the last one.
struct alignas(32) GroupPlan {
    uint32_t change[kGroupLanes];     // the entry that the change is counted from
    uint32_t nextB1[kGroupLanes];     // must be right of the change
    uint32_t previousB1[kGroupLanes]; // the entry of that colour before it, which must not be
    uint32_t order[kGroupLanes];      // the lanes as they are written, passes left out
    int64_t window;                   // bytes from b1 to the first of the entries
    int64_t written;                  // bytes of the changes that are written
    int64_t move;                     // bytes that b1 advances by
};

inline constexpr uint16_t kFailingPlan = 0; // fails in every lane: the change is where the next b1 is
inline constexpr uint16_t kHorizontalPlan = 1;
inline constexpr size_t kPlanUnit = 32;
inline constexpr unsigned kPlanCount = 570;

extern const std::array<CodeGroup, kSpacings << kGroupIndexBits> kCodeGroups;
extern const std::array<GroupPlan, kPlanCount> kGroupPlans;

inline const CodeGroup* GroupsFor(Spacing spacing) {
    return kCodeGroups.data() + (static_cast<size_t>(spacing) << kGroupIndexBits);
}

inline const GroupPlan& PlanOf(const CodeGroup& group) {
    const char* const plans = reinterpret_cast<const char*>(kGroupPlans.data());
    return *reinterpret_cast<const GroupPlan*>(plans + group.plan * kPlanUnit);
}

} // namespace faxx::g4
