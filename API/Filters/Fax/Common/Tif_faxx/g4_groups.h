// Several vertical and pass mode codes from one look-up, and where their changing elements are found.
//
// What a1 and the next b1 of a code are depends on how close together the changing elements of the reference
// line lie. As long as they are far apart, b1 moves on by one entry a vertical code. In dithered pictures
// they are not, but nearly all of them belong to dots one pixel wide, and then the moves of b1 follow from
// the codes as well: from b1 at the near edge of a dot, VR1 leaves the whole dot behind, and from the far
// edge VL2 goes back to it. So there are groups for each such spacing. They only guess: whoever uses them
// tests every code against the reference line.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/g4_line.h"

#include <array>

namespace faxx::g4 {

// What lies about b1.
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

// The codes that begin an index, as many as make one course. A horizontal mode code in front has
// kHorizontalCourse, where there is nothing to carry out; codes that are neither, kFailingCourse.
struct alignas(8) CodeGroup {
    uint16_t course;  // index into kCourses, in units of kCourseUnit bytes
    uint8_t length;   // of all codes, in bits
    Spacing after;    // about the b1 that follows
    uint32_t offsets; // of the changes from their entries, as distances: four bits a lane, the last on top
};

// What the codes of a group do, but for the offsets. Entries are counted from the first of those looked at.
// Lanes without a code repeat the last one.
struct alignas(32) Course {
    uint32_t change[kGroupLanes]; // the entry that the change is counted from
    uint32_t nextB1[kGroupLanes]; // must lie right of the change
    uint32_t notYet[kGroupLanes]; // must not: where it may, the entry of its colour before it
    uint32_t order[kGroupLanes];  // the lanes as they are written, passes left out
    int64_t window;               // bytes from b1 to the entries looked at
    int64_t written;              // bytes of all entries written
    int64_t move;                 // of b1, in bytes
};

inline constexpr uint16_t kFailingCourse = 0; // fails in every lane: the change is where the next b1 is
inline constexpr uint16_t kHorizontalCourse = 1;
inline constexpr size_t kCourseUnit = 32;
inline constexpr unsigned kCourseCount = 570;

extern const std::array<CodeGroup, kSpacings << kGroupIndexBits> kCodeGroups;
extern const std::array<Course, kCourseCount> kCourses;

inline const CodeGroup* GroupsFor(Spacing spacing) {
    return kCodeGroups.data() + (static_cast<size_t>(spacing) << kGroupIndexBits);
}

inline const Course& CourseOf(const CodeGroup& group) {
    const char* const courses = reinterpret_cast<const char*>(kCourses.data());
    return *reinterpret_cast<const Course*>(courses + group.course * kCourseUnit);
}

} // namespace faxx::g4
