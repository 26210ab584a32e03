// A black run of up to 56 pixels lies within eight bytes from the one that it begins in. They are stored as
// one word that includes what the run before left in them: nothing is loaded back, and no branch depends on
// where a run lies.
#include "host/standin/fast/add_runs.h"

#include "host/standin/fast/dense_runs.h"
#include "host/standin/fast/processor.h"
#include "host/standin/rows.h"

#include <array>
#include <cstring>

namespace standin {

namespace {

// Rows whose runs are shorter on average are added eight runs at a time.
constexpr size_t kDensePixelsPerRun = 6;

// The pixels of a word from column x on, as the word lies in memory: a load is cheaper than a shift and a
// byte swap.
constexpr auto kPixelsFrom = [] {
    std::array<uint64_t, 64> masks{};
    for (unsigned x = 0; x < 64; ++x)
        masks[x] = __builtin_bswap64(~uint64_t{0} >> x);
    return masks;
}();

void StoreWord(unsigned char* bytes, uint64_t word) {
    std::memcpy(bytes, &word, sizeof word);
}

// Adds runs from a position on; pixels is what the position's byte has already. Compiled for two instruction
// sets: the shifts of BMI2 take one step instead of three.
[[gnu::always_inline]] inline RowPosition AddRuns(RowPosition at, const unsigned short* end,
                                                  unsigned char* packed, size_t width, uint64_t pixels) {
    const unsigned short* run = at.Run;
    size_t x = at.Column;
    size_t base = x & ~size_t{7}; // the first column of pixels
    const size_t farthest = width - 64;
    for (const unsigned short* const stop = width < 64 ? run : end - 1; run < stop; run += 2) {
        const size_t first = x + run[0];
        const size_t length = run[1];
        const size_t last = first + length;
        if (last > farthest) [[unlikely]]
            break;
        x = last;
        const size_t advance = (first & ~size_t{7}) - base;
        const uint64_t left = advance < 64 ? pixels >> (advance & 63) : 0;
        const size_t bit = first % 8;
        base = first & ~size_t{7};
        if (length > 56) [[unlikely]] {
            StoreWord(packed + base / 8, left | kPixelsFrom[bit]);
            for (base += 64; base < last; base += 64)
                StoreWord(packed + base / 8, ~uint64_t{0});
            base = last & ~size_t{7};
            pixels = ~kPixelsFrom[last % 8];
        } else {
            pixels = left | (kPixelsFrom[bit] ^ kPixelsFrom[bit + length]);
        }
        StoreWord(packed + base / 8, pixels);
    }
    return {run, x};
}

RowPosition AddMostRunsBaseline(const unsigned short* runs, const unsigned short* end, unsigned char* packed,
                                size_t width) {
    return AddRuns({runs, 0}, end, packed, width, 0);
}

__attribute__((target("bmi,bmi2"))) RowPosition
AddMostRunsBmi2(const unsigned short* runs, const unsigned short* end, unsigned char* packed, size_t width) {
    const auto count = static_cast<size_t>(end - runs);
    if (count * kDensePixelsPerRun < width) [[likely]]
        return AddRuns({runs, 0}, end, packed, width, 0);
    size_t x = 0;
    const size_t done = AddDenseRuns(runs, count, packed, width, &x);
    const uint64_t pixels = x / 8 < PackedRowBytes(width) ? packed[x / 8] : 0;
    return AddRuns({runs + done, x}, end, packed, width, pixels);
}

const bool hasAvx2 = HasAvx2AndBmi2();

} // namespace

RowPosition AddMostRuns(const unsigned short* runs, const unsigned short* end, unsigned char* packed,
                        size_t width) {
    return hasAvx2 ? AddMostRunsBmi2(runs, end, packed, width)
                   : AddMostRunsBaseline(runs, end, packed, width);
}

} // namespace standin
