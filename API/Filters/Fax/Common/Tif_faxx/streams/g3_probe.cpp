// Finds the width and the number of lines of a G3 stream that carries neither, by decoding it once.
//
// Lines end at EOLs alone, and the longest is taken for the width. Distances count down from 65535, the
// fax codes' natural width, since the right edge is not known yet; so a line becomes all white when it is
// turned into the reference of the next, and two-dimensional lines are decoded against that. Their count is
// what matters.
#include "API/Filters/Fax/Common/Tif_faxx/streams/g3_probe.h"

#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g3_fast.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/read_codes.h"

#include <algorithm>

namespace faxx {

using namespace g3;

namespace {

constexpr uint32_t kProbeWidth = 65535;

enum class LineRead : uint8_t { Complete, TwoDimensional, NoData, TooWide };

// Lets the length of the line's runs so far count for the width; false when no page is that wide.
bool CountWidth(const Line& line, uint32_t* longest) {
    CCITTG34* record = line.record;
    *longest = std::max(*longest, kProbeWidth - record->CodingLine[line.written - 1]);
    record->Width = std::max(record->Width, *longest);
    return record->Width <= kWidestProbed;
}

// *longest: the greatest length that the line came to.
LineRead ReadLine(Line& line, uint32_t* longest) {
    for (;;) {
        if (line.record->NextLineTag >= 0)
            return LineRead::TwoDimensional;
        kFunctions.readRuns(line, Edge::Unknown);
        if (line.record->NextLineTag >= 0)
            return LineRead::TwoDimensional;
        if (line.written != 0)
            CountWidth(line, longest);
        for (const Colour colour : {Colour::White, Colour::Black}) {
            if (colour != line.Due())
                continue;
            const RunRead run = ReadRun(line.input, colour, line.remaining);
            if (run == RunRead::NoCode) {
                const bool padding = colour == Colour::Black && RowsBeginOnBytes(line.record->Format);
                if (!padding && !ReadEol(line.input, line.record))
                    return LineRead::NoData;
                if (colour == Colour::Black || line.written != 0)
                    return LineRead::Complete;
                break; // an EOL in front of the line
            }
            if (run == RunRead::NoData)
                return LineRead::NoData;
            if (line.remaining == 0 || !line.Append())
                return LineRead::Complete;
            if (!CountWidth(line, longest))
                return LineRead::TooWide;
        }
    }
}

// Reads the EOLs in front of a line, and the line. *known: the notes tell how the trial ends.
LineRead ReadNextLine(Line& line, TrialNotes& notes, int* lines, uint32_t* longest, bool* known) {
    CCITTG34* record = line.record;
    while (record->NextLineTag < 0) {
        *known = notes.KnowsTheEnd(record, line.input.Position(), lines);
        if (*known || line.input.Top(kEolZeros) != 0)
            break;
        if (!ReadEol(line.input, record))
            return LineRead::NoData;
    }
    return *known ? LineRead::Complete : ReadLine(line, longest);
}

// Counts the lines. False where the notes knew the end before it came.
bool CountLines(CCITTG34* record, unsigned short* rows, TrialNotes& notes, int* lines) {
    record->Width = 0;
    while (record->DecodeStatus == DECODE_STATUS_OK) {
        Line line(record);
        line.Begin(kProbeWidth, kRawRowWords);
        notes.BeginLine();
        uint32_t longest = 0;
        bool known = false;
        const LineRead read = ReadNextLine(line, notes, lines, &longest, &known);
        if (known)
            return false;
        notes.OneDimensionalLine(longest);
        switch (read) {
        case LineRead::TooWide:
            *lines = 0;
            return true;
        case LineRead::TwoDimensional:
            record->NextLineTag = kNextLineOneDimensional;
            line.input.Store();
            notes.TwoDimensionalLine(*lines);
            if (DecodeG4(record, rows, 1) == 0)
                return true;
            ++*lines;
            continue;
        case LineRead::Complete:
            line.input.Store();
            break;
        case LineRead::NoData:
            line.input.StoreExhausted();
            break;
        }
        RowOutput output{rows, 0, kRawRowWords, 1};
        FinishLine(record, output, line.written);
        ++*lines;
    }
    return true;
}

} // namespace

int ProbeStream(CCITTG34* record, unsigned short* rows, TrialNotes& notes) {
    int lines = 0;
    if (CountLines(record, rows, notes, &lines))
        notes.Finish(record, lines);
    return lines;
}

} // namespace faxx

int InfoDecodeG3(CCITTG34* record, unsigned short* rows) {
    faxx::TrialNotes none;
    return faxx::ProbeStream(record, rows, none);
}
