#include "API/Filters/Fax/Common/Tif_faxx/rows/run_rows.h"

#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/instruction_sets.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/record.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace faxx {
namespace {

uint16_t* PutRun(uint16_t* word, uint32_t run) {
    while (run > kRunPiece) {
        *word++ = static_cast<uint16_t>(kRunPiece);
        *word++ = 0;
        run -= kRunPiece;
    }
    *word++ = static_cast<uint16_t>(run);
    return word;
}

constexpr uint32_t kLanes = 8;

// Eight entries of a list, and the runs that they end. Ordinary where they neither rise nor stand at or past
// the edge.
template <InstructionSet set>
struct EightRuns {
    __m128i run0;
    __m128i run1;
    __m128i below; // a negative lane: not ordinary

    explicit EightRuns(const uint32_t* entries) {
        const __m128i one = _mm_set1_epi32(1);
        const auto load = [](const uint32_t* at) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        };
        const __m128i entry0 = load(entries);
        const __m128i entry1 = load(entries + 4);
        run0 = _mm_sub_epi32(load(entries - 1), entry0);
        run1 = _mm_sub_epi32(load(entries + 3), entry1);
        below = _mm_or_si128(_mm_or_si128(run0, _mm_sub_epi32(entry0, one)),
                             _mm_or_si128(run1, _mm_sub_epi32(entry1, one)));
    }

    bool Ordinary() const { return _mm_movemask_ps(_mm_castsi128_ps(below)) == 0; }

    bool OrdinaryWith(const EightRuns& next) const {
        return _mm_movemask_ps(_mm_castsi128_ps(_mm_or_si128(below, next.below))) == 0;
    }

    void Store(uint16_t* words) const {
        // Packing saturates as signed: sign-extended low halves pass unchanged.
        const auto low = [](__m128i run) { return _mm_srai_epi32(_mm_slli_epi32(run, 16), 16); };
        _mm_storeu_si128(reinterpret_cast<__m128i*>(words), _mm_packs_epi32(low(run0), low(run1)));
    }

    void StoreWith(const EightRuns& next, uint16_t* words) const {
        Store(words);
        next.Store(words + kLanes);
    }
};

template <>
struct EightRuns<InstructionSet::Avx2> {
    __m256i run;
    __m256i below;

    FAXX_AVX2 explicit EightRuns(const uint32_t* entries) {
        const __m256i entry = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(entries));
        run = _mm256_sub_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(entries - 1)), entry);
        below = _mm256_or_si256(run, _mm256_sub_epi32(entry, _mm256_set1_epi32(1)));
    }

    FAXX_AVX2 bool Ordinary() const { return _mm256_movemask_ps(_mm256_castsi256_ps(below)) == 0; }

    FAXX_AVX2 bool OrdinaryWith(const EightRuns& next) const {
        return _mm256_movemask_ps(_mm256_castsi256_ps(_mm256_or_si256(below, next.below))) == 0;
    }

    FAXX_AVX2 void Store(uint16_t* words) const {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(words),
                         _mm_packus_epi32(_mm256_castsi256_si128(run), _mm256_extracti128_si256(run, 1)));
    }

    FAXX_AVX2 void StoreWith(const EightRuns& next, uint16_t* words) const {
        constexpr int kHalvesInOrder = 0b11'01'10'00; // packing goes by halves
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(words),
                            _mm256_permute4x64_epi64(_mm256_packus_epi32(run, next.run), kHalvesInOrder));
    }
};

