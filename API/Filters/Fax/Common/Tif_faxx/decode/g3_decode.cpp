// Group 3 lines (T.4 § 4).
//
// One-dimensional lines are white and black runs in turn, decoded here; two-dimensional lines are the G4
// decoder's, which goes on at the same bit. A line ends when its runs reach the width, or at an EOL, which is
// recognised wherever a run code is due: no run code begins with eight zero bits.
#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g3_blank.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g3_fast.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/g3_line.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/g4_decode.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/read_codes.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/run_rows.h"

namespace faxx {

using namespace g3;

namespace {

enum class LineRead : uint8_t { Complete, TwoDimensional, NoData };

// Writes the end of a run left of the edge. Where the line has reached its limit it is ended there.
void AppendInside(Line& line) {
    if (!line.ReachedEdge() && !line.Append())
        line.remaining = 0;
}

// Decodes up to the right edge. What stands at or past the edge is not written: closing the list there
// makes the last run reach the edge.
LineRead ReadLine(Line& line) {
    const bool alignedRows = RowsBeginOnBytes(line.record->Format);
    for (;;) {
        // NextLineTag only changes at an EOL, and an EOL inside a line ends it: this is a test at its start.
        if (line.record->NextLineTag >= 0)
            return LineRead::TwoDimensional;
        if (kFunctions.readRuns(line, Edge::EndsLine))
            return LineRead::Complete;
        if (line.record->NextLineTag >= 0)
            return LineRead::TwoDimensional;

        if (line.Due() == Colour::White) {
            switch (ReadRun<Colour::White>(line.input, line.remaining)) {
            case RunRead::Complete:
                break;
            case RunRead::NoCode:
                if (!ReadEol(line.input, line.record))
                    return LineRead::NoData;
                if (line.written == 0)
                    continue; // an EOL in front of the line
                line.remaining = 0;
                return LineRead::Complete;
            case RunRead::NoData:
                return LineRead::NoData;
            }
            AppendInside(line);
            if (line.ReachedEdge() &&
                (alignedRows || line.input.Top(kEmptyBlackRun.length) != kEmptyBlackRun.bits))
                return LineRead::Complete;
        }

        switch (ReadRun<Colour::Black>(line.input, line.remaining)) {
        case RunRead::Complete:
            break;
        case RunRead::NoCode:
            if (!alignedRows && !ReadEol(line.input, line.record))
                return LineRead::NoData;
            line.remaining = 0;
            return LineRead::Complete;
        case RunRead::NoData:
            return LineRead::NoData;
        }
        AppendInside(line);
        if (line.ReachedEdge())
            return LineRead::Complete;
    }
}

// A line that ends within the last byte past the edge was coded with that width: so are all later ones.
void AcceptCodedWidth(const Line& line) {
    CCITTG34* record = line.record;
    const uint32_t coded = record->Width - line.remaining;
    if (coded <= (record->Width + 7) / 8 * 8)
        record->Width = coded;
}

// Hands over to the G4 decoder: one line between EOLs, or all that are left where none follow.
unsigned DecodeTwoDimensional(CCITTG34* record, RowOutput& output, uint32_t referenceEntries) {
    RowOutput handedOver = output;
    if (!HasTwoDimensionalTail(record->Format)) {
        record->NextLineTag = kNextLineOneDimensional;
        handedOver.linesLeft = 1;
    }
    return DecodeG4Lines(record, handedOver, referenceEntries);
}

// A line is begun while the budget holds so many words more than Width.
constexpr uint32_t kLeastExtraWords = 2;

// Not inlined, so that a call of two blank lines does not save and set up its registers.
[[gnu::noinline]] unsigned DecodeLines(CCITTG34* record, uint16_t* rows, unsigned lines) {
    RowOutput output{rows, kRowBudget, 0, lines};
    output.BeginLine(record->Width);
    Line line(record);
    BlankLineCode blankLine = BlankLineOf(record);
    uint32_t referenceEntries = kEntriesUnknown;
    for (;;) {
        uint32_t blank = 0;
        if (record->NextLineTag < 0)
            blank = ReadBlankLines(line, blankLine, BlankLinesThatFit(record, output, kLeastExtraWords));
        if (blank != 0) {
            FinishBlankLines(record, output, blank);
            referenceEntries = 0;
        } else {
            line.Begin(record->Width, output.lineWords);
            LineRead read = ReadLine(line);
            if (read == LineRead::TwoDimensional) {
                line.input.Store();
                const unsigned decoded = lines - output.linesLeft;
                return decoded + DecodeTwoDimensional(record, output, referenceEntries);
            }
            if (read == LineRead::Complete && RowsBeginOnBytes(record->Format) && !line.input.AlignToByte())
                read = LineRead::NoData;
            if (read == LineRead::Complete && line.remaining != 0)
                AcceptCodedWidth(line);
            if (record->Width != blankLine.width) [[unlikely]]
                blankLine = BlankLineOf(record);

            FinishLine(record, output, line.written);
            referenceEntries = line.written;
            if (read == LineRead::NoData) {
                line.input.StoreExhausted();
                return lines - output.linesLeft;
            }
        }
        if (output.linesLeft == 0 || output.budget < static_cast<int32_t>(record->Width + kLeastExtraWords)) {
            line.input.Store();
            return lines - output.linesLeft;
        }
        output.BeginLine(record->Width);
    }
}

// What is left of a stream that is exhausted or damaged.
[[gnu::noinline]] unsigned RefuseLines(CCITTG34* record, uint16_t* rows, unsigned lines) {
    ReportDataError(record, ERROR_FAX_DATA_CORRUPT);
    return WriteWhiteRows(rows, record->Width, lines);
}

} // namespace
} // namespace faxx

unsigned DecodeG3(CCITTG34* record, unsigned short* rows, unsigned lines) {
    using namespace faxx;
    if (lines == 0)
        return 0;
    if (record->DecodeStatus != DECODE_STATUS_OK)
        return RefuseLines(record, rows, lines);

    if (HasLineGroups(record->Format) && record->NextLineTag < 0) [[likely]]
        return DecodeBlankPair(record, rows, lines, DecodeLines);
    return DecodeLines(record, rows, lines);
}
