// Two-dimensional coded lines (T.6 § 2, T.4 § 4.2).
//
// A line is decoded against the change list of the line above. Positions are distances from the right edge,
// so that every test for the edge compares with 0, and b1 is an index into the reference list: its parity is
// the colour of a0 (even: white), which is never stored. The lists end in three zeros, so the searches for b1
// need no bounds test.
//
// One step of the loop reads one mode code and says what comes after it; the end of a line, whatever brought
// it about, is in one place.
#include "API/Filters/Fax/Common/Tif_faxx/g4_decode.h"

#include "API/Filters/Fax/Common/Tif_faxx/bit_input.h"

#include <algorithm>
#include <array>

namespace faxx {
namespace {

enum class After : uint8_t {
    NextCode,   // the line goes on
    LineEnd,    // the line is complete, or ended at its last written change
    EndOfBlock, // an EOFB was read: what follows is a fresh image
    Return,     // the line in progress is dropped
    NoData,     // the input ended
};

enum class Mode : uint8_t { Vertical, Horizontal, Pass, Extension, Zeros };

struct ModeCode {
    Mode mode;
    uint8_t length;
    int8_t offset; // of a1 from b1 as distances: positive to the left
};

constexpr unsigned kModeIndexBits = 7;

// Indexed by the next seven bits (T.6 table 1).
constexpr auto kModeCodes = [] {
    struct {
        uint8_t bits;
        ModeCode code;
    } const codes[] = {
        {0b1, {Mode::Vertical, 1, 0}},       {0b011, {Mode::Vertical, 3, -1}},
        {0b000011, {Mode::Vertical, 6, -2}}, {0b0000011, {Mode::Vertical, 7, -3}},
        {0b010, {Mode::Vertical, 3, 1}},     {0b000010, {Mode::Vertical, 6, 2}},
        {0b0000010, {Mode::Vertical, 7, 3}}, {0b001, {Mode::Horizontal, 3, 0}},
        {0b0001, {Mode::Pass, 4, 0}},        {0b0000001, {Mode::Extension, 7, 0}},
        {0b0000000, {Mode::Zeros, 7, 0}},
    };
    std::array<ModeCode, 1 << kModeIndexBits> table{};
    for (const auto& entry : codes) {
        const unsigned spare = kModeIndexBits - entry.code.length;
        for (unsigned i = 0; i < 1u << spare; ++i)
            table[(unsigned{entry.bits} << spare) + i] = entry.code;
    }
    return table;
}();

constexpr unsigned kUncompressedMode = 0b0000001111; // T.6 § 2.3: the extension code that is defined
constexpr unsigned kUncompressedModeBits = 10;
constexpr unsigned kHalfEofb = 0b0000000000010000; // the first 16 of an EOFB's 24 bits
constexpr unsigned kHalfEofbBits = 16;
constexpr unsigned kEofbRest = 0b00000001;
constexpr unsigned kEofbRestBits = 8;
constexpr unsigned kZerosSkipped = 8; // of a mode code that is none

bool LeftOfEdge(uint32_t distance) {
    return static_cast<int32_t>(distance) > 0;
}

// The line in progress.
struct Line {
    CCITTG34* record;
    BitInput input;
    const uint32_t* reference;
    uint32_t* coding;
    uint32_t written; // changing elements on the coding line
    uint32_t limit;   // of written
    uint32_t a0;
    uint32_t b1; // index into reference

    explicit Line(CCITTG34* r) : record(r), input(r) {}

    void Begin(const RowOutput& output) {
        reference = record->ReferenceLine;
        coding = record->CodingLine;
        limit = EntryLimit(output.lineWords);
        Restart();
    }

    void Restart() {
        written = 0;
        a0 = record->Width;
        b1 = 0;
    }

    Colour A0Colour() const { return static_cast<Colour>(b1 & 1); }

    // Writes a changing element, false where the line has reached its limit.
    bool Append(uint32_t distance) {
        if (written >= limit) [[unlikely]] {
            ReportDataError(record, ERROR_FAX_DATA_CORRUPT);
            return false;
        }
        coding[written++] = distance;
        return true;
    }

    // Moves b1 on, its colour kept, to the first changing element right of a0.
    void SeekB1() {
        while (reference[b1] >= a0)
            b1 += 2;
    }
};

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
    if ((colour == Colour::White || line.record->Format != FORMAT_FAX_G3_1D_NOEOL) &&
        !ReadEol(line.input, line.record))
        return After::NoData;
    return line.written == 0 ? After::NextCode : After::LineEnd;
}

After HorizontalMode(Line& line) {
    const Colour first = line.A0Colour();
    for (const Colour colour : {first, Opposite(first)}) {
        switch (ReadRun(line.input, colour, line.a0)) {
        case RunRead::Complete:
            break;
        case RunRead::NoCode:
            return MissingRunCode(line, colour);
        case RunRead::NoData:
            return After::NoData;
        }
        if (!line.Append(line.a0))
            return After::LineEnd;
    }
    if (!LeftOfEdge(line.a0))
        return line.a0 == 0 ? After::LineEnd : Overshoot(line, line.a0);
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
            line.b1 = static_cast<uint32_t>(next);
            line.SeekB1();
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
    if (code.mode <= Mode::Pass && !line.input.Consume(code.length))
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

} // namespace

unsigned DecodeG4Lines(CCITTG34* record, RowOutput& output) {
    const unsigned lines = output.linesLeft;
    Line line(record);
    line.Begin(output);
    for (;;) {
        const After after = DecodeModeCode(line);
        switch (after) {
        case After::NextCode:
            continue;
        case After::NoData:
            FinishLine(record, output, line.written);
            line.input.StoreExhausted();
            return lines - output.linesLeft;
        case After::Return:
            line.input.Store();
            return lines - output.linesLeft;
        case After::LineEnd:
        case After::EndOfBlock:
            break;
        }
        if (after == After::LineEnd || line.written != 0)
            FinishLine(record, output, line.written);
        if (after == After::EndOfBlock)
            CloseList(record->ReferenceLine, 0);
        if (output.linesLeft == 0 || output.budget < static_cast<int32_t>(record->Width + 3)) {
            line.input.Store();
            return lines - output.linesLeft;
        }
        output.lineWords = static_cast<uint32_t>(output.budget);
        line.Begin(output);
    }
}

} // namespace faxx

unsigned DecodeG4(CCITTG34* record, unsigned short* rows, unsigned lines) {
    using namespace faxx;
    if (lines == 0)
        return 0;
    if (record->DecodeStatus != DECODE_STATUS_OK)
        return WriteWhiteRows(rows, record->Width, lines);
    RowOutput output{rows, kRowBudget, static_cast<uint32_t>(kRowBudget), lines};
    return DecodeG4Lines(record, output);
}
