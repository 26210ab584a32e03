// The run codes as the line encoders write them.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/codes/t4_codes.h"

#include <array>

namespace faxx {

constexpr CodeWord Joined(CodeWord first, CodeWord second) {
    return {first.bits << second.length | second.bits, first.length + second.length};
}

inline constexpr uint32_t kMakeUpEntries = 40; // run length / 64; 2560 is not in the table

template <Colour colour>
inline constexpr auto TermCodes = [] {
    std::array<CodeWord, kTerminatingCodes> table{};
    for (uint32_t run = 0; run < table.size(); ++run)
        table[run] = RunCode(colour, run);
    return table;
}();

template <Colour colour>
inline constexpr auto MakeupCodes = [] {
    std::array<CodeWord, kMakeUpEntries> table{}; // none for less than 64 pixels
    for (uint32_t index = 1; index < table.size(); ++index)
        table[index] = RunCode(colour, index * 64);
    return table;
}();

// White runs below kLongestCodeRun, the make-up and the terminating code in one.
inline constexpr auto kWhiteRunCodes = [] {
    std::array<CodeWord, kLongestCodeRun> table{};
    for (uint32_t run = 0; run < table.size(); ++run)
        table[run] = Joined(MakeupCodes<Colour::White>[run / 64], TermCodes<Colour::White>[run % 64]);
    return table;
}();

inline constexpr uint32_t kTagOneDimensional = 1;
inline constexpr uint32_t kTagTwoDimensional = 0;
inline constexpr CodeWord kLongestRunCode = RunCode(Colour::White, kLongestCodeRun); // of both colours

} // namespace faxx
