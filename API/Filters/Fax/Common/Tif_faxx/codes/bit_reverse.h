// Streams whose first pixel stands in a byte's least significant bit are brought into transmission order,
// and out of it, a byte at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace faxx {

inline constexpr std::array<uint8_t, 256> BitReverseTable = [] {
    std::array<uint8_t, 256> table{};
    for (unsigned i = 0; i < 256; ++i)
        for (unsigned bit = 0; bit < 8; ++bit)
            if (i >> bit & 1)
                table[i] |= static_cast<uint8_t>(0x80 >> bit);
    return table;
}();

inline void ReverseBits(uint8_t* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i)
        bytes[i] = BitReverseTable[bytes[i]];
}

} // namespace faxx
