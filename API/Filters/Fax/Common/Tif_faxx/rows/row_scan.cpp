// The row scan looks at 64 pixels at a time: a word xored with itself shifted by one pixel has a bit set at
// every changing element. White rows are detected first, with vectors, and have nothing to scan.
//
// With AVX2 the scan marks which of 64 words have changes before it lists the changes of the first one. A
// test of each word, and of the number of changes in it, would often be predicted wrongly where changes are
// far apart. That saves a third of the coding time of a noisy page.
#include "API/Filters/Fax/Common/Tif_faxx/rows/row_scan.h"

#include "API/Filters/Fax/Common/Tif_faxx/base/instruction_sets.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/change_list.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace faxx {
namespace {

// Closes the list at entry. Returns how many entries are in front of it.
uint32_t CloseCodingLine(CCITTG34* record, uint32_t* entry) {
    const uint32_t entries = static_cast<uint32_t>(entry - record->CodingLine);
    CloseList(record->CodingLine, entries);
    return entries;
}

constexpr uint32_t kWordPixels = 64;

template <typename Word>
Word Load(const uint8_t* row) {
    Word word;
    std::memcpy(&word, row, sizeof word);
    return word;
}

uint64_t LoadPixels(const uint8_t* row) {
    return __builtin_bswap64(Load<uint64_t>(row));
}

// The last pixels of a row of this width, 1 to 63 of them. The bits behind them may be anything.
uint64_t LoadLastPixels(const uint8_t* row, uint32_t pixels, uint32_t width) {
    const uint32_t bytes = (pixels + 7) / 8;
    if (width >= kWordPixels) [[likely]]
        return LoadPixels(row + bytes - sizeof(uint64_t)) << (kWordPixels - 8 * bytes);
    uint64_t word = 0;
    for (uint32_t i = 0; i < bytes; ++i)
        word |= uint64_t{row[i]} << (56 - 8 * i);
    return word;
}

// The bits set in a word. In the baseline instruction set std::popcount would be a function call.
template <InstructionSet set>
[[gnu::always_inline]] inline uint32_t CountBits(uint64_t word) {
    if constexpr (set == InstructionSet::Avx2)
        return static_cast<uint32_t>(__builtin_popcountll(word));
    word -= word >> 1 & 0x5555555555555555;
    word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
    word = (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0F;
    return static_cast<uint32_t>(word * 0x0101010101010101 >> 56);
}

// Most words of text and of noisy pages have no more changes than this.
constexpr ptrdiff_t kFewChanges = 4;

// Always writes kFewChanges entries, even where there are fewer changes: no branch has to be predicted.
FAXX_AVX2 inline void WriteFew(uint32_t* entry, uint64_t changes, uint32_t remaining) {
    for (unsigned i = 0; i < kFewChanges; ++i) {
        const uint64_t zeros = _lzcnt_u64(changes);
        entry[i] = remaining - static_cast<uint32_t>(zeros);
        asm("" : "+m"(entry[i])); // a store each: to gather them in a vector first takes longer
        changes = _bzhi_u64(changes, static_cast<unsigned>(63 - zeros));
    }
}

// Appends the changing elements that are marked in changes, one or more; its bit 63 is remaining pixels from
// the right edge. May write up to three entries behind the last one: there are no more entries in front of
// the first than pixels left of the word, so the last of the three is at most the last closing zero of the
// longest list.
template <InstructionSet set>
[[gnu::always_inline]] inline uint32_t* AppendChanges(uint32_t* entry, uint64_t changes, uint32_t remaining) {
    uint32_t* const end = entry + CountBits<set>(changes);
    if constexpr (set == InstructionSet::Avx2)
        if (end - entry <= kFewChanges) {
            WriteFew(entry, changes, remaining);
            return end;
        }
    // From right to left: the lowest set bit is cleared without finding it first, so the iterations do not
    // wait for one another.
    const uint32_t lowest = remaining - (kWordPixels - 1);
    for (uint32_t* at = end; at != entry; changes &= changes - 1)
        *--at = lowest + static_cast<uint32_t>(std::countr_zero(changes));
    return end;
}

constexpr uint32_t kPiecePixels = 256;
constexpr uint32_t kPieceBytes = kPiecePixels / 8;
constexpr uint32_t kPartPixels = 32;
constexpr size_t kParts = kPiecePixels / kPartPixels;

// The black pixels of a row, gathered from pieces of it.
template <InstructionSet set>
struct BlackPixels {
    __m128i pixels = _mm_setzero_si128();

    void Add(const uint8_t* piece) {
        const __m128i* const vectors = reinterpret_cast<const __m128i*>(piece);
        pixels = _mm_or_si128(pixels, _mm_or_si128(_mm_loadu_si128(vectors), _mm_loadu_si128(vectors + 1)));
    }

    // Adds the first parts of a piece, fewer than all. Nothing behind them is read.
    void AddParts(const uint8_t* piece, size_t parts) {
        for (; parts != 0; --parts, piece += kPartPixels / 8)
            pixels = _mm_or_si128(pixels, _mm_cvtsi32_si128(Load<int32_t>(piece)));
    }

    bool None() const { return _mm_movemask_epi8(_mm_cmpeq_epi8(pixels, _mm_setzero_si128())) == 0xFFFF; }
};

// The masks of the first parts of a piece.
alignas(32) constexpr auto kFirstParts = [] {
    std::array<std::array<int32_t, kParts>, kParts> masks{};
    for (size_t parts = 0; parts < kParts; ++parts)
        std::fill_n(masks[parts].begin(), parts, -1);
    return masks;
}();

template <>
struct BlackPixels<InstructionSet::Avx2> {
    __m256i pixels;

    FAXX_AVX2 BlackPixels() : pixels(_mm256_setzero_si256()) {}

    FAXX_AVX2 void Add(const uint8_t* piece) {
        pixels = _mm256_or_si256(pixels, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(piece)));
    }

    FAXX_AVX2 void AddParts(const uint8_t* piece, size_t parts) {
        const __m256i mask = _mm256_load_si256(reinterpret_cast<const __m256i*>(&kFirstParts[parts]));
        pixels =
            _mm256_or_si256(pixels, _mm256_maskload_epi32(reinterpret_cast<const int32_t*>(piece), mask));
    }

    FAXX_AVX2 bool None() const { return _mm256_testz_si256(pixels, pixels) != 0; }
};

// The last pixels of a row of this width, kPartPixels or some fewer. Not for rows of fewer.
uint32_t LastPart(const uint8_t* row, uint32_t width) {
    const uint32_t bytes = (width + 7) / 8;
    return __builtin_bswap32(Load<uint32_t>(row + bytes - sizeof(uint32_t))) >> (8 * bytes - width);
}

// Detects a white row, as most rows of most pages are; false for rows shorter than a piece. Rows have just
// been copied, and a load that overlaps two stores waits until both have reached the cache: so they are read
// from the front in whole pieces, as they are best copied.
template <InstructionSet set>
[[gnu::always_inline]] inline bool IsWhite(const uint8_t* row, uint32_t width) {
    if (width < kPiecePixels) [[unlikely]]
        return false;
    BlackPixels<set> black;
    const uint8_t* next = row;
    const auto add = [&](uint32_t pieces) __attribute__((always_inline)) {
        for (; pieces != 0; --pieces, next += kPieceBytes)
            black.Add(next);
    };
    for (uint32_t fours = width / (4 * kPiecePixels); fours != 0; --fours)
        add(4);
    if ((width & 2 * kPiecePixels) != 0)
        add(2);
    if ((width & kPiecePixels) != 0)
        add(1);
    black.AddParts(next, width / kPartPixels % kParts);
    return LastPart(row, width) == 0 && black.None();
}

// The pixels of a word that differ from the one to their left.
uint64_t ChangesOf(uint64_t pixels, uint64_t left) {
    return pixels ^ (pixels >> 1 | left << 63);
}

// The changes of a block of words, a vector's lanes at a time.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): changes are there before they are looked at
struct Block {
    static constexpr unsigned kWords = 64;
    static constexpr unsigned kLanes = 4;