template <InstructionSet set>
[[gnu::always_inline]] inline uint32_t WriteRuns(const uint32_t* list, uint32_t entries, uint32_t width,
                                                 uint16_t* word) {
    if (entries <= kLanes || list[0] == 0 || list[0] > width)
        return 0;
    word[0] = static_cast<uint16_t>(width - list[0]);
    uint32_t done = 1;
    for (; done + 2 * kLanes <= entries; done += 2 * kLanes) {
        const EightRuns<set> eight(list + done);
        const EightRuns<set> next(list + done + kLanes);
        if (!eight.OrdinaryWith(next))
            break;
        eight.StoreWith(next, word + done);
    }
    while (done < entries) {
        // The last eight overlap with those before.
        const uint32_t first = std::min(done, entries - kLanes);
        const EightRuns<set> eight(list + first);
        if (!eight.Ordinary())
            break;
        eight.Store(word + first);
        done = first + kLanes;
    }
    return done;
}

} // namespace

uint32_t WriteRunsBaseline(const uint32_t* list, uint32_t entries, uint32_t width, uint16_t* word) {
    return WriteRuns<InstructionSet::Baseline>(list, entries, width, word);
}

FAXX_AVX2 uint32_t WriteRunsAvx2(const uint32_t* list, uint32_t entries, uint32_t width, uint16_t* word) {
    return WriteRuns<InstructionSet::Avx2>(list, entries, width, word);
}

uint16_t* PutManyWhiteRows(uint16_t* row, uint32_t width, uint32_t lines) {
    constexpr uint32_t kRowsTogether = 8; // of one run each: they fill whole vectors
    if (width <= kRunPiece) {
        std::array<uint16_t, size_t{kRowsTogether} * kWhiteRowWords> together{};
        for (size_t i = 0; i < together.size(); i += kWhiteRowWords)
            PutRunCount(&together[i], PutRun(&together[i] + kRowHeaderWords, width));
        for (; lines >= kRowsTogether; lines -= kRowsTogether) {
            std::memcpy(row, together.data(), sizeof together);
            row += together.size();
        }
    }
    for (; lines != 0; --lines)
        row += PutRunCount(row, PutRun(row + kRowHeaderWords, width));
    return row;
}

void WriteWhiteRow(uint16_t** rows, uint32_t width) {
    *rows = PutWhiteRows(*rows, width, 1);
}

unsigned WriteWhiteRows(uint16_t* rows, uint32_t width, unsigned lines) {
    const uint32_t fit = static_cast<uint32_t>(kRowBudget) / (kRowHeaderWords + RunWords(width));
    if (lines > fit)
        lines = fit;
    PutWhiteRows(rows, width, lines);
    return lines;
}

uint32_t WriteRow(uint32_t* list, uint32_t entries, uint32_t width, uint16_t* row, uint32_t maxWords,
                  bool* cut) {
    uint16_t* word = row + kRowHeaderWords;
    uint32_t previous = width;
    if (width <= kRunPiece) {
        const uint32_t whole = kFunctions.writeRuns(list, entries, width, word);
        if (whole != 0) {
            list += whole;
            word += whole;
            previous = list[-1];
        }
        for (; *list != 0 && *list <= previous; ++list) {
            *word++ = static_cast<uint16_t>(previous - *list);
            previous = *list;
        }
    } else {
        const uint16_t* end = row + maxWords;
        for (; *list != 0 && *list <= previous; ++list) {
            const uint32_t run = previous - *list;
            if (static_cast<uint32_t>(end - word) < RunWords(run) + RunWords(*list)) {
                *cut = true;
                break;
            }
            word = PutRun(word, run);
            previous = *list;
        }
    }
    if (*list != 0)
        CloseList(list, 0);
    return PutRunCount(row, PutRun(word, previous));
}

void FinishLine(CCITTG34* record, RowOutput& output, uint32_t entries) {
    CloseList(record->CodingLine, entries);
    bool cut = false;
    const uint32_t words =
        WriteRow(record->CodingLine, entries, record->Width, output.next, output.lineWords, &cut);
    if (cut)
        ReportDataError(record, ERROR_FAX_DATA_CORRUPT);
    output.next += words;
    output.budget -= static_cast<int32_t>(words);
    --output.linesLeft;
    std::swap(record->ReferenceLine, record->CodingLine);
}

} // namespace faxx
