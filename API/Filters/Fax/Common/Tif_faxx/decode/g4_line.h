// A two-dimensional line in progress.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/base/record.h"
#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_input.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/t4_codes.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/run_rows.h"

namespace faxx::g4 {

// What comes after a mode code.
enum class After : uint8_t {
    NextCode,   // the line goes on
    LineEnd,    // the line is complete, or ended at its last written change
    EndOfBlock, // an EOFB was read: what follows is a fresh image
    Return,     // the line in progress is dropped
    NoData,     // the input ended
};

inline bool LeftOfEdge(uint32_t distance) {
    return static_cast<int32_t>(distance) > 0;
}

// The line in progress.
struct Line {
    CCITTG34* record;
    BitInput input;
    const uint32_t* reference = nullptr;
    uint32_t* coding = nullptr;
    uint32_t referenceEntries = 0; // changing elements on the reference line
    uint32_t written = 0;          // changing elements on the coding line
    uint32_t limit = 0;            // of written
    uint32_t a0 = 0;
    uint32_t b1 = 0; // index into reference
    // What the last search from the start of the reference line found, and the a0 that it was for.
    uint32_t firstRight = 0;
    uint32_t soughtFor = 0;

    explicit Line(CCITTG34* r) : record(r), input(r) {}

    // referenceEntryCount: at least as many as the reference line has.
    void Begin(const RowOutput& output, uint32_t referenceEntryCount) {
        referenceEntries = referenceEntryCount;
        reference = record->ReferenceLine;
        coding = record->CodingLine;
        limit = EntryLimit(output.lineWords);
        Restart();
    }

    void Restart() {
        written = 0;
        a0 = record->Width;
        b1 = 0;
        firstRight = 0;
        soughtFor = a0;
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

    // Finds the first changing element of a colour right of a0, whatever b1 was. The entries never rise, and
    // a0 moves to the right (but for runs of 2^32 pixels and more), so each search goes on where the last one
    // of the line ended: all of them together pass over the reference line once.
    void SeekB1FromStart(Colour colour) {
        if (a0 > soughtFor)
            firstRight = 0;
        soughtFor = a0;
        while (reference[firstRight] >= a0)
            ++firstRight;
        b1 = firstRight + (firstRight % 2 == static_cast<uint32_t>(colour) ? 0 : 1);
    }
};

} // namespace faxx::g4
