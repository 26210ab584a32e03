// The fast reader of one-dimensional lines.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/decode/g3_line.h"

namespace faxx::g3 {

// Whether a line ends at the right edge; the probe does not know where that is.
enum class Edge : uint8_t { EndsLine, Unknown };

// From where a white run is due, reads what is ordinary and lies inside the input buffer: EOLs in front of
// the line, runs that end left of the edge and, where the edge ends lines, the run that reaches it exactly.
// Leaves the line and the bit position in a state that the plain decoder goes through as well: perhaps with a
// black run due, or behind a make-up code, which is taken off remaining. True when the line is complete.
bool ReadRunsBaseline(Line& line, Edge edge);
bool ReadRunsAvx2(Line& line, Edge edge);

} // namespace faxx::g3