    alignas(32) std::array<uint64_t, kWords> changes;
    uint64_t left = 0; // the word in front of the next block

    // Takes up so many words, a multiple of kLanes. Returns a bit for each that has changes, the first in bit
    // 0.
    FAXX_AVX2 uint64_t Mark(const uint8_t* row, unsigned words) {
        const __m256i order = _mm256_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5,
                                               4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
        __m256i carry = _mm256_castsi128_si256(_mm_cvtsi64_si128(static_cast<int64_t>(left)));
        uint64_t marked = 0;
        for (unsigned i = 0; i < words; i += kLanes) {
            const __m256i pixels = _mm256_shuffle_epi8(
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row) + i / kLanes), order);
            const __m256i turned = _mm256_permute4x64_epi64(pixels, 0b10'01'00'11);
            const __m256i before = _mm256_blend_epi32(turned, carry, 3);
            const __m256i change = _mm256_xor_si256(
                pixels, _mm256_or_si256(_mm256_srli_epi64(pixels, 1), _mm256_slli_epi64(before, 63)));
            _mm256_store_si256(reinterpret_cast<__m256i*>(&changes[i]), change);
            const __m256i none = _mm256_cmpeq_epi64(change, _mm256_setzero_si256());
            marked |= (static_cast<uint64_t>(_mm256_movemask_pd(_mm256_castsi256_pd(none))) ^ 0xF) << i;
            carry = turned;
        }
        left = static_cast<uint64_t>(_mm_cvtsi128_si64(_mm256_castsi256_si128(carry)));
        return marked;
    }
};

