// Tables that turn the next bits of a stream into one Modified Huffman code (T.4 § 4.1.2) in one step.
#pragma once

#include <array>
#include <cstdint>

namespace faxx {

// An entry is code length << 12 | run length. Runs of 64 and more are make-up codes: another code of the
// same colour follows. kNoCode, whose length is 0, stands where the first eight bits are zero: an EOL,
// fill, or damage.
inline constexpr uint16_t kNoCode = 0x0FFF;
inline constexpr unsigned kWhiteIndexBits = 12; // the longest white code
inline constexpr unsigned kBlackIndexBits = 13; // the longest black code

extern const std::array<uint16_t, 1 << kWhiteIndexBits> WhiteDecodeTable;
extern const std::array<uint16_t, 1 << kBlackIndexBits> BlackDecodeTable;

constexpr unsigned CodeLength(uint16_t entry) {
    return entry >> 12;
}
constexpr unsigned RunLength(uint16_t entry) {
    return entry & 0x0FFFu;
}

} // namespace faxx
