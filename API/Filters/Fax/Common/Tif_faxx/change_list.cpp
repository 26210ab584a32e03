// The row scan looks at 64 pixels at a time: a word xored with itself shifted by one pixel has a bit set at
// every changing element. From a word without changes on, stretches of 256 pixels of the same colour are
// skipped whole, one or four at a time.
//
// The scan is compiled twice (instructions.h): counting and clearing bits in one instruction is worth a tenth
// of a text page's coding time, and wider vectors halve that of blank rows.
#include "API/Filters/Fax/Common/Tif_faxx/change_list.h"

#include "API/Filters/Fax/Common/Tif_faxx/instructions.h"
#include "API/Filters/Fax/Common/Tif_faxx/limits.h"

#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace faxx {
namespace {

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

// The last pixels of a row of this width, 1 to 63 of them, and others behind them.
uint64_t LoadLastPixels(const uint8_t* row, uint32_t pixels, uint32_t width) {
    const uint32_t bytes = (pixels + 7) / 8;
    if (width >= kWordPixels) [[likely]]
        return LoadPixels(row + bytes - sizeof(uint64_t)) << (kWordPixels - 8 * bytes);
    uint64_t word = 0;
    for (uint32_t i = 0; i < bytes; ++i)
        word |= uint64_t{row[i]} << (56 - 8 * i);
    return word;
}

// The bits set in a word. Where the instruction is not certain to be there std::popcount is a function call.
template <Form form>
[[gnu::always_inline]] inline uint32_t CountBits(uint64_t word) {
    if constexpr (form == Form::Faster)
        return static_cast<uint32_t>(__builtin_popcountll(word));
    word -= word >> 1 & 0x5555555555555555;
    word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
    word = (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0F;
    return static_cast<uint32_t>(word * 0x0101010101010101 >> 56);
}

// Appends the changing elements that changes marks, its bit 63 standing remaining pixels from the right edge.
// From the right to the left, to where their number says: the lowest set bit is cleared by itself, while the
// highest must be found first, which would tie every element to the one before.
template <Form form>
[[gnu::always_inline]] inline uint32_t* AppendChanges(uint32_t* entry, uint64_t changes, uint32_t remaining) {
    uint32_t* const end = entry + CountBits<form>(changes);
    const uint32_t lowest = remaining - (kWordPixels - 1);
    for (uint32_t* at = end; at != entry; changes &= changes - 1)
        *--at = lowest + static_cast<uint32_t>(std::countr_zero(changes));
    return end;
}

constexpr size_t kStretchBytes = 32;

// Tells stretches of one colour: that of the pixels it was made of.
template <Form form>
struct Stretch {
    __m128i fill;

    explicit Stretch(uint64_t pixels) : fill(_mm_set1_epi8(static_cast<char>(pixels))) {}

    __m128i Equal(const uint8_t* row) const {
        const __m128i* const vectors = reinterpret_cast<const __m128i*>(row);
        return _mm_and_si128(_mm_cmpeq_epi8(_mm_loadu_si128(vectors), fill),
                             _mm_cmpeq_epi8(_mm_loadu_si128(vectors + 1), fill));
    }

    bool Holds(const uint8_t* row) const { return _mm_movemask_epi8(Equal(row)) == 0xFFFF; }

    // Four stretches, one behind the other.
    bool HoldsFour(const uint8_t* row) const {
        const __m128i first = _mm_and_si128(Equal(row), Equal(row + kStretchBytes));
        const __m128i last = _mm_and_si128(Equal(row + 2 * kStretchBytes), Equal(row + 3 * kStretchBytes));
        return _mm_movemask_epi8(_mm_and_si128(first, last)) == 0xFFFF;
    }
};

template <>
struct Stretch<Form::Faster> {
    __m256i fill;

    FAXX_FASTER_FORM explicit Stretch(uint64_t pixels) : fill(_mm256_set1_epi8(static_cast<char>(pixels))) {}

    FAXX_FASTER_FORM __m256i Equal(const uint8_t* row) const {
        return _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(row)), fill);
    }

    FAXX_FASTER_FORM bool Holds(const uint8_t* row) const { return _mm256_movemask_epi8(Equal(row)) == -1; }

    FAXX_FASTER_FORM bool HoldsFour(const uint8_t* row) const {
        const __m256i first = _mm256_and_si256(Equal(row), Equal(row + kStretchBytes));
        const __m256i last = _mm256_and_si256(Equal(row + 2 * kStretchBytes), Equal(row + 3 * kStretchBytes));
        return _mm256_movemask_epi8(_mm256_and_si256(first, last)) == -1;
    }
};

// The first address behind this one that a stretch is aligned at.
const uint8_t* NextAligned(const uint8_t* row) {
    return row + (kStretchBytes - reinterpret_cast<uintptr_t>(row) % kStretchBytes);
}

// Closes the list at entry. Returns how many there are in front of it.
uint32_t Close(CCITTG34* record, uint32_t* entry) {
    std::fill_n(entry, kClosingZeros, 0);
    return static_cast<uint32_t>(entry - record->CodingLine);
}

// How many bytes from row on are known to be of the colour that its first word is of, a whole stretch or
// more, or none. From the first stretch on they are read at aligned addresses: rows come freshly copied, and
// a load that straddles two stores waits for both to reach the cache.
template <Form form>
[[gnu::always_inline]] inline size_t SkipStretches(const uint8_t* row, size_t bytes, uint64_t pixels) {
    const Stretch<form> stretch(pixels);
    if (bytes < kStretchBytes || !stretch.Holds(row))
        return 0;
    const uint8_t* const last = row + bytes - kStretchBytes;
    const uint8_t* next = NextAligned(row);
    while (last - next >= static_cast<ptrdiff_t>(3 * kStretchBytes) && stretch.HoldsFour(next))
        next += 4 * kStretchBytes;
    while (next <= last && stretch.Holds(next))
        next += kStretchBytes;
    if (next > last && stretch.Holds(last))
        return bytes;
    return static_cast<size_t>(next - row);
}

