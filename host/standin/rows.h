// Run-length rows and packed rows, one row at a time.
//
// A run-length row is a 32-bit count in two 16-bit words and that many 16-bit runs, white first; a run
// of 65535 pixels or more is cut into pieces of 65534 joined by empty runs of the other colour.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace standin {

inline constexpr uint32_t MAX_RUN = 65534;
inline constexpr size_t ROW_HEADER_WORDS = 2;

inline uint32_t RunCount(const unsigned short* row) {
    uint32_t count;
    std::memcpy(&count, row, sizeof count);
    return count;
}

inline size_t PackedRowBytes(size_t width) {
    return (width + 7) / 8;
}

// Writes the row's first width pixels as a packed row of PackedRowBytes(width) bytes, a set bit for
// black. Runs beyond the width are cut off, missing pixels and the last byte's padding are 0. Returns
// where the next row starts.
const unsigned short* ExpandRow(const unsigned short* row, unsigned char* packed, size_t width);

// Writes the packed row as a run-length row; at most width + 3 words, 3 for a width of 0. Returns the
// word behind it.
unsigned short* CompressRow(const unsigned char* packed, size_t width, unsigned short* row);

// Bytes behind a row that CopyRow may read and write, whatever is in them.
inline constexpr size_t ROW_SLACK = 127;

// Copies a packed row of so many bytes, and up to ROW_SLACK behind it. What was just copied can be read by
// vectors without waiting: the pieces are whole vectors, and none is stored over a part of another.
void CopyRow(unsigned char* target, const unsigned char* source, size_t bytes);

// Writes the row's left-to-right mirror image, at most one word longer. Returns the word behind it.
unsigned short* MirrorRow(const unsigned short* row, unsigned short* mirrored);

} // namespace standin
