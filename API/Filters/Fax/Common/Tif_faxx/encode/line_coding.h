// One packed row in one or two dimensions: its changing elements are listed in CodingLine, coded into the
// record's buffer, and become the reference line of the next row. Both codings exist for two instruction sets
// (dispatch.h).
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/base/instruction_sets.h"

namespace faxx {

// What follows a two-dimensional row's code: nothing, or an EOL that ends on a byte boundary.
enum class LineEnd : uint8_t { None, Eol };

// In two dimensions, against ReferenceLine (T.6 § 2.2, T.4 § 4.2.1.3).
void EncodeModesBaseline(CCITTG34* record, const uint8_t* row, LineEnd end);
void EncodeModesAvx2(CCITTG34* record, const uint8_t* row, LineEnd end);

// In one dimension (T.4 § 4.1), with an EOL or the bits to the next byte boundary, as the format has it.
void EncodeRunsBaseline(CCITTG34* record, const uint8_t* row);
void EncodeRunsAvx2(CCITTG34* record, const uint8_t* row);

} // namespace faxx
