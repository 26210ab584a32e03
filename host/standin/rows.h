// Run-length rows and packed rows, one row at a time.
//
// A run-length row is a 32-bit count in two 16-bit words and that many 16-bit runs, white first; a run
// of 65535 pixels or more is cut into pieces of 65534 joined by empty runs of the other colour.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace standin {

inline constexpr uint32_t kMaxRun = 65534;
inline constexpr size_t kRowHeaderWords = 2;

inline uint32_t RunCount(const unsigned short* row) {
    uint32_t count;
    std::memcpy(&count, row, sizeof count);
    return count;
}

inline size_t PackedRowBytes(size_t width) {
    return (width + 7) / 8;
}

// Sets the pixels first <= x < last of a packed row.
inline void FillBlack(unsigned char* packed, size_t first, size_t last) {
    if (first >= last)
        return;
    const size_t firstByte = first / 8;
    const size_t lastByte = last / 8;
    const auto head = static_cast<unsigned char>(0xFF >> (first % 8));
    const auto tail = static_cast<unsigned char>(~(0xFF >> (last % 8)));
    if (firstByte == lastByte) {
        packed[firstByte] |= head & tail;
        return;
    }
    packed[firstByte] |= head;
    std::memset(packed + firstByte + 1, 0xFF, lastByte - firstByte - 1);
    if (tail != 0)
        packed[lastByte] |= tail;
}

// Writes the row's first width pixels as a packed row of PackedRowBytes(width) bytes, a set bit for
// black. Runs beyond the width are cut off, missing pixels and the last byte's padding are 0. Returns
// where the next row starts.
const unsigned short* ExpandRow(const unsigned short* row, unsigned char* packed, size_t width);

// Writes the packed row as a run-length row; at most width + 3 words, 3 for a width of 0. Returns the
// word behind it.
unsigned short* CompressRow(const unsigned char* packed, size_t width, unsigned short* row);

// Writes the row's left-to-right mirror image, at most one word longer. Returns the word behind it.
unsigned short* MirrorRow(const unsigned short* row, unsigned short* mirrored);

} // namespace standin
