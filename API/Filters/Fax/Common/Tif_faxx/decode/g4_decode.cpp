// Two-dimensional coded lines (T.6 § 2, T.4 § 4.2).
//
// A line is decoded against the change list of the line above. Positions are distances from the right edge,
// so that every test for the edge compares with 0, and b1 is an index into the reference list: its parity is
// the colour of a0 (even: white), which is never stored. The lists end in three zeros, so the searches for b1
// need no bounds test.
//
// Each mode code has a function, which says how the line goes on. The end of a line is in one place.
#include "API/Filters/Fax/Common/Tif_faxx/decode/g4_decode.h"

#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/mode_codes.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g4_fast.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/g4_line.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/read_codes.h"

#include <algorithm>

namespace faxx {

using namespace g4;

namespace {

constexpr unsigned kUncompressedMode = 0b0000001111; // T.6 § 2.3: the extension code that is defined
constexpr unsigned kUncompressedModeBits = 10;
constexpr unsigned kHalfEofb = 0b0000000000010000; // the first 16 of an EOFB's 24 bits
constexpr unsigned kHalfEofbBits = 16;
constexpr unsigned kEofbRest = 0b00000001;
constexpr unsigned kEofbRestBits = 8;
// A line is begun while the budget holds so many words more than Width.
constexpr uint32_t kLeastExtraWords = 3;

constexpr unsigned kZerosSkipped = 8; // where no mode code stands

// Ends a line whose last code reached past the right edge. An encoder that pads its lines to whole bytes
// overshoots by exactly the padding: the line is then as wide as it was coded, and so are all later ones.
After Overshoot(Line& line, uint32_t a1) {
    const uint32_t past = 0 - a1;
    CCITTG34* record = line.record;
    if (record->Width % 8 != 0 && past == 8 - record->Width % 8) {
        record->Width += past;
        for (uint32_t i = 0; i < line.written; ++i)
            line.coding[i] += past;
        ReportDataError(record, ERROR_FAX_WIDTH_CHANGED);
    } else {
        while (line.written != 0 && !LeftOfEdge(line.coding[line.written - 1]))
            --line.written;
        ReportDataError(record, ERROR_FAX_DATA_CORRUPT);
    }
    return After::LineEnd;
}

After VerticalMode(Line& line, int offset) {
    const uint32_t a1 = line.reference[line.b1] + static_cast<uint32_t>(offset);
    if (!LeftOfEdge(a1))
        return a1 == 0 ? After::LineEnd : Overshoot(line, a1);
    if (offset > 0 && static_cast<int32_t>(a1) > static_cast<int32_t>(line.a0)) {
        ReportDataError(line.record, ERROR_FAX_DATA_CORRUPT);
        line.record->DecodeStatus = DECODE_STATUS_BAD_CODE;
        return After::LineEnd;
    }
    if (!line.Append(a1))
        return After::LineEnd;
    line.a0 = a1;
    if (offset == 0) {
        ++line.b1;
    } else if (offset < 0) {
        ++line.b1;
        line.SeekB1();
    } else {
        // A change of the other colour may lie between a1 and the old b1: the one before b1, if any.
        const uint32_t tried = line.b1 == 0 ? 1 : line.b1 - 1;
        line.b1 = line.reference[tried] < a1 ? tried : tried + 2;
    }
    return After::NextCode;
}

After PassMode(Line& line) {
    line.a0 = line.reference[line.b1 + 1];
    line.b1 += 2;
    return line.a0 == 0 ? After::LineEnd : After::NextCode;
}

// Eight zero bits stand where a run code is due. They are taken for an EOL with fill; only a black run of a
// stream without EOLs leaves them to be read as padding.
After MissingRunCode(Line& line, Colour colour) {
    if ((colour == Colour::White || !RowsBeginOnBytes(line.record->Format)) &&
        !ReadEol(line.input, line.record))
        return After::NoData;
    return line.written == 0 ? After::NextCode : After::LineEnd;
}

// Two runs from a0 on. Where the first has no code after make-up codes, these are forgotten: a0 stays.
After HorizontalMode(Line& line) {
    const Colour first = line.A0Colour();
    uint32_t position = line.a0;
    for (const Colour colour : {first, Opposite(first)}) {
        switch (ReadRun(line.input, colour, position)) {
        case RunRead::Complete:
            break;
        case RunRead::NoCode:
            return MissingRunCode(line, colour);
        case RunRead::NoData:
            return After::NoData;
        }
        if (!line.Append(position))
            return After::LineEnd;
    }
    line.a0 = position;
    if (!LeftOfEdge(position))
        return position == 0 ? After::LineEnd : Overshoot(line, position);
    line.SeekB1();
    return After::NextCode;
}

// Pixels as they are, one bit each (T.6 § 2.3.1). The image patterns and exit codes of the standard come out
// of three rules: 000001 is five white pixels, 0000001T the exit to colour T, any other bit a pixel.
After UncompressedMode(Line& line) {
    Colour colour = line.A0Colour();
    for (;;) {
        uint32_t pixels = 1;
        Colour pixelColour = Colour::White;
        if (line.input.Top(7) == 1) {
            const Colour next = static_cast<Colour>(line.input.Top(8) & 1);
            if (!line.input.Consume(8))
                return After::NoData;
            if (!LeftOfEdge(line.a0) || (next != colour && !line.Append(line.a0)))
                return After::LineEnd;
            line.SeekB1FromStart(next);
            return After::NextCode;
        }
        if (line.input.Top(6) == 1) {
            pixels = 5;
            if (!line.input.Consume(6))
                return After::NoData;
        } else {
            pixelColour = static_cast<Colour>(line.input.Top(1));
            if (!line.input.Consume(1))
                return After::NoData;
        }
        if (pixelColour != colour) {
            if (!line.Append(line.a0))
                return After::LineEnd;
            colour = pixelColour;
        }
        line.a0 -= pixels;
        if (!LeftOfEdge(line.a0))
            return After::LineEnd;
    }
}

After ExtensionCode(Line& line) {
    if (line.input.Top(kUncompressedModeBits) != kUncompressedMode) {
        ReportDataError(line.record, ERROR_FAX_DATA_CORRUPT);
        return After::Return;
    }
    if (!line.input.Consume(kUncompressedModeBits))
        return After::NoData;
    return UncompressedMode(line);
}

// Seven zero bits where a mode code is due: an EOFB (T.6 § 2.4.1.1) or damage.
After ZeroBits(Line& line) {
    if (line.input.Top(kHalfEofbBits) != kHalfEofb) {
        ReportDataError(line.record, ERROR_FAX_DATA_CORRUPT);
        return line.input.Consume(kZerosSkipped) ? After::LineEnd : After::NoData;
    }
    if (!line.input.Consume(kHalfEofbBits))
        return After::NoData;
    if (line.input.Top(kEofbRestBits) != kEofbRest) {
        line.record->DecodeStatus = DECODE_STATUS_BAD_CODE;
        return After::Return;
    }
    if (!line.input.Consume(kEofbRestBits) || !line.input.AlignToByte())
        return After::NoData;
    return After::EndOfBlock;
}

After DecodeModeCode(Line& line) {
    const ModeCode code = kModeCodes[line.input.Top(kModeIndexBits)];
    if (code.mode <= Mode::Horizontal && !line.input.Consume(code.length))
        return After::NoData;
    switch (code.mode) {
    case Mode::Vertical:
        return VerticalMode(line, code.offset);
    case Mode::Horizontal:
        return HorizontalMode(line);
    case Mode::Pass:
        return PassMode(line);
    case Mode::Extension:
        return ExtensionCode(line);
    case Mode::Zeros:
        break;
    }
    return ZeroBits(line);
}

// Decodes a line up to whatever ends it. The fast loop reads what is ordinary, this file everything else.
After DecodeLine(Line& line) {
    for (;;) {
        After after = kFunctions.readModes(line);
        if (after == After::NextCode)
            after = DecodeModeCode(line);
        if (after != After::NextCode)
            return after;
    }
}

// Turns the line into a row, if it has one.
void EndLine(Line& line, RowOutput& output, After after) {
    CCITTG34* record = line.record;
    if (after != After::EndOfBlock || line.written != 0)
        FinishLine(record, output, line.written);
    if (after == After::EndOfBlock) // what follows is an image of its own
        CloseList(record->ReferenceLine, 0);
}

} // namespace

unsigned DecodeG4Lines(CCITTG34* record, RowOutput& output, uint32_t referenceEntries) {
    const unsigned lines = output.linesLeft;
    if (referenceEntries == kEntriesUnknown)
        referenceEntries = ListLength(record->ReferenceLine);
    Line line(record);
    do {
        output.BeginLine(record->Width);
        line.Begin(output, referenceEntries);
        uint32_t blankLines = 0;
        if (line.reference[0] == 0)
            blankLines = ReadBlankLines(line, BlankLinesThatFit(record, output, kLeastExtraWords));
        if (blankLines != 0) {
            FinishBlankLines(record, output, blankLines);
        } else {
            const After after = DecodeLine(line);
            if (after == After::Return)
                break;
            EndLine(line, output, after);
            if (after == After::NoData) {
                line.input.StoreExhausted();
                return lines - output.linesLeft;
            }
        }
        referenceEntries = std::max(line.written, line.referenceEntries);
    } while (output.linesLeft != 0 &&
             output.budget >= static_cast<int32_t>(record->Width + kLeastExtraWords));
    line.input.Store();
    return lines - output.linesLeft;
}

} // namespace faxx

unsigned DecodeG4(CCITTG34* record, unsigned short* rows, unsigned lines) {
    using namespace faxx;
    if (lines == 0)
        return 0;
    if (record->DecodeStatus != DECODE_STATUS_OK)
        return WriteWhiteRows(rows, record->Width, lines);
    RowOutput output{rows, kRowBudget, 0, lines};
    return DecodeG4Lines(record, output, kEntriesUnknown);
}
