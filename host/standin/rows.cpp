// Conversion between run-length rows and packed rows.
//
// Expanding clears the row and adds each black run to it. Compressing works on 64-bit words whose most
// significant bit is the leftmost pixel: it marks the pixels that differ from their left neighbour, v ^ (v >>
// 1), and finds the marks by counting leading zeros.
#include "host/standin/rows.h"

#include "host/kernel.h"
#include "host/standin/fast/add_runs.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace standin {

namespace {

uint64_t LoadWord(const unsigned char* bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return __builtin_bswap64(word);
}

// The pixels of a word from column x on.
uint64_t From(size_t x) {
    return ~uint64_t{0} >> (x & 63);
}

// The bytes of a row's incomplete last word, left-aligned.
uint64_t LoadTail(const unsigned char* bytes, size_t count) {
    uint64_t word = 0;
    for (size_t i = 0; i < count; ++i)
        word |= uint64_t{bytes[i]} << (56 - 8 * i);
    return word;
}

void StoreRunCount(unsigned short* row, size_t count) {
    const auto runs = static_cast<uint32_t>(count);
    std::memcpy(row, &runs, sizeof runs);
}

unsigned short* PutRun(unsigned short* out, size_t run) {
    while (run > kMaxRun)
        [[unlikely]] {
            *out++ = kMaxRun;
            *out++ = 0;
            run -= kMaxRun;
        }
    *out++ = static_cast<unsigned short>(run);
    return out;
}

} // namespace

const unsigned short* ExpandRow(const unsigned short* row, unsigned char* packed, size_t width) {
    const unsigned short* const runs = row + kRowHeaderWords;
    const unsigned short* const end = runs + RunCount(row);
    std::memset(packed, 0, PackedRowBytes(width));
    // Fast where there is room to write whole words; the loop alone would do it all.
    auto [run, x] = AddMostRuns(runs, end, packed, width);
    for (; run < end - 1 && x < width; run += 2) {
        const size_t first = x + run[0];
        x = first + run[1];
        FillBlack(packed, first, std::min(x, width));
    }
    return end;
}

unsigned short* CompressRow(const unsigned char* packed, size_t width, unsigned short* row) {
    unsigned short* out = row + kRowHeaderWords;
    size_t lastChange = 0;
    uint64_t before = 0; // bit 63: the pixel left of the word

    const auto scan = [&](uint64_t pixels, size_t column, uint64_t changes) {
        while (changes != 0) {
            const auto bit = static_cast<unsigned>(std::countl_zero(changes));
            const size_t change = column + bit;
            out = PutRun(out, change - lastChange);
            lastChange = change;
            changes ^= uint64_t{1} << (63 - bit);
        }
        before = pixels << 63;
    };

    size_t column = 0;
    for (; column + 64 <= width; column += 64) {
        const uint64_t pixels = LoadWord(packed + column / 8);
        if (pixels == 0 - (before >> 63))
            continue; // no change
        scan(pixels, column, pixels ^ (pixels >> 1 | before));
    }
    if (column < width) {
        const uint64_t pixels = LoadTail(packed + column / 8, PackedRowBytes(width - column));
        scan(pixels, column, (pixels ^ (pixels >> 1 | before)) & ~From(width - column));
    }
    out = PutRun(out, width - lastChange);
    StoreRunCount(row, static_cast<size_t>(out - row) - kRowHeaderWords);
    return out;
}

unsigned short* MirrorRow(const unsigned short* row, unsigned short* mirrored) {
    const unsigned short* const first = row + kRowHeaderWords;
    const unsigned short* last = first + RunCount(row);
    unsigned short* out = mirrored + kRowHeaderWords;
    // Empty runs at the end have no effect, but mirrored they would add words.
    while (last - first > 1 && last[-1] == 0)
        --last;
    if ((last - first) % 2 == 0 && last != first)
        *out++ = 0; // the row ended in black: an empty white run comes first
    out = std::reverse_copy(first, last, out);
    // A row that began in black ended up with an empty white run at the end.
    while (out - mirrored > 3 && out[-1] == 0)
        --out;
    StoreRunCount(mirrored, static_cast<size_t>(out - mirrored) - kRowHeaderWords);
    return out;
}

namespace {

// How many of rowCount rows come before the first one that is not white. A white row has a single run.
unsigned CountWhiteRows(const unsigned short* runs, unsigned rowCount) {
    unsigned rows = 0;
    while (rows < rowCount && RunCount(runs) == 1) {
        runs += kRowHeaderWords + 1;
        ++rows;
    }
    return rows;
}

// Out of line, so that a batch of white rows saves no registers for it.
[[gnu::noinline]] void ExpandMixedRows(const unsigned short* runs, unsigned char* destination, size_t width,
                                       unsigned rowCount) {
    const size_t rowBytes = PackedRowBytes(width);
    while (rowCount != 0) {
        unsigned rows = CountWhiteRows(runs, rowCount);
        if (rows != 0) {
            std::memset(destination, 0, rowBytes * rows);
            runs += size_t{rows} * (kRowHeaderWords + 1);
        } else {
            runs = ExpandRow(runs, destination, width);
            rows = 1;
        }
        destination += rowBytes * rows;
        rowCount -= rows;
    }
}

} // namespace

} // namespace standin

extern "C" {

int K_ExpandRows(const unsigned short* runs, unsigned char* destination, unsigned width, unsigned rowCount) {
    if (rowCount != 0 && (!runs || !destination))
        return ERROR_NULL_PTR;
    if (standin::CountWhiteRows(runs, rowCount) == rowCount) {
        if (rowCount != 0)
            std::memset(destination, 0, standin::PackedRowBytes(width) * rowCount);
    } else {
        standin::ExpandMixedRows(runs, destination, width, rowCount);
    }
    return SUCCESS;
}

int K_CompressRow(unsigned short* runs, const unsigned char* row, int /*zero*/, unsigned width) {
    if (!runs || (!row && width != 0))
        return ERROR_NULL_PTR;
    standin::CompressRow(row, width, runs);
    return SUCCESS;
}

void K_MirrorCompressedBuffer(const unsigned short* source, unsigned short* destination, unsigned rowCount) {
    for (; rowCount != 0; --rowCount) {
        destination = standin::MirrorRow(source, destination);
        source += standin::kRowHeaderWords + standin::RunCount(source);
    }
}

} // extern "C"
