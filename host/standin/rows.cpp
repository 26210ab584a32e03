// Conversion between run-length rows and packed rows.
//
// Both directions work on 64-bit words whose most significant bit is the leftmost pixel. Expanding clears the
// row and adds each black run to it, nearly all with one store and no branch that depends on where they lie.
// Compressing marks the pixels that differ from their left neighbour, v ^ (v >> 1), and walks over the marks
// by counting leading zeros.
#include "host/standin/rows.h"

#include "host/kernel.h"
#include "host/standin/dense_runs.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace standin {

namespace {

constexpr size_t COPIED_BYTES = 4 * sizeof(__m256i);
static_assert(COPIED_BYTES == ROW_SLACK + 1);

// Rows of shorter runs than this on an average are worth the wider steps.
constexpr size_t DENSE_PIXELS_PER_RUN = 6;

uint64_t LoadWord(const unsigned char* bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return __builtin_bswap64(word);
}

// The pixels of a word from column x on.
uint64_t From(size_t x) {
    return ~uint64_t{0} >> (x & 63);
}

// The same as the word lies in memory: a load is cheaper than the shift and the byte swap.
constexpr auto FROM_IN_MEMORY = [] {
    std::array<uint64_t, 64> masks{};
    for (unsigned x = 0; x < 64; ++x)
        masks[x] = __builtin_bswap64(~uint64_t{0} >> x);
    return masks;
}();

void StoreWord(unsigned char* bytes, uint64_t word) {
    std::memcpy(bytes, &word, sizeof word);
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
    while (run > MAX_RUN)
        [[unlikely]] {
            *out++ = MAX_RUN;
            *out++ = 0;
            run -= MAX_RUN;
        }
    *out++ = static_cast<unsigned short>(run);
    return out;
}

// Adds the runs that begin at column x; pixels is what the byte at x has already. Compiled twice: BMI2's
// shifts by any register are one step instead of three.
[[gnu::always_inline]] inline void AddRuns(const unsigned short* run, const unsigned short* end,
                                           unsigned char* packed, size_t width, size_t x, uint64_t pixels) {
    // A black run of up to 56 pixels touches eight bytes from the one that it begins in. They are stored
    // whole, with what the run before left in them: nothing is loaded back.
    size_t base = x & ~size_t{7}; // the first column of pixels
    const size_t farthest = width - 64;
    for (const unsigned short* const stop = width < 64 ? run : end - 1; run < stop; run += 2) {
        const size_t first = x + run[0];
        const size_t length = run[1];
        const size_t last = first + length;
        if (last > farthest) [[unlikely]]
            break;
        x = last;
        const size_t on = (first & ~size_t{7}) - base;
        const uint64_t left = on < 64 ? pixels >> (on & 63) : 0;
        const size_t bit = first % 8;
        base = first & ~size_t{7};
        if (length > 56) [[unlikely]] {
            StoreWord(packed + base / 8, left | FROM_IN_MEMORY[bit]);
            for (base += 64; base < last; base += 64)
                StoreWord(packed + base / 8, ~uint64_t{0});
            base = last & ~size_t{7};
            pixels = ~FROM_IN_MEMORY[last % 8];
        } else {
            pixels = left | (FROM_IN_MEMORY[bit] ^ FROM_IN_MEMORY[bit + length]);
        }
        StoreWord(packed + base / 8, pixels);
    }

    // The others, cut to the width.
    for (; run < end - 1 && x < width; run += 2) {
        const size_t first = x + run[0];
        x = first + run[1];
        FillBlack(packed, first, std::min(x, width));
    }
}

void AddRunsAnywhere(const unsigned short* run, const unsigned short* end, unsigned char* packed,
                     size_t width, size_t x, uint64_t pixels) {
    AddRuns(run, end, packed, width, x, pixels);
}

__attribute__((target("bmi,bmi2"))) void AddRunsFaster(const unsigned short* run, const unsigned short* end,
                                                       unsigned char* packed, size_t width, size_t x,
                                                       uint64_t pixels) {
    AddRuns(run, end, packed, width, x, pixels);
}

void CopyAnywhere(unsigned char* target, const unsigned char* source, size_t bytes) {
    std::memcpy(target, source, bytes);
}

__attribute__((target("avx2"))) void CopyFaster(unsigned char* target, const unsigned char* source,
                                                size_t bytes) {
    const auto* from = reinterpret_cast<const __m256i*>(source);
    auto* to = reinterpret_cast<__m256i*>(target);
    for (size_t copied = 0; copied < bytes; copied += COPIED_BYTES) {
        const __m256i first = _mm256_loadu_si256(from++);
        const __m256i second = _mm256_loadu_si256(from++);
        const __m256i third = _mm256_loadu_si256(from++);
        const __m256i fourth = _mm256_loadu_si256(from++);
        _mm256_storeu_si256(to++, first);
        _mm256_storeu_si256(to++, second);
        _mm256_storeu_si256(to++, third);
        _mm256_storeu_si256(to++, fourth);
    }
}

const bool FASTER = HasBmiAndAvx2();
const auto COPY_FORM = FASTER ? CopyFaster : CopyAnywhere;

} // namespace

