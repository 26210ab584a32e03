// From packed rows to change lists.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"

namespace faxx {

// Lists the changing elements of a packed row of record->Width pixels (1 = black) in CodingLine, closed by
// three zeros, and returns how many they are. Reads the row's (Width + 7) / 8 bytes and ignores the bits
// beyond Width. For two instruction sets
// (base/dispatch.h).
uint32_t ListChangesBaseline(CCITTG34* record, const uint8_t* row);
uint32_t ListChangesAvx2(CCITTG34* record, const uint8_t* row);

} // namespace faxx
