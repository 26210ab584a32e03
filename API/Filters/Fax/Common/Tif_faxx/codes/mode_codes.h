// The mode codes of two-dimensional lines (T.6 table 1), written once: the decoding and the encoding tables
// are both generated from this list.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/codes/t4_codes.h"

#include <array>

namespace faxx {

enum class Mode : uint8_t { Vertical, Pass, Horizontal, Extension, Zeros };

struct ModeWord {
    Mode mode;
    int8_t offset; // vertical modes: of a1 from b1 as distances, positive to the left
    std::string_view text;
};

inline constexpr ModeWord kModeWords[] = {
    {Mode::Vertical, 3, "0000010"},  {Mode::Vertical, 2, "000010"}, {Mode::Vertical, 1, "010"},
    {Mode::Vertical, 0, "1"},        {Mode::Vertical, -1, "011"},   {Mode::Vertical, -2, "000011"},
    {Mode::Vertical, -3, "0000011"}, {Mode::Pass, 0, "0001"},       {Mode::Horizontal, 0, "001"},
    {Mode::Extension, 0, "0000001"}, {Mode::Zeros, 0, "0000000"}, // an EOFB or damage
};

constexpr CodeWord CodeOf(Mode mode, int offset = 0) {
    for (const ModeWord& word : kModeWords)
        if (word.mode == mode && word.offset == offset)
            return ParseCode(word.text);
    return {0, 0};
}

// Decoding.

struct ModeCode {
    Mode mode;
    uint8_t length;
    int8_t offset; // as in ModeWord
};

inline constexpr unsigned kModeIndexBits = 7; // the longest code

// Indexed by the next seven bits.
inline constexpr auto kModeCodes = [] {
    std::array<ModeCode, 1 << kModeIndexBits> table{};
    for (const ModeWord& word : kModeWords) {
        const CodeWord code = ParseCode(word.text);
        const unsigned spare = kModeIndexBits - code.length;
        for (unsigned i = 0; i < 1u << spare; ++i)
            table[(code.bits << spare) + i] = {word.mode, static_cast<uint8_t>(code.length), word.offset};
    }
    return table;
}();

// Encoding.

inline constexpr CodeWord kPassCode = CodeOf(Mode::Pass);
inline constexpr CodeWord kHorizontalCode = CodeOf(Mode::Horizontal);
inline constexpr CodeWord kV0Code = CodeOf(Mode::Vertical, 0);

// Indexed by a1 - b1 + 3 in columns: VL3, VL2, VL1, V0, VR1, VR2, VR3.
inline constexpr auto VerticalCodes = [] {
    std::array<CodeWord, 7> codes{};
    for (size_t i = 0; i < codes.size(); ++i)
        codes[i] = CodeOf(Mode::Vertical, 3 - static_cast<int>(i));
    return codes;
}();

} // namespace faxx
