// A one-dimensional line in progress (T.4 § 4.1).
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/base/record.h"
#include "API/Filters/Fax/Common/Tif_faxx/bits/bit_input.h"
#include "API/Filters/Fax/Common/Tif_faxx/codes/t4_codes.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/run_rows.h"

namespace faxx::g3 {

// Changing elements are distances from the right edge.
struct Line {
    CCITTG34* record;
    BitInput input;
    uint32_t remaining = 0; // distance of the position reached; as a signed number below 0 past the edge
    uint32_t written = 0;   // changing elements on the coding line
    uint32_t limit = 0;     // of written

    explicit Line(CCITTG34* r) : record(r), input(r) {}

    void Begin(uint32_t width, uint32_t lineWords) {
        remaining = width;
        written = 0;
        limit = EntryLimit(lineWords);
    }

    // The colour of the run that is due.
    Colour Due() const { return written % 2 == 0 ? Colour::White : Colour::Black; }

    bool ReachedEdge() const { return static_cast<int32_t>(remaining) <= 0; }

    // Writes the end of a run; false where the line has reached its limit.
    bool Append() {
        if (written >= limit) [[unlikely]] {
            ReportDataError(record, ERROR_FAX_DATA_CORRUPT);
            return false;
        }
        record->CodingLine[written++] = remaining;
        return true;
    }
};

} // namespace faxx::g3