void CopyRow(unsigned char* target, const unsigned char* source, size_t bytes) {
    COPY_FORM(target, source, bytes);
}

const unsigned short* ExpandRow(const unsigned short* row, unsigned char* packed, size_t width) {
    const unsigned short* const runs = row + ROW_HEADER_WORDS;
    const size_t count = RunCount(row);
    std::memset(packed, 0, PackedRowBytes(width));
    const unsigned short* const end = runs + count;
    if (!FASTER) {
        AddRunsAnywhere(runs, end, packed, width, 0, 0);
    } else if (count * DENSE_PIXELS_PER_RUN < width) [[likely]] {
        AddRunsFaster(runs, end, packed, width, 0, 0);
    } else {
        size_t x = 0;
        const size_t done = AddDenseRuns(runs, count, packed, width, &x);
        const uint64_t pixels = x / 8 < PackedRowBytes(width) ? packed[x / 8] : 0;
        AddRunsFaster(runs + done, end, packed, width, x, pixels);
    }
    return end;
}

unsigned short* CompressRow(const unsigned char* packed, size_t width, unsigned short* row) {
    unsigned short* out = row + ROW_HEADER_WORDS;
    size_t lastChange = 0;
    uint64_t before = 0; // the pixel left of the word, as its bit 63

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
    StoreRunCount(row, static_cast<size_t>(out - row) - ROW_HEADER_WORDS);
    return out;
}

unsigned short* MirrorRow(const unsigned short* row, unsigned short* mirrored) {
    const unsigned short* const first = row + ROW_HEADER_WORDS;
    const unsigned short* last = first + RunCount(row);
    unsigned short* out = mirrored + ROW_HEADER_WORDS;
    // Empty runs at the end say nothing; in front they would cost words.
    while (last - first > 1 && last[-1] == 0)
        --last;
    if ((last - first) % 2 == 0 && last != first)
        *out++ = 0; // ended in black
    out = std::reverse_copy(first, last, out);
    // What began in black ends in black now.
    while (out - mirrored > 3 && out[-1] == 0)
        --out;
    StoreRunCount(mirrored, static_cast<size_t>(out - mirrored) - ROW_HEADER_WORDS);
    return out;
}

namespace {

// White rows come in stretches, a single run each: how many of rowCount rows stand before the first other
// one.
unsigned CountWhiteRows(const unsigned short* runs, unsigned rowCount) {
    unsigned rows = 0;
    while (rows < rowCount && RunCount(runs) == 1) {
        runs += ROW_HEADER_WORDS + 1;
        ++rows;
    }
    return rows;
}

// Out of line, so that batches of white rows do not set up what it takes.
[[gnu::noinline]] void ExpandMixedRows(const unsigned short* runs, unsigned char* destination, size_t width,
                                       unsigned rowCount) {
    const size_t rowBytes = PackedRowBytes(width);
    while (rowCount != 0) {
        unsigned rows = CountWhiteRows(runs, rowCount);
        if (rows != 0) {
            std::memset(destination, 0, rowBytes * rows);
            runs += size_t{rows} * (ROW_HEADER_WORDS + 1);
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
    if (rowCount != 0 && (runs == nullptr || destination == nullptr))
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
    if (runs == nullptr || (row == nullptr && width != 0))
        return ERROR_NULL_PTR;
    standin::CompressRow(row, width, runs);
    return SUCCESS;
}

void K_MirrorCompressedBuffer(const unsigned short* source, unsigned short* destination, unsigned rowCount) {
    for (; rowCount != 0; --rowCount) {
        destination = standin::MirrorRow(source, destination);
        source += standin::ROW_HEADER_WORDS + standin::RunCount(source);
    }
}

} // extern "C"
