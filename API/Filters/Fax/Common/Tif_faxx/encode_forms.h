// The forms of the line encoders (instructions.h): room is made in the record's buffer, a packed row is
// listed in CodingLine and coded into the buffer, and its list becomes the reference line.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/instructions.h"

namespace faxx {

enum class LineEnd : uint8_t { None, Eol };

// In two dimensions, against ReferenceLine (T.6 § 2.2).
void EncodeModesAnywhere(CCITTG34* record, const uint8_t* row, LineEnd end);
void EncodeModesFaster(CCITTG34* record, const uint8_t* row, LineEnd end);
void EncodeTwoDimensional(CCITTG34* record, const uint8_t* row, LineEnd end); // whichever of the two

// In one dimension, with the line's end (T.4 § 4.1).
void EncodeRunsAnywhere(CCITTG34* record, const uint8_t* row);
void EncodeRunsFaster(CCITTG34* record, const uint8_t* row);

} // namespace faxx