template <InstructionSet set>
[[gnu::always_inline]] inline uint32_t List(CCITTG34* record, const uint8_t* row) {
    uint32_t* entry = record->CodingLine;
    uint32_t remaining = record->Width;
    uint64_t left = 0; // the word in front
    if constexpr (set == InstructionSet::Avx2) {
        Block block;
        while (remaining >= Block::kLanes * kWordPixels) {
            const unsigned words =
                std::min(remaining / kWordPixels, Block::kWords) / Block::kLanes * Block::kLanes;
            for (uint64_t marked = block.Mark(row, words); marked != 0; marked &= marked - 1) {
                const unsigned i = static_cast<unsigned>(std::countr_zero(marked));
                entry = AppendChanges<set>(entry, block.changes[i], remaining - i * kWordPixels);
            }
            remaining -= words * kWordPixels;
            row += size_t{words} * (kWordPixels / 8);
        }
        left = block.left;
    }
    for (; remaining >= kWordPixels; remaining -= kWordPixels) {
        const uint64_t pixels = LoadPixels(row);
        const uint64_t changes = ChangesOf(pixels, left);
        if (changes != 0)
            entry = AppendChanges<set>(entry, changes, remaining);
        left = pixels;
        row += kWordPixels / 8;
    }
    if (remaining != 0) {
        const uint64_t pixels = LoadLastPixels(row, remaining, record->Width);
        const uint64_t inside = ~uint64_t{0} << (kWordPixels - remaining);
        const uint64_t changes = ChangesOf(pixels, left) & inside;
        if (changes != 0)
            entry = AppendChanges<set>(entry, changes, remaining);
    }
    return CloseCodingLine(record, entry);
}

// Not inlined, so that white rows do not save and set up the registers of the scan.
[[gnu::noinline]] uint32_t ListBaseline(CCITTG34* record, const uint8_t* row) {
    return List<InstructionSet::Baseline>(record, row);
}

[[gnu::noinline]] FAXX_AVX2 uint32_t ListAvx2(CCITTG34* record, const uint8_t* row) {
    return List<InstructionSet::Avx2>(record, row);
}

} // namespace

uint32_t ListChangesBaseline(CCITTG34* record, const uint8_t* row) {
    if (IsWhite<InstructionSet::Baseline>(row, record->Width)) [[likely]]
        return CloseCodingLine(record, record->CodingLine);
    return ListBaseline(record, row);
}

FAXX_AVX2 uint32_t ListChangesAvx2(CCITTG34* record, const uint8_t* row) {
    if (IsWhite<InstructionSet::Avx2>(row, record->Width)) [[likely]]
        return CloseCodingLine(record, record->CodingLine);
    return ListAvx2(record, row);
}

} // namespace faxx
