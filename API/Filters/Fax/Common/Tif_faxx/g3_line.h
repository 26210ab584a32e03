// A one-dimensional line in progress (T.4 § 4.1).
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/bit_input.h"
#include "API/Filters/Fax/Common/Tif_faxx/run_rows.h"

namespace faxx::g3 {

// A black run of length 0 as encoders put it behind a line whose last run is white.
inline constexpr unsigned kEmptyBlackRun = 0b0000110111;
inline constexpr unsigned kEmptyBlackRunBits = 10;

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

enum class Edge : uint8_t { EndsLine, Unknown };

// From where a white run is due, reads what takes its ordinary course inside the input buffer: EOLs in front
// of the line, runs that stay left of the edge and, where the edge ends lines, the run that reaches it
// exactly. Leaves the line and the bit position where the plain decoder would come by: perhaps with a black
// run due, or behind a make-up code, which is taken off remaining. True when the line is complete.
bool ReadFast(Line& line, Edge edge);

// Its two forms (instructions.h).
bool ReadFastAnywhere(Line& line, Edge edge);
bool ReadFastFaster(Line& line, Edge edge);

} // namespace faxx::g3
