// Finds the width and the number of lines of a G3 stream that carries neither, by decoding it once.
//
// Lines end at EOLs alone, and the longest is taken for the width. Distances count down from 65535, the
// fax codes' natural width, since the right edge is not known yet; so a line becomes all white when it is
// turned into the reference of the next, and two-dimensional lines are decoded against that. Their count is
// what matters.
#include "API/Filters/Fax/Common/Tif_faxx/g3_line.h"

#include <algorithm>

namespace faxx {

using namespace g3;

namespace {

constexpr uint32_t kProbeWidth = 65535;
constexpr uint32_t kWidestLine = 200000;

enum class LineRead : uint8_t { Complete, TwoDimensional, NoData, TooWide };

// Lets the length of the line so far count for the width; false when no page is that wide.
bool CountWidth(const Line& line) {
    CCITTG34* record = line.record;
    record->Width = std::max(record->Width, kProbeWidth - line.remaining);
    return record->Width <= kWidestLine;
}

LineRead ReadLine(Line& line) {
    for (;;) {
        if (line.record->NextLineTag >= 0)
            return LineRead::TwoDimensional;
        ReadFast(line, Edge::Unknown);
        if (line.record->NextLineTag >= 0)
            return LineRead::TwoDimensional;
        if (line.written != 0)
            CountWidth(line);
        for (const Colour colour : {Colour::White, Colour::Black}) {
            const RunRead run = ReadRun(line.input, colour, line.remaining);
            if (run == RunRead::NoCode) {
                const bool padding = colour == Colour::Black && line.record->Format == FORMAT_FAX_G3_1D_NOEOL;
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
            if (!CountWidth(line))
                return LineRead::TooWide;
        }
    }
}

} // namespace
} // namespace faxx

int InfoDecodeG3(CCITTG34* record, unsigned short* rows) {
    using namespace faxx;
    record->Width = 0;
    int lines = 0;
    while (record->DecodeStatus == DECODE_STATUS_OK) {
        Line line(record);
        line.Begin(kProbeWidth, kRawRowWords);
        const LineRead read = ReadLine(line);
        switch (read) {
        case LineRead::TooWide:
            return 0;
        case LineRead::TwoDimensional:
            record->NextLineTag = kNextLineOneDimensional;
            line.input.Store();
            if (DecodeG4(record, rows, 1) == 0)
                return lines;
            ++lines;
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
        ++lines;
    }
    return lines;
}
