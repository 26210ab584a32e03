// The forms of the line encoders (instructions.h): the change list of a packed row into CodingLine, and its
// codes into the record's buffer.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "API/Filters/Fax/Common/Tif_faxx/instructions.h"

namespace faxx {

// In two dimensions, against ReferenceLine (T.6 § 2.2).
void EncodeModesAnywhere(CCITTG34* record, const uint8_t* row);
void EncodeModesFaster(CCITTG34* record, const uint8_t* row);

// In one dimension, with the line's end (T.4 § 4.1).
void EncodeRunsAnywhere(CCITTG34* record, const uint8_t* row);
void EncodeRunsFaster(CCITTG34* record, const uint8_t* row);

} // namespace faxx
