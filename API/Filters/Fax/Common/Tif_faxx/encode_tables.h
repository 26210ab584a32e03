// The code words as the line encoders write them.
//
// An entry is code length << 16 | code word, the word left-aligned in 16 bits: its first bit is bit 15. An
// entry of 0 is never written.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/t4_codes.h"

#include <array>

namespace faxx {

constexpr uint32_t PackCode(CodeWord code) {
    return code.length << 16 | code.bits << (16 - code.length);
}

constexpr uint32_t PackCode(std::string_view text) {
    return PackCode(ParseCode(text));
}

constexpr CodeWord UnpackCode(uint32_t entry) {
    const uint32_t length = entry >> 16;
    return {(entry & 0xFFFF) >> (16 - length), length};
}

constexpr CodeWord Joined(CodeWord first, CodeWord second) {
    return {first.bits << second.length | second.bits, first.length + second.length};
}

inline constexpr uint32_t kMakeUpEntries = 40; // run length / 64; 2560 is not in the table

template <Colour colour>
inline constexpr auto kTermCodes = [] {
    std::array<uint32_t, kTerminatingCodes> table{};
    for (uint32_t run = 0; run < table.size(); ++run)
        table[run] = PackCode(RunCode(colour, run));
    return table;
}();

template <Colour colour>
inline constexpr auto kMakeupCodes = [] {
    std::array<uint32_t, kMakeUpEntries> table{};
    for (uint32_t index = 1; index < table.size(); ++index)
        table[index] = PackCode(RunCode(colour, index * 64));
    return table;
}();

// The codes right-aligned, as they go out.
template <Colour colour>
inline constexpr auto kTermWords = [] {
    std::array<CodeWord, kTerminatingCodes> table{};
    for (uint32_t run = 0; run < table.size(); ++run)
        table[run] = RunCode(colour, run);
    return table;
}();

template <Colour colour>
inline constexpr auto kMakeupWords = [] {
    std::array<CodeWord, kMakeUpEntries> table{}; // none for less than 64 pixels
    for (uint32_t index = 1; index < table.size(); ++index)
        table[index] = RunCode(colour, index * 64);
    return table;
}();

// White runs below kLongestCodeRun, the make-up and the terminating code in one.
inline constexpr auto kWhiteRunWords = [] {
    std::array<CodeWord, kLongestCodeRun> table{};
    for (uint32_t run = 0; run < table.size(); ++run)
        table[run] = Joined(kMakeupWords<Colour::White>[run / 64], kTermWords<Colour::White>[run % 64]);
    return table;
}();

inline constexpr const auto& WhiteTermCodes = kTermCodes<Colour::White>;
inline constexpr const auto& BlackTermCodes = kTermCodes<Colour::Black>;
inline constexpr const auto& WhiteMakeupCodes = kMakeupCodes<Colour::White>;
inline constexpr const auto& BlackMakeupCodes = kMakeupCodes<Colour::Black>;

// Indexed by a1 - b1 + 3 in columns: VL3, VL2, VL1, V0, VR1, VR2, VR3 (T.6 table 1).
inline constexpr std::array<uint32_t, 8> VerticalCodes = {
    PackCode("0000010"), PackCode("000010"), PackCode("010"),     PackCode("1"),
    PackCode("011"),     PackCode("000011"), PackCode("0000011"), 0,
};

inline constexpr size_t kV0 = 3;

inline constexpr auto kVerticalWords = [] {
    std::array<CodeWord, 7> words{};
    for (size_t i = 0; i < words.size(); ++i)
        words[i] = UnpackCode(VerticalCodes[i]);
    return words;
}();

inline constexpr uint32_t kLongestRunCode = PackCode(RunCode(Colour::White, kLongestCodeRun));
inline constexpr uint32_t kPassCode = PackCode("0001");
inline constexpr uint32_t kHorizontalCode = PackCode("001");
inline constexpr uint32_t kEolCode = PackCode(kEol);
inline constexpr uint32_t kTagOneDimensional = 1;
inline constexpr uint32_t kTagTwoDimensional = 0;

static_assert(WhiteTermCodes[0] == 0x00083500 && WhiteTermCodes[1] == 0x00061C00);
static_assert(BlackTermCodes[0] == 0x000A0DC0 && BlackTermCodes[2] == 0x0002C000);
static_assert(WhiteMakeupCodes[1] == 0x0005D800 && BlackMakeupCodes[1] == 0x000A03C0);
static_assert(WhiteMakeupCodes[28] == 0x000B0100 && BlackMakeupCodes[39] == 0x000C01E0);
static_assert(VerticalCodes[0] == 0x00070400 && VerticalCodes[6] == 0x00070600);
static_assert(kLongestRunCode == 0x000C01F0 && kEolCode == 0x000C0010);

} // namespace faxx