// Gathers the black pixels of a row's bytes, a stretch at a time.
template <Form form>
struct Gathered {
    __m128i pixels = _mm_setzero_si128();

    void Add(const uint8_t* row) {
        const __m128i* const vectors = reinterpret_cast<const __m128i*>(row);
        pixels = _mm_or_si128(pixels, _mm_or_si128(_mm_loadu_si128(vectors), _mm_loadu_si128(vectors + 1)));
    }

    void AddHalf(const uint8_t* row) {
        pixels = _mm_or_si128(pixels, _mm_loadu_si128(reinterpret_cast<const __m128i*>(row)));
    }

    bool None() const { return _mm_movemask_epi8(_mm_cmpeq_epi8(pixels, _mm_setzero_si128())) == 0xFFFF; }
};

template <>
struct Gathered<Form::Faster> {
    __m256i pixels;

    FAXX_FASTER_FORM Gathered() : pixels(_mm256_setzero_si256()) {}

    FAXX_FASTER_FORM void Add(const uint8_t* row) {
        pixels = _mm256_or_si256(pixels, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row)));
    }

    FAXX_FASTER_FORM void AddHalf(const uint8_t* row) {
        pixels = _mm256_or_si256(
            pixels, _mm256_zextsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(row))));
    }

    FAXX_FASTER_FORM bool None() const { return _mm256_testz_si256(pixels, pixels) != 0; }
};

// Whether a row is white, as most rows of most pages are. Told of rows of a stretch or more. They are read at
// aligned addresses as in SkipStretches; what is left behind the last of them goes by ever smaller pieces.
template <Form form>
[[gnu::always_inline]] inline bool IsWhite(const uint8_t* row, uint32_t width) {
    if (width < 8 * kStretchBytes)
        return false;
    const uint8_t* const end = row + width / 8;
    Gathered<form> black;
    black.Add(row);
    const uint8_t* next = NextAligned(row);
    for (; end - next >= static_cast<ptrdiff_t>(4 * kStretchBytes); next += 4 * kStretchBytes) {
        black.Add(next);
        black.Add(next + kStretchBytes);
        black.Add(next + 2 * kStretchBytes);
        black.Add(next + 3 * kStretchBytes);
    }
    for (; end - next >= static_cast<ptrdiff_t>(kStretchBytes); next += kStretchBytes)
        black.Add(next);
    uint64_t rest = 0;
    const size_t left = static_cast<size_t>(end - next);
    if ((left & 16) != 0) {
        black.AddHalf(next);
        next += 16;
    }
    if ((left & 8) != 0) {
        rest |= Load<uint64_t>(next);
        next += 8;
    }
    if ((left & 4) != 0) {
        rest |= Load<uint32_t>(next);
        next += 4;
    }
    if ((left & 2) != 0) {
        rest |= Load<uint16_t>(next);
        next += 2;
    }
    if ((left & 1) != 0)
        rest |= *next;
    if (width % 8 != 0)
        rest |= static_cast<unsigned>(*end) >> (8 - width % 8);
    return rest == 0 && black.None();
}

template <Form form>
[[gnu::always_inline]] inline uint32_t List(CCITTG34* record, const uint8_t* row) {
    uint32_t* entry = record->CodingLine;
    uint32_t remaining = record->Width;
    uint64_t before = 0; // the pixel before the word, in bit 63
    while (remaining >= kWordPixels) {
        const uint64_t pixels = LoadPixels(row);
        const uint64_t changes = pixels ^ (pixels >> 1 | before);
        if (changes != 0) {
            entry = AppendChanges<form>(entry, changes, remaining);
            before = pixels << 63;
        } else if (const size_t skipped = SkipStretches<form>(row, remaining / 8, pixels); skipped != 0) {
            remaining -= static_cast<uint32_t>(skipped * 8);
            row += skipped;
            continue;
        }
        remaining -= kWordPixels;
        row += kWordPixels / 8;
    }
    if (remaining != 0) {
        const uint64_t pixels = LoadLastPixels(row, remaining, record->Width);
        const uint64_t inside = ~uint64_t{0} << (kWordPixels - remaining);
        entry = AppendChanges<form>(entry, (pixels ^ (pixels >> 1 | before)) & inside, remaining);
    }
    return Close(record, entry);
}

// Out of line, so that white rows do not set up what it takes.
[[gnu::noinline]] uint32_t ListAnywhere(CCITTG34* record, const uint8_t* row) {
    return List<Form::Anywhere>(record, row);
}

[[gnu::noinline]] FAXX_FASTER_FORM uint32_t ListFaster(CCITTG34* record, const uint8_t* row) {
    return List<Form::Faster>(record, row);
}

} // namespace

uint32_t ListChangesAnywhere(CCITTG34* record, const uint8_t* row) {
    return IsWhite<Form::Anywhere>(row, record->Width) ? Close(record, record->CodingLine)
                                                       : ListAnywhere(record, row);
}

FAXX_FASTER_FORM uint32_t ListChangesFaster(CCITTG34* record, const uint8_t* row) {
    return IsWhite<Form::Faster>(row, record->Width) ? Close(record, record->CodingLine)
                                                     : ListFaster(record, row);
}

} // namespace faxx
