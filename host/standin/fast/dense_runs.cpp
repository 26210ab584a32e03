// Eight or sixteen runs that end within 64 pixels of the byte in which they begin are stored as one word. A
// change at column p inverts all pixels from p on, which is the word ~0 >> p; the exclusive or of these words
// has the pixels. The first run is white and the number of runs is even, so the pixels behind the last run
// are white. The next runs may begin within the last byte: what it has so far is carried over to their word
// (Row::Begun).
#include "host/standin/fast/dense_runs.h"

#include "host/standin/rows.h"

#include <immintrin.h>

#include <cstring>

#define STANDIN_AVX2 __attribute__((target("avx2,bmi2")))

namespace standin {

namespace {

// The ends of kRuns runs, in pixels from the beginning of the first.
template <size_t kRuns>
struct RunEnds;

// As 16-bit numbers, at most 65535.
template <>
struct RunEnds<8> {
    __m128i Ends;

    STANDIN_AVX2 explicit RunEnds(const unsigned short* runs) {
        Ends = _mm_loadu_si128(reinterpret_cast<const __m128i*>(runs));
        Ends = _mm_adds_epu16(Ends, _mm_slli_si128(Ends, 2));
        Ends = _mm_adds_epu16(Ends, _mm_slli_si128(Ends, 4));
        Ends = _mm_adds_epu16(Ends, _mm_slli_si128(Ends, 8));
    }

    STANDIN_AVX2 size_t Last() const { return static_cast<size_t>(_mm_extract_epi16(Ends, 7)); }

    // The pixels as a word whose highest bit is the leftmost one; the first run begins at bit "before" of it.
    STANDIN_AVX2 uint64_t PixelsBetween(size_t before) const {
        const __m256i all = _mm256_set1_epi64x(-1);
        const __m128i changes = _mm_add_epi16(Ends, _mm_set1_epi16(static_cast<short>(before)));
        const __m256i low = _mm256_srlv_epi64(all, _mm256_cvtepu16_epi64(changes));
        const __m256i high = _mm256_srlv_epi64(all, _mm256_cvtepu16_epi64(_mm_srli_si128(changes, 8)));
        return Combined(_mm256_xor_si256(low, high));
    }

    STANDIN_AVX2 static uint64_t Combined(__m256i four) {
        const __m128i two = _mm_xor_si128(_mm256_castsi256_si128(four), _mm256_extracti128_si256(four, 1));
        return static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_xor_si128(two, _mm_unpackhi_epi64(two, two))));
    }
};

// As 8-bit numbers, at most 255.
template <>
struct RunEnds<16> {
    __m128i Ends;

    STANDIN_AVX2 explicit RunEnds(const unsigned short* runs) {
        const __m128i most = _mm_set1_epi16(255);
        const auto* eight = reinterpret_cast<const __m128i*>(runs);
        Ends = _mm_packus_epi16(_mm_min_epu16(_mm_loadu_si128(eight), most),
                                _mm_min_epu16(_mm_loadu_si128(eight + 1), most));
        Ends = _mm_adds_epu8(Ends, _mm_slli_si128(Ends, 1));
        Ends = _mm_adds_epu8(Ends, _mm_slli_si128(Ends, 2));
        Ends = _mm_adds_epu8(Ends, _mm_slli_si128(Ends, 4));
        Ends = _mm_adds_epu8(Ends, _mm_slli_si128(Ends, 8));
    }

    STANDIN_AVX2 size_t Last() const { return static_cast<size_t>(_mm_extract_epi8(Ends, 15)); }

    STANDIN_AVX2 uint64_t PixelsBetween(size_t before) const {
        const __m256i all = _mm256_set1_epi64x(-1);
        const __m128i changes = _mm_add_epi8(Ends, _mm_set1_epi8(static_cast<char>(before)));
        const __m256i four0 = _mm256_srlv_epi64(all, _mm256_cvtepu8_epi64(changes));
        const __m256i four1 = _mm256_srlv_epi64(all, _mm256_cvtepu8_epi64(_mm_srli_si128(changes, 4)));
        const __m256i four2 = _mm256_srlv_epi64(all, _mm256_cvtepu8_epi64(_mm_srli_si128(changes, 8)));
        const __m256i four3 = _mm256_srlv_epi64(all, _mm256_cvtepu8_epi64(_mm_srli_si128(changes, 12)));
        return RunEnds<8>::Combined(
            _mm256_xor_si256(_mm256_xor_si256(four0, four1), _mm256_xor_si256(four2, four3)));
    }
};

// A packed row, and how far it is done.
struct Row {
    unsigned char* Packed = nullptr;
    size_t Column = 0;
    uint64_t Begun = 0; // the pixels so far of Column's byte, in the highest bits

    // Adds kRuns runs. False, and nothing added, when they do not end within the word.
    template <size_t kRuns>
    STANDIN_AVX2 bool Add(const unsigned short* runs) {
        const RunEnds<kRuns> ends(runs);
        const size_t pixels = ends.Last();
        const size_t bit = Column % 8;
        const size_t last = bit + pixels;
        if (last >= 64)
            return false;
        Begun |= ends.PixelsBetween(bit);
        const uint64_t inMemory = __builtin_bswap64(Begun);
        std::memcpy(Packed + Column / 8, &inMemory, sizeof inMemory);
        Begun <<= last & ~size_t{7};
        Column += pixels;
        return true;
    }

    // Adds eight runs of any length. False, and nothing added, when they end less than 64 pixels before the
    // row does.
    bool AddLong(const unsigned short* runs, size_t width) {
        size_t end = Column;
        for (size_t i = 0; i < 8; ++i)
            end += runs[i];
        if (end + 64 > width)
            return false;
        for (size_t i = 0; i < 8; i += 2) {
            const size_t first = Column + runs[i];
            Column = first + runs[i + 1];
            FillBlack(Packed, first, Column);
        }
        Begun = uint64_t{Packed[Column / 8]} << 56;
        return true;
    }
};

} // namespace

STANDIN_AVX2 size_t AddDenseRuns(const unsigned short* runs, size_t count, unsigned char* packed,
                                 size_t width, size_t* x) {
    Row row{packed};
    size_t done = 0;
    while (done + 8 <= count && row.Column + 64 <= width) {
        if (done + 16 <= count && row.Add<16>(runs + done)) {
            done += 16;
            continue;
        }
        if (!row.Add<8>(runs + done) && !row.AddLong(runs + done, width))
            break;
        done += 8;
    }
    *x = row.Column;
    return done;
}

} // namespace standin
