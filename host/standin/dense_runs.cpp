// Where the eight runs end within 64 pixels from the byte that they begin in, they become one word: a change
// at column p turns all pixels from p on, ~0 >> p, and the changes' words are combined by exclusive or. Eight
// runs begin and end in white, so that the word is complete. What it has in the byte that the next eight
// begin in goes on with them.
#include "host/standin/dense_runs.h"

#include <immintrin.h>

#include <cstring>

namespace standin {

namespace {

constexpr size_t GROUP = 8;

// The ends of eight runs, counted from where the first begins; 65535 where they lie further away.
__m128i RunEnds(const unsigned short* runs) {
    __m128i ends = _mm_loadu_si128(reinterpret_cast<const __m128i*>(runs));
    ends = _mm_adds_epu16(ends, _mm_slli_si128(ends, 2));
    ends = _mm_adds_epu16(ends, _mm_slli_si128(ends, 4));
    return _mm_adds_epu16(ends, _mm_slli_si128(ends, 8));
}

// The pixels of a word, the leftmost on top, between the changes; those at 64 and beyond do not count.
__attribute__((target("avx2"))) uint64_t PixelsBetween(__m128i changes) {
    const __m256i all = _mm256_set1_epi64x(-1);
    const __m256i low = _mm256_srlv_epi64(all, _mm256_cvtepu16_epi64(changes));
    const __m256i high = _mm256_srlv_epi64(all, _mm256_cvtepu16_epi64(_mm_srli_si128(changes, 8)));
    const __m256i four = _mm256_xor_si256(low, high);
    const __m128i two = _mm_xor_si128(_mm256_castsi256_si128(four), _mm256_extracti128_si256(four, 1));
    return static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_xor_si128(two, _mm_unpackhi_epi64(two, two))));
}

void AddRun(unsigned char* packed, size_t first, size_t last) {
    for (; first < last && first % 8 != 0; ++first)
        packed[first / 8] |= static_cast<unsigned char>(0x80 >> first % 8);
    if (first >= last)
        return;
    std::memset(packed + first / 8, 0xFF, (last - first) / 8);
    if (last % 8 != 0)
        packed[last / 8] |= static_cast<unsigned char>(~(0xFF >> last % 8));
}

} // namespace

bool HasBmiAndAvx2() {
    static const bool can = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2");
    return can;
}

__attribute__((target("avx2,bmi2"))) size_t AddDenseRuns(const unsigned short* runs, size_t count,
                                                         unsigned char* packed, size_t width, size_t* x) {
    size_t column = 0;
    uint64_t begun = 0; // the pixels from the start of column's byte on that are known, the first on top
    size_t done = 0;
    while (done + GROUP <= count && column + 64 <= width) {
        const __m128i ends = RunEnds(runs + done);
        const size_t pixels = static_cast<size_t>(_mm_extract_epi16(ends, GROUP - 1));
        const size_t bit = column % 8;
        unsigned char* const byte = packed + column / 8;
        const size_t last = bit + pixels;
        if (last < 64) [[likely]] {
            begun |= PixelsBetween(_mm_add_epi16(ends, _mm_set1_epi16(static_cast<short>(bit))));
            const uint64_t inMemory = __builtin_bswap64(begun);
            std::memcpy(byte, &inMemory, sizeof inMemory);
            begun <<= last & ~size_t{7};
            column += pixels;
        } else {
            size_t end = column;
            for (size_t i = done; i < done + GROUP; i += 2)
                end += size_t{runs[i]} + runs[i + 1];
            if (end + 64 > width)
                break;
            for (size_t i = done; i < done + GROUP; i += 2) {
                const size_t first = column + runs[i];
                column = first + runs[i + 1];
                AddRun(packed, first, column);
            }
            begun = uint64_t{packed[column / 8]} << 56;
        }
        done += GROUP;
    }
    *x = column;
    return done;
}

} // namespace standin
