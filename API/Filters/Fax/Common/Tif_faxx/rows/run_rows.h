// Run-length rows, the form in which decoded lines travel to the kernel (host/kernel.h), and the step that
// ends every decoded line: its change list becomes a row, and the reference line of the next.
//
// A run of 65535 pixels or more does not fit a word. It is cut into pieces of 65534 joined by empty runs of
// the other colour.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/limits.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/change_list.h"

#include <cstring>
#include <utility>

namespace faxx {

inline constexpr uint32_t kRunPiece = 65534;
inline constexpr uint32_t kRowHeaderWords = 2; // RunCount

// The words that a run of this length takes.
inline uint32_t RunWords(uint32_t run) {
    return run <= kRunPiece ? 1 : 1 + (run - 1) / kRunPiece * 2;
}

// Completes a row whose runs end at end. Returns its words.
inline uint32_t PutRunCount(uint16_t* row, const uint16_t* end) {
    const uint32_t words = static_cast<uint32_t>(end - row);
    const uint32_t runCount = words - kRowHeaderWords;
    std::memcpy(row, &runCount, sizeof runCount);
    return words;
}

inline constexpr uint32_t kWhiteRowWords = kRowHeaderWords + 1; // where the width is at most kRunPiece
inline constexpr uint32_t kFewRows = 16;                        // written in line, a store a word

// Writes all-white rows. Returns where they end.
uint16_t* PutManyWhiteRows(uint16_t* row, uint32_t width, uint32_t lines);

// The same, with the loop for a few rows in line: two blank lines are a whole call in format 67.
inline uint16_t* PutWhiteRows(uint16_t* row, uint32_t width, uint32_t lines) {
    if (width > kRunPiece || lines > kFewRows) [[unlikely]]
        return PutManyWhiteRows(row, width, lines);
    for (uint16_t* const end = row + size_t{lines} * kWhiteRowWords; row != end; row += kWhiteRowWords) {
        row[kRowHeaderWords] = static_cast<uint16_t>(width);
        PutRunCount(row, row + kWhiteRowWords);
    }
    return row;
}

// Appends one all-white row at *rows and advances *rows past it.
void WriteWhiteRow(uint16_t** rows, uint32_t width);

// Appends white rows while they fit into the budget of one decoder call. Returns how many were written.
unsigned WriteWhiteRows(uint16_t* rows, uint32_t width, unsigned lines);

// Turns a closed change list of so many entries into the row at row, which has room for maxWords words, and
// returns the words written. A change that lies left of the one before it ends the line there: the last run
// then reaches the right edge, and the list is closed at that entry. So is, with *cut set, a row that would
// not fit.
uint32_t WriteRow(uint32_t* list, uint32_t entries, uint32_t width, uint16_t* row, uint32_t maxWords,
                  bool* cut);

// The runs in front of the entries of a list, as long as they neither rise nor stand at or past the edge.
// Returns how many were written, which may be none of a short list. Width at most kRunPiece. For two
// instruction sets (base/dispatch.h).
uint32_t WriteRunsBaseline(const uint32_t* list, uint32_t entries, uint32_t width, uint16_t* word);
uint32_t WriteRunsAvx2(const uint32_t* list, uint32_t entries, uint32_t width, uint16_t* word);

// What a decoder call has written, and may still write.
struct RowOutput {
    uint16_t* next;     // where the next row goes
    int32_t budget;     // words left
    uint32_t lineWords; // words that the line in progress may take
    unsigned linesLeft;

    // Called where a line begins. A call's first line is begun whatever the width, and its area has room for
    // the whole row; every later line is begun only while the budget holds a row of Width + 2 words, and one
    // word more belongs to the area. A list holds no more changes than kRowWords hold runs.
    void BeginLine(uint32_t width) {
        const uint32_t row = width + kRowHeaderWords + 1;
        const uint32_t left = static_cast<uint32_t>(budget);
        lineWords = row <= left ? left : row < kRowWords ? row : kRowWords;
    }
};

// How many changing elements a line may have before it is ended as if it had reached the right edge: its
// list must keep room for the closing zeros, and its row (RunCount and a run more than changes) for itself.
inline uint32_t EntryLimit(uint32_t lineWords) {
    const uint32_t forRow = lineWords - kRowHeaderWords - 1;
    const uint32_t forList = kListEntries - kClosingZeros;
    return forRow < forList ? forRow : forList;
}

// How many blank lines the call may begin and end now, each a row of the fewest words, where a line is begun
// while the budget holds so many words more than the width.
inline uint32_t BlankLinesThatFit(const CCITTG34* record, const RowOutput& output, uint32_t extraWords) {
    const int32_t words = static_cast<int32_t>(kRowHeaderWords + RunWords(record->Width));
    const int32_t spare = output.budget - static_cast<int32_t>(record->Width + extraWords);
    if (spare >= int64_t{words} * output.linesLeft) [[likely]]
        return output.linesLeft; // as for all but the last lines of a call: no need to divide
    const uint32_t fit = spare < 0 ? 1 : static_cast<uint32_t>(spare / words) + 1;
    return fit < output.linesLeft ? fit : output.linesLeft;
}

// Ends so many blank lines, at least 1.
inline void FinishBlankLines(CCITTG34* record, RowOutput& output, uint32_t lines) {
    uint16_t* const end = PutWhiteRows(output.next, record->Width, lines);
    output.budget -= static_cast<int32_t>(end - output.next);
    output.next = end;
    output.linesLeft -= lines;
    CloseList(record->CodingLine, 0);
    if (lines > 1)
        CloseList(record->ReferenceLine, 0);
    if (lines % 2 != 0)
        std::swap(record->ReferenceLine, record->CodingLine);
}

// Ends a line of so many changing elements: closes CodingLine, writes its row, makes it the reference line.
void FinishLine(CCITTG34* record, RowOutput& output, uint32_t entries);

} // namespace faxx
