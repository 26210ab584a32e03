// From packed rows to change lists.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"

namespace faxx {

// Lists the changing elements of a packed row of record->Width pixels (1 = black) in CodingLine, closed by
// three zeros. Reads the row's (Width + 7) / 8 bytes and ignores the bits beyond Width.
// Two forms (instructions.h).
void ListChangesAnywhere(CCITTG34* record, const uint8_t* row);
void ListChangesFaster(CCITTG34* record, const uint8_t* row);

} // namespace faxx
