#include "API/Filters/Fax/Common/Tif_faxx/run_rows.h"

#include "API/Filters/Fax/Common/Tif_faxx/bit_input.h"

#include <cstring>
#include <utility>

namespace faxx {
namespace {

// The words that a run of this length takes.
uint32_t RunWords(uint32_t run) {
    return run <= kRunPiece ? 1 : 1 + (run - 1) / kRunPiece * 2;
}

uint16_t* PutRun(uint16_t* word, uint32_t run) {
    while (run > kRunPiece) {
        *word++ = static_cast<uint16_t>(kRunPiece);
        *word++ = 0;
        run -= kRunPiece;
    }
    *word++ = static_cast<uint16_t>(run);
    return word;
}

uint32_t PutRunCount(uint16_t* row, const uint16_t* end) {
    const uint32_t words = static_cast<uint32_t>(end - row);
    const uint32_t runCount = words - kRowHeaderWords;
    std::memcpy(row, &runCount, sizeof runCount);
    return words;
}

} // namespace

void WriteWhiteRow(uint16_t** rows, uint32_t width) {
    *rows += PutRunCount(*rows, PutRun(*rows + kRowHeaderWords, width));
}

unsigned WriteWhiteRows(uint16_t* rows, uint32_t width, unsigned lines) {
    const uint32_t fit = static_cast<uint32_t>(kRowBudget) / (kRowHeaderWords + RunWords(width));
    if (lines > fit)
        lines = fit;
    for (unsigned i = 0; i < lines; ++i)
        WriteWhiteRow(&rows, width);
    return lines;
}

uint32_t WriteRow(uint32_t* list, uint32_t width, uint16_t* row, uint32_t maxWords, bool* cut) {
    uint16_t* word = row + kRowHeaderWords;
    uint32_t previous = width;
    if (width <= kRunPiece) {
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
    const uint32_t words = WriteRow(record->CodingLine, record->Width, output.next, output.lineWords, &cut);
    if (cut)
        ReportDataError(record, ERROR_FAX_DATA_CORRUPT);
    output.next += words;
    output.budget -= static_cast<int32_t>(words);
    --output.linesLeft;
    std::swap(record->ReferenceLine, record->CodingLine);
}

} // namespace faxx
